// Pages on real files: their layout and names, what a cut or missing one does, and that boards can
// exchange them. The file store's steps are noted among the messages.

#include "control/page.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <sys/mount.h>
#include <type_traits>
#include <vector>

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

// View `slot` of set `set`, as it is stored.
Bytes viewOf(uint32_t set, uint32_t slot)
{
    return asStored(aView(set * 16 + slot), slot);
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

std::string printedBySavingTo(uint8_t page, int expectedResult)
{
    return printedBy([&] { EXPECT_EQ(SaveToPage(page), expectedResult); });
}

std::string printedByLoadingFrom(uint8_t page, int expectedResult)
{
    return printedBy([&] { EXPECT_EQ(LoadFromPage(page), expectedResult); });
}

bool endsWith(const std::string &text, const std::string &end)
{
    return text.ends_with(end);
}

const std::string kSaved = "save save0.sav\n";

// Saving -----------------------------------------------------------------------------------------

TEST(Page, IsTheSixteenViewsBehindEachOther)
{
    storeSet(1);
    EXPECT_EQ(printedBySavingTo(kPage, 1), kSaved);
    const Bytes page = contentOf(kPath);
    EXPECT_EQ(page.size(), kPageSize);
    for (uint32_t slot = 0; slot < 16; ++slot) {
        EXPECT_EQ(page.substr(slot * kViewSize, kViewSize), viewOf(1, slot)) << slot;
    }
    EXPECT_EQ(page.substr(59940), viewOf(1, 15));
}

TEST(Page, SavingReplacesThePageAndLeavesTheViewsAndWhatIsShownAlone)
{
    storeSet(1);
    put(kPath, Bytes(100'000, 'x'));
    printedBySavingTo(kPage, 1);
    EXPECT_EQ(contentOf(kPath), pageOf(1));
    for (uint32_t slot = 0; slot < 16; ++slot) {
        EXPECT_EQ(contentOf(viewPath(static_cast<int>(slot))), viewOf(1, slot));
    }
    EXPECT_EQ(filesIn().size(), 18u); // views, page, user setting
    EXPECT_EQ(bytesOf(GetViewSetting()), kLive);
    EXPECT_EQ(settingByte(3715), kCurrent);
    EXPECT_EQ(_currentView, 9);
}

TEST(Page, SavingSavesTheUserSettingThenLoadsAndWritesViewAfterView)
{
    storeSet(1);
    tracedFiles.isNoted = true;
    std::string expected = kSaved + "<open page4_0.sav 10>";
    for (int slot = 0; slot < 16; ++slot) {
        expected += "<open " + viewName(slot) + " 1><read 3996><close><write 3996>";
    }
    EXPECT_EQ(printedBySavingTo(kPage, 1), expected + "<close>");
}

TEST(Page, SavingClearsTheFactoryResetFlagInMemoryAndFile)
{
    storeSet(1);
    settingByte(3713) = 1;
    settingByte(3714) = kOldPage;
    EXPECT_EQ(isFactoryReset(), 1);
    printedBySavingTo(kPage, 1);
    EXPECT_EQ(settingByte(3713), 0);
    EXPECT_EQ(isFactoryReset(), 0);
    EXPECT_EQ(contentOf("/userdata/save0.sav").size(), 11832u);
    EXPECT_EQ(contentOf("/userdata/save0.sav")[3713], '\0');
}

TEST(Page, AfterSavingIsFactoryResetReportsZero)
{
    for (const uint8_t flag : {uint8_t{1}, uint8_t{255}}) {
        settingByte(3713) = flag;
        printedBySavingTo(kPage, 1);
        EXPECT_EQ(isFactoryReset(), 0);
    }
}

// The user setting has been saved by then.
TEST(Page, SavingNotesThePageAtItsEnd)
{
    storeSet(1);
    for (const uint8_t page : {uint8_t{0}, uint8_t{4}, uint8_t{15}}) {
        settingByte(3714) = kOldPage;
        printedBySavingTo(page, 1);
        EXPECT_EQ(settingByte(3714), page);
        const Bytes expected = with(bytesOf(GetUserSetting()), 3714, oneByte(kOldPage));
        EXPECT_EQ(contentOf("/userdata/save0.sav"), expected);
    }
}

TEST(Page, SavingMakesTheCopyOfTheUserSettingEqualToTheFile)
{
    GetUserSetting()->identification = kUserSettingId; // or the copy is only made when asked for
    settingByte(3715) = 3;
    printedBySavingTo(kPage, 1);
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting_old()), contentOf("/userdata/save0.sav")));
}

TEST(Page, AUserSettingThatCannotBeSavedKeepsNoPageFromBeingSaved)
{
    storeSet(1);
    fs::create_directory("/userdata/save0.sav");
    EXPECT_EQ(printedBySavingTo(kPage, 1),
              kSaved + "open file /userdata/save0.sav error\nopen file save0.sav fail\r\n");
    EXPECT_EQ(contentOf(kPath), pageOf(1));
    EXPECT_EQ(settingByte(3714), kPage);
}

TEST(Page, SavesEveryPageNumberUnderItsName)
{
    storeSet(1);
    for (uint8_t page = 0; page < 16; ++page) {
        printedBySavingTo(page, 1);
        EXPECT_EQ(contentOf(pathOf(page, 0)), pageOf(1)) << int{page};
    }
    EXPECT_EQ(filesIn().size(), 33u);
}

// A page takes them as loading leaves them in the slot buffer, which goes from view to view.
TEST(Page, AViewThatWasNeverStoredIsWrittenEmptyAndTheCurrentOneAsWhatIsShown)
{
    put(viewPath(0), viewOf(1, 0));
    put(viewPath(8), viewOf(1, 8));
    std::string messages = kSaved;
    Bytes expected;
    Bytes buffer = kBuffer;
    for (int slot = 0; slot < 16; ++slot) {
        if (slot == 0 || slot == 8) {
            buffer = viewOf(1, static_cast<uint32_t>(slot));
        } else {
            messages += missingView(slot);
            buffer = slot == kCurrent ? kLive : emptyOver(buffer);
        }
        expected += buffer;
    }
    EXPECT_EQ(printedBySavingTo(kPage, 1), messages);
    EXPECT_EQ(contentOf(kPath), expected);
    EXPECT_EQ(filesIn().size(), 4u); // nothing is stored instead
}

TEST(Page, ACurrentViewThatIsStoredEmptyIsWrittenAsWhatIsShown)
{
    storeSet(1);
    put(viewPath(kCurrent), emptied(viewOf(1, kCurrent)));
    put(viewPath(6), emptied(viewOf(1, 6)));
    EXPECT_EQ(printedBySavingTo(kPage, 1), kSaved);
    const Bytes page = contentOf(kPath);
    EXPECT_EQ(page.substr(kCurrent * kViewSize, kViewSize), kLive);
    EXPECT_EQ(page.substr(6 * kViewSize, kViewSize), emptied(viewOf(1, 6)));
}

TEST(Page, APageThatCannotBeCreatedIsZeroWithoutAMessageOfItsOwn)
{
    storeSet(1);
    fs::create_directory(kPath);
    settingByte(3713) = 1;
    settingByte(3714) = kOldPage;
    tracedFiles.isNoted = true;
    EXPECT_EQ(printedBySavingTo(kPage, 0),
              kSaved + "<open page4_0.sav 10>open file /userdata/page4_0.sav error\n");
    EXPECT_EQ(settingByte(3714), kOldPage);
    EXPECT_EQ(isFactoryReset(), 0);
    EXPECT_EQ(contentOf("/userdata/save0.sav")[3713], '\0');
}

TEST(Page, AWriteThatFailsEndsTheSavingSilently)
{
    storeSet(1);
    settingByte(3714) = kOldPage;
    tracedFiles.writesToFailure = 3;
    EXPECT_EQ(printedBySavingTo(kPage, 0), kSaved);
    EXPECT_EQ(contentOf(kPath), pageOf(1).substr(0, 2 * kViewSize));
    EXPECT_EQ(settingByte(3714), kOldPage);
}

TEST(Page, AWriteThatTakesOneByteLessEndsTheSavingSilently)
{
    storeSet(1);
    settingByte(3714) = kOldPage;
    tracedFiles.writesToShortOne = 16;
    EXPECT_EQ(printedBySavingTo(kPage, 0), kSaved);
    EXPECT_EQ(contentOf(kPath), pageOf(1).substr(0, kPageSize - 1));
    EXPECT_EQ(settingByte(3714), kOldPage);
}

TEST(Page, AFailedWriteClosesThePage)
{
    storeSet(1);
    tracedFiles.isNoted = true;
    tracedFiles.writesToFailure = 1;
    EXPECT_EQ(printedBySavingTo(kPage, 0), kSaved + "<open page4_0.sav 10>"
                                                    "<open view0.sav 1><read 3996><close>"
                                                    "<write 3996><close>");
}

// Half a page fits beside the user setting.
TEST(Page, SavingOnAFullDiskIsZero)
{
    ASSERT_EQ(mount("tmpfs", kDirectory, "tmpfs", 0, "size=32768"), 0) << std::strerror(errno);
    settingByte(3714) = kOldPage;
    printedBySavingTo(kPage, 0);
    EXPECT_EQ(settingByte(3714), kOldPage);
    EXPECT_EQ(fs::file_size("/userdata/save0.sav"), 11832u);
    EXPECT_LT(fs::file_size(kPath), kPageSize);
}

// Loading ----------------------------------------------------------------------------------------

TEST(Page, LoadingStoresTheSixteenViews)
{
    storeSet(2);
    put(kPath, pageOf(1));
    EXPECT_EQ(printedByLoadingFrom(kPage, 1), "");
    for (uint32_t slot = 0; slot < 16; ++slot) {
        EXPECT_EQ(contentOf(viewPath(static_cast<int>(slot))), viewOf(1, slot)) << slot;
    }
    EXPECT_EQ(settingByte(3714), kPage);
    EXPECT_EQ(contentOf(kPath), pageOf(1));
    EXPECT_EQ(filesIn().size(), 17u);
}

TEST(Page, LoadingLeavesWhatIsShownAndItsNumbersAlone)
{
    put(kPath, pageOf(1));
    const Bytes record = bytesOf(GetUserSetting());
    printedByLoadingFrom(kPage, 1);
    EXPECT_EQ(bytesOf(GetViewSetting()), kLive);
    EXPECT_EQ(_currentView, 9);
    EXPECT_EQ(bytesOf(GetUserSetting()), with(record, 3714, oneByte(kPage)));
}

TEST(Page, LoadingReadsAndStoresViewAfterView)
{
    put(kPath, pageOf(1));
    tracedFiles.isNoted = true;
    std::string expected = "<open page4_0.sav 1>";
    for (int slot = 0; slot < 16; ++slot) {
        expected += "<read 3996><open " + viewName(slot) + " 10><write 3996><close>";
    }
    EXPECT_EQ(printedByLoadingFrom(kPage, 1), expected + "<close>");
}

TEST(Page, AViewThatCannotBeStoredKeepsNoneOfTheOthersFromBeingStored)
{
    put(kPath, pageOf(1));
    fs::create_directory(viewPath(3));
    EXPECT_EQ(printedByLoadingFrom(kPage, 1),
              "open file /userdata/view3.sav error\nopen file view3.sav fail\r\n");
    for (const int slot : {0, 1, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}) {
        EXPECT_EQ(contentOf(viewPath(slot)), viewOf(1, static_cast<uint32_t>(slot))) << slot;
    }
    EXPECT_EQ(settingByte(3714), kPage);
}

// What stands in the page need not be what a view looks like.
TEST(Page, LoadedViewsGetIdentificationAndNumberWhateverThePageHas)
{
    Bytes page;
    for (uint32_t i = 0; i < kPageSize; ++i) {
        page += oneByte(i * 7 + i / 256);
    }
    put(kPath, page);
    EXPECT_EQ(printedByLoadingFrom(kPage, 1), "");
    for (uint32_t slot = 0; slot < 16; ++slot) {
        EXPECT_EQ(contentOf(viewPath(static_cast<int>(slot))),
                  asStored(page.substr(slot * kViewSize, kViewSize), slot))
            << slot;
    }
}

TEST(Page, ACutPageStoresTheViewsAheadOfTheCutAndFails)
{
    for (size_t length = 0; length <= kPageSize + 1; ++length) {
        // At every end of a view, and one byte on either side.
        if (const size_t rest = length % kViewSize; rest > 1 && rest < kViewSize - 1) {
            continue;
        }
        storeSet(2);
        settingByte(3714) = kOldPage;
        put(kPath, (pageOf(1) + "more").substr(0, length));
        const bool isWhole = length >= kPageSize;
        EXPECT_EQ(printedByLoadingFrom(kPage, isWhole ? 1 : 0),
                  isWhole ? "" : "read 2 page4_0.sav fail\r\n")
            << length;
        EXPECT_EQ(settingByte(3714), isWhole ? kPage : kOldPage) << length;
        for (uint32_t slot = 0; slot < 16; ++slot) {
            const bool isStored = (slot + 1) * kViewSize <= length;
            EXPECT_EQ(contentOf(viewPath(static_cast<int>(slot))), viewOf(isStored ? 1 : 2, slot))
                << length << ' ' << slot;
        }
    }
}

TEST(Page, ACutPageStoresNoViewThatWasNotStoredBehindTheCut)
{
    put(kPath, pageOf(1).substr(0, 3 * kViewSize - 1));
    EXPECT_EQ(printedByLoadingFrom(kPage, 0), "read 2 page4_0.sav fail\r\n");
    EXPECT_EQ(filesIn(), (std::map<std::string, Bytes>{{"page4_0.sav", contentOf(kPath)},
                                                       {"view0.sav", viewOf(1, 0)},
                                                       {"view1.sav", viewOf(1, 1)}}));
}

TEST(Page, ACutPageIsClosedBeforeItIsTold)
{
    put(kPath, pageOf(1).substr(0, 100));
    tracedFiles.isNoted = true;
    EXPECT_EQ(printedByLoadingFrom(kPage, 0),
              "<open page4_0.sav 1><read 3996><close>read 2 page4_0.sav fail\r\n");
}

TEST(Page, OfALongPageTheFirstSixteenViewsAreStored)
{
    put(kPath, pageOf(1) + pageOf(2));
    EXPECT_EQ(printedByLoadingFrom(kPage, 1), "");
    EXPECT_EQ(filesIn().size(), 17u);
    EXPECT_EQ(contentOf(viewPath(15)), viewOf(1, 15));
    EXPECT_EQ(contentOf(viewPath(0)), viewOf(1, 0));
}

TEST(Page, AReadThatFailsIsToldBehindTheClosing)
{
    storeSet(2);
    put(kPath, pageOf(1));
    settingByte(3714) = kOldPage;
    tracedFiles.isNoted = true;
    tracedFiles.readsToFailure = 3;
    EXPECT_TRUE(endsWith(printedByLoadingFrom(kPage, 0),
                         "<open view1.sav 10><write 3996><close>"
                         "<read 3996><close>read 1 page4_0.sav fail\r\n"));
    EXPECT_EQ(contentOf(viewPath(0)), viewOf(1, 0));
    EXPECT_EQ(contentOf(viewPath(1)), viewOf(1, 1));
    EXPECT_EQ(contentOf(viewPath(2)), viewOf(2, 2));
    EXPECT_EQ(settingByte(3714), kOldPage);
}

TEST(Page, AMissingPageIsToldAndChangesNothing)
{
    storeSet(2);
    settingByte(3714) = kOldPage;
    const auto files = filesIn();
    const Bytes record = bytesOf(GetUserSetting());
    EXPECT_EQ(printedByLoadingFrom(kPage, 0), "open file /userdata/page4_0.sav error\n"
                                              "open page4_0.sav fail\r\n");
    EXPECT_EQ(filesIn(), files);
    EXPECT_EQ(bytesOf(GetUserSetting()), record);
    tracedFiles.isNoted = true;
    EXPECT_EQ(printedByLoadingFrom(15, 0), "<open page15_0.sav 1>"
                                           "open file /userdata/page15_0.sav error\n"
                                           "open page15_0.sav fail\r\n");
}

// It can be opened for reading, but nothing comes out of it.
TEST(Page, ADirectoryInThePlaceOfAPageIsAnEmptyPage)
{
    fs::create_directory(kPath);
    settingByte(3714) = kOldPage;
    EXPECT_EQ(printedByLoadingFrom(kPage, 0), "read 2 page4_0.sav fail\r\n");
    EXPECT_EQ(settingByte(3714), kOldPage);
    EXPECT_EQ(HasSavePage(kPage), 1);
    EXPECT_EQ(printedBySavingTo(kPage, 0), kSaved + "open file /userdata/page4_0.sav error\n");
    EXPECT_FALSE(fs::exists(viewPath(0)));
}

// Names ------------------------------------------------------------------------------------------

TEST(Page, BelongsToTheUserModeThatTheMirrorHas)
{
    for (const uint32_t mode : {0u, 1u, 255u}) {
        settingByte(3712) = static_cast<uint8_t>(mode);
        const std::string name = "page4_" + std::to_string(mode) + ".sav";
        EXPECT_EQ(printedByLoadingFrom(kPage, 0),
                  "open file /userdata/" + name + " error\nopen " + name + " fail\r\n");
        EXPECT_EQ(printedBy([] { EXPECT_EQ(HasSavePage(kPage), 0); }),
                  "open file /userdata/" + name + " error\n");
        storeSet(mode);
        printedBySavingTo(kPage, 1);
        EXPECT_EQ(HasSavePage(kPage), 1);
        EXPECT_EQ(contentOf(pathOf(kPage, static_cast<int>(mode))), pageOf(mode));
    }
    for (const uint32_t mode : {0u, 1u, 255u}) {
        settingByte(3712) = static_cast<uint8_t>(mode);
        EXPECT_EQ(contentOf(pathOf(kPage, static_cast<int>(mode))), pageOf(mode));
        EXPECT_EQ(printedByLoadingFrom(kPage, 1), "");
        EXPECT_EQ(contentOf(viewPath(15)), viewOf(mode, 15)) << mode;
    }
}

// The mode itself is another field.
TEST(Page, DoesNotAskForTheUserModeItself)
{
    GetUserSetting()->userMode = 1;
    put(pathOf(kPage, 0), pageOf(1));
    EXPECT_EQ(HasSavePage(kPage), 1);
    EXPECT_EQ(printedByLoadingFrom(kPage, 1), "");
}

TEST(Page, ACutPageOfAnotherModeIsToldByItsName)
{
    settingByte(3712) = 255;
    put(pathOf(15, 255), "x");
    EXPECT_EQ(printedByLoadingFrom(15, 0), "read 2 page15_255.sav fail\r\n");
}

// Asking -----------------------------------------------------------------------------------------

TEST(Page, IsThereWhenItsFileCanBeOpened)
{
    settingByte(3714) = kOldPage;
    put(kPath, "");
    tracedFiles.isNoted = true;
    EXPECT_EQ(printedBy([] { EXPECT_EQ(HasSavePage(kPage), 1); }), "<open page4_0.sav 1><close>");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(HasSavePage(3), 0); }),
              "<open page3_0.sav 1>open file /userdata/page3_0.sav error\n");
    EXPECT_EQ(settingByte(3714), kOldPage);
    EXPECT_EQ(contentOf(kPath), "");
}

TEST(Page, AskingLooksAtTheLowEightBitsOnly)
{
    put(kPath, "");
    for (const uint32_t page : {0x104u, 0xFFFFFF04u, 0x80000004u}) {
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(HasSavePage(page), 1) << page; }), "");
    }
    EXPECT_EQ(printedBy([] { EXPECT_EQ(HasSavePage(0x114), 0); }),
              "open file /userdata/page20_0.sav error\n");
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
        EXPECT_EQ(printedBy([] { EXPECT_EQ(ClearPage(kPage), 1); }), "");
        EXPECT_EQ(filesIn(), (std::map<std::string, Bytes>{{"page3_0.sav", "x"},
                                                           {"page3_1.sav", "x"},
                                                           {"page3_255.sav", "x"},
                                                           {"page4_1.sav", "x"},
                                                           {"page4_255.sav", "x"}}));
    }
}

TEST(Page, ClearingWhatIsNotThereIsSilentAndOne)
{
    tracedFiles.isNoted = true;
    EXPECT_EQ(printedBy([] { EXPECT_EQ(ClearPage(15), 1); }), "<unlink page15_0.sav>");
    tracedFiles.isNoted = false;
    EXPECT_EQ(printedBy([] { EXPECT_EQ(ClearAllPage(), 1); }), "");
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
    EXPECT_EQ(printedBy([] { EXPECT_EQ(ClearAllPage(), 1); }), "");
    EXPECT_EQ(filesIn(), others);
    EXPECT_EQ(settingByte(3714), kOldPage);
}

// Both ways --------------------------------------------------------------------------------------

TEST(Page, WhatWasSavedIsLoadedAgain)
{
    storeSet(1);
    printedBySavingTo(2, 1);
    storeSet(2);
    printedBySavingTo(3, 1);
    ClearViewSetting();
    for (const uint32_t set : {1u, 2u, 1u}) {
        EXPECT_EQ(printedByLoadingFrom(static_cast<uint8_t>(set + 1), 1), "");
        EXPECT_EQ(settingByte(3714), set + 1);
        for (uint32_t slot = 0; slot < 16; ++slot) {
            EXPECT_EQ(contentOf(viewPath(static_cast<int>(slot))), viewOf(set, slot)) << slot;
        }
    }
    printedBySavingTo(15, 1);
    EXPECT_EQ(contentOf(pathOf(15, 0)), pageOf(1));
}

// A board starts with other things in memory.
void start()
{
    fill(GetUserSetting(), Bytes(11832, '\x3C'));
    fill(GetViewSetting(), Bytes(kViewSize, '\x3C'));
    fill(GetSaveViewSetting(), Bytes(kViewSize, '\x3C'));
    _currentView = 0x3C;
    EXPECT_EQ(loadUserSetting(0), 1);
}

// Works at a board that is new: views of set `set` and current view `current`; all of that on page
// `page`; then the views of the set behind it.
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

// What the board shows as its 16 views, then with its page, from the start.
std::vector<Bytes> shown(uint8_t page)
{
    std::vector<Bytes> views;
    printedBy([&] {
        start();
        views.push_back(oneByte(GetCurrentView()));
        for (uint32_t view = 0; view < 16; ++view) {
            SetCurrentView(view);
            views.push_back(bytesOf(GetViewSetting()));
        }
        EXPECT_EQ(HasSavePage(page), 1);
        EXPECT_EQ(LoadFromPage(page), 1);
        for (uint32_t view = 0; view < 16; ++view) {
            SetCurrentView(view);
            views.push_back(bytesOf(GetViewSetting()));
        }
    });
    return views;
}

std::vector<Bytes> expectedOf(uint32_t set, uint32_t current)
{
    std::vector<Bytes> views = {oneByte(current)};
    for (const uint32_t of : {set + 1, set}) {
        for (uint32_t slot = 0; slot < 16; ++slot) {
            views.push_back(viewOf(of, slot));
        }
    }
    return views;
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
    EXPECT_EQ(shown(9), expectedOf(4, 12));
    copy("/first");
    EXPECT_EQ(shown(3), expectedOf(1, 7));
    EXPECT_EQ(filesIn("/first").size(), 18u);
}

} // namespace
