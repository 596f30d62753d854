#pragma once

// The errors on our own side, one type for each exit status.

#include <stdexcept>

// The user asked for something that is not possible.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Something failed on this computer: a device that cannot be opened, a missing file.
struct LocalError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A line that was open is gone: a cable that has been pulled, a network that has gone down.
struct LineLost : LocalError {
    using LocalError::LocalError;
};

enum ExitStatus : int {
    kDone = 0,
    kRefused = 1, // by the device; also a transcript step that did not hold
    kUsage = 2,
    kNoAnswer = 3,
    kLocalFailure = 4,
};
