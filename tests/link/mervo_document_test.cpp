// The chapter of docs/protocol.md about the Mervo link against the code: the places in the frame,
// the worked example, the messages and the times.

#include "link/mervoProtocol.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <numeric>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
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
    const std::vector<Texts> rows = table("offset");
    ASSERT_EQ(rows.size(), std::size(parts)) << PROTOCOL_DOCUMENT;
    size_t end = 0;
    for (size_t i = 0; i < rows.size(); ++i) {
        ASSERT_EQ(rows[i].size(), 3u) << i;
        const size_t length = number(rows[i][1]);
        EXPECT_EQ(number(rows[i][0]), end) << i;
        EXPECT_EQ(rows[i][2], parts[i].first);
        EXPECT_EQ(frame.substr(end, length), parts[i].second) << parts[i].first;
        end += length;
    }
    EXPECT_EQ(frame.size(), end);
}

// What stands in the worked example: the wire's text of a line, or the words after it.
Texts example(bool isWords)
{
    Texts texts;
    for (const std::string &line : chapter()) {
        if (line.starts_with("    link")) {
            const size_t end = std::min(line.find("  ", 10), line.size());
            texts.push_back(isWords ? stripped(line.substr(end)) : line.substr(4, end - 4));
        }
    }
    return texts;
}

// Byte `index` of a frame that stands after "link> ".
uint32_t byteOf(const std::string &line, size_t index)
{
    return number(line.substr(8 + 2 * index, 2), 16);
}

TEST(MervoProtocol, WorkedExampleOfTheProtocolDocumentIsWhatHappens)
{
    const Texts lines = example(false);
    ASSERT_EQ(lines.size(), 5u) << PROTOCOL_DOCUMENT;
    for (const size_t i : {0u, 1u, 2u, 4u}) {
        EXPECT_TRUE(lines[i].starts_with(i == 1 || i == 4 ? "link< <F" : "link> <T")) << lines[i];
        uint32_t sum = 0;
        for (size_t byte = 0; byte < 7; ++byte) {
            sum += byteOf(lines[i], byte);
        }
        EXPECT_EQ(byteOf(lines[i], 7), sum % 256) << lines[i];
    }
    ASSERT_TRUE(lines[3].starts_with("link> "));
    std::string block;
    std::istringstream digits(lines[3].substr(6));
    for (std::string pair; digits >> pair;) {
        block += static_cast<char>(number(pair, 16));
    }

    OpenLink open;
    const auto first = [&](size_t index) { return byteOf(lines[0], index); };
    open.receive(lines[1].substr(6));
    const uint32_t result = SendCmdAndWait_MervoProtocol(&open.link, first(0), first(2), first(3),
                                                         first(4), first(5), first(6));
    EXPECT_EQ(result, number(with(example(true)[1], "result ", ""), 16));
    const auto second = [&](size_t index) { return byteOf(lines[2], index); };
    std::string buffer = block;
    buffer.back() = 'x'; // to be replaced with the sum
    SendCmdAndDataBlock_MervoProtocol(
        &open.link, second(0), second(2), second(3), second(4), second(5), second(6),
        reinterpret_cast<uint8_t *>(buffer.data()), static_cast<int32_t>(buffer.size()));
    open.receive(lines[4].substr(6));
    EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, 0), 1);
    ASSERT_EQ(farEnd.sent.size(), 3u);
    EXPECT_EQ(farEnd.sent[0].bytes, lines[0].substr(6));
    EXPECT_EQ(farEnd.sent[1].bytes, lines[2].substr(6));
    EXPECT_EQ(farEnd.sent[2].bytes, block);
}

// What the row's operation returns; address 7.
uint32_t sendAsNamed(MervoLink *link, const std::string &name)
{
    uint8_t block[] = {1, 2, 0};
    int32_t result = -1;
    if (name == "SendCmdNoWait_MervoProtocol") {
        result = SendCmdNoWait_MervoProtocol(link, 7, 2, 3, 4, 5, 6);
    } else if (name == "SendCmd_MervoProtocol") {
        result = SendCmd_MervoProtocol(link, 7, 2, 3, 4, 5, 6);
    } else if (name == "SendCmdAndDataBlock_MervoProtocol") {
        result = SendCmdAndDataBlock_MervoProtocol(link, 7, 2, 3, 4, 5, 6, block, 3);
    } else if (name == "SendCmdAndWait_MervoProtocol") {
        return SendCmdAndWait_MervoProtocol(link, 7, 2, 3, 4, 5, 6);
    }
    return static_cast<uint32_t>(result);
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
        message = with(with(message, "ADDRESS", "7"), "SEQUENCE", "30");
        message = with(message, "ACKNOWLEDGED", "0") + (message.empty() ? "" : "\r\n");

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
