// The two tasks that carry bytes between the PC and the front board's line. The module's source is
// part of this file, so that one batch can be drained out of a pipe that holds more.

#include "transport/bridge.cpp"

#include <atomic>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "command/channel.h"
#include "command/reception.h"

namespace {

using Strings = std::vector<std::string>;

Strings calls;           // "uart 0: bytes" and "pc <address> <port>: bytes", in order
int32_t uartResult = -2; // of the next UARTSendBuffer(); -2: the length

std::string text(const uint8_t *bytes, size_t length)
{
    return {bytes, bytes + length};
}

} // namespace

// The ends of the bridge, in the place of transport/uart and transport/udpecho.

int32_t UARTSendBuffer(int32_t port, const uint8_t *bytes, int32_t length)
{
    calls.push_back("uart " + std::to_string(port) + ": " +
                    text(bytes, static_cast<size_t>(length)));
    return uartResult == -2 ? length : uartResult;
}

void to_pcudp(uint32_t ip, uint16_t port, const uint8_t *bytes, uint32_t length)
{
    calls.push_back("pc " + std::to_string(ip) + " " + std::to_string(port) + ": " +
                    text(bytes, length));
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
    static Strings takeCalls()
    {
        return std::exchange(calls, {});
    }
};

std::string pattern(size_t count)
{
    std::string bytes;
    for (size_t i = 0; i < count; ++i) {
        bytes += static_cast<char>(i % 251);
    }
    return bytes;
}

// To the line ------------------------------------------------------------------------------------

TEST_F(Bridge, WritesTheBytesOfThePcToPort0InOneCall)
{
    receiveFromPC("one ");
    receiveFromPC(std::string_view("t\0wo\xFF", 5));
    udpReceiveTask();
    EXPECT_EQ(takeCalls(), (Strings{std::string("uart 0: one t\0wo\xFF", 17)}));
    udpReceiveTask();
    EXPECT_EQ(takeCalls(), Strings());
}

TEST_F(Bridge, ReturnsWhatWritingToTheLineReturned)
{
    receiveFromPC("abc");
    EXPECT_EQ(udpReceiveTask(), 3);
    receiveFromPC("abc");
    uartResult = 41;
    EXPECT_EQ(udpReceiveTask(), 41);
    receiveFromPC("abc");
    uartResult = -1;
    EXPECT_EQ(udpReceiveTask(), -1);
}

TEST_F(Bridge, ReturnsZeroWithoutWritingWhenThePcSentNothing)
{
    uartResult = 41;
    EXPECT_EQ(udpReceiveTask(), 0);
    EXPECT_EQ(calls, Strings());
}

TEST_F(Bridge, DoesNotRepeatABatchThatTheLineRefused)
{
    receiveFromPC("abc");
    uartResult = 47;
    udpReceiveTask();
    takeCalls();
    EXPECT_EQ(udpReceiveTask(), 0);
    EXPECT_EQ(calls, Strings());
}

TEST_F(Bridge, WritesAFullPipeInOneCall)
{
    receiveFromPC(pattern(4095));
    EXPECT_EQ(udpReceiveTask(), 4095);
    EXPECT_EQ(takeCalls(), (Strings{"uart 0: " + pattern(4095)}));
}

TEST_F(Bridge, LosesWhatDidNotFitIntoThePipe)
{
    receiveFromPC(pattern(4047));
    receiveFromPC(pattern(100));
    EXPECT_EQ(udpReceiveTask(), 4095);
    EXPECT_EQ(takeCalls(), (Strings{"uart 0: " + pattern(4047) + pattern(48)}));
    receiveFromPC("later");
    udpReceiveTask();
    EXPECT_EQ(takeCalls(), (Strings{"uart 0: later"}));
}

TEST_F(Bridge, LeavesTheMirrorAloneWhileItWritesToTheLine)
{
    mirror("abc");
    receiveFromPC("x");
    udpReceiveTask();
    takeCalls();
    udpSendTask();
    EXPECT_EQ(takeCalls(), (Strings{"pc 11 5000: abc"}));
}

// To the PC --------------------------------------------------------------------------------------

TEST_F(Bridge, SendsTheMirroredBytesInOneCall)
{
    knowPC(0x0900000A, 5000);
    mirror(std::string_view("ab\0\xFF", 4));
    udpSendTask();
    EXPECT_EQ(takeCalls(), (Strings{std::string("pc 150994954 5000: ab\0\xFF", 23)}));
    udpSendTask();
    EXPECT_EQ(takeCalls(), Strings());
}

TEST_F(Bridge, SendsAFullMirrorInOneCall)
{
    knowPC(11, 5000);
    mirror(pattern(5000));
    udpSendTask();
    EXPECT_EQ(takeCalls(), (Strings{"pc 11 5000: " + pattern(4095)}));
}

TEST_F(Bridge, SendsNothingWhenNothingIsMirrored)
{
    knowPC(11, 5000);
    udpSendTask();
    EXPECT_EQ(calls, Strings());
}

TEST_F(Bridge, SendsNothingBeforeTheFirstDatagramYetEmptiesTheMirror)
{
    for (int pass = 0; pass < 3; ++pass) {
        mirror(pattern(4095));
        udp2uart_task();
        EXPECT_EQ(calls, Strings());
        EXPECT_EQ(pipe_isEmpty(&udp_send_pipe), 1);
    }
    receiveFromPC("hello");
    takeCalls();
    mirror("new");
    udp2uart_task();
    EXPECT_EQ(takeCalls(), (Strings{"uart 0: hello", "pc 11 5000: new"}));
}

TEST_F(Bridge, KnowsAPcByItsAddressOrItsPort)
{
    knowPC(0, 5000);
    mirror("port");
    udpSendTask();
    EXPECT_EQ(takeCalls(), (Strings{"pc 0 5000: port"}));
    knowPC(11, 0);
    mirror("address");
    udpSendTask();
    EXPECT_EQ(takeCalls(), (Strings{"pc 11 0: address"}));
    knowPC(0, 0);
    mirror("none");
    udpSendTask();
    EXPECT_EQ(takeCalls(), Strings());
    EXPECT_EQ(pipe_isEmpty(&udp_send_pipe), 1);
}

TEST_F(Bridge, SendsToTheLatestSender)
{
    receiveFromPC("a", 11, 5000);
    mirror("first");
    udpSendTask();
    receiveFromPC("b", 22, 6000);
    mirror("second");
    udpSendTask();
    mirror("third");
    udpSendTask();
    EXPECT_EQ(takeCalls(),
              (Strings{"pc 11 5000: first", "pc 22 6000: second", "pc 22 6000: third"}));
}

TEST_F(Bridge, SendsBytesOfTheCallerToThePc)
{
    const uint8_t bytes[] = {'a', 'b', 'c'};
    udpSendBuffer(bytes, 3);
    EXPECT_EQ(takeCalls(), Strings());
    knowPC(0xFFFFFFFF, 65535);
    udpSendBuffer(bytes, 2);
    EXPECT_EQ(takeCalls(), (Strings{"pc 4294967295 65535: ab"}));
}

// Both -------------------------------------------------------------------------------------------

TEST_F(Bridge, ServesTheLineBeforeThePc)
{
    receiveFromPC("to the line");
    mirror("to the PC");
    udp2uart_task();
    EXPECT_EQ(takeCalls(), (Strings{"uart 0: to the line", "pc 11 5000: to the PC"}));
    udp2uart_task();
    EXPECT_EQ(takeCalls(), Strings());
}

TEST_F(Bridge, DrainsAtMostOneBatchOfAPipeThatNeverRunsEmpty)
{
    static uint8_t storage[10000];
    struct pipe endless;
    pipe_init(&endless, storage, sizeof storage);
    const std::string bytes = pattern(9000);
    for (const char byte : bytes) {
        ASSERT_EQ(pipe_write(&endless, static_cast<uint8_t>(byte)), 1);
    }
    EXPECT_EQ(drain(&endless, udp_temp_receive_buf), 4096u);
    EXPECT_EQ(text(udp_temp_receive_buf, 4096), bytes.substr(0, 4096));
    EXPECT_EQ(drain(&endless, udp_temp_send_buf), 4096u);
    EXPECT_EQ(text(udp_temp_send_buf, 4096), bytes.substr(4096, 4096));
    EXPECT_EQ(drain(&endless, udp_temp_send_buf), 808u);
    EXPECT_EQ(text(udp_temp_send_buf, 808), bytes.substr(8192));
    EXPECT_EQ(drain(&endless, udp_temp_send_buf), 0u);
}

TEST_F(Bridge, ForwardsABadFrameAndTrafficButKeepsAValidFrameBack)
{
    InitRs232CommandVariable();
    knowPC(11, 5000);
    constexpr std::string_view kLine = "ab<T00006a030000006d>cd<T0000680100000068>";
    testing::internal::CaptureStdout();
    IsrReceiveBuffer(kChannelSerial, 0, reinterpret_cast<const uint8_t *>(kLine.data()),
                     static_cast<uint32_t>(kLine.size()));
    TaskCommand();
    udp2uart_task();
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(takeCalls(), (Strings{"uart 0: <F00006a03010a0078>", "uart 0: <F000068ffffffff64>",
                                    "pc 11 5000: abcd<T0000680100000068>"}));
}

TEST_F(Bridge, ExecutesNothingThatThePcSends)
{
    InitRs232CommandVariable();
    receiveFromPC("<T00006a030000006d>");
    TaskCommand();
    udp2uart_task();
    TaskCommand();
    udp2uart_task();
    EXPECT_EQ(takeCalls(), (Strings{"uart 0: <T00006a030000006d>"}));
}

// Two threads ------------------------------------------------------------------------------------

TEST_F(Bridge, CarriesEveryByteOfTheReceiveThreadInOrder)
{
    constexpr uint32_t kBytes = 2'000'000;
    std::atomic<uint32_t> carried = 0;
    const auto byteAt = [](uint32_t n) { return static_cast<uint8_t>(n * 7 + (n >> 8)); };
    std::thread receiver([&] {
        std::mt19937 random(6);
        std::vector<uint8_t> datagram;
        for (uint32_t made = 0; made < kBytes;) {
            datagram.clear();
            for (auto left = static_cast<uint32_t>(1 + random() % 4047); left > 0 && made < kBytes;
                 --left) {
                datagram.push_back(byteAt(made++));
            }
            while (made - carried > 4095) { // nothing may be dropped
                std::this_thread::yield();
            }
            udpReceiveBuffer(11, 5000, datagram.data(), static_cast<uint32_t>(datagram.size()));
        }
    });
    constexpr std::string_view kHead = "uart 0: ";
    uint32_t wrong = 0;
    while (carried < kBytes) {
        udp2uart_task();
        for (const std::string &call : takeCalls()) {
            ASSERT_EQ(call.substr(0, kHead.size()), kHead);
            uint32_t n = carried;
            for (const char byte : call.substr(kHead.size())) {
                wrong += static_cast<uint8_t>(byte) == byteAt(n++) ? 0u : 1u;
            }
            carried = n;
        }
        std::this_thread::yield();
    }
    receiver.join();
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(carried, kBytes);
}

TEST_F(Bridge, CarriesASelectionInOrderWhenTheReceiveThreadRunsAhead)
{
    // Nothing paces the thread, so bytes are dropped; none may come twice or before another.
    std::string all(1'200'000, '\0');
    std::mt19937 random(7);
    for (char &byte : all) {
        byte = static_cast<char>(random());
    }
    std::atomic<bool> isDone = false;
    std::thread receiver([&] {
        for (size_t at = 0; at < all.size(); at += 400) {
            receiveFromPC(std::string_view(all).substr(at, 400));
        }
        isDone = true;
    });
    std::string line;
    bool wasDone;
    do {
        wasDone = isDone;
        udp2uart_task();
        for (const std::string &call : takeCalls()) {
            line += call.substr(std::string_view("uart 0: ").size());
        }
    } while (!wasDone);
    receiver.join();
    EXPECT_GE(line.size(), 4095u); // that much finds room in any case
    EXPECT_EQ(line.substr(0, 4095), all.substr(0, 4095));
    size_t found = 0;
    for (size_t at = 0; at < all.size() && found < line.size(); ++at) {
        found += all[at] == line[found] ? 1u : 0u;
    }
    EXPECT_EQ(found, line.size());
}

} // namespace
