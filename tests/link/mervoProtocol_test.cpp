// Setting a link up, the frame of a command byte for byte, the window, and raw bytes either way.

#include "link/mervoProtocol.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "tests/link/far_end.h"
#include "tests/support/clock.h"
#include "tests/support/console.h"

namespace {

using std::string_literals::operator""s;

// The order of the fields is documented.
static_assert(std::is_standard_layout_v<MervoLink>);
static_assert(offsetof(MervoLink, answered) < offsetof(MervoLink, count));
static_assert(offsetof(MervoLink, count) < offsetof(MervoLink, state));
static_assert(offsetof(MervoLink, state) < offsetof(MervoLink, sequence));
static_assert(offsetof(MervoLink, sequence) < offsetof(MervoLink, acknowledged));
static_assert(offsetof(MervoLink, acknowledged) < offsetof(MervoLink, hexPair));
static_assert(offsetof(MervoLink, hexPair) < offsetof(MervoLink, answerInProgress));
static_assert(offsetof(MervoLink, answerInProgress) < offsetof(MervoLink, lastAnswer));
static_assert(offsetof(MervoLink, lastAnswer) < offsetof(MervoLink, onAnswer));
static_assert(offsetof(MervoLink, onAnswer) < offsetof(MervoLink, send));
static_assert(offsetof(MervoLink, send) < offsetof(MervoLink, receivePipe));

using Texts = std::vector<std::string>;

// Setting up -------------------------------------------------------------------------------------

TEST(MervoProtocol, InitStoresThreePointersAndZeroesFiveFieldsAndNoOther)
{
    OpenLink open;
    std::memset(static_cast<void *>(&open.link), 0xA5, sizeof open.link);
    MervoLink expected = open.link;
    expected.receivePipe = &open.pipe;
    expected.onAnswer = noteAnswer;
    expected.send = sendToFarEnd;
    expected.answered = 0;
    expected.count = 0;
    expected.state = 0;
    expected.sequence = 0;
    expected.acknowledged = 0;
    Init_MervoProtocol(&open.link, &open.pipe, noteAnswer, sendToFarEnd);
    EXPECT_TRUE(isLink(open.link, expected));
    EXPECT_EQ(open.link.hexPair[0], static_cast<char>(0xA5));
    EXPECT_EQ(open.link.hexPair[1], static_cast<char>(0xA5));
    for (size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(open.link.answerInProgress[i], 0xA5);
        EXPECT_EQ(open.link.lastAnswer[i], 0xA5);
    }
}

TEST(MervoProtocol, InitNeitherSendsNorReceivesNorLooksAtTheClock)
{
    OpenLink open;
    open.receive(answerFrame(1));
    Init_MervoProtocol(&open.link, &open.pipe, noteAnswer, sendToFarEnd);
    EXPECT_EQ(farEnd.events, Texts{});
    EXPECT_EQ(open.unread(), answerFrame(1));
}

TEST(MervoProtocol, InitTakesNullForThePipeAndForOnAnswer)
{
    OpenLink open;
    Init_MervoProtocol(&open.link, nullptr, nullptr, sendToFarEnd);
    EXPECT_EQ(open.link.receivePipe, nullptr);
    EXPECT_EQ(open.link.onAnswer, nullptr);
    EXPECT_EQ(open.link.send, sendToFarEnd);
}

TEST(MervoProtocol, InitDropsHalfAnAnswerAndCountsFromOneAgain)
{
    OpenLink open;
    open.stand(77, 70);
    open.parse("<F0101");
    Init_MervoProtocol(&open.link, &open.pipe, noteAnswer, sendToFarEnd);
    EXPECT_EQ(open.parse("020000000000>"), 0);
    _send_cmd_mervo(&open.link, 0, 0, 0, 0, 0, 0);
    EXPECT_EQ(farEnd.sent.at(0).bytes, "<T0001000000000001>");
}

TEST(MervoProtocol, TwoLinksDoNotShareAnything)
{
    OpenLink open;
    MervoLink other{};
    Init_MervoProtocol(&other, nullptr, noteAnswer, sendToFarEnd);
    const MervoLink untouched = other;
    open.parse("<F0105");
    EXPECT_EQ(_interpret_cmd_char(&other, '<'), 0);
    EXPECT_EQ(open.parse("020000000008>"), 1);
    SendCmdNoWait_MervoProtocol(&open.link, 0, 0, 0, 0, 0, 0);
    MervoLink expected = untouched;
    expected.state = 1;
    expected.count = 1;
    EXPECT_TRUE(isLink(other, expected));
}

// The frame --------------------------------------------------------------------------------------

TEST(MervoProtocol, FirstCommandAfterInitCarriesNumberOneAndThe256thZero)
{
    OpenLink open;
    for (uint32_t sent = 1; sent <= 600; ++sent) {
        _send_cmd_mervo(&open.link, 0x10, 0x20, 0, 0, 0, 0);
        EXPECT_EQ(open.link.sequence, sent % 256) << sent;
        EXPECT_EQ(farEnd.sent.back().bytes,
                  commandFrame(0x10, static_cast<uint8_t>(sent % 256), 0x20, 0, 0, 0, 0))
            << sent;
    }
    EXPECT_EQ(farEnd.sent.at(0).bytes, "<T1001200000000031>");
    EXPECT_EQ(farEnd.sent.at(254).bytes, "<T10ff20000000002f>"); // 10 + ff + 20 = 12f
    EXPECT_EQ(farEnd.sent.at(255).bytes, "<T1000200000000030>");
    EXPECT_EQ(farEnd.sent.at(256).bytes, "<T1001200000000031>");
}

TEST(MervoProtocol, CommandTwoWithDataThreeToSixForAddressOneIsThisFrame)
{
    OpenLink open;
    _send_cmd_mervo(&open.link, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06);
    EXPECT_EQ(farEnd.events, Texts{"send <T0101020304050616>"});
}

TEST(MervoProtocol, ArgumentsStandInTheFrameInTheirOrderInLowercase)
{
    OpenLink open;
    open.link.sequence = 0xBB;
    _send_cmd_mervo(&open.link, 0xAA, 0xCC, 0xDD, 0xEE, 0xF1, 0x2F);
    EXPECT_EQ(farEnd.sent.at(0).bytes, "<Taabcccddeef12f1d>"); // 5 * 256 + 0x1d
}

TEST(MervoProtocol, ChecksumIsTheSumOfAllSevenBytesModulo256)
{
    OpenLink open;
    open.link.sequence = 0xFE;
    _send_cmd_mervo(&open.link, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF);
    EXPECT_EQ(farEnd.sent.at(0).bytes, "<Tfffffffffffffff9>"); // 7 * 255 = 6 * 256 + 0xf9
    open.link.sequence = 0xFF;
    _send_cmd_mervo(&open.link, 0, 0, 0, 0, 0, 0);
    EXPECT_EQ(farEnd.sent.at(1).bytes, "<T0000000000000000>");
    open.link.sequence = 0xFF;
    _send_cmd_mervo(&open.link, 0x80, 0, 0x7F, 0, 1, 0);
    EXPECT_EQ(farEnd.sent.at(2).bytes, "<T8000007f00010000>");
}

TEST(MervoProtocol, EveryByteInEveryPlaceIsPrintedAsTheCLibraryPrintsIt)
{
    OpenLink open;
    for (size_t place = 0; place < 7; ++place) {
        for (uint32_t value = 0; value < 256; ++value) {
            std::array<uint8_t, 7> bytes = {0x0F, 0x1E, 0x2D, 0x3C, 0x4B, 0x5A, 0x69};
            bytes[place] = static_cast<uint8_t>(value);
            open.link.sequence = static_cast<uint8_t>(bytes[1] - 1);
            _send_cmd_mervo(&open.link, bytes[0], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6]);
            ASSERT_EQ(farEnd.sent.back().bytes, commandFrame(bytes[0], bytes[1], bytes[2], bytes[3],
                                                             bytes[4], bytes[5], bytes[6]))
                << place << ' ' << value;
        }
    }
    EXPECT_EQ(farEnd.sent.size(), 7u * 256u);
}

TEST(MervoProtocol, OnlyTheLow8BitsOfTheArgumentsCount)
{
    OpenLink open;
    _send_cmd_mervo(&open.link, 0x101, 0xFFFFFF02, 0x8003, 0x12345604, 0x7FFFFF05, 0x80000006);
    EXPECT_EQ(farEnd.sent.at(0).bytes, "<T0101020304050616>");
    std::mt19937 random(51);
    for (int round = 0; round < 20000; ++round) {
        std::array<uint32_t, 6> wide;
        std::array<uint8_t, 6> low;
        for (size_t i = 0; i < wide.size(); ++i) {
            wide[i] = static_cast<uint32_t>(random());
            low[i] = static_cast<uint8_t>(wide[i] % 256);
        }
        const uint8_t number = static_cast<uint8_t>(open.link.sequence + 1);
        _send_cmd_mervo(&open.link, wide[0], wide[1], wide[2], wide[3], wide[4], wide[5]);
        ASSERT_EQ(farEnd.sent.back().bytes,
                  commandFrame(low[0], number, low[1], low[2], low[3], low[4], low[5]));
    }
}

TEST(MervoProtocol, FrameIsSentInOneCallOf19BytesWithoutTerminator)
{
    OpenLink open;
    _send_cmd_mervo(&open.link, 1, 2, 3, 4, 5, 6);
    ASSERT_EQ(farEnd.sent.size(), 1u);
    EXPECT_EQ(farEnd.sent[0].length, 19);
    EXPECT_EQ(farEnd.sent[0].bytes.back(), '>');
}

TEST(MervoProtocol, TheResultOfSendIsHandedBackWhateverItIs)
{
    OpenLink open;
    constexpr int32_t kLeast = std::numeric_limits<int32_t>::min();
    constexpr int32_t kMost = std::numeric_limits<int32_t>::max();
    const uint8_t bytes[] = {1, 2, 3};
    for (const int32_t result : {19, 0, 1, -1, -5, 18, kLeast, kMost}) {
        farEnd.onSend = [result] { return result; };
        EXPECT_EQ(_send_cmd_mervo(&open.link, 1, 2, 3, 4, 5, 6), result);
        EXPECT_EQ(SendBuffer_MervoProtocol(&open.link, bytes, 3), result);
    }
}

TEST(MervoProtocol, NumberCountsOnBeforeSendIsCalledAndAlsoWhenItFails)
{
    OpenLink open;
    std::vector<int> seen;
    farEnd.onSend = [&open, &seen] {
        seen.push_back(open.link.sequence);
        return -1;
    };
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(_send_cmd_mervo(&open.link, 0, 0, 0, 0, 0, 0), -1);
    }
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 3}));
}

TEST(MervoProtocol, SendingChangesNothingButTheNumber)
{
    OpenLink open;
    open.stand(9, 3);
    open.parse("<F01"s + answerFrame(4, 0x01020304) + "<F1234567");
    open.receive(answerFrame(7));
    MervoLink expected = open.link;
    expected.sequence = 10;
    farEnd.events.clear();
    _send_cmd_mervo(&open.link, 1, 2, 3, 4, 5, 6);
    EXPECT_TRUE(isLink(open.link, expected));
    EXPECT_EQ(farEnd.events, Texts{"send "s + commandFrame(1, 10, 2, 3, 4, 5, 6)});
    EXPECT_EQ(open.unread(), answerFrame(7));
}

TEST(MervoProtocol, SendingWithoutWaitReturnsOneHoweverManyAreUnanswered)
{
    OpenLink open;
    open.stand(0, 0);
    for (uint32_t sent = 1; sent <= 300; ++sent) {
        farEnd.onSend = [sent] { return sent % 2 == 0 ? -1 : 0; };
        EXPECT_EQ(SendCmdNoWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 1) << sent;
        EXPECT_EQ(farEnd.sent.back().bytes,
                  commandFrame(1, static_cast<uint8_t>(sent % 256), 2, 3, 4, 5, 6));
    }
    EXPECT_EQ(farEnd.events.size(), 300u) << "it sent, and did nothing else";
    EXPECT_EQ(open.link.answered, 1);
}

TEST(MervoProtocol, SendingWithoutWaitCutsItsArgumentsToo)
{
    OpenLink open;
    SendCmdNoWait_MervoProtocol(&open.link, 0x101, 0x202, 0x303, 0x404, 0x505, 0x606);
    EXPECT_EQ(farEnd.events, Texts{"send <T0101020304050616>"});
}

// The window -------------------------------------------------------------------------------------

TEST(MervoProtocol, SequenceFiveAfterAcknowledged250AreElevenUnansweredAndAllowed)
{
    OpenLink open;
    open.stand(5, 250);
    EXPECT_EQ(canSendCmd_mervo(&open.link, 1), 1);
}

TEST(MervoProtocol, SequenceTwentyFourAfterAcknowledged250AreThirtyUnansweredAndRefused)
{
    OpenLink open;
    open.stand(24, 250);
    EXPECT_EQ(canSendCmd_mervo(&open.link, 1), 0);
    open.stand(23, 250);
    EXPECT_EQ(canSendCmd_mervo(&open.link, 1), 1);
}

// Counted by walking from one number to the other, not by subtraction.
TEST(MervoProtocol, RoomIsForUpTo29UnansweredCommandsWhateverTheNumbers)
{
    OpenLink open;
    uint32_t allowed = 0;
    for (int acknowledged = 0; acknowledged < 256; ++acknowledged) {
        int sequence = acknowledged;
        for (int unanswered = 0; unanswered < 256; ++unanswered) {
            open.stand(static_cast<uint8_t>(sequence), static_cast<uint8_t>(acknowledged));
            const int32_t result = canSendCmd_mervo(&open.link, 1);
            ASSERT_EQ(result, unanswered < 30 ? 1 : 0) << sequence << ' ' << acknowledged;
            allowed += result == 1 ? 1u : 0u;
            sequence = sequence == 255 ? 0 : sequence + 1;
        }
    }
    EXPECT_EQ(allowed, 30u * 256u);
}

TEST(MervoProtocol, RoomDependsNeitherOnTheAddressNorOnWhetherTheDeviceAnswers)
{
    OpenLink open;
    for (const uint8_t answered : std::initializer_list<uint8_t>{0, 1}) {
        for (const uint32_t address : {0u, 1u, 255u, 256u, 0xFFFFFFFFu}) {
            open.stand(29, 0);
            open.link.answered = answered;
            EXPECT_EQ(canSendCmd_mervo(&open.link, address), 1);
            open.stand(30, 0);
            open.link.answered = answered;
            EXPECT_EQ(canSendCmd_mervo(&open.link, address), 0);
        }
    }
    EXPECT_EQ(farEnd.events, Texts{});
}

// Raw bytes --------------------------------------------------------------------------------------

TEST(MervoProtocol, RawBytesAreSentUnchangedFromWhereTheyStand)
{
    OpenLink open;
    std::array<uint8_t, 256> bytes;
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    const std::array<uint8_t, 256> before = bytes;
    const MervoLink expected = open.link;
    EXPECT_EQ(SendBuffer_MervoProtocol(&open.link, bytes.data(), 256), 256);
    ASSERT_EQ(farEnd.sent.size(), 1u);
    EXPECT_EQ(farEnd.sent[0].from, bytes.data());
    EXPECT_EQ(farEnd.sent[0].bytes, textOf(before.data(), 256));
    EXPECT_EQ(bytes, before);
    EXPECT_TRUE(isLink(open.link, expected)) << "no number is used up";
}

TEST(MervoProtocol, LengthOfRawBytesIsPassedOnEvenIfItMakesNoSense)
{
    OpenLink open;
    const uint8_t byte = 7;
    for (const int32_t length : {0, -1, std::numeric_limits<int32_t>::min()}) {
        EXPECT_EQ(SendBuffer_MervoProtocol(&open.link, &byte, length), length);
        EXPECT_EQ(farEnd.sent.back().length, length);
        EXPECT_EQ(farEnd.sent.back().from, &byte);
    }
    EXPECT_EQ(SendBuffer_MervoProtocol(&open.link, nullptr, 0), 0);
    EXPECT_EQ(farEnd.sent.size(), 4u);
}

// The received bytes stored, and "#" where nothing was.
struct Received {
    explicit Received(OpenLink &open, uint32_t maximum, uint32_t timeout)
        : count(ReceiveBuffer_MervoProtocol(&open.link, buffer.data(), maximum, timeout))
    {
        EXPECT_LT(count, buffer.size());
    }
    std::string text() const
    {
        return textOf(buffer.data(), buffer.size());
    }
    std::array<uint8_t, 8> buffer = {'#', '#', '#', '#', '#', '#', '#', '#'};
    uint32_t count;
};

TEST(MervoProtocol, ReceivingTakesAsManyBytesAsAskedForAndLeavesTheRest)
{
    OpenLink open;
    open.receive("abcdefg");
    const Received some(open, 3, 1000);
    EXPECT_EQ(some.count, 3u);
    EXPECT_EQ(some.text(), "abc#####");
    EXPECT_EQ(open.unread(), "defg");
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>{});
}

TEST(MervoProtocol, ReceivingExactlyWhatIsThereDoesNotWait)
{
    OpenLink open;
    open.receive("abcd");
    const Received all(open, 4, 1000);
    EXPECT_EQ(all.count, 4u);
    EXPECT_EQ(all.text(), "abcd####");
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>{});
}

TEST(MervoProtocol, ReceivingOneByteTakesOne)
{
    OpenLink open;
    open.receive("ab");
    const Received one(open, 1, 1000);
    EXPECT_EQ(one.count, 1u);
    EXPECT_EQ(one.text(), "a#######");
    EXPECT_EQ(open.unread(), "b");
}

TEST(MervoProtocol, ReceivingAMaximumOfZeroStillStoresOneByteIfOneIsWaiting)
{
    OpenLink open;
    open.receive("abc");
    const Received one(open, 0, 1000);
    EXPECT_EQ(one.count, 1u);
    EXPECT_EQ(one.text(), "a#######");
    EXPECT_EQ(open.unread(), "bc");
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>{});
}

TEST(MervoProtocol, ReceivingAMaximumOfZeroFromAnEmptyPipeWaitsForAByte)
{
    OpenLink open;
    farEnd.onSleep = [&open](size_t sleeps) {
        if (sleeps == 4) {
            open.receive("xy");
        }
    };
    const Received one(open, 0, 1000);
    EXPECT_EQ(one.count, 1u);
    EXPECT_EQ(one.text(), "x#######");
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(4, 1000));
}

TEST(MervoProtocol, ReceivingFewerBytesThanAskedForTakesTheWholeTimeOut)
{
    OpenLink open;
    open.stand(9, 3);
    const MervoLink expected = open.link;
    open.receive("ab");
    const Received two(open, 5, 25);
    EXPECT_EQ(two.count, 2u);
    EXPECT_EQ(two.text(), "ab######");
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(25, 1000));
    EXPECT_TRUE(isLink(open.link, expected)) << "the device is known to answer still";
}

TEST(MervoProtocol, ReceivingNothingStoresNothing)
{
    OpenLink open;
    const Received none(open, 5, 7);
    EXPECT_EQ(none.count, 0u);
    EXPECT_EQ(none.text(), "########");
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(7, 1000));
}

TEST(MervoProtocol, ReceivingWithATimeOutOfZeroLooksOnce)
{
    OpenLink open;
    open.receive("abc");
    const Received one(open, 5, 0);
    EXPECT_EQ(one.text(), "a#######");
    EXPECT_EQ(one.count, 1u);
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>{});
    open.unread();
    const Received none(open, 5, 0);
    EXPECT_EQ(none.count, 0u);
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>{1000});
}

TEST(MervoProtocol, ReceivingTestsTheTimeOutBehindEveryByteAndEverySleep)
{
    OpenLink open;
    open.receive("abc");
    const Received three(open, 8, 2);
    EXPECT_EQ(three.count, 3u);
    EXPECT_EQ(farEnd.events,
              (Texts{"clock", "read a", "clock", "read b", "clock", "read c", "clock", "empty",
                     "sleep 1000", "clock", "empty", "sleep 1000", "clock"}));
}

TEST(MervoProtocol, ReceivingStopsAmongWaitingBytesWhenTheTimeOutPasses)
{
    OpenLink open;
    open.receive("abcdefg");
    fakeClock.afterReading = [] { fakeClock.advanceMs(1); }; // a byte a millisecond
    const Received three(open, 8, 3);
    EXPECT_EQ(three.count, 3u);
    EXPECT_EQ(three.text(), "abc#####");
    EXPECT_EQ(open.unread(), "defg");
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>{});
}

TEST(MervoProtocol, ReceivingGathersWhatComesInBursts)
{
    OpenLink open;
    farEnd.onSleep = [&open](size_t sleeps) {
        if (sleeps == 2) {
            open.receive("ab");
        }
        if (sleeps == 6) {
            open.receive("cde");
        }
    };
    const Received four(open, 4, 100);
    EXPECT_EQ(four.count, 4u);
    EXPECT_EQ(four.text(), "abcd####");
    EXPECT_EQ(open.unread(), "e");
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(6, 1000));
}

TEST(MervoProtocol, AByteThatComesWithTheEndOfTheTimeOutIsLeft)
{
    OpenLink open;
    farEnd.onSleep = [&open](size_t sleeps) {
        if (sleeps == 9) {
            open.receive("a");
        }
        if (sleeps == 10) {
            open.receive("b");
        }
    };
    const Received one(open, 5, 10);
    EXPECT_EQ(one.text(), "a#######");
    EXPECT_EQ(open.unread(), "b");
}

TEST(MervoProtocol, ReceivedRawBytesAreNotParsed)
{
    OpenLink open;
    open.parse("<F01"); // half an answer stays half of one
    const MervoLink expected = open.link;
    open.receive(answerFrame(1));
    std::array<uint8_t, 32> buffer{};
    EXPECT_EQ(ReceiveBuffer_MervoProtocol(&open.link, buffer.data(), 19, 10), 19u);
    EXPECT_EQ(textOf(buffer.data(), 19), answerFrame(1));
    EXPECT_TRUE(isLink(open.link, expected));
    EXPECT_TRUE(farEnd.answers.empty());
    EXPECT_TRUE(farEnd.sent.empty());
}

TEST(MervoProtocol, ReceivingCarriesEveryByteValue)
{
    OpenLink open;
    std::string all;
    for (int value = 0; value < 256; ++value) {
        all += static_cast<char>(value);
    }
    open.receive(all);
    std::array<uint8_t, 257> buffer{};
    EXPECT_EQ(ReceiveBuffer_MervoProtocol(&open.link, buffer.data(), 0xFFFFFFFF, 1), 256u);
    EXPECT_EQ(textOf(buffer.data(), 256), all);
}

TEST(MervoProtocol, ReceivingWithoutAPipeWaitsTheTimeOutAndStoresNothing)
{
    OpenLink open;
    open.link.receivePipe = nullptr;
    const std::string printed = printedBy([&open] {
        const Received none(open, 5, 12);
        EXPECT_EQ(none.count, 0u);
        EXPECT_EQ(none.text(), "########");
    });
    EXPECT_EQ(printed, "");
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(12, 1000));
}

TEST(MervoProtocol, ReceivingGoesOnUntilAClockSetBackHasPassedItsStartAgain)
{
    OpenLink open;
    farEnd.onSleep = [](size_t sleeps) {
        if (sleeps == 5) {
            fakeClock.advanceMs(-100);
        }
    };
    const Received none(open, 5, 10);
    EXPECT_EQ(none.count, 0u);
    EXPECT_EQ(fakeClock.sleepsUs.size(), 110u);
}

TEST(MervoProtocol, ReceivingWithATimeOutOfZeroGoesOnToo)
{
    OpenLink open;
    open.receive("abcde");
    int readings = 0;
    fakeClock.afterReading = [&readings] { fakeClock.advanceMs(++readings == 1 ? -3 : 1); };
    const Received four(open, 8, 0); // at 3, 2, 1 and 0 ms before the start
    EXPECT_EQ(four.text(), "abcd####");
    EXPECT_EQ(open.unread(), "e");
}

TEST(MervoProtocol, ReceivingAcrossTheWrapOfTheTickTakesOneMillisecondMore)
{
    OpenLink open;
    fakeClock.setMs(0xFFFFFFF6);
    const Received none(open, 5, 20);
    EXPECT_EQ(none.count, 0u);
    EXPECT_EQ(fakeClock.sleepsUs.size(), 21u);
}

} // namespace
