// The two tasks that carry bytes between the PC and the front board's line.

#include "transport/bridge.h"

#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "command/channel.h"
#include "command/reception.h"
#include "core/pipe.h"
#include "tests/support/bytes.h"
#include "tests/support/console.h"
#include "tests/support/replace.h"
#include "transport/bridge_pipes.h"

namespace {

using Strings = std::vector<std::string>;

Strings calls;           // "uart 0: bytes" and "pc <address> <port>: bytes", in order
int32_t uartResult = -2; // of the next UARTSendBuffer(); -2: the length

} // namespace

// UARTSendBuffer() and to_pcudp(), as the linker knows them.

REPLACE(int32_t, _Z14UARTSendBufferiPKhi, (int32_t port, const uint8_t *bytes, int32_t length))
{
    calls.push_back("uart " + std::to_string(port) + ": " + std::string(bytes, bytes + length));
    return uartResult == -2 ? length : uartResult;
}

REPLACE(void, _Z8to_pcudpjtPKhj,
        (uint32_t ip, uint16_t port, const uint8_t *bytes, uint32_t length))
{
    calls.push_back("pc " + std::to_string(ip) + " " + std::to_string(port) + ": " +
                    std::string(bytes, bytes + length));
}

namespace {

class Bridge : public testing::Test {
protected:
    Bridge()
    {
        udp_receive_pipe_init();
    }

    static void receiveFromPC(std::string_view bytes, uint32_t ip = 11, uint32_t port = 5000)
    {
        udpReceiveBuffer(ip, port, reinterpret_cast<const uint8_t *>(bytes.data()),
                         static_cast<uint32_t>(bytes.size()));
    }
    static void mirror(std::string_view bytes)
    {
        for (const char byte : bytes) {
            pipe_write(&udp_send_pipe, static_cast<uint8_t>(byte));
        }
    }
    static void knowPC(uint32_t ip, uint32_t port)
    {
        udp_chanel_value[0] = ip;
        udp_chanel_value[1] = port;
    }
};

Strings takeCalls()
{
    return std::exchange(calls, {});
}

constexpr auto pattern = [](size_t count) { return countingBytes(count, 251); };

// The datagrams and the mirrored bytes of a row are there when the tasks run.
TEST_F(Bridge, CarriesTheBytesOfThePcToPort0AndThenTheMirrorToTheLatestSender)
{
    const std::string odd("t\0wo\xFF", 5);
    const struct {
        const char *name;
        std::vector<std::string> arrivals; // from 11, port 5000
        std::string mirror;
        Strings calls;
    } rows[] = {
        {"nothing", {}, "", {}},
        {"no PC is known: the mirror is emptied", {}, pattern(4095), {}},
        {"no PC is known: nothing has accumulated", {}, "again", {}},
        {"datagrams in one call", {"one ", odd}, "", {"uart 0: one " + odd}},
        {"the mirror in one call", {}, odd, {"pc 11 5000: " + odd}},
        {"the line before the PC", {"a"}, "b", {"uart 0: a", "pc 11 5000: b"}},
        {"a full pipe", {pattern(4095)}, "", {"uart 0: " + pattern(4095)}},
        {"what does not fit is lost",
         {pattern(4047), pattern(100)},
         pattern(5000),
         {"uart 0: " + pattern(4047) + pattern(48), "pc 11 5000: " + pattern(4095)}},
        {"later bytes", {"later"}, "new", {"uart 0: later", "pc 11 5000: new"}},
    };
    for (const auto &row : rows) {
        for (const std::string &datagram : row.arrivals) {
            receiveFromPC(datagram);
        }
        mirror(row.mirror);
        udp2uart_task();
        EXPECT_EQ(takeCalls(), row.calls) << row.name;
        EXPECT_EQ(pipe_isEmpty(&udp_send_pipe), 1) << row.name;
        udp2uart_task();
        EXPECT_EQ(takeCalls(), Strings()) << row.name;
    }
    receiveFromPC("x", 22, 6000);
    mirror("second");
    udp2uart_task();
    mirror("third");
    udp2uart_task();
    EXPECT_EQ(takeCalls(), (Strings{"uart 0: x", "pc 22 6000: second", "pc 22 6000: third"}));
}

TEST_F(Bridge, ReturnsWhatWritingToTheLineReturnedAndRepeatsNothing)
{
    mirror("abc");
    for (const int32_t result : {-2, 47, -1}) {
        receiveFromPC("abc");
        uartResult = result;
        EXPECT_EQ(udpReceiveTask(), result == -2 ? 3 : result);
        EXPECT_EQ(takeCalls(), (Strings{"uart 0: abc"}));
        EXPECT_EQ(udpReceiveTask(), 0) << result; // with nothing to write
        EXPECT_EQ(takeCalls(), Strings()) << result;
    }
    udpSendTask(); // the mirror was left alone
    EXPECT_EQ(takeCalls(), (Strings{"pc 11 5000: abc"}));
}

TEST_F(Bridge, KnowsAPcByItsAddressOrItsPort)
{
    const struct {
        uint32_t ip, port;
        Strings calls;
    } rows[] = {
        {0, 0, {}},
        {0, 5000, {"pc 0 5000: ab"}},
        {11, 0, {"pc 11 0: ab"}},
        {0x0900000A, 5000, {"pc 150994954 5000: ab"}},
        {0xFFFFFFFF, 65535, {"pc 4294967295 65535: ab"}},
    };
    for (const auto &row : rows) {
        knowPC(row.ip, row.port);
        mirror("ab");
        udpSendTask();
        EXPECT_EQ(takeCalls(), row.calls) << row.ip << ' ' << row.port;
        EXPECT_EQ(pipe_isEmpty(&udp_send_pipe), 1);
        udpSendBuffer(reinterpret_cast<const uint8_t *>("abc"), 2);
        EXPECT_EQ(takeCalls(), row.calls) << row.ip << ' ' << row.port;
    }
}

// As if the receive thread kept writing.
TEST_F(Bridge, DrainsAtMostOneBatchOfAPipeThatHoldsMore)
{
    static uint8_t storage[2][10000];
    knowPC(11, 5000);
    pipe_init(&udp_receive_pipe, storage[0], sizeof storage[0]);
    pipe_init(&udp_send_pipe, storage[1], sizeof storage[1]);
    const std::string bytes = pattern(9000);
    receiveFromPC(bytes);
    mirror(bytes);
    for (const size_t at : {0u, 4096u, 8192u}) {
        udp2uart_task();
        EXPECT_EQ(takeCalls(), (Strings{"uart 0: " + bytes.substr(at, 4096),
                                        "pc 11 5000: " + bytes.substr(at, 4096)}));
    }
}

TEST_F(Bridge, ForwardsABadFrameAndTrafficButKeepsAValidFrameBack)
{
    InitRs232CommandVariable();
    knowPC(11, 5000);
    constexpr std::string_view kLine = "ab<T00006a030000006d>cd<T0000680100000068>";
    Console console;
    IsrReceiveBuffer(kChannelSerial, 0, reinterpret_cast<const uint8_t *>(kLine.data()),
                     static_cast<uint32_t>(kLine.size()));
    TaskCommand();
    udp2uart_task();
    console.end();
    EXPECT_EQ(takeCalls(), (Strings{"uart 0: <F00006a03010a0078>", "uart 0: <F000068ffffffff64>",
                                    "pc 11 5000: abcd<T0000680100000068>"}));
}

TEST_F(Bridge, ExecutesNothingThatThePcSends)
{
    InitRs232CommandVariable();
    receiveFromPC("<T00006a030000006d>");
    for (int pass = 0; pass < 2; ++pass) {
        TaskCommand();
        udp2uart_task();
    }
    EXPECT_EQ(takeCalls(), (Strings{"uart 0: <T00006a030000006d>"}));
}

TEST_F(Bridge, CarriesEveryByteOfTheReceiveThreadInOrder)
{
    const std::string all = pattern(300'000);
    std::atomic<size_t> carried = 0;
    std::thread receiver([&] {
        std::mt19937 random(6);
        for (size_t at = 0; at < all.size();) {
            const auto datagram = std::string_view(all).substr(at, 1 + random() % 4047);
            at += datagram.size();
            while (at - carried > 4095) { // nothing may be dropped
                std::this_thread::yield();
            }
            receiveFromPC(datagram);
        }
    });
    std::string line;
    while (line.size() < all.size()) {
        udp2uart_task();
        for (const std::string &call : takeCalls()) {
            if (call != "pc 11 5000: m") {
                ASSERT_EQ(call.substr(0, 8), "uart 0: ");
                line += call.substr(8);
            }
        }
        carried = line.size();
        if (!line.empty()) { // who sent is known
            mirror("m");
        }
        std::this_thread::yield();
    }
    receiver.join();
    EXPECT_TRUE(line == all);
}

} // namespace
