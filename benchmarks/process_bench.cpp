// The release program as a whole, on a simulated board: start-up, memory, idle load, commands.
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

// A terminal pair. Its slave is /dev/ttyS0 for the programs that start until the next one is made.
class SerialLine {
public:
    SerialLine()
    {
        char name[64];
        if (openpty(&master_, &slave_, name, nullptr, nullptr) != 0) {
            stop("openpty");
        }
        std::filesystem::remove("/dev/ttyS0");
        std::filesystem::create_symlink(name, "/dev/ttyS0");
    }
    SerialLine(const SerialLine &) = delete;
    SerialLine &operator=(const SerialLine &) = delete;
    ~SerialLine()
    {
        close(master_);
        close(slave_);
    }

    void send(const std::string &bytes) const
    {
        if (write(master_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
            stop("writing to the line");
        }
    }

    // Reads as many bytes as `expected` has and ends the run if they are others.
    void expect(const std::string &expected) const
    {
        std::string bytes(expected.size(), '\0');
        for (size_t done = 0; done < bytes.size();) {
            const ssize_t count = read(master_, bytes.data() + done, bytes.size() - done);
            if (count <= 0) {
                stop("reading from the line");
            }
            done += static_cast<size_t>(count);
        }
        if (bytes != expected) {
            std::fprintf(stderr, "wrong reply: %s\n", bytes.c_str());
            std::exit(4);
        }
    }

private:
    int master_ = -1;
    int slave_ = -1; // kept open, or the line would hang up when the program ends
};

class Program {
public:
    explicit Program(const char *path)
    {
        int ends[2];
        if (pipe(ends) != 0) {
            stop("pipe");
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
    const SerialLine line;
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
    const SerialLine line;
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
    const SerialLine line;
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

constexpr uint32_t kCommandsInARow = 50;

std::string inARow(const std::string &text)
{
    std::string all;
    for (uint32_t i = 0; i < kCommandsInARow; ++i) {
        all += text;
    }
    return all;
}

// Processor time in nanoseconds for 500 commands, 50 in each write.
double cpuNsOfCommands(Program &program, const SerialLine &line)
{
    const std::string requests = inARow("<T0000680100000069>");
    const std::string replies = inARow("<F00006801263300c2>");
    const double before = program.cpuNs();
    for (int row = 0; row < 10; ++row) {
        line.send(requests);
        line.expect(replies);
        for (uint32_t i = 0; i < kCommandsInARow; ++i) {
            program.waitForLine("read device type");
        }
    }
    return program.cpuNs() - before;
}

// 10,000 commands for each program. They take turns every 500, so that other load on the machine
// affects both alike.
void commands(benchmark::State &state)
{
    const SerialLine daemonLine;
    Program daemon(VESK_DAEMON);
    daemon.waitForLine("enter main");
    const SerialLine plainLine;
    Program plain(VESK_PLAIN_DAEMON);
    plain.waitForLine("enter main");
    for (auto _ : state) {
        double daemonNs = 0;
        double plainNs = 0;
        for (int turn = 0; turn < 20; ++turn) {
            daemonNs += cpuNsOfCommands(daemon, daemonLine);
            plainNs += cpuNsOfCommands(plain, plainLine);
        }
        state.counters["daemon_ns"] = daemonNs / 10000;
        state.counters["plain_ns"] = plainNs / 10000;
        state.counters["ratio"] = daemonNs / plainNs;
    }
}
BENCHMARK(commands)->Iterations(1)->Repetitions(5)->ReportAggregatesOnly(false);

} // namespace
