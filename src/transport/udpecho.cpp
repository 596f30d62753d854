#include "transport/udpecho.h"

#include <arpa/inet.h>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>

#include "core/systick.h"
#include "transport/bridge_pipes.h"

int32_t sock;
pthread_mutex_t mutex;
pthread_attr_t pthread_pro;
sched_param s_parm;
std::atomic<uint32_t> rem_addr[4];
std::atomic<uint32_t> rem_ip;
std::atomic<uint16_t> rem_port;
uint8_t tempBuffer[2048];
uint32_t startTime;

namespace {

constexpr uint32_t kReceiveBuffer = 4048;
constexpr uint32_t kPaceMs = 5;

using AddressWords = std::array<uint32_t, 4>;
static_assert(sizeof(AddressWords) == sizeof(sockaddr_in));

void storeSender(const sockaddr_in &source)
{
    // The releases of rem_addr pair with the acquires in lastSender(). rem_ip and rem_port are read
    // on this thread only.
    rem_port.store(ntohs(source.sin_port), std::memory_order_release);
    rem_ip.store(source.sin_addr.s_addr, std::memory_order_release);
    const auto words = std::bit_cast<AddressWords>(source);
    for (uint32_t i = 0; i < words.size(); ++i) {
        rem_addr[i].store(words[i], std::memory_order_release);
    }
}

sockaddr_in lastSender()
{
    AddressWords words;
    for (uint32_t i = 0; i < words.size(); ++i) {
        words[i] = rem_addr[i].load(std::memory_order_acquire);
    }
    return std::bit_cast<sockaddr_in>(words);
}

} // namespace

int32_t udpecho_init()
{
    if (pthread_mutex_init(&mutex, nullptr) != 0) {
        perror("pthread_mutex_init failed\n");
        std::exit(1);
    }
    // Close-on-exec, because a program that the daemon started may outlive it and would hold the
    // port.
    sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sock < 0) {
        perror("socket");
        std::exit(1);
    }
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(kUdpPort);
    local.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(sock, reinterpret_cast<const sockaddr *>(&local), sizeof local) < 0) {
        perror("bind");
        std::exit(2);
    }
    // The results are dropped: without these attributes the thread runs like any other.
    pthread_attr_init(&pthread_pro);
    pthread_attr_setschedpolicy(&pthread_pro, SCHED_FIFO);
    s_parm.sched_priority = sched_get_priority_max(SCHED_FIFO);
    pthread_attr_setschedparam(&pthread_pro, &s_parm);
    pthread_t thread{};
    void *const argument = reinterpret_cast<void *>(static_cast<intptr_t>(sock));
    const int error = pthread_create(&thread, &pthread_pro, server_fun, argument);
    if (error != 0) { // no PC will be heard, but the front board is
        errno = error;
        perror("udpecho_init: no receive thread");
        return -1;
    }
    return pthread_detach(thread);
}

void *server_fun(void *socket)
{
    const int descriptor = static_cast<int>(reinterpret_cast<intptr_t>(socket));
    uint8_t buffer[kReceiveBuffer];
    std::memset(buffer, 0, sizeof buffer);
    sockaddr_in source{};
    socklen_t sourceLength = sizeof source;
    for (;;) {
        const ssize_t length = recvfrom(descriptor, buffer, sizeof buffer - 1, 0,
                                        reinterpret_cast<sockaddr *>(&source), &sourceLength);
        if (length < 1) {
            continue;
        }
        storeSender(source);
        task_udp_buffer(buffer, static_cast<uint32_t>(length));
    }
}

void task_udp_buffer(const uint8_t *bytes, uint32_t length)
{
    udpReceiveBuffer(rem_ip.load(std::memory_order_relaxed),
                     rem_port.load(std::memory_order_relaxed), bytes, length);
}

void to_pcudp(uint32_t ip, uint16_t port, const uint8_t *bytes, uint32_t length)
{
    // Sends could be paced here. They are deliberately not, so the result is dropped.
    static_cast<void>(isSysTickTimeout(static_cast<int32_t>(startTime), kPaceMs));
    // The results are dropped: a datagram that cannot be sent is lost, as on the network, and the
    // next one is tried.
    while (length > kLargestDatagram) {
        std::memcpy(tempBuffer, bytes, kLargestDatagram);
        UDP_SendBuffer(tempBuffer, kLargestDatagram, ip, port);
        bytes += kLargestDatagram;
        length -= kLargestDatagram;
    }
    if (length > 0) {
        std::memcpy(tempBuffer, bytes, length);
        UDP_SendBuffer(tempBuffer, length, ip, port);
    }
    startTime = GetSysTick();
}

int32_t UDP_SendBuffer(const uint8_t *bytes, uint32_t length, uint32_t ip, uint16_t port)
{
    // The family and the padding come from the last datagram received.
    sockaddr_in to = lastSender();
    to.sin_addr.s_addr = ip;
    to.sin_port = htons(port);
    return static_cast<int32_t>(
        sendto(sock, bytes, length, 0, reinterpret_cast<const sockaddr *>(&to), sizeof to));
}
