// The stored views: how a slot is read, what stands in for one that cannot be read, and what is
// written. The file store's steps are noted among the messages.

#include "storage/ViewFile.h"

#include <vector>

#include <sys/mount.h>

#include <gtest/gtest.h>

#include "tests/support/traced_files.h"
#include "tests/support/view_files.h"

namespace fs = std::filesystem;

namespace {

[[maybe_unused]] const auto *const preparedViews =
    testing::AddGlobalTestEnvironment(new PreparedViews);

constexpr int kCurrent = 5; // as PreparedViews has it
constexpr int kOther = 3;

const Bytes kForeign = with(aView(77), 3992, Bytes(4, '\0'));

Bytes slotBuffer()
{
    return bytesOf(GetSaveViewSetting());
}

// One attempt to read a file, or one that is not there, with its steps.
std::string attempt(int slot)
{
    return "<open " + viewName(slot) + " 1><read 3996><close>";
}

std::string failedAttempt(int slot)
{
    return "<open " + viewName(slot) + " 1>" + notSaved(viewName(slot));
}

std::string twice(int slot, std::string (*one)(int))
{
    return one(slot) + tryAgain(slot) + one(slot);
}

struct Row {
    std::string name;
    int slot;
    std::optional<Bytes> file;
    int result;
    std::string steps; // of the file store, and what is printed
    Bytes after;       // the slot buffer
    Bytes before = kBuffer;
};

// Loads views. Nothing but the slot buffer may change, and no file.
void expectLoads(const std::vector<Row> &rows)
{
    tracedFiles.isNoted = true;
    const Bytes record = bytesOf(GetUserSetting());
    const Bytes live = bytesOf(GetViewSetting());
    const uint8_t current = _currentView;
    for (const Row &row : rows) {
        expectLoad([&] { EXPECT_EQ(LoadViewSetting(row.slot), row.result); }, GetSaveViewSetting(),
                   viewName(row.slot),
                   {row.name.c_str(), row.before, row.file, row.steps, row.after, {}});
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), record)) << row.name;
        EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), live)) << row.name;
    }
    EXPECT_EQ(_currentView, current);
}

TEST(ViewFile, AStoredViewIsReadOnceAsExactly3996Bytes)
{
    for (int slot = 0; slot < 16; ++slot) {
        const Bytes view = aView(static_cast<uint32_t>(slot));
        expectLoads({{viewName(slot), slot, view, 1, attempt(slot), view}});
    }
    const Bytes numbered = asStored(aView(1), 99);
    const Bytes longFile = aView(77) + Bytes(5000, '\xFF');
    expectLoads({{"view number of another", kOther, numbered, 1, attempt(kOther), numbered},
                 {"long file", kOther, longFile, 1, attempt(kOther), aView(77)}});
}

// What a reset does not name is what a foreign file has put there.
TEST(ViewFile, AViewThatCannotBeReadIsWhatIsShownOrAnEmptyOne)
{
    const Bytes foreign = with(aView(kOther), 3992, "yV!(");
    expectLoads({
        {"missing, current", kCurrent, {}, 0, twice(kCurrent, failedAttempt), kLive},
        {"missing", kOther, {}, 0, twice(kOther, failedAttempt), emptyOver(kBuffer)},
        {"foreign, current", kCurrent, kForeign, 0, twice(kCurrent, attempt), kLive},
        {"foreign", kOther, kForeign, 0, twice(kOther, attempt), emptyOver(kForeign)},
        {"nearly good", kOther, foreign, 0, twice(kOther, attempt), emptyOver(foreign)},
    });
    for (uint32_t bit = 0; bit < 32; ++bit) {
        expectLoads({{std::to_string(bit), kOther, bitFlipped(aView(77), 3992, bit), 0,
                      twice(kOther, attempt), emptyOver(aView(77))}});
    }
}

// The number that the display goes by is another one, and may differ between two steps of a switch.
TEST(ViewFile, TheCurrentViewIsTheOneOfTheUserSetting)
{
    _currentView = kOther;
    expectLoads({{"other", kOther, {}, 0, twice(kOther, failedAttempt), emptyOver(kBuffer)}});
    settingByte(3715) = kOther;
    _currentView = 0;
    expectLoads({{"current", kOther, {}, 0, twice(kOther, failedAttempt), kLive}});
}

TEST(ViewFile, WhatIsShownIsRebuiltFirstWhereItIsUnknown)
{
    GetViewSetting()->identification = 0x29215678;
    EXPECT_EQ(outcomeOf(LoadViewSetting, kCurrent), Outcome(0, missingView(kCurrent)));
    Image rebuilt(kPreview);
    rebuilt.repeat(2718, 24, 0);
    for (size_t i = 0; i < 24; ++i) {
        rebuilt.u8(3608 + 16 * i + 14, {0});
    }
    EXPECT_TRUE(areBytes(slotBuffer(), rebuilt.bytes));
    EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), rebuilt.bytes));
}

TEST(ViewFile, AFileThatBecomesGoodByTheSecondAttemptIsLoaded)
{
    int opened = 0;
    tracedFiles.beforeOpen = [&](const std::string &name) {
        EXPECT_EQ(name, "view3.sav");
        if (++opened == 2) {
            put(viewPath(kOther), aView(77));
        }
    };
    int32_t (*const load)(int32_t) = LoadViewSetting;
    EXPECT_EQ(outcomeOf(load, kOther), Outcome(1, notSaved("view3.sav") + tryAgain(kOther)));
    EXPECT_TRUE(areBytes(slotBuffer(), aView(77)));
    EXPECT_EQ(opened, 2);
}

TEST(ViewFile, AReadThatFailsIsSaidAndTriedAgain)
{
    tracedFiles.readsToFailure = 1;
    const std::string failure = "<open view3.sav 1><read 3996>read file view3.sav fail\r\n<close>";
    const std::string steps = failure + tryAgain(kOther) + attempt(kOther);
    expectLoads({{"first read fails", kOther, aView(kOther), 1, steps, aView(kOther)}});
}

// The identification is at the end, so it is the old content's.
TEST(ViewFile, AShortFileIsJudgedByTheOldContentOfTheBufferAfterIt)
{
    const Bytes unknown = with(kBuffer, 3992, Bytes(4, '\0'));
    for (const size_t length : {0u, 1u, 2608u, 3992u, 3995u}) {
        const Bytes file = aView(77).substr(0, length);
        const Bytes failed = emptyOver(file + unknown.substr(length));
        const std::string name = std::to_string(length) + " bytes";
        expectLoads(
            {{name, kOther, file, 1, attempt(kOther), file + kBuffer.substr(length)},
             {name + ", failed", kOther, file, 0, twice(kOther, attempt), failed, unknown}});
    }
}

// One visible layer makes it a stored one.
TEST(ViewFile, AnEmptyViewCountsAsStoredOnlyIfItIsNotCurrent)
{
    const Bytes empty = emptied(aView(kCurrent));
    const Bytes view = with(empty, 2608 + 95, "\x80");
    expectLoads({{"current", kCurrent, empty, 0, attempt(kCurrent), kLive},
                 {"other", kOther, empty, 1, attempt(kOther), empty},
                 {"one layer", kCurrent, view, 1, attempt(kCurrent), view}});
    fill(GetViewSetting(), emptied(kLive));
    const std::string steps = twice(kCurrent, failedAttempt);
    expectLoads({{"missing, and nothing is shown", kCurrent, {}, 0, steps, emptied(kLive)}});
}

// Its neighbours are full of other values then.
TEST(ViewFile, AViewIsEmptyWhenItsNinetySixAlphasAreZero)
{
    ViewSetting view;
    fill(&view, emptied(Bytes(kViewSize, '\xFF')));
    EXPECT_TRUE(isEmptyView(&view));
    for (size_t at = 2607; at <= 2704; ++at) {
        fill(&view, with(Bytes(kViewSize, '\0'), at, "\1"));
        EXPECT_EQ(isEmptyView(&view), at == 2607 || at == 2704) << at;
    }
}

TEST(ViewFile, ASlotThatThereIsNotTouchesNoFile)
{
    EXPECT_EQ(tryAgain(INT32_MIN), "try again _LoadViewSetting_help(-2147483648)\r\n");
    for (const int slot : {-1, 16, 17, 255, 256, INT32_MIN, INT32_MAX}) {
        expectLoads({{"no slot", slot, aView(1), 0, tryAgain(slot), emptyOver(kBuffer)}});
        const auto files = filesIn();
        fill(GetSaveViewSetting(), kBuffer);
        EXPECT_EQ(outcomeOf(SaveViewSetting, slot), Outcome(0, "")) << slot;
        EXPECT_TRUE(areBytes(slotBuffer(), kBuffer)) << slot;
        EXPECT_TRUE(filesIn() == files) << slot;
    }
}

// A record from elsewhere may name any view as the current one.
TEST(ViewFile, WithACurrentViewAfterTheLastSlotNoSlotIsTheCurrentOne)
{
    for (const int current : {16, 255}) {
        settingByte(3715) = static_cast<uint8_t>(current);
        expectLoads({{"current", current, {}, 0, tryAgain(current), kLive},
                     {"-1", -1, {}, 0, tryAgain(-1), emptyOver(kBuffer)}});
        for (const int slot : {0, current % 16, 15}) {
            const Bytes empty = emptied(aView(0));
            expectLoads({{"missing", slot, {}, 0, twice(slot, failedAttempt), emptyOver(kBuffer)},
                         {"empty", slot, empty, 1, attempt(slot), empty}});
        }
    }
}

std::string savingSteps(int slot)
{
    return "<open " + viewName(slot) + " 10><write 3996><close>";
}

Outcome saveOther()
{
    tracedFiles.isNoted = true;
    int32_t (*const save)(int32_t) = SaveViewSetting;
    return outcomeOf(save, kOther);
}

TEST(ViewFile, SavingWritesTheSlotBufferWithItsViewNumber)
{
    tracedFiles.isNoted = true;
    for (int slot = 0; slot < 16; ++slot) {
        const auto number = static_cast<uint32_t>(slot);
        const Bytes view = with(aView(60 + number), 3992, "none");
        const Bytes stored = with(with(view, 2742, oneByte(number)), 3992, "\x79\x56\x21\x29");
        fill(GetSaveViewSetting(), view);
        put(viewPath(slot), Bytes(5000, 'x'));
        EXPECT_EQ(outcomeOf(SaveViewSetting, slot), Outcome(1, savingSteps(slot)));
        EXPECT_TRUE(areBytes(contentOf(viewPath(slot)), stored)) << slot;
        EXPECT_TRUE(areBytes(slotBuffer(), stored)) << slot;
    }
    EXPECT_EQ(filesIn().size(), 16u);
    EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), kLive));
    EXPECT_EQ(settingByte(3715), kCurrent);
}

TEST(ViewFile, ASaveThatCannotCreateItsFileSaysSoAndClosesNothing)
{
    fs::remove(kDirectory);
    EXPECT_EQ(saveOther(), Outcome(0, "<open view3.sav 10>" + notSaved("view3.sav")));
    EXPECT_TRUE(areBytes(slotBuffer(), asStored(kBuffer, kOther)));
}

TEST(ViewFile, AWriteThatFailsOrTakesOneByteLessIsSaidAfterTheClosing)
{
    const Outcome failure(0, savingSteps(kOther) + "wirte file view3.sav fail\r\n");
    tracedFiles.writesToFailure = 1;
    EXPECT_EQ(saveOther(), failure);
    tracedFiles.writesToShortOne = 1;
    EXPECT_EQ(saveOther(), failure);
    EXPECT_EQ(saveOther(), Outcome(1, savingSteps(kOther)));
}

TEST(ViewFile, OnAFullDiskAViewIsLostAndThatIsSaid)
{
    ASSERT_EQ(mount("tmpfs", kDirectory, "tmpfs", 0, "size=4096"), 0);
    put("/userdata/full", Bytes(4096, 'x'));
    EXPECT_EQ(saveOther(), Outcome(0, savingSteps(kOther) + "wirte file view3.sav fail\r\n"));
    EXPECT_EQ(contentOf(viewPath(kOther)), "");
    fs::remove("/userdata/full");
    EXPECT_EQ(saveOther(), Outcome(1, savingSteps(kOther)));
    EXPECT_TRUE(areBytes(contentOf(viewPath(kOther)), asStored(kBuffer, kOther)));
}

TEST(ViewFile, ClearingRemovesAllSixteenViewsAndNothingElse)
{
    const std::map<std::string, Bytes> others = {
        {"view16.sav", "a"}, {"view-1.sav", "b"}, {"view.sav", "c"},   {"view00.sav", "d"},
        {"save0.sav", "e"},  {"view3.bak", "f"},  {"page0_0.sav", "g"}};
    for (const auto &[name, content] : others) {
        put("/userdata/" + name, content);
    }
    for (int slot = 0; slot < 16; ++slot) {
        put(viewPath(slot), aView(0));
    }
    EXPECT_EQ(printedBy(ClearViewSetting), "");
    EXPECT_EQ(filesIn(), others);
}

// With no view left, the current one is a copy of what is shown.
TEST(ViewFile, ClearingMakesTheSlotBufferUnknownAndKeepsTheRestOfIt)
{
    EXPECT_EQ(printedBy(ClearViewSetting), "");
    EXPECT_TRUE(areBytes(slotBuffer(), with(kBuffer, 3992, Bytes(4, '\0'))));
    EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), kLive));
    EXPECT_EQ(settingByte(3715), kCurrent);
    EXPECT_EQ(outcomeOf(LoadViewSetting, kCurrent), Outcome(0, missingView(kCurrent)));
    EXPECT_TRUE(areBytes(slotBuffer(), kLive));
}

} // namespace
