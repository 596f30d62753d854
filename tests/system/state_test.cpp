// The stored state as a whole at the start of the daemon: what a first start makes, that a later
// one writes nothing, and what becomes of files that are damaged or foreign.

#include "tests/system/stored_state.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <iterator>
#include <optional>
#include <ostream>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace {

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

Bytes flipped(Bytes bytes, size_t offset)
{
    bytes.at(offset) = static_cast<char>(bytes.at(offset) ^ 0x10);
    return bytes;
}

void makeDirectory(const std::string &path)
{
    fs::remove(path);
    fs::create_directory(path);
}

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
