#pragma once

// The board's numbered UART ports: opening a port with its reader thread, and sending by number.
//
// Port 0 ("/dev/ttyS0") is the line to the front board. Port 1 ("/dev/ttyS1") is defined but never
// opened. A port runs at 115200 bits/s, 8N1, raw, and is never closed. Its own thread reads from it
// and the main loop writes to it.

#include <cstdint>

// The most that a reader thread reads at once, in bytes, so that a whole burst is passed on in one
// call.
inline constexpr uint32_t kUartReceiveBuffer = 20480;

// Opens and sets up a port and starts its detached reader thread. If the device is unusable, logs
// that and starts no thread; if the thread cannot be made, says so on standard error. Returns the
// length of its last message, or -1 when the set-up failed; the daemon runs on either way. Main
// thread, once for each port.
int32_t UARTInit(uint32_t port);

// Sends bytes on a port in chunks of at most 256, with a pause of 80 ms after each full chunk
// (serial_write). Returns the number of bytes written if all were; otherwise logs the failure and
// returns the length of the message. A length of 0 or less sends nothing. Main loop only.
int32_t UARTSendBuffer(int32_t port, const uint8_t *bytes, int32_t length);

// One read() of at most `size` bytes from a port; returns its result, or -1 for a port that does
// not exist. The port's reader thread, or a bench routine in its place.
[[nodiscard]] int32_t UARTReceiveBuffer(uint32_t port, void *buffer, uint32_t size);

// Body of a port's reader thread; `port` is the number, not an address. Never returns. Bytes from
// port 0 go into the command channels; those of other ports are dropped.
void *uart_receive_fun(void *port);
