// Loading and saving the user setting record: which files are good, and what becomes of the others.

#include "storage/UserSettingFile.h"

#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/replace.h"
#include "tests/support/setting_bytes.h"

namespace fs = std::filesystem;

namespace {

constexpr char kPath[] = "/userdata/save0.sav";

std::vector<std::string> journal; // the whole-file operations
std::optional<Bytes> secondFile;  // takes the file's place before the second reading

constexpr size_t kGuardSize = 8192;
std::vector<std::pair<const char *, uint32_t>> blocks; // and their sizes, in the order of asking

} // namespace

REPLACE(uint32_t, _Z11sd_readFilePKcPvj, (const char *name, void *buffer, uint32_t capacity))
{
    if (journal.size() == 1 && secondFile) {
        put(kPath, *secondFile);
    }
    journal.push_back("read " + std::string(name));
    return REAL(_Z11sd_readFilePKcPvj)(name, buffer, capacity);
}

REPLACE(int32_t, _Z12sd_writeFilePKcPKvj, (const char *name, const void *buffer, uint32_t length))
{
    journal.push_back("write " + std::string(name) + ' ' + std::to_string(length));
    return REAL(_Z12sd_writeFilePKcPKvj)(name, buffer, length);
}

// Blocks with a guard after them.
REPLACE(void *, _Z12mymem_mallocj, (uint32_t size))
{
    char *const memory = static_cast<char *>(std::malloc(size + kGuardSize));
    std::memset(memory, 0x3C, size + kGuardSize);
    blocks.emplace_back(memory, size);
    return memory;
}

namespace {

const std::string kMissing = notOpened("save0.sav");
const std::string kReset = "reset user save\r\n";
const std::string kResetNoSave = "reset user save no save\r\n";
const std::string kSave = "save save0.sav\n";

using Journal = std::vector<std::string>;
using Files = std::map<std::string, Bytes>;

const Bytes kNone(kUserSettingSize, '\0');
const Bytes kDefaults = contentOf(FIRST_START "/save0.sav");

// A file with both identifications and a byte of its own everywhere else, but a user mode of 0.
Bytes goodFile(uint32_t seed)
{
    Image file(ownBytes(kUserSettingSize, seed));
    return file.u32(0, {0x2021365C}).u32(1720, {0}).u32(11828, {0x00123456}).bytes;
}
const Bytes kGoodFile = goodFile(1);

// What a good file becomes in memory, but for the user mode: the program's layers are off.
Bytes loaded(const Bytes &file)
{
    Image record(file.substr(0, kUserSettingSize));
    for (size_t n = 0; n < 96; ++n) {
        record.u8(kProgramAt + 16 + 26 * n + 1, {0});
    }
    return record.bytes;
}

// What a bad file becomes; the rest of the record is zero.
Bytes reset(const Bytes &file)
{
    return resetOver(with(kNone, 0, file.substr(0, kUserSettingSize)), FIRST_START);
}

// The copy as it stands: the getter would refill one without its identification.
Bytes copyBytes()
{
    return {blocks.at(1).first, kUserSettingSize};
}

void expectRecordAndCopy(const Bytes &record, const Bytes &copy)
{
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), record));
    EXPECT_TRUE(areBytes(copyBytes(), copy));
}

enum Verdict { kGood, kGoodAtTheSecondReading, kBad };

struct Row {
    std::string name;
    std::optional<Bytes> file;
    std::string prints; // of the readings
    Verdict verdict;
    Bytes after;                      // the record, but for the user mode
    Bytes before = kNone;             // the record
    std::optional<Bytes> second = {}; // the file at the second reading
};

constexpr uint8_t kAnyMode = 7; // of the user; it is neither on nor off

// Loads as at the start, which saves the defaults, and as a reload, which leaves the mode alone.
void expectLoad(const Row &row, bool saves)
{
    SCOPED_TRACE(row.name + (saves ? ", start" : ", reload"));
    fs::remove(kPath);
    if (row.file) {
        put(kPath, *row.file);
    }
    Files files = filesIn();
    secondFile = row.second;
    journal.clear();
    fill(GetUserSetting(), row.before);
    std::memset(GetUserSetting_old(), 0, kUserSettingSize);
    _currentView = 99;
    _userMode = kAnyMode;

    const bool good = row.verdict != kBad;
    const std::string reset = good ? "" : saves ? kReset + kSave : kResetNoSave;
    EXPECT_EQ(outcomeOf(saves ? loadUserSetting : loadUserSettingNoSave, 0),
              Outcome(good, row.prints + reset));

    const bool isOn = row.after.substr(1720, 4) == littleEndian(1, 4);
    Bytes expected = row.after;
    if (saves) {
        expected = isOn ? with(expected, 3712, "\1") : with(expected, 1720, Bytes(4, '\0'));
    }
    EXPECT_EQ(_userMode, saves ? isOn : kAnyMode);
    EXPECT_EQ(_currentView, static_cast<uint8_t>(row.after[3715]));
    expectRecordAndCopy(expected, expected);

    Journal steps(row.verdict == kGood ? 1 : 2, "read save0.sav");
    if (row.second) {
        files["save0.sav"] = *row.second;
    }
    if (saves && !good) {
        steps.emplace_back("write save0.sav 11832");
        files["save0.sav"] = row.after;
    }
    EXPECT_EQ(journal, steps);
    EXPECT_TRUE(filesIn() == files);
}

void expectLoads(const std::vector<Row> &rows)
{
    for (const Row &row : rows) {
        expectLoad(row, true);
        expectLoad(row, false);
    }
}

class UserSettingFile : public testing::Test {
protected:
    UserSettingFile()
    {
        fs::create_directory(kDirectory);
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

TEST_F(UserSettingFile, GoodFileIsReadOnceAndItsLayerStatesAreCleared)
{
    Image states(kGoodFile);
    for (size_t n = 0; n < 96; ++n) {
        states.u8(kProgramAt + 16 + 26 * n + 1, {0xFF}).u8(kPreviewAt + 16 + 26 * n + 1, {0xEE});
    }
    expectLoads({
        {"good", kGoodFile, "", kGood, loaded(kGoodFile)},
        {"states", states.bytes, "", kGood, loaded(states.bytes), Bytes(kUserSettingSize, '\x77')},
        {"defaults", kDefaults, "", kGood, kDefaults},
    });
}

// A number that no view has is taken as it is.
TEST_F(UserSettingFile, CurrentViewIsTakenFromTheRecord)
{
    for (const uint32_t view : {0u, 15u, 16u, 255u}) {
        const Bytes file = Image(kGoodFile).u8(3715, {view}).bytes;
        const Bytes bad = Image(file).u32(11828, {0}).bytes;
        expectLoads({{"view " + std::to_string(view), file, "", kGood, loaded(file)},
                     {"in a bad file", bad, "", kBad, reset(bad)}});
    }
}

// A mode of 1 is mirrored; another one is off in memory, and the file and the mirror stay.
TEST_F(UserSettingFile, UserModeOtherThan1IsRewrittenTo0OnLoad)
{
    for (const uint32_t mode : {0u, 1u, 2u, 0x101u, 0x01000000u, 0x80000001u}) {
        for (const uint32_t mirror : {0u, 1u, 7u}) {
            const Bytes file = Image(kGoodFile).u32(1720, {mode}).u8(3712, {mirror}).bytes;
            expectLoads({{"mode " + std::to_string(mode), file, "", kGood, loaded(file)}});
        }
    }
    const Bytes bad = Image(kGoodFile).u32(0, {0}).u32(1720, {1}).bytes;
    expectLoads({{"on in a bad file", bad, "", kBad, reset(bad)}});
    EXPECT_EQ(GetUserSetting()->userMode, 0u);
    EXPECT_EQ(GetUserSetting()->userModeMirror, 0);
}

TEST_F(UserSettingFile, MissingOrEmptyFileIsTheDefaultsOfAFirstStart)
{
    ASSERT_EQ(kDefaults.size(), kUserSettingSize);
    expectLoads({{"missing", {}, kMissing + kMissing, kBad, kDefaults},
                 {"empty", "", "", kBad, kDefaults}});
}

TEST_F(UserSettingFile, FileWithOneWrongBitInAnIdentificationIsReset)
{
    for (uint32_t bit = 0; bit < 32; ++bit) {
        for (const size_t at : {size_t{0}, size_t{11828}}) {
            put(kPath, bitFlipped(kGoodFile, at, bit));
            EXPECT_EQ(outcomeOf(loadUserSetting, 0), Outcome(0, kReset + kSave))
                << at << ", bit " << bit;
        }
    }
}

// What is in memory is judged, zero at first. So is the last byte, and a file without it is good.
TEST_F(UserSettingFile, ShortFileIsJudgedTogetherWithWhatIsInMemory)
{
    for (const size_t length : {1u, 3u, 4u, 3812u, 11828u, 11830u}) {
        const Bytes file = kGoodFile.substr(0, length);
        expectLoads({{std::to_string(length) + " bytes", file, "", kBad, reset(file)}});
    }
    const Bytes half = kGoodFile.substr(0, 5000);
    const Bytes other = goodFile(2);
    expectLoads({
        {"11831 bytes", kGoodFile.substr(0, 11831), "", kGood, loaded(kGoodFile)},
        {"short over another", half, "", kGood, loaded(half + other.substr(5000)), other},
        {"none over a good record", {}, kMissing, kGood, loaded(other), other},
    });
}

TEST_F(UserSettingFile, LongFileIsItsFirst11832BytesAndOverrunsNothing)
{
    const Bytes late = kGoodFile.substr(0, 11828) + "...." + Bytes("\x56\x34\x12\0", 4);
    const auto said = [](size_t size) { return tooLong("save0.sav", size, 11832); };
    const Bytes after = loaded(kGoodFile);
    expectLoads({
        {"one byte more", kGoodFile + '\xFF', said(11833), kGood, after},
        {"8000 more", kGoodFile + Bytes(8000, '\xFF'), said(19832), kGood, after},
        {"identification after the record", late, said(11836) + said(11836), kBad, reset(late)},
    });
}

TEST_F(UserSettingFile, FileThatIsGoodAtTheSecondReadingIsTaken)
{
    const Bytes bad = Image(kGoodFile).u32(11828, {0}).bytes;
    const Bytes good = goodFile(3);
    expectLoads({
        {"missing at first", {}, kMissing, kGoodAtTheSecondReading, loaded(good), kNone, good},
        {"bad at first", bad, "", kGoodAtTheSecondReading, loaded(good), kNone, good},
    });
}

TEST_F(UserSettingFile, DefaultsThatCannotBeSavedStandInAllTheSame)
{
    fs::remove(kDirectory);
    _userMode = 1;
    EXPECT_EQ(outcomeOf(loadUserSetting, 0),
              Outcome(0, kMissing + kMissing + kReset + kSave + notSaved("save0.sav")));
    expectRecordAndCopy(kDefaults, kDefaults);
    EXPECT_EQ(_userMode, 0);
    EXPECT_FALSE(fs::exists(kDirectory));
}

TEST_F(UserSettingFile, ReadingReturnsTheLengthOfTheFileAndJudgesNothing)
{
    const Bytes before = goodFile(2);
    fill(GetUserSetting(), before);
    EXPECT_EQ(outcomeOf(ReadUserSetting, 0), Outcome(0, kMissing));
    expectRecordAndCopy(before, kNone);
    put(kPath, "abcdefg");
    EXPECT_EQ(outcomeOf(ReadUserSetting, 0), Outcome(7, ""));
    expectRecordAndCopy(with(before, 0, "abcdefg"), kNone);
    put(kPath, goodFile(3) + "!");
    EXPECT_EQ(outcomeOf(ReadUserSetting, 0), Outcome(11833, tooLong("save0.sav", 11833, 11832)));
    expectRecordAndCopy(goodFile(3), kNone);
}

// The file may be there or not, and longer.
TEST_F(UserSettingFile, OnlySavingMakesTheCopyEqual)
{
    const Bytes record = ownBytes(kUserSettingSize, 4);
    fill(GetUserSetting(), record);
    put(kPath, kGoodFile + "longer");
    EXPECT_EQ(outcomeOf(WriteUserSetting, 0), Outcome(1, kSave));
    EXPECT_TRUE(areBytes(contentOf(kPath), record));
    expectRecordAndCopy(record, kNone);
    EXPECT_EQ(outcomeOf(UserSettingSaveTo, 3), Outcome(1, "save save3.sav\n"));
    EXPECT_TRUE(areBytes(contentOf("/userdata/save3.sav"), record));
    expectRecordAndCopy(record, record);
    EXPECT_EQ(journal, (Journal{"write save0.sav 11832", "write save3.sav 11832"}));
}

TEST_F(UserSettingFile, SavingThatFailsMakesTheCopyEqualAllTheSame)
{
    const Bytes record = ownBytes(kUserSettingSize, 6);
    const Outcome failure(0, kSave + notSaved("save0.sav"));
    fill(GetUserSetting(), record);
    fs::create_directory(kPath); // in the way of the file
    EXPECT_EQ(outcomeOf(WriteUserSetting, 0), failure);
    EXPECT_TRUE(areBytes(copyBytes(), kNone));
    EXPECT_EQ(outcomeOf(UserSettingSaveTo, 0), failure);
    EXPECT_TRUE(areBytes(copyBytes(), record));
    fs::remove_all(kDirectory);
    EXPECT_EQ(outcomeOf(UserSettingSaveTo, 0), failure);
}

// Any number is a slot.
TEST_F(UserSettingFile, SlotsAreFilesOfTheirOwn)
{
    const std::map<int32_t, std::string> slots = {{0, "save0.sav"},
                                                  {15, "save15.sav"},
                                                  {16, "save16.sav"},
                                                  {-1, "save-1.sav"},
                                                  {INT32_MAX, "save2147483647.sav"},
                                                  {INT32_MIN, "save-2147483648.sav"}};
    const auto content = [](int32_t slot) { return goodFile(static_cast<uint32_t>(slot)); };
    Files files;
    for (const auto &[slot, file] : slots) {
        const std::string missing = notOpened(file);
        const std::string save = "save " + file + '\n';
        fill(GetUserSetting(), kNone);
        EXPECT_EQ(outcomeOf(loadUserSetting, slot), Outcome(0, missing + missing + kReset + save));
        EXPECT_TRUE(areBytes(contentOf("/userdata/" + file), kDefaults)) << file;
        fill(GetUserSetting(), content(slot));
        EXPECT_EQ(outcomeOf(WriteUserSetting, slot), Outcome(1, save));
        files[file] = content(slot);
        EXPECT_TRUE(filesIn() == files) << file;
    }
    for (const auto &[slot, file] : slots) {
        for (int32_t (*const load)(int32_t) : {loadUserSetting, loadUserSettingNoSave}) {
            fill(GetUserSetting(), kNone);
            EXPECT_EQ(outcomeOf(load, slot), Outcome(1, ""));
            EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), loaded(content(slot)))) << file;
        }
        EXPECT_EQ(outcomeOf(ReadUserSetting, slot), Outcome(11832, ""));
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), content(slot))) << file;
    }
}

} // namespace
