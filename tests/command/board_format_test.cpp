// The format of all outputs at once, byte by byte in the user setting record.

#include "command/board_format.h"

#include <cstdint>
#include <filesystem>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/console.h"
#include "tests/support/setting_bytes.h"
#include "video/CustomFormat.h"

namespace fs = std::filesystem;

namespace {

// Where the record has what is set: a byte, a byte and a block of 16 for each of six outputs.
constexpr size_t kFormats = 1892;
constexpr size_t kEnables = 1898;
constexpr size_t kResolutions = 1904;
constexpr size_t kCustomResolution = 3736;
constexpr size_t kExternalFormat = 2413;

class BoardFormat : public testing::Test {
protected:
    void SetUp() override
    {
        malloc_saveView();
        fs::create_directory(kDirectory);
        fill(GetUserSetting(), before);
        fill(GetCustomFormat(), steppedBytes(sizeof(CustomFormat), 100));
    }
    // `before` with one format and the enable byte for all outputs.
    Bytes withFormat(uint32_t format) const
    {
        return Image(before)
            .repeat(kFormats, 6, static_cast<uint8_t>(format))
            .repeat(kEnables, 6, 1)
            .bytes;
    }
    // The same with the custom resolution for all outputs: the numbers and the size class, not the
    // three bytes behind them.
    Bytes withCustomFormat() const
    {
        Bytes bytes = withFormat(124);
        for (size_t output = 0; output < 6; ++output) {
            bytes = with(bytes, kResolutions + output * 16, before.substr(kCustomResolution, 13));
        }
        return bytes;
    }

    // None of the bytes of interest has the value that will be set. The custom resolution is of
    // size class 2.
    Bytes before = Image(steppedBytes(kUserSettingSize, 1))
                       .u32(kCustomResolution, {0x00011234, 0x00025678, 0x00030047})
                       .u8(kCustomResolution + 12, {2, 0x94, 0x95, 0x96})
                       .u8(kExternalFormat, {38})
                       .bytes;
};

TEST_F(BoardFormat, SetsTheFormatOfAllSixOutputsAndEnablesThem)
{
    SetAllBoardFormat(10);
    const UserSetting &setting = *GetUserSetting();
    for (uint32_t i = 0; i < 6; ++i) {
        EXPECT_EQ(setting.outputFormat[i], 10);
        EXPECT_EQ(setting.outputEnable[i], 1);
    }
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), withFormat(10)));
}

TEST_F(BoardFormat, ChangesNothingElseForAnyIdOfItsOwn)
{
    for (uint32_t format = 0; format < 256; ++format) {
        if (format != 124 && format != 125) {
            fill(GetUserSetting(), before);
            SetAllBoardFormat(format);
            EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), withFormat(format))) << format;
        }
    }
}

TEST_F(BoardFormat, TheCustomFormatBringsTheCustomResolution)
{
    SetAllBoardFormat(124);
    for (const Resolution &resolution : GetUserSetting()->outputResolution) {
        EXPECT_EQ(resolution.width, 0x00011234u);
        EXPECT_EQ(resolution.height, 0x00025678u);
        EXPECT_EQ(resolution.frameRate, 0x00030047u);
        EXPECT_EQ(resolution.sizeClass, 2);
    }
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), withCustomFormat()));
}

TEST_F(BoardFormat, TheExternalInputIsReplacedByItsFormat)
{
    SetAllBoardFormat(125);
    EXPECT_EQ(GetUserSetting()->outputFormat[0], 38);
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), withFormat(38)));
}

// As it is stored, 124 to 127 included: the resolutions are the custom format's only if it is
// asked for by its own number.
TEST_F(BoardFormat, TheExternalInputIsReplacedByWhateverIsStored)
{
    for (uint32_t external = 0; external < 256; ++external) {
        before = with(before, kExternalFormat, oneByte(external));
        fill(GetUserSetting(), before);
        SetAllBoardFormat(125);
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), withFormat(external))) << external;
    }
}

TEST_F(BoardFormat, OnlyTheLow8BitsOfTheIdCount)
{
    for (const uint32_t high : {0x100u, 0x7C00u, 0x10000u, 0xFFFFFF00u}) {
        fill(GetUserSetting(), before);
        SetAllBoardFormat(high | 10);
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), withFormat(10))) << high;
        fill(GetUserSetting(), before);
        SetAllBoardFormat(high | 124);
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), withCustomFormat())) << high;
        fill(GetUserSetting(), before);
        SetAllBoardFormat(high | 125);
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), withFormat(38))) << high;
    }
}

TEST_F(BoardFormat, NothingIsSavedPrintedOrChangedOutsideTheRecord)
{
    const Bytes timing = bytesOf(GetCustomFormat());
    const Bytes stored = bytesOf(GetSaveViewSetting());
    copyUserSetting();
    GetUserSetting_old()->identification = kUserSettingId; // else it is filled anew when asked for
    const Bytes copy = bytesOf(GetUserSetting_old());
    const Bytes view = bytesOf(GetViewSetting());
    for (const uint32_t format : {10u, 124u, 125u}) {
        EXPECT_EQ(printedBy([&] { SetAllBoardFormat(format); }), "") << format;
        EXPECT_TRUE(fs::is_empty(kDirectory)) << format;
        EXPECT_TRUE(areBytes(bytesOf(GetCustomFormat()), timing)) << format;
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting_old()), copy)) << format;
        EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), view)) << format;
        EXPECT_TRUE(areBytes(bytesOf(GetSaveViewSetting()), stored)) << format;
    }
}

TEST_F(BoardFormat, KnowsNoSameGenlockFormatOnAnyOutput)
{
    for (unsigned output = 0; output < 256; ++output) {
        EXPECT_EQ(isSameCustomGenlockFormat_output(static_cast<uint8_t>(output)), 0) << output;
    }
}

} // namespace
