#pragma once

// What the daemon's commands are measured against: the same design, written quickly and plainly.
//
// A reader thread puts bytes into one buffer under a mutex. The main thread takes them out, finds
// the frames, decodes and checks them, prints the same message and answers with one write(). It has
// one source of bytes, mirrors nothing and knows three commands.

#include <cstdint>

// Appends the bytes; drops what does not fit. Reader thread.
void plainReceive(const uint8_t *bytes, uint32_t count);

// Executes what was received and answers on the descriptor `line`. Main thread.
void plainPass(int line);
