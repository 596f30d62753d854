#include "video/CustomFormat.h"

#include "core/record.h"
#include "storage/UserSetting.h"

// Proof of the layout, as the header has it.
RECORD_FIELD(CustomFormat, 0, uint8_t, 1, reserved0)
RECORD_FIELD(CustomFormat, 1, uint8_t, 1, syncPolarity)
RECORD_FIELD(CustomFormat, 2, uint16_t, 1, hTotal)
RECORD_FIELD(CustomFormat, 4, uint16_t, 1, vTotal)
RECORD_FIELD(CustomFormat, 6, uint16_t, 1, hStart)
RECORD_FIELD(CustomFormat, 8, uint16_t, 1, vStart)
RECORD_FIELD(CustomFormat, 10, uint16_t, 1, hActive)
RECORD_FIELD(CustomFormat, 12, uint16_t, 1, vActive)
RECORD_FIELD(CustomFormat, 14, uint16_t, 1, hSyncWidth)
RECORD_FIELD(CustomFormat, 16, uint16_t, 1, vSyncWidth)
RECORD_FIELD(CustomFormat, 18, uint8_t, 1, colorSpace)
RECORD_FIELD(CustomFormat, 19, uint8_t, 1, reserved19)
RECORD_SIZE(CustomFormat, 20)
static_assert(std::has_unique_object_representations_v<CustomFormat>, "hidden padding");

namespace {

// State, main loop only: the timing. Zero until something sets it.
CustomFormat customFormat;

} // namespace

uint32_t getCustomH()
{
    return GetCustomResolution()->width;
}

uint32_t getCustomV()
{
    return GetCustomResolution()->height;
}

uint32_t getCustomF()
{
    return GetCustomResolution()->frameRate;
}

uint32_t getCustomhvSyncPolarity()
{
    return customFormat.syncPolarity;
}

uint32_t getCustomhTotal()
{
    return customFormat.hTotal;
}

uint32_t getCustomvTotal()
{
    return customFormat.vTotal;
}

uint32_t getCustomhStart()
{
    return customFormat.hStart;
}

uint32_t getCustomvStart()
{
    return customFormat.vStart;
}

uint32_t getCustomhActive()
{
    return customFormat.hActive;
}

uint32_t getCustomvActive()
{
    return customFormat.vActive;
}

uint32_t getCustomhSyncWidth()
{
    return customFormat.hSyncWidth;
}

uint32_t getCustomvSyncWidth()
{
    return customFormat.vSyncWidth;
}

// Waiting for a later model -----------------------------------------------------------------------

CustomFormat *GetCustomFormat()
{
    return &customFormat;
}

uint32_t getCustomcolorSpace()
{
    return customFormat.colorSpace;
}

void setCustomH(uint32_t width)
{
    GetCustomResolution()->width = width;
}

void setCustomV(uint32_t height)
{
    GetCustomResolution()->height = height;
}

void setCustomF(uint32_t rate)
{
    GetCustomResolution()->frameRate = rate;
}

void setCustomhvSyncPolarity(uint32_t polarity)
{
    customFormat.syncPolarity = static_cast<uint8_t>(polarity);
}

void setCustomhTotal(uint32_t pixels)
{
    customFormat.hTotal = static_cast<uint16_t>(pixels);
}

void setCustomvTotal(uint32_t lines)
{
    customFormat.vTotal = static_cast<uint16_t>(lines);
}

void setCustomhStart(uint32_t pixels)
{
    customFormat.hStart = static_cast<uint16_t>(pixels);
}

void setCustomvStart(uint32_t lines)
{
    customFormat.vStart = static_cast<uint16_t>(lines);
}

void setCustomhActive(uint32_t pixels)
{
    customFormat.hActive = static_cast<uint16_t>(pixels);
}

void setCustomvActive(uint32_t lines)
{
    customFormat.vActive = static_cast<uint16_t>(lines);
}

void setCustomhSyncWidth(uint32_t pixels)
{
    customFormat.hSyncWidth = static_cast<uint16_t>(pixels);
}

void setCustomvSyncWidth(uint32_t lines)
{
    customFormat.vSyncWidth = static_cast<uint16_t>(lines);
}

void setCustomcolorSpace(uint32_t colorSpace)
{
    customFormat.colorSpace = static_cast<uint8_t>(colorSpace);
}
