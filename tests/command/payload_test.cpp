// Payloads as they come: whole, split, late, short, too long, with a wrong checksum; and how long
// is waited for them.

#include "command/payload.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "command/channel.h"
#include "command/reception.h"
#include "tests/support/clock.h"
#include "tests/support/exchange.h"
#include "transport/bridge_pipes.h"

namespace {

constexpr char kUntouched = '#';

void arrive(std::string_view bytes, uint64_t port = 0)
{
    IsrReceiveBuffer(kChannelSerial, port, bytesOf(bytes), lengthOf(bytes));
}

// Has `bytes` arrive during the next sleeps, `perSleep` of them in each.
void arriveWhileWaiting(const std::string &bytes, size_t perSleep)
{
    fakeClock.onSleep = [bytes, perSleep, done = size_t{0}]() mutable {
        arrive(std::string_view(bytes).substr(done, perSleep));
        done += std::min(perSleep, bytes.size() - done);
    };
}

std::vector<uint32_t> sleeps(size_t count)
{
    return std::vector<uint32_t>(count, 2000);
}

// `length` bytes, each unlike its neighbours, and zeros and bytes above 0x7F among them.
std::string content(size_t length)
{
    std::string bytes;
    for (size_t i = 0; i < length; ++i) {
        bytes += static_cast<char>(i * 7 + i / 256 + 1);
    }
    return bytes;
}

std::string withChecksum(const std::string &bytes)
{
    const unsigned sum = std::accumulate(bytes.begin(), bytes.end(), 0u, [](unsigned all, char c) {
        return all + static_cast<unsigned char>(c);
    });
    return bytes + static_cast<char>(sum % 256);
}

// Channel 0 is port 0 and is being served; channel 1 is port 1.
class Payload : public testing::Test {
protected:
    Payload()
    {
        InitRs232CommandVariable();
        getFreeChannel(kChannelSerial, 0);
        getFreeChannel(kChannelSerial, 1);
        commandFrom = 0;
    }
};

// Results of the reads, and what they left in a buffer that is larger than they may use.
struct Read {
    uint32_t result;
    std::string bytes;
};

Read readData(uint32_t count, int32_t tries)
{
    std::string room(count + 8, kUntouched);
    const uint32_t result = readDataFromPC(reinterpret_cast<uint8_t *>(room.data()), count, tries);
    EXPECT_EQ(room.substr(result), std::string(room.size() - result, kUntouched));
    return {result, room.substr(0, result)};
}

Read readBlock(uint32_t length, int32_t tries)
{
    std::string room(length + 9, kUntouched);
    const uint32_t result =
        receiveBufferFromPC(reinterpret_cast<uint8_t *>(room.data()), length, tries);
    EXPECT_EQ(room.substr(length + 1), std::string(8, kUntouched));
    return {result, room.substr(0, result)};
}

Read readText(uint32_t capacity, int32_t tries)
{
    std::string room(capacity + 8, kUntouched);
    const uint32_t result = receiveStringValueFromPC(room.data(), capacity, tries);
    const uint32_t stored = std::min(result, capacity);
    EXPECT_EQ(room.substr(stored), std::string(room.size() - stored, kUntouched));
    return {result, room.substr(0, stored)};
}

std::string waiting(uint8_t index = 0)
{
    return contentOf(channel[index]->pipe);
}

// Bytes ------------------------------------------------------------------------------------------

TEST_F(Payload, ReadsWhatIsThereWithoutWaiting)
{
    arrive("abc\xFFxyz");
    const Read read = readData(4, 0);
    EXPECT_EQ(read.result, 4u);
    EXPECT_EQ(read.bytes, "abc\xFF");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(0));
    EXPECT_EQ(waiting(), "xyz");
}

TEST_F(Payload, ReadsNoBytesWithoutWaiting)
{
    arrive("a");
    EXPECT_EQ(readData(0, 5000).result, 0u);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(0));
    EXPECT_EQ(waiting(), "a");
}

TEST_F(Payload, GivesUpAfterTwoSleepsMoreThanThereAreTries)
{
    for (const int32_t tries : {0, 1, 2, 500, 1500, 5000}) {
        fakeClock.sleepsUs.clear();
        EXPECT_EQ(readData(4, tries).result, 0u) << tries;
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(static_cast<size_t>(tries) + 2)) << tries;
    }
}

TEST_F(Payload, ReturnsWhatHasComeWhenItGivesUp)
{
    arrive("ab");
    const Read read = readData(4, 3);
    EXPECT_EQ(read.result, 2u);
    EXPECT_EQ(read.bytes, "ab");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(5));
}

TEST_F(Payload, ReadsOnWhenBytesArriveDuringTheWait)
{
    arrive("ab");
    arriveWhileWaiting("cdefgh", 3);
    const Read read = readData(7, 10);
    EXPECT_EQ(read.result, 7u);
    EXPECT_EQ(read.bytes, "abcdefg");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(2));
    EXPECT_EQ(waiting(), "h");
}

TEST_F(Payload, SpendsItsTriesOnTheWholeReadNotOnEachByte)
{
    arriveWhileWaiting("abcdefgh", 1); // never two empty polls in a row
    const Read read = readData(8, 3);
    EXPECT_EQ(read.result, 4u);
    EXPECT_EQ(read.bytes, "abcd");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(5));
}

TEST_F(Payload, ReadsWhatCameDuringTheLastSleepButOne)
{
    fakeClock.onSleep = [] {
        if (fakeClock.sleepsUs.size() == 4) {
            arrive("z");
        }
    };
    EXPECT_EQ(readData(1, 3).bytes, "z");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(4));
}

TEST_F(Payload, LeavesWhatComesDuringTheLastSleepInTheChannel)
{
    fakeClock.onSleep = [] {
        if (fakeClock.sleepsUs.size() == 5) {
            arrive("z");
        }
    };
    EXPECT_EQ(readData(1, 3).result, 0u);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(5));
    EXPECT_EQ(waiting(), "z");
}

TEST_F(Payload, ReadsMoreThanThePipeHolds)
{
    const std::string bytes = content(10000);
    arriveWhileWaiting(bytes, 4095);
    const Read read = readData(10000, 10);
    EXPECT_EQ(read.result, 10000u);
    EXPECT_EQ(read.bytes, bytes);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(3));
}

TEST_F(Payload, ReadsTheChannelBeingServed)
{
    arrive("zero", 0);
    arrive("one", 1);
    commandFrom = 1;
    EXPECT_EQ(readData(3, 0).bytes, "one");
    EXPECT_EQ(waiting(0), "zero");
    commandFrom = 0;
    EXPECT_EQ(readData(4, 0).bytes, "zero");
}

TEST_F(Payload, ReadsNothingFromAChannelWithoutMemory)
{
    Channel *const memory = channel[5];
    channel[5] = nullptr;
    commandFrom = 5;
    EXPECT_EQ(readData(4, 10).result, 0u);
    EXPECT_EQ(readBlock(4, 10).result, 0u);
    EXPECT_EQ(readText(4, 10).result, 0u);
    channel[5] = memory;
}

TEST_F(Payload, HandsNothingOfItToThePc)
{
    udp_receive_pipe_init();
    arrive("ab" + withChecksum("cd") + "[e]");
    readData(2, 0);
    readBlock(2, 0);
    readText(3, 0);
    EXPECT_EQ(waiting(), "");
    EXPECT_EQ(contentOf(udp_send_pipe), "");
}

// Blocks -----------------------------------------------------------------------------------------

TEST_F(Payload, ReceivesABlockAndItsChecksum)
{
    // 01 + ff + 80 = 180
    arrive(std::string_view("\x01\xFF\x80\x80next", 8));
    const Read read = readBlock(3, 0);
    EXPECT_EQ(read.result, 3u);
    EXPECT_EQ(read.bytes, "\x01\xFF\x80");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(0));
    EXPECT_EQ(waiting(), "next");
}

TEST_F(Payload, ReceivesBlocksOfEveryLength)
{
    for (const uint32_t length : {1u, 2u, 18u, 255u, 256u, 257u, 1024u, 4093u, 4094u}) {
        const std::string bytes = content(length);
        arrive(withChecksum(bytes));
        std::string prints = printedBy([&] {
            const Read read = readBlock(length, 0);
            EXPECT_EQ(read.result, length);
            EXPECT_EQ(read.bytes, bytes) << length;
        });
        EXPECT_EQ(prints, "") << length;
        EXPECT_EQ(waiting(), "") << length;
    }
}

TEST_F(Payload, ReceivesABlockOfAWholeBufferThoughThePipeHoldsLess)
{
    const std::string bytes = content(4096);
    arriveWhileWaiting(withChecksum(bytes), 4000);
    const Read read = readBlock(4096, 5000);
    EXPECT_EQ(read.result, 4096u);
    EXPECT_EQ(read.bytes, bytes);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(2));
}

TEST_F(Payload, RefusesEveryWrongChecksum)
{
    const std::string block = withChecksum("abc");
    for (unsigned error = 1; error < 256; ++error) {
        std::string wrong = block;
        wrong.back() = static_cast<char>(static_cast<unsigned char>(wrong.back()) + error);
        arrive(wrong);
        uint32_t result = 1;
        EXPECT_EQ(printedBy([&] { result = readBlock(3, 0).result; }), "re checksum error\r\n");
        EXPECT_EQ(result, 0u) << error;
        EXPECT_EQ(waiting(), "") << error; // the whole block is consumed
    }
}

TEST_F(Payload, NoticesADamagedByteAnywhereInABlock)
{
    const std::string block = withChecksum(content(300));
    for (const size_t at : {0u, 1u, 255u, 256u, 298u, 299u}) {
        std::string damaged = block;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x80);
        arrive(damaged);
        printedBy([&] { EXPECT_EQ(readBlock(300, 0).result, 0u) << at; });
    }
}

TEST_F(Payload, ReturnsTheLengthOfABlockThatEndsEarly)
{
    for (const uint32_t come : {0u, 1u, 9u}) {
        fakeClock.sleepsUs.clear();
        arrive(content(come));
        uint32_t result = 99;
        EXPECT_EQ(printedBy([&] { result = readBlock(10, 4).result; }), "");
        EXPECT_EQ(result, come);
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(6));
    }
}

TEST_F(Payload, TakesABlockThatLacksOnlyItsChecksumForWhole)
{
    arrive(content(10));
    uint32_t result = 0;
    EXPECT_EQ(printedBy([&] { result = readBlock(10, 4).result; }), "");
    EXPECT_EQ(result, 10u);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(6));
}

TEST_F(Payload, ReadsTheChecksumOfAnEmptyBlock)
{
    arrive(std::string_view("\0\1", 2));
    uint32_t result = 99;
    EXPECT_EQ(printedBy([&] { result = readBlock(0, 0).result; }), "");
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(waiting(), "\1");
    EXPECT_EQ(printedBy([&] { result = readBlock(0, 0).result; }), "re checksum error\r\n");
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(printedBy([&] { result = readBlock(0, 0).result; }), "");
    EXPECT_EQ(result, 0u);
}

// Texts ------------------------------------------------------------------------------------------

TEST_F(Payload, ReceivesATextWithItsBrackets)
{
    arrive("[a=1]next");
    const Read read = readText(100, 500);
    EXPECT_EQ(read.result, 5u);
    EXPECT_EQ(read.bytes, "[a=1]");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(0));
    EXPECT_EQ(waiting(), "next");
}

TEST_F(Payload, ReceivesAnEmptyText)
{
    arrive("[][]");
    EXPECT_EQ(readText(100, 0).bytes, "[]");
    EXPECT_EQ(waiting(), "[]");
}

TEST_F(Payload, ReceivesEveryByteWithinATextAsItIs)
{
    std::string text = "[";
    for (int code = 0; code < 256; ++code) {
        if (code != ']') {
            text += static_cast<char>(code);
        }
    }
    text += "[]";
    arrive(text);
    const Read read = readText(400, 0);
    EXPECT_EQ(read.result, 258u);
    EXPECT_EQ(read.bytes, text);
}

TEST_F(Payload, RefusesATextThatDoesNotBeginWithABracketAtOnce)
{
    for (const std::string first : {"]", "a", "<", "\xFF", " "}) {
        arrive(first + "[a]");
        EXPECT_EQ(readText(100, 500).result, 0u) << first;
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(0)) << first;
        EXPECT_EQ(waiting(), "[a]") << first;
        EXPECT_EQ(readText(100, 500).result, 3u) << first;
    }
}

TEST_F(Payload, WaitsForTheFirstCharacterOfAText)
{
    arriveWhileWaiting("x[a]", 1);
    EXPECT_EQ(readText(100, 500).result, 0u);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(1));
    EXPECT_EQ(readText(100, 500).bytes, "[a]");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(4));
}

TEST_F(Payload, WaitsNoLongerThanTheTriesForAWholeText)
{
    EXPECT_EQ(readText(100, 500).result, 0u);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(502));
    fakeClock.sleepsUs.clear();
    arriveWhileWaiting("[bcdefg]", 1);
    const Read read = readText(100, 3);
    EXPECT_EQ(read.result, 4u);
    EXPECT_EQ(read.bytes, "[bcd");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(5));
}

TEST_F(Payload, ReturnsTheLengthOfATextThatIsNeverClosed)
{
    arrive("[a=12");
    const Read read = readText(100, 500);
    EXPECT_EQ(read.result, 5u);
    EXPECT_EQ(read.bytes, "[a=12");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(502));
}

TEST_F(Payload, CountsATextBeyondTheRoomForItWithoutStoringIt)
{
    const std::string text = "[" + std::string(20, 'x') + "]";
    for (const uint32_t capacity : {0u, 1u, 21u, 22u, 23u}) {
        arrive(text + "next");
        const Read read = readText(capacity, 0);
        EXPECT_EQ(read.result, 22u) << capacity;
        EXPECT_EQ(read.bytes, text.substr(0, capacity)) << capacity;
        EXPECT_EQ(readData(4, 0).bytes, "next") << capacity;
    }
}

TEST_F(Payload, ReadsATextOfAnyLengthToItsEnd)
{
    const std::string text = "[" + std::string(100'000, 'x') + "]next";
    arriveWhileWaiting(text, 4000);
    const Read read = readText(4096, 500);
    EXPECT_EQ(read.result, 100'002u);
    EXPECT_EQ(read.bytes, text.substr(0, 4096));
    EXPECT_EQ(waiting(), "next");
}

} // namespace
