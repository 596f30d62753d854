// Views at work: switching, storing and searching, on real files. What happens in between is seen
// from the loading and saving of views, which also lets time pass.

#include "control/scene.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "storage/ViewFile.h"
#include "tests/support/clock.h"
#include "tests/support/console.h"
#include "tests/support/setting_bytes.h"
#include "tests/support/view_files.h"

namespace fs = std::filesystem;

namespace {

// Link-time fakes: the real calls, with somebody looking on ---------------------------------------

std::vector<int32_t> loaded; // slots, in order
std::function<void()> onLoad;
std::function<void()> onSave;

} // namespace

// The names are those of LoadViewSetting() and SaveViewSetting().
extern "C" {
int32_t __real__Z15LoadViewSettingi(int32_t slot);
int32_t __wrap__Z15LoadViewSettingi(int32_t slot);
int32_t __real__Z15SaveViewSettingi(int32_t slot);
int32_t __wrap__Z15SaveViewSettingi(int32_t slot);

int32_t __wrap__Z15LoadViewSettingi(int32_t slot)
{
    loaded.push_back(slot);
    if (onLoad) {
        onLoad();
    }
    return __real__Z15LoadViewSettingi(slot);
}

int32_t __wrap__Z15SaveViewSettingi(int32_t slot)
{
    if (onSave) {
        onSave();
    }
    return __real__Z15SaveViewSettingi(slot);
}
}

namespace {

static_assert(std::is_same_v<decltype(_currentView), uint8_t>);
static_assert(std::is_same_v<decltype(GetCurrentView()), uint8_t>);

[[maybe_unused]] const auto *const preparedViews =
    testing::AddGlobalTestEnvironment(new PreparedViews);

constexpr int kCurrent = 5; // as PreparedViews has it
constexpr int kOther = 3;
constexpr int kShownNumber = 9; // the number of the view shown, before any switch

void store(int slot)
{
    put(viewPath(slot), asStored(aView(static_cast<uint32_t>(slot)), static_cast<uint32_t>(slot)));
}

void storeAll()
{
    for (int slot = 0; slot < 16; ++slot) {
        store(slot);
    }
}

// Runs what returns the length of its last message, which must be `lastMessage`; returns all that
// was printed.
template <typename Action>
std::string printedWithLength(Action action, const std::string &lastMessage)
{
    return printedBy([&] { EXPECT_EQ(action(), static_cast<int32_t>(lastMessage.size())); });
}

std::string timeOfSwitch(uint32_t view, int ticks)
{
    return "SetCurrentView " + std::to_string(view) + " Used Time = " + std::to_string(ticks) +
           "\r\n";
}

std::string timeOfSave(int view, int ticks)
{
    return "save view" + std::to_string(view) + " used time = " + std::to_string(ticks) + "\r\n";
}

std::string printedBySwitchingTo(uint32_t view)
{
    return printedWithLength([&] { return SetCurrentView(view); }, timeOfSwitch(view % 16, 0));
}

std::string printedBySaving(int view)
{
    return printedWithLength([&] { return SaveView(view); }, timeOfSave(view, 0));
}

Bytes live()
{
    return bytesOf(GetViewSetting());
}

Bytes slotBuffer()
{
    return bytesOf(GetSaveViewSetting());
}

// Switching --------------------------------------------------------------------------------------

TEST(Scene, SwitchingShowsTheStoredViewAndMakesItCurrent)
{
    storeAll();
    const auto files = filesIn();
    for (uint32_t view = 0; view < 16; ++view) {
        EXPECT_EQ(printedBySwitchingTo(view),
                  "SetCurrentView " + std::to_string(view) + " Used Time = 0\r\n");
        EXPECT_EQ(live(), asStored(aView(view), view)) << view;
        EXPECT_EQ(settingByte(3715), view);
        EXPECT_EQ(_currentView, view);
        EXPECT_EQ(GetCurrentView(), view);
    }
    EXPECT_EQ(filesIn(), files);
}

TEST(Scene, SwitchingToSeventeenSelectsViewOne)
{
    store(1);
    EXPECT_EQ(printedBySwitchingTo(17), "SetCurrentView 1 Used Time = 0\r\n");
    EXPECT_EQ(live(), asStored(aView(1), 1));
    EXPECT_EQ(settingByte(3715), 1);
    EXPECT_EQ(GetCurrentView(), 1);
    EXPECT_EQ(loaded, std::vector<int32_t>{1});
}

TEST(Scene, SwitchingLooksAtTheLowFourBitsOnly)
{
    const struct {
        uint32_t asked;
        uint8_t selected;
    } cases[] = {{15, 15}, {16, 0},   {31, 15},         {0xF0, 0},        {0x108, 8},
                 {200, 8}, {255, 15}, {0x80000003u, 3}, {0xFFFFFFFEu, 14}};
    storeAll();
    for (const auto &it : cases) {
        EXPECT_EQ(printedBySwitchingTo(it.asked), timeOfSwitch(it.selected, 0));
        EXPECT_EQ(live(), asStored(aView(it.selected), it.selected)) << it.asked;
        EXPECT_EQ(settingByte(3715), it.selected) << it.asked;
        EXPECT_EQ(_currentView, it.selected) << it.asked;
    }
}

// Loading has to find the old number to know which view is the current one.
TEST(Scene, SwitchingTakesTheNumberShownFirstAndTheUserSettingsLast)
{
    store(kOther);
    struct Seen {
        int shown, current;
        bool isOldViewLive;
        bool operator==(const Seen &) const = default;
    };
    std::vector<Seen> seen;
    const auto look = [&] {
        seen.push_back({_currentView, settingByte(3715), bytesOf(GetViewSetting()) == kLive});
    };
    fakeClock.afterReading = look;
    onLoad = look;
    printedBySwitchingTo(kOther);
    const std::vector<Seen> expected = {{kShownNumber, kCurrent, true}, // the tick is noted
                                        {kOther, kCurrent, true},       // the view is loaded
                                        {kOther, kOther, false}};       // the tick once more
    EXPECT_EQ(seen.size(), 3u);
    EXPECT_TRUE(seen == expected);
}

TEST(Scene, SwitchingToTheCurrentViewThatIsNotStoredStoresWhatIsShown)
{
    EXPECT_EQ(printedBySwitchingTo(kCurrent), missingView(kCurrent) +
                                                  "save view5 used time = 0\r\n"
                                                  "SetCurrentView 5 Used Time = 0\r\n");
    const Bytes stored = asStored(kLive, kCurrent);
    EXPECT_EQ(filesIn(), (std::map<std::string, Bytes>{{"view5.sav", stored}}));
    EXPECT_EQ(live(), stored);
    EXPECT_EQ(settingByte(3715), kCurrent);
    EXPECT_EQ(_currentView, kCurrent);
}

// Loading does not tell it from one that is not stored.
TEST(Scene, SwitchingToTheCurrentViewThatIsStoredEmptyStoresWhatIsShown)
{
    put(viewPath(kCurrent), emptied(asStored(aView(kCurrent), kCurrent)));
    EXPECT_EQ(printedBySwitchingTo(kCurrent), timeOfSave(kCurrent, 0) + timeOfSwitch(kCurrent, 0));
    EXPECT_EQ(contentOf(viewPath(kCurrent)), asStored(kLive, kCurrent));
    EXPECT_EQ(live(), asStored(kLive, kCurrent));
}

TEST(Scene, SwitchingToTheCurrentViewThatIsStoredShowsTheStoredOne)
{
    store(kCurrent);
    EXPECT_EQ(printedBySwitchingTo(kCurrent), timeOfSwitch(kCurrent, 0));
    EXPECT_EQ(live(), asStored(aView(kCurrent), kCurrent));
    EXPECT_EQ(contentOf(viewPath(kCurrent)), live());
}

TEST(Scene, SwitchingToAnotherViewThatIsNotStoredShowsAnEmptyOneAndStoresNothing)
{
    EXPECT_EQ(printedBySwitchingTo(kOther), missingView(kOther) + timeOfSwitch(kOther, 0));
    EXPECT_EQ(live(), emptyOver(kBuffer));
    EXPECT_EQ(settingByte(3715), kOther);
    EXPECT_EQ(_currentView, kOther);
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

TEST(Scene, SwitchingToAnotherViewThatIsStoredEmptyShowsIt)
{
    const Bytes stored = emptied(asStored(aView(kOther), kOther));
    put(viewPath(kOther), stored);
    EXPECT_EQ(printedBySwitchingTo(kOther), timeOfSwitch(kOther, 0));
    EXPECT_EQ(live(), stored);
    EXPECT_EQ(contentOf(viewPath(kOther)), stored);
}

// Which of the two numbers counts shows where they differ.
TEST(Scene, SwitchingAsksTheUserSettingWhichViewIsCurrent)
{
    _currentView = kOther;
    EXPECT_EQ(printedBySwitchingTo(kOther), missingView(kOther) + timeOfSwitch(kOther, 0));
    EXPECT_FALSE(fs::exists(viewPath(kOther)));
}

TEST(Scene, SwitchingSaysHowManyTicksItTook)
{
    store(kOther);
    fakeClock.setMs(123456);
    onLoad = [] { fakeClock.advanceMs(1234); };
    EXPECT_EQ(printedWithLength([] { return SetCurrentView(kOther); }, timeOfSwitch(kOther, 1234)),
              "SetCurrentView 3 Used Time = 1234\r\n");
}

TEST(Scene, TheTimeOfASwitchContainsThatOfTheSaveInIt)
{
    onLoad = [] { fakeClock.advanceMs(7); };
    onSave = [] { fakeClock.advanceMs(5); };
    EXPECT_EQ(
        printedWithLength([] { return SetCurrentView(kCurrent); }, timeOfSwitch(kCurrent, 12)),
        missingView(kCurrent) + "save view5 used time = 5\r\nSetCurrentView 5 Used Time = 12\r\n");
}

TEST(Scene, TheTimeOfASwitchIsRightWhereTheTickWraps)
{
    store(kOther);
    fakeClock.setMs(0xFFFFFFFE);
    onLoad = [] { fakeClock.advanceMs(5); };
    EXPECT_EQ(printedBy([] { SetCurrentView(kOther); }), timeOfSwitch(kOther, 5));
}

TEST(Scene, TheTimeOfASwitchIsNegativeWhereTheClockIsSetBack)
{
    store(kOther);
    fakeClock.setMs(1000);
    onLoad = [] { fakeClock.advanceMs(-3); };
    EXPECT_EQ(printedBy([] { SetCurrentView(kOther); }), timeOfSwitch(kOther, -3));
}

// Storing ----------------------------------------------------------------------------------------

TEST(Scene, SavingStoresWhatIsShownAndMakesItCurrentInTheUserSetting)
{
    for (int view = 0; view < 16; ++view) {
        EXPECT_EQ(printedBySaving(view), "save view" + std::to_string(view) + " used time = 0\r\n");
        const Bytes stored = asStored(kLive, static_cast<uint32_t>(view));
        EXPECT_EQ(contentOf(viewPath(view)), stored) << view;
        EXPECT_EQ(slotBuffer(), stored) << view;
        EXPECT_EQ(settingByte(3715), view);
        EXPECT_EQ(live(), kLive) << view;
        EXPECT_EQ(_currentView, kShownNumber) << view;
    }
    EXPECT_EQ(filesIn().size(), 16u);
}

TEST(Scene, SavingMakesTheViewCurrentBeforeItIsWritten)
{
    bool isSeen = false;
    onSave = [&] {
        EXPECT_EQ(settingByte(3715), kOther);
        EXPECT_EQ(slotBuffer(), kLive);
        isSeen = true;
    };
    printedBySaving(kOther);
    EXPECT_TRUE(isSeen);
}

TEST(Scene, SavingSixteenStoresNothingAndStillPrintsItsTime)
{
    EXPECT_EQ(printedBySaving(16), "save view16 used time = 0\r\n");
    EXPECT_TRUE(fs::is_empty(kDirectory));
    EXPECT_EQ(settingByte(3715), kCurrent);
    EXPECT_EQ(slotBuffer(), kBuffer);
}

TEST(Scene, SavingANumberThatNoViewHasStoresNothing)
{
    onSave = [] { FAIL(); };
    for (const int view : {-1, 16, 17, 31, 255, 256, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(printedBySaving(view), timeOfSave(view, 0));
        EXPECT_EQ(settingByte(3715), kCurrent) << view;
        EXPECT_EQ(slotBuffer(), kBuffer) << view;
    }
    EXPECT_EQ(printedBySaving(-1), "save view-1 used time = 0\r\n");
    EXPECT_TRUE(fs::is_empty(kDirectory));
    EXPECT_EQ(_currentView, kShownNumber);
}

TEST(Scene, SavingSaysHowManyTicksItTook)
{
    fakeClock.setMs(5000);
    onSave = [] { fakeClock.advanceMs(250); };
    EXPECT_EQ(printedWithLength([] { return SaveView(12); }, timeOfSave(12, 250)),
              "save view12 used time = 250\r\n");
    fakeClock.setMs(0xFFFFFFFF);
    EXPECT_EQ(printedBy([] { SaveView(12); }), timeOfSave(12, 250));
}

TEST(Scene, ASaveThatFailsStillPrintsItsTimeAndTheViewIsCurrent)
{
    fs::remove(kDirectory);
    EXPECT_EQ(printedBySaving(kOther), "open file /userdata/view3.sav error\n"
                                       "open file view3.sav fail\r\n"
                                       "save view3 used time = 0\r\n");
    EXPECT_EQ(settingByte(3715), kOther);
}

TEST(Scene, SavingTheCurrentViewSavesTheUserSettingsCurrentOne)
{
    _currentView = kOther;
    EXPECT_EQ(printedWithLength([] { return SaveCurrentView(); }, timeOfSave(kCurrent, 0)),
              "save view5 used time = 0\r\n");
    EXPECT_EQ(filesIn(), (std::map<std::string, Bytes>{{"view5.sav", asStored(kLive, kCurrent)}}));
}

// A record from elsewhere may name any view.
TEST(Scene, SavingACurrentViewBehindTheLastOneStoresNothing)
{
    for (const int current : {16, 200, 255}) {
        settingByte(3715) = static_cast<uint8_t>(current);
        EXPECT_EQ(printedBy([] { SaveCurrentView(); }), timeOfSave(current, 0));
        EXPECT_EQ(settingByte(3715), current);
    }
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

TEST(Scene, AViewThatWasSavedIsShownAgain)
{
    printedBySaving(kOther);
    fill(GetViewSetting(), aView(99));
    printedBySaving(4);
    printedBySwitchingTo(kOther);
    EXPECT_EQ(live(), asStored(kLive, kOther));
    printedBySwitchingTo(4);
    EXPECT_EQ(live(), asStored(aView(99), 4));
}

// Searching --------------------------------------------------------------------------------------

// All other bytes are set then.
TEST(Scene, AViewIsEmptyWhenItsNinetySixAlphasAreZero)
{
    put(viewPath(kOther), emptied(identified(Bytes(kViewSize, '\xFF'))));
    EXPECT_EQ(printedBy([] { EXPECT_EQ(isEmptyScene(kOther), 1); }), "");
    EXPECT_EQ(slotBuffer(), contentOf(viewPath(kOther)));
    EXPECT_EQ(live(), kLive);
}

TEST(Scene, AnyOfTheNinetySixAlphasMakesAViewNotEmpty)
{
    const Bytes none = identified(Bytes(kViewSize, '\0'));
    for (size_t offset = 2600; offset < 2712; ++offset) {
        put(viewPath(kOther), with(none, offset, "\1"));
        const bool isAlpha = offset >= 2608 && offset <= 2703;
        EXPECT_EQ(isEmptyScene(kOther), isAlpha ? 0 : 1) << offset;
    }
}

TEST(Scene, AViewThatIsNotStoredIsEmptyUnlessItIsCurrentAndShown)
{
    printedBy([] {
        EXPECT_EQ(isEmptyScene(kOther), 1);
        EXPECT_EQ(isEmptyScene(kCurrent), 0);
        fill(GetViewSetting(), emptied(kLive));
        EXPECT_EQ(isEmptyScene(kCurrent), 1);
        EXPECT_EQ(isEmptyScene(16), 1);
        EXPECT_EQ(isEmptyScene(255), 1);
    });
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

TEST(Scene, ACurrentViewThatIsStoredEmptyCountsAsWhatIsShown)
{
    put(viewPath(kCurrent), emptied(aView(kCurrent)));
    EXPECT_EQ(isEmptyScene(kCurrent), 0);
    fill(GetViewSetting(), emptied(kLive));
    EXPECT_EQ(isEmptyScene(kCurrent), 1);
}

// Stores all views empty but for one, with no view the current one.
void storeOnly(int visible)
{
    settingByte(3715) = 255;
    for (int slot = 0; slot < 16; ++slot) {
        const Bytes view = aView(static_cast<uint32_t>(slot));
        put(viewPath(slot), slot == visible ? view : emptied(view));
    }
}

// From the view behind it to 15, then from 0 to the one ahead of it.
std::vector<int32_t> orderBehind(int view)
{
    std::vector<int32_t> order;
    for (int i = 1; i < 16; ++i) {
        order.push_back((view + i) % 16);
    }
    return order;
}

TEST(Scene, WithAllViewsEmptyTheNextOneIsZeroAndAllOthersWereTestedInOrder)
{
    storeOnly(-1);
    for (uint8_t view = 0; view < 16; ++view) {
        loaded.clear();
        EXPECT_EQ(getNextNoEmptyScene(view), 0);
        EXPECT_EQ(loaded, orderBehind(view)) << int{view};
    }
}

TEST(Scene, TheNextViewBehindFifteenIsLookedForFromZeroToFourteen)
{
    storeOnly(-1);
    EXPECT_EQ(getNextNoEmptyScene(15), 0);
    EXPECT_EQ(loaded, (std::vector<int32_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}));
}

TEST(Scene, TheOnlyViewThatIsNotEmptyIsTheNextOfAllOthersAndNotItsOwn)
{
    for (int visible = 0; visible < 16; ++visible) {
        storeOnly(visible);
        for (uint8_t view = 0; view < 16; ++view) {
            EXPECT_EQ(getNextNoEmptyScene(view), view == visible ? 0 : visible) << int{view};
        }
    }
}

TEST(Scene, TheSearchEndsAtTheFirstViewThatIsNotEmpty)
{
    storeAll();
    for (uint8_t view = 0; view < 16; ++view) {
        loaded.clear();
        EXPECT_EQ(getNextNoEmptyScene(view), (view + 1) % 16);
        EXPECT_EQ(loaded, std::vector<int32_t>{(view + 1) % 16});
    }
}

// All 16 views lie ahead of it, none is its own.
TEST(Scene, TheNextViewBehindANumberThatNoViewHasIsTheFirstOneThatIsNotEmpty)
{
    const std::vector<int32_t> all = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    for (const uint8_t view : {uint8_t{16}, uint8_t{17}, uint8_t{200}, uint8_t{255}}) {
        storeOnly(15);
        loaded.clear();
        EXPECT_EQ(getNextNoEmptyScene(view), 15) << int{view};
        EXPECT_EQ(loaded, all) << int{view};

        storeOnly(-1);
        loaded.clear();
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(getNextNoEmptyScene(view), 0); }), "");
        EXPECT_EQ(loaded, all) << int{view};
    }
}

TEST(Scene, SearchingLeavesWhatIsShownAndItsNumbersAlone)
{
    storeOnly(12);
    settingByte(3715) = kCurrent;
    const auto files = filesIn();
    EXPECT_EQ(printedBy([] { getNextNoEmptyScene(3); }), "");
    EXPECT_EQ(live(), kLive);
    EXPECT_EQ(settingByte(3715), kCurrent);
    EXPECT_EQ(_currentView, kShownNumber);
    EXPECT_EQ(filesIn(), files);
}

// Outputs ----------------------------------------------------------------------------------------

TEST(Scene, OutputsAreNumberedFromOne)
{
    for (const uint32_t output : {0u, 1u, 5u, 15u, 255u, 65535u}) {
        EXPECT_EQ(getOutputMatrix(output), output + 1);
    }
}

} // namespace
