// The stored state as a whole at the start of the daemon: what a first start makes, that a later
// one writes nothing, and what becomes of files that are damaged, foreign or senseless. The
// expected files are those of tests/data/first-start/.
//
// VESK_SOAK_SECONDS in the environment of this program says for how long the daemon is started on
// senseless files (10), VESK_SOAK_SEED which files they are (always the same if not given).

#include "tests/system/board.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "command/board_format.h"
#include "control/control.h"
#include "control/page.h"
#include "control/scene.h"
#include "storage/TimeControl.h"
#include "storage/UserPref.h"
#include "storage/UserSetting.h"
#include "storage/UserSettingFile.h"
#include "storage/UserSettingQuery.h"
#include "storage/UserSettingReset.h"
#include "storage/ViewFile.h"
#include "storage/ViewReset.h"
#include "tests/fakes/console.h"
#include "video/FormatClass.h"
#include "video/VideoFormatTable.h"

namespace fs = std::filesystem;

namespace {

using Bytes = std::string;
using Lines = std::vector<std::string>;
using Files = std::map<std::string, Bytes>; // by name in the settings directory

constexpr char kUserPref[] = "UserPref.sav";
constexpr char kDeviceInfo[] = "DevInfo.sav";
constexpr char kWorkTime[] = "workTime.sav";
constexpr char kUserSetting[] = "save0.sav";

constexpr size_t kUserPrefSize = 56;
constexpr size_t kDeviceInfoSize = 20;
constexpr size_t kWorkTimeSize = 24;
constexpr size_t kUserSettingSize = 11832;
constexpr size_t kViewSize = 3996;
constexpr size_t kPageSize = 63936;

const Lines kUserPrefMissing = {"open file /userdata/UserPref.sav error", "UserPref ID = 0x0\r",
                                "reset userPref\r"};
const Lines kDeviceInfoMissing = {"open file /userdata/DevInfo.sav error", "Device ID = 0x0\r",
                                  "reset Device info\r"};
const Lines kWorkTimeMissing = {"open file /userdata/workTime.sav error"};
const Lines kUserSettingReset = {"reset user save\r", "save save0.sav"};
const Lines kUserSettingMissing = {"open file /userdata/save0.sav error",
                                   "open file /userdata/save0.sav error", "reset user save\r",
                                   "save save0.sav"};

Lines operator+(Lines first, const Lines &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Bytes hex(const std::string &text)
{
    Bytes bytes;
    std::istringstream pairs(text);
    for (std::string pair; pairs >> pair;) {
        bytes += static_cast<char>(std::stoi(pair, nullptr, 16));
    }
    return bytes;
}

std::string pathOf(const std::string &name)
{
    return "/userdata/" + name;
}

void put(const std::string &path, const Bytes &content)
{
    std::ofstream(path, std::ios::binary) << content;
}

Bytes contentOf(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Bytes with(Bytes bytes, size_t offset, const Bytes &others)
{
    return bytes.replace(offset, others.size(), others);
}

Bytes flipped(Bytes bytes, size_t offset)
{
    bytes.at(offset) = static_cast<char>(bytes.at(offset) ^ 0x10);
    return bytes;
}

// The first `size` bytes of a record in memory that was zero, once this content has been read.
Bytes taken(const Bytes &content, size_t size)
{
    Bytes bytes = content.substr(0, size);
    bytes.resize(size, '\0');
    return bytes;
}

uint32_t wordAt(const Bytes &bytes, size_t offset)
{
    uint32_t word = 0;
    for (size_t i = 4; i-- > 0;) {
        word = word << 8 | static_cast<uint8_t>(bytes.at(offset + i));
    }
    return word;
}

// The expected files.
Bytes firstStart(const char *name)
{
    const Bytes content = contentOf(std::string(FIRST_START_FILES "/") + name);
    EXPECT_FALSE(content.empty()) << FIRST_START_FILES "/" << name;
    return content;
}

// The user setting record as a reset leaves it that began with these bytes in memory. Of the
// preview nothing of its own is left: it becomes a copy of the program view.
Bytes userSettingResetFrom(const Bytes &before)
{
    constexpr size_t kPreview = 3812;
    constexpr size_t kProgram = 7808;
    Bytes bytes = firstStart("save0-over-a5.sav"); // A5: left alone
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] == '\xA5') {
            const bool isInPreview = i >= kPreview && i < kProgram;
            bytes[i] = before.at(isInPreview ? i + kViewSize : i);
        }
    }
    return bytes;
}

// A device that has been in use: good records, most of whose bytes are no defaults.
const Bytes kUsedUserPref =
    hex("38 76 24 06 01 00 d0 07 01 00 0a 01 02 03 0a 01 00 01 ff ff 00 00") +
    patternedBytes(kUserPrefSize - 22);
const Bytes kUsedDeviceInfo = hex("5c 36 cd 4b 34 12 00 00 a8 a9 aa ab 00 32 00 00 b0 b1 b2 b3");
const Bytes kUsedWorkTime = hex("00 00 00 00 11 12 13 14 21 22 23 24 31 32 33 34 41 42 43 44"
                                " 21 03 15 20");
const Bytes kUsedUserSetting =
    with(with(patternedBytes(kUserSettingSize), 0, hex("5c 36 21 20")), 11828, hex("56 34 12 00"));
const Files kUsed = {{kUserPref, kUsedUserPref},
                     {kDeviceInfo, kUsedDeviceInfo},
                     {kWorkTime, kUsedWorkTime},
                     {kUserSetting, kUsedUserSetting}};

void putAll(const Files &files)
{
    fs::remove_all("/userdata");
    fs::create_directory("/userdata");
    for (const auto &[name, content] : files) {
        put(pathOf(name), content);
    }
}

Files allFiles()
{
    Files files;
    for (const auto &entry : fs::directory_iterator("/userdata")) {
        files[entry.path().filename()] = contentOf(entry.path());
    }
    return files;
}

// Names with sizes, which say more in a message than the files.
std::map<std::string, size_t> sizesOf(const Files &files)
{
    std::map<std::string, size_t> sizes;
    for (const auto &[name, content] : files) {
        sizes[name] = content.size();
    }
    return sizes;
}

void expectFiles(const Files &expected)
{
    const Files found = allFiles();
    EXPECT_EQ(sizesOf(found), sizesOf(expected));
    for (const auto &[name, content] : expected) {
        const auto it = found.find(name);
        if (it == found.end() || it->second == content) {
            continue;
        }
        const auto ends =
            std::mismatch(content.begin(), content.end(), it->second.begin(), it->second.end());
        ADD_FAILURE() << name << " differs from offset " << ends.first - content.begin() << " on";
    }
}

// What shows that a file has been written, even with the same content, or replaced.
struct Trace {
    ino_t inode;
    timespec modified;
    timespec changed;
    bool operator==(const Trace &other) const
    {
        const auto alike = [](const timespec &one, const timespec &two) {
            return one.tv_sec == two.tv_sec && one.tv_nsec == two.tv_nsec;
        };
        return inode == other.inode && alike(modified, other.modified) &&
               alike(changed, other.changed);
    }
};

std::ostream &operator<<(std::ostream &out, const Trace &trace)
{
    return out << "inode " << trace.inode << " of " << trace.modified.tv_sec << '.'
               << trace.modified.tv_nsec;
}

std::map<std::string, Trace> tracesOf(const std::string &directory)
{
    std::map<std::string, Trace> traces;
    for (const auto &entry : fs::recursive_directory_iterator(directory)) {
        struct stat status {};
        EXPECT_EQ(lstat(entry.path().c_str(), &status), 0);
        traces[entry.path()] = {status.st_ino, status.st_mtim, status.st_ctim};
    }
    return traces;
}

// What happens in the settings directory, which must be there, in order: "open NAME", "write NAME"
// (closed by one who could write), or "other NAME" for anything but reading and writing. Of events
// that are alike and follow each other the kernel makes one.
class Watch {
public:
    Watch() : queue(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
    {
        EXPECT_GE(inotify_add_watch(queue.get(), "/userdata",
                                    IN_OPEN | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB | IN_CREATE |
                                        IN_DELETE | IN_MOVE),
                  0);
    }

    // So far; the kernel notes an event before the call returns that causes it.
    Lines events()
    {
        Lines all;
        alignas(inotify_event) char events[4096];
        ssize_t length = 0;
        while ((length = read(queue.get(), events, sizeof events)) > 0) {
            ssize_t at = 0;
            while (at < length) {
                inotify_event event;
                std::memcpy(&event, events + at, sizeof event);
                at += static_cast<ssize_t>(sizeof event);
                const std::string name = event.len > 0 ? events + at : "/userdata";
                all.push_back(kindOf(event.mask) + name);
                at += event.len;
            }
        }
        return all;
    }

private:
    static std::string kindOf(uint32_t mask)
    {
        if ((mask & IN_OPEN) != 0) {
            return "open ";
        }
        return (mask & IN_CLOSE_WRITE) != 0 ? "write " : "other ";
    }

    Descriptor queue;
};

// All that a daemon that has started says behind the opening of its line and before "enter main".
Lines linesOfLoading(Daemon &daemon)
{
    Lines lines = daemon.lines();
    lines.erase(std::remove(lines.begin(), lines.end(), "uart_receive_fun 0"), lines.end());
    const auto opened =
        std::find(lines.begin(), lines.end(), "==kel UARTInit DEV_NAME[0]:/dev/ttyS0");
    if (opened == lines.end() || lines.back() != "enter main") {
        ADD_FAILURE() << "not the lines of a start";
        return lines;
    }
    return {opened + 1, lines.end() - 1};
}

// Each case starts the daemon when the files are as it wants them.
class SystemState : public testing::Test {
protected:
    // A start, an answer, and an end by force. `says` is everything about the stored state.
    void startAndEnd(const Lines &says)
    {
        Daemon daemon;
        ASSERT_TRUE(daemon.starts());
        EXPECT_EQ(linesOfLoading(daemon), says);
        expectLife();
        end(daemon);
    }

    void expectLife()
    {
        front.write(command({0, 0, 0x68, 1, 0, 0, 0}));
        EXPECT_EQ(front.read(19), reply({0, 0, 0x68, 1, 0x26, 0x33, 0}));
    }

    void expectSerialNumber(uint8_t high, uint8_t low)
    {
        front.write(command({0, 0, 0x6A, 0x11, 0, 0, 0}));
        EXPECT_EQ(front.read(19), reply({0, 0, 0x6A, 0x11, high, low, 0}));
    }

    static void end(Daemon &daemon)
    {
        ASSERT_TRUE(daemon.isRunning());
        daemon.signal(SIGKILL);
        const std::optional<int> status = daemon.waitForEnd();
        ASSERT_TRUE(status);
        EXPECT_TRUE(WIFSIGNALED(*status) && WTERMSIG(*status) == SIGKILL) << *status;
        EXPECT_EQ(daemon.errors(), "");
    }

    FrontBoard front;
};

} // namespace

// First and later starts -------------------------------------------------------------------------

TEST_F(SystemState, OfAFirstStartIsTheWorkTimeAndTheUserSettingOfADeviceFromTheFactory)
{
    ASSERT_FALSE(fs::exists("/userdata"));
    startAndEnd(kUserPrefMissing + kDeviceInfoMissing + kWorkTimeMissing + kUserSettingMissing);
    EXPECT_EQ(sizesOf(allFiles()),
              (std::map<std::string, size_t>{{"save0.sav", 11832}, {"workTime.sav", 24}}));
    expectFiles({{kUserSetting, firstStart("save0.sav")}, {kWorkTime, firstStart("workTime.sav")}});
    EXPECT_EQ(contentOf(pathOf(kWorkTime)), Bytes(20, '\0') + hex("21 03 15 20"));
}

TEST_F(SystemState, OfAFirstStartIsWrittenOnceFileByFile)
{
    fs::create_directory("/userdata");
    Watch watch;
    startAndEnd(kUserPrefMissing + kDeviceInfoMissing + kWorkTimeMissing + kUserSettingMissing);
    const Lines events = watch.events();
    Lines writing;
    std::copy_if(events.begin(), events.end(), std::back_inserter(writing),
                 [](const std::string &event) { return event.starts_with("write "); });
    EXPECT_EQ(writing, (Lines{"write workTime.sav", "write save0.sav"}));
}

TEST_F(SystemState, OfAFirstStartIsTakenByTheSecondWithoutAWrite)
{
    startAndEnd(kUserPrefMissing + kDeviceInfoMissing + kWorkTimeMissing + kUserSettingMissing);
    const auto before = tracesOf("/userdata");
    Watch watch;
    startAndEnd(kUserPrefMissing + kDeviceInfoMissing);
    EXPECT_EQ(watch.events(), (Lines{"open workTime.sav", "open save0.sav"}));
    EXPECT_EQ(tracesOf("/userdata"), before);
    expectFiles({{kUserSetting, firstStart("save0.sav")}, {kWorkTime, firstStart("workTime.sav")}});
}

TEST_F(SystemState, OfAUsedDeviceIsTakenSilentlyAndWithoutAWrite)
{
    putAll(kUsed);
    const auto before = tracesOf("/userdata");
    for (int start = 0; start < 3; ++start) {
        Watch watch;
        startAndEnd({});
        EXPECT_EQ(watch.events(), (Lines{"open UserPref.sav", "open DevInfo.sav",
                                         "open workTime.sav", "open save0.sav"}));
    }
    EXPECT_EQ(tracesOf("/userdata"), before);
    expectFiles(kUsed);
}

// Views, pages and the time control are nobody's business at a start, good or not.
TEST_F(SystemState, BeyondTheFourRecordsIsLeftAloneAtAStart)
{
    Files files = kUsed;
    files["timeCon0.sav"] = "short";
    files["view0.sav"] = Bytes(kViewSize, '\xFF');
    files["view15.sav"] = "";
    files["page0_0.sav"] = Bytes(70000, 'x');
    files["page15_1.sav"] = patternedBytes(kPageSize);
    files["save1.sav"] = "another slot";
    putAll(files);
    Watch watch;
    startAndEnd({});
    EXPECT_EQ(watch.events(), (Lines{"open UserPref.sav", "open DevInfo.sav", "open workTime.sav",
                                     "open save0.sav"}));
    expectFiles(files);
}

// What a start changes in the record in memory it does not store.
TEST_F(SystemState, OfAnotherUserModeViewOrLayerStaysInItsFile)
{
    constexpr size_t kUserMode = 1720;
    constexpr size_t kUserModeMirror = 3712;
    constexpr size_t kCurrentView = 3715;
    constexpr size_t kLayers = 7808 + 16;
    const Bytes factory = firstStart("save0.sav");
    Bytes layersOn = factory;
    for (size_t layer = 0; layer < 96; ++layer) {
        layersOn.at(kLayers + 26 * layer + 1) = static_cast<char>(1 + layer);
    }
    const Bytes variants[] = {
        layersOn,
        with(factory, kUserMode, hex("01 00 00 00")),
        with(with(factory, kUserMode, hex("01 00 00 00")), kUserModeMirror, hex("01")),
        with(factory, kUserMode, hex("02 00 00 00")),
        with(with(factory, kUserMode, hex("02 00 00 00")), kUserModeMirror, hex("07")),
        with(factory, kUserMode, hex("01 00 00 01")),
        with(factory, kUserMode, hex("ff ff ff ff")),
        with(factory, kCurrentView, hex("0f")),
        with(factory, kCurrentView, hex("ff")),
        with(Bytes(kUserSettingSize, '\xFF'), 0, hex("5c 36 21 20"))
            .replace(11828, 4, hex("56 34 12 00")),
        with(Bytes(kUserSettingSize, '\0'), 0, hex("5c 36 21 20"))
            .replace(11828, 4, hex("56 34 12 00")),
    };
    for (const Bytes &variant : variants) {
        Files files = kUsed;
        files[kUserSetting] = variant;
        putAll(files);
        const auto before = tracesOf("/userdata");
        startAndEnd({});
        EXPECT_EQ(tracesOf("/userdata"), before);
        expectFiles(files);
    }
}

TEST_F(SystemState, OfTwoBoardsCanBeExchanged)
{
    const auto use = [this](uint8_t high, uint8_t low) {
        fs::remove_all("/userdata");
        Daemon daemon;
        ASSERT_TRUE(daemon.starts());
        front.write(command({0, 0, 0x6A, 0x10, high, low, 0}));
        EXPECT_EQ(front.read(19), reply({0, 0, 0x6A, 0x10, high, low, 0}));
        front.write(command({0, 0, 0x8E, 2, 0, 0, 0})); // saves the preferences
        EXPECT_EQ(front.read(19), reply({0, 0, 0x8E, 2, 0, 0, 0}));
        end(daemon);
    };
    use(0x12, 0x34);
    const Files one = allFiles();
    use(0xAB, 0xCD);
    const Files other = allFiles();
    ASSERT_EQ(sizesOf(one), (std::map<std::string, size_t>{{"DevInfo.sav", 20},
                                                           {"UserPref.sav", 56},
                                                           {"save0.sav", 11832},
                                                           {"workTime.sav", 24}}));
    ASSERT_EQ(sizesOf(other), sizesOf(one));

    putAll(one);
    const auto before = tracesOf("/userdata");
    {
        Daemon daemon;
        ASSERT_TRUE(daemon.starts());
        EXPECT_EQ(linesOfLoading(daemon), Lines{});
        expectSerialNumber(0x12, 0x34);
        end(daemon);
    }
    EXPECT_EQ(tracesOf("/userdata"), before);
    expectFiles(one);
    putAll(other);
    {
        Daemon daemon;
        ASSERT_TRUE(daemon.starts());
        EXPECT_EQ(linesOfLoading(daemon), Lines{});
        expectSerialNumber(0xAB, 0xCD);
        end(daemon);
    }
    expectFiles(other);
}

TEST_F(SystemState, OfTheWorkTimeListIsPutBackToItsBaseAndSaved)
{
    Files files = kUsed;
    files[kWorkTime] = with(kUsedWorkTime, 0, hex("05 00 00 00"));
    putAll(files);
    startAndEnd({});
    expectFiles(kUsed); // but for the first word as it was
}

// Damaged files ----------------------------------------------------------------------------------

namespace {

// What becomes of a file.
using Damage = std::function<void(const std::string &path)>;

Damage content(Bytes bytes)
{
    return [bytes = std::move(bytes)](const std::string &path) { put(path, bytes); };
}

Damage linkTo(const char *target)
{
    return [target](const std::string &path) {
        fs::remove(path);
        fs::create_symlink(target, path);
    };
}

void takeAway(const std::string &path)
{
    fs::remove(path);
}

void makeDirectory(const std::string &path)
{
    fs::remove(path);
    fs::create_directory(path);
}

const Bytes kFactoryWorkTime = Bytes(20, '\0') + hex("21 03 15 20");

class SystemDamage : public SystemState {
protected:
    // What a start says of one damaged file of a used device, and what that file becomes (if not
    // given: it stays as it was made).
    void expect(const char *name, const Damage &damage, const Lines &says,
                const std::optional<Bytes> &becomes = {})
    {
        SCOPED_TRACE(name);
        putAll(kUsed);
        const std::string path = pathOf(name);
        damage(path);
        auto before = tracesOf("/userdata");
        startAndEnd(says);

        auto after = tracesOf("/userdata");
        if (becomes) {
            EXPECT_TRUE(contentOf(path) == *becomes)
                << contentOf(path).size() << " bytes instead of " << becomes->size();
            before.erase(path);
            after.erase(path);
        }
        EXPECT_EQ(after, before) << "of files that nobody had a reason to write";
    }
};

} // namespace

TEST_F(SystemDamage, ByAMissingFileCostsItsRecordOnly)
{
    expect(kUserPref, takeAway, kUserPrefMissing);
    EXPECT_FALSE(fs::exists(pathOf(kUserPref)));
    expect(kDeviceInfo, takeAway, kDeviceInfoMissing);
    EXPECT_FALSE(fs::exists(pathOf(kDeviceInfo)));
    expect(kWorkTime, takeAway, kWorkTimeMissing, firstStart("workTime.sav"));
    expect(kUserSetting, takeAway, kUserSettingMissing, firstStart("save0.sav"));
}

TEST_F(SystemDamage, ByAnEmptyFileCostsItsRecordOnly)
{
    expect(kUserPref, content(""), {"UserPref ID = 0x0\r", "reset userPref\r"});
    expect(kDeviceInfo, content(""), {"Device ID = 0x0\r", "reset Device info\r"});
    expect(kWorkTime, content(""), {}, kFactoryWorkTime);
    expect(kUserSetting, content(""), kUserSettingReset, firstStart("save0.sav"));
}

TEST_F(SystemDamage, ByAFileThatEndsBeforeItsIdentificationCostsItsRecord)
{
    expect(kUserPref, content(kUsedUserPref.substr(0, 3)),
           {"UserPref ID = 0x247638\r", "reset userPref\r"});
    for (const size_t length : {1u, 3u}) {
        expect(
            kDeviceInfo, content(kUsedDeviceInfo.substr(0, length)),
            {length == 1 ? "Device ID = 0x5c\r" : "Device ID = 0xcd365c\r", "reset Device info\r"});
    }
    for (const size_t length : {4u, 12u, 13u}) { // 13: the lower half of 3200 is zero
        expect(kDeviceInfo, content(kUsedDeviceInfo.substr(0, length)),
               {"Device ID = 0x4bcd365c\r", "reset Device info\r"});
    }
    for (const size_t length : {1u, 20u, 23u}) {
        expect(kWorkTime, content(kUsedWorkTime.substr(0, length)), {}, kFactoryWorkTime);
    }
    for (const size_t length : {3u, 4u, 3812u, 11828u, 11830u}) {
        const Bytes bytes = kUsedUserSetting.substr(0, length);
        expect(kUserSetting, content(bytes), kUserSettingReset,
               userSettingResetFrom(taken(bytes, kUserSettingSize)));
    }
}

// Zeros stand for what a short file does not bring: the last byte of one identification is one.
TEST_F(SystemDamage, ByAFileThatEndsBehindItsIdentificationGoesUnnoticed)
{
    expect(kUserPref, content(kUsedUserPref.substr(0, 4)), {});
    expect(kUserPref, content(kUsedUserPref.substr(0, 55)), {});
    expect(kDeviceInfo, content(kUsedDeviceInfo.substr(0, 14)), {});
    expect(kDeviceInfo, content(kUsedDeviceInfo.substr(0, 19)), {});
    expect(kUserSetting, content(kUsedUserSetting.substr(0, 11831)), {});
}

TEST_F(SystemDamage, OfOneByteOfAnIdentificationCostsItsRecord)
{
    const char *const ids[] = {"UserPref ID = 0x6247628\r", "UserPref ID = 0x6246638\r",
                               "UserPref ID = 0x6347638\r", "UserPref ID = 0x16247638\r"};
    for (size_t i = 0; i < 4; ++i) {
        expect(kUserPref, content(flipped(kUsedUserPref, i)), {ids[i], "reset userPref\r"});
    }
    const char *const deviceIds[] = {"Device ID = 0x4bcd364c\r", "Device ID = 0x4bcd265c\r",
                                     "Device ID = 0x4bdd365c\r", "Device ID = 0x5bcd365c\r"};
    for (size_t i = 0; i < 4; ++i) {
        expect(kDeviceInfo, content(flipped(kUsedDeviceInfo, i)),
               {deviceIds[i], "reset Device info\r"});
        expect(kDeviceInfo, content(flipped(kUsedDeviceInfo, 12 + i)),
               {"Device ID = 0x4bcd365c\r", "reset Device info\r"});
        expect(kWorkTime, content(flipped(kUsedWorkTime, 20 + i)), {}, kFactoryWorkTime);
        for (const size_t at : {i, 11828 + i}) {
            const Bytes bytes = flipped(kUsedUserSetting, at);
            expect(kUserSetting, content(bytes), kUserSettingReset, userSettingResetFrom(bytes));
        }
    }
}

// The bytes that a reset does not name are taken along from the bad file.
TEST_F(SystemDamage, OfTheWholeUserSettingKeepsTheBytesThatNobodyKnows)
{
    const Bytes foreign(kUserSettingSize, '\xA5');
    expect(kUserSetting, content(foreign), kUserSettingReset, firstStart("save0-over-a5.sav"));
}

TEST_F(SystemDamage, ByMoreBytesBehindARecordIsSaidAndLeft)
{
    const Bytes more(50000, '\xFF');
    expect(kUserPref, content(kUsedUserPref + more),
           {"read file UserPref.sav size error: fileSize=50056, readSize=56\r"});
    expect(kDeviceInfo, content(kUsedDeviceInfo + more),
           {"read file DevInfo.sav size error: fileSize=50020, readSize=20\r"});
    expect(kWorkTime, content(kUsedWorkTime + more),
           {"read file workTime.sav size error: fileSize=50024, readSize=24\r"});
    expect(kUserSetting, content(kUsedUserSetting + more),
           {"read file save0.sav size error: fileSize=61832, readSize=11832\r"});
    expect(kUserSetting, content(kUsedUserSetting + '.'),
           {"read file save0.sav size error: fileSize=11833, readSize=11832\r"});
}

TEST_F(SystemDamage, ByMoreBytesBehindABadRecordIsSaidAtEveryReading)
{
    const Bytes foreign(20000, '\xFF');
    expect(kUserPref, content(foreign),
           {"read file UserPref.sav size error: fileSize=20000, readSize=56\r",
            "UserPref ID = 0xffffffff\r", "reset userPref\r"});
    expect(kDeviceInfo, content(foreign),
           {"read file DevInfo.sav size error: fileSize=20000, readSize=20\r",
            "Device ID = 0xffffffff\r", "reset Device info\r"});
    expect(kWorkTime, content(foreign),
           {"read file workTime.sav size error: fileSize=20000, readSize=24\r"}, kFactoryWorkTime);
    expect(kUserSetting, content(foreign),
           Lines{"read file save0.sav size error: fileSize=20000, readSize=11832\r",
                 "read file save0.sav size error: fileSize=20000, readSize=11832\r"} +
               kUserSettingReset,
           userSettingResetFrom(taken(foreign, kUserSettingSize)));
}

namespace {

// What a reading says of a directory: some file systems give one a length.
Lines readingOfADirectory(const std::string &name)
{
    fs::create_directories("/userdata/probe");
    const Descriptor probe(open("/userdata/probe", O_RDONLY | O_CLOEXEC));
    const off_t end = lseek(probe.get(), 0, SEEK_END);
    fs::remove("/userdata/probe");
    const auto length = static_cast<int32_t>(end); // as it is printed
    if (end < 0 || length == 0) {
        return {};
    }
    return {"read file " + name + " size error: fileSize=" + std::to_string(length) +
            ", readSize=0\r"};
}

} // namespace

TEST_F(SystemDamage, ByADirectoryInThePlaceOfAFileCostsItsRecordAndCannotBeMended)
{
    expect(kUserPref, makeDirectory,
           readingOfADirectory(kUserPref) + Lines{"UserPref ID = 0x0\r", "reset userPref\r"});
    expect(kDeviceInfo, makeDirectory,
           readingOfADirectory(kDeviceInfo) + Lines{"Device ID = 0x0\r", "reset Device info\r"});
    expect(kWorkTime, makeDirectory,
           readingOfADirectory(kWorkTime) +
               Lines{"open file /userdata/workTime.sav error", "open file workTime.sav fail\r"});
    expect(kUserSetting, makeDirectory,
           readingOfADirectory(kUserSetting) + readingOfADirectory(kUserSetting) +
               kUserSettingReset +
               Lines{"open file /userdata/save0.sav error", "open file save0.sav fail\r"});
}

// Nothing to read, and room for everything or for nothing: both go unnoticed.
TEST_F(SystemDamage, ByALinkToADeviceCostsItsRecord)
{
    for (const char *const device : {"/dev/null", "/dev/full"}) {
        SCOPED_TRACE(device);
        expect(kUserPref, linkTo(device), {"UserPref ID = 0x0\r", "reset userPref\r"});
        expect(kDeviceInfo, linkTo(device), {"Device ID = 0x0\r", "reset Device info\r"});
        expect(kWorkTime, linkTo(device), {});
        expect(kUserSetting, linkTo(device), kUserSettingReset);
    }
}

TEST_F(SystemDamage, ByALinkToNowhereCostsItsRecordAndASaveMakesTheFileThere)
{
    expect(kUserPref, linkTo("/tmp/made"), kUserPrefMissing);
    expect(kDeviceInfo, linkTo("/tmp/made"), kDeviceInfoMissing);
    EXPECT_FALSE(fs::exists("/tmp/made"));
    expect(kWorkTime, linkTo("/tmp/made"), kWorkTimeMissing);
    EXPECT_EQ(contentOf("/tmp/made"), kFactoryWorkTime);
    fs::remove("/tmp/made");
    expect(kUserSetting, linkTo("/tmp/made"), kUserSettingMissing);
    EXPECT_TRUE(contentOf("/tmp/made") == firstStart("save0.sav"));
}

TEST_F(SystemDamage, ByALinkThatNoSaveCanFollowCostsItsRecordAndCannotBeMended)
{
    for (const char *const target : {"/nowhere/made", "workTime.sav", "save0.sav"}) {
        SCOPED_TRACE(target); // the last two: in a circle
        if (std::strcmp(target, kUserSetting) != 0) {
            expect(kWorkTime, linkTo(target),
                   kWorkTimeMissing + Lines{"open file /userdata/workTime.sav error",
                                            "open file workTime.sav fail\r"});
        }
        if (std::strcmp(target, kWorkTime) != 0) {
            expect(kUserSetting, linkTo(target),
                   kUserSettingMissing +
                       Lines{"open file /userdata/save0.sav error", "open file save0.sav fail\r"});
        }
    }
    EXPECT_FALSE(fs::exists("/nowhere"));
}

// Senseless files --------------------------------------------------------------------------------

namespace {

uint32_t environmentNumber(const char *name, uint32_t otherwise)
{
    const char *const text = std::getenv(name);
    return text == nullptr ? otherwise : static_cast<uint32_t>(std::strtoul(text, nullptr, 0));
}

// Files for a start: good ones, damaged ones and noise.
class Senseless {
public:
    explicit Senseless(uint32_t seed) : random(seed)
    {
        good = kUsed;
        good["timeCon0.sav"] = with(patternedBytes(152), 0, hex("ad 04 11 20"));
        const Bytes view = with(patternedBytes(kViewSize), 3992, hex("79 56 21 29"));
        Bytes page;
        for (int i = 0; i < 16; ++i) {
            page += view;
        }
        for (int i = 0; i < 16; ++i) {
            good["view" + std::to_string(i) + ".sav"] = view;
            good["page" + std::to_string(i) + "_0.sav"] = page;
        }
        good["page0_1.sav"] = page;
    }

    Files next()
    {
        Files files;
        for (const auto &[name, bytes] : good) {
            const bool isRead = kUsed.count(name) != 0;
            switch (below(isRead ? 8 : 40)) { // of the others, few are enough
            case 0:
                files[name] = noise();
                break;
            case 1:
                files[name] = isRead && below(2) == 0 ? firstStart("save0.sav") : bytes;
                break;
            case 2:
            case 3:
                files[name] = mutated(bytes);
                break;
            case 4:
            case 5:
                if (isRead) {
                    files[name] = hostile(name, bytes);
                }
                break;
            case 6:
                if (isRead) {
                    files[name] = bytes;
                }
                break;
            default:
                break; // not there
            }
        }
        return files;
    }

private:
    size_t below(size_t limit)
    {
        return std::uniform_int_distribution<size_t>(0, limit - 1)(random);
    }

    char byte()
    {
        return static_cast<char>(random() >> 13);
    }

    Bytes noise()
    {
        const size_t limits[] = {8, 60, 200, 12000, 70001};
        Bytes bytes(below(limits[below(std::size(limits))]), byte());
        if (below(4) != 0) { // else the same byte everywhere
            std::generate(bytes.begin(), bytes.end(), [this] { return byte(); });
        }
        return bytes;
    }

    Bytes mutated(Bytes bytes)
    {
        for (size_t changes = 1 + below(4); changes > 0; --changes) {
            const size_t at = below(bytes.size() + 1);
            switch (below(5)) {
            case 0:
                bytes.resize(at);
                break;
            case 1:
                bytes.insert(at, noise().substr(0, 1000));
                break;
            case 2:
                bytes.erase(at, below(40));
                break;
            case 3:
                bytes += noise();
                break;
            default:
                for (size_t i = at; i < bytes.size() && i < at + 8; ++i) {
                    bytes[i] = byte();
                }
                break;
            }
        }
        bytes.resize(std::min<size_t>(bytes.size(), 70000));
        return bytes;
    }

    // Recognised as good, but with extreme values.
    Bytes hostile(const std::string &name, const Bytes &bytes)
    {
        Bytes result = bytes;
        const char extremes[] = {'\0', '\x01', '\x7C', '\x7D', '\x7E', '\x7F', '\x80', '\xFF'};
        for (size_t changes = 1 + below(2000); changes > 0; --changes) {
            result[below(result.size())] = extremes[below(std::size(extremes))];
        }
        if (name == kUserSetting) {
            result[2413] = below(2) == 0 ? '\x7D' : byte(); // the external input's format
            result[3712] = byte();                          // user mode mirror
            result[3715] = byte();                          // current view
            result = with(result, 11828, bytes.substr(11828));
        }
        if (name == kDeviceInfo) {
            result = with(result, 12, bytes.substr(12, 4));
        }
        if (name == kWorkTime) {
            return with(result, 20, bytes.substr(20));
        }
        return with(result, 0, bytes.substr(0, 4));
    }

    std::mt19937 random;
    Files good;
};

// What a start says and leaves of these files: by their identifications alone.
class Start {
public:
    explicit Start(const Files &files) : left(files)
    {
        const Bytes preferences = read(kUserPref, kUserPrefSize);
        if (wordAt(preferences, 0) != 0x06247638) {
            sayId("UserPref", preferences);
            says.emplace_back("reset userPref\r");
        }
        const Bytes device = read(kDeviceInfo, kDeviceInfoSize);
        if (wordAt(device, 0) != 0x4BCD365C || wordAt(device, 12) != 0x3200) {
            sayId("Device", device);
            says.emplace_back("reset Device info\r");
        }
        const Bytes workTime = read(kWorkTime, kWorkTimeSize);
        if (wordAt(workTime, 20) != 0x20150321) {
            left[kWorkTime] = kFactoryWorkTime;
        } else if (wordAt(workTime, 0) != 0) {
            left[kWorkTime] = with(workTime, 0, Bytes(4, '\0'));
        }
        const Bytes setting = read(kUserSetting, kUserSettingSize);
        if (wordAt(setting, 0) != 0x2021365C || wordAt(setting, 11828) != 0x00123456) {
            read(kUserSetting, kUserSettingSize); // the second attempt
            says.insert(says.end(), kUserSettingReset.begin(), kUserSettingReset.end());
            left[kUserSetting] = userSettingResetFrom(setting);
        }
    }

    Lines says;
    Files left;

private:
    Bytes read(const std::string &name, size_t size)
    {
        const auto file = left.find(name);
        if (file == left.end()) {
            says.push_back("open file /userdata/" + name + " error");
            return Bytes(size, '\0');
        }
        if (file->second.size() > size) {
            says.push_back("read file " + name +
                           " size error: fileSize=" + std::to_string(file->second.size()) +
                           ", readSize=" + std::to_string(size) + '\r');
        }
        return taken(file->second, size);
    }

    void sayId(const char *record, const Bytes &bytes)
    {
        std::ostringstream line;
        line << record << " ID = 0x" << std::hex << wordAt(bytes, 0) << '\r';
        says.push_back(line.str());
    }
};

} // namespace

TEST_F(SystemState, OfSenselessFilesIsWhatTheirIdentificationsSay)
{
    const uint32_t seconds = environmentNumber("VESK_SOAK_SECONDS", 10);
    const uint32_t seed = environmentNumber("VESK_SOAK_SEED", 20250321);
    std::cout << "VESK_SOAK_SECONDS=" << seconds << " VESK_SOAK_SEED=" << seed << std::endl;
    Senseless senseless(seed);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    int round = 0;
    std::map<std::string, int> resets; // rounds with this message
    do {
        SCOPED_TRACE("round " + std::to_string(round));
        const Files files = senseless.next();
        const Start start(files);
        putAll(files);
        startAndEnd(start.says);
        expectFiles(start.left);
        ASSERT_FALSE(HasFailure());
        for (const char *const message :
             {"reset userPref\r", "reset Device info\r", "reset user save\r"}) {
            resets[message] +=
                static_cast<int>(std::count(start.says.begin(), start.says.end(), message));
        }
        ++round;
    } while (std::chrono::steady_clock::now() < end || round < 20);
    std::cout << round << " starts" << std::endl;
    // Of each kind there were both.
    EXPECT_EQ(resets.size(), 3u);
    for (const auto &[message, count] : resets) {
        EXPECT_GT(count, 0) << message;
        EXPECT_LT(count, round) << message;
    }
}

namespace {

// Numbers for whoever takes one: those at the edges of every range, and others.
uint32_t someNumber(std::mt19937 &random)
{
    constexpr uint32_t kEdges[] = {0,   1,   5,   6,   15,  16,  17,   23,         24,         25,
                                   26,  95,  96,  123, 124, 125, 126,  127,        128,        255,
                                   256, 381, 495, 496, 500, 512, 1023, 0x7FFFFFFF, 0x80000000, ~0u};
    const auto number = static_cast<uint32_t>(random());
    return number % 4 == 0 ? number : kEdges[number / 4 % std::size(kEdges)];
}

// Everything that works on the stored state and that no command reaches yet.
const std::function<void(uint32_t number)> kOperations[] = {
    // Queries.
    [](uint32_t n) { GetLayerInputPort(n), GetLayerAlpha(n), GetLayerAlphaPos(n); },
    [](uint32_t n) { GetPreviewLayer(n), GetPreviewLayerAlpha(n), GetPreviewLayerAlphaPos(n); },
    [](uint32_t n) { getOutputPortWidth(n), getOutputPortHeight(n), getOutputMatrix(n); },
    [](uint32_t) { GetOutHActive(), GetOutVActive(), GetOutMaxWidth(), GetOutMaxHeight(); },
    [](uint32_t) { GetUserSetting_old(), GetViewSetting(), GetCurrentView(), isFactoryReset(); },
    // Formats.
    [](uint32_t n) { GetHDEByVideoFormat(n), GetVDEByVideoFormat(n), GetVDEByVideoFormat2(n); },
    [](uint32_t n) { GetHTotalByVideoFormat(n), GetVTotalByVideoFormat(n); },
    [](uint32_t n) { GetHStartByVideoFormat(n), GetVStartByVideoFormat(n); },
    [](uint32_t n) { GetHSyncWidthByVideoFormat(n), GetVSyncWidthByVideoFormat(n); },
    [](uint32_t n) { GetHSyncPolarityByVideoFormat(n), GetVSyncPolarityByVideoFormat(n); },
    [](uint32_t n) { GetVFreqByVideoFormat(n), GetDlckByVideoFormat(n), IsInterlaceFormat(n); },
    [](uint32_t n) { EXPECT_LT(std::strlen(GetStrByVideoFormat(n)), 100u) << n; },
    [](uint32_t n) { SetAllBoardFormat(n); },
    // Sections.
    [](uint32_t n) {
        ResetInputSetting(n, n >> 3), ResetPreInputSetting(n), ResetInputColorKey(n);
    },
    [](uint32_t n) { ResetOutputSetting(n, n >> 1), ResetContainerSetting(n); },
    [](uint32_t n) { ResetLayerSetting(n, n / 3), ResetContainerOtherSetting(n); },
    [](uint32_t n) { SetLayerAlpha(n, 1), SetPreviewLayerAlpha(n, 2), ResetContainerMsg(); },
    [](uint32_t) { ResetSaveViewSetting(), resetPreviewView(), ResetViewSetting(); },
    // Views and pages.
    [](uint32_t n) { LoadViewSetting(static_cast<int32_t>(n)); },
    [](uint32_t n) { SaveViewSetting(static_cast<int32_t>(n)); },
    [](uint32_t n) { SetCurrentView(n); },
    [](uint32_t n) { SaveView(static_cast<int32_t>(n)); },
    [](uint32_t) { SaveCurrentView(); },
    [](uint32_t n) { isEmptyScene(static_cast<uint8_t>(n)); },
    [](uint32_t n) { getNextNoEmptyScene(static_cast<uint8_t>(n)); },
    [](uint32_t n) { SaveToPage(static_cast<uint8_t>(n)); },
    [](uint32_t n) { LoadFromPage(static_cast<uint8_t>(n)); },
    [](uint32_t n) { HasSavePage(n), ClearPage(static_cast<uint8_t>(n)); },
    // The time control, the control task and the reload.
    [](uint32_t n) { loadTimeControl(static_cast<int32_t>(n)); },
    [](uint32_t) { TaskControl(); },
    [](uint32_t) { loadUserSettingNoSave(0); },
};

} // namespace

// In this process, with the sanitizers of this build.
TEST(SystemStateOperations, TakeWhateverIsStored)
{
    const uint32_t seed = environmentNumber("VESK_SOAK_SEED", 20250321);
    std::cout << "VESK_SOAK_SEED=" << seed << std::endl;
    Senseless senseless(seed);
    std::mt19937 random(seed);
    malloc_saveView();
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        Console console;
        putAll(senseless.next());
        // As in a process that has just been started.
        std::memset(GetUserSetting(), 0, sizeof(UserSetting));
        loadAllUserPref();
        GetUserSetting()->extInputFormat = static_cast<uint8_t>(round % 2 == 0 ? 125 : random());
        for (int i = 0; i < 300; ++i) {
            kOperations[random() % std::size(kOperations)](someNumber(random));
        }
        // Whatever has been done, this brings the known state back.
        const Bytes before(reinterpret_cast<const char *>(GetUserSetting()), kUserSettingSize);
        EXPECT_EQ(ResetFactory(), 1);
        console.end();
        EXPECT_EQ(console.err, "");
        EXPECT_TRUE(contentOf(pathOf(kUserSetting)) == userSettingResetFrom(before));
        EXPECT_EQ(contentOf(pathOf(kWorkTime)), kFactoryWorkTime);
        for (const auto &entry : fs::directory_iterator("/userdata")) {
            const std::string name = entry.path().filename();
            // Pages of other user modes stay, and so do those that are none of the sixteen.
            EXPECT_FALSE(name.starts_with("view")) << name;
        }
        for (int page = 0; page < 16; ++page) {
            EXPECT_FALSE(fs::exists(pathOf("page" + std::to_string(page) + "_0.sav"))) << page;
        }
        ASSERT_FALSE(HasFailure());
    }
}
