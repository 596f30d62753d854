// The lists of formats and the pairs of quarter and whole width, against the formats' names and
// numbers in the exchanged table (tests/data/video_formats.csv) and docs/video-formats.md.

#include "video/format_list.h"

#include <cstdint>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/format_files.h"

namespace {

static_assert(std::is_same_v<decltype(outFormatList), const uint8_t[12]>);
static_assert(std::is_same_v<decltype(outFormatList_extern), const uint8_t[1]>);
static_assert(std::is_same_v<decltype(outFormatList_others), const uint8_t[48]>);

using Ids = std::vector<uint32_t>;

template <typename List> Ids idsOf(const List &list)
{
    return {std::begin(list), std::end(list)};
}

struct Pair {
    uint32_t quarter;
    const char *quarterName;
    uint32_t whole;
    const char *wholeName;
};

// clang-format off
const Pair kPairs[] = {
    { 93, "960x2160x29.98",  86, "3840x2160x23.98"},
    { 94, "960x2160x24",     85, "3840x2160x24"},
    { 95, "960x2160x25",     73, "3840x2160x25"},
    { 96, "960x2160x29.97",  78, "3840x2160x29.97"},
    { 97, "960x2160x30",     74, "3840x2160x30"},
    { 98, "960x2160x50",     75, "3840x2160x50"},
    { 92, "960x2160x60",     76, "3840x2160x60"},
    { 99, "960x2160x59.94",  77, "3840x2160x59.94"},
    {104, "1024x2160x29.97", 84, "3840x2160x29.97"}, // 4096 wide
    {105, "1024x2160x30",    80, "4096x2160x30"},
    {106, "1024x2160x50",    81, "4096x2160x50"},
    {100, "1024x2160x60",    82, "4096x2160x60"},
    {107, "1024x2160x59.94", 83, "4096x2160x59.94"},
};
// clang-format on

using FormatList = WithExchanged;

TEST_F(FormatList, TheListsHaveTheseFormatsInThisOrder)
{
    std::vector<std::string> usual;
    for (const uint32_t id : outFormatList) {
        usual.push_back(exchanged.at(id).name);
    }
    EXPECT_EQ(idsOf(outFormatList), (Ids{29, 2, 41, 32, 58, 47, 35, 49, 10, 50, 48, 60}));
    EXPECT_EQ(usual, (std::vector<std::string>{"1024x768x60", "1280x720x60", "1280x768x60",
                                               "1280x1024x60", "1280x1280x60", "1440x900x60",
                                               "1600x1200x60", "1680x1050x60", "1920x1080x60",
                                               "1920x1200x60", "2048x1152x60", "2560x816x60"}));
    EXPECT_EQ(idsOf(outFormatList_extern), Ids{125});
    EXPECT_EQ(idsOf(outFormatList_others),
              (Ids{30, 31, 64, 65, 70, 40, 67, 9,  8,  7,  6,  5,  4,  3,  61, 42,
                   43, 33, 34, 44, 45, 55, 46, 53, 51, 54, 69, 21, 22, 19, 20, 17,
                   18, 15, 16, 13, 14, 11, 12, 52, 68, 36, 37, 71, 72, 39, 38, 63}));
}

TEST_F(FormatList, AQuarterBecomesTheWholeAndEveryOtherIdStays)
{
    std::map<uint32_t, uint32_t> wholes;
    for (const Pair &pair : kPairs) {
        wholes[pair.quarter] = pair.whole;
    }
    for (const uint32_t high : {0u, 0x100u, 0x5D00u, 0x80000000u, 0xFFFFFF00u}) {
        for (uint32_t id = 0; id < 256; ++id) {
            EXPECT_EQ(change4Kformat(high | id), wholes.contains(id) ? wholes[id] : id)
                << (high | id);
        }
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

// No settings are in memory until then: a look at them would be the end of the program.
TEST_F(FormatList, TheFormatOfTheExternalInputIsNotFollowed)
{
    EXPECT_EQ(change4Kformat(125), 125);
    malloc_saveView();
    GetUserSetting()->extInputFormat = 92;
    EXPECT_EQ(change4Kformat(125), 125);
}

// The totals are four times those of the quarter where V freq is the same.
TEST_F(FormatList, AQuarterHasAQuarterOfTheWidthAndTheSameLines)
{
    std::set<uint32_t> quarters;
    std::set<uint32_t> wholes;
    for (const Pair &pair : kPairs) {
        const Row &part = exchanged.at(pair.quarter);
        const Row &all = exchanged.at(pair.whole);
        EXPECT_EQ(part.name, pair.quarterName);
        EXPECT_EQ(all.name, pair.wholeName);
        EXPECT_EQ(4 * part.width, all.width) << part;
        EXPECT_EQ(part.height, all.height) << part;
        EXPECT_EQ(part.vTotal, all.vTotal) << part;
        EXPECT_TRUE(quarters.insert(part.id).second) << part;
        EXPECT_TRUE(wholes.insert(all.id).second) << all; // no two quarters of one
        // 85 and 86 have V freq 25 under the names of 24 and 23.98 Hz.
        const bool isMisnamed = all.id == 85 || all.id == 86;
        EXPECT_EQ(all.vFreq, isMisnamed ? 25 : part.vFreq) << part;
        EXPECT_EQ(part.vFreq == all.vFreq, !isMisnamed) << part;
        EXPECT_EQ(4 * part.hTotal == all.hTotal, !isMisnamed) << part;
        // 93 says 29.98 Hz and has 24 Hz; 84 says 3840 and has 4096.
        const std::vector<std::string> partSays = split(part.name, "x");
        const std::vector<std::string> allSays = split(all.name, "x");
        EXPECT_EQ(partSays.at(2) == allSays.at(2), part.id != 93) << part;
        EXPECT_EQ(4 * number(partSays[0]) == number(allSays[0]), all.id != 84) << all;
    }
    for (const Row &row : exchanged) {
        const bool isAlone = row.id >= 101 && row.id <= 103;
        const bool isQuarter = row.height == 2160 && row.width <= 1024;
        EXPECT_EQ(quarters.contains(row.id), isQuarter && !isAlone) << row;
    }
}

// The document ------------------------------------------------------------------------------------

TEST_F(FormatList, TheDocumentHasTheListsInTheirOrder)
{
    const auto rows = tableOf("Lists", "list | ids");
    ASSERT_EQ(rows.size(), 4u) << FORMATS_DOCUMENT;
    EXPECT_EQ(rows[0][0], quoted("outFormatList"));
    EXPECT_EQ(numbersIn(rows[0][1]), idsOf(outFormatList));
    EXPECT_EQ(rows[1][0], quoted("outFormatList_extern"));
    EXPECT_EQ(numbersIn(rows[1][1]), idsOf(outFormatList_extern));
    EXPECT_EQ(rows[2][0], quoted("outFormatList_others"));
    EXPECT_EQ(numbersIn(rows[2][1]), idsOf(outFormatList_others));
    EXPECT_EQ(rows[3][0], "none of them");
    std::set<uint32_t> all; // no format is listed twice
    for (const auto &cells : rows) {
        for (const uint32_t id : numbersIn(cells[1])) {
            EXPECT_TRUE(all.insert(id).second) << id;
        }
    }
    EXPECT_EQ(all, setOf("0 to 123, 125"));
}

TEST_F(FormatList, TheDocumentHasThePairs)
{
    const auto rows = tableOf("Lists", "id | quarter | becomes | whole");
    ASSERT_EQ(rows.size(), std::size(kPairs)) << FORMATS_DOCUMENT;
    for (size_t i = 0; i < rows.size(); ++i) {
        const auto &[quarter, quarterName, whole, wholeName] = kPairs[i];
        EXPECT_EQ(rows[i], (std::vector<std::string>{std::to_string(quarter), quarterName,
                                                     std::to_string(whole), wholeName}));
    }
    EXPECT_TRUE(documentSays(" V freq is the same on both sides except for 93 and 94, which have "
                             "24, while 86 and 85 have 25. "));
}

} // namespace
