// The chapter of docs/protocol.md about the Mervo link against the code: the places in the frame,
// the worked example, the messages and the times.

#include "link/mervoProtocol.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "tests/link/far_end.h"
#include "tests/support/clock.h"
#include "tests/support/console.h"

namespace {

using Texts = std::vector<std::string>;

Texts chapter()
{
    std::ifstream document(PROTOCOL_DOCUMENT);
    Texts lines;
    bool isInChapter = false;
    for (std::string line; std::getline(document, line);) {
        if (line.starts_with("## ")) {
            isInChapter = line == "## The Mervo link";
        }
        if (isInChapter) {
            lines.push_back(line);
        }
    }
    return lines;
}

std::string stripped(const std::string &text)
{
    const size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? ""
                                      : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// The rows below the heading that begins with the cell `heading`, in cells.
std::vector<Texts> table(const std::string &heading)
{
    std::vector<Texts> rows;
    bool isInTable = false;
    for (const std::string &line : chapter()) {
        if (line.starts_with("| " + heading + " |")) {
            isInTable = true;
            continue;
        }
        isInTable = isInTable && line.starts_with("|");
        if (!isInTable || line.starts_with("|-")) {
            continue;
        }
        Texts cells;
        std::istringstream stream(line.substr(1));
        for (std::string cell; std::getline(stream, cell, '|');) {
            cells.push_back(stripped(cell));
        }
        rows.push_back(cells);
    }
    return rows;
}

uint32_t number(const std::string &text, int base = 10)
{
    return static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, base));
}

// The text with each `name` in it replaced.
std::string with(std::string text, std::string_view name, std::string_view value)
{
    const size_t at = text.find(name);
    return at == text.npos ? text : text.replace(at, name.size(), value);
}

// What stands in the backquotes of a cell.
std::string quoted(const std::string &cell)
{
    const size_t first = cell.find('`');
    return first == cell.npos ? "" : cell.substr(first + 1, cell.find('`', first + 1) - first - 1);
}

TEST(MervoProtocol, FrameHasItsPartsWhereTheProtocolDocumentSays)
{
    const std::vector<Texts> rows = table("offset");
    ASSERT_EQ(rows.size(), 10u) << PROTOCOL_DOCUMENT;
    OpenLink open;
    open.link.sequence = 0x21;
    SendCmdNoWait_MervoProtocol(&open.link, 0x11, 0x33, 0x44, 0x55, 0x66, 0x77);
    const std::string frame = farEnd.sent.at(0).bytes;
    // 17 + 34 + 51 + 68 + 85 + 102 + 119 = 476 = 256 + 0xdc
    const Texts contents = {"<T", "11", "22", "33", "44", "55", "66", "77", "dc", ">"};
    const Texts names = {"`<T` in a command, `<F` in an answer",
                         "address",
                         "sequence number",
                         "command",
                         "data 1",
                         "data 2",
                         "data 3",
                         "data 4",
                         "checksum: the sum of the seven bytes before it, modulo 256",
                         "`>`"};
    size_t end = 0;
    for (size_t i = 0; i < rows.size(); ++i) {
        ASSERT_EQ(rows[i].size(), 3u);
        const size_t offset = number(rows[i][0]);
        const size_t length = number(rows[i][1]);
        EXPECT_EQ(rows[i][2], names[i]);
        EXPECT_EQ(offset, end);
        EXPECT_EQ(frame.substr(offset, length), contents[i]) << names[i];
        end = offset + length;
    }
    EXPECT_EQ(frame.size(), end);
}

// A line of the worked example.
struct Exchange {
    bool isSent;       // by this device
    std::string bytes; // as they are on the wire
    std::string words; // after them
};

std::vector<Exchange> example()
{
    std::vector<Exchange> lines;
    for (const std::string &line : chapter()) {
        if (!line.starts_with("    link> ") && !line.starts_with("    link< ")) {
            continue;
        }
        const std::string rest = line.substr(10);
        const size_t end = std::min(rest.find("  "), rest.size());
        std::string bytes = rest.substr(0, end);
        if (bytes[0] != '<') {
            std::istringstream stream(bytes);
            bytes.clear();
            for (std::string digits; stream >> digits;) {
                bytes += static_cast<char>(number(digits, 16));
            }
        }
        lines.push_back({line[8] == '>', bytes, stripped(rest.substr(end))});
    }
    return lines;
}

// Byte `index` of a frame.
uint32_t byteOf(const std::string &frame, size_t index)
{
    return number(frame.substr(2 + 2 * index, 2), 16);
}

TEST(MervoProtocol, WorkedExampleOfTheProtocolDocumentIsWhatHappens)
{
    const std::vector<Exchange> lines = example();
    ASSERT_EQ(lines.size(), 5u) << PROTOCOL_DOCUMENT;
    OpenLink open;
    uint32_t commands = 0;
    uint32_t blocks = 0;
    uint32_t results = 0;
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string &frame = lines[i].bytes;
        ASSERT_TRUE(lines[i].isSent && frame.starts_with("<T")) << i;
        ASSERT_LT(i + 1, lines.size());
        std::string block;
        if (lines[i + 1].isSent) {
            block = lines[++i].bytes;
            ASSERT_LT(i + 1, lines.size());
        }
        const Exchange &answer = lines[++i];
        ASSERT_FALSE(answer.isSent);

        farEnd.sent.clear();
        ++commands;
        if (!block.empty()) {
            ++blocks;
            std::string buffer = block;
            buffer.back() = 'x'; // to be replaced with the sum
            SendCmdAndDataBlock_MervoProtocol(
                &open.link, byteOf(frame, 0), byteOf(frame, 2), byteOf(frame, 3), byteOf(frame, 4),
                byteOf(frame, 5), byteOf(frame, 6), reinterpret_cast<uint8_t *>(buffer.data()),
                static_cast<int32_t>(buffer.size()));
            ASSERT_EQ(farEnd.sent.size(), 2u);
            EXPECT_EQ(farEnd.sent[1].bytes, block);
            open.receive(answer.bytes);
            EXPECT_EQ(WaitAck_MervoProtocol(&open.link, byteOf(frame, 0), 0), 1);
        } else {
            ++results;
            farEnd.onSend = [&] {
                open.receive(answer.bytes);
                return 19;
            };
            ASSERT_TRUE(answer.words.starts_with("result ")) << answer.words;
            EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, byteOf(frame, 0), byteOf(frame, 2),
                                                   byteOf(frame, 3), byteOf(frame, 4),
                                                   byteOf(frame, 5), byteOf(frame, 6)),
                      number(answer.words.substr(7), 16));
            farEnd.onSend = nullptr;
        }
        EXPECT_EQ(farEnd.sent.at(0).bytes, frame);
        EXPECT_EQ(open.unread(), "");
        const uint32_t sum = byteOf(answer.bytes, 0) + byteOf(answer.bytes, 1) +
                             byteOf(answer.bytes, 2) + byteOf(answer.bytes, 3) +
                             byteOf(answer.bytes, 4) + byteOf(answer.bytes, 5) +
                             byteOf(answer.bytes, 6);
        EXPECT_EQ(byteOf(answer.bytes, 7), sum % 256) << answer.bytes;
    }
    EXPECT_EQ(commands, 2u);
    EXPECT_EQ(blocks, 1u);
    EXPECT_EQ(results, 1u);
}

// What the row's operation returns; address 7.
uint32_t sendAsNamed(MervoLink *link, const std::string &operation)
{
    uint8_t block[] = {1, 2, 0};
    if (operation == "SendCmdNoWait_MervoProtocol") {
        return static_cast<uint32_t>(SendCmdNoWait_MervoProtocol(link, 7, 2, 3, 4, 5, 6));
    }
    if (operation == "SendCmd_MervoProtocol") {
        return static_cast<uint32_t>(SendCmd_MervoProtocol(link, 7, 2, 3, 4, 5, 6));
    }
    if (operation == "SendCmdAndDataBlock_MervoProtocol") {
        return static_cast<uint32_t>(
            SendCmdAndDataBlock_MervoProtocol(link, 7, 2, 3, 4, 5, 6, block, 3));
    }
    if (operation == "SendCmdAndWait_MervoProtocol") {
        return SendCmdAndWait_MervoProtocol(link, 7, 2, 3, 4, 5, 6);
    }
    ADD_FAILURE() << "unknown: " << operation;
    return 0;
}

uint32_t sleptMs()
{
    return std::accumulate(fakeClock.sleepsUs.begin(), fakeClock.sleepsUs.end(), 0u) / 1000;
}

TEST(MervoProtocol, WaitsAndTheirMessagesAreThoseOfTheProtocolDocument)
{
    const std::vector<Texts> rows = table("sent by");
    ASSERT_EQ(rows.size(), 4u) << PROTOCOL_DOCUMENT;
    Texts messages;
    for (const Texts &row : rows) {
        ASSERT_EQ(row.size(), 5u);
        const std::string operation = quoted(row[0]);
        const bool isWait = operation == "SendCmdAndWait_MervoProtocol";
        std::string message = quoted(row[3]);
        messages.push_back(message.substr(0, 2));
        if (!message.empty()) {
            message = with(message, "ADDRESS", "7");
            message = with(message, "SEQUENCE", "30");
            message = with(message, "ACKNOWLEDGED", "0") + "\r\n";
        }

        OpenLink open; // the 30th command is one too many for a silent device
        open.stand(29, 0);
        const std::string printed = printedBy(
            [&] { EXPECT_EQ(sendAsNamed(&open.link, operation), number(row[4])) << operation; });
        EXPECT_EQ(printed, message) << operation;
        EXPECT_EQ(sleptMs(), number(row[2])) << operation;

        OpenLink silent; // one that has never answered
        const uint32_t atMost = isWait ? number(row[2].substr(row[2].find("; ") + 2)) : 0;
        printedBy([&] { sendAsNamed(&silent.link, operation); });
        EXPECT_EQ(sleptMs(), atMost) << operation;
    }
    EXPECT_EQ(messages, (Texts{"", "1.", "4.", "3."}));
    EXPECT_NE(rows[3][2].find("; 20 ms for a device that does not answer"), std::string::npos);
}

TEST(MervoProtocol, WindowIsAsWideAsTheProtocolDocumentSays)
{
    std::string text;
    for (const std::string &line : chapter()) {
        text += line + ' ';
    }
    EXPECT_NE(text.find("while fewer than 30 are unanswered"), text.npos);
    EXPECT_NE(text.find("while 30 or more are unanswered"), text.npos);
    OpenLink open;
    open.stand(29, 0);
    EXPECT_EQ(canSendCmd_mervo(&open.link, 1), 1);
    open.stand(30, 0);
    EXPECT_EQ(canSendCmd_mervo(&open.link, 1), 0);
}

} // namespace
