// The record on the wire. Expected digits come from printf() and a search, expected sums by hand.

#include "command/frame.h"

#include <cctype>
#include <cstring>

#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tests/support/exchange.h"

namespace {

using Bytes = std::array<uint8_t, 8>;
using namespace std::string_literals;

Rs232Command recordOf(const Bytes &bytes)
{
    Rs232Command record;
    std::memcpy(&record, bytes.data(), bytes.size());
    return record;
}

// From exactly the 18 characters before the end, so that a sanitizer sees a look at the end.
Bytes decoded(const std::string &frame)
{
    const std::vector<char> text(frame.begin(), frame.begin() + 18);
    Rs232Command record{};
    StrToRs232Command(text.data(), &record);
    return bytesOf(record);
}

// Into 20 characters that all stand for "not touched".
std::string encoded(Rs232Command *record)
{
    std::string text(20, '#');
    Rs232CommandToStr(record, text.data());
    return text;
}

TEST(Frame, HasTheDocumentedHeadersAndEnd)
{
    EXPECT_STREQ(CommandToLEDHeader, "<T");
    EXPECT_STREQ(CommandFromLEDHeader, "<F");
    EXPECT_STREQ(CommandEnd, ">");
    static_assert(kFrameHeaderLength == 2 && kFrameEndOffset == 18 && kFrameLength == 19);
}

TEST(Frame, ReadsDigitsInEitherCaseAndAnyOtherCharacterAsZero)
{
    const auto digit = [](char character) {
        const int lower = std::tolower(static_cast<uint8_t>(character));
        const size_t at = "0123456789abcdef"s.find(static_cast<char>(lower));
        return at == std::string::npos ? 0 : at;
    };
    for (unsigned code = 0; code < 0x10000; ++code) {
        const char text[] = {static_cast<char>(code >> 8), static_cast<char>(code)};
        ASSERT_EQ(HexCharToByte(text), digit(text[0]) * 16 + digit(text[1])) << std::hex << code;
    }
}

TEST(Frame, WritesEveryByteAsTwoLowercaseCharactersAndNothingElse)
{
    for (unsigned value = 0; value < 256; ++value) {
        const auto byte = static_cast<uint8_t>(value);
        std::string text = "####";
        EXPECT_EQ(ByteToHexChar(byte, &text[1]), &text[1]);
        EXPECT_EQ(text, '#' + hex(&byte, 1) + '#') << value;
    }
}

TEST(Frame, DecodesTheRows)
{
    // clang-format off
    constexpr struct {
        const char *name, *frame, *bytes; // in hexadecimal
    } kRows[] = {
        {"the device type command",   "<T0000680100000069>", "0000680100000069"},
        {"each byte at its offset",   "<T0123456789abcdef>", "0123456789abcdef"},
        {"mixed case",                "<TaBcDEffAbCdE0Af0>", "abcdeffabcde0af0"},
        {"invalid digits are zeros",  "<T0x1g<1T1 1-1+1.1>", "0010010101010101"},
        {"a wrong checksum stays",    "<T00006801000000ff>", "00006801000000ff"},
        {"header is not looked at",   "??0102030405060708?", "0102030405060708"},
    };
    // clang-format on
    for (const auto &row : kRows) {
        EXPECT_EQ(hex(decoded(row.frame).data(), 8), row.bytes) << row.name;
    }
}

// Header, end and terminator are the caller's and stay as they are.
TEST(Frame, SetsTheChecksumAndEncodesInLowercase)
{
    Rs232Command record = recordOf({0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0x77});
    EXPECT_EQ(encoded(&record), "##0123456789abcdd1##"); // 2d1
    EXPECT_EQ(record.checksum, 0xD1);
    record = recordOf({1, 2, 0x10, 0xFF, 0xFF, 0xFF, 0xFF, 0x77});
    EXPECT_EQ(encoded(&record), "##010210ffffffff0f##"); // 40f
    EXPECT_EQ(record.checksum, 0x0F);
}

TEST(Frame, EncodesTheFourDataBytesAsALine)
{
    std::string text(15, '#');
    const Rs232Command record = recordOf({0x11, 0x22, 0x33, 0x01, 0xAB, 0x00, 0xFF, 0x44});
    Rs232CommandToStr1(&record, text.data());
    EXPECT_EQ(text, "##01ab00ff\r\n\0##"s);
}

TEST(Frame, SumsTheFirstSevenBytesModulo256)
{
    // clang-format off
    constexpr std::pair<Bytes, uint8_t> kRows[] = {
        {{0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}, 0x00},
        {{0x00, 0x00, 0x68, 0x01, 0x00, 0x00, 0x00, 0x00}, 0x69},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 0xF9}, // 6f9; the last byte is not in it
        {{0x80, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x55}, 0x00}, // 100
        {{0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x00}, 0x7F}, // each counts once
    };
    // clang-format on
    for (const auto &[bytes, sum] : kRows) {
        Rs232Command record = recordOf(bytes);
        SetCheckSum(&record);
        Bytes after = bytes;
        after[7] = sum;
        EXPECT_EQ(bytesOf(record), after);
    }
}

TEST(Frame, AcceptsTheRightChecksumAndPrintsItForAnyOther)
{
    Rs232Command record = recordOf({0, 0, 0x68, 1, 0, 0, 0, 0});
    for (unsigned checksum = 0; checksum < 256; ++checksum) {
        SCOPED_TRACE(checksum);
        const bool isRight = checksum == 0x69;
        record.checksum = static_cast<uint8_t>(checksum);
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(CheckSum(&record), isRight); }),
                  isRight ? "" : "checksum=105\r\n");
    }
    const Rs232Command large = recordOf({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_EQ(printedBy([&] { CheckSum(&large); }), "checksum=249\r\n"); // 6f9, modulo 256
}

TEST(Frame, ClosesABufferWithTheSumOfTheBytesBefore)
{
    const std::string longBuffer(69999, '\xFF');
    const struct {
        std::string before;
        uint32_t length;
        std::string after;
    } rows[] = {
        {"abc", 0, "abc"},
        {"abc", 1, "\0bc"s},
        {"\x80\x81\x10\xEE\x77", 4, "\x80\x81\x10\x11\x77"},   // 111
        {longBuffer + "##", 70000, longBuffer + "\x91" + "#"}, // -69999 is -274 * 256 + 145
    };
    for (const auto &row : rows) {
        std::string buffer = row.before;
        SetBufferCheckSum(reinterpret_cast<uint8_t *>(buffer.data()), row.length);
        EXPECT_EQ(buffer, row.after) << row.length;
    }
}

} // namespace
