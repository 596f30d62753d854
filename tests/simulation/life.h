#pragma once

// A device's life, from its seed: boots, traffic, settings, updates, faults, power cuts.

#include <cstdint>
#include <string>
#include <vector>

#include "tests/simulation/journal.h"
#include "tests/simulation/threads.h"

// One thing that happens to the device. What exactly is drawn from the action's own seed, so a life
// with some actions left out is the same in the others.
struct Action {
    enum Kind : uint8_t {
        kCommand,
        kBurst,
        kBrokenFrame,
        kNoise,
        kWriteData,
        kWriteText,
        kUpdate,
        kDatagram,
        kManyDatagrams,
        kClockStep,
        kSystemChanges,
        kToolsFail,
        kCallFails,
        kCallKeepsFailing,
        kDiskFull,
        kLineStalls,
        kConsoleStops,
        kHeal,
        kWait,
        kLongWait,
        kPowerCut,
        kKill,
        kBadStart,
        kSay, // only in scenarios
        kCount
    } kind;
    uint64_t seed;     // of kSay: how many milliseconds to wait when it is answered
    std::string bytes; // of kSay
};
const char *nameOf(Action::Kind kind);

std::vector<Action> planLife(uint64_t seed);

// The records that a life begins with.
enum class FirstDay : uint8_t { none, bad, stored, drawn };

struct LifeCounts {
    uint64_t lives, cuts, looks, boots, installs, faults, calls, commands;
    int64_t simulated; // nanoseconds
    int64_t busy;      // of them, with every pass of the loop
};

struct LifeOptions {
    uint64_t stopAtStep = 0; // for a debugger
    bool canary = false;     // one seed in a hundred has an invariant that is wrong
    bool isFast = true;      // idle time may be left out
    FirstDay firstDay = FirstDay::drawn;
    // For runs that go through all calls of a life: see Faults::failAt and World::cutAfter.
    uint64_t failAt = 0;
    bool failLasts = false;
    uint64_t cutAfter = 0;
};

// Lives it. Returns true when every invariant held; the journal says what did not.
bool live(uint64_t seed, const std::vector<Action> &plan, const LifeOptions &options,
          Journal &journal, LifeCounts &counts);
