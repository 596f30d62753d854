#include "storage/ViewFile.h"

#include <cstdio>
#include <cstring>

#include "storage/UserSetting.h"
#include "storage/ViewReset.h"
#include "storage/fatfs.h"

namespace {

// State, main loop only: the handle of the view file being read, closed between operations.
FileHandle viewFile;

FileName fileName(int32_t slot)
{
    return numberedFile("view", slot);
}

bool isSlot(int32_t slot)
{
    return slot >= 0 && slot < static_cast<int32_t>(kViewCount);
}

bool isCurrent(int32_t slot)
{
    return slot == GetUserSetting()->currentView;
}

void copyCurrentView()
{
    std::memcpy(GetSaveViewSetting(), GetViewSetting(), sizeof(ViewSetting));
}

bool _LoadViewSetting_help(int32_t slot)
{
    if (!isSlot(slot)) {
        return false;
    }
    const FileName name = fileName(slot);
    if (sd_open(&viewFile, name.text, kRead) != kFileOk) {
        std::printf("open file %s fail\r\n", name.text);
        return false;
    }
    ViewSetting &view = *GetSaveViewSetting();
    uint32_t done = 0;
    // The count is dropped: a short file is no failure.
    if (f_read(&viewFile, &view, sizeof view, &done) != kFileOk) {
        std::printf("read file %s fail\r\n", name.text);
        f_close(&viewFile);
        return false;
    }
    f_close(&viewFile);
    return view.identification == kViewId;
}

} // namespace

void ResetSaveViewSetting()
{
    const ViewSetting &preview = *GetPreviewViewSetting();
    ViewSetting &slot = *GetSaveViewSetting();
    ResetOtherSetting(&slot);
    std::memcpy(slot.layers, preview.layers, sizeof slot.layers);
    std::memset(slot.layerAlpha, 0, sizeof slot.layerAlpha);
    std::memcpy(slot.layerAlphaPos, preview.layerAlphaPos, sizeof slot.layerAlphaPos);
    clearContainerFlags(&slot);
    slot.identification = kViewId;
}

int32_t LoadViewSetting(int32_t slot)
{
    int32_t result = 1;
    if (!_LoadViewSetting_help(slot)) {
        std::printf("try again _LoadViewSetting_help(%d)\r\n", slot);
        if (!_LoadViewSetting_help(slot)) {
            if (isCurrent(slot)) {
                copyCurrentView();
            } else {
                ResetSaveViewSetting();
            }
            result = 0;
        }
    }
    if (isEmptyView(GetSaveViewSetting()) && isCurrent(slot)) {
        copyCurrentView();
        result = 0;
    }
    return result;
}

int32_t SaveViewSetting(int32_t slot)
{
    if (!isSlot(slot)) {
        return 0;
    }
    ViewSetting &view = *GetSaveViewSetting();
    view.identification = kViewId;
    view.viewNumber = static_cast<uint8_t>(slot);
    const FileName name = fileName(slot);
    SaveFile file = -1;
    if (sd_beginSave(&file, name.text) != kFileOk) {
        std::printf("open file %s fail\r\n", name.text);
        return 0;
    }
    uint32_t done = 0;
    const uint32_t result = sd_endSave(&file, name.text, &view, sizeof view, &done);
    if (result != kFileOk || done != sizeof view) {
        std::printf("wirte file %s fail\r\n", name.text);
        return 0;
    }
    return 1;
}

void ClearViewSetting()
{
    GetSaveViewSetting()->identification = 0;
    for (int32_t slot = 0; slot < static_cast<int32_t>(kViewCount); ++slot) {
        sd_unlink(fileName(slot).text); // dropped: most views are not stored
    }
}

bool isEmptyView(const ViewSetting *view)
{
    static constexpr uint8_t kAllOff[kLayerCount] = {};
    return std::memcmp(view->layerAlpha, kAllOff, sizeof kAllOff) == 0;
}
