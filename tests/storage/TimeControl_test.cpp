// The time-control table against its file.

#include "storage/TimeControl.h"

#include <gtest/gtest.h>

#include "tests/support/setting_bytes.h"

namespace fs = std::filesystem;

namespace {

constexpr char kFile[] = "timeCon0.sav";
constexpr char kPath[] = "/userdata/timeCon0.sav";
constexpr char kPathOfThree[] = "/userdata/timeCon3.sav";
constexpr char kReset[] = "Reset Time Control\r\n";

const Bytes kNone(152, '\0');
const Bytes kDefaults = with(kNone, 0, "\xAD\x04\x11\x20");
const Bytes kOwn = "\xAD\x04\x11\x20" + ownBytes(148, 1);
const Bytes kForeign = with(kOwn, 0, "none");

using Files = std::map<std::string, Bytes>;

[[maybe_unused]] const auto *const settingsDirectory =
    testing::AddGlobalTestEnvironment(new SettingsDirectory);

Bytes record()
{
    return bytesOf(GetTimeControl());
}

// The two bytes after the entries stay, as they are no entries. What is in memory is judged.
TEST(TimeControl, LoadingAnySlotUsesTheFileOfSlotZero)
{
    const Bytes foreignReset = kDefaults.substr(0, 150) + kForeign.substr(150);
    const Bytes ten = kOwn.substr(0, 10);
    const Load rows[] = {
        {"missing file", kNone, {}, notOpened(kFile) + kReset, kDefaults, kDefaults},
        {"good file, longer", kNone, kOwn + "beyond", tooLong(kFile, 158, 152), kOwn, {}},
        {"good file", kOwn, kDefaults, "", kDefaults, {}},
        {"foreign file", kNone, kForeign, kReset, foreignReset, foreignReset},
        {"short file", Bytes(152, '\x5A'), ten, "", ten + Bytes(142, '\x5A'), {}},
        {"three bytes", kNone, kOwn.substr(0, 3), kReset, kDefaults, kDefaults},
        {"no file over a good record", kOwn, {}, notOpened(kFile), kOwn, {}},
    };
    put(kPathOfThree, kForeign);
    for (const int slot : {0, 3, -1, 200}) {
        SCOPED_TRACE(slot);
        for (const Load &row : rows) {
            expectLoad([&] { loadTimeControl(slot); }, GetTimeControl(), kFile, row);
        }
    }
}

TEST(TimeControl, EveryBitOfTheIdentificationCounts)
{
    for (uint32_t bit = 0; bit < 32; ++bit) {
        put(kPath, bitFlipped(kOwn, 0, bit));
        EXPECT_EQ(printedBy([] { loadTimeControl(0); }), kReset) << bit;
        EXPECT_EQ(record().substr(0, 150), kDefaults.substr(0, 150)) << bit;
    }
    EXPECT_EQ(GetTimeControl()->identification, 0x201104ADu);
}

TEST(TimeControl, SavingAnySlotWritesTheFileOfSlotZero)
{
    fill(GetTimeControl(), kOwn);
    int32_t (*const save)(int32_t) = saveTimeControl;
    for (const int slot : {0, 3, -1, 200}) {
        fs::remove(kPath);
        EXPECT_EQ(outcomeOf(save, slot), Outcome(1, ""));
        EXPECT_EQ(filesIn(), (Files{{kFile, kOwn}})) << slot;
    }
}

TEST(TimeControl, ReadingAndWritingUseTheFileOfTheirSlot)
{
    uint32_t (*const read)(int32_t) = ReadTimeControl;
    int32_t (*const write)(int32_t) = WriteTimeControl;
    fill(GetTimeControl(), kForeign);
    put(kPathOfThree, Bytes(1000, 'x'));
    EXPECT_EQ(outcomeOf(write, 3), Outcome(1, ""));
    EXPECT_EQ(filesIn(), (Files{{"timeCon3.sav", kForeign}}));
    fill(GetTimeControl(), kOwn);
    EXPECT_EQ(outcomeOf(read, 3), Outcome(152, ""));
    EXPECT_EQ(record(), kForeign);
    EXPECT_EQ(outcomeOf(read, 12), Outcome(0, notOpened("timeCon12.sav")));
    EXPECT_EQ(record(), kForeign);
    put(kPathOfThree, kOwn + "x");
    EXPECT_EQ(outcomeOf(read, 3), Outcome(153, tooLong("timeCon3.sav", 153, 152)));
    EXPECT_EQ(record(), kOwn);
    put(kPathOfThree, "abcd");
    EXPECT_EQ(outcomeOf(read, 3), Outcome(4, ""));
    EXPECT_EQ(record(), with(kOwn, 0, "abcd"));
}

TEST(TimeControl, ResettingKeepsThePaddingAndSavesNothing)
{
    EXPECT_EQ(record(), kNone); // before it is loaded
    fill(GetTimeControl(), Bytes(152, '\xA5'));
    EXPECT_EQ(printedBy(resetTimeControl), "");
    EXPECT_EQ(record(), kDefaults.substr(0, 150) + "\xA5\xA5");
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

TEST(TimeControl, WhatCannotBeSavedIsSaidByTheFileStore)
{
    fs::remove(kDirectory);
    EXPECT_EQ(outcomeOf(saveTimeControl, 3), Outcome(0, notSaved(kFile)));
    EXPECT_EQ(printedBy([] { loadTimeControl(0); }), notOpened(kFile) + kReset + notSaved(kFile));
    EXPECT_EQ(record(), kDefaults);
}

} // namespace
