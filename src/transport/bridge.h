#pragma once

// The UDP bridge: the control PC talks to the front board as if it were plugged into its line.
//
// The bytes of every datagram go out on UART 0 unchanged. The bytes that command/reception mirrors
// go to the PC. Main loop only.

#include <cstdint>

// Sends bytes to the PC. Drops them silently until the PC's first datagram has given its address.
void udpSendBuffer(const uint8_t *bytes, uint32_t length);

// Writes what the PC has sent to UART 0. Returns the result of UARTSendBuffer, or 0 when there was
// nothing to write. A full batch of 4096 bytes takes 16 pauses of 80 ms and blocks the main loop
// meanwhile.
int32_t udpReceiveTask();

// Sends the mirrored bytes to the PC.
void udpSendTask();

// Runs both tasks once. Called in every pass of the main loop.
void udp2uart_task();
