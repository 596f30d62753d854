#pragma once

// A wall clock and a sleep that the test owns; link with `fake_clock`. Sleeping moves the clock, so
// no test waits. Not for tests with threads of their own.

#include <cstdint>
#include <functional>
#include <vector>

struct FakeClock {
    int64_t nowUs = 0;                  // microseconds since the epoch; may be negative
    bool fails = false;                 // gettimeofday() reports an error and stores nothing
    std::vector<uint32_t> sleepsUs;     // every usleep() so far, in order
    std::function<void()> afterReading; // called behind every reading
    std::function<void()> onSleep;      // called at every sleep, after the clock has moved

    void setMs(int64_t ms)
    {
        nowUs = ms * 1000;
    }
    void advanceMs(int64_t ms)
    {
        nowUs += ms * 1000;
    }
};

extern FakeClock fakeClock;
