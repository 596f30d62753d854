#pragma once

// The two byte pipes of the UDP bridge and the address of the control PC.
//
// udp_receive_pipe carries the PC's bytes from the UDP receive thread (udpReceiveBuffer) to the
// main loop, which writes them to UART 0 (transport/bridge). udp_send_pipe holds bytes for the PC.
// Only the main loop uses it: command/reception writes and trims it, and transport/bridge reads it.

#include "core/pipe.h"

#include <atomic>
#include <cstdint>

inline constexpr uint32_t kBridgeBufferSize = 4096;

extern struct pipe udp_receive_pipe;
extern struct pipe udp_send_pipe;

// The last sender. Word 0 is its IPv4 address (network byte order), word 1 its UDP port (host byte
// order). Both are 0 until the first datagram. Written by the UDP receive thread, one word at a
// time.
extern std::atomic<uint32_t> udp_chanel_value[2];

// Empties both pipes.
// Requires: no receive thread runs yet.
void udp_receive_pipe_init();

// Remembers the sender of a datagram and queues its bytes as one block. If they do not all fit, the
// end of the datagram is dropped. UDP receive thread only.
void udpReceiveBuffer(uint32_t ip, uint32_t port, const uint8_t *bytes, uint32_t length);
