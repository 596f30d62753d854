#pragma once

// A linked device as an object of a test, the line to it, and the thread that receives from it.

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

#include "core/pipe.h"
#include "tests/system/board.h"

// linked_device.h explains the modes.
struct Turn {
    std::string mode;
    uint32_t count;
    uint32_t ms = 0;
};
using Plan = std::vector<Turn>;

uint32_t commandsOf(const Plan &plan);

// The commands that are answered at some time, by their running numbers.
std::vector<uint32_t> answeredIn(const Plan &plan);

// The two ends of a line, and the functions that move bytes at the link's end: all that a link and
// its owner know of it.
struct Line {
    Descriptor ours;
    Descriptor devices;
    int32_t (*send)(const uint8_t *bytes, int32_t length);
    int32_t (*receive)(int32_t descriptor, void *buffer, uint32_t length);
};

// A pseudo terminal as the board's second serial line, opened as the daemon opens the first.
Line serialLine();

Line socketLine();

// A link's send function is told no line: it is this one.
void sendOn(const Line &line);

// One run of the device's program.
class LinkedDevice {
public:
    // Takes the device's end of `line` away.
    LinkedDevice(Line *line, const Plan &plan);

    // Kills it if it still runs.
    ~LinkedDevice();
    LinkedDevice(const LinkedDevice &) = delete;
    LinkedDevice &operator=(const LinkedDevice &) = delete;

    // What it prints until it ends, which it does when the other end of its line is closed.
    std::string report();

private:
    pid_t process = -1;
    Descriptor output;
};

// Hands the bytes of a line to a pipe, on a thread of its own, until it is destroyed. It loses
// none: while the pipe is full it waits.
class Receiver {
public:
    Receiver(const Line &line, struct pipe *pipe);
    ~Receiver();
    Receiver(const Receiver &) = delete;
    Receiver &operator=(const Receiver &) = delete;

private:
    void run() const;

    int descriptor;
    int32_t (*receive)(int32_t descriptor, void *buffer, uint32_t length);
    struct pipe *target;
    Descriptor stopSeen;
    Descriptor stop;
    std::thread thread;
};
