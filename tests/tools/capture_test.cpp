// What a line carries, written as a capture. wireshark_test.py reads captures of the running
// daemon.

#include "tools/capture.h"

#include <chrono>
#include <fstream>
#include <iterator>

#include "tests/tools/far_end.h"
#include "tools/errors.h"

namespace {

constexpr char kFile[] = "/tmp/captured";

std::string captured()
{
    std::ifstream file(kFile, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

uint32_t numberAt(const std::string &bytes, size_t at)
{
    uint32_t number = 0;
    bytes.copy(reinterpret_cast<char *>(&number), sizeof(number), at);
    return number;
}

// The blocks of the file: their types and what is between the lengths.
std::vector<std::pair<uint32_t, std::string>> blocks()
{
    const std::string bytes = captured();
    std::vector<std::pair<uint32_t, std::string>> found;
    for (size_t at = 0; at < bytes.size();) {
        const uint32_t length = numberAt(bytes, at + 4);
        EXPECT_EQ(length % 4, 0U);
        EXPECT_EQ(numberAt(bytes, at + length - 4), length);
        found.emplace_back(numberAt(bytes, at), bytes.substr(at + 8, length - 12));
        at += length;
    }
    return found;
}

constexpr uint32_t kSection = 0x0A0D0D0A;
constexpr uint32_t kInterface = 1;
constexpr uint32_t kPacket = 6;

TEST(Capture, HasAnInterfaceForEachLineAndAPacketForEachChunk)
{
    FarEnd far;
    const auto capture = std::make_shared<Capture>(kFile, "about");
    capture->take("pc", Passing::kReceived, "x");
    far.line.setTap([capture](Passing passing, std::string_view bytes) {
        capture->take("front", passing, bytes);
    });
    far.arrive("late");
    far.line.discardInput();
    far.line.send("<T0000680100000069>");
    far.arrive(std::string("\0\xff", 2));
    far.line.receive(Milliseconds{1000});

    const auto found = blocks();
    std::vector<uint32_t> types;
    for (const auto &block : found) {
        types.push_back(block.first);
    }
    ASSERT_EQ(types, (std::vector<uint32_t>{kSection, kInterface, kPacket, kInterface, kPacket,
                                            kPacket, kPacket}));
    EXPECT_EQ(numberAt(found[0].second, 0), 0x1A2B3C4DU);
    EXPECT_NE(found[0].second.find("about"), std::string::npos);
    EXPECT_EQ(numberAt(found[1].second, 0), 148U); // USER1
    EXPECT_EQ(numberAt(found[3].second, 0), 147U); // USER0
    EXPECT_NE(found[3].second.find("front"), std::string::npos);

    struct Packet {
        uint32_t interface;
        std::string bytes;
        uint32_t direction; // 1 inbound, 2 outbound
    };
    const std::vector<std::pair<size_t, Packet>> packets = {
        {2, {0, "x", 1}},
        {4, {1, "late", 1}},
        {5, {1, "<T0000680100000069>", 2}},
        {6, {1, std::string("\0\xff", 2), 1}},
    };
    for (const auto &[at, packet] : packets) {
        const std::string &body = found[at].second;
        EXPECT_EQ(numberAt(body, 0), packet.interface);
        EXPECT_EQ(numberAt(body, 12), packet.bytes.size());
        EXPECT_EQ(numberAt(body, 16), packet.bytes.size());
        EXPECT_EQ(body.substr(20, packet.bytes.size()), packet.bytes);
        const size_t padded = (packet.bytes.size() + 3) / 4 * 4;
        EXPECT_EQ(numberAt(body, 20 + padded), 0x00040002U); // the flags, 4 bytes
        EXPECT_EQ(numberAt(body, 20 + padded + 4), packet.direction);
    }
}

TEST(Capture, TellsTheTimeInMicroseconds)
{
    const auto now = [] {
        return std::chrono::duration_cast<std::chrono::microseconds>(
                   std::chrono::system_clock::now().time_since_epoch())
            .count();
    };
    const int64_t before = now();
    Capture(kFile, "").take("front", Passing::kSent, "");
    const int64_t after = now();
    const std::string body = blocks().back().second;
    const auto time = static_cast<int64_t>(uint64_t{numberAt(body, 4)} << 32 | numberAt(body, 8));
    EXPECT_GE(time, before);
    EXPECT_LE(time, after);
}

TEST(Capture, SaysThatTheFileCannotBeWritten)
{
    EXPECT_THROW(Capture("/nowhere/file", "about"), LocalError);
    EXPECT_THROW(Capture("/dev/full", "about"), LocalError);
}

} // namespace
