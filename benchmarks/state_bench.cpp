// The operations on the stored state, each beside the same transfers done with plain system calls:
// as many files, as many bytes, copied as often. One after the other in turns, so that whatever
// else the machine does meets both alike.
//
// Beside the time stands the number of instructions in user space, which does not depend on the
// machine's load; where the kernel does not count them, the output says so.
//
// It runs inside the board: scripts/bench.

#include <benchmark/benchmark.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/perf_event.h>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

#include "benchmarks/used_device.h"
#include "control/page.h"
#include "control/scene.h"
#include "storage/ViewReset.h"
#include "storage/ViewFile.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int32_t kPage = 3;

[[noreturn]] void stop(const char *what)
{
    std::perror(what);
    std::exit(4);
}

// Instructions of this thread in user space.
class Instructions {
public:
    Instructions()
    {
        perf_event_attr attributes{};
        attributes.size = sizeof attributes;
        attributes.type = PERF_TYPE_HARDWARE;
        attributes.config = PERF_COUNT_HW_INSTRUCTIONS;
        attributes.exclude_kernel = 1;
        attributes.exclude_hv = 1;
        descriptor_ = static_cast<int>(
            syscall(SYS_perf_event_open, &attributes, 0, -1, -1, PERF_FLAG_FD_CLOEXEC));
        if (descriptor_ < 0) {
            refusal_ = std::string("instructions are not counted here: ") + std::strerror(errno);
        }
    }
    ~Instructions()
    {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }
    Instructions(const Instructions &) = delete;
    Instructions &operator=(const Instructions &) = delete;

    // Why there are none, or nothing.
    const std::string &refusal() const
    {
        return refusal_;
    }

    uint64_t count() const
    {
        uint64_t number = 0;
        if (descriptor_ >= 0 && read(descriptor_, &number, sizeof number) != sizeof number) {
            stop("reading the instruction counter");
        }
        return number;
    }

private:
    int descriptor_ = -1;
    std::string refusal_;
};

// Standard output goes nowhere meanwhile, line by line as the daemon's does.
class QuietConsole {
public:
    QuietConsole() : saved_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 10))
    {
        std::fflush(stdout);
        setvbuf(stdout, nullptr, _IOLBF, 0);
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (saved_ < 0 || null < 0 || dup2(null, STDOUT_FILENO) < 0) {
            stop("/dev/null");
        }
        close(null);
    }
    ~QuietConsole()
    {
        std::fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }
    QuietConsole(const QuietConsole &) = delete;
    QuietConsole &operator=(const QuietConsole &) = delete;

private:
    int saved_;
};

struct Cost {
    double seconds = 0;
    double instructions = 0;
};

template <typename Action> void measure(const Instructions &counter, Cost &cost, Action action)
{
    const uint64_t before = counter.count();
    const auto start = Clock::now();
    action();
    cost.seconds += std::chrono::duration<double>(Clock::now() - start).count();
    cost.instructions += static_cast<double>(counter.count() - before);
}

// Both in turns, each with the number of the turn.
template <typename Action, typename Plain>
void compare(benchmark::State &state, Action action, Plain plain)
{
    const Instructions counter;
    Cost ours;
    Cost theirs;
    uint32_t turn = 0;
    {
        const QuietConsole quiet;
        for (auto _ : state) {
            const double before = ours.seconds;
            measure(counter, ours, [&] { action(turn); });
            measure(counter, theirs, [&] { plain(turn); });
            state.SetIterationTime(ours.seconds - before);
            ++turn;
        }
    }
    const double turns = turn;
    state.counters["us"] = ours.seconds / turns * 1e6;
    state.counters["plain_us"] = theirs.seconds / turns * 1e6;
    state.counters["ratio"] = ours.seconds / theirs.seconds;
    if (!counter.refusal().empty()) {
        state.SetLabel(counter.refusal());
        return;
    }
    state.counters["instructions"] = ours.instructions / turns;
    state.counters["plain_instructions"] = theirs.instructions / turns;
    state.counters["instruction_ratio"] = ours.instructions / theirs.instructions;
}

// Plain transfers --------------------------------------------------------------------------------

uint8_t plainRecords[sizeof(UserSetting)];
uint8_t plainView[sizeof(ViewSetting)];
uint8_t plainLiveView[sizeof(ViewSetting)];

int openFile(const char *path, int flags)
{
    const int file = open(path, flags | O_CLOEXEC, 0666);
    if (file < 0) {
        stop(path);
    }
    return file;
}

void readBytes(const char *path, void *bytes, size_t size)
{
    const int file = openFile(path, O_RDONLY);
    if (read(file, bytes, size) != static_cast<ssize_t>(size)) {
        stop(path);
    }
    close(file);
}

void writeBytes(int file, const void *bytes, size_t size)
{
    if (write(file, bytes, size) != static_cast<ssize_t>(size)) {
        stop("write");
    }
}

void readPlainView(uint32_t number)
{
    char path[64];
    std::snprintf(path, sizeof path, "/userdata/view%u.sav", number);
    readBytes(path, plainView, sizeof plainView);
}

void copyPlainView()
{
    uint8_t *from = plainView;
    uint8_t *to = plainLiveView;
    benchmark::DoNotOptimize(from);
    benchmark::DoNotOptimize(to);
    std::memcpy(to, from, sizeof plainView);
    benchmark::ClobberMemory();
}

// The measures -----------------------------------------------------------------------------------

// Every view is stored and shows something.
void storeViews()
{
    storeSettings();
    for (uint32_t i = 0; i < kViewCount; ++i) {
        ResetSaveViewSetting();
        GetSaveViewSetting()->layerAlpha[i] = 128;
        if (SaveViewSetting(static_cast<int32_t>(i)) == 0) {
            stop("storing a view");
        }
    }
}

// What the start has to do with settings that are stored.
void loadStoredState(benchmark::State &state)
{
    storeSettings();
    compare(
        state, [](uint32_t) { loadAllUserPref(); },
        [](uint32_t) {
            readBytes("/userdata/UserPref.sav", plainRecords, sizeof(UserPref));
            readBytes("/userdata/DevInfo.sav", plainRecords, sizeof(DeviceInfo));
            readBytes("/userdata/workTime.sav", plainRecords, sizeof(WorkTimeList));
            readBytes("/userdata/save0.sav", plainRecords, sizeof(UserSetting));
        });
}
BENCHMARK(loadStoredState)->UseManualTime()->Unit(benchmark::kMicrosecond);

// From the one stored view to the next.
void switchView(benchmark::State &state)
{
    storeViews();
    compare(
        state, [](uint32_t turn) { SetCurrentView(turn); },
        [](uint32_t turn) {
            readPlainView(turn % kViewCount);
            copyPlainView();
        });
}
BENCHMARK(switchView)->UseManualTime()->Unit(benchmark::kMicrosecond);

void savePage(benchmark::State &state)
{
    storeViews();
    compare(
        state, [](uint32_t) { SaveToPage(kPage); },
        [](uint32_t) {
            const int setting = openFile("/userdata/plain-save.sav", O_WRONLY | O_CREAT | O_TRUNC);
            writeBytes(setting, plainRecords, sizeof(UserSetting));
            close(setting);
            const int page = openFile("/userdata/plain-page.sav", O_WRONLY | O_CREAT | O_TRUNC);
            for (uint32_t i = 0; i < kViewCount; ++i) {
                readPlainView(i);
                writeBytes(page, plainView, sizeof plainView);
            }
            close(page);
        });
}
BENCHMARK(savePage)->UseManualTime()->Unit(benchmark::kMicrosecond);

// The least that a change of views can cost: the bytes of one, in memory.
void copyView(benchmark::State &state)
{
    for (auto _ : state) {
        copyPlainView();
    }
}
BENCHMARK(copyView);

} // namespace
