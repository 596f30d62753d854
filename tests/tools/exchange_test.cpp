// One command, its payload, its reply and what follows it.

#include "tools/exchange.h"

#include "tests/tools/far_end.h"

namespace {

constexpr Milliseconds kShort{20};
constexpr Milliseconds kLong{2000};
constexpr char kFrame[] = "<T0000f12000000011>";
constexpr char kReply[] = "<F0000f12000130024>";

TEST(Exchange, SendsFrameAndPayloadInOnePiece)
{
    FarEnd far;
    EXPECT_FALSE(ask(far.line, kFrame, std::string("\0[a=1]", 6), kShort));
    EXPECT_EQ(far.sent(), kFrame + std::string("\0[a=1]", 6));
    EXPECT_EQ(far.sent(), "");
}

TEST(Exchange, ThrowsAwayWhatHasArrivedBefore)
{
    FarEnd far;
    far.arrive(kReply);
    EXPECT_FALSE(ask(far.line, kFrame, {}, kShort));
}

TEST(Exchange, WaitsForSoManyBytesAfterTheReply)
{
    FarEnd far;
    Answer answer{kReply, "ab"};
    far.arrive("cd");
    far.arrive("ef");
    EXPECT_TRUE(awaitBytes(far.line, answer, 5, kLong));
    EXPECT_TRUE(awaitBytes(far.line, answer, 5, kShort)); // they are there
    EXPECT_FALSE(awaitBytes(far.line, answer, 6, kShort));
    EXPECT_EQ(answer.rest, "abcde");
}

TEST(Exchange, WaitsForTheEndOfAText)
{
    FarEnd far;
    Answer answer{kReply, "[a"};
    EXPECT_FALSE(awaitEnd(far.line, answer, ']', kShort));
    EXPECT_EQ(answer.rest, "[a");
    far.arrive("=1");
    far.arrive("]x");
    EXPECT_TRUE(awaitEnd(far.line, answer, ']', kLong));
    EXPECT_EQ(answer.rest, "[a=1]");
}

} // namespace
