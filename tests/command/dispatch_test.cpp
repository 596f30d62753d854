// Every command and sub-command there can be, against the protocol's command table. What the
// handlers call in other modules is replaced by notes of the call. The module's source is part of
// this file, so that the way into the named operations is in sight.

#include "command/dispatch.cpp"

#include <array>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "command/channel.h"
#include "command/reception.h"
#include "command/unsupported.h"
#include "control/ip.h"
#include "storage/DeviceInfo.h"
#include "storage/UserPref.h"
#include "tests/support/clock.h"
#include "tests/support/exchange.h"

namespace {

// Link-time fakes of what the handlers call ------------------------------------------------------

std::vector<std::string> journal; // every call, in order
UserPref preferences;
uint32_t systemVersion = 0x020D;
uint32_t serialNumber = 0x8123;

// What the getters yield: nothing that a test writes, so that a value read back shows.
constexpr uint8_t kIp[] = {0xA1, 0xA2, 0xA3, 0xA4};
constexpr uint8_t kMask[] = {0xB1, 0xB2, 0xB3, 0xB4};
constexpr uint8_t kGateway[] = {0xC1, 0xC2, 0xC3, 0xC4};
constexpr uint8_t kMac[] = {0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6};

void note(const std::string &call)
{
    journal.push_back(call + (sent.empty() ? "" : " behind the reply"));
}

std::string dotted(const uint8_t *address)
{
    std::string text = std::to_string(address[0]);
    for (int i = 1; i < 4; ++i) {
        text += '.';
        text += std::to_string(address[i]);
    }
    return text;
}

} // namespace

extern "C" {
// mymem_print_info(), as the linker knows it.
void __wrap__Z16mymem_print_infov();

void __wrap__Z16mymem_print_infov()
{
    note("mymem_print_info");
}
}

uint8_t isSetIp;

uint32_t getSystemVersion()
{
    note("getSystemVersion");
    return systemVersion;
}

int32_t saveDeviceSN(uint32_t number)
{
    note("saveDeviceSN " + std::to_string(number));
    return 1;
}

uint32_t getDeviceSN()
{
    return serialNumber;
}

UserPref *getUserPref()
{
    return &preferences;
}

int32_t saveUserPref()
{
    note("saveUserPref");
    return 1;
}

void SetNetMask(const uint8_t *mask)
{
    note("SetNetMask " + dotted(mask));
}

void GetNetMask(uint8_t *mask)
{
    note("GetNetMask");
    std::memcpy(mask, kMask, sizeof kMask);
}

void SetIpAddress(const uint8_t *ip)
{
    note("SetIpAddress " + dotted(ip));
}

void read_ip()
{
    note("read_ip, isSetIp " + std::to_string(isSetIp));
}

void GetIpAddress(uint8_t *ip)
{
    note("GetIpAddress");
    std::memcpy(ip, kIp, sizeof kIp);
}

void SetDefGW(const uint8_t *gateway)
{
    note("SetDefGW " + dotted(gateway));
}

void GetDefGW(uint8_t *gateway)
{
    note("GetDefGW");
    std::memcpy(gateway, kGateway, sizeof kGateway);
}

void setDhcp(uint8_t enable)
{
    note("setDhcp " + std::to_string(enable));
}

void SoftwareUpdate()
{
    note("SoftwareUpdate");
}

void writeDataSetting()
{
    note("writeDataSetting");
}

void readDataSetting()
{
    note("readDataSetting");
}

void writeStringValueSetting()
{
    note("writeStringValueSetting");
}

void readStringValueSetting()
{
    note("readStringValueSetting");
}

namespace {

using Calls = std::vector<Sent>;
using Journal = std::vector<std::string>;

// Channel 0 is the front board's line and asks.
class Dispatch : public testing::Test {
protected:
    Dispatch()
    {
        fakeClock.setMs(1000);
        InitRs232CommandVariable();
        getFreeChannel(2, 0);
        commandFrom = 0;
        preferences.dhcpEnable = 1;
        std::memcpy(preferences.mac, kMac, sizeof kMac);
    }

    static void request(const Parameters &parameters)
    {
        commandToLED = {parameters[0], parameters[1], parameters[2], parameters[3],
                        parameters[4], parameters[5], parameters[6], 0x77};
        std::memset(&commandFromLED, 0xB2, sizeof commandFromLED);
    }

    // The calls that the command makes end up in `journal`.
    static Calls answer(const Parameters &parameters)
    {
        journal.clear();
        request(parameters);
        processCmdData();
        return takeSent();
    }

    static Calls uart(const std::string &frame)
    {
        return {{"uart 0", frame}};
    }
};

// The reply that a table announces, in the words of docs/protocol.md: ACK, NAK, none, the four data
// bytes, or "see" for a handler of another module, which answers itself.
Calls announcedReply(const std::string &reply, const Parameters &request)
{
    if (reply == "none" || reply.rfind("see ", 0) == 0) {
        return {};
    }
    if (reply == "NAK") {
        return {{"uart 0", refusal(request)}};
    }
    if (reply == "ACK") {
        return {{"uart 0", replyFrame(request)}};
    }
    const std::map<std::string, uint8_t> names = {
        {"ip1", kIp[0]},
        {"ip2", kIp[1]},
        {"ip3", kIp[2]},
        {"ip4", kIp[3]},
        {"mask1", kMask[0]},
        {"mask2", kMask[1]},
        {"mask3", kMask[2]},
        {"mask4", kMask[3]},
        {"gw1", kGateway[0]},
        {"gw2", kGateway[1]},
        {"gw3", kGateway[2]},
        {"gw4", kGateway[3]},
        {"mac1", kMac[0]},
        {"mac2", kMac[1]},
        {"mac3", kMac[2]},
        {"mac4", kMac[3]},
        {"mac5", kMac[4]},
        {"mac6", kMac[5]},
        {"major", 0x02},
        {"minor", 0x0D},
        {"high", 0x81},
        {"low", 0x23},
        {"dhcp", preferences.dhcpEnable},
    };
    Parameters parameters = request;
    std::istringstream words(reply);
    for (size_t i = 3; i < parameters.size(); ++i) {
        std::string word;
        words >> word;
        const auto named = names.find(word);
        parameters[i] = named != names.end() ? named->second
                                             : static_cast<uint8_t>(std::stoul(word, nullptr, 16));
    }
    return {{"uart 0", replyFrame(parameters)}};
}

// The command table, the rows that are not refused.
struct Expected {
    uint8_t command;
    uint16_t dat1; // or kAny
    const char *reply;
    const char *firstCall; // to another module; up to the "*" that it may end in
    const char *prints;
};
// clang-format off
constexpr Expected kCommands[] = {
    {0x10, 0x11, "ACK",                         "mymem_print_info",        ""},
    {0x68, 0x01, "01 26 33 00",                 "",                        "read device type\n"},
    {0x6A, 0x03, "03 01 0A 00",                 "",                        ""},
    {0x6A, 0x04, "04 02 0D 00",                 "getSystemVersion",        ""},
    {0x6A, 0x10, "ACK",                         "saveDeviceSN *",          ""},
    {0x6A, 0x11, "11 81 23 00",                 "",                        ""},
    {0x84, kAny, "mask1 mask2 mask3 mask4",     "SetNetMask *",            ""},
    {0x85, kAny, "mask1 mask2 mask3 mask4",     "GetNetMask",              ""},
    {0x88, kAny, "ip1 ip2 ip3 ip4",             "SetIpAddress *",          ""},
    {0x89, kAny, "ip1 ip2 ip3 ip4",             "read_ip*",                ""},
    {0x8C, kAny, "gw1 gw2 gw3 gw4",             "SetDefGW *",              ""},
    {0x8D, kAny, "gw1 gw2 gw3 gw4",             "GetDefGW",                ""},
    {0x8E, 0x02, "ACK",                         "setDhcp *",               ""},
    {0x8E, 0x03, "03 01 00 00",                 "",                        ""},
    {0x8E, 0x05, "05 D1 D2 D3",                 "",                        ""},
    {0x8E, 0x07, "07 D4 D5 D6",                 "",                        ""},
    {0x8E, kAny, "none",                        "",                        ""},
    {0x9A, kAny, "see update",                  "SoftwareUpdate",          ""},
    {0xF0, kAny, "see data",                    "writeDataSetting",        ""},
    {0xF1, kAny, "see data",                    "readDataSetting",         ""},
    {0xF2, kAny, "see text",                    "writeStringValueSetting", ""},
    {0xF3, kAny, "see text",                    "readStringValueSetting",  ""},
};
// clang-format on
constexpr Expected kRefused = {0, 0, "NAK", "", ""};

const Expected &findExpected(uint8_t command, uint8_t dat1)
{
    for (const Expected &expected : kCommands) {
        if (expected.command == command && (expected.dat1 == kAny || expected.dat1 == dat1)) {
            return expected;
        }
    }
    return kRefused;
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
            const Parameters parameters = {static_cast<uint8_t>(mixed + 0x11),
                                           static_cast<uint8_t>(mixed + 0x22),
                                           command,
                                           dat1,
                                           static_cast<uint8_t>(mixed | 2), // another DHCP value
                                           static_cast<uint8_t>(mixed + 0x44),
                                           static_cast<uint8_t>(mixed + 0x55)};
            const Expected &expected = findExpected(command, dat1);
            ASSERT_EQ(answer(parameters), announcedReply(expected.reply, parameters))
                << "command " << std::hex << code / 256 << " dat1 " << code % 256;
            ASSERT_TRUE(isFirstCall(expected.firstCall))
                << "command " << std::hex << code / 256 << " dat1 " << code % 256 << " called "
                << testing::PrintToString(journal);
            expectedPrints += expected.prints;
        }
    });
    EXPECT_EQ(prints, expectedPrints);
}

// The table under "## Commands" of docs/protocol.md, which integrators build on. Cells of interest:
// command and dat1 in hexadecimal or in words, and the reply.
struct DocumentRow {
    std::string command;
    std::string dat1;
    std::string reply;
};

std::string stripped(const std::string &text)
{
    const size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? ""
                                      : text.substr(first, text.find_last_not_of(' ') - first + 1);
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
        std::istringstream cells(line.substr(1));
        std::string command, dat1, what, reply;
        std::getline(cells, command, '|');
        std::getline(cells, dat1, '|');
        std::getline(cells, what, '|');
        std::getline(cells, reply, '|');
        reply = reply.substr(0, reply.find('(')); // a word to the reader
        rows.push_back({stripped(command), stripped(dat1), stripped(reply)});
    }
    if (!rows.empty()) {
        rows.erase(rows.begin()); // the heading
    }
    return rows;
}

std::string twoDigits(uint8_t byte)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    return {kDigits[byte >> 4], kDigits[byte & 15]};
}

const DocumentRow *findInDocument(const std::vector<DocumentRow> &rows, uint8_t command,
                                  uint8_t dat1)
{
    const std::string commandText = twoDigits(command);
    const std::string dat1Text = twoDigits(dat1);
    for (const DocumentRow &row : rows) {
        if (row.command == "every other" ||
            (row.command == commandText &&
             (row.dat1 == dat1Text || row.dat1 == "other" || row.dat1 == "any"))) {
            return &row;
        }
    }
    return nullptr;
}

bool isAnswerOfAnotherModule(uint8_t command)
{
    return command == 0x9A || (command >= 0xF0 && command <= 0xF3);
}

TEST_F(Dispatch, AnswersAsTheProtocolDocumentSays)
{
    const std::vector<DocumentRow> rows = readDocument();
    ASSERT_EQ(rows.size(), 36u) << PROTOCOL_DOCUMENT;
    EXPECT_EQ(rows.back().command, "every other");
    printedBy([&] {
        for (unsigned code = 0; code < 0x10000; ++code) {
            const Parameters request = {
                1, 2, static_cast<uint8_t>(code >> 8), static_cast<uint8_t>(code), 3, 4, 5};
            const DocumentRow *const row = findInDocument(rows, request[2], request[3]);
            ASSERT_NE(row, nullptr) << std::hex << code;
            ASSERT_EQ(answer(request), announcedReply(row->reply, request)) << std::hex << code;
            ASSERT_EQ(row->reply.rfind("see ", 0) == 0, isAnswerOfAnotherModule(request[2]))
                << std::hex << code;
        }
    });
}

// The documented exchanges, written out ----------------------------------------------------------

TEST_F(Dispatch, TellsTheDeviceType)
{
    Calls calls;
    EXPECT_EQ(printedBy([&] { calls = answer({0, 0, 0x68, 1, 0, 0, 0}); }), "read device type\n");
    EXPECT_EQ(calls, uart("<F00006801263300c2>"));
}

TEST_F(Dispatch, SaysThatTheDeviceTypeIsReadBeforeItAnswers)
{
    std::string before;
    testing::internal::CaptureStdout();
    onSend = [&] { before = testing::internal::GetCapturedStdout(); };
    EXPECT_EQ(answer({0, 0, 0x68, 1, 0, 0, 0}).size(), 1u);
    EXPECT_EQ(before, "read device type\n");
}

TEST_F(Dispatch, TellsTheDeviceTypeWhateverTheRequestCarries)
{
    // 5a + c3 + 68 + 01 + 26 + 33 + 00 = 1df
    EXPECT_EQ(answer({0x5A, 0xC3, 0x68, 1, 0xFF, 0xFF, 0xFF}), uart("<F5ac36801263300df>"));
}

TEST_F(Dispatch, TellsTheProtocolVersion)
{
    // 6a + 03 + 01 + 0a = 78
    EXPECT_EQ(answer({0, 0, 0x6A, 3, 0xEE, 0xEE, 0xEE}), uart("<F00006a03010a0078>"));
}

TEST_F(Dispatch, PrintsTheMemoryUseThenEchoes)
{
    EXPECT_EQ(answer({1, 2, 0x10, 0x11, 3, 4, 5}), uart("<F0102101103040530>"));
    EXPECT_EQ(journal, Journal{"mymem_print_info"}); // and so ahead of the reply
}

TEST_F(Dispatch, RefusesTheNeighbourOfTheMemoryUse)
{
    EXPECT_EQ(answer({1, 2, 0x10, 0x12, 3, 4, 5}), uart("<F010210ffffffff0f>"));
    EXPECT_EQ(journal, Journal());
}

TEST_F(Dispatch, RefusesTheCodesBesideTheTable)
{
    EXPECT_EQ(answer({0, 0, 0x0F, 0x11, 0, 0, 0}), uart("<F00000fffffffff0b>"));
    EXPECT_EQ(answer({0, 0, 0xF4, 0, 0, 0, 0}), uart("<F0000f4fffffffff0>"));
    EXPECT_EQ(answer({0, 0, 0x00, 0, 0, 0, 0}), uart("<F000000fffffffffc>"));
    EXPECT_EQ(answer({0, 0, 0xFF, 0, 0, 0, 0}), uart("<F0000fffffffffffb>"));
}

TEST_F(Dispatch, RefusesUnknownSubCommandsSilentlyOnTheConsole)
{
    Calls calls;
    EXPECT_EQ(printedBy([&] { calls = answer({7, 8, 0x68, 0x02, 0, 0, 0}); }), "");
    EXPECT_EQ(calls, uart(refusal({7, 8, 0x68, 0, 0, 0, 0})));
    EXPECT_EQ(printedBy([&] { calls = answer({7, 8, 0x6A, 0x02, 0, 0, 0}); }), "");
    EXPECT_EQ(calls, uart(refusal({7, 8, 0x6A, 0, 0, 0, 0})));
}

TEST_F(Dispatch, RefusesThePassThroughCommandOutsideTheMode)
{
    EXPECT_EQ(answer({0, 0, 0x68, 0x40, 0, 0, 0}), uart(refusal({0, 0, 0x68, 0, 0, 0, 0})));
}

TEST_F(Dispatch, AnswersTheSourceOfTheCommand)
{
    getFreeChannel(0, 0x00001388'0900000A);
    commandFrom = 1;
    EXPECT_EQ(answer({0, 0, 0x6A, 3, 0, 0, 0}),
              (Calls{{"udp 10.0.0.9:5000", "<F00006a03010a0078>"}}));
}

TEST_F(Dispatch, LeavesTheRequestAlone)
{
    for (const uint8_t command : std::array<uint8_t, 5>{0x10, 0x68, 0x6A, 0x73, 0xF4}) {
        for (const uint8_t dat1 : std::array<uint8_t, 3>{0x01, 0x03, 0x11}) {
            request({1, 2, command, dat1, 4, 5, 6});
            const auto before = bytesOf(commandToLED);
            processCmdData();
            EXPECT_EQ(bytesOf(commandToLED), before);
        }
    }
}

// Version, serial number -------------------------------------------------------------------------

TEST_F(Dispatch, TellsTheSystemVersion)
{
    // 6a + 04 + 02 + 0d = 7d
    EXPECT_EQ(answer({0, 0, 0x6A, 4, 0xEE, 0xEE, 0xEE}), uart("<F00006a04020d007d>"));
}

TEST_F(Dispatch, TellsTheLowSixteenBitsOfTheSystemVersion)
{
    systemVersion = 0xFFFFFFFF; // the command could not run
    EXPECT_EQ(answer({0, 0, 0x6A, 4, 0, 0, 0}), uart(replyFrame({0, 0, 0x6A, 4, 0xFF, 0xFF, 0})));
    systemVersion = 0x12345678;
    EXPECT_EQ(answer({0, 0, 0x6A, 4, 0, 0, 0}), uart(replyFrame({0, 0, 0x6A, 4, 0x56, 0x78, 0})));
}

TEST_F(Dispatch, StoresTheSerialNumberHighByteFirstThenEchoes)
{
    EXPECT_EQ(answer({0, 0, 0x6A, 0x10, 0x12, 0x34, 0x99}),
              uart(replyFrame({0, 0, 0x6A, 0x10, 0x12, 0x34, 0x99})));
    EXPECT_EQ(journal, Journal{"saveDeviceSN 4660"}); // 0x1234
    answer({0, 0, 0x6A, 0x10, 0xFF, 0xFF, 0});
    EXPECT_EQ(journal, Journal{"saveDeviceSN 65535"});
}

TEST_F(Dispatch, TellsTheLowSixteenBitsOfTheSerialNumber)
{
    serialNumber = 0x1234;
    EXPECT_EQ(answer({0, 0, 0x6A, 0x11, 9, 9, 9}), uart("<F00006a11123400c1>"));
    serialNumber = 0xABCDEF01;
    EXPECT_EQ(answer({0, 0, 0x6A, 0x11, 0, 0, 0}),
              uart(replyFrame({0, 0, 0x6A, 0x11, 0xEF, 0x01, 0})));
}

// The network ------------------------------------------------------------------------------------

TEST_F(Dispatch, SetsTheNetMaskAndReadsItBack)
{
    EXPECT_EQ(answer({1, 2, 0x84, 255, 255, 254, 7}),
              uart(replyFrame({1, 2, 0x84, 0xB1, 0xB2, 0xB3, 0xB4})));
    EXPECT_EQ(journal, (Journal{"SetNetMask 255.255.254.7", "GetNetMask"}));
    EXPECT_EQ(answer({1, 2, 0x85, 9, 9, 9, 9}),
              uart(replyFrame({1, 2, 0x85, 0xB1, 0xB2, 0xB3, 0xB4})));
    EXPECT_EQ(journal, Journal{"GetNetMask"});
    EXPECT_EQ(isSetIp, 0);
}

TEST_F(Dispatch, SetsTheAddressAndNotesThatBeforeItReadsItBack)
{
    EXPECT_EQ(isSetIp, 0);
    EXPECT_EQ(answer({1, 2, 0x88, 10, 20, 30, 40}),
              uart(replyFrame({1, 2, 0x88, 0xA1, 0xA2, 0xA3, 0xA4})));
    EXPECT_EQ(journal, (Journal{"SetIpAddress 10.20.30.40", "read_ip, isSetIp 1", "GetIpAddress"}));
    EXPECT_EQ(isSetIp, 1);
}

TEST_F(Dispatch, ReadsTheInterfaceBeforeItTellsTheAddress)
{
    EXPECT_EQ(answer({1, 2, 0x89, 9, 9, 9, 9}),
              uart(replyFrame({1, 2, 0x89, 0xA1, 0xA2, 0xA3, 0xA4})));
    EXPECT_EQ(journal, (Journal{"read_ip, isSetIp 0", "GetIpAddress"}));
    EXPECT_EQ(isSetIp, 0);
}

TEST_F(Dispatch, SetsTheGatewayAndReadsItBack)
{
    EXPECT_EQ(answer({1, 2, 0x8C, 192, 168, 0, 1}),
              uart(replyFrame({1, 2, 0x8C, 0xC1, 0xC2, 0xC3, 0xC4})));
    EXPECT_EQ(journal, (Journal{"SetDefGW 192.168.0.1", "GetDefGW"}));
    EXPECT_EQ(answer({1, 2, 0x8D, 9, 9, 9, 9}),
              uart(replyFrame({1, 2, 0x8D, 0xC1, 0xC2, 0xC3, 0xC4})));
    EXPECT_EQ(journal, Journal{"GetDefGW"});
}

TEST_F(Dispatch, KeepsTheRequestsAddressInNetworkReplies)
{
    for (const uint8_t command : std::array<uint8_t, 6>{0x84, 0x85, 0x88, 0x89, 0x8C, 0x8D}) {
        const Calls calls = answer({0x5A, 0xC3, command, 1, 2, 3, 4});
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].bytes.substr(0, 6), "<F5ac3");
    }
}

TEST_F(Dispatch, HandsTheDhcpValueOnAndEchoes)
{
    for (const uint8_t value : std::array<uint8_t, 4>{0, 1, 7, 255}) {
        const Parameters parameters = {1, 2, 0x8E, 2, value, 8, 9};
        EXPECT_EQ(answer(parameters), uart(replyFrame(parameters)));
        EXPECT_EQ(journal, Journal{"setDhcp " + std::to_string(value)});
    }
}

TEST_F(Dispatch, TellsDhcpAndTheMacAddressFromThePreferences)
{
    for (const uint8_t stored : std::array<uint8_t, 3>{0, 1, 7}) {
        preferences.dhcpEnable = stored;
        EXPECT_EQ(answer({0, 0, 0x8E, 3, 9, 9, 9}),
                  uart(replyFrame({0, 0, 0x8E, 3, stored, 0, 0})));
    }
    EXPECT_EQ(answer({0, 0, 0x8E, 5, 9, 9, 9}),
              uart(replyFrame({0, 0, 0x8E, 5, 0xD1, 0xD2, 0xD3})));
    EXPECT_EQ(answer({0, 0, 0x8E, 7, 9, 9, 9}),
              uart(replyFrame({0, 0, 0x8E, 7, 0xD4, 0xD5, 0xD6})));
    EXPECT_EQ(journal, Journal());
}

TEST_F(Dispatch, IsSilentForUnknownSubCommandsOfTheNetwork)
{
    Calls calls;
    for (const uint8_t dat1 : std::array<uint8_t, 5>{0, 1, 4, 6, 0xFF}) {
        EXPECT_EQ(printedBy([&] { calls = answer({0, 0, 0x8E, dat1, 1, 0, 0}); }), "");
        EXPECT_EQ(calls, Calls());
        EXPECT_EQ(journal, Journal());
    }
}

TEST_F(Dispatch, LeavesUpdateDataAndTextToTheirModules)
{
    const std::array<std::pair<uint8_t, std::string>, 5> handlers = {{
        {0x9A, "SoftwareUpdate"},
        {0xF0, "writeDataSetting"},
        {0xF1, "readDataSetting"},
        {0xF2, "writeStringValueSetting"},
        {0xF3, "readStringValueSetting"},
    }};
    for (const auto &[command, handler] : handlers) {
        EXPECT_EQ(answer({0, 0, command, 0, 0, 0, 0}), Calls());
        EXPECT_EQ(journal, Journal{handler});
    }
}

// Unsupported commands ---------------------------------------------------------------------------

struct Unsupported {
    uint8_t command;
    const char *name;
    void (*operation)();
};
// clang-format off
constexpr Unsupported kUnsupported[] = {
    {0x73, "WrInputSource",        WrInputSource},
    {0x74, "WrOutputFormat",       WrOutputFormat},
    {0x75, "WrLayerSetting",       WrLayerSetting},
    {0x76, "WrOutputSetting",      WrOutputSetting},
    {0x77, "WrInputSetting",       WrInputSetting},
    {0x78, "WrSwitchSetting",      WrSwitchSetting},
    {0x7D, "WrTpMode",             WrTpMode},
    {0x86, "WRHdmiOutDeTask",      WRHdmiOutDeTask},
    {0x8B, "cmd_timeControl_task", cmd_timeControl_task},
    {0x97, "cmd_workTime_task",    cmd_workTime_task},
};
// clang-format on

TEST_F(Dispatch, RefusesInEachOfTheTenUnsupportedOperations)
{
    for (const Unsupported &unsupported : kUnsupported) {
        const Parameters parameters = {1, 2, unsupported.command, 3, 4, 5, 6};
        request(parameters);
        EXPECT_EQ(printedBy(unsupported.operation), "") << unsupported.name;
        EXPECT_EQ(takeSent(), uart(refusal(parameters))) << unsupported.name;
    }
}

TEST_F(Dispatch, ReachesEachUnsupportedOperationWithEverySubCommand)
{
    for (const Unsupported &unsupported : kUnsupported) {
        for (unsigned dat1 = 0; dat1 < 256; ++dat1) {
            EXPECT_EQ(findHandler(unsupported.command, static_cast<uint8_t>(dat1)),
                      unsupported.operation)
                << unsupported.name << " " << dat1;
        }
    }
}

// Pass-through mode ------------------------------------------------------------------------------

TEST_F(Dispatch, IsNotInPassThroughModeFromTheStart)
{
    EXPECT_EQ(uart0Touart, 0u);
}

TEST_F(Dispatch, IgnoresEveryCommandButOneInPassThroughMode)
{
    uart0Touart = 1;
    const std::string prints = printedBy([&] {
        for (const uint8_t address : std::array<uint8_t, 4>{0, 1, 0x40, 0xFF}) {
            for (unsigned code = 0; code < 0x10000; ++code) {
                const auto command = static_cast<uint8_t>(code >> 8);
                const auto dat1 = static_cast<uint8_t>(code);
                const Parameters parameters = {address, 2, command, dat1, 4, 5, 6};
                const bool isHeard = address == 0 && command == 0x68 && dat1 == 0x40;
                ASSERT_EQ(answer(parameters), isHeard ? uart(refusal(parameters)) : Calls())
                    << unsigned{address} << " " << std::hex << code;
                ASSERT_EQ(journal, Journal()) << unsigned{address} << " " << std::hex << code;
            }
        }
    });
    EXPECT_EQ(prints, "");
}

TEST_F(Dispatch, TakesAnyValueButZeroForPassThroughMode)
{
    for (const uint32_t value : {1u, 2u, 0x100u, 0x80000000u, 0xFFFFFFFFu}) {
        uart0Touart = value;
        EXPECT_EQ(answer({0, 0, 0x6A, 3, 0, 0, 0}), Calls()) << value;
        EXPECT_EQ(uart0Touart, value);
    }
    uart0Touart = 0;
    EXPECT_EQ(answer({0, 0, 0x6A, 3, 0, 0, 0}), uart("<F00006a03010a0078>"));
}

TEST_F(Dispatch, CopiesTheRequestIntoTheReplyBeforeItLooksAtTheMode)
{
    uart0Touart = 1;
    request({1, 2, 3, 4, 5, 6, 7});
    processCmdData();
    EXPECT_EQ(sent, Calls());
    // address, tag and checksum are as they were
    EXPECT_EQ(bytesOf(commandFromLED), (std::array<uint8_t, 8>{0xB2, 0xB2, 3, 4, 5, 6, 7, 0xB2}));
}

} // namespace
