#pragma once

// What can go wrong on our own side, told apart by the exit status that it leads to.

#include <stdexcept>

// The user asked for something that makes no sense.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// This computer would not do its part: a device that cannot be opened, a file that is not there.
struct LocalError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

enum ExitStatus : int {
    kDone = 0,
    kRefused = 1, // by the device; also a transcript step that did not hold
    kUsage = 2,
    kNoAnswer = 3,
    kLocalFailure = 4,
};
