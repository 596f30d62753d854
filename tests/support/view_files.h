#pragma once

// Views as bytes and their files, for the tests that store and load them; link with
// `setting_bytes`.

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

inline std::string viewName(int slot)
{
    return "view" + std::to_string(slot) + ".sav";
}

inline std::string viewPath(int slot)
{
    return "/userdata/" + viewName(slot);
}

inline std::string tryAgain(int slot)
{
    return "try again _LoadViewSetting_help(" + std::to_string(slot) + ")\r\n";
}

// What loading a view says when there is no file.
inline std::string missingView(int slot)
{
    const std::string once = notSaved(viewName(slot)); // the messages are the same
    return once + tryAgain(slot) + once;
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

inline constexpr uint16_t kWidth = 1920; // of output 0
inline constexpr uint16_t kHeight = 1080;

// What the slot buffer, which held `buffer`, is after a reset: with the layers and positions of the
// preview, and other settings for the size of output 0.
inline Bytes emptyOver(const Bytes &buffer)
{
    Image view(buffer);
    view.bytes.replace(16, 2592, kPreview, 16, 2592); // layers, stacking positions
    view.repeat(2608, 96, 0);                         // alphas
    view.u8(2704, {0, 1}).u16(2706, {0, kWidth - 256u, kHeight - 128u}); // other settings, to 2741
    view.u8(2712, {1}).repeat(2713, 5, 0).repeat(2718, 24, 0);
    view.u8(2742, {1}); // view number
    for (size_t i = 0; i < 24; ++i) {
        view.u8(3608 + 16 * i + 14, {0}); // flag of a container
    }
    return identified(view.bytes);
}

// Every case begins with an empty settings directory, four different views in memory, and 5 as the
// current view of the user setting.
class PreparedViews : public testing::Environment {
public:
    void SetUp() override
    {
        std::filesystem::create_directory(kDirectory);
        malloc_saveView();
        GetUserSetting()->outputTiming[0].hActive = kWidth;
        GetUserSetting()->outputTiming[0].vActive = kHeight;
        settingByte(3715) = 5;
        _currentView = 9;
        fill(GetPreviewViewSetting(), kPreview);
        fill(GetProgramViewSetting(), aView(203));
        fill(GetViewSetting(), kLive);
        fill(GetSaveViewSetting(), kBuffer);
    }
};
