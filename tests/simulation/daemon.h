#pragma once

// The daemon in the simulated world: a shared library of its unmodified sources, whose variables
// are put back to those of a fresh program before each start.

#include <cstdint>

// The daemon's operations that the simulation calls itself.
void TaskCommand();
int32_t AddDelayCallFunc(void (*function)(), uint32_t delay);

void startDaemon();
// SIGKILL, or the power.
void killDaemon();
// The daemon ends itself. Does not return.
[[noreturn]] void daemonHasEnded(int status);
