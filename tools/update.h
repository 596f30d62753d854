#pragma once

// Sends a new executable to the device.

#include "tools/line.h"
#include "tools/progress.h"

#include <string_view>

// If bytes of a block do not come, the device answers after this time.
inline constexpr Milliseconds kDeviceWaitsBlock{3000};

struct UpdateOptions {
    bool query; // ask for block size and version first
    bool isDry; // ask, and send no block
    ProgressKind progress;
    Milliseconds timeout;           // for an answer to a question; see runUpdate()
    Milliseconds blockTimeout;      // for an answer to a block
    Milliseconds restartTimeout;    // for the new program to answer
    Milliseconds firstWait{4000};   // for an answer to the first question: see runUpdate()
    Milliseconds askInterval{1000}; // between two questions whether the device has restarted
};

// Asks the device first, and once more after `firstWait`: a device that waits for the rest of an
// abandoned block hears nothing for 3 s. The second answer has 2 s at most. Then sends the blocks
// of `stream` (see updateStream()), each after the one before it has been accepted, and again if it
// was not, and asks until the device has restarted. Prints the figures and the result on standard
// output. Standard error gets a line for each block that is sent again, what went wrong with what
// to do, and the progress. SIGINT and SIGTERM end it. Returns kDone if the device has restarted;
// kNoAnswer, kRefused or kLocalFailure if no block was sent; else kNotFinished, kLocalFailure or
// kInterrupted.
int runUpdate(Line &line, std::string_view stream, const UpdateOptions &options);
