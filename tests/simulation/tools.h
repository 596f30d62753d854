#pragma once

// The system's tools: what the daemon starts through the shell, the network settings that they
// show, and their bad days.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/simulation/threads.h"

struct World;

// What the running system has.
struct SystemNetwork {
    bool isUp = true;
    uint8_t ip[4] = {10, 1, 2, 3};
    uint8_t mask[4] = {255, 255, 0, 0};
    uint8_t gateway[4] = {10, 1, 0, 1};
    uint8_t dns[4] = {10, 1, 0, 53};
    uint8_t mac[6] = {2, 0x76, 0x65, 0x73, 0x6B, 1};
};

enum class Mood {
    kTrue,
    kCut,    // the output ends somewhere
    kOdd,    // blanks, tabs, lines that nobody expects, numbers that are none
    kHang,   // takes seconds
    kFails,  // prints nothing, status 1
    kAbsent, // cannot be started
};

class Tools {
public:
    explicit Tools(World &world) : world_(world) {}

    struct Run {
        std::string command;
        bool isStarted = false;
        int status = 0; // as waitpid() gives it
        std::string output;
    };
    // Runs a command line to its end, in the time of the calling thread.
    Run run(const std::string &command);

    SystemNetwork network;
    Mood mood = Mood::kTrue;
    int moodRuns = 0;            // how many more runs have the mood
    bool isInCopyWindow = false; // the program is being replaced

    // The power was off, or the daemon was killed, and the tools with it.
    void endRun()
    {
        busyBefore_ = busy();
        began_ = kNever;
        isInCopyWindow = false;
    }
    // Time that the daemon has spent in tools so far.
    Time busy() const;

private:
    std::string say(const std::string &command, int *status);
    std::string spoil(std::string text);
    bool copy(const std::string &from, const std::string &to, bool toIsRunning);
    void install(int *status);
    void take(Time duration);

    World &world_;
    Time busyBefore_ = 0;
    Time began_ = kNever; // the run in progress
};
