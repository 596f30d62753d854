// The record on the wire. Expected characters come from printf's "%02x" and from a plain search in
// the digits, expected sums are written out.

#include "command/frame.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/exchange.h"

namespace {

using Bytes = std::array<uint8_t, 8>;

constexpr std::string_view kLower = "0123456789abcdef";
constexpr std::string_view kUpper = "0123456789ABCDEF";

bool isHexDigit(char character)
{
    return kLower.find(character) != kLower.npos || kUpper.find(character) != kUpper.npos;
}

// 19 characters and a closing zero byte that nobody may touch.
struct Text {
    char characters[20] = "###################";

    std::string_view all() const
    {
        return {characters, sizeof characters};
    }
};

std::string hex(const Bytes &bytes)
{
    std::string text;
    for (const uint8_t byte : bytes) {
        char two[3];
        std::snprintf(two, sizeof two, "%02x", byte);
        text += two;
    }
    return text;
}

Rs232Command recordOf(const Bytes &bytes)
{
    Rs232Command record;
    std::memcpy(&record, bytes.data(), bytes.size());
    return record;
}

Bytes decoded(const std::string &frame)
{
    Rs232Command record{};
    StrToRs232Command(frame.c_str(), &record);
    return bytesOf(record);
}

TEST(Frame, HasTheDocumentedHeadersAndEnd)
{
    EXPECT_STREQ(CommandToLEDHeader, "<T");
    EXPECT_STREQ(CommandFromLEDHeader, "<F");
    EXPECT_STREQ(CommandEnd, ">");
    EXPECT_EQ(kFrameHeaderLength, 2u);
    EXPECT_EQ(kFrameEndOffset, 18u);
    EXPECT_EQ(kFrameLength, 19u);
}

TEST(Frame, KeepsTheRecordInTheDocumentedOrder)
{
    Rs232Command record{};
    record.address = 0x11;
    record.tag = 0x22;
    record.command = 0x33;
    record.dat1 = 0x44;
    record.dat2 = 0x55;
    record.dat3 = 0x66;
    record.dat4 = 0x77;
    record.checksum = 0x88;
    EXPECT_EQ(bytesOf(record), (Bytes{0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}));
    EXPECT_EQ(sizeof record, 8u);
}

TEST(Frame, ReadsEveryPairOfDigitsInEitherCase)
{
    for (const std::string_view highs : {kLower, kUpper}) {
        for (const std::string_view lows : {kLower, kUpper}) {
            for (unsigned value = 0; value < 256; ++value) {
                const char text[] = {highs[value / 16], lows[value % 16], '9'};
                EXPECT_EQ(HexCharToByte(text), value) << std::string_view(text, 2);
            }
        }
    }
}

TEST(Frame, CountsEveryOtherCharacterAsZero)
{
    unsigned others = 0;
    for (int code = 0; code < 256; ++code) {
        const char character = static_cast<char>(code);
        if (isHexDigit(character)) {
            continue;
        }
        ++others;
        const char high[] = {character, 'f'};
        const char low[] = {'f', character};
        const char both[] = {character, character};
        EXPECT_EQ(HexCharToByte(high), 0x0F) << code;
        EXPECT_EQ(HexCharToByte(low), 0xF0) << code;
        EXPECT_EQ(HexCharToByte(both), 0x00) << code;
    }
    EXPECT_EQ(others, 256u - 22u);
}

TEST(Frame, WritesEveryByteAsTwoLowercaseCharactersAndNothingElse)
{
    for (unsigned value = 0; value < 256; ++value) {
        char expected[5];
        std::snprintf(expected, sizeof expected, "#%02x#", value);
        char text[] = "####";
        char *const at = text + 1;
        EXPECT_EQ(ByteToHexChar(static_cast<uint8_t>(value), at), at);
        EXPECT_STREQ(text, expected);
    }
}

TEST(Frame, ReadsBackEveryByteItWrites)
{
    for (unsigned value = 0; value < 256; ++value) {
        char text[2];
        EXPECT_EQ(HexCharToByte(ByteToHexChar(static_cast<uint8_t>(value), text)), value);
    }
}

TEST(Frame, DecodesTheDeviceTypeCommandIntoAValidRecord)
{
    Rs232Command record{};
    StrToRs232Command("<T0000680100000069>", &record);
    EXPECT_EQ(bytesOf(record), (Bytes{0, 0, 0x68, 1, 0, 0, 0, 0x69}));
    EXPECT_EQ(CheckSum(&record), 1);
}

TEST(Frame, DecodesEachByteFromItsOffset)
{
    EXPECT_EQ(decoded("<T0123456789abcdef>"),
              (Bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}));
}

TEST(Frame, DecodesUppercaseAndMixedCaseAlike)
{
    const Bytes expected = {0xAB, 0xCD, 0xEF, 0xFA, 0xBC, 0xDE, 0x0A, 0xF0};
    EXPECT_EQ(decoded("<Tabcdeffabcde0af0>"), expected);
    EXPECT_EQ(decoded("<TABCDEFFABCDE0AF0>"), expected);
    EXPECT_EQ(decoded("<TaBcDEffAbCdE0Af0>"), expected);
}

TEST(Frame, DecodesAnInvalidDigitAsZero)
{
    EXPECT_EQ(decoded("<T0x1g<1T1 1-1+1.1>"),
              (Bytes{0x00, 0x10, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01}));
}

TEST(Frame, DecodesTheChecksumAsItStands)
{
    EXPECT_EQ(decoded("<T00006801000000ff>")[7], 0xFF);
    EXPECT_EQ(decoded("<T0000680100000000>")[7], 0x00);
}

TEST(Frame, DecodesWithoutLookingAtHeaderOrEnd)
{
    // Exactly the 18 characters up to the end, so that a sanitizer sees a look at the end
    // character.
    const std::unique_ptr<char[]> frame(new char[18]);
    std::memcpy(frame.get(), "??0102030405060708", 18);
    Rs232Command record{};
    StrToRs232Command(frame.get(), &record);
    EXPECT_EQ(bytesOf(record), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(Frame, EncodesEachByteAtItsOffsetInLowercase)
{
    Text text;
    Rs232Command record = recordOf({0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0});
    Rs232CommandToStr(&record, text.characters);
    // 01 + 23 + 45 + 67 + 89 + ab + cd = 2d1
    EXPECT_EQ(text.all(), (std::string_view("##0123456789abcdd1#\0", 20)));
}

TEST(Frame, LeavesHeaderEndAndTerminatorToTheCaller)
{
    Text text;
    std::memcpy(text.characters, "<F", 2);
    text.characters[18] = '>';
    text.characters[19] = '!';
    Rs232Command record{};
    Rs232CommandToStr(&record, text.characters);
    EXPECT_EQ(text.all(), "<F0000000000000000>!");
}

TEST(Frame, SetsTheChecksumOfTheRecordBeforeEncodingIt)
{
    Text text;
    Rs232Command record = recordOf({1, 2, 0x10, 0xFF, 0xFF, 0xFF, 0xFF, 0x77});
    Rs232CommandToStr(&record, text.characters);
    EXPECT_EQ(bytesOf(record), (Bytes{1, 2, 0x10, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F}));
    EXPECT_EQ(text.all().substr(2, 16), "010210ffffffff0f");
}

TEST(Frame, CarriesEveryRecordThereAndBack)
{
    std::mt19937 random(19);
    for (int round = 0; round < 2000; ++round) {
        Bytes bytes;
        uint8_t sum = 0;
        for (uint8_t &byte : bytes) {
            byte = static_cast<uint8_t>(random());
        }
        for (size_t i = 0; i < 7; ++i) {
            sum = static_cast<uint8_t>(sum + bytes[i]);
        }
        Text text;
        Rs232Command record = recordOf(bytes);
        Rs232CommandToStr(&record, text.characters);
        bytes[7] = sum;
        ASSERT_EQ(text.all().substr(2, 16), hex(bytes));
        Rs232Command back{};
        StrToRs232Command(text.characters, &back);
        ASSERT_EQ(bytesOf(back), bytes);
        ASSERT_EQ(CheckSum(&back), 1);
    }
}

TEST(Frame, EncodesTheFourDataBytesAsALine)
{
    char text[] = "##############";
    const Rs232Command record = recordOf({0x11, 0x22, 0x33, 0x01, 0xAB, 0x00, 0xFF, 0x44});
    Rs232CommandToStr1(&record, text);
    EXPECT_EQ(std::string_view(text, sizeof text), std::string_view("##01ab00ff\r\n\0#\0", 15));
}

TEST(Frame, SumsTheFirstSevenBytesModulo256)
{
    struct Case {
        Bytes bytes;
        uint8_t sum;
    };
    // clang-format off
    constexpr Case kCases[] = {
        {{0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}, 0x00},
        {{0x00, 0x00, 0x68, 0x01, 0x00, 0x00, 0x00, 0x00}, 0x69},
        {{0x01, 0x02, 0x10, 0xFF, 0xFF, 0xFF, 0xFF, 0x00}, 0x0F}, // 40f
        {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 0xF9}, // 6f9; the last byte is not in it
        {{0x80, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x55}, 0x00}, // 100
    };
    // clang-format on
    for (const Case &expected : kCases) {
        Rs232Command record = recordOf(expected.bytes);
        SetCheckSum(&record);
        Bytes after = expected.bytes;
        after[7] = expected.sum;
        EXPECT_EQ(bytesOf(record), after);
    }
}

TEST(Frame, CountsEachOfTheSevenBytesOnce)
{
    for (size_t at = 0; at < 7; ++at) {
        Bytes bytes{};
        bytes[at] = 0xA7;
        Rs232Command record = recordOf(bytes);
        SetCheckSum(&record);
        EXPECT_EQ(record.checksum, 0xA7) << at;
    }
}

TEST(Frame, AcceptsTheRightChecksumWithoutAWord)
{
    const Rs232Command record = recordOf({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xF9});
    int32_t result = -1;
    EXPECT_EQ(printedBy([&] { result = CheckSum(&record); }), "");
    EXPECT_EQ(result, 1);
}

TEST(Frame, RefusesEveryWrongChecksumAndPrintsTheRightOne)
{
    Bytes bytes = {0, 0, 0x68, 1, 0, 0, 0, 0};
    for (unsigned wrong = 0; wrong < 256; ++wrong) {
        if (wrong == 0x69) {
            continue;
        }
        bytes[7] = static_cast<uint8_t>(wrong);
        const Rs232Command record = recordOf(bytes);
        int32_t result = -1;
        EXPECT_EQ(printedBy([&] { result = CheckSum(&record); }), "checksum=105\r\n") << wrong;
        EXPECT_EQ(result, 0) << wrong;
    }
}

TEST(Frame, PrintsTheChecksumModulo256)
{
    const Rs232Command record = recordOf({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_EQ(printedBy([&] { CheckSum(&record); }), "checksum=249\r\n");
}

TEST(Frame, ClosesABufferOfOneByteWithZero)
{
    uint8_t buffer[] = {0x77, 0x77};
    SetBufferCheckSum(buffer, 1);
    EXPECT_EQ(buffer[0], 0);
    EXPECT_EQ(buffer[1], 0x77);
}

TEST(Frame, ClosesABufferWithTheSumOfTheBytesBefore)
{
    uint8_t buffer[] = {0x80, 0x81, 0x10, 0xEE, 0x77};
    SetBufferCheckSum(buffer, 4);
    const uint8_t expected[] = {0x80, 0x81, 0x10, 0x11, 0x77}; // 111
    EXPECT_EQ(std::memcmp(buffer, expected, sizeof buffer), 0);
}

TEST(Frame, ClosesALongBufferModulo256)
{
    std::vector<uint8_t> buffer(70000, 0xFF);
    SetBufferCheckSum(buffer.data(), static_cast<uint32_t>(buffer.size()));
    EXPECT_EQ(buffer.back(), 0x91); // 69999 times -1 is -69999 = -274 * 256 + 145
    EXPECT_EQ(std::count(buffer.begin(), buffer.end() - 1, 0xFF), 69999);
}

TEST(Frame, LeavesABufferOfNoBytesAlone)
{
    uint8_t buffer[] = {0x11, 0x77, 0x22};
    SetBufferCheckSum(buffer + 1, 0);
    const uint8_t expected[] = {0x11, 0x77, 0x22};
    EXPECT_EQ(std::memcmp(buffer, expected, sizeof buffer), 0);
}

} // namespace
