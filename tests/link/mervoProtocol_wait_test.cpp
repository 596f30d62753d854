// The waits of the Mervo link: for room, behind a data block, for an answer. The clock is the
// test's, so the numbers of sleeps are exact.

#include "link/mervoProtocol.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/link/far_end.h"
#include "tests/support/clock.h"
#include "tests/support/console.h"

namespace {

using std::string_literals::operator""s;

using Texts = std::vector<std::string>;

std::vector<uint32_t> sleeps(size_t count, uint32_t milliseconds)
{
    return std::vector<uint32_t>(count, milliseconds * 1000);
}

// The two waits for room have all but the message and one result in common.
struct Sender {
    const char *name;
    int32_t (*send)(OpenLink &open, uint32_t address);
    const char *message;
    int32_t resultWithoutDevice;
};

const Sender kSenders[] = {
    {"command",
     [](OpenLink &open, uint32_t address) {
         return SendCmd_MervoProtocol(&open.link, address, 2, 3, 4, 5, 6);
     },
     "1. can't receive ", 1},
    {"command and data block",
     [](OpenLink &open, uint32_t address) {
         uint8_t block[] = {0x10, 0x20, 0};
         return SendCmdAndDataBlock_MervoProtocol(&open.link, address, 2, 3, 4, 5, 6, block, 3);
     },
     "4. can't receive ", 0},
    {"command and empty data block",
     [](OpenLink &open, uint32_t address) {
         return SendCmdAndDataBlock_MervoProtocol(&open.link, address, 2, 3, 4, 5, 6, nullptr, 0);
     },
     "4. can't receive ", 0},
};

// What happened since the last bytes were sent.
Texts eventsAfterSending()
{
    size_t sends = farEnd.events.size();
    while (sends > 0 && !farEnd.events[sends - 1].starts_with("send ")) {
        --sends;
    }
    return {farEnd.events.begin() + static_cast<std::ptrdiff_t>(sends), farEnd.events.end()};
}

// The same, without the readings of the clock.
Texts eventsButClock()
{
    Texts events = eventsAfterSending();
    std::erase(events, "clock");
    return events;
}

// Waiting for room -------------------------------------------------------------------------------

TEST(MervoProtocol, SenderWithRoomReturnsAtOnceAndLeavesAnswersUnread)
{
    for (const Sender &sender : kSenders) {
        for (uint8_t unanswered = 0; unanswered < 29; ++unanswered) {
            OpenLink open;
            open.stand(static_cast<uint8_t>(240 + unanswered), 240);
            open.receive(answerFrame(241));
            EXPECT_EQ(sender.send(open, 1), 1) << sender.name << +unanswered;
            EXPECT_EQ(eventsButClock(), Texts{}) << sender.name << +unanswered;
            EXPECT_EQ(open.unread(), answerFrame(241));
        }
    }
}

TEST(MervoProtocol, SenderNeverWaitsBeforeTheFirstAnswer)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        for (uint32_t sent = 1; sent <= 600; ++sent) {
            ASSERT_EQ(sender.send(open, 1), sender.resultWithoutDevice) << sender.name << sent;
            ASSERT_EQ(eventsButClock(), Texts{}) << sender.name << sent;
        }
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(0, 1));
    }
}

TEST(MervoProtocol, SenderBeforeTheFirstAnswerDoesNotLookForIt)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.link.sequence = 99;
        open.receive(answerFrame(100));
        EXPECT_EQ(sender.send(open, 1), sender.resultWithoutDevice) << sender.name;
        EXPECT_EQ(open.link.answered, 0);
        EXPECT_EQ(open.unread(), answerFrame(100));
    }
}

TEST(MervoProtocol, SequenceTwentyFourAfterAcknowledged250Waits)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.stand(22, 250);
        EXPECT_EQ(sender.send(open, 1), 1);
        EXPECT_EQ(eventsButClock(), Texts{}) << sender.name << ": 29 are unanswered";
        farEnd.onSleep = [&open](size_t count) {
            if (count == 1) {
                open.receive(answerFrame(251));
            }
        };
        EXPECT_EQ(sender.send(open, 1), 1);
        EXPECT_EQ(open.link.sequence, 24);
        EXPECT_EQ(open.link.acknowledged, 251);
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(2, 1)) << sender.name;
    }
}

TEST(MervoProtocol, SenderTakesOneAnswerThenTestsTheTimeOutThenSleepsAMillisecond)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.stand(31, 0); // 32 behind the next one: three answers make room
        open.receive("??"s + answerFrame(1) + answerFrame(2) + "x<F0");
        farEnd.onSleep = [&open](size_t count) {
            if (count == 4) {
                open.receive(answerFrame(3).substr(3) + answerFrame(4));
            }
        };
        EXPECT_EQ(sender.send(open, 1), 1);
        EXPECT_EQ(eventsAfterSending(), (Texts{"clock",
                                               "read ??"s + answerFrame(1),
                                               "answer",
                                               "clock",
                                               "sleep 1000",
                                               "read "s + answerFrame(2),
                                               "answer",
                                               "clock",
                                               "sleep 1000",
                                               "read x<F0",
                                               "empty",
                                               "clock",
                                               "sleep 1000",
                                               "empty",
                                               "clock",
                                               "sleep 1000",
                                               "read "s + answerFrame(3).substr(3),
                                               "answer",
                                               "clock",
                                               "sleep 1000"}))
            << sender.name;
        EXPECT_EQ(open.unread(), answerFrame(4));
    }
}

// The clock starts when all is sent, however long that took.
TEST(MervoProtocol, SenderCountsItsTimeFromBehindTheSending)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.stand(29, 0);
        farEnd.onSend = [] {
            fakeClock.advanceMs(5000);
            return 0;
        };
        const std::string printed = printedBy([&] { EXPECT_EQ(sender.send(open, 1), 0); });
        EXPECT_NE(printed, "");
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(3000, 1)) << sender.name;
    }
}

TEST(MervoProtocol, SenderWhoseOwnCommandIsAcknowledgedReturnsWithoutAnotherSleep)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.stand(29, 0);
        open.receive(answerFrame(30) + answerFrame(31));
        EXPECT_EQ(sender.send(open, 1), 1);
        EXPECT_EQ(eventsAfterSending(), (Texts{"clock", "read "s + answerFrame(30), "answer"}))
            << sender.name;
        EXPECT_EQ(open.link.acknowledged, 30);
        EXPECT_EQ(open.unread(), answerFrame(31));
    }
}

TEST(MervoProtocol, AnswerThatOnlyMakesRoomIsNoticedOneSleepLater)
{
    for (const Sender &sender : kSenders) {
        for (const uint8_t number : std::initializer_list<uint8_t>{1, 2, 29}) {
            OpenLink open;
            open.stand(29, 0);
            open.receive(answerFrame(number));
            EXPECT_EQ(sender.send(open, 1), 1);
            EXPECT_EQ(fakeClock.sleepsUs, sleeps(1, 1)) << sender.name << +number;
            EXPECT_EQ(open.link.acknowledged, number);
        }
    }
}

TEST(MervoProtocol, AnswerToANumberNeverSentMakesNoRoom)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.stand(29, 0);
        open.receive(answerFrame(31)); // 30 counts as 255 behind it
        farEnd.onSleep = [&open](size_t count) {
            if (count == 10) {
                open.receive(answerFrame(30));
            }
        };
        EXPECT_EQ(sender.send(open, 1), 1);
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(10, 1)) << sender.name;
    }
}

TEST(MervoProtocol, SenderGivesUpAfterExactly3000MillisecondsAndSaysSo)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.stand(199, 170);
        const std::string printed = printedBy([&] { EXPECT_EQ(sender.send(open, 7), 0); });
        EXPECT_EQ(printed, sender.message + std::string("7 = 200\r\n"));
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(3000, 1)) << sender.name;
        EXPECT_EQ(fakeClock.nowUs, 1000000000 + 3000000);
        EXPECT_EQ(farEnd.events.back(), "clock") << "no sleep behind the last test";
    }
}

TEST(MervoProtocol, TimeOutOfASenderTakesTheAnsweredFlagBackAndNothingElse)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.parse(answerFrame(170, 0x11223344) + "<F0102");
        open.stand(199, 170);
        MervoLink expected = open.link;
        expected.sequence = 200;
        expected.answered = 0;
        printedBy([&] { EXPECT_EQ(sender.send(open, 1), 0); });
        EXPECT_TRUE(isLink(open.link, expected)) << sender.name;
        EXPECT_NE(open.link.lastAnswer[3], 0) << "the stored answer stays";
    }
}

TEST(MervoProtocol, CommandAfterATimeOutDoesNotWait)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.stand(29, 0);
        printedBy([&] { EXPECT_EQ(sender.send(open, 1), 0); });
        fakeClock.sleepsUs.clear();
        for (int i = 0; i < 300; ++i) {
            ASSERT_EQ(sender.send(open, 1), sender.resultWithoutDevice) << sender.name << i;
        }
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(0, 1));
    }
}

TEST(MervoProtocol, AnswerAfterATimeOutMakesSendersWaitAgain)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.stand(29, 0);
        printedBy([&] { EXPECT_EQ(sender.send(open, 1), 0); });
        open.receive(answerFrame(1));
        Task_MervoProtocol(&open.link);
        fakeClock.sleepsUs.clear();
        farEnd.onSleep = [&open](size_t count) {
            if (count == 50) {
                open.receive(answerFrame(31));
            }
        };
        EXPECT_EQ(sender.send(open, 1), 1);
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(50, 1)) << sender.name << ": 2 to 31 are unanswered";
    }
}

TEST(MervoProtocol, MessagePrintsTheLow8BitsOfTheAddressInDecimal)
{
    struct {
        uint32_t address;
        const char *text;
    } const cases[] = {{0, "0"},       {10, "10"},          {255, "255"},  {256, "0"},
                       {0x1FE, "254"}, {0xFFFFFFFF, "255"}, {0x80, "128"}, {0x80000001, "1"}};
    for (const Sender &sender : kSenders) {
        for (const auto &one : cases) {
            OpenLink open;
            open.stand(255, 200);
            const std::string printed =
                printedBy([&] { EXPECT_EQ(sender.send(open, one.address), 0); });
            EXPECT_EQ(printed, sender.message + std::string(one.text) + " = 0\r\n");
        }
    }
}

TEST(MervoProtocol, AnswerInTheLastMillisecondIsStillTaken)
{
    for (const Sender &sender : kSenders) {
        for (const size_t when : {2999u, 3000u}) {
            OpenLink open;
            open.stand(29, 0);
            farEnd.onSleep = [&open, when](size_t count) {
                if (count == when) {
                    open.receive(answerFrame(30));
                }
            };
            const std::string printed = printedBy([&] { EXPECT_EQ(sender.send(open, 1), 1); });
            EXPECT_EQ(printed, "") << sender.name;
            EXPECT_EQ(fakeClock.sleepsUs, sleeps(when, 1));
            EXPECT_EQ(open.link.answered, 1);
        }
    }
}

// Room alone is looked for at the head of a turn, and the last turn has no next one.
TEST(MervoProtocol, AnswerThatOnlyMakesRoomComesTooLateInTheLastTurn)
{
    for (const Sender &sender : kSenders) {
        for (const size_t when : {2999u, 3000u}) {
            OpenLink open;
            open.stand(29, 0);
            farEnd.onSleep = [&open, when](size_t count) {
                if (count == when) {
                    open.receive(answerFrame(1));
                }
            };
            const bool isInTime = when == 2999;
            const std::string printed =
                printedBy([&] { EXPECT_EQ(sender.send(open, 1), isInTime ? 1 : 0); });
            EXPECT_EQ(printed, isInTime ? "" : sender.message + std::string("1 = 30\r\n"))
                << sender.name;
            EXPECT_EQ(fakeClock.sleepsUs, sleeps(3000, 1));
            EXPECT_EQ(open.link.answered, isInTime ? 1 : 0);
            EXPECT_EQ(open.link.acknowledged, 1);
        }
    }
}

TEST(MervoProtocol, GarbageAndHalfAnswersDoNotEndAWaitForRoom)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.stand(29, 0);
        farEnd.onSleep = [&open](size_t count) {
            if (count < 1000) {
                open.receive(count % 3 == 0 ? "<F011e02" : "\xff<T>\r\n");
            }
        };
        const std::string printed = printedBy([&] { EXPECT_EQ(sender.send(open, 1), 0); });
        EXPECT_EQ(printed, sender.message + std::string("1 = 30\r\n"));
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(3000, 1));
        EXPECT_EQ(open.unread(), "");
        EXPECT_TRUE(farEnd.answers.empty());
    }
}

TEST(MervoProtocol, SenderIgnoresTheResultOfSend)
{
    for (const Sender &sender : kSenders) {
        for (const int32_t result : {-1, 0, 5}) {
            OpenLink open;
            open.stand(3, 0);
            farEnd.onSend = [result] { return result; };
            EXPECT_EQ(sender.send(open, 1), 1) << sender.name << result;
            EXPECT_EQ(open.link.sequence, 4);
        }
    }
}

TEST(MervoProtocol, SenderWithoutAPipeWaitsInVain)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.stand(29, 0);
        open.link.receivePipe = nullptr;
        const std::string printed = printedBy([&] { EXPECT_EQ(sender.send(open, 1), 0); });
        EXPECT_EQ(printed, sender.message + std::string("1 = 30\r\n"));
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(3000, 1));
    }
}

// A wait inside of on answer that times out leaves a device that is not waited for.
TEST(MervoProtocol, SenderStopsWaitingWhenTheDeviceIsGivenUpMeanwhile)
{
    for (const Sender &sender : kSenders) {
        for (const uint8_t number : std::initializer_list<uint8_t>{1, 20}) {
            OpenLink open; // of both numbers the second makes room
            open.stand(31, 0);
            open.receive(answerFrame(number));
            farEnd.onAnswer = [](MervoLink *link) {
                EXPECT_EQ(WaitAck_MervoProtocol(link, 9, 5), 0);
            };
            const std::string printed =
                printedBy([&] { EXPECT_EQ(sender.send(open, 1), sender.resultWithoutDevice); });
            EXPECT_EQ(printed, number == 1 ? "3. can't receive 9 = 32 1\r\n"
                                           : "3. can't receive 9 = 32 20\r\n")
                << sender.name;
            EXPECT_EQ(fakeClock.sleepsUs, (std::vector<uint32_t>{10000, 1000}));
        }
    }
}

TEST(MervoProtocol, ClockSetBackProlongsAWaitForRoomByAsMuch)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.stand(29, 0);
        farEnd.onSleep = [](size_t count) {
            if (count == 100) {
                fakeClock.advanceMs(-2000);
            }
        };
        printedBy([&] { EXPECT_EQ(sender.send(open, 1), 0); });
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(5000, 1)) << sender.name;
    }
}

TEST(MervoProtocol, ClockSetForwardEndsAWaitForRoom)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.stand(29, 0);
        farEnd.onSleep = [](size_t count) {
            if (count == 100) {
                fakeClock.advanceMs(3600000);
            }
        };
        printedBy([&] { EXPECT_EQ(sender.send(open, 1), 0); });
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(100, 1)) << sender.name;
    }
}

TEST(MervoProtocol, TickThatWrapsMakesAWaitForRoomAMillisecondLonger)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.stand(29, 0);
        fakeClock.setMs(0x1FFFFFF00); // its low 32 bits are 256 ms before the wrap
        printedBy([&] { EXPECT_EQ(sender.send(open, 1), 0); });
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(3001, 1)) << sender.name;
    }
}

TEST(MervoProtocol, WindowKeepsATrainOfCommandsTwentyNineAheadOfASlowDevice)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.link.answered = 1;
        uint8_t answered = 0;
        farEnd.onSleep = [&](size_t) { open.receive(answerFrame(++answered)); };
        for (uint32_t sent = 1; sent <= 1000; ++sent) {
            ASSERT_EQ(sender.send(open, 1), 1) << sender.name << sent;
            ASSERT_LE(static_cast<uint8_t>(open.link.sequence - open.link.acknowledged), 29);
            // The answer comes in the first sleep, is taken in the next turn, and makes room then.
            ASSERT_EQ(fakeClock.sleepsUs.size(), sent < 30 ? 0 : sent - 29 + 1) << sent;
        }
    }
}

// Data blocks ------------------------------------------------------------------------------------

struct Block {
    explicit Block(size_t length) : bytes(1, 0xA5)
    {
        for (size_t i = 1; i <= length; ++i) {
            bytes.push_back(static_cast<uint8_t>(i * 37 + 11));
        }
        bytes.push_back(0xA5);
    }
    uint8_t *data()
    {
        return bytes.data() + 1;
    }
    std::vector<uint8_t> bytes; // one guard on either side
};

TEST(MervoProtocol, DataBlockFollowsItsCommandWithTheSumInItsLastByte)
{
    for (const size_t length : {1u, 2u, 3u, 8u, 19u, 255u, 256u, 257u, 1000u, 65536u}) {
        OpenLink open;
        open.stand(4, 4);
        Block block(length);
        std::vector<uint8_t> expected = block.bytes;
        unsigned sum = 0;
        for (size_t i = 1; i < length; ++i) {
            sum += expected[i];
        }
        expected[length] = static_cast<uint8_t>(sum % 256);
        EXPECT_EQ(SendCmdAndDataBlock_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6, block.data(),
                                                    static_cast<int32_t>(length)),
                  1);
        EXPECT_EQ(block.bytes, expected) << length << ": the caller's buffer, and no guard";
        ASSERT_EQ(farEnd.sent.size(), 2u) << length;
        EXPECT_EQ(farEnd.sent[0].bytes, commandFrame(1, 5, 2, 3, 4, 5, 6));
        EXPECT_EQ(farEnd.sent[1].from, block.data()) << length;
        EXPECT_EQ(farEnd.sent[1].length, static_cast<int32_t>(length));
        EXPECT_EQ(farEnd.sent[1].bytes, textOf(expected.data() + 1, length)) << length;
    }
}

TEST(MervoProtocol, DataBlockOfOneByteIsItsChecksumZero)
{
    OpenLink open;
    uint8_t block = 0x77;
    SendCmdAndDataBlock_MervoProtocol(&open.link, 0, 0, 0, 0, 0, 0, &block, 1);
    EXPECT_EQ(block, 0);
    EXPECT_EQ(farEnd.sent.at(1).bytes, std::string(1, '\0'));
}

TEST(MervoProtocol, DataBlockSumRunsOverAllBytesButTheLast)
{
    OpenLink open;
    uint8_t block[] = {0xFF, 0xFF, 0x03, 0x99};
    SendCmdAndDataBlock_MervoProtocol(&open.link, 0, 0, 0, 0, 0, 0, block, 4);
    EXPECT_EQ(block[3], 0x01); // 255 + 255 + 3 = 513
    EXPECT_EQ(farEnd.sent.at(1).bytes, "\xFF\xFF\x03\x01");
}

TEST(MervoProtocol, DataBlockOfNoOrNegativeLengthIsNotTouchedNorSent)
{
    constexpr int32_t kLeast = std::numeric_limits<int32_t>::min();
    for (const int32_t length : {0, -1, -255, -256, kLeast}) {
        OpenLink open;
        open.stand(0, 0);
        Block block(4);
        const std::vector<uint8_t> before = block.bytes;
        EXPECT_EQ(SendCmdAndDataBlock_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6, block.data() + 2,
                                                    length),
                  1);
        EXPECT_EQ(block.bytes, before) << length;
        ASSERT_EQ(farEnd.sent.size(), 1u) << length;
        EXPECT_EQ(farEnd.sent[0].bytes, "<T0101020304050616>");
    }
}

TEST(MervoProtocol, DataBlockIsSentAlsoWhenItsCommandWasNot)
{
    OpenLink open;
    open.stand(0, 0);
    farEnd.onSend = [] { return -1; };
    uint8_t block[] = {1, 2, 0};
    EXPECT_EQ(SendCmdAndDataBlock_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6, block, 3), 1);
    ASSERT_EQ(farEnd.sent.size(), 2u);
    EXPECT_EQ(farEnd.sent[1].bytes, "\x01\x02\x03");
}

TEST(MervoProtocol, DataBlockUsesUpNoNumberOfItsOwn)
{
    OpenLink open;
    uint8_t block[] = {1, 2, 0};
    SendCmdAndDataBlock_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6, block, 3);
    EXPECT_EQ(open.link.sequence, 1);
}

TEST(MervoProtocol, WithNothingToWaitForTheBlocksResultIsTheAnsweredFlagAndTheCommandsIsOne)
{
    for (const uint8_t answered : std::initializer_list<uint8_t>{0, 1}) {
        OpenLink open;
        uint8_t block[] = {1, 2, 0};
        open.link.answered = answered;
        EXPECT_EQ(SendCmd_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 1);
        EXPECT_EQ(SendCmdAndDataBlock_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6, block, 3),
                  answered);
    }
}

TEST(MervoProtocol, CommandAndBlockCutTheirArgumentsToBytes)
{
    OpenLink open;
    uint8_t block[] = {1, 0};
    SendCmd_MervoProtocol(&open.link, 0x101, 0x202, 0x303, 0x404, 0x505, 0x606);
    SendCmdAndDataBlock_MervoProtocol(&open.link, 0x101, 0x202, 0x303, 0x404, 0x505, 0x606, block,
                                      2);
    printedBy([&] {
        SendCmdAndWait_MervoProtocol(&open.link, 0x101, 0x202, 0x303, 0x404, 0x505, 0x606);
    });
    ASSERT_EQ(farEnd.sent.size(), 4u);
    EXPECT_EQ(farEnd.sent[0].bytes, "<T0101020304050616>");
    EXPECT_EQ(farEnd.sent[1].bytes, "<T0102020304050617>");
    EXPECT_EQ(farEnd.sent[2].bytes, "\x01\x01");
    EXPECT_EQ(farEnd.sent[3].bytes, "<T0103020304050618>");
}

// Waiting for an answer --------------------------------------------------------------------------

TEST(MervoProtocol, WaitForACommandAlreadyAcknowledgedReturnsAtOnce)
{
    OpenLink open;
    open.stand(9, 9);
    open.receive(answerFrame(8));
    for (const uint32_t timeout : {0u, 1u, 3000u}) {
        EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, timeout), 1);
    }
    EXPECT_EQ(eventsButClock(), Texts{});
    EXPECT_EQ(open.unread(), answerFrame(8));
}

TEST(MervoProtocol, WaitOnAFreshLinkHasNothingToWaitFor)
{
    OpenLink open;
    const MervoLink expected = open.link;
    EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, 3000), 1);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(0, 10));
    EXPECT_TRUE(isLink(open.link, expected)) << "no device is known to answer by that";
}

TEST(MervoProtocol, WaitTakesAnAnswerInItsFirstLook)
{
    OpenLink open;
    open.stand(9, 3);
    open.receive("x"s + answerFrame(9) + answerFrame(8));
    EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, 0), 1);
    EXPECT_EQ(farEnd.events, (Texts{"clock", "read x"s + answerFrame(9), "answer"}));
    EXPECT_EQ(open.unread(), answerFrame(8));
    EXPECT_EQ(open.link.answered, 1);
}

TEST(MervoProtocol, WaitTakesOneAnswerATurnAndSleepsTenMilliseconds)
{
    OpenLink open;
    open.stand(9, 6);
    open.receive(answerFrame(7) + answerFrame(8));
    farEnd.onSleep = [&open](size_t count) {
        if (count == 3) {
            open.receive(answerFrame(9));
        }
    };
    EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, 3000), 1);
    EXPECT_EQ(farEnd.events,
              (Texts{"clock", "read "s + answerFrame(7), "answer", "clock", "sleep 10000",
                     "read "s + answerFrame(8), "answer", "clock", "sleep 10000", "empty", "clock",
                     "sleep 10000", "read "s + answerFrame(9), "answer"}));
}

TEST(MervoProtocol, WaitLastsItsTimeOutInStepsOfTenMilliseconds)
{
    struct {
        uint32_t timeout;
        size_t sleeps;
    } const cases[] = {{0, 0},  {1, 1},  {9, 1},      {10, 1},     {11, 2},    {19, 2},
                       {20, 2}, {21, 3}, {2999, 300}, {3000, 300}, {3001, 301}};
    for (const auto &one : cases) {
        OpenLink open;
        open.stand(9, 3);
        const std::string printed =
            printedBy([&] { EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, one.timeout), 0); });
        EXPECT_EQ(printed, "3. can't receive 1 = 9 3\r\n");
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(one.sleeps, 10)) << one.timeout;
        ASSERT_GE(farEnd.events.size(), 2u);
        EXPECT_EQ(farEnd.events.back(), "clock");
        EXPECT_EQ(farEnd.events[farEnd.events.size() - 2], "empty") << "it looks, then gives up";
    }
}

TEST(MervoProtocol, AnswerInTheLastTurnOfAWaitIsStillTaken)
{
    for (const size_t when : {299u, 300u}) {
        OpenLink open;
        open.stand(9, 3);
        farEnd.onSleep = [&open, when](size_t count) {
            if (count == when) {
                open.receive(answerFrame(9));
            }
        };
        EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, 3000), 1);
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(when, 10));
    }
}

TEST(MervoProtocol, AnswerToAnotherCommandDoesNotEndAWait)
{
    OpenLink open;
    open.stand(9, 3);
    open.receive(answerFrame(8) + answerFrame(10));
    const std::string printed =
        printedBy([&] { EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, 100), 0); });
    EXPECT_EQ(printed, "3. can't receive 1 = 9 10\r\n");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(10, 10));
}

TEST(MervoProtocol, MessageOfAWaitHasAddressNumberAndAcknowledgedNumber)
{
    struct {
        uint32_t address;
        uint8_t sequence;
        uint8_t acknowledged;
        const char *text;
    } const cases[] = {{0, 1, 0, "0 = 1 0"},
                       {255, 0, 255, "255 = 0 255"},
                       {256, 128, 127, "0 = 128 127"},
                       {0xFFFFFF10, 255, 254, "16 = 255 254"}};
    for (const auto &one : cases) {
        OpenLink open;
        open.stand(one.sequence, one.acknowledged);
        const std::string printed =
            printedBy([&] { EXPECT_EQ(WaitAck_MervoProtocol(&open.link, one.address, 0), 0); });
        EXPECT_EQ(printed, "3. can't receive "s + one.text + "\r\n");
    }
}

TEST(MervoProtocol, TimeOutOfAWaitZeroesBothStoredAnswersAndTheAnsweredFlag)
{
    OpenLink open;
    open.parse(answerFrame(3, 0x11223344) + "<F5566778");
    open.stand(9, 3);
    MervoLink expected = open.link;
    ASSERT_EQ(expected.answerInProgress[0], 0x55);
    ASSERT_EQ(expected.lastAnswer[3], 0x44);
    expected.answered = 0;
    std::fill_n(expected.answerInProgress, 8, uint8_t{0});
    std::fill_n(expected.lastAnswer, 8, uint8_t{0});
    printedBy([&] { EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, 30), 0); });
    EXPECT_TRUE(isLink(open.link, expected)) << "half an answer goes on, its bytes are zeros";
    EXPECT_EQ(open.link.count, 7);
}

TEST(MervoProtocol, WaitThatSucceedsKeepsTheStoredAnswers)
{
    OpenLink open;
    open.parse(answerFrame(9, 0x11223344));
    open.stand(9, 9);
    const MervoLink expected = open.link;
    EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, 30), 1);
    EXPECT_TRUE(isLink(open.link, expected));
}

TEST(MervoProtocol, WaitSendsNothing)
{
    OpenLink open;
    open.stand(9, 3);
    printedBy([&] { WaitAck_MervoProtocol(&open.link, 1, 30); });
    EXPECT_TRUE(farEnd.sent.empty());
}

TEST(MervoProtocol, WaitWithoutAPipeTimesOut)
{
    OpenLink open;
    open.stand(9, 3);
    open.link.receivePipe = nullptr;
    const std::string printed =
        printedBy([&] { EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, 50), 0); });
    EXPECT_EQ(printed, "3. can't receive 1 = 9 3\r\n");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(5, 10));
}

TEST(MervoProtocol, ClockSetBackProlongsAWaitForAnAnswerByAsMuch)
{
    OpenLink open;
    open.stand(9, 3);
    farEnd.onSleep = [](size_t count) {
        if (count == 2) {
            fakeClock.advanceMs(-1000);
        }
    };
    printedBy([&] { EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, 50), 0); });
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(105, 10));
}

TEST(MervoProtocol, ClockSetBackByAMillisecondDoesNotEndAWaitOfZero)
{
    for (const int64_t start : {0x00001000LL, 0x90000000LL}) {
        OpenLink open;
        open.stand(9, 3);
        fakeClock.setMs(start);
        int readings = 0;
        fakeClock.afterReading = [&readings] {
            if (++readings == 1) {
                fakeClock.advanceMs(-1);
            }
        };
        printedBy([&] { EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, 0), 0); });
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(1, 10)) << start;
    }
}

TEST(MervoProtocol, TickThatWrapsMakesAWaitForAnAnswerAStepLonger)
{
    OpenLink open;
    open.stand(9, 3);
    fakeClock.setMs(0xFFFFFFF6); // 10 ms before the wrap
    printedBy([&] { EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, 20), 0); });
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(3, 10)); // 20 ms count as 19
}

// A command and its answer -----------------------------------------------------------------------

TEST(MervoProtocol, CommandOnAFreshLinkWithoutDeviceCosts20MillisecondsAndYieldsZero)
{
    OpenLink open;
    const std::string printed = printedBy(
        [&] { EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 0u); });
    EXPECT_EQ(printed, "3. can't receive 1 = 1 0\r\n");
    EXPECT_EQ(farEnd.sent.at(0).bytes, "<T0101020304050616>");
    EXPECT_EQ(farEnd.sent.size(), 1u);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(2, 10));
}

TEST(MervoProtocol, SilentDeviceCosts3000MillisecondsAfterOneGoodAnswerAnd20AfterThat)
{
    OpenLink open;
    farEnd.onSend = [&open] {
        if (farEnd.sent.size() == 1) {
            open.receive(answerFrame(1, 0x0A0B0C0D));
        }
        return 19;
    };
    EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 7, 2, 3, 4, 5, 6), 0x0A0B0C0Du);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(0, 10));
    std::string printed = printedBy(
        [&] { EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 7, 2, 3, 4, 5, 6), 0u); });
    EXPECT_EQ(printed, "3. can't receive 7 = 2 1\r\n");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(300, 10));
    fakeClock.sleepsUs.clear();
    printed = printedBy(
        [&] { EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 7, 2, 3, 4, 5, 6), 0u); });
    EXPECT_EQ(printed, "3. can't receive 7 = 3 1\r\n");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(2, 10));
}

// A turn ends only every 10 ms; here the first one ends a millisecond before the time or with it.
TEST(MervoProtocol, CommandThatWaitsGivesUpAt20And3000MillisecondsAndNotBefore)
{
    for (const uint8_t answered : std::initializer_list<uint8_t>{0, 1}) {
        for (const bool isOver : {false, true}) {
            OpenLink open;
            open.link.answered = answered;
            farEnd.onSleep = [answered, isOver](size_t count) {
                if (count == 1) {
                    fakeClock.advanceMs((answered == 1 ? 3000 : 20) - 10 - (isOver ? 0 : 1));
                }
            };
            printedBy(
                [&] { EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 0u); });
            EXPECT_EQ(fakeClock.sleepsUs, sleeps(isOver ? 1 : 2, 10)) << +answered;
        }
    }
}

TEST(MervoProtocol, FirstAnswerOfADeviceIsTakenWithinItsTwentyMilliseconds)
{
    for (const size_t when : {1u, 2u}) {
        OpenLink open;
        farEnd.onSleep = [&open, when](size_t count) {
            if (count == when) {
                open.receive(answerFrame(1, 5));
            }
        };
        EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 5u);
        EXPECT_EQ(open.link.answered, 1);
    }
}

TEST(MervoProtocol, DeviceWhoseFirstAnswerIsTakenDuringTheSendingIsWaitedFor)
{
    OpenLink open;
    farEnd.onSend = [&open] {
        open.parse(answerFrame(200));
        return 19;
    };
    printedBy([&] { SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6); });
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(300, 10));
}

TEST(MervoProtocol, ResultOfACommandIsItsAnswersDataLowestFirst)
{
    OpenLink open;
    farEnd.onSend = [&open] {
        open.receive("<Faa01bb12345678cc>");
        return 19;
    };
    EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 0x78563412u);
}

TEST(MervoProtocol, EveryDataByteOfAnAnswerComesIntoItsPlaceOfTheResult)
{
    OpenLink open;
    for (const uint32_t data : {0x00000001u, 0x000000FFu, 0x0000FF00u, 0x00FF0000u, 0xFF000000u,
                                0x80000000u, 0x00000080u, 0x7FFFFFFFu, 0xFFFFFFFFu, 0x01020304u}) {
        farEnd.onSend = [&open, data] {
            open.receive(answerFrame(open.link.sequence, data));
            return 19;
        };
        EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), data);
    }
}

TEST(MervoProtocol, TrueResultOfZeroIsAnAnswerAllTheSame)
{
    OpenLink open;
    farEnd.onSend = [&open] {
        open.receive(answerFrame(1, 0));
        return 19;
    };
    const std::string printed = printedBy(
        [&] { EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 0u); });
    EXPECT_EQ(printed, "");
    EXPECT_EQ(open.link.answered, 1);
}

TEST(MervoProtocol, CommandThatWaitsIgnoresTheResultOfSend)
{
    OpenLink open;
    farEnd.onSend = [&open] {
        open.receive(answerFrame(1, 77));
        return -1;
    };
    EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 77u);
}

TEST(MervoProtocol, CommandThatWaitsCountsItsTimeFromBehindTheSending)
{
    OpenLink open;
    farEnd.onSend = [] {
        fakeClock.advanceMs(5000);
        return 19;
    };
    printedBy([&] { SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6); });
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(2, 10));
}

TEST(MervoProtocol, CommandWaitsForItsOwnAnswerBehindLateOnes)
{
    OpenLink open;
    open.stand(40, 37);
    open.receive(answerFrame(38, 38) + answerFrame(39, 39) + answerFrame(40, 40));
    farEnd.onSleep = [&open](size_t count) {
        if (count == 5) {
            open.receive(answerFrame(41, 41));
        }
    };
    EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 41u);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(5, 10));
    EXPECT_EQ(farEnd.answers.size(), 4u);
}

TEST(MervoProtocol, CommandThatWaitsDoesNotCareForTheWindow)
{
    OpenLink open;
    open.stand(200, 100);
    farEnd.onSend = [&open] {
        open.receive(answerFrame(201, 6));
        return 19;
    };
    EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 6u);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(0, 10));
}

// The numbers have come round: what was acknowledged 256 commands ago looks acknowledged now.
TEST(MervoProtocol, After256UnansweredCommandsTheOldAnswerIsTakenForTheNewOne)
{
    OpenLink open;
    open.parse(answerFrame(0, 0xCAFE) + "<F9999999999999999"); // an answer and most of one
    for (int i = 0; i < 255; ++i) {
        SendCmdNoWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6);
    }
    EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 0xCAFEu);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(0, 10));
}

TEST(MervoProtocol, After256CommandsWithoutAnyAnswerTheResultIsZeroWithoutAWait)
{
    OpenLink open;
    for (int i = 0; i < 255; ++i) {
        SendCmdNoWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6);
    }
    const std::string printed = printedBy(
        [&] { EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 0u); });
    EXPECT_EQ(printed, "");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(0, 10));
}

TEST(MervoProtocol, LateAnswerOfAGivenUpCommandBringsTheDeviceBack)
{
    OpenLink open;
    printedBy([&] { SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6); });
    open.receive(answerFrame(1, 1));
    Task_MervoProtocol(&open.link);
    EXPECT_EQ(open.link.answered, 1);
    EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, 0), 1);
    printedBy([&] {
        fakeClock.sleepsUs.clear();
        SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6);
    });
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(300, 10));
}

// Working from inside of on answer ---------------------------------------------------------------

TEST(MervoProtocol, OnAnswerMaySendAndWait)
{
    OpenLink open;
    uint32_t inner = 0;
    farEnd.onSend = [&open] {
        open.receive(answerFrame(open.link.sequence, open.link.sequence * 100u));
        return 19;
    };
    farEnd.onAnswer = [&inner](MervoLink *link) {
        if (farEnd.answers.size() == 1) {
            EXPECT_EQ(SendCmdNoWait_MervoProtocol(link, 1, 0, 0, 0, 0, 0), 1);
            EXPECT_EQ(link->acknowledged, 1);
            inner = SendCmdAndWait_MervoProtocol(link, 1, 0, 0, 0, 0, 0);
        }
    };
    // The outer wait finds the answer of the inner command, which is the last one now.
    EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 300u);
    EXPECT_EQ(inner, 300u);
    EXPECT_EQ(farEnd.sent.size(), 3u);
    EXPECT_EQ(farEnd.answers.size(), 3u);
    EXPECT_EQ(open.link.sequence, 3);
    EXPECT_EQ(open.link.acknowledged, 3);
    EXPECT_EQ(open.unread(), "");
}

TEST(MervoProtocol, OnAnswerThatSendsKeepsTheOuterWaitGoingUntilThatIsAnswered)
{
    OpenLink open;
    open.stand(0, 0);
    farEnd.onAnswer = [](MervoLink *link) {
        if (farEnd.answers.size() == 1) {
            SendCmdNoWait_MervoProtocol(link, 1, 0, 0, 0, 0, 0);
        }
    };
    open.receive(answerFrame(1, 11));
    farEnd.onSleep = [&open](size_t count) {
        if (count == 4) {
            open.receive(answerFrame(2, 22));
        }
    };
    EXPECT_EQ(SendCmdAndWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6), 22u);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(4, 10));
}

} // namespace
