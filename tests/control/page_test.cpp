// Pages on real files: their layout and names, what a cut or missing one does, and that boards can
// exchange them. The file store's steps are noted among the messages.

#include "control/page.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <sys/mount.h>
#include <type_traits>

#include <gtest/gtest.h>

#include "control/factory.h"
#include "control/scene.h"
#include "storage/UserSettingFile.h"
#include "storage/ViewFile.h"
#include "tests/support/console.h"
#include "tests/support/setting_bytes.h"
#include "tests/support/traced_files.h"
#include "tests/support/view_files.h"

namespace fs = std::filesystem;

namespace {

static_assert(std::is_same_v<decltype(LoadFromPage(0)), int32_t>);
static_assert(std::is_same_v<decltype(SaveToPage(0)), int32_t>);
static_assert(std::is_same_v<decltype(HasSavePage(0)), int32_t>);

[[maybe_unused]] const auto *const preparedViews =
    testing::AddGlobalTestEnvironment(new PreparedViews);

constexpr int kCurrent = 5; // as PreparedViews has it
constexpr size_t kPageSize = 63936;
constexpr uint8_t kPage = 4;
constexpr char kPath[] = "/userdata/page4_0.sav";
constexpr uint8_t kOldPage = 77; // the number that the user setting has

std::string pathOf(int page, int mode)
{
    std::string path = "/userdata/page"; // gcc 12 warns falsely (restrict) of a sum that begins so
    path += std::to_string(page) + '_' + std::to_string(mode) + ".sav";
    return path;
}

// View `slot` of set `set`, as it is stored. Each is made once, which takes its time.
const Bytes &viewOf(uint32_t set, uint32_t slot)
{
    static std::map<uint32_t, Bytes> views;
    Bytes &view = views[set * 16 + slot];
    if (view.empty()) {
        view = asStored(aView(set * 16 + slot), slot);
    }
    return view;
}

Bytes storedIn(uint32_t slot)
{
    return contentOf(viewPath(static_cast<int>(slot)));
}

void storeSet(uint32_t set)
{
    for (uint32_t slot = 0; slot < 16; ++slot) {
        put(viewPath(static_cast<int>(slot)), viewOf(set, slot));
    }
}

Bytes pageOf(uint32_t set)
{
    Bytes page;
    for (uint32_t slot = 0; slot < 16; ++slot) {
        page += viewOf(set, slot);
    }
    return page;
}

Outcome saveTo(uint8_t page)
{
    return outcomeOf(SaveToPage, page);
}

Outcome loadFrom(uint8_t page)
{
    return outcomeOf(LoadFromPage, page);
}

Outcome has(uint32_t page)
{
    return outcomeOf(HasSavePage, page);
}

// The first `count` views of set `set`, and the others of set 2.
void expectViews(uint32_t set, size_t count = 16)
{
    for (uint32_t slot = 0; slot < 16; ++slot) {
        EXPECT_EQ(storedIn(slot), viewOf(slot < count ? set : 2, slot)) << slot;
    }
}

const std::string kSaved = "save save0.sav\n";

// Saving -----------------------------------------------------------------------------------------

// The page gets the sixteen views. The user setting is saved with its factory-reset flag cleared,
// and before the page is noted.
TEST(Page, SavingReplacesThePageSavesTheUserSettingAndNotesThePageAtItsEnd)
{
    storeSet(1);
    put(kPath, Bytes(100'000, 'x'));
    GetUserSetting()->identification = kUserSettingId; // or the copy is only made when asked for
    for (uint8_t page = 0; page < 16; ++page) {
        SCOPED_TRACE(page);
        settingByte(3713) = page % 2 == 0 ? 1 : 255;
        settingByte(3714) = kOldPage;
        EXPECT_EQ(saveTo(page), Outcome(1, kSaved));
        EXPECT_EQ(settingByte(3713), 0);
        EXPECT_EQ(isFactoryReset(), 0);
        EXPECT_EQ(settingByte(3714), page);
        const Bytes file = contentOf("/userdata/save0.sav");
        EXPECT_TRUE(areBytes(file, with(bytesOf(GetUserSetting()), 3714, oneByte(kOldPage))));
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting_old()), file));
        EXPECT_EQ(contentOf(pathOf(page, 0)), pageOf(1));
    }
    expectViews(1);
    EXPECT_EQ(filesIn().size(), 33u); // views, pages, user setting
    EXPECT_EQ(bytesOf(GetViewSetting()), kLive);
    EXPECT_EQ(settingByte(3715), kCurrent);
    EXPECT_EQ(_currentView, 9);
}

TEST(Page, AUserSettingThatCannotBeSavedKeepsNoPageFromBeingSaved)
{
    storeSet(1);
    fs::create_directory("/userdata/save0.sav");
    EXPECT_EQ(saveTo(kPage), Outcome(1, kSaved + notSaved("save0.sav")));
    EXPECT_EQ(contentOf(kPath), pageOf(1));
    EXPECT_EQ(settingByte(3714), kPage);
}

// A page takes those that are not stored as loading leaves them in the slot buffer, which goes from
// view to view.
TEST(Page, AnEmptyViewIsWrittenEmptyAndTheCurrentOneAsWhatIsShown)
{
    put(viewPath(0), viewOf(1, 0));
    put(viewPath(8), viewOf(1, 8));
    std::string messages = kSaved;
    Bytes expected;
    Bytes buffer = kBuffer;
    for (int slot = 0; slot < 16; ++slot) {
        const bool isStored = slot == 0 || slot == 8;
        messages += isStored ? "" : missingView(slot);
        buffer = isStored           ? viewOf(1, static_cast<uint32_t>(slot))
                 : slot == kCurrent ? kLive
                                    : emptyOver(buffer);
        expected += buffer;
    }
    EXPECT_EQ(saveTo(kPage), Outcome(1, messages));
    EXPECT_EQ(contentOf(kPath), expected);
    EXPECT_EQ(filesIn().size(), 4u); // nothing is stored instead
    storeSet(1);
    const Bytes empty = emptied(viewOf(1, 6));
    put(viewPath(kCurrent), empty);
    put(viewPath(6), empty);
    EXPECT_EQ(saveTo(kPage), Outcome(1, kSaved));
    expected = with(pageOf(1), kCurrent * kViewSize, kLive + empty); // 5 and 6
    EXPECT_EQ(contentOf(kPath), expected);
}

// The user setting is saved first. A failure closes the page, and has no message of its own.
TEST(Page, SavingLoadsAllViewsAndWritesThemAtOnce)
{
    const std::string opened = kSaved + "<open page4_0.sav 10>";
    std::string written = opened;
    for (int slot = 0; slot < 16; ++slot) {
        written += "<open " + viewName(slot) + " 1><read 3996><close>";
    }
    written += "<write 63936><close>";
    const struct {
        const char *name;
        int failing, shortOne; // number of the write that fails, and that takes one byte less
        Outcome outcome;
        Bytes page;
    } rows[] = {
        {"it succeeds", 0, 0, {1, written}, pageOf(1)},
        {"it fails", 1, 0, {0, written}, ""},
        {"it is short", 0, 1, {0, written}, pageOf(1).substr(0, kPageSize - 1)},
        {"no page", 0, 0, {0, opened + notOpened("page4_0.sav")}, ""},
    };
    storeSet(1);
    tracedFiles.isNoted = true;
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove(kPath);
        if (row.name == std::string("no page")) {
            fs::create_directory(kPath);
        }
        settingByte(3713) = 1;
        settingByte(3714) = kOldPage;
        tracedFiles.writesToFailure = row.failing;
        tracedFiles.writesToShortOne = row.shortOne;
        EXPECT_EQ(saveTo(kPage), row.outcome);
        EXPECT_EQ(fs::is_directory(kPath) ? "" : contentOf(kPath), row.page);
        EXPECT_EQ(settingByte(3714), row.outcome.first == 1 ? kPage : kOldPage);
        EXPECT_EQ(isFactoryReset(), 0);
        EXPECT_EQ(contentOf("/userdata/save0.sav")[3713], '\0');
    }
}

// Half a page fits beside the user setting.
TEST(Page, SavingOnAFullDiskIsZero)
{
    ASSERT_EQ(mount("tmpfs", kDirectory, "tmpfs", 0, "size=32768"), 0) << std::strerror(errno);
    settingByte(3714) = kOldPage;
    EXPECT_EQ(saveTo(kPage).first, 0);
    EXPECT_EQ(settingByte(3714), kOldPage);
    EXPECT_EQ(fs::file_size("/userdata/save0.sav"), 11832u);
    EXPECT_FALSE(fs::exists(kPath));
}

// Loading ----------------------------------------------------------------------------------------

TEST(Page, LoadingStoresTheFirstSixteenViewsAndLeavesWhatIsShownAlone)
{
    const Bytes record = bytesOf(GetUserSetting());
    for (const Bytes &after : {Bytes(), Bytes("x"), pageOf(2)}) { // a page may be longer
        storeSet(2);
        put(kPath, pageOf(1) + after);
        EXPECT_EQ(loadFrom(kPage), Outcome(1, ""));
        expectViews(1);
        EXPECT_EQ(contentOf(kPath), pageOf(1) + after);
        EXPECT_EQ(filesIn().size(), 17u);
        EXPECT_EQ(bytesOf(GetViewSetting()), kLive);
        EXPECT_EQ(_currentView, 9);
        EXPECT_EQ(bytesOf(GetUserSetting()), with(record, 3714, oneByte(kPage)));
    }
}

TEST(Page, AViewThatCannotBeStoredKeepsNoneOfTheOthersFromBeingStored)
{
    put(kPath, pageOf(1));
    fs::create_directory(viewPath(3));
    EXPECT_EQ(loadFrom(kPage), Outcome(1, notSaved("view3.sav")));
    fs::remove(viewPath(3));
    put(viewPath(3), viewOf(1, 3));
    expectViews(1);
    EXPECT_EQ(settingByte(3714), kPage);
}

// What stands in the page need not be what a view looks like.
TEST(Page, LoadedViewsGetIdentificationAndNumberWhateverThePageHas)
{
    const Bytes page = steppedBytes(kPageSize, 0);
    put(kPath, page);
    EXPECT_EQ(loadFrom(kPage), Outcome(1, ""));
    for (uint32_t slot = 0; slot < 16; ++slot) {
        EXPECT_EQ(storedIn(slot), asStored(page.substr(slot * kViewSize, kViewSize), slot)) << slot;
    }
}

// The views after the cut stay: stored, or not stored.
TEST(Page, ACutPageStoresTheViewsBeforeTheCutAndFails)
{
    // At the beginning of some views, and one byte on either side.
    std::vector<size_t> lengths = {0, 1, kPageSize - 1};
    for (const size_t views : {1u, 2u, 8u, 15u}) {
        lengths.insert(lengths.end(),
                       {views * kViewSize - 1, views * kViewSize, views * kViewSize + 1});
    }
    for (const size_t length : lengths) {
        SCOPED_TRACE(length);
        fs::remove_all(kDirectory);
        storeSet(2);
        fs::remove(viewPath(15));
        settingByte(3714) = kOldPage;
        put(kPath, pageOf(1).substr(0, length));
        EXPECT_EQ(loadFrom(kPage), Outcome(0, "read 2 page4_0.sav fail\r\n"));
        EXPECT_EQ(settingByte(3714), kOldPage);
        EXPECT_EQ(filesIn().size(), 16u);
        put(viewPath(15), viewOf(2, 15)); // which was not there
        expectViews(1, length / kViewSize);
    }
}

// A failure is logged after the page is closed.
TEST(Page, LoadingReadsAndStoresViewAfterViewUntilAReadFails)
{
    const auto views = [](int count) {
        std::string text = "<open page4_0.sav 1>";
        for (int slot = 0; slot < count; ++slot) {
            text += "<read 3996><open " + viewName(slot) + " 10><write 3996><close>";
        }
        return text;
    };
    const struct {
        uint32_t stored; // views
        int failing;     // number of the read that fails
        Bytes page;
        Outcome outcome;
    } rows[] = {
        {16, 0, pageOf(1), {1, views(16) + "<close>"}},
        {0, 0, Bytes(100, 'x'), {0, views(0) + "<read 3996><close>read 2 page4_0.sav fail\r\n"}},
        {2, 3, pageOf(1), {0, views(2) + "<read 3996><close>read 1 page4_0.sav fail\r\n"}},
    };
    tracedFiles.isNoted = true;
    for (const auto &row : rows) {
        SCOPED_TRACE(row.stored);
        storeSet(2);
        settingByte(3714) = kOldPage;
        put(kPath, row.page);
        tracedFiles.readsToFailure = row.failing;
        EXPECT_EQ(loadFrom(kPage), row.outcome);
        expectViews(1, row.stored);
        EXPECT_EQ(settingByte(3714), row.outcome.first == 1 ? kPage : kOldPage);
    }
}

TEST(Page, AMissingPageIsLoggedAndChangesNothing)
{
    storeSet(2);
    settingByte(3714) = kOldPage;
    const auto files = filesIn();
    const Bytes record = bytesOf(GetUserSetting());
    tracedFiles.isNoted = true;
    for (const uint8_t page : {kPage, uint8_t{15}}) {
        const std::string name = "page" + std::to_string(page) + "_0.sav";
        EXPECT_EQ(loadFrom(page), Outcome(0, "<open " + name + " 1>" + notOpened(name) + "open " +
                                                 name + " fail\r\n"));
    }
    EXPECT_EQ(filesIn(), files);
    EXPECT_EQ(bytesOf(GetUserSetting()), record);
}

TEST(Page, ADirectoryInThePlaceOfAPageIsNoPage)
{
    fs::create_directory(kPath);
    settingByte(3714) = kOldPage;
    EXPECT_EQ(loadFrom(kPage), Outcome(0, notOpened("page4_0.sav") + "open page4_0.sav fail\r\n"));
    EXPECT_EQ(settingByte(3714), kOldPage);
    EXPECT_EQ(has(kPage), Outcome(0, notOpened("page4_0.sav")));
    EXPECT_FALSE(fs::exists(viewPath(0)));
}

// Names ------------------------------------------------------------------------------------------

// The mode itself is another field, and does not count.
TEST(Page, BelongsToTheUserModeThatTheMirrorHas)
{
    GetUserSetting()->userMode = 7;
    for (const uint32_t mode : {0u, 1u, 255u}) {
        settingByte(3712) = static_cast<uint8_t>(mode);
        const std::string name = "page4_" + std::to_string(mode) + ".sav";
        EXPECT_EQ(loadFrom(kPage), Outcome(0, notOpened(name) + "open " + name + " fail\r\n"));
        EXPECT_EQ(has(kPage), Outcome(0, notOpened(name)));
        put("/userdata/" + name, "x");
        EXPECT_EQ(loadFrom(kPage), Outcome(0, "read 2 " + name + " fail\r\n"));
        storeSet(mode);
        EXPECT_EQ(saveTo(kPage), Outcome(1, kSaved));
        EXPECT_EQ(has(kPage), Outcome(1, ""));
        EXPECT_EQ(contentOf("/userdata/" + name), pageOf(mode));
    }
    for (const uint32_t mode : {0u, 1u, 255u}) { // they do not replace each other
        settingByte(3712) = static_cast<uint8_t>(mode);
        EXPECT_EQ(loadFrom(kPage), Outcome(1, ""));
        expectViews(mode);
    }
}

// Asking -----------------------------------------------------------------------------------------

// Only the low eight bits of a number count.
TEST(Page, IsThereWhenItsFileCanBeOpened)
{
    settingByte(3714) = kOldPage;
    put(kPath, "");
    tracedFiles.isNoted = true;
    for (const uint32_t page : {4u, 0x104u, 0xFFFFFF04u, 0x80000004u}) {
        EXPECT_EQ(has(page), Outcome(1, "<open page4_0.sav 1><close>")) << page;
    }
    EXPECT_EQ(has(3), Outcome(0, "<open page3_0.sav 1>" + notOpened("page3_0.sav")));
    EXPECT_EQ(has(0x114), Outcome(0, "<open page20_0.sav 1>" + notOpened("page20_0.sav")));
    EXPECT_EQ(settingByte(3714), kOldPage);
    EXPECT_EQ(contentOf(kPath), "");
}

// Clearing ---------------------------------------------------------------------------------------

// Whatever the mode is.
TEST(Page, ClearingRemovesThePageOfUserModeZeroOnly)
{
    for (const uint8_t mirror : {uint8_t{0}, uint8_t{1}, uint8_t{255}}) {
        settingByte(3712) = mirror;
        for (const int mode : {0, 1, 255}) {
            put(pathOf(kPage, mode), "x");
            put(pathOf(3, mode), "x");
        }
        EXPECT_EQ(outcomeOf([] { return ClearPage(kPage); }), Outcome(1, ""));
        EXPECT_EQ(entriesOf(kDirectory),
                  (std::set<std::string>{"page3_0.sav", "page3_1.sav", "page3_255.sav",
                                         "page4_1.sav", "page4_255.sav"}));
    }
    tracedFiles.isNoted = true; // one that is not there is one, too
    EXPECT_EQ(outcomeOf([] { return ClearPage(15); }), Outcome(1, "<unlink page15_0.sav>"));
}

TEST(Page, ClearingAllRemovesThePagesZeroToFifteenOfUserModeZero)
{
    const std::map<std::string, Bytes> others = {
        {"page7_1.sav", "a"}, {"page0_255.sav", "b"}, {"page16_0.sav", "c"}, {"page_0.sav", "d"},
        {"view0.sav", "e"},   {"save0.sav", "f"},     {"page00_0.sav", "g"}, {"page-1_0.sav", "h"}};
    for (const auto &[name, content] : others) {
        put("/userdata/" + name, content);
    }
    for (int page = 0; page < 16; ++page) {
        put(pathOf(page, 0), "x");
    }
    settingByte(3712) = 1;
    settingByte(3714) = kOldPage;
    for (int i = 0; i < 2; ++i) { // the second time, none is there
        EXPECT_EQ(outcomeOf(ClearAllPage), Outcome(1, ""));
        EXPECT_EQ(filesIn(), others);
        EXPECT_EQ(settingByte(3714), kOldPage);
    }
}

// Both ways --------------------------------------------------------------------------------------

// Works at a board that is new: views of set `set` and current view `current`; all of that on page
// `page`; then the views of the next set.
void work(uint32_t set, uint32_t current, uint8_t page)
{
    fs::create_directory(kDirectory);
    GetUserSetting()->identification = kUserSettingId;
    GetUserSetting()->trailingIdentification = kUserSettingTrailingId;
    printedBy([&] {
        for (const uint32_t of : {set, set + 1}) {
            for (uint32_t slot = 0; slot < 16; ++slot) {
                fill(GetViewSetting(), aView(of * 16 + slot));
                SaveView(static_cast<int32_t>(slot));
            }
            if (of == set) {
                EXPECT_EQ(SaveToPage(page), 1);
            }
        }
        SetCurrentView(current);
        EXPECT_EQ(UserSettingSaveTo(0), 1);
    });
}

// What such a board shows from the start: the current view, its 16 views, those of its page. It
// starts with other things in memory.
void expectShown(uint32_t set, uint32_t current, uint8_t page)
{
    fill(GetUserSetting(), Bytes(11832, '\x3C'));
    fill(GetViewSetting(), Bytes(kViewSize, '\x3C'));
    fill(GetSaveViewSetting(), Bytes(kViewSize, '\x3C'));
    _currentView = 0x3C;
    printedBy([&] {
        EXPECT_EQ(loadUserSetting(0), 1);
        EXPECT_EQ(GetCurrentView(), current);
        for (uint32_t view = 0; view < 32; ++view) {
            if (view == 16) {
                EXPECT_EQ(HasSavePage(page), 1);
                EXPECT_EQ(LoadFromPage(page), 1);
            }
            SetCurrentView(view % 16);
            EXPECT_EQ(bytesOf(GetViewSetting()), viewOf(view < 16 ? set + 1 : set, view % 16));
        }
    });
}

TEST(Page, BoardsThatExchangeTheirFilesShowEachOthersViews)
{
    work(1, 7, 3);
    fs::rename(kDirectory, "/first");
    work(4, 12, 9);
    fs::rename(kDirectory, "/second");

    // Byte by byte, as from one card to another.
    const auto copy = [](const std::string &from) {
        fs::remove_all(kDirectory);
        fs::create_directory(kDirectory);
        for (const auto &[name, content] : filesIn(from)) {
            put(std::string(kDirectory) + '/' + name, content);
        }
    };
    copy("/second");
    expectShown(4, 12, 9);
    copy("/first");
    expectShown(1, 7, 3);
    EXPECT_EQ(filesIn("/first").size(), 18u);
}

} // namespace
