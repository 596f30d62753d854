// The stored views: how a slot is read, what stands in for one that cannot be read, and what is
// written. The file store's steps are noted among the messages, so that an expectation is their
// order, too.

#include "storage/ViewFile.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "tests/support/console.h"
#include "tests/support/setting_bytes.h"
#include "tests/support/traced_files.h"
#include "tests/support/view_files.h"

namespace fs = std::filesystem;

namespace {

static_assert(std::is_same_v<decltype(LoadViewSetting(0)), int32_t>);
static_assert(std::is_same_v<decltype(SaveViewSetting(0)), int32_t>);

[[maybe_unused]] const auto *const preparedViews =
    testing::AddGlobalTestEnvironment(new PreparedViews);

constexpr int kCurrent = 5; // as PreparedViews has it
constexpr int kOther = 3;

const int kNoSlots[] = {-1, 16, 17, 255, 256, INT32_MIN, INT32_MAX};

// Loads a slot and returns what was printed.
std::string printedByLoading(int slot, int expectedResult)
{
    return printedBy([&] { EXPECT_EQ(LoadViewSetting(slot), expectedResult); });
}

std::string printedBySaving(int slot, int expectedResult)
{
    return printedBy([&] { EXPECT_EQ(SaveViewSetting(slot), expectedResult); });
}

std::string tryAgain(int slot)
{
    return "try again _LoadViewSetting_help(" + std::to_string(slot) + ")\r\n";
}

Bytes slotBuffer()
{
    return bytesOf(GetSaveViewSetting());
}

// Loading ----------------------------------------------------------------------------------------

TEST(ViewFile, AStoredViewIsLoadedIntoTheSlotBufferSilently)
{
    for (int slot = 0; slot < 16; ++slot) {
        const Bytes view = aView(static_cast<uint32_t>(slot));
        put(viewPath(slot), view);
        EXPECT_EQ(printedByLoading(slot, 1), "") << slot;
        EXPECT_TRUE(areBytes(slotBuffer(), view)) << slot;
    }
    EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), kLive));
    EXPECT_TRUE(areBytes(bytesOf(GetPreviewViewSetting()), kPreview));
    EXPECT_EQ(settingByte(3715), kCurrent);
    EXPECT_EQ(_currentView, 9);
}

TEST(ViewFile, AStoredViewIsReadOnceAsExactly3996Bytes)
{
    put(viewPath(kOther), aView(kOther));
    tracedFiles.isNoted = true;
    EXPECT_EQ(printedByLoading(kOther, 1), "<open view3.sav 1><read 3996><close>");
}

// The view number in the file says where the view came from: nobody judges it.
TEST(ViewFile, TheViewNumberInTheFileIsNotJudged)
{
    const Bytes view = asStored(aView(1), 99);
    put(viewPath(kOther), view);
    EXPECT_EQ(printedByLoading(kOther, 1), "");
    EXPECT_TRUE(areBytes(slotBuffer(), view));
}

TEST(ViewFile, AMissingViewIsTriedTwice)
{
    EXPECT_EQ(printedByLoading(kOther, 0), "open file /userdata/view3.sav error\n"
                                           "open file view3.sav fail\r\n"
                                           "try again _LoadViewSetting_help(3)\r\n"
                                           "open file /userdata/view3.sav error\n"
                                           "open file view3.sav fail\r\n");
    tracedFiles.isNoted = true;
    const std::string attempt = "<open view12.sav 1>"
                                "open file /userdata/view12.sav error\n"
                                "open file view12.sav fail\r\n";
    EXPECT_EQ(printedByLoading(12, 0), attempt + tryAgain(12) + attempt);
}

TEST(ViewFile, AMissingViewThatIsCurrentIsACopyOfWhatIsShown)
{
    EXPECT_EQ(printedByLoading(kCurrent, 0), missingView(kCurrent));
    EXPECT_TRUE(areBytes(slotBuffer(), kLive));
    EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), kLive));
}

TEST(ViewFile, AMissingViewThatIsNotCurrentIsAnEmptyOneOverWhatTheBufferHeld)
{
    EXPECT_EQ(printedByLoading(kOther, 0), missingView(kOther));
    EXPECT_TRUE(areBytes(slotBuffer(), emptyOver(kBuffer)));
}

// The number that the display goes by is another one, and may differ between two steps of a switch.
TEST(ViewFile, TheCurrentViewIsTheOneOfTheUserSetting)
{
    _currentView = kOther;
    EXPECT_EQ(printedByLoading(kOther, 0), missingView(kOther));
    EXPECT_TRUE(areBytes(slotBuffer(), emptyOver(kBuffer)));
    settingByte(3715) = kOther;
    _currentView = 0;
    EXPECT_EQ(printedByLoading(kOther, 0), missingView(kOther));
    EXPECT_TRUE(areBytes(slotBuffer(), kLive));
}

TEST(ViewFile, WhatIsShownIsRebuiltFromThePreviewFirstWhereItIsUnknown)
{
    GetViewSetting()->identification = 0x29215678;
    EXPECT_EQ(printedByLoading(kCurrent, 0), missingView(kCurrent));
    Bytes rebuilt = with(kPreview, 2718, Bytes(24, '\0'));
    for (size_t i = 0; i < 24; ++i) {
        rebuilt = with(rebuilt, 3608 + 16 * i + 14, Bytes(1, '\0'));
    }
    EXPECT_TRUE(areBytes(slotBuffer(), rebuilt));
    EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), rebuilt));
}

TEST(ViewFile, AViewWithAWrongIdentificationIsReadTwice)
{
    put(viewPath(kOther), with(aView(kOther), 3992, "yV!("));
    tracedFiles.isNoted = true;
    const std::string attempt = "<open view3.sav 1><read 3996><close>";
    EXPECT_EQ(printedByLoading(kOther, 0), attempt + tryAgain(kOther) + attempt);
}

// What a reset does not name is what the foreign file has put there.
TEST(ViewFile, AViewWithAWrongIdentificationIsAnEmptyOneOverTheFile)
{
    const Bytes foreign = with(aView(77), 3992, Bytes(4, '\0'));
    put(viewPath(kOther), foreign);
    EXPECT_EQ(printedByLoading(kOther, 0), tryAgain(kOther));
    EXPECT_TRUE(areBytes(slotBuffer(), emptyOver(foreign)));
    EXPECT_TRUE(areBytes(contentOf(viewPath(kOther)), foreign));
}

TEST(ViewFile, ACurrentViewWithAWrongIdentificationIsACopyOfWhatIsShown)
{
    put(viewPath(kCurrent), with(aView(77), 3992, Bytes(4, '\0')));
    EXPECT_EQ(printedByLoading(kCurrent, 0), tryAgain(kCurrent));
    EXPECT_TRUE(areBytes(slotBuffer(), kLive));
}

TEST(ViewFile, EveryBitOfTheIdentificationCounts)
{
    for (uint32_t bit = 0; bit < 32; ++bit) {
        Bytes view = aView(77);
        view[3992 + bit / 8] = static_cast<char>(view[3992 + bit / 8] ^ (1 << bit % 8));
        put(viewPath(kOther), view);
        EXPECT_EQ(printedByLoading(kOther, 0), tryAgain(kOther)) << bit;
    }
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
    EXPECT_EQ(printedByLoading(kOther, 1), "open file /userdata/view3.sav error\n"
                                           "open file view3.sav fail\r\n"
                                           "try again _LoadViewSetting_help(3)\r\n");
    EXPECT_TRUE(areBytes(slotBuffer(), aView(77)));
    EXPECT_EQ(opened, 2);
}

TEST(ViewFile, AReadThatFailsIsSaidAndTriedAgain)
{
    put(viewPath(kOther), aView(kOther));
    tracedFiles.isNoted = true;
    tracedFiles.readsToFailure = 1;
    EXPECT_EQ(printedByLoading(kOther, 1),
              "<open view3.sav 1><read 3996>read file view3.sav fail\r\n<close>"
              "try again _LoadViewSetting_help(3)\r\n"
              "<open view3.sav 1><read 3996><close>");
    EXPECT_TRUE(areBytes(slotBuffer(), aView(kOther)));
}

// The identification is at the end, so it is the old content's.
TEST(ViewFile, AShortFileIsJudgedByTheOldContentOfTheBufferBehindIt)
{
    for (const size_t length : {size_t{0}, size_t{1}, size_t{2608}, size_t{3992}, size_t{3995}}) {
        fill(GetSaveViewSetting(), kBuffer);
        put(viewPath(kOther), aView(77).substr(0, length));
        EXPECT_EQ(printedByLoading(kOther, 1), "") << length;
        EXPECT_TRUE(areBytes(slotBuffer(), aView(77).substr(0, length) + kBuffer.substr(length)))
            << length;
    }
}

TEST(ViewFile, AShortFileFailsBehindABufferThatIsNoView)
{
    const Bytes unknown = with(kBuffer, 3992, Bytes(4, '\0'));
    for (const size_t length : {size_t{0}, size_t{1}, size_t{2608}, size_t{3992}, size_t{3995}}) {
        fill(GetSaveViewSetting(), unknown);
        put(viewPath(kOther), aView(77).substr(0, length));
        EXPECT_EQ(printedByLoading(kOther, 0), tryAgain(kOther)) << length;
        EXPECT_TRUE(
            areBytes(slotBuffer(), emptyOver(aView(77).substr(0, length) + unknown.substr(length))))
            << length;
    }
}

TEST(ViewFile, OfALongFileOnlyTheFirst3996BytesAreRead)
{
    put(viewPath(kOther), aView(77) + Bytes(5000, '\xFF'));
    const Bytes live = bytesOf(GetViewSetting());
    const Bytes record = bytesOf(GetUserSetting());
    EXPECT_EQ(printedByLoading(kOther, 1), "");
    EXPECT_TRUE(areBytes(slotBuffer(), aView(77)));
    EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), live));
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), record));
}

// A directory can be opened, but nothing comes out of it.
TEST(ViewFile, ADirectoryInThePlaceOfAViewIsAFileOfNoBytes)
{
    fs::create_directory(viewPath(kOther));
    EXPECT_EQ(printedByLoading(kOther, 1), "");
    EXPECT_TRUE(areBytes(slotBuffer(), kBuffer));
    GetSaveViewSetting()->identification = 0;
    EXPECT_EQ(printedByLoading(kOther, 0), tryAgain(kOther));
}

TEST(ViewFile, AnEmptyViewThatIsCurrentIsACopyOfWhatIsShown)
{
    put(viewPath(kCurrent), emptied(aView(kCurrent)));
    EXPECT_EQ(printedByLoading(kCurrent, 0), "");
    EXPECT_TRUE(areBytes(slotBuffer(), kLive));
    EXPECT_TRUE(areBytes(contentOf(viewPath(kCurrent)), emptied(aView(kCurrent))));
}

TEST(ViewFile, AnEmptyViewThatIsNotCurrentIsLoadedAsItIs)
{
    put(viewPath(kOther), emptied(aView(kOther)));
    EXPECT_EQ(printedByLoading(kOther, 1), "");
    EXPECT_TRUE(areBytes(slotBuffer(), emptied(aView(kOther))));
}

TEST(ViewFile, AMissingCurrentViewIsACopyOfWhatIsShownEvenIfThatIsEmpty)
{
    fill(GetViewSetting(), emptied(kLive));
    EXPECT_EQ(printedByLoading(kCurrent, 0), missingView(kCurrent));
    EXPECT_TRUE(areBytes(slotBuffer(), emptied(kLive)));
}

TEST(ViewFile, OneVisibleLayerMakesTheCurrentViewAStoredOne)
{
    for (const uint32_t layer : {0u, 1u, 50u, 95u}) {
        const Bytes view = with(emptied(aView(kCurrent)), 2608 + layer, "\x80");
        put(viewPath(kCurrent), view);
        EXPECT_EQ(printedByLoading(kCurrent, 1), "") << layer;
        EXPECT_TRUE(areBytes(slotBuffer(), view)) << layer;
    }
}

// Its neighbours are full of other values then.
TEST(ViewFile, AViewIsEmptyWhenItsNinetySixAlphasAreZero)
{
    ViewSetting view;
    fill(&view, emptied(Bytes(kViewSize, '\xFF')));
    EXPECT_TRUE(isEmptyView(&view));
    for (size_t layer = 0; layer < 96; ++layer) {
        fill(&view, with(Bytes(kViewSize, '\0'), 2608 + layer, "\1"));
        EXPECT_FALSE(isEmptyView(&view)) << layer;
    }
    fill(&view, with(Bytes(kViewSize, '\0'), 2607, "\1"));
    EXPECT_TRUE(isEmptyView(&view));
    fill(&view, with(Bytes(kViewSize, '\0'), 2704, "\1"));
    EXPECT_TRUE(isEmptyView(&view));
}

// Slots that there are not -----------------------------------------------------------------------

TEST(ViewFile, LoadingASlotThatThereIsNotTouchesNoFile)
{
    tracedFiles.isNoted = true;
    for (const int slot : kNoSlots) {
        fill(GetSaveViewSetting(), kBuffer);
        put(viewPath(slot), aView(1));
        const auto files = filesIn();
        EXPECT_EQ(printedByLoading(slot, 0), tryAgain(slot));
        EXPECT_TRUE(areBytes(slotBuffer(), emptyOver(kBuffer))) << slot;
        EXPECT_EQ(filesIn(), files) << slot;
    }
    EXPECT_EQ(printedByLoading(INT32_MIN, 0), "try again _LoadViewSetting_help(-2147483648)\r\n");
    EXPECT_EQ(printedByLoading(INT32_MAX, 0), "try again _LoadViewSetting_help(2147483647)\r\n");
}

TEST(ViewFile, SavingToASlotThatThereIsNotTouchesNoFile)
{
    tracedFiles.isNoted = true;
    for (const int slot : kNoSlots) {
        EXPECT_EQ(printedBySaving(slot, 0), "") << slot;
        EXPECT_TRUE(areBytes(slotBuffer(), kBuffer)) << slot;
    }
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

// A record from elsewhere may name any view as the current one.
TEST(ViewFile, ACurrentViewBehindTheLastSlotIsACopyOfWhatIsShown)
{
    for (const int current : {16, 200, 255}) {
        settingByte(3715) = static_cast<uint8_t>(current);
        fill(GetSaveViewSetting(), kBuffer);
        EXPECT_EQ(printedByLoading(current, 0), tryAgain(current));
        EXPECT_TRUE(areBytes(slotBuffer(), kLive)) << current;
    }
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

TEST(ViewFile, WithACurrentViewBehindTheLastSlotNoSlotIsTheCurrentOne)
{
    for (const int current : {16, 200, 255}) {
        settingByte(3715) = static_cast<uint8_t>(current);
        for (int slot = -1; slot < 16; ++slot) {
            fill(GetSaveViewSetting(), kBuffer);
            printedByLoading(slot, 0);
            EXPECT_TRUE(areBytes(slotBuffer(), emptyOver(kBuffer))) << current << ' ' << slot;
        }
        put(viewPath(0), emptied(aView(0)));
        EXPECT_EQ(printedByLoading(0, 1), "");
        EXPECT_TRUE(areBytes(slotBuffer(), emptied(aView(0))));
        fs::remove(viewPath(0));
    }
}

// What a load leaves behind ----------------------------------------------------------------------

TEST(ViewFile, LoadingWritesNoFileWhateverItFinds)
{
    put(viewPath(0), aView(0));
    put(viewPath(1), emptied(aView(1)));
    put(viewPath(2), with(aView(2), 3992, "none"));
    put(viewPath(4), aView(4).substr(0, 100));
    put(viewPath(6), aView(6) + "behind");
    put(viewPath(7), "");
    put(viewPath(16), aView(16));
    const fs::file_time_type longAgo = fs::last_write_time(kDirectory) - std::chrono::hours(24);
    for (const auto &entry : fs::directory_iterator(kDirectory)) {
        fs::last_write_time(entry.path(), longAgo);
    }
    fs::last_write_time(kDirectory, longAgo);
    const auto files = filesIn();
    for (const int current : {0, 1, 2, 3, 4, 5, 6, 7, 16}) {
        settingByte(3715) = static_cast<uint8_t>(current);
        for (int slot = -1; slot <= 16; ++slot) {
            printedBy([&] { LoadViewSetting(slot); });
        }
    }
    EXPECT_EQ(filesIn(), files);
    EXPECT_EQ(fs::last_write_time(kDirectory), longAgo);
    for (const auto &entry : fs::directory_iterator(kDirectory)) {
        EXPECT_EQ(entry.last_write_time(), longAgo) << entry.path();
    }
}

// Resetting the slot buffer ----------------------------------------------------------------------

TEST(ViewFile, ResettingTheSlotBufferChangesExactlyWhatAnEmptyViewNeeds)
{
    const Bytes old(kViewSize, '\xA5');
    fill(GetSaveViewSetting(), old);
    const Bytes record = bytesOf(GetUserSetting());
    EXPECT_EQ(printedBy([] { ResetSaveViewSetting(); }), "");
    const Bytes reset = slotBuffer();
    EXPECT_TRUE(areBytes(reset, emptyOver(old)));
    EXPECT_EQ(reset.substr(0, 16), Bytes(16, '\xA5'));                        // view byte, reserved
    EXPECT_TRUE(areBytes(reset.substr(16, 2496), kPreview.substr(16, 2496))); // layers
    EXPECT_TRUE(areBytes(reset.substr(2512, 96), kPreview.substr(2512, 96))); // positions
    EXPECT_TRUE(areBytes(reset.substr(2608, 96), Bytes(96, '\0')));           // alphas
    EXPECT_EQ(reset.substr(2704, 14), Bytes("\0\1\0\0\x80\x06\xB8\x03\1\0\0\0\0\0", 14));
    EXPECT_EQ(reset.substr(2718, 24), Bytes(24, '\0'));                 // container flags
    EXPECT_EQ(reset.substr(2742, 2), "\1\xA5");                         // view number, reserved
    EXPECT_TRUE(areBytes(reset.substr(2744, 864), Bytes(864, '\xA5'))); // RS1
    for (size_t i = 0; i < 24; ++i) {
        EXPECT_EQ(reset.substr(3608 + 16 * i, 16), Bytes(14, '\xA5') + '\0' + '\xA5') << i;
    }
    EXPECT_EQ(reset.substr(3992), "\x79\x56\x21\x29");
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), record));
    EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), kLive));
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

TEST(ViewFile, AnEmptyViewCountsItsOtherSettingsFromTheFarCornerOfOutputZero)
{
    const struct {
        uint32_t width, height;
        Bytes position;
    } cases[] = {
        {3840, 2160, Bytes("\x00\x0E\xF0\x07", 4)}, // 3584, 2032
        {256, 128, Bytes(4, '\0')},
        {100, 100, Bytes("\x64\xFF\xE4\xFF", 4)}, // 156 and 28 beyond the other corner
        {0, 0, Bytes("\x00\xFF\x80\xFF", 4)},
    };
    for (const auto &it : cases) {
        setOutputSize(it.width, it.height);
        ResetSaveViewSetting();
        EXPECT_EQ(slotBuffer().substr(2708, 4), it.position) << it.width;
        EXPECT_TRUE(areBytes(slotBuffer(), emptyViewOver(kBuffer, kPreview, it.width, it.height)));
    }
}

// Saving -----------------------------------------------------------------------------------------

TEST(ViewFile, SavingWritesTheSlotBufferWithIdentificationAndViewNumber)
{
    for (int slot = 0; slot < 16; ++slot) {
        const Bytes view = with(aView(60 + static_cast<uint32_t>(slot)), 3992, "none");
        fill(GetSaveViewSetting(), view);
        put(viewPath(slot), Bytes(5000, 'x'));
        EXPECT_EQ(printedBySaving(slot, 1), "");
        const Bytes stored =
            with(with(view, 2742, oneByte(static_cast<uint32_t>(slot))), 3992, "\x79\x56\x21\x29");
        EXPECT_TRUE(areBytes(contentOf(viewPath(slot)), stored)) << slot;
        EXPECT_TRUE(areBytes(slotBuffer(), stored)) << slot;
    }
    EXPECT_EQ(filesIn().size(), 16u);
    EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), kLive));
    EXPECT_EQ(settingByte(3715), kCurrent);
}

TEST(ViewFile, SavingCreatesTheFileAndWrites3996BytesAtOnce)
{
    tracedFiles.isNoted = true;
    EXPECT_EQ(printedBySaving(15, 1), "<open view15.sav 10><write 3996><close>");
}

TEST(ViewFile, ASavedViewIsLoadedAgain)
{
    EXPECT_EQ(printedBySaving(kOther, 1), "");
    fill(GetSaveViewSetting(), Bytes(kViewSize, '\0'));
    EXPECT_EQ(printedByLoading(kOther, 1), "");
    EXPECT_TRUE(areBytes(slotBuffer(), asStored(kBuffer, kOther)));
}

TEST(ViewFile, ASaveThatCannotCreateItsFileSaysSoAndClosesNothing)
{
    fs::remove(kDirectory);
    tracedFiles.isNoted = true;
    EXPECT_EQ(printedBySaving(kOther, 0), "<open view3.sav 10>"
                                          "open file /userdata/view3.sav error\n"
                                          "open file view3.sav fail\r\n");
    EXPECT_TRUE(areBytes(slotBuffer(), asStored(kBuffer, kOther)));
}

TEST(ViewFile, AWriteThatFailsIsSaidBehindTheClosing)
{
    tracedFiles.isNoted = true;
    tracedFiles.writesToFailure = 1;
    EXPECT_EQ(printedBySaving(kOther, 0), "<open view3.sav 10><write 3996><close>"
                                          "wirte file view3.sav fail\r\n");
    EXPECT_EQ(printedBySaving(kOther, 1), "<open view3.sav 10><write 3996><close>");
}

TEST(ViewFile, AWriteThatTakesOneByteLessCountsAsFailed)
{
    tracedFiles.isNoted = true;
    tracedFiles.writesToShortOne = 1;
    EXPECT_EQ(printedBySaving(kOther, 0), "<open view3.sav 10><write 3996><close>"
                                          "wirte file view3.sav fail\r\n");
}

// Clearing ---------------------------------------------------------------------------------------

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
    EXPECT_EQ(printedBy([] { ClearViewSetting(); }), "");
    EXPECT_EQ(filesIn(), others);
}

TEST(ViewFile, ClearingMakesTheSlotBufferUnknownAndKeepsTheRestOfIt)
{
    EXPECT_EQ(printedBy([] { ClearViewSetting(); }), "");
    EXPECT_TRUE(areBytes(slotBuffer(), with(kBuffer, 3992, Bytes(4, '\0'))));
    EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), kLive));
    EXPECT_EQ(settingByte(3715), kCurrent);
}

TEST(ViewFile, AfterClearingTheCurrentViewIsACopyOfWhatIsShownWithResultZero)
{
    for (int slot = 0; slot < 16; ++slot) {
        put(viewPath(slot), aView(0));
    }
    ClearViewSetting();
    EXPECT_TRUE(fs::is_empty(kDirectory));
    EXPECT_EQ(printedByLoading(kCurrent, 0), missingView(kCurrent));
    EXPECT_TRUE(areBytes(slotBuffer(), kLive));
}

} // namespace
