#pragma once

// Start-up and the main loop of the daemon. Everything here runs on the main thread.

#include <cstdint>

// The argument vector of the process. Stored first of all; never read.
extern char **exec_argv;

// Starts every subsystem in a fixed order. No step is checked: if one fails, the next ones still
// run. The process ends only if the UDP endpoint cannot be made or port 1000 cannot be bound
// (udpecho_init). The receive threads start here; what they receive waits in pipes until the main
// loop runs. Returns the result of the last step, loadAllUserPref(), which main() ignores.
int32_t initAll();

// Counts the passes of the main loop in windows of one second. Nothing reports the count.
void IdleTask();
