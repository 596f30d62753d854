#pragma once

// Sends a new executable to the device.

#include "tools/line.h"

#include <string_view>

// The device waits so long for the bytes of a block that do not come, and answers then.
inline constexpr Milliseconds kDeviceWaitsBlock{3000};

struct UpdateOptions {
    bool query;                // ask for block size and version first
    Milliseconds timeout;      // for an answer to that
    Milliseconds blockTimeout; // for an answer to a block
};

// Sends the blocks of `stream` (see updateStream()) one after the other, each when the one before
// it has been accepted, and again if it was not. Prints the numbers on standard output, what has to
// be sent again on standard error, and the progress there if that is a terminal. Returns kDone,
// kRefused or kNoAnswer.
int runUpdate(Line &line, std::string_view stream, const UpdateOptions &options);
