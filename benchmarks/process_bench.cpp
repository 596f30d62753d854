// The release program as a whole, on a simulated board: start-up, memory, idle load, commands.
//
// It runs inside the board: scripts/bench.

#include <benchmark/benchmark.h>

#include <string>
#include <unistd.h>

#include "benchmarks/board_program.h"
#include "benchmarks/stored_state.h"

namespace {

void startToEnterMain(benchmark::State &state)
{
    const SerialLine line;
    storeSettings();
    for (auto _ : state) {
        const auto start = Clock::now();
        Program daemon({VESK_DAEMON});
        daemon.waitForLine("enter main");
        state.SetIterationTime(secondsSince(start));
    }
}
BENCHMARK(startToEnterMain)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(200);

void idleMemory(benchmark::State &state)
{
    const SerialLine line;
    Program daemon({VESK_DAEMON});
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
    Program daemon({VESK_DAEMON});
    daemon.waitForLine("enter main");
    Program pair({VESK_IDLE_PAIR});
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
    Program daemon({VESK_DAEMON});
    daemon.waitForLine("enter main");
    const SerialLine plainLine;
    Program plain({VESK_PLAIN_DAEMON});
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
