#include "storage/UserSetting.h"

#include <cstddef>
#include <cstring>

#include "core/memory.h"

uint8_t _currentView;

namespace {

static_assert(alignof(UserSetting) <= alignof(std::max_align_t), "the heap does not align it");

// What the blocks are where the heap gives nothing. Untouched, they take no memory.
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

UserSetting *GetUserSetting_old()
{
    if (_pUserSetting_old->identification != kUserSettingId) {
        copyUserSetting();
    }
    return _pUserSetting_old;
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

ViewSetting *GetViewSetting()
{
    if (_pViewSetting->identification != kViewId) {
        ResetViewSetting();
    }
    return _pViewSetting;
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

ViewSetting *GetSaveViewSetting()
{
    return _pSaveViewSetting;
}

uint8_t GetCurrentView()
{
    return _currentView;
}

Resolution *GetCustomResolution()
{
    return &_pUserSetting->customResolution;
}

uint8_t GetExtInputFormat()
{
    return _pUserSetting->extInputFormat;
}
