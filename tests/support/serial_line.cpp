#include "tests/support/serial_line.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "tests/support/console.h"
#include "tests/support/replace.h"

SerialLine line;

namespace {

// Whether the descriptor is scripted; if so, notes the call.
bool isNoted(int fd, const std::string &call)
{
    if (fd != kLine && fd != kOtherLine) {
        return false;
    }
    note((fd == kOtherLine ? "other " : "") + call);
    return true;
}

int failWith(int error)
{
    errno = error;
    return -1;
}

template <typename T> std::optional<T> next(std::deque<T> *answers)
{
    if (answers->empty()) {
        return {};
    }
    const T first = std::move(answers->front());
    answers->pop_front();
    return first;
}

void sleepOf(const std::string &call)
{
    note(call);
    if (line.sleepsLeft > 0 && --line.sleepsLeft == 0) {
        throw LoopLeft();
    }
}

} // namespace

REPLACE(int, open64, (const char *path, int flags, ...))
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    if (std::strncmp(path, "/dev/ttyS", 9) != 0) {
        return REAL(open64)(path, flags, mode);
    }
    note("open " + std::string(path));
    line.openFlags = flags;
    if (!line.device.empty()) {
        return REAL(open64)(line.device.c_str(), flags);
    }
    return line.descriptor < 0 ? failWith(ENOENT) : line.descriptor;
}

REPLACE(int, fcntl64, (int fd, int command, ...))
{
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    const std::string name = command == F_SETFL ? "fcntl F_SETFL " : "fcntl ? ";
    if (!isNoted(fd, name + std::to_string(argument))) {
        return REAL(fcntl64)(fd, command, argument);
    }
    const int result = next(&line.fcntlResults).value_or(0);
    return result < 0 ? failWith(line.error) : result;
}

// The name of fcntl() on 32-bit processors with 64-bit time.
extern "C" int __wrap___fcntl_time64(int fd, int command, ...)
    __attribute__((alias("__wrap_fcntl64")));

REPLACE(int, tcgetattr, (int fd, termios *options))
{
    if (!isNoted(fd, "tcgetattr")) {
        return REAL(tcgetattr)(fd, options);
    }
    *options = line.attributes;
    return line.getattrError == 0 ? 0 : failWith(line.getattrError);
}

REPLACE(int, tcsetattr, (int fd, int actions, const termios *options))
{
    if (!isNoted(fd, actions == TCSANOW ? "tcsetattr TCSANOW" : "tcsetattr ?")) {
        return REAL(tcsetattr)(fd, actions, options);
    }
    if (line.setattrError != 0) {
        return failWith(line.setattrError);
    }
    line.attributes = *options;
    return 0;
}

REPLACE(int, tcflush, (int fd, int queue))
{
    const std::string name = queue == TCIFLUSH    ? "TCIFLUSH"
                             : queue == TCIOFLUSH ? "TCIOFLUSH"
                                                  : "?";
    return isNoted(fd, "tcflush " + name) ? 0 : REAL(tcflush)(fd, queue);
}

REPLACE(ssize_t, read, (int fd, void *buffer, size_t length))
{
    if (!isNoted(fd, "read " + std::to_string(length))) {
        return REAL(read)(fd, buffer, length);
    }
    const std::optional<std::string> arrival = next(&line.arrivals).value_or("");
    if (!arrival) {
        return failWith(line.error);
    }
    const size_t count = std::min(length, arrival->size());
    std::memcpy(buffer, arrival->data(), count);
    if (count < arrival->size()) {
        line.arrivals.push_front(arrival->substr(count));
    }
    return static_cast<ssize_t>(count);
}

REPLACE(ssize_t, write, (int fd, const void *buffer, size_t length))
{
    if (!isNoted(fd, "write " + std::to_string(length))) {
        return REAL(write)(fd, buffer, length);
    }
    const ssize_t taken = next(&line.writeResults).value_or(static_cast<ssize_t>(length));
    if (taken < 0) {
        return failWith(line.error);
    }
    line.sent.append(static_cast<const char *>(buffer), static_cast<size_t>(taken));
    return taken;
}

REPLACE(int, close, (int fd))
{
    return isNoted(fd, "close") ? 0 : REAL(close)(fd);
}

REPLACE(int, usleep, (useconds_t microseconds))
{
    if (line.sleepsAreReal) {
        return REAL(usleep)(microseconds);
    }
    sleepOf("usleep " + std::to_string(microseconds));
    return 0;
}

REPLACE(unsigned, sleep, (unsigned seconds))
{
    sleepOf("sleep " + std::to_string(seconds));
    return 0;
}

void note(const std::string &call)
{
    line.journal.push_back(call);
    if (line.journal.size() > 100000) { // a loop that the case cannot leave in its own way
        line.journal.clear();
        ADD_FAILURE() << "endless loop";
        throw LoopLeft();
    }
}

std::ostream &operator<<(std::ostream &stream, const Outcome &outcome)
{
    return stream << outcome.result << ", out " << testing::PrintToString(outcome.out) << ", err "
                  << testing::PrintToString(outcome.err) << ", calls "
                  << testing::PrintToString(outcome.journal);
}

Outcome outcomeOf(const std::function<int64_t()> &action)
{
    line.journal.clear();
    Console console;
    const int64_t result = action();
    console.end();
    return {result, console.out, console.err, std::exchange(line.journal, {})};
}

Outcome outcomeOfLoop(const std::function<void()> &loop, int sleeps)
{
    line.sleepsLeft = sleeps;
    return outcomeOf([&loop] {
        EXPECT_THROW(loop(), LoopLeft);
        return 0;
    });
}

termios recordOf(unsigned char byte)
{
    termios record;
    std::memset(&record, byte, sizeof record);
    return record;
}

termios rawRecord(tcflag_t inputFlags, tcflag_t controlFlags, speed_t speed)
{
    termios record = recordOf(0);
    record.c_iflag = inputFlags;
    record.c_cflag = controlFlags | speed;
    record.c_ispeed = speed;
    record.c_ospeed = speed;
    return record;
}

std::string textOf(const termios &record)
{
    char fields[128];
    std::snprintf(fields, sizeof fields, "i %x o %x c %x l %x line %x in %x out %x cc",
                  record.c_iflag, record.c_oflag, record.c_cflag, record.c_lflag, record.c_line,
                  record.c_ispeed, record.c_ospeed);
    std::string text = fields;
    for (const cc_t character : record.c_cc) {
        text += ' ' + std::to_string(character);
    }
    return text;
}

std::string errorLine(std::string_view message, int error)
{
    return std::string(message) + ": " + std::strerror(error) + "\n";
}
