// The control task, the reload and the factory reset. The module's source is part of this file;
// what it calls is noted, and is the real thing but for the update mode.

#include "control/control.cpp"
#include "control/factory.h"
#include "control/page.h"
#include "storage/DeviceInfo.h"
#include "storage/UserPref.h"
#include "storage/UserSetting.h"
#include "storage/WorkTime.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "storage/TimeControl.h"
#include "storage/load_all.h"
#include "tests/support/clock.h"
#include "tests/support/console.h"
#include "tests/support/replace.h"
#include "tests/support/setting_bytes.h"
#include "tests/support/setting_change.h"
#include "tests/support/view_files.h"

namespace fs = std::filesystem;

namespace {

std::vector<std::string> journal; // calls by the module, in order
bool isInside = false;            // a noted call: what it calls itself is not noted
int32_t updateRuns = 0;           // what isUpdateProgram() says
int32_t clearResult = 1;          // what ClearAllPage() says
std::function<void()> afterClearing;

template <typename Function> auto noted(const std::string &call, Function function)
{
    if (isInside) {
        return function();
    }
    journal.push_back(call);
    isInside = true;
    const std::shared_ptr<void> end(nullptr, [](void *) { isInside = false; });
    return function();
}

} // namespace

// Functions without arguments, whose results pass through
#define NOTED(type, function, symbol)                                                              \
    REPLACE(type, symbol, ())                                                                      \
    {                                                                                              \
        return noted(#function, REAL(symbol));                                                     \
    }

NOTED(void, resetUserPref, _Z13resetUserPrefv)
NOTED(int32_t, saveUserPref, _Z12saveUserPrefv)
NOTED(void, resetWorkTimeList, _Z17resetWorkTimeListv)
NOTED(int32_t, saveWorkTimeList, _Z16saveWorkTimeListv)
NOTED(void, ResetUserSettingSave, _Z20ResetUserSettingSavev)
NOTED(void, ResetViewSetting, _Z16ResetViewSettingv)
NOTED(void, ClearViewSetting, _Z16ClearViewSettingv)
NOTED(void, checkBoardType, _Z14checkBoardTypev)
NOTED(void, loadDeviceInfo, _Z14loadDeviceInfov)
NOTED(void, loadUserPrefNoSave, _Z18loadUserPrefNoSavev)

REPLACE(int32_t, _Z12ClearAllPagev, ())
{
    noted("ClearAllPage", REAL(_Z12ClearAllPagev));
    if (afterClearing) {
        afterClearing();
    }
    return clearResult;
}

REPLACE(int32_t, _Z17UserSettingSaveToi, (int32_t slot))
{
    return noted("UserSettingSaveTo " + std::to_string(slot),
                 [&] { return REAL(_Z17UserSettingSaveToi)(slot); });
}

REPLACE(int32_t, _Z21loadUserSettingNoSavei, (int32_t slot))
{
    return noted("loadUserSettingNoSave " + std::to_string(slot),
                 [&] { return REAL(_Z21loadUserSettingNoSavei)(slot); });
}

// isUpdateProgram()
REPLACE(int32_t, _Z15isUpdateProgramv, ())
{
    return updateRuns;
}

REPLACE(int32_t, _Z16isSysTickTimeoutij, (int32_t start, uint32_t timeout))
{
    return noted("timeout " + std::to_string(start) + ' ' + std::to_string(timeout),
                 [&] { return REAL(_Z16isSysTickTimeoutij)(start, timeout); });
}

namespace {

using Journal = std::vector<std::string>;
using Files = std::map<std::string, Bytes>;

static_assert(std::is_same_v<decltype(ResetFactory()), int32_t>);
static_assert(std::is_same_v<decltype(isFactoryReset()), uint8_t>);
static_assert(std::is_same_v<decltype(controlTimer), uint32_t>);
static_assert(std::is_same_v<decltype(controlState), uint8_t>);

// Every case begins with an empty settings directory and zero in memory.
[[maybe_unused]] const auto *const directory =
    testing::AddGlobalTestEnvironment(new SettingsDirectory);
[[maybe_unused]] const auto *const blocks = testing::AddGlobalTestEnvironment(new Blocks);

// The task ---------------------------------------------------------------------------------------

void runTaskAt(int64_t ms)
{
    fakeClock.setMs(ms);
    EXPECT_EQ(printedBy(TaskControl), "");
}

// At a real board's tick the first pass marks a second, and a wrap costs one millisecond.
TEST(Control, EverySecondIsMarkedInAnyStateAndWhereTheTickWraps)
{
    EXPECT_EQ(controlTimer, 100u);
    EXPECT_EQ(controlState, 0);
    const struct {
        int64_t now;
        uint32_t mark;
    } passes[] = {
        // clang-format off
        {100,  100},  {1099, 100},  {1100, 1100}, {1101, 1100}, {2099, 1100}, {2100, 2100},
        {5555, 5555}, {6554, 5555}, {6555, 6555},
        {0xFFFFFE00,                   0xFFFFFE00}, {0xFFFFFE00LL + 999,          0xFFFFFE00},
        {0xFFFFFE00LL + 1001,          489},        {0x100000000LL + 489 + 999,   489},
        {0x100000000LL + 489 + 1000,   1489},
        // clang-format on
    };
    for (const int state : {1, 0, 255}) { // of the power; the task's own is never changed
        powerState = controlState = static_cast<uint8_t>(state);
        controlTimer = 100;
        for (const auto &pass : passes) {
            const auto start = static_cast<int32_t>(controlTimer);
            journal.clear();
            runTaskAt(pass.now);
            EXPECT_EQ(controlTimer, pass.mark) << state << ' ' << pass.now;
            EXPECT_EQ(journal, Journal{"timeout " + std::to_string(start) + " 1000"});
        }
        EXPECT_EQ(powerState, state);
        EXPECT_EQ(controlState, state);
    }
}

TEST(Control, TheTaskDoesNothingWhileAnUpdateRuns)
{
    int readings = 0;
    fakeClock.afterReading = [&] { ++readings; };
    for (const int power : {1, 0, 255}) {
        powerState = static_cast<uint8_t>(power);
        for (const int32_t answer : {1, 2, -1}) {
            updateRuns = answer;
            runTaskAt(100'000);
            EXPECT_EQ(controlTimer, 100u) << power << ' ' << answer;
        }
    }
    EXPECT_EQ(readings, 0);
    EXPECT_EQ(journal, Journal{});
    updateRuns = 0;
    runTaskAt(100'000);
    EXPECT_EQ(controlTimer, 100'000u);
}

// Records ----------------------------------------------------------------------------------------

// A record of `size` bytes, each of its own, after an identification.
Bytes aRecord(const Bytes &identification, uint32_t size)
{
    Bytes bytes = identification;
    while (bytes.size() < size) {
        bytes += oneByte(static_cast<uint32_t>(bytes.size()) * 3 + size);
    }
    return bytes;
}

const Bytes kOwnUserPref = with(aRecord("\x38\x76\x24\x06", 56), 4, Bytes("\1\0", 2));
const Bytes kOwnDeviceInfo = with(aRecord("\x5C\x36\xCD\x4B", 20), 12, Bytes("\x00\x32\0\0", 4));
const Bytes kOwnTimeControl = aRecord("\xAD\x04\x11\x20", 152);
const Bytes kOwnWorkTime = with(with(aRecord("", 24), 20, "\x21\x03\x15\x20"), 0, Bytes(4, '\0'));
const Bytes kWorkTimeDefaults = Bytes(20, '\0') + "\x21\x03\x15\x20";

// Bytes 0xA5, in which a reset leaves traces of all that it sets. The record is good.
const Bytes kOwnSetting =
    Image(Bytes(kUserSettingSize, '\xA5')).u32(0, {0x2021365C}).u32(11828, {0x00123456}).bytes;

// What a reset makes of it.
const Bytes kSettingDefaults = contentOf(FIRST_START "/save0-over-a5.sav");

// What a reset makes of preferences with a language and a fade option that it keeps.
Bytes userPrefDefaults(const Bytes &before)
{
    return hex("38 76 24 06") + before.substr(4, 2) +   // identification; language, fade
           hex("D0 07 01 01 C0 A8 00 64 C0 A8 00 01") + // word, flags, address, gateway
           hex("FF FF FF 00 C2 19 02 81 C2 19 02 82") + // mask, name servers
           before.substr(30, 6) + Bytes(6, '\0') +      // MAC address; call, pad lock
           hex("00 01 02 03 04 05 06 07 01 32 00") + before.substr(53); // table, bytes; padding
}

// The reload -------------------------------------------------------------------------------------

TEST(Control, TheReloadRunsItsStepsInOrderSetsDefaultsAndWritesNothing)
{
    EXPECT_EQ(printedBy(LoadEEPROM),
              "open file /userdata/DevInfo.sav error\nDevice ID = 0x0\r\nreset Device info\r\n"
              "open file /userdata/UserPref.sav error\nUserPref ID = 0x0\r\nreset userPref\r\n"
              "open file /userdata/save0.sav error\nopen file /userdata/save0.sav error\n"
              "reset user save no save\r\n");
    EXPECT_EQ(journal, (Journal{"checkBoardType", "loadDeviceInfo", "loadUserPrefNoSave",
                                "loadUserSettingNoSave 0"}));
    EXPECT_TRUE(fs::is_empty(kDirectory));
    EXPECT_EQ(getUserPref()->identification, 0x06247638u);
    EXPECT_EQ(getDeviceInfo()->identification, 0x4BCD365Cu);
    EXPECT_EQ(bytesOf(GetUserSetting()), contentOf(FIRST_START "/save0.sav"));
    EXPECT_EQ(bytesOf(getWorkTimeList()), Bytes(24, '\0'));
}

TEST(Control, TheReloadTakesWhatTheFilesHoldAndWritesNothing)
{
    put("/userdata/DevInfo.sav", kOwnDeviceInfo);
    put("/userdata/UserPref.sav", kOwnUserPref);
    put("/userdata/save0.sav", kOwnSetting);
    put("/userdata/workTime.sav", Bytes(24, 'x'));
    const Files files = filesIn();
    EXPECT_EQ(printedBy(LoadEEPROM), "");
    EXPECT_EQ(filesIn(), files);
    EXPECT_EQ(bytesOf(getDeviceInfo()), kOwnDeviceInfo);
    EXPECT_EQ(bytesOf(getUserPref()), kOwnUserPref);
    EXPECT_EQ(bytesOf(GetUserSetting()).substr(0, 7808), kOwnSetting.substr(0, 7808));
    EXPECT_EQ(GetCurrentView(), 0xA5);
    Files foreign = files;
    for (auto &[name, content] : foreign) {
        content = "foreign";
        put("/userdata/" + name, content);
    }
    printedBy(LoadEEPROM);
    EXPECT_EQ(filesIn(), foreign);
}

// The factory reset ------------------------------------------------------------------------------

TEST(Control, TheFactoryResetRunsItsStepsInOrderAndReturnsTheLastResult)
{
    for (const int32_t result : {1, 0, 7}) {
        journal.clear();
        clearResult = result;
        EXPECT_EQ(outcomeOf(ResetFactory).first, result);
        EXPECT_EQ(journal, (Journal{"resetUserPref", "saveUserPref", "resetWorkTimeList",
                                    "saveWorkTimeList", "ResetUserSettingSave", "ResetViewSetting",
                                    "UserSettingSaveTo 0", "ClearViewSetting", "ClearAllPage"}));
    }
}

const Files kKept = {{"DevInfo.sav", kOwnDeviceInfo},
                     {"timeCon0.sav", kOwnTimeControl},
                     {"save1.sav", kOwnSetting},
                     {"page7_1.sav", "page of mode 1"},
                     {"view16.sav", "no view"}};

// A board with every kind of settings file, loaded as at start-up and changed since.
void fillBoard()
{
    for (const auto &[name, content] : kKept) {
        put("/userdata/" + name, content);
    }
    put("/userdata/UserPref.sav", kOwnUserPref);
    put("/userdata/workTime.sav", kOwnWorkTime);
    put("/userdata/save0.sav", kOwnSetting);
    for (uint32_t i = 0; i < 16; ++i) {
        put(viewPath(static_cast<int>(i)), asStored(aView(i), i));
        put("/userdata/page" + std::to_string(i) + "_0.sav", aView(i));
    }
    EXPECT_EQ(printedBy(loadAllUserPref) + printedBy([] { loadTimeControl(0); }), "");
    fill(GetViewSetting(), aView(100));
    fill(GetSaveViewSetting(), aView(101));
    _currentView = 9;
    journal.clear();
}

// The preferences in memory are apart.
void expectReset()
{
    Files files = kKept;
    files["UserPref.sav"] = userPrefDefaults(kOwnUserPref);
    files["workTime.sav"] = kWorkTimeDefaults;
    files["save0.sav"] = kSettingDefaults;
    EXPECT_EQ(filesIn(), files);
    EXPECT_EQ(bytesOf(getDeviceInfo()), kOwnDeviceInfo);
    EXPECT_EQ(bytesOf(getWorkTimeList()), kWorkTimeDefaults);
    EXPECT_EQ(bytesOf(GetTimeControl()), kOwnTimeControl);
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), kSettingDefaults));
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting_old()), kSettingDefaults));
    EXPECT_EQ(bytesOf(GetViewSetting()), kSettingDefaults.substr(kPreviewAt, kViewSize));
    EXPECT_EQ(bytesOf(GetSaveViewSetting()), with(aView(101), 3992, Bytes(4, '\0')));
    EXPECT_EQ(GetCurrentView(), 0);
    EXPECT_EQ(settingByte(3714), 0);
    EXPECT_EQ(settingByte(3715), 0);
}

TEST(Control, TheFactoryResetLeavesDefaultsDeviceInformationAndPagesOfOtherModes)
{
    fillBoard();
    EXPECT_EQ(isFactoryReset(), 0xA5);
    EXPECT_EQ(outcomeOf(ResetFactory), Outcome(1, "save save0.sav\n"));
    expectReset();
    EXPECT_EQ(bytesOf(getUserPref()), userPrefDefaults(kOwnUserPref));
    EXPECT_EQ(isFactoryReset(), 0); // as the setting's own reset leaves it
    EXPECT_EQ(contentOf("/userdata/save0.sav")[3713], '\0');
}

TEST(Control, AFactoryResetOfAnEmptyBoardWritesThreeFiles)
{
    EXPECT_EQ(outcomeOf(ResetFactory), Outcome(1, "save save0.sav\n"));
    EXPECT_EQ(filesIn(), (Files{{"UserPref.sav", userPrefDefaults(Bytes(56, '\0'))},
                                {"workTime.sav", kWorkTimeDefaults},
                                {"save0.sav", contentOf(FIRST_START "/save0.sav")}}));
}

TEST(Control, AFactoryResetThatCannotSaveGoesOnInMemory)
{
    fs::remove(kDirectory);
    EXPECT_EQ(outcomeOf(ResetFactory),
              Outcome(1, notSaved("UserPref.sav") + notSaved("workTime.sav") + "save save0.sav\n" +
                             notSaved("save0.sav")));
    EXPECT_EQ(getUserPref()->identification, 0x06247638u);
    EXPECT_EQ(bytesOf(GetUserSetting()), contentOf(FIRST_START "/save0.sav"));
}

// The factory reset that keeps the network settings ----------------------------------------------

// DHCP, address, gateway, mask and name servers are bytes 8 to 35. The file has the defaults.
TEST(Control, TheResetThatSavesTheIpRestoresBytes8To35InMemoryOnly)
{
    fillBoard();
    EXPECT_EQ(printedBy(ResetFactorySaveIP), "save save0.sav\n");
    const Bytes kept = kOwnUserPref.substr(8, 28);
    EXPECT_EQ(bytesOf(getUserPref()), with(userPrefDefaults(kOwnUserPref), 8, kept));
    expectReset();
    printedBy(saveUserPref);
    EXPECT_EQ(contentOf("/userdata/UserPref.sav").substr(8, 28), kept);
    // The reset leaves the MAC address, so only other bytes in its place show that it is restored.
    afterClearing = [] { fill(getUserPref(), Bytes(56, '\xEE')); };
    printedBy(ResetFactorySaveIP);
    EXPECT_EQ(bytesOf(getUserPref()), with(Bytes(56, '\xEE'), 8, kept));
}

// The factory-reset flag -------------------------------------------------------------------------

TEST(Control, TheFactoryResetFlagIsByte3713OfTheUserSettingAndSavingAPageClearsIt)
{
    settingByte(3712) = 1;
    settingByte(3714) = 1;
    for (const int value : {0, 1, 2, 255}) {
        settingByte(3713) = static_cast<uint8_t>(value);
        EXPECT_EQ(isFactoryReset(), value);
    }
    EXPECT_EQ(outcomeOf([] { return SaveToPage(3); }).first, 1);
    EXPECT_EQ(isFactoryReset(), 0);
}

} // namespace
