// The start of the daemon, what it says and sets up; its end; and boards on which something that it
// needs is missing, taken or goes away.

#include "tests/system/stored_state.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <netinet/in.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace {

// What a device without settings says when it loads them, and then.
const Lines kNoSettings = kUserPrefMissing + kDeviceInfoMissing + kWorkTimeMissing +
                          kUserSettingMissing + Lines{"enter main"};

using SystemStart = Board;
using SystemLine = testing::Test;

} // namespace

TEST_F(SystemStart, SaysWhatItDoesInOrderAndNothingTwice)
{
    Daemon daemon;
    ASSERT_TRUE(daemon.starts());
    Lines lines = daemon.lines();
    // Said by the reader thread, whose turn comes when it comes.
    const auto reader = std::find(lines.begin(), lines.end(), "uart_receive_fun 0");
    ASSERT_NE(reader, lines.end());
    EXPECT_GE(reader - lines.begin(), 4);
    lines.erase(reader);

    const std::string label = "serial_open file ID= ";
    ASSERT_TRUE(lines.at(2).starts_with(label)) << lines[2];
    const std::string descriptor = std::to_string(std::stoi(lines[2].substr(label.size())));
    EXPECT_EQ(lines, (Lines{"Open /dev/ttyS0 ......", "fcntl = 0 !", label + descriptor + " !",
                            "serial_set success !", "==kel UARTInit DEV_NAME[0]:/dev/ttyS0"}) +
                         kNoSettings);
    const std::string process = "/proc/" + std::to_string(daemon.pid());
    EXPECT_EQ(std::filesystem::read_symlink(process + "/fd/" + descriptor),
              std::filesystem::read_symlink("/dev/ttyS0"));
    daemon.forgetLines();
    for (int i = 0; i < 3; ++i) {
        expectLife();
        EXPECT_TRUE(daemon.prints("read device type", i + 1));
    }
    EXPECT_EQ(daemon.lines(), (Lines{"getFreeChannel from=0, type=2, port=0", "read device type",
                                     "read device type", "read device type"}));
    EXPECT_EQ(daemon.errors(), "");

    // It needs no real-time priority.
    int threads = 0;
    for (const auto &task : std::filesystem::directory_iterator(process + "/task")) {
        EXPECT_EQ(sched_getscheduler(std::stoi(task.path().filename())), SCHED_OTHER);
        ++threads;
    }
    EXPECT_GE(threads, 3) << "the main loop and two receive threads; a sanitizer may add one";
}

TEST_F(SystemStart, IgnoresArguments)
{
    Daemon daemon({"--help", "-x", "", "/dev/null"});
    ASSERT_TRUE(daemon.starts());
    expectLife();
    EXPECT_EQ(daemon.errors(), "");
}

TEST_F(SystemStart, EndsWithStatus2WhenThePortIsTaken)
{
    const Descriptor taker(socket(AF_INET, SOCK_DGRAM, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(1000);
    ASSERT_EQ(bind(taker.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);

    Daemon daemon;
    EXPECT_EQ(daemon.waitForEnd(), 2 << 8); // as wait() gives it
    EXPECT_EQ(daemon.errors(), "bind: Address already in use\n");
    EXPECT_TRUE(daemon.lines().empty());
    EXPECT_NE(front.settings().c_lflag, 0u) << "the port comes before the line";
}

TEST_F(SystemStart, FindsPortAndLineFreeAfterASignalThatLeavesNoProcess)
{
    // Whatever the daemon leaves behind becomes a child of this process.
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    for (const int number : {SIGTERM, SIGKILL, SIGTERM}) {
        Daemon daemon;
        ASSERT_TRUE(daemon.starts());
        expectLife();
        daemon.signal(number);
        EXPECT_EQ(daemon.waitForEnd(), number); // as wait() gives a signal
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
        EXPECT_EQ(errno, ECHILD);
    }
}

// A pseudo terminal is always 8N1 with its receiver on, so those three cannot fail here.
TEST_F(SystemStart, SetsTheLineUpRawAndLosesWhatCameBefore)
{
    const termios before = front.settings();
    ASSERT_NE(before.c_iflag, 0u);
    ASSERT_NE(before.c_oflag, 0u);
    ASSERT_NE(before.c_lflag, 0u);
    ASSERT_NE(cfgetospeed(&before), static_cast<speed_t>(B115200));
    expectAnswer(kReadDeviceType, kReadDeviceType); // a line that nobody has set up echoes

    Daemon daemon;
    ASSERT_TRUE(daemon.starts());
    const termios after = front.settings();
    EXPECT_EQ((std::vector<tcflag_t>{after.c_iflag, after.c_oflag, after.c_lflag,
                                     after.c_cflag & ~tcflag_t{CBAUD}, after.c_cc[VMIN],
                                     after.c_cc[VTIME], cfgetispeed(&after), cfgetospeed(&after)}),
              (std::vector<tcflag_t>{0, 0, 0, CS8 | CREAD | CLOCAL, 0, 0, B115200, B115200}));
    EXPECT_EQ(front.readUntilQuiet(), "");
    expectAnswer("<T01026a0300000070>", "<F01026a03010a007b>");
}

TEST_F(SystemLine, MayBeMissing)
{
    ControlPc pc;
    Daemon daemon;
    ASSERT_TRUE(daemon.prints("enter main"));
    EXPECT_EQ(daemon.lines(), Lines{"Can't Open Serial Port /dev/ttyS0 !"} + kNoSettings);
    EXPECT_EQ(daemon.errors(), "Can't get old terminal description !: Bad file descriptor\n");
    pc.send("hello");
    EXPECT_TRUE(daemon.prints("uart0 write data error len=0, size=5"));
    pc.send("hi");
    EXPECT_TRUE(daemon.prints("uart0 write data error len=0, size=2"));
    EXPECT_TRUE(daemon.isRunning());
}

TEST_F(SystemLine, MayBeNoTerminal)
{
    ControlPc pc;
    std::filesystem::create_symlink("/dev/null", "/dev/ttyS0");
    Daemon daemon;
    EXPECT_TRUE(daemon.prints("enter main"));
    EXPECT_EQ(daemon.errors(),
              "Can't get old terminal description !: Inappropriate ioctl for device\n");
    EXPECT_EQ(std::count(daemon.lines().begin(), daemon.lines().end(), "uart_receive_fun 0"), 0);
    pc.send("hello");
    EXPECT_EQ(pc.readUntilQuiet(), "");
    EXPECT_TRUE(daemon.isRunning());
}

// The daemon leads a session: had the line become its controlling terminal, this would end it.
TEST_F(SystemLine, MayGoAwayAndAnotherMayCome)
{
    ControlPc pc;
    std::optional<FrontBoard> front(std::in_place);
    Daemon daemon;
    ASSERT_TRUE(daemon.starts());
    front->hangUp();
    pc.send("hello");
    EXPECT_TRUE(daemon.prints("uart0 write data error len=0, size=5"));

    front.reset();
    front.emplace();
    pc.send("anybody there?");
    EXPECT_TRUE(daemon.prints("uart0 write data error len=0, size=14"));
    EXPECT_EQ(front->readUntilQuiet(), "") << "what it has open is the line that is gone";
    EXPECT_TRUE(daemon.isRunning());
}
