// The settings files of the daemon: kept over restarts, written once for a burst of changes, left
// usable by a sudden end, and what bad ones do to its start.

#include "tests/support/soak.h"
#include "tests/system/stored_state.h"

#include <cerrno>
#include <csignal>
#include <random>
#include <sys/mount.h>
#include <thread>

namespace fs = std::filesystem;

namespace {

constexpr char kDhcpConfiguration[] = "/etc/dhcpcd.conf";

// The records that the commands of these cases do not change. The daemon saves them when it finds
// them missing.
const Lines kOthersMissing = kWorkTimeMissing + kUserSettingMissing;

// Each case starts the daemon when the files are as it wants them.
class SystemSettings : public Board {
protected:
    // In the place of one that is killed.
    void start(const Lines &says)
    {
        daemon.emplace();
        ASSERT_TRUE(daemon->starts());
        EXPECT_EQ(linesOfLoading(*daemon), says);
    }

    void expectSerialNumber(uint8_t high, uint8_t low)
    {
        expectAnswer({0, 0, 0x6A, 0x11, 0, 0, 0}, {0, 0, 0x6A, 0x11, high, low, 0});
    }

    void expectDefaultNetwork()
    {
        expectAnswer({0, 0, 0x85, 0, 0, 0, 0}, {0, 0, 0x85, 255, 255, 255, 0});
        expectAnswer({0, 0, 0x8D, 0, 0, 0, 0}, {0, 0, 0x8D, 192, 168, 0, 1});
        expectAnswer({0, 0, 0x8E, 3, 0, 0, 0}, {0, 0, 0x8E, 3, 1, 0, 0});
    }

    // It runs, whatever became of the settings, and has nothing more to say.
    void expectLife()
    {
        Board::expectLife();
        EXPECT_TRUE(daemon->prints("read device type"));
        daemon->forgetLines();
    }

    std::optional<Daemon> daemon;
};

} // namespace

TEST_F(SystemSettings, KeepTheSerialNumberAndThenTheDhcpFlagOverRestarts)
{
    start(kUserPrefMissing + kDeviceInfoMissing + kOthersMissing);
    expectSerialNumber(0, 0);
    EXPECT_FALSE(fs::exists(pathOf(kDeviceInfo)));
    expectAnswer({0, 0, 0x6A, 0x10, 0x12, 0x34, 0x56});
    EXPECT_EQ(contentOf(pathOf(kDeviceInfo)),
              hex("5c 36 cd 4b 34 12 00 00 00 00 00 00 00 32 00 00 00 00 00 00"));
    start(kUserPrefMissing);
    expectSerialNumber(0x12, 0x34);
    EXPECT_FALSE(fs::exists(pathOf(kUserPref)));
    expectAnswer({0, 0, 0x8E, 2, 0, 0, 0});
    start({});
    expectSerialNumber(0x12, 0x34);
    expectAnswer({0, 0, 0x8E, 3, 0, 0, 0});
}

// Saved once -------------------------------------------------------------------------------------

namespace {

class SystemSettingsWrites : public SystemSettings {
protected:
    // Starts the daemon and has it read the interface.
    void SetUp() override
    {
        daemon.emplace();
        ASSERT_TRUE(daemon->starts());
        expectAnswer({0, 0, 0x89, 0, 0, 0, 0}, {0, 0, 0x89, 192, 168, 0, 100});
    }

    // Three settings of the front board in a row are saved and then applied, once.
    void changeNetwork()
    {
        Watch watch({kDirectory, "/etc"});
        const Frame mask = {0, 1, 0x84, 255, 255, 0, 0};
        const Frame gateway = {0, 2, 0x8C, 10, 1, 0, 1};
        const Frame address = {0, 3, 0x88, 10, 1, 2, 3};
        expectAnswer(command(mask) + command(gateway) + command(address),
                     reply(mask) + reply(gateway) + reply(address));
        EXPECT_EQ(watch.filesWritten(2), (Lines{"UserPref.sav", "dhcpcd.conf"}));
    }

    const std::string delivered = contentOf(kDhcpConfiguration);
};

} // namespace

TEST_F(SystemSettingsWrites, AreOneForThreeChangesInARow)
{
    put(kDhcpConfiguration, "interface eth0\n");
    SetUp(); // which now finds DHCP off
    changeNetwork();
    EXPECT_EQ(contentOf(pathOf(kUserPref)), hex("38 76 24 06 00 00 d0 07 01 00"        // DHCP off
                                                " 0a 01 02 03 0a 01 00 01 ff ff 00 00" // addresses
                                                " c0 a8 00 01 c2 19 02 82" // name servers
                                                " 02 76 65 73 6b 01"       // MAC address
                                                " 00 00 00 00 00 00 00 01 02 03 04 05 06" //
                                                " 07 01 32 00 00 00 00"));
    EXPECT_EQ(contentOf(kDhcpConfiguration), "interface eth0\n"
                                             "static ip_address=10.1.2.3/16\n"
                                             "static routers=10.1.0.1\n"
                                             "static domain_name_servers=192.168.0.1\n");
}

TEST_F(SystemSettingsWrites, PutTheDhcpConfigurationBackOnceWhileDhcpIsOn)
{
    EXPECT_EQ(contentOf("/etc/dhcpcd.conf.dhcp"), delivered);
    put(kDhcpConfiguration, "# changed\n");
    changeNetwork();
    EXPECT_EQ(contentOf(kDhcpConfiguration), delivered);
}

TEST_F(SystemSettingsWrites, FollowAChangeOfTheDhcpFlagAtOnceAndOnceMore)
{
    Watch watch({kDirectory, "/etc"});
    expectAnswer({0, 0, 0x8E, 2, 0, 0, 0});
    EXPECT_EQ(contentOf(pathOf(kUserPref)).substr(8, 2), hex("01 00"));
    expectAnswer({0, 0, 0x8E, 2, 0, 0, 0}); // no change
    EXPECT_EQ(watch.filesWritten(3), (Lines{"UserPref.sav", "UserPref.sav", "dhcpcd.conf"}));
    EXPECT_EQ(contentOf(kDhcpConfiguration).substr(0, 15), "interface eth0\n");
}

// A sudden end -----------------------------------------------------------------------------------

namespace {

// What commands tell of the two files.
struct Settings {
    int serialNumber = 0; // DevInfo.sav
    int dhcp = 1;         // UserPref.sav
    int mask = 255;       // UserPref.sav: the third number of the net mask
    bool operator==(const Settings &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Settings &settings)
{
    return out << "serial number " << settings.serialNumber << ", DHCP " << settings.dhcp
               << ", mask 255.255." << settings.mask << ".0";
}

// A stream of changes: of the mask, which only goes into the file with a later save, and then in
// turns of the serial number and the DHCP flag, each saved at once.
class Stream {
public:
    static constexpr int kCommands = 41;

    Stream(const Settings &inFiles, int freshMask, int freshSerialNumber)
        : atStart(inFiles), mask(freshMask), serialNumber(freshSerialNumber)
    {
    }

    std::string commands() const
    {
        const auto low = [](int number) { return static_cast<uint8_t>(number); };
        std::string text = command({0, 0, 0x84, 255, 255, low(mask), 0});
        for (int i = 1; i < kCommands; ++i) {
            const Settings now = after(i + 1);
            const uint8_t high = low(now.serialNumber >> 8);
            text += changesSerialNumber(i)
                        ? command({0, 0, 0x6A, 0x10, high, low(now.serialNumber), 0})
                        : command({0, 0, 0x8E, 2, low(now.dhcp), 0, 0});
        }
        return text;
    }

    // Whether the files may hold this when the daemon was killed after its `answered`th answer at
    // the earliest: they are those after one of the commands.
    bool canEndIn(const Settings &found, int answered) const
    {
        for (int done = answered; done <= kCommands; ++done) {
            if (found == after(done)) {
                return true;
            }
        }
        return false;
    }

private:
    static bool changesSerialNumber(int number)
    {
        return number % 2 == 1;
    }

    // What the files hold after so many commands.
    Settings after(int commands) const
    {
        Settings settings = atStart;
        for (int i = 1; i < commands; ++i) {
            if (changesSerialNumber(i)) {
                settings.serialNumber = serialNumber + i;
            } else {
                settings.dhcp = 1 - settings.dhcp;
                settings.mask = mask;
            }
        }
        return settings;
    }

    Settings atStart;
    int mask;
    int serialNumber;
};

Settings askForSettings(FrontBoard &front)
{
    front.write(command({0, 0, 0x6A, 0x11, 0, 0, 0}) + command({0, 0, 0x8E, 3, 0, 0, 0}) +
                command({0, 0, 0x85, 0, 0, 0, 0}));
    const std::string replies = front.read(57);
    EXPECT_EQ(replies.size(), 57u) << replies;
    // Of the mask the rest is 255.255.x.0, kept or reset.
    EXPECT_EQ(replies.substr(38, 12), "<F000085ffff") << replies;
    const auto number = [&](size_t at, size_t digits) {
        return std::stoi("0" + replies.substr(at, digits), nullptr, 16);
    };
    return {number(10, 4), number(19 + 10, 2), number(38 + 12, 2)};
}

} // namespace

// No record is lost, and none is in between. The line is a new one after each end, so that no
// commands are left on it.
TEST(SystemSettingsFiles, AreOldOrNewAfterASuddenEnd)
{
    SoakRun run(20);
    std::mt19937 random(run.seed);
    std::uniform_int_distribution<int> someAnswers(0, Stream::kCommands - 1);
    std::uniform_int_distribution<int> someMicroseconds(0, 300);

    Settings before;
    std::optional<Stream> stream;
    int answers = 0;
    while (run.goesOn()) {
        FrontBoard line;
        Daemon daemon;
        ASSERT_TRUE(daemon.starts()) << "round " << run.rounds;
        const Settings found = askForSettings(line);
        ASSERT_TRUE(stream ? stream->canEndIn(found, answers) : found == before)
            << "round " << run.rounds << ", " << answers << " answers or more: " << found
            << "; before: " << before;
        before = found;
        const auto fresh = static_cast<int>(run.rounds % 200);
        stream.emplace(before, fresh, fresh * Stream::kCommands);
        line.write(stream->commands());
        answers = someAnswers(random);
        const auto length = static_cast<size_t>(answers) * 19;
        ASSERT_EQ(line.read(length).size(), length);
        std::this_thread::sleep_for(std::chrono::microseconds(someMicroseconds(random)));
        daemon.signal(SIGKILL);
        ASSERT_TRUE(daemon.waitForEnd());
    }
    std::cout << run.rounds << " kills" << std::endl;
}

// Bad files --------------------------------------------------------------------------------------

TEST_F(SystemSettings, OfABadRecordAreTheDefaultsOrItsBeginning)
{
    const Bytes foreignUserPref = hex("ef be ad de 05 07") + Bytes(50, '\x5A');
    const Bytes goodUserPref =
        hex("38 76 24 06 00 00 d0 07 01 00 0a 01 02 03 0a 01 00 01 ff ff 7f 00") +
        Bytes(34, '\x5A');
    putAll({{kUserPref, foreignUserPref}}); // which stays as it is
    start(Lines{"UserPref ID = 0xdeadbeef\r", "reset userPref\r"} + kDeviceInfoMissing +
          kOthersMissing);
    expectLife();
    expectDefaultNetwork();
    expectAnswer({0, 0, 0x8E, 5, 0, 0, 0}, {0, 0, 0x8E, 5, 0x5A, 0x5A, 0x5A});
    EXPECT_EQ(contentOf(pathOf(kUserPref)), foreignUserPref);

    putAll({{kUserPref, goodUserPref + Bytes(100'000, '\xFF')}}); // which the next save cuts
    start(Lines{"read file UserPref.sav size error: fileSize=100056, readSize=56\r"} +
          kDeviceInfoMissing + kOthersMissing);
    expectAnswer({0, 0, 0x85, 0, 0, 0, 0}, {0, 0, 0x85, 255, 255, 127, 0});
    expectAnswer({0, 0, 0x8D, 0, 0, 0, 0}, {0, 0, 0x8D, 10, 1, 0, 1});
    expectSerialNumber(0, 0);
    expectAnswer({0, 0, 0x8E, 2, 1, 0, 0});
    EXPECT_EQ(contentOf(pathOf(kUserPref)),
              goodUserPref.substr(0, 9) + '\1' + goodUserPref.substr(10));
}

TEST_F(SystemSettings, AreInMemoryOnlyWhereUserdataIsAFile)
{
    put("/userdata", "no directory");
    start(kUserPrefMissing + kDeviceInfoMissing + kWorkTimeMissing +
          Lines{"open file /userdata/workTime.sav error", "open file workTime.sav fail\r"} +
          kUserSettingMissing +
          Lines{"open file /userdata/save0.sav error", "open file save0.sav fail\r"});
    expectLife();
    expectDefaultNetwork();
    expectAnswer({0, 0, 0x6A, 0x10, 0x12, 0x34, 0});
    EXPECT_TRUE(daemon->prints("open file DevInfo.sav fail\r"));
    EXPECT_EQ(daemon->lines(),
              (Lines{"open file /userdata/DevInfo.sav error", "open file DevInfo.sav fail\r"}));
    expectSerialNumber(0x12, 0x34);
    EXPECT_EQ(contentOf("/userdata"), "no directory");
}

// The loss shows at the next start only: a file that was not completed is not there.
TEST_F(SystemSettings, AreLostSilentlyOnAFullDisk)
{
    fs::create_directory("/userdata");
    ASSERT_EQ(mount("tmpfs", "/userdata", "tmpfs", 0, "size=4096"), 0) << std::strerror(errno);
    put("/userdata/full", std::string(4096, 'x'));
    start(kUserPrefMissing + kDeviceInfoMissing + kOthersMissing);
    expectLife();
    expectAnswer({0, 0, 0x6A, 0x10, 0x12, 0x34, 0});
    expectSerialNumber(0x12, 0x34);
    EXPECT_EQ(daemon->lines(), Lines{});
    daemon.reset();
    EXPECT_EQ(filesIn().size(), 1u);
    start(kUserPrefMissing + kDeviceInfoMissing + kOthersMissing);
    expectSerialNumber(0, 0);
}

// What is there needs no more room.
TEST_F(SystemSettings, AreReplacedOnAFullDisk)
{
    fs::create_directory("/userdata");
    ASSERT_EQ(mount("tmpfs", "/userdata", "tmpfs", 0, "size=32768"), 0) << std::strerror(errno);
    for (const auto &[name, content] : kUsed) {
        put(pathOf(name), content);
    }
    put("/userdata/full", std::string(8192, 'x'));
    ASSERT_EQ(fs::space("/userdata").available, 0u);
    start({});
    expectAnswer({0, 0, 0x6A, 0x10, 0xAB, 0xCD, 0});
    daemon.reset();
    start({});
    expectSerialNumber(0xAB, 0xCD);
}
