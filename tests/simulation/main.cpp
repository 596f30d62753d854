// Lives of simulated devices, one seed each. See README.md.

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "tests/simulation/life.h"
#include "tests/simulation/scenarios.h"

#ifdef SIMULATION_ASAN
// A thread that the power took leaves what it held; the daemon's own memory is counted by the
// simulation.
extern "C" const char *__asan_default_options();
const char *__asan_default_options()
{
    return "detect_leaks=0";
}
#endif

namespace {

constexpr unsigned kHangSeconds = 60;

// In memory that parent and children share.
struct Shared {
    Journal journal;
    LifeCounts counts;
    // Of --every-call: where it is, and the points so far.
    uint64_t seed, way, call;
    uint64_t points[3];
};

struct Options {
    uint64_t seed = 0;
    bool isOneSeed = false;
    uint64_t lives = 0;       // 0: until the time is over
    uint64_t seconds = 0;     // 0: until the lives are lived
    std::vector<size_t> only; // of the plan
    bool shrinks = false;
    bool isVerbose = false;
    bool everyCall = false;
    std::string scenario; // instead of what the seed plans; with everyCall: how their names begin
    LifeOptions life;
};

[[noreturn]] void usage()
{
    std::fputs(
        "usage: simulation [--seed N] [--lives N] [--seconds N] [--only I,J,...] [--stop-at STEP]\n"
        "                  [--fail-at CALL [--fail-lasts]] [--cut-at CALL]\n"
        "                  [--every-call] [--scenario NAME]\n"
        "                  [--shrink] [--verbose] [--canary] [--every-pass]\n",
        stderr);
    std::exit(2);
}

Options readOptions(int argc, char **argv)
{
    Options options;
    options.seed = static_cast<uint64_t>(std::time(nullptr)) % 1000000 * 100000;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        const auto number = [&] {
            return i + 1 < argc ? std::strtoull(argv[++i], nullptr, 10) : (usage(), 0);
        };
        if (name == "--seed") {
            options.seed = number();
            options.isOneSeed = true;
        } else if (name == "--lives") {
            options.lives = number();
        } else if (name == "--seconds") {
            options.seconds = number();
        } else if (name == "--stop-at") {
            options.life.stopAtStep = number();
        } else if (name == "--fail-at") {
            options.life.failAt = number();
        } else if (name == "--fail-lasts") {
            options.life.failLasts = true;
        } else if (name == "--cut-at") {
            options.life.cutAfter = number();
        } else if (name == "--every-call") {
            options.everyCall = true;
        } else if (name == "--scenario" && i + 1 < argc) {
            options.scenario = argv[++i];
        } else if (name == "--only" && i + 1 < argc) {
            for (const char *at = argv[++i]; *at != '\0'; at += *at == ',' ? 1 : 0) {
                char *end;
                options.only.push_back(std::strtoul(at, &end, 10));
                if (end == at) {
                    usage();
                }
                at = end;
            }
        } else if (name == "--shrink") {
            options.shrinks = true;
        } else if (name == "--canary") {
            options.life.canary = true;
        } else if (name == "--verbose") {
            options.isVerbose = true;
        } else if (name == "--every-pass") {
            options.life.isFast = false;
        } else {
            usage();
        }
    }
    options.isOneSeed = options.isOneSeed && options.lives <= 1 && options.seconds == 0;
    bool isKnown = options.scenario.empty();
    for (const Scenario &scenario : scenarios()) {
        if (scenario.name == options.scenario) {
            options.life.firstDay = scenario.firstDay;
        }
        isKnown = isKnown || scenario.name == options.scenario ||
                  (options.everyCall && scenario.name.rfind(options.scenario, 0) == 0);
    }
    if (!isKnown) {
        usage();
    }
    return options;
}

std::vector<Action> choose(const std::vector<Action> &plan, const std::vector<size_t> &indexes)
{
    std::vector<Action> chosen;
    for (const size_t i : indexes) {
        if (i < plan.size()) {
            chosen.push_back(plan[i]);
        }
    }
    return chosen;
}

std::vector<size_t> allOf(const std::vector<Action> &plan)
{
    std::vector<size_t> indexes(plan.size());
    for (size_t i = 0; i < indexes.size(); ++i) {
        indexes[i] = i;
    }
    return indexes;
}

// Returns the invariant that failed in a child, or how the child died, or nothing.
std::string waitFor(pid_t child, const Shared &shared)
{
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        return {};
    }
    if (WIFEXITED(status) && shared.journal.invariant[0] != '\0') {
        return shared.journal.invariant;
    }
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM ? "hang" : "crash";
}

std::vector<Action> planOf(const Options &options)
{
    for (const Scenario &scenario : scenarios()) {
        if (scenario.name == options.scenario) {
            return scenario.plan;
        }
    }
    return planLife(options.seed);
}

// Lives a plan in a child. Returns as waitFor().
std::string liveApart(Shared &shared, uint64_t seed, const std::vector<Action> &plan,
                      const LifeOptions &options, bool isQuiet)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        if (isQuiet) {
            std::freopen("/dev/null", "w", stderr);
        }
        alarm(kHangSeconds);
        shared.counts = {};
        _exit(live(seed, plan, options, shared.journal, shared.counts) ? 0 : 1);
    }
    return waitFor(child, shared);
}

void report(const Shared &shared, const std::string &kind, const std::string &again)
{
    const Journal &journal = shared.journal;
    std::printf("\nFAILED  seed %llu, step %llu: %s: %s\n\nthe last events:\n",
                static_cast<unsigned long long>(journal.seed),
                static_cast<unsigned long long>(journal.step), kind.c_str(), journal.reason);
    journal.print(stdout);
    std::printf(
        "\nrun it again:    scripts/simulate %s\nin a debugger:   scripts/simulate %s --gdb %llu\n",
        again.c_str(), again.c_str(), static_cast<unsigned long long>(journal.step));
    std::fflush(stdout);
}

std::string listOf(const std::vector<size_t> &indexes)
{
    std::string text;
    for (const size_t i : indexes) {
        text += (text.empty() ? "" : ",") + std::to_string(i);
    }
    return text;
}

// Leaves out actions, many at first, as long as the same invariant fails.
void shrink(Shared &shared, uint64_t seed, std::vector<size_t> indexes, const std::string &kind,
            const LifeOptions &options)
{
    for (size_t part = std::max<size_t>(indexes.size() / 2, 1);; part /= 2) {
        for (size_t at = 0; at < indexes.size();) {
            std::vector<size_t> fewer = indexes;
            const size_t end = std::min(at + part, fewer.size());
            fewer.erase(fewer.begin() + static_cast<ptrdiff_t>(at),
                        fewer.begin() + static_cast<ptrdiff_t>(end));
            if (liveApart(shared, seed, choose(planLife(seed), fewer), options, true) == kind) {
                indexes = fewer;
            } else {
                at += part;
            }
        }
        if (part <= 1) {
            break;
        }
    }
    const auto plan = choose(planLife(seed), indexes);
    liveApart(shared, seed, plan, options, false);
    std::printf("\n== %zu actions are enough:\n", plan.size());
    for (size_t i = 0; i < plan.size(); ++i) {
        std::printf("  %3zu  %s\n", indexes[i], nameOf(plan[i].kind));
    }
    report(shared, kind, "--seed " + std::to_string(seed) + " --only " + listOf(indexes));
}

std::string pointOf(const LifeOptions &life)
{
    return (life.failAt != 0 ? " --fail-at " + std::to_string(life.failAt) : std::string()) +
           (life.failLasts ? " --fail-lasts" : "") +
           (life.cutAfter != 0 ? " --cut-at " + std::to_string(life.cutAfter) : std::string());
}

// Every call --------------------------------------------------------------------------------------

// What happens at a call: it fails, it fails from then on, or the power fails after it.
constexpr uint64_t kWays = 3;

LifeOptions lifeAtPoint(const Shared &shared, const Options &options, const Scenario &scenario)
{
    LifeOptions life = options.life;
    life.firstDay = scenario.firstDay;
    life.failAt = shared.way < 2 ? shared.call : 0;
    life.failLasts = shared.way == 1;
    life.cutAfter = shared.way == 2 ? shared.call : 0;
    return life;
}

// Goes on from where `shared` is, until the calls are at an end. Returns false at a point that
// fails.
bool goOn(Shared &shared, const Options &options, const Scenario &scenario, uint64_t lastSeed)
{
    for (; shared.seed <= lastSeed; ++shared.seed, shared.way = 0) {
        for (; shared.way < kWays; ++shared.way, shared.call = 1) {
            for (bool isReached = true; isReached; ++shared.call) {
                alarm(kHangSeconds);
                LifeCounts counts{};
                const LifeOptions life = lifeAtPoint(shared, options, scenario);
                if (!live(shared.seed, scenario.plan, life, shared.journal, counts)) {
                    return false;
                }
                isReached = (shared.way == 2 ? counts.cuts : counts.faults) != 0;
                shared.points[shared.way] += isReached ? 1 : 0;
            }
        }
    }
    return true;
}

bool goThroughCalls(Shared &shared, const Options &options)
{
    constexpr uint64_t kSeeds = 3; // of each scenario: disks and consoles differ
    constexpr int kMostFailures = 10;
    const uint64_t first = options.isOneSeed ? options.seed : 1;
    const uint64_t last = first + kSeeds - 1;
    uint64_t all[kWays] = {};
    int failed = 0;
    for (const Scenario &scenario : scenarios()) {
        if (scenario.name.rfind(options.scenario, 0) != 0) {
            continue;
        }
        shared.seed = first;
        shared.way = 0;
        shared.call = 1;
        std::fill(std::begin(shared.points), std::end(shared.points), 0);
        for (bool isOver = false; !isOver && failed < kMostFailures;) {
            std::fflush(nullptr);
            const pid_t child = fork();
            if (child == 0) {
                _exit(goOn(shared, options, scenario, last) ? 0 : 1);
            }
            const std::string kind = waitFor(child, shared);
            isOver = kind.empty();
            if (!isOver) {
                ++failed;
                report(shared, kind,
                       "--scenario " + scenario.name + " --seed " + std::to_string(shared.seed) +
                           pointOf(lifeAtPoint(shared, options, scenario)));
                ++shared.call;
            }
        }
        std::printf("%-28s %-26s", scenario.kind.c_str(), scenario.name.c_str());
        for (uint64_t way = 0; way < kWays; ++way) {
            std::printf("%7llu", static_cast<unsigned long long>(shared.points[way]));
            all[way] += shared.points[way];
        }
        std::printf("\n");
        std::fflush(stdout);
    }
    std::printf("%llu calls failed once, %llu from then on, %llu power cuts: %llu points, %d "
                "failed\n",
                static_cast<unsigned long long>(all[0]), static_cast<unsigned long long>(all[1]),
                static_cast<unsigned long long>(all[2]),
                static_cast<unsigned long long>(all[0] + all[1] + all[2]), failed);
    return failed == 0;
}

void print(const LifeCounts &counts, double processor)
{
    const double minutes = static_cast<double>(counts.busy) / 60e9;
    std::printf(
        "%llu lives, %llu boots, %llu power cuts and %llu looked at, %llu commands, %llu installations, %llu "
        "calls failed\n%.1f hours simulated, %.1f of them pass by pass, %.1f ms of processor time for such a "
        "minute\n",
        static_cast<unsigned long long>(counts.lives),
        static_cast<unsigned long long>(counts.boots), static_cast<unsigned long long>(counts.cuts),
        static_cast<unsigned long long>(counts.looks),
        static_cast<unsigned long long>(counts.commands),
        static_cast<unsigned long long>(counts.installs),
        static_cast<unsigned long long>(counts.faults),
        static_cast<double>(counts.simulated) / 3600e9, static_cast<double>(counts.busy) / 3600e9,
        minutes > 0 ? processor * 1000 / minutes : 0);
}

} // namespace

int main(int argc, char **argv)
{
    const Options options = readOptions(argc, argv);
    void *const memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        std::perror("mmap");
        return 2;
    }
    Shared &shared = *static_cast<Shared *>(memory);

    if (options.everyCall) {
        return goThroughCalls(shared, options) ? 0 : 1;
    }
    if (options.isOneSeed) {
        shared.journal.prints = options.isVerbose;
        const std::vector<Action> all = planOf(options);
        const auto indexes = options.only.empty() ? allOf(all) : options.only;
        if (options.life.stopAtStep != 0) { // a debugger watches this very process
            LifeCounts counts{};
            return live(options.seed, choose(all, indexes), options.life, shared.journal, counts)
                       ? 0
                       : 1;
        }
        const std::string kind =
            liveApart(shared, options.seed, choose(all, indexes), options.life, false);
        if (kind.empty()) {
            std::printf("seed %llu: every invariant held; %llu calls could have failed\n",
                        static_cast<unsigned long long>(options.seed),
                        static_cast<unsigned long long>(shared.counts.calls));
            return 0;
        }
        std::string again = "--seed " + std::to_string(options.seed);
        again += options.scenario.empty() ? "" : " --scenario " + options.scenario;
        again += pointOf(options.life);
        again += options.only.empty() ? "" : " --only " + listOf(indexes);
        report(shared, kind, again);
        if (options.shrinks && options.scenario.empty()) {
            shared.journal.prints = false;
            shrink(shared, options.seed, indexes, kind, options.life);
        }
        return 1;
    }

    std::printf("seeds from %llu\n", static_cast<unsigned long long>(options.seed));
    const std::time_t end = std::time(nullptr) + static_cast<std::time_t>(options.seconds);
    const uint64_t last = options.lives == 0 && options.seconds == 0 ? options.seed + 1000
                          : options.lives == 0                       ? UINT64_MAX
                                                                     : options.seed + options.lives;
    int failed = 0;
    for (uint64_t seed = options.seed; seed < last && failed < 5;) {
        // A child lives many lives; a new one goes on after the seed that it failed in.
        constexpr uint64_t kLivesOfAChild = 2000;
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            const uint64_t stop = std::min(last, seed + kLivesOfAChild);
            for (; seed < stop && (options.seconds == 0 || std::time(nullptr) < end); ++seed) {
                alarm(kHangSeconds);
                if (!live(seed, planLife(seed), options.life, shared.journal, shared.counts)) {
                    _exit(1);
                }
            }
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            ++failed;
            const std::string kind = shared.journal.invariant[0] != '\0' ? shared.journal.invariant
                                     : WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM ? "hang"
                                                                                          : "crash";
            report(shared, kind, "--seed " + std::to_string(shared.journal.seed));
        }
        seed = shared.journal.seed + 1;
        if (options.seconds != 0 && std::time(nullptr) >= end) {
            break;
        }
    }
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    std::printf("\n");
    print(shared.counts,
          static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
              static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6);
    std::printf("%d failed\n", failed);
    return failed == 0 ? 0 : 1;
}
