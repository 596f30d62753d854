#pragma once

// The two records behind the custom video format, id 124: the resolution that was asked for, which
// is kept in the user setting record, and the raster timing made for it, which is in memory only.
//
// Setters cut the value to the field's width and do nothing else; getters widen it. Starts count as
// in the format table. Main loop only; the resolution behind malloc_saveView().

#include <cstdint>

struct CustomFormat {
    uint8_t reserved0;
    uint8_t syncPolarity; // bit 0 horizontal, bit 1 vertical, set: negative
    uint16_t hTotal;      // pixels
    uint16_t vTotal;      // lines
    uint16_t hStart;
    uint16_t vStart;
    uint16_t hActive;
    uint16_t vActive;
    uint16_t hSyncWidth;
    uint16_t vSyncWidth;
    uint8_t colorSpace;
    uint8_t reserved19;
};

// The timing record itself.
CustomFormat *GetCustomFormat();

// The resolution: width in pixels, height in lines, frame rate in Hz.
void setCustomH(uint32_t width);
uint32_t getCustomH();
void setCustomV(uint32_t height);
uint32_t getCustomV();
void setCustomF(uint32_t rate);
uint32_t getCustomF();

// The timing.
void setCustomhvSyncPolarity(uint32_t polarity);
uint32_t getCustomhvSyncPolarity();
void setCustomhTotal(uint32_t pixels);
uint32_t getCustomhTotal();
void setCustomvTotal(uint32_t lines);
uint32_t getCustomvTotal();
void setCustomhStart(uint32_t pixels);
uint32_t getCustomhStart();
void setCustomvStart(uint32_t lines);
uint32_t getCustomvStart();
void setCustomhActive(uint32_t pixels);
uint32_t getCustomhActive();
void setCustomvActive(uint32_t lines);
uint32_t getCustomvActive();
void setCustomhSyncWidth(uint32_t pixels);
uint32_t getCustomhSyncWidth();
void setCustomvSyncWidth(uint32_t lines);
uint32_t getCustomvSyncWidth();
void setCustomcolorSpace(uint32_t colorSpace);
uint32_t getCustomcolorSpace();
