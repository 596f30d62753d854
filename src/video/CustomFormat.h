#pragma once

// The two records of the custom video format, id 124: the requested resolution, which is in the
// user setting record, and the raster timing made for it, which is only in memory.
//
// Getters widen the field's value. Starts count as in the format table (video/VideoFormatTable.h).
// Main loop only.
//
// Requires: malloc_saveView() has been called (storage/UserSetting.h), for the resolution.

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

// The resolution: width in pixels, height in lines, frame rate in Hz.
uint32_t getCustomH();
uint32_t getCustomV();
uint32_t getCustomF();

// The timing. Widths in pixels, heights in lines.
uint32_t getCustomhvSyncPolarity();
uint32_t getCustomhTotal();
uint32_t getCustomvTotal();
uint32_t getCustomhStart();
uint32_t getCustomvStart();
uint32_t getCustomhActive();
uint32_t getCustomvActive();
uint32_t getCustomhSyncWidth();
uint32_t getCustomvSyncWidth();

// Waiting for a later model -----------------------------------------------------------------------

// The timing record itself.
CustomFormat *GetCustomFormat();

uint32_t getCustomcolorSpace();

// A setter cuts the value to the field's width. Nothing is saved.
void setCustomH(uint32_t width);
void setCustomV(uint32_t height);
void setCustomF(uint32_t rate);
void setCustomhvSyncPolarity(uint32_t polarity);
void setCustomhTotal(uint32_t pixels);
void setCustomvTotal(uint32_t lines);
void setCustomhStart(uint32_t pixels);
void setCustomvStart(uint32_t lines);
void setCustomhActive(uint32_t pixels);
void setCustomvActive(uint32_t lines);
void setCustomhSyncWidth(uint32_t pixels);
void setCustomvSyncWidth(uint32_t lines);
void setCustomcolorSpace(uint32_t colorSpace);
