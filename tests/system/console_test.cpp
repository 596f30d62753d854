// The console is for messages only: without one, with a part of one or with one that goes away the
// daemon works on, and its messages never go anywhere else.

#include "tests/system/board.h"

namespace {

// Has the daemon say something of every kind and compares all that the line and the PC get.
void expectNothingButAnswers(FrontBoard &front)
{
    ControlPc pc;
    pc.send("hello");
    EXPECT_EQ(front.read(5), "hello");
    const struct {
        const char *command;
        const char *answer;
    } kExchanges[] = {
        {"<T0000680100000069>", "<F00006801263300c2>"},                    // read device type
        {"<T0000680100000069}", "<F000068ffffffff64><F00006801263300c2>"}, // error end
        {"<T0000680100000068>", "<F000068ffffffff64>"},                    // error checksum
    };
    for (int round = 0; round < 20; ++round) {
        for (const auto &[command, answer] : kExchanges) {
            front.write(command);
            const std::string expected = answer;
            EXPECT_EQ(front.read(expected.size()), expected);
        }
    }
    EXPECT_EQ(front.readUntilQuiet(), "");
    // Beside the frames that were refused there may be parts of others, cut where the daemon found
    // nothing more to read. No message consists of their characters only.
    EXPECT_EQ(pc.readUntilQuiet().find_first_not_of("<T01689}>"), std::string::npos);
}

} // namespace

TEST(SystemConsole, GetsItsMessagesAtOnceThroughAPipe)
{
    FrontBoard front;
    Daemon daemon;
    ASSERT_TRUE(daemon.starts());
    front.write("<T0000680100000069>");
    EXPECT_TRUE(daemon.prints("read device type"));
    EXPECT_TRUE(daemon.isRunning());
}

TEST(SystemConsole, MayHaveNoStandardOutput)
{
    FrontBoard front;
    Daemon daemon({}, {1});
    ASSERT_TRUE(front.waitUntilRaw());
    expectNothingButAnswers(front);
    EXPECT_TRUE(daemon.isRunning());
}

TEST(SystemConsole, MayHaveNoStandardStreamsAtAll)
{
    FrontBoard front;
    Daemon daemon({}, {0, 1, 2});
    ASSERT_TRUE(front.waitUntilRaw());
    expectNothingButAnswers(front);
    EXPECT_TRUE(daemon.isRunning());
}

TEST(SystemConsole, MayLoseItsReader)
{
    FrontBoard front;
    Daemon daemon;
    ASSERT_TRUE(daemon.starts());
    daemon.closeConsole();
    expectNothingButAnswers(front);
    EXPECT_TRUE(daemon.isRunning());
}

TEST(SystemConsole, MayHaveNoReaderFromTheStart)
{
    FrontBoard front;
    Daemon daemon;
    daemon.closeConsole();
    ASSERT_TRUE(front.waitUntilRaw());
    expectNothingButAnswers(front);
    EXPECT_TRUE(daemon.isRunning());
}
