// The release program as a whole, on a simulated board: start-up, memory, idle load.
//
// It runs inside the board: scripts/bench.

#include <benchmark/benchmark.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "benchmarks/stored_state.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// A terminal pair whose slave is /dev/ttyS0 for the rest of the run.
void connectSerialLine()
{
    static int master = -1;
    static int slave = -1;
    if (master >= 0) {
        return;
    }
    char name[64];
    if (openpty(&master, &slave, name, nullptr, nullptr) != 0) {
        std::perror("openpty");
        std::exit(4);
    }
    std::filesystem::remove("/dev/ttyS0");
    std::filesystem::create_symlink(name, "/dev/ttyS0");
}

class Program {
public:
    explicit Program(const char *path)
    {
        connectSerialLine();
        int ends[2];
        if (pipe(ends) != 0) {
            std::perror("pipe");
            std::exit(4);
        }
        pid_ = fork();
        if (pid_ == 0) {
            dup2(ends[1], STDOUT_FILENO);
            close(ends[0]);
            close(ends[1]);
            execl(path, path, static_cast<char *>(nullptr));
            _exit(127);
        }
        close(ends[1]);
        output_ = fdopen(ends[0], "r");
    }
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;
    ~Program()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        std::fclose(output_);
    }

    void waitForLine(const char *line)
    {
        char text[256];
        while (std::fgets(text, sizeof text, output_) != nullptr) {
            if (std::string(text) == std::string(line) + "\n") {
                return;
            }
        }
        std::fprintf(stderr, "the program ended before it printed \"%s\"\n", line);
        std::exit(4);
    }

    // Nanoseconds on a processor so far, all threads.
    double cpuNs() const
    {
        double total = 0;
        const std::string tasks = "/proc/" + std::to_string(pid_) + "/task";
        for (const auto &task : std::filesystem::directory_iterator(tasks)) {
            std::ifstream file(task.path() / "schedstat");
            double ns = 0;
            file >> ns;
            total += ns;
        }
        return total;
    }

    // The memory that belongs to this process alone, in kB.
    double privateKb() const
    {
        std::ifstream file("/proc/" + std::to_string(pid_) + "/smaps_rollup");
        double total = 0;
        for (std::string word; file >> word;) {
            double kb = 0;
            if ((word == "Private_Clean:" || word == "Private_Dirty:") && file >> kb) {
                total += kb;
            }
        }
        return total;
    }

private:
    pid_t pid_ = -1;
    FILE *output_ = nullptr;
};

void startToEnterMain(benchmark::State &state)
{
    connectSerialLine();
    storeSettings();
    for (auto _ : state) {
        const auto start = Clock::now();
        Program daemon(VESK_DAEMON);
        daemon.waitForLine("enter main");
        state.SetIterationTime(secondsSince(start));
    }
}
BENCHMARK(startToEnterMain)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(200);

void idleMemory(benchmark::State &state)
{
    Program daemon(VESK_DAEMON);
    daemon.waitForLine("enter main");
    sleep(2);
    for (auto _ : state) {
        state.counters["private_kB"] = daemon.privateKb();
    }
}
BENCHMARK(idleMemory)->Iterations(1);

// Both programs idle side by side, so that other load on the machine affects both alike.
void idleLoad(benchmark::State &state)
{
    Program daemon(VESK_DAEMON);
    daemon.waitForLine("enter main");
    Program pair(VESK_IDLE_PAIR);
    sleep(1);
    for (auto _ : state) {
        const double daemonBefore = daemon.cpuNs();
        const double pairBefore = pair.cpuNs();
        sleep(10);
        const double daemonNs = daemon.cpuNs() - daemonBefore;
        const double pairNs = pair.cpuNs() - pairBefore;
        state.counters["daemon_ms_per_s"] = daemonNs / 10 / 1e6;
        state.counters["pair_ms_per_s"] = pairNs / 10 / 1e6;
        state.counters["ratio"] = daemonNs / pairNs;
    }
}
BENCHMARK(idleLoad)->Iterations(1)->Repetitions(5)->ReportAggregatesOnly(false);

} // namespace
