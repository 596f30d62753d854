#pragma once

// `veskctl timing`: the daemon's video formats, its custom timing and its detection, without a
// device.

#include <vector>

#include "tools/choice.h"

// The subcommands of `timing`, for `app`.
std::vector<Choice> addTimingCommands(CLI::App &app);
