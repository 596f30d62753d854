// A Mervo link as its owner runs it, to a simulated linked device on a simulated clock, and once to
// one at the far end of a serial line, with threads. Above all, nothing is lost: the device sees
// every command once and in order, and so does the link every answer.

#include "link/mervoProtocol.h"

#include <algorithm>
#include <array>
#include <deque>
#include <functional>
#include <optional>
#include <poll.h>
#include <random>
#include <sys/time.h>
#include <thread>
#include <utility>
#include <vector>

#include "core/pipe.h"
#include "core/systick.h"
#include "tests/support/bytes.h"
#include "tests/support/console.h"
#include "tests/support/replace.h"
#include "tests/support/soak.h"
#include "tests/support/terminal.h"
#include "transport/serial.h"

namespace {

using std::string_literals::operator""s;

// Of an address only the low 8 bits count. It is printed as 123.
constexpr uint8_t kDevice = 0x7B;
constexpr uint32_t kAddress = 0x100 + kDevice;

// Commands. Those from kWithBlock on have a data block of 1 to 128 bytes after them.
constexpr uint8_t kTell = 0x31;
constexpr uint8_t kAsk = 0x3F;
constexpr uint8_t kWithBlock = 0x80;
constexpr size_t kLongestBlock = 0x80;

// What the link's wait lasts, and how many commands it leaves unanswered before it waits.
constexpr uint32_t kAnswerMs = 3000;
constexpr uint32_t kUnheld = 29;

// The running number of a command, from 0 on, is its data 1 to 4, data 1 lowest; its sequence
// number is one more. The answer's data is never 0.
constexpr uint32_t answerTo(uint32_t index)
{
    return index ^ 0xE1D2C3B4;
}

uint32_t dataOf(const uint8_t *bytes)
{
    return static_cast<uint32_t>(bytes[3] | bytes[4] << 8 | bytes[5] << 16) |
           static_cast<uint32_t>(bytes[6]) << 24;
}

std::string frame(char kind, uint8_t number, uint8_t command, uint32_t data, uint8_t wrong = 0)
{
    std::string bytes = {static_cast<char>(kDevice), static_cast<char>(number),
                         static_cast<char>(command)};
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(data >> shift);
    }
    bytes = withChecksum(bytes);
    bytes.back() = static_cast<char>(bytes.back() + wrong);
    return std::string("<") + kind + hex(bytes) + ">";
}

// The data block of command `index`; of one without, nothing.
std::string blockOf(uint32_t index, size_t length)
{
    std::string block;
    for (size_t place = 0; place + 1 < length; ++place) {
        block += static_cast<char>(index + 7 * place);
    }
    return length == 0 ? "" : withChecksum(block);
}

// The simulated clock --------------------------------------------------------------------------

int64_t nowUs = 1'000'000'000;
std::function<void()> onPass; // what the time that passes brings; empty: the clock is the real one

void pass(int64_t us)
{
    nowUs += us;
    onPass();
}

} // namespace

REPLACE(int, gettimeofday, (timeval * now, void *zone))
{
    if (!onPass) {
        return REAL(gettimeofday)(now, zone);
    }
    *now = {nowUs / 1'000'000, nowUs % 1'000'000};
    return 0;
}

REPLACE(int, usleep, (useconds_t us))
{
    if (!onPass) {
        return REAL(usleep)(us);
    }
    pass(us);
    return 0;
}

namespace {

// The linked device ----------------------------------------------------------------------------

// How the device takes the next `count` commands; its last turn goes on for ever.
//
//   at-once  each command is answered when it comes
//   silent   no command is answered
//   late     each is answered `ms` milliseconds after it has come
//   held     the answers are held back until the first command of the next turn has come
//   garbage  as at-once, but there is garbage before each answer, whose checksum is wrong
//   bursts   some answers, 30 the first time and then any number up to 30, go out together; kAsk
//            and the end of the turn do not wait for more
struct Turn {
    std::string_view mode;
    uint32_t count;
    uint32_t ms = 0;
};
using Plan = std::vector<Turn>;

// It shares no code with the link.
class Device {
public:
    Device(Plan plan, uint32_t seed) : turns(std::move(plan)), random(seed) {}

    // Takes bytes from the line: the next command must be the next one of all.
    void take(std::string_view bytes)
    {
        input += bytes;
        while (input.size() >= 19) {
            const auto command =
                static_cast<uint8_t>(std::strtoul(input.substr(6, 2).c_str(), nullptr, 16));
            const size_t blockLength = command < kWithBlock ? 0 : 1u + command - kWithBlock;
            if (input.size() < 19 + blockLength) {
                return;
            }
            const std::string got = input.substr(0, 19 + blockLength);
            const auto number = static_cast<uint8_t>(commands + 1);
            input.erase(0, got.size());
            if (got != frame('T', number, command, commands) + blockOf(commands, blockLength) &&
                fault.empty()) {
                fault = got + " for command " + std::to_string(commands);
            }
            blocks += blockLength > 0 ? 1 : 0;
            if (taken == turns[turn].count && turn + 1 < turns.size()) {
                release();
                ++turn;
                taken = 0;
            }
            ++taken;
            answer(number, command, answerTo(commands++));
        }
    }

    // The next bytes to the line, if it is their time.
    std::string *due()
    {
        while (!output.empty() && output.front().second.empty()) {
            output.pop_front();
        }
        return output.empty() || output.front().first > nowUs ? nullptr : &output.front().second;
    }

    std::string input; // an unfinished command
    std::string fault; // the first that was not as it must be
    uint32_t commands = 0;
    uint32_t blocks = 0;

private:
    void answer(uint8_t number, uint8_t command, uint32_t data)
    {
        const Turn &now = turns[turn];
        if (now.mode == "held" || now.mode == "bursts") {
            kept += frame('F', number, command, data);
            if (now.mode == "bursts" &&
                (kept.size() >= 19 * burst || taken == now.count || command == kAsk)) {
                release();
                burst = 1 + below(30);
            }
        } else if (now.mode == "garbage") {
            std::string text =
                frame('F', number, command, data, static_cast<uint8_t>(1 + below(255)));
            if (below(2) == 0) { // both cases are good in an answer
                std::transform(text.begin() + 2, text.end(), text.begin() + 2, toupper);
            }
            send(garbage() + text, 0);
        } else if (now.mode != "silent") {
            send(frame('F', number, command, data), now.ms);
        }
    }

    // Sends the answers that were kept: at once, or every other time in parts that have nothing to
    // do with frames.
    void release()
    {
        if (kept.empty()) {
            return;
        }
        std::string text = std::exchange(kept, {});
        inParts = !inParts;
        for (uint32_t ms = 0; inParts && !text.empty(); ++ms) {
            const size_t length = std::min<size_t>(text.size(), 1 + below(40));
            send(text.substr(0, length), ms);
            text.erase(0, length);
        }
        send(text, 0);
    }

    // Answers stay in order when the delay becomes shorter.
    void send(const std::string &text, uint32_t ms)
    {
        latest = std::max(latest, nowUs + int64_t{1000} * ms);
        output.emplace_back(latest, text);
    }

    uint32_t below(uint32_t limit)
    {
        return static_cast<uint32_t>(random()) % limit;
    }

    // Much in it is nearly an answer, and nothing one: no "<F", 16 characters other than "<", ">".
    std::string garbage()
    {
        const auto hasAnswer = [](std::string_view text) {
            for (size_t at = 0; (at = text.find("<F", at)) != text.npos; ++at) {
                const std::string_view rest = text.substr(at, 19);
                if (rest.size() == 19 && rest.back() == '>' && rest.find('<', 1) == rest.npos) {
                    return true;
                }
            }
            return false;
        };
        std::string text;
        do {
            text = pieceOfGarbage() + pieceOfGarbage() + pieceOfGarbage();
        } while (hasAnswer(text));
        return text;
    }

    std::string pieceOfGarbage()
    {
        std::string text = frame('F', static_cast<uint8_t>(random()),
                                 static_cast<uint8_t>(random()), static_cast<uint32_t>(random()));
        const size_t at = below(18);
        switch (below(5)) {
        case 0: // cut short
            return text.substr(0, 1 + at);
        case 1: // something too much
            return text.insert(at, 1, "<0"[below(2)]);
        case 2: // something too little
            return text.erase(at, 1) + "\r\n";
        case 3: // something else
            text[at] = "TGf0><"[below(6)];
            return text;
        default: // what frames are made of, and anything
            text.resize(below(60));
            for (char &character : text) {
                character = below(2) == 0 ? "<F>T0123456789abcdef<F><F"[below(25)]
                                          : static_cast<char>(below(256));
            }
            return text;
        }
    }

    std::deque<std::pair<int64_t, std::string>> output; // by the time at which it is due
    int64_t latest = 0;
    std::string kept; // answers that are held back
    uint32_t burst = 30;
    bool inParts = true;
    Plan turns;
    size_t turn = 0;
    uint32_t taken = 0; // commands of this turn
    std::minstd_rand random;
};

// The link and its owner -----------------------------------------------------------------------

std::optional<Device> device;
std::vector<uint32_t> answers; // by the running numbers of their commands, as they were delivered
int serialLine = -1;

void onAnswer(MervoLink *link, const uint8_t *answer)
{
    EXPECT_EQ(link->acknowledged, answer[1]);
    EXPECT_TRUE(std::equal(answer, answer + 8, link->lastAnswer));
    const uint32_t index = dataOf(answer) ^ answerTo(0);
    const bool isCommands = answer[2] == kTell || answer[2] == kAsk || answer[2] >= kWithBlock;
    const bool isRight = answer[0] == kDevice && answer[1] == static_cast<uint8_t>(index + 1);
    answers.push_back(isRight && isCommands ? index : ~0u);
}

// A byte takes its time on the simulated line, as on a real one.
int32_t sendToDevice(const uint8_t *bytes, int32_t length)
{
    device->take({reinterpret_cast<const char *>(bytes), static_cast<size_t>(length)});
    pass(length * 87);
    return length;
}

int32_t sendToSerialLine(const uint8_t *bytes, int32_t length)
{
    return serial_write(serialLine, bytes, static_cast<uint32_t>(length));
}

// All modes in turn, 5000 commands a round. The device is silent in one round.
Plan manyTurns(uint32_t rounds, uint32_t silentRound)
{
    Plan plan;
    for (uint32_t round = 0; round < rounds; ++round) {
        const Plan more = {{"at-once", 1000}, {round == silentRound ? "silent" : "bursts", 40},
                           {"at-once", 960},  {"bursts", 1780},
                           {"garbage", 1000}, {"held", 20},
                           {"late", 200, 3}};
        plan.insert(plan.end(), more.begin(), more.end());
    }
    return plan;
}

// From start() to finish() the console is watched.
class SystemMervoLink : public testing::Test {
protected:
    void start(const Plan &devicePlan, uint32_t seed = 1)
    {
        onPass = [this] {
            for (std::string *bytes; (bytes = device->due()) != nullptr; bytes->erase(0, 1)) {
                if (pipe_write(&received, static_cast<uint8_t>(bytes->front())) == 0) {
                    return; // the line loses nothing: it waits while the pipe is full
                }
            }
        };
        startLink(devicePlan, seed, sendToDevice);
    }

    void startLink(const Plan &devicePlan, uint32_t seed,
                   int32_t (*toLine)(const uint8_t *, int32_t))
    {
        plan = devicePlan;
        device.emplace(plan, seed);
        answers.clear();
        sent = 0;
        blocksSent = 0;
        pipe_init(&received, storage.data(), static_cast<uint16_t>(storage.size()));
        Init_MervoProtocol(&link, &received, onAnswer, toLine);
        console.emplace();
    }

    // Every command of the plan, and no other, must have reached the device well; every answer must
    // have been delivered; and the console shows `printed` and nothing else.
    void finish(const std::string &printed = "")
    {
        console->end();
        EXPECT_EQ(console->out, printed);
        EXPECT_EQ(console->err, "");
        std::vector<uint32_t> answered;
        uint32_t index = 0;
        for (const Turn &turn : plan) {
            for (uint32_t end = index + turn.count; index < end; ++index) {
                if (turn.mode != "silent") {
                    answered.push_back(index);
                }
            }
        }
        EXPECT_EQ(answers, answered);
        EXPECT_EQ(sent, index) << "the case is wrong";
        EXPECT_EQ(device->fault + device->input, "");
        EXPECT_EQ(device->commands, index);
        EXPECT_EQ(device->blocks, blocksSent);
    }

    // Parses all whole answers that are there, as an owner's loop does.
    void parse()
    {
        for (size_t before = ~size_t{0}; answers.size() != before;) {
            before = answers.size();
            Task_MervoProtocol(&link);
        }
    }

    // Parses until `count` answers have been delivered since the start.
    void awaitAnswers(size_t count)
    {
        const uint32_t start = GetSysTick();
        for (parse(); answers.size() < count; parse()) {
            ASSERT_LT(GetSysTick() - start, 60000u) << answers.size() << " answers of " << count;
            SysDelay1ms(1);
        }
    }

    // The operations that send, each with the next running number as data. Of data only the low 8
    // bits count.
    template <typename Operation, typename... Block>
    auto send(Operation operation, size_t command, Block... block)
    {
        const uint32_t index = sent++;
        return operation(&link, kAddress, static_cast<uint32_t>(command), index, index >> 8,
                         index >> 16, index >> 24, block...);
    }
    int32_t sendCmd()
    {
        return send(SendCmd_MervoProtocol, kTell);
    }
    int32_t sendBlock(size_t length)
    {
        ++blocksSent;
        const std::string expected = blockOf(sent, length);
        std::string block = expected;
        block.back() = static_cast<char>(block.back() + 1); // anything else
        const int32_t result =
            send(SendCmdAndDataBlock_MervoProtocol, kWithBlock + length - 1,
                 reinterpret_cast<uint8_t *>(block.data()), static_cast<int32_t>(length));
        EXPECT_EQ(block, expected);
        return result;
    }

    // Sends a command and parses the first answer of all, or that of a device silent before.
    void awaitFirstAnswer()
    {
        const size_t before = answers.size();
        EXPECT_EQ(send(SendCmdNoWait_MervoProtocol, kTell), 1);
        awaitAnswers(before + 1);
        ASSERT_EQ(link.answered, 1);
    }

    // Sends a command and takes its answer, and with it all that were outstanding.
    void ask()
    {
        const uint32_t index = sent;
        ASSERT_EQ(send(SendCmdAndWait_MervoProtocol, kAsk), answerTo(index)) << index;
    }

    // Sends `count` commands, with all operations, to a device that answers. There is room for
    // another after each.
    void sendMixed(uint32_t count)
    {
        for (uint32_t i = 0; i < count; ++i) {
            if (sent % 1000 == 500) {
                ASSERT_NO_FATAL_FAILURE(ask()); // else nothing would hold it up from now on
            } else if (sent % 10 == 7) {
                ASSERT_EQ(sendBlock(1 + sent / 10 % kLongestBlock), 1) << sent;
            } else {
                ASSERT_EQ(sendCmd(), 1) << sent;
            }
            ASSERT_EQ(canSendCmd_mervo(&link, kAddress), 1) << sent;
            parse();
        }
    }

    // Sends `count` commands to a device that has answered all before them and answers none of
    // them. Only the 30th is held; returns the message that it must have caused.
    std::string sendToSilent(uint32_t count)
    {
        const size_t before = answers.size();
        std::string message;
        for (uint32_t i = 1; i <= count; ++i) {
            const uint32_t start = GetSysTick();
            const int32_t result = sendCmd();
            const bool isHeld = GetSysTick() - start >= kAnswerMs;
            EXPECT_EQ(isHeld, i == kUnheld + 1) << i;
            EXPECT_EQ(result, isHeld ? 0 : 1) << i;
            EXPECT_EQ(link.answered, i <= kUnheld ? 1 : 0) << i;
            if (isHeld) {
                message = "1. can't receive 123 = " + std::to_string(sent % 256) + "\r\n";
            }
            parse();
        }
        EXPECT_EQ(answers.size(), before);
        return message;
    }

    // Ends with commands to a device that answers, the last of which takes all answers.
    void finishWith(uint32_t count, const std::string &printed = "")
    {
        sendMixed(count - 1);
        ask();
        finish(printed);
    }

    // Sends all commands of the plan. Returns the messages of those that are held in silent turns.
    std::string sendAll()
    {
        std::string messages;
        size_t answered = 0;
        for (const Turn &turn : plan) {
            if (HasFatalFailure()) {
                break;
            }
            if (turn.mode == "silent") {
                awaitAnswers(answered);
                messages += sendToSilent(turn.count);
                continue;
            }
            const uint32_t end = sent + turn.count;
            if (link.answered == 0) { // until the device answers, its sender is not held at all
                awaitFirstAnswer();
            }
            sendMixed(end - sent);
            answered += turn.count;
        }
        awaitAnswers(answered);
        return messages;
    }

    Plan plan;
    std::array<uint8_t, 1024> storage{};
    struct pipe received;
    MervoLink link;
    std::optional<Console> console;
    uint32_t sent = 0;
    uint32_t blocksSent = 0;
};
using SystemMervoLinkSoak = SystemMervoLink;

} // namespace

TEST(SystemLinkedDevice, NoticesWhatIsLostDoubledSwappedOrWrong)
{
    const auto tell = [](uint8_t number, uint8_t index) {
        return frame('T', number, kTell, index);
    };
    const std::string good = tell(1, 0);
    const auto with = [&](size_t place, char character) {
        return std::string(good).replace(place, 1, 1, character);
    };
    const auto block = [](const char *afterZero, size_t length = 6) {
        return frame('T', 1, 0x86, 0) + '\0' + std::string(afterZero, length);
    };
    const struct {
        const char *name;
        std::string bytes;
        bool isGood = false;
    } kRows[] = {
        {"a command", good, true},
        {"two", good + tell(2, 1), true},
        {"one lost", good + tell(3, 2)},
        {"one doubled", good + good},
        {"swapped", tell(2, 1) + good},
        {"the index", tell(1, 1)},
        {"the number", tell(2, 0)},
        {"for somebody else", "<T7a013100000000ac>"},
        {"a checksum", with(17, 'f')},
        {"another header", with(1, 'F')},
        {"another end", with(18, '<')},
        {"upper case", with(3, 'B')},
        {"stray bytes", "ab>" + good},
        {"an unfinished command", good + "<T7b"},
        {"a block", block("\x07\x0E\x15\x1C\x23\x69"), true},
        {"the sum of a block", block("\x07\x0E\x15\x1C\x23\x68")},
        {"a byte of a block", block("\x07\x0E\x15\x1D\x23\x6A")},
        {"a byte less of a block", block("\x07\x0E\x15\x1C\x46", 5) + good},
    };
    for (const auto &[name, bytes, isGood] : kRows) {
        Device noticing({{"silent", 100}}, 1);
        noticing.take(bytes);
        EXPECT_EQ(noticing.fault.empty() && noticing.input.empty(), isGood) << name;
    }
}

TEST_F(SystemMervoLink, BringsDataBlocksOfEveryLength)
{
    start({{"at-once", 3 * kLongestBlock + 1}});
    // No command has been answered when the first block has gone.
    EXPECT_EQ(sendBlock(kLongestBlock), 0);
    awaitAnswers(1);
    for (size_t i = 1; i < 3 * kLongestBlock; ++i) {
        ASSERT_EQ(sendBlock(1 + i % kLongestBlock), 1);
        ASSERT_EQ(canSendCmd_mervo(&link, kAddress), 1);
        parse();
    }
    ask();
    finish();
}

TEST_F(SystemMervoLink, DeliversAnswersThatComeWhenTheSenderHasGivenUp)
{
    start({{"at-once", 1}, {"held", 40}, {"at-once", 101}});
    awaitFirstAnswer();
    const std::string message = sendToSilent(40);
    EXPECT_EQ(message, "1. can't receive 123 = 31\r\n");
    EXPECT_EQ(sendCmd(), 1);
    awaitAnswers(42);
    EXPECT_EQ(link.answered, 1);
    finishWith(100, message);
}

TEST_F(SystemMervoLink, DeliversEveryAnswerOnceAndInOrderHoweverItComes)
{
    for (const Turn &turn :
         Plan{{"at-once", 2000}, {"late", 1000, 5}, {"garbage", 3000}, {"bursts", 3000}}) {
        SCOPED_TRACE(turn.mode);
        start({{"at-once", 1}, turn});
        awaitFirstAnswer();
        finishWith(turn.count);
    }
}

// 10,000 commands; under scripts/soak 100,000 at a time.
TEST_F(SystemMervoLinkSoak, LosesNothingWhateverTheDeviceDoes)
{
    const bool isLong = soakSeconds() > 0;
    SoakRun run(1);
    while (run.goesOn()) {
        start(isLong ? manyTurns(20, 5) : manyTurns(2, 1), run.seed + run.rounds);
        const std::string messages = sendAll();
        const char *const number = isLong ? "174" : "142"; // of commands 26,030 and 6,030
        EXPECT_EQ(messages, "1. can't receive 123 = "s + number + "\r\n");
        finish(messages);
        ASSERT_FALSE(HasFailure()) << "round " << run.rounds;
    }
}

// On the real clock, with the device and the receiver on threads of their own.
TEST_F(SystemMervoLink, LosesNothingOnASerialLine)
{
    const Terminal terminal;
    const int far = terminal.master;
    startLink({{"at-once", 500}, {"garbage", 1000}}, 1, sendToSerialLine);
    serialLine = serial_open(terminal.path.c_str());
    ASSERT_EQ(serial_set(serialLine, 115200, 8, 'N', 1), 0);
    int stop[2];
    ASSERT_EQ(pipe2(stop, O_CLOEXEC), 0);
    // Hands what comes on a line on until the end of `stop` is closed.
    const auto carry = [&](int from, const std::function<void(std::string_view)> &take) {
        pollfd entries[] = {{from, POLLIN, 0}, {stop[0], POLLIN, 0}};
        while (poll(entries, 2, -1) > 0 && entries[1].revents == 0) {
            char bytes[300];
            const ssize_t count = read(from, bytes, sizeof bytes);
            take({bytes, static_cast<size_t>(std::max<ssize_t>(count, 0))});
        }
    };
    std::thread deviceThread([&] {
        carry(far, [&](std::string_view bytes) {
            device->take(bytes);
            for (std::string *text; (text = device->due()) != nullptr; text->clear()) {
                EXPECT_EQ(write(far, text->data(), text->size()),
                          static_cast<ssize_t>(text->size()));
            }
        });
    });
    std::thread receiver([&] {
        carry(serialLine, [&](std::string_view bytes) {
            for (const char byte : bytes) {
                while (pipe_write(&received, static_cast<uint8_t>(byte)) == 0) {
                    std::this_thread::yield();
                }
            }
        });
    });
    awaitFirstAnswer();
    sendMixed(1498);
    ask();
    close(stop[1]);
    deviceThread.join();
    receiver.join();
    finish("Open " + terminal.path + " ......\nfcntl = 0 !\nserial_open file ID= " +
           std::to_string(serialLine) + " !\nserial_set success !\n");
}
