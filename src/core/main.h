#pragma once

// Start-up and the main loop of the daemon. Everything here runs on the main thread.

#include <cstdint>

// The argument vector of the process; stored first of all and read by nobody.
extern char **exec_argv;

// Starts every subsystem in a fixed order. No step is checked: where one fails the next ones still
// run, but without a UDP socket or with port 1000 not to be had the process ends (udpecho_init).
// The receive threads start here; what they receive waits in pipes until the main loop runs.
// Returns what the last step, loadAllUserPref(), does; main() has no use for it.
int32_t initAll();

// Counts the passes of the main loop in windows of one second. Nothing reports the count.
void IdleTask();
