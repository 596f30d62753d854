#pragma once

// Views as bytes and their files, for the tests that store and load them; link with
// `setting_bytes`.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/setting_bytes.h"

inline const Bytes kIdentification = "yV!)"; // of a view, its last four bytes

inline Bytes identified(const Bytes &view)
{
    return with(view, 3992, kIdentification);
}

// A good view that shows something; every byte of it tells its place and `number`.
inline Bytes aView(uint32_t number)
{
    Bytes bytes;
    for (uint32_t i = 0; i < kViewSize; ++i) {
        bytes += oneByte(number * 37 + i * 11 + i / 256 * 5);
    }
    return identified(bytes);
}

inline Bytes emptied(const Bytes &view)
{
    return with(view, 2608, Bytes(96, '\0'));
}

// What a file of slot `slot` holds after `view` has been stored in it.
inline Bytes asStored(const Bytes &view, uint32_t slot)
{
    return with(identified(view), 2742, oneByte(slot));
}

// What the slot buffer, which held `buffer`, is after a reset: with the layers and positions of
// `preview`, and other settings for an output of width x height.
inline Bytes emptyViewOver(Bytes buffer, const Bytes &preview, uint32_t width, uint32_t height)
{
    buffer = with(buffer, 16, preview.substr(16, 2496));   // layers
    buffer = with(buffer, 2512, preview.substr(2512, 96)); // stacking positions
    buffer = with(buffer, 2608, Bytes(96, '\0'));          // alphas
    buffer = with(buffer, 2704, Bytes("\0\1\0\0", 4));     // other settings, to 2741
    buffer = with(buffer, 2708, twoBytes(width - 256));
    buffer = with(buffer, 2710, twoBytes(height - 128));
    buffer = with(buffer, 2712, Bytes("\1\0\0\0\0\0", 6));
    buffer = with(buffer, 2718, Bytes(24, '\0'));
    buffer = with(buffer, 2742, "\1"); // view number
    for (size_t i = 0; i < 24; ++i) {
        buffer = with(buffer, 3608 + 16 * i + 14, Bytes(1, '\0')); // flag of a container
    }
    return identified(buffer);
}

inline std::string viewName(int slot)
{
    return "view" + std::to_string(slot) + ".sav";
}

inline std::string viewPath(int slot)
{
    return "/userdata/" + viewName(slot);
}

// What loading a view says when there is no file.
inline std::string missingView(int slot)
{
    const std::string once =
        "open file " + viewPath(slot) + " error\nopen file " + viewName(slot) + " fail\r\n";
    return once + "try again _LoadViewSetting_help(" + std::to_string(slot) + ")\r\n" + once;
}

// The byte of the user setting record at `offset`.
inline uint8_t &settingByte(size_t offset)
{
    return reinterpret_cast<uint8_t *>(GetUserSetting())[offset];
}

// What is in memory when a case begins.
inline const Bytes kPreview = aView(200);
inline const Bytes kLive = aView(201);
inline const Bytes kBuffer = aView(202); // the slot buffer

inline constexpr uint32_t kWidth = 1920; // of output 0
inline constexpr uint32_t kHeight = 1080;

inline Bytes emptyOver(const Bytes &buffer)
{
    return emptyViewOver(buffer, kPreview, kWidth, kHeight);
}

inline void setOutputSize(uint32_t width, uint32_t height)
{
    std::memcpy(&settingByte(1734), twoBytes(width).data(), 2);
    std::memcpy(&settingByte(1736), twoBytes(height).data(), 2);
}

// Every case begins with an empty settings directory, four different views in memory, and 5 as the
// current view of the user setting.
class PreparedViews : public testing::Environment {
public:
    void SetUp() override
    {
        std::filesystem::create_directory(kDirectory);
        malloc_saveView();
        setOutputSize(kWidth, kHeight);
        settingByte(3715) = 5;
        _currentView = 9;
        fill(GetPreviewViewSetting(), kPreview);
        fill(GetProgramViewSetting(), aView(203));
        fill(GetViewSetting(), kLive);
        fill(GetSaveViewSetting(), kBuffer);
    }
};
