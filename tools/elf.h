#pragma once

// Whether a file is a program that the device can run.

#include <optional>
#include <string>
#include <string_view>

enum class Machine { kArm, kX86, kAny };

// What is wrong with `file` as a program for the device; "" if nothing is. It must be an executable
// ELF file for `machine`, whole, and as large as sizesOfPrograms() says.
std::string faultOfProgram(std::string_view file, Machine machine);

// How large a program is: "1 KiB to 16 MiB".
std::string sizesOfPrograms();

// The processor that an ELF file with the low byte first is for, as "32-bit ARM".
// Requires: faultOfProgram() finds nothing wrong with it for any machine.
std::string machineOf(std::string_view file);
