// The two records of the unit against their files, byte by byte; and the order in which all records
// are loaded.

#include "storage/UserPref.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "storage/DeviceInfo.h"
#include "storage/UserSetting.h"
#include "storage/UserSettingFile.h"
#include "storage/WorkTime.h"
#include "storage/board.h"
#include "storage/load_all.h"
#include "tests/support/clock.h"
#include "tests/support/console.h"
#include "tests/support/setting_bytes.h"

namespace fs = std::filesystem;

namespace {

constexpr char kUserPrefPath[] = "/userdata/UserPref.sav";
constexpr char kDeviceInfoPath[] = "/userdata/DevInfo.sav";

// The records after a reset of zero bytes, from the meaning of their fields: 2000 is 7d0, 192.168
// is c0.a8, 194.25.2 is c2.19.2, and 12800 is 3200 in hexadecimal.
const Bytes kDefaultUserPref = hex("38 76 24 06"               // identification
                                   "  00 00 d0 07 01 01"       // language to DHCP
                                   "  c0 a8 00 64"             // address
                                   "  c0 a8 00 01"             // gateway
                                   "  ff ff ff 00"             // mask
                                   "  c2 19 02 81"             // name servers
                                   "  c2 19 02 82"             //
                                   "  00 00 00 00 00 00"       // MAC address
                                   "  00 00 00 00 00 00"       // delayed call, pad lock
                                   "  00 01 02 03 04 05 06 07" // index table
                                   "  01 32 00"                // preference bytes
                                   "  00 00 00");
const Bytes kDefaultDeviceInfo = hex("5c 36 cd 4b  00 00 00 00  00 00 00 00  00 32 00 00"
                                     "  00 00 00 00");

// A good record of which every byte behind the identification is of its own.
const Bytes kOwnUserPref = [] {
    Bytes bytes = hex("38 76 24 06");
    for (int i = 4; i < 56; ++i) {
        bytes += static_cast<char>(0x80 + i);
    }
    return bytes;
}();
const Bytes kOwnDeviceInfo = hex("5c 36 cd 4b  78 56 34 12  a8 a9 aa ab  00 32 00 00  b0 b1 b2 b3");

const std::string kUserPrefMissing = "open file /userdata/UserPref.sav error\n"
                                     "UserPref ID = 0x0\r\n"
                                     "reset userPref\r\n";
const std::string kDeviceInfoMissing = "open file /userdata/DevInfo.sav error\n"
                                       "Device ID = 0x0\r\n"
                                       "reset Device info\r\n";

[[maybe_unused]] const auto *const settingsDirectory =
    testing::AddGlobalTestEnvironment(new SettingsDirectory);

// From now on nothing can be saved.
void takeDirectoryAway()
{
    fs::remove_all("/userdata");
}

bool isAnythingSaved()
{
    return !fs::is_empty("/userdata");
}

// The user preferences: loading ------------------------------------------------------------------

TEST(UserPref, PreferencesAreZeroBeforeTheyAreLoaded)
{
    EXPECT_EQ(bytesOf(getUserPref()), Bytes(56, '\0'));
}

TEST(UserPref, PreferencesAreTheBytesOfTheirFile)
{
    put(kUserPrefPath, kOwnUserPref);
    EXPECT_EQ(printedBy([] { loadUserPrefNoSave(); }), "");
    EXPECT_EQ(bytesOf(getUserPref()), kOwnUserPref);
    const UserPref &record = *getUserPref();
    EXPECT_EQ(record.identification, 0x06247638u);
    EXPECT_EQ(record.preferenceWord, 0x8786);
    EXPECT_EQ(record.dhcpEnable, 0x89);
    EXPECT_EQ(record.ipAddress[0], 0x8A);
    EXPECT_EQ(record.dns[1][3], 0x80 + 29);
    EXPECT_EQ(record.padLockState, 0x80 + 40);
}

TEST(UserPref, PreferencesOfAMissingFileAreTheDefaultsAndAreNotSaved)
{
    EXPECT_EQ(printedBy([] { loadUserPrefNoSave(); }), kUserPrefMissing);
    EXPECT_EQ(bytesOf(getUserPref()), kDefaultUserPref);
    EXPECT_FALSE(isAnythingSaved());
}

TEST(UserPref, PreferencesOfAMissingFileAreSavedByTheLoaderThatSaves)
{
    EXPECT_EQ(printedBy([] { loadUserPref(); }), kUserPrefMissing);
    EXPECT_EQ(contentOf(kUserPrefPath), kDefaultUserPref);
}

TEST(UserPref, PreferencesOfAForeignFileAreTheDefaultsAndOnlyOneLoaderSavesThem)
{
    const Bytes foreign = with(Bytes(56, '\0'), 0, hex("ef cd ab 00"));
    put(kUserPrefPath, foreign);
    const std::string messages = "UserPref ID = 0xabcdef\r\nreset userPref\r\n";
    EXPECT_EQ(printedBy([] { loadUserPrefNoSave(); }), messages);
    EXPECT_EQ(bytesOf(getUserPref()), kDefaultUserPref);
    EXPECT_EQ(contentOf(kUserPrefPath), foreign);
    EXPECT_EQ(printedBy([] { loadUserPref(); }), messages);
    EXPECT_EQ(contentOf(kUserPrefPath), kDefaultUserPref);
}

TEST(UserPref, EveryBitOfTheIdentificationOfPreferencesCounts)
{
    for (int bit = 0; bit < 32; ++bit) {
        const uint32_t word = 0x06247638u ^ 1u << bit;
        Bytes file(kOwnUserPref);
        std::memcpy(file.data(), &word, sizeof word);
        put(kUserPrefPath, file);
        char first[40];
        std::snprintf(first, sizeof first, "UserPref ID = 0x%x\r\n", word);
        EXPECT_EQ(printedBy([] { loadUserPrefNoSave(); }),
                  std::string(first) + "reset userPref\r\n");
        EXPECT_EQ(getUserPref()->preferenceWord, 2000);
    }
}

TEST(UserPref, PreferencesOfAGoodFileAreNotSavedAgain)
{
    put(kUserPrefPath, kOwnUserPref + "behind");
    printedBy([] { loadUserPref(); });
    EXPECT_EQ(contentOf(kUserPrefPath), kOwnUserPref + "behind");
    EXPECT_EQ(bytesOf(getUserPref()), kOwnUserPref);
}

// A value out of range is nobody's business while the identification is right.
TEST(UserPref, PreferencesAreJudgedByTheirIdentificationAlone)
{
    put(kUserPrefPath, with(kDefaultUserPref, 4, hex("05 06")));
    EXPECT_EQ(printedBy([] { loadUserPref(); }), "");
    EXPECT_EQ(getUserLang(), 5);
    EXPECT_EQ(getLoadFadeInOutOff(), 6);
}

TEST(UserPref, PreferencesOfAShortFileWithTheIdentificationKeepTheTailThatWasThere)
{
    put(kUserPrefPath, kDefaultUserPref.substr(0, 12));
    EXPECT_EQ(printedBy([] { loadUserPrefNoSave(); }), "");
    EXPECT_EQ(bytesOf(getUserPref()), kDefaultUserPref.substr(0, 12) + Bytes(44, '\0'));

    fill(getUserPref(), kOwnUserPref);
    EXPECT_EQ(printedBy([] { loadUserPrefNoSave(); }), "");
    EXPECT_EQ(bytesOf(getUserPref()), kDefaultUserPref.substr(0, 12) + kOwnUserPref.substr(12));
}

TEST(UserPref, PreferencesOfAFileThatEndsInTheIdentificationAreTheDefaults)
{
    put(kUserPrefPath, hex("38 76 24"));
    EXPECT_EQ(printedBy([] { loadUserPrefNoSave(); }),
              "UserPref ID = 0x247638\r\nreset userPref\r\n");
    EXPECT_EQ(bytesOf(getUserPref()), kDefaultUserPref);
}

TEST(UserPref, PreferencesOfAnEmptyFileAreTheDefaults)
{
    put(kUserPrefPath, "");
    EXPECT_EQ(printedBy([] { loadUserPrefNoSave(); }), "UserPref ID = 0x0\r\nreset userPref\r\n");
    EXPECT_EQ(bytesOf(getUserPref()), kDefaultUserPref);
    EXPECT_EQ(contentOf(kUserPrefPath), "");
}

TEST(UserPref, PreferencesOfALongFileAreItsFirst56Bytes)
{
    const Bytes device = bytesOf(getDeviceInfo());
    put(kUserPrefPath, kOwnUserPref + Bytes(5000, '\xFF'));
    EXPECT_EQ(printedBy([] { loadUserPrefNoSave(); }),
              "read file UserPref.sav size error: fileSize=5056, readSize=56\r\n");
    EXPECT_EQ(bytesOf(getUserPref()), kOwnUserPref);
    EXPECT_EQ(bytesOf(getDeviceInfo()), device);
    EXPECT_EQ(getBoardType(), 0);
    EXPECT_EQ(getSizeEEPROM(), 0u);
}

// What is in memory is judged, not what the file holds.
TEST(UserPref, PreferencesStayAsTheyAreWhenTheFileHasGoneByTheReload)
{
    put(kUserPrefPath, kOwnUserPref);
    loadUserPrefNoSave();
    fs::remove(kUserPrefPath);
    EXPECT_EQ(printedBy([] { loadUserPrefNoSave(); }), "open file /userdata/UserPref.sav error\n");
    EXPECT_EQ(bytesOf(getUserPref()), kOwnUserPref);
    put(kUserPrefPath, "");
    EXPECT_EQ(printedBy([] { loadUserPref(); }), "");
    EXPECT_EQ(bytesOf(getUserPref()), kOwnUserPref);
    EXPECT_EQ(contentOf(kUserPrefPath), "");
}

TEST(UserPref, ReadingPreferencesReturnsTheLengthOfTheFileAndJudgesNothing)
{
    EXPECT_EQ(printedBy([] { EXPECT_EQ(readUserPref(), 0u); }),
              "open file /userdata/UserPref.sav error\n");
    put(kUserPrefPath, "abcd");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(readUserPref(), 4u); }), "");
    EXPECT_EQ(getUserPref()->identification, 0x64636261u);
    put(kUserPrefPath, kOwnUserPref);
    EXPECT_EQ(readUserPref(), 56u);
    put(kUserPrefPath, kOwnUserPref + '.');
    EXPECT_EQ(printedBy([] { EXPECT_EQ(readUserPref(), 57u); }),
              "read file UserPref.sav size error: fileSize=57, readSize=56\r\n");
    EXPECT_EQ(bytesOf(getUserPref()), kOwnUserPref);
}

// The user preferences: reset --------------------------------------------------------------------

TEST(UserPref, ResettingPreferencesKeepsTheMacAddressAndThePaddingAndNothingElse)
{
    fill(getUserPref(), Bytes(56, '\xA5'));
    EXPECT_EQ(printedBy([] { resetUserPref(); }), "");
    Bytes expected = with(kDefaultUserPref, 30, Bytes(6, '\xA5')); // MAC address
    expected = with(expected, 53, Bytes(3, '\xA5'));               // padding
    expected = with(expected, 4, hex("00 01"));                    // neither language nor fade held
    EXPECT_EQ(bytesOf(getUserPref()), expected);
    EXPECT_FALSE(isAnythingSaved());
}

TEST(UserPref, ResettingPreferencesKeepsALanguageOfZeroOrOne)
{
    for (uint32_t language = 0; language < 256; ++language) {
        put(kUserPrefPath, with(Bytes(56, '\0'), 4, oneByte(language)));
        printedBy([] { loadUserPrefNoSave(); });
        EXPECT_EQ(getUserLang(), language == 1 ? 1 : 0) << language;
    }
}

TEST(UserPref, ResettingPreferencesKeepsAFadeOptionOfZeroOrOne)
{
    for (uint32_t off = 0; off < 256; ++off) {
        put(kUserPrefPath, with(Bytes(56, '\0'), 5, oneByte(off)));
        printedBy([] { loadUserPrefNoSave(); });
        EXPECT_EQ(getLoadFadeInOutOff(), off == 0 ? 0 : 1) << off;
    }
}

TEST(UserPref, ResettingPreferencesSetsDhcpAndTheKnownAddresses)
{
    resetUserPref();
    const UserPref &record = *getUserPref();
    EXPECT_EQ(record.dhcpEnable, 1);
    EXPECT_EQ(bytesOf(&record.ipAddress), hex("c0 a8 00 64"));
    EXPECT_EQ(bytesOf(&record.netMask), hex("ff ff ff 00"));
    EXPECT_EQ(bytesOf(&record.gateway), hex("c0 a8 00 01"));
}

// The user preferences: saving -------------------------------------------------------------------

TEST(UserPref, SavingPreferencesWritesTheRecordAsItStands)
{
    fill(getUserPref(), kOwnUserPref);
    put(kUserPrefPath, Bytes(100, 'x'));
    EXPECT_EQ(printedBy([] { EXPECT_EQ(saveUserPref(), 1); }), "");
    EXPECT_EQ(contentOf(kUserPrefPath), kOwnUserPref);
    fill(getUserPref(), Bytes(56, '\xA5')); // a record that would not be accepted
    EXPECT_EQ(saveUserPref(), 1);
    EXPECT_EQ(contentOf(kUserPrefPath), Bytes(56, '\xA5'));
    EXPECT_FALSE(fs::exists(kDeviceInfoPath));
}

struct Setter {
    const char *name;
    int32_t (*set)();
    Bytes expected; // the record after it, which was kOwnUserPref
};
const Setter kSetters[] = {
    {"saveUserLang", [] { return saveUserLang(0x11); }, with(kOwnUserPref, 4, hex("11"))},
    {"saveLoadFadeInOutOff", [] { return saveLoadFadeInOutOff(0x22); },
     with(kOwnUserPref, 5, hex("22"))},
    {"saveDelayCallTime", [] { return saveDelayCallTime(0x33); },
     with(kOwnUserPref, 36, hex("33"))},
    {"saveDelayCallIndex", [] { return saveDelayCallIndex(0x44); },
     with(kOwnUserPref, 38, hex("44"))},
    {"saveUserPadLock, enabled", [] { return saveUserPadLock(1, 1); },
     with(kOwnUserPref, 39, hex("01 01"))},
    {"saveUserPadLock, enabled by any value", [] { return saveUserPadLock(5, 7); },
     with(kOwnUserPref, 39, hex("05 07"))},
    {"saveUserPadLock, enabled and open", [] { return saveUserPadLock(1, 0); },
     with(kOwnUserPref, 39, hex("01 00"))},
    {"saveUserPadLock, not enabled", [] { return saveUserPadLock(0, 1); },
     with(kOwnUserPref, 39, hex("00 00"))},
    {"saveIPAddress",
     [] {
         std::memcpy(getIPAddress(), "\x0A\x01\x02\x03", 4);
         return saveIPAddress();
     },
     with(kOwnUserPref, 10, hex("0a 01 02 03"))},
};

TEST(UserPref, EverySetterOfPreferencesChangesItsFieldAndSavesAtOnce)
{
    for (const Setter &setter : kSetters) {
        fill(getUserPref(), kOwnUserPref);
        fs::remove(kUserPrefPath);
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(setter.set(), 1); }), "") << setter.name;
        EXPECT_EQ(bytesOf(getUserPref()), setter.expected) << setter.name;
        EXPECT_EQ(contentOf(kUserPrefPath), setter.expected) << setter.name;
        EXPECT_FALSE(fs::exists(kDeviceInfoPath)) << setter.name;
    }
}

TEST(UserPref, ASetterOfPreferencesThatCannotSaveSaysSoAndKeepsTheValue)
{
    takeDirectoryAway();
    for (const Setter &setter : kSetters) {
        fill(getUserPref(), kOwnUserPref);
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(setter.set(), 0); }),
                  "open file /userdata/UserPref.sav error\nopen file UserPref.sav fail\r\n")
            << setter.name;
        EXPECT_EQ(bytesOf(getUserPref()), setter.expected) << setter.name;
    }
    EXPECT_EQ(printedBy([] { EXPECT_EQ(saveUserPref(), 0); }),
              "open file /userdata/UserPref.sav error\nopen file UserPref.sav fail\r\n");
}

TEST(UserPref, EveryGetterOfPreferencesReadsItsField)
{
    fill(getUserPref(), kOwnUserPref);
    EXPECT_EQ(getUserLang(), 0x84);
    EXPECT_EQ(getLoadFadeInOutOff(), 0x85);
    EXPECT_EQ(getDelayCallTime(), 0x80 + 36);
    EXPECT_EQ(getDelayCallIndex(), 0x80 + 38);
    EXPECT_EQ(getUserPadLockEnable(), 0x80 + 39);
    EXPECT_EQ(getUserPadLockState(), 0x80 + 40);
    EXPECT_EQ(getIPAddress(), getUserPref()->ipAddress);
    EXPECT_FALSE(isAnythingSaved());
}

// The device information -------------------------------------------------------------------------

TEST(UserPref, DeviceInformationIsTheBytesOfItsFile)
{
    put(kDeviceInfoPath, kOwnDeviceInfo);
    EXPECT_EQ(printedBy([] { loadDeviceInfo(); }), "");
    EXPECT_EQ(bytesOf(getDeviceInfo()), kOwnDeviceInfo);
    EXPECT_EQ(getDeviceSN(), 0x12345678u);
    EXPECT_EQ(getDeviceInfo()->deviceByte, 0xA8);
    EXPECT_TRUE(fakeClock.sleepsUs.empty());
}

// One attempt, then a pause ahead of the messages.
TEST(UserPref, DeviceInformationOfAMissingFileIsResetAfterAPauseAndNotSaved)
{
    fakeClock.onSleep = [] { std::printf("(pause)\n"); };
    EXPECT_EQ(printedBy([] { loadDeviceInfo(); }), "open file /userdata/DevInfo.sav error\n"
                                                   "(pause)\n"
                                                   "Device ID = 0x0\r\n"
                                                   "reset Device info\r\n");
    EXPECT_EQ(fakeClock.sleepsUs, (std::vector<uint32_t>{30000}));
    EXPECT_EQ(bytesOf(getDeviceInfo()), kDefaultDeviceInfo);
    EXPECT_FALSE(isAnythingSaved());
}

TEST(UserPref, DeviceInformationWithAWrongSecondIdentificationIsResetAndKeepsTheSerialNumber)
{
    const Bytes file = with(kOwnDeviceInfo, 12, hex("01 32 00 00"));
    put(kDeviceInfoPath, file);
    EXPECT_EQ(printedBy([] { loadDeviceInfo(); }),
              "Device ID = 0x4bcd365c\r\nreset Device info\r\n");
    EXPECT_EQ(getDeviceSN(), 0x12345678u);
    EXPECT_EQ(bytesOf(getDeviceInfo()), with(kOwnDeviceInfo, 8, hex("00")));
    EXPECT_EQ(contentOf(kDeviceInfoPath), file);
}

TEST(UserPref, DeviceInformationWithAWrongFirstIdentificationIsReset)
{
    put(kDeviceInfoPath, with(kOwnDeviceInfo, 0, hex("ef 0d 00 00")));
    EXPECT_EQ(printedBy([] { loadDeviceInfo(); }), "Device ID = 0xdef\r\nreset Device info\r\n");
    EXPECT_EQ(bytesOf(getDeviceInfo()), with(kOwnDeviceInfo, 8, hex("00")));
}

TEST(UserPref, EveryBitOfBothDeviceIdentificationsCounts)
{
    for (const size_t offset : {0u, 12u}) {
        for (int bit = 0; bit < 32; ++bit) {
            Bytes file = kOwnDeviceInfo;
            char &byte = file[offset + static_cast<size_t>(bit / 8)];
            byte = static_cast<char>(byte ^ 1 << bit % 8);
            put(kDeviceInfoPath, file);
            printedBy([] { loadDeviceInfo(); });
            EXPECT_EQ(bytesOf(getDeviceInfo()), with(kOwnDeviceInfo, 8, hex("00")));
        }
    }
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(64, 30000));
}

TEST(UserPref, DeviceInformationOfAShortFileIsResetAndKeepsWhatWasRead)
{
    put(kDeviceInfoPath, kOwnDeviceInfo.substr(0, 12));
    EXPECT_EQ(printedBy([] { loadDeviceInfo(); }),
              "Device ID = 0x4bcd365c\r\nreset Device info\r\n");
    EXPECT_EQ(bytesOf(getDeviceInfo()),
              hex("5c 36 cd 4b  78 56 34 12  00 a9 aa ab  00 32 00 00  00 00 00 00"));
}

TEST(UserPref, DeviceInformationOfALongFileIsItsFirst20Bytes)
{
    const Bytes preferences = bytesOf(getUserPref());
    put(kDeviceInfoPath, kOwnDeviceInfo + Bytes(5000, '\xFF'));
    EXPECT_EQ(printedBy([] { loadDeviceInfo(); }),
              "read file DevInfo.sav size error: fileSize=5020, readSize=20\r\n");
    EXPECT_EQ(bytesOf(getDeviceInfo()), kOwnDeviceInfo);
    EXPECT_EQ(bytesOf(getUserPref()), preferences);
    EXPECT_EQ(getBoardType(), 0);
    EXPECT_EQ(getSizeEEPROM(), 0u);
}

TEST(UserPref, DeviceInformationStaysAsItIsWhenTheFileHasGoneByTheReload)
{
    put(kDeviceInfoPath, kOwnDeviceInfo);
    loadDeviceInfo();
    fs::remove(kDeviceInfoPath);
    EXPECT_EQ(printedBy([] { loadDeviceInfo(); }), "open file /userdata/DevInfo.sav error\n");
    EXPECT_EQ(bytesOf(getDeviceInfo()), kOwnDeviceInfo);
    EXPECT_TRUE(fakeClock.sleepsUs.empty());
}

TEST(UserPref, ResettingDeviceInformationSetsTheIdentificationsAndClearsTheDeviceByteOnly)
{
    fill(getDeviceInfo(), Bytes(20, '\xA5'));
    EXPECT_EQ(printedBy([] { resetDeviceInfo(); }), "");
    EXPECT_EQ(bytesOf(getDeviceInfo()),
              hex("5c 36 cd 4b  a5 a5 a5 a5  00 a5 a5 a5  00 32 00 00  a5 a5 a5 a5"));
    EXPECT_FALSE(isAnythingSaved());
}

TEST(UserPref, ReadingDeviceInformationReturnsTheLengthOfTheFileAndJudgesNothing)
{
    EXPECT_EQ(printedBy([] { EXPECT_EQ(readDeviceInfo(), 0u); }),
              "open file /userdata/DevInfo.sav error\n");
    put(kDeviceInfoPath, "abcd");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(readDeviceInfo(), 4u); }), "");
    EXPECT_EQ(bytesOf(getDeviceInfo()), "abcd" + Bytes(16, '\0'));
    put(kDeviceInfoPath, kOwnDeviceInfo);
    EXPECT_EQ(readDeviceInfo(), 20u);
}

TEST(UserPref, BothSavesOfDeviceInformationWriteTheRecordAsItStands)
{
    for (int32_t (*const save)() : {writeDeviceInfo, saveDeviceInfo}) {
        fs::remove(kDeviceInfoPath);
        fill(getDeviceInfo(), kOwnDeviceInfo);
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(save(), 1); }), "");
        EXPECT_EQ(contentOf(kDeviceInfoPath), kOwnDeviceInfo);
    }
    EXPECT_FALSE(fs::exists(kUserPrefPath));
}

TEST(UserPref, TheSerialNumberIsSavedAtOnceInAll32Bits)
{
    fill(getDeviceInfo(), kOwnDeviceInfo);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(saveDeviceSN(0xFEDCBA98), 1); }), "");
    EXPECT_EQ(getDeviceSN(), 0xFEDCBA98u);
    EXPECT_EQ(contentOf(kDeviceInfoPath), with(kOwnDeviceInfo, 4, hex("98 ba dc fe")));
    EXPECT_FALSE(fs::exists(kUserPrefPath));
}

TEST(UserPref, ASaveOfDeviceInformationThatFailsReturnsZeroAndKeepsTheValue)
{
    takeDirectoryAway();
    const std::string messages =
        "open file /userdata/DevInfo.sav error\nopen file DevInfo.sav fail\r\n";
    EXPECT_EQ(printedBy([] { EXPECT_EQ(saveDeviceSN(7), 0); }), messages);
    EXPECT_EQ(getDeviceSN(), 7u);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(writeDeviceInfo(), 0); }), messages);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(saveDeviceInfo(), 0); }), messages);
}

// All records at start-up ------------------------------------------------------------------------

std::vector<std::string> journal; // what loading all records did, as far as others do it

} // namespace

// What goes through the file store, and the blocks. The names are those of malloc_saveView(),
// sd_readFile() and sd_writeFile().
extern "C" {
void __real__Z15malloc_saveViewv();
void __wrap__Z15malloc_saveViewv();
uint32_t __real__Z11sd_readFilePKcPvj(const char *name, void *buffer, uint32_t capacity);
uint32_t __wrap__Z11sd_readFilePKcPvj(const char *name, void *buffer, uint32_t capacity);
int32_t __real__Z12sd_writeFilePKcPKvj(const char *name, const void *buffer, uint32_t length);
int32_t __wrap__Z12sd_writeFilePKcPKvj(const char *name, const void *buffer, uint32_t length);

void __wrap__Z15malloc_saveViewv()
{
    journal.emplace_back("malloc_saveView");
    __real__Z15malloc_saveViewv();
}

uint32_t __wrap__Z11sd_readFilePKcPvj(const char *name, void *buffer, uint32_t capacity)
{
    journal.push_back("read " + std::string(name) + ' ' + std::to_string(capacity));
    return __real__Z11sd_readFilePKcPvj(name, buffer, capacity);
}

int32_t __wrap__Z12sd_writeFilePKcPKvj(const char *name, const void *buffer, uint32_t length)
{
    journal.push_back("write " + std::string(name) + ' ' + std::to_string(length));
    return __real__Z12sd_writeFilePKcPKvj(name, buffer, length);
}
}

namespace {

using Journal = std::vector<std::string>;

constexpr char kWorkTimePath[] = "/userdata/workTime.sav";
constexpr char kUserSettingPath[] = "/userdata/save0.sav";

const std::string kWorkTimeMissing = "open file /userdata/workTime.sav error\n";
const std::string kUserSettingMissing = "open file /userdata/save0.sav error\n"
                                        "open file /userdata/save0.sav error\n"
                                        "reset user save\r\n"
                                        "save save0.sav\n";

const Bytes kDefaultWorkTime = Bytes(20, '\0') + hex("21 03 15 20");

// Good ones whose bytes between the identifications are no default.
const Bytes kOwnWorkTime = hex("00 00 00 00  11 12 13 14  21 22 23 24  31 32 33 34  41 42 43 44"
                               "  21 03 15 20");
const Bytes kOwnUserSetting = with(with(Bytes(kUserSettingSize, '\x07'), 0, hex("5c 36 21 20")), //
                                   11828, hex("56 34 12 00"));

void putOwnRecords()
{
    put(kUserPrefPath, kOwnUserPref);
    put(kDeviceInfoPath, kOwnDeviceInfo);
    put(kWorkTimePath, kOwnWorkTime);
    put(kUserSettingPath, kOwnUserSetting);
}

// The names in the settings directory, and their sizes.
std::map<std::string, size_t> filesThere()
{
    std::map<std::string, size_t> files;
    for (const auto &entry : fs::directory_iterator("/userdata")) {
        files[entry.path().filename()] = static_cast<size_t>(entry.file_size());
    }
    return files;
}

TEST(UserPref, AllRecordsAreLoadedInOrderBehindTheBlocksThatHoldTwoOfThem)
{
    putOwnRecords();
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadAllUserPref(), 1); }), "");
    EXPECT_EQ(journal, (Journal{"malloc_saveView", "read UserPref.sav 56", "read DevInfo.sav 20",
                                "read workTime.sav 24", "read save0.sav 11832"}));
    EXPECT_EQ(bytesOf(getUserPref()), kOwnUserPref);
    EXPECT_EQ(bytesOf(getDeviceInfo()), kOwnDeviceInfo);
    EXPECT_EQ(bytesOf(getWorkTimeList()), kOwnWorkTime);
    EXPECT_EQ(GetUserSetting()->identification, 0x2021365Cu);
    EXPECT_EQ(GetUserSetting()->settingByte2000, 7);
    EXPECT_TRUE(fakeClock.sleepsUs.empty());
}

TEST(UserPref, GoodRecordsAreLoadedSilentlyAndTheirFilesStay)
{
    putOwnRecords();
    printedBy([] { loadAllUserPref(); });
    EXPECT_EQ(filesThere(), (std::map<std::string, size_t>{{"DevInfo.sav", 20},
                                                           {"UserPref.sav", 56},
                                                           {"save0.sav", 11832},
                                                           {"workTime.sav", 24}}));
    EXPECT_EQ(contentOf(kUserPrefPath), kOwnUserPref);
    EXPECT_EQ(contentOf(kDeviceInfoPath), kOwnDeviceInfo);
    EXPECT_EQ(contentOf(kWorkTimePath), kOwnWorkTime);
    EXPECT_EQ(contentOf(kUserSettingPath), kOwnUserSetting);
}

// Of the four, two are saved where they had to be reset, and two are not.
TEST(UserPref, FirstStartResetsAllRecordsAndSavesWorkTimeAndUserSettingOnly)
{
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadAllUserPref(), 0); }),
              kUserPrefMissing + kDeviceInfoMissing + kWorkTimeMissing + kUserSettingMissing);
    EXPECT_EQ(journal,
              (Journal{"malloc_saveView", "read UserPref.sav 56", "read DevInfo.sav 20",
                       "read workTime.sav 24", "write workTime.sav 24", "read save0.sav 11832",
                       "read save0.sav 11832", "write save0.sav 11832"}));
    EXPECT_EQ(fakeClock.sleepsUs, (std::vector<uint32_t>{30000})); // of the device information
    EXPECT_EQ(bytesOf(getUserPref()), kDefaultUserPref);
    EXPECT_EQ(bytesOf(getDeviceInfo()), kDefaultDeviceInfo);
    EXPECT_EQ(filesThere(),
              (std::map<std::string, size_t>{{"save0.sav", 11832}, {"workTime.sav", 24}}));
    EXPECT_EQ(contentOf(kWorkTimePath), kDefaultWorkTime);
    EXPECT_EQ(contentOf(kUserSettingPath), bytesOf(GetUserSetting()));
    EXPECT_EQ(contentOf(kUserSettingPath).substr(0, 4), hex("5c 36 21 20"));
    EXPECT_EQ(contentOf(kUserSettingPath).substr(11828), hex("56 34 12 00"));
}

TEST(UserPref, SecondStartTakesWhatTheFirstHasSaved)
{
    printedBy([] { loadAllUserPref(); });
    const Bytes saved = contentOf(kUserSettingPath);
    std::memset(GetUserSetting(), 0, sizeof *GetUserSetting());
    *getWorkTimeList() = {};
    *getUserPref() = {};
    *getDeviceInfo() = {};
    journal.clear();
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadAllUserPref(), 1); }),
              kUserPrefMissing + kDeviceInfoMissing);
    EXPECT_EQ(journal, (Journal{"malloc_saveView", "read UserPref.sav 56", "read DevInfo.sav 20",
                                "read workTime.sav 24", "read save0.sav 11832"}));
    EXPECT_EQ(bytesOf(GetUserSetting()), saved);
    EXPECT_EQ(bytesOf(getWorkTimeList()), kDefaultWorkTime);
}

// A record that had to be reset is no reason to leave out those behind it. The result is that of
// the last record alone.
TEST(UserPref, OneBadRecordDoesNotTouchTheOthers)
{
    const struct {
        std::string path;
        std::string prints;
        int32_t result;
    } kRecords[] = {
        {kUserPrefPath, kUserPrefMissing, 1},
        {kDeviceInfoPath, kDeviceInfoMissing, 1},
        {kWorkTimePath, kWorkTimeMissing, 1},
        {kUserSettingPath, kUserSettingMissing, 0},
    };
    malloc_saveView();
    for (const auto &bad : kRecords) {
        std::memset(GetUserSetting(), 0, sizeof *GetUserSetting());
        *getWorkTimeList() = {};
        *getUserPref() = {};
        *getDeviceInfo() = {};
        putOwnRecords();
        fs::remove(bad.path);
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(loadAllUserPref(), bad.result); }), bad.prints);
        for (const auto &[path, content] : std::map<std::string, Bytes>{
                 {kUserPrefPath, kOwnUserPref},
                 {kDeviceInfoPath, kOwnDeviceInfo},
                 {kWorkTimePath, kOwnWorkTime},
                 {kUserSettingPath, kOwnUserSetting},
             }) {
            if (path != bad.path) {
                EXPECT_EQ(contentOf(path), content) << bad.path;
            }
        }
        EXPECT_EQ(bytesOf(getUserPref()),
                  bad.path == kUserPrefPath ? kDefaultUserPref : kOwnUserPref);
        EXPECT_EQ(bytesOf(getDeviceInfo()),
                  bad.path == kDeviceInfoPath ? kDefaultDeviceInfo : kOwnDeviceInfo);
        EXPECT_EQ(bytesOf(getWorkTimeList()),
                  bad.path == kWorkTimePath ? kDefaultWorkTime : kOwnWorkTime);
        EXPECT_EQ(GetUserSetting()->settingByte2412, bad.path == kUserSettingPath ? 128 : 7);
    }
}

TEST(UserPref, AllRecordsAreInMemoryWhereNothingCanBeSaved)
{
    takeDirectoryAway();
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadAllUserPref(), 0); }),
              kUserPrefMissing + kDeviceInfoMissing + kWorkTimeMissing +
                  "open file /userdata/workTime.sav error\n"
                  "open file workTime.sav fail\r\n" +
                  kUserSettingMissing +
                  "open file /userdata/save0.sav error\n"
                  "open file save0.sav fail\r\n");
    EXPECT_EQ(bytesOf(getUserPref()), kDefaultUserPref);
    EXPECT_EQ(bytesOf(getDeviceInfo()), kDefaultDeviceInfo);
    EXPECT_EQ(bytesOf(getWorkTimeList()), kDefaultWorkTime);
    EXPECT_EQ(GetUserSetting()->identification, 0x2021365Cu);
    EXPECT_EQ(GetUserSetting()->trailingIdentification, 0x00123456u);
}

// The blocks of the first load are those of the next, with what they hold.
TEST(UserPref, LoadingAllRecordsAgainKeepsTheBlocks)
{
    printedBy([] { loadAllUserPref(); });
    UserSetting *const setting = GetUserSetting();
    ViewSetting *const view = GetSaveViewSetting();
    ASSERT_NE(setting, nullptr);
    ASSERT_NE(view, nullptr);
    setting->settingByte2000 = 9;
    view->viewNumber = 8;
    fs::remove(kUserSettingPath);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadAllUserPref(), 1); }),
              "open file /userdata/UserPref.sav error\n"
              "open file /userdata/DevInfo.sav error\n"
              "open file /userdata/save0.sav error\n");
    EXPECT_EQ(GetUserSetting(), setting);
    EXPECT_EQ(GetSaveViewSetting(), view);
    EXPECT_EQ(setting->settingByte2000, 9);
    EXPECT_EQ(view->viewNumber, 8);
    EXPECT_FALSE(fs::exists(kUserSettingPath));
}

TEST(UserPref, OfTheBoardNothingIsKnown)
{
    fill(getUserPref(), kOwnUserPref);
    fill(getDeviceInfo(), kOwnDeviceInfo);
    EXPECT_EQ(printedBy([] {
                  checkBoardType();
                  checkSizeEEPROM();
                  EXPECT_EQ(getHardwareVersion(), 1);
                  EXPECT_EQ(getBoardType(), 0);
                  EXPECT_EQ(getSizeEEPROM(), 0u);
              }),
              "");
    EXPECT_EQ(bytesOf(getUserPref()), kOwnUserPref);
    EXPECT_EQ(bytesOf(getDeviceInfo()), kOwnDeviceInfo);
    EXPECT_FALSE(isAnythingSaved());
}

} // namespace
