// Playing transcripts: which steps hold, and what is said when one does not. The daemon is the test
// itself, on the far ends of two lines.

#include "tools/player.h"

#include <array>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tools/errors.h"

namespace {

constexpr Milliseconds kTimeout{150};

// On the board of the test, which has no other files.
constexpr char kLogPath[] = "/tmp/vesk_h264.log";

// A line with two ends, one of them a descriptor.
class TestLine {
public:
    explicit TestLine(int type)
    {
        std::array<int, 2> ends{-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_NONBLOCK, 0, ends.data()), 0);
        far_ = ends[1];
        line.emplace(ends[0], "test line");
    }
    ~TestLine()
    {
        close(far_);
    }
    TestLine(const TestLine &) = delete;
    TestLine &operator=(const TestLine &) = delete;

    void arrive(std::string_view bytes) const
    {
        EXPECT_EQ(write(far_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    std::string sent() const
    {
        std::array<char, 1000> buffer;
        const ssize_t count = read(far_, buffer.data(), buffer.size());
        return {buffer.data(), count < 0 ? 0 : static_cast<size_t>(count)};
    }

    std::optional<Line> line;

private:
    int far_;
};

class PlayerTest : public testing::Test {
protected:
    PlayerTest()
    {
        std::ofstream(kLogPath).flush(); // there, and empty
        log.emplace(kLogPath);
        player.emplace(Desk{&*front.line, &*pc.line, &*log}, kTimeout);
    }

    void print(const std::string &text) const
    {
        std::ofstream(kLogPath, std::ios::app) << text;
    }

    // Performs the one step in `text`.
    std::string perform(const std::string &text)
    {
        std::istringstream stream(text);
        return player->perform(parseTranscript(stream, "test").at(0));
    }

    TestLine front{SOCK_STREAM};
    TestLine pc{SOCK_DGRAM};
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

TEST_F(PlayerTest, ExpectsExactlyTheNextBytes)
{
    front.arrive("abc");
    EXPECT_EQ(perform("front< ab"), "");
    EXPECT_EQ(perform("front< c"), "");
    EXPECT_EQ(player->leftovers(), "");
}

TEST_F(PlayerTest, DoesNotJudgeTheBordersOfDatagrams)
{
    pc.arrive("ab");
    pc.arrive("cd");
    EXPECT_EQ(perform("pc< abc"), "");
    EXPECT_EQ(perform("pc< d"), "");
}

TEST_F(PlayerTest, SaysWhatCameInstead)
{
    front.arrive("ab\r\n");
    EXPECT_EQ(perform("front< ax"), "\"ab\\r\\n\" came");
}

TEST_F(PlayerTest, SaysThatNothingCame)
{
    EXPECT_EQ(perform("front< a"), "nothing came within 150 ms");
}

TEST_F(PlayerTest, SaysThatNotAllCame)
{
    pc.arrive("ab");
    EXPECT_EQ(perform("pc< abc"), "only \"ab\" came within 150 ms");
}

TEST_F(PlayerTest, NothingMeansNothing)
{
    EXPECT_EQ(perform("front="), "");
    front.arrive("x");
    EXPECT_EQ(perform("front="), "\"x\" came");
    // It is still there to be read.
    EXPECT_EQ(perform("front< x"), "");
    EXPECT_EQ(perform("front="), "");
}

TEST_F(PlayerTest, DropsWhatIsThere)
{
    front.arrive("ab");
    EXPECT_EQ(perform("front< a"), "");
    front.arrive("cd");
    EXPECT_EQ(perform("front*"), "");
    EXPECT_EQ(player->leftovers(), "");
    pc.arrive("one");
    pc.arrive("two");
    EXPECT_EQ(perform("pc*"), "");
    EXPECT_EQ(player->leftovers(), "");
}

TEST_F(PlayerTest, TellsWhatWasNotRead)
{
    front.arrive("ab");
    pc.arrive("cd");
    EXPECT_EQ(player->leftovers(), "unread at the front board: \"ab\" came; "
                                   "unread at the PC: \"cd\" came");
}

TEST_F(PlayerTest, FindsLinesBehindTheLastOneFound)
{
    print("one\ntwo\r\nthree\n");
    EXPECT_EQ(perform("log< two"), "");
    EXPECT_EQ(perform("log< three"), "");
    EXPECT_EQ(perform("log< one"), "nothing was printed within 150 ms");
}

TEST_F(PlayerTest, ALineCountsWhenItsEndIsThere)
{
    print("on");
    EXPECT_EQ(perform("log< on"), "nothing was printed within 150 ms");
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
    std::istringstream stream(text);
    const std::vector<Step> steps = parseTranscript(stream, "file");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = playTranscript(steps, "file", desk, kTimeout);
    const std::string printed = testing::internal::GetCapturedStdout();
    return std::to_string(status) + "\n" + printed + testing::internal::GetCapturedStderr();
}

TEST_F(PlayerTest, PrintsEveryStepAndTheVerdict)
{
    front.arrive("b");
    EXPECT_EQ(play("== Title\nfront> a\nfront< b\n", {&*front.line, nullptr, nullptr}),
              "0\n\n== Title\n  ok    front> a\n  ok    front< b\n\nfile: all 2 steps held\n");
}

TEST_F(PlayerTest, EndsAtTheFirstStepThatDoesNotHold)
{
    EXPECT_EQ(play("front> a\nfront< b\nfront> c\n", {&*front.line, nullptr, nullptr}),
              "1\n  ok    front> a\n  FAIL  front< b\n        nothing came within 150 ms\n"
              "veskctl: file:2: front< b: nothing came within 150 ms\n");
    EXPECT_EQ(front.sent(), "a");
}

TEST_F(PlayerTest, UnreadBytesFailAtTheEnd)
{
    pc.arrive("x");
    EXPECT_EQ(play("pc> a\n", {nullptr, &*pc.line, nullptr}),
              "1\n  ok    pc> a\n  FAIL  the end\n        unread at the PC: \"x\" came\n"
              "veskctl: file: at its end: unread at the PC: \"x\" came\n");
}

TEST_F(PlayerTest, RefusesToPlayWithoutWhatTheTranscriptNeeds)
{
    const Desk nothing{nullptr, nullptr, nullptr};
    const auto complaint = [&](const std::string &text) -> std::string {
        std::istringstream stream(text);
        try {
            playTranscript(parseTranscript(stream, "file"), "file", nothing, kTimeout);
        } catch (const UsageError &error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(complaint("front> a"), "line 1 needs --serial: front> a");
    EXPECT_EQ(complaint("pc="), "line 1 needs --udp: pc=");
    EXPECT_EQ(complaint("log< a"), "line 1 needs --log: log< a");
}

} // namespace
