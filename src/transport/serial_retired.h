#pragma once

// The older family of serial set-ups, kept beside transport/serial.h. Failures are reported on
// standard error. No state; any thread, as long as only one thread sets up a descriptor.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>
#include <termios.h>

// The first four operations only change the given record; the others apply to the line.

// Sets input and output speed to a termios speed code.
void set_baudrate(termios *options, uint32_t speed);

// 5, 6 or 7 data bits; 8 for any other value.
void set_data_bit(termios *options, int32_t bits);

// 'N' none, 'O' odd, 'E' even; none for any other letter.
void set_parity(termios *options, char parity);

// "2" two stop bits; one for any other text.
void set_stopbit(termios *options, const char *stop);

// Sets the speed of a line: 115200, 57600, 38400, 19200, 9600, 4800, 2400, 1200 or 300 bits/s. Any
// other rate changes nothing and reports nothing.
void set_speed(int32_t fd, uint32_t baud);

// A complete raw set-up with reads that wait up to 3 s. `bits` is 7 or 8; `parity` is 'N', 'O', 'E'
// or 'S' (space), in either case; `stop` is 1 or 2. 'N' leaves input parity checking on, 'n' does
// not. Returns 0, or -1 with a message on standard error.
int32_t set_Parity(int32_t fd, int32_t bits, char parity, int32_t stop);

// Sets 115200 bits/s and calls set_Parity() with one stop bit. `baud` and `stop` are ignored.
// Returns 0.
int32_t set_port_attr(int32_t fd, int32_t baud, int32_t bits, const char *stop, char parity);
