// The chapter of docs/protocol.md about the Mervo link against the code: the places in the frame,
// the worked example, the messages and the times.

#include "link/mervoProtocol.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <numeric>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/link/far_end.h"
#include "tests/support/bytes.h"
#include "tests/support/clock.h"
#include "tests/support/console.h"
#include "tests/support/files.h"

namespace {

using Texts = std::vector<std::string>;

const std::string &chapter()
{
    static const std::string text = [] {
        const std::string document = contentOf(PROTOCOL_DOCUMENT);
        const size_t start = document.find("\n## The Mervo link\n") + 1;
        return document.substr(start, document.find("\n## ", start) - start);
    }();
    return text;
}

// What the groups of the pattern hold, for each of its matches in `text`.
std::vector<Texts> matches(const std::string &text, const char *pattern)
{
    std::vector<Texts> all;
    const std::regex regex(pattern);
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) {
        all.emplace_back(std::next(match->begin()), match->end());
    }
    return all;
}

TEST(MervoProtocol, FrameHasItsPartsWhereTheProtocolDocumentSays)
{
    const std::pair<const char *, const char *> parts[] = {
        {"`<T` in a command, `<F` in an answer", "<T"},
        {"address", "11"},
        {"sequence number", "22"},
        {"command", "33"},
        {"data 1", "44"},
        {"data 2", "55"},
        {"data 3", "66"},
        {"data 4", "77"}, // 17 + 34 + 51 + 68 + 85 + 102 + 119 = 476 = 256 + 0xdc
        {"checksum: the sum of the seven bytes before it, modulo 256", "dc"},
        {"`>`", ">"}};
    OpenLink open;
    open.link.sequence = 0x21;
    SendCmdNoWait_MervoProtocol(&open.link, 0x11, 0x33, 0x44, 0x55, 0x66, 0x77);
    const std::string frame = farEnd.sent.at(0).bytes;
    const std::vector<Texts> rows = matches(chapter(), "\\| (\\d+) \\| (\\d+) \\| (.*) \\|\n");
    ASSERT_EQ(rows.size(), std::size(parts)) << PROTOCOL_DOCUMENT;
    size_t end = 0;
    for (size_t i = 0; i < rows.size(); ++i) {
        const size_t length = std::stoul(rows[i][1]);
        EXPECT_EQ(std::stoul(rows[i][0]), end) << i;
        EXPECT_EQ(rows[i][2], parts[i].first);
        EXPECT_EQ(frame.substr(end, length), parts[i].second) << parts[i].first;
        end += length;
    }
    EXPECT_EQ(frame.size(), end);
}

TEST(MervoProtocol, WorkedExampleOfTheProtocolDocumentIsWhatHappens)
{
    const std::vector<Texts> lines = matches(chapter(), "    link([<>] .*?)(?:   *(.*))?\n");
    ASSERT_EQ(lines.size(), 5u) << PROTOCOL_DOCUMENT;
    OpenLink open;
    open.receive(lines[1][0].substr(2));
    EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 0x44332211u);
    EXPECT_EQ(lines[1][1], "result 44332211");
    uint8_t block[] = {0x0A, 0x14, 0x1E, 'x'};
    SendCmdAndDataBlock_MervoProtocol(&open.link, 1, 7, 3, 0, 0, 0, block, sizeof block);
    open.receive(lines[4][0].substr(2));
    EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, 0), 1);
    ASSERT_EQ(farEnd.sent.size(), 3u);
    EXPECT_EQ(lines[0][0], "> " + farEnd.sent[0].bytes);
    EXPECT_EQ(lines[1][0], "< " + answerFrame(1, 0x44332211));
    EXPECT_EQ(lines[2][0], "> " + farEnd.sent[1].bytes);
    EXPECT_EQ(lines[3][0], "> 0a 14 1e 3c");
    EXPECT_EQ(hex(farEnd.sent[2].bytes), "0a141e3c");
    EXPECT_EQ(lines[4][0], "< <F010207000000000a>"); // 1 + 2 + 7 = 0x0a
}

uint32_t sleptMs()
{
    return std::accumulate(fakeClock.sleepsUs.begin(), fakeClock.sleepsUs.end(), 0u) / 1000;
}

template <auto Send> int64_t sendBy(MervoLink *link)
{
    return Send(link, 7, 2, 3, 4, 5, 6);
}

int32_t sendWithBlock(MervoLink *link, uint32_t address, uint32_t command, uint32_t data1,
                      uint32_t data2, uint32_t data3, uint32_t data4)
{
    uint8_t block[] = {1, 2, 0};
    return SendCmdAndDataBlock_MervoProtocol(link, address, command, data1, data2, data3, data4,
                                             block, 3);
}

TEST(MervoProtocol, WaitsAndTheirMessagesAreThoseOfTheProtocolDocument)
{
    const struct {
        const char *name;
        int64_t (*send)(MervoLink *link);
        uint32_t withoutDeviceMs;
    } operations[] = {{"SendCmdNoWait_MervoProtocol", sendBy<SendCmdNoWait_MervoProtocol>, 0},
                      {"SendCmd_MervoProtocol", sendBy<SendCmd_MervoProtocol>, 0},
                      {"SendCmdAndDataBlock_MervoProtocol", sendBy<sendWithBlock>, 0},
                      {"SendCmdAndWait_MervoProtocol", sendBy<SendCmdAndWait_MervoProtocol>, 20}};
    // Of a row: operation, the longest wait, message, result.
    const std::vector<Texts> rows = matches(
        chapter(), "\\| `(Send\\w+)` \\|[^|]*\\| *([^|]*?) *\\| (?:`(.*)`)? *\\| (\\d) \\|");
    ASSERT_EQ(rows.size(), std::size(operations)) << PROTOCOL_DOCUMENT;
    for (size_t i = 0; i < rows.size(); ++i) {
        const auto &operation = operations[i];
        SCOPED_TRACE(operation.name);
        EXPECT_EQ(rows[i][0], operation.name);
        std::string message = rows[i][2] + (rows[i][2].empty() ? "" : "\r\n");
        for (const auto &[name, value] :
             {std::pair("ADDRESS", "7"), {"SEQUENCE", "30"}, {"ACKNOWLEDGED", "0"}}) {
            message = std::regex_replace(message, std::regex(name), value);
        }

        OpenLink open; // the 30th command is one too many for a silent device
        open.stand(29, 0);
        int64_t result = -1;
        EXPECT_EQ(printedBy([&] { result = operation.send(&open.link); }), message);
        EXPECT_EQ(result, std::stol(rows[i][3]));
        const std::string wait = sleptMs() == 0 ? "" : std::to_string(sleptMs()) + " ms";

        OpenLink silent; // one that has never answered
        printedBy([&] { operation.send(&silent.link); });
        EXPECT_EQ(sleptMs(), operation.withoutDeviceMs);
        EXPECT_EQ(rows[i][1], i < 3 ? wait : wait + "; 20 ms for a device that does not answer");
    }
    EXPECT_EQ(rows[1][2].substr(0, 2) + rows[2][2].substr(0, 2) + rows[3][2].substr(0, 2),
              "1.4.3.");
}

TEST(MervoProtocol, WindowIsAsWideAsTheProtocolDocumentSays)
{
    const std::string text = std::regex_replace(chapter(), std::regex("\n"), " ");
    EXPECT_NE(text.find("while fewer than 30 are unanswered"), text.npos);
    EXPECT_NE(text.find("while 30 or more are unanswered"), text.npos);
}

} // namespace
