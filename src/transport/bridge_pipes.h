#pragma once

// The two byte pipes of the UDP bridge and the address of the control PC.
//
// udp_receive_pipe: the PC's bytes, from the UDP receive thread (udpReceiveBuffer) to the main
// loop, which writes them to UART 0 (transport/bridge). udp_send_pipe: bytes for the PC; the main
// loop writes, trims (command/reception) and reads it.

#include "core/pipe.h"

#include <atomic>
#include <cstdint>

inline constexpr uint32_t kBridgeBufferSize = 4096;

extern struct pipe udp_receive_pipe;
extern struct pipe udp_send_pipe;

// The last sender: word 0 its IPv4 address (network byte order), word 1 its UDP port (host byte
// order). Both 0 until the first datagram. Written by the UDP receive thread, a word at a time.
extern std::atomic<uint32_t> udp_chanel_value[2];

// Empties both pipes.
// Requires: no receive thread runs yet.
void udp_receive_pipe_init();

// Remembers the sender of a datagram and queues its bytes. Bytes that do not fit are dropped. UDP
// receive thread only.
void udpReceiveBuffer(uint32_t ip, uint32_t port, const uint8_t *bytes, uint32_t length);
