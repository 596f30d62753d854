#pragma once

// The world that one life of a device is played in. One at a time.

#include <string>

#include "tests/simulation/disk.h"
#include "tests/simulation/faults.h"
#include "tests/simulation/journal.h"
#include "tests/simulation/line.h"
#include "tests/simulation/network.h"
#include "tests/simulation/random.h"
#include "tests/simulation/threads.h"
#include "tests/simulation/tools.h"

class Model;

// An invariant does not hold. Thrown to the outside, never through the daemon.
struct InvariantFailed {};
// The power fails at the call of the daemon that a run was told. Thrown to the outside.
struct PowerFails {};

struct World {
    World(uint64_t seed, Journal &shared);
    ~World();

    // Puts a line in the journal.
    void note(const char *format, ...) __attribute__((format(printf, 2, 3)));
    // The same for bytes from the line. Reads that follow each other share a line.
    void noteRead(const std::string &bytes);
    // The invariant failed: the life is over. Does not return.
    [[noreturn]] void fail(const char *invariant, const std::string &reason);
    // For the outside: lets the others run for this long.
    void let(Time duration);
    // The daemon made a call.
    void step();
    // Wall clock, nanoseconds since 1970.
    Time wall() const
    {
        return threads.now() + wallOffset;
    }
    bool isMainThread() const
    {
        return threads.current() == 1;
    }
    // Leaves out passes of an idle loop. See README.md.
    void skipIdleTime();
    // The fate of the disk's content if the power failed now is looked at, sometimes.
    void considerCut();

    Journal &journal;
    Random random;
    Threads threads;
    Disk disk;
    Line line;
    Network network;
    Tools tools;
    Faults faults;
    Model *model = nullptr;

    std::string lastReads; // those of the journal's last line
    uint64_t lastReadsCount = 0;

    Time wallOffset = 0;
    Time lastActivity = 0; // of the daemon, other than looking for input
    Time armedUntil = 0;   // wall clock: the last delayed call is due
    bool skipsIdleTime = true;
    Time skipped = 0;              // idle time that was left out
    Time stalled = 0;              // time that the daemon waited for a line that takes nothing
    uint32_t console = 0;          // its kind: S_IFCHR, S_IFIFO or S_IFSOCK
    bool consoleIsStopped = false; // nobody reads it, and it is full
    bool isRunning = false;        // the daemon
    bool startIsBad = false;       // it got no line, no thread or no memory, and does not try again
    int exitStatus = -1;           // of the last daemon, -1 while it runs or after a kill
    size_t memoryBlocks = 0;       // that the daemon holds
    size_t descriptors = 0;        // that the daemon holds
    uint64_t stopAtStep = 0;       // for a debugger
    uint64_t cutAfter = 0; // the power fails after this many calls that could have failed; 0: never
    bool powerHasFailed = false;
    uint64_t looksAtDisk = 0; // statistics: power cuts looked at but not made
};

extern World *world;

// What others do in the world, for the journal.
std::string inWords(const std::string &bytes);
