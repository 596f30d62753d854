#pragma once

// A scripted serial line, whose calls are noted. Link with `serial_line`.

#include <cerrno>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/types.h>
#include <termios.h>

constexpr int kLine = 777;      // the scripted descriptor; calls on others go to the system
constexpr int kOtherLine = 778; // the same, noted as "other read 20480"

// Thrown through an endless loop, to leave it.
struct LoopLeft {};

using Journal = std::vector<std::string>;

struct SerialLine {
    Journal journal;    // the calls in order, and every sleep: "write 256", "usleep 80000"
    termios attributes; // as tcsetattr() left them
    std::string sent;   // all bytes that write() took

    // What opening a "/dev/ttyS" path gives: the device at this path, or else `descriptor` (or a
    // failure with ENOENT, if that is -1).
    std::string device;
    int descriptor = kLine;
    int openFlags = 0; // of the last one

    // The calls' answers, oldest first; -1 and nullopt fail with `error`. A read() gets bytes of
    // one arrival only. When none is left, a call succeeds, write() takes everything, and read()
    // finds nothing.
    std::deque<int> fcntlResults;
    std::deque<ssize_t> writeResults;
    std::deque<std::optional<std::string>> arrivals;
    int error = EIO;
    int getattrError = 0;
    int setattrError = 0;

    int sleepsLeft = 0;         // the sleep that makes it 0 throws LoopLeft
    bool sleepsAreReal = false; // and are not noted
};
extern SerialLine line;

// Notes a call on the line.
void note(const std::string &call);

// What a call returned and printed, and its calls on the line.
struct Outcome {
    Outcome(int64_t its, std::string printed, std::string reported = {}, Journal calls = {})
        : result(its), out(std::move(printed)), err(std::move(reported)), journal(std::move(calls))
    {
    }
    bool operator==(const Outcome &) const = default;

    int64_t result;
    std::string out;
    std::string err;
    Journal journal;
};
std::ostream &operator<<(std::ostream &stream, const Outcome &outcome);
Outcome outcomeOf(const std::function<int64_t()> &action);

// The outcome of an endless loop that is left by LoopLeft in its n-th sleep.
Outcome outcomeOfLoop(const std::function<void()> &loop, int sleeps);

// A record with every bit of every field set, or none.
termios recordOf(unsigned char byte);

// A record of nothing but these flags and this speed.
termios rawRecord(tcflag_t inputFlags, tcflag_t controlFlags, speed_t speed);

// All fields in hexadecimal, to compare and to print.
std::string textOf(const termios &record);

inline const uint8_t *bytesOf(std::string_view text)
{
    return reinterpret_cast<const uint8_t *>(text.data());
}

// "<message>: <text of the error>\n", as perror() writes it.
std::string errorLine(std::string_view message, int error);
