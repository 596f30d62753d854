// The bridge's two pipes and the PC's address, filled as the UDP receive thread fills them.

#include "transport/bridge_pipes.h"

#include <utility>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/console.h"
#include "tests/support/replace.h"

namespace {

using Sender = std::pair<uint32_t, uint32_t>; // address and port

// The sender known, and the bytes stored, at each pipe_write_block().
std::vector<std::pair<Sender, std::string>> stored;

Sender knownSender()
{
    return {udp_chanel_value[0], udp_chanel_value[1]};
}

} // namespace

// pipe_write_block(), as the linker knows it.
REPLACE(uint32_t, _Z16pipe_write_blockP4pipePKhj,
        (struct pipe * pipe, const uint8_t *bytes, uint32_t count))
{
    stored.emplace_back(knownSender(), std::string(bytes, bytes + count));
    return REAL(_Z16pipe_write_blockP4pipePKhj)(pipe, bytes, count);
}

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

void receive(const Sender &sender, std::string_view bytes)
{
    udpReceiveBuffer(sender.first, sender.second, reinterpret_cast<const uint8_t *>(bytes.data()),
                     static_cast<uint32_t>(bytes.size()));
}

constexpr auto pattern = [](size_t count) { return countingBytes(count, 251); };

TEST(BridgePipes, AreEmptyOver4096BytesEachAndKnowNoPcAtFirst)
{
    EXPECT_EQ(kBridgeBufferSize, 4096u);
    EXPECT_EQ(knownSender(), Sender(0, 0));
    udp_receive_pipe_init();
    EXPECT_EQ(knownSender(), Sender(0, 0));
    for (const struct pipe *const pipe : {&udp_receive_pipe, &udp_send_pipe}) {
        EXPECT_EQ(pipe_isEmpty(pipe), 1);
        EXPECT_EQ(pipe->end - pipe->start, 4096);
    }
}

TEST(BridgePipes, HaveStorageOfTheirOwnAndAreEmptiedByAnotherStart)
{
    for (int start = 0; start < 2; ++start) {
        udp_receive_pipe_init();
        for (const char byte : pattern(4095)) {
            EXPECT_EQ(pipe_write(&udp_send_pipe, static_cast<uint8_t>(byte)), 1);
        }
        EXPECT_EQ(pipe_isEmpty(&udp_receive_pipe), 1);
        receive({1, 2}, std::string(4095, 'r'));
        EXPECT_EQ(drained(&udp_send_pipe), pattern(4095));
        EXPECT_EQ(drained(&udp_receive_pipe), std::string(4095, 'r'));
        receive({1, 2}, "left over");
        pipe_write(&udp_send_pipe, 'x');
    }
}

TEST(BridgePipes, QueueTheBytesOfADatagramForTheLineAndRememberItsSender)
{
    udp_receive_pipe_init();
    const struct {
        const char *name;
        std::vector<std::string> datagrams;
        std::string queued;
        Sender sender;
    } rows[] = {
        {"every byte", {countingBytes(256)}, countingBytes(256), {0x0900000A, 5000}},
        {"one after the other", {"first", "second"}, "firstsecond", {0xFFFFFFFF, 65535}},
        {"the largest", {pattern(4047)}, pattern(4047), {1, 0}},
        {"no bytes, yet the sender is remembered", {""}, "", {0x0900000A, 1}},
        {"what does not fit is dropped", {pattern(5000), "more"}, pattern(4095), {3, 4}},
        {"nobody", {"c"}, "c", {0, 0}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(printedBy([&row] {
                      for (const std::string &datagram : row.datagrams) {
                          receive(row.sender, datagram);
                      }
                  }),
                  "");
        EXPECT_EQ(knownSender(), row.sender);
        EXPECT_EQ(drained(&udp_receive_pipe), row.queued);
        EXPECT_EQ(pipe_isEmpty(&udp_send_pipe), 1);
    }
}

// Whoever sees a byte must see an address that is at least as new, and all of a datagram.
TEST(BridgePipes, NameTheSenderBeforeAWholeDatagramIsThere)
{
    udp_receive_pipe_init();
    receive({10, 20}, "ab");
    receive({11, 21}, "c");
    receive({12, 22}, "");
    EXPECT_EQ(stored, (std::vector<std::pair<Sender, std::string>>{
                          {{10, 20}, "ab"}, {{11, 21}, "c"}, {{12, 22}, ""}}));
    EXPECT_EQ(knownSender(), Sender(12, 22));
}

} // namespace
