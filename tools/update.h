#pragma once

// Sends a new executable to the device.

#include "tools/line.h"

#include <string_view>

// If bytes of a block do not come, the device answers after this time.
inline constexpr Milliseconds kDeviceWaitsBlock{3000};

struct UpdateOptions {
    bool query;                // ask for block size and version first
    Milliseconds timeout;      // for an answer to that
    Milliseconds blockTimeout; // for an answer to a block
};

// Sends the blocks of `stream` (see updateStream()), each after the one before it has been
// accepted, and again if it was not. Prints the figures on standard output. Standard error gets a
// line for each block that is sent again, and the progress if it is a terminal. Returns kDone,
// kRefused or kNoAnswer.
int runUpdate(Line &line, std::string_view stream, const UpdateOptions &options);
