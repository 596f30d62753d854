// The time-control table against its file.

#include "storage/TimeControl.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "tests/support/console.h"
#include "tests/support/setting_bytes.h"

namespace fs = std::filesystem;

namespace {

static_assert(std::is_same_v<decltype(ReadTimeControl(0)), uint32_t>);
static_assert(std::is_same_v<decltype(WriteTimeControl(0)), int32_t>);
static_assert(std::is_same_v<decltype(saveTimeControl(0)), int32_t>);

constexpr char kPath[] = "/userdata/timeCon0.sav";
constexpr char kPathOfThree[] = "/userdata/timeCon3.sav";

const Bytes kTimeControlDefaults = "\xAD\x04\x11\x20" + Bytes(148, '\0');

// A good record of which every byte behind the identification is of its own.
const Bytes kOwn = [] {
    Bytes bytes = "\xAD\x04\x11\x20";
    for (uint32_t i = 4; i < 152; ++i) {
        bytes += oneByte(i + 100);
    }
    return bytes;
}();

const Bytes kForeign = with(kOwn, 0, "none");

[[maybe_unused]] const auto *const settingsDirectory =
    testing::AddGlobalTestEnvironment(new SettingsDirectory);

std::string printedByLoading(int slot)
{
    return printedBy([&] { loadTimeControl(slot); });
}

Bytes record()
{
    return bytesOf(GetTimeControl());
}

TEST(TimeControl, IsZeroBeforeItIsLoaded)
{
    EXPECT_EQ(record(), Bytes(152, '\0'));
}

TEST(TimeControl, AMissingFileIsReplacedByTheDefaults)
{
    EXPECT_EQ(printedByLoading(0), "open file /userdata/timeCon0.sav error\n"
                                   "Reset Time Control\r\n");
    EXPECT_EQ(record(), kTimeControlDefaults);
    EXPECT_EQ(filesIn(), (std::map<std::string, Bytes>{{"timeCon0.sav", kTimeControlDefaults}}));
}

TEST(TimeControl, AGoodFileIsTheRecordAndIsNotWritten)
{
    put(kPath, kOwn + "behind");
    EXPECT_EQ(printedByLoading(0),
              "read file timeCon0.sav size error: fileSize=158, readSize=152\r\n");
    EXPECT_EQ(record(), kOwn);
    EXPECT_EQ(contentOf(kPath), kOwn + "behind");
    put(kPath, kTimeControlDefaults);
    EXPECT_EQ(printedByLoading(0), "");
    EXPECT_EQ(record(), kTimeControlDefaults);
    EXPECT_EQ(GetTimeControl()->identification, 0x201104ADu);
}

TEST(TimeControl, EveryBitOfTheIdentificationCounts)
{
    for (uint32_t bit = 0; bit < 32; ++bit) {
        Bytes file = kOwn;
        file[bit / 8] = static_cast<char>(file[bit / 8] ^ (1 << bit % 8));
        put(kPath, file);
        EXPECT_EQ(printedByLoading(0), "Reset Time Control\r\n") << bit;
        EXPECT_EQ(record().substr(0, 150), kTimeControlDefaults.substr(0, 150)) << bit;
    }
}

// The two bytes behind the entries are no entries.
TEST(TimeControl, AForeignFileIsReplacedByTheDefaultsAndItsPadding)
{
    put(kPath, kForeign);
    EXPECT_EQ(printedByLoading(0), "Reset Time Control\r\n");
    const Bytes expected = kTimeControlDefaults.substr(0, 150) + kForeign.substr(150);
    EXPECT_EQ(record(), expected);
    EXPECT_EQ(contentOf(kPath), expected);
}

TEST(TimeControl, AShortFileWithTheIdentificationKeepsTheTailThatWasThere)
{
    fill(GetTimeControl(), Bytes(152, '\x5A'));
    put(kPath, kOwn.substr(0, 10));
    EXPECT_EQ(printedByLoading(0), "");
    EXPECT_EQ(record(), kOwn.substr(0, 10) + Bytes(142, '\x5A'));
    EXPECT_EQ(contentOf(kPath), kOwn.substr(0, 10));
}

TEST(TimeControl, AShortFileOfThreeBytesIsReplaced)
{
    put(kPath, kOwn.substr(0, 3));
    EXPECT_EQ(printedByLoading(0), "Reset Time Control\r\n");
    EXPECT_EQ(contentOf(kPath), kTimeControlDefaults);
}

// What is in memory is judged.
TEST(TimeControl, AGoodRecordStaysWhenTheFileHasGone)
{
    fill(GetTimeControl(), kOwn);
    EXPECT_EQ(printedByLoading(0), "open file /userdata/timeCon0.sav error\n");
    EXPECT_EQ(record(), kOwn);
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

TEST(TimeControl, LoadingSlotThreeReadsTheFileOfSlotZero)
{
    put(kPath, kOwn);
    put(kPathOfThree, kTimeControlDefaults);
    EXPECT_EQ(printedByLoading(3), "");
    EXPECT_EQ(record(), kOwn);
}

TEST(TimeControl, LoadingSlotThreeWritesTheFileOfSlotZeroAfterAReset)
{
    put(kPathOfThree, kOwn);
    for (const int slot : {3, -1, 200}) {
        fill(GetTimeControl(), Bytes(152, '\0'));
        fs::remove(kPath);
        EXPECT_EQ(printedByLoading(slot), "open file /userdata/timeCon0.sav error\n"
                                          "Reset Time Control\r\n");
        EXPECT_EQ(filesIn(), (std::map<std::string, Bytes>{{"timeCon0.sav", kTimeControlDefaults},
                                                           {"timeCon3.sav", kOwn}}));
    }
}

TEST(TimeControl, SavingAnySlotWritesTheFileOfSlotZero)
{
    fill(GetTimeControl(), kOwn);
    for (const int slot : {0, 3, -1, 200}) {
        fs::remove(kPath);
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(saveTimeControl(slot), 1); }), "");
        EXPECT_EQ(filesIn(), (std::map<std::string, Bytes>{{"timeCon0.sav", kOwn}})) << slot;
    }
}

TEST(TimeControl, ReadingAndWritingUseTheFileOfTheirSlot)
{
    fill(GetTimeControl(), kForeign);
    put(kPathOfThree, Bytes(1000, 'x'));
    EXPECT_EQ(printedBy([] { EXPECT_EQ(WriteTimeControl(3), 1); }), "");
    EXPECT_EQ(filesIn(), (std::map<std::string, Bytes>{{"timeCon3.sav", kForeign}}));
    fill(GetTimeControl(), kOwn);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(ReadTimeControl(3), 152u); }), "");
    EXPECT_EQ(record(), kForeign);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(ReadTimeControl(12), 0u); }),
              "open file /userdata/timeCon12.sav error\n");
    EXPECT_EQ(record(), kForeign);
    put(kPathOfThree, kOwn + "x");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(ReadTimeControl(3), 153u); }),
              "read file timeCon3.sav size error: fileSize=153, readSize=152\r\n");
    EXPECT_EQ(record(), kOwn);
    put(kPathOfThree, "abcd");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(ReadTimeControl(3), 4u); }), "");
    EXPECT_EQ(record(), with(kOwn, 0, "abcd"));
}

TEST(TimeControl, ResettingKeepsThePaddingAndSavesNothing)
{
    fill(GetTimeControl(), Bytes(152, '\xA5'));
    EXPECT_EQ(printedBy([] { resetTimeControl(); }), "");
    EXPECT_EQ(record(), kTimeControlDefaults.substr(0, 150) + "\xA5\xA5");
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

TEST(TimeControl, WhatCannotBeSavedIsSaidByTheFileStore)
{
    fs::remove(kDirectory);
    const std::string message = "open file /userdata/timeCon0.sav error\n"
                                "open file timeCon0.sav fail\r\n";
    EXPECT_EQ(printedBy([] { EXPECT_EQ(saveTimeControl(3), 0); }), message);
    EXPECT_EQ(printedByLoading(0), "open file /userdata/timeCon0.sav error\n"
                                   "Reset Time Control\r\n" +
                                       message);
    EXPECT_EQ(record(), kTimeControlDefaults);
}

} // namespace
