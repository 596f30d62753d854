#pragma once

// Standard output, which may be a full disk.

#include <string_view>

// Writes what has been printed. Throws LocalError if anything printed so far could not be written.
void flushOutput();

// Prints a text of any length. Throws LocalError if it cannot be written.
void printText(std::string_view text);
