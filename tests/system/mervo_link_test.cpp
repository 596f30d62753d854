// A Mervo link as the owner of one would run it, to a simulated linked device at the far end of a
// serial line or a socket: real threads, the real clock, real sleeps. Above all, nothing is lost:
// the device sees every command once and in order, and so does the link every answer.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "core/pipe.h"
#include "core/systick.h"
#include "link/mervoProtocol.h"
#include "tests/support/console.h"
#include "tests/system/board.h"
#include "tests/system/linked_device.h"
#include "tests/system/linked_device_line.h"

namespace {

using std::chrono::steady_clock;

constexpr uint16_t kPipeSize = 1024;

// Of an address only the low 8 bits count.
constexpr uint32_t kAddress = 0x100 + kDeviceAddress;
constexpr char kAddressText[] = "123"; // as it is printed

// Commands that the device may leave unanswered before a sender waits for it.
constexpr uint32_t kUnheld = 29;

// What the link's waits last, in milliseconds.
constexpr uint32_t kAnswerMs = 3000;
constexpr uint32_t kNoDeviceMs = 20;

constexpr uint32_t kWrongAnswer = 0xFFFFFFFF;

std::vector<uint32_t> answers; // by the running numbers of their commands, as they were delivered

// Which command an answer is to, by its data; its other bytes must be that command's too.
uint32_t indexOf(const uint8_t *answer)
{
    const uint32_t index = dataOf(answer) ^ answerTo(0);
    const bool isCommands = answer[2] == kTell || answer[2] == kAsk || answer[2] >= kWithBlock;
    return answer[0] == kDeviceAddress && answer[1] == static_cast<uint8_t>(index + 1) && isCommands
               ? index
               : kWrongAnswer;
}

void onAnswer(MervoLink *link, const uint8_t *answer)
{
    EXPECT_EQ(link->acknowledged, answer[1]);
    EXPECT_TRUE(std::equal(answer, answer + 8, link->lastAnswer));
    answers.push_back(indexOf(answer));
}

// All modes in turn, 5000 commands a round. A silent device costs a sender 3 s, so that it is in
// one round only.
Plan manyTurns(uint32_t rounds, uint32_t silentRound)
{
    Plan plan;
    for (uint32_t round = 0; round < rounds; ++round) {
        plan.push_back({"at-once", 1000});
        plan.push_back({round == silentRound ? "silent" : "bursts", 40});
        plan.push_back({"at-once", 960});
        plan.push_back({"bursts", 1780});
        plan.push_back({"garbage", 1000});
        plan.push_back({"held", 20});
        plan.push_back({"late", 200, 3});
    }
    return plan;
}

// A device, a line to it and a link on that line, with everything that its owner does.
class SystemMervoLink : public testing::Test {
protected:
    void start(const Plan &devicePlan)
    {
        startOn(serialLine(), devicePlan);
    }

    // From here to finish() the console is watched.
    void startOn(Line newLine, const Plan &devicePlan)
    {
        answers.clear();
        plan = devicePlan;
        line.emplace(std::move(newLine));
        device.emplace(&*line, plan);
        sendOn(*line);
        pipe_init(&received, storage.data(), kPipeSize);
        Init_MervoProtocol(&link, &received, onAnswer, line->send);
        receiver.emplace(*line, &received);
        console.emplace();
    }

    // Ends it all. Every command of the plan, and no other, must have reached the device well;
    // every answer must have been delivered; and the console shows `printed` and nothing else.
    void finish(const std::string &printed = "")
    {
        receiver.reset();
        line.reset();
        const std::string report = device->report();
        console->end();
        EXPECT_EQ(console->out, printed);
        EXPECT_EQ(console->err, "");
        console.reset();

        const std::vector<uint32_t> expected = answeredIn(plan);
        EXPECT_EQ(answers, expected);
        EXPECT_EQ(sent, commandsOf(plan)) << "the case is wrong";
        DeviceReport seen;
        seen.commands = commandsOf(plan);
        seen.blocks = blocksSent;
        seen.answers = static_cast<uint32_t>(expected.size());
        for (const Turn &turn : plan) {
            seen.garbagePieces += turn.mode == "garbage" ? kGarbagePieces * turn.count : 0;
            seen.largestBurst = std::max(seen.largestBurst, turn.mode == "bursts" ? kLargestBurst
                                                            : turn.mode == "held" ? turn.count
                                                                                  : 0);
        }
        EXPECT_EQ(report, textOf(seen));
    }

    void TearDown() override
    {
        if (console) { // a case was left early, and said why while the console was watched
            console->end();
            std::printf("%s%s", console->out.c_str(), console->err.c_str());
        }
    }

    // Parses all whole answers that are there, as an owner's loop does.
    void parse()
    {
        size_t before = 0;
        do {
            before = answers.size();
            Task_MervoProtocol(&link);
        } while (answers.size() > before);
    }

    // Parses until `count` answers have been delivered since the start.
    void awaitAnswers(size_t count)
    {
        const auto end = steady_clock::now() + kPatience;
        for (parse(); answers.size() < count; parse()) {
            ASSERT_LT(steady_clock::now(), end) << answers.size() << " answers of " << count;
            std::this_thread::sleep_for(milliseconds(1));
        }
    }

    // The operations that send, each with the next running number as data. Of data only the low 8
    // bits count.
    int32_t sendNoWait()
    {
        const uint32_t index = sent++;
        return SendCmdNoWait_MervoProtocol(&link, kAddress, kTell, index, index >> 8, index >> 16,
                                           index >> 24);
    }

    int32_t sendCmd()
    {
        const uint32_t index = sent++;
        return SendCmd_MervoProtocol(&link, kAddress, kTell, index, index >> 8, index >> 16,
                                     index >> 24);
    }

    int32_t sendBlock(size_t length)
    {
        const uint32_t index = sent++;
        ++blocksSent;
        std::vector<uint8_t> block(length);
        uint8_t sum = 0;
        for (size_t place = 0; place + 1 < length; ++place) {
            block[place] = blockByte(index, place);
            sum = static_cast<uint8_t>(sum + block[place]);
        }
        block.back() = static_cast<uint8_t>(sum + 1); // anything else
        const int32_t result = SendCmdAndDataBlock_MervoProtocol(
            &link, kAddress, commandWithBlock(length), index, index >> 8, index >> 16, index >> 24,
            block.data(), static_cast<int32_t>(length));
        EXPECT_EQ(block.back(), sum);
        return result;
    }

    uint32_t sendAndWait()
    {
        const uint32_t index = sent++;
        return SendCmdAndWait_MervoProtocol(&link, kAddress, kAsk, index, index >> 8, index >> 16,
                                            index >> 24);
    }

    // Sends a command and parses the first answer of all.
    void awaitFirstAnswer()
    {
        EXPECT_EQ(sendNoWait(), 1);
        awaitAnswers(1);
        ASSERT_EQ(link.answered, 1);
    }

    // Sends a command and takes its answer, and with it all that were outstanding.
    void ask()
    {
        const uint32_t index = sent;
        ASSERT_EQ(sendAndWait(), answerTo(index)) << index;
    }

    // Sends `count` commands, with all operations, to a device that answers. There is room for
    // another behind each.
    void sendMixed(uint32_t count)
    {
        for (uint32_t i = 0; i < count; ++i) {
            if (sent % 1000 == 500) {
                ask();
            } else if (sent % 10 == 7) {
                ASSERT_EQ(sendBlock(kShortestBlock + sent / 10 % kLongestBlock), 1) << sent;
            } else {
                ASSERT_EQ(sendCmd(), 1) << sent;
            }
            ASSERT_EQ(canSendCmd_mervo(&link, kAddress), 1) << sent;
            parse();
        }
    }

    // Sends `count` commands to a device that has answered all before them and answers none of
    // them. Only the 30th is held; returns the message that it must have caused, which has that
    // number. After it the operation returns `resultUnheld`.
    std::string sendToSilent(uint32_t count, const std::function<int32_t()> &operation,
                             const std::string &number, int32_t resultUnheld)
    {
        const size_t before = answers.size();
        std::string message;
        for (uint32_t i = 1; i <= count; ++i) {
            const uint32_t start = GetSysTick();
            const int32_t result = operation();
            if (i <= kUnheld) {
                EXPECT_EQ(result, 1) << i;
            } else if (i > kUnheld + 1) {
                EXPECT_EQ(result, resultUnheld) << i;
            } else {
                EXPECT_EQ(result, 0);
                EXPECT_GE(GetSysTick() - start, kAnswerMs);
                message = number + ". can't receive " + kAddressText + " = " +
                          std::to_string(sent % 256) + "\r\n";
            }
            EXPECT_EQ(link.answered, i <= kUnheld ? 1 : 0) << i;
            parse();
        }
        EXPECT_EQ(answers.size(), before);
        return message;
    }

    // Sends all commands of the plan. Returns the messages of those that are held in silent turns.
    std::string sendAll()
    {
        std::string messages;
        size_t answered = 0;
        for (const Turn &turn : plan) {
            if (turn.mode != "silent") {
                // Until a device answers again, its sender is not held at all.
                const uint32_t first = link.answered == 0 ? 1 : 0;
                if (first > 0) {
                    EXPECT_EQ(sendCmd(), 1);
                    awaitAnswers(answered + 1);
                }
                sendMixed(turn.count - first);
                answered += turn.count;
            } else {
                awaitAnswers(answered);
                messages += sendToSilent(
                    turn.count, [this] { return sendCmd(); }, "1", 1);
            }
            if (HasFatalFailure()) {
                break;
            }
        }
        awaitAnswers(answered);
        return messages;
    }

    std::string noAnswerMessage(uint32_t acknowledged) const
    {
        return std::string("3. can't receive ") + kAddressText + " = " +
               std::to_string(sent % 256) + " " + std::to_string(acknowledged) + "\r\n";
    }

    Plan plan;
    std::optional<Line> line;
    std::optional<LinkedDevice> device;
    std::array<uint8_t, kPipeSize> storage{};
    struct pipe received;
    MervoLink link;
    std::optional<Receiver> receiver;
    std::optional<Console> console;
    uint32_t sent = 0;
    uint32_t blocksSent = 0;
};

} // namespace

// The device itself ------------------------------------------------------------------------------

TEST(SystemLinkedDevice, NoticesWhatIsLostDoubledSwappedOrWrong)
{
    Line line = socketLine();
    LinkedDevice device(&line, {{"silent", 100}});
    const auto tell = [](uint8_t number, uint8_t index) {
        return command({kDeviceAddress, number, kTell, index, 0, 0, 0});
    };
    constexpr uint8_t kSevenBytes = commandWithBlock(7);
    const auto withBlock = [](uint8_t number, uint8_t index, std::string_view block) {
        return command({kDeviceAddress, number, kSevenBytes, index, 0, 0, 0}).append(block);
    };
    std::string bytes = tell(1, 0) + tell(2, 1);
    bytes += tell(4, 3);                              // the one before is lost: 1 each
    bytes += tell(4, 3);                              // doubled: 1 each
    bytes += tell(6, 5) + tell(5, 4) + tell(7, 6);    // swapped: 3 each
    bytes += tell(8, 8) + tell(9, 9);                 // the index alone
    bytes += tell(11, 10);                            // the number alone
    bytes += command({0x7A, 12, kTell, 11, 0, 0, 0}); // for somebody else
    std::string wrong = tell(13, 12);
    wrong[17] = wrong[17] == '0' ? '1' : '0';
    bytes += wrong; // a checksum; neither number counts
    bytes += "ab>" + tell(13, 12);
    wrong = tell(14, 13);
    wrong[1] = 'F';
    bytes += wrong; // 1 malformed frame, and the rest of it stray bytes
    wrong = tell(14, 13);
    wrong[3] = 'B'; // upper case
    bytes += wrong;
    bytes += withBlock(14, 13, {"\x0D\x14\x1B\x22\x29\x30\xB7", 7});
    bytes += withBlock(15, 14, {"\x0E\x15\x1C\x23\x2A\x31\xBE", 7}); // the sum is BD
    bytes += withBlock(16, 15, {"\x0F\x16\x1D\x24\x2A\x32\xC2", 7}); // one byte short of 2B
    bytes += withBlock(17, 16, "<T7b");
    sendOn(line);
    ASSERT_EQ(line.send(reinterpret_cast<const uint8_t *>(bytes.data()),
                        static_cast<int32_t>(bytes.size())),
              static_cast<int32_t>(bytes.size()));
    line.ours.close();
    DeviceReport seen;
    seen.commands = 15;
    seen.blocks = 3;
    seen.strayBytes = 3 + 18 + 18;
    seen.malformedFrames = 2;
    seen.wrongChecksums = 1;
    seen.wrongAddresses = 1;
    seen.wrongNumbers = 1 + 1 + 3 + 1;
    seen.wrongIndexes = 1 + 1 + 3 + 1;
    seen.wrongBlocks = 2;
    seen.bytesLeftOver = 19 + 4;
    EXPECT_EQ(device.report(), textOf(seen));
}

// A device that answers at once ------------------------------------------------------------------

TEST_F(SystemMervoLink, DeliversEveryAnswerOnceAndInOrder)
{
    start({{"at-once", 2000}});
    awaitFirstAnswer();
    for (uint32_t i = 1; i < 1999; ++i) {
        ASSERT_EQ(sendCmd(), 1);
        ASSERT_EQ(canSendCmd_mervo(&link, kAddress), 1);
        parse();
    }
    ask();
    finish();
}

TEST_F(SystemMervoLink, BringsDataBlocksOfEveryLength)
{
    start({{"at-once", 3 * kLongestBlock + 1}});
    // No command has been answered when the first block has gone.
    EXPECT_EQ(sendBlock(kLongestBlock), 0);
    awaitAnswers(1);
    for (size_t i = 1; i < 3 * kLongestBlock; ++i) {
        ASSERT_EQ(sendBlock(kShortestBlock + i % kLongestBlock), 1);
        ASSERT_EQ(canSendCmd_mervo(&link, kAddress), 1);
        parse();
    }
    ask();
    finish();
}

TEST_F(SystemMervoLink, HandsAWaitingSenderItsAnswer)
{
    start({{"at-once", 60}});
    awaitFirstAnswer();
    while (sent < 60) {
        ask();
        EXPECT_EQ(answers.size(), sent);
    }
    finish();
}

TEST_F(SystemMervoLink, CarriesRawBytesBothWays)
{
    start({{"at-once", 1}});
    const std::string bytes = command({kDeviceAddress, 1, kTell, 0, 0, 0, 0});
    sent = 1;
    EXPECT_EQ(SendBuffer_MervoProtocol(&link, reinterpret_cast<const uint8_t *>(bytes.data()), 19),
              19);
    std::string answer(19, '\0');
    EXPECT_EQ(ReceiveBuffer_MervoProtocol(&link, reinterpret_cast<uint8_t *>(answer.data()), 19,
                                          static_cast<uint32_t>(kPatience.count())),
              19u);
    EXPECT_EQ(answer, reply({kDeviceAddress, 1, kTell, 0xB4, 0xC3, 0xD2, 0xE1}));
    EXPECT_EQ(answers, std::vector<uint32_t>()) << "raw bytes are not parsed";
    for (const char character : answer) {
        _interpret_cmd_char(&link, static_cast<uint8_t>(character));
    }
    finish();
}

// A silent device --------------------------------------------------------------------------------

TEST_F(SystemMervoLink, HoldsNoSenderWhileTheDeviceHasNeverAnswered)
{
    start({{"silent", 301}, {"at-once", 2}});
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(sendCmd(), 1);
        parse();
    }
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(sendBlock(5), 0) << "nobody has taken the block";
        parse();
    }
    const uint32_t start = GetSysTick();
    EXPECT_EQ(sendAndWait(), 0u);
    EXPECT_GE(GetSysTick() - start, kNoDeviceMs);
    EXPECT_LT(GetSysTick() - start, kAnswerMs);
    const std::string message = noAnswerMessage(0);
    awaitFirstAnswer();
    ask();
    finish(message);
}

TEST_F(SystemMervoLink, HoldsOnlyTheThirtiethCommandToADeviceThatFellSilent)
{
    start({{"at-once", 10}, {"silent", 100}, {"at-once", 201}});
    awaitFirstAnswer();
    sendMixed(8);
    ask();
    const std::string message = sendToSilent(
        100, [this] { return sendCmd(); }, "1", 1);
    EXPECT_EQ(message, "1. can't receive 123 = 40\r\n");

    // The first answer puts it right.
    EXPECT_EQ(sendCmd(), 1);
    awaitAnswers(11);
    EXPECT_EQ(link.answered, 1);
    sendMixed(199);
    ask();
    finish(message);
}

TEST_F(SystemMervoLink, HoldsOnlyTheThirtiethDataBlockToADeviceThatFellSilent)
{
    start({{"at-once", 10}, {"silent", 100}, {"at-once", 201}});
    awaitFirstAnswer();
    sendMixed(8);
    ask();
    const std::string message = sendToSilent(
        100, [this] { return sendBlock(20); }, "4", 0);
    EXPECT_EQ(message, "4. can't receive 123 = 40\r\n");
    EXPECT_EQ(sendBlock(20), 0) << "not parsed yet";
    awaitAnswers(11);
    EXPECT_EQ(link.answered, 1);
    sendMixed(199);
    ask();
    finish(message);
}

TEST_F(SystemMervoLink, WaitsLongOnlyOnceForTheAnswerOfADeviceThatFellSilent)
{
    start({{"at-once", 10}, {"silent", 10}, {"at-once", 102}});
    awaitFirstAnswer();
    sendMixed(8);
    ask();
    uint32_t start = GetSysTick();
    EXPECT_EQ(sendAndWait(), 0u);
    EXPECT_GE(GetSysTick() - start, kAnswerMs);
    std::string messages = "3. can't receive 123 = 11 10\r\n";
    const uint8_t kNone[8] = {};
    EXPECT_TRUE(std::equal(kNone, kNone + 8, link.lastAnswer));
    for (int i = 1; i < 10; ++i) {
        EXPECT_EQ(link.answered, 0);
        start = GetSysTick();
        EXPECT_EQ(sendAndWait(), 0u);
        EXPECT_GE(GetSysTick() - start, kNoDeviceMs);
        EXPECT_LT(GetSysTick() - start, kAnswerMs);
        messages += noAnswerMessage(10);
    }
    EXPECT_EQ(sendCmd(), 1);
    awaitAnswers(11);
    EXPECT_EQ(link.answered, 1);
    sendMixed(100);
    ask();
    finish(messages);
}

// A device that is late --------------------------------------------------------------------------

TEST_F(SystemMervoLink, DeliversLateAnswersToSendersThatGoOn)
{
    start({{"late", 1001, 5}});
    awaitFirstAnswer();
    sendMixed(999);
    ask();
    finish();
}

TEST_F(SystemMervoLink, WaitsForLateAnswersOfADeviceThatDoesAnswer)
{
    // Later than one that has never answered is waited for.
    start({{"late", 20, 2 * kNoDeviceMs}});
    awaitFirstAnswer();
    while (sent < 20) {
        const uint32_t start = GetSysTick();
        ask();
        EXPECT_GE(GetSysTick() - start, kNoDeviceMs);
    }
    finish();
}

TEST_F(SystemMervoLink, DeliversTheFirstAnswerToASenderThatDidNotWaitForIt)
{
    start({{"held", 1}, {"at-once", 2}});
    EXPECT_EQ(sendAndWait(), 0u);
    const std::string message = "3. can't receive 123 = 1 0\r\n";
    EXPECT_EQ(link.answered, 0);
    EXPECT_EQ(sendNoWait(), 1);
    awaitAnswers(2);
    ask();
    finish(message);
}

TEST_F(SystemMervoLink, DeliversAnswersThatComeWhenTheSenderHasGivenUp)
{
    start({{"at-once", 1}, {"held", 40}, {"at-once", 101}});
    awaitFirstAnswer();
    const std::string message = sendToSilent(
        40, [this] { return sendCmd(); }, "1", 1);
    EXPECT_EQ(message, "1. can't receive 123 = 31\r\n");
    EXPECT_EQ(sendCmd(), 1);
    awaitAnswers(42);
    EXPECT_EQ(link.answered, 1);
    sendMixed(99);
    ask();
    finish(message);
}

// A device that sends garbage, and one that answers in bursts ------------------------------------

TEST_F(SystemMervoLink, FindsTheAnswersInGarbage)
{
    start({{"garbage", 3000}});
    awaitFirstAnswer();
    sendMixed(2998);
    ask();
    finish();
}

TEST_F(SystemMervoLink, HandsAWaitingSenderItsAnswerFromGarbage)
{
    start({{"garbage", 60}});
    awaitFirstAnswer();
    while (sent < 60) {
        ask();
    }
    finish();
}

TEST_F(SystemMervoLink, TakesAnswersInBurstsOfUpToThirty)
{
    start({{"at-once", 1}, {"bursts", 3000}});
    awaitFirstAnswer();
    sendMixed(2999);
    ask();
    finish();
}

TEST_F(SystemMervoLink, HoldsTheThirtiethCommandUntilAnAnswerComes)
{
    start({{"at-once", 1}, {"held", 29}, {"at-once", 1}});
    awaitFirstAnswer();
    for (int i = 0; i < 29; ++i) {
        EXPECT_EQ(sendCmd(), 1);
    }
    EXPECT_EQ(answers.size(), 1u);
    // The thirtieth is what makes the device answer, and the sender waits for that.
    EXPECT_EQ(sendCmd(), 1);
    EXPECT_GE(answers.size(), 2u);
    awaitAnswers(31);
    finish();
}

// All of it --------------------------------------------------------------------------------------

TEST_F(SystemMervoLink, LosesNothingIn100000Commands)
{
    start(manyTurns(20, 5));
    ASSERT_EQ(commandsOf(plan), 100000u);
    const std::string messages = sendAll();
    EXPECT_EQ(messages, "1. can't receive 123 = 174\r\n"); // that is command 26,030
    finish(messages);
}

TEST_F(SystemMervoLink, LosesNothingOnASocket)
{
    startOn(socketLine(), manyTurns(2, 1));
    const std::string messages = sendAll();
    EXPECT_EQ(messages, "1. can't receive 123 = 142\r\n"); // that is command 6,030
    finish(messages);
}
