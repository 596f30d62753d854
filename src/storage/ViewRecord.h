#pragma once

// The record of one view, a complete screen composition: 96 layers, their stacking and alpha, and
// the containers' settings. It is the content of "view%d.sav" and a sixteenth of a page. The user
// setting record contains two. docs/files.md describes it, with the defaults.
//
// Of a field with a number in its name, this program knows only the offset, which is the number,
// and the default.

#include <cstdint>

inline constexpr uint32_t kLayerCount = 96;
inline constexpr uint32_t kContainerCount = 24;
inline constexpr uint32_t kViewCount = 16; // stored views: slots 0 to 15
inline constexpr uint32_t kViewId = 0x29215679;

struct Layer {
    uint8_t inputPort; // number of the input
    uint8_t state;     // cleared in the program view by every load
    uint8_t layerBytes2[2];
    uint16_t sourceX; // pixels of the input, as the next three
    uint16_t sourceY;
    uint16_t sourceWidth;
    uint16_t sourceHeight;
    uint16_t windowX; // pixels of the output, as the next three
    uint16_t windowY;
    uint16_t windowWidth;
    uint16_t windowHeight;
    uint8_t layerBytes20[3];
    uint8_t layerBytes23[3];
};

// The view's other settings, with a flag for each container.
struct OtherSetting {
    uint8_t settingByte0;
    uint8_t settingByte1;
    uint16_t settingWord2;
    uint16_t settingWord4;
    uint16_t settingWord6;
    uint8_t settingByte8;
    uint8_t settingBytes9[5];
    uint8_t containerFlags[kContainerCount];
};

// The RS1 block.
struct Rs1First {
    uint16_t word0;
    uint16_t words2[4];
    uint8_t byte10;
    uint8_t reserved11;
};

struct Rs1Half {
    uint16_t word0;
    uint16_t word2;
    uint8_t byte4;
    uint8_t reserved5;
    uint16_t word6;
    uint16_t word8;
    uint8_t byte10;
    uint8_t byte11;
};

struct Rs1Second {
    Rs1Half halves[2];
};

struct Rs1Third {
    uint16_t words0[8];
    uint8_t byte16;
    uint8_t reserved17;
};

struct Rs1Setting {
    Rs1First first[24];
    Rs1Second second[6];
    Rs1Third third[24];
};

struct ContainerOther {
    uint8_t settingByte0;
    uint8_t settingByte1;
    uint8_t settingByte2;
    uint8_t reserved3;
    int16_t settingWord4;
    int16_t settingWord6;
    uint8_t settingByte8;
    uint8_t settingByte9;
    uint16_t settingWord10;
    uint16_t settingWord12;
    uint8_t flag;
    uint8_t settingByte15;
};

struct ViewSetting {
    uint8_t viewByte0;
    uint8_t reserved1[15];
    Layer layers[kLayerCount];
    uint8_t layerAlphaPos[kLayerCount]; // stacking position
    uint8_t layerAlpha[kLayerCount];    // 0: the layer is not shown; all 0: the view is empty
    OtherSetting other;
    uint8_t viewNumber; // the slot it was saved to; 1 in the program view, 0 in the preview
    uint8_t reserved2743;
    Rs1Setting rs1;
    ContainerOther containers[kContainerCount];
    uint32_t identification; // kViewId
};
