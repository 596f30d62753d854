// The format table, field by field and id by id, against the table that engineers exchange
// (tests/data/video_formats.csv) and against docs/video-formats.md, every table of which is read
// here. The modules' sources are part of this file, so that their tables are in sight.

#include "video/VideoFormatTable.cpp"
#include "video/gs4911.cpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "core/record.h"
#include "storage/UserSetting.h"
#include "tests/support/format_files.h"
#include "video/format_class.h"

namespace {

// Nothing writes the tables: they lie in read-only memory, and no one can be told a wrong timing
// because a stray pointer hit them.
static_assert(std::is_const_v<std::remove_reference_t<decltype(tModeResolution[0])>>);
static_assert(std::is_const_v<decltype(tVideoDefine)>);
static_assert(std::is_const_v<decltype(tVideoFormatStr)>);
static_assert(std::is_const_v<std::remove_pointer_t<decltype(tVideoFormatStr)::value_type>>);
static_assert(std::is_const_v<std::remove_reference_t<decltype(tGS4911_VID_STD[0])>>);

// What is expected of every operation ------------------------------------------------------------

// The custom format: a value of its own in every field, and the resolution wider than 16 bits.
constexpr uint32_t kWidth = 0x00011234;
constexpr uint32_t kHeight = 0x00025678;
constexpr uint32_t kFrameRate = 0x00030047;
constexpr CustomFormat kTiming = {
    .reserved0 = 0x91,
    .syncPolarity = 0xFE,
    .hTotal = 0xF001,
    .vTotal = 0xF102,
    .hStart = 0xF203,
    .vStart = 0xF304,
    .hActive = 0xF405,
    .vActive = 0xF506,
    .hSyncWidth = 0xF607,
    .vSyncWidth = 0xF708,
    .colorSpace = 0x92,
    .reserved19 = 0x93,
};

bool isInterlaced(uint32_t id)
{
    return (id >= 36 && id <= 39) || id == 63 || id == 71 || id == 72;
}

// An operation that answers with a number: the answers, and the words for them in the document.
struct Operation {
    const char *name;
    uint32_t (*ask)(uint32_t id);
    const char *fixedWords;
    uint32_t (*fixed)(const Row &row);
    const char *customWords;
    uint32_t custom;
    uint32_t others; // 126 to 255
    bool followsExternInput = true;
};

template <int32_t (*isOfClass)(uint32_t id)> uint32_t askFor(uint32_t id)
{
    return static_cast<uint32_t>(isOfClass(id));
}

const Operation kOperations[] = {
    {"GetResByVideoFormat", GetResByVideoFormat, "width + height × 65536",
     [](const Row &row) { return row.width + row.height * 65536; },
     "low 16 bits of resolution width + resolution height × 65536", 0x56781234, 0x03000400},
    {"GetHDEByVideoFormat", GetHDEByVideoFormat, "width", [](const Row &row) { return row.width; },
     "timing hActive", 0xF405, 1024},
    {"GetVDEByVideoFormat", GetVDEByVideoFormat, "height",
     [](const Row &row) { return row.height; }, "timing vActive", 0xF506, 768},
    {"GetVDEByVideoFormat2", GetVDEByVideoFormat2, "height, of interlaced formats half of it",
     [](const Row &row) { return isInterlaced(row.id) ? row.height / 2 : row.height; },
     "low 16 bits of resolution height", 0x5678, 768},
    {"GetHTotalByVideoFormat", GetHTotalByVideoFormat, "H total",
     [](const Row &row) { return row.hTotal; }, "timing hTotal", 0xF001, 1344},
    {"GetVTotalByVideoFormat", GetVTotalByVideoFormat, "V total",
     [](const Row &row) { return row.vTotal; }, "timing vTotal", 0xF102, 806},
    {"GetHStartByVideoFormat", GetHStartByVideoFormat, "H start",
     [](const Row &row) { return row.hStart; }, "timing hStart", 0xF203, 296},
    {"GetVStartByVideoFormat", GetVStartByVideoFormat, "V start",
     [](const Row &row) { return row.vStart; }, "timing vStart", 0xF304, 35},
    {"GetHSyncWidthByVideoFormat", GetHSyncWidthByVideoFormat, "H sync",
     [](const Row &row) { return row.hSync; }, "timing hSyncWidth", 0xF607, 136},
    {"GetVSyncWidthByVideoFormat", GetVSyncWidthByVideoFormat, "V sync",
     [](const Row &row) { return row.vSync; }, "timing vSyncWidth", 0xF708, 6},
    {"GetHSyncPolarityByVideoFormat", GetHSyncPolarityByVideoFormat, "bit 0 of polarity",
     [](const Row &row) { return row.polarity & 1; }, "bit 0 of timing syncPolarity", 0, 1},
    {"GetVSyncPolarityByVideoFormat", GetVSyncPolarityByVideoFormat, "bit 1 of polarity",
     [](const Row &row) { return row.polarity >> 1 & 1; }, "bit 1 of timing syncPolarity", 1, 1},
    {"GetVFreqByVideoFormat", GetVFreqByVideoFormat, "V freq",
     [](const Row &row) { return row.vFreq; }, "low 16 bits of resolution frameRate", 0x47, 60},
    {"GetDlckByVideoFormat", GetDlckByVideoFormat, "pixel clock, where it is 0 the product",
     [](const Row &row) {
         return row.pixelClock != 0 ? row.pixelClock : row.hTotal * row.vTotal * row.vFreq;
     },
     "timing hTotal × timing vTotal × resolution frameRate, modulo 2^32",
     static_cast<uint32_t>(uint64_t{0xF001} * 0xF102 * 0x30047), 64995840},
    {"GetGS4911ByVideoFormat", GetGS4911ByVideoFormat, "GS4911",
     [](const Row &row) { return row.gs4911; }, "45", 45, 45, false},
    {"IsInterlaceFormat", askFor<IsInterlaceFormat>, "1 if interlaced, else 0",
     [](const Row &row) { return isInterlaced(row.id) ? 1u : 0u; }, "0", 0, 0},
    {"IsSDFormat", askFor<IsSDFormat>, "1 for 36, 37, 71 and 72, else 0",
     [](const Row &row) { return isInterlaced(row.id) && row.height < 1080 ? 1u : 0u; }, "0", 0, 0,
     false},
    {"Is4K2K_Format", askFor<Is4K2K_Format>, "1 for 73 to 107, else 0",
     [](const Row &row) { return row.id >= 73 && row.id <= 107 ? 1u : 0u; },
     "1 if resolution sizeClass is 1, else 0", 0, 0},
    {"Is8K1K_Format", askFor<Is8K1K_Format>, "1 for 108 to 123, else 0",
     [](const Row &row) { return row.id >= 108 ? 1u : 0u; },
     "1 if resolution sizeClass is 2, else 0", 0, 0},
    {"Is4K2K_8K1K_Format", askFor<Is4K2K_8K1K_Format>, "1 for 73 to 123, else 0",
     [](const Row &row) { return row.id >= 73 ? 1u : 0u; },
     "0 if resolution sizeClass is 0, else 1", 1, 0},
};

// The answer for an id while the external input has the format `external`.
uint32_t expected(const Operation &operation, uint32_t id, uint32_t external = 10)
{
    if (id < 124) {
        return operation.fixed(exchanged[id]);
    }
    if (id == 124) {
        return operation.custom;
    }
    // 125 is never to be stored as the external input's format; that it counts as 126 where it is
    // keeps the program from going in circles.
    if (id == 125 && operation.followsExternInput && external != 125) {
        return expected(operation, external);
    }
    return operation.others;
}

// Every case has the exchanged table at hand, the custom format filled, and format 10 at the
// external input.
class VideoFormatTable : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(readExchanged()) << FORMATS_FILE;
        malloc_saveView();
        *GetCustomFormat() = kTiming;
        setResolution(kWidth, kHeight, kFrameRate);
        setExtern(10);
    }
    static void setResolution(uint32_t width, uint32_t height, uint32_t frameRate)
    {
        GetUserSetting()->customResolution = {width, height, frameRate, 0x94, {}};
    }
    static void setExtern(uint32_t id)
    {
        GetUserSetting()->extInputFormat = static_cast<uint8_t>(id);
    }
};

// The tables --------------------------------------------------------------------------------------

TEST_F(VideoFormatTable, EveryRowIsThatOfTheExchangedTable)
{
    ASSERT_EQ(std::size(tVideoDefine), 124u);
    for (const Row &row : exchanged) {
        const VideoDefine &define = tVideoDefine[row.id];
        ASSERT_LT(define.resolution, 42u) << row;
        const ModeResolution &active = tModeResolution[define.resolution];
        EXPECT_EQ(row, (Row{row.id, tVideoFormatStr[row.id], define.resolution, active.width,
                            active.height, define.hTotal, define.vTotal, define.hStart,
                            define.vStart, define.vFreq, define.hSyncWidth, define.vSyncWidth,
                            define.polarity, define.pixelClock, row.gs4911}));
    }
}

TEST_F(VideoFormatTable, ARowHasItsFieldsInTheirOrderAndWidths)
{
    RECORD_FIELD(VideoDefine, 0, uint32_t, 1, resolution);
    RECORD_FIELD(VideoDefine, 4, uint16_t, 1, hTotal);
    RECORD_FIELD(VideoDefine, 6, uint16_t, 1, vTotal);
    RECORD_FIELD(VideoDefine, 8, uint16_t, 1, hStart);
    RECORD_FIELD(VideoDefine, 10, uint16_t, 1, vStart);
    RECORD_FIELD(VideoDefine, 12, uint8_t, 1, vFreq);
    RECORD_FIELD(VideoDefine, 13, uint8_t, 1, hSyncWidth);
    RECORD_FIELD(VideoDefine, 14, uint8_t, 1, vSyncWidth);
    RECORD_FIELD(VideoDefine, 15, uint8_t, 1, polarity);
    RECORD_FIELD(VideoDefine, 16, uint32_t, 1, pixelClock);
    // "3840x2160x59.94": 4400 is 0x1130, 2250 is 0x08CA, 384 is 0x0180, 593406593 is 0x235EAA81.
    const unsigned char row[20] = {34, 0, 0,  0,  0x30, 0x11, 0xCA, 0x08, 0x80, 0x01,
                                   82, 0, 60, 88, 10,   0,    0x81, 0xAA, 0x5E, 0x23};
    static_assert(sizeof(VideoDefine) == sizeof row);
    EXPECT_EQ(std::memcmp(&tVideoDefine[77], row, sizeof row), 0);
}

TEST_F(VideoFormatTable, SizesThatNoFormatHasAreListedAllTheSame)
{
    ASSERT_EQ(std::size(tModeResolution), 42u);
    std::set<uint32_t> used;
    for (const Row &row : exchanged) {
        used.insert(row.resIndex);
    }
    EXPECT_EQ(used.size(), 41u);
    EXPECT_EQ(used.count(12), 0u);
    EXPECT_EQ(tModeResolution[12].width, 1440);
    EXPECT_EQ(tModeResolution[12].height, 864);
}

// The five are never asked for: ids from 124 on have names of their own.
TEST_F(VideoFormatTable, TheNamesEndInFiveThatStandOnePlaceOff)
{
    ASSERT_EQ(std::size(tVideoFormatStr), 129u);
    const char *const tail[] = {"1920x1200x60", "MD_CUSTOM", "INPUT FORMAT", "UNDEFINE",
                                "NO INPUT"};
    for (size_t i = 0; i < std::size(tail); ++i) {
        EXPECT_STREQ(tVideoFormatStr[124 + i], tail[i]);
    }
}

TEST_F(VideoFormatTable, The37CodesEndInOneThatOnlyTheWayBackKnows)
{
    const std::vector<uint32_t> expectedCodes = {
        9,  10, 11, 12, 13, 14, 15, 16, 17, 18, 21, 22, 23, 29, 30, 31, 32, 33,  34,
        35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51, 124,
    };
    ASSERT_EQ(expectedCodes.size(), 37u);
    EXPECT_EQ(std::vector<uint32_t>(std::begin(tGS4911_VID_STD), std::end(tGS4911_VID_STD)),
              expectedCodes);
    for (uint32_t id = 0; id < 256; ++id) {
        EXPECT_NE(GetGS4911ByVideoFormat(id), 124u) << id;
    }
}

TEST_F(VideoFormatTable, EveryComputedPixelClockFitsIn32Bits)
{
    uint64_t largest = 0;
    for (const Row &row : exchanged) {
        const uint64_t clock = uint64_t{row.hTotal} * row.vTotal * row.vFreq;
        EXPECT_EQ(GetDlckByVideoFormat(row.id), row.pixelClock != 0 ? row.pixelClock : clock);
        largest = std::max(largest, clock);
    }
    EXPECT_EQ(largest, 594000000u); // 4400 x 2250 x 60
}

// All operations, all ids -------------------------------------------------------------------------

TEST_F(VideoFormatTable, EveryOperationAnswersForEveryId)
{
    for (const Operation &operation : kOperations) {
        for (uint32_t id = 0; id < 256; ++id) {
            EXPECT_EQ(operation.ask(id), expected(operation, id)) << operation.name << ' ' << id;
        }
    }
}

TEST_F(VideoFormatTable, EveryOperationLooksAtTheLow8BitsOfAnIdOnly)
{
    for (const Operation &operation : kOperations) {
        for (const uint32_t high : {0x100u, 0x200u, 0x7C00u, 0x10000u, 0x7FFFFF00u, 0xFFFFFF00u}) {
            for (uint32_t id = 0; id < 256; ++id) {
                EXPECT_EQ(operation.ask(high | id), expected(operation, id))
                    << operation.name << ' ' << std::hex << (high | id);
            }
        }
    }
}

TEST_F(VideoFormatTable, FormatsWithoutATimingHaveThatOf1024x768x60)
{
    ASSERT_EQ(exchanged[29].name, "1024x768x60");
    for (const Operation &operation : kOperations) {
        for (uint32_t id = 126; id < 256; ++id) {
            EXPECT_EQ(operation.ask(id), operation.ask(29)) << operation.name << ' ' << id;
        }
    }
    EXPECT_EQ(GetDlckByVideoFormat(126), 1344u * 806 * 60);
}

// The external input ------------------------------------------------------------------------------

TEST_F(VideoFormatTable, TheExternalInputWithFormat10AnswersAsFormat10)
{
    setExtern(10);
    EXPECT_EQ(GetResByVideoFormat(125), 1920u | 1080u << 16);
    EXPECT_EQ(GetHDEByVideoFormat(125), 1920u);
    EXPECT_EQ(GetVDEByVideoFormat(125), 1080u);
    EXPECT_EQ(GetVDEByVideoFormat2(125), 1080u);
    EXPECT_EQ(GetHTotalByVideoFormat(125), 2200u);
    EXPECT_EQ(GetVTotalByVideoFormat(125), 1125u);
    EXPECT_EQ(GetHStartByVideoFormat(125), 192u);
    EXPECT_EQ(GetVStartByVideoFormat(125), 41u);
    EXPECT_EQ(GetHSyncWidthByVideoFormat(125), 44u);
    EXPECT_EQ(GetVSyncWidthByVideoFormat(125), 5u);
    EXPECT_EQ(GetHSyncPolarityByVideoFormat(125), 0u);
    EXPECT_EQ(GetVSyncPolarityByVideoFormat(125), 0u);
    EXPECT_EQ(GetVFreqByVideoFormat(125), 60u);
    EXPECT_EQ(GetDlckByVideoFormat(125), 148500000u);
}

TEST_F(VideoFormatTable, TheExternalInputAnswersAsTheFormatThatItHas)
{
    for (uint32_t external = 0; external < 256; ++external) {
        setExtern(external);
        for (const Operation &operation : kOperations) {
            EXPECT_EQ(operation.ask(125), expected(operation, 125, external))
                << operation.name << " with " << external;
        }
    }
}

TEST_F(VideoFormatTable, TheExternalInputKeepsItsOwnNameAndCodeWhateverItHas)
{
    for (uint32_t external = 0; external < 256; ++external) {
        setExtern(external);
        EXPECT_STREQ(GetStrByVideoFormat(125), "INPUT FORMAT") << external;
        EXPECT_EQ(GetGS4911ByVideoFormat(125), 45u) << external;
    }
}

TEST_F(VideoFormatTable, NothingButId125DependsOnTheExternalInput)
{
    setExtern(38);
    for (const Operation &operation : kOperations) {
        for (uint32_t id = 0; id < 256; ++id) {
            EXPECT_EQ(operation.ask(id), expected(operation, id, id == 125 ? 38 : 10))
                << operation.name << ' ' << id;
        }
    }
}

// The custom format -------------------------------------------------------------------------------

TEST_F(VideoFormatTable, TheTwoSizesOfTheCustomFormatAreKeptApart)
{
    setResolution(1920, 1080, 60);
    GetCustomFormat()->hActive = 1366;
    GetCustomFormat()->vActive = 768;
    EXPECT_EQ(GetResByVideoFormat(124), 1920u | 1080u << 16);
    EXPECT_EQ(GetVDEByVideoFormat2(124), 1080u);
    EXPECT_STREQ(GetStrByVideoFormat(124), "C:1920x1080@60");
    EXPECT_EQ(GetHDEByVideoFormat(124), 1366u);
    EXPECT_EQ(GetVDEByVideoFormat(124), 768u);
}

TEST_F(VideoFormatTable, TheHalvesOfACustomSizeDoNotSpillIntoEachOther)
{
    setResolution(0xFFFF0000, 0xFFFF0001, 60);
    EXPECT_EQ(GetResByVideoFormat(124), 0x00010000u);
    EXPECT_EQ(GetVDEByVideoFormat2(124), 1u);
    setResolution(0xFFFFFFFF, 0, 60);
    EXPECT_EQ(GetResByVideoFormat(124), 0x0000FFFFu);
    setResolution(0, 0xFFFFFFFF, 60);
    EXPECT_EQ(GetResByVideoFormat(124), 0xFFFF0000u);
    EXPECT_EQ(GetVDEByVideoFormat2(124), 0xFFFFu);
}

TEST_F(VideoFormatTable, TheTwoPolaritiesOfTheCustomFormatAreBits0And1)
{
    for (uint32_t polarity = 0; polarity < 256; ++polarity) {
        GetCustomFormat()->syncPolarity = static_cast<uint8_t>(polarity);
        EXPECT_EQ(GetHSyncPolarityByVideoFormat(124), polarity % 2) << polarity;
        EXPECT_EQ(GetVSyncPolarityByVideoFormat(124), polarity / 2 % 2) << polarity;
    }
}

TEST_F(VideoFormatTable, TheCustomFrequencyIsCutTo16BitsButCountsWholeInTheClock)
{
    GetCustomFormat()->hTotal = 3;
    GetCustomFormat()->vTotal = 5;
    setResolution(1920, 1080, 0x0001FFFF);
    EXPECT_EQ(GetVFreqByVideoFormat(124), 0xFFFFu);
    EXPECT_EQ(GetDlckByVideoFormat(124), 15u * 0x0001FFFF);
}

TEST_F(VideoFormatTable, TheCustomPixelClockWrapsAt2To32)
{
    CustomFormat &timing = *GetCustomFormat();
    timing.hTotal = 4000;
    timing.vTotal = 2222;
    setResolution(3840, 2160, 60);
    EXPECT_EQ(GetDlckByVideoFormat(124), 533280000u);
    timing.hTotal = 32768; // 2^15 x 2^11 x 2^6 is 2^32
    timing.vTotal = 2048;
    setResolution(3840, 2160, 64);
    EXPECT_EQ(GetDlckByVideoFormat(124), 0u);
    setResolution(3840, 2160, 65);
    EXPECT_EQ(GetDlckByVideoFormat(124), 1u << 26);
    timing.hTotal = 65535; // 65535 x 65535 x (2^32 - 1) is -65535 x 65535
    timing.vTotal = 65535;
    setResolution(3840, 2160, 0xFFFFFFFF);
    EXPECT_EQ(GetDlckByVideoFormat(124), 131071u);
    setResolution(3840, 2160, 1);
    EXPECT_EQ(GetDlckByVideoFormat(124), 4294836225u);
    setResolution(3840, 2160, 0);
    EXPECT_EQ(GetDlckByVideoFormat(124), 0u);
}

TEST_F(VideoFormatTable, ACustomFormatOfZeroesHasNoTimingAndNoClock)
{
    *GetCustomFormat() = {};
    GetUserSetting()->customResolution = {};
    for (const Operation &operation : kOperations) {
        if (operation.followsExternInput) {
            EXPECT_EQ(operation.ask(124), 0u) << operation.name;
        }
    }
    EXPECT_STREQ(GetStrByVideoFormat(124), "C:0x0@0");
}

// Names -------------------------------------------------------------------------------------------

TEST_F(VideoFormatTable, EveryIdHasItsName)
{
    for (const uint32_t high : {0u, 0x100u, 0xFFFFFF00u}) {
        for (const Row &row : exchanged) {
            EXPECT_EQ(GetStrByVideoFormat(high | row.id), row.name);
        }
        EXPECT_STREQ(GetStrByVideoFormat(high | 124), "C:70196x153208@196679");
        EXPECT_STREQ(GetStrByVideoFormat(high | 125), "INPUT FORMAT");
        EXPECT_STREQ(GetStrByVideoFormat(high | 126), "UNDEFINE");
        EXPECT_STREQ(GetStrByVideoFormat(high | 127), "NO INPUT");
        for (uint32_t id = 128; id < 256; ++id) {
            EXPECT_STREQ(GetStrByVideoFormat(high | id), "UNKNOWN") << id;
        }
    }
}

TEST_F(VideoFormatTable, TheCustomFormatOf1920x1080At60HzHasItsNameAndFormat200Has)
{
    setResolution(1920, 1080, 60);
    EXPECT_STREQ(GetStrByVideoFormat(124), "C:1920x1080@60");
    EXPECT_STREQ(GetStrByVideoFormat(200), "UNKNOWN");
}

TEST_F(VideoFormatTable, TheNameOfTheCustomFormatIsRewrittenByEveryAskingForIt)
{
    static_assert(sizeof customStr == 32);
    setResolution(1920, 1080, 60);
    const char *const name = GetStrByVideoFormat(124);
    EXPECT_EQ(name, customStr);
    setResolution(800, 600, 5);
    for (uint32_t id = 0; id < 256; ++id) {
        if (id != 124) {
            GetStrByVideoFormat(id);
        }
    }
    EXPECT_STREQ(name, "C:1920x1080@60");
    EXPECT_EQ(GetStrByVideoFormat(124), name);
    EXPECT_STREQ(name, "C:800x600@5");
}

TEST_F(VideoFormatTable, OtherNamesAreConstantText)
{
    std::map<uint32_t, const char *> names;
    for (uint32_t id = 0; id < 256; ++id) {
        names[id] = GetStrByVideoFormat(id);
    }
    setResolution(1, 2, 3);
    setExtern(124);
    for (const auto &[id, name] : names) {
        EXPECT_EQ(GetStrByVideoFormat(id), name) << id;
        EXPECT_EQ(name == customStr, id == 124) << id;
        EXPECT_EQ(name == unknowFormat, id >= 128) << id;
    }
}

TEST_F(VideoFormatTable, ALongNameOfTheCustomFormatIsCutTo31Characters)
{
    setResolution(2147483647, 2147483647, 12345); // 30 characters
    EXPECT_STREQ(GetStrByVideoFormat(124), "C:2147483647x2147483647@12345");
    setResolution(2147483647, 2147483647, 1234567);
    EXPECT_STREQ(GetStrByVideoFormat(124), "C:2147483647x2147483647@1234567");
    EXPECT_EQ(std::strlen(customStr), 31u);
    setResolution(2147483647, 2147483647, 12345678);
    EXPECT_STREQ(GetStrByVideoFormat(124), "C:2147483647x2147483647@1234567");
    EXPECT_EQ(customStr[31], '\0');
}

TEST_F(VideoFormatTable, HugeNumbersInTheNameOfTheCustomFormatShowAsNegativeOnes)
{
    setResolution(0xFFFFFFFF, 0xFFFFFFFE, 0xFFFFFF9C);
    EXPECT_STREQ(GetStrByVideoFormat(124), "C:-1x-2@-100");
    setResolution(0x80000000, 0x80000000, 0x80000000);
    EXPECT_STREQ(GetStrByVideoFormat(124), "C:-2147483648x-2147483648@-2147");
    EXPECT_EQ(std::strlen(customStr), 31u);
}

// GS4911 codes ------------------------------------------------------------------------------------

TEST_F(VideoFormatTable, CodesOfTheRoundTripLeadBack)
{
    std::set<uint32_t> codes;
    for (uint32_t id = 0; id < 256; ++id) {
        const bool hasOne = id < 40 || id == 63 || id == 71 || id == 72;
        const uint32_t code = GetGS4911ByVideoFormat(id);
        if (hasOne) {
            EXPECT_TRUE(codes.insert(code).second) << id; // no two of them share one
        }
        EXPECT_EQ(GetVideoFormatByGS4911(static_cast<uint8_t>(code)), hasOne ? id : 29) << id;
    }
}

TEST_F(VideoFormatTable, EveryCodeLeadsToItsFormat)
{
    // From the formats' codes: the first format that has the code, and the exceptions.
    for (uint32_t code = 0; code < 256; ++code) {
        uint32_t format = 126;
        for (const Row &row : exchanged) {
            if (row.gs4911 == code) {
                format = row.id;
                break;
            }
        }
        if (code == 0) {
            format = 127;
        } else if (code == 124) {
            format = 36;
        }
        EXPECT_EQ(GetVideoFormatByGS4911(static_cast<uint8_t>(code)), format) << code;
    }
}

TEST_F(VideoFormatTable, TheInterlacedFormatsHaveTheirCodesBothWays)
{
    const std::pair<uint32_t, uint8_t> codes[] = {
        {36, 1}, {37, 2}, {38, 25}, {39, 27}, {63, 26}, {71, 3}, {72, 4},
    };
    for (const auto &[id, code] : codes) {
        EXPECT_EQ(GetGS4911ByVideoFormat(id), code) << id;
        EXPECT_EQ(GetVideoFormatByGS4911(code), id) << id;
    }
}

TEST_F(VideoFormatTable, CodesOutsideTheListAreNoInputOrUndefinedOrFormat36)
{
    EXPECT_EQ(GetVideoFormatByGS4911(0), 127);
    EXPECT_EQ(GetVideoFormatByGS4911(45), 29);
    EXPECT_EQ(GetVideoFormatByGS4911(124), 36);
    EXPECT_EQ(GetVideoFormatByGS4911(26), 63);
    EXPECT_EQ(GetVideoFormatByGS4911(99), 126);
}

TEST_F(VideoFormatTable, Format200HasTheCodeOf1024x768x60)
{
    EXPECT_EQ(GetGS4911ByVideoFormat(200), 45u);
}

// Examples ----------------------------------------------------------------------------------------

TEST_F(VideoFormatTable, APixelClockIsComputedWhereTheRowHasNone)
{
    EXPECT_EQ(exchanged[5].pixelClock, 0u);
    EXPECT_EQ(GetDlckByVideoFormat(5), 74250000u); // 3300 x 750 x 30
    EXPECT_EQ(GetDlckByVideoFormat(3), 74175824u);
}

TEST_F(VideoFormatTable, AnInterlacedFormatHasAFieldHeightToo)
{
    EXPECT_EQ(GetVDEByVideoFormat2(38), 540u);
    EXPECT_EQ(GetVDEByVideoFormat(38), 1080u);
}

TEST_F(VideoFormatTable, AFormatInQuartersHasTheWidthOfOne)
{
    EXPECT_STREQ(GetStrByVideoFormat(115), "7680x1080x60");
    EXPECT_EQ(GetHDEByVideoFormat(115), 1920u);
    EXPECT_EQ(GetHDEByVideoFormat(123), 2048u);
}

TEST_F(VideoFormatTable, Format41HasANegativeHorizontalAndAPositiveVerticalSync)
{
    EXPECT_EQ(GetHSyncPolarityByVideoFormat(41), 1u);
    EXPECT_EQ(GetVSyncPolarityByVideoFormat(41), 0u);
    EXPECT_EQ(GetHSyncPolarityByVideoFormat(48), 0u);
    EXPECT_EQ(GetVSyncPolarityByVideoFormat(48), 1u);
}

// The document ------------------------------------------------------------------------------------

TEST_F(VideoFormatTable, TheDocumentHasTheExchangedTable)
{
    std::vector<Row> rows;
    for (std::vector<std::string> cells :
         tableOf("The format table",
                 "id | name | res. index | active | H total | V total | H start | V start | "
                 "V freq | H sync | V sync | polarity | pixel clock | GS4911")) {
        ASSERT_EQ(cells.size(), 14u);
        const std::vector<std::string> active = split(cells[3], "×");
        ASSERT_EQ(active.size(), 2u) << cells[3];
        cells[3] = active[0];
        cells.insert(cells.begin() + 4, active[1]);
        rows.push_back(rowOfCells(cells));
    }
    EXPECT_EQ(rows, exchanged) << FORMATS_DOCUMENT;
}

TEST_F(VideoFormatTable, TheSizesAreThoseOfTheDocument)
{
    std::map<uint32_t, std::string> sizes;
    for (const std::vector<std::string> &cells :
         tableOf("Active sizes", "index | size | index | size | index | size")) {
        ASSERT_EQ(cells.size(), 6u);
        for (size_t i = 0; i < 6; i += 2) {
            sizes[number(cells[i])] = cells[i + 1];
        }
    }
    ASSERT_EQ(sizes.size(), std::size(tModeResolution)) << FORMATS_DOCUMENT;
    for (const auto &[index, size] : sizes) {
        ASSERT_LT(index, std::size(tModeResolution));
        const ModeResolution &active = tModeResolution[index];
        EXPECT_EQ(std::to_string(active.width) + "×" + std::to_string(active.height), size);
    }
}

// Each word of the table stands beside the value that another case holds against the program.
TEST_F(VideoFormatTable, EveryOperationAnswersAsTheDocumentSays)
{
    const std::vector<std::vector<std::string>> rows =
        tableOf("What is answered for each id", "operation | 0 to 123 | 124 | 125 | 126 to 255");
    ASSERT_EQ(rows.size(), std::size(kOperations)) << FORMATS_DOCUMENT;
    for (size_t i = 0; i < rows.size(); ++i) {
        const Operation &operation = kOperations[i];
        ASSERT_EQ(rows[i].size(), 5u);
        EXPECT_EQ(rows[i][0], quoted(operation.name));
        EXPECT_EQ(rows[i][1], operation.fixedWords) << operation.name;
        EXPECT_EQ(rows[i][2], operation.customWords) << operation.name;
        if (operation.followsExternInput) {
            EXPECT_EQ(rows[i][3], "as that format") << operation.name;
        } else {
            EXPECT_EQ(number(rows[i][3]), operation.ask(125)) << operation.name;
        }
        for (uint32_t id = 126; id < 256; ++id) {
            EXPECT_EQ(number(rows[i][4]), operation.ask(id)) << operation.name << ' ' << id;
        }
    }
}

TEST_F(VideoFormatTable, NamesAreAsTheDocumentSays)
{
    const std::vector<std::vector<std::string>> rows =
        tableOf("What is answered for each id", "id | name");
    ASSERT_EQ(rows.size(), 6u) << FORMATS_DOCUMENT;
    setResolution(1920, 1080, 60);
    uint32_t next = 0; // no id is left out
    for (const std::vector<std::string> &cells : rows) {
        for (const uint32_t id : numbersIn(cells[0])) {
            EXPECT_EQ(id, next++);
            const std::string name = GetStrByVideoFormat(id);
            if (id < 124) {
                EXPECT_EQ(cells[1], "that of the table");
            } else if (id == 124) {
                EXPECT_EQ(cells[1], quoted(name) + ", from the resolution; cut to 31 characters");
            } else {
                EXPECT_EQ(cells[1], quoted(name)) << id;
            }
        }
    }
    EXPECT_EQ(next, 256u);
}

TEST_F(VideoFormatTable, CodesLeadToFormatsAsTheDocumentSays)
{
    std::map<uint32_t, uint32_t> formats;
    bool isComplete = false;
    for (const std::vector<std::string> &cells :
         tableOf("From a GS4911 code to a format", "code | id")) {
        if (cells[0] == "every other") {
            for (uint32_t code = 0; code < 256; ++code) {
                formats.insert({code, number(cells[1])});
            }
            isComplete = true;
            continue;
        }
        const std::vector<uint32_t> codes = numbersIn(cells[0]);
        const std::vector<uint32_t> ids = numbersIn(cells[1]);
        ASSERT_EQ(codes.size(), ids.size()) << cells[0];
        for (size_t i = 0; i < codes.size(); ++i) {
            EXPECT_TRUE(formats.insert({codes[i], ids[i]}).second) << codes[i];
        }
    }
    EXPECT_TRUE(isComplete) << FORMATS_DOCUMENT;
    for (const auto &[code, format] : formats) {
        EXPECT_EQ(GetVideoFormatByGS4911(static_cast<uint8_t>(code)), format) << code;
    }
}

// What a name says, "1920x1080x59.94i", taken at its word.
struct Said {
    std::string width;
    std::string height;
    std::string rate;
};

Said readName(const std::string &name)
{
    const std::vector<std::string> parts = split(name, "x");
    EXPECT_EQ(parts.size(), 3u) << name;
    return {parts[0], parts[1], parts[2].substr(0, parts[2].find_first_not_of("0123456789."))};
}

TEST_F(VideoFormatTable, FormatsThatShareANameAreTheDocumentedOnes)
{
    std::map<std::string, std::vector<uint32_t>> ids;
    for (uint32_t id = 0; id < 124; ++id) {
        ids[GetStrByVideoFormat(id)].push_back(id);
    }
    for (const auto &[name, formats] : ids) {
        if (name == "1920x1080x60") {
            EXPECT_EQ(formats, (std::vector<uint32_t>{10, 66}));
        } else if (name == "3840x2160x29.97") {
            EXPECT_EQ(formats, (std::vector<uint32_t>{78, 84}));
        } else {
            EXPECT_EQ(formats.size(), 1u) << name;
        }
    }
    EXPECT_TRUE(documentSays(" The name is not unique: 10 and 66 are both 1920x1080x60, with "
                             "different blanking, and 78 and 84 are both 3840x2160x29.97. "));
    EXPECT_NE(GetHTotalByVideoFormat(10), GetHTotalByVideoFormat(66));
}

TEST_F(VideoFormatTable, TheClocksThatTheDocumentWorksOutAreRight)
{
    EXPECT_TRUE(documentSays(" 36 has 858 × 525 × 60 = 27027000 Hz. "));
    EXPECT_EQ(GetHTotalByVideoFormat(36), 858u);
    EXPECT_EQ(GetVTotalByVideoFormat(36), 525u);
    EXPECT_EQ(GetVFreqByVideoFormat(36), 60u);
    EXPECT_EQ(GetDlckByVideoFormat(36), 27027000u);
    // 24 Hz and 23.98 Hz by their names, 25 Hz in the table.
    EXPECT_TRUE(documentSays(" The clock of 85 and 87 is that of 25 Hz, 309375000 Hz. The clock of "
                             "86 and 88 is that of 23.98 Hz. "));
    EXPECT_EQ(GetDlckByVideoFormat(85), 309375000u);
    EXPECT_EQ(GetDlckByVideoFormat(87), 309375000u);
    for (const uint32_t id : {86u, 88u}) { // 5500 x 2250 x 24000 / 1001
        EXPECT_EQ(GetDlckByVideoFormat(id), 296703297u) << id;
    }
}

TEST_F(VideoFormatTable, TheIdsAreDividedAsTheDocumentSays)
{
    std::vector<std::string> ids;
    for (const std::vector<std::string> &cells : tableOf("Format ids", "id | meaning")) {
        ids.push_back(cells[0]);
    }
    ASSERT_EQ(ids.size(), 6u) << FORMATS_DOCUMENT;
    EXPECT_EQ(numbersIn(ids[0]).size(), kVideoFormatCount);
    EXPECT_EQ(numbersIn(ids[0]).front(), 0u);
    EXPECT_EQ(number(ids[1]), kVideoFormatCustom);
    EXPECT_EQ(number(ids[2]), kVideoFormatExtern);
    EXPECT_EQ(number(ids[3]), kVideoFormatUndefine);
    EXPECT_EQ(number(ids[4]), kVideoFormatNoInput);
    EXPECT_EQ(numbersIn(ids[5]).front(), kVideoFormatNoInput + 1u);
    EXPECT_EQ(numbersIn(ids[5]).back(), 255u);
}

// A misnomer more than the documented ones is a slip in the table; one less is a slip, too.
TEST_F(VideoFormatTable, TheMisnomersAreTheDocumentedOnes)
{
    using Misnomer = std::tuple<uint32_t, std::string, std::string>;
    std::set<Misnomer> documented;
    for (const std::vector<std::string> &cells :
         tableOf("Names and what they stand for", "id | the name says | the table has")) {
        ASSERT_EQ(cells.size(), 3u);
        for (const uint32_t id : numbersIn(cells[0])) {
            EXPECT_TRUE(documented.insert({id, cells[1], cells[2]}).second) << id;
        }
    }
    std::set<Misnomer> found;
    for (const Row &row : exchanged) {
        const Said said = readName(row.name);
        EXPECT_EQ(number(said.height), row.height) << row;
        if (number(said.width) != row.width) {
            found.insert({row.id, "width " + said.width, "width " + std::to_string(row.width)});
        }
        if (std::abs(std::stod(said.rate) - row.vFreq) > 0.5) { // V freq is rounded
            found.insert({row.id, said.rate + " Hz", "V freq " + std::to_string(row.vFreq)});
        }
        const bool isFractional = said.rate.find('.') != std::string::npos;
        if (isFractional && row.pixelClock == 0) {
            found.insert({row.id, "a fractional rate", "no clock for it: that of V freq"});
        }
        if (isFractional && row.pixelClock == row.hTotal * row.vTotal * row.vFreq) {
            found.insert(
                {row.id, said.rate + " Hz", "the clock of " + std::to_string(row.vFreq) + " Hz"});
        }
    }
    EXPECT_EQ(documented, found) << FORMATS_DOCUMENT;
}

} // namespace
