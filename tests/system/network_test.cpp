// The network commands through the real daemon, with the board's own tools on its own interface and
// a real DHCP client reading the file that the daemon writes.

#include "tests/support/bytes.h"
#include "tests/support/files.h"
#include "tests/system/board.h"

#include <cstdlib>
#include <memory>
#include <thread>

namespace fs = std::filesystem;

namespace {

using Four = std::array<uint8_t, 4>;

constexpr char kConfiguration[] = "/etc/dhcpcd.conf";
constexpr char kCopy[] = "/etc/dhcpcd.conf.dhcp";
constexpr char kScript[] = "/etc/init.d/S50_Network_Conf.sh";
constexpr char kVendorDevice[] = "/dev/vendor_storage";
constexpr char kVendorDriver[] = "/opt/scratch/vendor_storage.so";
constexpr char kVendorLog[] = "/opt/scratch/vendor_storage.log";

// A command with address and tag that show in the reply.
std::string request(uint8_t code, const Four &data = {})
{
    return command({3, 7, code, data[0], data[1], data[2], data[3]});
}

std::string answer(uint8_t code, const Four &data)
{
    return reply({3, 7, code, data[0], data[1], data[2], data[3]});
}

// The daemon, which can be started anew as on a board that is switched off and on.
class Network : public Board {
protected:
    void SetUp() override
    {
        start();
    }

    void start(const Lines &environment = {})
    {
        daemon.reset();
        daemon = std::make_unique<Daemon>(Lines{}, std::initializer_list<int>{}, environment);
        ASSERT_TRUE(daemon->starts());
        expectAnswer(0x6A, {3, 0, 0, 0}, {3, 1, 10, 0}); // opens its channel, and says so
        news();
    }

    void expectAnswer(uint8_t code, const Four &data, const Four &expected)
    {
        Board::expectAnswer(request(code, data), answer(code, expected));
    }

    // A setting, which is answered with itself.
    void set(uint8_t code, const Four &data)
    {
        expectAnswer(code, data, data);
    }

    void expectNetwork(const Four &ip, const Four &mask, const Four &gateway)
    {
        expectAnswer(0x89, {}, ip);
        expectAnswer(0x85, {}, mask);
        expectAnswer(0x8D, {}, gateway);
    }

    void expectMac()
    {
        expectAnswer(0x8E, {5, 9, 9, 9}, {5, 0x02, 0x76, 0x65});
        expectAnswer(0x8E, {7, 9, 9, 9}, {7, 0x73, 0x6B, 0x01});
    }

    void expectConfiguration(const std::string &beginning)
    {
        const auto isThere = [&] { return contentOf(kConfiguration).starts_with(beginning); };
        EXPECT_TRUE(eventually(isThere)) << contentOf(kConfiguration);
    }

    // Switches to a static address and awaits the file. The name server is that of a new device's
    // preferences where the interface's has not been read.
    void setStaticAddress(const char *nameServer)
    {
        set(0x8E, {2, 0, 0, 0});
        set(0x84, {255, 255, 0, 0});
        set(0x8C, {192, 168, 0, 10});
        set(0x88, {192, 168, 7, 77});
        const std::string file = "interface eth0\n"
                                 "static ip_address=192.168.7.77/16\n"
                                 "static routers=192.168.0.10\n"
                                 "static domain_name_servers=" +
                                 std::string(nameServer) + '\n';
        expectConfiguration(file);
        EXPECT_EQ(contentOf(kConfiguration), file);
    }

    void setStaticAddressAfterReading()
    {
        expectAnswer(0x89, {}, {192, 168, 0, 100});
        setStaticAddress("192.168.0.1");
    }

    // Writes a network record, 18 bytes, and awaits the acknowledgement.
    void expectRecordTaken(const std::string &record)
    {
        front.write(request(0xF0, {0x20, 0x55, 19, 0}) + withChecksum(record));
        EXPECT_EQ(front.read(19, kSyncPatience), answer(0xF0, {0x20, 0x55, 19, 0}));
    }

    void expectRecordRead(const std::string &record)
    {
        front.write(request(0xF1, {0x20, 0x55, 0, 0}));
        EXPECT_EQ(front.read(38), answer(0xF1, {0x20, 0x55, 19, 0}) + withChecksum(record));
    }

    // All lines since the last call, with "[name:12]" as "[name]".
    Lines news()
    {
        Lines lines = daemon->lines();
        for (std::string &line : lines) {
            const size_t colon = line.find(':');
            const size_t end = line.find("] ");
            if (line.starts_with('[') && colon < end && end != std::string::npos) {
                line.erase(colon, end - colon);
            }
        }
        daemon->forgetLines();
        return lines;
    }

    const std::string delivered = contentOf(kConfiguration);
    std::unique_ptr<Daemon> daemon;
};

// The stand-in for the driver, built for the same processor as the tested daemon.
fs::path vendorStorage()
{
    return fs::path(testedDaemon()).parent_path() / "testbench/vendor_storage.so";
}

// The environment in which the daemon finds a driver behind /dev/vendor_storage.
Lines withVendorStorage()
{
    writeFile(kVendorDevice, "");
    // LD_PRELOAD takes a blank or a colon for the end of a path, and the checkout's may have one.
    fs::copy_file(vendorStorage(), kVendorDriver);
    const char *const options = std::getenv("ASAN_OPTIONS");
    // The sanitizer's runtime would insist on coming first.
    return {std::string("LD_PRELOAD=") + kVendorDriver,
            "ASAN_OPTIONS=" + std::string(options != nullptr ? options : "") +
                ":verify_asan_link_order=0"};
}

// The board's own address and so on, as it is set up.
const std::string kOwnMac = "\x02\x76\x65\x73\x6B\x01";
const std::string kOwnRecord =
    std::string("\xC0\xA8\x00\x64\xFF\xFF\xFF\x00\xC0\xA8\x00\x01", 12) + kOwnMac;

// 10.1.2.3, 255.255.0.0, 10.1.0.1
const std::string kNewRecord =
    std::string("\x0A\x01\x02\x03\xFF\xFF\x00\x00\x0A\x01\x00\x01", 12) + kOwnMac;

// What the daemon says while it takes that.
const Lines kConfigures = {"[Command_Config_Network] Will Config eth0",
                           "[Command_Config_Network] ip:10.1.2.3 netmask:255.255.0.0",
                           "[Command_Config_Network] route:10.1.0.1 mac:02.76.65.73.6b.01"};

// Programs of the board and of the host ----------------------------------------------------------

// Runs a command to its end; true when it succeeded.
bool run(const std::string &line)
{
    return std::system(line.c_str()) == 0;
}

// The network after a power cut, before anything has configured it, and then the DHCP client as the
// start-up runs it, but that it ends when it has configured the interface: with the file as it is,
// and without probing whether somebody else has the address, which takes five seconds.
bool bootNetwork()
{
    return run("ip address flush dev eth0 && exec timeout 60 dhcpcd -4 -1 -A eth0 2>&1");
}

// A DHCP server on the control PC, with one address to lease. It ends with the board.
bool startDhcpServer()
{
    const char *const log = "/opt/scratch/dnsmasq.log";
    return run("nsenter --net=/run/netns/pc dnsmasq --no-daemon --user=root --group=root"
               " --conf-file=/dev/null --port=0 --interface=eth0 --bind-interfaces --no-ping"
               " --dhcp-range=192.168.0.150,192.168.0.150,255.255.255.0,1h"
               " --dhcp-option=option:router,192.168.0.11"
               " --dhcp-option=option:dns-server,192.168.0.10"
               " --dhcp-leasefile=/opt/scratch/leases --log-facility=" +
               std::string(log) + " &") &&
           Board::eventually(
               [&] { return contentOf(log).find("sockets bound") != std::string::npos; });
}

// Why one of the host's programs cannot be run on the board; empty if all can. What needs them is
// skipped then, and scripts/test tells the reason.
std::string reasonToSkip(std::initializer_list<std::string> programs)
{
    for (const std::string &program : programs) {
        if (!run(program + " --version >/dev/null 2>&1")) {
            return program + " is not installed or does not run: scripts/install-packages test";
        }
    }
    return "";
}

} // namespace

// Reading ----------------------------------------------------------------------------------------

TEST_F(Network, ReadsTheAddressOfTheInterface)
{
    expectAnswer(0x89, {}, {192, 168, 0, 100});
    EXPECT_TRUE(daemon->prints("get dhcp = 1"));
    EXPECT_EQ(news(),
              (Lines{"len = 4", "eth0 name:eth0", "get mac = 2.76.65.73.6b.1",
                     "get ip = 192.168.0.100", "get mask = 255.255.255.0",
                     "get gateway = 192.168.0.1", "get dns = 192.168.0.1", "get dhcp = 1"}));
    expectAnswer(0x85, {}, {255, 255, 255, 0});
    expectAnswer(0x8D, {}, {192, 168, 0, 1});
    expectAnswer(0x8E, {3, 9, 9, 9}, {3, 1, 0, 0});
    expectMac();
    EXPECT_EQ(news(), Lines());
    EXPECT_EQ(contentOf(kCopy), contentOf(kConfiguration));
}

TEST_F(Network, FollowsTheInterfaceAndTakesTheLoopbacksValuesWhereItHasNone)
{
    const struct {
        const char *change;
        const char *name;
        Four ip, mask;
        const char *applied; // once DHCP is switched off: what was found is kept
    } rows[] = {
        // clang-format off
        {"true", "eth0", {192, 168, 0, 100}, {255, 255, 255, 0}, nullptr},
        {"ifconfig eth0 172.16.9.8 netmask 255.240.0.0 && ip route add default via 172.16.0.9",
         "eth0", {172, 16, 9, 8}, {255, 240, 0, 0}, nullptr},
        {"ip address flush dev eth0", // as while it waits for a lease
         "eth0", {127, 0, 0, 1}, {255, 0, 0, 0}, "interface eth0\nstatic ip_address=127.0.0.1/8\n"},
        {"ip link set eth0 down", "lo", {127, 0, 0, 1}, {255, 0, 0, 0}, "interface lo\n"},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.change);
        ASSERT_TRUE(run(row.change));
        const bool isFirst = &row == rows;
        expectNetwork(row.ip, row.mask, isFirst ? Four{192, 168, 0, 1} : Four{172, 16, 0, 9});
        EXPECT_EQ(news().at(1), std::string("eth0 name:") + row.name);
        if (row.applied != nullptr) {
            set(0x8E, {2, 0, 0, 0});
            expectConfiguration(row.applied);
        }
    }
}

// Setting ----------------------------------------------------------------------------------------

TEST_F(Network, WritesTheDhcpClientsFileAndKeepsWhatWasSetOverARestart)
{
    setStaticAddressAfterReading();
    EXPECT_EQ(contentOf(kCopy), delivered);
    // The interface itself is left alone, and what was set is what is read back.
    EXPECT_TRUE(run("ifconfig eth0 | grep -q 'inet addr:192.168.0.100 '"));
    expectAnswer(0x89, {}, {192, 168, 7, 77});
    start();
    expectAnswer(0x85, {}, {255, 255, 0, 0});
    expectAnswer(0x8D, {}, {192, 168, 0, 10});
    expectAnswer(0x8E, {3, 0, 0, 0}, {3, 0, 0, 0});
    // The interface still has its old address.
    expectAnswer(0x89, {}, {192, 168, 0, 100});
}

TEST_F(Network, MakesTheDhcpClientTakeTheStaticAddressAndLaterALease)
{
    if (const auto why = reasonToSkip({"dhcpcd", "dnsmasq"}); !why.empty()) {
        GTEST_SKIP() << why;
    }
    setStaticAddressAfterReading();
    ASSERT_TRUE(bootNetwork());
    start();
    expectNetwork({192, 168, 7, 77}, {255, 255, 0, 0}, {192, 168, 0, 10});
    expectAnswer(0x8E, {3, 0, 0, 0}, {3, 0, 0, 0});
    EXPECT_TRUE(daemon->prints("get dns = 192.168.0.1"));

    set(0x8E, {2, 1, 0, 0});
    expectConfiguration(delivered);
    ASSERT_TRUE(startDhcpServer()) << contentOf("/opt/scratch/dnsmasq.log");
    ASSERT_TRUE(bootNetwork());
    start();
    expectNetwork({192, 168, 0, 150}, {255, 255, 255, 0}, {192, 168, 0, 11});
    expectAnswer(0x8E, {3, 0, 0, 0}, {3, 1, 0, 0});
    EXPECT_TRUE(daemon->prints("get dns = 192.168.0.10"));
}

TEST_F(Network, AppliesWhatWasSetBeforeReadingAndBringsTheDeliveredFileBack)
{
    if (const auto why = reasonToSkip({"dhcpcd"}); !why.empty()) {
        GTEST_SKIP() << why;
    }
    expectAnswer(0x89, {}, {192, 168, 0, 100}); // makes the copy
    start();
    setStaticAddress("194.25.2.129");
    start();
    expectAnswer(0x89, {}, {192, 168, 0, 100});
    expectAnswer(0x8E, {3, 0, 0, 0}, {3, 0, 0, 0});
    EXPECT_EQ(contentOf(kCopy), delivered);
    ASSERT_TRUE(bootNetwork());
    start();
    expectNetwork({192, 168, 7, 77}, {255, 255, 0, 0}, {192, 168, 0, 10});
    expectAnswer(0x8E, {3, 0, 0, 0}, {3, 0, 0, 0});
    EXPECT_TRUE(daemon->prints("get dns = 194.25.2.129"));
    EXPECT_EQ(contentOf(kCopy), delivered);
    set(0x8E, {2, 1, 0, 0});
    expectConfiguration(delivered);
}

// What the protocol document warns of.
TEST_F(Network, TakesTheStaticFileForThatOfDhcpWithTheInterfaceDown)
{
    setStaticAddressAfterReading();
    const std::string written = contentOf(kConfiguration);
    start();
    ASSERT_TRUE(run("ip link set eth0 down"));
    expectAnswer(0x89, {}, {127, 0, 0, 1});
    expectAnswer(0x8E, {3, 0, 0, 0}, {3, 1, 0, 0});
    EXPECT_EQ(contentOf(kCopy), written);
}

TEST_F(Network, KeepsTheMaskOfBeforeForAnAddressAlone)
{
    expectAnswer(0x89, {}, {192, 168, 0, 100});
    set(0x8E, {2, 0, 0, 0});
    set(0x88, {10, 1, 2, 3});
    expectConfiguration("interface eth0\nstatic ip_address=10.1.2.3/24\n");
}

// The network record -----------------------------------------------------------------------------

TEST_F(Network, TakesARecordReadsItBackAndTakesOthers)
{
    if (!fs::exists(vendorStorage())) {
        GTEST_SKIP() << "the daemon can load no stand-in for the driver: there is no "
                     << vendorStorage().string();
    }
    start(withVendorStorage());
    expectRecordRead(kOwnRecord);
    EXPECT_EQ(news(), (Lines{"[Command_Read_Network] Will Config eth0",
                             "[Command_Read_Network] ip:192.168.0.100 netmask:255.255.255.0",
                             "[Command_Read_Network] route:192.168.0.1 mac:02.76.65.73.6b.01"}));
    expectRecordTaken(kNewRecord);
    EXPECT_EQ(news(), Lines{"writeDataSetting"} + kConfigures);
    EXPECT_EQ(contentOf(kScript), "#!/bin/sh\n"
                                  "/etc/init.d/S41dhcpcd stop\n"
                                  "sleep 1\n"
                                  "ifconfig eth0 10.1.2.3 netmask 255.255.0.0\n"
                                  "ip route add default via 10.1.0.1 dev eth0\n");
    EXPECT_EQ(fs::status(kScript).permissions(), fs::perms{0755});
    EXPECT_TRUE(run("ifconfig eth0 | grep -q 'inet addr:10.1.2.3 .*Mask:255.255.0.0'"));
    EXPECT_TRUE(run("ip route show | grep -q '^default via 10.1.0.1 dev eth0'"));
    expectRecordRead(kNewRecord);
    expectAnswer(0x89, {}, {10, 1, 2, 3});

    for (const char *const mac : {"\x02\x11\x22\x33\x44\x55", "\x02\xAA\xBB\xCC\xDD\xEE"}) {
        expectRecordTaken(kOwnRecord.substr(0, 12) + mac);
    }
    expectRecordRead(kOwnRecord); // the interface keeps its MAC address
    EXPECT_EQ(contentOf(kVendorLog), "write id=3 length=6 data=027665736b01\n"
                                     "read id=3 length=50 data=027665736b01\n"
                                     "write id=3 length=6 data=021122334455\n"
                                     "read id=3 length=50 data=021122334455\n"
                                     "write id=3 length=6 data=02aabbccddee\n"
                                     "read id=3 length=50 data=02aabbccddee\n");
}

TEST_F(Network, TakesARecordWithoutVendorStorageAndRunsItsScriptAgainAtStartUp)
{
    expectRecordTaken(kNewRecord);
    EXPECT_EQ(news(),
              (Lines{"writeDataSetting", "vendor_storage open fail", "vendor_storage open fail"}) +
                  kConfigures);
    expectRecordRead(kNewRecord);
    ASSERT_TRUE(run("ifconfig eth0 192.168.0.100 netmask 255.255.255.0"));
    ASSERT_TRUE(run(kScript));
    expectRecordRead(kNewRecord);
}
