// The work-time list against its file, with this model's base address and with others. The module's
// source is part of this file with its base address weak: work_time_base.cpp takes its place.

#include "storage/WorkTime.h"

// What is weak is not compiled into its callers.
[[gnu::weak]] uint32_t getWorkTimeListAddress();

#include "storage/WorkTime.cpp"

#include <gtest/gtest.h>

#include "tests/support/setting_bytes.h"

namespace fs = std::filesystem;

extern uint32_t workTimeBase;

namespace {

constexpr char kName[] = "workTime.sav";
constexpr char kPath[] = "/userdata/workTime.sav";
constexpr uint32_t kGood = 0x20150321; // the last word of a good list

Bytes words(uint32_t w0, uint32_t w1, uint32_t w2, uint32_t w3, uint32_t w4, uint32_t w5)
{
    Bytes bytes;
    for (const uint32_t word : {w0, w1, w2, w3, w4, w5}) {
        bytes += littleEndian(word, 4);
    }
    return bytes;
}

const Bytes kNone(24, '\0');
const Bytes kDefaults = Bytes(20, '\0') + "\x21\x03\x15\x20";

[[maybe_unused]] const auto *const settingsDirectory =
    testing::AddGlobalTestEnvironment(new SettingsDirectory);

Bytes record()
{
    return bytesOf(getWorkTimeList());
}

// The tail that a short file does not have is the old record's, and so is its identification.
TEST(WorkTime, ItsFileIsLoadedAndWrittenAtOnceWhereItMustChange)
{
    const Bytes good = words(0, 0x80000001, 0x21222324, 0x31323334, 0x41424344, kGood);
    const Bytes other = words(0x80010, 0x80010, 0x80010, 0, 0, kGood);
    const Bytes raised = words(0x80000000, 0x80000000, 0x80000001, 1, 2, kGood);
    const Bytes atBase = words(100, 1, 2, 3, 4, kGood);
    const std::pair<uint32_t, Load> rows[] = {
        // by base
        // clang-format off
        {0, {"missing file", kNone, {}, notOpened(kName), kDefaults, kDefaults}},
        {0, {"foreign file", kNone, words(1, 2, 3, 4, 5, 6), "", kDefaults, kDefaults}},
        {0, {"good file, longer", kNone, good + "beyond", tooLong(kName, 30, 24), good, {}}},
        {0, {"current address of 5", kNone, with(good, 0, "\5"), "", good, good}},
        {0, {"short file", kNone, good.substr(0, 20), "", kDefaults, kDefaults}},
        {0, {"short file over a good list", words(9, 9, 9, 9, 9, kGood), good.substr(0, 8), "",
             words(0, 0x80000001, 9, 9, 9, kGood), {}}},
        {0x80010, {"missing file, other base", kNone, {}, notOpened(kName), other, other}},
        {0x80000000, {"current address above the base", kNone,
             words(0x80000005, 0x7FFFFFFF, 0x80000001, 1, 2, kGood), "", raised, raised}},
        {100, {"current address at the base: no other is raised", kNone, atBase, "", atBase, {}}},
        // clang-format on
    };
    for (const auto &[base, load] : rows) {
        workTimeBase = base;
        expectLoad(loadWorkTimeList, getWorkTimeList(), kName, load);
    }
}

TEST(WorkTime, EveryBitOfTheIdentificationCounts)
{
    for (uint32_t bit = 0; bit < 32; ++bit) {
        put(kPath, bitFlipped(words(0, 2, 3, 4, 5, kGood), 20, bit));
        EXPECT_EQ(printedBy(loadWorkTimeList), "");
        EXPECT_EQ(contentOf(kPath), kDefaults) << bit;
    }
}

// Compared without a sign.
TEST(WorkTime, AddressesBelowTheBaseAreRaisedToIt)
{
    const std::map<uint32_t, uint32_t> raised = {
        {0, 100}, {99, 100}, {100, 100}, {101, 101}, {0x80000000, 0x80000000}};
    workTimeBase = 100;
    for (const auto &[first, raisedFirst] : raised) {
        for (const auto &[second, raisedSecond] : raised) {
            const Bytes file = words(7, first, second, 1, 2, kGood);
            const Bytes after = words(100, raisedFirst, raisedSecond, 1, 2, kGood);
            expectLoad(loadWorkTimeList, getWorkTimeList(), kName,
                       {"addresses", kNone, file, "", after, after});
        }
    }
}

TEST(WorkTime, ResettingSetsEveryWordAndSavesNothing)
{
    for (const uint32_t base : {0u, 1u, 0x80010u}) {
        workTimeBase = base;
        fill(getWorkTimeList(), Bytes(24, '\xA5'));
        EXPECT_EQ(printedBy(resetWorkTimeList), "");
        EXPECT_EQ(record(), words(base, base, base, 0, 0, kGood));
    }
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

TEST(WorkTime, ReadingReturnsTheLengthOfTheFileAndJudgesNothing)
{
    uint32_t (*const read)() = ReadWorkTime;
    EXPECT_EQ(outcomeOf(read), Outcome(0, notOpened(kName)));
    EXPECT_EQ(record(), kNone); // before it is loaded, too
    put(kPath, words(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(outcomeOf(read), Outcome(24, ""));
    EXPECT_EQ(record(), words(1, 2, 3, 4, 5, 6));
    put(kPath, "abcd");
    EXPECT_EQ(outcomeOf(read), Outcome(4, ""));
    EXPECT_EQ(record(), words(0x64636261, 2, 3, 4, 5, 6));
}

TEST(WorkTime, SavingWritesTheRecordAsItStandsOrReturnsZero)
{
    for (int32_t (*const save)() : {saveWorkTimeList, WriteWorkTime}) {
        put(kPath, Bytes(100, 'x'));
        fill(getWorkTimeList(), words(1, 2, 3, 4, 5, 6));
        EXPECT_EQ(outcomeOf(save), Outcome(1, ""));
        EXPECT_EQ(filesIn(), (std::map<std::string, Bytes>{{kName, words(1, 2, 3, 4, 5, 6)}}));
        fs::remove_all(kDirectory);
        EXPECT_EQ(outcomeOf(save), Outcome(0, notSaved(kName)));
    }
    EXPECT_EQ(printedBy(loadWorkTimeList), notOpened(kName) + notSaved(kName));
    EXPECT_EQ(record(), kDefaults);
}

TEST(WorkTime, ResettingThePowerOnTimeClearsTheFlagAndSavesNothing)
{
    EXPECT_EQ(isOn, 0);
    isOn = 1;
    EXPECT_EQ(printedBy(resetPowerOnTime), "");
    EXPECT_EQ(isOn, 0);
    EXPECT_EQ(record(), kNone);
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

} // namespace
