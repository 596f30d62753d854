// Start-up, the order of the main loop, idle accounting and the console. The daemon's main() is
// part of this file as daemonMain(); what it calls is replaced by notes of the call, and its loop
// is left by an exception out of the sleep.

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/clock.h"

int daemonMain(int argc, char **argv);
#define main daemonMain
#include "core/main.cpp"
#undef main

namespace {

// Link-time fakes of everything that start-up and the loop call ----------------------------------

std::vector<std::string> journal;             // what has been called, in order
std::function<void(const char *call)> onCall; // looks around at each of these moments
uint32_t passesLeft = 0;                      // of the main loop
bool argumentsKeptFirst = false;              // as seen at the first sign of life of main()
bool anySign = false;
int32_t startUpResult = 0; // of the steps before the last, where they have one
int32_t loadResult = 0;    // of the last step
int32_t updateRuns = 0;    // what isUpdateProgram() says

struct LoopLeft {};

void sign()
{
    if (!anySign) {
        anySign = true;
        argumentsKeptFirst = exec_argv != nullptr;
    }
}

void note(const char *call)
{
    sign();
    journal.emplace_back(call);
    if (journal.size() > 100000) { // a loop that does not come to its sleep
        journal.clear();
        ADD_FAILURE() << "endless loop";
        throw LoopLeft();
    }
    if (onCall) {
        onCall(call);
    }
}

} // namespace

int32_t MX_FATFS_Init()
{
    note("MX_FATFS_Init");
    return startUpResult;
}

void InitRs232CommandVariable()
{
    note("InitRs232CommandVariable");
}

void udp_receive_pipe_init()
{
    note("udp_receive_pipe_init");
}

void malloc_saveView()
{
    note("malloc_saveView");
}

int32_t udpecho_init()
{
    note("udpecho_init");
    return startUpResult;
}

int32_t UARTInit(uint32_t port)
{
    note(("UARTInit " + std::to_string(port)).c_str());
    return startUpResult;
}

int32_t loadAllUserPref()
{
    note("loadAllUserPref");
    return loadResult;
}

void TaskCommand()
{
    note("TaskCommand");
}

void delayCall_task()
{
    note("delayCall_task");
}

void udp2uart_task()
{
    note("udp2uart_task");
}

int32_t isUpdateProgram()
{
    note("isUpdateProgram");
    return updateRuns;
}

void TaskControl()
{
    note("TaskControl");
}

extern "C" {
int __real_open64(const char *path, int flags, ...);
int __wrap_open64(const char *path, int flags, ...);
int __real_sigaction(int signal, const struct sigaction *action, struct sigaction *old);
int __wrap_sigaction(int signal, const struct sigaction *action, struct sigaction *old);
int __real_setvbuf(FILE *stream, char *buffer, int mode, size_t size);
int __wrap_setvbuf(FILE *stream, char *buffer, int mode, size_t size);
void __wrap__Z11SysDelay1msj(uint32_t ms);

// The calls of main() ahead of the start-up steps go through and only count as a sign of life.

int __wrap_open64(const char *path, int flags, ...)
{
    sign();
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    return __real_open64(path, flags, mode);
}

int __wrap_sigaction(int signal, const struct sigaction *action, struct sigaction *old)
{
    sign();
    return __real_sigaction(signal, action, old);
}

int __wrap_setvbuf(FILE *stream, char *buffer, int mode, size_t size)
{
    sign();
    return __real_setvbuf(stream, buffer, mode, size);
}

void __wrap__Z11SysDelay1msj(uint32_t ms)
{
    note(("SysDelay1ms " + std::to_string(ms)).c_str());
    fakeClock.advanceMs(ms);
    if (--passesLeft == 0) {
        throw LoopLeft();
    }
}
}

namespace {

char nameOfProgram[] = "vesk_h264";
char oneArgument[] = "-x";
char *arguments[] = {nameOfProgram, oneArgument, nullptr};

// Runs main() for this many passes of its loop, or until `onCall` throws LoopLeft.
void runMain(uint32_t passes)
{
    passesLeft = passes;
    anySign = false;
    EXPECT_THROW(daemonMain(2, arguments), LoopLeft);
}

// A pipe in the place of standard output, with a stream that nothing has been written to: what a
// daemon finds whose log is collected.
class OutputPipe {
public:
    OutputPipe()
    {
        std::fflush(stdout);
        EXPECT_EQ(pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK), 0) << std::strerror(errno);
        descriptor_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 10);
        dup2(ends_[1], STDOUT_FILENO);
        stdout = fdopen(STDOUT_FILENO, "w");
    }
    ~OutputPipe()
    {
        restore();
        ::close(ends_[0]);
        ::close(ends_[1]);
    }
    OutputPipe(const OutputPipe &) = delete;
    OutputPipe &operator=(const OutputPipe &) = delete;

    // What has left the process since the last look.
    std::string look()
    {
        std::string text;
        std::array<char, 512> buffer;
        for (;;) {
            const ssize_t length = ::read(ends_[0], buffer.data(), buffer.size());
            if (length <= 0) {
                return text;
            }
            text.append(buffer.data(), static_cast<size_t>(length));
        }
    }
    void closeReadingEnd()
    {
        ::close(ends_[0]);
        ends_[0] = -1;
    }
    void restore()
    {
        if (descriptor_ < 0) {
            return;
        }
        std::fclose(stdout);
        stdout = stream_;
        dup2(descriptor_, STDOUT_FILENO);
        ::close(descriptor_);
        descriptor_ = -1;
    }

private:
    std::array<int, 2> ends_{-1, -1};
    FILE *const stream_ = stdout; // what stands in its place before and after
    int descriptor_ = -1;
};

// Start-up ---------------------------------------------------------------------------------------

const std::vector<std::string> kStartUp = {
    "MX_FATFS_Init",         "InitRs232CommandVariable",
    "udp_receive_pipe_init", "malloc_saveView",
    "udpecho_init",          "UARTInit 0",
    "loadAllUserPref",
};

constexpr size_t kCallsInAPass = 6; // that are noted, unless an update runs

TEST(Main, StartUpRunsItsStepsInOrder)
{
    initAll();
    EXPECT_EQ(journal, kStartUp);
}

TEST(Main, FailingStepDoesNotStopTheOnesAfterIt)
{
    startUpResult = -1;
    initAll();
    EXPECT_EQ(journal, kStartUp);
}

TEST(Main, StartUpHandsBackWhatLoadingTheStoredRecordsReturned)
{
    static_assert(std::is_same_v<decltype(initAll()), int32_t>);
    startUpResult = 77; // of the other steps, no one's business
    for (const int32_t result : {0, 1, -1, 123456789}) {
        loadResult = result;
        EXPECT_EQ(initAll(), result);
    }
}

TEST(Main, RunsOnWhateverStartUpHandsBack)
{
    for (const int32_t result : {0, 1, -1}) {
        journal.clear();
        loadResult = result;
        runMain(1);
        EXPECT_EQ(journal.size(), kStartUp.size() + kCallsInAPass) << result;
    }
}

TEST(Main, KeepsTheArgumentVectorBeforeAnythingElse)
{
    EXPECT_EQ(exec_argv, nullptr);
    runMain(1);
    EXPECT_TRUE(argumentsKeptFirst);
    EXPECT_EQ(exec_argv, arguments);
}

TEST(Main, SaysEnterMainOnceBehindAllStartUpStepsAndAheadOfTheFirstTask)
{
    OutputPipe output;
    std::string before;
    std::string atTheFirstTask;
    onCall = [&](const char *call) {
        std::fflush(stdout);
        if (journal.size() <= kStartUp.size()) {
            before += output.look();
        } else if (journal.size() == kStartUp.size() + 1) {
            EXPECT_STREQ(call, "TaskCommand");
            atTheFirstTask = output.look();
        }
    };
    runMain(3);
    std::fflush(stdout);
    const std::string after = output.look();
    output.restore();
    EXPECT_EQ(before, "");
    EXPECT_EQ(atTheFirstTask, "enter main\n");
    EXPECT_EQ(after, "");
}

TEST(Main, SaysEnterMainEvenIfStepsFailed)
{
    startUpResult = -1;
    testing::internal::CaptureStdout();
    runMain(2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "enter main\n");
}

// The loop ---------------------------------------------------------------------------------------

TEST(Main, EveryPassRunsTheTasksInOrderAndSleepsOneMillisecond)
{
    // Of all that is called here only the idle accounting reads the clock: once in a pass as long
    // as no window of it ends.
    fakeClock.afterReading = [] { note("IdleTask"); };
    runMain(3);
    std::vector<std::string> expected = kStartUp;
    for (int pass = 0; pass < 3; ++pass) {
        expected.insert(expected.end(),
                        {"TaskCommand", "delayCall_task", "udp2uart_task", "isUpdateProgram",
                         "TaskControl", "IdleTask", "SysDelay1ms 1"});
    }
    EXPECT_EQ(journal, expected);
}

TEST(Main, LoopKeepsCyclingWithoutAnyInput)
{
    runMain(10000);
    EXPECT_EQ(journal.size(), kStartUp.size() + 10000 * kCallsInAPass);
}

TEST(Main, IdleCountRestartsEvery1000Milliseconds)
{
    std::vector<uint32_t> counts; // behind the idle accounting of each pass
    fakeClock.setMs(123456);
    onCall = [&](const char *call) {
        if (std::strcmp(call, "SysDelay1ms 1") == 0) {
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

TEST(Main, UpdateModeLeavesOutControlIdleAccountingAndSleep)
{
    fakeClock.afterReading = [] { note("IdleTask"); };
    updateRuns = 1;
    int passes = 0;
    onCall = [&](const char *call) {
        if (std::strcmp(call, "isUpdateProgram") == 0 && ++passes == 4) {
            throw LoopLeft();
        }
    };
    runMain(1);
    std::vector<std::string> expected = kStartUp;
    for (int pass = 0; pass < 4; ++pass) {
        expected.insert(expected.end(),
                        {"TaskCommand", "delayCall_task", "udp2uart_task", "isUpdateProgram"});
    }
    EXPECT_EQ(journal, expected);
}

// The gate is asked once in a pass, so that a pass is one of either kind as a whole.
TEST(Main, UpdateModeThatBeginsBehindTheGateLetsThePassEndAsItBegan)
{
    onCall = [&](const char *call) {
        if (std::strcmp(call, "TaskControl") == 0) {
            updateRuns = 1;
        } else if (std::strcmp(call, "SysDelay1ms 1") == 0) {
            updateRuns = 0;
        }
    };
    runMain(2);
    std::vector<std::string> expected = kStartUp;
    for (int pass = 0; pass < 2; ++pass) {
        expected.insert(expected.end(), {"TaskCommand", "delayCall_task", "udp2uart_task",
                                         "isUpdateProgram", "TaskControl", "SysDelay1ms 1"});
    }
    EXPECT_EQ(journal, expected);
}

TEST(Main, EndOfUpdateModeBringsControlIdleAccountingAndSleepBack)
{
    updateRuns = 1;
    int passes = 0;
    onCall = [&](const char *call) {
        if (std::strcmp(call, "TaskCommand") == 0 && ++passes == 3) {
            updateRuns = 0;
        }
    };
    runMain(2);
    EXPECT_EQ(passes, 4);
    EXPECT_EQ(idleState, 1);
    EXPECT_EQ(journal.back(), "SysDelay1ms 1");
    EXPECT_EQ(std::count(journal.begin(), journal.end(), "TaskControl"), 2);
    EXPECT_EQ(journal.size(), kStartUp.size() + 2 * 4 + 2 * kCallsInAPass);
}

// Idle accounting --------------------------------------------------------------------------------

TEST(Main, IdleTaskStartsItsFirstWindow)
{
    EXPECT_EQ(idleState, 0);
    EXPECT_EQ(idleStartTiming, 0u);
    EXPECT_EQ(idleCount, 0u);
    fakeClock.setMs(5000);
    idleCount = 17;
    IdleTask();
    EXPECT_EQ(idleState, 1);
    EXPECT_EQ(idleStartTiming, 5000u);
    EXPECT_EQ(idleCount, 0u);
}

TEST(Main, IdleTaskCountsPassesAndNotMilliseconds)
{
    fakeClock.setMs(5000);
    IdleTask();
    for (uint32_t pass = 1; pass <= 5; ++pass) {
        IdleTask();
        EXPECT_EQ(idleCount, pass);
    }
    fakeClock.advanceMs(999);
    IdleTask();
    EXPECT_EQ(idleCount, 6u);
    EXPECT_EQ(idleStartTiming, 5000u);
    EXPECT_EQ(idleState, 1);
}

TEST(Main, IdleTaskOpensTheNextWindowWhereItFindsTheOldOneOver)
{
    fakeClock.setMs(5000);
    IdleTask();
    IdleTask();
    fakeClock.setMs(6000);
    IdleTask();
    EXPECT_EQ(idleCount, 0u); // the count of the old window is dropped
    EXPECT_EQ(idleStartTiming, 6000u);
    EXPECT_EQ(idleState, 1);
    IdleTask();
    EXPECT_EQ(idleCount, 1u);
    fakeClock.setMs(9500); // late: the next window is not aligned to the one before
    IdleTask();
    EXPECT_EQ(idleCount, 0u);
    EXPECT_EQ(idleStartTiming, 9500u);
    fakeClock.setMs(10499);
    IdleTask();
    EXPECT_EQ(idleCount, 1u);
}

TEST(Main, IdleTaskSurvivesTheWrapOfTheTick)
{
    fakeClock.setMs(0xFFFFFFF0);
    IdleTask();
    EXPECT_EQ(idleStartTiming, 0xFFFFFFF0u);
    fakeClock.advanceMs(1000); // counts as 999 across the wrap
    IdleTask();
    EXPECT_EQ(idleCount, 1u);
    fakeClock.advanceMs(1);
    IdleTask();
    EXPECT_EQ(idleCount, 0u);
    EXPECT_EQ(idleStartTiming, 985u); // -16 + 1001
}

TEST(Main, IdleTaskResetsAnyOtherStateAndNothingElse)
{
    static_assert(std::is_same_v<decltype(idleState), uint8_t>);
    static_assert(std::is_same_v<decltype(idleStartTiming), uint32_t>);
    static_assert(std::is_same_v<decltype(idleCount), uint32_t>);
    for (int state = 2; state <= 255; ++state) {
        fakeClock.setMs(5000);
        idleState = static_cast<uint8_t>(state);
        idleStartTiming = 77;
        idleCount = 88;
        IdleTask();
        EXPECT_EQ(idleState, 0) << state;
        EXPECT_EQ(idleStartTiming, 77u) << state;
        EXPECT_EQ(idleCount, 88u) << state;
        IdleTask();
        EXPECT_EQ(idleState, 1) << state;
        EXPECT_EQ(idleStartTiming, 5000u) << state;
        EXPECT_EQ(idleCount, 0u) << state;
    }
}

// The console ------------------------------------------------------------------------------------

TEST(Main, EveryLineLeavesAtOnceEvenIntoAPipe)
{
    OutputPipe output;
    std::string seen;
    std::string later;
    onCall = [&](const char *) {
        if (journal.size() == kStartUp.size() + 1) { // no flush from here on
            seen = output.look();
            std::printf("one line\n");
            later = output.look();
        }
    };
    runMain(1);
    output.restore();
    EXPECT_EQ(seen, "enter main\n");
    EXPECT_EQ(later, "one line\n");
}

TEST(Main, WritingToAConsoleThatHasGoneDoesNotEndTheDaemon)
{
    std::signal(SIGPIPE, SIG_DFL);
    OutputPipe output;
    output.closeReadingEnd();
    ssize_t written = 0;
    int error = 0;
    onCall = [&](const char *call) {
        if (std::strcmp(call, "TaskCommand") == 0) {
            std::printf("into the void\n");
            written = ::write(STDOUT_FILENO, "x", 1);
            error = errno;
        }
    };
    runMain(2);
    output.restore();
    EXPECT_EQ(written, -1);
    EXPECT_EQ(error, EPIPE);
    EXPECT_EQ(journal.size(), kStartUp.size() + 2 * kCallsInAPass);
}

TEST(Main, StartedProgramsDoNotInheritTheIgnoredSignal)
{
    std::signal(SIGPIPE, SIG_DFL);
    prepareConsole();
    const int status = std::system("kill -PIPE $$; exit 5");
    EXPECT_TRUE(WIFSIGNALED(status)) << status;
    EXPECT_EQ(WTERMSIG(status), SIGPIPE);
}

bool isNull(int descriptor)
{
    struct stat null {};
    struct stat it {};
    return stat("/dev/null", &null) == 0 && fstat(descriptor, &it) == 0 && S_ISCHR(it.st_mode) &&
           it.st_rdev == null.st_rdev;
}

int nextDescriptor()
{
    const int descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::close(descriptor);
    return descriptor;
}

// Closed streams would give their numbers to the line or to the socket.
TEST(Main, MissingStandardStreamsAreFilledSoThatNoLaterOpenGetsTheirNumbers)
{
    for (unsigned closed = 0; closed < 8; ++closed) {
        std::fflush(stdout);
        std::array<int, 3> saved;
        for (int stream = 0; stream < 3; ++stream) {
            saved[static_cast<size_t>(stream)] = fcntl(stream, F_DUPFD_CLOEXEC, 10);
            ::close(stream);
        }
        // The open ones are something that can be told from what fills the closed ones.
        std::array<int, 2> ends;
        bool prepared = pipe2(ends.data(), 0) == 0; // gets 0 and 1
        prepared = dup2(ends[0], 2) == 2 && prepared;
        const int before = nextDescriptor();
        for (int stream = 0; stream < 3; ++stream) {
            if ((closed >> stream & 1u) != 0) {
                ::close(stream);
            }
        }

        prepareConsole();

        std::array<bool, 3> open;
        std::array<bool, 3> filled;
        std::array<int, 3> access;
        for (int stream = 0; stream < 3; ++stream) {
            const size_t at = static_cast<size_t>(stream);
            open[at] = fcntl(stream, F_GETFD) >= 0;
            filled[at] = isNull(stream);
            access[at] = fcntl(stream, F_GETFL) & O_ACCMODE;
        }
        const int after = nextDescriptor();

        for (int stream = 0; stream < 3; ++stream) {
            dup2(saved[static_cast<size_t>(stream)], stream);
            ::close(saved[static_cast<size_t>(stream)]);
        }
        EXPECT_TRUE(prepared) << closed;
        for (unsigned stream = 0; stream < 3; ++stream) {
            const bool wasClosed = (closed >> stream & 1u) != 0;
            EXPECT_TRUE(open[stream]) << "closed " << closed << ", stream " << stream;
            EXPECT_EQ(filled[stream], wasClosed) << "closed " << closed << ", stream " << stream;
            if (wasClosed) {
                EXPECT_EQ(access[stream], O_RDWR) << "closed " << closed << ", stream " << stream;
            }
        }
        EXPECT_GT(before, 2) << closed;
        EXPECT_EQ(after, before) << closed; // nothing else stays open either
    }
}

} // namespace
