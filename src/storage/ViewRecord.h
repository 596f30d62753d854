#pragma once

// The record of one view, a complete screen composition: 96 layers, their stacking and alpha, and
// the containers' settings. It is the content of "view%d.sav", a sixteenth of a page, and stands
// twice in the user setting record. docs/files.md describes it, with the defaults.
//
// A name with a number is that of a field of which this program knows its place and default only;
// the number is its offset.

#include "core/record.h"

#include <cstdint>

inline constexpr uint32_t kLayerCount = 96;
inline constexpr uint32_t kContainerCount = 24;
inline constexpr uint32_t kViewCount = 16; // stored views: slots 0 to 15
inline constexpr uint32_t kViewId = 0x29215679;

struct Layer {
    uint8_t inputPort; // number of the input
    uint8_t state;     // cleared in the program view with every load
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
RECORD_FIELD(Layer, 0, uint8_t, inputPort);
RECORD_FIELD(Layer, 1, uint8_t, state);
RECORD_FIELD(Layer, 2, uint8_t[2], layerBytes2);
RECORD_FIELD(Layer, 4, uint16_t, sourceX);
RECORD_FIELD(Layer, 6, uint16_t, sourceY);
RECORD_FIELD(Layer, 8, uint16_t, sourceWidth);
RECORD_FIELD(Layer, 10, uint16_t, sourceHeight);
RECORD_FIELD(Layer, 12, uint16_t, windowX);
RECORD_FIELD(Layer, 14, uint16_t, windowY);
RECORD_FIELD(Layer, 16, uint16_t, windowWidth);
RECORD_FIELD(Layer, 18, uint16_t, windowHeight);
RECORD_FIELD(Layer, 20, uint8_t[3], layerBytes20);
RECORD_FIELD(Layer, 23, uint8_t[3], layerBytes23);
static_assert(sizeof(Layer) == 26);
static_assert(std::has_unique_object_representations_v<Layer>, "hidden padding");

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
RECORD_FIELD(OtherSetting, 0, uint8_t, settingByte0);
RECORD_FIELD(OtherSetting, 1, uint8_t, settingByte1);
RECORD_FIELD(OtherSetting, 2, uint16_t, settingWord2);
RECORD_FIELD(OtherSetting, 4, uint16_t, settingWord4);
RECORD_FIELD(OtherSetting, 6, uint16_t, settingWord6);
RECORD_FIELD(OtherSetting, 8, uint8_t, settingByte8);
RECORD_FIELD(OtherSetting, 9, uint8_t[5], settingBytes9);
RECORD_FIELD(OtherSetting, 14, uint8_t[24], containerFlags);
static_assert(sizeof(OtherSetting) == 38);
static_assert(std::has_unique_object_representations_v<OtherSetting>, "hidden padding");

// The RS1 block.
struct Rs1First {
    uint16_t word0;
    uint16_t words2[4];
    uint8_t byte10;
    uint8_t reserved11;
};
RECORD_FIELD(Rs1First, 0, uint16_t, word0);
RECORD_FIELD(Rs1First, 2, uint16_t[4], words2);
RECORD_FIELD(Rs1First, 10, uint8_t, byte10);
RECORD_FIELD(Rs1First, 11, uint8_t, reserved11);
static_assert(sizeof(Rs1First) == 12);
static_assert(std::has_unique_object_representations_v<Rs1First>, "hidden padding");

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
RECORD_FIELD(Rs1Half, 0, uint16_t, word0);
RECORD_FIELD(Rs1Half, 2, uint16_t, word2);
RECORD_FIELD(Rs1Half, 4, uint8_t, byte4);
RECORD_FIELD(Rs1Half, 5, uint8_t, reserved5);
RECORD_FIELD(Rs1Half, 6, uint16_t, word6);
RECORD_FIELD(Rs1Half, 8, uint16_t, word8);
RECORD_FIELD(Rs1Half, 10, uint8_t, byte10);
RECORD_FIELD(Rs1Half, 11, uint8_t, byte11);
static_assert(sizeof(Rs1Half) == 12);
static_assert(std::has_unique_object_representations_v<Rs1Half>, "hidden padding");

struct Rs1Second {
    Rs1Half halves[2];
};
RECORD_FIELD(Rs1Second, 0, Rs1Half[2], halves);
static_assert(sizeof(Rs1Second) == 24);
static_assert(std::has_unique_object_representations_v<Rs1Second>, "hidden padding");

struct Rs1Third {
    uint16_t words0[8];
    uint8_t byte16;
    uint8_t reserved17;
};
RECORD_FIELD(Rs1Third, 0, uint16_t[8], words0);
RECORD_FIELD(Rs1Third, 16, uint8_t, byte16);
RECORD_FIELD(Rs1Third, 17, uint8_t, reserved17);
static_assert(sizeof(Rs1Third) == 18);
static_assert(std::has_unique_object_representations_v<Rs1Third>, "hidden padding");

struct Rs1Setting {
    Rs1First first[24];
    Rs1Second second[6];
    Rs1Third third[24];
};
RECORD_FIELD(Rs1Setting, 0, Rs1First[24], first);
RECORD_FIELD(Rs1Setting, 288, Rs1Second[6], second);
RECORD_FIELD(Rs1Setting, 432, Rs1Third[24], third);
static_assert(sizeof(Rs1Setting) == 864);
static_assert(std::has_unique_object_representations_v<Rs1Setting>, "hidden padding");

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
RECORD_FIELD(ContainerOther, 0, uint8_t, settingByte0);
RECORD_FIELD(ContainerOther, 1, uint8_t, settingByte1);
RECORD_FIELD(ContainerOther, 2, uint8_t, settingByte2);
RECORD_FIELD(ContainerOther, 3, uint8_t, reserved3);
RECORD_FIELD(ContainerOther, 4, int16_t, settingWord4);
RECORD_FIELD(ContainerOther, 6, int16_t, settingWord6);
RECORD_FIELD(ContainerOther, 8, uint8_t, settingByte8);
RECORD_FIELD(ContainerOther, 9, uint8_t, settingByte9);
RECORD_FIELD(ContainerOther, 10, uint16_t, settingWord10);
RECORD_FIELD(ContainerOther, 12, uint16_t, settingWord12);
RECORD_FIELD(ContainerOther, 14, uint8_t, flag);
RECORD_FIELD(ContainerOther, 15, uint8_t, settingByte15);
static_assert(sizeof(ContainerOther) == 16);
static_assert(std::has_unique_object_representations_v<ContainerOther>, "hidden padding");

struct ViewSetting {
    uint8_t viewByte0;
    uint8_t reserved1[15];
    Layer layers[kLayerCount];
    uint8_t layerAlphaPos[kLayerCount]; // stacking position
    uint8_t layerAlpha[kLayerCount];    // 0: the layer is not shown; all 0: the view is empty
    OtherSetting other;
    uint8_t viewNumber; // the slot it was saved to; of the program view 1, of the preview 0
    uint8_t reserved2743;
    Rs1Setting rs1;
    ContainerOther containers[kContainerCount];
    uint32_t identification; // kViewId
};
RECORD_FIELD(ViewSetting, 0, uint8_t, viewByte0);
RECORD_FIELD(ViewSetting, 1, uint8_t[15], reserved1);
RECORD_FIELD(ViewSetting, 16, Layer[96], layers);
RECORD_FIELD(ViewSetting, 2512, uint8_t[96], layerAlphaPos);
RECORD_FIELD(ViewSetting, 2608, uint8_t[96], layerAlpha);
RECORD_FIELD(ViewSetting, 2704, OtherSetting, other);
RECORD_FIELD(ViewSetting, 2742, uint8_t, viewNumber);
RECORD_FIELD(ViewSetting, 2743, uint8_t, reserved2743);
RECORD_FIELD(ViewSetting, 2744, Rs1Setting, rs1);
RECORD_FIELD(ViewSetting, 3608, ContainerOther[24], containers);
RECORD_FIELD(ViewSetting, 3992, uint32_t, identification);
static_assert(sizeof(ViewSetting) == 3996);
static_assert(std::has_unique_object_representations_v<ViewSetting>, "hidden padding");
