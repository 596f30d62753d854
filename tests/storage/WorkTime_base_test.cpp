// The work-time list with another base address than this model's, and its flag. The module's source
// is part of this file with its base address weak, so that work_time_base.cpp can take its place.

#include "storage/WorkTime.h"

// What is weak is not compiled into its callers.
[[gnu::weak]] uint32_t getWorkTimeListAddress();

#include "storage/WorkTime.cpp"

#include <cstdint>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "tests/storage/work_time_base.h"
#include "tests/support/console.h"
#include "tests/support/setting_bytes.h"
#include "tests/support/work_time_files.h"

namespace fs = std::filesystem;

namespace {

[[maybe_unused]] const auto *const settingsDirectory =
    testing::AddGlobalTestEnvironment(new SettingsDirectory);

TEST(WorkTime, TheDefaultsOfTheAddressesAreTheBase)
{
    workTimeBase = 0x00080010;
    EXPECT_EQ(printedByLoading(), "open file /userdata/workTime.sav error\n");
    const Bytes expected = words(0x80010, 0x80010, 0x80010, 0, 0, kGood);
    EXPECT_EQ(record(), expected);
    EXPECT_EQ(contentOf(kPath), expected);
}

TEST(WorkTime, AddressesBelowTheBaseAreRaisedToIt)
{
    constexpr uint32_t kBase = 100;
    const struct {
        uint32_t before, after;
    } cases[] = {{0, 100},
                 {99, 100},
                 {100, 100},
                 {101, 101},
                 {0x7FFFFFFF, 0x7FFFFFFF},
                 {0x80000000, 0x80000000},
                 {0xFFFFFFFF, 0xFFFFFFFF}};
    workTimeBase = kBase;
    for (const auto &first : cases) {
        for (const auto &second : cases) {
            put(kPath, words(7, first.before, second.before, 1, 2, kGood));
            EXPECT_EQ(printedByLoading(), "");
            const Bytes expected = words(kBase, first.after, second.after, 1, 2, kGood);
            EXPECT_EQ(record(), expected);
            EXPECT_EQ(contentOf(kPath), expected);
        }
    }
}

TEST(WorkTime, ACurrentAddressAboveTheBaseIsPutThereToo)
{
    workTimeBase = 0x80000000;
    put(kPath, words(0x80000005, 0x7FFFFFFF, 0x80000001, 1, 2, kGood));
    EXPECT_EQ(printedByLoading(), "");
    EXPECT_EQ(contentOf(kPath), words(0x80000000, 0x80000000, 0x80000001, 1, 2, kGood));
}

// The other addresses are looked at only then.
TEST(WorkTime, NothingIsRaisedWhereTheCurrentAddressIsTheBase)
{
    workTimeBase = 100;
    const Bytes own = words(100, 1, 2, 3, 4, kGood);
    put(kPath, own);
    EXPECT_EQ(printedByLoading(), "");
    EXPECT_EQ(record(), own);
    EXPECT_EQ(contentOf(kPath), own);
}

TEST(WorkTime, ResettingThePowerOnTimeClearsTheFlagAndSavesNothing)
{
    EXPECT_EQ(isOn, 0);
    isOn = 1;
    EXPECT_EQ(printedBy([] { resetPowerOnTime(); }), "");
    EXPECT_EQ(isOn, 0);
    EXPECT_EQ(record(), Bytes(24, '\0'));
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

} // namespace
