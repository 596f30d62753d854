// The console is for messages only: without one, with a part of one, with one that goes away or
// with one that nobody reads the daemon works on, and its messages never go anywhere else.

#include "tests/system/board.h"

#include <algorithm>
#include <fcntl.h>

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

// It is full before the first command, on both streams.
TEST_F(SystemConsole, MayBeReadByNobody)
{
    Daemon daemon;
    ASSERT_TRUE(daemon.starts());
    daemon.forgetLines();
    const std::string line(63, '-');
    std::string page;
    while (page.size() < 4096) {
        page += line + '\n';
    }
    for (const char *const stream : {"/fd/1", "/fd/2"}) {
        const std::string path = "/proc/" + std::to_string(daemon.pid()) + stream;
        const Descriptor pipe(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        ASSERT_GE(pipe.get(), 0) << path;
        while (write(pipe.get(), page.data(), page.size()) > 0) {
        }
    }
    front.write(kReadDeviceType);
    ASSERT_EQ(front.read(kDeviceType.size()), kDeviceType) << "it waits for the console";
    expectNothingButAnswers(daemon);
    // Every message was lost, and whole.
    Lines lines = daemon.lines();
    EXPECT_GT(std::erase(lines, line), 100u);
    EXPECT_EQ(lines, Lines());
    // What has room again is printed.
    daemon.forgetLines();
    expectLife();
    EXPECT_TRUE(daemon.prints("read device type"));
    EXPECT_EQ(daemon.lines(), Lines{"read device type"});
}
