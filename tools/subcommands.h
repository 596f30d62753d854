#pragma once

// The subcommands of veskctl that are neither console nor transcript. Each returns the exit status.

#include "tools/line.h"

#include <string>
#include <vector>

// Sends the command that `text` stands for (see frameFromText()) and prints the reply. Replies to
// other commands are left out, with a word on standard error.
int runSend(Line &line, const std::string &text, Milliseconds timeout);

// Prints what arrives, frames decoded, until SIGINT or SIGTERM.
int runMonitor(Line &line);

// Prints the meaning of the frames in `texts`, or on standard input if there are none.
int runDecode(const std::vector<std::string> &texts);
