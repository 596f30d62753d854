#pragma once

// Start-up and the main loop of the daemon. Everything here runs on the main thread.

#include <cstdint>

// The argument vector of the process; stored first of all and read by nobody.
extern char **exec_argv;

// Starts every subsystem in a fixed order. A step that fails says so and the next ones still run.
// The receive threads start here; what they receive waits in pipes until the main loop runs.
void initAll();

// Counts the passes of the main loop in windows of one second. Nothing reports the count.
void IdleTask();
