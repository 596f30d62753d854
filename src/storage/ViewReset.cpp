#include "storage/ViewReset.h"

#include <cstring>

#include "storage/UserSetting.h"

namespace {

// The settings' words 4 and 6 are the active width and height of output 0, less these.
constexpr uint32_t kFromRight = 256;
constexpr uint32_t kFromBottom = 128;

} // namespace

void ResetLayerSetting(uint32_t layer, uint32_t input)
{
    if (layer >= kLayerCount) {
        return;
    }
    const UserSetting &setting = *GetUserSetting();
    Layer &target = GetProgramViewSetting()->layers[layer];
    target = {};
    target.inputPort = static_cast<uint8_t>(input);
    if (input < kInputCount) {
        target.sourceWidth = setting.inputTiming[input].hActive;
        target.sourceHeight = setting.inputTiming[input].vActive;
    }
    target.windowWidth = static_cast<uint16_t>(GetOutHActive());
    target.windowHeight = static_cast<uint16_t>(GetOutVActive());
    std::memset(target.layerBytes23, 50, sizeof target.layerBytes23);
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
    view->viewNumber = 1; // the byte after the block; stored settings have it so
}

void ResetContainerOtherSetting(uint32_t container)
{
    if (container >= kContainerCount) {
        return;
    }
    ContainerOther &other = GetProgramViewSetting()->containers[container];
    other.settingByte0 = 0;
    other.settingByte1 = 1;
    other.settingByte2 = 0;
    other.settingWord4 = static_cast<int16_t>(GetOutHActive() - kFromRight);
    other.settingWord6 = static_cast<int16_t>(GetOutVActive() - kFromBottom);
    other.settingByte8 = 1;
    other.settingByte9 = 0;
    other.settingWord10 = 0;
    other.settingWord12 = 0;
    other.flag = 0;
    other.settingByte15 = 1;
}

void ResetRS1_Setting(Rs1Setting *rs1)
{
    for (Rs1First &entry : rs1->first) {
        entry.word0 = 0;
        std::memset(entry.words2, 0, sizeof entry.words2);
        entry.byte10 = 255;
    }
    for (Rs1Second &entry : rs1->second) {
        for (Rs1Half &half : entry.halves) {
            half.word0 = 0;
            half.word2 = 0;
            half.byte4 = 0;
            half.word6 = 0;
            half.word8 = 0;
            half.byte10 = 0;
        }
        entry.halves[1].byte11 = 0; // in the second half only
    }
    for (Rs1Third &entry : rs1->third) {
        std::memset(entry.words0, 0, sizeof entry.words0);
        entry.byte16 = 0;
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
