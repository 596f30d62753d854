// Start-up, the order of the main loop, idle accounting and the console. The daemon's main() is
// part of this file as daemonMain(). What it calls is replaced by notes of the call, and an
// exception out of the sleep leaves its loop.

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/clock.h"
#include "tests/support/replace.h"

int daemonMain(int argc, char **argv);
#define main daemonMain
#include "core/main.cpp"
#undef main

namespace {

using Calls = std::vector<std::string>;

Calls journal;                                       // what has been called, in order
std::function<void(const std::string &call)> onCall; // looks around at each of these moments
uint32_t passesLeft = 0;                             // of the main loop
bool isFirstSign = true;                             // of life of main()
char **argumentsAtFirstSign = nullptr;
int32_t startUpResult = 0; // of the steps before the last, where they have one
int32_t loadResult = 0;    // of the last step
std::string updates;       // what isUpdateProgram() says, call by call; 0 after the last

struct LoopLeft {};

void sign()
{
    if (isFirstSign) {
        argumentsAtFirstSign = exec_argv;
    }
    isFirstSign = false;
}

int32_t note(const std::string &call, int32_t result = 0)
{
    sign();
    journal.push_back(call);
    if (journal.size() > 100000) { // a loop that does not come to its sleep
        journal.clear();
        ADD_FAILURE() << "endless loop";
        throw LoopLeft();
    }
    if (onCall) {
        onCall(call);
    }
    return result;
}

} // namespace

// clang-format off
REPLACE(int32_t, _Z13MX_FATFS_Initv, ()) { return note("MX_FATFS_Init", startUpResult); }
REPLACE(void, _Z24InitRs232CommandVariablev, ()) { note("InitRs232CommandVariable"); }
REPLACE(void, _Z21udp_receive_pipe_initv, ()) { note("udp_receive_pipe_init"); }
REPLACE(void, _Z15malloc_saveViewv, ()) { note("malloc_saveView"); }
REPLACE(int32_t, _Z12udpecho_initv, ()) { return note("udpecho_init", startUpResult); }
REPLACE(int32_t, _Z8UARTInitj, (uint32_t port))
{
    return note("UARTInit " + std::to_string(port), startUpResult);
}
REPLACE(int32_t, _Z15loadAllUserPrefv, ()) { return note("loadAllUserPref", loadResult); }

REPLACE(void, _Z11TaskCommandv, ()) { note("TaskCommand"); }
REPLACE(void, _Z14delayCall_taskv, ()) { note("delayCall_task"); }
REPLACE(void, _Z13udp2uart_taskv, ()) { note("udp2uart_task"); }
REPLACE(void, _Z11TaskControlv, ()) { note("TaskControl"); }
// clang-format on

REPLACE(int32_t, _Z15isUpdateProgramv, ())
{
    const bool isUpdating = updates.starts_with('1');
    updates.erase(0, 1);
    return note("isUpdateProgram", isUpdating ? 1 : 0);
}

REPLACE(void, _Z11SysDelay1msj, (uint32_t ms))
{
    note("SysDelay1ms " + std::to_string(ms));
    fakeClock.advanceMs(ms);
    if (--passesLeft == 0) {
        throw LoopLeft();
    }
}

// What main() calls before the start-up steps goes through and only counts as a sign of life.

REPLACE(int, open64, (const char *path, int flags, ...))
{
    sign();
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    return REAL(open64)(path, flags, mode);
}

REPLACE(int, sigaction, (int signal, const struct sigaction *action, struct sigaction *old))
{
    sign();
    return REAL(sigaction)(signal, action, old);
}

REPLACE(int, setvbuf, (FILE * stream, char *buffer, int mode, size_t size))
{
    sign();
    return REAL(setvbuf)(stream, buffer, mode, size);
}

namespace {

char nameOfProgram[] = "vesk_h264";
char oneArgument[] = "-x";
char *arguments[] = {nameOfProgram, oneArgument, nullptr};

// Runs main() for this many passes of its loop that reach the sleep.
void runMain(uint32_t passes)
{
    journal.clear();
    isFirstSign = true;
    passesLeft = passes;
    EXPECT_THROW(daemonMain(2, arguments), LoopLeft);
}

const Calls kStartUp = {"MX_FATFS_Init",         "InitRs232CommandVariable",
                        "udp_receive_pipe_init", "malloc_saveView",
                        "udpecho_init",          "UARTInit 0",
                        "loadAllUserPref"};

// The results of the steps, as they fail or not.
constexpr int32_t kResults[][2] = {{0, 0}, {-1, 0}, {77, 1}, {0, -1}, {-1, 123456789}};

// A pipe in the place of standard output, with a stream that nothing has been written to: what a
// daemon finds whose log is collected.
class OutputPipe {
public:
    OutputPipe()
    {
        std::fflush(stdout);
        EXPECT_EQ(pipe2(ends_, O_CLOEXEC | O_NONBLOCK), 0) << std::strerror(errno);
        dup2(ends_[1], STDOUT_FILENO);
        stdout = fdopen(STDOUT_FILENO, "w");
    }
    ~OutputPipe()
    {
        std::fclose(stdout);
        stdout = stream_;
        dup2(saved_, STDOUT_FILENO);
    }
    OutputPipe(const OutputPipe &) = delete;
    OutputPipe &operator=(const OutputPipe &) = delete;

    // What has left the process since the last look.
    std::string look()
    {
        char text[512];
        const ssize_t length = ::read(ends_[0], text, sizeof text);
        return {text, static_cast<size_t>(std::max<ssize_t>(length, 0))};
    }
    void closeReadingEnd()
    {
        ::close(ends_[0]);
    }

private:
    int ends_[2];
    FILE *const stream_ = stdout;
    const int saved_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 10);
};

// Start-up ---------------------------------------------------------------------------------------

TEST(Main, StartUpRunsItsStepsInOrderWhateverFailsAndReturnsTheLastResult)
{
    static_assert(std::is_same_v<decltype(initAll()), int32_t>);
    for (const auto &[others, last] : kResults) {
        journal.clear();
        startUpResult = others;
        loadResult = last;
        EXPECT_EQ(initAll(), last);
        EXPECT_EQ(journal, kStartUp) << others << ' ' << last;
    }
}

TEST(Main, KeepsTheArgumentVectorBeforeAnythingElse)
{
    EXPECT_EQ(exec_argv, nullptr);
    runMain(1);
    EXPECT_EQ(argumentsAtFirstSign, arguments);
    EXPECT_EQ(exec_argv, arguments);
}

// The line leaves at once, even into a pipe.
TEST(Main, SaysEnterMainOnceBetweenStartUpAndTheFirstTaskEvenIfStepsFailed)
{
    Calls expected = kStartUp;
    expected.emplace_back("enter main\n");
    for (int pass = 0; pass < 2; ++pass) {
        expected.insert(expected.end(), {"TaskCommand", "delayCall_task", "udp2uart_task",
                                         "isUpdateProgram", "TaskControl", "SysDelay1ms 1"});
    }
    for (const auto &[others, last] : kResults) {
        startUpResult = others;
        loadResult = last;
        {
            OutputPipe output;
            onCall = [&](const std::string &) {
                const std::string text = output.look();
                if (!text.empty()) {
                    journal.insert(journal.end() - 1, text);
                }
            };
            runMain(2);
        }
        EXPECT_EQ(journal, expected) << others << ' ' << last;
    }
}

// The loop ---------------------------------------------------------------------------------------

TEST(Main, PassesRunTheTasksInOrderAndAnUpdateLeavesOutControlIdlingAndSleep)
{
    struct {
        const char *name;
        const char *updates; // pass by pass
    } const rows[] = {{"no update", "0000"},
                      {"an update from the start", "111110"},
                      {"an update that begins", "00110"},
                      {"updates that begin and end", "0101100110"}};
    // Of all that is called here, only the idle accounting reads the clock: once in a pass, as long
    // as no window of it ends.
    fakeClock.afterReading = [] { note("IdleTask"); };
    for (const auto &row : rows) {
        Calls expected = kStartUp;
        uint32_t sleeps = 0;
        for (const char update : std::string(row.updates)) {
            expected.insert(expected.end(),
                            {"TaskCommand", "delayCall_task", "udp2uart_task", "isUpdateProgram"});
            if (update == '0') {
                expected.insert(expected.end(), {"TaskControl", "IdleTask", "SysDelay1ms 1"});
                ++sleeps;
            }
        }
        updates = row.updates;
        runMain(sleeps);
        EXPECT_EQ(journal, expected) << row.name;
    }
}

TEST(Main, KeepsCyclingWithoutInputAndTheIdleCountRestartsEvery1000Milliseconds)
{
    std::vector<uint32_t> counts; // after the idle accounting of each pass
    fakeClock.setMs(123456);
    onCall = [&](const std::string &call) {
        if (call == "SysDelay1ms 1") {
            counts.push_back(idleCount);
        }
    };
    runMain(3500);
    ASSERT_EQ(counts.size(), 3500u);
    // Pass 0 opens the first window; every pass is one millisecond.
    for (uint32_t pass = 0; pass < 3500; ++pass) {
        ASSERT_EQ(counts[pass], pass % 1000) << pass;
    }
    EXPECT_EQ(idleStartTiming, 123456u + 3000u);
}

// Idle accounting --------------------------------------------------------------------------------

using Idle = std::array<uint32_t, 3>; // state, start, count

Idle idleAfter(const Idle &before, uint32_t now)
{
    idleState = static_cast<uint8_t>(before[0]);
    idleStartTiming = before[1];
    idleCount = before[2];
    fakeClock.setMs(now);
    IdleTask();
    return {idleState, idleStartTiming, idleCount};
}

TEST(Main, IdleTaskCountsItsPassesInWindowsOfASecond)
{
    static_assert(std::is_same_v<decltype(idleState), uint8_t>);
    static_assert(std::is_same_v<decltype(idleStartTiming), uint32_t>);
    static_assert(std::is_same_v<decltype(idleCount), uint32_t>);
    EXPECT_EQ((Idle{idleState, idleStartTiming, idleCount}), (Idle{0, 0, 0}));
    // clang-format off
    const struct {
        const char *name;
        Idle before;
        uint32_t now;
        Idle after;
    } rows[] = {
        {"the first window starts",         {0, 77, 17},        5000, {1, 5000, 0}},
        {"passes count, not milliseconds",  {1, 5000, 0},       5000, {1, 5000, 1}},
        {"the last of a window",            {1, 5000, 41},      5999, {1, 5000, 42}},
        {"the window is over",              {1, 5000, 41},      6000, {1, 6000, 0}},
        {"the next one is not aligned",     {1, 6000, 1},       9500, {1, 9500, 0}},
        {"the clock was set back",          {1, 5000, 41},      4000, {1, 5000, 42}},
        {"the wrap: 1000 ms count as 999",  {1, 0xFFFFFFF0, 5},  984, {1, 0xFFFFFFF0, 6}},
        {"the wrap: 1001 ms",               {1, 0xFFFFFFF0, 5},  985, {1, 985, 0}},
    };
    // clang-format on
    for (const auto &row : rows) {
        EXPECT_EQ(idleAfter(row.before, row.now), row.after) << row.name;
    }
    for (uint32_t state = 2; state <= 255; ++state) { // any other is reset, and nothing else
        EXPECT_EQ(idleAfter({state, 77, 88}, 5000), (Idle{0, 77, 88})) << state;
    }
}

// The console ------------------------------------------------------------------------------------

TEST(Main, WritingToAConsoleThatHasGoneDoesNotEndTheDaemon)
{
    std::signal(SIGPIPE, SIG_DFL);
    ssize_t written = 0;
    int error = 0;
    onCall = [&](const std::string &) {
        std::printf("into the void\n");
        written = ::write(STDOUT_FILENO, "x", 1);
        error = errno;
    };
    {
        OutputPipe output;
        output.closeReadingEnd();
        runMain(2);
    }
    EXPECT_EQ(written, -1);
    EXPECT_EQ(error, EPIPE);
    EXPECT_EQ(passesLeft, 0u);
}

TEST(Main, StartedProgramsDoNotInheritTheIgnoredSignal)
{
    prepareConsole();
    const int status = std::system("kill -PIPE $$; exit 5");
    EXPECT_TRUE(WIFSIGNALED(status)) << status;
    EXPECT_EQ(WTERMSIG(status), SIGPIPE);
}

// A read, a write or a sleep under way when it arrives must not fail with EINTR.
TEST(Main, TheIgnoredSignalInterruptsNoSystemCall)
{
    prepareConsole();
    struct sigaction action {};
    ASSERT_EQ(sigaction(SIGPIPE, nullptr, &action), 0);
    EXPECT_EQ(action.sa_flags & SA_RESTART, SA_RESTART);
    EXPECT_NE(action.sa_handler, SIG_IGN);
    EXPECT_NE(action.sa_handler, SIG_DFL);
}

int nextDescriptor()
{
    const int descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::close(descriptor);
    return descriptor;
}

// Closes the standard streams whose bits are set, and prepares the console. Returns the bits of
// those that are /dev/null then, with 8 added if one is closed or another file stays open.
int streamsReplaced(unsigned closed)
{
    int ends[2];
    for (int stream = 0; stream < 3; ++stream) {
        ::close(stream);
    }
    // The open ones are something that can be told from what fills the closed ones.
    bool isRight = pipe2(ends, 0) == 0 && dup2(ends[0], 2) == 2; // gets 0 and 1
    const int before = nextDescriptor();
    for (int stream = 0; stream < 3; ++stream) {
        if ((closed >> stream & 1u) != 0) {
            ::close(stream);
        }
    }
    prepareConsole();
    int replaced = 0;
    for (int stream = 0; stream < 3; ++stream) {
        const int access = fcntl(stream, F_GETFL);
        isRight = isRight && access >= 0;
        std::error_code error;
        const bool isNull = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(stream),
                                                          error) == "/dev/null";
        replaced |= isNull && (access & O_ACCMODE) == O_RDWR ? 1 << stream : 0;
    }
    return replaced | (isRight && nextDescriptor() == before ? 0 : 8);
}

// Closed streams would give their numbers to the line or to the socket.
TEST(Main, MissingStandardStreamsAreFilledSoThatNoLaterOpenGetsTheirNumbers)
{
    for (int closed = 0; closed < 8; ++closed) {
        EXPECT_EXIT(_exit(streamsReplaced(static_cast<unsigned>(closed))),
                    testing::ExitedWithCode(closed), "")
            << closed;
    }
}

} // namespace
