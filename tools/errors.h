#pragma once

// What ends a subcommand early.

#include <stdexcept>

#include "tools/status.h"

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

// SIGINT or SIGTERM came while a line was waited for (see Line::stopAt()).
struct Interrupted : std::runtime_error {
    Interrupted() : std::runtime_error("interrupted") {}
};
