// The stored state as a whole at the start of the daemon: what a first start makes, that a later
// one writes nothing, and what becomes of files that are damaged or foreign.

#include "tests/system/stored_state.h"

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <sys/inotify.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// What happens in the settings directory, which must be there, in order: "open NAME", "write NAME"
// (closed by one who could write, or made complete), or "other NAME" for anything but reading and
// writing. What happens to a file before it has a name is left out. Of events that are alike and
// follow each other the kernel makes one.
class Watch {
public:
    Watch() : queue(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
    {
        EXPECT_GE(inotify_add_watch(queue.get(), kDirectory,
                                    IN_OPEN | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB | IN_CREATE |
                                        IN_DELETE | IN_MOVE),
                  0);
    }

    // Since the last call; the kernel notes an event before the call returns that causes it.
    Lines events()
    {
        Lines all;
        alignas(inotify_event) char events[4096];
        ssize_t length = 0;
        while ((length = read(queue.get(), events, sizeof events)) > 0) {
            inotify_event event;
            for (ssize_t at = 0; at < length;
                 at += static_cast<ssize_t>(sizeof event + event.len)) {
                std::memcpy(&event, events + at, sizeof event);
                const std::string name = event.len > 0 ? events + at + sizeof event : kDirectory;
                if (name.starts_with('#') || (event.mask & IN_ISDIR) != 0) {
                    continue;
                }
                all.push_back(((event.mask & IN_OPEN) != 0                        ? "open "
                               : (event.mask & (IN_CLOSE_WRITE | IN_CREATE)) != 0 ? "write "
                                                                                  : "other ") +
                              name);
            }
        }
        return all;
    }

private:
    Descriptor queue;
};

const Lines kAllMissing =
    kUserPrefMissing + kDeviceInfoMissing + kWorkTimeMissing + kUserSettingMissing;
const Lines kAllOpened = {"open UserPref.sav", "open DevInfo.sav", "open workTime.sav",
                          "open save0.sav"};

} // namespace

// First and later starts -------------------------------------------------------------------------

TEST_F(SystemState, OfAFirstStartIsWrittenOnceAndTakenByTheSecondWithoutAWrite)
{
    const Files factory = {{kUserSetting, firstStart("save0.sav")}, {kWorkTime, kFactoryWorkTime}};
    ASSERT_EQ(factory.at(kWorkTime), firstStart("workTime.sav"));
    ASSERT_EQ(factory.at(kUserSetting).size(), 11832u);
    ASSERT_FALSE(fs::exists(kDirectory));
    startAndEnd(kAllMissing);
    expectFiles(factory);

    putAll({});
    Watch watch;
    startAndEnd(kAllMissing);
    Lines events = watch.events();
    std::erase_if(events, [](const auto &event) { return !event.starts_with("write "); });
    EXPECT_EQ(events, (Lines{"write workTime.sav", "write save0.sav"}));
    startAndEnd(kUserPrefMissing + kDeviceInfoMissing);
    EXPECT_EQ(watch.events(), (Lines{"open workTime.sav", "open save0.sav"}));
    expectFiles(factory);
}

// No start looks at views, pages and the time control, good or not.
TEST_F(SystemState, OfAUsedDeviceIsTakenSilentlyAndWithoutAWrite)
{
    Files more = kUsed;
    more["timeCon0.sav"] = "short";
    more["view0.sav"] = Bytes(kViewSize, '\xFF');
    more["view15.sav"] = "";
    more["page0_0.sav"] = Bytes(70000, 'x');
    more["page15_1.sav"] = patternedBytes(kPageSize);
    more["save1.sav"] = "another slot";
    for (const Files &files : {kUsed, more}) {
        SCOPED_TRACE(files.size());
        putAll(files);
        Watch watch;
        for (int start = 0; start < 2; ++start) {
            startAndEnd({});
            EXPECT_EQ(watch.events(), kAllOpened);
        }
        expectFiles(files);
    }
}

TEST_F(SystemState, OfTwoBoardsCanBeExchanged)
{
    const std::pair<uint8_t, uint8_t> serialNumbers[] = {{0x12, 0x34}, {0xAB, 0xCD}};
    std::vector<Files> states;
    for (const auto &[high, low] : serialNumbers) {
        fs::remove_all(kDirectory);
        startAndEnd(kAllMissing, [this, h = high, l = low] {
            expectAnswer({0, 0, 0x6A, 0x10, h, l, 0}, {0, 0, 0x6A, 0x10, h, l, 0});
            expectAnswer({0, 0, 0x8E, 2, 0, 0, 0}, {0, 0, 0x8E, 2, 0, 0, 0}); // saves at once
        });
        states.push_back(filesIn());
        EXPECT_EQ(states.back().size(), 4u);
        for (const auto &[name, content] : kUsed) {
            EXPECT_EQ(states.back()[name].size(), content.size()) << name;
        }
    }
    for (const size_t i : {0u, 1u}) {
        putAll(states[i]);
        Watch watch;
        startAndEnd({}, [&] {
            const auto [high, low] = serialNumbers[i];
            expectAnswer({0, 0, 0x6A, 0x11, 0, 0, 0}, {0, 0, 0x6A, 0x11, high, low, 0});
        });
        EXPECT_EQ(watch.events(), kAllOpened);
        expectFiles(states[i]);
    }
}

// Damaged and foreign files -----------------------------------------------------------------------

namespace {

// What becomes of a file.
using Damage = std::function<void(const std::string &path)>;

Damage content(const Bytes &bytes)
{
    return [bytes](const std::string &path) { put(path, bytes); };
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

// What a start says of a damaged file, and what that becomes (if not given: it stays as it is).
struct Damaged {
    const char *name;
    Damage damage;
    Lines says;
    std::optional<Bytes> becomes = {};
};
using AllDamaged = std::vector<Damaged>; // in the order in which they are read

const Lines kUserPrefIsZero = {"UserPref ID = 0x0\r", "reset userPref\r"};
const Lines kDeviceInfoIsZero = {"Device ID = 0x0\r", "reset Device info\r"};

Lines longFile(const std::string &name, int32_t size, size_t recordSize)
{
    return {"read file " + name + " size error: fileSize=" + std::to_string(size) +
            ", readSize=" + std::to_string(recordSize) + "\r"};
}

Lines unsaved(const std::string &name)
{
    return {"open file /userdata/" + name + " error", "open file " + name + " fail\r"};
}

Damaged userPref(const Bytes &bytes, const char *id)
{
    return {kUserPref, content(bytes), {std::string("UserPref ID = ") + id, "reset userPref\r"}};
}

Damaged deviceInfo(const Bytes &bytes, const char *id)
{
    return {kDeviceInfo, content(bytes), {std::string("Device ID = ") + id, "reset Device info\r"}};
}

Damaged workTime(const Bytes &bytes)
{
    return {kWorkTime, content(bytes), {}, kFactoryWorkTime};
}

Damaged userSetting(const Bytes &bytes)
{
    return {kUserSetting, content(bytes), kUserSettingReset,
            userSettingResetFrom(taken(bytes, kUserSettingSize))};
}

class SystemDamage : public SystemState {
protected:
    // One start of a used device of which these files are damaged.
    void expect(const AllDamaged &files)
    {
        putAll(kUsed);
        Lines says;
        for (const Damaged &file : files) {
            file.damage(pathOf(file.name));
            says = says + file.says;
        }
        Watch watch;
        startAndEnd(says);
        std::set<std::string> written;
        for (const std::string &event : watch.events()) {
            if (!event.starts_with("open ")) {
                written.insert(event.substr(6));
            }
        }
        for (const Damaged &file : files) {
            if (file.becomes) {
                EXPECT_TRUE(areBytes(contentOf(pathOf(file.name)), *file.becomes)) << file.name;
                EXPECT_EQ(written.erase(file.name), 1u) << file.name;
            }
        }
        EXPECT_EQ(written, std::set<std::string>{}) << "nobody had a reason to write";
    }
};

using SystemStateFile = SystemDamage;

} // namespace

// A start changes these in the record in memory, and does not store that.
TEST_F(SystemStateFile, WithAnotherUserModeViewOrLayerStaysAsItIs)
{
    const Bytes factory = firstStart("save0.sav");
    Bytes layersOn = factory;
    for (size_t layer = 0; layer < 96; ++layer) {
        layersOn.at(kProgramAt + 16 + 26 * layer + 1) = static_cast<char>(1 + layer);
    }
    const auto ofMode = [&](const char *word, const char *mirror) {
        return with(with(factory, 1720, hex(word)), 3712, hex(mirror));
    };
    const auto ofView = [&](const char *view) { return with(factory, 3715, hex(view)); };
    const auto filled = [](char byte) {
        return with(with(Bytes(kUserSettingSize, byte), 0, hex("5c 36 21 20")), 11828,
                    hex("56 34 12 00"));
    };
    const Bytes rows[] = {
        layersOn,
        ofMode("01 00 00 00", ""),
        ofMode("01 00 00 00", "01"),
        ofMode("02 00 00 00", ""),
        ofMode("02 00 00 00", "07"),
        ofMode("01 00 00 01", ""),
        ofMode("ff ff ff ff", ""),
        ofView("0f"),
        ofView("ff"),
        filled('\xFF'),
        filled('\0'),
    };
    for (const Bytes &row : rows) {
        SCOPED_TRACE(&row - rows);
        expect({{kUserSetting, content(row), {}}});
    }
}

TEST_F(SystemStateFile, OfWorkTimesIsPutBackToItsBaseAndSaved)
{
    const Bytes another = with(kUsedWorkTime, 0, hex("05 00 00 00"));
    expect({{kWorkTime, content(another), {}, kUsedWorkTime}});
}

TEST_F(SystemDamage, OfOneFileCostsItsRecordOnly)
{
    const AllDamaged rows = {
        {kUserPref, takeAway, kUserPrefMissing},
        {kDeviceInfo, takeAway, kDeviceInfoMissing},
        {kWorkTime, takeAway, kWorkTimeMissing, firstStart("workTime.sav")},
        {kUserSetting, takeAway, kUserSettingMissing, firstStart("save0.sav")},
        {kUserPref, content(""), kUserPrefIsZero},
        {kDeviceInfo, content(""), kDeviceInfoIsZero},
        {kWorkTime, content(""), {}, firstStart("workTime.sav")},
        {kUserSetting, content(""), kUserSettingReset, firstStart("save0.sav")},
    };
    for (const Damaged &row : rows) {
        SCOPED_TRACE(row.name);
        expect({row});
    }
}

TEST_F(SystemDamage, ByAFileThatEndsBeforeItsIdentificationCostsItsRecord)
{
    const auto device = [](size_t length, const char *id) {
        return deviceInfo(kUsedDeviceInfo.substr(0, length), id);
    };
    const auto time = [](size_t length) { return workTime(kUsedWorkTime.substr(0, length)); };
    const auto setting = [](size_t length) {
        return userSetting(kUsedUserSetting.substr(0, length));
    };
    const AllDamaged rows[] = {
        {userPref(kUsedUserPref.substr(0, 3), "0x247638\r"), device(1, "0x5c\r"), time(1),
         setting(3)},
        {device(3, "0xcd365c\r"), time(20), setting(4)},
        {device(4, "0x4bcd365c\r"), time(23), setting(3812)},
        {device(12, "0x4bcd365c\r"), setting(11828)},
        {device(13, "0x4bcd365c\r"), setting(11830)}, // the lower half of 3200 is zero
    };
    for (const AllDamaged &row : rows) {
        SCOPED_TRACE(&row - rows);
        expect(row);
    }
}

// Zeros stand for what a short file does not bring: the last byte of one identification is one.
TEST_F(SystemDamage, ByAFileThatEndsAfterItsIdentificationGoesUnnoticed)
{
    expect({{kUserPref, content(kUsedUserPref.substr(0, 4)), {}},
            {kDeviceInfo, content(kUsedDeviceInfo.substr(0, 14)), {}},
            {kUserSetting, content(kUsedUserSetting.substr(0, 11831)), {}}});
    expect({{kUserPref, content(kUsedUserPref.substr(0, 55)), {}},
            {kDeviceInfo, content(kUsedDeviceInfo.substr(0, 19)), {}}});
}

TEST_F(SystemDamage, OfOneByteOfAnIdentificationCostsItsRecord)
{
    const struct {
        const char *userPref, *deviceInfo;
    } ids[] = {{"0x6247628\r", "0x4bcd364c\r"},
               {"0x6246638\r", "0x4bcd265c\r"},
               {"0x6347638\r", "0x4bdd365c\r"},
               {"0x16247638\r", "0x5bcd365c\r"}};
    const auto flipped = [](const Bytes &bytes, size_t offset) {
        return bitFlipped(bytes, offset, 4);
    };
    for (size_t i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        expect({userPref(flipped(kUsedUserPref, i), ids[i].userPref),
                deviceInfo(flipped(kUsedDeviceInfo, i), ids[i].deviceInfo),
                workTime(flipped(kUsedWorkTime, 20 + i)),
                userSetting(flipped(kUsedUserSetting, i))});
        expect({deviceInfo(flipped(kUsedDeviceInfo, 12 + i), "0x4bcd365c\r"),
                userSetting(flipped(kUsedUserSetting, 11828 + i))});
    }
}

// The bytes that a reset does not name are taken along from the bad file.
TEST_F(SystemDamage, OfTheWholeUserSettingKeepsTheBytesThatNobodyKnows)
{
    expect({{kUserSetting, content(Bytes(kUserSettingSize, '\xA5')), kUserSettingReset,
             firstStart("save0-over-a5.sav")}});
}

TEST_F(SystemDamage, ByMoreBytesAfterARecordIsSaidAndLeft)
{
    const auto longer = [](const char *name, const Bytes &more) {
        const Bytes bytes = kUsed.at(name) + more;
        return Damaged{name, content(bytes),
                       longFile(name, static_cast<int32_t>(bytes.size()), kUsed.at(name).size())};
    };
    const Bytes more(50000, '\xFF');
    expect({longer(kUserPref, more), longer(kDeviceInfo, more), longer(kWorkTime, more),
            longer(kUserSetting, more)});
    expect({longer(kUserSetting, ".")});
}

TEST_F(SystemDamage, ByMoreBytesAfterABadRecordIsSaidAtEveryReading)
{
    const Bytes foreign(20000, '\xFF');
    const auto said = [](Damaged file, size_t recordSize) {
        file.says = longFile(file.name, 20000, recordSize) + file.says;
        return file;
    };
    expect({said(userPref(foreign, "0xffffffff\r"), 56),
            said(deviceInfo(foreign, "0xffffffff\r"), 20), said(workTime(foreign), 24),
            said(said(userSetting(foreign), 11832), 11832)});
}

TEST_F(SystemDamage, ByADirectoryInThePlaceOfAFileCostsItsRecordAndCannotBeMended)
{
    expect({{kUserPref, makeDirectory, kUserPrefMissing},
            {kDeviceInfo, makeDirectory, kDeviceInfoMissing},
            {kWorkTime, makeDirectory, kWorkTimeMissing + unsaved(kWorkTime)},
            {kUserSetting, makeDirectory, kUserSettingMissing + unsaved(kUserSetting)}});
}

TEST_F(SystemDamage, ByALinkToADeviceCostsItsRecordAndCannotBeMended)
{
    for (const char *const device : {"/dev/null", "/dev/zero"}) {
        SCOPED_TRACE(device);
        expect({{kUserPref, linkTo(device), kUserPrefMissing},
                {kDeviceInfo, linkTo(device), kDeviceInfoMissing},
                {kWorkTime, linkTo(device), kWorkTimeMissing + unsaved(kWorkTime)},
                {kUserSetting, linkTo(device), kUserSettingMissing + unsaved(kUserSetting)}});
    }
}

TEST_F(SystemDamage, ByALinkToNowhereCostsItsRecordAndASaveMakesTheFileThere)
{
    expect({{kUserPref, linkTo("/opt/scratch/preferences"), kUserPrefMissing},
            {kDeviceInfo, linkTo("/opt/scratch/device"), kDeviceInfoMissing},
            {kWorkTime, linkTo("/opt/scratch/time"), kWorkTimeMissing},
            {kUserSetting, linkTo("/opt/scratch/setting"), kUserSettingMissing}});
    EXPECT_FALSE(fs::exists("/opt/scratch/preferences"));
    EXPECT_FALSE(fs::exists("/opt/scratch/device"));
    EXPECT_EQ(contentOf("/opt/scratch/time"), kFactoryWorkTime);
    EXPECT_TRUE(areBytes(contentOf("/opt/scratch/setting"), firstStart("save0.sav")));
}

TEST_F(SystemDamage, ByALinkThatNoSaveCanFollowCostsItsRecordAndCannotBeMended)
{
    const char *const kTargets[][2] = {{"/nowhere/made", "/nowhere/made"},
                                       {"workTime.sav", "save0.sav"}}; // in a circle
    for (const auto &[first, second] : kTargets) {
        SCOPED_TRACE(first);
        expect({{kWorkTime, linkTo(first), kWorkTimeMissing + unsaved(kWorkTime)},
                {kUserSetting, linkTo(second), kUserSettingMissing + unsaved(kUserSetting)}});
    }
    EXPECT_FALSE(fs::exists("/nowhere"));
}
