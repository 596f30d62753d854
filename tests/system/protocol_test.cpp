// The program against the protocol document: every command byte with every dat1, compared with the
// document's table as written out here, and the document's own worked examples, replayed from the
// document itself.

#include "tests/system/board.h"

#include <filesystem>
#include <fstream>

namespace {

class SystemProtocol : public RunningDaemon {};

using Bytes = std::array<uint8_t, 4>; // dat1 to dat4

const std::string kVersion = "<T00006a030000006d>";
const std::string kVersionReply = "<F00006a03010a0078>";

// Network record of the board as it comes, with its checksum: 192.168.0.100/24 via 192.168.0.1,
// 02:76:65:73:6b:01.
const std::string
    kRecord("\xC0\xA8\x00\x64\xFF\xFF\xFF\x00\xC0\xA8\x00\x01\x02\x76\x65\x73\x6B\x01\xEE", 19);

// What the device has been told so far.
struct Device {
    Bytes mask = {255, 255, 255, 0};
    Bytes ip = {192, 168, 0, 100};
    Bytes gateway = {192, 168, 0, 1};
    uint8_t serialHigh = 0;
    uint8_t serialLow = 0;
    uint8_t dhcp = 1;
};

struct Exchange {
    std::string asks;    // the frame, and its payload if it has one
    std::string answers; // what comes for it, nothing for silence
};

// One command and its answer, as the table has it.
class Table {
public:
    Exchange exchange(uint8_t code, uint8_t dat1)
    {
        // Parameters that differ from command to command and from each other.
        const auto mixed = static_cast<uint8_t>(code * 0x35 + dat1 * 0x9D);
        Bytes data = {dat1, static_cast<uint8_t>(mixed + 0x33), static_cast<uint8_t>(mixed + 0x44),
                      static_cast<uint8_t>(mixed + 0x55)};
        std::string payload;
        if (code == 0x9A && dat1 == 0xA0) {
            data[1] = 6; // 7 would be followed by a block
        } else if (code == 0xF0) {
            data[2] = 2; // a byte and its checksum
            data[3] = 0;
            payload = "xx";
        } else if (code == 0xF2) {
            payload = "[a=1]";
        }
        const auto address = static_cast<uint8_t>(mixed + 0x11);
        const auto tag = static_cast<uint8_t>(mixed + 0x22);
        Exchange result;
        result.asks = command({address, tag, code, data[0], data[1], data[2], data[3]}) + payload;
        if (const std::optional<Bytes> answer = answerTo(code, data)) {
            const Bytes &a = *answer;
            result.answers = reply({address, tag, code, a[0], a[1], a[2], a[3]});
        }
        if (code == 0xF1 && dat1 == 0x20) {
            result.answers += kRecord;
        } else if (code == 0xF3 && (dat1 == 0x00 || dat1 == 0x09 || dat1 == 0x39)) {
            result.answers += "[]";
        }
        return result;
    }

private:
    std::optional<Bytes> answerTo(uint8_t code, const Bytes &data)
    {
        const uint8_t dat1 = data[0];
        const Bytes ack = data;
        const Bytes nak = {0xFF, 0xFF, 0xFF, 0xFF};
        switch (code) {
        case 0x10:
            return dat1 == 0x11 ? ack : nak;
        case 0x68:
            return dat1 == 0x01 ? Bytes{0x01, 0x26, 0x33, 0x00} : nak;
        case 0x6A:
            return answerTo6A(data).value_or(nak);
        case 0x84:
            return device.mask = data;
        case 0x85:
            return device.mask;
        case 0x88:
            return device.ip = data;
        case 0x89: // behind an 88, which keeps the interface from being read
            return device.ip;
        case 0x8C:
            return device.gateway = data;
        case 0x8D:
            return device.gateway;
        case 0x8E:
            return answerTo8E(data);
        case 0x9A:
            return answerTo9A(data).value_or(nak);
        case 0xF0:
            return dat1 == 0x20 ? std::optional<Bytes>() : nak; // too short for a network record
        case 0xF1:
            return dat1 == 0x20 ? Bytes{0x20, data[1], 19, 0} : nak;
        case 0xF2:
            return dat1 == 0x00 || dat1 == 0x09 || dat1 == 0x38 || dat1 == 0x39 ? ack : nak;
        case 0xF3:
            return dat1 == 0x00 || dat1 == 0x09 || dat1 == 0x39 ? Bytes{dat1, data[1], 0, 0} : nak;
        default:
            return nak;
        }
    }

    std::optional<Bytes> answerTo6A(const Bytes &data)
    {
        switch (data[0]) {
        case 0x03:
            return Bytes{0x03, 1, 10, 0};
        case 0x04:
            return Bytes{0x04, 2, 13, 0}; // of the board's /etc/issue
        case 0x10:
            device.serialHigh = data[1];
            device.serialLow = data[2];
            return data;
        case 0x11:
            return Bytes{0x11, device.serialHigh, device.serialLow, 0};
        default:
            return std::nullopt;
        }
    }

    std::optional<Bytes> answerTo8E(const Bytes &data)
    {
        switch (data[0]) {
        case 0x02:
            if (data[1] != device.dhcp) {
                device.dhcp = data[1] != 0 ? 1 : 0;
            }
            return data;
        case 0x03:
            return Bytes{0x03, device.dhcp, 0, 0};
        case 0x05: // no interface has been read yet
        case 0x07:
            return Bytes{data[0], 0, 0, 0};
        default:
            return std::nullopt;
        }
    }

    static std::optional<Bytes> answerTo9A(const Bytes &data)
    {
        switch (data[0]) {
        case 0x10:
            return Bytes{0x10, 0, 0, 0};
        case 0x16:
        case 0x20:
        case 0xB1: // of another program than this one
            return data;
        case 0xA1:
            return Bytes{0xA1, data[1], 4, 0};
        default:
            return std::nullopt;
        }
    }

    Device device;
};

// In rising order of the codes: 88 comes before 89.
TEST_F(SystemProtocol, AnswersEveryCommandWithEverySubCommandAsTheTableSays)
{
    constexpr unsigned kAtOnce = 64; // fit into the device's pipe together
    Table table;
    for (unsigned first = 0; first < 0x10000; first += kAtOnce) {
        std::string asks;
        std::string answers;
        for (unsigned code = first; code < first + kAtOnce; ++code) {
            const Exchange exchange =
                table.exchange(static_cast<uint8_t>(code >> 8), static_cast<uint8_t>(code));
            asks += exchange.asks;
            answers += exchange.answers;
        }
        // Where all of them are silent, this tells when they are through.
        front.write(asks + kVersion);
        answers += kVersionReply;
        ASSERT_EQ(front.read(answers.size()), answers) << "from command " << std::hex << first;
    }
    EXPECT_EQ(front.readUntilQuiet(), "");
}

// The document's examples ------------------------------------------------------------------------

// The bytes of a line such as "<T...>  comment", "[text]  comment" or "c0 a8 00  comment".
std::string bytesOfExample(const std::string &line)
{
    if (line[0] == '<') {
        return line.substr(0, 19);
    }
    if (line[0] == '[') {
        return line.substr(0, line.find(']') + 1);
    }
    std::istringstream words(line.substr(0, line.find("  ")));
    std::string bytes;
    for (std::string word; words >> word;) {
        bytes += static_cast<char>(std::stoul(word, nullptr, 16));
    }
    return bytes;
}

// An indented block of lines "> ..." and "< ...", in their order.
using Example = std::vector<std::pair<char, std::string>>;

std::vector<Example> readExamples()
{
    std::ifstream document(PROTOCOL_DOCUMENT);
    std::vector<Example> examples;
    bool isInExample = false;
    for (std::string line; std::getline(document, line);) {
        const bool isStep = line.rfind("    > ", 0) == 0 || line.rfind("    < ", 0) == 0;
        if (isStep && !isInExample) {
            examples.emplace_back();
        }
        if (isStep) {
            examples.back().emplace_back(line[4], bytesOfExample(line.substr(6)));
        }
        isInExample = isStep;
    }
    return examples;
}

// Each example is an exchange with a device fresh from the factory.
TEST(SystemProtocolDocument, AnswersTheWorkedExamplesOfTheDocument)
{
    const std::vector<Example> examples = readExamples();
    ASSERT_EQ(examples.size(), 8u) << PROTOCOL_DOCUMENT;
    for (const Example &example : examples) {
        std::filesystem::remove_all("/userdata");
        FrontBoard front;
        Daemon daemon;
        ASSERT_TRUE(daemon.starts());
        std::string asks;
        for (const auto &[direction, bytes] : example) {
            if (direction == '>') {
                asks += bytes;
                continue;
            }
            front.write(asks); // a frame and its payload in one piece
            ASSERT_EQ(front.read(bytes.size()), bytes) << "to " << testing::PrintToString(asks);
            asks.clear();
        }
        front.write(asks);
        EXPECT_EQ(front.readUntilQuiet(), "") << testing::PrintToString(asks);
    }
}

} // namespace
