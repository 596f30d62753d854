// One command, its payload, its reply and what follows it.

#include "tools/exchange.h"

#include <array>
#include <optional>
#include <string>

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

constexpr Milliseconds kShort{100};
constexpr Milliseconds kLong{2000};
constexpr char kFrame[] = "<T0000f12000000011>";
constexpr char kReply[] = "<F0000f12000130024>";

// A line and its far end.
class Exchange : public testing::Test {
protected:
    Exchange()
    {
        std::array<int, 2> ends{-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends.data()), 0);
        line.emplace(ends[0], "line");
        far = ends[1];
    }
    ~Exchange() override
    {
        close(far);
    }

    // Something that has arrived, in one piece.
    void arrive(std::string_view bytes) const
    {
        EXPECT_EQ(write(far, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    std::string sent() const
    {
        std::array<char, 4096> buffer;
        const ssize_t count = read(far, buffer.data(), buffer.size());
        return {buffer.data(), count < 0 ? 0 : static_cast<size_t>(count)};
    }

    std::optional<Line> line;
    int far;
};

TEST_F(Exchange, SendsFrameAndPayloadInOnePiece)
{
    EXPECT_FALSE(ask(*line, kFrame, std::string("\0[a=1]", 6), kShort));
    EXPECT_EQ(sent(), kFrame + std::string("\0[a=1]", 6));
    EXPECT_EQ(sent(), "");
}

TEST_F(Exchange, ThrowsAwayWhatHasArrivedBefore)
{
    arrive(kReply);
    EXPECT_FALSE(ask(*line, kFrame, {}, kShort));
}

TEST_F(Exchange, WaitsForSoManyBytesAfterTheReply)
{
    Answer answer{kReply, "ab"};
    arrive("cd");
    arrive("ef");
    EXPECT_TRUE(awaitBytes(*line, answer, 5, kLong));
    EXPECT_EQ(answer.rest, "abcde");
}

TEST_F(Exchange, NeedsNoMoreBytesThanThereAre)
{
    Answer answer{kReply, "abc"};
    EXPECT_TRUE(awaitBytes(*line, answer, 3, kShort));
    EXPECT_EQ(answer.rest, "abc");
    EXPECT_FALSE(awaitBytes(*line, answer, 4, kShort));
    EXPECT_EQ(answer.rest, "abc");
}

TEST_F(Exchange, WaitsForTheEndOfAText)
{
    Answer answer{kReply, "[a"};
    arrive("=1");
    arrive("]x");
    EXPECT_TRUE(awaitEnd(*line, answer, ']', kLong));
    EXPECT_EQ(answer.rest, "[a=1]");
}

TEST_F(Exchange, SaysThatTheEndDidNotCome)
{
    Answer answer{kReply, "[a"};
    EXPECT_FALSE(awaitEnd(*line, answer, ']', kShort));
    EXPECT_EQ(answer.rest, "[a");
}

} // namespace
