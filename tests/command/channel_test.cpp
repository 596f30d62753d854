// The table of command channels: who gets which slot, what is kept and what is printed.

#include "command/channel.h"

#include <algorithm>
#include <map>

#include <gtest/gtest.h>

#include "command/reception.h"
#include "command/reply.h"
#include "tests/support/bytes.h"
#include "tests/support/clock.h"
#include "tests/support/exchange.h"
#include "tests/support/replace.h"
#include "transport/bridge_pipes.h"

// Noted while the channels are made, and refused where the case says.
static bool isMallocWatched;
static std::vector<size_t> mallocs;
static std::function<bool(size_t)> refusesMalloc; // by the number of the call, 0 the first

REPLACE(void *, malloc, (size_t size))
{
    if (!isMallocWatched) {
        return REAL(malloc)(size);
    }
    mallocs.push_back(size);
    return refusesMalloc && refusesMalloc(mallocs.size() - 1) ? nullptr : REAL(malloc)(size);
}

namespace {

constexpr uint32_t kNow = 0x20000000;
constexpr uint64_t kPeer = 0x00000385'0A0000C9;

void makeChannels(const std::function<bool(size_t)> &refuses = nullptr)
{
    fakeClock.setMs(kNow);
    refusesMalloc = refuses;
    isMallocWatched = true;
    InitRs232CommandVariable();
    isMallocWatched = false;
    udp_receive_pipe_init();
}

// Makes the channels and binds them to the serial ports 0 to 9, in order.
void bindAll()
{
    makeChannels();
    for (uint8_t i = 0; i < 10; ++i) {
        ASSERT_EQ(getFreeChannel(2, i), i);
    }
}

void setLastTimes(const std::array<uint32_t, 10> &ticks)
{
    for (size_t i = 0; i < ticks.size(); ++i) {
        channel[i]->lastTime = ticks[i];
    }
}

std::string printedByReceiving(uint32_t type, uint64_t address, std::string_view bytes)
{
    return printedBy([&] { IsrReceiveBuffer(type, address, bytesOf(bytes), lengthOf(bytes)); });
}

TEST(Channel, HasTheDocumentedKindsAndCounts)
{
    static_assert(kChannelUdp == 0 && kChannelSerial == 2 && kChannelFree == 5);
    static_assert(kChannelCount == 10 && kNoChannel == 255);
}

TEST(Channel, StartsUnboundAndEmptyOverItsOwnStorageInOneOfTenRecords)
{
    makeChannels();
    const size_t size = sizeof(void *) == 4 ? 4136 : sizeof(Channel); // on 32-bit processors
    EXPECT_EQ(mallocs, std::vector<size_t>(10, size));
    for (const Channel *const slot : channel) {
        ASSERT_NE(slot, nullptr);
        EXPECT_TRUE(slot->type == 5 && slot->address == 0 && slot->lastTime == 0);
        EXPECT_EQ(slot->pipe.start, slot->storage);
        EXPECT_EQ(slot->pipe.end, slot->storage + 4096);
        EXPECT_EQ(slot->pipe.write, slot->storage);
        EXPECT_EQ(slot->pipe.read, slot->storage);
    }
    EXPECT_EQ(getUsedChannel(2, 0), 255); // though every address is 0
    EXPECT_EQ(getUsedChannel(0, 0), 255);
}

TEST(Channel, IsFoundByKindAndAll64BitsOfTheAddress)
{
    makeChannels();
    for (auto *const get : {getFreeChannel, getUsedChannel}) {
        EXPECT_EQ(get(2, 7), 0);
        EXPECT_EQ(get(0, 7), 1);
        EXPECT_EQ(get(2, kPeer), 2);
    }
    EXPECT_EQ(getUsedChannel(0, kPeer), 255);
    EXPECT_EQ(getUsedChannel(1, 7), 255);
    for (int bit = 0; bit < 64; ++bit) {
        EXPECT_EQ(getUsedChannel(2, kPeer ^ uint64_t{1} << bit), 255) << bit;
    }
}

TEST(Channel, IsTheLowestOfThoseBoundToOneSource)
{
    bindAll();
    channel[8]->address = 4;
    channel[6]->address = 4;
    EXPECT_EQ(getUsedChannel(2, 4), 4);
    channel[4]->address = 999;
    EXPECT_EQ(getUsedChannel(2, 4), 6);
    EXPECT_EQ(getUsedChannel(2, 9), 9);
}

TEST(Channel, BindsTheLowestFreeSlotHoweverLongOthersAreIdle)
{
    bindAll();
    setLastTimes({1, 1, 1, kNow, 1, 1, 1, kNow, 1, 1});
    channel[7]->type = 5;
    channel[3]->type = 5;
    EXPECT_EQ(getFreeChannel(0, 0x1122334455667788), 3);
    EXPECT_TRUE(channel[3]->type == 0 && channel[3]->address == 0x1122334455667788);
    EXPECT_EQ(getFreeChannel(2, 77), 7);
    EXPECT_TRUE(channel[7]->type == 2 && channel[7]->address == 77);
}

TEST(Channel, GivesAnEleventhSourceTheSlotIdleLongest)
{
    constexpr uint32_t t = kNow;
    // clang-format off
    constexpr struct {
        const char *name;
        uint32_t now;
        std::array<uint32_t, 10> lastTimes;
        uint8_t slot;
    } kRows[] = {
        {"one in the middle",            t, {500, 400, 300, 200, 150, 120, 110, 100, 130, 140}, 7},
        {"the last",                     t, {9, 9, 9, 9, 9, 9, 9, 9, 9, 8},                     9},
        {"the lowest on equal ages",     t, {50, 40, 30, 20, 30, 20, 30, 20, 30, 40},           3},
        {"the lowest at age zero",       t, {t, t, t, t, t, t, t, t, t, t},                     0},
        {"an age of one above zero",     t, {t, t, t, t, t, t, t - 1, t, t, t},                 6},
        {"one that never delivered",     t, {1, 1, 1, 1, 1, 0, 1, 1, 1, 1},                     5},
        {"the clock was set back by 1",  t, {0, 0, 0, 0, 0, 0, 0, 0, t + 1, 0},                 8},
        // Slot 4 is 0x10 + 0x10 - 1 old, and what is not before the wrap is 0x10 old at most.
        {"across the wrap of the tick",  0x10, {0, 1, 2, 3, 0xFFFFFFF0, 0xFFFFFFF8, 4, 5, 6, 7}, 4},
        // 0x10 - 0xFFFFFFFF is 17; one less ties with the 16 of slot 2, which is lower.
        {"one less across the wrap",     0x10, {9, 9, 0, 9, 9, 0xFFFFFFFF, 9, 9, 9, 9},          2},
        {"18 less one is more than 16",  0x10, {9, 9, 0, 9, 9, 0xFFFFFFFE, 9, 9, 9, 9},          5},
    };
    // clang-format on
    int readings = 0;
    fakeClock.afterReading = [&] { ++readings; };
    bindAll();
    EXPECT_EQ(readings, 0);
    uint64_t source = 1000;
    for (const auto &row : kRows) {
        setLastTimes(row.lastTimes);
        fakeClock.setMs(row.now);
        const uint64_t old = channel[row.slot]->address;
        ++source;
        EXPECT_EQ(getFreeChannel(2, source), row.slot) << row.name;
        EXPECT_EQ(getUsedChannel(2, source), row.slot) << row.name;
        EXPECT_EQ(getUsedChannel(2, old), 255) << row.name;
    }
    EXPECT_EQ(readings, 10);
    EXPECT_EQ(getFreeChannel(0, kPeer), 5);
    EXPECT_TRUE(channel[5]->type == 0 && channel[5]->address == kPeer);
}

TEST(Channel, KeepsBytesAndTimeOfTheOldSource)
{
    bindAll();
    printedByReceiving(2, 5, "old");
    setLastTimes({9, 9, 9, 9, 9, 8, 9, 9, 9, 9});
    EXPECT_EQ(printedByReceiving(0, 0x2710'0900000A, "new"),
              "getFreeChannel from=5, type=0, port=150994954\n"); // 0x0900000A
    EXPECT_EQ(contentOf(channel[5]->pipe), "oldnew");
    EXPECT_EQ(channel[5]->lastTime, 8u);
    // Only a valid command makes the slot younger.
    EXPECT_EQ(getFreeChannel(2, 11), 5);
    EXPECT_EQ(getUsedChannel(0, 0x2710'0900000A), 255);
}

TEST(Channel, PrintsWhichSlotANewSourceGets)
{
    constexpr uint64_t kMinusOne = 0xFFFFFFFF'FFFFFFFF;
    // clang-format off
    constexpr struct {
        uint32_t type;
        uint64_t address;
        const char *bytes, *prints;
    } kRows[] = {
        {2, 0,         "a", "getFreeChannel from=0, type=2, port=0\n"},
        {2, 1,         "b", "getFreeChannel from=1, type=2, port=1\n"},
        {2, 0,         "c", ""},
        {2, 1,         "d", ""},
        {2, kMinusOne, "e", "getFreeChannel from=2, type=2, port=-1\n"},       // signed
        {0, kPeer,     "f", "getFreeChannel from=3, type=0, port=167772361\n"}, // the low word
        {2, 3,         "",  "getFreeChannel from=4, type=2, port=3\n"},        // for no bytes too
    };
    // clang-format on
    makeChannels();
    for (const auto &row : kRows) {
        EXPECT_EQ(printedByReceiving(row.type, row.address, row.bytes), row.prints) << row.bytes;
    }
    EXPECT_EQ(contentOf(channel[0]->pipe), "ac");
    EXPECT_EQ(contentOf(channel[1]->pipe), "bd");
    EXPECT_EQ(getUsedChannel(2, 3), 4);
}

// The main loop goes on reading while the messages are printed.
TEST(Channel, StoresTheBytesThatFindRoomAfterALostOne)
{
    makeChannels();
    printedByReceiving(2, 0, countingBytes(4095, 251));
    cookie_io_functions_t readsThree{};
    readsThree.write = [](void *, const char *, size_t size) {
        uint8_t taken[3];
        EXPECT_EQ(pipe_read_block(&channel[0]->pipe, taken, sizeof taken), sizeof taken);
        return static_cast<ssize_t>(size);
    };
    std::FILE *console = fopencookie(nullptr, "w", readsThree);
    setvbuf(console, nullptr, _IOLBF, 0);
    std::swap(stdout, console);
    IsrReceiveBuffer(2, 0, reinterpret_cast<const uint8_t *>("-abc-d"), 6);
    std::swap(stdout, console);
    EXPECT_EQ(contentOf(channel[0]->pipe), countingBytes(4095, 251).substr(6) + "abcd");
    std::fclose(console);
}

TEST(Channel, Holds4095BytesAndDropsEachOtherOneWithAMessage)
{
    const struct {
        uint32_t type;
        uint64_t address;
        std::string message;
    } rows[] = {
        {2, 0, "IsrReceiveBuffer error: type=0x2, port=0x0\n"},
        {0, kPeer, "IsrReceiveBuffer error: type=0x0, port=0xa0000c9\n"},
        {2, 0xFFFFFFFF'FFFFFFFF, "IsrReceiveBuffer error: type=0x2, port=0xffffffff\n"},
    };
    makeChannels();
    const std::string bytes = countingBytes(4098, 257); // of every value
    for (const auto &row : rows) {
        printedByReceiving(row.type, row.address, bytes.substr(0, 1));
        EXPECT_EQ(printedByReceiving(row.type, row.address, bytes.substr(1, 4094)), "");
        EXPECT_EQ(printedByReceiving(row.type, row.address, bytes.substr(4095)),
                  row.message + row.message + row.message);
        EXPECT_EQ(contentOf(channel[&row - rows]->pipe), bytes.substr(0, 4095)) << row.message;
    }
    // The others have room.
    EXPECT_EQ(printedByReceiving(2, 1, "room"), "getFreeChannel from=3, type=2, port=1\n");
    EXPECT_EQ(contentOf(channel[3]->pipe), "room");
}

TEST(Channel, TakesSingleBytesSilentlyUntilItIsFull)
{
    makeChannels();
    const auto receive = [] {
        for (const uint8_t byte : std::array<uint8_t, 3>{'a', 0xFF, 0}) {
            EXPECT_EQ(IsrReceiveCommand(2, 6, byte), 1);
        }
        for (int i = 0; i < 4096; ++i) {
            EXPECT_EQ(IsrReceiveCommand(0, 6, 'b'), i < 4095);
        }
    };
    EXPECT_EQ(printedBy(receive), "");
    EXPECT_EQ(getUsedChannel(2, 6), 0);
    EXPECT_EQ(getUsedChannel(0, 6), 1);
    EXPECT_EQ(contentOf(channel[0]->pipe), (std::string{'a', '\xFF', '\0'}));
    EXPECT_EQ(contentOf(channel[1]->pipe), std::string(4095, 'b'));
}

TEST(Channel, EvictsForASingleByteToo)
{
    bindAll();
    setLastTimes({9, 9, 8, 9, 9, 9, 9, 9, 9, 9});
    EXPECT_EQ(printedBy([] { EXPECT_EQ(IsrReceiveCommand(2, 10, 'x'), 1); }), "");
    EXPECT_EQ(getUsedChannel(2, 10), 2);
    EXPECT_EQ(contentOf(channel[2]->pipe), "x");
}

TEST(Channel, GivesTheKindOfTheChannelBeingExecuted)
{
    makeChannels();
    getFreeChannel(2, 0);
    getFreeChannel(0, 0);
    for (const auto &[index, type] : std::map<uint8_t, uint32_t>{{0, 2}, {1, 0}, {9, 5}}) {
        commandFrom = index == 1 ? 0 : 1; // another one
        current_channel = index;
        EXPECT_EQ(get_channel_type(), type);
    }
}

TEST(Channel, GivesNobodyASlotWithoutMemoryAndDropsEveryByteAndReply)
{
    makeChannels([](size_t) { return true; });
    EXPECT_EQ(mallocs.size(), 10u);
    EXPECT_EQ(std::count(channel, std::end(channel), nullptr), 10);
    EXPECT_EQ(getUsedChannel(2, 0), 255);
    EXPECT_EQ(getUsedChannel(5, 0), 255);
    EXPECT_EQ(getFreeChannel(2, 0), 255);
    EXPECT_EQ(get_channel_type(), 5u);
    const std::string error = "IsrReceiveBuffer error: type=0x2, port=0x1\n";
    for (int burst = 0; burst < 2; ++burst) {
        EXPECT_EQ(printedByReceiving(2, 1, "ab"),
                  "getFreeChannel from=255, type=2, port=1\n" + error + error);
    }
    EXPECT_EQ(IsrReceiveCommand(2, 1, 'x'), 0);
    EXPECT_EQ(transcriptOf(TaskCommand), "");
    EXPECT_EQ(transcriptOf(SendRs232Command), "");
    EXPECT_EQ(commandFrom, 9);
}

TEST(Channel, PassesOverSlotsWithoutMemory)
{
    makeChannels([](size_t call) { return call == 0 || call == 4 || call == 9; });
    for (const uint8_t expected : std::array<uint8_t, 7>{1, 2, 3, 5, 6, 7, 8}) {
        EXPECT_EQ(getFreeChannel(2, expected), expected);
        EXPECT_EQ(getUsedChannel(2, expected), expected);
        channel[expected]->lastTime = kNow; // age 0 is no reason to pick none
    }
    EXPECT_EQ(getFreeChannel(2, 100), 1);
    channel[7]->lastTime = 1;
    EXPECT_EQ(getFreeChannel(2, 101), 7);
}

TEST(Channel, ServesTheSlotsAfterOneWithoutMemory)
{
    makeChannels([](size_t call) { return call < 2; });
    printedByReceiving(2, 0, commandFrame({0, 0, 0x6A, 3, 0, 0, 0}));
    TaskCommand();
    EXPECT_EQ(sent, uart0({replyFrame({0, 0, 0x6A, 3, 1, 10, 0})}));
    EXPECT_EQ(current_channel, 2);
}

} // namespace
