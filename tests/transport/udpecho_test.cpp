// The UDP endpoint: its start-up call by call, its receive loop on scripted datagrams, its send
// path on a scripted socket, and all of it over the loopback interface with the real receive
// thread.

#include "transport/udpecho.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <csetjmp>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/clock.h" // only the main thread reads the clock here
#include "transport/bridge_pipes.h"

namespace {

using Strings = std::vector<std::string>;

// Link-time fakes --------------------------------------------------------------------------------

// Which calls of the system fail, and whether the others are real. Of plain types: the test
// framework makes mutexes before any constructor of this file runs.
bool isScripted; // calls are noted and do nothing; else they are the system's
bool failsMutexInit;
bool failsSocket;
bool failsBind;
bool failsThread;

constexpr int kSocket = 77; // the scripted descriptor
constexpr int kDetached = 1234;

Strings calls; // while scripted, in order
void *(*threadBody)(void *);
void *threadArgument;
sockaddr_in bound;

// One call of sendto().
struct Datagram {
    int socket;
    int flags;
    std::array<uint8_t, 16> to;
    socklen_t toLength;
    const void *from; // where the bytes lay
    std::string bytes;
};
std::vector<Datagram> datagrams;
std::vector<std::pair<int32_t, uint32_t>> timeouts; // asked of isSysTickTimeout(): start, timeout
int32_t isTimeout;                                  // what it answers
std::function<ssize_t(size_t)> onSendto;            // scripted sendto(), given the length

// One scripted result of recvfrom(), and what the call asked for.
struct Arrival {
    std::string bytes;
    ssize_t result; // what recvfrom() returns
    sockaddr_in from;
    socklen_t fromLength = sizeof(sockaddr_in); // as recvfrom() leaves it
};
struct Asked {
    int socket;
    size_t size;
    int flags;
    socklen_t fromLength;
    std::string buffer; // as it is at the call
    uint32_t ip;        // rem_ip at the call
    uint16_t port;      // rem_port at the call
};
std::deque<Arrival> arrivals;
std::vector<Asked> asked;
std::jmp_buf leaveLoop; // where recvfrom() goes when nothing is left to arrive

// What the bridge was given, the receive thread's way out of the module.
struct Received {
    uint32_t ip;
    uint32_t port;
    std::string bytes;

    bool operator==(const Received &) const = default;
};
std::mutex receivedMutex;
std::condition_variable receivedChanged;
std::deque<Received> received;
int receiverPolicy = -1; // scheduling policy of the thread that gave it

int note(const char *call)
{
    calls.emplace_back(call);
    return 0;
}

} // namespace

void udpReceiveBuffer(uint32_t ip, uint32_t port, const uint8_t *bytes, uint32_t length)
{
    const std::lock_guard lock(receivedMutex);
    received.push_back({ip, port, std::string(bytes, bytes + length)});
    receiverPolicy = sched_getscheduler(0);
    receivedChanged.notify_one();
}

extern "C" {
// clang-format off
int __real_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes);
int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes);
int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol);
int __real_bind(int socket, const sockaddr *address, socklen_t length);
int __wrap_bind(int socket, const sockaddr *address, socklen_t length);
int __real_pthread_attr_init(pthread_attr_t *attributes);
int __wrap_pthread_attr_init(pthread_attr_t *attributes);
int __real_pthread_attr_setschedpolicy(pthread_attr_t *attributes, int policy);
int __wrap_pthread_attr_setschedpolicy(pthread_attr_t *attributes, int policy);
int __real_pthread_attr_setschedparam(pthread_attr_t *attributes, const sched_param *parameter);
int __wrap_pthread_attr_setschedparam(pthread_attr_t *attributes, const sched_param *parameter);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *), void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *), void *argument);
int __real_pthread_detach(pthread_t thread);
int __wrap_pthread_detach(pthread_t thread);
int32_t __wrap__Z16isSysTickTimeoutij(int32_t start, uint32_t timeout);
ssize_t __real_recvfrom(int socket, void *buffer, size_t size, int flags, sockaddr *from, socklen_t *fromLength);
ssize_t __wrap_recvfrom(int socket, void *buffer, size_t size, int flags, sockaddr *from, socklen_t *fromLength);
ssize_t __real_sendto(int socket, const void *bytes, size_t length, int flags, const sockaddr *to, socklen_t toLength);
ssize_t __wrap_sendto(int socket, const void *bytes, size_t length, int flags, const sockaddr *to, socklen_t toLength);
// clang-format on

int __wrap_pthread_mutex_init(pthread_mutex_t *made, const pthread_mutexattr_t *attributes)
{
    if (made != &mutex) {
        return __real_pthread_mutex_init(made, attributes);
    }
    if (isScripted) {
        note(attributes == nullptr ? "mutex" : "mutex with attributes");
    }
    if (failsMutexInit) {
        errno = ENOMEM;
        return ENOMEM;
    }
    return __real_pthread_mutex_init(made, attributes);
}

int __wrap_socket(int domain, int type, int protocol)
{
    if (failsSocket) {
        errno = EMFILE;
        return -1;
    }
    if (!isScripted) {
        return __real_socket(domain, type, protocol);
    }
    const bool isRight = domain == AF_INET && type == (SOCK_DGRAM | SOCK_CLOEXEC) && protocol == 0;
    note(isRight ? "socket" : "another socket");
    return kSocket;
}

int __wrap_bind(int socket, const sockaddr *address, socklen_t length)
{
    if (failsBind) {
        errno = EACCES;
        return -1;
    }
    if (!isScripted) {
        return __real_bind(socket, address, length);
    }
    std::memcpy(&bound, address, std::min<size_t>(length, sizeof bound));
    return note(socket == kSocket && length == 16 ? "bind" : "another bind");
}

int __wrap_pthread_attr_init(pthread_attr_t *attributes)
{
    if (isScripted) {
        note(attributes == &pthread_pro ? "attributes" : "other attributes");
    }
    return __real_pthread_attr_init(attributes);
}

int __wrap_pthread_attr_setschedpolicy(pthread_attr_t *attributes, int policy)
{
    if (isScripted) {
        note("policy");
    }
    return __real_pthread_attr_setschedpolicy(attributes, policy);
}

int __wrap_pthread_attr_setschedparam(pthread_attr_t *attributes, const sched_param *parameter)
{
    if (isScripted) {
        note(parameter == &s_parm ? "parameter" : "another parameter");
    }
    return __real_pthread_attr_setschedparam(attributes, parameter);
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*body)(void *), void *argument)
{
    if (!isScripted) {
        return __real_pthread_create(thread, attributes, body, argument);
    }
    note(attributes == &pthread_pro ? "thread" : "thread with other attributes");
    threadBody = body;
    threadArgument = argument;
    *thread = pthread_self();
    return failsThread ? EAGAIN : 0;
}

int __wrap_pthread_detach(pthread_t thread)
{
    if (!isScripted) {
        return __real_pthread_detach(thread);
    }
    note(pthread_equal(thread, pthread_self()) != 0 ? "detach" : "detach another");
    return kDetached;
}

// isSysTickTimeout(), as the linker knows it.
int32_t __wrap__Z16isSysTickTimeoutij(int32_t start, uint32_t timeout)
{
    timeouts.push_back({start, timeout});
    return isTimeout;
}

ssize_t __wrap_recvfrom(int socket, void *buffer, size_t size, int flags, sockaddr *from,
                        socklen_t *fromLength)
{
    if (!isScripted) {
        return __real_recvfrom(socket, buffer, size, flags, from, fromLength);
    }
    asked.push_back({socket, size, flags, *fromLength,
                     std::string(static_cast<const char *>(buffer), size), rem_ip, rem_port});
    if (arrivals.empty()) {
        std::longjmp(leaveLoop, 1); // over frames of server_fun() that own nothing
    }
    const Arrival &arrival = arrivals.front();
    std::memcpy(buffer, arrival.bytes.data(), std::min(size, arrival.bytes.size()));
    std::memcpy(from, &arrival.from, sizeof arrival.from);
    *fromLength = arrival.fromLength;
    const ssize_t result = arrival.result;
    arrivals.pop_front();
    return result;
}

ssize_t __wrap_sendto(int socket, const void *bytes, size_t length, int flags, const sockaddr *to,
                      socklen_t toLength)
{
    if (!isScripted) {
        return __real_sendto(socket, bytes, length, flags, to, toLength);
    }
    Datagram datagram = {socket,   flags, {},
                         toLength, bytes, std::string(static_cast<const char *>(bytes), length)};
    std::memcpy(datagram.to.data(), to, std::min<size_t>(toLength, datagram.to.size()));
    datagrams.push_back(std::move(datagram));
    return onSendto ? onSendto(length) : static_cast<ssize_t>(length);
}
}

namespace {

// Helpers ----------------------------------------------------------------------------------------

// `count` bytes in which every position can be told from its neighbours.
std::string pattern(size_t count)
{
    std::string bytes;
    for (size_t i = 0; i < count; ++i) {
        bytes += static_cast<char>(i % 251);
    }
    return bytes;
}

sockaddr_in addressOf(const char *ip, uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, ip, &address.sin_addr);
    return address;
}

uint32_t ipOf(const char *ip)
{
    return addressOf(ip, 0).sin_addr.s_addr;
}

std::array<uint32_t, 4> wordsOf(const sockaddr_in &address)
{
    std::array<uint32_t, 4> words;
    static_assert(sizeof words == sizeof address);
    std::memcpy(words.data(), &address, sizeof words);
    return words;
}

std::array<uint32_t, 4> lastSenderWords()
{
    return {rem_addr[0], rem_addr[1], rem_addr[2], rem_addr[3]};
}

Arrival datagramFrom(const sockaddr_in &from, const std::string &bytes)
{
    return {bytes, static_cast<ssize_t>(bytes.size()), from};
}

// Runs the receive loop over `arrivals`.
void serve(int socket)
{
    isScripted = true;
    if (setjmp(leaveLoop) == 0) {
        server_fun(reinterpret_cast<void *>(static_cast<intptr_t>(socket)));
    }
}

// Sends from memory of exactly that size, so that a sanitizer sees a byte read too many.
void sendToPC(const std::string &bytes, const char *ip = "10.0.0.9", uint16_t port = 5000)
{
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), exact.get());
    to_pcudp(ipOf(ip), port, exact.get(), static_cast<uint32_t>(bytes.size()));
}

std::vector<std::string> sentBytes()
{
    std::vector<std::string> all;
    for (const Datagram &datagram : datagrams) {
        all.push_back(datagram.bytes);
    }
    return all;
}

// Waits until the bridge was given something; the limit is the test's.
Received nextReceived()
{
    std::unique_lock lock(receivedMutex);
    receivedChanged.wait(lock, [] { return !received.empty(); });
    Received first = std::move(received.front());
    received.pop_front();
    return first;
}

// A control PC on the loopback interface.
class Peer {
public:
    explicit Peer(const char *ip) : ip_(ip), socket_(__real_socket(AF_INET, SOCK_DGRAM, 0))
    {
        sockaddr_in own = addressOf(ip, 0);
        EXPECT_EQ(__real_bind(socket_, reinterpret_cast<const sockaddr *>(&own), sizeof own), 0);
        socklen_t length = sizeof own;
        EXPECT_EQ(getsockname(socket_, reinterpret_cast<sockaddr *>(&own), &length), 0);
        port_ = ntohs(own.sin_port);
    }
    ~Peer()
    {
        close(socket_);
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    uint32_t ip() const
    {
        return ipOf(ip_);
    }
    uint16_t port() const
    {
        return port_;
    }
    sockaddr_in address() const
    {
        return addressOf(ip_, port_);
    }
    void send(const std::string &bytes, const char *to = "127.0.0.1")
    {
        const sockaddr_in daemon = addressOf(to, 1000);
        EXPECT_EQ(__real_sendto(socket_, bytes.data(), bytes.size(), 0,
                                reinterpret_cast<const sockaddr *>(&daemon), sizeof daemon),
                  static_cast<ssize_t>(bytes.size()));
    }
    std::string receive()
    {
        char bytes[8192];
        sockaddr_in from{};
        socklen_t fromLength = sizeof from;
        const ssize_t length = __real_recvfrom(socket_, bytes, sizeof bytes, 0,
                                               reinterpret_cast<sockaddr *>(&from), &fromLength);
        EXPECT_GE(length, 0);
        EXPECT_EQ(ntohs(from.sin_port), 1000);
        return {bytes, static_cast<size_t>(std::max<ssize_t>(length, 0))};
    }

private:
    const char *ip_;
    int socket_;
    uint16_t port_ = 0;
};

// Start-up ---------------------------------------------------------------------------------------

TEST(Udpecho, HasTheDocumentedNumbers)
{
    EXPECT_EQ(kUdpPort, 1000);
    EXPECT_EQ(kLargestDatagram, 1152u);
    EXPECT_EQ(sizeof tempBuffer, 2048u);
    EXPECT_EQ(sizeof rem_addr, 16u);
}

TEST(Udpecho, StartsInTheDocumentedOrder)
{
    isScripted = true;
    udpecho_init();
    EXPECT_EQ(calls, (Strings{"mutex", "socket", "bind", "attributes", "policy", "parameter",
                              "thread", "detach"}));
}

TEST(Udpecho, ListensOnPort1000OfEveryAddress)
{
    isScripted = true;
    udpecho_init();
    EXPECT_EQ(sock, kSocket);
    const uint8_t port[] = {0x03, 0xE8}; // 1000, high byte first
    EXPECT_EQ(bound.sin_family, AF_INET);
    EXPECT_EQ(std::memcmp(&bound.sin_port, port, sizeof port), 0);
    EXPECT_EQ(bound.sin_addr.s_addr, 0u);
}

TEST(Udpecho, StartsTheReceiveThreadOnTheSocketItself)
{
    isScripted = true;
    udpecho_init();
    EXPECT_EQ(threadBody, server_fun);
    EXPECT_EQ(reinterpret_cast<intptr_t>(threadArgument), kSocket);
}

TEST(Udpecho, ReturnsTheResultOfDetachingTheThread)
{
    isScripted = true;
    EXPECT_EQ(udpecho_init(), kDetached);
}

TEST(Udpecho, AsksForTheHighestRealTimePriorityButLeavesInheritanceAtItsDefault)
{
    isScripted = true;
    udpecho_init();
    int policy = -1;
    int inheritance = -1;
    sched_param parameter{};
    pthread_attr_getschedpolicy(&pthread_pro, &policy);
    pthread_attr_getschedparam(&pthread_pro, &parameter);
    pthread_attr_getinheritsched(&pthread_pro, &inheritance);
    EXPECT_EQ(policy, SCHED_FIFO);
    EXPECT_EQ(parameter.sched_priority, 99); // Linux: 1 to 99
    EXPECT_EQ(s_parm.sched_priority, 99);
    EXPECT_EQ(inheritance, PTHREAD_INHERIT_SCHED);
}

TEST(Udpecho, DetachesNothingWithoutAThreadAndGoesOn)
{
    isScripted = true;
    failsThread = true;
    udpecho_init();
    EXPECT_EQ(calls.back(), "thread");
    EXPECT_EQ(sock, kSocket);
}

// The earlier of two failing steps is the one that ends the process.

TEST(Udpecho, EndsTheProcessWith1WithoutAMutex)
{
    failsMutexInit = true;
    failsSocket = true;
    failsBind = true;
    EXPECT_EXIT(udpecho_init(), testing::ExitedWithCode(1),
                "^pthread_mutex_init failed\n: Cannot allocate memory\n$");
}

TEST(Udpecho, EndsTheProcessWith1WithoutASocket)
{
    failsSocket = true;
    failsBind = true;
    EXPECT_EXIT(udpecho_init(), testing::ExitedWithCode(1), "^socket: Too many open files\n$");
}

TEST(Udpecho, EndsTheProcessWith2WithoutThePort)
{
    failsBind = true;
    EXPECT_EXIT(udpecho_init(), testing::ExitedWithCode(2), "^bind: Permission denied\n$");
}

TEST(Udpecho, EndsTheProcessWith2WhenAnotherHoldsThePort)
{
    const int other = __real_socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in taken = addressOf("127.0.0.1", 1000);
    ASSERT_EQ(__real_bind(other, reinterpret_cast<const sockaddr *>(&taken), sizeof taken), 0);
    EXPECT_EXIT(udpecho_init(), testing::ExitedWithCode(2), "^bind: Address already in use\n$");
    close(other);
}

TEST(Udpecho, KnowsNobodyAtFirst)
{
    EXPECT_EQ(rem_ip, 0u);
    EXPECT_EQ(rem_port, 0);
    EXPECT_EQ(lastSenderWords(), (std::array<uint32_t, 4>{0, 0, 0, 0}));
    EXPECT_EQ(startTime, 0u);
}

// Receiving, scripted ----------------------------------------------------------------------------

TEST(Udpecho, AsksForDatagramsOf4047Bytes)
{
    arrivals = {datagramFrom(addressOf("10.0.0.9", 5000), "a")};
    serve(kSocket);
    ASSERT_EQ(asked.size(), 2u);
    for (const Asked &call : asked) {
        EXPECT_EQ(call.socket, kSocket);
        EXPECT_EQ(call.size, 4047u);
        EXPECT_EQ(call.flags, 0);
        EXPECT_EQ(call.fromLength, 16u);
    }
}

TEST(Udpecho, ListensOnTheDescriptorItIsGiven)
{
    serve(0);
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].socket, 0);
}

TEST(Udpecho, ClearsTheBufferOnlyOnce)
{
    const sockaddr_in pc = addressOf("10.0.0.9", 5000);
    arrivals = {datagramFrom(pc, "abcdef"), datagramFrom(pc, "xy")};
    serve(kSocket);
    ASSERT_EQ(asked.size(), 3u);
    EXPECT_EQ(asked[0].buffer, std::string(4047, '\0'));
    EXPECT_EQ(asked[1].buffer, "abcdef" + std::string(4041, '\0'));
    EXPECT_EQ(asked[2].buffer, "xycdef" + std::string(4041, '\0'));
    EXPECT_EQ(received.back().bytes, "xy");
}

TEST(Udpecho, NeverResetsTheLengthOfTheAddress)
{
    Arrival shorter = datagramFrom(addressOf("10.0.0.9", 5000), "a");
    shorter.fromLength = 12;
    arrivals = {shorter, datagramFrom(addressOf("10.0.0.9", 5000), "b")};
    serve(kSocket);
    ASSERT_EQ(asked.size(), 3u);
    EXPECT_EQ(asked[0].fromLength, 16u);
    EXPECT_EQ(asked[1].fromLength, 12u);
    EXPECT_EQ(asked[2].fromLength, 16u);
}

TEST(Udpecho, RemembersTheWholeAddressOfTheLastSender)
{
    sockaddr_in pc = addressOf("10.0.0.9", 0x1388);
    std::memset(&pc.sin_zero, 0x5A, sizeof pc.sin_zero);
    arrivals = {datagramFrom(pc, "a")};
    serve(kSocket);
    const uint8_t ip[] = {10, 0, 0, 9};
    const uint32_t remembered = rem_ip;
    EXPECT_EQ(std::memcmp(&remembered, ip, sizeof ip), 0); // not swapped
    EXPECT_EQ(rem_port, 0x1388);                           // swapped
    EXPECT_EQ(lastSenderWords(), wordsOf(pc));
}

TEST(Udpecho, HandsEveryDatagramToTheBridgeWithItsSender)
{
    arrivals = {datagramFrom(addressOf("10.0.0.9", 5000), "first"),
                datagramFrom(addressOf("10.0.0.10", 65535), std::string(4047, '\xFF')),
                datagramFrom(addressOf("255.0.0.1", 1), std::string(1, '\0'))};
    serve(kSocket);
    EXPECT_EQ(received, (std::deque<Received>{{ipOf("10.0.0.9"), 5000, "first"},
                                              {ipOf("10.0.0.10"), 65535, std::string(4047, '\xFF')},
                                              {ipOf("255.0.0.1"), 1, std::string(1, '\0')}}));
}

TEST(Udpecho, ChangesNothingForEmptyDatagramsAndErrors)
{
    const sockaddr_in other = addressOf("10.0.0.10", 6000);
    arrivals = {datagramFrom(addressOf("10.0.0.9", 5000), "a"),
                datagramFrom(other, ""),
                {"", -1, other},
                {"", -1, other},
                datagramFrom(addressOf("10.0.0.11", 7000), "b")};
    serve(kSocket);
    ASSERT_EQ(asked.size(), 6u);
    for (size_t i = 1; i < 5; ++i) {
        EXPECT_EQ(asked[i].ip, ipOf("10.0.0.9")) << i;
        EXPECT_EQ(asked[i].port, 5000) << i;
    }
    EXPECT_EQ(received, (std::deque<Received>{{ipOf("10.0.0.9"), 5000, "a"},
                                              {ipOf("10.0.0.11"), 7000, "b"}}));
}

TEST(Udpecho, IsSilentAndSleeplessForEmptyDatagramsAndErrors)
{
    arrivals = {datagramFrom(addressOf("10.0.0.9", 5000), ""), {"", -1, {}}};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    serve(kSocket);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>());
    EXPECT_EQ(lastSenderWords(), (std::array<uint32_t, 4>{0, 0, 0, 0}));
}

TEST(Udpecho, HandsBytesToTheBridgeInTheNameOfTheLastSender)
{
    rem_ip = 0x0900000A;
    rem_port = 5000;
    const uint8_t bytes[] = {'a', 'b', 'c'};
    task_udp_buffer(bytes, 2);
    EXPECT_EQ(received, (std::deque<Received>{{0x0900000A, 5000, "ab"}}));
}

// Sending, scripted ------------------------------------------------------------------------------

TEST(Udpecho, CutsWhatItSendsIntoDatagramsOf1152Bytes)
{
    isScripted = true;
    struct Case {
        size_t length;
        std::vector<size_t> datagrams;
    };
    const Case cases[] = {
        {0, {}},
        {1, {1}},
        {1151, {1151}},
        {1152, {1152}},
        {1153, {1152, 1}},
        {2303, {1152, 1151}},
        {2304, {1152, 1152}},
        {2305, {1152, 1152, 1}},
        {4095, {1152, 1152, 1152, 639}},
    };
    for (const Case &expected : cases) {
        const std::string bytes = pattern(expected.length);
        std::vector<std::string> parts;
        size_t at = 0;
        for (const size_t length : expected.datagrams) {
            parts.push_back(bytes.substr(at, length));
            at += length;
        }
        datagrams.clear();
        sendToPC(bytes);
        EXPECT_EQ(sentBytes(), parts) << expected.length;
    }
}

TEST(Udpecho, SendsEveryPartToTheSameAddressAndPort)
{
    isScripted = true;
    sock = kSocket;
    sendToPC(pattern(2305), "10.0.0.9", 0x1388);
    ASSERT_EQ(datagrams.size(), 3u);
    for (const Datagram &datagram : datagrams) {
        EXPECT_EQ(datagram.socket, kSocket);
        EXPECT_EQ(datagram.flags, 0);
        EXPECT_EQ(datagram.toLength, 16u);
        // No datagram has come, so there is no family yet.
        EXPECT_EQ(datagram.to,
                  (std::array<uint8_t, 16>{0, 0, 0x13, 0x88, 10, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 0}));
    }
}

TEST(Udpecho, TakesFamilyAndPaddingFromTheLastSender)
{
    isScripted = true;
    const std::array<uint8_t, 16> sender = {0xF1, 0xF2, 0xA1, 0xA2, 0xB1, 0xB2, 0xB3, 0xB4,
                                            1,    2,    3,    4,    5,    6,    7,    8};
    for (size_t i = 0; i < 4; ++i) {
        uint32_t word;
        std::memcpy(&word, &sender[4 * i], sizeof word);
        rem_addr[i] = word;
    }
    rem_ip = 0x77777777;
    rem_port = 0x7777;
    const uint8_t byte = 'x';
    UDP_SendBuffer(&byte, 1, ipOf("10.0.0.9"), 0x1388);
    ASSERT_EQ(datagrams.size(), 1u);
    EXPECT_EQ(datagrams[0].to, (std::array<uint8_t, 16>{0xF1, 0xF2, 0x13, 0x88, 10, 0, 0, 9, 1, 2,
                                                        3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(datagrams[0].bytes, "x");
}

TEST(Udpecho, ReturnsWhatSendtoReturns)
{
    isScripted = true;
    const uint8_t bytes[] = {1, 2, 3};
    EXPECT_EQ(UDP_SendBuffer(bytes, 3, 1, 2), 3);
    onSendto = [](size_t) { return -1; };
    EXPECT_EQ(UDP_SendBuffer(bytes, 3, 1, 2), -1);
    onSendto = [](size_t) { return 2; };
    EXPECT_EQ(UDP_SendBuffer(bytes, 3, 1, 2), 2);
}

TEST(Udpecho, StagesEveryDatagramInItsBuffer)
{
    isScripted = true;
    std::memset(tempBuffer, 0x5A, sizeof tempBuffer);
    sendToPC(pattern(2500));
    ASSERT_EQ(datagrams.size(), 3u);
    for (const Datagram &datagram : datagrams) {
        EXPECT_EQ(datagram.from, tempBuffer);
    }
    EXPECT_EQ(std::count(tempBuffer + 1152, std::end(tempBuffer), 0x5A), 2048 - 1152);
}

TEST(Udpecho, GoesOnWhenSendingFails)
{
    isScripted = true;
    fakeClock.setMs(4711);
    onSendto = [](size_t) {
        errno = ENETUNREACH;
        return -1;
    };
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    sendToPC(pattern(2305));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(sentBytes(), (Strings{pattern(2305).substr(0, 1152), pattern(2305).substr(1152, 1152),
                                    pattern(2305).substr(2304)}));
    EXPECT_EQ(startTime, 4711u);
}

TEST(Udpecho, RepeatsNothingWhenADatagramGoesOutShort)
{
    isScripted = true;
    onSendto = [](size_t) { return 1; };
    sendToPC(pattern(1153));
    EXPECT_EQ(sentBytes(), (Strings{pattern(1152), pattern(1153).substr(1152)}));
}

TEST(Udpecho, NotesTheTickEvenWhenThereIsNothingToSend)
{
    isScripted = true;
    fakeClock.setMs(0x1'00000007);
    sendToPC("");
    EXPECT_EQ(sentBytes(), Strings());
    EXPECT_EQ(startTime, 7u);
}

TEST(Udpecho, NotesTheTickAtWhichItHasFinished)
{
    isScripted = true;
    fakeClock.setMs(1000);
    onSendto = [](size_t length) {
        fakeClock.advanceMs(100);
        return static_cast<ssize_t>(length);
    };
    sendToPC(pattern(2305));
    EXPECT_EQ(startTime, 1300u);
}

TEST(Udpecho, TestsForAPauseButNeverMakesOne)
{
    isScripted = true;
    fakeClock.setMs(0xFFFFFFFF);
    sendToPC(pattern(2305));
    isTimeout = 1;
    sendToPC("x");
    EXPECT_EQ(timeouts, (std::vector<std::pair<int32_t, uint32_t>>{{0, 5}, {-1, 5}}));
    EXPECT_EQ(datagrams.size(), 4u);
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>());
}

// The whole endpoint -----------------------------------------------------------------------------

TEST(Udpecho, PassesOnDatagramsOfEverySize)
{
    EXPECT_EQ(udpecho_init(), 0);
    Peer pc("127.0.0.1");
    for (const size_t size : {1u, 2u, 1152u, 1153u, 4046u, 4047u}) {
        pc.send(pattern(size));
        EXPECT_EQ(nextReceived(), (Received{pc.ip(), pc.port(), pattern(size)})) << size;
    }
}

TEST(Udpecho, LosesWhatIsBehind4047Bytes)
{
    udpecho_init();
    Peer pc("127.0.0.1");
    for (const size_t size : {4048u, 5000u, 60000u}) {
        pc.send(pattern(size));
        EXPECT_EQ(nextReceived(), (Received{pc.ip(), pc.port(), pattern(4047)})) << size;
    }
    pc.send("next");
    EXPECT_EQ(nextReceived().bytes, "next");
}

TEST(Udpecho, PassesOverEmptyDatagrams)
{
    udpecho_init();
    Peer pc("127.0.0.1");
    Peer other("127.0.0.2");
    other.send("");
    pc.send("a");
    EXPECT_EQ(nextReceived(), (Received{pc.ip(), pc.port(), "a"}));
    other.send("");
    pc.send("b");
    EXPECT_EQ(nextReceived(), (Received{pc.ip(), pc.port(), "b"}));
}

TEST(Udpecho, KeepsDatagramsInOrderAndWhole)
{
    udpecho_init();
    Peer pc("127.0.0.1");
    for (int burst = 0; burst < 20; ++burst) {
        for (size_t i = 1; i <= 20; ++i) {
            pc.send(std::string(i, static_cast<char>(burst)));
        }
        for (size_t i = 1; i <= 20; ++i) {
            ASSERT_EQ(nextReceived().bytes, std::string(i, static_cast<char>(burst)));
        }
    }
}

TEST(Udpecho, ListensOnEveryLocalAddress)
{
    udpecho_init();
    Peer pc("127.0.0.1");
    pc.send("one", "127.0.0.1");
    EXPECT_EQ(nextReceived().bytes, "one");
    pc.send("two", "127.1.2.3");
    EXPECT_EQ(nextReceived().bytes, "two");
}

TEST(Udpecho, RemembersAndAnswersASender)
{
    udpecho_init();
    Peer pc("127.0.0.1");
    pc.send("hello");
    nextReceived();
    EXPECT_EQ(rem_ip, pc.ip());
    EXPECT_EQ(rem_port, pc.port());
    EXPECT_EQ(lastSenderWords(), wordsOf(pc.address()));
    to_pcudp(rem_ip, rem_port, reinterpret_cast<const uint8_t *>("answer"), 6);
    EXPECT_EQ(pc.receive(), "answer");
}

TEST(Udpecho, LetsASecondSenderTakeOver)
{
    udpecho_init();
    Peer first("127.0.0.1");
    Peer second("127.0.0.2");
    first.send("a");
    nextReceived();
    second.send("b");
    EXPECT_EQ(nextReceived(), (Received{second.ip(), second.port(), "b"}));
    EXPECT_EQ(rem_ip, second.ip());
    EXPECT_EQ(rem_port, second.port());
    EXPECT_EQ(lastSenderWords(), wordsOf(second.address()));
    to_pcudp(rem_ip, rem_port, reinterpret_cast<const uint8_t *>("to b"), 4);
    EXPECT_EQ(second.receive(), "to b");
    first.send("c");
    nextReceived();
    to_pcudp(rem_ip, rem_port, reinterpret_cast<const uint8_t *>("to a"), 4);
    EXPECT_EQ(first.receive(), "to a"); // the first of all that it gets
}

TEST(Udpecho, CutsAnswersForTheWire)
{
    udpecho_init();
    Peer pc("127.0.0.1");
    pc.send("hello");
    nextReceived();
    for (const size_t size : {0u, 1u, 1152u, 1153u, 2304u, 2305u}) {
        const std::string bytes = pattern(size);
        sendToPC(bytes, "127.0.0.1", pc.port());
        for (size_t at = 0; at < size; at += 1152) {
            EXPECT_EQ(pc.receive(), bytes.substr(at, 1152)) << size << " " << at;
        }
    }
    sendToPC("last", "127.0.0.1", pc.port());
    EXPECT_EQ(pc.receive(), "last"); // with nothing between
}

TEST(Udpecho, SendsBeforeAnybodyHasSent)
{
    udpecho_init();
    Peer pc("127.0.0.1");
    sendToPC("unasked", "127.0.0.1", pc.port());
    EXPECT_EQ(pc.receive(), "unasked");
}

TEST(Udpecho, RunsTheThreadWithThePolicyOfItsStarter)
{
    udpecho_init();
    Peer pc("127.0.0.1");
    pc.send("hello");
    nextReceived();
    const std::lock_guard lock(receivedMutex);
    EXPECT_EQ(receiverPolicy, sched_getscheduler(0));
}

} // namespace
