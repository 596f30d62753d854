// The console is for messages only: without one, with a part of one or with one that goes away the
// daemon works on, and its messages never go anywhere else.

#include "tests/system/board.h"

namespace {

class SystemConsole : public Board {
protected:
    // Has the daemon say something of every kind and compares all that the line and the PC get.
    void expectNothingButAnswers(Daemon &daemon)
    {
        ASSERT_TRUE(front.waitUntilRaw());
        ControlPc pc;
        pc.send("hello");
        EXPECT_EQ(front.read(5), "hello");
        for (int round = 0; round < 20; ++round) {
            expectLife(); // read device type
            expectAnswer("<T0000680100000069}",
                         "<F000068ffffffff64><F00006801263300c2>");     // error end
            expectAnswer("<T0000680100000068>", "<F000068ffffffff64>"); // error checksum
        }
        EXPECT_EQ(front.readUntilQuiet(), "");
        // Beside the frames that were refused there may be parts of others, cut where the daemon
        // found nothing more to read. No message consists of their characters only.
        EXPECT_EQ(pc.readUntilQuiet().find_first_not_of("<T01689}>"), std::string::npos);
        EXPECT_TRUE(daemon.isRunning());
    }
};

} // namespace

TEST_F(SystemConsole, GetsItsMessagesAtOnceThroughAPipe)
{
    Daemon daemon;
    ASSERT_TRUE(daemon.starts());
    front.write(kReadDeviceType);
    EXPECT_TRUE(daemon.prints("read device type"));
    EXPECT_TRUE(daemon.isRunning());
}

TEST_F(SystemConsole, MayHaveNoStandardOutput)
{
    Daemon daemon({}, {1});
    expectNothingButAnswers(daemon);
}

TEST_F(SystemConsole, MayHaveNoStandardStreamsAtAll)
{
    Daemon daemon({}, {0, 1, 2});
    expectNothingButAnswers(daemon);
}

TEST_F(SystemConsole, MayLoseItsReader)
{
    Daemon daemon;
    ASSERT_TRUE(daemon.starts());
    daemon.closeConsole();
    expectNothingButAnswers(daemon);
}

TEST_F(SystemConsole, MayHaveNoReaderFromTheStart)
{
    Daemon daemon;
    daemon.closeConsole();
    expectNothingButAnswers(daemon);
}
