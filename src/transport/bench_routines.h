#pragma once

// Bench routines: each exercises a line by itself and never returns. Main thread.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

// Sends 5000 digits on /dev/ttyS4, then prints what it receives, for ever. Returns only when the
// line cannot be opened or set up, with 1.
int32_t serial_test();

// On port 0, every second, send "hello " (tx) or print what has arrived (rx).
// Requires: UARTInit(0) has been called.
void UART_test_tx();
void UART_test_rx();
