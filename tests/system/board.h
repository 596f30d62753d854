#pragma once

// The daemon's three parties on the simulated board, as objects of a test: the front board at the
// other end of the serial line, a control PC on the network, and the running program itself.
// Waiting ends as soon as what is waited for is there, and at the latest after kPatience; then what
// has come is returned, so that the comparison in the test shows it.

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <termios.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

using std::chrono::milliseconds;

// Long enough for a daemon under a sanitizer on a busy machine.
inline constexpr milliseconds kPatience{20000};

// The same where the daemon runs sync(1), which writes out the file systems of the whole host.
inline constexpr milliseconds kSyncPatience{60000};

// How long something must not happen to be taken for never.
inline constexpr milliseconds kQuiet{150};

using Lines = std::vector<std::string>;
Lines operator+(Lines first, const Lines &second);

// Address, tag, command and dat1 to dat4.
using Frame = std::array<uint8_t, 7>;

// A command that any daemon answers, without changing anything.
inline const std::string kReadDeviceType = "<T0000680100000069>";
inline const std::string kDeviceType = "<F00006801263300c2>";

// The daemon that the tests are for: the one of this build, or the file that VESK_DAEMON in the
// environment names. One for the board's processor is emulated (testbench/README.md).
std::string testedDaemon();

// An owned file descriptor.
class Descriptor {
public:
    explicit Descriptor(int descriptor = -1) : number(descriptor) {}
    Descriptor(Descriptor &&other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }
    ~Descriptor()
    {
        close();
    }
    int get() const
    {
        return number;
    }
    void close()
    {
        if (number >= 0) {
            ::close(std::exchange(number, -1));
        }
    }

private:
    int number;
};

// The bytes as a frame with the right checksum.
std::string command(const Frame &bytes); // "<T...>"
std::string reply(const Frame &bytes);   // "<F...>"

// `length` bytes among which there is neither a "<" nor a short period.
std::string patternedBytes(size_t length);

// The master side of a pseudo terminal whose other side is /dev/ttyS0 as long as the object lives.
class FrontBoard {
public:
    FrontBoard();
    ~FrontBoard();
    FrontBoard(const FrontBoard &) = delete;
    FrontBoard &operator=(const FrontBoard &) = delete;

    // Returns the number of bytes that the line has taken: all, unless the patience ran out.
    size_t write(std::string_view bytes, milliseconds patience = kPatience);

    // The next `count` bytes from the daemon.
    std::string read(size_t count, milliseconds patience = kPatience);

    // Everything that comes until nothing has come for kQuiet.
    std::string readUntilQuiet();

    // The line's settings as they are at present; waits until the daemon has set it up.
    termios settings() const;
    bool waitUntilRaw() const;

    // Makes the line take nothing until it is released: the daemon waits in its next write.
    void hold() const;
    void release() const;

    // Takes the line away for good: a new front board is another line.
    void hangUp();

private:
    Descriptor master;
    Descriptor slave;
};

// A program on the control PC, which speaks UDP to port 1000 of the board and hears nobody else.
class ControlPc {
public:
    explicit ControlPc(const char *address = "192.168.0.10");

    void send(std::string_view datagram);

    // The next datagram; nothing if none came.
    std::optional<std::string> receive(milliseconds patience = kPatience);

    // The bytes of as many datagrams as it takes.
    std::string readUntil(const std::function<bool(const std::string &bytes)> &isAll);
    std::string read(size_t count)
    {
        return readUntil([count](const auto &bytes) { return bytes.size() >= count; });
    }

    // Everything that comes until nothing has come for kQuiet.
    std::string readUntilQuiet();

private:
    Descriptor socket;
};

// Plugs the board's network cable in or pulls it out.
void plugNetwork(bool in);

// One run of vesk_h264, started the way init starts it: in a session of its own, without a
// controlling terminal. Its console is two pipes to the test.
class Daemon {
public:
    // The standard streams in `closed` are not there when it starts. `environment` ("NAME=value")
    // is what it gets besides the test's own, or in its place.
    explicit Daemon(std::vector<std::string> arguments = {}, std::initializer_list<int> closed = {},
                    std::vector<std::string> environment = {});

    // Kills it if it still runs. Whatever a sanitizer had to say fails the test.
    ~Daemon();
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    pid_t pid() const
    {
        return process;
    }
    bool isRunning();

    // Whether its main loop sleeps at this moment.
    bool sleeps() const;

    // The status as waitpid() gives it; nothing if it does not end.
    std::optional<int> waitForEnd(milliseconds patience = kPatience);
    void signal(int number) const;

    // Waits until it has printed `line` (without its newline) `times` times since the lines were
    // forgotten.
    bool prints(std::string_view line, int times = 1, milliseconds patience = kPatience);

    // Waits for "enter main", and for the reader thread's message, which may come later.
    bool starts();

    // Waits until its reader thread has taken the bytes that `action` writes to the line, and
    // returns whether it has. Requires: the main loop is held up.
    bool receives(size_t bytes, const std::function<void()> &action);

    // All that it has printed on standard output so far, line by line without the newlines, and on
    // standard error.
    const Lines &lines();
    const std::string &errors();

    // Forgets the lines so far.
    void forgetLines();

    // Closes the test's ends of the console.
    void closeConsole();

private:
    // Takes what is there on the pipes, waiting for the first of it. False if nothing comes.
    bool collect(milliseconds patience);

    pid_t process = -1;
    Descriptor processFd;
    Descriptor output;
    Descriptor error;
    std::string partOfLine;
    Lines outputLines;
    std::string errorText;
    std::optional<int> status;
};

// A board with its front board, on which each case starts the daemon when it likes.
class Board : public testing::Test {
public:
    // Waits until `condition` holds, and returns whether it does.
    static bool eventually(const std::function<bool()> &condition);

protected:
    // Sends a command and compares the answer.
    void expectAnswer(const Frame &asked, const Frame &answered);
    void expectAnswer(std::string_view asked, std::string_view answered);
    void expectAnswer(const Frame &both)
    {
        expectAnswer(both, both);
    }

    // The daemon runs, whatever else became of it.
    void expectLife()
    {
        expectAnswer(kReadDeviceType, kDeviceType);
    }

    FrontBoard front;
};

// The same with a daemon that has started.
class RunningDaemon : public Board {
protected:
    void SetUp() override;

    Daemon daemon;
};
