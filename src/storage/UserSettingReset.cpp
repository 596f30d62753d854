#include "storage/UserSettingReset.h"

#include <cstddef>
#include <cstring>

#include "storage/UserSetting.h"
#include "storage/ViewReset.h"
#include "video/VideoFormatTable.h"

namespace {

constexpr uint8_t kInputFormat = 76;  // "3840x2160x60"
constexpr uint8_t kOutputFormat = 10; // "1920x1080x60"

// The size of the window, which is centred on output 0.
constexpr uint32_t kWindowWidth = 360;
constexpr uint32_t kWindowHeight = 80;

constexpr uint32_t kPreInputGroups = 4;

// Sets the fields that input and output timings have in common.
template <typename Timing> void resetTiming(Timing &timing, uint32_t format, uint32_t vActive)
{
    timing.format = static_cast<uint8_t>(format);
    timing.syncPolarity = static_cast<uint8_t>(GetHSyncPolarityByVideoFormat(format) |
                                               GetVSyncPolarityByVideoFormat(format) << 1);
    timing.hTotal = static_cast<uint16_t>(GetHTotalByVideoFormat(format));
    timing.vTotal = static_cast<uint16_t>(GetVTotalByVideoFormat(format));
    timing.hStart = static_cast<uint16_t>(GetHStartByVideoFormat(format));
    timing.vStart = static_cast<uint16_t>(GetVStartByVideoFormat(format));
    timing.hActive = static_cast<uint16_t>(GetHDEByVideoFormat(format));
    timing.vActive = static_cast<uint16_t>(vActive);
    timing.hSyncWidth = static_cast<uint16_t>(GetHSyncWidthByVideoFormat(format));
    timing.vSyncWidth = static_cast<uint16_t>(GetVSyncWidthByVideoFormat(format));
    timing.timingByte18 = 0;
}

// Sets all but the reserved bytes.
void resetResolution(Resolution &resolution)
{
    resolution.width = 1920;
    resolution.height = 1080;
    resolution.frameRate = 60;
    resolution.sizeClass = kSizeClassOrdinary;
}

template <size_t kSize> void numberEntries(uint8_t (&table)[kSize])
{
    for (size_t i = 0; i < kSize; ++i) {
        table[i] = static_cast<uint8_t>(i);
    }
}

// Sets the bytes that belong to no section.
void resetSingleSettings(UserSetting &setting)
{
    constexpr uint8_t kTable3716[] = {5, 7, 13, 15, 21, 23, 29, 31};

    setting.userMode = 0;
    std::memset(setting.groupFlags, 0, sizeof setting.groupFlags);
    setting.pageNumber = 0;
    setting.currentView = 0;
    _currentView = 0;
    std::memcpy(setting.table3716, kTable3716, sizeof kTable3716);
    numberEntries(setting.indexTable3726);
    resetResolution(setting.customResolution);
    setting.settingWord3752 = 0;
    setting.settingBytes3756[0] = 0;
    setting.settingBytes3756[1] = 1;
    setting.settingByte3758 = 255;
    std::memset(setting.settingBytes3759, 0, sizeof setting.settingBytes3759);
    setting.windowX = static_cast<uint16_t>((GetOutHActive() - kWindowWidth) / 2);
    setting.windowY = static_cast<uint16_t>((GetOutVActive() - kWindowHeight) / 2);
    setting.settingByte3768 = 1;
    setting.settingValue3776 = 0.0;
    std::memset(setting.flags3784, 0, sizeof setting.flags3784);
    setting.settingByte11807 = 0;
    setting.settingByte11824 = 0;
    setting.settingByte11825 = 0;
}

} // namespace

void ResetUserSettingSave()
{
    UserSetting &setting = *GetUserSetting();
    setting.identification = kUserSettingId;
    setting.trailingIdentification = kUserSettingTrailingId;
    setting.factoryReset = 1; // until ResetPreInputSetting(25), below, clears it
    setting.extInputFormat = kOutputFormat;
    setting.settingByte2412 = 128;

    for (uint32_t i = 0; i < kInputCount; ++i) {
        ResetInputSetting(i, kInputFormat);
        ResetPreInputSetting(i);
        ResetInputColorKey(i);
    }
    for (uint32_t i = 0; i < kOutputCount; ++i) {
        ResetOutputSetting(i, kOutputFormat);
        setting.outputFormat[i] = kOutputFormat;
        setting.outputEnable[i] = 1;
        resetResolution(setting.outputResolution[i]);
    }
    for (uint32_t i = 0; i < kLayerCount; ++i) {
        ResetLayerSetting(i, i % kTimedInputCount);
    }
    for (uint32_t i = 0; i < kContainerCount; ++i) {
        ResetContainerSetting(i);
    }
    setting.settingByte2000 = 1;
    setting.settingByte2001 = 0;
    setting.userModeMirror = 0;
    std::memset(setting.settingBytes3766, 0, sizeof setting.settingBytes3766);

    ResetOutputGroupArea();
    ResetOutputLayerAlpha();
    resetSingleSettings(setting);

    ResetFpgaSetting();
    ResetOtherSetting(&setting.program);
    for (uint32_t i = 0; i < kContainerCount; ++i) {
        ResetContainerOtherSetting(i);
    }
    numberEntries(setting.indexTable11808);
    ResetRS1OutputSetting();
    resetPreviewView();
    ResetViewSetting();
}

void ResetInputSetting(uint32_t input, uint32_t format)
{
    if (input >= kTimedInputCount) {
        return;
    }
    UserSetting &setting = *GetUserSetting();
    setting.inputEnable[input] = 1;
    InputTiming &timing = setting.inputTiming[input];
    resetTiming(timing, format, GetVDEByVideoFormat2(format)); // of a field
    timing.timingByte19 = 0;
    timing.vFreq = static_cast<uint8_t>(GetVFreqByVideoFormat(format));
}

void ResetPreInputSetting(uint32_t input)
{
    if (input >= kInputCount) {
        return;
    }
    UserSetting &setting = *GetUserSetting();
    PreInput &preInput = setting.preInput[input];
    const bool timed = input < kTimedInputCount;
    preInput.group = static_cast<uint8_t>(input % kPreInputGroups);
    preInput.preInputByte1 = 0;
    preInput.preInputByte2 = 0;
    preInput.sourceX = 0;
    preInput.sourceY = 0;
    preInput.sourceWidth = timed ? setting.inputTiming[input].hActive : 3840;
    preInput.sourceHeight = timed ? setting.inputTiming[input].vActive : 2160;
    preInput.targetX = 0;
    preInput.targetY = 0;
    preInput.targetWidth = timed ? 1920 : 3840;
    preInput.targetHeight = timed ? 1080 : 2160;
    preInput.preInputByte20 = 128;
    preInput.groupBit = static_cast<uint8_t>(1U << preInput.group);
    std::memset(preInput.preInputBytes22, 50, sizeof preInput.preInputBytes22);
    std::memset(preInput.preInputBytes26, 50, sizeof preInput.preInputBytes26);
    std::memset(preInput.preInputBytes29, 26, sizeof preInput.preInputBytes29);
    preInput.preInputByte32 = 50;
    preInput.preInputByte33 = 0;
    preInput.preInputByte34 = 0;

    // There are only 24 flags. For inputs 24 and 25 the two bytes after them are cleared instead,
    // as existing settings files have them.
    if (timed) {
        setting.inputFlags[input] = 0;
    } else if (input == kTimedInputCount) {
        setting.userModeMirror = 0;
    } else {
        setting.factoryReset = 0;
    }
}

void ResetInputColorKey(uint32_t input)
{
    if (input < kInputCount) {
        GetUserSetting()->inputColorKey[input] = {0, {1, 0, 0}, {208, 208, 208}};
    }
}

void ResetOutputSetting(uint32_t output, uint32_t format)
{
    if (output >= kOutputCount) {
        return;
    }
    OutputTiming &timing = GetUserSetting()->outputTiming[output];
    resetTiming(timing, format, GetVDEByVideoFormat(format)); // of a frame
    timing.timingWord24 = 1000;
}

void ResetContainerSetting(uint32_t container)
{
    constexpr uint8_t kBytes16[] = {0, 2, 2, 0, 0};
    constexpr uint8_t kBytes24[] = {0, 0, 0, 1, 0, 20};

    if (container >= kContainerCount) {
        return;
    }
    Container &canvas = GetUserSetting()->containers[container];
    canvas.containerWord0 = 100;
    canvas.containerWord2 = 0;
    canvas.containerWord4 = 0;
    canvas.width = 3840;
    canvas.height = 2160;
    std::memcpy(canvas.containerBytes16, kBytes16, sizeof kBytes16);
    canvas.containerWord22 = 1000;
    std::memcpy(canvas.containerBytes24, kBytes24, sizeof kBytes24);
}

void ResetOutputGroupArea()
{
    for (GroupArea &area : GetUserSetting()->groupAreas) {
        area.groupByte0 = 255;
    }
    ResetRS1OutputSetting();
}

void ResetRS1OutputSetting()
{
    UserSetting &setting = *GetUserSetting();
    std::memset(setting.rs1OutputBytes2028, 0, sizeof setting.rs1OutputBytes2028);
    std::memset(setting.rs1OutputBytes2052, 0, sizeof setting.rs1OutputBytes2052);
    for (Rs1Output &output : setting.rs1Outputs) {
        output.word0 = 0;
        output.word2 = 0;
        std::memset(output.bytes4, 0, sizeof output.bytes4);
    }
}

void ResetFpgaSetting()
{
    constexpr uint8_t kFpgaSettings[] = {1, 0, 20};
    std::memcpy(GetUserSetting()->fpgaSettings, kFpgaSettings, sizeof kFpgaSettings);
}
