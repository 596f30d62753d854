#pragma once

// The UDP bridge: the control PC talks to the front board's line as if it were plugged into it.
//
// The bytes of every datagram go out on UART 0 unchanged. What command/reception mirrors goes back
// to the PC. Main loop only.

#include <cstdint>

// Sends bytes to the PC. Drops them silently while neither its address nor its port is known.
void udpSendBuffer(const uint8_t *bytes, uint32_t length);

// Writes what the PC has sent to UART 0. Returns the result of UARTSendBuffer, or 0 when there was
// nothing to write. A full batch of 4095 bytes takes 15 pauses of 80 ms, and the main loop stands
// meanwhile.
int32_t udpReceiveTask();

// Sends to the PC what is mirrored for it.
void udpSendTask();

// Both tasks, once each. Runs in every pass of the main loop.
void udp2uart_task();
