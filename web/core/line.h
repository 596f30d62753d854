#pragma once

// What the page's line is to the tool: descriptors that can be waited for.

#include "tools/wait.h"

inline constexpr int kLineDescriptor = 1000;
inline constexpr int kInterruptionDescriptor = 1001;

enum class Arrival { kNothing = 0, kBytes = 1, kEnd = 2, kInterruption = 3 };

// Waits until the page's user has interrupted the run or, with `forBytes`, until the line has bytes
// that were not received yet or is gone. kNothing: neither came in time.
Arrival awaitLine(bool forBytes, Milliseconds timeout);
