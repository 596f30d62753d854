// Loading and saving the user setting record: which files are good, what becomes of the others, and
// every message in its order.

#include "storage/UserSettingFile.h"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/console.h"
#include "tests/support/setting_bytes.h"

namespace fs = std::filesystem;

namespace {

// Link-time fakes: the file store, counted; and blocks with a guard behind them ------------------

std::vector<std::string> readNames;
std::function<void()> beforeSecondRead;
std::vector<std::string> writeNames;
std::vector<uint32_t> writeLengths;

constexpr size_t kGuardSize = 8192;
std::vector<std::pair<const char *, uint32_t>> blocks; // and their sizes, in the order of asking

} // namespace

extern "C" {
uint32_t __wrap__Z11sd_readFilePKcPvj(const char *name, void *buffer, uint32_t capacity);
uint32_t __real__Z11sd_readFilePKcPvj(const char *name, void *buffer, uint32_t capacity);
int32_t __wrap__Z12sd_writeFilePKcPKvj(const char *name, const void *buffer, uint32_t length);
int32_t __real__Z12sd_writeFilePKcPKvj(const char *name, const void *buffer, uint32_t length);
void *__wrap__Z12mymem_mallocj(uint32_t size);

uint32_t __wrap__Z11sd_readFilePKcPvj(const char *name, void *buffer, uint32_t capacity)
{
    readNames.emplace_back(name);
    if (readNames.size() == 2 && beforeSecondRead) {
        beforeSecondRead();
    }
    return __real__Z11sd_readFilePKcPvj(name, buffer, capacity);
}

int32_t __wrap__Z12sd_writeFilePKcPKvj(const char *name, const void *buffer, uint32_t length)
{
    writeNames.emplace_back(name);
    writeLengths.push_back(length);
    return __real__Z12sd_writeFilePKcPKvj(name, buffer, length);
}

void *__wrap__Z12mymem_mallocj(uint32_t size)
{
    char *const memory = static_cast<char *>(std::malloc(size + kGuardSize));
    std::memset(memory, 0x3C, size + kGuardSize);
    blocks.emplace_back(memory, size);
    return memory;
}
}

namespace {

constexpr char kPath[] = "/userdata/save0.sav";

const std::string kMissing = "open file /userdata/save0.sav error\n";
const std::string kReset = "reset user save\r\n";
const std::string kResetNoSave = "reset user save no save\r\n";
const std::string kSave = "save save0.sav\n";

using Names = std::vector<std::string>;

const Bytes kDefaults = contentOf(FIRST_START "/save0.sav");

// A file with both identifications and a byte of its own everywhere else, but a user mode of 0.
Bytes goodFile(uint32_t seed = 1)
{
    Image file(ownBytes(kUserSettingSize, seed));
    return file.u32(0, {0x2021365C}).u32(1720, {0}).u32(11828, {0x00123456}).bytes;
}

// What a good file becomes in memory, but for the user mode.
Bytes loaded(const Bytes &file)
{
    Image record(file.substr(0, kUserSettingSize));
    for (size_t n = 0; n < 96; ++n) {
        record.u8(kProgramAt + 16 + 26 * n + 1, {0});
    }
    return record.bytes;
}

Bytes recordBytes()
{
    return bytesOf(GetUserSetting());
}

// The copy as it stands: the getter would refill one without its identification.
Bytes copyBytes()
{
    return {blocks.at(1).first, kUserSettingSize};
}

void clearRecords()
{
    fill(GetUserSetting(), Bytes(kUserSettingSize, '\0'));
    std::memset(GetUserSetting_old(), 0, kUserSettingSize);
    readNames.clear();
    writeNames.clear();
    writeLengths.clear();
}

// In September 2001, which 32-bit time has too.
const auto kLongAgo = fs::file_time_type::clock::from_sys(
    std::chrono::sys_seconds(std::chrono::seconds(1'000'000'000)));

// A file that will show whether it is written again.
void putLongAgo(const std::string &path, const Bytes &content)
{
    put(path, content);
    fs::last_write_time(path, kLongAgo);
}

class UserSettingFile : public testing::Test {
protected:
    UserSettingFile()
    {
        fs::create_directory("/userdata");
        malloc_saveView();
    }

    void TearDown() override
    {
        for (const auto &[memory, size] : blocks) {
            EXPECT_EQ(Bytes(memory + size, kGuardSize), Bytes(kGuardSize, '\x3C'))
                << "the block of " << size << " bytes was overrun";
        }
    }
};

// A good file ------------------------------------------------------------------------------------

TEST_F(UserSettingFile, GoodFileIsReadOnceAndNothingIsWrittenOrPrinted)
{
    putLongAgo(kPath, goodFile());
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(0), 1); }), "");
    EXPECT_EQ(readNames, Names{"save0.sav"});
    EXPECT_EQ(writeNames, Names{});
    EXPECT_EQ(fs::last_write_time(kPath), kLongAgo);
    EXPECT_TRUE(areBytes(contentOf(kPath), goodFile()));
}

// The layer states of the program view are cleared, those of the preview are not.
TEST_F(UserSettingFile, GoodFileIsTheRecordButForTheLayerStatesOfTheProgramView)
{
    Image file(goodFile());
    for (size_t n = 0; n < 96; ++n) {
        file.u8(kProgramAt + 16 + 26 * n + 1, {0xFF}).u8(kPreviewAt + 16 + 26 * n + 1, {0xEE});
    }
    put(kPath, file.bytes);
    loadUserSetting(0);
    EXPECT_TRUE(areBytes(recordBytes(), loaded(file.bytes)));
    fill(GetUserSetting(), Bytes(kUserSettingSize, '\x77'));
    loadUserSettingNoSave(0);
    EXPECT_TRUE(areBytes(recordBytes(), loaded(file.bytes)));
}

TEST_F(UserSettingFile, CopyIsMadeBehindAllOtherStepsOfALoad)
{
    put(kPath, Image(goodFile()).u32(1720, {1}).bytes);
    loadUserSetting(0);
    EXPECT_EQ(recordBytes()[3712], 1);
    EXPECT_TRUE(areBytes(copyBytes(), recordBytes()));

    put(kPath, goodFile(2));
    loadUserSettingNoSave(0);
    EXPECT_TRUE(areBytes(copyBytes(), loaded(goodFile(2))));

    fs::remove(kPath);
    clearRecords();
    printedBy([] { loadUserSetting(0); });
    EXPECT_TRUE(areBytes(copyBytes(), kDefaults));

    fs::remove(kPath);
    clearRecords();
    printedBy([] { loadUserSettingNoSave(0); });
    EXPECT_TRUE(areBytes(copyBytes(), kDefaults));
}

// A number that no view has is taken as it is.
TEST_F(UserSettingFile, CurrentViewIsTakenFromTheRecord)
{
    for (const uint32_t view : {0u, 3u, 15u, 16u, 200u, 255u}) {
        put(kPath, Image(goodFile()).u8(3715, {view}).bytes);
        _currentView = 99;
        EXPECT_EQ(printedBy([] { loadUserSetting(0); }), "");
        EXPECT_EQ(_currentView, view);
        _currentView = 99;
        EXPECT_EQ(printedBy([] { loadUserSettingNoSave(0); }), "");
        EXPECT_EQ(_currentView, view);
    }
}

TEST_F(UserSettingFile, CurrentViewOfARecordThatWasResetIsZero)
{
    _currentView = 99;
    put(kPath, Image(goodFile()).u8(3715, {7}).u32(11828, {0}).bytes);
    printedBy([] { loadUserSettingNoSave(0); });
    EXPECT_EQ(_currentView, 0);
    _currentView = 99;
    printedBy([] { loadUserSetting(0); });
    EXPECT_EQ(_currentView, 0);
}

// The user mode ----------------------------------------------------------------------------------

TEST_F(UserSettingFile, UserModeOf1IsTakenAndMirrored)
{
    const Bytes file = Image(goodFile()).u32(1720, {1}).u8(3712, {0}).bytes;
    putLongAgo(kPath, file);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(0), 1); }), "");
    EXPECT_EQ(_userMode, 1);
    EXPECT_TRUE(areBytes(recordBytes(), Image(loaded(file)).u8(3712, {1}).bytes));
    EXPECT_EQ(fs::last_write_time(kPath), kLongAgo);
}

TEST_F(UserSettingFile, UserModeOf2IsRewrittenTo0OnLoadInMemoryOnly)
{
    const Bytes file = Image(goodFile()).u32(1720, {2}).bytes;
    putLongAgo(kPath, file);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(0), 1); }), "");
    EXPECT_EQ(GetUserSetting()->userMode, 0u);
    EXPECT_EQ(_userMode, 0);
    EXPECT_TRUE(areBytes(recordBytes(), Image(loaded(file)).u32(1720, {0}).bytes));
    EXPECT_EQ(writeNames, Names{});
    EXPECT_EQ(fs::last_write_time(kPath), kLongAgo);
    EXPECT_TRUE(areBytes(contentOf(kPath), file));
}

TEST_F(UserSettingFile, UserModeOtherThan1IsOffAndLeavesTheMirrorAlone)
{
    for (const uint32_t mode : {0u, 2u, 0x100u, 0x101u, 0x01000000u, 0x80000001u, 0xFFFFFFFFu}) {
        for (const uint32_t mirror : {0u, 1u, 7u}) {
            const Bytes file = Image(goodFile()).u32(1720, {mode}).u8(3712, {mirror}).bytes;
            put(kPath, file);
            _userMode = 1;
            loadUserSetting(0);
            EXPECT_EQ(_userMode, 0) << mode;
            EXPECT_TRUE(areBytes(recordBytes(), Image(loaded(file)).u32(1720, {0}).bytes)) << mode;
        }
    }
}

TEST_F(UserSettingFile, UserModeIsLeftAloneByTheReload)
{
    for (const uint32_t mode : {0u, 1u, 2u, 0xFFFFFFFFu}) {
        for (const uint8_t known : {uint8_t{0}, uint8_t{1}}) {
            const Bytes file = Image(goodFile()).u32(1720, {mode}).u8(3712, {7}).bytes;
            put(kPath, file);
            _userMode = known;
            EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSettingNoSave(0), 1); }), "");
            EXPECT_EQ(_userMode, known) << mode;
            EXPECT_TRUE(areBytes(recordBytes(), loaded(file))) << mode;
        }
    }
}

TEST_F(UserSettingFile, UserModeIsOffBehindAResetButTheReloadDoesNotSeeIt)
{
    put(kPath, Image(goodFile()).u32(0, {0}).u32(1720, {1}).bytes);
    _userMode = 1;
    printedBy([] { loadUserSettingNoSave(0); });
    EXPECT_EQ(_userMode, 1);
    EXPECT_EQ(GetUserSetting()->userMode, 0u);
    EXPECT_EQ(GetUserSetting()->userModeMirror, 0);
    printedBy([] { loadUserSetting(0); });
    EXPECT_EQ(_userMode, 0);
    EXPECT_EQ(GetUserSetting()->userMode, 0u);
    EXPECT_EQ(GetUserSetting()->userModeMirror, 0);
}

// Files that are not good ------------------------------------------------------------------------

TEST_F(UserSettingFile, MissingFileIsReplacedByTheDefaultsOfAFirstStart)
{
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(0), 0); }),
              kMissing + kMissing + kReset + kSave);
    EXPECT_EQ(readNames, (Names{"save0.sav", "save0.sav"}));
    EXPECT_EQ(writeNames, Names{"save0.sav"});
    EXPECT_EQ(writeLengths, std::vector<uint32_t>{11832});
    EXPECT_EQ(kDefaults.size(), kUserSettingSize);
    EXPECT_TRUE(areBytes(contentOf(kPath), kDefaults));
    EXPECT_TRUE(areBytes(recordBytes(), kDefaults));

    clearRecords();
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(0), 1); }), "");
    EXPECT_TRUE(areBytes(recordBytes(), kDefaults));
    EXPECT_EQ(writeNames, Names{});
}

TEST_F(UserSettingFile, MissingFileIsNotMadeByTheReload)
{
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSettingNoSave(0), 0); }),
              kMissing + kMissing + kResetNoSave);
    EXPECT_EQ(readNames, (Names{"save0.sav", "save0.sav"}));
    EXPECT_EQ(writeNames, Names{});
    EXPECT_TRUE(fs::is_empty("/userdata"));
    EXPECT_TRUE(areBytes(recordBytes(), kDefaults));
}

TEST_F(UserSettingFile, EmptyFileIsReset)
{
    put(kPath, "");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSettingNoSave(0), 0); }), kResetNoSave);
    EXPECT_EQ(contentOf(kPath), "");
    clearRecords();
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(0), 0); }), kReset + kSave);
    EXPECT_TRUE(areBytes(contentOf(kPath), kDefaults));
}

// What has no default comes from the file.
TEST_F(UserSettingFile, FileWithTheRightFirstWordAndAWrongTrailingWordIsReset)
{
    for (uint32_t bit = 0; bit < 32; ++bit) {
        const Bytes file = Image(goodFile()).u32(11828, {0x00123456u ^ 1u << bit}).bytes;
        put(kPath, file);
        EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSettingNoSave(0), 0); }), kResetNoSave) << bit;
        EXPECT_TRUE(areBytes(contentOf(kPath), file));
        EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(0), 0); }), kReset + kSave) << bit;
        const Bytes saved = contentOf(kPath);
        EXPECT_TRUE(areBytes(saved, recordBytes()));
        EXPECT_TRUE(areBytes(saved.substr(11828), {"\x56\x34\x12\0", 4}));
        EXPECT_TRUE(areBytes(saved.substr(30, 21), kDefaults.substr(30, 21)));
        EXPECT_EQ(saved[51], file[51]);
    }
}

TEST_F(UserSettingFile, FileWithAWrongFirstWordAndTheRightTrailingWordIsReset)
{
    for (uint32_t bit = 0; bit < 32; ++bit) {
        const Bytes file = Image(goodFile()).u32(0, {0x2021365Cu ^ 1u << bit}).bytes;
        put(kPath, file);
        EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSettingNoSave(0), 0); }), kResetNoSave) << bit;
        EXPECT_TRUE(areBytes(contentOf(kPath), file));
        EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(0), 0); }), kReset + kSave) << bit;
        EXPECT_TRUE(areBytes(contentOf(kPath).substr(0, 4), {"\x5C\x36\x21\x20", 4}));
    }
}

// At start-up memory is zero. The last byte of the trailing word is zero itself, so a file without
// it is as good as a whole one.
TEST_F(UserSettingFile, ShortFileIsResetWhereAnIdentificationIsCut)
{
    for (const size_t length : {1u, 2u, 3u, 4u, 30u, 3812u, 11827u, 11828u, 11829u, 11830u}) {
        clearRecords();
        put(kPath, goodFile().substr(0, length));
        EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(0), 0); }), kReset + kSave) << length;
        EXPECT_EQ(contentOf(kPath).size(), kUserSettingSize);
    }
    clearRecords();
    put(kPath, goodFile().substr(0, 11831));
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(0), 1); }), "");
    EXPECT_EQ(contentOf(kPath).size(), 11831u);
    EXPECT_TRUE(areBytes(recordBytes(), loaded(goodFile())));
}

// What is in memory is judged, not what the file holds.
TEST_F(UserSettingFile, ShortOrMissingFileOverAGoodRecordPassesOnWhatIsInMemory)
{
    fill(GetUserSetting(), goodFile(2));
    put(kPath, goodFile().substr(0, 5000));
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSettingNoSave(0), 1); }), "");
    EXPECT_TRUE(
        areBytes(recordBytes(), loaded(goodFile().substr(0, 5000) + goodFile(2).substr(5000))));
    fs::remove(kPath);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(0), 1); }), kMissing);
    EXPECT_EQ(writeNames, Names{});
}

TEST_F(UserSettingFile, LongFileIsItsFirst11832BytesAndOverrunsNothing)
{
    putLongAgo(kPath, goodFile() + '\xFF');
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(0), 1); }),
              "read file save0.sav size error: fileSize=11833, readSize=11832\r\n");
    EXPECT_TRUE(areBytes(recordBytes(), loaded(goodFile())));
    EXPECT_EQ(fs::last_write_time(kPath), kLongAgo);

    put(kPath, goodFile() + Bytes(8000, '\xFF'));
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSettingNoSave(0), 1); }),
              "read file save0.sav size error: fileSize=19832, readSize=11832\r\n");
    EXPECT_TRUE(areBytes(recordBytes(), loaded(goodFile())));
}

TEST_F(UserSettingFile, LongFileIsJudgedInItsFirst11832Bytes)
{
    put(kPath, goodFile().substr(0, 11828) + "...." + Bytes("\x56\x34\x12\0", 4));
    const std::string sizeError =
        "read file save0.sav size error: fileSize=11836, readSize=11832\r\n";
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(0), 0); }),
              sizeError + sizeError + kReset + kSave);
    EXPECT_EQ(contentOf(kPath).size(), kUserSettingSize);
}

TEST_F(UserSettingFile, FileThatIsGoodAtTheSecondReadingIsTaken)
{
    beforeSecondRead = [] { putLongAgo(kPath, goodFile()); };
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(0), 1); }), kMissing);
    EXPECT_EQ(readNames.size(), 2u);
    EXPECT_EQ(writeNames, Names{});
    EXPECT_EQ(fs::last_write_time(kPath), kLongAgo);
    EXPECT_TRUE(areBytes(recordBytes(), loaded(goodFile())));
}

TEST_F(UserSettingFile, FileThatIsGoodAtTheSecondReadingOfAReloadIsTaken)
{
    put(kPath, Image(goodFile()).u32(11828, {0}).bytes);
    beforeSecondRead = [] { put(kPath, Image(goodFile(3)).u8(3715, {6}).bytes); };
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSettingNoSave(0), 1); }), "");
    EXPECT_EQ(readNames.size(), 2u);
    EXPECT_EQ(_currentView, 6);
    EXPECT_TRUE(areBytes(recordBytes(), loaded(Image(goodFile(3)).u8(3715, {6}).bytes)));
}

// The device runs on the defaults, and everything else of a load is done.
TEST_F(UserSettingFile, DefaultsThatCannotBeSavedStandInAllTheSame)
{
    fs::remove("/userdata");
    _userMode = 1;
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(0), 0); }),
              kMissing + kMissing + kReset + kSave + kMissing + "open file save0.sav fail\r\n");
    EXPECT_TRUE(areBytes(recordBytes(), kDefaults));
    EXPECT_TRUE(areBytes(copyBytes(), kDefaults));
    EXPECT_EQ(_userMode, 0);
    EXPECT_FALSE(fs::exists("/userdata"));
}

// Reading and writing ----------------------------------------------------------------------------

TEST_F(UserSettingFile, ReadingReturnsTheLengthOfTheFileAndJudgesNothing)
{
    fill(GetUserSetting(), goodFile(2));
    EXPECT_EQ(printedBy([] { EXPECT_EQ(ReadUserSetting(0), 0u); }), kMissing);
    EXPECT_TRUE(areBytes(recordBytes(), goodFile(2)));
    put(kPath, "abcdefg");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(ReadUserSetting(0), 7u); }), "");
    EXPECT_TRUE(areBytes(recordBytes(), "abcdefg" + goodFile(2).substr(7)));
    put(kPath, goodFile());
    EXPECT_EQ(printedBy([] { EXPECT_EQ(ReadUserSetting(0), 11832u); }), "");
    EXPECT_TRUE(areBytes(recordBytes(), goodFile()));
    put(kPath, goodFile(3) + "!");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(ReadUserSetting(0), 11833u); }),
              "read file save0.sav size error: fileSize=11833, readSize=11832\r\n");
    EXPECT_TRUE(areBytes(recordBytes(), goodFile(3)));
}

TEST_F(UserSettingFile, WritingSavesTheRecordAsItStandsAndLeavesTheCopyAlone)
{
    const Bytes record = ownBytes(kUserSettingSize, 4);
    fill(GetUserSetting(), record);
    put(kPath, goodFile() + "longer");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(WriteUserSetting(0), 1); }), kSave);
    EXPECT_TRUE(areBytes(contentOf(kPath), record));
    EXPECT_TRUE(areBytes(recordBytes(), record));
    EXPECT_TRUE(areBytes(copyBytes(), Bytes(kUserSettingSize, '\0')));
}

TEST_F(UserSettingFile, SavingMakesTheCopyEqual)
{
    const Bytes record = ownBytes(kUserSettingSize, 5);
    fill(GetUserSetting(), record);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(UserSettingSaveTo(3), 1); }), "save save3.sav\n");
    EXPECT_TRUE(areBytes(contentOf("/userdata/save3.sav"), record));
    EXPECT_TRUE(areBytes(copyBytes(), record));
    EXPECT_EQ(writeLengths, std::vector<uint32_t>{11832});
}

TEST_F(UserSettingFile, SavingThatFailsSaysSoAndMakesTheCopyEqualAllTheSame)
{
    const Bytes record = ownBytes(kUserSettingSize, 6);
    fill(GetUserSetting(), record);
    fs::create_directory(kPath); // in the way of the file
    const std::string messages = kSave + kMissing + "open file save0.sav fail\r\n";
    EXPECT_EQ(printedBy([] { EXPECT_EQ(WriteUserSetting(0), 0); }), messages);
    EXPECT_TRUE(areBytes(copyBytes(), Bytes(kUserSettingSize, '\0')));
    EXPECT_EQ(printedBy([] { EXPECT_EQ(UserSettingSaveTo(0), 0); }), messages);
    EXPECT_TRUE(areBytes(copyBytes(), record));
    fs::remove_all("/userdata");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(UserSettingSaveTo(0), 0); }), messages);
}

// Any number is a slot.
TEST_F(UserSettingFile, SlotsAreFilesOfTheirOwn)
{
    struct Slot {
        int32_t number;
        std::string file;
    };
    const Slot slots[] = {
        {0, "save0.sav"},       {7, "save7.sav"},
        {15, "save15.sav"},     {16, "save16.sav"},
        {-1, "save-1.sav"},     {INT32_MAX, "save2147483647.sav"},
        {-123, "save-123.sav"}, {INT32_MIN, "save-2147483648.sav"},
    };
    uint32_t seed = 10;
    for (const Slot &slot : slots) {
        fill(GetUserSetting(), goodFile(++seed));
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(WriteUserSetting(slot.number), 1); }),
                  "save " + slot.file + "\n");
        EXPECT_TRUE(areBytes(contentOf("/userdata/" + slot.file), goodFile(seed)));
    }
    seed = 10;
    for (const Slot &slot : slots) {
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(loadUserSetting(slot.number), 1); }), "");
        EXPECT_TRUE(areBytes(recordBytes(), loaded(goodFile(++seed))));
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(loadUserSettingNoSave(slot.number), 1); }), "");
        EXPECT_EQ(ReadUserSetting(slot.number), 11832u);
        EXPECT_TRUE(areBytes(recordBytes(), goodFile(seed)));
    }
}

TEST_F(UserSettingFile, SlotThatIsResetIsTheOneThatIsSaved)
{
    const std::string missing = "open file /userdata/save7.sav error\n";
    EXPECT_EQ(printedBy([] { EXPECT_EQ(loadUserSetting(7), 0); }),
              missing + missing + kReset + "save save7.sav\n");
    EXPECT_EQ(readNames, (Names{"save7.sav", "save7.sav"}));
    EXPECT_TRUE(areBytes(contentOf("/userdata/save7.sav"), kDefaults));
    EXPECT_FALSE(fs::exists(kPath));
}

} // namespace
