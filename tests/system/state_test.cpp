// The stored state as a whole at the start of the daemon: what a first start makes, that a later
// one writes nothing, and what becomes of files that are damaged or foreign.

#include "tests/system/stored_state.h"

#include <fcntl.h>

namespace fs = std::filesystem;

namespace {

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
            expectAnswer({0, 0, 0x6A, 0x10, h, l, 0});
            expectAnswer({0, 0, 0x8E, 2, 0, 0, 0}); // saves at once
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
        std::set<std::string> mended;
        for (const Damaged &file : files) {
            if (file.becomes) {
                EXPECT_TRUE(areBytes(contentOf(pathOf(file.name)), *file.becomes)) << file.name;
                mended.insert(file.name);
            }
        }
        EXPECT_EQ(written, mended);
    }
};

} // namespace

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
    EXPECT_EQ(entriesOf("/opt/scratch"), (std::set<std::string>{"setting", "time"}));
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
