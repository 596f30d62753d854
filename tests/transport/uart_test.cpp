// UART ports: opening with and without a usable device, the reader thread's body on scripted reads,
// sending by port number, and one case with a real reader thread on a pseudo-terminal. The module's
// source is part of this file, so that its descriptors are in sight.

#include "transport/bench_routines.h"
#include "transport/uart.cpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <limits>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/console.h"

namespace {

// Link-time fakes --------------------------------------------------------------------------------

using Journal = std::vector<std::string>;

struct LoopLeft {};

// While this is set, threads are real and nothing below is recorded or scripted but the device.
std::atomic<bool> live = false;

Journal journal;                                      // calls, in order
std::string device;                                   // opened in the place of any /dev/ttyS path
std::string opened;                                   // the path asked for
int createError = 0;                                  // what pthread_create() answers
std::function<ssize_t(void *, size_t)> onRead;        // scripted read()
std::function<ssize_t(const void *, size_t)> onWrite; // scripted write()
uint32_t sleepsLeft = 0;                              // before the loop is left by an exception

struct {
    pthread_t identity{};
    const pthread_attr_t *attributes = nullptr;
    void *(*body)(void *) = nullptr;
    void *argument = nullptr;
    pthread_t detached{};
} thread;

struct Received {
    uint32_t type;
    uint64_t address;
    std::string bytes;
    bool operator==(const Received &) const = default;
};
std::vector<Received> received; // by IsrReceiveBuffer
std::mutex receivedLock;        // of the above while a thread is real
std::condition_variable receivedMore;

int openDevice(const char *path, int flags, unsigned mode);
void slept(const std::string &call);

void note(const std::string &call)
{
    journal.push_back(call);
    if (journal.size() > 100000) { // a loop that the case cannot leave in its own way
        journal.clear();
        ADD_FAILURE() << "endless loop";
        throw LoopLeft();
    }
}

} // namespace

void IsrReceiveBuffer(uint32_t type, uint64_t address, const uint8_t *bytes, uint32_t length)
{
    const std::lock_guard<std::mutex> guard(receivedLock);
    received.push_back({type, address, {reinterpret_cast<const char *>(bytes), length}});
    receivedMore.notify_all();
}

extern "C" {
int __real_open64(const char *path, int flags, ...);
ssize_t __real_read(int fd, void *buffer, size_t length);
ssize_t __real_write(int fd, const void *buffer, size_t length);
int __real_usleep(useconds_t microseconds);
int __real_pthread_create(pthread_t *identity, const pthread_attr_t *attributes,
                          void *(*body)(void *), void *argument);
int __real_pthread_detach(pthread_t identity);
int __wrap_open64(const char *path, int flags, ...);
ssize_t __wrap_read(int fd, void *buffer, size_t length);
ssize_t __wrap_write(int fd, const void *buffer, size_t length);
int __wrap_usleep(useconds_t microseconds);
unsigned __wrap_sleep(unsigned seconds);
int __wrap_pthread_create(pthread_t *identity, const pthread_attr_t *attributes,
                          void *(*body)(void *), void *argument);
int __wrap_pthread_detach(pthread_t identity);

int __wrap_open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    return openDevice(path, flags, mode);
}

ssize_t __wrap_read(int descriptor, void *buffer, size_t length)
{
    if (live || !onRead) {
        return __real_read(descriptor, buffer, length);
    }
    note("read " + std::to_string(descriptor) + " " + std::to_string(length));
    return onRead(buffer, length);
}

ssize_t __wrap_write(int descriptor, const void *buffer, size_t length)
{
    if (!onWrite) {
        return __real_write(descriptor, buffer, length);
    }
    note("write " + std::to_string(descriptor) + " " + std::to_string(length));
    return onWrite(buffer, length);
}

int __wrap_usleep(useconds_t microseconds)
{
    if (live) {
        return __real_usleep(microseconds);
    }
    slept("usleep " + std::to_string(microseconds));
    return 0;
}

unsigned __wrap_sleep(unsigned seconds)
{
    slept("sleep " + std::to_string(seconds));
    return 0;
}

int __wrap_pthread_create(pthread_t *identity, const pthread_attr_t *attributes,
                          void *(*body)(void *), void *argument)
{
    if (live) {
        return __real_pthread_create(identity, attributes, body, argument);
    }
    note("pthread_create");
    if (createError != 0) {
        return createError;
    }
    thread.identity = pthread_self(); // any number will do
    thread.attributes = attributes;
    thread.body = body;
    thread.argument = argument;
    *identity = thread.identity;
    return 0;
}

int __wrap_pthread_detach(pthread_t identity)
{
    if (live) {
        return __real_pthread_detach(identity);
    }
    note("pthread_detach");
    thread.detached = identity;
    return 0;
}
}

namespace {

int openDevice(const char *path, int flags, unsigned mode)
{
    if (std::strncmp(path, "/dev/ttyS", 9) != 0) {
        return __real_open64(path, flags, mode);
    }
    opened = path;
    return __real_open64(device.c_str(), flags, mode);
}

void slept(const std::string &call)
{
    note(call);
    if (sleepsLeft > 0 && --sleepsLeft == 0) {
        throw LoopLeft();
    }
}

// The far end of a pseudo-terminal that stands in for the device.
class Terminal {
public:
    Terminal() : master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        EXPECT_GE(master, 0) << std::strerror(errno);
        EXPECT_EQ(grantpt(master), 0) << std::strerror(errno);
        EXPECT_EQ(unlockpt(master), 0) << std::strerror(errno);
        const char *const name = ptsname(master);
        EXPECT_NE(name, nullptr);
        device = name == nullptr ? "" : name;
    }
    const int master;
};

const uint8_t *bytesOf(const std::string &text)
{
    return reinterpret_cast<const uint8_t *>(text.data());
}

int32_t lengthOf(const std::string &text)
{
    return static_cast<int32_t>(text.size());
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
    device = "/dev/null";
    for (const auto &[port, message] : std::vector<std::pair<uint32_t, std::string>>{
             {2, "UARTInit error port = 2\n"},
             {3, "UARTInit error port = 3\n"},
             {1000, "UARTInit error port = 1000\n"},
             {0xFFFFFFFF, "UARTInit error port = -1\n"}}) {
        Console console;
        const int32_t result = UARTInit(port);
        console.end();
        EXPECT_EQ(console.out, message);
        EXPECT_EQ(console.err, "") << message;
        EXPECT_EQ(result, lengthOf(message));
    }
    EXPECT_EQ(opened, "");
    EXPECT_EQ(journal, Journal{});
    EXPECT_EQ(fd[0], 0);
    EXPECT_EQ(fd[1], 0);
}

TEST(Uart, OpeningStartsADetachedReaderThreadAndSaysSo)
{
    for (const uint32_t port : {0u, 1u}) {
        const Terminal terminal;
        const std::string name = "/dev/ttyS" + std::to_string(port);
        thread = {};
        journal.clear();
        Console console;
        const int32_t result = UARTInit(port);
        console.end();
        const std::string last =
            "==kel UARTInit DEV_NAME[" + std::to_string(port) + "]:" + name + "\n";
        EXPECT_EQ(opened, name);
        EXPECT_GT(fd[port], 2);
        EXPECT_EQ(journal, (Journal{"pthread_create", "pthread_detach"}));
        EXPECT_EQ(thread.attributes, nullptr);
        EXPECT_EQ(thread.body, uart_receive_fun);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(thread.argument), port); // the number itself
        EXPECT_TRUE(pthread_equal(thread.detached, thread.identity));
        EXPECT_EQ(console.out, "Open " + name +
                                   " ......\n"
                                   "fcntl = 0 !\n"
                                   "serial_open file ID= " +
                                   std::to_string(fd[port]) +
                                   " !\n"
                                   "serial_set success !\n" +
                                   last);
        EXPECT_EQ(console.err, "");
        EXPECT_EQ(result, lengthOf(last));
    }
}

TEST(Uart, OpenedPortIs115200Baud8N1RawAndReadsAtOnce)
{
    const Terminal terminal;
    Console console;
    UARTInit(0);
    console.end();
    termios options{};
    ASSERT_EQ(tcgetattr(fd[0], &options), 0);
    EXPECT_EQ(cfgetispeed(&options), static_cast<speed_t>(B115200));
    EXPECT_EQ(cfgetospeed(&options), static_cast<speed_t>(B115200));
    EXPECT_EQ(options.c_iflag, 0u);
    EXPECT_EQ(options.c_oflag, 0u);
    EXPECT_EQ(options.c_lflag, 0u);
    EXPECT_EQ(options.c_cflag, static_cast<tcflag_t>(CLOCAL | CREAD | CS8 | B115200));
    EXPECT_EQ(options.c_cc[VMIN], 0);
    EXPECT_EQ(options.c_cc[VTIME], 0);
    EXPECT_EQ(fcntl(fd[0], F_GETFL) & O_NONBLOCK, 0);
}

TEST(Uart, DeviceThatCannotBeOpenedGetsNoThread)
{
    device = "/dev/there-is-no-such-line";
    Console console;
    UARTInit(0);
    console.end();
    EXPECT_EQ(console.out, "Can't Open Serial Port /dev/ttyS0 !\n");
    EXPECT_EQ(console.err,
              std::string("Can't get old terminal description !: ") + std::strerror(EBADF) + "\n");
    EXPECT_EQ(journal, Journal{});
    EXPECT_EQ(fd[0], -1);
}

TEST(Uart, DeviceThatCannotBeSetUpGetsNoThread)
{
    device = "/dev/null";
    Console console;
    UARTInit(0);
    console.end();
    EXPECT_GT(fd[0], 2);
    EXPECT_EQ(console.out, "Open /dev/ttyS0 ......\nfcntl = 0 !\nserial_open file ID= " +
                               std::to_string(fd[0]) + " !\n");
    EXPECT_EQ(console.err,
              std::string("Can't get old terminal description !: ") + std::strerror(ENOTTY) + "\n");
    EXPECT_EQ(journal, Journal{});
}

TEST(Uart, ThreadThatCouldNotBeMadeIsNotDetached)
{
    const Terminal terminal;
    createError = EAGAIN;
    Console console;
    UARTInit(0);
    console.end();
    EXPECT_EQ(journal, Journal{"pthread_create"});
}

// The reader thread ------------------------------------------------------------------------------

// Runs the reader of a port until its n-th sleep and returns what it printed.
std::string runReader(uintptr_t port, uint32_t sleeps)
{
    sleepsLeft = sleeps;
    Console console;
    EXPECT_THROW(uart_receive_fun(reinterpret_cast<void *>(port)), LoopLeft);
    console.end();
    EXPECT_EQ(console.err, "");
    return console.out;
}

// A line on which all of `bytes` has arrived before the first read.
void arrived(const std::string &bytes)
{
    onRead = [bytes, at = size_t{0}](void *buffer, size_t length) mutable {
        const size_t count = std::min(length, bytes.size() - at);
        std::memcpy(buffer, bytes.data() + at, count);
        at += count;
        return static_cast<ssize_t>(count);
    };
}

std::string sampleBytes(size_t length)
{
    std::string bytes;
    for (size_t i = 0; i < length; ++i) {
        bytes += static_cast<char>(i * 31 + i / 256);
    }
    return bytes;
}

TEST(Uart, ReaderPassesABurstOn)
{
    fd[0] = 70;
    const std::string burst("<T0000680100000069>\0\xFF\r\n", 23);
    arrived(burst);
    EXPECT_EQ(runReader(0, 1), "uart_receive_fun 0\n");
    EXPECT_EQ(received, (std::vector<Received>{{2, 0, burst}}));
    EXPECT_EQ(journal, (Journal{"read 70 20480", "read 70 20480", "usleep 1000"}));
}

TEST(Uart, BurstOf20480BytesIsPassedOnInOneCall)
{
    const std::string burst = sampleBytes(20480);
    arrived(burst);
    runReader(0, 1);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_TRUE(received[0].bytes == burst);
}

TEST(Uart, BurstOf20481BytesArrivesInTwoReadsAndTwoCalls)
{
    fd[0] = 70;
    const std::string burst = sampleBytes(20481);
    arrived(burst);
    runReader(0, 1);
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].type, 2u);
    EXPECT_EQ(received[0].address, 0u);
    EXPECT_TRUE(received[0].bytes == burst.substr(0, 20480));
    EXPECT_EQ(received[1], (Received{2, 0, burst.substr(20480)}));
    EXPECT_EQ(journal, (Journal{"read 70 20480", "read 70 20480", "read 70 20480", "usleep 1000"}));
}

TEST(Uart, ReaderSleepsOneMillisecondWhenNothingCameOrAnErrorAndGoesOn)
{
    fd[0] = 70;
    onRead = [step = 0](void *buffer, size_t) mutable -> ssize_t {
        switch (step++) {
        case 0:
        case 3:
            return 0;
        case 1:
            errno = EIO;
            return -1;
        case 2:
            std::memcpy(buffer, "one", 3);
            return 3;
        default:
            std::memcpy(buffer, "two", 3);
            return step < 7 ? 3 : -1;
        }
    };
    EXPECT_EQ(runReader(0, 4), "uart_receive_fun 0\n"); // an error says nothing
    const std::string read = "read 70 20480";
    EXPECT_EQ(journal, (Journal{read, "usleep 1000", read, "usleep 1000", read, read, "usleep 1000",
                                read, read, read, "usleep 1000"}));
    EXPECT_EQ(received, (std::vector<Received>{{2, 0, "one"}, {2, 0, "two"}, {2, 0, "two"}}));
}

TEST(Uart, BytesOfPort1NeverReachTheCommandParser)
{
    fd[0] = 70;
    fd[1] = 71;
    arrived("<T0000680100000069>");
    EXPECT_EQ(runReader(1, 1), "uart_receive_fun 1\n");
    EXPECT_EQ(received, std::vector<Received>{});
    EXPECT_EQ(journal, (Journal{"read 71 20480", "read 71 20480", "usleep 1000"}));
}

// With threads and a line as they are on the board.
TEST(Uart, BytesOnAnOpenedPortReachTheCommandChannels)
{
    live = true;
    const Terminal terminal;
    Console console;
    UARTInit(0);
    ASSERT_EQ(__real_write(terminal.master, "<T00006801", 10), 10);
    ASSERT_EQ(__real_write(terminal.master, "00000069>", 9), 9);
    std::string bytes;
    {
        std::unique_lock<std::mutex> guard(receivedLock);
        receivedMore.wait(guard, [&bytes] {
            bytes.clear();
            for (const Received &call : received) {
                bytes += call.bytes;
            }
            return bytes.size() >= 19;
        });
        for (const Received &call : received) {
            EXPECT_EQ(call.type, 2u);
            EXPECT_EQ(call.address, 0u);
        }
    }
    console.end();
    EXPECT_EQ(bytes, "<T0000680100000069>");
    EXPECT_NE(console.out.find("uart_receive_fun 0\n"), std::string::npos);
}

// Sending ----------------------------------------------------------------------------------------

std::string sent;

// A line that takes `limit` bytes in all and then fails.
void lineTakes(size_t limit)
{
    sent.clear();
    onWrite = [limit](const void *bytes, size_t length) -> ssize_t {
        const size_t count = std::min(length, limit - sent.size());
        if (count == 0) {
            errno = EIO;
            return -1;
        }
        sent.append(static_cast<const char *>(bytes), count);
        return static_cast<ssize_t>(count);
    };
}

TEST(Uart, SendingReturnsTheNumberOfBytesWrittenAndSaysNothing)
{
    fd[0] = 70;
    fd[1] = 71;
    lineTakes(1000);
    Console console;
    EXPECT_EQ(UARTSendBuffer(0, bytesOf("<F00006801263300c2>"), 19), 19);
    EXPECT_EQ(UARTSendBuffer(1, bytesOf("abc"), 3), 3);
    console.end();
    EXPECT_EQ(console.out + console.err, "");
    EXPECT_EQ(sent, "<F00006801263300c2>abc");
    EXPECT_EQ(journal, (Journal{"write 70 19", "write 71 3"}));
}

TEST(Uart, SendingGoesInChunksOf256WithPausesOf80Ms)
{
    fd[0] = 70;
    const std::string bytes = sampleBytes(600);
    lineTakes(1000);
    EXPECT_EQ(UARTSendBuffer(0, bytesOf(bytes), 600), 600);
    EXPECT_EQ(sent, bytes);
    EXPECT_EQ(journal, (Journal{"write 70 256", "usleep 80000", "write 70 256", "usleep 80000",
                                "write 70 88"}));
}

TEST(Uart, RefusesToSendOnPortsThatAreNone)
{
    lineTakes(1000);
    for (const auto &[port, message] : std::vector<std::pair<int32_t, std::string>>{
             {2, "UARTSendBuffer error port = 2\n"},
             {3, "UARTSendBuffer error port = 3\n"},
             {-1, "UARTSendBuffer error port = -1\n"},
             {std::numeric_limits<int32_t>::max(), "UARTSendBuffer error port = 2147483647\n"},
             {std::numeric_limits<int32_t>::min(), "UARTSendBuffer error port = -2147483648\n"}}) {
        Console console;
        const int32_t result = UARTSendBuffer(port, bytesOf("abc"), 3);
        console.end();
        EXPECT_EQ(console.out, message);
        EXPECT_EQ(result, lengthOf(message));
    }
    EXPECT_EQ(journal, Journal{});
}

TEST(Uart, ShortWriteIsReportedAndNotRetried)
{
    fd[0] = 70;
    lineTakes(3);
    Console console;
    const int32_t result = UARTSendBuffer(0, bytesOf("0123456789"), 10);
    console.end();
    EXPECT_EQ(console.out, "uart0 write data error len=3, size=10\n");
    EXPECT_EQ(result, lengthOf(console.out));
    EXPECT_EQ(sent, "012");
    EXPECT_EQ(journal, (Journal{"write 70 10", "write 70 7"})); // the rest, which failed
}

TEST(Uart, FailedWriteIsReportedWithNoBytesWritten)
{
    fd[1] = 71;
    lineTakes(0);
    Console console;
    const int32_t result = UARTSendBuffer(1, bytesOf("0123456789"), 10);
    console.end();
    EXPECT_EQ(console.out, "uart1 write data error len=0, size=10\n");
    EXPECT_EQ(result, lengthOf(console.out));
    EXPECT_EQ(journal, Journal{"write 71 10"});
}

TEST(Uart, SendingNothingIsOnlyTheLinesComplaint)
{
    fd[0] = 70;
    lineTakes(1000);
    Console console;
    EXPECT_EQ(UARTSendBuffer(0, bytesOf(""), 0), 0);
    console.end();
    EXPECT_EQ(console.out, "Write byte number error !\n");
    EXPECT_EQ(journal, Journal{});
}

TEST(Uart, NegativeLengthSendsNothing)
{
    lineTakes(1000);
    Console console;
    UARTSendBuffer(0, bytesOf("abc"), -1);
    UARTSendBuffer(0, bytesOf("abc"), std::numeric_limits<int32_t>::min());
    console.end();
    EXPECT_EQ(journal, Journal{});
}

// The descriptors start at zero. The daemon never does this.
TEST(Uart, SendingOnPort1BeforeItIsOpenedWritesToDescriptor0)
{
    lineTakes(0);
    Console console;
    const int32_t result = UARTSendBuffer(1, bytesOf("hello"), 5);
    console.end();
    EXPECT_EQ(journal, Journal{"write 0 5"});
    EXPECT_EQ(console.out, "uart1 write data error len=0, size=5\n");
    EXPECT_EQ(result, lengthOf(console.out));
}

// Bench tests ------------------------------------------------------------------------------------

TEST(Uart, TransmitTestSendsHelloEverySecond)
{
    fd[0] = 70;
    lineTakes(1000);
    sleepsLeft = 3;
    Console console;
    EXPECT_THROW(UART_test_tx(), LoopLeft);
    console.end();
    EXPECT_EQ(sent, "hello hello hello ");
    EXPECT_EQ(journal,
              (Journal{"write 70 6", "sleep 1", "write 70 6", "sleep 1", "write 70 6", "sleep 1"}));
    EXPECT_EQ(console.out + console.err, "");
}

// One answer for each read; what the test printed.
std::string runReceiveTest(const std::vector<std::string> &answers)
{
    fd[0] = 70;
    onRead = [&answers, at = size_t{0}](void *buffer, size_t length) mutable -> ssize_t {
        const std::string &answer = answers[at++];
        EXPECT_LE(answer.size(), length);
        std::memcpy(buffer, answer.data(), answer.size());
        return static_cast<ssize_t>(answer.size());
    };
    sleepsLeft = static_cast<uint32_t>(answers.size());
    Console console;
    EXPECT_THROW(UART_test_rx(), LoopLeft);
    console.end();
    EXPECT_EQ(console.err, "");
    return console.out;
}

TEST(Uart, ReceiveTestPrintsWhatCameAndLooksEverySecond)
{
    EXPECT_EQ(runReceiveTest({"a longer first text", "short", ""}),
              "a longer first textshortno thing\n");
    EXPECT_EQ(journal, (Journal{"read 70 20479", "sleep 1", "read 70 20479", "sleep 1",
                                "read 70 20479", "sleep 1"}));
}

TEST(Uart, ReceiveTestSaysNoThingOnAnErrorToo)
{
    onRead = [](void *, size_t) -> ssize_t {
        errno = EIO;
        return -1;
    };
    sleepsLeft = 2;
    Console console;
    EXPECT_THROW(UART_test_rx(), LoopLeft);
    console.end();
    EXPECT_EQ(console.out, "no thing\nno thing\n");
}

TEST(Uart, ReceiveTestPrintsDataAndNeverTakesItForAFormat)
{
    EXPECT_EQ(runReceiveTest({"%n", "%s", "%d%%", "\n"}), "%n%s%d%%\n");
}

TEST(Uart, ReceiveTestEndsALongestTextInsideItsBuffer)
{
    const std::string full(20479, 'y');
    EXPECT_TRUE(runReceiveTest({full, "z"}) == full + "z");
}

} // namespace
