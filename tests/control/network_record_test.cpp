// The network record: what is read from the running system, what a record makes of it, and every
// message, file, command and request, in order. A descriptor that tools would inherit shows in the
// journal.

#include "control/ip_helpers.h"
#include "control/network_record.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include <sys/ioctl.h>

#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tests/support/clock.h"
#include "tests/support/console.h"
#include "tests/support/files.h"
#include "tests/support/outcome.h"
#include "tests/support/simulated_system.h"

namespace fs = std::filesystem;

namespace {

static_assert(kVendorStorageTag == 0x56524551);
static_assert(kVendorStorageRead == 0x40047601);
static_assert(kVendorStorageWrite == 0x40047602);
static_assert(kVendorItemMac == 3);

// Line numbers are the source's own business: "[name:12]" becomes "[name:N]".
std::string withoutLineNumbers(const std::string &text)
{
    return std::regex_replace(text, std::regex(":[0-9]+\\]"), ":N]");
}

const NetworkRecord kRecord{
    {10, 1, 2, 3}, {255, 255, 254, 0}, {10, 1, 3, 254}, {0x02, 0x76, 0x65, 0x73, 0x6B, 0x0F}};

const std::string kRecordScript = "#!/bin/sh\n/etc/init.d/S41dhcpcd stop\nsleep 1\n"
                                  "ifconfig eth0 10.1.2.3 netmask 255.255.254.0\n"
                                  "ip route add default via 10.1.3.254 dev eth0\n";

void makeVendorDevice()
{
    writeFile(kVendorDevice, "");
}

// The live settings -------------------------------------------------------------------------------

using LocalGetter = int32_t (*)(const char *name, uint8_t *out, uint32_t size);

int32_t get_route(const char *, uint8_t *out, uint32_t size)
{
    return get_local_route(out, size);
}

// Result; bytes in hexadecimal, 0xEE where nothing was written; what is printed.
using Local = std::tuple<int64_t, std::string, std::string>;

Local local(LocalGetter get, const std::string &name, uint32_t size)
{
    uint8_t out[8];
    std::memset(out, 0xEE, sizeof out);
    const auto &[result, printed] = outcomeOf(get, name.c_str(), out, size);
    return {result, hex(out, sizeof out), printed};
}

constexpr char kUntouched[] = "eeeeeeeeeeeeeeee";

TEST(NetworkRecord, AsksTheKernelAboutAnInterface)
{
    const struct {
        LocalGetter get;
        const char *name;
        uint32_t size;
        Local expected;
        const char *request;
    } rows[] = {
        // clang-format off
        {get_local_ip,      "eth0", 4, {0, "c0a80064eeeeeeee", ""}, "ioctl 0x8915 eth0"},
        {get_local_netmask, "eth0", 4, {0, "ffffff00eeeeeeee", ""}, "ioctl 0x891b eth0"},
        {get_local_mac,     "eth0", 6, {0, "027665736b01eeee", ""}, "ioctl 0x8927 eth0"},
        {get_local_ip,      "lo",   4, {0, "7f000001eeeeeeee", ""}, "ioctl 0x8915 lo"},
        {get_local_netmask, "lo",   4, {0, "ff000000eeeeeeee", ""}, "ioctl 0x891b lo"},
        {get_local_mac,     "lo",   6, {0, "000000000000eeee", ""}, "ioctl 0x8927 lo"},
        {get_local_ip,      "eth9", 4, {-1, kUntouched, ""},        "ioctl 0x8915 eth9"},
        {get_local_netmask, "eth9", 4, {-1, kUntouched, "mac ioctl error\n"}, "ioctl 0x891b eth9"},
        {get_local_mac,     "eth9", 6, {-1, kUntouched, "mac ioctl error\n"}, "ioctl 0x8927 eth9"},
        // clang-format on
    };
    for (const auto &row : rows) {
        journal.clear();
        EXPECT_EQ(local(row.get, row.name, row.size), row.expected) << row.request;
        EXPECT_EQ(journal, (Journal{"socket", row.request}));
    }
}

TEST(NetworkRecord, SaysWhatIsMissing)
{
    const struct {
        LocalGetter get;
        unsigned long request;
        const char *noSocket;
        const char *noAnswer;
    } rows[] = {{get_local_ip, SIOCGIFADDR, "socket create fail\n", ""},
                {get_local_netmask, SIOCGIFNETMASK, "create socket fail\n", "mac ioctl error\n"},
                {get_local_mac, SIOCGIFHWADDR, "create socket fali\n", "mac ioctl error\n"}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.noSocket);
        world.socketFails = true;
        EXPECT_EQ(local(row.get, "eth0", 6), (Local{-1, kUntouched, row.noSocket}));
        world.socketFails = false;
        world.failingRequest = row.request;
        EXPECT_EQ(local(row.get, "eth0", 6), (Local{-1, kUntouched, row.noAnswer}));
        journal.clear();
        uint8_t out[8] = {};
        const Outcome noParameter(-1, "param null\n");
        EXPECT_EQ(outcomeOf(row.get, nullptr, out, 8u), noParameter);
        EXPECT_EQ(outcomeOf(row.get, "eth0", nullptr, 8u), noParameter);
        EXPECT_EQ(outcomeOf(row.get, nullptr, nullptr, 8u), noParameter);
        EXPECT_EQ(outcomeOf(get_local_route, nullptr, 4u), noParameter);
        EXPECT_EQ(journal, Journal());
    }
}

TEST(NetworkRecord, CopiesAtMost15BytesOfAName)
{
    for (const LocalGetter get : {get_local_ip, get_local_netmask, get_local_mac}) {
        for (const std::string &name : {std::string("abcdefghijklmno"),
                                        std::string("abcdefghijklmnop"), std::string(300, 'n')}) {
            EXPECT_EQ(std::get<0>(local(get, name, 8)), -1) << name;
            EXPECT_TRUE(journal.back().ends_with(" " + name.substr(0, 15))) << journal.back();
        }
    }
}

TEST(NetworkRecord, RefusesToWriteMoreThanTheBufferHoldsAndClosesItsDescriptors)
{
    const ptrdiff_t before = openDescriptors();
    for (const LocalGetter get :
         {get_local_ip, get_local_netmask, LocalGetter{get_route}, get_local_mac}) {
        const uint32_t length = get == get_local_mac ? 6 : 4;
        for (uint32_t size = 0; size <= 8; ++size) {
            const auto &[result, bytes, printed] = local(get, "eth0", size);
            EXPECT_EQ(result, size < length ? -1 : 0) << size;
            const size_t untouched = 2 * std::min(size, length);
            EXPECT_EQ(bytes.substr(untouched), kUntouched + untouched) << size;
        }
        local(get, "eth9", 8);
    }
    EXPECT_EQ(openDescriptors(), before);
}

// Any white space is accepted. Text after the last number makes it none, and more numbers an error.
TEST(NetworkRecord, ReadsTheFirstRouteThatIpPrintsIfItIsOne)
{
    std::string many;
    while (many.size() < 5000) {
        many += "12.";
    }
    const Local read = {0, "0a140001eeeeeeee", ""};
    const Local none = {0, kUntouched, ""};
    const Local tooMany = {-1, kUntouched, ""};
    const struct {
        std::string output;
        Local expected;
    } rows[] = {
        {kRoutes, read},
        {"10.20.0.0/17 dev end0 scope link  src 10.20.30.40 \n", none},
        {" default via 10.20.0.1 dev end0\n", read},
        {"\tdefault\tvia\t10.20.0.1\tdev\tend0\n", read},
        {" \tdefault \tvia \t10.20.0.1 \tdev\n", read},
        {"\t\tdefault\t\tvia\t\t10.20.0.1\t\tdev\n", read},
        {"default via 10.20.0.1\r\n", read},
        {"default via 1.2.3.4x dev eth0\n", none},
        {"default via 1.2.3.4#53 dev eth0\n", none},
        {"default via 1.2.3.4/24 dev eth0\n", none},
        {"default via 1.2.3.4, dev eth0\n", none},
        {"default via 1.2.3.4.5 dev eth0\n", tooMany},
        {"default via " + many + "\n", tooMany},
        {"default via " + std::string(5000, '.') + "\n", tooMany},
    };
    EXPECT_EQ(local(get_route, "", 4), (Local{0, "c0a80001eeeeeeee", ""})); // the board's own
    EXPECT_EQ(journal, Journal{"popen ip route | grep default | awk '{print $3}'"});
    world.popenFailsAt = 1;
    EXPECT_EQ(local(get_route, "", 4), (Local{-1, kUntouched, "popen error !\n"}));
    for (const auto &row : rows) {
        toolPrints("ip", row.output);
        EXPECT_EQ(local(get_route, "", 4), row.expected) << row.output;
    }
}

TEST(NetworkRecord, NoiseInTheRouteStaysInTheBuffer)
{
    for (unsigned seed = 0; seed < 20; ++seed) {
        toolPrints("ip", "default via " + (seed == 0 ? std::string(5000, '7') : noise(seed, 5000)));
        EXPECT_EQ(std::get<1>(local(get_route, "", 4)).substr(8), "eeeeeeee") << seed;
    }
}

// Vendor storage ----------------------------------------------------------------------------------

Outcome readItem(uint16_t id)
{
    return outcomeOf(vendor_storage_read, id);
}

Outcome writeItem(uint16_t id, const uint8_t *data, uint16_t length)
{
    return outcomeOf(vendor_storage_write, id, data, length);
}

TEST(NetworkRecord, ReadsAVendorItem)
{
    makeVendorDevice();
    const std::string request = "vendor 0x40047601 5145525603003200 " + std::string(100, '0');
    EXPECT_EQ(readItem(3), Outcome(0, ""));
    EXPECT_EQ(journal, (Journal{"open vendor", request, "close vendor"}));
    EXPECT_EQ(hex(world.vendorRequest.data() + 8, 92), std::string(184, '0'));
    vendor_storage_read(0xABCD);
    EXPECT_EQ(journal[4], "vendor 0x40047601 51455256cdab3200 " + std::string(100, '0'));
    for (const int result : {-1, 7}) {
        world.vendorResult = result;
        EXPECT_EQ(readItem(3), Outcome(-1, "vendor read error " + std::to_string(result) + "\n"));
    }
}

// Only items 1 and 5 have a length of their own.
TEST(NetworkRecord, WritesAVendorItemOfLengthSixOrItsOwn)
{
    const struct {
        uint16_t id;
        std::vector<uint16_t> lengths;
        std::string request;
    } rows[] = {
        // clang-format off
        {1,   {10},            "01000a00 00010203040506070809"},
        {1,   {0},             "01000000 "},
        {1,   {92},            "01005c00 " + hex(countingBytes(92))},
        {5,   {3},             "05000300 000102"},
        {0,   {10, 1, 0xFFFF}, "00000600 000102030405"},
        {2,   {10, 1, 0xFFFF}, "02000600 000102030405"},
        {3,   {10, 1, 0xFFFF}, "03000600 000102030405"},
        {4,   {10, 1, 0xFFFF}, "04000600 000102030405"},
        {6,   {10, 1, 0xFFFF}, "06000600 000102030405"},
        {255, {10, 1, 0xFFFF}, "ff000600 000102030405"},
        {257, {10, 1, 0xFFFF}, "01010600 000102030405"},
        // clang-format on
    };
    const std::string bytes = countingBytes(0xFFFF);
    const auto *const data = reinterpret_cast<const uint8_t *>(bytes.data());
    makeVendorDevice();
    for (const auto &row : rows) {
        for (const uint16_t length : row.lengths) {
            for (const int result : {0, -1, 7}) {
                SCOPED_TRACE(row.request + " of " + std::to_string(length));
                world.vendorResult = result;
                EXPECT_EQ(writeItem(row.id, data, length),
                          result == 0 ? Outcome(0, "") : Outcome(-1, "vendor write error\n"));
                EXPECT_EQ(journal.back(), "vendor 0x40047602 51455256" + row.request);
            }
        }
    }
    world.vendorResult = 0;
    journal.clear();
    for (const uint16_t length : std::initializer_list<uint16_t>{93, 100, 4096, 0xFFFF}) {
        EXPECT_EQ(writeItem(5, data, length), Outcome(-1, "vendor write error\n"));
    }
    Journal calls; // nothing reaches the driver
    for (int i = 0; i < 4; ++i) {
        calls.insert(calls.end(), {"close vendor", "open vendor"});
    }
    EXPECT_EQ(journal, calls);
}

TEST(NetworkRecord, SaysThatThereIsNoVendorStorage)
{
    const Outcome failure(-1, "vendor_storage open fail\n");
    EXPECT_EQ(writeItem(3, kRecord.mac, 6), failure);
    EXPECT_EQ(readItem(3), failure);
    EXPECT_EQ(journal, (Journal{"open vendor", "open vendor"}));
}

TEST(NetworkRecord, ClosesTheDeviceThatARequestLeftOpenAtTheNextOne)
{
    makeVendorDevice();
    const std::string reads = "vendor 0x40047601";
    const std::string writes = "vendor 0x40047602";
    const struct {
        bool isWrite;
        int result;
        Journal calls;
    } steps[] = {{true, 0, {"open vendor", writes}},
                 {true, -1, {"close vendor", "open vendor", writes}},
                 {false, -1, {"close vendor", "open vendor", reads}},
                 {false, 0, {"close vendor", "open vendor", reads, "close vendor"}},
                 {false, 0, {"open vendor", reads, "close vendor"}}};
    for (const auto &step : steps) {
        journal.clear();
        world.vendorResult = step.result;
        step.isWrite ? vendor_storage_write(3, kRecord.mac, 6) : vendor_storage_read(3);
        for (std::string &call : journal) {
            call.resize(call.starts_with("vendor") ? 17 : call.size());
        }
        EXPECT_EQ(journal, step.calls) << &step - steps;
    }
}

// The network record ------------------------------------------------------------------------------

TEST(NetworkRecord, WritesTheScriptsText)
{
    std::string text(kNetworkScriptSize, 'x');
    Command_Config_Network_String(text.data(), &kRecord);
    EXPECT_EQ(text.c_str(), kRecordScript);
    const NetworkRecord longest{
        {255, 254, 253, 252}, {251, 250, 249, 248}, {247, 246, 245, 244}, {}};
    Command_Config_Network_String(text.data(), &longest);
    const std::string expected = "#!/bin/sh\n/etc/init.d/S41dhcpcd stop\nsleep 1\n"
                                 "ifconfig eth0 255.254.253.252 netmask 251.250.249.248\n"
                                 "ip route add default via 247.246.245.244 dev eth0\n";
    EXPECT_EQ(text.c_str(), expected);
    Command_Config_Network_String(text.data(), nullptr);
    EXPECT_EQ(text.c_str(), expected);
    Command_Config_Network_String(nullptr, &kRecord);
    Command_Config_Network_String(nullptr, nullptr);
}

const std::string kConfigures = "[Command_Config_Network:N] Will Config eth0\n"
                                "[Command_Config_Network:N] ip:10.1.2.3 netmask:255.255.254.0\n"
                                "[Command_Config_Network:N] route:10.1.3.254 "
                                "mac:02.76.65.73.6b.0f\n";

// What configuring prints; its sleeps become part of the journal.
std::string printedByConfiguring()
{
    fakeClock.onSleep = [] {
        journal.push_back("usleep " + std::to_string(fakeClock.sleepsUs.back()));
    };
    return withoutLineNumbers(printedBy([] { Command_Config_Network(&kRecord); }));
}

TEST(NetworkRecord, ConfiguresInOrder)
{
    makeVendorDevice();
    writeFile(kScript, std::string(5000, '#')); // an older one
    std::vector<std::string> scripts;           // as the file was at each command
    world.onSystem = [&scripts](const std::string &) { scripts.push_back(contentOf(kScript)); };
    EXPECT_EQ(printedByConfiguring(), kConfigures);
    EXPECT_EQ(journal, (Journal{"open vendor", "vendor 0x40047602 5145525603000600 027665736b0f",
                                "usleep 300000", "close vendor", "open vendor",
                                "vendor 0x40047601 5145525603003200 " + std::string(100, '0'),
                                "close vendor", "fopen /etc/init.d/S50_Network_Conf.sh wb+",
                                "system sync", "system chmod 755 /etc/init.d/S50_Network_Conf.sh",
                                "system /etc/init.d/S50_Network_Conf.sh"}));
    // Complete from the first of them on.
    EXPECT_EQ(scripts, std::vector<std::string>(3, kRecordScript));
}

TEST(NetworkRecord, ConfiguresNothingWithoutARecord)
{
    makeVendorDevice();
    EXPECT_EQ(printedBy([] { Command_Config_Network(nullptr); }), "");
    EXPECT_EQ(journal, Journal());
    EXPECT_TRUE(fakeClock.sleepsUs.empty());
    EXPECT_FALSE(fs::exists(kScript));
}

TEST(NetworkRecord, ConfiguresWithoutVendorStorageAllTheSame)
{
    EXPECT_EQ(printedByConfiguring(),
              "vendor_storage open fail\nvendor_storage open fail\n" + kConfigures);
    EXPECT_EQ(journal[1], "usleep 300000");
    EXPECT_EQ(journal.back(), "system /etc/init.d/S50_Network_Conf.sh");
    EXPECT_EQ(contentOf(kScript), kRecordScript);
    makeVendorDevice();
    world.vendorResult = -1;
    EXPECT_EQ(printedByConfiguring(), "vendor write error\nvendor read error -1\n" + kConfigures);
    EXPECT_EQ(journal.back(), "system /etc/init.d/S50_Network_Conf.sh");
}

// The MAC address has been stored by then.
TEST(NetworkRecord, StopsWhenTheScriptCannotBeMade)
{
    makeVendorDevice();
    fs::remove_all("/etc/init.d");
    EXPECT_EQ(printedByConfiguring(), "");
    EXPECT_EQ(journal[1], "vendor 0x40047602 5145525603000600 027665736b0f");
    EXPECT_EQ(journal.back(), "fopen /etc/init.d/S50_Network_Conf.sh wb+");
}

TEST(NetworkRecord, RunsTheScript)
{
    for (const std::string tool :
         {"/etc/init.d/S41dhcpcd", "/bin/sleep", "/bin/ifconfig", "/bin/ip"}) {
        replaceTool(tool, "echo ${0##*/} $* >>/opt/scratch/log\n");
    }
    world.runsSystem = true;
    printedByConfiguring();
    EXPECT_EQ(fs::status(kScript).permissions(), fs::perms{0755});
    EXPECT_EQ(contentOf("/opt/scratch/log"),
              "S41dhcpcd stop\nsleep 1\nifconfig eth0 10.1.2.3 netmask 255.255.254.0\n"
              "ip route add default via 10.1.3.254 dev eth0\n");
}

TEST(NetworkRecord, FiveThousandRecordsLeaveNoDescriptorAndAsManyRequestsAtMostOne)
{
    makeVendorDevice();
    const ptrdiff_t before = openDescriptors();
    printedBy([] {
        for (int i = 0; i <= 5000; ++i) { // the last one finds its answer
            world.vendorResult = i % 3 == 1 ? -1 : 0;
            Command_Config_Network(&kRecord);
        }
    });
    EXPECT_EQ(openDescriptors(), before);
    printedBy([] {
        for (int i = 0; i < 5000; ++i) {
            world.vendorResult = i % 2 == 0 ? -1 : 0;
            vendor_storage_write(3, kRecord.mac, 6);
            world.vendorResult = i % 3 == 0 ? -1 : 0;
            vendor_storage_read(3);
        }
    });
    EXPECT_LE(openDescriptors(), before + 1);
}

// A record that was 0xEE all over becomes this, as hexadecimal text; and these messages.
TEST(NetworkRecord, ReadsTheLiveRecordUpToTheFirstFailure)
{
    const std::string heading = "[Command_Read_Network:N] Will Config eth0\n";
    const std::string failure = "Command_Read_Network fail\n";
    const std::string noAnswer = "mac ioctl error\n";
    const std::string route = "popen ip route | grep default | awk '{print $3}'";
    const Journal calls = {"socket", "ioctl 0x8915 eth0", "socket", "ioctl 0x891b eth0", route,
                           "socket", "ioctl 0x8927 eth0"};
    const struct {
        bool socketFails;
        unsigned long request;
        int popen;
        std::string bytes;
        std::string printed;
        int calls;
    } rows[] = {
        // clang-format off
        {false, 0, 0, "c0a80064ffffff00c0a80001027665736b01",
         "[Command_Read_Network:N] ip:192.168.0.100 netmask:255.255.255.0\n"
         "[Command_Read_Network:N] route:192.168.0.1 mac:02.76.65.73.6b.01\n",             7},
        {false, SIOCGIFADDR,    0, "",                         failure,                    2},
        {false, SIOCGIFNETMASK, 0, "c0a80064",                 noAnswer + failure,         4},
        {false, 0,              1, "c0a80064ffffff00",         "popen error !\n" + failure, 5},
        {false, SIOCGIFHWADDR,  0, "c0a80064ffffff00c0a80001", noAnswer + failure,         7},
        {true,  0,              0, "",                         "socket create fail\n" + failure, 1},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.printed);
        journal.clear();
        world.socketFails = row.socketFails;
        world.failingRequest = row.request;
        world.popenFailsAt = row.popen;
        NetworkRecord record;
        std::memset(&record, 0xEE, sizeof record);
        const std::string printed = printedBy([&record] { Command_Read_Network(&record); });
        EXPECT_EQ(withoutLineNumbers(printed), heading + row.printed);
        std::string bytes(sizeof record, '\0');
        std::memcpy(bytes.data(), &record, sizeof record);
        EXPECT_EQ(hex(bytes), row.bytes + std::string(36 - row.bytes.size(), 'e'));
        EXPECT_EQ(journal, Journal(calls.begin(), calls.begin() + row.calls));
    }
}

// Comparing --------------------------------------------------------------------------------------

TEST(NetworkRecord, ComparesBytes)
{
    const uint8_t a[] = {1, 2, 3, 250};
    const uint8_t b[] = {1, 2, 5, 0};
    EXPECT_EQ(cmpBuf(a, a, 4), 0);
    for (const auto &[count, result] : std::map<uint32_t, int>{{0, 0}, {2, 0}, {3, -2}, {4, -2}}) {
        EXPECT_EQ(cmpBuf(a, b, count), result) << count;
        EXPECT_EQ(cmpBuf(b, a, count), -result) << count;
    }
    EXPECT_EQ(cmpBuf(a + 3, b + 3, 1), 250); // bytes have no sign
    EXPECT_EQ(cmpBuf(b + 3, a + 3, 1), -250);
}

} // namespace
