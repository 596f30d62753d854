// The waits of the Mervo link: for room, after a data block, for an answer. The clock is the
// test's, so the numbers of sleeps are exact.

#include "link/mervoProtocol.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
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

// An answer without data.
std::string a(uint8_t number)
{
    return answerFrame(number);
}

// Sending takes long and fails.
int32_t sendLate()
{
    fakeClock.advanceMs(5000);
    return -1;
}

// What makes the world of a wait unusual.
struct Trouble {
    const char *name;
    std::function<void(OpenLink &open)> prepare;
    size_t sleeps; // until the wait is given up
};

// Waiting for room -------------------------------------------------------------------------------

// It neither sleeps nor looks into the pipe.
TEST(MervoProtocol, SenderNeverWaitsBeforeTheFirstAnswerNorAfterATimeOut)
{
    for (const Sender &sender : kSenders) {
        SCOPED_TRACE(sender.name);
        OpenLink open;
        open.receive(a(100));
        for (uint32_t sent = 1; sent <= 300; ++sent) {
            ASSERT_EQ(sender.send(open, 1), sender.resultWithoutDevice) << sent;
        }
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(0, 1));
        EXPECT_EQ(open.link.answered, 0);
        EXPECT_EQ(open.unread(), a(100));
        open.stand(29, 0);
        printedBy([&] { EXPECT_EQ(sender.send(open, 1), 0); });
        fakeClock.sleepsUs.clear();
        open.receive(a(1));
        for (uint32_t sent = 1; sent <= 300; ++sent) {
            ASSERT_EQ(sender.send(open, 1), sender.resultWithoutDevice) << sent;
        }
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(0, 1));
        Task_MervoProtocol(&open.link);
        open.link.sequence = 30; // of those up to 31, 2 to 31 are unanswered
        open.receive({{50, a(31)}});
        EXPECT_EQ(sender.send(open, 1), 1);
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(50, 1));
    }
}

TEST(MervoProtocol, SenderWaitsForRoomAsTheRowsSay)
{
    // clang-format off
    const struct {
        const char *name;
        uint8_t sequence, acknowledged; // before the command
        std::vector<Arrival> arrivals;
        int32_t result;
        size_t sleeps;
        uint8_t after; // acknowledged
        std::string unread = {};
    } rows[] = {
        {"29 unanswered are allowed at once",   22, 250, {{0, a(251)}},            1,    0, 250, a(251)},
        {"24 after 250 are 30, and it waits",   23, 250, {{1, a(251)}},            1,    2, 251},
        {"its own answer ends it at once",      29,   0, {{0, a(30) + a(31)}},     1,    0,  30, a(31)},
        {"another is noticed one sleep later",  29,   0, {{0, a(1)}},              1,    1,   1},
        {"also the last but its own",           29,   0, {{0, a(29)}},             1,    1,  29},
        {"one answer a turn, until there is room", 31, 0, {{0, a(1) + a(2) + a(3) + a(4)}},
                                                                                   1,    3,   3, a(4)},
        {"a number never sent makes no room",   29,   0, {{0, a(31)}, {10, a(30)}}, 1,  10,  30},
        {"garbage and half answers",            29,   0, {{1, "<F011e02"}, {2, "\xFF<T>\r\n"}, {3, "<F"}},
                                                                                   0, 3000,   0},
        {"its own answer in the last but one",  29,   0, {{2999, a(30)}},          1, 2999,  30},
        {"and in the last millisecond",         29,   0, {{3000, a(30)}},          1, 3000,  30},
        {"room in the last but one",            29,   0, {{2999, a(1)}},           1, 3000,   1},
        {"is too late in the last turn",        29,   0, {{3000, a(1)}},           0, 3000,   1},
        {"silence",                            199, 170, {},                       0, 3000, 170},
        {"silence, the number comes round",    255, 200, {},                       0, 3000, 200},
    };
    // clang-format on
    for (const Sender &sender : kSenders) {
        for (const auto &row : rows) {
            SCOPED_TRACE(sender.name + ": "s + row.name);
            OpenLink open;
            open.stand(row.sequence, row.acknowledged);
            farEnd.onSend = [] { return -1; }; // which does not count
            open.receive(row.arrivals);
            const std::string number = std::to_string((row.sequence + 1) % 256);
            const std::string printed =
                printedBy([&] { EXPECT_EQ(sender.send(open, 1), row.result); });
            EXPECT_EQ(printed, row.result == 1 ? "" : sender.message + "1 = "s + number + "\r\n");
            EXPECT_EQ(fakeClock.sleepsUs, sleeps(row.sleeps, 1));
            EXPECT_EQ(open.link.answered, row.result);
            EXPECT_EQ(open.link.acknowledged, row.after);
            EXPECT_EQ(open.unread(), row.unread);
        }
    }
}

TEST(MervoProtocol, SenderTakesAnAnswerThenTestsTheTimeOutThenSleepsAMillisecond)
{
    for (const Sender &sender : kSenders) {
        OpenLink open;
        open.stand(30, 0);
        open.receive({{0, "??" + a(1) + "x<F0"}, {3, a(2).substr(3) + a(3)}});
        farEnd.onSend = [] {
            farEnd.events.clear();
            return 0;
        };
        EXPECT_EQ(sender.send(open, 1), 1);
        EXPECT_EQ(farEnd.events,
                  (Texts{"clock", "read ??" + a(1), "answer", "clock", "sleep 1000", //
                         "read x<F0", "empty", "clock", "sleep 1000",                //
                         "empty", "clock", "sleep 1000",                             //
                         "read " + a(2).substr(3), "answer", "clock", "sleep 1000"}))
            << sender.name;
        EXPECT_EQ(open.unread(), a(3));
    }
}

TEST(MervoProtocol, SenderGivesUpAfter3000MillisecondsOfTheWallClockAndSaysSo)
{
    const Trouble troubles[] = {
        {"no pipe", [](OpenLink &open) { open.link.receivePipe = nullptr; }, 3000},
        {"sending takes long and fails", [](OpenLink &) { farEnd.onSend = sendLate; }, 3000},
        {"the clock is set back", [](OpenLink &) { setClockInSleep(100, -2000); }, 5000},
        {"the clock is set forward", [](OpenLink &) { setClockInSleep(100, 3600000); }, 100},
        {"the tick wraps", [](OpenLink &) { fakeClock.setMs(0x1FFFFFF00); }, 3001},
    };
    for (const Sender &sender : kSenders) {
        for (const Trouble &trouble : troubles) {
            SCOPED_TRACE(sender.name + ": "s + trouble.name);
            OpenLink open;
            open.parse(answerFrame(170, 0x11223344) + "<F0102");
            open.stand(199, 170);
            trouble.prepare(open);
            MervoLink expected = open.link; // its stored answers stay
            expected.sequence = 200;
            expected.answered = 0;
            const std::string printed = // of the address, the low 8 bits
                printedBy([&] { EXPECT_EQ(sender.send(open, 0x800001FE), 0); });
            EXPECT_EQ(printed, sender.message + "254 = 200\r\n"s);
            EXPECT_TRUE(isLink(open.link, expected));
            EXPECT_EQ(fakeClock.sleepsUs, sleeps(trouble.sleeps, 1));
            EXPECT_EQ(farEnd.events.back(), "clock") << "no sleep after the last test";
        }
    }
}

// A wait inside `onAnswer` that times out leaves a device that is not waited for.
TEST(MervoProtocol, SenderStopsWaitingWhenTheDeviceIsGivenUpMeanwhile)
{
    for (const Sender &sender : kSenders) {
        for (const int number : {1, 20}) { // the second one makes room
            OpenLink open;
            open.stand(31, 0);
            open.receive(a(static_cast<uint8_t>(number)));
            farEnd.onAnswer = [](MervoLink *link) {
                EXPECT_EQ(WaitAck_MervoProtocol(link, 9, 5), 0);
            };
            const std::string printed =
                printedBy([&] { EXPECT_EQ(sender.send(open, 1), sender.resultWithoutDevice); });
            EXPECT_EQ(printed, "3. can't receive 9 = 32 " + std::to_string(number) + "\r\n")
                << sender.name;
            EXPECT_EQ(fakeClock.sleepsUs, (std::vector<uint32_t>{10000, 1000}));
        }
    }
}

// Data blocks ------------------------------------------------------------------------------------

TEST(MervoProtocol, DataBlockFollowsItsCommandWithTheSumInItsLastByte)
{
    const struct {
        std::string block;
        int32_t length;
        std::string sent;
    } rows[] = {{"\x77", 1, "\0"s}, // only the checksum
                {"\xFF\xFF\x03\x99", 4, "\xFF\xFF\x03\x01"},
                {"\x01\x02\x03", 2, "\x01\x01"},
                {std::string(65536, '\1'), 65536, std::string(65535, '\1') + '\xFF'},
                {"\x01\x02", 0, ""},
                {"\x01\x02", INT32_MIN, ""}};
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << "length " << row.length);
        OpenLink open;
        open.stand(4, 4);
        farEnd.onSend = [] { return -1; }; // which does not count
        std::string block = row.block;
        uint8_t *const from = reinterpret_cast<uint8_t *>(block.data());
        EXPECT_EQ(SendCmdAndDataBlock_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6, from, row.length),
                  1);
        EXPECT_TRUE(block == row.sent + row.block.substr(row.sent.size())) << "the caller's";
        EXPECT_EQ(open.link.sequence, 5) << "a block has no number of its own";
        EXPECT_EQ(farEnd.sent.at(0).bytes, commandFrame(1, 5, 2, 3, 4, 5, 6));
        ASSERT_EQ(farEnd.sent.size(), row.length > 0 ? 2u : 1u);
        if (row.length > 0) {
            EXPECT_EQ(farEnd.sent[1].from, from);
            EXPECT_TRUE(farEnd.sent[1].bytes == row.sent);
        }
    }
}

// Waiting for an answer --------------------------------------------------------------------------

TEST(MervoProtocol, WaitsForAnAnswerAsTheRowsSay)
{
    // clang-format off
    const struct {
        const char *name;
        uint8_t acknowledged; // before the wait for 9
        uint32_t timeout;
        std::vector<Arrival> arrivals;
        int32_t result;
        size_t sleeps; // of 10 ms
        uint8_t after; // acknowledged
        std::string unread = {};
    } rows[] = {
        {"nothing, if it is acknowledged",   9,    0, {{0, a(8)}},                1,   0,  9, a(8)},
        {"an answer in the first look",      3,    0, {{0, "x" + a(9) + a(8)}},   1,   0,  9, a(8)},
        {"after others, one a turn",         6, 3000, {{0, a(7) + a(8)}, {3, a(9)}}, 1, 3,  9},
        {"of another command",               3,  100, {{0, a(8) + a(10)}},        0,  10, 10},
        {"in the last turn but one",         3, 3000, {{299, a(9)}},              1, 299,  9},
        {"in the last turn",                 3, 3000, {{300, a(9)}},              1, 300,  9},
        {"none in 1 ms",                     3,    1, {},                         0,   1,  3},
        {"none in 11 ms",                    3,   11, {},                         0,   2,  3},
        {"none in 3000 ms",                  3, 3000, {},                         0, 300,  3},
    };
    // clang-format on
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        OpenLink open;
        open.stand(9, row.acknowledged);
        open.receive(row.arrivals);
        const std::string printed = printedBy(
            [&] { EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, row.timeout), row.result); });
        const std::string message = "3. can't receive 1 = 9 " + std::to_string(row.after) + "\r\n";
        EXPECT_EQ(printed, row.result == 1 ? "" : message);
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(row.sleeps, 10));
        EXPECT_EQ(open.link.answered, row.result);
        EXPECT_EQ(open.link.acknowledged, row.after);
        EXPECT_EQ(open.unread(), row.unread);
        EXPECT_TRUE(farEnd.sent.empty());
    }
}

TEST(MervoProtocol, WaitTakesAnAnswerThenTestsTheTimeOutThenSleepsTenMilliseconds)
{
    OpenLink open;
    open.stand(9, 6);
    open.receive({{0, a(7)}, {2, a(9)}});
    EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 1, 3000), 1);
    EXPECT_EQ(farEnd.events, (Texts{"clock", "read " + a(7), "answer", "clock", "sleep 10000", //
                                    "empty", "clock", "sleep 10000", "read " + a(9), "answer"}));
}

TEST(MervoProtocol, WaitThatTimesOutByTheWallClockZeroesTheStoredAnswers)
{
    const auto setBackAtOnce = [](int64_t startMs) {
        fakeClock.setMs(startMs);
        fakeClock.afterReading = [] {
            fakeClock.advanceMs(-20);
            fakeClock.afterReading = nullptr;
        };
    };
    const Trouble troubles[] = {
        {"no pipe", [](OpenLink &open) { open.link.receivePipe = nullptr; }, 5},
        {"the clock is set back", [](OpenLink &) { setClockInSleep(2, -1000); }, 105},
        {"set back at once", [&](OpenLink &) { setBackAtOnce(0x1000); }, 7},
        {"set back at once, sign bit set", [&](OpenLink &) { setBackAtOnce(0x90000000); }, 7},
        {"the tick wraps", [](OpenLink &) { fakeClock.setMs(0xFFFFFFF6); }, 6},
    };
    for (const Trouble &trouble : troubles) {
        SCOPED_TRACE(trouble.name);
        OpenLink open;
        open.parse(answerFrame(3, 0x11223344) + "<F5566778");
        open.stand(9, 3);
        trouble.prepare(open);
        MervoLink expected = open.link; // half an answer goes on, its bytes are zeros
        expected.answered = 0;
        std::fill_n(expected.answerInProgress, 8, uint8_t{0});
        std::fill_n(expected.lastAnswer, 8, uint8_t{0});
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(WaitAck_MervoProtocol(&open.link, 0x1FE, 50), 0); }),
                  "3. can't receive 254 = 9 3\r\n");
        EXPECT_TRUE(isLink(open.link, expected));
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(trouble.sleeps, 10));
    }
}

// A command and its answer -----------------------------------------------------------------------

uint32_t sendAndWait(OpenLink &open)
{
    return SendCmdAndWait_MervoProtocol(&open.link, 7, 2, 3, 4, 5, 6);
}

TEST(MervoProtocol, CommandWaitsForItsAnswerAsTheRowsSay)
{
    // clang-format off
    const struct {
        const char *name;
        uint8_t sequence, acknowledged; // before the command
        uint8_t answered;
        std::vector<Arrival> arrivals;
        uint32_t result;
        size_t sleeps; // of 10 ms
        std::string message = {};
    } rows[] = {
        {"a fresh link without device",    0,   0, 0, {},                           0,          2, "7 = 1 0"},
        {"a silent device",                1,   1, 1, {},                           0,        300, "7 = 2 1"},
        {"a first answer in 10 ms",        0,   0, 0, {{1, answerFrame(1, 5)}},     5,          1},
        {"a first answer in 20 ms",        0,   0, 0, {{2, answerFrame(1, 5)}},     5,          2},
        {"a first answer too late",        0,   0, 0, {{3, answerFrame(1, 5)}},     0,          2, "7 = 1 0"},
        {"the answer's data, lowest first", 0,  0, 0, {{0, "<Faa01bb12345678cc>"}}, 0x78563412, 0},
        {"the highest bit",                0,   0, 0, {{0, answerFrame(1, 0x80000000)}}, 0x80000000, 0},
        {"a true result of 0",             0,   0, 0, {{0, answerFrame(1, 0)}},     0,          0},
        {"after late ones",               40,  37, 1,
         {{0, answerFrame(38, 38) + answerFrame(39, 39) + a(40)}, {5, answerFrame(41, 41)}}, 41, 5},
        {"the window does not count",    200, 100, 1, {{0, answerFrame(201, 6)}},   6,          0},
    };
    // clang-format on
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        OpenLink open;
        open.stand(row.sequence, row.acknowledged);
        open.link.answered = row.answered;
        farEnd.onSend = sendLate; // the wait counts from after the sending
        open.receive(row.arrivals);
        const std::string printed = printedBy([&] { EXPECT_EQ(sendAndWait(open), row.result); });
        const bool isAnswered = row.message.empty();
        EXPECT_EQ(printed, isAnswered ? "" : "3. can't receive " + row.message + "\r\n");
        EXPECT_EQ(open.link.answered, isAnswered ? 1 : 0);
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(row.sleeps, 10));
        EXPECT_EQ(farEnd.sent.size(), 1u);
    }
}

// A turn ends only every 10 ms; here the first one ends a millisecond before the time or with it.
TEST(MervoProtocol, CommandThatWaitsGivesUpAt20And3000MillisecondsAndNotBefore)
{
    for (const int64_t limit : {20, 3000}) {
        for (const int64_t early : {0, 1}) {
            OpenLink open;
            open.link.answered = limit == 3000 ? 1 : 0;
            setClockInSleep(1, limit - 10 - early);
            printedBy([&] { EXPECT_EQ(sendAndWait(open), 0u); });
            EXPECT_EQ(fakeClock.sleepsUs, sleeps(early == 1 ? 2 : 1, 10)) << limit;
        }
    }
}

TEST(MervoProtocol, SilentDeviceCosts3000MillisecondsAfterOneGoodAnswerAnd20AfterThat)
{
    OpenLink open;
    open.receive(answerFrame(1, 0x0A0B0C0D));
    EXPECT_EQ(sendAndWait(open), 0x0A0B0C0Du);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(0, 10));
    EXPECT_EQ(printedBy([&] { sendAndWait(open); }), "3. can't receive 7 = 2 1\r\n");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(300, 10));
    EXPECT_EQ(printedBy([&] { sendAndWait(open); }), "3. can't receive 7 = 3 1\r\n");
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(302, 10));
    open.parse(a(3)); // late: the device is back
    printedBy([&] { sendAndWait(open); });
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(602, 10));
}

TEST(MervoProtocol, DeviceWhoseFirstAnswerIsTakenDuringTheSendingIsWaitedFor)
{
    OpenLink open;
    farEnd.onSend = [&open] { return open.parse(a(200)); };
    printedBy([&] { sendAndWait(open); });
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(300, 10));
}

// The numbers have come round: what was acknowledged 256 commands ago looks acknowledged now.
TEST(MervoProtocol, After256UnansweredCommandsTheOldAnswerIsTakenForTheNewOne)
{
    for (const uint32_t result : {0xCAFEu, 0u}) { // 0: there was none
        OpenLink open;
        open.parse(result != 0 ? answerFrame(0, result) + "<F9999999999999999" : "");
        for (int i = 0; i < 255; ++i) {
            SendCmdNoWait_MervoProtocol(&open.link, 1, 2, 3, 4, 5, 6);
        }
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(sendAndWait(open), result); }), "");
        EXPECT_EQ(open.link.answered, result != 0 ? 1 : 0);
        EXPECT_EQ(fakeClock.sleepsUs, sleeps(0, 10));
    }
}

// Every wait goes on until the newest command is answered, and finds that answer.
TEST(MervoProtocol, OnAnswerMaySendAndWait)
{
    OpenLink open;
    uint32_t inner = 0;
    farEnd.onAnswer = [&inner](MervoLink *link) {
        if (farEnd.answers.size() == 1) {
            EXPECT_EQ(SendCmdNoWait_MervoProtocol(link, 1, 0, 0, 0, 0, 0), 1);
            inner = SendCmdAndWait_MervoProtocol(link, 1, 0, 0, 0, 0, 0);
        } else if (farEnd.answers.size() == 3) {
            SendCmdNoWait_MervoProtocol(link, 1, 0, 0, 0, 0, 0);
        }
    };
    open.receive({{0, answerFrame(1, 100) + answerFrame(2, 200)},
                  {2, answerFrame(3, 300)},
                  {6, answerFrame(4, 400)}});
    EXPECT_EQ(sendAndWait(open), 400u);
    EXPECT_EQ(inner, 400u);
    EXPECT_EQ(fakeClock.sleepsUs, sleeps(6, 10));
    EXPECT_EQ(farEnd.sent.size(), 4u);
    EXPECT_EQ(farEnd.answers.size(), 4u);
}

} // namespace
