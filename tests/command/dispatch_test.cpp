// Every command and sub-command there can be, against the command table: as written down here, and
// as docs/protocol.md tells integrators. What the handlers call in other modules is replaced by
// notes of the call.

#include "command/dispatch.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "command/channel.h"
#include "command/reception.h"
#include "command/reply.h"
#include "control/ip.h"
#include "storage/UserPref.h"
#include "tests/support/bytes.h"
#include "tests/support/clock.h"
#include "tests/support/exchange.h"
#include "tests/support/replace.h"

namespace {

using Calls = std::vector<Sent>;

std::vector<std::string> journal; // every call of another module, in order
uint32_t systemVersion = 0x020D;
uint32_t serialNumber = 0x8123;

// What the getters yield: nothing that a test writes, so that a value read back shows.
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
    journal.push_back(call + (sent.empty() ? "" : " after the reply"));
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
// clang-format on

REPLACE(void, _Z7read_ipv, ())
{
    note("read_ip, isSetIp " + std::to_string(isSetIp));
}

REPLACE(void, _Z7setDhcph, (uint8_t enable))
{
    note("setDhcp " + std::to_string(enable));
}

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

REPLACE(uint32_t, _Z11getDeviceSNv, ())
{
    return serialNumber;
}

namespace {

// Channel 0 is the front board's line and asks.
class Dispatch : public testing::Test {
protected:
    Dispatch()
    {
        fakeClock.setMs(1000);
        InitRs232CommandVariable();
        getFreeChannel(2, 0);
        commandFrom = 0;
        getUserPref()->dhcpEnable = 1;
        std::memcpy(getUserPref()->mac, kMac, sizeof kMac);
    }

    // Executes the command. The calls that it makes are in `journal` and in `sent`.
    static void execute(const Parameters &parameters)
    {
        journal.clear();
        sent.clear();
        commandToLED = {parameters[0], parameters[1], parameters[2], parameters[3],
                        parameters[4], parameters[5], parameters[6], 0x77};
        std::memset(&commandFromLED, 0xB2, sizeof commandFromLED);
        const auto before = bytesOf(commandToLED);
        processCmdData();
        ASSERT_EQ(bytesOf(commandToLED), before); // handlers leave the request alone
    }
};

// One byte of a reply as a table writes it, in hexadecimal or by name.
uint8_t announcedByte(const std::string &word)
{
    static const std::map<std::string, uint8_t> kNames = {
        {"ip1", 0xA1},   {"ip2", 0xA2},   {"ip3", 0xA3},   {"ip4", 0xA4},   {"mask1", 0xB1},
        {"mask2", 0xB2}, {"mask3", 0xB3}, {"mask4", 0xB4}, {"gw1", 0xC1},   {"gw2", 0xC2},
        {"gw3", 0xC3},   {"gw4", 0xC4},   {"mac1", 0xD1},  {"mac2", 0xD2},  {"mac3", 0xD3},
        {"mac4", 0xD4},  {"mac5", 0xD5},  {"mac6", 0xD6},  {"major", 0x02}, {"minor", 0x0D},
        {"high", 0x81},  {"low", 0x23},   {"dhcp", 1},
    };
    const auto named = kNames.find(word);
    if (named != kNames.end()) {
        return named->second;
    }
    unsigned value = 0;
    char rest = '\0';
    const bool isByte = word.size() == 2 && std::sscanf(word.c_str(), "%2x%c", &value, &rest) == 1;
    EXPECT_TRUE(isByte) << "no such byte of a reply: \"" << word << "\"";
    return static_cast<uint8_t>(value);
}

bool isLeftToAnotherModule(const std::string &reply)
{
    return reply.rfind("see ", 0) == 0;
}

// The reply that a table announces: ACK, NAK, none, the four data bytes, or "see" for a handler of
// another module, which answers itself.
Calls announced(const std::string &reply, const Parameters &request)
{
    if (reply == "none" || isLeftToAnotherModule(reply)) {
        return {};
    }
    if (reply == "NAK") {
        return uart0({refusal(request)});
    }
    if (reply == "ACK") {
        return uart0({replyFrame(request)});
    }
    Parameters parameters = request;
    std::istringstream words(reply);
    for (size_t i = 3; i < parameters.size(); ++i) {
        std::string word;
        words >> word;
        parameters[i] = announcedByte(word);
    }
    EXPECT_TRUE(words.peek() == EOF) << "a reply of more than four bytes: \"" << reply << "\"";
    return uart0({replyFrame(parameters)});
}

// The command table, the rows that are not unknown.
constexpr uint16_t kAny = 0x100;
struct Expected {
    uint8_t command;
    uint16_t dat1; // or kAny
    const char *reply;
    const char *firstCall; // to another module; up to the "*" that it may end in
    const char *prints;
};
// clang-format off
constexpr Expected kCommands[] = {
    {0x10, 0x11, "ACK",                     "mymem_print_info",        ""},
    {0x68, 0x01, "01 26 33 00",             "",                        "read device type\n"},
    {0x6A, 0x03, "03 01 0A 00",             "",                        ""},
    {0x6A, 0x04, "04 02 0D 00",             "getSystemVersion",        ""},
    {0x6A, 0x10, "ACK",                     "saveDeviceSN *",          ""},
    {0x6A, 0x11, "11 81 23 00",             "",                        ""},
    {0x73, kAny, "NAK",                     "WrInputSource",           ""},
    {0x74, kAny, "NAK",                     "WrOutputFormat",          ""},
    {0x75, kAny, "NAK",                     "WrLayerSetting",          ""},
    {0x76, kAny, "NAK",                     "WrOutputSetting",         ""},
    {0x77, kAny, "NAK",                     "WrInputSetting",          ""},
    {0x78, kAny, "NAK",                     "WrSwitchSetting",         ""},
    {0x7D, kAny, "NAK",                     "WrTpMode",                ""},
    {0x84, kAny, "mask1 mask2 mask3 mask4", "SetNetMask *",            ""},
    {0x85, kAny, "mask1 mask2 mask3 mask4", "GetNetMask",              ""},
    {0x86, kAny, "NAK",                     "WRHdmiOutDeTask",         ""},
    {0x88, kAny, "ip1 ip2 ip3 ip4",         "SetIpAddress *",          ""},
    {0x89, kAny, "ip1 ip2 ip3 ip4",         "read_ip*",                ""},
    {0x8B, kAny, "NAK",                     "cmd_timeControl_task",    ""},
    {0x8C, kAny, "gw1 gw2 gw3 gw4",         "SetDefGW *",              ""},
    {0x8D, kAny, "gw1 gw2 gw3 gw4",         "GetDefGW",                ""},
    {0x8E, 0x02, "ACK",                     "setDhcp *",               ""},
    {0x8E, 0x03, "03 01 00 00",             "",                        ""},
    {0x8E, 0x05, "05 D1 D2 D3",             "",                        ""},
    {0x8E, 0x07, "07 D4 D5 D6",             "",                        ""},
    {0x8E, kAny, "none",                    "",                        ""},
    {0x97, kAny, "NAK",                     "cmd_workTime_task",       ""},
    {0x9A, kAny, "see update",              "SoftwareUpdate",          ""},
    {0xF0, kAny, "see data",                "writeDataSetting",        ""},
    {0xF1, kAny, "see data",                "readDataSetting",         ""},
    {0xF2, kAny, "see text",                "writeStringValueSetting", ""},
    {0xF3, kAny, "see text",                "readStringValueSetting",  ""},
};
// clang-format on
constexpr Expected kUnknown = {0, 0, "NAK", "", ""};

const Expected &findExpected(uint8_t command, uint8_t dat1)
{
    for (const Expected &expected : kCommands) {
        if (expected.command == command && (expected.dat1 == kAny || expected.dat1 == dat1)) {
            return expected;
        }
    }
    return kUnknown;
}

bool isFirstCall(const std::string &expected)
{
    if (expected.empty() || journal.empty()) {
        return expected.empty() && journal.empty();
    }
    return expected.back() == '*'
               ? journal[0].rfind(expected.substr(0, expected.size() - 1), 0) == 0
               : journal[0] == expected;
}

TEST_F(Dispatch, AnswersEveryCommandAndSubCommandAsTheTableSays)
{
    std::string expectedPrints;
    const std::string prints = printedBy([&] {
        for (unsigned code = 0; code < 0x10000; ++code) {
            const auto command = static_cast<uint8_t>(code >> 8);
            const auto dat1 = static_cast<uint8_t>(code);
            // Parameters that differ from command to command and from each other.
            const auto mixed = static_cast<uint8_t>(code * 0x9D + (code >> 8));
            const Parameters request = {static_cast<uint8_t>(mixed + 0x11),
                                        static_cast<uint8_t>(mixed + 0x22),
                                        command,
                                        dat1,
                                        static_cast<uint8_t>(mixed | 2), // another DHCP value
                                        static_cast<uint8_t>(mixed + 0x44),
                                        static_cast<uint8_t>(mixed + 0x55)};
            const Expected &expected = findExpected(command, dat1);
            execute(request);
            ASSERT_EQ(sent, announced(expected.reply, request))
                << "command, dat1: " << hex(&request[2], 2);
            ASSERT_TRUE(isFirstCall(expected.firstCall))
                << "command, dat1: " << hex(&request[2], 2) << " called "
                << testing::PrintToString(journal);
            expectedPrints += expected.prints;
        }
    });
    EXPECT_EQ(prints, expectedPrints);
}

// A row of the table under "## Commands" of docs/protocol.md.
struct DocumentRow {
    std::string line;
    std::vector<std::string> cells; // command, dat1, what, reply

    bool isFor(const std::string &command, const std::string &dat1) const
    {
        return cells[0] == "every other" ||
               (cells[0] == command &&
                (cells[1] == dat1 || cells[1] == "other" || cells[1] == "any"));
    }
};

std::string stripped(const std::string &text)
{
    const size_t first = text.find_first_not_of(' ');
    return first == text.npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::vector<DocumentRow> readDocument()
{
    std::ifstream document(PROTOCOL_DOCUMENT);
    std::vector<DocumentRow> rows;
    bool isInTable = false;
    for (std::string line; std::getline(document, line);) {
        if (line.rfind("## ", 0) == 0) {
            isInTable = line == "## Commands";
        }
        if (!isInTable || line.rfind("| ", 0) != 0) {
            continue;
        }
        rows.push_back({line, {}});
        std::istringstream cells(line.substr(1));
        for (std::string cell; std::getline(cells, cell, '|');) {
            rows.back().cells.push_back(stripped(cell.substr(0, cell.find('('))));
        }
        EXPECT_EQ(rows.back().cells.size(), 4u) << line;
    }
    return rows;
}

TEST_F(Dispatch, TableIsThatOfTheProtocolDocument)
{
    std::vector<DocumentRow> rows = readDocument();
    ASSERT_EQ(rows.size(), 37u) << PROTOCOL_DOCUMENT;
    rows.erase(rows.begin()); // the heading
    ASSERT_FALSE(HasFailure());
    std::vector<bool> isUsed(rows.size());
    for (unsigned code = 0; code < 0x10000; ++code) {
        const Parameters request = {
            1, 2, static_cast<uint8_t>(code >> 8), static_cast<uint8_t>(code), 3, 4, 5};
        char text[5];
        std::snprintf(text, sizeof text, "%04X", code);
        const auto row = std::find_if(rows.begin(), rows.end(), [&](const DocumentRow &each) {
            return each.isFor({text, 2}, {text + 2, 2});
        });
        ASSERT_NE(row, rows.end()) << text;
        isUsed[static_cast<size_t>(row - rows.begin())] = true;
        const std::string &reply = row->cells[3];
        const std::string expected = findExpected(request[2], request[3]).reply;
        ASSERT_EQ(announced(reply, request), announced(expected, request)) << row->line;
        ASSERT_FALSE(HasFailure()) << row->line;
        ASSERT_EQ(isLeftToAnotherModule(reply), isLeftToAnotherModule(expected)) << row->line;
    }
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_TRUE(isUsed[i]) << "no command is meant by " << rows[i].line;
    }
}

// The documented exchanges, written out.
TEST_F(Dispatch, ExecutesTheRows)
{
    struct Row {
        const char *name;
        const char *request;
        std::string reply;
        std::string before; // calls of other modules, and what is printed, before the reply
    };
    // clang-format off
    const Row rows[] = {
        {"device type",         "<T0000680100000069>", "<F00006801263300c2>","read device type"},
        {"memory use",          "<T0102101103040530>", "<F0102101103040530>","mymem_print_info"},
        {"10 with dat1 12",     "<T0102101203040531>", "<F010210ffffffff0f>",""},
        {"0F",                  "<T00000f1100000020>", "<F00000fffffffff0b>",""},
        {"F4",                  "<T0000f400000000f4>", "<F0000f4fffffffff0>",""},
        {"protocol version",    "<T00006a03eeeeee37>", "<F00006a03010a0078>",""},
        {"system version",      "<T00006a04eeeeee38>", "<F00006a04020d007d>","getSystemVersion"},
        {"write serial number", "<T00006a10123400c0>", "<F00006a10123400c0>","saveDeviceSN 4660"},
        {"its dat4 has no say", "<T00006a10ffff0981>", "<F00006a10ffff0981>","saveDeviceSN 65535"},
        {"read serial number",  "<T00006a1109090996>", "<F00006a118123001f>",""},
        {"write net mask",      "<T010284fffffe078a>", "<F010284b1b2b3b451>",
         "SetNetMask 255.255.254.7\nGetNetMask"},
        {"read net mask",       "<T01028509090909ac>", "<F010285b1b2b3b452>","GetNetMask"},
        {"read IP address",     "<T5ac38909090909ca>", "<F5ac389a1a2a3a430>",
         "read_ip, isSetIp 0\nGetIpAddress"},
        {"write gateway",       "<T01028cc0a80001f8>", "<F01028cc1c2c3c499>",
         "SetDefGW 192.168.0.1\nGetDefGW"},
        {"read gateway",        "<T01028d09090909b4>", "<F01028dc1c2c3c49a>","GetDefGW"},
        {"write DHCP 0",        "<T01028e02000809a4>", "<F01028e02000809a4>","setDhcp 0"},
        {"write DHCP 1",        "<T01028e02010809a5>", "<F01028e02010809a5>","setDhcp 1"},
        {"write DHCP 255",      "<T01028e02ff0809a3>", "<F01028e02ff0809a3>","setDhcp 255"},
        {"read DHCP",           "<T00008e03090909ac>", "<F00008e0301000092>",""},
        {"MAC, first half",     "<T00008e05090909ae>", "<F00008e05d1d2d309>",""},
        {"MAC, last half",      "<T00008e07090909b0>", "<F00008e07d4d5d614>",""},
        {"8E with dat1 04",     "<T00008e0401000093>", "",                   ""},
        {"write IP address",    "<T0102880a141e28ef>", "<F010288a1a2a3a415>",
         "SetIpAddress 10.20.30.40\nread_ip, isSetIp 1\nGetIpAddress"},
    };
    // clang-format on
    for (const Row &row : rows) {
        EXPECT_EQ(isSetIp, 0) << row.name; // set by the last row only
        Rs232Command request;
        StrToRs232Command(row.request, &request);
        Parameters parameters;
        std::memcpy(parameters.data(), &request, parameters.size());
        EXPECT_EQ(transcriptOf([&] { execute(parameters); }),
                  row.before + (row.before.empty() ? "" : "\n") +
                      (row.reply.empty() ? "" : "> " + row.reply + "\n"))
            << row.name;
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

// Pass-through mode ------------------------------------------------------------------------------

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
