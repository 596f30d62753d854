#include "storage/UserSetting.h"

#include <cstddef>
#include <cstring>

#include "core/memory.h"

uint8_t _currentView;

namespace {

static_assert(alignof(UserSetting) <= alignof(std::max_align_t), "the heap does not align it");

// Used before malloc_saveView(), and after it in place of blocks that the heap could not supply,
// because the getters have no failure result and every caller writes through their pointers.
// Untouched, they occupy no memory.
UserSetting spareUserSettings[2];
ViewSetting spareViewSettings[2];

// State, written by malloc_saveView().
bool blocksAreTaken;
ViewSetting *_pSaveViewSetting = &spareViewSettings[0];
UserSetting *_pUserSetting_old = &spareUserSettings[0];
ViewSetting *_pViewSetting = &spareViewSettings[1];
UserSetting *_pUserSetting = &spareUserSettings[1];

template <typename Record> void takeBlock(Record *&block)
{
    void *const memory = mymem_malloc(sizeof(Record));
    if (memory != nullptr) {
        std::memset(memory, 0, sizeof(Record));
        block = static_cast<Record *>(memory);
    }
}

} // namespace

void malloc_saveView()
{
    if (blocksAreTaken) {
        return;
    }
    blocksAreTaken = true;
    takeBlock(_pSaveViewSetting);
    takeBlock(_pUserSetting_old);
    takeBlock(_pViewSetting);
    takeBlock(_pUserSetting);
}

UserSetting *GetUserSetting()
{
    return _pUserSetting;
}

void copyUserSetting()
{
    std::memcpy(_pUserSetting_old, _pUserSetting, sizeof *_pUserSetting);
}

ViewSetting *GetPreviewViewSetting()
{
    return &_pUserSetting->preview;
}

ViewSetting *GetProgramViewSetting()
{
    return &_pUserSetting->program;
}

void ResetViewSetting()
{
    std::memcpy(_pViewSetting, GetPreviewViewSetting(), sizeof *_pViewSetting);
    clearContainerFlags(_pViewSetting);
    _pViewSetting->identification = kViewId;
}

void clearContainerFlags(ViewSetting *view)
{
    std::memset(view->other.containerFlags, 0, sizeof view->other.containerFlags);
    for (ContainerOther &container : view->containers) {
        container.flag = 0;
    }
}

uint32_t GetOutHActive()
{
    return _pUserSetting->outputTiming[0].hActive;
}

uint32_t GetOutVActive()
{
    return _pUserSetting->outputTiming[0].vActive;
}

Resolution *GetCustomResolution()
{
    return &_pUserSetting->customResolution;
}

uint8_t GetExtInputFormat()
{
    return _pUserSetting->extInputFormat;
}

// Waiting for a later model -----------------------------------------------------------------------

UserSetting *GetUserSetting_old()
{
    if (_pUserSetting_old->identification != kUserSettingId) {
        copyUserSetting();
    }
    return _pUserSetting_old;
}

ViewSetting *GetViewSetting()
{
    if (_pViewSetting->identification != kViewId) {
        ResetViewSetting();
    }
    return _pViewSetting;
}

ViewSetting *GetSaveViewSetting()
{
    return _pSaveViewSetting;
}

uint8_t GetCurrentView()
{
    return _currentView;
}
