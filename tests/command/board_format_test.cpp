// The format of all outputs at once, byte by byte in the user setting record.

#include "command/board_format.h"

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/setting_bytes.h"
#include "video/CustomFormat.h"

namespace {

// Where the record has what is set: a byte, a byte and a block of 16 for each of six outputs.
constexpr size_t kFormats = 1892;
constexpr size_t kEnables = 1898;
constexpr size_t kResolutions = 1904;
constexpr size_t kCustomResolution = 3736;
constexpr size_t kExternalFormat = 2413;

// None of the bytes of interest has the value that will be set.
Bytes recordWith(uint32_t external)
{
    return Image(steppedBytes(kUserSettingSize, 1))
        .u32(kCustomResolution, {0x00011234, 0x00025678, 0x00030047})
        .u8(kCustomResolution + 12, {2, 0x94, 0x95, 0x96})
        .u8(kExternalFormat, {external})
        .bytes;
}

// Sets `format` in such a record: all outputs must be enabled and have `stored`, the custom
// resolution if `isCustom`, and nothing else may change.
void expectFormat(uint32_t format, uint32_t stored, bool isCustom = false, uint32_t external = 38)
{
    const Bytes before = recordWith(external);
    fill(GetUserSetting(), before);
    SetAllBoardFormat(format);
    Bytes expected = Image(before)
                         .repeat(kFormats, 6, static_cast<uint8_t>(stored))
                         .repeat(kEnables, 6, 1)
                         .bytes;
    for (size_t at = kResolutions; isCustom && at < kResolutions + 6 * 16; at += 16) {
        // The numbers and the size class, not the three bytes after them.
        expected = with(expected, at, before.substr(kCustomResolution, 13));
    }
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), expected)) << format << ", " << external;
}

class BoardFormat : public testing::Test {
protected:
    void SetUp() override
    {
        malloc_saveView();
        std::filesystem::create_directory(kDirectory);
        fill(GetCustomFormat(), steppedBytes(sizeof(CustomFormat), 100));
    }
};

TEST_F(BoardFormat, SetsTheFormatOfAllSixOutputsAndEnablesThem)
{
    for (uint32_t format = 0; format < 256; ++format) {
        if (format != 124 && format != 125) {
            expectFormat(format, format);
        }
    }
}

TEST_F(BoardFormat, TheCustomFormatBringsTheCustomResolution)
{
    expectFormat(124, 124, true);
}

// As it is stored, 124 included, which brings no resolution here.
TEST_F(BoardFormat, TheExternalInputIsReplacedByItsFormatWhateverIsStored)
{
    for (uint32_t external = 0; external < 256; ++external) {
        expectFormat(125, external, false, external);
    }
}

TEST_F(BoardFormat, OnlyTheLow8BitsOfTheIdCount)
{
    for (const uint32_t high : {0x100u, 0x7C00u, 0x10000u, 0xFFFFFF00u}) {
        expectFormat(high | 10, 10);
        expectFormat(high | 124, 124, true);
        expectFormat(high | 125, 38);
    }
}

TEST_F(BoardFormat, NothingIsSavedPrintedOrChangedOutsideTheRecord)
{
    const auto others = [] {
        return bytesOf(GetCustomFormat()) + bytesOf(GetUserSetting_old()) +
               bytesOf(GetViewSetting()) + bytesOf(GetSaveViewSetting());
    };
    GetUserSetting_old()->identification = kUserSettingId; // else it is filled anew when asked for
    fill(GetUserSetting(), recordWith(38));
    const Bytes before = others();
    for (const uint32_t format : {10u, 124u, 125u}) {
        EXPECT_EQ(printedBy([&] { SetAllBoardFormat(format); }), "") << format;
        EXPECT_TRUE(std::filesystem::is_empty(kDirectory)) << format;
        EXPECT_TRUE(areBytes(others(), before)) << format;
    }
}

TEST_F(BoardFormat, KnowsNoSameGenlockFormatOnAnyOutput)
{
    for (unsigned output = 0; output < 256; ++output) {
        EXPECT_EQ(isSameCustomGenlockFormat_output(static_cast<uint8_t>(output)), 0) << output;
    }
}

} // namespace
