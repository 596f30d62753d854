#pragma once

// Routines for a bench: they exercise a line by themselves and never return. Main thread.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

// Sends 5000 digits on /dev/ttyS4, then prints what it receives, for ever. Returns 1 when the line
// cannot be opened or set up.
int32_t serial_test();

// On port 0: send "hello " every second; print what arrives every second.
// Requires: UARTInit(0) has been called.
void UART_test_tx();
void UART_test_rx();
