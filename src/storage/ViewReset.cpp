#include "storage/ViewReset.h"

#include <cstring>

#include "storage/UserSetting.h"
#include "storage/UserSettingQuery.h"

namespace {

// What the settings' words 4 and 6 are less than output 0's active size.
constexpr uint32_t kFromRight = 256;
constexpr uint32_t kFromBottom = 128;

} // namespace

void ResetLayerSetting(uint32_t layer, uint32_t input)
{
    if (layer >= kLayerCount) {
        return;
    }
    const UserSetting &setting = *GetUserSetting();
    Layer &it = GetProgramViewSetting()->layers[layer];
    it = {};
    it.inputPort = static_cast<uint8_t>(input);
    if (input < kInputCount) {
        it.sourceWidth = setting.inputTiming[input].hActive;
        it.sourceHeight = setting.inputTiming[input].vActive;
    }
    it.windowWidth = static_cast<uint16_t>(GetOutHActive());
    it.windowHeight = static_cast<uint16_t>(GetOutVActive());
    std::memset(it.layerBytes23, 50, sizeof it.layerBytes23);
}

void ResetOutputLayerAlpha()
{
    ViewSetting &view = *GetProgramViewSetting();
    for (uint32_t i = 0; i < kLayerCount; ++i) {
        view.layerAlphaPos[i] = static_cast<uint8_t>(kLayerCount - 1 - i);
        view.layerAlpha[i] = 0;
    }
}

void ResetOtherSetting(ViewSetting *view)
{
    view->other = {};
    view->other.settingByte1 = 1;
    view->other.settingWord4 = static_cast<uint16_t>(GetOutHActive() - kFromRight);
    view->other.settingWord6 = static_cast<uint16_t>(GetOutVActive() - kFromBottom);
    view->other.settingByte8 = 1;
    view->viewNumber = 1; // the byte behind the block: stored settings have it so
}

void ResetContainerOtherSetting(uint32_t container)
{
    if (container >= kContainerCount) {
        return;
    }
    ContainerOther &it = GetProgramViewSetting()->containers[container];
    it.settingByte0 = 0;
    it.settingByte1 = 1;
    it.settingByte2 = 0;
    it.settingWord4 = static_cast<int16_t>(GetOutHActive() - kFromRight);
    it.settingWord6 = static_cast<int16_t>(GetOutVActive() - kFromBottom);
    it.settingByte8 = 1;
    it.settingByte9 = 0;
    it.settingWord10 = 0;
    it.settingWord12 = 0;
    it.flag = 0;
    it.settingByte15 = 1;
}

void ResetRS1_Setting(Rs1Setting *rs1)
{
    for (Rs1First &it : rs1->first) {
        it.word0 = 0;
        std::memset(it.words2, 0, sizeof it.words2);
        it.byte10 = 255;
    }
    for (Rs1Second &it : rs1->second) {
        for (Rs1Half &half : it.halves) {
            half.word0 = 0;
            half.word2 = 0;
            half.byte4 = 0;
            half.word6 = 0;
            half.word8 = 0;
            half.byte10 = 0;
        }
        it.halves[1].byte11 = 0; // of the second half only
    }
    for (Rs1Third &it : rs1->third) {
        std::memset(it.words0, 0, sizeof it.words0);
        it.byte16 = 0;
    }
}

void resetPreviewView()
{
    ViewSetting &preview = *GetPreviewViewSetting();
    std::memcpy(&preview, GetProgramViewSetting(), sizeof preview);
    preview.identification = kViewId;
    preview.viewByte0 = 0;
    preview.viewNumber = 0;
    ResetRS1_Setting(&preview.rs1);
}

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
