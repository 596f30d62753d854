#pragma once

// Raw 8-bit serial lines on POSIX termios: opening, setting up, reading and writing.
//
// transport/uart uses serial_open, serial_set and serial_write. The set_... family below them is an
// older set-up that the running daemon does not call; it accepts other rates and letters on
// purpose. Opening and setting up say on the console what they did or what failed; reading and
// writing report by their results. No state: any thread, as long as one descriptor is set up by
// one.

#include <cstdint>

struct termios;

// Opens `path` (a text) for reading and writing, not as the controlling terminal, without waiting
// for modem lines; reads and writes on it then block. Returns the descriptor, or -1.
int32_t serial_open(const char *path);

// Makes the line raw: no echo, no canonical mode, no output processing, no flow control; a read
// returns at once with what is there, possibly nothing. Pending input is thrown away.
//
//   baud    2400, 4800, 9600, 19200, 38400, 57600, 115200, 460800 or 1500000 bits/s
//   bits    7 or 8
//   parity  'N', 'O' or 'E' (upper case only)
//   stop    1 or 2
//
// Returns 0, or -1 for any other value and for a descriptor that is no terminal; the line is then
// set as it was.
int32_t serial_set(int32_t fd, int32_t baud, int32_t bits, char parity, int32_t stop);

// One read() of at most `length` bytes, its result as it is; 0 with a message for a length of 0.
int32_t serial_read(int32_t fd, void *buffer, uint32_t length);

// Writes all bytes in chunks of at most 256, with a pause of 80 ms behind every chunk of 256 so
// that the receiver's buffer is not overrun. Returns the number of bytes written: fewer than
// `length` when write() failed or took nothing; 0 with a message for a length of 0.
int32_t serial_write(int32_t fd, const uint8_t *bytes, uint32_t length);

// Returns what close() returns.
int32_t serial_close(int32_t fd);

// Bench self-test on /dev/ttyS4: sends 5000 digits, then prints what it receives, for ever. Returns
// 1 when the line cannot be opened or set up.
int32_t serial_test();

// The older family. The first four only change the given record; the rest apply to the line.

// Sets input and output speed to a termios speed code.
void set_baudrate(termios *options, uint32_t speed);

// 5, 6 or 7 data bits; 8 for any other value.
void set_data_bit(termios *options, int32_t bits);

// 'N' none, 'O' odd, 'E' even; none for any other letter.
void set_parity(termios *options, char parity);

// "1" one stop bit, "2" two; one for any other text.
void set_stopbit(termios *options, const char *stop);

// Sets the speed of a line: 115200, 57600, 38400, 19200, 9600, 4800, 2400, 1200 or 300 bits/s. Any
// other rate changes nothing and reports nothing.
void set_speed(int32_t fd, uint32_t baud);

// A complete raw set-up with reads that wait up to 3 s: 7 or 8 data bits; parity 'N', 'O', 'E' or
// 'S' (space), either case; 1 or 2 stop bits. An upper-case 'N' leaves input parity checking on, a
// lower-case one does not. Returns 0, or -1 with a message on standard error.
int32_t set_Parity(int32_t fd, int32_t bits, char parity, int32_t stop);

// 115200 bits/s and set_Parity() with one stop bit; the rate and the stop bits given are ignored.
// Returns 0.
int32_t set_port_attr(int32_t fd, int32_t baud, int32_t bits, const char *stop, char parity);
