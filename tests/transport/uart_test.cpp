// UART ports: opening with and without a usable device, the reader thread's body on scripted reads,
// sending by port number, and one case with a real reader thread on a pseudo-terminal. The module's
// source is part of this file, so that its descriptors are in sight.

#include "transport/bench_routines.cpp"
#include "transport/uart.cpp"

#include <condition_variable>
#include <iterator>
#include <limits>
#include <mutex>
#include <type_traits>

#include <pthread.h>

#include "tests/support/bytes.h"
#include "tests/support/console.h"
#include "tests/support/replace.h"
#include "tests/support/serial_line.h"
#include "tests/support/terminal.h"

namespace {

bool threadsAreReal = false; // else they are noted only
int createError = 0;         // what pthread_create() answers
struct {
    const pthread_attr_t *attributes = nullptr;
    void *(*body)(void *) = nullptr;
    void *argument = nullptr;
} thread;

struct Received {
    uint32_t type;
    uint64_t address;
    std::string bytes;
    bool operator==(const Received &) const = default;
};
std::vector<Received> received; // by IsrReceiveBuffer()
std::mutex receivedLock;        // of the above while a thread is real
std::condition_variable receivedMore;

} // namespace

// In the place of the command channels.
void IsrReceiveBuffer(uint32_t type, uint64_t address, const uint8_t *bytes, uint32_t length)
{
    const std::lock_guard<std::mutex> guard(receivedLock);
    received.push_back({type, address, {reinterpret_cast<const char *>(bytes), length}});
    receivedMore.notify_all();
}

REPLACE(int, pthread_create,
        (pthread_t * identity, const pthread_attr_t *attributes, void *(*body)(void *),
         void *argument))
{
    if (threadsAreReal) {
        return REAL(pthread_create)(identity, attributes, body, argument);
    }
    note("pthread_create");
    thread = {attributes, body, argument};
    *identity = pthread_self(); // any number will do
    return createError;
}

REPLACE(int, pthread_detach, (pthread_t identity))
{
    if (threadsAreReal) {
        return REAL(pthread_detach)(identity);
    }
    note(pthread_equal(identity, pthread_self()) != 0 ? "pthread_detach" : "pthread_detach ?");
    return 0;
}

namespace {

// The outcome of a call whose result is the length of all that it prints.
Outcome printing(const std::string &message, const Journal &journal = {})
{
    return Outcome(static_cast<int64_t>(message.size()), message, "", journal);
}

// Opening ----------------------------------------------------------------------------------------

TEST(Uart, TwoPortsWithTheirDevicesAreKnownAndNotOpen)
{
    static_assert(std::size(DEV_NAME) == 2);
    static_assert(std::is_same_v<decltype(fd), int32_t[2]>);
    EXPECT_STREQ(DEV_NAME[0], "/dev/ttyS0");
    EXPECT_STREQ(DEV_NAME[1], "/dev/ttyS1");
    EXPECT_EQ(fd[0], 0);
    EXPECT_EQ(fd[1], 0);
}

TEST(Uart, RefusesToOpenPorts2AndAbove)
{
    for (const auto &[port, number] : std::vector<std::pair<uint32_t, std::string>>{
             {2, "2"}, {3, "3"}, {1000, "1000"}, {0xFFFFFFFF, "-1"}}) {
        EXPECT_EQ(outcomeOf([port = port] { return UARTInit(port); }),
                  printing("UARTInit error port = " + number + "\n"));
    }
    EXPECT_EQ(fd[0], 0);
    EXPECT_EQ(fd[1], 0);
}

TEST(Uart, OpeningSets115200Baud8N1AndStartsADetachedReaderThread)
{
    for (const uint32_t port : {0u, 1u}) {
        const std::string name = "/dev/ttyS" + std::to_string(port);
        const std::string last =
            "==kel UARTInit DEV_NAME[" + std::to_string(port) + "]:" + name + "\n";
        line.attributes = recordOf(0xFF);
        const Outcome outcome = outcomeOf([=] { return UARTInit(port); });
        EXPECT_EQ(outcome.result, static_cast<int64_t>(last.size()));
        EXPECT_EQ(outcome.out + outcome.err,
                  "Open " + name + " ......\nfcntl = 0 !\nserial_open file ID= 777 !\n" +
                      "serial_set success !\n" + last);
        EXPECT_EQ(outcome.journal, (Journal{"open " + name, "fcntl F_SETFL 0", "fcntl F_SETFL 0",
                                            "tcgetattr", "tcflush TCIFLUSH", "tcsetattr TCSANOW",
                                            "pthread_create", "pthread_detach"}));
        EXPECT_EQ(fd[port], kLine);
        EXPECT_EQ(textOf(line.attributes), textOf(rawRecord(0, CLOCAL | CREAD | CS8, B115200)));
        EXPECT_EQ(thread.attributes, nullptr);
        EXPECT_EQ(thread.body, uart_receive_fun);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(thread.argument), port); // the number itself
    }
}

TEST(Uart, ThreadThatCouldNotBeMadeIsNotDetached)
{
    createError = EAGAIN;
    EXPECT_EQ(outcomeOf([] { return UARTInit(0); }).journal.back(), "pthread_create");
}

// One line on standard error, and no line of success.
TEST(Uart, ThreadThatCouldNotBeMadeIsSaid)
{
    createError = EAGAIN;
    const std::string message =
        "UARTInit: no reader thread for /dev/ttyS0: Resource temporarily unavailable\n";
    const Outcome outcome = outcomeOf([] { return UARTInit(0); });
    EXPECT_EQ(outcome.out, "Open /dev/ttyS0 ......\nfcntl = 0 !\nserial_open file ID= 777 !\n"
                           "serial_set success !\n");
    EXPECT_EQ(outcome.err, message);
    EXPECT_EQ(outcome.result, static_cast<int64_t>(message.size()));
}

TEST(Uart, UnusableDeviceGetsNoThread)
{
    const std::string message = "Can't get old terminal description !";
    line.device = "/dev/null"; // which cannot be set up
    const Outcome unset = outcomeOf([] { return UARTInit(0); });
    EXPECT_GT(fd[0], 2);
    const std::string opened =
        "Open /dev/ttyS0 ......\nfcntl = 0 !\nserial_open file ID= " + std::to_string(fd[0]) +
        " !\n";
    EXPECT_EQ(unset, Outcome(-1, opened, errorLine(message, ENOTTY), {"open /dev/ttyS0"}));
    line.device = "/dev/there-is-no-such-line";
    EXPECT_EQ(outcomeOf([] { return UARTInit(0); }),
              Outcome(-1, "Can't Open Serial Port /dev/ttyS0 !\n", errorLine(message, EBADF),
                      {"open /dev/ttyS0"}));
    EXPECT_EQ(fd[0], -1);
}

// The reader thread ------------------------------------------------------------------------------

TEST(Uart, ReaderPassesOnWhatComesAndSleepsOneMillisecondOtherwise)
{
    const std::string read = "read 20480";
    const std::string sleep = "usleep 1000";
    const std::string most = countingBytes(20480, 251);
    const std::string odd("<T0000680100000069>\0\xFF\r\n", 23);
    fd[0] = kLine;
    line.arrivals = {odd, "", std::nullopt, "one", "", most + "x"}; // no error is logged
    EXPECT_EQ(
        outcomeOfLoop([] { uart_receive_fun(nullptr); }, 4),
        Outcome(0, "uart_receive_fun 0\n", "",
                {read, read, sleep, read, sleep, read, read, sleep, read, read, read, sleep}));
    // The most bytes of one read and one call are 20480.
    EXPECT_TRUE(received ==
                (std::vector<Received>{{2, 0, odd}, {2, 0, "one"}, {2, 0, most}, {2, 0, "x"}}));
}

TEST(Uart, BytesOfPort1NeverReachTheCommandParser)
{
    fd[1] = kOtherLine;
    line.arrivals = {"<T0000680100000069>"};
    EXPECT_EQ(outcomeOfLoop([] { uart_receive_fun(reinterpret_cast<void *>(1)); }, 1),
              Outcome(0, "uart_receive_fun 1\n", "",
                      {"other read 20480", "other read 20480", "usleep 1000"}));
    EXPECT_TRUE(received.empty());
}

// With threads and a line as they are on the board.
TEST(Uart, BytesOnAnOpenedPortReachTheCommandChannels)
{
    threadsAreReal = true;
    line.sleepsAreReal = true;
    const Terminal terminal;
    line.device = terminal.path;
    Console console;
    UARTInit(0);
    ASSERT_EQ(write(terminal.master, "<T00006801", 10), 10);
    ASSERT_EQ(write(terminal.master, "00000069>", 9), 9);
    std::string bytes;
    std::unique_lock<std::mutex> guard(receivedLock);
    receivedMore.wait(guard, [&bytes] {
        bytes.clear();
        for (const Received &call : received) {
            bytes += call.bytes;
        }
        return bytes.size() >= 19;
    });
    EXPECT_EQ(received[0].type, 2u);
    EXPECT_EQ(received[0].address, 0u);
    console.end();
    EXPECT_EQ(bytes, "<T0000680100000069>");
    EXPECT_NE(console.out.find("uart_receive_fun 0\n"), std::string::npos);
}

// Sending ----------------------------------------------------------------------------------------

Outcome outcomeOfSending(int32_t port, const std::string &bytes)
{
    return outcomeOf(
        [&] { return UARTSendBuffer(port, bytesOf(bytes), static_cast<int32_t>(bytes.size())); });
}

TEST(Uart, SendingReturnsTheNumberOfBytesOrReportsAShortWriteWithoutRetrying)
{
    const std::string pause = "usleep 80000";
    const struct {
        int32_t port;
        size_t length;
        std::deque<ssize_t> taken; // by each write(); by default all
        size_t sent;
        Journal journal;
        const char *message; // none: the result is the length
    } rows[] = {
        // clang-format off
        {0, 19,  {},      19, {"write 19"}, nullptr},
        {1, 3,   {},       3, {"other write 3"}, nullptr},
        {0, 600, {},     600, {"write 256", pause, "write 256", pause, "write 88"}, nullptr},
        {0, 10,  {3, -1},  3, {"write 10", "write 7"}, "uart0 write data error len=3, size=10\n"},
        {1, 10,  {-1},     0, {"other write 10"}, "uart1 write data error len=0, size=10\n"},
        // clang-format on
    };
    fd[0] = kLine;
    fd[1] = kOtherLine;
    for (const auto &row : rows) {
        const std::string bytes = countingBytes(row.length, 251);
        line.writeResults = row.taken;
        EXPECT_EQ(outcomeOfSending(row.port, bytes),
                  (row.message == nullptr
                       ? Outcome(static_cast<int64_t>(row.length), "", "", row.journal)
                       : printing(row.message, row.journal)));
        EXPECT_EQ(std::exchange(line.sent, {}), bytes.substr(0, row.sent)) << row.length;
    }
}

TEST(Uart, RefusesToSendOnPortsThatDoNotExist)
{
    for (const int32_t port :
         {2, -1, std::numeric_limits<int32_t>::max(), std::numeric_limits<int32_t>::min()}) {
        EXPECT_EQ(outcomeOfSending(port, "abc"),
                  printing("UARTSendBuffer error port = " + std::to_string(port) + "\n"));
    }
}

TEST(Uart, LengthOfZeroOrLessSendsNothing)
{
    fd[0] = kLine;
    EXPECT_EQ(outcomeOfSending(0, ""), Outcome(0, "Write byte number error !\n", "", {}));
    for (const int32_t length : {-1, std::numeric_limits<int32_t>::min()}) {
        EXPECT_EQ(outcomeOf([=] { return UARTSendBuffer(0, bytesOf("abc"), length); }).journal,
                  Journal{});
    }
}

// The descriptors start at zero. The daemon never does this.
TEST(Uart, SendingOnPort1BeforeItIsOpenedWritesToDescriptor0)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    dup2(ends[1], 0);
    EXPECT_EQ(outcomeOfSending(1, "hello"), Outcome(5, "", "", {}));
    char text[] = ".....";
    EXPECT_EQ(read(ends[0], text, 5), 5);
    EXPECT_STREQ(text, "hello");
    dup2(ends[0], 0); // which takes nothing
    EXPECT_EQ(outcomeOfSending(1, "hello"), printing("uart1 write data error len=0, size=5\n"));
}

// Bench routines ---------------------------------------------------------------------------------

TEST(Uart, TransmitTestSendsHelloEverySecond)
{
    fd[0] = kLine;
    const Journal calls = {"write 6", "sleep 1", "write 6", "sleep 1", "write 6", "sleep 1"};
    EXPECT_EQ(outcomeOfLoop(UART_test_tx, 3), Outcome(0, "", "", calls));
    EXPECT_EQ(line.sent, "hello hello hello ");
}

TEST(Uart, ReceiveTestPrintsWhatCameAndLooksEverySecond)
{
    fd[0] = kLine;
    const std::string full(20479, 'y'); // closed by a zero inside the buffer
    // Data is no format.
    line.arrivals = {"a longer first text", "short", "", std::nullopt, full, "z", "%n%s%d%%", "\n"};
    Journal journal;
    for (int i = 0; i < 8; ++i) {
        journal.insert(journal.end(), {"read 20479", "sleep 1"});
    }
    EXPECT_EQ(outcomeOfLoop(UART_test_rx, 8),
              Outcome(0, "a longer first textshortno thing\nno thing\n" + full + "z%n%s%d%%\n", "",
                      journal));
}

} // namespace
