#pragma once

// The UDP endpoint: one socket on port 1000, a receive thread that hands every datagram to the
// bridge (transport/bridge_pipes), and the send path back to the control PC. It knows nothing of
// commands.
//
// The control PC is the sender of the latest datagram. There is no registration, and no sender is
// checked.

#include <atomic>
#include <cstdint>
#include <pthread.h>
#include <sched.h>

inline constexpr uint16_t kUdpPort = 1000;
inline constexpr uint32_t kLargestDatagram = 1152; // bytes; more goes out in several datagrams

// Made by udpecho_init() before the thread exists; constant afterwards.
extern int32_t sock;
extern pthread_mutex_t mutex; // kept for later use; nothing takes it
extern pthread_attr_t pthread_pro;
extern sched_param s_parm;

// The last sender; 0 before the first datagram. Written by the receive thread, one word at a time.
extern std::atomic<uint32_t> rem_addr[4]; // the words of its sockaddr_in
extern std::atomic<uint32_t> rem_ip;      // network byte order
extern std::atomic<uint16_t> rem_port;    // host byte order

// Main loop only.
extern uint8_t tempBuffer[2048]; // one outgoing datagram
extern uint32_t startTime;       // tick at which the last to_pcudp() finished

// Opens the socket on every local address and starts the detached receive thread. Ends the process
// with status 1 if the mutex or the socket cannot be made, and with 2 if the port cannot be bound
// because it is taken or the process may not use ports below 1024. Returns the result of detaching
// the thread, or -1 with a message on standard error if the thread could not be started; the daemon
// runs on either way. Main thread, once.
// Requires: udp_receive_pipe_init() has been called.
//
// The thread's attributes name SCHED_FIFO at the highest priority but leave inheritance at its
// default. So the request never reaches the kernel, and the thread starts without the right to
// real-time scheduling.
int32_t udpecho_init();

// Body of the receive thread; `socket` is the descriptor, not an address. Never returns. Empty
// datagrams change nothing. The bytes of a datagram after the first 4047 are lost.
void *server_fun(void *socket);

// Hands one datagram from the last sender to the bridge. Receive thread only.
void task_udp_buffer(const uint8_t *bytes, uint32_t length);

// Sends bytes to `ip` (network byte order) and `port` (host byte order) in datagrams of at most
// 1152 bytes, without pacing. A length of 0 sends nothing. Send errors are ignored. Main loop only.
void to_pcudp(uint32_t ip, uint16_t port, const uint8_t *bytes, uint32_t length);

// Sends one datagram to `ip` (network byte order) and `port` (host byte order). The address family
// and the padding are the last sender's. Returns what sendto() returns. Main loop only.
int32_t UDP_SendBuffer(const uint8_t *bytes, uint32_t length, uint32_t ip, uint16_t port);
