// The program against the protocol document: every command byte with every dat1, compared with the
// document's table as written out here, and the document's own worked examples, replayed from the
// document itself.

#include "tests/system/board.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace {

using SystemProtocol = RunningDaemon;

const std::string kVersion = "<T00006a030000006d>";
const std::string kVersionReply = "<F00006a03010a0078>";

// Network record of the board as it comes, with its checksum: 192.168.0.100/24 via 192.168.0.1,
// 02:76:65:73:6b:01.
const std::string
    kRecord("\xC0\xA8\x00\x64\xFF\xFF\xFF\x00\xC0\xA8\x00\x01\x02\x76\x65\x73\x6B\x01\xEE", 19);

// An answer's byte that is the one at this place of the command, or of the command kept last.
enum { kSame = -1, kKept = -2 };
using Answer = std::array<int, 4>;

constexpr int kAny = -1;
constexpr Answer kAck = {kSame, kSame, kSame, kSame};
constexpr Answer kOfKept = {kKept, kKept, kKept, kKept};
constexpr Answer kNak = {0xFF, 0xFF, 0xFF, 0xFF};

// Of two rows for a command the first counts; what is in no row is refused.
const struct Row {
    uint8_t code;
    int dat1;
    std::optional<Answer> answer; // none: silence
    bool isKept = false;
    std::string follows = {};
} kTable[] = {
    // clang-format off
    {0x10, 0x11, kAck},
    {0x68, 0x01, {{0x01, 0x26, 0x33, 0x00}}},
    {0x6A, 0x03, {{0x03, 1, 10, 0}}},
    {0x6A, 0x04, {{0x04, 2, 13, 0}}},  // of the board's /etc/issue
    {0x6A, 0x10, kAck, true},
    {0x6A, 0x11, {{0x11, kKept, kKept, 0}}},
    {0x84, kAny, kAck, true},
    {0x85, kAny, kOfKept},
    {0x88, kAny, kAck, true},
    {0x89, kAny, kOfKept},             // an 88 before it keeps the interface from being read
    {0x8C, kAny, kAck, true},
    {0x8D, kAny, kOfKept},
    {0x8E, 0x02, kAck},                // on, as before
    {0x8E, 0x03, {{0x03, 1, 0, 0}}},
    {0x8E, 0x05, {{0x05, 0, 0, 0}}},   // no interface has been read yet
    {0x8E, 0x07, {{0x07, 0, 0, 0}}},
    {0x8E, kAny, {}},
    {0x9A, 0x10, {{0x10, 0, 0, 0}}},
    {0x9A, 0x16, kAck},
    {0x9A, 0x20, kAck},
    {0x9A, 0xA1, {{0xA1, kSame, 4, 0}}},
    {0x9A, 0xB1, kAck},                // of another program than this one
    {0xF0, 0x20, {}},                  // too short for a network record
    {0xF1, 0x20, {{0x20, kSame, 19, 0}}, false, kRecord},
    {0xF2, 0x00, kAck},
    {0xF2, 0x09, kAck},
    {0xF2, 0x38, kAck},
    {0xF2, 0x39, kAck},
    {0xF3, 0x00, {{0x00, kSame, 0, 0}}, false, "[]"},
    {0xF3, 0x09, {{0x09, kSame, 0, 0}}, false, "[]"},
    {0xF3, 0x39, {{0x39, kSame, 0, 0}}, false, "[]"},
    // clang-format on
};

// Every command once, in rising order: the one to be kept comes before those that read it.
TEST_F(SystemProtocol, AnswersEveryCommandWithEverySubCommandAsTheTableSays)
{
    constexpr unsigned kAtOnce = 64; // fit into the device's pipe together
    Frame kept{};
    for (unsigned first = 0; first < 0x10000; first += kAtOnce) {
        std::string asks;
        std::string answers;
        for (unsigned both = first; both < first + kAtOnce; ++both) {
            const auto code = static_cast<uint8_t>(both >> 8);
            const auto dat1 = static_cast<uint8_t>(both);
            const auto row = std::find_if(std::begin(kTable), std::end(kTable), [&](const Row &it) {
                return it.code == code && (it.dat1 == dat1 || it.dat1 == kAny);
            });
            const Row answer = row == std::end(kTable) ? Row{code, kAny, kNak} : *row;

            // Parameters that differ from command to command and from each other.
            Frame frame = {0, 0, code, dat1, 0, 0, 0};
            const unsigned mixed = code * 0x35u + dat1 * 0x9Du;
            for (const unsigned i : {0u, 1u, 4u, 5u, 6u}) {
                frame[i] = static_cast<uint8_t>(mixed + (i + 1) * 0x11);
            }
            std::string payload;
            if (code == 0x9A && dat1 == 0xA0) {
                frame[4] = 6; // 7 would be followed by a block
            } else if (code == 0xF0) {
                frame[5] = 2; // a byte and its checksum
                frame[6] = 0;
                payload = "xx";
            } else if (code == 0xF2) {
                payload = "[a=1]";
            }
            asks += command(frame) + payload;
            if (answer.isKept) {
                kept = frame;
            }
            if (answer.answer) {
                for (size_t i = 0; i < 4; ++i) {
                    const int byte = answer.answer->at(i);
                    uint8_t &place = frame.at(3 + i);
                    place = byte == kSame   ? place
                            : byte == kKept ? kept.at(3 + i)
                                            : static_cast<uint8_t>(byte);
                }
                answers += reply(frame) + answer.follows;
            }
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
