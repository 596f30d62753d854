// The UDP endpoint: its start-up, its receive loop on scripted datagrams, its send path on a
// scripted socket, and all of it over the loopback interface with the real receive thread.

#include "transport/udpecho.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <csetjmp>
#include <cstring>
#include <deque>
#include <iterator>
#include <memory>
#include <mutex>
#include <numeric>
#include <optional>
#include <set>
#include <sstream>
#include <utility>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "tests/support/bytes.h"
#include "tests/support/clock.h" // only the main thread reads the clock here
#include "tests/support/console.h"
#include "tests/support/replace.h"

namespace {

using Strings = std::vector<std::string>;

bool isScripted;               // threads do not start, datagrams are those of the test
std::set<std::string> failing; // "mutex", "socket", "thread"

constexpr int kSocket = 77; // a scripted descriptor
constexpr int kDetached = 1234;

Strings calls; // about the mutex and the thread, in order
void *(*threadBody)(void *);
void *threadArgument;

// One call of sendto().
struct Datagram {
    std::string to;   // socket, flags, length of the address, and the address in hexadecimal
    const void *from; // where the bytes lay
    std::string bytes;
};
std::vector<Datagram> datagrams;
std::vector<std::pair<int32_t, uint32_t>> timeouts; // asked of isSysTickTimeout(): start, timeout
int32_t isTimeout;                                  // what it answers
std::function<ssize_t(size_t)> onSendto;            // scripted sendto(), given the length

// One scripted result of recvfrom(), and what the call asked for.
struct Arrival {
    sockaddr_in from;
    std::optional<std::string> bytes;           // none: an error
    socklen_t fromLength = sizeof(sockaddr_in); // as recvfrom() leaves it
};
struct Asked {
    std::string arguments;                // socket, size, flags, length of the address
    std::string buffer;                   // as it is at the call
    std::pair<uint32_t, uint16_t> sender; // rem_ip and rem_port at the call
    bool operator==(const Asked &) const = default;
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

int failWith(int error)
{
    errno = error;
    return -1;
}

} // namespace

// udpReceiveBuffer() and isSysTickTimeout(), as the linker knows them.

REPLACE(void, _Z16udpReceiveBufferjjPKhj,
        (uint32_t ip, uint32_t port, const uint8_t *bytes, uint32_t length))
{
    const std::lock_guard lock(receivedMutex);
    received.push_back({ip, port, std::string(bytes, bytes + length)});
    receiverPolicy = sched_getscheduler(0);
    receivedChanged.notify_one();
}

REPLACE(int32_t, _Z16isSysTickTimeoutij, (int32_t start, uint32_t timeout))
{
    timeouts.emplace_back(start, timeout);
    return isTimeout;
}

REPLACE(int, pthread_mutex_init, (pthread_mutex_t * made, const pthread_mutexattr_t *attributes))
{
    if (made != &mutex) {
        return REAL(pthread_mutex_init)(made, attributes);
    }
    calls.emplace_back(attributes == nullptr ? "mutex" : "mutex with attributes");
    return failing.contains("mutex") ? -failWith(ENOMEM) : REAL(pthread_mutex_init)(made, nullptr);
}

REPLACE(int, socket, (int domain, int type, int protocol))
{
    return failing.contains("socket") ? failWith(EMFILE) : REAL(socket)(domain, type, protocol);
}

REPLACE(int, pthread_create,
        (pthread_t * thread, const pthread_attr_t *attributes, void *(*body)(void *),
         void *argument))
{
    if (!isScripted) {
        return REAL(pthread_create)(thread, attributes, body, argument);
    }
    EXPECT_EQ(attributes, &pthread_pro);
    int policy = -1;
    int inheritance = -1;
    sched_param parameter{};
    pthread_attr_getschedpolicy(attributes, &policy);
    pthread_attr_getschedparam(attributes, &parameter);
    pthread_attr_getinheritsched(attributes, &inheritance);
    sockaddr_in local{};
    socklen_t length = sizeof local;
    getsockname(sock, reinterpret_cast<sockaddr *>(&local), &length);
    std::ostringstream call;
    call << "thread: policy " << policy << ", priority " << parameter.sched_priority
         << ", inheritance " << inheritance << ", socket of " << inet_ntoa(local.sin_addr) << ':'
         << ntohs(local.sin_port);
    calls.push_back(call.str());
    threadBody = body;
    threadArgument = argument;
    *thread = pthread_self();
    return failing.contains("thread") ? EAGAIN : 0;
}

REPLACE(int, pthread_detach, (pthread_t thread))
{
    if (!isScripted) {
        return REAL(pthread_detach)(thread);
    }
    calls.emplace_back(pthread_equal(thread, pthread_self()) != 0 ? "detach" : "detach another");
    return kDetached;
}

REPLACE(ssize_t, recvfrom,
        (int socket, void *buffer, size_t size, int flags, sockaddr *from, socklen_t *fromLength))
{
    if (!isScripted) {
        return REAL(recvfrom)(socket, buffer, size, flags, from, fromLength);
    }
    asked.push_back({std::to_string(socket) + ' ' + std::to_string(size) + ' ' +
                         std::to_string(flags) + ' ' + std::to_string(*fromLength),
                     std::string(static_cast<const char *>(buffer), size),
                     {rem_ip, rem_port}});
    if (arrivals.empty()) {
        std::longjmp(leaveLoop, 1); // over frames of server_fun() that own nothing
    }
    const Arrival &arrival = arrivals.front();
    const std::string bytes = arrival.bytes.value_or("");
    const ssize_t result = arrival.bytes ? static_cast<ssize_t>(bytes.size()) : -1;
    std::memcpy(buffer, bytes.data(), std::min(size, bytes.size()));
    std::memcpy(from, &arrival.from, sizeof arrival.from);
    *fromLength = arrival.fromLength;
    arrivals.pop_front();
    return result;
}

REPLACE(ssize_t, sendto,
        (int socket, const void *bytes, size_t length, int flags, const sockaddr *to,
         socklen_t toLength))
{
    if (!isScripted) {
        return REAL(sendto)(socket, bytes, length, flags, to, toLength);
    }
    datagrams.push_back({std::to_string(socket) + ' ' + std::to_string(flags) + ' ' +
                             std::to_string(toLength) + ' ' +
                             hex(reinterpret_cast<const uint8_t *>(to), sizeof(sockaddr_in)),
                         bytes, std::string(static_cast<const char *>(bytes), length)});
    return onSendto ? onSendto(length) : static_cast<ssize_t>(length);
}

namespace {

// Helpers ----------------------------------------------------------------------------------------

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

template <typename Words> std::string hexOf(const Words &words)
{
    return hex(reinterpret_cast<const uint8_t *>(&words), sizeof words);
}

std::string lastSender()
{
    return hexOf(std::array<uint32_t, 4>{rem_addr[0], rem_addr[1], rem_addr[2], rem_addr[3]});
}

// Runs the receive loop over `arrivals`.
void serve(int socket = kSocket)
{
    isScripted = true;
    if (setjmp(leaveLoop) == 0) {
        server_fun(reinterpret_cast<void *>(static_cast<intptr_t>(socket)));
    }
}

// Sends from memory of exactly that size, so that a sanitizer sees a byte read too many.
void sendToPC(const std::string &bytes, uint32_t ip = ipOf("10.0.0.9"), uint16_t port = 0x1388)
{
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), exact.get());
    to_pcudp(ip, port, exact.get(), static_cast<uint32_t>(bytes.size()));
}

constexpr auto pattern = [](size_t count) { return countingBytes(count, 251); };

// The sizes of the datagrams sent, and their bytes.
using Cut = std::pair<std::vector<size_t>, std::string>;
Cut cut()
{
    Cut all;
    for (const Datagram &datagram : datagrams) {
        all.first.push_back(datagram.bytes.size());
        all.second += datagram.bytes;
    }
    return all;
}

// Waits until the bridge was given something; the limit is the test's.
Received nextReceived()
{
    std::unique_lock lock(receivedMutex);
    receivedChanged.wait(lock, [] { return !received.empty(); });
    const Received first = received.front();
    received.pop_front();
    return first;
}

// A control PC on the loopback interface.
struct Peer {
    explicit Peer(const char *ip) : address(addressOf(ip, 0))
    {
        EXPECT_EQ(bind(socket, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        socklen_t length = sizeof address;
        EXPECT_EQ(getsockname(socket, reinterpret_cast<sockaddr *>(&address), &length), 0);
    }

    // What the bridge is given of a datagram from here.
    Received gives(const std::string &bytes) const
    {
        return {address.sin_addr.s_addr, ntohs(address.sin_port), bytes};
    }
    void send(const std::string &bytes, const char *to = "127.0.0.1")
    {
        const sockaddr_in daemon = addressOf(to, 1000);
        EXPECT_EQ(::sendto(socket, bytes.data(), bytes.size(), 0,
                           reinterpret_cast<const sockaddr *>(&daemon), sizeof daemon),
                  static_cast<ssize_t>(bytes.size()));
    }
    std::string receive()
    {
        char bytes[8192];
        sockaddr_in from{};
        socklen_t fromLength = sizeof from;
        const ssize_t length = ::recvfrom(socket, bytes, sizeof bytes, 0,
                                          reinterpret_cast<sockaddr *>(&from), &fromLength);
        EXPECT_EQ(ntohs(from.sin_port), 1000);
        return length < 0 ? "an error" : std::string(bytes, static_cast<size_t>(length));
    }

    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address;
};

// Start-up ---------------------------------------------------------------------------------------

TEST(Udpecho, KnowsNobodyAtFirstAndHasTheDocumentedNumbers)
{
    static_assert(kUdpPort == 1000 && kLargestDatagram == 1152 && sizeof tempBuffer == 2048);
    EXPECT_EQ(rem_ip, 0u);
    EXPECT_EQ(rem_port, 0);
    EXPECT_EQ(lastSender(), std::string(32, '0'));
    EXPECT_EQ(startTime, 0u);
}

// The attributes ask for SCHED_FIFO at the highest priority of Linux, but the thread inherits.
TEST(Udpecho, BindsPort1000OfEveryAddressAndThenStartsADetachedThread)
{
    static_assert(SCHED_FIFO == 1 && PTHREAD_INHERIT_SCHED == 0);
    isScripted = true;
    std::memset(&pthread_pro, 0xFF, sizeof pthread_pro);
    EXPECT_EQ(udpecho_init(), kDetached);
    const std::string thread = "thread: policy 1, priority 99, inheritance 0, ";
    EXPECT_EQ(calls, (Strings{"mutex", thread + "socket of 0.0.0.0:1000", "detach"}));
    EXPECT_EQ(s_parm.sched_priority, 99);
    EXPECT_EQ(threadBody, server_fun);
    EXPECT_EQ(reinterpret_cast<intptr_t>(threadArgument), sock); // the number itself
    EXPECT_EQ(fcntl(sock, F_GETFD), FD_CLOEXEC);
}

TEST(Udpecho, DetachesNothingWithoutAThreadAndGoesOn)
{
    isScripted = true;
    failing = {"thread"};
    EXPECT_EQ(udpecho_init(), -1);
    EXPECT_EQ(calls.size(), 2u);
    EXPECT_GT(sock, 2);
}

TEST(Udpecho, ThreadThatCouldNotBeMadeIsSaid)
{
    isScripted = true;
    failing = {"thread"};
    Console console;
    udpecho_init();
    console.end();
    EXPECT_EQ(console.out, "");
    EXPECT_EQ(console.err, "udpecho_init: no receive thread: Resource temporarily unavailable\n");
}

// The earliest of the failing steps is the one that ends the process.
TEST(Udpecho, EndsTheProcessWithoutAMutexASocketOrThePort)
{
    const int other = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in taken = addressOf("127.0.0.1", 1000);
    ASSERT_EQ(bind(other, reinterpret_cast<const sockaddr *>(&taken), sizeof taken), 0);
    EXPECT_EXIT(udpecho_init(), testing::ExitedWithCode(2), "^bind: Address already in use\n$");
    failing = {"socket"};
    EXPECT_EXIT(udpecho_init(), testing::ExitedWithCode(1), "^socket: Too many open files\n$");
    failing = {"socket", "mutex"};
    EXPECT_EXIT(udpecho_init(), testing::ExitedWithCode(1),
                "^pthread_mutex_init failed\n: Cannot allocate memory\n$");
}

// Receiving, scripted ----------------------------------------------------------------------------

TEST(Udpecho, AsksFor4047BytesAndNeverResetsItsBufferOrTheLengthOfTheAddress)
{
    const sockaddr_in pc = addressOf("10.0.0.9", 5000);
    arrivals = {{pc, "abcdef", 12}, {pc, "xy"}};
    serve();
    const uint32_t ip = ipOf("10.0.0.9");
    const std::string zeros(4041, '\0');
    EXPECT_TRUE(asked == (std::vector<Asked>{{"77 4047 0 16", std::string(4047, '\0'), {0, 0}},
                                             {"77 4047 0 12", "abcdef" + zeros, {ip, 5000}},
                                             {"77 4047 0 16", "xycdef" + zeros, {ip, 5000}}}));
    EXPECT_EQ(received.back().bytes, "xy");
    serve(0); // any descriptor
    EXPECT_EQ(asked.back().arguments, "0 4047 0 16");
}

TEST(Udpecho, HandsEveryDatagramToTheBridgeAndRemembersTheWholeAddressOfItsSender)
{
    const std::string longest(4047, '\xFF');
    const std::string zero(1, '\0');
    sockaddr_in last = addressOf("10.0.0.9", 0x1388);
    std::memset(&last.sin_zero, 0x5A, sizeof last.sin_zero);
    arrivals = {
        {addressOf("10.0.0.10", 65535), longest}, {addressOf("255.0.0.1", 1), zero}, {last, "a"}};
    serve();
    EXPECT_TRUE(received == (std::deque<Received>{{ipOf("10.0.0.10"), 65535, longest},
                                                  {ipOf("255.0.0.1"), 1, zero},
                                                  {ipOf("10.0.0.9"), 0x1388, "a"}}));
    EXPECT_EQ(hexOf(rem_ip.load()), "0a000009"); // not swapped
    EXPECT_EQ(rem_port, 0x1388);                 // swapped
    EXPECT_EQ(lastSender(), hexOf(last));
    task_udp_buffer(reinterpret_cast<const uint8_t *>("abc"), 2);
    EXPECT_TRUE(received.back() == (Received{ipOf("10.0.0.9"), 0x1388, "ab"}));
}

TEST(Udpecho, EmptyDatagramsAndErrorsChangeNothingSilentlyAndWithoutSleep)
{
    const sockaddr_in other = addressOf("10.0.0.10", 6000);
    arrivals = {{addressOf("10.0.0.9", 5000), "a"},
                {other, ""},
                {other, std::nullopt},
                {other, std::nullopt},
                {addressOf("10.0.0.11", 7000), "b"}};
    EXPECT_EQ(printedBy([] { serve(); }), "");
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>());
    ASSERT_EQ(asked.size(), 6u);
    for (size_t i = 1; i < 5; ++i) {
        EXPECT_EQ(asked[i].sender, std::pair(ipOf("10.0.0.9"), uint16_t{5000})) << i;
    }
    EXPECT_TRUE(received == (std::deque<Received>{{ipOf("10.0.0.9"), 5000, "a"},
                                                  {ipOf("10.0.0.11"), 7000, "b"}}));
}

// Sending, scripted ------------------------------------------------------------------------------

TEST(Udpecho, CutsWhatItSendsIntoDatagramsOf1152BytesToTheSameAddressAndPort)
{
    isScripted = true;
    sock = kSocket;
    std::memset(tempBuffer, 0x5A, sizeof tempBuffer);
    // clang-format off
    const std::vector<size_t> rows[] = {
        {}, {1}, {1151}, {1152}, {1152, 1}, {1152, 1151}, {1152, 1152}, {1152, 1152, 1},
        {1152, 1152, 1152, 639}};
    // clang-format on
    for (const auto &parts : rows) {
        const size_t length = std::accumulate(parts.begin(), parts.end(), size_t{0});
        SCOPED_TRACE(length);
        datagrams.clear();
        fakeClock.setMs(0x1'00000007 + static_cast<int64_t>(length));
        sendToPC(pattern(length));
        for (const Datagram &datagram : datagrams) {
            EXPECT_EQ(datagram.from, tempBuffer);
            // No datagram has come, so there is no family yet.
            EXPECT_EQ(datagram.to, "77 0 16 000013880a0000090000000000000000");
        }
        EXPECT_EQ(cut(), Cut(parts, pattern(length)));
        EXPECT_EQ(startTime, 7 + length); // of 32 bits; set even if there is nothing to send
    }
    EXPECT_EQ(std::count(tempBuffer + 1152, std::end(tempBuffer), 0x5A), 2048 - 1152);
}

TEST(Udpecho, TakesFamilyAndPaddingFromTheLastSender)
{
    isScripted = true;
    sockaddr_in sender;
    std::memcpy(&sender, "\xF1\xF2\xA1\xA2\xB1\xB2\xB3\xB4\1\2\3\4\5\6\7\10", sizeof sender);
    arrivals = {{sender, "a"}};
    serve();
    rem_ip = 0x77777777;
    rem_port = 0x7777;
    sendToPC("x");
    EXPECT_EQ(cut(), Cut({1}, "x"));
    EXPECT_EQ(datagrams.at(0).to, "0 0 16 f1f213880a0000090102030405060708");
}

TEST(Udpecho, GoesOnSilentlyWhenADatagramFailsOrGoesOutShort)
{
    isScripted = true;
    for (const int result : {-1, 1}) {
        datagrams.clear();
        fakeClock.setMs(1000);
        onSendto = [=](size_t) {
            fakeClock.advanceMs(100);
            errno = ENETUNREACH;
            return result;
        };
        EXPECT_EQ(printedBy([] { sendToPC(pattern(2305)); }), "") << result;
        EXPECT_EQ(cut(), Cut({1152, 1152, 1}, pattern(2305))) << result;
        EXPECT_EQ(startTime, 1300u) << result;                  // the tick at which it has finished
        EXPECT_EQ(UDP_SendBuffer(tempBuffer, 3, 1, 2), result); // as sendto()
    }
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

TEST(Udpecho, PassesOnTheFirst4047BytesOfDatagramsOfEverySizeInOrder)
{
    EXPECT_EQ(udpecho_init(), 0);
    Peer pc("127.0.0.1");
    const size_t sizes[] = {1, 2, 1152, 1153, 4046, 4047, 4048, 5000, 20000, 4};
    for (const size_t size : sizes) {
        pc.send(pattern(size));
    }
    for (const size_t size : sizes) {
        EXPECT_TRUE(nextReceived() == pc.gives(pattern(std::min<size_t>(size, 4047)))) << size;
    }
}

TEST(Udpecho, ListensOnEveryLocalAddressOnAThreadWithThePolicyOfItsStarter)
{
    udpecho_init();
    Peer pc("127.0.0.1");
    for (const char *const address : {"127.0.0.1", "127.1.2.3"}) {
        pc.send(address, address);
        EXPECT_EQ(nextReceived().bytes, address);
    }
    const std::lock_guard lock(receivedMutex);
    EXPECT_EQ(receiverPolicy, sched_getscheduler(0));
}

TEST(Udpecho, AnswersTheLastSenderOfADatagramThatWasNotEmpty)
{
    udpecho_init();
    Peer first("127.0.0.1");
    Peer second("127.0.0.2");
    const struct {
        Peer *sender, *emptySender;
        const char *bytes;
    } rows[] = {{&first, &second, "a"}, {&second, &first, "b"}, {&first, &second, "c"}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.bytes);
        row.emptySender->send("");
        row.sender->send(row.bytes);
        row.emptySender->send("");
        EXPECT_TRUE(nextReceived() == row.sender->gives(row.bytes));
        EXPECT_EQ(rem_ip, row.sender->address.sin_addr.s_addr);
        EXPECT_EQ(rem_port, ntohs(row.sender->address.sin_port));
        EXPECT_EQ(lastSender(), hexOf(row.sender->address));
        sendToPC(row.bytes, rem_ip, rem_port);
        EXPECT_EQ(row.sender->receive(), row.bytes); // and none of the other's
    }
}

TEST(Udpecho, CutsAnswersForTheWireEvenBeforeAnybodyHasSent)
{
    udpecho_init();
    Peer pc("127.0.0.1");
    const Received from = pc.gives("");
    for (int round = 0; round < 2; ++round) {
        sendToPC(pattern(2305), from.ip, static_cast<uint16_t>(from.port));
        for (const auto &[at, size] :
             {std::pair<size_t, size_t>(0, 1152), {1152, 1152}, {2304, 1}}) {
            EXPECT_EQ(pc.receive(), pattern(2305).substr(at, size)) << round;
        }
        pc.send("hello");
        nextReceived();
    }
}

} // namespace
