#pragma once

// The system calls and the C library, as far as the daemon uses them.

#include <cstdint>
#include <string>

// Standard descriptors are open, and nothing else.
void bootCalls();
// Takes back what the daemon held.
void endCalls();

extern "C" {
extern int32_t simulationAccessesLeft; // see switching_atomic.h
void simulationChangeThreads();
}

// Whether the daemon has something of this name open.
bool isOpen(const std::string &name);
