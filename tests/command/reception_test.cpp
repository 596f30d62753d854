// From queued bytes to executed commands, their answers, and what the control PC gets to see. The
// modules' sources are part of this file, so that their state and their accesses are in sight.
//
// The cases on the mirror guard against one fault above all: taking back bytes of a frame that the
// PC has got already, or that never found room, hands the PC old bytes again.

#include <algorithm>
#include <numeric>
#include <optional>
#include <random>
#include <sched.h>
#include <thread>

#include <gtest/gtest.h>

#include "core/pipe.h"
#include "tests/support/noted_atomic.h"

#define atomic NotedAtomic
#include "command/channel.cpp"
#undef atomic
#include "command/reception.cpp"
#include "command/reply.cpp"

#include "tests/support/arrival.h"
#include "tests/support/bytes.h"
#include "transport/bridge.h"

namespace {

using Calls = std::vector<Sent>;
using Strings = std::vector<std::string>;
using Bytes = std::array<uint8_t, 8>;
using namespace std::string_literals;

constexpr int kRandomSteps = 1000; // for each run against the model
constexpr uint32_t kThreadFrames = 4000;

constexpr uint32_t kNow = 123456;

// Commands, and what the console and the line show when they are executed: see transcriptOf().
const std::string kDeviceType = "<T0000680100000069>";
const std::string kDeviceTypeDone = "read device type\n> <F00006801263300c2>\n";
const std::string kVersion = "<T00006a030000006d>";
const std::string kVersionReply = "<F00006a03010a0078>";
const std::string kVersionDone = "> " + kVersionReply + "\n";

// A frame with a wrong checksum.
const std::string kBad = "<T0000680100000068>";
const std::string kWrongSum = "checksum=105\r\n> <F000068ffffffff64>\nerror checksum:";
const std::string kBadRefused = kWrongSum + kBad + ":19\r\n";

// The refusal of a frame before which there was none, and of one after 11 22 33.
const std::string kRefusedAtStart = "> <F000000fffffffffc>\n";
const std::string kRefused112233 = "> <F112233ffffffff62>\n";

// What udpSendTask() would send to the PC.
std::string mirror()
{
    return contentOf(udp_send_pipe);
}

// What the PC gets in one pass of the bridge. What was sent before stays in `sent`.
std::string drainToPC()
{
    Calls before = takeSent();
    udp2uart_task();
    std::string bytes;
    for (const Sent &call : takeSent()) {
        EXPECT_EQ(call.to, "udp 10.0.0.9:5000");
        bytes += call.bytes;
    }
    sent = std::move(before);
    return bytes;
}

// Fills the mirror with `count` bytes that belong to no frame.
std::string fillMirror(uint32_t count)
{
    const std::string bytes = countingBytes(count, 59); // less than '<'
    for (const char byte : bytes) {
        pipe_write(&udp_send_pipe, static_cast<uint8_t>(byte));
    }
    return bytes;
}

// The frame with another last character; its checksum stays right.
std::string withEnd(std::string frame, char end)
{
    frame.back() = end;
    return frame;
}

// One pass of the main loop: what arrives on serial port 0 before it, what the console and the line
// then show, and what the PC gets at its end. No value: the bridge has no turn.
struct Pass {
    std::string arrives, transcript;
    std::optional<std::string> toPC;
};

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

    static void expect(const std::vector<Pass> &passes)
    {
        for (const Pass &pass : passes) {
            arrive(pass.arrives);
            EXPECT_EQ(transcriptOf(TaskCommand), pass.transcript);
            EXPECT_EQ(commandFrom, 9);
            for (const Sent &call : takeSent()) {
                EXPECT_EQ(call.to, "uart 0");
            }
            if (pass.toPC) {
                EXPECT_EQ(drainToPC(), *pass.toPC);
            }
        }
    }

    // A command that was executed before.
    static constexpr Rs232Command k112233 = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
};

TEST_F(Reception, PreparesTheReplysFrameOnce)
{
    const auto frame = [] { return std::string(strCommandFromLED, sizeof strCommandFromLED); };
    EXPECT_EQ(frame(), "<F" + std::string(16, '#') + ">\0"s);
    EXPECT_EQ(g_ReceiveDetected, 0u);
    arrive("<T00");
    const auto before = std::to_array(channel);
    std::memset(strCommandFromLED, '#', sizeof strCommandFromLED);
    g_ReceiveDetected = 1;
    InitRs232CommandVariable();
    EXPECT_EQ(std::to_array(channel), before);
    EXPECT_EQ(contentOf(channel[0]->pipe), "<T00");
    EXPECT_EQ(frame(), std::string(20, '#'));
    EXPECT_EQ(g_ReceiveDetected, 1u);
}

TEST_F(Reception, AssemblesAFrameInFourStates)
{
    commandFrom = 3;
    g_ReceiveDetected = 0;
    for (uint32_t i = 0; i < 19; ++i) {
        const bool isWhole = i == 18;
        ASSERT_EQ(ReceiveCommand(static_cast<uint8_t>(kDeviceType[i])), isWhole ? 0 : 1) << i;
        ASSERT_EQ(g_ReceiveCommand[3].count, i + 1) << i;
        ASSERT_EQ(assemblerState[3], isWhole ? 0u : i < 1 ? 1u : i < 17 ? 2u : 3u) << i;
        ASSERT_EQ(g_ReceiveDetected, isWhole) << i;
    }
    EXPECT_EQ(std::string(g_ReceiveCommand[3].text, 19), kDeviceType);
    EXPECT_EQ(g_ReceiveCommand[0].count, 0); // other channels have slots of their own
    EXPECT_EQ(assemblerState[9], 0u);
}

TEST_F(Reception, TakesNothingButACapitalTForTheSecondCharacter)
{
    commandFrom = 0;
    for (unsigned code = 0; code < 256; ++code) {
        ReceiveCommand('<');
        EXPECT_EQ(ReceiveCommand(static_cast<uint8_t>(code)), 1) << code;
        EXPECT_EQ(assemblerState[0], code == 'T' ? 2u : code == '<' ? 1u : 0u) << code;
    }
}

TEST_F(Reception, ComesBackFromAStateThatDoesNotExist)
{
    commandFrom = 5;
    for (const uint32_t state : {4u, 5u, 0x100u, 0xFFFFFFFFu}) {
        for (const char next : {'T', '<'}) {
            assemblerState[5] = state;
            EXPECT_EQ(ReceiveCommand(static_cast<uint8_t>(next)), 1) << state;
            EXPECT_EQ(assemblerState[5], next == '<' ? 1u : 0u) << state;
        }
    }
}

TEST_F(Reception, ServesTheRows)
{
    const std::string garbage = countingBytes(256) + "<<t<F0000680100000069><T123<";
    std::string zeroInBad = kBad;
    zeroInBad[4] = '\0';
    const std::string high = "<T00\xFF" + "068010000006\xFF>"s;
    // clang-format off
    const struct {
        const char *name;
        std::vector<Pass> passes;
    } rows[] = {
        {"garbage before a frame",       {{"xx" + kDeviceType, kDeviceTypeDone, "xx"}}},
        {"garbage of every kind before", {{garbage + kVersion, kVersionDone, garbage}}},
        {"two frames in one burst", {{kDeviceType + kVersion, kDeviceTypeDone + kVersionDone, ""}}},
        {"uppercase; the reply is lowercase", // aa + bb + 6a + 03 = 1d2
            {{"<TAABB6A03000000D2>", "> <Faabb6a03010a00dd>\n", ""}}},
        {"a reply is traffic and no command", {{"<F00006801263300c2>", "", "<F00006801263300c2>"}}},
        {"a digit too few: the next byte is the end", // "d>" reads as d0; 6a + 03 + 06 = 73
            {{"<T00006a03000006d>x",
              kRefusedAtStart + "error end:<T00006a03000006d>x\r\nchecksum=115\r\n"
              "> <F00006affffffff66>\nerror checksum:<T00006a03000006d>x:19\r\n",
              "<T00006a03000006d>x"}}},
        {"a wrong end: refused and still executed",
            {{"<T0000680100000069}",
              kRefusedAtStart + "error end:<T0000680100000069}\r\n" + kDeviceTypeDone, ""}}},
        {"a wrong checksum", // 01 + 02 + 68 + 01 = 6c; 01 + 02 + 68 + 3fc = 467
            {{"<T0102680100000068>", "checksum=108\r\n> <F010268ffffffff67>\n"
              "error checksum:<T0102680100000068>:19\r\n", "<T0102680100000068>"}}},
        {"what follows a wrong checksum waits for the next pass",
            {{kBad + "x" + kVersion + kVersion, kBadRefused, kBad},
             {"", kVersionDone + kVersionDone, "x"}}},
        {"a wrong end and a wrong checksum",
            {{"<T0000680100000068}",
              kRefusedAtStart + "error end:<T0000680100000068}\r\n" + kWrongSum +
              "<T0000680100000068}:19\r\n", "<T0000680100000068}"}}},
        {"a zero byte in the body cuts the message",
            {{zeroInBad, kWrongSum + "<T00:19\r\n", zeroInBad}}},
        {"a byte of 255 is printed as it came", {{high, kWrongSum + high + ":19\r\n", high}}},
    };
    // clang-format on
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        commandToLED = {};
        expect(row.passes);
    }
}

// "Cut" is every place in a frame at which a pass of the main loop may end.
TEST_F(Reception, JoinsAFrameCutAtEveryPlaceAndHidesWhatThePcHasNotGot)
{
    for (size_t cut = 1; cut < 19; ++cut) {
        SCOPED_TRACE(cut);
        const std::string start = kVersion.substr(0, cut);
        const std::string rest = kVersion.substr(cut);
        arrive(start); // before it is served at all
        expect({{rest, kVersionDone, ""}});
        expect({{start, "", {}}, {rest, kVersionDone, ""}});
        expect({{start, "", start}, {rest, kVersionDone, ""}});
        expect({{start + kVersion, kVersionDone, start}}); // interrupted
    }
}

TEST_F(Reception, WaitsForTheRestOfAFrameWithoutLimit)
{
    expect({{kVersion.substr(0, 18), "", {}}});
    fakeClock.advanceMs(3'600'000'000);
    expect({{"", "", {}}, {">", kVersionDone, ""}});
}

TEST_F(Reception, TakesBytesOfEveryKindInTheBody)
{
    // Each of these reads as the digit 0; the "0" of a right frame may be any of them.
    for (int code = 0; code < 256; ++code) {
        const char character = static_cast<char>(code);
        if ("<123456789abcdefABCDEF"s.find(character) == std::string::npos) {
            SCOPED_TRACE(code);
            std::string frame = kVersion;
            std::replace(frame.begin(), frame.end(), '0', character);
            expect({{frame, kVersionDone, ""}});
        }
    }
}

TEST_F(Reception, RefusesEveryWrongEndInTheNameOfTheCommandBefore)
{
    for (unsigned code = 0; code < 256; ++code) {
        const char end = static_cast<char>(code);
        if (end == '>' || end == '<') {
            continue;
        }
        SCOPED_TRACE(code);
        const auto tag = static_cast<uint8_t>(code);
        const std::string refused = "> " + refusal({1, tag, 0xF4, 0, 0, 0, 0}) + "\n";
        const std::string frame = withEnd(commandFrame({7, tag, 0x6A, 3, 0, 0, 0}), end);
        const std::string reported = refused + "error end:" + frame.c_str() + "\r\n";
        const std::string done = "> " + replyFrame({7, tag, 0x6A, 3, 1, 10, 0}) + "\n";
        expect({{commandFrame({1, tag, 0xF4, 2, 3, 4, 5}), refused, ""},
                {frame, reported + done, ""}});
    }
}

TEST_F(Reception, CutsTheTextOfItsMessagesAfterTheFrame)
{
    g_ReceiveCommand[0].text[19] = '?';
    const std::string refused = kRefusedAtStart + "error end:<T00006a030000006d}\r\n";
    expect({{withEnd(kVersion, '}'), refused + kVersionDone, ""}});
    g_ReceiveCommand[0].text[19] = '?';
    expect({{kBad, kBadRefused, kBad}});
}

// The assembler lets nobody send a wrong header.
TEST_F(Reception, RefusesEachWrongHeaderCharacterThenExecutesTheFrame)
{
    const std::string wrong = kRefused112233 + "error header\r\n";
    const std::string rest = kDeviceType.substr(10);
    const struct {
        std::string header, rest, transcript, toPC;
    } rows[] = {
        {"xy", rest, wrong + wrong + kDeviceTypeDone, ""},
        {"x"s + "T", rest, wrong + kDeviceTypeDone, ""},
        {"<\0"s, rest, wrong + kDeviceTypeDone, ""},
        // Header, end and checksum are reported in this order.
        {"<F", "00000068}",
         wrong + kRefused112233 + "error end:<F0000680100000068}\r\n" + kWrongSum +
             "<F0000680100000068}:19\r\n",
         "00000068}"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.transcript);
        expect({{kDeviceType.substr(0, 10), "", kDeviceType.substr(0, 10)}});
        std::memcpy(g_ReceiveCommand[0].text, row.header.data(), 2);
        commandToLED = k112233;
        expect({{row.rest, row.transcript, row.toPC}});
    }
}

// Regression: a line that brought frames as fast as their replies left kept one call busy forever.
TEST_F(Reception, LeavesTheLoopItsTurnWhileTheLineKeepsBringingFrames)
{
    onSend = [] { arrive(kVersion); };
    arrive(kVersion);
    TaskCommand();
    EXPECT_EQ(takeSent(), uart0(Strings(4095 / 19, kVersionReply)));
    TaskCommand(); // begins in the middle of a frame: 4095 = 215 * 19 + 10, 8190 = 431 * 19 + 1
    EXPECT_EQ(takeSent(), uart0(Strings(431 - 215, kVersionReply)));
    onSend = nullptr;
    TaskCommand();
    EXPECT_EQ(takeSent(), uart0({kVersionReply}));
}

// Regression: a call took more bytes than the mirror holds, and the last of them were lost.
TEST_F(Reception, TakesNoMoreInACallThanTheMirrorHolds)
{
    const std::string first(4095, 'a');
    const std::string second(4095, 'b');
    arrive(first, 0);
    arrive(second + "never fits", 1);
    TaskCommand();
    EXPECT_EQ(contentOf(channel[0]->pipe), "");
    EXPECT_EQ(contentOf(channel[1]->pipe), second);
    EXPECT_EQ(drainToPC(), first);
    TaskCommand();
    EXPECT_EQ(drainToPC(), second);
}

TEST_F(Reception, RemembersChannelAndTimeAndHidesTheFrameBeforeItExecutes)
{
    for (uint64_t port = 0; port < 5; ++port) {
        arrive("", port);
    }
    arrive("ab" + kVersion + "cd", 4);
    current_channel = 7;
    onSend = [] {
        EXPECT_EQ(commandFrom, 4);
        EXPECT_EQ(current_channel, 4);
        EXPECT_EQ(get_channel_type(), 2u);
        EXPECT_EQ(channel[4]->lastTime, kNow);
        EXPECT_EQ(mirror(), "ab");
        EXPECT_EQ(contentOf(channel[4]->pipe), "cd");
        EXPECT_EQ(bytesOf(commandToLED), (Bytes{0, 0, 0x6A, 3, 0, 0, 0, 0x6D}));
    };
    TaskCommand();
    onSend = nullptr;
    EXPECT_EQ(takeSent().size(), 1u);
    EXPECT_EQ(commandFrom, 9);
    EXPECT_EQ(current_channel, 4);
    EXPECT_EQ(drainToPC(), "abcd");
}

TEST_F(Reception, RemembersTheTimeOfTheLatestValidCommand)
{
    const std::pair<std::string, uint32_t> rows[] = {
        {kVersion, 5},
        {"garbage <T0000", 5},
        {kBad, 5},
        {"<T0000ff00000000ff>", 20}, // refused, but valid
        {withEnd(kVersion, '}'), 25},
    };
    fakeClock.setMs(0x1'00000005); // the tick is its low 32 bits
    for (const auto &[arrives, lastTime] : rows) {
        arrive(arrives);
        TaskCommand();
        EXPECT_EQ(channel[0]->lastTime, lastTime) << arrives;
        fakeClock.advanceMs(5);
    }
}

TEST_F(Reception, LocksNobodyOutWithTheFrontBoardFlag)
{
    EXPECT_EQ(lockFrontBoard, 0u);
    lockFrontBoard = 0xFFFFFFFF;
    expect({{kVersion, kVersionDone, ""}});
    EXPECT_EQ(lockFrontBoard, 0xFFFFFFFFu);
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

TEST_F(Reception, PrintsALocalCommandThenExecutesIt)
{
    arrive("ab");
    TaskCommand();
    commandFrom = 0;
    current_channel = 3;
    commandToLED = k112233;
    EXPECT_EQ(transcriptOf([] { processCmdFromLocal(0x68, 1, 0, 0x0F, 0x0A); }),
              "process local cmd: 68 01 00 0f 0a\r\nread device type\n> <F00226801263300e4>\n");
    EXPECT_EQ(bytesOf(commandToLED), (Bytes{0, 0x22, 0x68, 1, 0, 0x0F, 0x0A, 0x88}));
    // It has no channel, frame or time of its own.
    EXPECT_EQ(current_channel, 3);
    EXPECT_TRUE(channel[0]->lastTime == 0 && channel[3]->lastTime == 0);
    EXPECT_EQ(mirror(), "ab");
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

TEST_F(Reception, TakesBackThePartOfAFrameThatFoundRoom)
{
    for (uint32_t room = 0; room <= 22; ++room) {
        SCOPED_TRACE(room);
        expect({{kVersion, kVersionDone, fillMirror(4095 - room)}});
        const std::string before = fillMirror(4095 - room) + std::string("abc").substr(0, room);
        expect({{"abc" + kVersion, kVersionDone, before}});
        for (size_t cut = room + 1; cut < 19; ++cut) { // its start finds little room
            SCOPED_TRACE(cut);
            const std::string filled = fillMirror(4095 - room);
            expect({{kVersion.substr(0, cut), "", filled + kVersion.substr(0, room)},
                    {kVersion.substr(cut), kVersionDone, ""}});
        }
    }
}

// Against a model --------------------------------------------------------------------------------

// What the module does, told with strings instead of rings and states.
class Model {
public:
    Calls answers;
    size_t current = 0; // the channel of the last command that was executed
    std::array<std::string, 10> queues;
    std::vector<std::pair<char, unsigned>> mirror; // bytes, and the frame in the making of each

    void serve()
    {
        for (size_t i = 0; i < queues.size(); ++i) {
            std::string &queue = queues[i];
            size_t taken = 0;
            while (taken < queue.size() && take(i, queue[taken++])) {
            }
            queue.erase(0, taken);
        }
    }

    std::string pending() const
    {
        std::string all;
        for (const auto &[byte, run] : mirror) {
            all += byte;
        }
        return all;
    }

private:
    // Takes a byte from a source. False when a wrong checksum ends the turn.
    bool take(size_t i, char byte)
    {
        if (byte == '<' || i != mirrored_) {
            ++run_;
            mirrored_ = i;
        }
        if (mirror.size() < 4095) {
            mirror.emplace_back(byte, run_);
        }
        std::string &taken = taken_[i];
        taken += byte;
        const size_t start = taken.rfind('<');
        if (start == taken.npos || taken.size() - start != 19 || taken[start + 1] != 'T') {
            return true;
        }
        const auto answer = [&](const std::string &frame) {
            answers.push_back({"uart " + std::to_string(i), frame});
        };
        if (byte != '>') {
            answer(refusal(previous_));
        }
        Rs232Command record;
        StrToRs232Command(taken.c_str() + start, &record);
        taken.clear();
        std::memcpy(previous_.data(), &record, previous_.size());
        if (sumOf(std::string(previous_.begin(), previous_.end())) != record.checksum) {
            answer(refusal(previous_));
            return false;
        }
        std::erase_if(mirror, [&](const auto &each) { return each.second == run_; });
        ++run_;
        current = i;
        const bool isVersion = record.command == 0x6A && record.dat1 == 3;
        answer(isVersion ? replyFrame({record.address, record.tag, 0x6A, 3, 1, 10, 0})
                         : refusal(previous_));
        return true;
    }

    std::array<std::string, 10> taken_; // since the last frame
    size_t mirrored_ = 0;
    unsigned run_ = 0;
    Parameters previous_{};
};

// Gives numbers from 0 to `limit` - 1.
auto dice(std::mt19937 *random)
{
    return [random](uint32_t limit) { return static_cast<uint32_t>((*random)() % limit); };
}

// What a line may carry: mostly frames, whole and broken.
std::string randomTraffic(std::mt19937 *random)
{
    const auto below = dice(random);
    const auto anyByte = [random] { return static_cast<uint8_t>((*random)()); };
    const std::string frame =
        commandFrame({anyByte(), anyByte(), below(2) ? uint8_t{0x6A} : uint8_t{0xFB},
                      static_cast<uint8_t>(below(4)), anyByte(), anyByte(), anyByte()});
    std::string garbage;
    for (uint32_t count = below(40); count > 0; --count) {
        garbage += below(8) ? static_cast<char>(anyByte()) : "<T>0"[below(4)];
    }
    const size_t at = below(19);
    switch (below(10)) {
    case 0:
        return frame.substr(0, at) + static_cast<char>(anyByte()) + frame.substr(at + 1);
    case 1:
        return withEnd(frame, static_cast<char>(anyByte()));
    case 2:
        return frame.substr(0, at);
    case 3:
        return frame.substr(at);
    case 4:
        return garbage;
    default:
        return frame;
    }
}

void compareWithModel()
{
    constexpr struct {
        const char *name;
        uint32_t sources;
        uint32_t passesPerDrain; // how rarely the PC's bytes are sent
        bool fillsTheMirror;
    } kRuns[] = {{"every pass is sent", 1, 1, false},
                 {"several channels", 10, 2, false},
                 {"sending is slow", 3, 40, false},
                 {"the mirror runs full", 2, 1000, true}};
    std::mt19937 random(1);
    const auto below = dice(&random);
    Model model;
    std::array<std::string, 10> lines; // traffic on its way
    for (uint64_t port = 0; port < lines.size(); ++port) {
        arrive("", port);
    }
    for (const auto &run : kRuns) {
        SCOPED_TRACE(run.name);
        size_t fullest = 0;
        size_t answers = 0;
        for (int step = 0; step < kRandomSteps; ++step) {
            const uint32_t source = below(run.sources);
            std::string &line = lines[source];
            while (line.size() < 60) {
                line += randomTraffic(&random);
            }
            const std::string part = line.substr(0, below(60));
            line.erase(0, part.size());
            arrive(part, source);
            model.queues[source] += part;
            if (below(2) == 0) {
                TaskCommand();
                model.serve();
                const Calls expected = std::exchange(model.answers, {});
                ASSERT_EQ(takeSent(), expected) << "step " << step;
                ASSERT_EQ(mirror(), model.pending()) << "step " << step;
                ASSERT_EQ(current_channel, model.current) << "step " << step;
                fullest = std::max(fullest, mirror().size());
                answers += expected.size();
            }
            if (below(2 * run.passesPerDrain) == 0) {
                ASSERT_EQ(drainToPC(), model.pending()) << "step " << step;
                model.mirror.clear();
            }
        }
        EXPECT_GT(answers, kRandomSteps / 8u);
        EXPECT_TRUE(fullest == 4095 || !run.fillsTheMirror) << fullest;
    }
}

TEST_F(Reception, AnswersAndMirrorsAsTheModelDoes)
{
    printedBy(compareWithModel); // the transcript of so many refusals is not compared
}

// Two threads ------------------------------------------------------------------------------------

// What `action` does to the atomics of channel 0, in order.
std::string accessesOf(const std::function<void()> &action)
{
    std::string notes;
    onAtomicAccess = [&](const char *access, const void *what, std::memory_order order) {
        const Channel *const slot = channel[0];
        const std::map<const void *, std::string> names = {
            {&slot->type, "type"}, {&slot->address, "address"}, {&slot->lastTime, "lastTime"}};
        if (names.contains(what)) {
            notes += std::string(notes.empty() ? "" : ", ") + access + ' ' + names.at(what);
            notes += order == std::memory_order_acquire   ? " acquire"
                     : order == std::memory_order_release ? " release"
                                                          : "";
        }
    };
    action();
    onAtomicAccess = nullptr;
    return notes;
}

// No thread may see a new type with an old address, nor evict by a time that is not there yet.
TEST_F(Reception, OrdersTheAccessesOfBothThreadsToAChannel)
{
    // clang-format off
    const struct {
        const char *name;
        void (*action)();
        const char *accesses;
    } rows[] = {
        {"find",     [] { getUsedChannel(2, 0); },  "load type acquire, load address"},
        {"mismatch", [] { getUsedChannel(0, 0); },  "load type acquire"},
        {"reply",    [] { commandFrom = 0;
                          SendBufferToPC(nullptr, 0); }, "load type acquire, load address"},
        {"kind",     [] { get_channel_type(); },    "load type acquire"},
        {"serve",    [] { uart0Touart = 1;
                          TaskCommand(); },         "store lastTime release"},
        {"evict",    [] { getFreeChannel(2, 99); },
         "load type, load lastTime acquire, store address, store type release"},
        {"bind",     [] { channel[0]->type = 5;
                          getFreeChannel(2, 0); },  "load type, store address, store type release"},
    };
    // clang-format on
    arrive(kVersion, 0);
    for (uint64_t port = 1; port < 10; ++port) {
        arrive("", port);
        channel[port]->lastTime = kNow;
    }
    for (const auto &row : rows) {
        EXPECT_EQ(accessesOf(row.action), row.accesses) << row.name;
    }
}

// A second thread queues numbered frames: of one source, in parts of any length; or whole ones of
// thirteen, which evict each other.
std::vector<uint32_t> executedOf(uint32_t sources)
{
    std::atomic<uint32_t> answered = 0;
    std::thread receiver([&] {
        std::mt19937 random(5);
        for (uint32_t made = 0; made < kThreadFrames; ++made) {
            while (made - answered > 200) { // nothing may be dropped
                sched_yield();
            }
            std::string frame = commandFrame(
                {static_cast<uint8_t>(made >> 8), static_cast<uint8_t>(made), 0x6A, 3, 0, 0, 0});
            const size_t part = sources == 1 ? random() % 19 : 0;
            arrive(frame.substr(0, part), made % sources);
            arrive(frame.substr(part), made % sources);
        }
    });
    std::vector<uint32_t> executed;
    while (executed.size() < kThreadFrames) {
        TaskCommand();
        for (const Sent &call : takeSent()) {
            const auto number = std::stoul(call.bytes.substr(2, 4), nullptr, 16);
            executed.push_back(static_cast<uint32_t>(number));
        }
        answered = static_cast<uint32_t>(executed.size());
        sched_yield();
    }
    receiver.join();
    return executed;
}

TEST_F(Reception, ExecutesEveryFrameThatAReceiveThreadQueues)
{
    std::vector<uint32_t> all(kThreadFrames);
    std::iota(all.begin(), all.end(), 0);
    EXPECT_EQ(executedOf(1), all); // in order
    EXPECT_EQ(mirror() + contentOf(channel[0]->pipe), "");
    printedBy([&] {
        std::vector<uint32_t> executed = executedOf(13);
        std::sort(executed.begin(), executed.end());
        EXPECT_EQ(executed, all);
    });
}

} // namespace
