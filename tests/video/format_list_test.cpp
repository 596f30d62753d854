// The lists of formats and the pairs of quarter and whole width, against the formats' names and
// numbers in the exchanged table (tests/data/video_formats.csv) and docs/video-formats.md.

#include "video/format_list.h"

#include <cstdint>
#include <iterator>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/format_files.h"
#include "video/VideoFormatTable.h"

namespace {

static_assert(std::is_same_v<decltype(outFormatList), const uint8_t[12]>);
static_assert(std::is_same_v<decltype(outFormatList_extern), const uint8_t[1]>);
static_assert(std::is_same_v<decltype(outFormatList_others), const uint8_t[48]>);

struct Entry {
    uint32_t id;
    std::string name;
    bool operator==(const Entry &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Entry &entry)
{
    return out << entry.id << ' ' << entry.name;
}

const std::vector<Entry> kUsual = {
    {29, "1024x768x60"},  {2, "1280x720x60"},   {41, "1280x768x60"},  {32, "1280x1024x60"},
    {58, "1280x1280x60"}, {47, "1440x900x60"},  {35, "1600x1200x60"}, {49, "1680x1050x60"},
    {10, "1920x1080x60"}, {50, "1920x1200x60"}, {48, "2048x1152x60"}, {60, "2560x816x60"},
};

const std::vector<Entry> kOthers = {
    {30, "1024x768x75"},     {31, "1024x768x85"},     {64, "1024x1280x60"},
    {65, "1024x1920x60"},    {70, "1080x1920x60"},    {40, "1152x864x75"},
    {67, "1248x936x60"},     {9, "1280x720x23.98"},   {8, "1280x720x24"},
    {7, "1280x720x25"},      {6, "1280x720x29.97"},   {5, "1280x720x30"},
    {4, "1280x720x50"},      {3, "1280x720x59.94"},   {61, "1280x800x60"},
    {42, "1280x960x60"},     {43, "1280x960x85"},     {33, "1280x1024x75"},
    {34, "1280x1024x85"},    {44, "1360x768x60"},     {45, "1366x768x60"},
    {55, "1400x1050x60_r"},  {46, "1400x1050x60"},    {53, "1440x900x60_r"},
    {51, "1600x1200x60_r"},  {54, "1680x1050x60_r"},  {69, "1872x1040x60"},
    {21, "1920x1080x23.98"}, {22, "1920x1080x23.9s"}, {19, "1920x1080x24"},
    {20, "1920x1080x24s"},   {17, "1920x1080x25"},    {18, "1920x1080x25s"},
    {15, "1920x1080x29.97"}, {16, "1920x1080x29.9s"}, {13, "1920x1080x30"},
    {14, "1920x1080x30s"},   {11, "1920x1080x59.94"}, {12, "1920x1080x50"},
    {52, "1920x1080x60_r"},  {68, "1976x1144x60"},    {36, "720x480x60i"},
    {37, "720x576x50i"},     {71, "720x480x60i_2"},   {72, "720x576x50i_2"},
    {39, "1920x1080x50i"},   {38, "1920x1080x60i"},   {63, "1920x1080x59.94i"},
};

struct Pair {
    Entry quarter;
    Entry whole;
};

const Pair kPairs[] = {
    {{93, "960x2160x29.98"}, {86, "3840x2160x23.98"}},
    {{94, "960x2160x24"}, {85, "3840x2160x24"}},
    {{95, "960x2160x25"}, {73, "3840x2160x25"}},
    {{96, "960x2160x29.97"}, {78, "3840x2160x29.97"}},
    {{97, "960x2160x30"}, {74, "3840x2160x30"}},
    {{98, "960x2160x50"}, {75, "3840x2160x50"}},
    {{92, "960x2160x60"}, {76, "3840x2160x60"}},
    {{99, "960x2160x59.94"}, {77, "3840x2160x59.94"}},
    {{104, "1024x2160x29.97"}, {84, "3840x2160x29.97"}}, // 4096 wide
    {{105, "1024x2160x30"}, {80, "4096x2160x30"}},
    {{106, "1024x2160x50"}, {81, "4096x2160x50"}},
    {{100, "1024x2160x60"}, {82, "4096x2160x60"}},
    {{107, "1024x2160x59.94"}, {83, "4096x2160x59.94"}},
};

class FormatList : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(readExchanged()) << FORMATS_FILE;
    }
};

// The lists ---------------------------------------------------------------------------------------

// A list with the names of its formats.
template <typename List> std::vector<Entry> entriesOf(const List &list)
{
    std::vector<Entry> entries;
    for (const uint32_t id : list) {
        entries.push_back({id, exchanged.at(id).name});
    }
    return entries;
}

TEST_F(FormatList, TheUsualFormatsAreOfferedInThisOrder)
{
    EXPECT_EQ(std::size(outFormatList), 12u);
    EXPECT_EQ(entriesOf(outFormatList), kUsual);
}

TEST_F(FormatList, TheOtherFormatsAreOfferedInThisOrder)
{
    EXPECT_EQ(std::size(outFormatList_others), 48u);
    EXPECT_EQ(entriesOf(outFormatList_others), kOthers);
}

TEST_F(FormatList, TheFormatOfTheExternalInputIsAListOfItsOwn)
{
    EXPECT_EQ(std::size(outFormatList_extern), 1u);
    EXPECT_EQ(outFormatList_extern[0], 125);
    EXPECT_STREQ(GetStrByVideoFormat(outFormatList_extern[0]), "INPUT FORMAT");
}

TEST_F(FormatList, NoFormatIsOfferedTwice)
{
    std::set<uint32_t> offered;
    for (const uint32_t id : outFormatList) {
        EXPECT_TRUE(offered.insert(id).second) << id;
    }
    for (const uint32_t id : outFormatList_extern) {
        EXPECT_TRUE(offered.insert(id).second) << id;
    }
    for (const uint32_t id : outFormatList_others) {
        EXPECT_TRUE(offered.insert(id).second) << id;
    }
    EXPECT_EQ(offered.size(), 61u);
}

// The 480- and 576-line frames, the small computer formats, some of odd shape, and all of 4K2K and
// 8K1K.
TEST_F(FormatList, TheseFormatsAreOfferedInNoList)
{
    const std::set<uint32_t> expected = {
        0,   1,   23,  24,  25,  26,  27,  28,  56,  57,  59,  62,  66,  73,  74,  75,
        76,  77,  78,  79,  80,  81,  82,  83,  84,  85,  86,  87,  88,  89,  90,  91,
        92,  93,  94,  95,  96,  97,  98,  99,  100, 101, 102, 103, 104, 105, 106, 107,
        108, 109, 110, 111, 112, 113, 114, 115, 116, 117, 118, 119, 120, 121, 122, 123};
    std::set<uint32_t> others;
    for (uint32_t id = 0; id < 124; ++id) {
        others.insert(id);
    }
    for (const uint32_t id : outFormatList) {
        others.erase(id);
    }
    for (const uint32_t id : outFormatList_others) {
        others.erase(id);
    }
    EXPECT_EQ(others, expected);
}

// Quarter and whole width -------------------------------------------------------------------------

// What change4Kformat() answers for the id.
uint32_t expectedWhole(uint32_t id)
{
    for (const auto &[quarter, whole] : kPairs) {
        if (quarter.id == id) {
            return whole.id;
        }
    }
    return id;
}

TEST_F(FormatList, AQuarterBecomesTheWholeAndEveryOtherIdStaysAsItIs)
{
    size_t changed = 0;
    for (uint32_t id = 0; id < 256; ++id) {
        EXPECT_EQ(change4Kformat(id), expectedWhole(id)) << id;
        if (change4Kformat(id) != id) {
            ++changed;
        }
    }
    EXPECT_EQ(changed, 13u);
}

TEST_F(FormatList, OnlyTheLow8BitsOfAnIdCount)
{
    for (const uint32_t high : {0x100u, 0x5D00u, 0x10000u, 0x80000000u, 0xFFFFFF00u}) {
        for (uint32_t id = 0; id < 256; ++id) {
            EXPECT_EQ(change4Kformat(high | id), expectedWhole(id)) << std::hex << (high | id);
        }
    }
}

TEST_F(FormatList, ThePairsAreThoseOfTheirNames)
{
    ASSERT_EQ(std::size(kPairs), 13u);
    for (const auto &[quarter, whole] : kPairs) {
        EXPECT_EQ(exchanged.at(quarter.id).name, quarter.name);
        EXPECT_EQ(exchanged.at(whole.id).name, whole.name);
        EXPECT_EQ(change4Kformat(quarter.id), whole.id) << quarter;
    }
}

TEST_F(FormatList, Formats101To103And76StayAndFormat92Becomes76)
{
    EXPECT_EQ(change4Kformat(101), 101);
    EXPECT_EQ(change4Kformat(102), 102);
    EXPECT_EQ(change4Kformat(103), 103);
    EXPECT_EQ(change4Kformat(76), 76);
    EXPECT_EQ(change4Kformat(92), 76);
}

TEST_F(FormatList, TheFormatsOfAQuarterWithoutAWholeAre101To103)
{
    std::set<uint32_t> alone;
    for (const Row &row : exchanged) {
        if (row.height == 2160 && row.width <= 1024 && change4Kformat(row.id) == row.id) {
            alone.insert(row.id);
        }
    }
    EXPECT_EQ(alone, (std::set<uint32_t>{101, 102, 103}));
}

// The totals are four times those of the quarter where V freq is the same.
TEST_F(FormatList, AQuarterHasAQuarterOfTheWidthAndTheSameLines)
{
    std::set<uint32_t> wholes;
    for (const auto &[quarter, whole] : kPairs) {
        const Row &part = exchanged.at(quarter.id);
        const Row &all = exchanged.at(whole.id);
        EXPECT_EQ(4 * GetHDEByVideoFormat(part.id), GetHDEByVideoFormat(change4Kformat(part.id)));
        EXPECT_EQ(4 * part.width, all.width) << part;
        EXPECT_EQ(part.height, all.height) << part;
        EXPECT_EQ(part.vTotal, all.vTotal) << part;
        EXPECT_TRUE(wholes.insert(whole.id).second) << whole; // no two quarters of one
        EXPECT_EQ(change4Kformat(whole.id), whole.id) << whole;
        // 85 and 86 have V freq 25 under the names of 24 and 23.98 Hz.
        const bool isMisnamed = whole.id == 85 || whole.id == 86;
        EXPECT_EQ(all.vFreq, isMisnamed ? 25 : part.vFreq) << part;
        EXPECT_EQ(part.vFreq == all.vFreq, !isMisnamed) << part;
        EXPECT_EQ(4 * part.hTotal == all.hTotal, !isMisnamed) << part;
    }
    EXPECT_EQ(wholes.size(), 13u);
}

// 93 says 29.98 Hz and has 24 Hz; 84 says 3840 and has 4096.
TEST_F(FormatList, TheNamesOfAPairHaveTheSameRateButForTheMisnomer93)
{
    for (const auto &[quarter, whole] : kPairs) {
        const std::vector<std::string> part = split(quarter.name, "x");
        const std::vector<std::string> all = split(whole.name, "x");
        ASSERT_EQ(part.size(), 3u);
        ASSERT_EQ(all.size(), 3u);
        EXPECT_EQ(part[2] == all[2], quarter.id != 93) << quarter << ' ' << whole;
        EXPECT_EQ(4 * number(part[0]) == number(all[0]), whole.id != 84) << quarter << ' ' << whole;
    }
    EXPECT_EQ(exchanged[93].vFreq, 24u);
}

// No settings are in memory until then: a look at them would be the end of the program.
TEST_F(FormatList, TheFormatOfTheExternalInputIsNotFollowed)
{
    EXPECT_EQ(change4Kformat(125), 125);
    malloc_saveView();
    GetUserSetting()->extInputFormat = 92;
    EXPECT_EQ(change4Kformat(125), 125);
}

// The document ------------------------------------------------------------------------------------

TEST_F(FormatList, TheDocumentHasTheListsInTheirOrder)
{
    const std::vector<std::vector<std::string>> rows = tableOf("Lists", "list | ids");
    ASSERT_EQ(rows.size(), 4u) << FORMATS_DOCUMENT;
    const std::vector<uint32_t> usual(std::begin(outFormatList), std::end(outFormatList));
    const std::vector<uint32_t> external(std::begin(outFormatList_extern),
                                         std::end(outFormatList_extern));
    const std::vector<uint32_t> others(std::begin(outFormatList_others),
                                       std::end(outFormatList_others));
    EXPECT_EQ(rows[0][0], quoted("outFormatList"));
    EXPECT_EQ(numbersIn(rows[0][1]), usual);
    EXPECT_EQ(rows[1][0], quoted("outFormatList_extern"));
    EXPECT_EQ(numbersIn(rows[1][1]), external);
    EXPECT_EQ(rows[2][0], quoted("outFormatList_others"));
    EXPECT_EQ(numbersIn(rows[2][1]), others);
    EXPECT_EQ(rows[3][0], "none of them");
    std::set<uint32_t> all;
    for (const std::vector<std::string> &cells : rows) {
        for (const uint32_t id : numbersIn(cells[1])) {
            EXPECT_TRUE(all.insert(id).second) << id;
        }
    }
    EXPECT_EQ(all.size(), 125u); // 0 to 123 and 125
}

TEST_F(FormatList, TheDocumentHasThePairs)
{
    const std::vector<std::vector<std::string>> rows =
        tableOf("Lists", "id | quarter | becomes | whole");
    ASSERT_EQ(rows.size(), 13u) << FORMATS_DOCUMENT;
    std::set<uint32_t> changed;
    for (const std::vector<std::string> &cells : rows) {
        ASSERT_EQ(cells.size(), 4u);
        const uint32_t id = number(cells[0]);
        EXPECT_TRUE(changed.insert(id).second) << id;
        EXPECT_EQ(exchanged.at(id).name, cells[1]);
        EXPECT_EQ(change4Kformat(id), number(cells[2])) << id;
        EXPECT_EQ(exchanged.at(change4Kformat(id)).name, cells[3]);
    }
    EXPECT_TRUE(documentSays(" V freq is the same on both sides except for 93 and 94, which have "
                             "24, while 86 and 85 have 25. "));
}

} // namespace
