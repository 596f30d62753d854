// The format table and the GS4911 codes, id by id, against the table that engineers exchange
// (tests/data/video_formats.csv) and docs/video-formats.md. The table's source is part of this
// file, so that its tables are in sight.

#include "video/VideoFormatTable.cpp"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/format_files.h"
#include "video/format_class.h"
#include "video/gs4911.h"

namespace {

// The tables are in read-only memory.
static_assert(std::is_const_v<std::remove_reference_t<decltype(tModeResolution[0])>>);
static_assert(std::is_const_v<decltype(tVideoDefine)>);
static_assert(std::is_const_v<decltype(tVideoFormatStr)>);
static_assert(std::is_const_v<std::remove_pointer_t<decltype(tVideoFormatStr)::value_type>>);

// What is expected of every operation ------------------------------------------------------------

// A value of its own in every field of the custom format, and the resolution wider than 16 bits.
constexpr Resolution kResolution = {0x00011234, 0x00025678, 0x00030047, 0x94, {}};
constexpr CustomFormat kTiming = {0x91,   0xFE,   0xF001, 0xF102, 0xF203, 0xF304,
                                  0xF405, 0xF506, 0xF607, 0xF708, 0x92,   0x93};
constexpr auto kCustomClock = static_cast<uint32_t>(uint64_t{0xF001} * 0xF102 * 0x30047);

bool isInterlaced(uint32_t id)
{
    return (id >= 36 && id <= 39) || id == 63 || id == 71 || id == 72;
}

template <int32_t (*isOfClass)(uint32_t id)> uint32_t askFor(uint32_t id)
{
    return static_cast<uint32_t>(isOfClass(id));
}

// An operation that answers with a number: the answers, and the words for them in the document.
using Fixed = uint32_t(const Row &row);
struct Operation {
    const char *name;
    uint32_t (*ask)(uint32_t id);
    const char *fixedWords;
    Fixed *fixed;
    const char *customWords;
    uint32_t custom;
    bool followsExternInput = true;
};

// clang-format off
#define CALL(name) #name, name
#define CLASS(name) #name, askFor<name>
#define ANSWER(expression) [](const Row &row) -> uint32_t { return expression; }
const Operation kOperations[] = {
    {CALL(GetResByVideoFormat), "width + height × 65536", ANSWER(row.width + row.height * 65536),
     "low 16 bits of resolution width + resolution height × 65536", 0x56781234},
    {CALL(GetHDEByVideoFormat), "width", ANSWER(row.width), "timing hActive", 0xF405},
    {CALL(GetVDEByVideoFormat), "height", ANSWER(row.height), "timing vActive", 0xF506},
    {CALL(GetVDEByVideoFormat2), "height, of interlaced formats half of it",
     ANSWER(isInterlaced(row.id) ? row.height / 2 : row.height),
     "low 16 bits of resolution height", 0x5678},
    {CALL(GetHTotalByVideoFormat), "H total", ANSWER(row.hTotal), "timing hTotal", 0xF001},
    {CALL(GetVTotalByVideoFormat), "V total", ANSWER(row.vTotal), "timing vTotal", 0xF102},
    {CALL(GetHStartByVideoFormat), "H start", ANSWER(row.hStart), "timing hStart", 0xF203},
    {CALL(GetVStartByVideoFormat), "V start", ANSWER(row.vStart), "timing vStart", 0xF304},
    {CALL(GetHSyncWidthByVideoFormat), "H sync", ANSWER(row.hSync), "timing hSyncWidth", 0xF607},
    {CALL(GetVSyncWidthByVideoFormat), "V sync", ANSWER(row.vSync), "timing vSyncWidth", 0xF708},
    {CALL(GetHSyncPolarityByVideoFormat), "bit 0 of polarity", ANSWER(row.polarity & 1),
     "bit 0 of timing syncPolarity", 0},
    {CALL(GetVSyncPolarityByVideoFormat), "bit 1 of polarity", ANSWER(row.polarity >> 1 & 1),
     "bit 1 of timing syncPolarity", 1},
    {CALL(GetVFreqByVideoFormat), "V freq", ANSWER(row.vFreq),
     "low 16 bits of resolution frameRate", 0x47},
    {CALL(GetDlckByVideoFormat), "pixel clock, where it is 0 the product",
     ANSWER(row.pixelClock != 0 ? row.pixelClock : row.hTotal * row.vTotal * row.vFreq),
     "timing hTotal × timing vTotal × resolution frameRate, modulo 2^32", kCustomClock},
    {CALL(GetGS4911ByVideoFormat), "GS4911", ANSWER(row.gs4911), "45", 45, false},
    {CLASS(IsInterlaceFormat), "1 if interlaced, else 0", ANSWER(isInterlaced(row.id)), "0", 0},
    {CLASS(IsSDFormat), "1 for 36, 37, 71 and 72, else 0",
     ANSWER(isInterlaced(row.id) && row.height < 1080), "0", 0, false},
    {CLASS(Is4K2K_Format), "1 for 73 to 107, else 0", ANSWER(row.id >= 73 && row.id <= 107),
     "1 if resolution sizeClass is 1, else 0", 0},
    {CLASS(Is8K1K_Format), "1 for 108 to 123, else 0", ANSWER(row.id >= 108),
     "1 if resolution sizeClass is 2, else 0", 0},
    {CLASS(Is4K2K_8K1K_Format), "1 for 73 to 123, else 0", ANSWER(row.id >= 73),
     "0 if resolution sizeClass is 0, else 1", 1},
};
// clang-format on

// The answer for an id while the external input has the format `external`.
uint32_t expected(const Operation &operation, uint32_t id, uint32_t external)
{
    if (id < 124) {
        return operation.fixed(exchanged[id]);
    }
    if (id == 124) {
        return operation.custom;
    }
    // 125 is never to be stored as the external input's format. If it is, it counts as 126.
    if (id == 125 && operation.followsExternInput && external != 125) {
        return expected(operation, external, external);
    }
    return operation.fixed(exchanged[29]); // "1024x768x60"
}

void setExtern(uint32_t id)
{
    GetUserSetting()->extInputFormat = static_cast<uint8_t>(id);
}

void setResolution(uint32_t width, uint32_t height, uint32_t frameRate)
{
    *GetCustomResolution() = {width, height, frameRate, 0x94, {}};
}

// Every case has the custom format filled, and format 10 at the external input.
class VideoFormatTable : public WithExchanged {
protected:
    void SetUp() override
    {
        WithExchanged::SetUp();
        malloc_saveView();
        *GetCustomFormat() = kTiming;
        *GetCustomResolution() = kResolution;
        setExtern(10);
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
        // Every product fits in 32 bits: the largest is 4400 x 2250 x 60.
        EXPECT_LE(uint64_t{row.hTotal} * row.vTotal * row.vFreq, 594000000u) << row;
    }
}

TEST_F(VideoFormatTable, ARowHasItsFieldsInTheirOrderAndWidths)
{
    // "3840x2160x59.94": 4400 is 0x1130, 2250 is 0x08CA, 384 is 0x0180, 593406593 is 0x235EAA81.
    const unsigned char row[20] = {34, 0, 0,  0,  0x30, 0x11, 0xCA, 0x08, 0x80, 0x01,
                                   82, 0, 60, 88, 10,   0,    0x81, 0xAA, 0x5E, 0x23};
    static_assert(sizeof(VideoDefine) == sizeof row);
    EXPECT_EQ(std::memcmp(&tVideoDefine[77], row, sizeof row), 0);
}

// The five are never asked for: ids from 124 on have names of their own.
TEST_F(VideoFormatTable, TheNamesEndInFiveThatAreOnePlaceOff)
{
    const std::vector<std::string> tail = {"1920x1200x60", "MD_CUSTOM", "INPUT FORMAT", "UNDEFINE",
                                           "NO INPUT"};
    ASSERT_EQ(std::size(tVideoFormatStr), 129u);
    EXPECT_EQ(std::vector<std::string>(tVideoFormatStr.begin() + 124, tVideoFormatStr.end()), tail);
}

// All operations, all ids -------------------------------------------------------------------------

TEST_F(VideoFormatTable, EveryOperationAnswersForTheLow8BitsOfEveryId)
{
    for (const Operation &operation : kOperations) {
        for (const uint32_t high : {0u, 0x100u, 0x7C00u, 0x10000u, 0xFFFFFF00u}) {
            for (uint32_t id = 0; id < 256; ++id) {
                EXPECT_EQ(operation.ask(high | id), expected(operation, id, 10))
                    << operation.name << ' ' << (high | id);
            }
        }
    }
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

// clang-format off
const struct {
    const char *what;
    uint32_t (*ask)(uint32_t id);
    uint32_t id, expected;
} kExamples[] = {
    {"a clock is computed: 3300 x 750 x 30",  GetDlckByVideoFormat,            5, 74250000},
    {"a clock is stored",                     GetDlckByVideoFormat,            3, 74175824},
    {"an interlaced format has a field",      GetVDEByVideoFormat2,           38,      540},
    {"an interlaced format has a frame too",  GetVDEByVideoFormat,            38,     1080},
    {"a quarter of 7680x1080x60",             GetHDEByVideoFormat,           115,     1920},
    {"a quarter of 8192x1080x60",             GetHDEByVideoFormat,           123,     2048},
    {"the external input has format 10",      GetHTotalByVideoFormat,        125,     2200},
    {"the horizontal sync of 41 is negative", GetHSyncPolarityByVideoFormat,  41,        1},
    {"the vertical sync of 41 is positive",   GetVSyncPolarityByVideoFormat,  41,        0},
    {"200 has the code of 1024x768x60",       GetGS4911ByVideoFormat,        200,       45},
};
// clang-format on

TEST_F(VideoFormatTable, TheseIdsAnswerWithTheseNumbers)
{
    for (const auto &row : kExamples) {
        EXPECT_EQ(row.ask(row.id), row.expected) << row.what;
    }
}

// The custom format -------------------------------------------------------------------------------

TEST_F(VideoFormatTable, TheTwoPolaritiesOfTheCustomFormatAreBits0And1)
{
    for (uint32_t polarity = 0; polarity < 256; ++polarity) {
        GetCustomFormat()->syncPolarity = static_cast<uint8_t>(polarity);
        EXPECT_EQ(GetHSyncPolarityByVideoFormat(124), polarity % 2) << polarity;
        EXPECT_EQ(GetVSyncPolarityByVideoFormat(124), polarity / 2 % 2) << polarity;
    }
}

TEST_F(VideoFormatTable, ACustomFormatOfZeroesHasNoTimingAndNoClock)
{
    *GetCustomFormat() = {};
    *GetCustomResolution() = {};
    for (const Operation &operation : kOperations) {
        EXPECT_EQ(operation.ask(124), operation.ask == GetGS4911ByVideoFormat ? 45u : 0u)
            << operation.name;
    }
}

// Names -------------------------------------------------------------------------------------------

TEST_F(VideoFormatTable, TheNameOfTheCustomFormatIsCutTo31CharactersWithSigns)
{
    const auto nameOf = [](uint32_t width, uint32_t height, uint32_t rate) -> std::string {
        setResolution(width, height, rate);
        return GetStrByVideoFormat(124);
    };
    constexpr uint32_t kMost = 0x7FFFFFFF;
    EXPECT_EQ(nameOf(1920, 1080, 60), "C:1920x1080@60");
    EXPECT_EQ(nameOf(kMost, kMost, 1234567), "C:2147483647x2147483647@1234567"); // 31 characters
    EXPECT_EQ(nameOf(kMost, kMost, 12345678), "C:2147483647x2147483647@1234567");
    EXPECT_EQ(nameOf(kMost + 1, kMost + 1, kMost + 1), "C:-2147483648x-2147483648@-2147");
}

TEST_F(VideoFormatTable, OnlyAskingForTheCustomFormatRewritesItsName)
{
    static_assert(sizeof customStr == 32);
    EXPECT_EQ(GetStrByVideoFormat(124), customStr);
    setResolution(1, 2, 3);
    setExtern(124);
    for (uint32_t id = 0; id < 256; id += id == 123 ? 2 : 1) { // without 124
        EXPECT_NE(GetStrByVideoFormat(id), customStr) << id;
    }
    EXPECT_STREQ(customStr, "C:70196x153208@196679");
    EXPECT_STREQ(GetStrByVideoFormat(124), "C:1x2@3");
}

// GS4911 codes ------------------------------------------------------------------------------------

TEST_F(VideoFormatTable, FormatsWithACodeOfTheirOwnAreFoundByItAndOthersAsTheRowsSay)
{
    for (uint32_t id = 0; id < 256; ++id) {
        const bool hasOne = id < 40 || id == 63 || id == 71 || id == 72;
        const uint32_t code = GetGS4911ByVideoFormat(id);
        EXPECT_EQ(GetVideoFormatByGS4911(static_cast<uint8_t>(code)), hasOne ? id : 29) << id;
    }
    const std::map<uint8_t, uint32_t> formats = {
        {0, 127}, {45, 29}, {124, 36}, {26, 63}, {99, 126}};
    for (const auto &[code, format] : formats) {
        EXPECT_EQ(GetVideoFormatByGS4911(code), format) << int{code};
    }
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

TEST_F(VideoFormatTable, TheSizesAreThoseOfTheDocumentAndNoFormatHasSize12)
{
    std::map<uint32_t, std::string> documented;
    for (const auto &cells :
         tableOf("Active sizes", "index | size | index | size | index | size")) {
        ASSERT_EQ(cells.size(), 6u);
        for (size_t i = 0; i < 6; i += 2) {
            documented[number(cells[i])] = cells[i + 1];
        }
    }
    std::map<uint32_t, std::string> sizes;
    for (const ModeResolution &active : tModeResolution) {
        const auto index = static_cast<uint32_t>(sizes.size());
        sizes[index] = std::to_string(active.width) + "×" + std::to_string(active.height);
    }
    EXPECT_EQ(sizes, documented) << FORMATS_DOCUMENT;
    EXPECT_EQ(sizes.size(), 42u);
    for (const Row &row : exchanged) {
        sizes.erase(row.resIndex);
    }
    EXPECT_EQ(sizes, (std::map<uint32_t, std::string>{{12, "1440×864"}}));
}

// Each word of the table stands beside the value that another case holds against the program.
TEST_F(VideoFormatTable, EveryOperationAnswersAsTheDocumentSays)
{
    const auto rows =
        tableOf("What is answered for each id", "operation | 0 to 123 | 124 | 125 | 126 to 255");
    ASSERT_EQ(rows.size(), std::size(kOperations)) << FORMATS_DOCUMENT;
    for (size_t i = 0; i < rows.size(); ++i) {
        const Operation &operation = kOperations[i];
        const std::string others = rows[i].at(4);
        EXPECT_EQ(rows[i], (std::vector<std::string>{
                               quoted(operation.name), operation.fixedWords, operation.customWords,
                               operation.followsExternInput ? "as that format" : others, others}));
        EXPECT_EQ(number(others), operation.fixed(exchanged[29])) << operation.name;
    }
}

std::string nameOf(uint32_t id)
{
    const std::string others[] = {"C:70196x153208@196679", // kResolution
                                  "INPUT FORMAT", "UNDEFINE", "NO INPUT"};
    return id < 124 ? exchanged[id].name : id < 128 ? others[id - 124] : "UNKNOWN";
}

TEST_F(VideoFormatTable, EveryIdHasItsNameAndTheDocumentHasIt)
{
    uint32_t next = 0; // no id is left out
    for (const auto &cells : tableOf("What is answered for each id", "id | name")) {
        for (const uint32_t id : numbersIn(cells[0])) {
            EXPECT_EQ(id, next++);
            for (const uint32_t high : {0u, 0x100u, 0xFFFFFF00u}) {
                EXPECT_EQ(GetStrByVideoFormat(high | id), nameOf(id)) << (high | id);
            }
            if (id < 124) {
                EXPECT_EQ(cells[1], "that of the table");
            } else if (id > 124) {
                EXPECT_EQ(cells[1], '`' + nameOf(id) + '`');
            } else {
                EXPECT_EQ(cells[1], "`C:1920x1080@60`, from the resolution; cut to 31 characters");
            }
        }
    }
    EXPECT_EQ(next, 256u) << FORMATS_DOCUMENT;
}

TEST_F(VideoFormatTable, EveryCodeLeadsToTheFormatThatTheDocumentSays)
{
    std::map<uint32_t, uint32_t> formats;
    for (const auto &cells : tableOf("From a GS4911 code to a format", "code | id")) {
        const bool isRest = cells[0] == "every other"; // the last row
        const std::vector<uint32_t> codes = numbersIn(isRest ? "0 to 255" : cells[0]);
        const std::vector<uint32_t> ids = numbersIn(cells[1]);
        for (size_t i = 0; i < codes.size(); ++i) {
            const bool isNew = formats.insert({codes[i], ids.at(isRest ? 0 : i)}).second;
            EXPECT_TRUE(isNew || isRest) << codes[i];
        }
    }
    ASSERT_EQ(formats.size(), 256u) << FORMATS_DOCUMENT;
    for (const auto &[code, format] : formats) {
        EXPECT_EQ(GetVideoFormatByGS4911(static_cast<uint8_t>(code)), format) << code;
    }
}

TEST_F(VideoFormatTable, FormatsThatShareANameAreTheDocumentedOnes)
{
    std::map<std::string, std::set<uint32_t>> ids;
    for (const Row &row : exchanged) {
        ids[row.name].insert(row.id);
    }
    std::erase_if(ids, [](const auto &name) { return name.second.size() == 1; });
    EXPECT_EQ(ids, (std::map<std::string, std::set<uint32_t>>{{"1920x1080x60", {10, 66}},
                                                              {"3840x2160x29.97", {78, 84}}}));
    EXPECT_TRUE(documentSays(" The name is not unique: 10 and 66 are both 1920x1080x60, with "
                             "different blanking, and 78 and 84 are both 3840x2160x29.97. "));
    EXPECT_NE(exchanged[10].hTotal, exchanged[66].hTotal);
}

TEST_F(VideoFormatTable, TheClocksThatTheDocumentWorksOutAreRight)
{
    EXPECT_TRUE(documentSays(" 36 has 858 × 525 × 60 = 27027000 Hz. "));
    EXPECT_EQ(GetDlckByVideoFormat(36), 27027000u);
    // 24 Hz and 23.98 Hz by their names, 25 Hz in the table.
    EXPECT_TRUE(documentSays(" The clock of 85 and 87 is that of 25 Hz, 309375000 Hz. The clock of "
                             "86 and 88 is that of 23.98 Hz. "));
    for (const uint32_t id : {85u, 87u}) {
        EXPECT_EQ(GetDlckByVideoFormat(id), 309375000u);
        EXPECT_EQ(GetDlckByVideoFormat(id + 1), 296703297u); // 5500 x 2250 x 24000 / 1001
    }
}

TEST_F(VideoFormatTable, TheIdsAreDividedAsTheDocumentSays)
{
    std::vector<std::string> ids;
    for (const auto &cells : tableOf("Format ids", "id | meaning")) {
        ids.push_back(cells[0]);
    }
    EXPECT_EQ(ids, (std::vector<std::string>{
                       "0 to " + std::to_string(kVideoFormatCount - 1),
                       std::to_string(kVideoFormatCustom), std::to_string(kVideoFormatExtern),
                       std::to_string(kVideoFormatUndefine), std::to_string(kVideoFormatNoInput),
                       std::to_string(kVideoFormatNoInput + 1) + " to 255"}))
        << FORMATS_DOCUMENT;
}

// A misnomer more than the documented ones is a slip in the table; one less is a slip, too.
TEST_F(VideoFormatTable, TheMisnomersAreTheDocumentedOnes)
{
    std::set<std::tuple<uint32_t, std::string, std::string>> documented;
    for (const auto &cells :
         tableOf("Names and what they stand for", "id | the name says | the table has")) {
        ASSERT_EQ(cells.size(), 3u);
        for (const uint32_t id : numbersIn(cells[0])) {
            EXPECT_TRUE(documented.insert({id, cells[1], cells[2]}).second) << id;
        }
    }
    decltype(documented) found;
    for (const Row &row : exchanged) { // "1920x1080x59.94i", taken at its word
        const std::vector<std::string> said = split(row.name, "x");
        ASSERT_EQ(said.size(), 3u) << row;
        const std::string rate = said[2].substr(0, said[2].find_first_not_of("0123456789."));
        EXPECT_EQ(number(said[1]), row.height) << row;
        if (number(said[0]) != row.width) {
            found.insert({row.id, "width " + said[0], "width " + std::to_string(row.width)});
        }
        if (std::abs(std::stod(rate) - row.vFreq) > 0.5) { // V freq is rounded
            found.insert({row.id, rate + " Hz", "V freq " + std::to_string(row.vFreq)});
        }
        const std::string freq = std::to_string(row.vFreq);
        const bool isFraction = rate.find('.') != rate.npos;
        if (isFraction && row.pixelClock == 0) {
            found.insert({row.id, "a fractional rate", "no clock for it: that of V freq"});
        }
        if (isFraction && row.pixelClock == row.hTotal * row.vTotal * row.vFreq) {
            found.insert({row.id, rate + " Hz", "the clock of " + freq + " Hz"});
        }
    }
    EXPECT_EQ(documented, found) << FORMATS_DOCUMENT;
}

} // namespace
