// The lists of formats and the pairs of quarter and whole width, and docs/video-formats.md.

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
const struct {
    const char *name;
    Ids list;
    const char *ids;
} kLists[] = {
    {"outFormatList", Ids(std::begin(outFormatList), std::end(outFormatList)),
     "29, 2, 41, 32, 58, 47, 35, 49, 10, 50, 48, 60"},
    {"outFormatList_extern", {outFormatList_extern[0]}, "125"},
    {"outFormatList_others", Ids(std::begin(outFormatList_others), std::end(outFormatList_others)),
     "30, 31, 64, 65, 70, 40, 67, 9, 8, 7, 6, 5, 4, 3, 61, 42, 43, 33, 34, 44, 45, 55, 46, 53, 51, "
     "54, 69, 21, 22, 19, 20, 17, 18, 15, 16, 13, 14, 11, 12, 52, 68, 36, 37, 71, 72, 39, 38, 63"},
};

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

TEST_F(FormatList, TheListsAndTheDocumentHaveTheseFormatsInThisOrder)
{
    const auto rows = tableOf("Lists", "list | ids");
    ASSERT_EQ(rows.size(), 4u) << FORMATS_DOCUMENT;
    std::set<uint32_t> all = setOf(rows[3].at(1));
    size_t count = all.size();
    for (size_t i = 0; i < std::size(kLists); ++i) {
        EXPECT_EQ(kLists[i].list, numbersIn(kLists[i].ids)) << kLists[i].name;
        EXPECT_EQ(rows[i], (std::vector<std::string>{quoted(kLists[i].name), kLists[i].ids}));
        all.insert(kLists[i].list.begin(), kLists[i].list.end());
        count += kLists[i].list.size();
    }
    EXPECT_EQ(rows[3][0], "none of them");
    EXPECT_EQ(all, setOf("0 to 123, 125"));
    EXPECT_EQ(all.size(), count); // no format is listed twice
}

TEST_F(FormatList, AQuarterBecomesTheWholeAndEveryOtherIdStays)
{
    std::map<uint32_t, uint32_t> wholes;
    for (const Pair &pair : kPairs) {
        wholes[pair.quarter] = pair.whole;
    }
    for (const uint32_t high : {0u, 0x100u, 0x5D00u, 0x80000000u, 0xFFFFFF00u}) {
        for (uint32_t id = 0; id < 256; ++id) {
            EXPECT_EQ(change4Kformat(high | id), wholes.contains(id) ? wholes[id] : id) << high;
        }
    }
}

// No settings are in memory until then: a look at them would be the end of the program.
TEST_F(FormatList, Formats101And76And125StayAndFormat92Becomes76)
{
    EXPECT_EQ(change4Kformat(101), 101);
    EXPECT_EQ(change4Kformat(76), 76);
    EXPECT_EQ(change4Kformat(92), 76);
    EXPECT_EQ(change4Kformat(125), 125);
    malloc_saveView();
    GetUserSetting()->extInputFormat = 92;
    EXPECT_EQ(change4Kformat(125), 125);
}

TEST_F(FormatList, TheDocumentHasThePairs)
{
    const auto rows = tableOf("Lists", "id | quarter | becomes | whole");
    ASSERT_EQ(rows.size(), std::size(kPairs)) << FORMATS_DOCUMENT;
    for (size_t i = 0; i < rows.size(); ++i) {
        const auto &[quarter, quarterName, whole, wholeName] = kPairs[i];
        EXPECT_EQ(rows[i], (std::vector<std::string>{std::to_string(quarter), quarterName,
                                                     std::to_string(whole), wholeName}));
        const Row &part = exchanged.at(quarter);
        const Row &all = exchanged.at(whole);
        EXPECT_EQ(part.name, quarterName);
        EXPECT_EQ(all.name, wholeName);
        EXPECT_EQ(4 * part.width, all.width) << part;
        EXPECT_EQ(part.height, all.height) << part;
        EXPECT_EQ(part.vFreq == all.vFreq, quarter != 93 && quarter != 94) << part;
    }
    EXPECT_TRUE(documentSays(" V freq is the same on both sides except for 93 and 94, which have "
                             "24, while 86 and 85 have 25. "));
}

} // namespace
