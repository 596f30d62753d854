// Setting a link up, the frame of a command byte for byte, the window, and raw bytes either way.

#include "link/mervoProtocol.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/link/far_end.h"
#include "tests/support/bytes.h"
#include "tests/support/clock.h"

namespace {

using Texts = std::vector<std::string>;

// Setting up -------------------------------------------------------------------------------------

TEST(MervoProtocol, InitStoresThreePointersAndZeroesFiveFieldsAndDoesNothingElse)
{
    OpenLink open;
    open.receive(answerFrame(1));
    std::memset(static_cast<void *>(&open.link), 0xA5, sizeof open.link);
    MervoLink expected = open.link;
    expected.receivePipe = &open.pipe;
    expected.onAnswer = noteAnswer;
    expected.send = sendToFarEnd;
    for (uint8_t *const field : {&expected.answered, &expected.count, &expected.state,
                                 &expected.sequence, &expected.acknowledged}) {
        *field = 0;
    }
    Init_MervoProtocol(&open.link, &open.pipe, noteAnswer, sendToFarEnd);
    EXPECT_TRUE(isLink(open.link, expected));
    expected.receivePipe = nullptr;
    expected.onAnswer = nullptr;
    Init_MervoProtocol(&open.link, nullptr, nullptr, sendToFarEnd);
    EXPECT_TRUE(isLink(open.link, expected));
    EXPECT_EQ(farEnd.events, Texts{});
}

TEST(MervoProtocol, TwoLinksDoNotShareAnything)
{
    OpenLink open;
    MervoLink other = open.link;
    open.parse("<F0105");
    _interpret_cmd_char(&other, '<');
    MervoLink expected = other;
    EXPECT_EQ(open.parse("020000000008>"), 1u);
    SendCmdNoWait_MervoProtocol(&open.link, 0, 0, 0, 0, 0, 0);
    EXPECT_TRUE(isLink(other, expected));
}

// The frame --------------------------------------------------------------------------------------

TEST(MervoProtocol, FirstCommandAfterInitCarriesNumberOneAndThe256thZero)
{
    OpenLink open;
    for (int sent = 1; sent <= 257; ++sent) {
        _send_cmd_mervo(&open.link, 0x10, 0x20, 0, 0, 0, 0);
    }
    EXPECT_EQ(farEnd.sent[0].bytes, "<T1001200000000031>");
    EXPECT_EQ(farEnd.sent[255].bytes, "<T1000200000000030>");
    EXPECT_EQ(farEnd.sent[256].bytes, "<T1001200000000031>");
}

TEST(MervoProtocol, EverySenderSendsTheLow8BitsOfItsArgumentsInOneFrame)
{
    const std::array<uint32_t, 6> rows[] = {
        {1, 2, 3, 4, 5, 6}, {0x101, 0xFFFFFF02, 0x8003, 0x12345604, 0x7FFFFF05, 0x80000006}};
    for (const auto &[address, command, data1, data2, data3, data4] : rows) {
        OpenLink open;
        open.link.acknowledged = 1; // no wait for an answer
        const auto fresh = [&open] {
            open.link.sequence = 0;
            return &open.link;
        };
        _send_cmd_mervo(fresh(), address, command, data1, data2, data3, data4);
        SendCmdNoWait_MervoProtocol(fresh(), address, command, data1, data2, data3, data4);
        SendCmd_MervoProtocol(fresh(), address, command, data1, data2, data3, data4);
        SendCmdAndDataBlock_MervoProtocol(fresh(), address, command, data1, data2, data3, data4,
                                          nullptr, 0);
        SendCmdAndWait_MervoProtocol(fresh(), address, command, data1, data2, data3, data4);
        EXPECT_EQ(farEnd.sent.size(), 5u);
        for (const FarEnd::Sent &sent : farEnd.sent) {
            EXPECT_EQ(sent.bytes, "<T0101020304050616>") << address; // without a terminator
        }
    }
}

TEST(MervoProtocol, EveryByteInEveryPlaceIsPrintedAsTheCLibraryPrintsIt)
{
    OpenLink open;
    for (size_t place = 0; place < 7; ++place) {
        for (uint32_t value = 0; value < 256; ++value) {
            std::array<uint8_t, 7> bytes = {0x0F, 0x1E, 0x2D, 0x3C, 0x4B, 0x5A, 0x69};
            bytes[place] = static_cast<uint8_t>(value);
            const auto &[address, number, command, data1, data2, data3, data4] = bytes;
            open.link.sequence = static_cast<uint8_t>(number - 1);
            _send_cmd_mervo(&open.link, address, command, data1, data2, data3, data4);
            ASSERT_EQ(farEnd.sent.back().bytes,
                      commandFrame(address, number, command, data1, data2, data3, data4))
                << place << ' ' << value;
        }
    }
}

TEST(MervoProtocol, SendingCountsOnFirstAndReturnsTheResultOfSendWhateverItIs)
{
    OpenLink open;
    open.stand(9, 3);
    open.parse(answerFrame(4, 0x01020304) + "<F1234567");
    MervoLink expected = open.link;
    const uint8_t bytes[] = {1, 2, 3};
    for (const int32_t result : {19, 0, 1, -1, -5, 18, INT32_MIN, INT32_MAX}) {
        ++expected.sequence; // and no other field changes
        farEnd.onSend = [&] {
            EXPECT_TRUE(isLink(open.link, expected)) << result;
            return result;
        };
        EXPECT_EQ(_send_cmd_mervo(&open.link, 1, 2, 3, 4, 5, 6), result);
        EXPECT_EQ(SendBuffer_MervoProtocol(&open.link, bytes, 3), result);
        EXPECT_TRUE(isLink(open.link, expected)) << result;
    }
}

TEST(MervoProtocol, SendingWithoutWaitReturnsOneHoweverManyAreUnanswered)
{
    OpenLink open;
    open.stand(0, 0);
    for (uint32_t sent = 1; sent <= 300; ++sent) {
        farEnd.onSend = [sent] { return sent % 2 == 0 ? -1 : 0; };
        EXPECT_EQ(SendCmdNoWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 1) << sent;
    }
    EXPECT_EQ(farEnd.events.size(), 300u) << "it sent, and did nothing else";
}

// The window -------------------------------------------------------------------------------------

// Counted by walking from one number to the other, not by subtraction. The address and whether the
// device answers do not count.
TEST(MervoProtocol, RoomIsForUpTo29UnansweredCommandsWhateverTheNumbers)
{
    OpenLink open;
    open.stand(5, 250); // eleven unanswered
    EXPECT_EQ(canSendCmd_mervo(&open.link, 1), 1);
    open.stand(24, 250); // thirty
    EXPECT_EQ(canSendCmd_mervo(&open.link, 1), 0);
    for (int acknowledged = 0; acknowledged < 256; ++acknowledged) {
        int sequence = acknowledged;
        for (uint32_t unanswered = 0; unanswered < 256; ++unanswered) {
            open.stand(static_cast<uint8_t>(sequence), static_cast<uint8_t>(acknowledged));
            open.link.answered = sequence % 2 == 0 ? 1 : 0;
            ASSERT_EQ(canSendCmd_mervo(&open.link, unanswered * 0x01010101u),
                      unanswered < 30 ? 1 : 0)
                << sequence << ' ' << acknowledged;
            sequence = sequence == 255 ? 0 : sequence + 1;
        }
    }
    EXPECT_EQ(farEnd.events, Texts{});
}

// Raw bytes --------------------------------------------------------------------------------------

TEST(MervoProtocol, RawBytesAreSentUnchangedFromWhereTheyStandWhateverTheLength)
{
    OpenLink open;
    const std::string bytes = countingBytes(256);
    const auto *const from = reinterpret_cast<const uint8_t *>(bytes.data());
    for (const int32_t length : {256, 1, 0, -1, INT32_MIN}) {
        EXPECT_EQ(SendBuffer_MervoProtocol(&open.link, from, length), length);
        EXPECT_EQ(farEnd.sent.back().from, from) << length;
        EXPECT_EQ(farEnd.sent.back().length, length);
    }
    EXPECT_EQ(farEnd.sent.size(), 5u);
    EXPECT_EQ(farEnd.sent[0].bytes, countingBytes(256));
}

TEST(MervoProtocol, RawBytesAreReceivedAsTheRowsSay)
{
    const std::string anything = answerFrame(1) + countingBytes(256);
    // clang-format off
    const struct {
        const char *name;
        std::vector<Arrival> arrivals;
        uint32_t maximum, timeout;
        std::string received;
        const char *left;
        size_t sleeps; // of a millisecond
    } rows[] = {
        {"the rest is left",                {{0, "abcdefg"}},            3, 1000, "abc",  "defg", 0},
        {"exactly what is there",           {{0, "abcd"}},               4, 1000, "abcd", "",     0},
        {"0 still stores one that waits",   {{0, "abc"}},                0, 1000, "a",    "bc",   0},
        {"0 waits for one",                 {{4, "xy"}},                 0, 1000, "x",    "y",    4},
        {"fewer take the whole time-out",   {{0, "ab"}},                 5,   25, "ab",   "",    25},
        {"a time-out of 0 looks once",      {{0, "abc"}},                5,    0, "a",    "bc",   0},
        {"and sleeps once",                 {},                          5,    0, "",     "",     1},
        {"bursts are gathered",             {{2, "ab"}, {6, "cde"}},     4,  100, "abcd", "e",    6},
        {"what comes with the end is left", {{9, "a"}, {10, "b"}},       5,   10, "a",    "b",   10},
        {"any bytes, an answer too",        {{0, anything}},    0xFFFFFFFF,    3, anything, "",   3},
    };
    // clang-format on
    for (const auto &row : rows) {
        OpenLink open;
        open.stand(9, 3);
        open.parse("<F01"); // half an answer stays half of one
        const MervoLink expected = open.link;
        open.receive(row.arrivals);
        std::string buffer(300, '#');
        const uint32_t count = ReceiveBuffer_MervoProtocol(
            &open.link, reinterpret_cast<uint8_t *>(buffer.data()), row.maximum, row.timeout);
        EXPECT_EQ(count, row.received.size()) << row.name;
        EXPECT_EQ(buffer, row.received + std::string(300 - row.received.size(), '#')) << row.name;
        EXPECT_EQ(open.unread(), row.left) << row.name;
        EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(row.sleeps, 1000)) << row.name;
        EXPECT_TRUE(isLink(open.link, expected)) << row.name;
        EXPECT_TRUE(farEnd.sent.empty()) << row.name;
    }
}

TEST(MervoProtocol, ReceivingTestsTheTimeOutAfterEveryByteAndEverySleep)
{
    OpenLink open;
    open.receive("ab");
    uint8_t buffer[8];
    EXPECT_EQ(ReceiveBuffer_MervoProtocol(&open.link, buffer, 8, 2), 2u);
    EXPECT_EQ(farEnd.events, (Texts{"clock", "read a", "clock", "read b", "clock", "empty",
                                    "sleep 1000", "clock", "empty", "sleep 1000", "clock"}));
}

TEST(MervoProtocol, ReceivingWaitsByTheWallClock)
{
    const struct {
        const char *name;
        int64_t startMs;
        int64_t jumpMs; // of the clock, in the fifth sleep
        bool hasPipe;
        size_t sleeps;
    } rows[] = {{"without a pipe, in vain", 1000000, 0, false, 20},
                {"set back: longer by as much", 1000000, -100, true, 120},
                {"set forward: over at once", 1000000, 3600000, true, 5},
                {"across the wrap of the tick: 1 ms more", 0xFFFFFFF6, 0, true, 21}};
    for (const auto &row : rows) {
        OpenLink open;
        open.link.receivePipe = row.hasPipe ? &open.pipe : nullptr;
        fakeClock.setMs(row.startMs);
        setClockInSleep(5, row.jumpMs);
        uint8_t byte = '#';
        EXPECT_EQ(ReceiveBuffer_MervoProtocol(&open.link, &byte, 5, 20), 0u) << row.name;
        EXPECT_EQ(byte, '#') << row.name;
        EXPECT_EQ(fakeClock.sleepsUs.size(), row.sleeps) << row.name;
    }
}

} // namespace
