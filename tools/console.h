#pragma once

// The interactive console: the desk of somebody who has the daemon in front of them. Everything
// that passes on the lines and everything that the daemon prints is shown as it happens.

#include "tools/player.h"

// Runs until `quit`, the end of the input or Ctrl-C; the desk has at least one of the lines.
// Returns kDone. Throws LocalError.
int runConsole(const Desk &desk, Milliseconds timeout);
