// From queued bytes to executed commands: frames whole, split, joined, broken and interleaved, the
// errors that are answered, and what the control PC gets to see of it all. The module's source is
// part of this file, so that the assembler's state is in sight.
//
// The cases on the mirror hold down one fault above all: taking back bytes of a frame that the PC
// has got already, or that never found room, hands the PC old bytes again.

#include "command/reception.cpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <random>
#include <sched.h>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/clock.h"
#include "tests/support/exchange.h"
#include "transport/bridge.h"

namespace {

using Calls = std::vector<Sent>;
using Strings = std::vector<std::string>;

constexpr uint32_t kNow = 123456;

const std::string kDeviceType = "<T0000680100000069>";
const std::string kDeviceTypeReply = "<F00006801263300c2>";
const std::string kVersion = "<T00006a030000006d>";
const std::string kVersionReply = "<F00006a03010a0078>";

void arrive(std::string_view bytes, uint64_t port = 0)
{
    IsrReceiveBuffer(kChannelSerial, port, bytesOf(bytes), lengthOf(bytes));
}

std::string printedByTask()
{
    return printedBy(TaskCommand);
}

// What udpSendTask() would send to the PC.
std::string mirror()
{
    return contentOf(udp_send_pipe);
}

constexpr char kPc[] = "udp 10.0.0.9:5000";

// What the PC gets in one pass of the bridge. What was sent before stays in `sent`.
std::string drainToPC()
{
    Calls before = takeSent();
    udp2uart_task();
    std::string bytes;
    for (const Sent &call : takeSent()) {
        EXPECT_EQ(call.to, kPc);
        bytes += call.bytes;
    }
    sent = std::move(before);
    return bytes;
}

Calls uart(const Strings &frames)
{
    Calls calls;
    for (const std::string &frame : frames) {
        calls.push_back({"uart 0", frame});
    }
    return calls;
}

// Fills the mirror with `count` bytes that belong to no frame.
std::string fillMirror(uint32_t count)
{
    std::string bytes;
    for (uint32_t i = 0; i < count; ++i) {
        bytes += static_cast<char>('A' + i % 26);
        pipe_write(&udp_send_pipe, static_cast<uint8_t>(bytes.back()));
    }
    return bytes;
}

// A frame whose checksum is right but whose last character is not.
std::string withEnd(std::string frame, char end)
{
    frame.back() = end;
    return frame;
}

class Reception : public testing::Test {
protected:
    Reception()
    {
        fakeClock.setMs(kNow);
        std::memset(strCommandFromLED, '#', sizeof strCommandFromLED);
        g_ReceiveDetected = 1;
        InitRs232CommandVariable();
        udp_receive_pipe_init();
        udp_chanel_value[0] = 0x0900000A; // 10.0.0.9
        udp_chanel_value[1] = 5000;
    }
};

// Start-up ---------------------------------------------------------------------------------------

TEST_F(Reception, PreparesTheReplysFrame)
{
    EXPECT_EQ(std::string(strCommandFromLED, sizeof strCommandFromLED),
              std::string("<F################>") + '\0');
    EXPECT_EQ(g_ReceiveDetected, 0u);
}

TEST_F(Reception, PreparesOnlyOnce)
{
    arrive("<T00");
    const std::array<Channel *, 10> before = std::to_array(channel);
    std::memset(strCommandFromLED, '#', sizeof strCommandFromLED);
    g_ReceiveDetected = 1;
    InitRs232CommandVariable();
    EXPECT_EQ(std::to_array(channel), before);
    EXPECT_EQ(getUsedChannel(kChannelSerial, 0), 0);
    EXPECT_EQ(contentOf(channel[0]->pipe), "<T00");
    EXPECT_EQ(std::string(strCommandFromLED, sizeof strCommandFromLED), std::string(20, '#'));
    EXPECT_EQ(g_ReceiveDetected, 1u);
}

TEST_F(Reception, KeepsTwentyCharactersAndTheCountOfAFrameInTheMaking)
{
    EXPECT_EQ(sizeof(FrameSlot), 21u);
    EXPECT_EQ(offsetof(FrameSlot, text), 0u);
    EXPECT_EQ(offsetof(FrameSlot, count), 20u);
    EXPECT_EQ(std::size(g_ReceiveCommand), 10u);
    EXPECT_EQ(std::size(assemblerState), 10u);
}

// The assembler, byte by byte --------------------------------------------------------------------

TEST_F(Reception, AssemblesAFrameInFourStates)
{
    commandFrom = 3;
    g_ReceiveDetected = 0;
    for (uint32_t i = 0; i < 18; ++i) {
        ASSERT_EQ(ReceiveCommand(static_cast<uint8_t>(kDeviceType[i])), 1) << i;
        ASSERT_EQ(g_ReceiveCommand[3].count, i + 1) << i;
        ASSERT_EQ(assemblerState[3], i < 1 ? 1u : i < 17 ? 2u : 3u) << i;
        ASSERT_EQ(g_ReceiveDetected, 0u) << i;
    }
    EXPECT_EQ(ReceiveCommand('>'), 0);
    EXPECT_EQ(g_ReceiveCommand[3].count, 19);
    EXPECT_EQ(assemblerState[3], 0u);
    EXPECT_EQ(g_ReceiveDetected, 1u);
    EXPECT_EQ(std::string(g_ReceiveCommand[3].text, 19), kDeviceType);
}

TEST_F(Reception, HuntsForTheHeader)
{
    commandFrom = 0;
    for (const char character : std::string_view("T>0\0\xFFt", 6)) {
        EXPECT_EQ(ReceiveCommand(static_cast<uint8_t>(character)), 1);
        EXPECT_EQ(assemblerState[0], 0u);
    }
    ReceiveCommand('<');
    EXPECT_EQ(assemblerState[0], 1u);
    ReceiveCommand('x');
    EXPECT_EQ(assemblerState[0], 0u);
    ReceiveCommand('T'); // the "<" before the "x" is forgotten
    EXPECT_EQ(assemblerState[0], 0u);
}

TEST_F(Reception, TakesNothingButACapitalTForTheSecondCharacter)
{
    commandFrom = 0;
    for (unsigned code = 0; code < 256; ++code) {
        ReceiveCommand('<');
        EXPECT_EQ(ReceiveCommand(static_cast<uint8_t>(code)), 1);
        const uint32_t expected = code == 'T' ? 2 : code == '<' ? 1 : 0;
        EXPECT_EQ(assemblerState[0], expected) << code;
    }
}

TEST_F(Reception, RestartsAtTheOpeningCharacterInEveryState)
{
    commandFrom = 0;
    for (size_t length = 0; length < 19; ++length) {
        for (const char character : kDeviceType.substr(0, length)) {
            ReceiveCommand(static_cast<uint8_t>(character));
        }
        g_ReceiveDetected = 0;
        EXPECT_EQ(ReceiveCommand('<'), 1) << length;
        EXPECT_EQ(assemblerState[0], 1u) << length;
        EXPECT_EQ(g_ReceiveCommand[0].count, 1) << length;
        EXPECT_EQ(g_ReceiveDetected, 0u) << length;
    }
}

TEST_F(Reception, ComesBackFromAStateThatDoesNotExist)
{
    commandFrom = 5;
    for (const uint32_t state : {4u, 5u, 0x100u, 0xFFFFFFFFu}) {
        assemblerState[5] = state;
        EXPECT_EQ(ReceiveCommand('T'), 1);
        EXPECT_EQ(assemblerState[5], 0u);
        assemblerState[5] = state;
        EXPECT_EQ(ReceiveCommand('<'), 1);
        EXPECT_EQ(assemblerState[5], 1u);
    }
}

TEST_F(Reception, AssemblesInTheSlotOfTheChannelServed)
{
    commandFrom = 0;
    ReceiveCommand('<');
    commandFrom = 9;
    ReceiveCommand('<');
    ReceiveCommand('T');
    EXPECT_EQ(assemblerState[0], 1u);
    EXPECT_EQ(assemblerState[9], 2u);
    EXPECT_EQ(g_ReceiveCommand[0].count, 1);
    EXPECT_EQ(g_ReceiveCommand[9].count, 2);
}

// Whole frames -----------------------------------------------------------------------------------

TEST_F(Reception, DoesNothingWithoutBytes)
{
    EXPECT_EQ(printedByTask(), "");
    EXPECT_EQ(sent, Calls());
    EXPECT_EQ(mirror(), "");
}

TEST_F(Reception, ExecutesAFrameAndAnswersIt)
{
    arrive(kDeviceType);
    EXPECT_EQ(printedByTask(), "read device type\n");
    EXPECT_EQ(sent, uart({kDeviceTypeReply}));
    EXPECT_EQ(contentOf(channel[0]->pipe), "");
    EXPECT_EQ(mirror(), "");
}

TEST_F(Reception, LeavesTheRecordOfTheCommand)
{
    arrive("<T0102f00405060709>"); // 01 + 02 + f0 + 04 + 05 + 06 + 07 = 109
    TaskCommand();
    EXPECT_EQ(bytesOf(commandToLED), (std::array<uint8_t, 8>{1, 2, 0xF0, 4, 5, 6, 7, 9}));
}

TEST_F(Reception, AcceptsUppercaseAndAnswersInLowercase)
{
    arrive("<TAABB6A03000000D2>"); // aa + bb + 6a + 03 = 1d2
    TaskCommand();
    EXPECT_EQ(sent, uart({"<Faabb6a03010a00dd>"}));
}

TEST_F(Reception, DiscardsGarbageBeforeAFrameButMirrorsIt)
{
    arrive("xx" + kDeviceType);
    EXPECT_EQ(printedByTask(), "read device type\n");
    EXPECT_EQ(sent, uart({kDeviceTypeReply}));
    EXPECT_EQ(drainToPC(), "xx");
}

TEST_F(Reception, DiscardsGarbageOfEveryKindBeforeAFrame)
{
    std::string garbage;
    for (int code = 0; code < 256; ++code) {
        garbage += static_cast<char>(code);
    }
    garbage += "<<t<F0000680100000069><T123<";
    arrive(garbage + kVersion);
    EXPECT_EQ(printedByTask(), "");
    EXPECT_EQ(sent, uart({kVersionReply}));
    EXPECT_EQ(drainToPC(), garbage);
}

TEST_F(Reception, ExecutesTwoFramesOfOneBurstInOneCall)
{
    arrive(kDeviceType + kVersion);
    EXPECT_EQ(printedByTask(), "read device type\n");
    EXPECT_EQ(sent, uart({kDeviceTypeReply, kVersionReply}));
    EXPECT_EQ(mirror(), "");
}

TEST_F(Reception, ExecutesEveryFrameOfAFullPipeInOneCall)
{
    std::string burst;
    Strings replies;
    for (unsigned i = 0; i < 215; ++i) { // 4085 bytes
        const auto tag = static_cast<uint8_t>(i);
        burst += commandFrame({0, tag, 0x6A, 3, 0, 0, 0});
        replies.push_back(replyFrame({0, tag, 0x6A, 3, 1, 10, 0}));
    }
    arrive(burst);
    TaskCommand();
    EXPECT_EQ(sent, uart(replies));
    EXPECT_EQ(mirror(), "");
}

// Fault held down: a line that brought frames as fast as their replies left kept one call busy for
// as long as it did, and the bridge and the delayed calls stood still.
TEST_F(Reception, LeavesTheLoopItsTurnWhileTheLineKeepsBringingFrames)
{
    onSend = [] { arrive(kVersion); };
    arrive(kVersion);
    TaskCommand();
    EXPECT_EQ(takeSent(), uart(Strings(4095 / 19, kVersionReply)));
    TaskCommand(); // begins in the middle of a frame: 4095 = 215 * 19 + 10, 8190 = 431 * 19 + 1
    EXPECT_EQ(takeSent(), uart(Strings(431 - 215, kVersionReply)));
    onSend = nullptr;
    TaskCommand();
    EXPECT_EQ(takeSent(), uart({kVersionReply}));
}

// Fault held down: a call took more bytes than the mirror holds, and the last of them were lost.
TEST_F(Reception, TakesNoMoreInACallThanTheMirrorHolds)
{
    const std::string first(4095, 'a');
    const std::string second(4095, 'b');
    arrive(first, 0);
    arrive(second + "never fits", 1);
    TaskCommand();
    EXPECT_EQ(drainToPC(), first);
    TaskCommand();
    EXPECT_EQ(drainToPC(), second);
}

TEST_F(Reception, MirrorsWhatStandsBetweenTwoFrames)
{
    arrive("a" + kDeviceType + "bc" + kVersion + "def");
    TaskCommand();
    EXPECT_EQ(sent, uart({kDeviceTypeReply, kVersionReply}));
    EXPECT_EQ(drainToPC(), "abcdef");
}

TEST_F(Reception, TakesAReplyForTrafficAndNoCommand)
{
    arrive(kDeviceTypeReply);
    EXPECT_EQ(printedByTask(), "");
    EXPECT_EQ(sent, Calls());
    EXPECT_EQ(drainToPC(), kDeviceTypeReply);
}

// Split frames -----------------------------------------------------------------------------------

TEST_F(Reception, JoinsAFrameSplitAtEveryPlaceBeforeItIsServed)
{
    for (size_t cut = 1; cut < 19; ++cut) {
        arrive(kVersion.substr(0, cut));
        arrive(kVersion.substr(cut));
        TaskCommand();
        EXPECT_EQ(takeSent(), uart({kVersionReply})) << cut;
        EXPECT_EQ(mirror(), "") << cut;
    }
}

TEST_F(Reception, JoinsAFrameSplitAtEveryPlaceOverTwoCalls)
{
    for (size_t cut = 1; cut < 19; ++cut) {
        arrive(kVersion.substr(0, cut));
        TaskCommand();
        EXPECT_EQ(sent, Calls()) << cut;
        EXPECT_EQ(mirror(), kVersion.substr(0, cut)) << cut;
        arrive(kVersion.substr(cut));
        TaskCommand();
        EXPECT_EQ(takeSent(), uart({kVersionReply})) << cut;
        EXPECT_EQ(mirror(), "") << cut;
    }
}

TEST_F(Reception, JoinsAFrameThatComesByteByByte)
{
    for (size_t i = 0; i < 19; ++i) {
        EXPECT_EQ(sent, Calls()) << i;
        arrive(kVersion.substr(i, 1));
    }
    TaskCommand();
    EXPECT_EQ(takeSent(), uart({kVersionReply}));
    for (size_t i = 0; i < 19; ++i) {
        EXPECT_EQ(sent, Calls()) << i;
        arrive(kVersion.substr(i, 1));
        TaskCommand();
    }
    EXPECT_EQ(takeSent(), uart({kVersionReply}));
    EXPECT_EQ(mirror(), "");
}

TEST_F(Reception, WaitsForTheRestOfAFrameWithoutLimit)
{
    arrive(kVersion.substr(0, 18));
    for (int pass = 0; pass < 1000; ++pass) {
        fakeClock.advanceMs(3'600'000);
        TaskCommand();
    }
    EXPECT_EQ(sent, Calls());
    arrive(">");
    TaskCommand();
    EXPECT_EQ(sent, uart({kVersionReply}));
}

TEST_F(Reception, AbandonsAFrameOf18CharactersAtTheNextFrame)
{
    const std::string one_short = "<T000068010000069>";
    ASSERT_EQ(one_short.size(), 18u);
    arrive(one_short);
    EXPECT_EQ(printedByTask(), "");
    EXPECT_EQ(sent, Calls());
    arrive(kVersion);
    EXPECT_EQ(printedByTask(), "");
    EXPECT_EQ(sent, uart({kVersionReply}));
    EXPECT_EQ(drainToPC(), one_short);
}

TEST_F(Reception, TakesTheByteBehind18CharactersForTheEnd)
{
    commandToLED = {};
    arrive("<T00006a03000006d>"); // one digit short: the checksum reads as "d>", that is d0
    arrive("x");
    EXPECT_EQ(printedByTask(), "error end:<T00006a03000006d>x\r\n"
                               "checksum=115\r\n" // 6a + 03 + 06
                               "error checksum:<T00006a03000006d>x:19\r\n");
    EXPECT_EQ(sent, uart({refusal({0, 0, 0, 0, 0, 0, 0}), refusal({0, 0, 0x6A, 0, 0, 0, 0})}));
}

TEST_F(Reception, MirrorsACharacterTooMany)
{
    arrive(kVersion + ">" + kVersion);
    EXPECT_EQ(printedByTask(), "");
    EXPECT_EQ(sent, uart({kVersionReply, kVersionReply}));
    EXPECT_EQ(drainToPC(), ">");
}

TEST_F(Reception, StartsAnewAtAnOpeningCharacterInTheBody)
{
    for (size_t length = 1; length < 19; ++length) {
        const std::string part = kDeviceType.substr(0, length);
        arrive(part + kVersion);
        EXPECT_EQ(printedByTask(), "") << length;
        EXPECT_EQ(takeSent(), uart({kVersionReply})) << length;
        EXPECT_EQ(drainToPC(), part) << length;
    }
}

TEST_F(Reception, TakesBytesOfEveryKindInTheBody)
{
    // Each of these reads as the digit 0; the "0" of a right frame may be any of them.
    for (int code = 0; code < 256; ++code) {
        const char character = static_cast<char>(code);
        if (character == '<' ||
            std::string_view("123456789abcdefABCDEF").find(character) != std::string_view::npos) {
            continue;
        }
        std::string frame = kVersion;
        std::replace(frame.begin(), frame.end(), '0', character);
        arrive(frame);
        EXPECT_EQ(printedByTask(), "") << code;
        EXPECT_EQ(takeSent(), uart({kVersionReply})) << code;
        EXPECT_EQ(mirror(), "") << code;
    }
}

TEST_F(Reception, CutsTheMessageAtAZeroByteInTheBody)
{
    std::string frame = "<T0000680100000068>";
    frame[4] = '\0';
    arrive(frame);
    EXPECT_EQ(printedByTask(), "checksum=105\r\nerror checksum:<T00:19\r\n");
    EXPECT_EQ(sent, uart({refusal({0, 0, 0x68, 0, 0, 0, 0})}));
    EXPECT_EQ(drainToPC(), frame);
}

TEST_F(Reception, PrintsAByteOf255AsItCame)
{
    std::string frame = "<T0000680100000068>";
    frame[4] = '\xFF';
    frame[17] = '\xFF';
    arrive(frame);
    EXPECT_EQ(printedByTask(), "checksum=105\r\nerror checksum:<T00\xFF"
                               "068010000006\xFF>:19\r\n");
    EXPECT_EQ(drainToPC(), frame);
}

// Wrong end --------------------------------------------------------------------------------------

TEST_F(Reception, RefusesAWrongEndThenExecutesTheFrameAllTheSame)
{
    commandToLED = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    arrive("<T0000680100000069}");
    EXPECT_EQ(printedByTask(), "error end:<T0000680100000069}\r\nread device type\n");
    EXPECT_EQ(sent, uart({"<F112233ffffffff62>", kDeviceTypeReply})); // 11 + 22 + 33 + 3fc = 462
    EXPECT_EQ(mirror(), "");
    EXPECT_EQ(channel[0]->lastTime, kNow);
}

TEST_F(Reception, RefusesEveryWrongEndInTheNameOfTheCommandBefore)
{
    for (unsigned code = 0; code < 256; ++code) {
        const char end = static_cast<char>(code);
        if (end == '>' || end == '<') {
            continue;
        }
        const Parameters before = {1, static_cast<uint8_t>(code), 0xF4, 2, 3, 4, 5};
        const Parameters request = {7, static_cast<uint8_t>(~code), 0x6A, 3, 0, 0, 0};
        arrive(commandFrame(before) + withEnd(commandFrame(request), end));
        std::string text = withEnd(commandFrame(request), end);
        if (end == '\0') {
            text.pop_back();
        }
        EXPECT_EQ(printedByTask(), "error end:" + text + "\r\n") << code;
        EXPECT_EQ(takeSent(), uart({refusal(before), refusal(before),
                                    replyFrame({7, request[1], 0x6A, 3, 1, 10, 0})}))
            << code;
        EXPECT_EQ(mirror(), "") << code;
    }
}

TEST_F(Reception, TakesAnOpeningCharacterAtTheEndForTheNextFrame)
{
    arrive(withEnd(kDeviceType, '<') + "T00006a030000006d>");
    EXPECT_EQ(printedByTask(), "");
    EXPECT_EQ(sent, uart({kVersionReply}));
    EXPECT_EQ(drainToPC(), kDeviceType.substr(0, 18));
}

TEST_F(Reception, GoesOnWithTheBurstBehindAWrongEnd)
{
    arrive(withEnd(kVersion, '!') + kVersion);
    EXPECT_EQ(printedByTask(), "error end:<T00006a030000006d!\r\n");
    EXPECT_EQ(sent, uart({refusal({}), kVersionReply, kVersionReply}));
}

// Wrong checksum ---------------------------------------------------------------------------------

TEST_F(Reception, RefusesAWrongChecksum)
{
    commandToLED = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    arrive("<T0102680100000068>"); // 01 + 02 + 68 + 01 = 6c
    EXPECT_EQ(printedByTask(), "checksum=108\r\nerror checksum:<T0102680100000068>:19\r\n");
    EXPECT_EQ(sent, uart({refusal({1, 2, 0x68, 0, 0, 0, 0})}));
    EXPECT_EQ(mirror(), "<T0102680100000068>");
}

TEST_F(Reception, LeavesWhatIsBehindAWrongChecksumForTheNextCall)
{
    const std::string bad = "<T0000680100000068>";
    arrive(bad + "x" + kVersion + kVersion);
    EXPECT_EQ(printedByTask(), "checksum=105\r\nerror checksum:" + bad + ":19\r\n");
    EXPECT_EQ(takeSent(), uart({refusal({0, 0, 0x68, 0, 0, 0, 0})}));
    EXPECT_EQ(contentOf(channel[0]->pipe), "x" + kVersion + kVersion);
    EXPECT_EQ(mirror(), bad);
    EXPECT_EQ(printedByTask(), "");
    EXPECT_EQ(takeSent(), uart({kVersionReply, kVersionReply}));
    EXPECT_EQ(drainToPC(), bad + "x");
}

TEST_F(Reception, ServesTheOtherChannelsInTheCallOfAWrongChecksum)
{
    const std::string bad = "<T0000680100000068>";
    arrive(bad + kVersion, 0);
    arrive(kVersion, 1);
    TaskCommand();
    EXPECT_EQ(takeSent(),
              (Calls{{"uart 0", refusal({0, 0, 0x68, 0, 0, 0, 0})}, {"uart 1", kVersionReply}}));
    TaskCommand();
    EXPECT_EQ(takeSent(), (Calls{{"uart 0", kVersionReply}}));
    EXPECT_EQ(drainToPC(), bad);
}

TEST_F(Reception, ExecutesNothingOfAWrongChecksum)
{
    arrive(commandFrame({0, 0, 0x6A, 3, 0, 0, 0}), 4);
    TaskCommand();
    sent.clear();
    arrive("<T00006a030000006c>", 5);
    fakeClock.advanceMs(1);
    TaskCommand();
    EXPECT_EQ(sent, (Calls{{"uart 5", refusal({0, 0, 0x6A, 0, 0, 0, 0})}}));
    EXPECT_EQ(channel[1]->lastTime, 0u);
    EXPECT_EQ(current_channel, 0);
}

TEST_F(Reception, RefusesAWrongEndAndAWrongChecksumOneByOne)
{
    commandToLED = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    arrive("<T0000680100000068}");
    EXPECT_EQ(printedByTask(), "error end:<T0000680100000068}\r\n"
                               "checksum=105\r\n"
                               "error checksum:<T0000680100000068}:19\r\n");
    EXPECT_EQ(sent,
              uart({refusal({0x11, 0x22, 0x33, 0, 0, 0, 0}), refusal({0, 0, 0x68, 0, 0, 0, 0})}));
    EXPECT_EQ(mirror(), "<T0000680100000068}");
}

TEST_F(Reception, CutsTheTextOfItsMessagesBehindTheFrame)
{
    g_ReceiveCommand[0].text[19] = '?';
    arrive(withEnd(kVersion, '}'));
    EXPECT_EQ(printedByTask(), "error end:<T00006a030000006d}\r\n");
    g_ReceiveCommand[0].text[19] = '?';
    arrive("<T0000680100000068>");
    EXPECT_EQ(printedByTask(), "checksum=105\r\nerror checksum:<T0000680100000068>:19\r\n");
}

// Wrong header, which the assembler lets nobody send ---------------------------------------------

TEST_F(Reception, RefusesEachWrongHeaderCharacterThenExecutesTheFrame)
{
    arrive(kDeviceType.substr(0, 10));
    TaskCommand();
    g_ReceiveCommand[0].text[0] = 'x';
    g_ReceiveCommand[0].text[1] = 'y';
    commandToLED = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    arrive(kDeviceType.substr(10));
    EXPECT_EQ(printedByTask(), "error header\r\nerror header\r\nread device type\n");
    const std::string refused = refusal({0x11, 0x22, 0x33, 0, 0, 0, 0});
    EXPECT_EQ(sent, uart({refused, refused, kDeviceTypeReply}));
    EXPECT_EQ(mirror(), "");
}

TEST_F(Reception, RefusesOneWrongHeaderCharacterOnce)
{
    for (const int at : {0, 1}) {
        arrive(kVersion.substr(0, 10));
        TaskCommand();
        g_ReceiveCommand[0].text[at] = '\0';
        commandToLED = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
        arrive(kVersion.substr(10));
        EXPECT_EQ(printedByTask(), "error header\r\n") << at;
        EXPECT_EQ(takeSent(), uart({refusal({0x11, 0x22, 0x33, 0, 0, 0, 0}), kVersionReply})) << at;
    }
}

TEST_F(Reception, ReportsAWrongHeaderBeforeAWrongEndBeforeAWrongChecksum)
{
    arrive(kDeviceType.substr(0, 10));
    TaskCommand();
    g_ReceiveCommand[0].text[1] = 'F';
    arrive("00000068}");
    EXPECT_EQ(printedByTask(), "error header\r\n"
                               "error end:<F0000680100000068}\r\n"
                               "checksum=105\r\n"
                               "error checksum:<F0000680100000068}:19\r\n");
    EXPECT_EQ(sent.size(), 3u);
}

// Around the execution ---------------------------------------------------------------------------

TEST_F(Reception, RemembersChannelAndTimeAndHidesTheFrameBeforeItExecutes)
{
    for (uint64_t port = 0; port < 5; ++port) {
        arrive("", port);
    }
    arrive("ab" + kVersion + "cd", 4);
    current_channel = 7;
    int executed = 0;
    onSend = [&] {
        ++executed;
        EXPECT_EQ(commandFrom, 4);
        EXPECT_EQ(current_channel, 4);
        EXPECT_EQ(get_channel_type(), 2u);
        EXPECT_EQ(channel[4]->lastTime, kNow);
        EXPECT_EQ(mirror(), "ab");
        EXPECT_EQ(contentOf(channel[4]->pipe), "cd");
        EXPECT_EQ(bytesOf(commandToLED), (std::array<uint8_t, 8>{0, 0, 0x6A, 3, 0, 0, 0, 0x6D}));
    };
    TaskCommand();
    onSend = nullptr;
    EXPECT_EQ(executed, 1);
    EXPECT_EQ(commandFrom, 9);
    EXPECT_EQ(current_channel, 4);
    EXPECT_EQ(drainToPC(), "abcd");
}

TEST_F(Reception, LeavesCommandFromAtTheLastChannel)
{
    commandFrom = 2;
    TaskCommand();
    EXPECT_EQ(commandFrom, 9);
    arrive(kVersion);
    TaskCommand();
    EXPECT_EQ(commandFrom, 9);
    arrive("<T0000680100000068>");
    TaskCommand();
    EXPECT_EQ(commandFrom, 9);
}

TEST_F(Reception, RemembersTheTimeOfTheLatestCommand)
{
    fakeClock.setMs(0x1'00000005); // the tick is its low 32 bits
    arrive(kVersion);
    TaskCommand();
    EXPECT_EQ(channel[0]->lastTime, 5u);
    fakeClock.advanceMs(37);
    arrive("garbage <T0000");
    TaskCommand();
    EXPECT_EQ(channel[0]->lastTime, 5u);
    arrive(kVersion);
    TaskCommand();
    EXPECT_EQ(channel[0]->lastTime, 42u);
}

TEST_F(Reception, RemembersTheTimeOfARefusedCommandToo)
{
    arrive(commandFrame({0, 0, 0xFF, 0, 0, 0, 0})); // unknown, but a valid frame
    TaskCommand();
    EXPECT_EQ(sent, uart({"<F0000fffffffffffb>"}));
    EXPECT_EQ(channel[0]->lastTime, kNow);
    EXPECT_EQ(mirror(), "");
}

TEST_F(Reception, LocksNobodyOutWithTheFrontBoardFlag)
{
    EXPECT_EQ(lockFrontBoard, 0u);
    lockFrontBoard = 0xFFFFFFFF;
    arrive(kVersion);
    TaskCommand();
    EXPECT_EQ(sent, uart({kVersionReply}));
    EXPECT_EQ(lockFrontBoard, 0xFFFFFFFFu);
}

// Several channels -------------------------------------------------------------------------------

TEST_F(Reception, KeepsInterleavedSourcesApart)
{
    Strings frames;
    for (uint8_t port = 0; port < 10; ++port) {
        frames.push_back(commandFrame({port, static_cast<uint8_t>(port + 1), 0x6A, 3, 0, 0, 0}));
    }
    for (size_t i = 0; i < 19; ++i) {
        for (uint8_t port = 0; port < 10; ++port) {
            arrive(frames[port].substr(i, 1), port);
        }
        if (i % 3 == 0) {
            TaskCommand();
        }
    }
    Calls expected;
    for (uint8_t port = 0; port < 10; ++port) {
        expected.push_back({"uart " + std::to_string(port),
                            replyFrame({port, static_cast<uint8_t>(port + 1), 0x6A, 3, 1, 10, 0})});
    }
    EXPECT_EQ(sent, expected); // the last "i" was served, channels in order
    EXPECT_EQ(current_channel, 9);
}

TEST_F(Reception, ServesTheChannelsInOrderEachToItsEnd)
{
    arrive("", 0);
    arrive("", 1);
    arrive(kVersion + kVersion, 1);
    arrive(kDeviceType + kVersion, 0);
    TaskCommand();
    EXPECT_EQ(sent, (Calls{{"uart 0", kDeviceTypeReply},
                           {"uart 0", kVersionReply},
                           {"uart 1", kVersionReply},
                           {"uart 1", kVersionReply}}));
}

TEST_F(Reception, AnswersAUdpPeerAtItsAddress)
{
    IsrReceiveBuffer(kChannelUdp, 0x00001771'0A00000A, bytesOf(kVersion), 19);
    TaskCommand();
    EXPECT_EQ(sent, (Calls{{"udp 10.0.0.10:6001", kVersionReply}}));
    EXPECT_EQ(get_channel_type(), 0u);
    EXPECT_EQ(mirror(), "");
}

TEST_F(Reception, ReadsBytesLeftByTheEvictedSourceAsTheNewOnes)
{
    for (uint64_t port = 0; port < 10; ++port) {
        arrive("", port);
    }
    arrive("<T00006a", 6);
    TaskCommand();     // in the making
    arrive("0300", 6); // in the pipe
    for (uint8_t i = 0; i < 10; ++i) {
        channel[i]->lastTime = i == 6 ? 1 : 2;
    }
    arrive("00006d>", 77);
    TaskCommand();
    EXPECT_EQ(sent, (Calls{{"uart 77", kVersionReply}}));
    EXPECT_EQ(channel[6]->lastTime, kNow);
}

TEST_F(Reception, MakesAServedSourceTheYoungest)
{
    for (uint64_t port = 0; port < 10; ++port) {
        arrive(kVersion, port);
        TaskCommand();
        fakeClock.advanceMs(10);
    }
    arrive(kVersion, 0);
    TaskCommand();
    EXPECT_EQ(printedBy([] { arrive("x", 10); }), "getFreeChannel from=1, type=2, port=10\n");
}

// Commands made inside the daemon ----------------------------------------------------------------

TEST_F(Reception, ExecutesALocalCommandAndSaysSo)
{
    arrive("", 0);
    commandFrom = 0;
    commandToLED = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    EXPECT_EQ(printedBy([] { processCmdFromLocal(0x6A, 3, 0, 0x0F, 0xFF); }),
              "process local cmd: 6a 03 00 0f ff\r\n");
    EXPECT_EQ(bytesOf(commandToLED),
              (std::array<uint8_t, 8>{0, 0x22, 0x6A, 3, 0, 0x0F, 0xFF, 0x88}));
    EXPECT_EQ(sent, uart({replyFrame({0, 0x22, 0x6A, 3, 1, 10, 0})}));
}

TEST_F(Reception, SaysALocalCommandBeforeItExecutes)
{
    EXPECT_EQ(printedBy([] { processCmdFromLocal(0x68, 1, 2, 3, 4); }),
              "process local cmd: 68 01 02 03 04\r\nread device type\n");
}

TEST_F(Reception, AnswersALocalCommandToTheChannelServed)
{
    arrive("", 0);
    arrive("", 1);
    commandFrom = 1;
    processCmdFromLocal(0xF4, 0, 0, 0, 0);
    EXPECT_EQ(takeSent(), (Calls{{"uart 1", refusal({0, 0, 0xF4, 0, 0, 0, 0})}}));
    TaskCommand();
    processCmdFromLocal(0xF4, 0, 0, 0, 0); // channel 9 is nobody's
    EXPECT_EQ(takeSent(), Calls());
}

TEST_F(Reception, TouchesNeitherChannelNorMirrorForALocalCommand)
{
    arrive("ab");
    TaskCommand();
    current_channel = 3;
    processCmdFromLocal(0x6A, 3, 0, 0, 0);
    EXPECT_EQ(current_channel, 3);
    EXPECT_EQ(channel[3]->lastTime, 0u);
    EXPECT_EQ(mirror(), "ab");
}

// The mirror -------------------------------------------------------------------------------------

TEST_F(Reception, ShowsThePcTheBytesOfACutFrameThatItGotBeforeTheCutOnly)
{
    for (size_t cut = 1; cut < 19; ++cut) {
        arrive(kVersion.substr(0, cut));
        TaskCommand();
        EXPECT_EQ(drainToPC(), kVersion.substr(0, cut)) << cut;
        arrive(kVersion.substr(cut));
        TaskCommand();
        EXPECT_EQ(takeSent(), uart({kVersionReply})) << cut;
        EXPECT_EQ(drainToPC(), "") << cut;
        EXPECT_EQ(drainToPC(), "") << cut;
    }
}

TEST_F(Reception, ShowsThePcAFrameCutTwiceUpToTheSecondCut)
{
    for (size_t first = 1; first < 18; ++first) {
        for (size_t second = first + 1; second < 19; ++second) {
            std::string seen;
            arrive(kVersion.substr(0, first));
            TaskCommand();
            seen += drainToPC();
            arrive(kVersion.substr(first, second - first));
            TaskCommand();
            seen += drainToPC();
            arrive(kVersion.substr(second));
            TaskCommand();
            seen += drainToPC();
            EXPECT_EQ(seen, kVersion.substr(0, second)) << first << " " << second;
            EXPECT_EQ(takeSent(), uart({kVersionReply})) << first << " " << second;
        }
    }
}

TEST_F(Reception, ShowsThePcGarbageAroundACutFrame)
{
    for (size_t cut = 1; cut < 19; ++cut) {
        arrive("pre" + kVersion.substr(0, cut));
        TaskCommand();
        EXPECT_EQ(drainToPC(), "pre" + kVersion.substr(0, cut)) << cut;
        arrive(kVersion.substr(cut) + "post");
        TaskCommand();
        EXPECT_EQ(drainToPC(), "post") << cut;
    }
}

TEST_F(Reception, ShowsThePcEachByteOfABadFrameOnce)
{
    const std::string bad = "<T0000680100000068>";
    for (size_t cut = 1; cut < 19; ++cut) {
        arrive(bad.substr(0, cut));
        TaskCommand();
        std::string seen = drainToPC();
        arrive(bad.substr(cut));
        TaskCommand();
        seen += drainToPC();
        EXPECT_EQ(seen, bad) << cut;
    }
}

TEST_F(Reception, TakesBackAFrameBehindABadOneAlone)
{
    const std::string bad = "<T0000680100000068>";
    arrive(bad);
    TaskCommand();
    arrive(kVersion);
    TaskCommand();
    EXPECT_EQ(drainToPC(), bad);
}

TEST_F(Reception, TakesBackAFrameWrittenAcrossTheEndOfTheStorage)
{
    for (uint32_t turn = 0; turn < 4096; ++turn) { // every place of the ring
        arrive("z" + kVersion);
        TaskCommand();
        ASSERT_EQ(mirror(), "z");
        ASSERT_EQ(drainToPC(), "z");
    }
}

TEST_F(Reception, TakesNothingBackOfAFrameThatFoundNoRoom)
{
    const std::string full = fillMirror(4095);
    arrive(kVersion);
    TaskCommand();
    EXPECT_EQ(takeSent(), uart({kVersionReply}));
    EXPECT_EQ(drainToPC(), full);
}

TEST_F(Reception, TakesBackThePartOfAFrameThatFoundRoom)
{
    for (uint32_t room = 1; room <= 19; ++room) {
        const std::string filled = fillMirror(4095 - room);
        arrive(kVersion);
        TaskCommand();
        EXPECT_EQ(takeSent(), uart({kVersionReply})) << room;
        EXPECT_EQ(drainToPC(), filled) << room;
    }
}

TEST_F(Reception, TakesBackTheEndOfAFrameWhoseStartFoundNoRoom)
{
    for (size_t cut = 1; cut < 19; ++cut) {
        const std::string full = fillMirror(4095);
        arrive(kVersion.substr(0, cut));
        TaskCommand();
        EXPECT_EQ(drainToPC(), full) << cut;
        arrive(kVersion.substr(cut));
        TaskCommand();
        EXPECT_EQ(takeSent(), uart({kVersionReply})) << cut;
        EXPECT_EQ(drainToPC(), "") << cut;
    }
}

TEST_F(Reception, TakesBackTheEndOfAFrameWhoseStartFoundHalfTheRoom)
{
    for (size_t cut = 1; cut < 19; ++cut) {
        for (uint32_t room = 1; room < cut; ++room) {
            const std::string filled = fillMirror(4095 - room);
            arrive(kVersion.substr(0, cut));
            TaskCommand();
            EXPECT_EQ(drainToPC(), filled + kVersion.substr(0, room)) << cut << " " << room;
            arrive(kVersion.substr(cut));
            TaskCommand();
            EXPECT_EQ(takeSent(), uart({kVersionReply})) << cut << " " << room;
            EXPECT_EQ(drainToPC(), "") << cut << " " << room;
        }
    }
}

TEST_F(Reception, DropsTrafficForThePcWhenTheMirrorIsFullAndStillExecutes)
{
    const std::string filled = fillMirror(4090);
    arrive("12345678" + kVersion + "90");
    TaskCommand();
    EXPECT_EQ(takeSent(), uart({kVersionReply}));
    EXPECT_EQ(drainToPC(), filled + "12345");
    arrive("x" + kVersion + "y");
    TaskCommand();
    EXPECT_EQ(drainToPC(), "xy");
}

TEST_F(Reception, NeverTakesBackBytesOfAnotherChannel)
{
    const std::string other = "<T00 of another channel"; // in the making as well
    for (size_t cut = 1; cut < 19; ++cut) {
        arrive(kVersion.substr(0, cut), 0);
        arrive(other, 1);
        TaskCommand();
        arrive(kVersion.substr(cut), 0);
        TaskCommand();
        EXPECT_EQ(takeSent().back(), (Sent{"uart 0", kVersionReply})) << cut;
        const std::string seen = drainToPC();
        EXPECT_EQ(seen, kVersion.substr(0, cut) + other) << cut;
    }
}

TEST_F(Reception, NeverTakesBackBytesOfAnotherChannelThatThePcHasGot)
{
    for (size_t cut = 1; cut < 19; ++cut) {
        arrive(kVersion.substr(0, cut), 0);
        arrive("other", 1);
        TaskCommand();
        EXPECT_EQ(drainToPC(), kVersion.substr(0, cut) + "other") << cut;
        arrive(kVersion.substr(cut), 0);
        arrive("more", 1);
        TaskCommand();
        EXPECT_EQ(takeSent(), uart({kVersionReply})) << cut;
        EXPECT_EQ(drainToPC(), "more") << cut;
    }
}

TEST_F(Reception, KeepsTheFramesOfSeveralChannelsBack)
{
    for (uint64_t port = 0; port < 10; ++port) {
        const std::string number = std::to_string(port);
        arrive("<" + number + kVersion + number + ">", port);
    }
    TaskCommand();
    EXPECT_EQ(sent.size(), 10u);
    EXPECT_EQ(drainToPC(), "<00><11><22><33><44><55><66><77><88><99>");
}

// The mirror against a model ---------------------------------------------------------------------

// Everything the module does, told a second time with queues instead of rings and with strings
// instead of states: which frames are answered and what the PC may see.
class Model {
public:
    void arrive(size_t source, const std::string &bytes)
    {
        for (const char byte : bytes) {
            if (sources_[source].queue.size() < 4095) {
                sources_[source].queue.push_back(byte);
            }
        }
    }

    void serve()
    {
        for (size_t i = 0; i < sources_.size(); ++i) {
            Source &source = sources_[i];
            while (!source.queue.empty()) {
                const char byte = source.queue.front();
                source.queue.pop_front();
                mirror(i, byte);
                if (!assemble(&source.frame, byte)) {
                    continue;
                }
                const std::string frame = std::exchange(source.frame, "");
                if (frame.back() != '>') {
                    answer(i, refusal(previous_));
                }
                Parameters parameters;
                unsigned sum = 0;
                for (size_t p = 0; p < parameters.size(); ++p) {
                    parameters[p] = byteAt(frame, 2 + 2 * p);
                    sum += parameters[p];
                }
                previous_ = parameters;
                if (sum % 256 != byteAt(frame, 16)) {
                    answer(i, refusal(parameters));
                    break;
                }
                while (!pending_.empty() && pending_.back().run == run_) {
                    pending_.pop_back();
                }
                ++run_;
                const bool isVersion = parameters[2] == 0x6A && parameters[3] == 3;
                answer(i, isVersion ? replyFrame({parameters[0], parameters[1], 0x6A, 3, 1, 10, 0})
                                    : refusal(parameters));
            }
        }
    }

    std::string drain()
    {
        const std::string all = pending();
        pending_.clear();
        return all;
    }

    std::string pending() const
    {
        std::string all;
        for (const Pending &byte : pending_) {
            all += byte.byte;
        }
        return all;
    }

    Calls takeAnswers()
    {
        return std::exchange(answers_, {});
    }

private:
    struct Source {
        std::deque<char> queue;
        std::string frame;
    };
    struct Pending {
        char byte;
        unsigned run; // bytes of one run belong to one frame in the making
    };

    static uint8_t byteAt(const std::string &frame, size_t at)
    {
        std::string digits = frame.substr(at, 2);
        for (char &digit : digits) {
            if (std::string_view("0123456789abcdefABCDEF").find(digit) == std::string_view::npos) {
                digit = '0';
            }
        }
        return static_cast<uint8_t>(std::strtoul(digits.c_str(), nullptr, 16));
    }

    // True when `byte` completes a frame.
    static bool assemble(std::string *frame, char byte)
    {
        if (byte == '<') {
            frame->clear();
        } else if (frame->empty()) {
            return false;
        }
        *frame += byte;
        if (frame->size() == 2 && byte != 'T') {
            frame->clear();
        }
        return frame->size() == 19;
    }

    void mirror(size_t source, char byte)
    {
        if (byte == '<' || source != mirrored_) {
            ++run_;
            mirrored_ = source;
        }
        if (pending_.size() < 4095) {
            pending_.push_back({byte, run_});
        }
    }

    void answer(size_t source, const std::string &frame)
    {
        answers_.push_back({"uart " + std::to_string(source), frame});
    }

    std::array<Source, 10> sources_;
    std::deque<Pending> pending_;
    size_t mirrored_ = 0;
    unsigned run_ = 0;
    Parameters previous_{};
    Calls answers_;
};

// Gives a number from 0 to `limit` - 1.
auto dice(std::mt19937 *random)
{
    return [random](uint32_t limit) { return static_cast<uint32_t>((*random)() % limit); };
}

// What a line may carry: mostly frames, whole and broken.
std::string randomTraffic(std::mt19937 *random)
{
    const auto below = dice(random);
    const auto anyByte = [random] { return static_cast<uint8_t>((*random)()); };
    std::string frame =
        commandFrame({anyByte(), anyByte(), below(2) ? uint8_t{0x6A} : uint8_t{0xFB},
                      static_cast<uint8_t>(below(4)), anyByte(), anyByte(), anyByte()});
    switch (below(10)) {
    case 0: // one byte is another
        frame[below(19)] = static_cast<char>(anyByte());
        return frame;
    case 1: // a wrong end
        return withEnd(frame, static_cast<char>(anyByte()));
    case 2: // cut short
        return frame.substr(0, below(19));
    case 3: // without its start
        return frame.substr(below(19));
    case 4: { // garbage
        std::string garbage;
        for (uint32_t count = below(40); count > 0; --count) {
            garbage += below(8) ? static_cast<char>(anyByte()) : "<T>0"[below(4)];
        }
        return garbage;
    }
    default:
        return frame;
    }
}

// One run of `steps` random steps; how rarely the PC's bytes are sent decides whether the mirror
// stays nearly empty or runs full.
void compareWithModel(uint32_t seed, int steps, uint32_t sources, uint32_t passesPerDrain)
{
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const auto below = dice(&random);
    Model model;
    for (uint64_t port = 0; port < sources; ++port) {
        arrive("", port);
    }
    std::array<std::string, 10> lines; // traffic on its way
    size_t fullest = 0;
    size_t answers = 0;
    for (int step = 0; step < steps; ++step) {
        const uint32_t source = below(sources);
        std::string &line = lines[source];
        while (line.size() < 60) {
            line += randomTraffic(&random);
        }
        const std::string part = line.substr(0, below(60));
        line.erase(0, part.size());
        arrive(part, source);
        model.arrive(source, part);
        if (below(2) == 0) {
            TaskCommand();
            model.serve();
            const Calls expected = model.takeAnswers();
            ASSERT_EQ(takeSent(), expected) << "step " << step;
            ASSERT_EQ(mirror(), model.pending()) << "step " << step;
            fullest = std::max(fullest, mirror().size());
            answers += expected.size();
        }
        if (below(2 * passesPerDrain) == 0) {
            ASSERT_EQ(drainToPC(), model.drain()) << "step " << step;
        }
    }
    EXPECT_GT(answers, static_cast<size_t>(steps) / 8);
    if (passesPerDrain >= 1000) {
        EXPECT_EQ(fullest, 4095u);
    }
}

TEST_F(Reception, ShowsThePcWhatAModelShowsWhenEveryPassIsSent)
{
    printedBy([] { compareWithModel(1, 20000, 1, 1); });
}

TEST_F(Reception, ShowsThePcWhatAModelShowsOfSeveralChannels)
{
    printedBy([] { compareWithModel(2, 20000, 10, 2); });
}

TEST_F(Reception, ShowsThePcWhatAModelShowsWhenSendingIsSlow)
{
    printedBy([] { compareWithModel(3, 10000, 3, 40); });
}

TEST_F(Reception, ShowsThePcWhatAModelShowsWhenTheMirrorRunsFull)
{
    printedBy([] { compareWithModel(4, 8000, 2, 1000); });
}

// Two threads ------------------------------------------------------------------------------------

TEST_F(Reception, ExecutesEveryFrameThatAReceiveThreadQueuesInOrder)
{
    constexpr uint32_t kFrames = 20000;
    std::atomic<uint32_t> answered = 0;
    arrive("");
    std::thread receiver([&] {
        std::mt19937 random(5);
        std::string line;
        uint32_t made = 0;
        uint32_t arrived = 0;
        while (made < kFrames || !line.empty()) {
            while (line.size() < 64 && made < kFrames) {
                line += commandFrame({static_cast<uint8_t>(made >> 8), static_cast<uint8_t>(made),
                                      0x6A, 3, static_cast<uint8_t>(made >> 16), 0, 0});
                ++made;
            }
            const std::string part = line.substr(0, 1 + random() % 64);
            while (arrived + part.size() - answered * 19 > 4095) { // nothing may be dropped
                sched_yield();
            }
            arrive(part);
            arrived += static_cast<uint32_t>(part.size());
            line.erase(0, part.size());
        }
    });
    uint32_t executed = 0;
    while (executed < kFrames) {
        TaskCommand();
        for (const Sent &call : takeSent()) {
            const Parameters reply = {static_cast<uint8_t>(executed >> 8),
                                      static_cast<uint8_t>(executed),
                                      0x6A,
                                      3,
                                      1,
                                      10,
                                      0};
            EXPECT_EQ(call, (Sent{"uart 0", replyFrame(reply)}));
            ++executed;
        }
        answered = executed;
        sched_yield();
    }
    receiver.join();
    EXPECT_EQ(mirror(), "");
    EXPECT_EQ(contentOf(channel[0]->pipe), "");
}

TEST_F(Reception, ExecutesEveryFrameWhileTheReceiveThreadEvicts)
{
    constexpr uint32_t kFrames = 5000;
    std::atomic<uint32_t> answered = 0;
    std::vector<int> executed(kFrames);
    uint32_t total = 0;
    printedBy([&] {
        std::thread receiver([&] {
            for (uint32_t made = 0; made < kFrames; ++made) {
                while (made - answered > 200) {
                    sched_yield();
                }
                // Whole frames, so that what an evicted source leaves is whole frames too.
                arrive(commandFrame({static_cast<uint8_t>(made >> 8), static_cast<uint8_t>(made),
                                     0x6A, 3, 0, 0, 0}),
                       made % 13);
            }
        });
        while (total < kFrames) {
            TaskCommand();
            for (const Sent &call : takeSent()) {
                const std::string tag = call.bytes.substr(2, 4);
                const size_t number = std::strtoul(tag.c_str(), nullptr, 16);
                executed.at(number % kFrames) += number < kFrames ? 1 : 100;
                ++total;
            }
            answered = total;
            sched_yield();
        }
        receiver.join();
    });
    EXPECT_EQ(executed, std::vector<int>(kFrames, 1));
}

} // namespace
