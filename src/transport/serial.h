#pragma once

// Raw 8-bit serial lines on POSIX termios: opening, setting up, writing and reading. Opening and
// setting up log what they did or what failed. Reading and writing report by their results, and log
// a length of 0. No state; any thread, as long as only one thread sets up a descriptor.
// (transport/serial_retired.h is an older set-up, which accepts other rates and letters on
// purpose.)

#include <cstdint>

// Opens `path` for reading and writing, not as the controlling terminal, and without waiting for
// modem lines. The descriptor then blocks on reads and writes. Returns the descriptor, or -1.
[[nodiscard]] int32_t serial_open(const char *path);

// Makes the line raw: no echo, no canonical mode, no output processing, no flow control. A read
// returns at once with what is there, possibly nothing. Pending input is discarded.
//
//   baud    2400, 4800, 9600, 19200, 38400, 57600, 115200, 460800 or 1500000 bits/s
//   bits    7 or 8
//   parity  'N', 'O' or 'E' (upper case only)
//   stop    1 or 2
//
// Returns 0. Returns -1 and leaves the line as it was for any other value, and for a descriptor
// that is not a terminal.
[[nodiscard]] int32_t serial_set(int32_t fd, int32_t baud, int32_t bits, char parity, int32_t stop);

// Writes all bytes in chunks of at most 256, with a pause of 80 ms after every chunk of 256 so that
// the receiver's buffer is not overrun. Returns the number of bytes written, which is less than
// `length` when write() failed or wrote nothing. A length of 0 is logged and returns 0.
int32_t serial_write(int32_t fd, const uint8_t *bytes, uint32_t length);

// Waiting for a later model -----------------------------------------------------------------------

// One read() of at most `length` bytes; returns its result. A length of 0 is logged and returns 0.
int32_t serial_read(int32_t fd, void *buffer, uint32_t length);

// Returns what close() returns.
int32_t serial_close(int32_t fd);
