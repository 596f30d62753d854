#pragma once

// Whether the device answers, and how fast.

#include "tools/line.h"

struct PingOptions {
    unsigned count = 0;          // 0: until SIGINT or SIGTERM
    Milliseconds interval{1000}; // from one question to the next
    Milliseconds timeout{1000};  // for an answer
};

// Asks for the protocol version again and again, and prints the time that each answer took, and a
// summary at the end. Returns kDone if anything came, or if nothing was missed before the user
// ended it; else kNoAnswer.
int runPing(Line &line, const PingOptions &options);
