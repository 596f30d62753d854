// Every command and sub-command there can be, against the protocol's command table as far as this
// version goes. The module's source is part of this file, so that the way into the named operations
// is in sight.

#include "command/dispatch.cpp"

#include <array>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "command/channel.h"
#include "command/reception.h"
#include "tests/command/exchange.h"
#include "tests/fakes/clock.h"

namespace {

int printsOfMemoryUse; // calls of mymem_print_info()
int sentBeforeThePrint;

} // namespace

extern "C" {
// mymem_print_info(), as the linker knows it.
void __wrap__Z16mymem_print_infov();

void __wrap__Z16mymem_print_infov()
{
    ++printsOfMemoryUse;
    sentBeforeThePrint = static_cast<int>(sent.size());
}
}

namespace {

using Calls = std::vector<Sent>;

// Channel 0 is the front board's line and asks.
class Dispatch : public testing::Test {
protected:
    Dispatch()
    {
        fakeClock.setMs(1000);
        InitRs232CommandVariable();
        getFreeChannel(2, 0);
        commandFrom = 0;
    }

    static void request(const Parameters &parameters)
    {
        commandToLED = {parameters[0], parameters[1], parameters[2], parameters[3],
                        parameters[4], parameters[5], parameters[6], 0x77};
        std::memset(&commandFromLED, 0xB2, sizeof commandFromLED);
    }

    static Calls answer(const Parameters &parameters)
    {
        request(parameters);
        processCmdData();
        return takeSent();
    }

    static Calls uart(const std::string &frame)
    {
        return {{"uart 0", frame}};
    }
};

// The command table: what is not here is refused.
struct Expected {
    uint8_t command;
    uint8_t dat1;
    enum { kEcho, kData } kind;
    uint8_t data[4]; // dat1 to dat4 of the reply, if kData
    const char *prints;
};
// clang-format off
constexpr Expected kCommands[] = {
    {0x10, 0x11, Expected::kEcho, {},                       ""},
    {0x68, 0x01, Expected::kData, {0x01, 0x26, 0x33, 0x00}, "read device type\n"},
    {0x6A, 0x03, Expected::kData, {0x03, 0x01, 0x0A, 0x00}, ""},
};
// clang-format on

const Expected *findExpected(uint8_t command, uint8_t dat1)
{
    for (const Expected &expected : kCommands) {
        if (expected.command == command && expected.dat1 == dat1) {
            return &expected;
        }
    }
    return nullptr;
}

std::string expectedReply(const Parameters &request)
{
    const Expected *const expected = findExpected(request[2], request[3]);
    if (expected == nullptr) {
        return refusal(request);
    }
    if (expected->kind == Expected::kEcho) {
        return replyFrame(request);
    }
    return replyFrame({request[0], request[1], request[2], expected->data[0], expected->data[1],
                       expected->data[2], expected->data[3]});
}

TEST_F(Dispatch, AnswersEveryCommandAndSubCommandWithExactlyOneFrame)
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
                                           static_cast<uint8_t>(mixed + 0x33),
                                           static_cast<uint8_t>(mixed + 0x44),
                                           static_cast<uint8_t>(mixed + 0x55)};
            ASSERT_EQ(answer(parameters), uart(expectedReply(parameters)))
                << "command " << std::hex << code / 256 << " dat1 " << code % 256;
            if (const Expected *const expected = findExpected(command, dat1)) {
                expectedPrints += expected->prints;
            }
        }
    });
    EXPECT_EQ(prints, expectedPrints);
    EXPECT_EQ(printsOfMemoryUse, 1);
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
        rows.push_back({stripped(command), stripped(dat1), stripped(reply)});
    }
    rows.erase(rows.begin()); // the heading
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

std::string documentedReply(const DocumentRow &row, const Parameters &request)
{
    if (row.reply == "NAK") {
        return refusal(request);
    }
    if (row.reply == "ACK") {
        return replyFrame(request);
    }
    std::istringstream bytes(row.reply);
    std::array<unsigned, 4> data{};
    for (unsigned &byte : data) {
        bytes >> std::hex >> byte;
    }
    EXPECT_TRUE(bytes) << row.reply;
    return replyFrame({request[0], request[1], request[2], static_cast<uint8_t>(data[0]),
                       static_cast<uint8_t>(data[1]), static_cast<uint8_t>(data[2]),
                       static_cast<uint8_t>(data[3])});
}

TEST_F(Dispatch, AnswersAsTheProtocolDocumentSays)
{
    const std::vector<DocumentRow> rows = readDocument();
    ASSERT_GE(rows.size(), 17u) << PROTOCOL_DOCUMENT;
    EXPECT_EQ(rows.back().command, "every other");
    printedBy([&] {
        for (unsigned code = 0; code < 0x10000; ++code) {
            const Parameters request = {
                1, 2, static_cast<uint8_t>(code >> 8), static_cast<uint8_t>(code), 3, 4, 5};
            const DocumentRow *const row = findInDocument(rows, request[2], request[3]);
            ASSERT_NE(row, nullptr) << std::hex << code;
            ASSERT_EQ(answer(request), uart(documentedReply(*row, request))) << std::hex << code;
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
    EXPECT_EQ(printsOfMemoryUse, 1);
    EXPECT_EQ(sentBeforeThePrint, 0);
}

TEST_F(Dispatch, RefusesTheNeighbourOfTheMemoryUse)
{
    EXPECT_EQ(answer({1, 2, 0x10, 0x12, 3, 4, 5}), uart("<F010210ffffffff0f>"));
    EXPECT_EQ(printsOfMemoryUse, 0);
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

TEST_F(Dispatch, KnowsNoSameGenlockFormatOnAnyOutput)
{
    for (unsigned output = 0; output < 256; ++output) {
        EXPECT_EQ(isSameCustomGenlockFormat_output(static_cast<uint8_t>(output)), 0) << output;
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
            }
        }
    });
    EXPECT_EQ(prints, "");
    EXPECT_EQ(printsOfMemoryUse, 0);
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
