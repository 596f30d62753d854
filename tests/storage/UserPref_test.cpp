// The two records of the unit against their files, and the loading of all records.

#include "storage/UserPref.h"

#include <cstdio>

#include <gtest/gtest.h>

#include "storage/DeviceInfo.h"
#include "storage/UserSetting.h"
#include "storage/UserSettingFile.h"
#include "storage/WorkTime.h"
#include "storage/board.h"
#include "storage/load_all.h"
#include "tests/support/clock.h"
#include "tests/support/replace.h"
#include "tests/support/setting_bytes.h"

namespace fs = std::filesystem;

namespace {

constexpr char kUserPrefFile[] = "UserPref.sav";
constexpr char kDeviceInfoFile[] = "DevInfo.sav";
constexpr char kUserPrefPath[] = "/userdata/UserPref.sav";
constexpr char kDeviceInfoPath[] = "/userdata/DevInfo.sav";

// The records after a reset of zero bytes, from the meaning of their fields: 2000 is 7d0, 192.168
// is c0.a8, 194.25.2 is c2.19.2, and 12800 is 3200 in hexadecimal.
const Bytes kDefaultUserPref = hex("38 76 24 06"               // identification
                                   "  00 00 d0 07 01 01"       // language to DHCP, which is on
                                   "  c0 a8 00 64"             // address 192.168.0.100
                                   "  c0 a8 00 01"             // gateway 192.168.0.1
                                   "  ff ff ff 00"             // mask 255.255.255.0
                                   "  c2 19 02 81 c2 19 02 82" // name servers
                                   "  00 00 00 00 00 00"       // MAC address
                                   "  00 00 00 00 00 00"       // delayed call, pad lock
                                   "  00 01 02 03 04 05 06 07" // index table
                                   "  01 32 00"                // preference bytes
                                   "  00 00 00");
const Bytes kDefaultDeviceInfo = hex("5c 36 cd 4b  00 00 00 00  00 00 00 00  00 32 00 00"
                                     "  00 00 00 00");

// Good records of which every other byte is of its own.
const Bytes kOwnUserPref = [] {
    Bytes bytes = hex("38 76 24 06");
    for (uint32_t i = 4; i < 56; ++i) {
        bytes += oneByte(0x80 + i);
    }
    return bytes;
}();
const Bytes kOwnDeviceInfo = hex("5c 36 cd 4b  78 56 34 12  a8 a9 aa ab  00 32 00 00  b0 b1 b2 b3");

const Bytes kNoUserPref(56, '\0');
const Bytes kNoDeviceInfo(20, '\0');

std::string userPrefReset(const std::string &word)
{
    return "UserPref ID = 0x" + word + "\r\nreset userPref\r\n";
}

std::string deviceInfoReset(const std::string &word)
{
    return "Device ID = 0x" + word + "\r\nreset Device info\r\n";
}

const std::string kUserPrefMissing = notOpened(kUserPrefFile) + userPrefReset("0");
const std::string kDeviceInfoMissing = notOpened(kDeviceInfoFile) + deviceInfoReset("0");

[[maybe_unused]] const auto *const settingsDirectory =
    testing::AddGlobalTestEnvironment(new SettingsDirectory);

// What is in memory after the reading is judged, and only by its identification.
TEST(UserPref, PreferencesAreLoadedAndOneLoaderSavesTheDefaults)
{
    const Bytes foreign = with(kNoUserPref, 0, hex("ef cd ab 00"));
    const Bytes outOfRange = with(kDefaultUserPref, 4, hex("05 06"));
    const Bytes &defaults = kDefaultUserPref;
    const Bytes twelve = defaults.substr(0, 12);
    const Bytes longFile = kOwnUserPref + Bytes(5000, '\xFF');
    const Load rows[] = {
        {"good file", kNoUserPref, kOwnUserPref, "", kOwnUserPref, {}},
        {"values out of range", kNoUserPref, outOfRange, "", outOfRange, {}},
        {"missing file", kNoUserPref, {}, kUserPrefMissing, defaults, defaults},
        {"foreign file", kNoUserPref, foreign, userPrefReset("abcdef"), defaults, defaults},
        {"short file over zeros", kNoUserPref, twelve, "", twelve + Bytes(44, '\0'), {}},
        {"short file over a record",
         kOwnUserPref,
         twelve,
         "",
         twelve + kOwnUserPref.substr(12),
         {}},
        {"cut early", kNoUserPref, hex("38 76 24"), userPrefReset("247638"), defaults, defaults},
        {"empty file", kNoUserPref, "", userPrefReset("0"), defaults, defaults},
        {"long file", kNoUserPref, longFile, tooLong(kUserPrefFile, 5056, 56), kOwnUserPref, {}},
        {"no file over a record", kOwnUserPref, {}, notOpened(kUserPrefFile), kOwnUserPref, {}},
        {"empty file over a record", kOwnUserPref, "", "", kOwnUserPref, {}},
    };
    for (Load row : rows) {
        expectLoad(loadUserPref, getUserPref(), kUserPrefFile, row);
        row.saved.reset();
        expectLoad(loadUserPrefNoSave, getUserPref(), kUserPrefFile, row);
        EXPECT_EQ(bytesOf(getDeviceInfo()), kNoDeviceInfo) << row.name;
    }
}

TEST(UserPref, EveryBitOfTheIdentificationOfPreferencesCounts)
{
    for (uint32_t bit = 0; bit < 32; ++bit) {
        put(kUserPrefPath, bitFlipped(kOwnUserPref, 0, bit));
        char word[9];
        std::snprintf(word, sizeof word, "%x", 0x06247638u ^ 1u << bit);
        EXPECT_EQ(printedBy(loadUserPrefNoSave), userPrefReset(word));
        EXPECT_EQ(getUserPref()->preferenceWord, 2000) << bit;
    }
}

TEST(UserPref, ReadingReturnsTheLengthOfTheFileAndJudgesNothing)
{
    const auto expectReading = [](uint32_t (*read)(), auto *record, const std::string &file) {
        const size_t size = sizeof *record;
        const Bytes whole = ownBytes(size, 1);
        EXPECT_EQ(outcomeOf(read), Outcome(0, notOpened(file)));
        put("/userdata/" + file, "abcd");
        EXPECT_EQ(outcomeOf(read), Outcome(4, ""));
        EXPECT_EQ(bytesOf(record), "abcd" + Bytes(size - 4, '\0'));
        put("/userdata/" + file, whole + '.');
        EXPECT_EQ(outcomeOf(read), Outcome(size + 1, tooLong(file, size + 1, size)));
        EXPECT_EQ(bytesOf(record), whole);
    };
    expectReading(readUserPref, getUserPref(), kUserPrefFile);
    expectReading(readDeviceInfo, getDeviceInfo(), kDeviceInfoFile);
}

TEST(UserPref, ResettingPreferencesKeepsMacAddressAndPaddingOnly)
{
    fill(getUserPref(), Bytes(56, '\xA5'));
    EXPECT_EQ(printedBy(resetUserPref), "");
    Image expected(kDefaultUserPref);
    expected.u8(4, {0, 1})
        .repeat(30, 6, 0xA5)
        .repeat(53, 3, 0xA5); // language and fade have not held
    EXPECT_EQ(bytesOf(getUserPref()), expected.bytes);
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

TEST(UserPref, ResettingPreferencesKeepsALanguageAndAFadeOfZeroOrOne)
{
    for (const uint32_t value : {0u, 1u, 2u, 5u, 255u}) {
        put(kUserPrefPath, with(kNoUserPref, 4, oneByte(value) + oneByte(value)));
        EXPECT_EQ(printedBy(loadUserPrefNoSave), userPrefReset("0"));
        EXPECT_EQ(getUserLang(), value == 1 ? 1 : 0) << value;
        EXPECT_EQ(getLoadFadeInOutOff(), value == 0 ? 0 : 1) << value;
    }
}

// A save that makes `after` of `before`, of a record, where it can and where it cannot.
template <typename Record>
void expectSave(int32_t (*save)(), Record *record, const std::string &file, const Bytes &before,
                const Bytes &after)
{
    put("/userdata/" + file, Bytes(100, 'x'));
    const std::map<std::string, Bytes> saved = {{file, after}};
    for (const bool isPossible : {true, false}) {
        fill(record, before);
        EXPECT_EQ(outcomeOf(save), Outcome(isPossible, isPossible ? "" : notSaved(file)));
        EXPECT_EQ(bytesOf(record), after);
        EXPECT_TRUE(!isPossible || filesIn() == saved);
        fs::remove_all(kDirectory);
    }
}

const struct {
    const char *name;
    int32_t (*save)();
    Bytes expected; // the record after it, which was kOwnUserPref
} kSetters[] = {
    // clang-format off
    {"record as it stands", saveUserPref, kOwnUserPref},
    {"language", [] { return saveUserLang(0x11); }, with(kOwnUserPref, 4, hex("11"))},
    {"fade option", [] { return saveLoadFadeInOutOff(0x22); }, with(kOwnUserPref, 5, hex("22"))},
    {"call time", [] { return saveDelayCallTime(0x33); }, with(kOwnUserPref, 36, hex("33"))},
    {"call index", [] { return saveDelayCallIndex(0x44); }, with(kOwnUserPref, 38, hex("44"))},
    {"lock", [] { return saveUserPadLock(1, 1); }, with(kOwnUserPref, 39, hex("01 01"))},
    {"lock, any value", [] { return saveUserPadLock(5, 7); }, with(kOwnUserPref, 39, hex("05 07"))},
    {"lock, open", [] { return saveUserPadLock(1, 0); }, with(kOwnUserPref, 39, hex("01 00"))},
    {"no lock", [] { return saveUserPadLock(0, 1); }, with(kOwnUserPref, 39, hex("00 00"))},
    {"address", [] { std::memcpy(getIPAddress(), "\x0A\x01\x02\x03", 4); return saveIPAddress(); },
     with(kOwnUserPref, 10, hex("0a 01 02 03"))},
    {"bad record", [] { fill(getUserPref(), Bytes(56, '\xA5')); return saveUserPref(); },
     Bytes(56, '\xA5')},
    // clang-format on
};

TEST(UserPref, EverySetterChangesItsFieldAndSavesAtOnceOrSaysThatItCannot)
{
    for (const auto &setter : kSetters) {
        SCOPED_TRACE(setter.name);
        expectSave(setter.save, getUserPref(), kUserPrefFile, kOwnUserPref, setter.expected);
    }
}

TEST(UserPref, EveryGetterOfPreferencesReadsItsField)
{
    fill(getUserPref(), kOwnUserPref);
    EXPECT_EQ(getUserLang(), 0x80 + 4);
    EXPECT_EQ(getLoadFadeInOutOff(), 0x80 + 5);
    EXPECT_EQ(getDelayCallTime(), 0x80 + 36);
    EXPECT_EQ(getDelayCallIndex(), 0x80 + 38);
    EXPECT_EQ(getUserPadLockEnable(), 0x80 + 39);
    EXPECT_EQ(getUserPadLockState(), 0x80 + 40);
    EXPECT_EQ(getIPAddress(), getUserPref()->ipAddress);
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

// One attempt, then a pause ahead of the messages. Nothing is saved.
TEST(UserPref, DeviceInformationIsLoadedOrResetAfterAPause)
{
    fakeClock.onSleep = [] { std::printf("(pause %u)", fakeClock.sleepsUs.back()); };
    const auto reset = [](const char *word) { return "(pause 30000)" + deviceInfoReset(word); };
    const Bytes cleared = with(kOwnDeviceInfo, 8, hex("00"));
    const std::string missing = notOpened(kDeviceInfoFile);
    const Bytes &none = kNoDeviceInfo;
    const Bytes &own = kOwnDeviceInfo;
    const Bytes cut = own.substr(0, 12);
    const Bytes longFile = own + Bytes(5000, '\xFF');
    const Bytes wrongFirst = with(own, 0, hex("ef 0d 00 00"));
    const Bytes wrongSecond = with(own, 12, hex("01 32 00 00"));
    const Load rows[] = {
        {"good file", none, own, "", own, {}},
        {"missing file", none, {}, missing + reset("0"), kDefaultDeviceInfo, {}},
        {"wrong second identification", none, wrongSecond, reset("4bcd365c"), cleared, {}},
        {"wrong first identification", none, wrongFirst, reset("def"), cleared, {}},
        {"short file", none, cut, reset("4bcd365c"), with(cleared, 16, Bytes(4, '\0')), {}},
        {"long file", none, longFile, tooLong(kDeviceInfoFile, 5020, 20), own, {}},
        {"no file over a good record", own, {}, missing, own, {}},
    };
    for (const Load &row : rows) {
        expectLoad(loadDeviceInfo, getDeviceInfo(), kDeviceInfoFile, row);
        EXPECT_EQ(bytesOf(getUserPref()), kNoUserPref) << row.name;
    }
    EXPECT_EQ(getDeviceSN(), 0x12345678u);
    EXPECT_EQ(getDeviceInfo()->deviceByte, 0xA8);
}

TEST(UserPref, EveryBitOfBothDeviceIdentificationsCounts)
{
    for (uint32_t bit = 0; bit < 64; ++bit) {
        put(kDeviceInfoPath, bitFlipped(kOwnDeviceInfo, bit < 32 ? 0 : 12, bit % 32));
        printedBy(loadDeviceInfo);
        EXPECT_EQ(bytesOf(getDeviceInfo()), with(kOwnDeviceInfo, 8, hex("00"))) << bit;
    }
}

TEST(UserPref, ResettingDeviceInformationKeepsTheSerialNumber)
{
    fill(getDeviceInfo(), Bytes(20, '\xA5'));
    EXPECT_EQ(printedBy(resetDeviceInfo), "");
    EXPECT_EQ(bytesOf(getDeviceInfo()),
              hex("5c 36 cd 4b  a5 a5 a5 a5  00 a5 a5 a5  00 32 00 00  a5 a5 a5 a5"));
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

// The serial number is saved in all its 32 bits.
TEST(UserPref, EverySaveOfDeviceInformationWritesTheRecord)
{
    const Bytes numbered = with(kOwnDeviceInfo, 4, hex("98 ba dc fe"));
    const auto saveNumber = [] { return saveDeviceSN(0xFEDCBA98); };
    for (int32_t (*const save)() : {writeDeviceInfo, saveDeviceInfo, +saveNumber}) {
        const Bytes &expected = save == saveNumber ? numbered : kOwnDeviceInfo;
        expectSave(save, getDeviceInfo(), kDeviceInfoFile, kOwnDeviceInfo, expected);
    }
    EXPECT_EQ(getDeviceSN(), 0xFEDCBA98u);
}

using Journal = std::vector<std::string>;
Journal journal; // the blocks, and what goes through the file store

} // namespace

REPLACE(void, _Z15malloc_saveViewv, ())
{
    journal.emplace_back("malloc_saveView");
    REAL(_Z15malloc_saveViewv)();
}

REPLACE(uint32_t, _Z11sd_readFilePKcPvj, (const char *name, void *buffer, uint32_t capacity))
{
    journal.push_back("read " + std::string(name) + ' ' + std::to_string(capacity));
    return REAL(_Z11sd_readFilePKcPvj)(name, buffer, capacity);
}

REPLACE(int32_t, _Z12sd_writeFilePKcPKvj, (const char *name, const void *buffer, uint32_t length))
{
    journal.push_back("write " + std::string(name) + ' ' + std::to_string(length));
    return REAL(_Z12sd_writeFilePKcPKvj)(name, buffer, length);
}

namespace {

const std::string kUserSettingMissing =
    notOpened("save0.sav") + notOpened("save0.sav") + "reset user save\r\nsave save0.sav\n";

const Bytes kDefaultWorkTime = Bytes(20, '\0') + hex("21 03 15 20");

// Good ones whose bytes between the identifications are no default.
const std::map<std::string, Bytes> kOwnFiles = {
    {kUserPrefFile, kOwnUserPref},
    {kDeviceInfoFile, kOwnDeviceInfo},
    {"workTime.sav", Bytes(4, '\0') + ownBytes(16, 1) + hex("21 03 15 20")},
    {"save0.sav", hex("5c 36 21 20") + Bytes(11824, '\x07') + hex("56 34 12 00")},
};

// Memory as a start finds it, and one load.
Outcome loadAll()
{
    if (GetUserSetting() != nullptr) {
        fill(GetUserSetting(), Bytes(kUserSettingSize, '\0'));
    }
    *getWorkTimeList() = {};
    *getUserPref() = {};
    *getDeviceInfo() = {};
    journal.clear();
    return outcomeOf(loadAllUserPref);
}

// Of the four, two are saved where they had to be reset, and two are not.
TEST(UserPref, BlocksAndRecordsAreLoadedInOrderAndASecondStartTakesWhatTheFirstHasSaved)
{
    EXPECT_EQ(loadAll(), Outcome(0, kUserPrefMissing + kDeviceInfoMissing +
                                        notOpened("workTime.sav") + kUserSettingMissing));
    EXPECT_EQ(journal,
              (Journal{"malloc_saveView", "read UserPref.sav 56", "read DevInfo.sav 20",
                       "read workTime.sav 24", "write workTime.sav 24", "read save0.sav 11832",
                       "read save0.sav 11832", "write save0.sav 11832"}));
    EXPECT_EQ(fakeClock.sleepsUs, (std::vector<uint32_t>{30000})); // of the device information
    EXPECT_EQ(bytesOf(getUserPref()), kDefaultUserPref);
    EXPECT_EQ(bytesOf(getDeviceInfo()), kDefaultDeviceInfo);
    const UserSetting *const block = GetUserSetting();
    const Bytes setting = contentOf(FIRST_START "/save0.sav");
    EXPECT_TRUE(areBytes(bytesOf(block), setting));
    const std::map<std::string, Bytes> saved = {{"save0.sav", setting},
                                                {"workTime.sav", kDefaultWorkTime}};
    EXPECT_EQ(filesIn(), saved);

    EXPECT_EQ(loadAll(), Outcome(1, kUserPrefMissing + kDeviceInfoMissing));
    EXPECT_EQ(journal, (Journal{"malloc_saveView", "read UserPref.sav 56", "read DevInfo.sav 20",
                                "read workTime.sav 24", "read save0.sav 11832"}));
    EXPECT_EQ(GetUserSetting(), block);
    EXPECT_EQ(bytesOf(block), setting);
    EXPECT_EQ(bytesOf(getWorkTimeList()), kDefaultWorkTime);
    EXPECT_EQ(filesIn(), saved);
}

// The result is that of the last record alone.
TEST(UserPref, GoodRecordsAreLoadedAndOneBadOneDoesNotTouchTheOthers)
{
    const struct {
        std::string file, prints;
        int32_t result;
        Bytes saved; // in its place
    } rows[] = {
        {"none of them", "", 1, ""},
        {kUserPrefFile, kUserPrefMissing, 1, ""},
        {kDeviceInfoFile, kDeviceInfoMissing, 1, ""},
        {"workTime.sav", notOpened("workTime.sav"), 1, kDefaultWorkTime},
        {"save0.sav", kUserSettingMissing, 0, contentOf(FIRST_START "/save0.sav")},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.file);
        std::map<std::string, Bytes> files = kOwnFiles;
        for (const auto &[name, content] : files) {
            put("/userdata/" + name, content);
        }
        fs::remove("/userdata/" + row.file);
        EXPECT_EQ(loadAll(), Outcome(row.result, row.prints));
        files.erase(row.file);
        if (!row.saved.empty()) {
            files[row.file] = row.saved;
        }
        EXPECT_EQ(filesIn(), files);
        const auto at = [&](const char *file) { return row.file == file; };
        EXPECT_EQ(bytesOf(getUserPref()), at(kUserPrefFile) ? kDefaultUserPref : kOwnUserPref);
        EXPECT_EQ(bytesOf(getDeviceInfo()),
                  at(kDeviceInfoFile) ? kDefaultDeviceInfo : kOwnDeviceInfo);
        EXPECT_EQ(bytesOf(getWorkTimeList()), files.at("workTime.sav"));
        EXPECT_EQ(GetUserSetting()->settingByte2412, at("save0.sav") ? 128 : 7);
    }
}

TEST(UserPref, AllRecordsAreInMemoryWhereNothingCanBeSaved)
{
    fs::remove(kDirectory);
    EXPECT_EQ(loadAll(), Outcome(0, kUserPrefMissing + kDeviceInfoMissing +
                                        notOpened("workTime.sav") + notSaved("workTime.sav") +
                                        kUserSettingMissing + notSaved("save0.sav")));
    EXPECT_EQ(bytesOf(getUserPref()), kDefaultUserPref);
    EXPECT_EQ(bytesOf(getDeviceInfo()), kDefaultDeviceInfo);
    EXPECT_EQ(bytesOf(getWorkTimeList()), kDefaultWorkTime);
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), contentOf(FIRST_START "/save0.sav")));
}

TEST(UserPref, OfTheBoardNothingIsKnownAndRecordsAndListBaseAreZeroAtFirst)
{
    EXPECT_EQ(printedBy(checkBoardType), "");
    EXPECT_EQ(printedBy(checkSizeEEPROM), "");
    EXPECT_EQ(outcomeOf(getHardwareVersion), Outcome(1, ""));
    for (const Outcome &none :
         {outcomeOf(getBoardType), outcomeOf(getSizeEEPROM), outcomeOf(getWorkTimeListAddress)}) {
        EXPECT_EQ(none, Outcome(0, ""));
    }
    EXPECT_EQ(bytesOf(getUserPref()), kNoUserPref);
    EXPECT_EQ(bytesOf(getDeviceInfo()), kNoDeviceInfo);
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

} // namespace
