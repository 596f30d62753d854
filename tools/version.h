#pragma once

// `veskctl version`: which version an executable of the daemon has. It needs no device, and runs
// nothing.

#include "tools/choice.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Adds the subcommand, and returns it.
std::vector<Choice> addVersionCommands(CLI::App &app);

// The version that an executable of the daemon carries, as "1.0.0"; nothing if it carries none.
std::optional<std::string> versionIn(std::string_view program);
