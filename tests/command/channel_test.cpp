// The table of command channels: who gets which slot, who loses it, what is kept and what is said.

#include "command/channel.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "command/reception.h"
#include "command/reply.h"
#include "tests/support/clock.h"
#include "tests/support/exchange.h"
#include "transport/bridge_pipes.h"

namespace {

// malloc() of the linked code: noted while the channels are made, and refused where the test says.
bool isMallocWatched;
std::vector<size_t> mallocs;
std::function<bool(size_t)> refusesMalloc; // by the number of the call, 0 the first

} // namespace

extern "C" {
void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size);

void *__wrap_malloc(size_t size)
{
    if (!isMallocWatched) {
        return __real_malloc(size);
    }
    mallocs.push_back(size);
    return refusesMalloc && refusesMalloc(mallocs.size() - 1) ? nullptr : __real_malloc(size);
}
}

namespace {

constexpr uint32_t kNow = 0x20000000;

void makeChannels()
{
    fakeClock.setMs(kNow);
    isMallocWatched = true;
    InitRs232CommandVariable();
    isMallocWatched = false;
    udp_receive_pipe_init();
}

void receive(uint32_t type, uint64_t address, std::string_view bytes)
{
    IsrReceiveBuffer(type, address, bytesOf(bytes), lengthOf(bytes));
}

std::string printedByReceiving(uint32_t type, uint64_t address, std::string_view bytes)
{
    return printedBy([&] { receive(type, address, bytes); });
}

// Binds all ten channels to the serial ports 0 to 9, in order.
void bindAll()
{
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

// Which of ten bound channels a newcomer gets when they have these last times.
uint8_t evictedAt(uint32_t now, const std::array<uint32_t, 10> &ticks)
{
    setLastTimes(ticks);
    fakeClock.setMs(now);
    return getFreeChannel(2, 1000);
}

std::string times(int count, const std::string &text)
{
    std::string all;
    while (count-- > 0) {
        all += text;
    }
    return all;
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

// Records ----------------------------------------------------------------------------------------

TEST(Channel, HasTheDocumentedKindsAndCounts)
{
    EXPECT_EQ(kChannelUdp, 0u);
    EXPECT_EQ(kChannelSerial, 2u);
    EXPECT_EQ(kChannelFree, 5u);
    EXPECT_EQ(kChannelCount, 10);
    EXPECT_EQ(kNoChannel, 255);
}

TEST(Channel, KeepsItsFieldsInTheDocumentedOrder)
{
    // type and its hole, the address, four pointers, the storage, the tick; then up to the 8 bytes
    // that the address wants.
    constexpr size_t kPipe = 4 * sizeof(void *);
    EXPECT_EQ(offsetof(Channel, type), 0u);
    EXPECT_EQ(offsetof(Channel, address), 8u);
    EXPECT_EQ(offsetof(Channel, pipe), 16u);
    EXPECT_EQ(offsetof(Channel, storage), 16u + kPipe);
    EXPECT_EQ(offsetof(Channel, lastTime), 16u + kPipe + 4096u);
    EXPECT_EQ(sizeof(Channel), (16 + kPipe + 4096 + 4 + 7) / 8 * 8);
}

TEST(Channel, TakesTenRecordsFromMemoryAndNoMore)
{
    makeChannels();
    constexpr size_t kOn32BitProcessors = 4136;
    const size_t size = sizeof(void *) == 4 ? kOn32BitProcessors : sizeof(Channel);
    EXPECT_EQ(mallocs, std::vector<size_t>(10, size));
}

TEST(Channel, StartsUnboundAndEmptyOverItsOwnStorage)
{
    makeChannels();
    for (const Channel *const slot : channel) {
        ASSERT_NE(slot, nullptr);
        EXPECT_EQ(slot->type, 5u);
        EXPECT_EQ(slot->address, 0u);
        EXPECT_EQ(slot->lastTime, 0u);
        EXPECT_EQ(slot->pipe.start, slot->storage);
        EXPECT_EQ(slot->pipe.end, slot->storage + 4096);
        EXPECT_EQ(slot->pipe.write, slot->storage);
        EXPECT_EQ(slot->pipe.read, slot->storage);
    }
}

// Finding ----------------------------------------------------------------------------------------

TEST(Channel, IsNobodysBeforeTheFirstByte)
{
    makeChannels();
    EXPECT_EQ(getUsedChannel(2, 0), 255); // though every address is 0
    EXPECT_EQ(getUsedChannel(0, 0), 255);
}

TEST(Channel, IsFoundByKindAndAddressTogether)
{
    makeChannels();
    ASSERT_EQ(getFreeChannel(2, 7), 0);
    ASSERT_EQ(getFreeChannel(0, 7), 1);
    ASSERT_EQ(getFreeChannel(2, 8), 2);
    EXPECT_EQ(getUsedChannel(2, 7), 0);
    EXPECT_EQ(getUsedChannel(0, 7), 1);
    EXPECT_EQ(getUsedChannel(2, 8), 2);
    EXPECT_EQ(getUsedChannel(0, 8), 255);
    EXPECT_EQ(getUsedChannel(1, 7), 255);
}

TEST(Channel, IsFoundByAll64BitsOfTheAddress)
{
    makeChannels();
    constexpr uint64_t kAddress = 0x00000385'0A000009;
    ASSERT_EQ(getFreeChannel(0, kAddress), 0);
    EXPECT_EQ(getUsedChannel(0, kAddress), 0);
    for (int bit = 0; bit < 64; ++bit) {
        EXPECT_EQ(getUsedChannel(0, kAddress ^ uint64_t{1} << bit), 255) << bit;
    }
}

TEST(Channel, IsTheLowestOfTwoBoundToOneSource)
{
    makeChannels();
    bindAll();
    channel[8]->address = 4;
    channel[6]->address = 4;
    EXPECT_EQ(getUsedChannel(2, 4), 4);
    channel[4]->address = 999;
    EXPECT_EQ(getUsedChannel(2, 4), 6);
}

TEST(Channel, LooksAtItsSlotsUpToTheLast)
{
    makeChannels();
    bindAll();
    EXPECT_EQ(getUsedChannel(2, 9), 9);
}

// Binding ----------------------------------------------------------------------------------------

TEST(Channel, BindsTheLowestFreeSlot)
{
    makeChannels();
    bindAll();
    channel[7]->type = 5;
    channel[3]->type = 5;
    EXPECT_EQ(getFreeChannel(0, 0x1122334455667788), 3);
    EXPECT_EQ(channel[3]->type, 0u);
    EXPECT_EQ(channel[3]->address, 0x1122334455667788u);
    EXPECT_EQ(getFreeChannel(2, 77), 7);
    EXPECT_EQ(channel[7]->type, 2u);
    EXPECT_EQ(channel[7]->address, 77u);
}

TEST(Channel, PrefersAFreeSlotToOneIdleForLonger)
{
    makeChannels();
    bindAll();
    setLastTimes({1, 1, 1, 1, 1, 1, 1, 1, 1, kNow});
    channel[9]->type = 5;
    EXPECT_EQ(getFreeChannel(2, 77), 9);
}

TEST(Channel, GivesAnEleventhSourceTheSlotIdleLongest)
{
    makeChannels();
    bindAll();
    EXPECT_EQ(evictedAt(kNow, {500, 400, 300, 200, 150, 120, 110, 100, 130, 140}), 7);
    EXPECT_EQ(channel[7]->type, 2u);
    EXPECT_EQ(channel[7]->address, 1000u);
    EXPECT_EQ(getUsedChannel(2, 7), 255);
    EXPECT_EQ(getUsedChannel(2, 1000), 7);
}

TEST(Channel, GivesTheLastSlotWhenThatIsIdleLongest)
{
    makeChannels();
    bindAll();
    EXPECT_EQ(evictedAt(kNow, {9, 9, 9, 9, 9, 9, 9, 9, 9, 8}), 9);
}

TEST(Channel, GivesTheLowestSlotOnEqualAges)
{
    makeChannels();
    bindAll();
    EXPECT_EQ(evictedAt(kNow, {50, 40, 30, 20, 30, 20, 30, 20, 30, 40}), 3);
}

TEST(Channel, GivesSlotZeroWhenEveryAgeIsZero)
{
    makeChannels();
    bindAll();
    constexpr uint32_t t = kNow;
    EXPECT_EQ(evictedAt(kNow, {t, t, t, t, t, t, t, t, t, t}), 0);
}

TEST(Channel, TakesAnAgeOfZeroForYoungerThanAnyOther)
{
    makeChannels();
    bindAll();
    constexpr uint32_t t = kNow;
    EXPECT_EQ(evictedAt(kNow, {t, t, t, t, t, t, t - 1, t, t, t}), 6);
}

TEST(Channel, TakesASlotThatNeverDeliveredForTheOldest)
{
    makeChannels();
    bindAll();
    EXPECT_EQ(evictedAt(kNow, {1, 1, 1, 1, 1, 0, 1, 1, 1, 1}), 5);
}

TEST(Channel, CountsAgesAcrossTheWrapOfTheTick)
{
    makeChannels();
    bindAll();
    // Ages at tick 0x10: 16 at most for what is not behind the wrap; slot 4 is 0x10 + 0x10 old.
    EXPECT_EQ(evictedAt(0x10, {0, 1, 2, 3, 0xFFFFFFF0, 0xFFFFFFF8, 4, 5, 6, 7}), 4);
}

TEST(Channel, CountsOneMillisecondLessAcrossTheWrap)
{
    makeChannels();
    bindAll();
    // 0x10 - 0xFFFFFFFF is 17; one less ties with the 16 of slot 2, which is lower.
    EXPECT_EQ(evictedAt(0x10, {9, 9, 0, 9, 9, 0xFFFFFFFF, 9, 9, 9, 9}), 2);
    channel[2]->address = 2;
    // 18 less one is more than 16.
    EXPECT_EQ(evictedAt(0x10, {9, 9, 0, 9, 9, 0xFFFFFFFE, 9, 9, 9, 9}), 5);
}

TEST(Channel, TakesASlotOfTheFutureForVeryOld)
{
    makeChannels();
    bindAll();
    // The clock was set back by a millisecond: the age of slot 8 is 0xFFFFFFFE.
    EXPECT_EQ(evictedAt(kNow, {0, 0, 0, 0, 0, 0, 0, 0, kNow + 1, 0}), 8);
}

TEST(Channel, ReadsTheClockOnlyToEvict)
{
    makeChannels();
    int readings = 0;
    fakeClock.afterReading = [&] { ++readings; };
    bindAll();
    EXPECT_EQ(readings, 0);
    getFreeChannel(2, 10);
    EXPECT_EQ(readings, 1);
}

TEST(Channel, KeepsBytesAndTimeOfTheOldSource)
{
    makeChannels();
    bindAll();
    receive(2, 5, "old");
    setLastTimes({9, 9, 9, 9, 9, 8, 9, 9, 9, 9});
    EXPECT_EQ(printedByReceiving(0, 0x2710'0900000A, "new"),
              "getFreeChannel from=5, type=0, port=150994954\n"); // 0x0900000A
    EXPECT_EQ(contentOf(channel[5]->pipe), "oldnew");
    EXPECT_EQ(channel[5]->lastTime, 8u);
}

TEST(Channel, GivesATwelfthSourceTheSlotOfASilentEleventh)
{
    makeChannels();
    bindAll();
    setLastTimes({9, 9, 9, 9, 9, 8, 9, 9, 9, 9});
    EXPECT_EQ(getFreeChannel(2, 10), 5);
    EXPECT_EQ(getFreeChannel(2, 11), 5); // nothing but a valid command makes it younger
    EXPECT_EQ(getUsedChannel(2, 10), 255);
}

// Receiving --------------------------------------------------------------------------------------

TEST(Channel, SaysWhichSlotANewSourceGets)
{
    makeChannels();
    EXPECT_EQ(printedByReceiving(2, 0, "a"), "getFreeChannel from=0, type=2, port=0\n");
    EXPECT_EQ(printedByReceiving(2, 1, "b"), "getFreeChannel from=1, type=2, port=1\n");
    EXPECT_EQ(printedByReceiving(2, 0, "c"), "");
    EXPECT_EQ(printedByReceiving(2, 1, "d"), "");
    EXPECT_EQ(contentOf(channel[0]->pipe), "ac");
    EXPECT_EQ(contentOf(channel[1]->pipe), "bd");
}

TEST(Channel, SaysTheLowWordOfTheAddressAsASignedNumber)
{
    makeChannels();
    EXPECT_EQ(printedByReceiving(2, 0xFFFFFFFF'FFFFFFFF, "a"),
              "getFreeChannel from=0, type=2, port=-1\n");
    EXPECT_EQ(printedByReceiving(0, 0x00000385'0A000009, "a"),
              "getFreeChannel from=1, type=0, port=167772169\n");
}

TEST(Channel, BindsForNoBytesToo)
{
    makeChannels();
    EXPECT_EQ(printedByReceiving(2, 3, ""), "getFreeChannel from=0, type=2, port=3\n");
    EXPECT_EQ(getUsedChannel(2, 3), 0);
}

TEST(Channel, QueuesEveryByteValueInOrder)
{
    makeChannels();
    std::string all;
    for (int code = 0; code < 256; ++code) {
        all += static_cast<char>(code);
    }
    receive(2, 0, all);
    EXPECT_EQ(contentOf(channel[0]->pipe), all);
}

TEST(Channel, Holds4095Bytes)
{
    makeChannels();
    const std::string bytes = pattern(4095);
    receive(2, 0, bytes.substr(0, 1));
    EXPECT_EQ(printedByReceiving(2, 0, bytes.substr(1)), "");
    EXPECT_EQ(contentOf(channel[0]->pipe), bytes);
}

TEST(Channel, DropsEveryByteThatDoesNotFitWithAMessage)
{
    makeChannels();
    const std::string bytes = pattern(4098);
    EXPECT_EQ(printedByReceiving(2, 0, bytes),
              "getFreeChannel from=0, type=2, port=0\n" +
                  times(3, "IsrReceiveBuffer error: type=0x2, port=0x0\n"));
    EXPECT_EQ(contentOf(channel[0]->pipe), bytes.substr(0, 4095));
    EXPECT_EQ(printedByReceiving(2, 0, "xy"),
              times(2, "IsrReceiveBuffer error: type=0x2, port=0x0\n"));
    EXPECT_EQ(contentOf(channel[0]->pipe), bytes.substr(0, 4095));
}

TEST(Channel, SaysTheLowWordOfTheAddressInHexadecimalWhenFull)
{
    makeChannels();
    receive(0, 0x00000385'0A0000C9, pattern(4095));
    EXPECT_EQ(printedByReceiving(0, 0x00000385'0A0000C9, "x"),
              "IsrReceiveBuffer error: type=0x0, port=0xa0000c9\n");
    receive(2, 0xFFFFFFFF'FFFFFFFF, pattern(4095));
    EXPECT_EQ(printedByReceiving(2, 0xFFFFFFFF'FFFFFFFF, "x"),
              "IsrReceiveBuffer error: type=0x2, port=0xffffffff\n");
}

TEST(Channel, IsFullAloneWhileOthersHaveRoom)
{
    makeChannels();
    receive(2, 0, pattern(5000));
    EXPECT_EQ(printedByReceiving(2, 1, "room"), "getFreeChannel from=1, type=2, port=1\n");
    EXPECT_EQ(contentOf(channel[1]->pipe), "room");
}

TEST(Channel, TakesSingleBytesSilently)
{
    makeChannels();
    EXPECT_EQ(printedBy([] {
                  EXPECT_EQ(IsrReceiveCommand(2, 6, 'a'), 1);
                  EXPECT_EQ(IsrReceiveCommand(2, 6, 0xFF), 1);
                  EXPECT_EQ(IsrReceiveCommand(0, 6, 'b'), 1);
                  EXPECT_EQ(IsrReceiveCommand(2, 6, 0), 1);
              }),
              "");
    EXPECT_EQ(getUsedChannel(2, 6), 0);
    EXPECT_EQ(getUsedChannel(0, 6), 1);
    EXPECT_EQ(contentOf(channel[0]->pipe), (std::string{'a', '\xFF', '\0'}));
    EXPECT_EQ(contentOf(channel[1]->pipe), "b");
}

TEST(Channel, RefusesASingleByteWhenFullSilently)
{
    makeChannels();
    const std::string bytes = pattern(4095);
    receive(2, 0, bytes);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(IsrReceiveCommand(2, 0, 'x'), 0); }), "");
    EXPECT_EQ(contentOf(channel[0]->pipe), bytes);
}

TEST(Channel, EvictsForASingleByteToo)
{
    makeChannels();
    bindAll();
    setLastTimes({9, 9, 8, 9, 9, 9, 9, 9, 9, 9});
    EXPECT_EQ(printedBy([] { EXPECT_EQ(IsrReceiveCommand(2, 10, 'x'), 1); }), "");
    EXPECT_EQ(getUsedChannel(2, 10), 2);
    EXPECT_EQ(contentOf(channel[2]->pipe), "x");
}

// The channel of the command ---------------------------------------------------------------------

TEST(Channel, TellsTheKindOfTheChannelBeingExecuted)
{
    makeChannels();
    getFreeChannel(2, 0);
    getFreeChannel(0, 0);
    commandFrom = 0;
    current_channel = 1;
    EXPECT_EQ(get_channel_type(), 0u);
    commandFrom = 1;
    current_channel = 0;
    EXPECT_EQ(get_channel_type(), 2u);
    current_channel = 9;
    EXPECT_EQ(get_channel_type(), 5u);
}

// Without memory ---------------------------------------------------------------------------------

TEST(Channel, StaysNullWithoutMemory)
{
    refusesMalloc = [](size_t) { return true; };
    makeChannels();
    EXPECT_EQ(mallocs.size(), 10u);
    for (const Channel *const slot : channel) {
        EXPECT_EQ(slot, nullptr);
    }
}

TEST(Channel, GivesNobodyASlotWithoutMemory)
{
    refusesMalloc = [](size_t) { return true; };
    makeChannels();
    EXPECT_EQ(getUsedChannel(2, 0), 255);
    EXPECT_EQ(getUsedChannel(5, 0), 255);
    EXPECT_EQ(getFreeChannel(2, 0), 255);
    EXPECT_EQ(get_channel_type(), 5u);
}

TEST(Channel, DropsEveryByteWithAMessageWithoutMemory)
{
    refusesMalloc = [](size_t) { return true; };
    makeChannels();
    const std::string expected = "getFreeChannel from=255, type=2, port=1\n" +
                                 times(3, "IsrReceiveBuffer error: type=0x2, port=0x1\n");
    EXPECT_EQ(printedByReceiving(2, 1, "abc"), expected);
    EXPECT_EQ(printedByReceiving(2, 1, "def"), expected);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(IsrReceiveCommand(2, 1, 'x'), 0); }), "");
}

TEST(Channel, AnswersNobodyWithoutMemory)
{
    refusesMalloc = [](size_t) { return true; };
    makeChannels();
    EXPECT_EQ(printedBy([] {
                  TaskCommand();
                  SendRs232Command();
              }),
              "");
    EXPECT_EQ(sent, std::vector<Sent>());
    EXPECT_EQ(commandFrom, 9);
}

TEST(Channel, PassesOverSlotsWithoutMemory)
{
    refusesMalloc = [](size_t call) { return call == 0 || call == 4 || call == 9; };
    makeChannels();
    EXPECT_EQ(getFreeChannel(2, 0), 1);
    EXPECT_EQ(getUsedChannel(2, 0), 1);
    for (const int expected : {2, 3, 5, 6, 7, 8}) {
        EXPECT_EQ(getFreeChannel(2, static_cast<uint64_t>(expected)), expected);
    }
    for (const int index : {1, 2, 3, 5, 6, 7, 8}) {
        channel[index]->lastTime = kNow; // age 0 is no reason to pick none
    }
    EXPECT_EQ(getFreeChannel(2, 100), 1);
    channel[7]->lastTime = 1;
    EXPECT_EQ(getFreeChannel(2, 101), 7);
}

TEST(Channel, ServesTheSlotsBehindOneWithoutMemory)
{
    refusesMalloc = [](size_t call) { return call < 2; };
    makeChannels();
    receive(2, 0, commandFrame({0, 0, 0x6A, 3, 0, 0, 0}));
    TaskCommand();
    EXPECT_EQ(takeSent(), (std::vector<Sent>{{"uart 0", replyFrame({0, 0, 0x6A, 3, 1, 10, 0})}}));
    EXPECT_EQ(current_channel, 2);
}

} // namespace
