// Serial lines: every system call in order with its arguments, every message, and the two set-up
// families with all that they accept and refuse. Most cases run on a scripted descriptor, the rest
// on a pseudo-terminal. The module's source is part of this file, so that its tables are in sight.

#include "transport/bench_routines.h"
#include "transport/serial.cpp"
#include "transport/serial_retired.cpp"

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/clock.h"
#include "tests/support/console.h"

namespace {

// Link-time fakes of the system calls ------------------------------------------------------------

constexpr int kLine = 777; // the scripted descriptor; calls on any other one go to the system

struct {
    std::vector<std::string> journal; // calls on the line, in order
    termios attributes;               // of the line
    std::string sent;                 // all bytes taken by write()
    std::vector<const void *> asked;  // where each write() was to start

    // Scripts: what a call answers. Empty: it succeeds (and read() finds nothing).
    std::function<int(const char *path, int flags)> open;
    std::vector<int> fcntlResults; // one for each call
    std::function<ssize_t(size_t length)> write;
    std::function<ssize_t(void *buffer, size_t length)> read;
    int getattrError = 0;
    int setattrError = 0;
} line;

// Thrown through an endless loop, to leave it.
struct LoopLeft {};

void note(const std::string &call)
{
    line.journal.push_back(call);
    if (line.journal.size() > 100000) { // a loop that the case cannot leave in its own way
        line.journal.clear();
        ADD_FAILURE() << "endless loop";
        throw LoopLeft();
    }
}

int failWith(int error)
{
    errno = error;
    return -1;
}

int fakeOpen(const char *path, int flags)
{
    note("open " + std::string(path));
    return line.open(path, flags);
}

int fakeFcntl(int command, long argument)
{
    note("fcntl " + std::to_string(command) + " " + std::to_string(argument));
    if (line.fcntlResults.empty()) {
        return 0;
    }
    const int result = line.fcntlResults.front();
    line.fcntlResults.erase(line.fcntlResults.begin());
    return result;
}

} // namespace

extern "C" {
int __real_open64(const char *path, int flags, ...);
int __real_fcntl64(int fd, int command, ...);
int __real_tcgetattr(int fd, termios *options);
int __real_tcsetattr(int fd, int actions, const termios *options);
int __real_tcflush(int fd, int queue);
ssize_t __real_read(int fd, void *buffer, size_t length);
ssize_t __real_write(int fd, const void *buffer, size_t length);
int __real_close(int fd);
int __wrap_open64(const char *path, int flags, ...);
int __wrap_fcntl64(int fd, int command, ...);
int __wrap___fcntl_time64(int fd, int command, ...);
int __wrap_tcgetattr(int fd, termios *options);
int __wrap_tcsetattr(int fd, int actions, const termios *options);
int __wrap_tcflush(int fd, int queue);
ssize_t __wrap_read(int fd, void *buffer, size_t length);
ssize_t __wrap_write(int fd, const void *buffer, size_t length);
int __wrap_close(int fd);

int __wrap_open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    return line.open ? fakeOpen(path, flags) : __real_open64(path, flags, mode);
}

int __wrap_fcntl64(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    return fd == kLine ? fakeFcntl(command, argument) : __real_fcntl64(fd, command, argument);
}

// The name behind it on 32-bit processors with 64-bit time.
int __wrap___fcntl_time64(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    return fd == kLine ? fakeFcntl(command, argument) : __real_fcntl64(fd, command, argument);
}

int __wrap_tcgetattr(int fd, termios *options)
{
    if (fd != kLine) {
        return __real_tcgetattr(fd, options);
    }
    note("tcgetattr");
    if (line.getattrError != 0) {
        return failWith(line.getattrError);
    }
    *options = line.attributes;
    return 0;
}

int __wrap_tcsetattr(int fd, int actions, const termios *options)
{
    if (fd != kLine) {
        return __real_tcsetattr(fd, actions, options);
    }
    note(actions == TCSANOW ? "tcsetattr TCSANOW" : "tcsetattr " + std::to_string(actions));
    if (line.setattrError != 0) {
        return failWith(line.setattrError);
    }
    line.attributes = *options;
    return 0;
}

int __wrap_tcflush(int fd, int queue)
{
    if (fd != kLine) {
        return __real_tcflush(fd, queue);
    }
    note(queue == TCIFLUSH    ? "tcflush TCIFLUSH"
         : queue == TCOFLUSH  ? "tcflush TCOFLUSH"
         : queue == TCIOFLUSH ? "tcflush TCIOFLUSH"
                              : "tcflush ?");
    return 0;
}

ssize_t __wrap_read(int fd, void *buffer, size_t length)
{
    if (fd != kLine) {
        return __real_read(fd, buffer, length);
    }
    note("read " + std::to_string(length));
    return line.read ? line.read(buffer, length) : 0;
}

ssize_t __wrap_write(int fd, const void *buffer, size_t length)
{
    if (fd != kLine) {
        return __real_write(fd, buffer, length);
    }
    note("write " + std::to_string(length));
    line.asked.push_back(buffer);
    const ssize_t taken = line.write ? line.write(length) : static_cast<ssize_t>(length);
    if (taken > 0) {
        line.sent.append(static_cast<const char *>(buffer), static_cast<size_t>(taken));
    }
    return taken;
}

int __wrap_close(int fd)
{
    if (fd != kLine) {
        return __real_close(fd);
    }
    note("close");
    return 0;
}
}

namespace {

using Journal = std::vector<std::string>;

// A termios record with every bit of every field set, or none.
termios recordOf(unsigned char byte)
{
    termios record;
    std::memset(&record, byte, sizeof record);
    return record;
}

constexpr unsigned char kBases[] = {0x00, 0xFF};

// All fields of two records, one by one. The padding between them does not count.
void expectEqual(const termios &actual, const termios &expected, const std::string &what)
{
    EXPECT_EQ(actual.c_iflag, expected.c_iflag) << what;
    EXPECT_EQ(actual.c_oflag, expected.c_oflag) << what;
    EXPECT_EQ(actual.c_cflag, expected.c_cflag) << what;
    EXPECT_EQ(actual.c_lflag, expected.c_lflag) << what;
    EXPECT_EQ(actual.c_line, expected.c_line) << what;
    for (size_t i = 0; i < NCCS; ++i) {
        EXPECT_EQ(actual.c_cc[i], expected.c_cc[i]) << what << ", character " << i;
    }
    EXPECT_EQ(actual.c_ispeed, expected.c_ispeed) << what;
    EXPECT_EQ(actual.c_ospeed, expected.c_ospeed) << what;
}

constexpr tcflag_t kSpeedBits = CBAUD; // where a record keeps its speed code, besides two fields

// A record of nothing but these flags and this speed.
termios rawRecord(tcflag_t inputFlags, tcflag_t controlFlags, speed_t speed)
{
    termios record = recordOf(0);
    record.c_iflag = inputFlags;
    record.c_cflag = controlFlags | speed;
    record.c_ispeed = speed;
    record.c_ospeed = speed;
    return record;
}

// A pseudo-terminal: `slave` is the daemon's end, `master` the far one.
class Terminal {
public:
    Terminal() : master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        EXPECT_GE(master, 0) << std::strerror(errno);
        EXPECT_EQ(grantpt(master), 0) << std::strerror(errno);
        EXPECT_EQ(unlockpt(master), 0) << std::strerror(errno);
        const char *const name = ptsname(master);
        EXPECT_NE(name, nullptr);
        path = name == nullptr ? "" : name;
    }
    ~Terminal()
    {
        ::close(slave);
        ::close(master);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    void open()
    {
        slave = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        ASSERT_GE(slave, 0) << std::strerror(errno);
    }

    int master;
    int slave = -1;
    std::string path;
};

// Waits until this end has something to read.
void awaitInput(int fd)
{
    pollfd wait{fd, POLLIN, 0};
    ASSERT_EQ(poll(&wait, 1, -1), 1);
}

std::string readAll(int fd, size_t length)
{
    std::string text;
    std::vector<char> buffer(length);
    while (text.size() < length) {
        awaitInput(fd);
        const ssize_t got = ::read(fd, buffer.data(), length - text.size());
        if (got < 0) {
            ADD_FAILURE() << std::strerror(errno);
            break;
        }
        text.append(buffer.data(), static_cast<size_t>(got));
    }
    return text;
}

const std::string kSetFlags = "fcntl " + std::to_string(F_SETFL) + " 0";

// Opening ----------------------------------------------------------------------------------------

TEST(Serial, OpensForReadingAndWritingWithoutControlOrHanging)
{
    std::string path;
    int flags = 0;
    line.open = [&](const char *asked, int with) {
        path = asked;
        flags = with;
        return kLine;
    };
    Console console;
    const int32_t fd = serial_open("/dev/ttyS0");
    console.end();
    EXPECT_EQ(fd, kLine);
    EXPECT_EQ(path, "/dev/ttyS0");
    EXPECT_EQ(flags, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
}

TEST(Serial, OpeningMakesTheLineBlockingAgainTwiceAndSaysSo)
{
    line.open = [](const char *, int) { return kLine; };
    Console console;
    EXPECT_EQ(serial_open("/dev/ttyS0"), kLine);
    console.end();
    EXPECT_EQ(line.journal, (Journal{"open /dev/ttyS0", kSetFlags, kSetFlags}));
    EXPECT_EQ(console.out, "Open /dev/ttyS0 ......\n"
                           "fcntl = 0 !\n"
                           "serial_open file ID= 777 !\n");
    EXPECT_EQ(console.err, "");
}

TEST(Serial, OpeningPrintsTheResultOfTheSecondFcntlAndDoesNotMind)
{
    line.open = [](const char *, int) { return kLine; };
    line.fcntlResults = {0, -1};
    Console console;
    EXPECT_EQ(serial_open("/dev/ttyS1"), kLine);
    console.end();
    EXPECT_EQ(console.out, "Open /dev/ttyS1 ......\n"
                           "fcntl = -1 !\n"
                           "serial_open file ID= 777 !\n");
    EXPECT_EQ(line.journal, (Journal{"open /dev/ttyS1", kSetFlags, kSetFlags}));
}

TEST(Serial, LineThatCannotBeOpenedIsNamed)
{
    line.open = [](const char *, int) { return failWith(ENOENT); };
    Console console;
    EXPECT_EQ(serial_open("/dev/ttyS9"), -1);
    console.end();
    EXPECT_EQ(console.out, "Can't Open Serial Port /dev/ttyS9 !\n");
    EXPECT_EQ(console.err, "");
    EXPECT_EQ(line.journal, Journal{"open /dev/ttyS9"});
}

TEST(Serial, LineThatCannotBeMadeBlockingIsClosedAgain)
{
    line.open = [](const char *, int) { return kLine; };
    line.fcntlResults = {-1};
    Console console;
    EXPECT_EQ(serial_open("/dev/ttyS0"), -1);
    console.end();
    EXPECT_EQ(console.out, "Open /dev/ttyS0 ......\nfcntl failed !\n");
    EXPECT_EQ(line.journal, (Journal{"open /dev/ttyS0", kSetFlags, "close"}));
}

TEST(Serial, DescriptorZeroIsALineLikeAnyOther)
{
    const int saved = dup(STDIN_FILENO);
    Terminal terminal;
    terminal.open();
    line.open = [&](const char *, int) { return dup2(terminal.slave, STDIN_FILENO); };
    Console console;
    EXPECT_EQ(serial_open("/dev/ttyS0"), 0);
    console.end();
    EXPECT_EQ(console.out, "Open /dev/ttyS0 ......\nfcntl = 0 !\nserial_open file ID= 0 !\n");
    dup2(saved, STDIN_FILENO);
    ::close(saved);
}

TEST(Serial, OpenedTerminalBlocksAndIsForReadingAndWriting)
{
    const Terminal terminal;
    Console console;
    const int32_t fd = serial_open(terminal.path.c_str());
    console.end();
    ASSERT_GE(fd, 0);
    const int flags = fcntl(fd, F_GETFL);
    EXPECT_EQ(flags & O_NONBLOCK, 0);
    EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
    EXPECT_EQ(console.out, "Open " + terminal.path + " ......\nfcntl = 0 !\nserial_open file ID= " +
                               std::to_string(fd) + " !\n");
    EXPECT_EQ(serial_close(fd), 0);
    EXPECT_EQ(fcntl(fd, F_GETFL), -1);
}

TEST(Serial, ClosingReturnsWhatCloseReturns)
{
    const int fd = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    EXPECT_EQ(serial_close(fd), 0);
    EXPECT_EQ(serial_close(fd), -1);
    EXPECT_EQ(serial_close(kLine), 0);
    EXPECT_EQ(line.journal, Journal{"close"});
}

// Setting up -------------------------------------------------------------------------------------

struct NamedRate {
    int32_t baud;
    speed_t code;
};

// The codes are the kernel's numbers, not the macros that the module uses.
const NamedRate kAccepted[] = {
    {2400, 0x000B},  {4800, 0x000C},   {9600, 0x000D},   {19200, 0x000E},   {38400, 0x000F},
    {57600, 0x1001}, {115200, 0x1002}, {460800, 0x1004}, {1500000, 0x100A},
};

TEST(Serial, SetsTheWholeRecordAndKeepsNothingOfTheOldOne)
{
    line.attributes = recordOf(0xFF);
    Console console;
    EXPECT_EQ(serial_set(kLine, 115200, 8, 'N', 1), 0);
    console.end();
    expectEqual(line.attributes, rawRecord(0, CLOCAL | CREAD | CS8, B115200), "115200 8N1");
    EXPECT_EQ(line.attributes.c_cc[VMIN], 0);
    EXPECT_EQ(line.attributes.c_cc[VTIME], 0);
    EXPECT_EQ(console.out, "serial_set success !\n");
    EXPECT_EQ(console.err, "");
}

TEST(Serial, FlushesPendingInputBeforeItApplies)
{
    Console console;
    EXPECT_EQ(serial_set(kLine, 115200, 8, 'N', 1), 0);
    console.end();
    EXPECT_EQ(line.journal, (Journal{"tcgetattr", "tcflush TCIFLUSH", "tcsetattr TCSANOW"}));
}

TEST(Serial, SetsNineRates)
{
    for (const NamedRate &rate : kAccepted) {
        line.attributes = recordOf(0xFF);
        Console console;
        EXPECT_EQ(serial_set(kLine, rate.baud, 8, 'N', 1), 0) << rate.baud;
        console.end();
        EXPECT_EQ(console.out, "serial_set success !\n") << rate.baud;
        EXPECT_EQ(cfgetispeed(&line.attributes), rate.code) << rate.baud;
        EXPECT_EQ(cfgetospeed(&line.attributes), rate.code) << rate.baud;
        expectEqual(line.attributes, rawRecord(0, CLOCAL | CREAD | CS8, rate.code),
                    std::to_string(rate.baud));
    }
}

// Refusals: one message, and the line is not touched.
void expectRefused(int32_t baud, int32_t bits, char parity, int32_t stop,
                   const std::string &message)
{
    line.journal.clear();
    Console console;
    const int32_t result = serial_set(kLine, baud, bits, parity, stop);
    console.end();
    EXPECT_EQ(result, -1) << message;
    EXPECT_EQ(console.out, message);
    EXPECT_EQ(console.err, "") << message;
    EXPECT_EQ(line.journal, Journal{"tcgetattr"}) << message;
}

TEST(Serial, RefusesAnyOtherRate)
{
    for (const int32_t baud :
         {1200, 300, 0, 9601, -1, 110, 600, 1800, 230400, 500000, 921600, 1499999, 1500001,
          std::numeric_limits<int32_t>::max(), std::numeric_limits<int32_t>::min()}) {
        expectRefused(baud, 8, 'N', 1, "Don't exist baudRate " + std::to_string(baud) + " !\n");
    }
}

TEST(Serial, RefusesRate1200AndSetsRate460800)
{
    expectRefused(1200, 8, 'N', 1, "Don't exist baudRate 1200 !\n");
    Console console;
    EXPECT_EQ(serial_set(kLine, 460800, 8, 'N', 1), 0);
    console.end();
    EXPECT_EQ(console.out, "serial_set success !\n");
}

TEST(Serial, SetsSevenOrEightDataBits)
{
    for (const auto &[bits, size] : {std::pair<int32_t, tcflag_t>{7, CS7}, {8, CS8}}) {
        line.attributes = recordOf(0xFF);
        Console console;
        EXPECT_EQ(serial_set(kLine, 9600, bits, 'N', 1), 0) << bits;
        console.end();
        expectEqual(line.attributes, rawRecord(0, CLOCAL | CREAD | size, B9600),
                    std::to_string(bits));
    }
}

TEST(Serial, RefusesAnyOtherDataSize)
{
    for (const int32_t bits : {5, 6, 9, 0, -1, 78}) {
        expectRefused(9600, bits, 'N', 1, "Don't exist dataSize " + std::to_string(bits) + " !\n");
    }
}

TEST(Serial, SetsParityByUpperCaseLetter)
{
    struct Row {
        char letter;
        tcflag_t control;
        tcflag_t input;
    };
    for (const Row &row : {Row{'N', 0, 0}, Row{'O', PARENB | PARODD, INPCK | ISTRIP},
                           Row{'E', PARENB, INPCK | ISTRIP}}) {
        line.attributes = recordOf(0xFF);
        Console console;
        EXPECT_EQ(serial_set(kLine, 9600, 8, row.letter, 1), 0) << row.letter;
        console.end();
        expectEqual(line.attributes,
                    rawRecord(row.input, CLOCAL | CREAD | CS8 | row.control, B9600),
                    std::string(1, row.letter));
    }
}

TEST(Serial, RefusesLowerCaseAndAnyOtherParityLetter)
{
    for (const char letter : {'n', 'o', 'e', 'S', 's', 'M', '0', ' ', '%'}) {
        expectRefused(9600, 8, letter, 1, "Don't exist parity " + std::string(1, letter) + " !\n");
    }
}

TEST(Serial, SetsOneOrTwoStopBits)
{
    for (const auto &[stop, flag] : {std::pair<int32_t, tcflag_t>{1, 0}, {2, CSTOPB}}) {
        line.attributes = recordOf(0xFF);
        Console console;
        EXPECT_EQ(serial_set(kLine, 9600, 8, 'N', stop), 0) << stop;
        console.end();
        expectEqual(line.attributes, rawRecord(0, CLOCAL | CREAD | CS8 | flag, B9600),
                    std::to_string(stop));
    }
}

TEST(Serial, RefusesAnyOtherStopBits)
{
    for (const int32_t stop : {0, 3, -1, 15}) {
        expectRefused(9600, 8, 'N', stop, "Don't exist stopBit " + std::to_string(stop) + " !\n");
    }
}

TEST(Serial, ChecksRateThenDataSizeThenParityThenStopBits)
{
    expectRefused(1, 1, 'x', 9, "Don't exist baudRate 1 !\n");
    expectRefused(9600, 1, 'x', 9, "Don't exist dataSize 1 !\n");
    expectRefused(9600, 8, 'x', 9, "Don't exist parity x !\n");
    expectRefused(9600, 8, 'N', 9, "Don't exist stopBit 9 !\n");
}

TEST(Serial, SettingUpFailsWhenTheAttributesCannotBeRead)
{
    line.getattrError = EIO;
    Console console;
    EXPECT_EQ(serial_set(kLine, 1, 1, 'x', 9), -1); // ahead of every other check
    console.end();
    EXPECT_EQ(console.out, "");
    EXPECT_EQ(console.err,
              std::string("Can't get old terminal description !: ") + std::strerror(EIO) + "\n");
    EXPECT_EQ(line.journal, Journal{"tcgetattr"});
}

TEST(Serial, SettingUpFailsWhenTheAttributesCannotBeApplied)
{
    line.attributes = recordOf(0xFF);
    line.setattrError = EINVAL;
    Console console;
    EXPECT_EQ(serial_set(kLine, 115200, 8, 'N', 1), -1);
    console.end();
    EXPECT_EQ(console.out, "");
    EXPECT_EQ(console.err,
              std::string("Set new terminal description error !: ") + std::strerror(EINVAL) + "\n");
    EXPECT_EQ(line.journal, (Journal{"tcgetattr", "tcflush TCIFLUSH", "tcsetattr TCSANOW"}));
}

TEST(Serial, WhatIsNoTerminalCannotBeSetUp)
{
    const int fd = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    Console console;
    EXPECT_EQ(serial_set(fd, 115200, 8, 'N', 1), -1);
    EXPECT_EQ(serial_set(-1, 115200, 8, 'N', 1), -1);
    console.end();
    EXPECT_EQ(console.out, "");
    const std::string start = "Can't get old terminal description !: ";
    EXPECT_EQ(console.err,
              start + std::strerror(ENOTTY) + "\n" + start + std::strerror(EBADF) + "\n");
    ::close(fd);
}

// On a terminal ----------------------------------------------------------------------------------

TEST(Serial, ReadingAConfiguredTerminalWithoutDataReturns0AtOnce)
{
    Terminal terminal;
    terminal.open();
    Console console;
    EXPECT_EQ(serial_set(terminal.slave, 115200, 8, 'N', 1), 0);
    console.end();
    char byte = 'x';
    EXPECT_EQ(serial_read(terminal.slave, &byte, 1), 0);
    EXPECT_EQ(byte, 'x');
    // And not because it does not block anyway.
    EXPECT_EQ(fcntl(terminal.slave, F_GETFL) & O_NONBLOCK, 0);
}

TEST(Serial, ConfiguredTerminalCarriesEveryByteUnchangedBothWays)
{
    Terminal terminal;
    terminal.open();
    Console console;
    EXPECT_EQ(serial_set(terminal.slave, 115200, 8, 'N', 1), 0);
    console.end();
    std::string all;
    for (int value = 0; value < 256; ++value) {
        all += static_cast<char>(value);
    }
    EXPECT_EQ(serial_write(terminal.slave, reinterpret_cast<const uint8_t *>(all.data()), 256),
              256);
    EXPECT_EQ(readAll(terminal.master, 256), all);
    ASSERT_EQ(::write(terminal.master, all.data(), all.size()), 256);
    EXPECT_EQ(readAll(terminal.slave, 256), all);
    // Nothing was echoed.
    pollfd wait{terminal.master, POLLIN, 0};
    EXPECT_EQ(poll(&wait, 1, 0), 0);
}

TEST(Serial, SettingUpThrowsAwayWhatHasArrivedBefore)
{
    Terminal terminal;
    terminal.open();
    ASSERT_EQ(::write(terminal.master, "old\n", 4), 4);
    awaitInput(terminal.slave);
    Console console;
    EXPECT_EQ(serial_set(terminal.slave, 115200, 8, 'N', 1), 0);
    console.end();
    ASSERT_EQ(::write(terminal.master, "new", 3), 3);
    EXPECT_EQ(readAll(terminal.slave, 3), "new");
}

// Reading ----------------------------------------------------------------------------------------

TEST(Serial, ReadingNothingIsRefused)
{
    char byte = 'x';
    Console console;
    EXPECT_EQ(serial_read(kLine, &byte, 0), 0);
    console.end();
    EXPECT_EQ(console.out, "Read byte number error !\n");
    EXPECT_EQ(line.journal, Journal{});
    EXPECT_EQ(byte, 'x');
}

TEST(Serial, ReadingIsOneReadWithItsResultAsItIs)
{
    char buffer[10];
    for (const int result : {10, 3, 0, -1}) {
        line.journal.clear();
        void *target = nullptr;
        line.read = [&](void *into, size_t) {
            target = into;
            return static_cast<ssize_t>(result);
        };
        Console console;
        EXPECT_EQ(serial_read(kLine, buffer, 10), result);
        console.end();
        EXPECT_EQ(console.out, "") << result;
        EXPECT_EQ(line.journal, Journal{"read 10"}) << result;
        EXPECT_EQ(target, buffer) << result;
    }
}

// Writing ----------------------------------------------------------------------------------------

std::string sampleBytes(size_t length)
{
    std::string bytes;
    for (size_t i = 0; i < length; ++i) {
        bytes += static_cast<char>(i * 31 + i / 256);
    }
    return bytes;
}

struct Written {
    int32_t result;
    std::string out;
    Journal journal; // writes and sleeps
};

Written writeSample(const std::string &bytes)
{
    fakeClock.onSleep = [] { note("sleep " + std::to_string(fakeClock.sleepsUs.back())); };
    line.journal.clear();
    line.sent.clear();
    line.asked.clear();
    Console console;
    const int32_t result = serial_write(kLine, reinterpret_cast<const uint8_t *>(bytes.data()),
                                        static_cast<uint32_t>(bytes.size()));
    console.end();
    EXPECT_EQ(console.err, "");
    return {result, console.out, line.journal};
}

TEST(Serial, WritingNothingIsRefused)
{
    const Written written = writeSample("");
    EXPECT_EQ(written.result, 0);
    EXPECT_EQ(written.out, "Write byte number error !\n");
    EXPECT_EQ(written.journal, Journal{});
}

TEST(Serial, WritesChunksOf256WithAPauseOf80MsBehindEachFullOne)
{
    const std::string full = "write 256";
    const std::string pause = "sleep 80000";
    const struct {
        size_t length;
        Journal journal;
    } rows[] = {
        {1, {"write 1"}},
        {255, {"write 255"}},
        {256, {full, pause}},
        {257, {full, pause, "write 1"}},
        {511, {full, pause, "write 255"}},
        {512, {full, pause, full, pause}},
        {513, {full, pause, full, pause, "write 1"}},
        {768, {full, pause, full, pause, full, pause}},
    };
    for (const auto &row : rows) {
        const std::string bytes = sampleBytes(row.length);
        const Written written = writeSample(bytes);
        EXPECT_EQ(written.result, static_cast<int32_t>(row.length));
        EXPECT_EQ(written.journal, row.journal) << row.length;
        EXPECT_EQ(line.sent, bytes) << row.length;
        EXPECT_EQ(written.out, "") << row.length;
    }
}

TEST(Serial, WritesALongBlockIn15FullChunksAndTheRest)
{
    const std::string bytes = sampleBytes(4095); // 15 * 256 + 255
    Journal expected;
    for (int chunk = 0; chunk < 15; ++chunk) {
        expected.insert(expected.end(), {"write 256", "sleep 80000"});
    }
    expected.emplace_back("write 255");
    const Written written = writeSample(bytes);
    EXPECT_EQ(written.result, 4095);
    EXPECT_EQ(written.journal, expected);
    EXPECT_EQ(line.sent, bytes);
}

TEST(Serial, ShortWriteIsContinuedBehindWhatWasTaken)
{
    const std::string bytes = sampleBytes(10);
    const std::vector<ssize_t> taken{4, 1, 5};
    line.write = [&](size_t) { return taken[line.asked.size() - 1]; };
    const Written written = writeSample(bytes);
    EXPECT_EQ(written.result, 10);
    EXPECT_EQ(written.journal, (Journal{"write 10", "write 6", "write 5"}));
    EXPECT_EQ(line.sent, bytes);
    EXPECT_EQ(line.asked,
              (std::vector<const void *>{bytes.data(), bytes.data() + 4, bytes.data() + 5}));
}

TEST(Serial, PausesBehindAFullChunkEvenIfItWasTakenInPart)
{
    const std::string bytes = sampleBytes(300);
    const std::vector<ssize_t> taken{100, 200};
    line.write = [&](size_t) { return taken[line.asked.size() - 1]; };
    const Written written = writeSample(bytes);
    EXPECT_EQ(written.result, 300);
    EXPECT_EQ(written.journal, (Journal{"write 256", "sleep 80000", "write 200"}));
    EXPECT_EQ(line.sent, bytes);
}

TEST(Serial, NextChunkAfterAShortWriteIsAsLargeAsTheRestAllows)
{
    const std::string bytes = sampleBytes(600);
    const std::vector<ssize_t> taken{1, 256, 256, 87};
    line.write = [&](size_t) { return taken[line.asked.size() - 1]; };
    const Written written = writeSample(bytes);
    EXPECT_EQ(written.result, 600);
    EXPECT_EQ(written.journal, (Journal{"write 256", "sleep 80000", "write 256", "sleep 80000",
                                        "write 256", "sleep 80000", "write 87"}));
    EXPECT_EQ(line.sent, bytes);
}

TEST(Serial, FailedWriteEndsItWithoutAPause)
{
    line.write = [](size_t) -> ssize_t { return failWith(EIO); };
    const Written written = writeSample(sampleBytes(600));
    EXPECT_EQ(written.result, 0);
    EXPECT_EQ(written.journal, Journal{"write 256"});
    EXPECT_EQ(written.out, "");
}

TEST(Serial, FailedWriteLaterOnReturnsTheCountSoFar)
{
    line.write = [](size_t length) {
        return line.asked.size() < 3 ? static_cast<ssize_t>(length) : failWith(EIO);
    };
    const Written written = writeSample(sampleBytes(600));
    EXPECT_EQ(written.result, 512);
    EXPECT_EQ(written.journal,
              (Journal{"write 256", "sleep 80000", "write 256", "sleep 80000", "write 88"}));
}

TEST(Serial, InterruptedWriteIsAFailedOne)
{
    line.write = [](size_t) -> ssize_t { return failWith(EINTR); };
    EXPECT_EQ(writeSample("abc").journal, Journal{"write 3"});
}

TEST(Serial, LineThatTakesNothingIsNotTriedForEver)
{
    line.write = [](size_t) -> ssize_t {
        return line.asked.size() < 1000 ? 0 : failWith(ETIMEDOUT);
    };
    const Written written = writeSample("abc");
    EXPECT_EQ(written.result, 0);
    EXPECT_EQ(written.journal, Journal{"write 3"});
}

// The self-test ----------------------------------------------------------------------------------

// Leaves serial_test() out of its n-th sleep in the receive loop.
void leaveAfterPolls(uint32_t polls)
{
    fakeClock.onSleep = [polls, polled = 0u]() mutable {
        note("sleep " + std::to_string(fakeClock.sleepsUs.back()));
        if (fakeClock.sleepsUs.back() != 80000 && ++polled == polls) {
            throw LoopLeft();
        }
    };
}

TEST(Serial, SelfTestReturns1WhenTheLineCannotBeOpened)
{
    line.open = [](const char *, int) { return failWith(ENOENT); };
    Console console;
    EXPECT_EQ(serial_test(), 1);
    console.end();
    EXPECT_EQ(console.out, "Can't Open Serial Port /dev/ttyS4 !\n");
}

TEST(Serial, SelfTestReturns1WhenTheLineCannotBeSetUp)
{
    line.open = [](const char *, int) { return kLine; };
    line.setattrError = EIO;
    Console console;
    EXPECT_EQ(serial_test(), 1);
    console.end();
    EXPECT_EQ(console.out, "Open /dev/ttyS4 ......\nfcntl = 0 !\nserial_open file ID= 777 !\n");
    EXPECT_EQ(line.sent, "");
}

TEST(Serial, SelfTestSends5000DigitsAndThenPollsEveryMillisecond)
{
    line.open = [](const char *, int) { return kLine; };
    line.attributes = recordOf(0xFF);
    leaveAfterPolls(3);
    Console console;
    EXPECT_THROW(serial_test(), LoopLeft);
    console.end();

    std::string digits;
    for (int i = 0; i < 500; ++i) {
        digits += "0123456789";
    }
    EXPECT_EQ(line.sent, digits);
    expectEqual(line.attributes, rawRecord(0, CLOCAL | CREAD | CS8, B115200), "115200 8N1");

    Journal expected{"open /dev/ttyS4", kSetFlags,          kSetFlags,
                     "tcgetattr",       "tcflush TCIFLUSH", "tcsetattr TCSANOW"};
    for (int chunk = 0; chunk < 19; ++chunk) { // 19 * 256 + 136
        expected.insert(expected.end(), {"write 256", "sleep 80000"});
    }
    expected.emplace_back("write 136");
    for (int poll = 0; poll < 3; ++poll) {
        expected.insert(expected.end(), {"read 8192", "sleep 1000"});
    }
    EXPECT_EQ(line.journal, expected);
    EXPECT_EQ(console.out, "Open /dev/ttyS4 ......\n"
                           "fcntl = 0 !\n"
                           "serial_open file ID= 777 !\n"
                           "serial_set success !\n");
}

TEST(Serial, SelfTestPrintsWhatComesAndNothingElse)
{
    line.open = [](const char *, int) { return kLine; };
    uint32_t reads = 0;
    line.read = [&](void *buffer, size_t length) -> ssize_t {
        switch (reads++) {
        case 0:
            std::memset(buffer, 'x', length); // a full read: nothing behind it may be printed
            return static_cast<ssize_t>(length);
        case 1:
            std::memcpy(buffer, "hello", 5); // and nothing of it is left for the next one
            return 5;
        case 2:
            return failWith(EIO);
        case 3:
            return 0;
        default:
            std::memcpy(buffer, "%s%n", 4); // data is no format
            return 4;
        }
    };
    leaveAfterPolls(5);
    Console console;
    EXPECT_THROW(serial_test(), LoopLeft);
    console.end();
    EXPECT_EQ(console.out, "Open /dev/ttyS4 ......\n"
                           "fcntl = 0 !\n"
                           "serial_open file ID= 777 !\n"
                           "serial_set success !\n"
                           "len =  8192 ,szBuffer = " +
                               std::string(8192, 'x') +
                               " \n"
                               "len =  5 ,szBuffer = hello \n"
                               "len =  4 ,szBuffer = %s%n \n");
}

// The older family: single fields ----------------------------------------------------------------

TEST(Serial, SetBaudrateSetsBothSpeedsAndNothingElse)
{
    for (const unsigned char base : kBases) {
        for (const NamedRate &rate : kAccepted) {
            termios record = recordOf(base);
            set_baudrate(&record, rate.code);
            EXPECT_EQ(cfgetispeed(&record), rate.code) << rate.baud;
            EXPECT_EQ(cfgetospeed(&record), rate.code) << rate.baud;
            EXPECT_EQ(record.c_cflag & ~kSpeedBits, recordOf(base).c_cflag & ~kSpeedBits);
            EXPECT_EQ(record.c_oflag, recordOf(base).c_oflag);
            EXPECT_EQ(record.c_lflag, recordOf(base).c_lflag);
            EXPECT_EQ(record.c_cc[VMIN], base);
        }
    }
}

TEST(Serial, SetDataBitKnowsFiveToSevenAndTakesEightForTheRest)
{
    const std::vector<std::pair<int32_t, tcflag_t>> rows{{5, CS5}, {6, CS6}, {7, CS7}, {8, CS8},
                                                         {0, CS8}, {4, CS8}, {9, CS8}, {-1, CS8}};
    for (const unsigned char base : kBases) {
        for (const auto &[bits, size] : rows) {
            termios record = recordOf(base);
            set_data_bit(&record, bits);
            termios expected = recordOf(base);
            expected.c_cflag = (expected.c_cflag & ~static_cast<tcflag_t>(CSIZE)) | size;
            expectEqual(record, expected, std::to_string(bits));
        }
    }
}

TEST(Serial, SetParityTurnsItOffForAnyLetterButUpperCaseOAndE)
{
    struct Row {
        char letter;
        tcflag_t set;
        tcflag_t cleared;
    };
    std::vector<Row> rows{{'O', PARENB | PARODD, 0}, {'E', PARENB, PARODD}};
    for (const char letter : {'N', 'n', 'o', 'e', 'S', 's', '0', '\0'}) {
        rows.push_back({letter, 0, PARENB});
    }
    for (const unsigned char base : kBases) {
        for (const Row &row : rows) {
            termios record = recordOf(base);
            set_parity(&record, row.letter);
            termios expected = recordOf(base);
            expected.c_cflag = (expected.c_cflag | row.set) & ~row.cleared;
            expectEqual(record, expected, std::string(1, row.letter));
        }
    }
}

TEST(Serial, SetStopbitKnowsTheTextTwoAndTakesOneForTheRest)
{
    const std::vector<std::pair<const char *, bool>> rows{
        {"1", false},  {"2", true},   {"", false},    {"3", false},  {"22", false},
        {"2 ", false}, {" 2", false}, {"1.5", false}, {"12", false}, {"two", false}};
    for (const unsigned char base : kBases) {
        for (const auto &[text, two] : rows) {
            termios record = recordOf(base);
            set_stopbit(&record, text);
            termios expected = recordOf(base);
            if (two) {
                expected.c_cflag |= CSTOPB;
            } else {
                expected.c_cflag &= ~static_cast<tcflag_t>(CSTOPB);
            }
            expectEqual(record, expected, text);
        }
    }
}

// The older family: speed ------------------------------------------------------------------------

// Rates and the kernel's codes, index by index.
const uint32_t kTableRates[9] = {115200, 57600, 38400, 19200, 9600, 4800, 2400, 1200, 300};
const uint32_t kTableCodes[9] = {0x1002, 0x1001, 0xF, 0xE, 0xD, 0xC, 0xB, 0x9, 0x7};

TEST(Serial, SpeedTablesAreNineEntriesInFallingOrder)
{
    static_assert(std::is_same_v<decltype(name_arr), const uint32_t[9]>);
    static_assert(std::is_same_v<decltype(speed_arr), const uint32_t[9]>);
    for (size_t i = 0; i < 9; ++i) {
        EXPECT_EQ(name_arr[i], kTableRates[i]) << i;
        EXPECT_EQ(speed_arr[i], kTableCodes[i]) << i;
    }
}

TEST(Serial, SetSpeedAppliesTheCodeOfTheTableBetweenTwoFlushes)
{
    for (size_t i = 0; i < 9; ++i) {
        line.attributes = rawRecord(ICRNL, CS7 | PARENB | HUPCL, B50);
        line.attributes.c_lflag = ECHO;
        line.attributes.c_cc[VTIME] = 7;
        line.journal.clear();
        Console console;
        set_speed(kLine, kTableRates[i]);
        console.end();
        EXPECT_EQ(line.journal, (Journal{"tcgetattr", "tcflush TCIOFLUSH", "tcsetattr TCSANOW",
                                         "tcflush TCIOFLUSH"}))
            << kTableRates[i];
        termios expected = rawRecord(ICRNL, CS7 | PARENB | HUPCL, kTableCodes[i]);
        expected.c_lflag = ECHO;
        expected.c_cc[VTIME] = 7;
        expectEqual(line.attributes, expected, std::to_string(kTableRates[i]));
        EXPECT_EQ(console.out + console.err, "") << kTableRates[i];
    }
}

TEST(Serial, SetSpeedIgnoresAnyOtherRateSilently)
{
    for (const uint32_t baud : {0u, 1u, 600u, 9601u, 230400u, 460800u, 1500000u, 0xFFFFFFFFu}) {
        line.attributes = rawRecord(ICRNL, CS7, B50);
        line.journal.clear();
        Console console;
        set_speed(kLine, baud);
        console.end();
        EXPECT_EQ(line.journal, Journal{"tcgetattr"}) << baud;
        EXPECT_EQ(console.out + console.err, "") << baud;
    }
}

TEST(Serial, SetSpeedSaysWhenItCannotApplyAndStops)
{
    line.attributes = recordOf(0);
    line.setattrError = EIO;
    Console console;
    set_speed(kLine, 9600);
    console.end();
    EXPECT_EQ(console.out, "");
    EXPECT_EQ(console.err, std::string("tcsetattr fd: ") + std::strerror(EIO) + "\n");
    EXPECT_EQ(line.journal, (Journal{"tcgetattr", "tcflush TCIOFLUSH", "tcsetattr TCSANOW"}));
}

// The older family: the complete set-up ----------------------------------------------------------

// What a record becomes, whatever the letters: all but parity, size and stop bits.
termios commonSetUp(termios record)
{
    record.c_cflag |= CLOCAL | CREAD;
    record.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS | CSIZE | CSTOPB);
    record.c_iflag &= ~static_cast<tcflag_t>(INLCR | IGNCR | ICRNL);
    record.c_oflag = 0;
    record.c_lflag = 0;
    record.c_cc[VTIME] = 30;
    record.c_cc[VMIN] = 0;
    return record;
}

TEST(Serial, CompleteSetUpTakesEveryParityLetterInEitherCase)
{
    struct Row {
        char letter;
        tcflag_t set;     // control flags
        tcflag_t cleared; // control flags
        bool inputChecked;
    };
    const Row rows[] = {
        {'N', 0, PARENB, true}, // unlike the lower-case letter
        {'n', 0, PARENB, false},         {'O', PARENB | PARODD, 0, true},
        {'o', PARENB | PARODD, 0, true}, {'E', PARENB, PARODD, true},
        {'e', PARENB, PARODD, true},     {'S', 0, PARENB, true},
        {'s', 0, PARENB, true},
    };
    for (const unsigned char base : kBases) {
        for (const Row &row : rows) {
            line.attributes = recordOf(base);
            line.journal.clear();
            Console console;
            EXPECT_EQ(set_Parity(kLine, 8, row.letter, 1), 0) << row.letter;
            console.end();
            termios expected = commonSetUp(recordOf(base));
            expected.c_cflag = (expected.c_cflag | CS8 | row.set) & ~row.cleared;
            if (row.inputChecked) {
                expected.c_iflag |= INPCK;
            } else {
                expected.c_iflag &= ~static_cast<tcflag_t>(INPCK);
            }
            expectEqual(line.attributes, expected,
                        std::string(1, row.letter) + (base == 0 ? " on nothing" : " on all flags"));
            EXPECT_EQ(line.journal, (Journal{"tcgetattr", "tcsetattr TCSANOW"})) << row.letter;
            EXPECT_EQ(console.out + console.err, "") << row.letter;
        }
    }
}

TEST(Serial, CompleteSetUpTakesSevenOrEightDataBitsAndOneOrTwoStopBits)
{
    for (const unsigned char base : kBases) {
        for (const int32_t bits : {7, 8}) {
            for (const int32_t stop : {1, 2}) {
                line.attributes = recordOf(base);
                Console console;
                EXPECT_EQ(set_Parity(kLine, bits, 'n', stop), 0);
                console.end();
                termios expected = commonSetUp(recordOf(base));
                expected.c_cflag |= bits == 7 ? CS7 : CS8;
                expected.c_cflag |= stop == 2 ? CSTOPB : 0;
                expected.c_cflag &= ~static_cast<tcflag_t>(PARENB);
                expected.c_iflag &= ~static_cast<tcflag_t>(INPCK);
                expectEqual(line.attributes, expected,
                            std::to_string(bits) + " and " + std::to_string(stop));
            }
        }
    }
}

TEST(Serial, SpaceParityClearsTwoStopBitsOnlyUntilTheyAreSetAgain)
{
    line.attributes = recordOf(0);
    EXPECT_EQ(set_Parity(kLine, 8, 'S', 2), 0);
    EXPECT_NE(line.attributes.c_cflag & CSTOPB, 0u);
    line.attributes = recordOf(0xFF);
    EXPECT_EQ(set_Parity(kLine, 8, 's', 1), 0);
    EXPECT_EQ(line.attributes.c_cflag & CSTOPB, 0u);
}

TEST(Serial, CompleteSetUpWaits3SecondsForInput)
{
    line.attributes = recordOf(0);
    EXPECT_EQ(set_Parity(kLine, 8, 'N', 1), 0);
    EXPECT_EQ(line.attributes.c_cc[VTIME], 30); // tenths of a second
    EXPECT_EQ(line.attributes.c_cc[VMIN], 0);
}

TEST(Serial, LowerCaseParityIsForTheCompleteSetUpOnly)
{
    expectRefused(115200, 8, 'n', 1, "Don't exist parity n !\n");
    EXPECT_EQ(set_Parity(kLine, 8, 'n', 1), 0);
}

void expectCompleteSetUpRefused(int32_t bits, char parity, int32_t stop, const std::string &message)
{
    line.journal.clear();
    Console console;
    const int32_t result = set_Parity(kLine, bits, parity, stop);
    console.end();
    EXPECT_EQ(result, -1) << message;
    EXPECT_EQ(console.out, "") << message;
    EXPECT_EQ(console.err, message);
    EXPECT_EQ(line.journal, Journal{"tcgetattr"}) << message;
}

TEST(Serial, CompleteSetUpRefusesOtherDataSizes)
{
    for (const int32_t bits : {5, 6, 9, 0, -1}) {
        expectCompleteSetUpRefused(bits, 'N', 1, "Unsupported data size\n");
    }
}

TEST(Serial, CompleteSetUpRefusesOtherParityLetters)
{
    for (const char letter : {'M', 'm', 'X', '0', ' ', '\0'}) {
        expectCompleteSetUpRefused(8, letter, 1, "Unsupported parity\n");
    }
}

TEST(Serial, CompleteSetUpRefusesOtherStopBits)
{
    for (const int32_t stop : {0, 3, -1}) {
        expectCompleteSetUpRefused(8, 'N', stop, "Unsupported stop bits\n");
    }
}

TEST(Serial, CompleteSetUpChecksDataSizeThenParityThenStopBits)
{
    expectCompleteSetUpRefused(1, 'X', 9, "Unsupported data size\n");
    expectCompleteSetUpRefused(8, 'X', 9, "Unsupported parity\n");
    expectCompleteSetUpRefused(8, 'N', 9, "Unsupported stop bits\n");
}

TEST(Serial, CompleteSetUpFailsWhenTheAttributesCannotBeRead)
{
    line.getattrError = ENOTTY;
    expectCompleteSetUpRefused(1, 'X', 9,
                               std::string("SetupSerial 1: ") + std::strerror(ENOTTY) + "\n");
}

TEST(Serial, CompleteSetUpFailsWhenTheAttributesCannotBeApplied)
{
    line.setattrError = EIO;
    Console console;
    EXPECT_EQ(set_Parity(kLine, 8, 'N', 1), -1);
    console.end();
    EXPECT_EQ(console.out, "");
    EXPECT_EQ(console.err, std::string("SetupSerial 3: ") + std::strerror(EIO) + "\n");
    EXPECT_EQ(line.journal, (Journal{"tcgetattr", "tcsetattr TCSANOW"}));
}

TEST(Serial, PortAttributesAre115200AndOneStopBitWhateverIsAskedFor)
{
    line.attributes = recordOf(0);
    Console console;
    EXPECT_EQ(set_port_attr(kLine, 300, 7, "2", 'E'), 0);
    console.end();
    termios expected = commonSetUp(rawRecord(INPCK, CS7 | PARENB, B115200));
    expected.c_cflag |= CS7;
    expectEqual(line.attributes, expected, "7E1");
    EXPECT_EQ(line.journal, (Journal{"tcgetattr", "tcflush TCIOFLUSH", "tcsetattr TCSANOW",
                                     "tcflush TCIOFLUSH", "tcgetattr", "tcsetattr TCSANOW"}));
    EXPECT_EQ(console.out + console.err, "");
}

TEST(Serial, PortAttributesReturn0EvenWhenTheyAreRefused)
{
    line.attributes = recordOf(0);
    Console console;
    EXPECT_EQ(set_port_attr(kLine, 115200, 9, "1", 'N'), 0);
    console.end();
    EXPECT_EQ(console.err, "Unsupported data size\n");
    EXPECT_EQ(cfgetospeed(&line.attributes), static_cast<speed_t>(B115200)); // the speed is set
}

} // namespace
