// The two records of the custom format: every setter and getter against the bytes of its record,
// and both records against docs/video-formats.md.

#include "video/CustomFormat.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/console.h"
#include "tests/support/format_files.h"
#include "tests/support/setting_bytes.h"
#include "tests/support/setting_change.h"

namespace {

enum Record { kResolution, kTiming };

constexpr size_t kResolutionAt = 3736; // in the user setting record

struct Accessors {
    const char *field;
    void (*set)(uint32_t value);
    uint32_t (*get)();
    Record record;
    size_t offset;
    size_t size;
};

// clang-format off
const Accessors kAccessors[] = {
    {"width",        setCustomH,              getCustomH,              kResolution,  0, 4},
    {"height",       setCustomV,              getCustomV,              kResolution,  4, 4},
    {"frameRate",    setCustomF,              getCustomF,              kResolution,  8, 4},
    {"syncPolarity", setCustomhvSyncPolarity, getCustomhvSyncPolarity, kTiming,      1, 1},
    {"hTotal",       setCustomhTotal,         getCustomhTotal,         kTiming,      2, 2},
    {"vTotal",       setCustomvTotal,         getCustomvTotal,         kTiming,      4, 2},
    {"hStart",       setCustomhStart,         getCustomhStart,         kTiming,      6, 2},
    {"vStart",       setCustomvStart,         getCustomvStart,         kTiming,      8, 2},
    {"hActive",      setCustomhActive,        getCustomhActive,        kTiming,     10, 2},
    {"vActive",      setCustomvActive,        getCustomvActive,        kTiming,     12, 2},
    {"hSyncWidth",   setCustomhSyncWidth,     getCustomhSyncWidth,     kTiming,     14, 2},
    {"vSyncWidth",   setCustomvSyncWidth,     getCustomvSyncWidth,     kTiming,     16, 2},
    {"colorSpace",   setCustomcolorSpace,     getCustomcolorSpace,     kTiming,     18, 1},
};
// clang-format on

// What can be lost or misread on the way into a narrower field and out of it.
constexpr uint32_t kValues[] = {
    0,      1,       0x7F,       0x80,       0xFF,       0x100,      0x7FFF,     0x8000,
    0xFFFF, 0x10000, 0x89ABCDEF, 0x76543210, 0x7FFFFFFF, 0x80000000, 0xFFFFFF00, 0xFFFFFFFF,
};

// The user setting record and the timing.
using Records = std::pair<Bytes, Bytes>;

// No two fields of one record, nor the same bytes of both, are equal: one read for another shows.
Records fillBoth()
{
    fill(GetUserSetting(), steppedBytes(sizeof(UserSetting), 1));
    fill(GetCustomFormat(), steppedBytes(sizeof(CustomFormat), 1));
    return {bytesOf(GetUserSetting()), bytesOf(GetCustomFormat())};
}

[[maybe_unused]] const auto *const blocks = testing::AddGlobalTestEnvironment(new Blocks);
[[maybe_unused]] const auto *const directory =
    testing::AddGlobalTestEnvironment(new SettingsDirectory);

TEST(CustomFormat, BothRecordsAreZeroAtFirst)
{
    EXPECT_TRUE(areBytes(bytesOf(GetCustomFormat()), Bytes(20, '\0')));
    for (const Accessors &row : kAccessors) {
        EXPECT_EQ(row.get(), 0u) << row.field;
    }
}

TEST(CustomFormat, SettersCutTheValueAndChangeTheirFieldOnlyAndGettersWidenIt)
{
    for (const Accessors &row : kAccessors) {
        for (const uint32_t value : kValues) {
            SCOPED_TRACE(std::string(row.field) + ' ' + std::to_string(value));
            Records expected = fillBoth();
            Bytes &record = row.record == kTiming ? expected.second : expected.first;
            const size_t at = row.record == kTiming ? row.offset : kResolutionAt + row.offset;
            const Bytes rest(4 - row.size, '\0');
            EXPECT_EQ(littleEndian(row.get(), 4), record.substr(at, row.size) + rest);
            const Bytes field = littleEndian(value, row.size);
            record = with(record, at, field);
            row.set(value);
            EXPECT_EQ(littleEndian(row.get(), 4), field + rest);
            EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), expected.first));
            EXPECT_TRUE(areBytes(bytesOf(GetCustomFormat()), expected.second));
        }
    }
}

TEST(CustomFormat, SettersSaveAndPrintNothing)
{
    for (const Accessors &row : kAccessors) {
        EXPECT_EQ(printedBy([&] { row.set(60); }), "") << row.field;
    }
    EXPECT_TRUE(filesIn().empty());
}

// What the user setting record becomes when a file is read into it is the resolution from then on.
TEST(CustomFormat, TheResolutionFollowsItsRecordAndTheTimingDoesNot)
{
    CustomFormat *const timing = GetCustomFormat();
    setCustomH(1920);
    setCustomhActive(1920);
    *GetUserSetting() = {};
    EXPECT_EQ(getCustomH(), 0u);
    EXPECT_EQ(getCustomhActive(), 1920u);
    EXPECT_EQ(GetCustomFormat(), timing);
}

TEST(CustomFormat, BothRecordsHaveTheFieldsOfTheirDocument)
{
    std::map<std::pair<Record, size_t>, std::string> fields = {
        {{kResolution, 12}, "u8 sizeClass"},
        {{kResolution, 13}, "u8[3] reserved13"},
        {{kTiming, 0}, "u8 reserved0"},
        {{kTiming, 19}, "u8 reserved19"},
    };
    for (const Accessors &row : kAccessors) {
        fields[{row.record, row.offset}] = 'u' + std::to_string(8 * row.size) + ' ' + row.field;
    }
    std::vector<std::string> expected;
    for (const auto &[place, field] : fields) {
        expected.push_back(std::to_string(place.second) + ' ' + field);
    }
    std::vector<std::string> documented;
    const std::string heading = "offset | type | field | unit or range";
    for (const auto &cells : tableOf("The custom format", heading)) {
        ASSERT_GE(cells.size(), 3u);
        const std::string field = cells[2].substr(0, cells[2].find(' ')); // no unit: "field |"
        documented.push_back(cells[0] + ' ' + cells[1] + ' ' + field);
    }
    EXPECT_EQ(documented, expected) << FORMATS_DOCUMENT;
}

} // namespace
