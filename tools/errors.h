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

// SIGINT or SIGTERM came while a line was waited for (see Line::stopAt()).
struct Interrupted : std::runtime_error {
    Interrupted() : std::runtime_error("interrupted") {}
};
