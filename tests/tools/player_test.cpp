// Playing transcripts: which steps hold, and what is said when one does not. The daemon is the test
// itself, on the far ends of two lines.

#include "tools/player.h"

#include <optional>
#include <sstream>

#include "tests/support/console.h"
#include "tests/tools/complaint.h"
#include "tests/tools/far_end.h"

namespace {

constexpr Milliseconds kTimeout{30};

constexpr char kLogPath[] = "/opt/scratch/vesk_h264.log";

std::vector<Step> stepsOf(const std::string &text)
{
    std::istringstream stream(text);
    return parseTranscript(stream, "file");
}

class PlayerTest : public testing::Test {
protected:
    PlayerTest()
    {
        std::ofstream(kLogPath).flush(); // there, and empty
        log.emplace(kLogPath);
        player.emplace(Desk{&front.line, &pc.line, &*log}, kTimeout);
    }

    void print(const std::string &text) const
    {
        std::ofstream(kLogPath, std::ios::app) << text;
    }

    // Performs the one step in `text`.
    std::string perform(const std::string &text)
    {
        return player->perform(stepsOf(text).at(0));
    }

    FarEnd front{SOCK_STREAM};
    FarEnd pc{SOCK_DGRAM};
    std::optional<LogFile> log;
    std::optional<Player> player;
};

TEST_F(PlayerTest, SendsBytesAndDatagrams)
{
    EXPECT_EQ(perform("front> a\\x00"), "");
    EXPECT_EQ(front.sent(), std::string("a\0", 2));
    EXPECT_EQ(perform("pc> one"), "");
    EXPECT_EQ(perform("pc> two"), "");
    EXPECT_EQ(pc.sent(), "one");
    EXPECT_EQ(pc.sent(), "two");
}

// clang-format off
TEST_F(PlayerTest, PerformsStepsOrSaysWhatCameInstead)
{
    constexpr struct {
        const char *front; // what arrives there before the step
        const char *pc;
        const char *step;
        const char *result;
    } kRows[] = {
        // The next bytes, whatever the borders of datagrams.
        {"abc", "",     "front< ab", ""},
        {"",    "",     "front< c",  ""},
        {"",    "ab",   "pc< a",     ""},
        {"",    "cd",   "pc< bc",    ""},
        {"",    "",     "pc< d",     ""},
        {"",    "",     "front< a",  "nothing came within 30 ms"},
        {"ab\r\n", "", "front< ax", "\"ab\\r\\n\" came"},
        {"",    "ab",   "pc< abc",   "only \"ab\" came within 30 ms"},
        // What is there is dropped.
        {"cd",  "",     "front*",    ""},
        {"",    "one",  "pc*",       ""},
        // Nothing means nothing; what came is still there to be read.
        {"",    "",     "front=",    ""},
        {"x",   "",     "front=",    "\"x\" came"},
        {"",    "",     "front< x",  ""},
        {"",    "",     "front=",    ""},
    };
    for (const auto &row : kRows) {
        if (*row.front != '\0') {
            front.arrive(row.front);
        }
        if (*row.pc != '\0') {
            pc.arrive(row.pc);
        }
        EXPECT_EQ(perform(row.step), row.result) << "row " << &row - kRows;
    }
    EXPECT_EQ(player->leftovers(), "");
    front.arrive("ab");
    pc.arrive("cd");
    EXPECT_EQ(player->leftovers(), "unread at the front board: \"ab\" came; "
                                   "unread at the PC: \"cd\" came");
}
// clang-format on

TEST_F(PlayerTest, FindsWholeLinesAfterTheLastOneFound)
{
    print("one\ntwo\r\nthree\non");
    EXPECT_EQ(perform("log< two"), "");
    EXPECT_EQ(perform("log< three"), "");
    EXPECT_EQ(perform("log< one"), "nothing was printed within 30 ms");
    EXPECT_EQ(perform("log< on"), "nothing was printed within 30 ms"); // its end is missing
    print("e\n");
    EXPECT_EQ(perform("log< one"), "");
}

TEST_F(PlayerTest, SaysWhatWasPrintedInstead)
{
    print("one\ntwo\nthree\nfour\n");
    EXPECT_EQ(perform("log< five"), "\"two\", \"three\", \"four\" was printed");
    // None of them has been found, so all are still to be had.
    EXPECT_EQ(perform("log< one"), "");
}

// Plays `text` on the given desk and returns the exit status and what was said.
std::string play(const std::string &text, const Desk &desk)
{
    Console console;
    const int status = playTranscript(stepsOf(text), "file", desk, kTimeout);
    console.end();
    return std::to_string(status) + "\n" + console.out + console.err;
}

TEST_F(PlayerTest, PrintsEveryStepAndTheVerdict)
{
    front.arrive("b");
    EXPECT_EQ(play("== Title\nfront> a\nfront< b\n", {&front.line, nullptr, nullptr}),
              "0\n\n== Title\n  ok    front> a\n  ok    front< b\n\nfile: all 2 steps held\n");
}

TEST_F(PlayerTest, EndsAtTheFirstStepThatDoesNotHold)
{
    EXPECT_EQ(play("front> a\nfront< b\nfront> c\n", {&front.line, nullptr, nullptr}),
              "1\n  ok    front> a\n  FAIL  front< b\n        nothing came within 30 ms\n"
              "veskctl: file:2: front< b: nothing came within 30 ms\n");
    EXPECT_EQ(front.sent(), "a");
}

TEST_F(PlayerTest, FailsAtTheEndForBytesThatWereNotRead)
{
    pc.arrive("x");
    EXPECT_EQ(play("pc> a\n", {nullptr, &pc.line, nullptr}),
              "1\n  ok    pc> a\n  FAIL  the end\n        unread at the PC: \"x\" came\n"
              "veskctl: file: at its end: unread at the PC: \"x\" came\n");
}

TEST_F(PlayerTest, RefusesToPlayWithoutWhatTheTranscriptNeeds)
{
    const auto complaint = [](const std::string &text) {
        return complaintOf([&] { playTranscript(stepsOf(text), "file", Desk{}, kTimeout); });
    };
    EXPECT_EQ(complaint("front> a"), "line 1 needs --serial: front> a");
    EXPECT_EQ(complaint("pc="), "line 1 needs --udp: pc=");
    EXPECT_EQ(complaint("log< a"), "line 1 needs --log: log< a");
}

} // namespace
