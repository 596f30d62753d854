#pragma once

// A serial device that one process has alone.

#include "tools/wait.h"

#include <string>

// Opens a device without waiting for its modem lines and locks it, before anything of it is read or
// changed. While another process has it, tries again as long as `wait` says. Returns the
// descriptor. Throws LocalError with what to do.
int openAlone(const std::string &device, Milliseconds wait);
