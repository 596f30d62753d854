#pragma once

// The interactive console. It shows all traffic on the lines and everything that the daemon prints,
// as it happens.

#include "tools/player.h"

// Runs until `quit`, the end of the input or Ctrl-C. Throws LocalError. Returns kDone if a
// person typed or interrupted it; else the highest of the exit statuses that the lines would have.
// Requires: the desk has at least one of the lines.
int runConsole(const Desk &desk, Milliseconds timeout);
