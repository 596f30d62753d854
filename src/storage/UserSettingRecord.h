#pragma once

// The user setting record, the whole working state of the signal path: timings of inputs and
// outputs, containers, output groups, and the preview and the program view. It is the content of
// "save%d.sav". docs/files.md describes it, with the defaults. Names with a number are explained
// in ViewRecord.h.

#include "storage/ViewRecord.h"

inline constexpr uint32_t kInputCount = 26;
inline constexpr uint32_t kTimedInputCount = 24; // the first ones: a reset gives them a timing
inline constexpr uint32_t kOutputCount = 6;
inline constexpr uint32_t kGroupCount = 24;
inline constexpr uint32_t kRs1OutputCount = 24;
inline constexpr uint32_t kUserSettingId = 0x2021365C;
inline constexpr uint32_t kUserSettingTrailingId = 0x00123456;

// Raster timing. Pixels and lines; the starts count from the leading edge of the sync.
struct InputTiming {
    uint8_t format;       // video format id
    uint8_t syncPolarity; // bit 0 horizontal, bit 1 vertical, set: negative
    uint16_t hTotal;
    uint16_t vTotal;
    uint16_t hStart;
    uint16_t vStart;
    uint16_t hActive;
    uint16_t vActive; // of a field, for an interlaced format
    uint16_t hSyncWidth;
    uint16_t vSyncWidth;
    uint8_t timingByte18;
    uint8_t timingByte19;
    uint8_t vFreq; // Hz
    uint8_t reserved21;
};
RECORD_FIELD(InputTiming, 0, uint8_t, format);
RECORD_FIELD(InputTiming, 1, uint8_t, syncPolarity);
RECORD_FIELD(InputTiming, 2, uint16_t, hTotal);
RECORD_FIELD(InputTiming, 4, uint16_t, vTotal);
RECORD_FIELD(InputTiming, 6, uint16_t, hStart);
RECORD_FIELD(InputTiming, 8, uint16_t, vStart);
RECORD_FIELD(InputTiming, 10, uint16_t, hActive);
RECORD_FIELD(InputTiming, 12, uint16_t, vActive);
RECORD_FIELD(InputTiming, 14, uint16_t, hSyncWidth);
RECORD_FIELD(InputTiming, 16, uint16_t, vSyncWidth);
RECORD_FIELD(InputTiming, 18, uint8_t, timingByte18);
RECORD_FIELD(InputTiming, 19, uint8_t, timingByte19);
RECORD_FIELD(InputTiming, 20, uint8_t, vFreq);
RECORD_FIELD(InputTiming, 21, uint8_t, reserved21);
static_assert(sizeof(InputTiming) == 22);
static_assert(std::has_unique_object_representations_v<InputTiming>, "hidden padding");

struct PreInput {
    uint8_t group; // 0 to 3
    uint8_t preInputByte1;
    uint8_t preInputByte2;
    uint8_t reserved3;
    uint16_t sourceX; // pixels
    uint16_t sourceY;
    uint16_t sourceWidth;
    uint16_t sourceHeight;
    uint16_t targetX;
    uint16_t targetY;
    uint16_t targetWidth;
    uint16_t targetHeight;
    uint8_t preInputByte20;
    uint8_t groupBit; // 1 << group
    uint8_t preInputBytes22[4];
    uint8_t preInputBytes26[3];
    uint8_t preInputBytes29[3];
    uint8_t preInputByte32;
    uint8_t preInputByte33;
    uint8_t preInputByte34;
    uint8_t reserved35;
};
RECORD_FIELD(PreInput, 0, uint8_t, group);
RECORD_FIELD(PreInput, 1, uint8_t, preInputByte1);
RECORD_FIELD(PreInput, 2, uint8_t, preInputByte2);
RECORD_FIELD(PreInput, 3, uint8_t, reserved3);
RECORD_FIELD(PreInput, 4, uint16_t, sourceX);
RECORD_FIELD(PreInput, 6, uint16_t, sourceY);
RECORD_FIELD(PreInput, 8, uint16_t, sourceWidth);
RECORD_FIELD(PreInput, 10, uint16_t, sourceHeight);
RECORD_FIELD(PreInput, 12, uint16_t, targetX);
RECORD_FIELD(PreInput, 14, uint16_t, targetY);
RECORD_FIELD(PreInput, 16, uint16_t, targetWidth);
RECORD_FIELD(PreInput, 18, uint16_t, targetHeight);
RECORD_FIELD(PreInput, 20, uint8_t, preInputByte20);
RECORD_FIELD(PreInput, 21, uint8_t, groupBit);
RECORD_FIELD(PreInput, 22, uint8_t[4], preInputBytes22);
RECORD_FIELD(PreInput, 26, uint8_t[3], preInputBytes26);
RECORD_FIELD(PreInput, 29, uint8_t[3], preInputBytes29);
RECORD_FIELD(PreInput, 32, uint8_t, preInputByte32);
RECORD_FIELD(PreInput, 33, uint8_t, preInputByte33);
RECORD_FIELD(PreInput, 34, uint8_t, preInputByte34);
RECORD_FIELD(PreInput, 35, uint8_t, reserved35);
static_assert(sizeof(PreInput) == 36);
static_assert(std::has_unique_object_representations_v<PreInput>, "hidden padding");

struct ColorKey {
    uint8_t enable;
    uint8_t colorKeyBytes1[3];
    uint8_t color[3];
};
RECORD_FIELD(ColorKey, 0, uint8_t, enable);
RECORD_FIELD(ColorKey, 1, uint8_t[3], colorKeyBytes1);
RECORD_FIELD(ColorKey, 4, uint8_t[3], color);
static_assert(sizeof(ColorKey) == 7);
static_assert(std::has_unique_object_representations_v<ColorKey>, "hidden padding");

// As InputTiming up to vSyncWidth.
struct OutputTiming {
    uint8_t format;
    uint8_t syncPolarity;
    uint16_t hTotal;
    uint16_t vTotal;
    uint16_t hStart;
    uint16_t vStart;
    uint16_t hActive;
    uint16_t vActive; // of a frame, for an interlaced format too
    uint16_t hSyncWidth;
    uint16_t vSyncWidth;
    uint8_t timingByte18;
    uint8_t reserved19[5];
    uint32_t timingWord24;
};
RECORD_FIELD(OutputTiming, 0, uint8_t, format);
RECORD_FIELD(OutputTiming, 1, uint8_t, syncPolarity);
RECORD_FIELD(OutputTiming, 2, uint16_t, hTotal);
RECORD_FIELD(OutputTiming, 4, uint16_t, vTotal);
RECORD_FIELD(OutputTiming, 6, uint16_t, hStart);
RECORD_FIELD(OutputTiming, 8, uint16_t, vStart);
RECORD_FIELD(OutputTiming, 10, uint16_t, hActive);
RECORD_FIELD(OutputTiming, 12, uint16_t, vActive);
RECORD_FIELD(OutputTiming, 14, uint16_t, hSyncWidth);
RECORD_FIELD(OutputTiming, 16, uint16_t, vSyncWidth);
RECORD_FIELD(OutputTiming, 18, uint8_t, timingByte18);
RECORD_FIELD(OutputTiming, 19, uint8_t[5], reserved19);
RECORD_FIELD(OutputTiming, 24, uint32_t, timingWord24);
static_assert(sizeof(OutputTiming) == 28);
static_assert(std::has_unique_object_representations_v<OutputTiming>, "hidden padding");

// Of an output, and of the custom format.
struct Resolution {
    uint32_t width;     // pixels
    uint32_t height;    // lines
    uint32_t frameRate; // Hz
    uint8_t sizeClass;  // 0 ordinary, 1 4K x 2K, 2 8K x 1K
    uint8_t reserved13[3];
};
RECORD_FIELD(Resolution, 0, uint32_t, width);
RECORD_FIELD(Resolution, 4, uint32_t, height);
RECORD_FIELD(Resolution, 8, uint32_t, frameRate);
RECORD_FIELD(Resolution, 12, uint8_t, sizeClass);
RECORD_FIELD(Resolution, 13, uint8_t[3], reserved13);
static_assert(sizeof(Resolution) == 16);
static_assert(std::has_unique_object_representations_v<Resolution>, "hidden padding");

struct Rs1Output {
    uint16_t word0;
    uint16_t word2;
    uint8_t bytes4[9];
    uint8_t reserved13;
};
RECORD_FIELD(Rs1Output, 0, uint16_t, word0);
RECORD_FIELD(Rs1Output, 2, uint16_t, word2);
RECORD_FIELD(Rs1Output, 4, uint8_t[9], bytes4);
RECORD_FIELD(Rs1Output, 13, uint8_t, reserved13);
static_assert(sizeof(Rs1Output) == 14);
static_assert(std::has_unique_object_representations_v<Rs1Output>, "hidden padding");

// An output canvas.
struct Container {
    uint16_t containerWord0;
    uint16_t containerWord2;
    uint16_t containerWord4;
    uint8_t reserved6[2];
    uint32_t width; // pixels
    uint32_t height;
    uint8_t containerBytes16[5];
    uint8_t reserved21;
    uint16_t containerWord22;
    uint8_t containerBytes24[6];
    uint8_t reserved30[2];
};
RECORD_FIELD(Container, 0, uint16_t, containerWord0);
RECORD_FIELD(Container, 2, uint16_t, containerWord2);
RECORD_FIELD(Container, 4, uint16_t, containerWord4);
RECORD_FIELD(Container, 6, uint8_t[2], reserved6);
RECORD_FIELD(Container, 8, uint32_t, width);
RECORD_FIELD(Container, 12, uint32_t, height);
RECORD_FIELD(Container, 16, uint8_t[5], containerBytes16);
RECORD_FIELD(Container, 21, uint8_t, reserved21);
RECORD_FIELD(Container, 22, uint16_t, containerWord22);
RECORD_FIELD(Container, 24, uint8_t[6], containerBytes24);
RECORD_FIELD(Container, 30, uint8_t[2], reserved30);
static_assert(sizeof(Container) == 32);
static_assert(std::has_unique_object_representations_v<Container>, "hidden padding");

// The area of an output group.
struct GroupArea {
    uint8_t groupByte0; // 255 after a reset
    uint8_t reserved1[7];
    int32_t width; // pixels; a reset leaves both
    uint8_t reserved12[4];
    int32_t height;
};
RECORD_FIELD(GroupArea, 0, uint8_t, groupByte0);
RECORD_FIELD(GroupArea, 1, uint8_t[7], reserved1);
RECORD_FIELD(GroupArea, 8, int32_t, width);
RECORD_FIELD(GroupArea, 12, uint8_t[4], reserved12);
RECORD_FIELD(GroupArea, 16, int32_t, height);
static_assert(sizeof(GroupArea) == 20);
static_assert(std::has_unique_object_representations_v<GroupArea>, "hidden padding");

struct UserSetting {
    uint32_t identification; // kUserSettingId

    uint8_t inputEnable[kInputCount];
    InputTiming inputTiming[kInputCount];
    PreInput preInput[kInputCount];
    ColorKey inputColorKey[kInputCount];

    uint32_t userMode; // 0 or 1

    OutputTiming outputTiming[kOutputCount];
    uint8_t outputFormat[kOutputCount]; // video format id
    uint8_t outputEnable[kOutputCount];
    Resolution outputResolution[kOutputCount];

    uint8_t settingByte2000;
    uint8_t settingByte2001;
    uint8_t reserved2002[26];

    uint8_t rs1OutputBytes2028[kRs1OutputCount];
    uint8_t rs1OutputBytes2052[kRs1OutputCount];
    Rs1Output rs1Outputs[kRs1OutputCount];

    uint8_t settingByte2412;
    uint8_t extInputFormat; // video format id, other than 125: what that id stands for
    uint8_t reserved2414[2];

    Container containers[kContainerCount];
    GroupArea groupAreas[kGroupCount];
    uint8_t groupFlags[kGroupCount];

    uint8_t inputFlags[kTimedInputCount]; // those of inputs 24 and 25 are the next two bytes
    uint8_t userModeMirror;               // 1 by a load in user mode; in the names of pages
    uint8_t factoryReset;                 // set and cleared by a reset, cleared with a page
    uint8_t pageNumber;                   // of the page last loaded or saved
    uint8_t currentView;                  // number of the view last set or saved

    uint8_t table3716[8];
    uint8_t reserved3724[2];
    uint8_t indexTable3726[8];
    uint8_t reserved3734[2];

    Resolution customResolution; // of video format 124

    uint32_t settingWord3752;
    uint8_t settingBytes3756[2];
    uint8_t settingByte3758;
    uint8_t settingBytes3759[2];
    uint8_t reserved3761;
    uint16_t windowX; // pixels of output 0
    uint16_t windowY;
    uint8_t settingBytes3766[2];
    uint8_t settingByte3768;
    uint8_t reserved3769[7];
    double settingValue3776;
    uint8_t flags3784[24];
    uint8_t reserved3808[4];

    ViewSetting preview;
    ViewSetting program;

    uint8_t fpgaSettings[3];
    uint8_t settingByte11807;
    uint8_t indexTable11808[16];
    uint8_t settingByte11824;
    uint8_t settingByte11825;
    uint8_t reserved11826[2];
    uint32_t trailingIdentification; // kUserSettingTrailingId
};
RECORD_FIELD(UserSetting, 0, uint32_t, identification);
RECORD_FIELD(UserSetting, 4, uint8_t[26], inputEnable);
RECORD_FIELD(UserSetting, 30, InputTiming[26], inputTiming);
RECORD_FIELD(UserSetting, 602, PreInput[26], preInput);
RECORD_FIELD(UserSetting, 1538, ColorKey[26], inputColorKey);
RECORD_FIELD(UserSetting, 1720, uint32_t, userMode);
RECORD_FIELD(UserSetting, 1724, OutputTiming[6], outputTiming);
RECORD_FIELD(UserSetting, 1892, uint8_t[6], outputFormat);
RECORD_FIELD(UserSetting, 1898, uint8_t[6], outputEnable);
RECORD_FIELD(UserSetting, 1904, Resolution[6], outputResolution);
RECORD_FIELD(UserSetting, 2000, uint8_t, settingByte2000);
RECORD_FIELD(UserSetting, 2001, uint8_t, settingByte2001);
RECORD_FIELD(UserSetting, 2002, uint8_t[26], reserved2002);
RECORD_FIELD(UserSetting, 2028, uint8_t[24], rs1OutputBytes2028);
RECORD_FIELD(UserSetting, 2052, uint8_t[24], rs1OutputBytes2052);
RECORD_FIELD(UserSetting, 2076, Rs1Output[24], rs1Outputs);
RECORD_FIELD(UserSetting, 2412, uint8_t, settingByte2412);
RECORD_FIELD(UserSetting, 2413, uint8_t, extInputFormat);
RECORD_FIELD(UserSetting, 2414, uint8_t[2], reserved2414);
RECORD_FIELD(UserSetting, 2416, Container[24], containers);
RECORD_FIELD(UserSetting, 3184, GroupArea[24], groupAreas);
RECORD_FIELD(UserSetting, 3664, uint8_t[24], groupFlags);
RECORD_FIELD(UserSetting, 3688, uint8_t[24], inputFlags);
RECORD_FIELD(UserSetting, 3712, uint8_t, userModeMirror);
RECORD_FIELD(UserSetting, 3713, uint8_t, factoryReset);
RECORD_FIELD(UserSetting, 3714, uint8_t, pageNumber);
RECORD_FIELD(UserSetting, 3715, uint8_t, currentView);
RECORD_FIELD(UserSetting, 3716, uint8_t[8], table3716);
RECORD_FIELD(UserSetting, 3724, uint8_t[2], reserved3724);
RECORD_FIELD(UserSetting, 3726, uint8_t[8], indexTable3726);
RECORD_FIELD(UserSetting, 3734, uint8_t[2], reserved3734);
RECORD_FIELD(UserSetting, 3736, Resolution, customResolution);
RECORD_FIELD(UserSetting, 3752, uint32_t, settingWord3752);
RECORD_FIELD(UserSetting, 3756, uint8_t[2], settingBytes3756);
RECORD_FIELD(UserSetting, 3758, uint8_t, settingByte3758);
RECORD_FIELD(UserSetting, 3759, uint8_t[2], settingBytes3759);
RECORD_FIELD(UserSetting, 3761, uint8_t, reserved3761);
RECORD_FIELD(UserSetting, 3762, uint16_t, windowX);
RECORD_FIELD(UserSetting, 3764, uint16_t, windowY);
RECORD_FIELD(UserSetting, 3766, uint8_t[2], settingBytes3766);
RECORD_FIELD(UserSetting, 3768, uint8_t, settingByte3768);
RECORD_FIELD(UserSetting, 3769, uint8_t[7], reserved3769);
RECORD_FIELD(UserSetting, 3776, double, settingValue3776);
RECORD_FIELD(UserSetting, 3784, uint8_t[24], flags3784);
RECORD_FIELD(UserSetting, 3808, uint8_t[4], reserved3808);
RECORD_FIELD(UserSetting, 3812, ViewSetting, preview);
RECORD_FIELD(UserSetting, 7808, ViewSetting, program);
RECORD_FIELD(UserSetting, 11804, uint8_t[3], fpgaSettings);
RECORD_FIELD(UserSetting, 11807, uint8_t, settingByte11807);
RECORD_FIELD(UserSetting, 11808, uint8_t[16], indexTable11808);
RECORD_FIELD(UserSetting, 11824, uint8_t, settingByte11824);
RECORD_FIELD(UserSetting, 11825, uint8_t, settingByte11825);
RECORD_FIELD(UserSetting, 11826, uint8_t[2], reserved11826);
RECORD_FIELD(UserSetting, 11828, uint32_t, trailingIdentification);
static_assert(sizeof(UserSetting) == 11832);
static_assert(alignof(UserSetting) <= alignof(std::max_align_t), "the heap does not align it");
// No hidden padding: a record with a double has no other proof of it.
static_assert(sizeof(UserSetting::identification) + sizeof(UserSetting::inputEnable) +
                  sizeof(UserSetting::inputTiming) + sizeof(UserSetting::preInput) +
                  sizeof(UserSetting::inputColorKey) + sizeof(UserSetting::userMode) +
                  sizeof(UserSetting::outputTiming) + sizeof(UserSetting::outputFormat) +
                  sizeof(UserSetting::outputEnable) + sizeof(UserSetting::outputResolution) +
                  sizeof(UserSetting::settingByte2000) + sizeof(UserSetting::settingByte2001) +
                  sizeof(UserSetting::reserved2002) + sizeof(UserSetting::rs1OutputBytes2028) +
                  sizeof(UserSetting::rs1OutputBytes2052) + sizeof(UserSetting::rs1Outputs) +
                  sizeof(UserSetting::settingByte2412) + sizeof(UserSetting::extInputFormat) +
                  sizeof(UserSetting::reserved2414) + sizeof(UserSetting::containers) +
                  sizeof(UserSetting::groupAreas) + sizeof(UserSetting::groupFlags) +
                  sizeof(UserSetting::inputFlags) + sizeof(UserSetting::userModeMirror) +
                  sizeof(UserSetting::factoryReset) + sizeof(UserSetting::pageNumber) +
                  sizeof(UserSetting::currentView) + sizeof(UserSetting::table3716) +
                  sizeof(UserSetting::reserved3724) + sizeof(UserSetting::indexTable3726) +
                  sizeof(UserSetting::reserved3734) + sizeof(UserSetting::customResolution) +
                  sizeof(UserSetting::settingWord3752) + sizeof(UserSetting::settingBytes3756) +
                  sizeof(UserSetting::settingByte3758) + sizeof(UserSetting::settingBytes3759) +
                  sizeof(UserSetting::reserved3761) + sizeof(UserSetting::windowX) +
                  sizeof(UserSetting::windowY) + sizeof(UserSetting::settingBytes3766) +
                  sizeof(UserSetting::settingByte3768) + sizeof(UserSetting::reserved3769) +
                  sizeof(UserSetting::settingValue3776) + sizeof(UserSetting::flags3784) +
                  sizeof(UserSetting::reserved3808) + sizeof(UserSetting::preview) +
                  sizeof(UserSetting::program) + sizeof(UserSetting::fpgaSettings) +
                  sizeof(UserSetting::settingByte11807) + sizeof(UserSetting::indexTable11808) +
                  sizeof(UserSetting::settingByte11824) + sizeof(UserSetting::settingByte11825) +
                  sizeof(UserSetting::reserved11826) +
                  sizeof(UserSetting::trailingIdentification) ==
              11832);
