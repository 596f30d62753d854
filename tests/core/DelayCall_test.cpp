// The table of delayed calls, with its slots in sight: the module's source is part of this file.

#include "core/DelayCall.cpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <iterator>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/clock.h"

namespace {

static_assert(std::size(_pFunc) == 32);
static_assert(std::is_same_v<decltype(_pFunc), void (*[32])()>);
static_assert(std::is_same_v<decltype(_startTime), uint32_t[32]>);
static_assert(std::is_same_v<decltype(_delayTime), uint32_t[32]>);

using Function = void (*)();

std::vector<int> called;                   // numbers of the functions called, in order
std::array<std::function<void()>, 40> act; // what a function does besides

template <int N> void numbered()
{
    called.push_back(N);
    if (act[N]) {
        act[N]();
    }
}

template <int... N>
std::array<Function, sizeof...(N)> makeFunctions(std::integer_sequence<int, N...>)
{
    return {numbered<N>...};
}

// f[n] records n when it is called.
const std::array<Function, 40> f = makeFunctions(std::make_integer_sequence<int, 40>());

struct Table {
    std::vector<Function> functions;
    std::vector<uint32_t> starts;
    std::vector<uint32_t> delays;
    bool operator==(const Table &) const = default;
};

Table table()
{
    return {{std::begin(_pFunc), std::end(_pFunc)},
            {std::begin(_startTime), std::end(_startTime)},
            {std::begin(_delayTime), std::end(_delayTime)}};
}

uint32_t slotsInUse()
{
    return static_cast<uint32_t>(
        std::count_if(std::begin(_pFunc), std::end(_pFunc), [](Function it) { return it; }));
}

// Runs the task at this tick and returns what it called.
std::vector<int> callsAt(uint32_t tick)
{
    called.clear();
    fakeClock.setMs(tick);
    delayCall_task();
    return called;
}

using Calls = std::vector<int>;

// Arming -----------------------------------------------------------------------------------------

TEST(DelayCall, StartsWithAllSlotsFree)
{
    EXPECT_EQ(slotsInUse(), 0u);
    EXPECT_EQ(callsAt(0), Calls{});
    EXPECT_EQ(callsAt(0xFFFFFFFF), Calls{});
}

TEST(DelayCall, RefusesNull)
{
    fakeClock.setMs(500);
    const Table before = table();
    EXPECT_EQ(AddDelayCallFunc(nullptr, 10), 0);
    EXPECT_EQ(table(), before);
}

TEST(DelayCall, ArmingStoresTheFunctionTheTickAndTheDelay)
{
    fakeClock.setMs(5000);
    EXPECT_EQ(AddDelayCallFunc(f[1], 250), 1);
    EXPECT_EQ(_pFunc[0], f[1]);
    EXPECT_EQ(_startTime[0], 5000u);
    EXPECT_EQ(_delayTime[0], 250u);
    EXPECT_EQ(slotsInUse(), 1u);
    EXPECT_EQ(called, Calls{});
}

TEST(DelayCall, NewFunctionsTakeTheLowestFreeSlot)
{
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(AddDelayCallFunc(f[static_cast<size_t>(i)], 100), 1);
    }
    RemoveDelayCallFunc(f[2]);
    RemoveDelayCallFunc(f[1]);
    EXPECT_EQ(AddDelayCallFunc(f[10], 100), 1);
    EXPECT_EQ(AddDelayCallFunc(f[11], 100), 1);
    EXPECT_EQ(AddDelayCallFunc(f[12], 100), 1);
    EXPECT_EQ(_pFunc[0], f[0]);
    EXPECT_EQ(_pFunc[1], f[10]);
    EXPECT_EQ(_pFunc[2], f[11]);
    EXPECT_EQ(_pFunc[3], f[3]);
    EXPECT_EQ(_pFunc[4], f[12]);
}

TEST(DelayCall, ArmingAgainReplacesStartAndDelayInTheSameSlot)
{
    fakeClock.setMs(1000);
    AddDelayCallFunc(f[0], 100);
    AddDelayCallFunc(f[1], 100);
    RemoveDelayCallFunc(f[0]); // a lower slot is free, and is not taken
    fakeClock.setMs(1600);
    EXPECT_EQ(AddDelayCallFunc(f[1], 10), 1);
    EXPECT_EQ(_pFunc[0], nullptr);
    EXPECT_EQ(_pFunc[1], f[1]);
    EXPECT_EQ(_startTime[1], 1600u);
    EXPECT_EQ(_delayTime[1], 10u);
    EXPECT_EQ(slotsInUse(), 1u);
}

TEST(DelayCall, ArmingAgainRestartsTheWait)
{
    AddDelayCallFunc(f[7], 1000);
    fakeClock.setMs(600);
    AddDelayCallFunc(f[7], 1000);
    EXPECT_EQ(callsAt(1000), Calls{});
    EXPECT_EQ(callsAt(1599), Calls{});
    EXPECT_EQ(callsAt(1600), Calls{7});
    EXPECT_EQ(callsAt(1000000), Calls{});
}

TEST(DelayCall, ArmingAgainMayShortenTheWait)
{
    AddDelayCallFunc(f[7], 1000);
    AddDelayCallFunc(f[7], 10);
    EXPECT_EQ(callsAt(9), Calls{});
    EXPECT_EQ(callsAt(10), Calls{7});
    EXPECT_EQ(callsAt(1000), Calls{});
}

TEST(DelayCall, Refuses33rdFunctionAndLeavesTheTableAsItIs)
{
    for (size_t i = 0; i < 32; ++i) {
        fakeClock.setMs(static_cast<int64_t>(i));
        EXPECT_EQ(AddDelayCallFunc(f[i], 100 + static_cast<uint32_t>(i)), 1) << i;
    }
    EXPECT_EQ(slotsInUse(), 32u);
    const Table before = table();
    fakeClock.setMs(50);
    EXPECT_EQ(AddDelayCallFunc(f[32], 1), 0);
    EXPECT_EQ(table(), before);
    EXPECT_EQ(AddDelayCallFunc(nullptr, 1), 0);
    EXPECT_EQ(table(), before);
}

TEST(DelayCall, FullTableStillArmsItsOwnFunctionsAgain)
{
    for (size_t i = 0; i < 32; ++i) {
        AddDelayCallFunc(f[i], 100);
    }
    fakeClock.setMs(60);
    for (const size_t i : {0u, 15u, 31u}) {
        EXPECT_EQ(AddDelayCallFunc(f[i], 5), 1);
        EXPECT_EQ(_pFunc[i], f[i]);
        EXPECT_EQ(_startTime[i], 60u);
        EXPECT_EQ(_delayTime[i], 5u);
    }
    EXPECT_EQ(slotsInUse(), 32u);
    EXPECT_EQ(callsAt(65), (Calls{0, 15, 31}));
}

TEST(DelayCall, SlotFreedInAFullTableServesTheNextFunction)
{
    for (size_t i = 0; i < 32; ++i) {
        AddDelayCallFunc(f[i], 100);
    }
    EXPECT_EQ(RemoveDelayCallFunc(f[20]), 1);
    EXPECT_EQ(AddDelayCallFunc(f[32], 100), 1);
    EXPECT_EQ(_pFunc[20], f[32]);
    EXPECT_EQ(AddDelayCallFunc(f[33], 100), 0);
}

// Removing ---------------------------------------------------------------------------------------

TEST(DelayCall, RemovingAFunctionThatDoesNotWaitReturns0)
{
    EXPECT_EQ(RemoveDelayCallFunc(f[1]), 0);
    AddDelayCallFunc(f[2], 10);
    const Table before = table();
    EXPECT_EQ(RemoveDelayCallFunc(f[1]), 0);
    EXPECT_EQ(table(), before);
}

TEST(DelayCall, RemovingTwiceReturns1Then0)
{
    AddDelayCallFunc(f[1], 10);
    EXPECT_EQ(RemoveDelayCallFunc(f[1]), 1);
    EXPECT_EQ(RemoveDelayCallFunc(f[1]), 0);
    EXPECT_EQ(callsAt(100), Calls{});
}

TEST(DelayCall, RemovingNullReturns0)
{
    AddDelayCallFunc(f[1], 10);
    const Table before = table();
    EXPECT_EQ(RemoveDelayCallFunc(nullptr), 0);
    EXPECT_EQ(table(), before);
}

TEST(DelayCall, RemovingFreesTheSlotAndLeavesItsStartAndDelay)
{
    fakeClock.setMs(777);
    AddDelayCallFunc(f[1], 10);
    AddDelayCallFunc(f[2], 20);
    fakeClock.setMs(800);
    EXPECT_EQ(RemoveDelayCallFunc(f[1]), 1);
    EXPECT_EQ(_pFunc[0], nullptr);
    EXPECT_EQ(_startTime[0], 777u);
    EXPECT_EQ(_delayTime[0], 10u);
    EXPECT_EQ(_pFunc[1], f[2]);
    EXPECT_EQ(callsAt(797), Calls{2});
}

TEST(DelayCall, RemovingAfterTheCallReturns0)
{
    AddDelayCallFunc(f[1], 10);
    EXPECT_EQ(callsAt(10), Calls{1});
    EXPECT_EQ(RemoveDelayCallFunc(f[1]), 0);
}

// Calling ----------------------------------------------------------------------------------------

TEST(DelayCall, CallsOnceWhenTheDelayHasPassedAndNotBefore)
{
    fakeClock.setMs(100);
    AddDelayCallFunc(f[3], 50);
    EXPECT_EQ(callsAt(100), Calls{});
    EXPECT_EQ(callsAt(149), Calls{});
    EXPECT_EQ(callsAt(150), Calls{3});
    EXPECT_EQ(callsAt(150), Calls{});
    EXPECT_EQ(callsAt(200), Calls{});
    EXPECT_EQ(slotsInUse(), 0u);
}

TEST(DelayCall, LateTaskStillCallsOnce)
{
    AddDelayCallFunc(f[3], 50);
    EXPECT_EQ(callsAt(100000), Calls{3});
    EXPECT_EQ(callsAt(200000), Calls{});
}

TEST(DelayCall, DelayOfZeroIsDueInTheNextPass)
{
    fakeClock.setMs(9);
    AddDelayCallFunc(f[3], 0);
    EXPECT_EQ(called, Calls{}); // never called from inside the arming
    EXPECT_EQ(callsAt(9), Calls{3});
}

TEST(DelayCall, CallsInSlotOrderAndNotInTheOrderOfDueTimes)
{
    AddDelayCallFunc(f[5], 30);
    AddDelayCallFunc(f[1], 10);
    AddDelayCallFunc(f[9], 20);
    EXPECT_EQ(callsAt(100), (Calls{5, 1, 9}));
}

TEST(DelayCall, LooksAtAll32SlotsInOnePass)
{
    Calls all;
    for (int i = 0; i < 32; ++i) {
        AddDelayCallFunc(f[static_cast<size_t>(31 - i)], 1);
        all.push_back(31 - i);
    }
    EXPECT_EQ(callsAt(1), all);
    EXPECT_EQ(slotsInUse(), 0u);
}

TEST(DelayCall, FunctionsNotYetDueStay)
{
    AddDelayCallFunc(f[0], 10);
    AddDelayCallFunc(f[1], 20);
    AddDelayCallFunc(f[2], 10);
    EXPECT_EQ(callsAt(10), (Calls{0, 2}));
    EXPECT_EQ(slotsInUse(), 1u);
    EXPECT_EQ(callsAt(20), Calls{1});
}

TEST(DelayCall, SlotIsFreeBeforeTheCall)
{
    AddDelayCallFunc(f[1], 0);
    int32_t removed = -1;
    const void *held = &removed;
    act[1] = [&] {
        held = reinterpret_cast<const void *>(_pFunc[0]);
        removed = RemoveDelayCallFunc(f[1]);
    };
    EXPECT_EQ(callsAt(0), Calls{1});
    EXPECT_EQ(held, nullptr);
    EXPECT_EQ(removed, 0);
}

// From inside a call -----------------------------------------------------------------------------

TEST(DelayCall, FunctionThatArmsItselfIsCalledAgainAfterItsNewDelay)
{
    AddDelayCallFunc(f[1], 100);
    act[1] = [] { AddDelayCallFunc(f[1], 30); };
    EXPECT_EQ(callsAt(100), Calls{1});
    EXPECT_EQ(callsAt(129), Calls{});
    EXPECT_EQ(callsAt(130), Calls{1});
    EXPECT_EQ(callsAt(160), Calls{1});
    EXPECT_EQ(slotsInUse(), 1u);
}

TEST(DelayCall, FunctionThatArmsItselfWithoutDelayIsCalledOnceAPass)
{
    AddDelayCallFunc(f[1], 0);
    act[1] = [] { AddDelayCallFunc(f[1], 0); };
    EXPECT_EQ(callsAt(5), Calls{1});
    EXPECT_EQ(callsAt(5), Calls{1});
}

TEST(DelayCall, FunctionArmedIntoALaterSlotIsLookedAtInTheSamePass)
{
    AddDelayCallFunc(f[1], 0);
    act[1] = [] {
        AddDelayCallFunc(f[2], 100); // takes the slot that has just been freed
        AddDelayCallFunc(f[3], 0);   // the next one
        AddDelayCallFunc(f[4], 1);   // looked at, and not due
    };
    EXPECT_EQ(callsAt(0), (Calls{1, 3}));
    EXPECT_EQ(_pFunc[0], f[2]);
    EXPECT_EQ(_pFunc[1], nullptr);
    EXPECT_EQ(_pFunc[2], f[4]);
    EXPECT_EQ(callsAt(1), Calls{4});
}

TEST(DelayCall, FunctionArmedIntoTheFreedOrAnEarlierSlotWaitsForTheNextPass)
{
    AddDelayCallFunc(f[0], 1000);
    AddDelayCallFunc(f[1], 1000);
    AddDelayCallFunc(f[2], 0);
    RemoveDelayCallFunc(f[0]);
    act[2] = [] {
        AddDelayCallFunc(f[10], 0); // slot 0
        AddDelayCallFunc(f[11], 0); // slot 2, the caller's own
    };
    EXPECT_EQ(callsAt(0), Calls{2});
    EXPECT_EQ(_pFunc[0], f[10]);
    EXPECT_EQ(_pFunc[2], f[11]);
    EXPECT_EQ(callsAt(0), (Calls{10, 11}));
}

TEST(DelayCall, FunctionMayCancelOneThatIsDueLaterInThePass)
{
    AddDelayCallFunc(f[1], 0);
    AddDelayCallFunc(f[2], 0);
    AddDelayCallFunc(f[3], 0);
    int32_t removed = -1;
    act[1] = [&] { removed = RemoveDelayCallFunc(f[2]); };
    EXPECT_EQ(callsAt(0), (Calls{1, 3}));
    EXPECT_EQ(removed, 1);
}

TEST(DelayCall, FunctionMayPutOffOneThatIsDueLaterInThePass)
{
    AddDelayCallFunc(f[1], 0);
    AddDelayCallFunc(f[2], 0);
    act[1] = [] { AddDelayCallFunc(f[2], 10); };
    EXPECT_EQ(callsAt(0), Calls{1});
    EXPECT_EQ(callsAt(10), Calls{2});
}

TEST(DelayCall, FullTableTakesAFunctionFromInsideACall)
{
    for (size_t i = 0; i < 32; ++i) {
        AddDelayCallFunc(f[i], i == 31 ? 0 : 1000);
    }
    int32_t armed = -1;
    act[31] = [&] { armed = AddDelayCallFunc(f[32], 0); };
    EXPECT_EQ(callsAt(0), Calls{31});
    EXPECT_EQ(armed, 1);
    EXPECT_EQ(_pFunc[31], f[32]);
}

TEST(DelayCall, EverySlotReadsTheClockForItself)
{
    AddDelayCallFunc(f[1], 0);
    AddDelayCallFunc(f[2], 10);
    act[1] = [] { fakeClock.advanceMs(10); }; // a slow one makes the next one due
    EXPECT_EQ(callsAt(0), (Calls{1, 2}));
}

// The tick ---------------------------------------------------------------------------------------

TEST(DelayCall, WaitSurvivesTheWrapOfTheTickOneMillisecondLonger)
{
    fakeClock.setMs(0xFFFFFFF0);
    AddDelayCallFunc(f[1], 31);
    EXPECT_EQ(_startTime[0], 0xFFFFFFF0u);
    EXPECT_EQ(callsAt(0xFFFFFFFF), Calls{});
    EXPECT_EQ(callsAt(0x0000000F), Calls{}); // 31 ms have passed and count as 30
    EXPECT_EQ(callsAt(0x00000010), Calls{1});
}

TEST(DelayCall, ClockSetBackKeepsTheWaitUntilItHasPassedTheStartAgain)
{
    fakeClock.setMs(0x1000);
    AddDelayCallFunc(f[1], 0);
    EXPECT_EQ(callsAt(0x800), Calls{});
    EXPECT_EQ(callsAt(0xFFF), Calls{});
    EXPECT_EQ(callsAt(0x1000), Calls{1});
}

TEST(DelayCall, LongestDelayIsAllOfTheTick)
{
    fakeClock.setMs(0);
    AddDelayCallFunc(f[1], 0xFFFFFFFF);
    EXPECT_EQ(callsAt(0xFFFFFFFE), Calls{});
    EXPECT_EQ(callsAt(0xFFFFFFFF), Calls{1});
}

} // namespace
