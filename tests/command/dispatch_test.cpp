// Every command and sub-command there can be, against the command table: as written down here, and
// as docs/protocol.md tells integrators. Calls of other modules are noted instead.

#include "command/dispatch.h"

#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "control/ip.h"
#include "storage/UserPref.h"
#include "tests/support/arrival.h"
#include "tests/support/bytes.h"
#include "tests/support/replace.h"

namespace {

using Calls = std::vector<Sent>;

std::vector<std::string> journal; // every call of another module, in order
uint32_t systemVersion = 0x020D;
uint32_t serialNumber = 0x8123;

// What the getters yield, which is nothing that a test writes.
constexpr uint8_t kIp[] = {0xA1, 0xA2, 0xA3, 0xA4};
constexpr uint8_t kMask[] = {0xB1, 0xB2, 0xB3, 0xB4};
constexpr uint8_t kGateway[] = {0xC1, 0xC2, 0xC3, 0xC4};
constexpr uint8_t kMac[] = {0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6};

// In a transcript the call is a line of its own.
void note(const std::string &call)
{
    if (printsSent) {
        std::puts(call.c_str());
    }
    journal.push_back((sent.empty() ? "" : "late ") + call);
}

} // namespace

// clang-format off
#define NOTED(name, operation) REPLACE(void, name, ()) { note(operation); }
#define NOTED_AND_EXECUTED(name, operation)                                                        \
    REPLACE(void, name, ()) { note(operation); REAL(name)(); }
#define NOTED_SETTER(name, operation)                                                              \
    REPLACE(void, name, (const uint8_t *address)) { note(operation " " + dotted(address)); }
#define NOTED_GETTER(name, operation, value)                                                       \
    REPLACE(void, name, (uint8_t *address))                                                        \
    {                                                                                              \
        note(operation);                                                                           \
        std::memcpy(address, value, sizeof value);                                                 \
    }

NOTED(_Z16mymem_print_infov,          "mymem_print_info")
NOTED(_Z14SoftwareUpdatev,            "SoftwareUpdate")
NOTED(_Z16writeDataSettingv,          "writeDataSetting")
NOTED(_Z15readDataSettingv,           "readDataSetting")
NOTED(_Z23writeStringValueSettingv,   "writeStringValueSetting")
NOTED(_Z22readStringValueSettingv,    "readStringValueSetting")
NOTED_AND_EXECUTED(_Z13WrInputSourcev,        "WrInputSource")
NOTED_AND_EXECUTED(_Z14WrOutputFormatv,       "WrOutputFormat")
NOTED_AND_EXECUTED(_Z14WrLayerSettingv,       "WrLayerSetting")
NOTED_AND_EXECUTED(_Z15WrOutputSettingv,      "WrOutputSetting")
NOTED_AND_EXECUTED(_Z14WrInputSettingv,       "WrInputSetting")
NOTED_AND_EXECUTED(_Z15WrSwitchSettingv,      "WrSwitchSetting")
NOTED_AND_EXECUTED(_Z8WrTpModev,              "WrTpMode")
NOTED_AND_EXECUTED(_Z15WRHdmiOutDeTaskv,      "WRHdmiOutDeTask")
NOTED_AND_EXECUTED(_Z20cmd_timeControl_taskv, "cmd_timeControl_task")
NOTED_AND_EXECUTED(_Z17cmd_workTime_taskv,    "cmd_workTime_task")
NOTED_SETTER(_Z12SetIpAddressPKh, "SetIpAddress")
NOTED_SETTER(_Z10SetNetMaskPKh,   "SetNetMask")
NOTED_SETTER(_Z8SetDefGWPKh,      "SetDefGW")
NOTED_GETTER(_Z12GetIpAddressPh,  "GetIpAddress", kIp)
NOTED_GETTER(_Z10GetNetMaskPh,    "GetNetMask",   kMask)
NOTED_GETTER(_Z8GetDefGWPh,       "GetDefGW",     kGateway)
REPLACE(void, _Z7read_ipv, ()) { note("read_ip with isSetIp " + std::to_string(isSetIp)); }
REPLACE(void, _Z7setDhcph, (uint8_t enable)) { note("setDhcp " + std::to_string(enable)); }
REPLACE(uint32_t, _Z11getDeviceSNv, ()) { return serialNumber; }
// clang-format on

REPLACE(uint32_t, _Z16getSystemVersionv, ())
{
    note("getSystemVersion");
    return systemVersion;
}

REPLACE(int32_t, _Z12saveDeviceSNj, (uint32_t number))
{
    note("saveDeviceSN " + std::to_string(number));
    return 1;
}

namespace {

// Channel 0 is the front board's line and asks.
class Dispatch : public testing::Test {
protected:
    Dispatch()
    {
        fakeClock.setMs(1000);
        openLine();
        getUserPref()->dhcpEnable = 1;
        std::memcpy(getUserPref()->mac, kMac, sizeof kMac);
    }

    // Executes the command. The calls that it makes are in `journal` and in `sent`.
    static void execute(const Parameters &parameters)
    {
        journal.clear();
        sent.clear();
        request(parameters);
        const auto before = bytesOf(commandToLED);
        processCmdData();
        ASSERT_EQ(bytesOf(commandToLED), before); // handlers leave the request alone
    }
};

// The table under "## Commands" of the protocol document, in its words and order.
struct Expected {
    const char *command, *dat1, *reply;
    const char *calls; // of other modules, without parameters
    const char *prints = "";
};
// clang-format off
constexpr Expected kCommands[] = {
    {"10", "11",    "ACK",                     "mymem_print_info"},
    {"10", "other", "NAK",                     ""},
    {"68", "01",    "01 26 33 00",             "", "read device type\n"},
    {"68", "other", "NAK",                     ""},
    {"6A", "03",    "03 01 0A 00",             ""},
    {"6A", "04",    "04 major minor 00",       "getSystemVersion"},
    {"6A", "10",    "ACK",                     "saveDeviceSN"},
    {"6A", "11",    "11 high low 00",          ""},
    {"6A", "other", "NAK",                     ""},
    {"73", "any",   "NAK",                     "WrInputSource"},
    {"74", "any",   "NAK",                     "WrOutputFormat"},
    {"75", "any",   "NAK",                     "WrLayerSetting"},
    {"76", "any",   "NAK",                     "WrOutputSetting"},
    {"77", "any",   "NAK",                     "WrInputSetting"},
    {"78", "any",   "NAK",                     "WrSwitchSetting"},
    {"7D", "any",   "NAK",                     "WrTpMode"},
    {"84", "any",   "mask1 mask2 mask3 mask4", "SetNetMask GetNetMask"},
    {"85", "any",   "mask1 mask2 mask3 mask4", "GetNetMask"},
    {"86", "any",   "NAK",                     "WRHdmiOutDeTask"},
    {"88", "any",   "ip1 ip2 ip3 ip4",         "SetIpAddress read_ip GetIpAddress"},
    {"89", "any",   "ip1 ip2 ip3 ip4",         "read_ip GetIpAddress"},
    {"8B", "any",   "NAK",                     "cmd_timeControl_task"},
    {"8C", "any",   "gw1 gw2 gw3 gw4",         "SetDefGW GetDefGW"},
    {"8D", "any",   "gw1 gw2 gw3 gw4",         "GetDefGW"},
    {"8E", "02",    "ACK",                     "setDhcp"},
    {"8E", "03",    "03 dhcp 00 00",           ""},
    {"8E", "05",    "05 mac1 mac2 mac3",       ""},
    {"8E", "07",    "07 mac4 mac5 mac6",       ""},
    {"8E", "other", "none",                    ""},
    {"97", "any",   "NAK",                     "cmd_workTime_task"},
    {"9A", "any",   "see \"Firmware update\"", "SoftwareUpdate"},
    {"F0", "any",   "see \"Data\"",            "writeDataSetting"},
    {"F1", "any",   "see \"Data\"",            "readDataSetting"},
    {"F2", "any",   "see \"Text\"",            "writeStringValueSetting"},
    {"F3", "any",   "see \"Text\"",            "readStringValueSetting"},
    {"every other", "any", "NAK",              ""},
};
// clang-format on

const Expected &findExpected(uint8_t command, uint8_t dat1)
{
    char text[5];
    std::snprintf(text, sizeof text, "%02X%02X", command, dat1);
    return *std::find_if(kCommands, std::end(kCommands) - 1, [&](const Expected &row) {
        const std::string second = row.dat1;
        return std::string(text, 2) == row.command &&
               (second == text + 2 || second == "any" || second == "other");
    });
}

// The table's reply. After "see" it is that of a handler of another module, which is not executed.
Calls announced(const std::string &reply, const Parameters &request)
{
    static const std::map<std::string, uint8_t> kNames = {
        {"ip1", 0xA1},   {"ip2", 0xA2},   {"ip3", 0xA3},   {"ip4", 0xA4},   {"mask1", 0xB1},
        {"mask2", 0xB2}, {"mask3", 0xB3}, {"mask4", 0xB4}, {"gw1", 0xC1},   {"gw2", 0xC2},
        {"gw3", 0xC3},   {"gw4", 0xC4},   {"mac1", 0xD1},  {"mac2", 0xD2},  {"mac3", 0xD3},
        {"mac4", 0xD4},  {"mac5", 0xD5},  {"mac6", 0xD6},  {"major", 0x02}, {"minor", 0x0D},
        {"high", 0x81},  {"low", 0x23},   {"dhcp", 1},
    };
    if (reply == "none" || reply.rfind("see ", 0) == 0) {
        return {};
    }
    if (reply == "NAK") {
        return uart0({refusal(request)});
    }
    Parameters parameters = request;
    if (reply != "ACK") {
        std::istringstream words(reply);
        std::string word;
        for (size_t i = 3; words >> word; ++i) {
            const bool isNamed = kNames.contains(word);
            const auto value = isNamed ? kNames.at(word) : std::stoul(word, nullptr, 16);
            parameters.at(i) = static_cast<uint8_t>(value);
        }
    }
    return uart0({replyFrame(parameters)});
}

// The operations that were called. Of one after the reply it is the word "late".
std::string called()
{
    std::string words;
    for (const std::string &call : journal) {
        words += (words.empty() ? "" : " ") + call.substr(0, call.find(' '));
    }
    return words;
}

TEST_F(Dispatch, AnswersEveryCommandAndSubCommandAsTheTableSays)
{
    std::string expectedPrints;
    std::set<const Expected *> used;
    const std::string prints = printedBy([&] {
        for (unsigned code = 0; code < 0x10000; ++code) {
            const auto command = static_cast<uint8_t>(code >> 8);
            const auto dat1 = static_cast<uint8_t>(code);
            // Parameters that differ from command to command and from each other.
            const auto mixed = static_cast<uint8_t>(code * 0x9D + (code >> 8));
            Parameters request = {0x11, 0x22, command, dat1, 0, 0x44, 0x55};
            for (const size_t i : {0u, 1u, 5u, 6u}) {
                request[i] = static_cast<uint8_t>(request[i] + mixed);
            }
            request[4] = mixed | 2; // another DHCP value
            const Expected &expected = findExpected(command, dat1);
            used.insert(&expected);
            execute(request);
            ASSERT_EQ(sent, announced(expected.reply, request)) << hex(&request[2], 2);
            ASSERT_EQ(called(), expected.calls) << hex(&request[2], 2);
            expectedPrints += expected.prints;
        }
    });
    EXPECT_EQ(prints, expectedPrints);
    EXPECT_EQ(used.size(), std::size(kCommands));
}

TEST_F(Dispatch, TableIsThatOfTheProtocolDocument)
{
    std::vector<std::string> expected = {"command | dat1 | reply dat1 to dat4"};
    for (const Expected &row : kCommands) {
        expected.push_back(std::string(row.command) + " | " + row.dat1 + " | " + row.reply);
    }
    // The third cell, and what stands in brackets at the end of the fourth, are for people.
    const std::regex row(R"(\| ([^|]+) \| ([^|]+) \|[^|]*\| ([^|(]+)( \([^|]*\))? \|)");
    std::vector<std::string> documented;
    std::ifstream document(PROTOCOL_DOCUMENT);
    bool isInTable = false;
    for (std::string line; std::getline(document, line);) {
        if (line.rfind("## ", 0) == 0) {
            isInTable = line == "## Commands";
        }
        std::smatch cells;
        if (isInTable && std::regex_match(line, cells, row)) {
            documented.push_back(cells.format("$1 | $2 | $3"));
        }
    }
    EXPECT_EQ(documented, expected);
}

// What the table above does not show: the parameters of the calls, and their order with the reply.
TEST_F(Dispatch, ExecutesTheRows)
{
    // clang-format off
    const struct {
        const char *name, *request;
        std::string reply;
        std::string before; // calls of other modules, and what is printed, before the reply
    } rows[] = {
        {"memory use",          "<T0102101103040530>", "<F0102101103040530>","mymem_print_info"},
        {"10 with dat1 12",     "<T0102101203040531>", "<F010210ffffffff0f>",""},
        {"0F",                  "<T00000f1100000020>", "<F00000fffffffff0b>",""},
        {"F4",                  "<T0000f400000000f4>", "<F0000f4fffffffff0>",""},
        {"write serial number", "<T00006a10123400c0>", "<F00006a10123400c0>","saveDeviceSN 4660"},
        {"its dat4 has no say", "<T00006a10ffff0981>", "<F00006a10ffff0981>","saveDeviceSN 65535"},
        {"read serial number",  "<T00006a1109090996>", "<F00006a118123001f>",""},
        {"write net mask",      "<T010284fffffe078a>", "<F010284b1b2b3b451>",
         "SetNetMask 255.255.254.7\nGetNetMask"},
        {"read IP address",     "<T5ac38909090909ca>", "<F5ac389a1a2a3a430>",
         "read_ip with isSetIp 0\nGetIpAddress"},
        {"write gateway",       "<T01028cc0a80001f8>", "<F01028cc1c2c3c499>",
         "SetDefGW 192.168.0.1\nGetDefGW"},
        {"write DHCP 0",        "<T01028e02000809a4>", "<F01028e02000809a4>","setDhcp 0"},
        {"write DHCP 1",        "<T01028e02010809a5>", "<F01028e02010809a5>","setDhcp 1"},
        {"write DHCP 255",      "<T01028e02ff0809a3>", "<F01028e02ff0809a3>","setDhcp 255"},
        {"8E with dat1 04",     "<T00008e0401000093>", "",                   ""},
        {"write IP address",    "<T0102880a141e28ef>", "<F010288a1a2a3a415>",
         "SetIpAddress 10.20.30.40\nread_ip with isSetIp 1\nGetIpAddress"},
    };
    // clang-format on
    for (const auto &row : rows) {
        EXPECT_EQ(isSetIp, 0) << row.name; // set by the last row only
        Rs232Command request;
        StrToRs232Command(row.request, &request);
        Parameters parameters;
        std::memcpy(parameters.data(), &request, parameters.size());
        const std::string before = row.before + (row.before.empty() ? "" : "\n");
        const std::string reply = row.reply.empty() ? "" : "> " + row.reply + "\n";
        EXPECT_EQ(transcriptOf([&] { execute(parameters); }), before + reply) << row.name;
    }
    EXPECT_EQ(isSetIp, 1);
}

TEST_F(Dispatch, AnswersValuesAsTheyAreStored)
{
    systemVersion = 0xFFFFFFFF; // the command could not run
    serialNumber = 0xABCD1234;  // of which the low 16 bits count
    getUserPref()->dhcpEnable = 7;
    EXPECT_EQ(printedBy([] { execute({0, 0, 0x6A, 4, 0, 0, 0}); }), "");
    EXPECT_EQ(sent, uart0({"<F00006a04ffff006c>"}));
    execute({0, 0, 0x6A, 0x11, 0, 0, 0});
    EXPECT_EQ(sent, uart0({"<F00006a11123400c1>"}));
    execute({0, 0, 0x8E, 3, 9, 9, 9});
    EXPECT_EQ(sent, uart0({"<F00008e0307000098>"}));
}

TEST_F(Dispatch, IgnoresEveryCommandButOneInPassThroughMode)
{
    EXPECT_EQ(uart0Touart, 0u);
    uart0Touart = 1;
    const std::string prints = printedBy([&] {
        for (const uint8_t address : std::array<uint8_t, 4>{0, 1, 0x40, 0xFF}) {
            for (unsigned code = 0; code < 0x10000; ++code) {
                const auto command = static_cast<uint8_t>(code >> 8);
                const auto dat1 = static_cast<uint8_t>(code);
                const Parameters request = {address, 2, command, dat1, 4, 5, 6};
                const bool isHeard = address == 0 && command == 0x68 && dat1 == 0x40;
                execute(request);
                ASSERT_EQ(sent, isHeard ? uart0({refusal(request)}) : Calls())
                    << "address " << unsigned{address} << ", " << hex(&request[2], 2);
                ASSERT_TRUE(journal.empty()) << hex(&request[2], 2);
            }
        }
    });
    EXPECT_EQ(prints, "");
}

TEST_F(Dispatch, TakesAnyValueButZeroForPassThroughMode)
{
    for (const uint32_t value : {1u, 2u, 0x100u, 0x80000000u, 0xFFFFFFFFu, 0u}) {
        uart0Touart = value;
        execute({0, 0, 0x6A, 3, 0, 0, 0});
        EXPECT_EQ(sent, value != 0 ? Calls() : uart0({"<F00006a03010a0078>"})) << value;
        EXPECT_EQ(uart0Touart, value);
    }
}

TEST_F(Dispatch, CopiesTheRequestIntoTheReplyBeforeItLooksAtTheMode)
{
    uart0Touart = 1;
    execute({1, 2, 3, 4, 5, 6, 7});
    EXPECT_EQ(sent, Calls());
    // address, tag and checksum are as they were
    EXPECT_EQ(bytesOf(commandFromLED), (std::array<uint8_t, 8>{0xB2, 0xB2, 3, 4, 5, 6, 7, 0xB2}));
}

} // namespace
