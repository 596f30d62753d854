// The bridge's two pipes and the PC's address, filled as the UDP receive thread fills them.

#include "transport/bridge_pipes.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <thread>

#include <gtest/gtest.h>

namespace {

std::string drained(struct pipe *pipe)
{
    std::string bytes;
    uint8_t byte;
    while (pipe_read(pipe, &byte) != 0) {
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

// Writes bytes until the pipe takes no more.
uint32_t roomOf(struct pipe *pipe)
{
    uint32_t count = 0;
    while (count < 100000 && pipe_write(pipe, static_cast<uint8_t>(count)) != 0) {
        ++count;
    }
    return count;
}

void receive(uint32_t ip, uint32_t port, std::string_view bytes)
{
    udpReceiveBuffer(ip, port, reinterpret_cast<const uint8_t *>(bytes.data()),
                     static_cast<uint32_t>(bytes.size()));
}

// `count` bytes in which every position can be told from its neighbours.
std::string pattern(size_t count)
{
    std::string bytes;
    for (size_t i = 0; i < count; ++i) {
        bytes += static_cast<char>(i % 251);
    }
    return bytes;
}

TEST(BridgePipes, KnowNoPcAtFirst)
{
    EXPECT_EQ(udp_chanel_value[0], 0u);
    EXPECT_EQ(udp_chanel_value[1], 0u);
    udp_receive_pipe_init();
    EXPECT_EQ(udp_chanel_value[0], 0u);
    EXPECT_EQ(udp_chanel_value[1], 0u);
}

TEST(BridgePipes, AreEmptyOver4096BytesEach)
{
    EXPECT_EQ(kBridgeBufferSize, 4096u);
    udp_receive_pipe_init();
    for (const struct pipe *const pipe : {&udp_receive_pipe, &udp_send_pipe}) {
        EXPECT_EQ(pipe_isEmpty(pipe), 1);
        EXPECT_EQ(pipe->end - pipe->start, 4096);
    }
}

TEST(BridgePipes, HaveStorageOfTheirOwn)
{
    udp_receive_pipe_init();
    EXPECT_EQ(roomOf(&udp_send_pipe), 4095u);
    EXPECT_EQ(pipe_isEmpty(&udp_receive_pipe), 1);
    receive(1, 2, std::string(4095, 'r'));
    std::string expected;
    for (uint32_t i = 0; i < 4095; ++i) {
        expected += static_cast<char>(i);
    }
    EXPECT_EQ(drained(&udp_send_pipe), expected);
    EXPECT_EQ(drained(&udp_receive_pipe), std::string(4095, 'r'));
}

TEST(BridgePipes, AreEmptiedByAnotherStart)
{
    udp_receive_pipe_init();
    receive(1, 2, "left over");
    pipe_write(&udp_send_pipe, 'x');
    udp_receive_pipe_init();
    EXPECT_EQ(drained(&udp_receive_pipe), "");
    EXPECT_EQ(drained(&udp_send_pipe), "");
}

TEST(BridgePipes, QueueTheBytesOfADatagramForTheLine)
{
    udp_receive_pipe_init();
    std::string all;
    for (int code = 0; code < 256; ++code) {
        all += static_cast<char>(code);
    }
    receive(0x0900000A, 5000, all);
    EXPECT_EQ(drained(&udp_receive_pipe), all);
    EXPECT_EQ(pipe_isEmpty(&udp_send_pipe), 1);
}

TEST(BridgePipes, QueueDatagramsOneBehindTheOther)
{
    udp_receive_pipe_init();
    receive(1, 2, "first");
    receive(1, 2, "second");
    EXPECT_EQ(drained(&udp_receive_pipe), "firstsecond");
}

TEST(BridgePipes, RememberWhoSentLast)
{
    udp_receive_pipe_init();
    receive(0x0900000A, 5000, "a");
    EXPECT_EQ(udp_chanel_value[0], 0x0900000Au);
    EXPECT_EQ(udp_chanel_value[1], 5000u);
    receive(0xFFFFFFFF, 65535, "b");
    EXPECT_EQ(udp_chanel_value[0], 0xFFFFFFFFu);
    EXPECT_EQ(udp_chanel_value[1], 65535u);
    receive(0, 0, "c");
    EXPECT_EQ(udp_chanel_value[0], 0u);
    EXPECT_EQ(udp_chanel_value[1], 0u);
}

TEST(BridgePipes, RememberTheSenderOfNoBytesToo)
{
    udp_receive_pipe_init();
    receive(0x0900000A, 5000, "");
    EXPECT_EQ(udp_chanel_value[0], 0x0900000Au);
    EXPECT_EQ(udp_chanel_value[1], 5000u);
    EXPECT_EQ(drained(&udp_receive_pipe), "");
}

TEST(BridgePipes, HoldTheLargestDatagram)
{
    udp_receive_pipe_init();
    receive(1, 2, pattern(4047));
    EXPECT_EQ(drained(&udp_receive_pipe), pattern(4047));
}

TEST(BridgePipes, DropWhatDoesNotFitSilently)
{
    udp_receive_pipe_init();
    testing::internal::CaptureStdout();
    receive(1, 2, pattern(5000));
    receive(3, 4, "more");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(drained(&udp_receive_pipe), pattern(4095));
    EXPECT_EQ(udp_chanel_value[0], 3u); // whose bytes were all dropped
    EXPECT_EQ(udp_chanel_value[1], 4u);
}

TEST(BridgePipes, TakeBytesAgainOnceSomeAreRead)
{
    udp_receive_pipe_init();
    receive(1, 2, pattern(4095));
    uint8_t byte;
    for (int i = 0; i < 3; ++i) {
        pipe_read(&udp_receive_pipe, &byte);
    }
    receive(1, 2, "12345");
    EXPECT_EQ(drained(&udp_receive_pipe), pattern(4095).substr(3) + "123");
}

TEST(BridgePipes, NameTheSenderBeforeItsBytesAreThere)
{
    // Datagram n comes from address n and port n and carries the low byte of n: whoever sees the
    // byte must see an address that is at least as new.
    constexpr uint32_t kDatagrams = 100000;
    udp_receive_pipe_init();
    std::thread receiver([] {
        for (uint32_t n = 1; n <= kDatagrams; ++n) {
            while (pipe_isFull(&udp_receive_pipe) != 0) {
                std::this_thread::yield();
            }
            const auto byte = static_cast<uint8_t>(n);
            udpReceiveBuffer(n, n, &byte, 1);
        }
    });
    uint32_t late = 0;
    uint32_t wrong = 0;
    for (uint32_t n = 1; n <= kDatagrams; ++n) {
        uint8_t byte;
        while (pipe_read(&udp_receive_pipe, &byte) == 0) {
            std::this_thread::yield();
        }
        wrong += byte == static_cast<uint8_t>(n) ? 0u : 1u;
        late += udp_chanel_value[0] >= n && udp_chanel_value[1] >= n ? 0u : 1u;
    }
    receiver.join();
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(late, 0u);
}

} // namespace
