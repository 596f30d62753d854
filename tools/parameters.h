#pragma once

// The parameters of commands, as people write them.

#include "tools/commands.h"

#include <array>
#include <string>
#include <vector>

// dat1 to dat4 of the row's command with the parameters `given`, in lower case. They have the types
// of the table: an address has dots, `on`, `off`, 1 and 0 switch, a number of several bytes is one
// value, decimal or with 0x, and other bytes are two hexadecimal digits. A command that writes
// needs all of its parameters; any other one gets the usual values for those that are missing.
// Throws UsageError; if nobody has typed a command line (see manner.h), what is wrong with
// a parameter follows its name: `mask: "255" is not an address ...`.
std::array<uint8_t, 4> dataOfParameters(const CommandRow &row,
                                        const std::vector<std::string> &given);

// What can be written for a parameter, such as "0 to 65535 ms" or "two hexadecimal digits".
std::string hintOn(const Field &field);

// The words that a parameter takes, if it takes only some; else none.
std::vector<std::string> choicesOf(const Field &field);

// The usual value as it is written.
std::string usualText(const Field &field);

// The row's parameters for a manual, such as " A.B.C.D"; those that may be missing in brackets.
std::string usageOf(const CommandRow &row);
