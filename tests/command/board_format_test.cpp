// The format of all outputs at once, byte by byte in the user setting record.

#include "command/board_format.h"

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/fakes/console.h"
#include "video/CustomFormat.h"

namespace fs = std::filesystem;

namespace {

using Bytes = std::string;

// Where the record has what is set: a byte, a byte and a block of 16 for each of six outputs.
constexpr size_t kRecord = 11832;
constexpr size_t kFormats = 1892;
constexpr size_t kEnables = 1898;
constexpr size_t kResolutions = 1904;
constexpr size_t kCustomResolution = 3736;
constexpr size_t kExternalFormat = 2413;

template <typename Record> Bytes bytesOf(const Record *record)
{
    return {reinterpret_cast<const char *>(record), sizeof *record};
}

// No two neighbours are equal, none of the bytes of interest has the value that will be set.
Bytes pattern(size_t size, uint32_t first)
{
    Bytes bytes;
    for (uint32_t i = 0; i < size; ++i) {
        bytes += static_cast<char>(first + i * 7 + i / 256);
    }
    return bytes;
}

class BoardFormat : public testing::Test {
protected:
    void SetUp() override
    {
        malloc_saveView();
        fs::create_directory("/userdata");
        before = pattern(kRecord, 1);
        // 0x00011234 x 0x00025678 at 0x00030047 Hz, of size class 2
        const Bytes custom("\x34\x12\x01\x00\x78\x56\x02\x00\x47\x00\x03\x00\x02\x94\x95\x96", 16);
        before.replace(kCustomResolution, custom.size(), custom);
        before[kExternalFormat] = 38;
        put();
        const Bytes timing = pattern(sizeof(CustomFormat), 100);
        std::memcpy(GetCustomFormat(), timing.data(), timing.size());
    }
    void put() const
    {
        ASSERT_EQ(before.size(), sizeof(UserSetting));
        std::memcpy(static_cast<void *>(GetUserSetting()), before.data(), before.size());
    }
    // `before` with one format and the enable byte for all outputs.
    Bytes withFormat(uint32_t format) const
    {
        Bytes bytes = before;
        bytes.replace(kFormats, 6, Bytes(6, static_cast<char>(format)));
        return bytes.replace(kEnables, 6, Bytes(6, '\x01'));
    }
    // The same with the custom resolution for all outputs: the numbers and the size class, not the
    // three bytes behind them.
    Bytes withCustomFormat() const
    {
        Bytes bytes = withFormat(124);
        for (size_t output = 0; output < 6; ++output) {
            bytes.replace(kResolutions + output * 16, 13, before, kCustomResolution, 13);
        }
        return bytes;
    }
    Bytes before;
};

TEST_F(BoardFormat, SetsTheFormatOfAllSixOutputsAndEnablesThem)
{
    SetAllBoardFormat(10);
    const UserSetting &setting = *GetUserSetting();
    for (uint32_t i = 0; i < 6; ++i) {
        EXPECT_EQ(setting.outputFormat[i], 10);
        EXPECT_EQ(setting.outputEnable[i], 1);
    }
    EXPECT_EQ(bytesOf(GetUserSetting()), withFormat(10));
}

TEST_F(BoardFormat, ChangesNothingElseForAnyIdOfItsOwn)
{
    for (uint32_t format = 0; format < 256; ++format) {
        if (format != 124 && format != 125) {
            put();
            SetAllBoardFormat(format);
            EXPECT_EQ(bytesOf(GetUserSetting()), withFormat(format)) << format;
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
    EXPECT_EQ(bytesOf(GetUserSetting()), withCustomFormat());
}

TEST_F(BoardFormat, TheExternalInputIsReplacedByItsFormat)
{
    SetAllBoardFormat(125);
    EXPECT_EQ(GetUserSetting()->outputFormat[0], 38);
    EXPECT_EQ(bytesOf(GetUserSetting()), withFormat(38));
}

// As it is stored, 124 to 127 included: the resolutions are the custom format's only if it is
// asked for by its own number.
TEST_F(BoardFormat, TheExternalInputIsReplacedByWhateverIsStored)
{
    for (uint32_t external = 0; external < 256; ++external) {
        before[kExternalFormat] = static_cast<char>(external);
        put();
        SetAllBoardFormat(125);
        EXPECT_EQ(bytesOf(GetUserSetting()), withFormat(external)) << external;
    }
}

TEST_F(BoardFormat, OnlyTheLow8BitsOfTheIdCount)
{
    for (const uint32_t high : {0x100u, 0x7C00u, 0x10000u, 0xFFFFFF00u}) {
        put();
        SetAllBoardFormat(high | 10);
        EXPECT_EQ(bytesOf(GetUserSetting()), withFormat(10)) << high;
        put();
        SetAllBoardFormat(high | 124);
        EXPECT_EQ(bytesOf(GetUserSetting()), withCustomFormat()) << high;
        put();
        SetAllBoardFormat(high | 125);
        EXPECT_EQ(bytesOf(GetUserSetting()), withFormat(38)) << high;
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
        Console console;
        SetAllBoardFormat(format);
        console.end();
        EXPECT_EQ(console.out, "") << format;
        EXPECT_EQ(console.err, "") << format;
        EXPECT_TRUE(fs::is_empty("/userdata")) << format;
        EXPECT_EQ(bytesOf(GetCustomFormat()), timing) << format;
        EXPECT_EQ(bytesOf(GetUserSetting_old()), copy) << format;
        EXPECT_EQ(bytesOf(GetViewSetting()), view) << format;
        EXPECT_EQ(bytesOf(GetSaveViewSetting()), stored) << format;
    }
}

} // namespace
