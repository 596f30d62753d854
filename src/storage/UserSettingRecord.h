#pragma once

// The user setting record, the whole working state of the signal path: timings of inputs and
// outputs, containers, output groups, and the preview and the program view. It is the content of
// "save%d.sav". docs/files.md describes it, with the defaults. storage/ViewRecord.h explains names
// that contain a number.

#include "storage/ViewRecord.h"

inline constexpr uint32_t kInputCount = 26;
inline constexpr uint32_t kTimedInputCount = 24; // the first 24, which a reset gives a timing
inline constexpr uint32_t kOutputCount = 6;
inline constexpr uint32_t kGroupCount = 24;
inline constexpr uint32_t kRs1OutputCount = 24;
inline constexpr uint32_t kUserSettingId = 0x2021365C;
inline constexpr uint32_t kUserSettingTrailingId = 0x00123456;

// Raster timing, in pixels and lines. The starts count from the leading edge of the sync.
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

struct ColorKey {
    uint8_t enable;
    uint8_t colorKeyBytes1[3];
    uint8_t color[3];
};

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

// Size classes of the custom format. Any other value is none of the three.
inline constexpr uint8_t kSizeClassOrdinary = 0;
inline constexpr uint8_t kSizeClass4K2K = 1;
inline constexpr uint8_t kSizeClass8K1K = 2;

// Of an output, and of the custom format.
struct Resolution {
    uint32_t width;     // pixels
    uint32_t height;    // lines
    uint32_t frameRate; // Hz
    uint8_t sizeClass;  // one of the above
    uint8_t reserved13[3];
};

struct Rs1Output {
    uint16_t word0;
    uint16_t word2;
    uint8_t bytes4[9];
    uint8_t reserved13;
};

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

// The area of an output group.
struct GroupArea {
    uint8_t groupByte0; // 255 after a reset
    uint8_t reserved1[7];
    int32_t width; // pixels; a reset leaves width and height alone
    uint8_t reserved12[4];
    int32_t height;
};

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
    uint8_t extInputFormat; // video format id, not 125: the format for which 125 stands
    uint8_t reserved2414[2];

    Container containers[kContainerCount];
    GroupArea groupAreas[kGroupCount];
    uint8_t groupFlags[kGroupCount];

    uint8_t inputFlags[kTimedInputCount]; // inputs 24 and 25 have none
    uint8_t userModeMirror; // set to 1 by a load in user mode; part of page file names
    uint8_t factoryReset;   // set, then cleared by a reset; cleared by saving a page
    uint8_t pageNumber;     // of the page last loaded or saved
    uint8_t currentView;    // number of the view last set or saved

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
