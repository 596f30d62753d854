// The network record: what is read from the running system, what a record makes of it, and every
// message, file, command and request, in order.

#include "control/ip_helpers.h"
#include "control/network_record.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <sys/ioctl.h>

#include <gtest/gtest.h>

#include "tests/support/clock.h"
#include "tests/support/console.h"
#include "tests/support/simulated_system.h"

namespace {

// Line numbers are the source's own business: "[name:12]" becomes "[name:N]".
std::string withoutLineNumbers(const std::string &text)
{
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        result += text[i];
        if (text[i] == ':' && text.find('[', text.rfind('\n', i) + 1) < i &&
            text.find(']', i) != std::string::npos) {
            const size_t end = text.find_first_not_of("0123456789", i + 1);
            if (end != std::string::npos && end > i + 1 && text[end] == ']') {
                result += 'N';
                i = end - 1;
            }
        }
    }
    return result;
}

const NetworkRecord kRecord{
    {10, 1, 2, 3}, {255, 255, 254, 0}, {10, 1, 3, 254}, {0x02, 0x76, 0x65, 0x73, 0x6B, 0x0F}};

void makeVendorDevice()
{
    writeFile(kVendorDevice, "");
}

static_assert(kVendorStorageTag == 0x56524551);
static_assert(kVendorStorageRead == 0x40047601);
static_assert(kVendorStorageWrite == 0x40047602);
static_assert(kVendorItemMac == 3);

} // namespace

// The live settings -------------------------------------------------------------------------------

namespace {

using LocalGetter = int32_t (*)(const char *name, uint8_t *out, uint32_t size);

struct Local {
    int32_t result;
    std::string bytes; // hexadecimal, 0xEE where nothing was written
    std::string printed;
};

Local local(LocalGetter get, const char *name, uint32_t size)
{
    Local answer{};
    uint8_t out[8];
    std::memset(out, 0xEE, sizeof out);
    answer.printed = printedBy([&] { answer.result = get(name, out, size); });
    answer.bytes = hex(out, sizeof out);
    return answer;
}

int32_t routeOf(const char *, uint8_t *out, uint32_t size)
{
    return get_local_route(out, size);
}

void expectLocal(const Local &answer, int32_t result, const std::string &bytes,
                 const std::string &printed = "")
{
    EXPECT_EQ(answer.result, result);
    EXPECT_EQ(answer.bytes, bytes);
    EXPECT_EQ(answer.printed, printed);
}

constexpr char kUntouched[] = "eeeeeeeeeeeeeeee";

} // namespace

TEST(NetworkRecord, AsksTheKernelAboutAnInterface)
{
    expectLocal(local(get_local_ip, "eth0", 4), 0, "c0a80064eeeeeeee");
    expectLocal(local(get_local_netmask, "eth0", 4), 0, "ffffff00eeeeeeee");
    expectLocal(local(get_local_mac, "eth0", 6), 0, "027665736b01eeee");
    expectLocal(local(get_local_ip, "lo", 4), 0, "7f000001eeeeeeee");
    expectLocal(local(get_local_netmask, "lo", 4), 0, "ff000000eeeeeeee");
    expectLocal(local(get_local_mac, "lo", 6), 0, "000000000000eeee");
    EXPECT_EQ(journal, (Journal{"socket", "ioctl 0x8915 eth0", "socket", "ioctl 0x891b eth0",
                                "socket", "ioctl 0x8927 eth0", "socket", "ioctl 0x8915 lo",
                                "socket", "ioctl 0x891b lo", "socket", "ioctl 0x8927 lo"}));
}

TEST(NetworkRecord, RefusesNullParameters)
{
    for (const LocalGetter get : {get_local_ip, get_local_netmask, get_local_mac}) {
        uint8_t out[8] = {};
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(get(nullptr, out, sizeof out), -1); }), "param null\n");
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(get("eth0", nullptr, 8), -1); }), "param null\n");
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(get(nullptr, nullptr, 8), -1); }), "param null\n");
    }
    EXPECT_EQ(printedBy([] { EXPECT_EQ(get_local_route(nullptr, 4), -1); }), "param null\n");
    EXPECT_EQ(journal, Journal());
}

TEST(NetworkRecord, SaysInItsWayThatThereIsNoSocket)
{
    world.socketFails = true;
    expectLocal(local(get_local_ip, "eth0", 4), -1, kUntouched, "socket create fail\n");
    expectLocal(local(get_local_netmask, "eth0", 4), -1, kUntouched, "create socket fail\n");
    expectLocal(local(get_local_mac, "eth0", 6), -1, kUntouched, "create socket fali\n");
}

TEST(NetworkRecord, SaysThatTheKernelKnowsNoMaskOrHardwareAddress)
{
    world.failingRequest = SIOCGIFNETMASK;
    expectLocal(local(get_local_netmask, "eth0", 4), -1, kUntouched, "mac ioctl error\n");
    world.failingRequest = SIOCGIFHWADDR;
    expectLocal(local(get_local_mac, "eth0", 6), -1, kUntouched, "mac ioctl error\n");
    world.failingRequest = 0;
    expectLocal(local(get_local_netmask, "eth9", 4), -1, kUntouched, "mac ioctl error\n");
    expectLocal(local(get_local_mac, "eth9", 6), -1, kUntouched, "mac ioctl error\n");
}

TEST(NetworkRecord, FailsWithoutAnAddress)
{
    world.failingRequest = SIOCGIFADDR;
    const Local answer = local(get_local_ip, "eth0", 4);
    EXPECT_EQ(answer.result, -1);
    EXPECT_EQ(answer.bytes, kUntouched);
    world.failingRequest = 0;
    EXPECT_EQ(local(get_local_ip, "eth9", 4).result, -1);
}

TEST(NetworkRecord, CopiesAtMost15BytesOfAName)
{
    for (const LocalGetter get : {get_local_ip, get_local_netmask, get_local_mac}) {
        journal.clear();
        EXPECT_EQ(local(get, "abcdefghijklmno", 8).result, -1);
        EXPECT_EQ(local(get, "abcdefghijklmnop", 8).result, -1);
        EXPECT_EQ(local(get, std::string(300, 'n').c_str(), 8).result, -1);
        ASSERT_EQ(journal.size(), 6u);
        EXPECT_TRUE(journal[1].ends_with(" abcdefghijklmno"));
        EXPECT_TRUE(journal[3].ends_with(" abcdefghijklmno")) << journal[3];
        EXPECT_TRUE(journal[5].ends_with(" " + std::string(15, 'n'))) << journal[5];
    }
}

TEST(NetworkRecord, RefusesToWriteMoreThanTheBufferHolds)
{
    for (const LocalGetter get : {get_local_ip, get_local_netmask, LocalGetter{routeOf}}) {
        for (uint32_t size = 0; size < 4; ++size) {
            const Local answer = local(get, "eth0", size);
            EXPECT_EQ(answer.result, -1) << size;
            EXPECT_EQ(answer.bytes.substr(2 * size), std::string(kUntouched).substr(2 * size));
        }
        const Local answer = local(get, "eth0", 8);
        EXPECT_EQ(answer.result, 0);
        EXPECT_EQ(answer.bytes.substr(8), "eeeeeeee");
    }
    for (uint32_t size = 0; size < 6; ++size) {
        const Local answer = local(get_local_mac, "eth0", size);
        EXPECT_EQ(answer.result, -1) << size;
        EXPECT_EQ(answer.bytes, kUntouched) << size;
    }
    expectLocal(local(get_local_mac, "eth0", 8), 0, "027665736b01eeee");
}

TEST(NetworkRecord, ClosesItsSocketsAndPipes)
{
    const ptrdiff_t before = openDescriptors();
    for (const char *const name : {"eth0", "eth9"}) {
        for (const LocalGetter get :
             {get_local_ip, get_local_netmask, get_local_mac, LocalGetter{routeOf}}) {
            local(get, name, 8);
            local(get, name, 2);
        }
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(NetworkRecord, ReadsTheDefaultRoute)
{
    expectLocal(local(routeOf, "", 4), 0, "c0a80001eeeeeeee");
    EXPECT_EQ(journal, Journal{"popen ip route | grep default | awk '{print $3}'"});
}

TEST(NetworkRecord, ReadsTheFirstOfSeveralDefaultRoutes)
{
    toolPrints("ip", kRoutes);
    expectLocal(local(routeOf, "", 4), 0, "0a140001eeeeeeee");
}

TEST(NetworkRecord, SaysThatTheRouteCannotBeAskedFor)
{
    world.popenFailsAt = 1;
    expectLocal(local(routeOf, "", 4), -1, kUntouched, "popen error !\n");
}

TEST(NetworkRecord, WithoutADefaultRouteTheBufferStays)
{
    toolPrints("ip", "10.20.0.0/17 dev end0 scope link  src 10.20.30.40 \n");
    EXPECT_EQ(local(routeOf, "", 4).bytes, kUntouched);
}

TEST(NetworkRecord, AcceptsAnyWhiteSpaceInTheRoute)
{
    for (const std::string w : {" ", "\t", " \t", "\t\t"}) {
        toolPrints("ip", w + "default" + w + "via" + w + "10.20.0.1" + w + "dev" + w + "end0\n");
        expectLocal(local(routeOf, "", 4), 0, "0a140001eeeeeeee");
    }
    toolPrints("ip", "default via 10.20.0.1\r\n");
    expectLocal(local(routeOf, "", 4), 0, "0a140001eeeeeeee");
}

TEST(NetworkRecord, RefusesARouteWithTextAfterItsLastNumber)
{
    for (const char *const text : {"1.2.3.4x", "1.2.3.4#53", "1.2.3.4/24", "1.2.3.4,"}) {
        toolPrints("ip", "default via " + std::string(text) + " dev eth0\n");
        expectLocal(local(routeOf, "", 4), 0, kUntouched);
    }
}

TEST(NetworkRecord, NoiseInTheRouteStaysInTheBuffer)
{
    toolPrints("ip", "default via 1.2.3.4.5 dev eth0\n");
    expectLocal(local(routeOf, "", 4), -1, kUntouched);
    toolPrints("ip", "default via " + std::string(5000, '7') + "\n");
    EXPECT_EQ(local(routeOf, "", 4).bytes.substr(8), "eeeeeeee");
    toolPrints("ip", "default via " + std::string(5000, '.') + "\n");
    EXPECT_EQ(local(routeOf, "", 4).bytes, kUntouched);
    std::string many;
    while (many.size() < 5000) {
        many += "12.";
    }
    toolPrints("ip", "default via " + many + "\n");
    expectLocal(local(routeOf, "", 4), -1, kUntouched);
    for (unsigned seed = 0; seed < 20; ++seed) {
        toolPrints("ip", "default via " + noise(seed, 5000));
        EXPECT_EQ(local(routeOf, "", 4).bytes.substr(8), "eeeeeeee") << seed;
    }
}

// Vendor storage ----------------------------------------------------------------------------------

TEST(NetworkRecord, ReadsAVendorItem)
{
    makeVendorDevice();
    EXPECT_EQ(printedBy([] { EXPECT_EQ(vendor_storage_read(3), 0); }), "");
    ASSERT_EQ(journal.size(), 3u);
    EXPECT_EQ(journal[0], "open vendor");
    EXPECT_EQ(journal[1], "vendor 0x40047601 5145525603003200 " + std::string(100, '0'));
    EXPECT_EQ(journal[2], "close vendor");
    EXPECT_EQ(hex(world.vendorRequest.data() + 8, 92), std::string(184, '0'));
    vendor_storage_read(0xABCD);
    EXPECT_EQ(journal[4], "vendor 0x40047601 51455256cdab3200 " + std::string(100, '0'));
}

TEST(NetworkRecord, SaysThatAVendorItemCannotBeRead)
{
    makeVendorDevice();
    world.vendorResult = -1;
    EXPECT_EQ(printedBy([] { EXPECT_EQ(vendor_storage_read(3), -1); }), "vendor read error -1\n");
    world.vendorResult = 7;
    EXPECT_EQ(printedBy([] { EXPECT_EQ(vendor_storage_read(3), -1); }), "vendor read error 7\n");
}

TEST(NetworkRecord, WritesAVendorItem)
{
    makeVendorDevice();
    const uint8_t mac[] = {0x02, 0x76, 0x65, 0x73, 0x6B, 0x0F};
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(vendor_storage_write(3, mac, 6), 0); }), "");
    EXPECT_EQ(journal, (Journal{"open vendor", "vendor 0x40047602 5145525603000600 027665736b0f"}));
}

TEST(NetworkRecord, OnlyTwoVendorItemsHaveALengthOfTheirOwn)
{
    makeVendorDevice();
    const uint8_t data[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    const auto requestFor = [&data](uint16_t id, uint16_t length) {
        EXPECT_EQ(vendor_storage_write(id, data, length), 0);
        return journal.back();
    };
    EXPECT_EQ(requestFor(1, 10), "vendor 0x40047602 5145525601000a00 0102030405060708090a");
    EXPECT_EQ(requestFor(5, 3), "vendor 0x40047602 5145525605000300 010203");
    EXPECT_EQ(requestFor(1, 0), "vendor 0x40047602 5145525601000000 ");
    for (const uint16_t id : std::initializer_list<uint16_t>{0, 2, 3, 4, 6, 255, 257}) {
        const uint8_t bytes[] = {static_cast<uint8_t>(id), static_cast<uint8_t>(id >> 8)};
        const std::string expected =
            "vendor 0x40047602 51455256" + hex(bytes, 2) + "0600 010203040506";
        EXPECT_EQ(requestFor(id, 10), expected);
        EXPECT_EQ(requestFor(id, 1), expected);
        EXPECT_EQ(requestFor(id, 0xFFFF), expected);
    }
}

TEST(NetworkRecord, RefusesAVendorItemThatDoesNotFitTheRequest)
{
    makeVendorDevice();
    const std::vector<uint8_t> data(0xFFFF, 0x5A);
    EXPECT_EQ(vendor_storage_write(1, data.data(), 92), 0);
    std::string expected = "vendor 0x40047602 5145525601005c00 ";
    for (int i = 0; i < 92; ++i) {
        expected += "5a";
    }
    EXPECT_EQ(journal.back(), expected);
    journal.clear();
    for (const uint16_t length : std::initializer_list<uint16_t>{93, 100, 4096, 0xFFFF}) {
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(vendor_storage_write(5, data.data(), length), -1); }),
                  "vendor write error\n")
            << length;
    }
    EXPECT_EQ(std::count_if(journal.begin(), journal.end(),
                            [](const std::string &call) { return call.starts_with("vendor"); }),
              0);
}

TEST(NetworkRecord, SaysThatAVendorItemCannotBeWritten)
{
    makeVendorDevice();
    const uint8_t mac[6] = {};
    for (const int result : {-1, 7}) {
        world.vendorResult = result;
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(vendor_storage_write(3, mac, 6), -1); }),
                  "vendor write error\n");
    }
}

TEST(NetworkRecord, SaysThatThereIsNoVendorStorage)
{
    const uint8_t mac[6] = {};
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(vendor_storage_write(3, mac, 6), -1); }),
              "vendor_storage open fail\n");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(vendor_storage_read(3), -1); }),
              "vendor_storage open fail\n");
    EXPECT_EQ(journal, (Journal{"open vendor", "open vendor"}));
}

TEST(NetworkRecord, ClosesTheDeviceThatARequestLeftOpenAtTheNextOne)
{
    makeVendorDevice();
    const uint8_t mac[6] = {};
    const auto forms = [] {
        Journal calls;
        for (const std::string &call : journal) {
            calls.push_back(call.substr(0, call.starts_with("vendor") ? 17 : call.size()));
        }
        journal.clear();
        return calls;
    };
    const std::string reads = "vendor 0x40047601";
    const std::string writes = "vendor 0x40047602";
    vendor_storage_write(3, mac, 6);
    EXPECT_EQ(forms(), (Journal{"open vendor", writes}));
    world.vendorResult = -1;
    vendor_storage_write(3, mac, 6);
    EXPECT_EQ(forms(), (Journal{"close vendor", "open vendor", writes}));
    vendor_storage_read(3);
    EXPECT_EQ(forms(), (Journal{"close vendor", "open vendor", reads}));
    world.vendorResult = 0;
    vendor_storage_read(3);
    EXPECT_EQ(forms(), (Journal{"close vendor", "open vendor", reads, "close vendor"}));
    vendor_storage_read(3);
    EXPECT_EQ(forms(), (Journal{"open vendor", reads, "close vendor"}));
}

// The network record ------------------------------------------------------------------------------

TEST(NetworkRecord, WritesTheScriptsText)
{
    std::string text(kNetworkScriptSize, 'x');
    Command_Config_Network_String(text.data(), &kRecord);
    EXPECT_STREQ(text.c_str(), "#!/bin/sh\n"
                               "/etc/init.d/S41dhcpcd stop\n"
                               "sleep 1\n"
                               "ifconfig eth0 10.1.2.3 netmask 255.255.254.0\n"
                               "ip route add default via 10.1.3.254 dev eth0\n");
    const NetworkRecord longest{
        {255, 254, 253, 252}, {251, 250, 249, 248}, {247, 246, 245, 244}, {}};
    Command_Config_Network_String(text.data(), &longest);
    EXPECT_STREQ(text.c_str(), "#!/bin/sh\n"
                               "/etc/init.d/S41dhcpcd stop\n"
                               "sleep 1\n"
                               "ifconfig eth0 255.254.253.252 netmask 251.250.249.248\n"
                               "ip route add default via 247.246.245.244 dev eth0\n");
}

TEST(NetworkRecord, WritesNoScriptWithoutARecordOrAText)
{
    char text[kNetworkScriptSize] = "as it was";
    Command_Config_Network_String(text, nullptr);
    EXPECT_STREQ(text, "as it was");
    Command_Config_Network_String(nullptr, &kRecord);
    Command_Config_Network_String(nullptr, nullptr);
}

namespace {

const std::string kRecordScript = "#!/bin/sh\n"
                                  "/etc/init.d/S41dhcpcd stop\n"
                                  "sleep 1\n"
                                  "ifconfig eth0 10.1.2.3 netmask 255.255.254.0\n"
                                  "ip route add default via 10.1.3.254 dev eth0\n";

void configure()
{
    Command_Config_Network(&kRecord);
}

// The sleeps become part of the journal.
void noteSleeps()
{
    fakeClock.onSleep = [] {
        journal.push_back("usleep " + std::to_string(fakeClock.sleepsUs.back()));
    };
}

} // namespace

TEST(NetworkRecord, ConfiguresInOrder)
{
    makeVendorDevice();
    noteSleeps();
    std::vector<std::string> scripts; // as the file was at each command
    world.onSystem = [&scripts](const std::string &) { scripts.push_back(contentOf(kScript)); };
    EXPECT_EQ(withoutLineNumbers(printedBy(configure)),
              "[Command_Config_Network:N] Will Config eth0\n"
              "[Command_Config_Network:N] ip:10.1.2.3 netmask:255.255.254.0\n"
              "[Command_Config_Network:N] route:10.1.3.254 mac:02.76.65.73.6b.0f\n");
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
    noteSleeps();
    EXPECT_EQ(printedBy([] { Command_Config_Network(nullptr); }), "");
    EXPECT_EQ(journal, Journal());
    EXPECT_FALSE(exists(kScript));
}

TEST(NetworkRecord, ConfiguresWithoutVendorStorageAllTheSame)
{
    noteSleeps();
    EXPECT_EQ(withoutLineNumbers(printedBy(configure)),
              "vendor_storage open fail\n"
              "vendor_storage open fail\n"
              "[Command_Config_Network:N] Will Config eth0\n"
              "[Command_Config_Network:N] ip:10.1.2.3 netmask:255.255.254.0\n"
              "[Command_Config_Network:N] route:10.1.3.254 mac:02.76.65.73.6b.0f\n");
    EXPECT_EQ(journal[1], "usleep 300000");
    EXPECT_EQ(journal.back(), "system /etc/init.d/S50_Network_Conf.sh");
    EXPECT_EQ(contentOf(kScript), kRecordScript);
}

TEST(NetworkRecord, ConfiguresThoughTheVendorStorageRefuses)
{
    makeVendorDevice();
    world.vendorResult = -1;
    EXPECT_TRUE(printedBy(configure).starts_with("vendor write error\nvendor read error -1\n["));
    EXPECT_EQ(journal.back(), "system /etc/init.d/S50_Network_Conf.sh");
}

TEST(NetworkRecord, StopsWhenTheScriptCannotBeMade)
{
    makeVendorDevice();
    std::filesystem::remove_all("/etc/init.d");
    EXPECT_EQ(printedBy(configure), "");
    EXPECT_EQ(journal.back(), "fopen /etc/init.d/S50_Network_Conf.sh wb+");
    // The MAC address has been stored by then.
    EXPECT_EQ(std::count(journal.begin(), journal.end(),
                         "vendor 0x40047602 5145525603000600 027665736b0f"),
              1);
}

TEST(NetworkRecord, ReplacesAnOlderScript)
{
    writeFile(kScript, std::string(5000, '#'));
    printedBy(configure);
    EXPECT_EQ(contentOf(kScript), kRecordScript);
}

TEST(NetworkRecord, RunsTheScript)
{
    const std::string log = ">>/tmp/log\n";
    replaceTool("/etc/init.d/S41dhcpcd", "echo S41dhcpcd $* " + log);
    for (const std::string tool : {"sleep", "ifconfig", "ip"}) {
        replaceTool("/bin/" + tool, "echo " + tool + " $* " + log);
    }
    world.runsSystem = true;
    printedBy(configure);
    EXPECT_EQ(std::filesystem::status(kScript).permissions(), std::filesystem::perms{0755});
    EXPECT_EQ(contentOf("/tmp/log"), "S41dhcpcd stop\n"
                                     "sleep 1\n"
                                     "ifconfig eth0 10.1.2.3 netmask 255.255.254.0\n"
                                     "ip route add default via 10.1.3.254 dev eth0\n");
}

TEST(NetworkRecord, FiveThousandRecordsLeaveAsManyDescriptorsAsOne)
{
    makeVendorDevice();
    Console console;
    configure();
    const ptrdiff_t after1 = openDescriptors();
    for (int i = 1; i < 5000; ++i) {
        world.vendorResult = i % 3 == 0 ? -1 : 0;
        configure();
        journal.clear();
        fakeClock.sleepsUs.clear();
    }
    world.vendorResult = 0;
    configure();
    const ptrdiff_t after5000 = openDescriptors();
    console.end();
    EXPECT_EQ(after5000, after1);
}

TEST(NetworkRecord, FiveThousandRequestsLeaveAtMostOneDescriptor)
{
    makeVendorDevice();
    const uint8_t mac[6] = {};
    Console console;
    const ptrdiff_t before = openDescriptors();
    for (int i = 0; i < 5000; ++i) {
        world.vendorResult = i % 2 == 0 ? -1 : 0;
        vendor_storage_write(3, mac, 6);
        world.vendorResult = i % 3 == 0 ? -1 : 0;
        vendor_storage_read(3);
    }
    const ptrdiff_t after = openDescriptors();
    console.end();
    EXPECT_LE(after, before + 1);
}

namespace {

// What becomes of a record that was 0xEE all over, as hexadecimal text.
std::string liveRecord(std::string *printed)
{
    NetworkRecord record;
    std::memset(&record, 0xEE, sizeof record);
    *printed = withoutLineNumbers(printedBy([&record] { Command_Read_Network(&record); }));
    uint8_t bytes[sizeof record];
    std::memcpy(bytes, &record, sizeof bytes);
    return hex(bytes, sizeof bytes);
}

} // namespace

TEST(NetworkRecord, ReadsTheLiveRecord)
{
    std::string printed;
    EXPECT_EQ(liveRecord(&printed), "c0a80064ffffff00c0a80001027665736b01");
    EXPECT_EQ(printed, "[Command_Read_Network:N] Will Config eth0\n"
                       "[Command_Read_Network:N] ip:192.168.0.100 netmask:255.255.255.0\n"
                       "[Command_Read_Network:N] route:192.168.0.1 mac:02.76.65.73.6b.01\n");
    EXPECT_EQ(journal, (Journal{"socket", "ioctl 0x8915 eth0", "socket", "ioctl 0x891b eth0",
                                "popen ip route | grep default | awk '{print $3}'", "socket",
                                "ioctl 0x8927 eth0"}));
}

TEST(NetworkRecord, StopsReadingTheLiveRecordAtTheFirstFailure)
{
    const std::string heading = "[Command_Read_Network:N] Will Config eth0\n";
    const std::string failure = "Command_Read_Network fail\n";
    std::string printed;

    world.failingRequest = SIOCGIFADDR;
    EXPECT_EQ(liveRecord(&printed), std::string(36, 'e'));
    EXPECT_TRUE(printed.starts_with(heading) && printed.ends_with(failure)) << printed;
    EXPECT_EQ(journal.size(), 2u);

    world.failingRequest = SIOCGIFNETMASK;
    EXPECT_EQ(liveRecord(&printed), "c0a80064" + std::string(28, 'e'));
    EXPECT_EQ(printed, heading + "mac ioctl error\n" + failure);

    world.failingRequest = 0;
    world.popenFailsAt = 1;
    EXPECT_EQ(liveRecord(&printed), "c0a80064ffffff00" + std::string(20, 'e'));
    EXPECT_EQ(printed, heading + "popen error !\n" + failure);

    world.failingRequest = SIOCGIFHWADDR;
    EXPECT_EQ(liveRecord(&printed), "c0a80064ffffff00c0a80001" + std::string(12, 'e'));
    EXPECT_EQ(printed, heading + "mac ioctl error\n" + failure);

    world.socketFails = true;
    EXPECT_EQ(liveRecord(&printed), std::string(36, 'e'));
    EXPECT_EQ(printed, heading + "socket create fail\n" + failure);
}

// Comparing --------------------------------------------------------------------------------------

TEST(NetworkRecord, ComparesBytes)
{
    const uint8_t a[] = {1, 2, 3, 250};
    const uint8_t b[] = {1, 2, 5, 0};
    EXPECT_EQ(cmpBuf(a, a, 4), 0);
    EXPECT_EQ(cmpBuf(a, b, 2), 0);
    EXPECT_EQ(cmpBuf(a, b, 0), 0);
    EXPECT_EQ(cmpBuf(a, b, 3), -2);
    EXPECT_EQ(cmpBuf(a, b, 4), -2);
    EXPECT_EQ(cmpBuf(b, a, 4), 2);
    EXPECT_EQ(cmpBuf(a + 3, b + 3, 1), 250); // bytes have no sign
    EXPECT_EQ(cmpBuf(b + 3, a + 3, 1), -250);
}
