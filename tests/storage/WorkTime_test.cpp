// The work-time list against its file.

#include "storage/WorkTime.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "tests/support/console.h"
#include "tests/support/setting_bytes.h"
#include "tests/support/work_time_files.h"

namespace fs = std::filesystem;

namespace {

static_assert(std::is_same_v<decltype(getWorkTimeListAddress()), uint32_t>);
static_assert(std::is_same_v<decltype(ReadWorkTime()), uint32_t>);
static_assert(std::is_same_v<decltype(WriteWorkTime()), int32_t>);
static_assert(std::is_same_v<decltype(saveWorkTimeList()), int32_t>);

const Bytes kListDefaults = words(0, 0, 0, 0, 0, kGood);

[[maybe_unused]] const auto *const settingsDirectory =
    testing::AddGlobalTestEnvironment(new SettingsDirectory);

TEST(WorkTime, IsZeroBeforeItIsLoaded)
{
    EXPECT_EQ(record(), Bytes(24, '\0'));
}

TEST(WorkTime, AMissingFileIsReplacedByTheDefaults)
{
    EXPECT_EQ(printedByLoading(), "open file /userdata/workTime.sav error\n");
    EXPECT_EQ(record(), kListDefaults);
    EXPECT_EQ(filesIn(), (std::map<std::string, Bytes>{{"workTime.sav", kListDefaults}}));
    EXPECT_EQ(kListDefaults.substr(20), "\x21\x03\x15\x20");
}

TEST(WorkTime, AForeignFileIsReplacedByTheDefaults)
{
    put(kPath, words(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(printedByLoading(), "");
    EXPECT_EQ(record(), kListDefaults);
    EXPECT_EQ(contentOf(kPath), kListDefaults);
}

TEST(WorkTime, EveryBitOfTheIdentificationCounts)
{
    for (uint32_t bit = 0; bit < 32; ++bit) {
        put(kPath, words(0, 2, 3, 4, 5, kGood ^ 1u << bit));
        EXPECT_EQ(printedByLoading(), "");
        EXPECT_EQ(contentOf(kPath), kListDefaults) << bit;
    }
}

// Its length, too: a file that is written again would have 24 bytes.
TEST(WorkTime, AGoodFileAtTheBaseAddressIsNotWritten)
{
    const Bytes own = words(0, 0x80000001, 2, 3, 4, kGood);
    put(kPath, own + "behind");
    EXPECT_EQ(printedByLoading(),
              "read file workTime.sav size error: fileSize=30, readSize=24\r\n");
    EXPECT_EQ(record(), own);
    EXPECT_EQ(contentOf(kPath), own + "behind");
}

TEST(WorkTime, ACurrentAddressOfFiveIsRewrittenWithZeroAndTheOtherWordsUnchanged)
{
    put(kPath, words(5, 0x11121314, 0x21222324, 0x31323334, 0x41424344, kGood));
    const Bytes expected = words(0, 0x11121314, 0x21222324, 0x31323334, 0x41424344, kGood);
    EXPECT_EQ(printedByLoading(), "");
    EXPECT_EQ(record(), expected);
    EXPECT_EQ(contentOf(kPath), expected);
    EXPECT_EQ(getWorkTimeList()->addresses[0], 0x11121314u);
    EXPECT_EQ(getWorkTimeList()->addresses[1], 0x21222324u);
    EXPECT_EQ(getWorkTimeList()->counters[0], 0x31323334u);
    EXPECT_EQ(getWorkTimeList()->counters[1], 0x41424344u);
}

// The tail that is missing is the old record's, and so is its identification.
TEST(WorkTime, AShortFileIsJudgedByTheRecordBehindIt)
{
    put(kPath, words(0, 2, 3, 4, 5, kGood).substr(0, 20));
    EXPECT_EQ(printedByLoading(), "");
    EXPECT_EQ(contentOf(kPath), kListDefaults);

    fill(getWorkTimeList(), words(9, 9, 9, 9, 9, kGood));
    put(kPath, words(0, 2, 3, 4, 5, kGood).substr(0, 8));
    EXPECT_EQ(printedByLoading(), "");
    EXPECT_EQ(record(), words(0, 2, 9, 9, 9, kGood));
    EXPECT_EQ(contentOf(kPath), words(0, 2, 3, 4, 5, kGood).substr(0, 8));
}

TEST(WorkTime, ResettingSetsEveryWordAndSavesNothing)
{
    fill(getWorkTimeList(), Bytes(24, '\xA5'));
    EXPECT_EQ(printedBy([] { resetWorkTimeList(); }), "");
    EXPECT_EQ(record(), kListDefaults);
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

TEST(WorkTime, ReadingReturnsTheLengthOfTheFileAndJudgesNothing)
{
    EXPECT_EQ(printedBy([] { EXPECT_EQ(ReadWorkTime(), 0u); }),
              "open file /userdata/workTime.sav error\n");
    EXPECT_EQ(record(), Bytes(24, '\0'));
    put(kPath, words(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(printedBy([] { EXPECT_EQ(ReadWorkTime(), 24u); }), "");
    EXPECT_EQ(record(), words(1, 2, 3, 4, 5, 6));
    put(kPath, "abcd");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(ReadWorkTime(), 4u); }), "");
    EXPECT_EQ(record(), words(0x64636261, 2, 3, 4, 5, 6));
}

TEST(WorkTime, SavingWritesTheRecordAsItStands)
{
    for (int32_t (*const save)() : {saveWorkTimeList, WriteWorkTime}) {
        put(kPath, Bytes(100, 'x'));
        fill(getWorkTimeList(), words(1, 2, 3, 4, 5, 6));
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(save(), 1); }), "");
        EXPECT_EQ(filesIn(),
                  (std::map<std::string, Bytes>{{"workTime.sav", words(1, 2, 3, 4, 5, 6)}}));
    }
}

TEST(WorkTime, WhatCannotBeSavedIsSaidByTheFileStore)
{
    fs::remove(kDirectory);
    const std::string message = "open file /userdata/workTime.sav error\n"
                                "open file workTime.sav fail\r\n";
    EXPECT_EQ(printedBy([] { EXPECT_EQ(saveWorkTimeList(), 0); }), message);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(WriteWorkTime(), 0); }), message);
    EXPECT_EQ(printedByLoading(), "open file /userdata/workTime.sav error\n" + message);
    EXPECT_EQ(record(), kListDefaults);
}

TEST(WorkTime, TheBaseAddressIsZero)
{
    EXPECT_EQ(getWorkTimeListAddress(), 0u);
}

} // namespace
