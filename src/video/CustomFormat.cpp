#include "video/CustomFormat.h"

#include "storage/UserSetting.h"

namespace {

// State, main loop only: the timing. Zero until something sets it.
CustomFormat customFormat;

} // namespace

CustomFormat *GetCustomFormat()
{
    return &customFormat;
}

void setCustomH(uint32_t width)
{
    GetCustomResolution()->width = width;
}

uint32_t getCustomH()
{
    return GetCustomResolution()->width;
}

void setCustomV(uint32_t height)
{
    GetCustomResolution()->height = height;
}

uint32_t getCustomV()
{
    return GetCustomResolution()->height;
}

void setCustomF(uint32_t rate)
{
    GetCustomResolution()->frameRate = rate;
}

uint32_t getCustomF()
{
    return GetCustomResolution()->frameRate;
}

void setCustomhvSyncPolarity(uint32_t polarity)
{
    customFormat.syncPolarity = static_cast<uint8_t>(polarity);
}

uint32_t getCustomhvSyncPolarity()
{
    return customFormat.syncPolarity;
}

void setCustomhTotal(uint32_t pixels)
{
    customFormat.hTotal = static_cast<uint16_t>(pixels);
}

uint32_t getCustomhTotal()
{
    return customFormat.hTotal;
}

void setCustomvTotal(uint32_t lines)
{
    customFormat.vTotal = static_cast<uint16_t>(lines);
}

uint32_t getCustomvTotal()
{
    return customFormat.vTotal;
}

void setCustomhStart(uint32_t pixels)
{
    customFormat.hStart = static_cast<uint16_t>(pixels);
}

uint32_t getCustomhStart()
{
    return customFormat.hStart;
}

void setCustomvStart(uint32_t lines)
{
    customFormat.vStart = static_cast<uint16_t>(lines);
}

uint32_t getCustomvStart()
{
    return customFormat.vStart;
}

void setCustomhActive(uint32_t pixels)
{
    customFormat.hActive = static_cast<uint16_t>(pixels);
}

uint32_t getCustomhActive()
{
    return customFormat.hActive;
}

void setCustomvActive(uint32_t lines)
{
    customFormat.vActive = static_cast<uint16_t>(lines);
}

uint32_t getCustomvActive()
{
    return customFormat.vActive;
}

void setCustomhSyncWidth(uint32_t pixels)
{
    customFormat.hSyncWidth = static_cast<uint16_t>(pixels);
}

uint32_t getCustomhSyncWidth()
{
    return customFormat.hSyncWidth;
}

void setCustomvSyncWidth(uint32_t lines)
{
    customFormat.vSyncWidth = static_cast<uint16_t>(lines);
}

uint32_t getCustomvSyncWidth()
{
    return customFormat.vSyncWidth;
}

void setCustomcolorSpace(uint32_t colorSpace)
{
    customFormat.colorSpace = static_cast<uint8_t>(colorSpace);
}

uint32_t getCustomcolorSpace()
{
    return customFormat.colorSpace;
}
