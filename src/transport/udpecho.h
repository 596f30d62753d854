#pragma once

// The UDP endpoint: one socket on port 1000, a receive thread that hands every datagram to the
// bridge (transport/bridge_pipes), and the send path back to the control PC. It knows nothing of
// commands.
//
// The control PC is whoever sent the latest datagram. No one registers, and no sender is checked.

#include <atomic>
#include <cstdint>
#include <pthread.h>
#include <sched.h>

inline constexpr uint16_t kUdpPort = 1000;
inline constexpr uint32_t kLargestDatagram = 1152; // bytes; more is sent in several datagrams

// Made by udpecho_init() before the thread exists; constant afterwards.
extern int32_t sock;
extern pthread_mutex_t mutex; // kept for later use; nothing takes it
extern pthread_attr_t pthread_pro;
extern sched_param s_parm;

// The last sender, written by the receive thread a word at a time, 0 before the first datagram.
extern std::atomic<uint32_t> rem_addr[4]; // the words of its sockaddr_in
extern std::atomic<uint32_t> rem_ip;      // network byte order
extern std::atomic<uint16_t> rem_port;    // host byte order

// Main loop only.
extern uint8_t tempBuffer[2048]; // one outgoing datagram
extern uint32_t startTime;       // tick at which the last to_pcudp() finished

// Opens the socket on every local address and starts the detached receive thread. Ends the process
// with status 1 if the mutex or the socket cannot be made, and with 2 if the port cannot be bound:
// it is taken, or the process has no right to ports below 1024. Returns the result of detaching the
// thread, or -1 when there is none; the daemon runs on either way. Main thread, once.
// Requires: udp_receive_pipe_init() has been called.
//
// The thread's attributes ask for SCHED_FIFO at the highest priority but leave inheritance at its
// default, so the kernel is never asked: it works without the right to real-time scheduling.
int32_t udpecho_init();

// Body of the receive thread; `socket` is the descriptor, not an address. Never returns. Empty
// datagrams change nothing. Bytes past 4047 of a datagram are lost.
void *server_fun(void *socket);

// Hands one datagram of the last sender to the bridge. Receive thread only.
void task_udp_buffer(const uint8_t *bytes, uint32_t length);

// Sends bytes to `ip` (network byte order) and `port` (host byte order) in datagrams of at most
// 1152 bytes, without pacing; none for a length of 0. Send errors are ignored. Main loop only.
void to_pcudp(uint32_t ip, uint16_t port, const uint8_t *bytes, uint32_t length);

// Sends one datagram to `ip` (network byte order) and `port` (host byte order); the address family
// and the padding are the last sender's. Returns what sendto() returns. Main loop only.
int32_t UDP_SendBuffer(const uint8_t *bytes, uint32_t length, uint32_t ip, uint16_t port);
