// Payloads as they come: whole, split, late, short, too long, damaged; and how long the waits are.

#include "command/payload.h"

#include <gtest/gtest.h>

#include "tests/support/arrival.h"
#include "tests/support/bytes.h"

namespace {

class Payload : public testing::Test {
protected:
    Payload()
    {
        openLine();
    }
};

// A read of so many bytes, a block of that length or a text into that room; the bytes that arrive;
// and what comes of it: the result, the bytes stored, the sleeps of 2 ms, and the bytes not read.
struct Read {
    const char *name;
    uint32_t size;
    int32_t tries;
    Arrivals arrivals;
    uint32_t result;
    std::string stored;
    size_t sleeps;
    std::string left = "";
    const char *prints = "";
};

using Reader = uint32_t (*)(uint8_t *bytes, uint32_t size, int32_t tries);

uint32_t readText(uint8_t *text, uint32_t capacity, int32_t tries)
{
    return receiveStringValueFromPC(reinterpret_cast<char *>(text), capacity, tries);
}

void expectReads(Reader reader, const std::vector<Read> &reads)
{
    for (const Read &read : reads) {
        SCOPED_TRACE(testing::Message() << read.name << ", " << read.size << " bytes");
        arrive(read.arrivals);
        std::string room(std::max<size_t>(read.size, read.stored.size()) + 8, '#');
        uint32_t result = 0;
        const std::string prints = printedBy([&] {
            result = reader(reinterpret_cast<uint8_t *>(room.data()), read.size, read.tries);
        });
        EXPECT_EQ(result, read.result);
        EXPECT_EQ(room, read.stored + std::string(room.size() - read.stored.size(), '#'));
        EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(read.sleeps, 2000));
        EXPECT_EQ(waiting(), read.left);
        EXPECT_EQ(prints, read.prints);
        takeAll();
    }
}

// clang-format off
TEST_F(Payload, ReadsBytesUntilTheyAreAllThereOrTheTriesAreSpent)
{
    const std::string many = countingBytes(10'000, 251);
    expectReads(readDataFromPC, {
        {"there already",              4, 0, {{0, "abc\xFFxyz"}}, 4, "abc\xFF", 0, "xyz"},
        {"none wanted",             0, 5000, {{0, "a"}},          0, "",        0, "a"},
        {"too few",                    4, 3, {{0, "ab"}},         2, "ab",      5},
        {"the rest is late", 7, 10, {{0, "ab"}, {1, "cde"}, {2, "fgh"}}, 7, "abcdefg", 2, "h"},
        {"the tries are the whole read's", 8, 3, perSleep(1, "abcdefgh"), 4, "abcd", 5, "e"},
        {"during the last sleep but one",  1, 3, {{4, "z"}},      1, "z",       4},
        {"during the last sleep",      1, 3, {{5, "z"}},          0, "",        5, "z"},
        {"more than the pipe holds", 10'000, 10, perSleep(4095, many), 10'000, many, 3},
    });
}

TEST_F(Payload, GivesUpAfterTwoSleepsMoreThanThereAreTries)
{
    for (const int32_t tries : {0, 1, 2, 500, 1500, 5000}) {
        const auto sleeps = static_cast<size_t>(tries) + 2;
        expectReads(readDataFromPC, {{"nothing", 4, tries, {}, 0, "", sleeps}});
    }
}

constexpr char kError[] = "re checksum error\r\n";

TEST_F(Payload, ReceivesABlockAndComparesItsChecksum)
{
    const std::string zero(1, '\0');
    const std::string most = withChecksum(countingBytes(4096, 251));
    expectReads(receiveBufferFromPC, {
        {"01 + ff + 80 = 180", 3, 0, {{0, "\x01\xFF\x80\x80z"}}, 3, "\x01\xFF\x80\x80", 0, "z"},
        {"more than the pipe holds", 4096, 5000, perSleep(4000, most), 4096, most, 2},
        {"nothing",              10, 4, {},                 0,  "",           6},
        {"one byte",             10, 4, {{0, "a"}},         1,  "a",          6},
        {"nine bytes",           10, 4, {{0, "abcdefghi"}}, 9,  "abcdefghi",  6},
        // A block that lacks only its checksum counts as whole.
        {"all but the checksum", 10, 4, {{0, "abcdefghij"}}, 10, "abcdefghij", 6},
        {"an empty block",        0, 0, {{0, zero + "\1"}}, 0,  zero,         0, "\1"},
        {"one with a wrong sum",  0, 0, {{0, "\1"}},        0,  "\1",         0, "", kError},
        {"one that does not come", 0, 0, {},                0,  "",           2},
    });
    for (const uint32_t length : {1u, 2u, 18u, 255u, 256u, 257u, 1024u, 4093u, 4094u}) {
        const std::string block = withChecksum(countingBytes(length, 251));
        expectReads(receiveBufferFromPC, {{"whole", length, 0, {{0, block}}, length, block, 0}});
    }
}

// The whole block is consumed.
TEST_F(Payload, RefusesEveryWrongChecksumAndADamagedByteAnywhere)
{
    for (unsigned error = 1; error < 256; ++error) {
        std::string block = withChecksum("abc");
        block.back() = static_cast<char>(static_cast<uint8_t>(block.back()) + error);
        expectReads(receiveBufferFromPC, {{"wrong", 3, 0, {{0, block}}, 0, block, 0, "", kError}});
    }
    for (const size_t at : {0u, 1u, 255u, 256u, 298u, 299u}) {
        std::string block = withChecksum(countingBytes(300, 251));
        block[at] = static_cast<char>(block[at] ^ 0x80);
        expectReads(receiveBufferFromPC, {{"bad", 300, 0, {{0, block}}, 0, block, 0, "", kError}});
    }
}

TEST_F(Payload, ReceivesATextFromBracketToBracket)
{
    std::string every = "[" + countingBytes(256) + "[]";
    every.erase(1 + ']', 1);
    const std::string endless = "[" + std::string(100'000, 'x') + "]next";
    expectReads(readText, {
        {"with its brackets",       100, 500, {{0, "[a=1]next"}}, 5, "[a=1]", 0, "next"},
        {"an empty one",            100, 0, {{0, "[][]"}},      2,   "[]",    0, "[]"},
        {"every byte as it is",     400, 0, {{0, every}},       258, every,   0},
        {"a late wrong character",  100, 500, {{1, "x"}},       0,   "",      1},
        {"late characters",         100, 500, perSleep(1, "[a]"), 3, "[a]",   3},
        {"nothing",                 100, 500, {},               0,   "",      502},
        {"never closed",            100, 500, {{0, "[a=12"}},   5,   "[a=12", 502},
        {"the tries are the whole text's", 100, 3, perSleep(1, "[bcdefg]"), 4, "[bcd", 5, "e"},
        {"read to the end, however late", 4096, 500, perSleep(4000, endless), 100'002,
         endless.substr(0, 4096), 26, "next"},
    });
    for (const std::string first : {"]", "a", "<", "\xFF", " "}) {
        expectReads(readText, {{"no bracket", 100, 500, {{0, first + "[a]"}}, 0, "", 0, "[a]"}});
    }
}

TEST_F(Payload, CountsATextBeyondTheRoomForItWithoutStoringIt)
{
    const std::string text = "[" + std::string(20, 'x') + "]";
    for (const uint32_t capacity : {0u, 1u, 21u, 22u, 23u}) {
        const std::string stored = text.substr(0, capacity);
        expectReads(readText, {{"long", capacity, 0, {{0, text + "next"}}, 22, stored, 0, "next"}});
    }
}
// clang-format on

TEST_F(Payload, ReadsTheChannelBeingServed)
{
    getFreeChannel(kChannelSerial, 1);
    arrive("zero", 0);
    arrive("one", 1);
    char bytes[4];
    commandFrom = 1;
    EXPECT_EQ(readDataFromPC(reinterpret_cast<uint8_t *>(bytes), 3, 0), 3u);
    EXPECT_EQ(std::string(bytes, 3), "one");
    EXPECT_EQ(waiting(0), "zero");
}

TEST_F(Payload, ReadsNothingFromAChannelWithoutMemory)
{
    Channel *const memory = std::exchange(channel[5], nullptr);
    commandFrom = 5;
    uint8_t bytes[5];
    EXPECT_EQ(readDataFromPC(bytes, 4, 10), 0u);
    EXPECT_EQ(receiveBufferFromPC(bytes, 4, 10), 0u);
    EXPECT_EQ(readText(bytes, 4, 10), 0u);
    channel[5] = memory;
}

} // namespace
