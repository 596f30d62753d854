#pragma once

// Start-up and the main loop of the daemon. Everything here runs on the main thread.

#include <cstdint>

// The argument vector of the process; stored before anything else, and never read.
extern char **exec_argv;

// Starts every subsystem in a fixed order. No step is checked: if one fails, the next ones still
// run. Only a UDP socket that cannot be made, or port 1000 that cannot be bound, ends the process
// (udpecho_init). The receive threads start here; what they receive waits in pipes until the main
// loop runs. Returns the result of the last step, loadAllUserPref(), which main() ignores.
int32_t initAll();

// Counts the passes of the main loop in windows of one second. Nothing reports the count.
void IdleTask();
