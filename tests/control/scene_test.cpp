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
#include "tests/support/replace.h"
#include "tests/support/setting_bytes.h"
#include "tests/support/view_files.h"

namespace fs = std::filesystem;

namespace {

std::vector<int32_t> loaded; // slots, in order
std::function<void()> onLoad = [] {};
std::function<void()> onSave = [] {};

} // namespace

// LoadViewSetting() and SaveViewSetting(), with somebody looking on
REPLACE(int32_t, _Z15LoadViewSettingi, (int32_t slot))
{
    loaded.push_back(slot);
    onLoad();
    return REAL(_Z15LoadViewSettingi)(slot);
}

REPLACE(int32_t, _Z15SaveViewSettingi, (int32_t slot))
{
    onSave();
    return REAL(_Z15SaveViewSettingi)(slot);
}

namespace {

static_assert(std::is_same_v<decltype(_currentView), uint8_t>);
static_assert(std::is_same_v<decltype(GetCurrentView()), uint8_t>);

[[maybe_unused]] const auto *const preparedViews =
    testing::AddGlobalTestEnvironment(new PreparedViews);

constexpr int kCurrent = 5; // as PreparedViews has it
constexpr int kOther = 3;
constexpr int kShownNumber = 9; // the number of the view shown, before any switch

Bytes storedView(uint32_t slot)
{
    return asStored(aView(slot), slot);
}

void storeAll()
{
    for (uint32_t slot = 0; slot < 16; ++slot) {
        put(viewPath(static_cast<int>(slot)), storedView(slot));
    }
}

std::string timeOfSwitch(uint32_t view)
{
    return "SetCurrentView " + std::to_string(view) + " Used Time = 0\r\n";
}

std::string timeOfSave(int view)
{
    return "save view" + std::to_string(view) + " used time = 0\r\n";
}

// The result is the length of the last message.
Outcome says(const std::string &messages, const std::string &last)
{
    return {last.size(), messages + last};
}

Outcome switchTo(uint32_t view)
{
    return outcomeOf(SetCurrentView, view);
}

Outcome save(int view)
{
    return outcomeOf(SaveView, view);
}

Bytes live()
{
    return bytesOf(GetViewSetting());
}

// Switching --------------------------------------------------------------------------------------

// Only the low four bits of a number count: 17 selects view 1.
TEST(Scene, SwitchingShowsTheStoredViewAndMakesItCurrent)
{
    storeAll();
    const auto files = filesIn();
    for (const uint32_t asked : {0u,  1u,    2u,     3u,   4u,   5u,   6u,          7u,         8u,
                                 9u,  10u,   11u,    12u,  13u,  14u,  15u,         17u,        31u,
                                 16u, 0xF0u, 0x108u, 200u, 255u, 254u, 0x80000003u, 0xFFFFFFFEu}) {
        SCOPED_TRACE(asked);
        const uint8_t selected = asked & 15;
        loaded.clear();
        EXPECT_EQ(switchTo(asked), says("", timeOfSwitch(selected)));
        EXPECT_EQ(live(), storedView(selected));
        EXPECT_EQ(settingByte(3715), selected);
        EXPECT_EQ(_currentView, selected);
        EXPECT_EQ(GetCurrentView(), selected);
        EXPECT_EQ(loaded, std::vector<int32_t>{selected});
    }
    EXPECT_EQ(filesIn(), files);
}

// Loading has to find the old number to know which view is the current one.
TEST(Scene, SwitchingTakesTheNumberShownFirstAndTheUserSettingsLast)
{
    storeAll();
    std::vector<std::string> seen;
    const auto look = [&] {
        seen.push_back(std::to_string(_currentView) + ' ' + std::to_string(settingByte(3715)) +
                       (live() == kLive ? " old" : " new"));
    };
    fakeClock.afterReading = look;
    onLoad = look;
    switchTo(kOther);
    EXPECT_EQ(seen, (std::vector<std::string>{"9 5 old",    // the tick is noted
                                              "3 5 old",    // the view is loaded
                                              "3 3 new"})); // the tick once more
}

// The user setting says which view is current. Loading does not tell one that is stored empty from
// one that is not stored.
TEST(Scene, SwitchingStoresWhatIsShownAsTheCurrentViewThatIsNotStored)
{
    const Bytes liveStored = asStored(kLive, kCurrent);
    const struct {
        const char *name;
        int view;
        int shownNumber;
        Bytes file; // "": none
        std::string prints;
        Bytes shown;
        Bytes fileAfter;
    } rows[] = {
        // clang-format off
        {"current, not stored", kCurrent, kShownNumber, "",
         missingView(kCurrent) + timeOfSave(kCurrent), liveStored, liveStored},
        {"current, stored empty", kCurrent, kShownNumber, emptied(storedView(kCurrent)),
         timeOfSave(kCurrent), liveStored, liveStored},
        {"current, stored", kCurrent, kShownNumber, storedView(kCurrent),
         "", storedView(kCurrent), storedView(kCurrent)},
        {"other, not stored", kOther, kShownNumber, "",
         missingView(kOther), emptyOver(kBuffer), ""},
        {"other, stored empty", kOther, kShownNumber, emptied(storedView(kOther)),
         "", emptied(storedView(kOther)), emptied(storedView(kOther))},
        {"other, not stored, but shown", kOther, kOther, "",
         missingView(kOther), emptyOver(kBuffer), ""},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove(viewPath(kCurrent));
        fs::remove(viewPath(kOther));
        if (!row.file.empty()) {
            put(viewPath(row.view), row.file);
        }
        fill(GetViewSetting(), kLive);
        fill(GetSaveViewSetting(), kBuffer);
        settingByte(3715) = kCurrent;
        _currentView = static_cast<uint8_t>(row.shownNumber);
        EXPECT_EQ(switchTo(static_cast<uint32_t>(row.view)),
                  says(row.prints, timeOfSwitch(static_cast<uint32_t>(row.view))));
        EXPECT_EQ(live(), row.shown);
        EXPECT_EQ(contentOf(viewPath(row.view)), row.fileAfter);
        EXPECT_EQ(filesIn().size(), row.fileAfter.empty() ? 0u : 1u);
        EXPECT_EQ(settingByte(3715), row.view);
        EXPECT_EQ(_currentView, row.view);
    }
}

// That of a switch contains that of the save in it.
TEST(Scene, SaysHowManyTicksASwitchOrASaveTook)
{
    const struct {
        const char *name;
        bool isSave;
        int view;
        int64_t start;
        int load;
        int save;
        std::string prints;
        std::string last;
    } rows[] = {
        // clang-format off
        {"a switch",            false, kOther,   123456,     1234, 0,   "",
         "SetCurrentView 3 Used Time = 1234\r\n"},
        {"where the tick wraps", false, kOther,  0xFFFFFFFE, 5,    0,   "",
         "SetCurrentView 3 Used Time = 5\r\n"},
        {"the clock is set back", false, kOther, 1000,       -3,   0,   "",
         "SetCurrentView 3 Used Time = -3\r\n"},
        {"with a save",         false, kCurrent, 0,          7,    5,
         missingView(kCurrent) + "save view5 used time = 5\r\n",
         "SetCurrentView 5 Used Time = 12\r\n"},
        {"a save",              true,  12,       5000,       0,    250, "",
         "save view12 used time = 250\r\n"},
        {"a save in the wrap",  true,  12,       0xFFFFFFFF, 0,    250, "",
         "save view12 used time = 250\r\n"},
        // clang-format on
    };
    put(viewPath(kOther), storedView(kOther));
    for (const auto &row : rows) {
        fs::remove(viewPath(kCurrent));
        settingByte(3715) = kCurrent;
        fakeClock.setMs(row.start);
        onLoad = [&] { fakeClock.advanceMs(row.load); };
        onSave = [&] { fakeClock.advanceMs(row.save); };
        EXPECT_EQ(row.isSave ? save(row.view) : switchTo(static_cast<uint32_t>(row.view)),
                  says(row.prints, row.last))
            << row.name;
    }
}

// Storing ----------------------------------------------------------------------------------------

TEST(Scene, SavingStoresWhatIsShownAndMakesItCurrentInTheUserSetting)
{
    for (int view = 0; view < 16; ++view) {
        SCOPED_TRACE(view);
        EXPECT_EQ(save(view), says("", timeOfSave(view)));
        const Bytes stored = asStored(kLive, static_cast<uint32_t>(view));
        EXPECT_EQ(contentOf(viewPath(view)), stored);
        EXPECT_EQ(bytesOf(GetSaveViewSetting()), stored);
        EXPECT_EQ(settingByte(3715), view);
        EXPECT_EQ(live(), kLive);
        EXPECT_EQ(_currentView, kShownNumber);
    }
    EXPECT_EQ(filesIn().size(), 16u);
}

TEST(Scene, SavingMakesTheViewCurrentBeforeItIsWritten)
{
    int seen = 0;
    onSave = [&] {
        EXPECT_EQ(settingByte(3715), kOther);
        EXPECT_EQ(bytesOf(GetSaveViewSetting()), kLive);
        ++seen;
    };
    save(kOther);
    EXPECT_EQ(seen, 1);
}

TEST(Scene, SavingANumberThatNoViewHasStoresNothingAndStillPrintsItsTime)
{
    onSave = [] { FAIL(); };
    for (const int view : {-1, 16, 17, 31, 255, 256, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(save(view), says("", timeOfSave(view)));
        EXPECT_EQ(settingByte(3715), kCurrent) << view;
        EXPECT_EQ(bytesOf(GetSaveViewSetting()), kBuffer) << view;
    }
    EXPECT_TRUE(fs::is_empty(kDirectory));
    EXPECT_EQ(_currentView, kShownNumber);
}

TEST(Scene, ASaveThatFailsStillPrintsItsTimeAndTheViewIsCurrent)
{
    fs::remove(kDirectory);
    EXPECT_EQ(save(kOther), says(notSaved("view3.sav"), timeOfSave(kOther)));
    EXPECT_EQ(settingByte(3715), kOther);
}

// A record from elsewhere may name any view.
TEST(Scene, SavingTheCurrentViewSavesTheUserSettingsCurrentOne)
{
    _currentView = kOther;
    for (const int current : {16, 200, 255, kCurrent}) {
        EXPECT_TRUE(fs::is_empty(kDirectory));
        settingByte(3715) = static_cast<uint8_t>(current);
        EXPECT_EQ(outcomeOf(SaveCurrentView), says("", timeOfSave(current)));
        EXPECT_EQ(settingByte(3715), current);
    }
    EXPECT_EQ(filesIn(), (std::map<std::string, Bytes>{{"view5.sav", asStored(kLive, kCurrent)}}));
}

// Searching --------------------------------------------------------------------------------------

TEST(Scene, AViewIsEmptyWhenItsNinetySixAlphasAreZero)
{
    // All other bytes are set.
    put(viewPath(kOther), emptied(identified(Bytes(kViewSize, '\xFF'))));
    EXPECT_EQ(outcomeOf(isEmptyScene, uint8_t{kOther}), Outcome(1, ""));
    EXPECT_EQ(bytesOf(GetSaveViewSetting()), contentOf(viewPath(kOther)));
    EXPECT_EQ(live(), kLive);
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
    // Nor does one count that is stored empty.
    put(viewPath(kCurrent), emptied(aView(kCurrent)));
    EXPECT_EQ(isEmptyScene(kCurrent), 1);
    fill(GetViewSetting(), kLive);
    EXPECT_EQ(isEmptyScene(kCurrent), 0);
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

// From the view after it to 15, then from 0 to the one before it. For a number that no view has,
// these are all 16.
std::vector<int32_t> orderAfter(int view)
{
    std::vector<int32_t> order;
    for (int i = view < 16 ? 1 : 0; i < 16; ++i) {
        order.push_back(view < 16 ? (view + i) % 16 : i);
    }
    return order;
}

TEST(Scene, WithAllViewsEmptyTheNextOneIsZeroAndAllOthersWereTestedInOrder)
{
    storeOnly(-1);
    for (int view = 0; view < 256; view += view < 17 ? 1 : 14) { // 17, 31, ... 255
        loaded.clear();
        EXPECT_EQ(outcomeOf(getNextNoEmptyScene, static_cast<uint8_t>(view)), Outcome(0, ""));
        EXPECT_EQ(loaded, orderAfter(view)) << view;
    }
}

TEST(Scene, TheOnlyViewThatIsNotEmptyIsTheNextOfAllOthersAndNotItsOwn)
{
    for (int visible = 0; visible < 16; ++visible) {
        storeOnly(visible);
        for (int view = 0; view < 256; view += view < 17 ? 1 : 14) {
            const int next = view == visible ? 0 : visible;
            EXPECT_EQ(getNextNoEmptyScene(static_cast<uint8_t>(view)), next) << view;
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

TEST(Scene, SearchingLeavesWhatIsShownAndItsNumbersAlone)
{
    storeOnly(12);
    settingByte(3715) = kCurrent;
    const auto files = filesIn();
    EXPECT_EQ(outcomeOf(getNextNoEmptyScene, uint8_t{3}), Outcome(5, ""));
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
