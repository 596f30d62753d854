#pragma once

// `veskctl timing`: the daemon's video formats, its custom timing and its detection, without a
// device.

#include <string>
#include <vector>

#include "tools/choice.h"

// The subcommands of `timing`, for `app`.
std::vector<Choice> addTimingCommands(CLI::App &app);

// The names of the classes of formats, and "none" for formats of no class.
std::vector<std::string> formatClasses();
