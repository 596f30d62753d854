// Times the operations on the stored state, each beside its plain counterpart. The two take turns,
// and also take turns at going first, so that other load on the machine affects both alike.
//
// It runs inside the board: scripts/bench.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "benchmarks/stored_state.h"

namespace {

using Clock = std::chrono::steady_clock;

// Discards standard output while it exists, line by line as the daemon writes it.
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

double secondsOf(void (*action)(uint32_t turn), uint32_t turn)
{
    const auto start = Clock::now();
    action(turn);
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void compare(benchmark::State &state, const StoredStateOperation &operation)
{
    double daemon = 0;
    double plain = 0;
    uint32_t turn = 0;
    {
        const QuietConsole quiet;
        operation.prepare();
        for (auto _ : state) {
            const double first =
                secondsOf(turn % 2 == 0 ? operation.daemon : operation.plain, turn);
            const double second =
                secondsOf(turn % 2 == 0 ? operation.plain : operation.daemon, turn);
            const double seconds = turn % 2 == 0 ? first : second;
            state.SetIterationTime(seconds);
            daemon += seconds;
            plain += first + second - seconds;
            ++turn;
        }
    }
    state.counters["plain_us"] = plain / turn * 1e6;
    state.counters["ratio"] = daemon / plain;
}

// The least that a change of views can cost: copying one view in memory.
void copyView(benchmark::State &state)
{
    for (auto _ : state) {
        copyPlainView();
    }
}
BENCHMARK(copyView);

} // namespace

int main(int argc, char **argv)
{
    for (const StoredStateOperation &operation : kStoredStateOperations) {
        benchmark::RegisterBenchmark(std::string(operation.name).c_str(), compare, operation)
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
