#pragma once

// The interactive console. It shows all traffic on the lines and everything that the daemon prints,
// as it happens.

#include "tools/player.h"

// Runs until `quit`, the end of the input or Ctrl-C. Returns kDone. Throws LocalError.
// Requires: the desk has at least one of the lines.
int runConsole(const Desk &desk, Milliseconds timeout);
