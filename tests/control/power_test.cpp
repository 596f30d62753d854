// Power state, the flag that it has settled, and the counter beside them.

#include "control/power.h"
#include "control/power_on.h"

#include <cstdint>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "core/DelayCall.h"
#include "tests/support/clock.h"
#include "tests/support/outcome.h"

namespace {

static_assert(std::is_same_v<decltype(powerState), uint8_t>);
static_assert(std::is_same_v<decltype(powerOnIsStable), uint8_t>);
static_assert(std::is_same_v<decltype(powerOnTime_Count), uint8_t>);

// What switching on at this tick prints; its result must be the length of that.
std::string printedBySwitchingOnAt(int64_t tick)
{
    fakeClock.setMs(tick);
    const auto &[length, printed] = outcomeOf(Power_On);
    EXPECT_EQ(length, printed.size());
    return printed;
}

void runDelayedCallsAt(int64_t tick)
{
    fakeClock.setMs(tick);
    delayCall_task();
}

TEST(Power, IsNeitherOnNorOffAtStart)
{
    EXPECT_EQ(powerState, 255);
    EXPECT_EQ(Is_PowerOn(), 0);
    EXPECT_EQ(GetPowerOnIsStable(), 0);
    EXPECT_EQ(*getPower_On_Time(), 0);
}

// Followed by the letter "l".
TEST(Power, SwitchingOnPrintsTheTickWithoutASign)
{
    EXPECT_EQ(printedBySwitchingOnAt(123456), "Power ON 123456l\r\n");
    EXPECT_EQ(printedBySwitchingOnAt(0xFFFFFFFF), "Power ON 4294967295l\r\n");
    EXPECT_EQ(printedBySwitchingOnAt(0), "Power ON 0l\r\n");
}

TEST(Power, SwitchesFromAnyStateAndOneIsOn)
{
    for (int state = 0; state < 256; ++state) {
        SCOPED_TRACE(state);
        powerState = static_cast<uint8_t>(state);
        EXPECT_EQ(Is_PowerOn(), state == 1 ? 1 : 0);
        EXPECT_EQ(printedBySwitchingOnAt(state), "Power ON " + std::to_string(state) + "l\r\n");
        EXPECT_EQ(powerState, 1);
        EXPECT_EQ(Is_PowerOn(), 1);
        powerState = static_cast<uint8_t>(state);
        EXPECT_EQ(printedBy(Power_Off), "");
        EXPECT_EQ(powerState, 0);
        EXPECT_EQ(Is_PowerOn(), 0);
    }
}

TEST(Power, TheStableFlagIsReadAsItStandsAndSetToOneSilently)
{
    for (int value = 0; value < 256; ++value) {
        powerOnIsStable = static_cast<uint8_t>(value);
        EXPECT_EQ(GetPowerOnIsStable(), value);
        EXPECT_EQ(printedBy(powerOnSetStable), "") << value;
        EXPECT_EQ(powerOnIsStable, 1) << value;
        EXPECT_EQ(GetPowerOnIsStable(), 1) << value;
        EXPECT_EQ(powerOnUnStable(), 0) << value; // no call waits
        EXPECT_EQ(powerOnIsStable, 0) << value;
    }
    EXPECT_EQ(powerState, 255);
}

TEST(Power, BecomesStableByADelayedCall)
{
    fakeClock.setMs(1000);
    ASSERT_EQ(AddDelayCallFunc(powerOnSetStable, 500), 1);
    runDelayedCallsAt(1499);
    EXPECT_EQ(GetPowerOnIsStable(), 0);
    runDelayedCallsAt(1500);
    EXPECT_EQ(GetPowerOnIsStable(), 1);
    EXPECT_EQ(powerOnUnStable(), 0); // after the call
    EXPECT_EQ(GetPowerOnIsStable(), 0);
}

// The result is that of the removal, not what the flag was.
TEST(Power, BecomingUnstableTakesOnlyThePendingCallBack)
{
    static int otherCalls = 0;
    for (const int flag : {0, 1}) {
        SCOPED_TRACE(flag);
        fakeClock.setMs(1000);
        AddDelayCallFunc(powerOnSetStable, 500);
        AddDelayCallFunc([] { ++otherCalls; }, 500);
        powerOnIsStable = static_cast<uint8_t>(flag);
        EXPECT_EQ(powerOnUnStable(), 1);
        EXPECT_EQ(powerOnUnStable(), 0);
        EXPECT_EQ(GetPowerOnIsStable(), 0);
        runDelayedCallsAt(9000);
        EXPECT_EQ(GetPowerOnIsStable(), 0);
        EXPECT_EQ(otherCalls, flag + 1);
    }
}

TEST(Power, TheTimeIsReadWhereTheCounterLives)
{
    powerOnTime_Count = 200;
    EXPECT_EQ(*getPower_On_Time(), 200);
    Power_On_Time_Reset();
    EXPECT_EQ(*getPower_On_Time(), 0);
    EXPECT_EQ(getPower_On_Time(), &powerOnTime_Count);
}

// Nothing counts the time up yet, and whoever switches arms and takes back the call.
TEST(Power, NeitherSwitchTouchesTheFlagOrTheTimeAndTheSetUpHookTouchesNothing)
{
    powerState = 7;
    powerOnIsStable = 8;
    powerOnTime_Count = 9;
    EXPECT_EQ(printedBy(PowerOnSetup), "");
    EXPECT_EQ(powerState, 7);
    printedBySwitchingOnAt(1000);
    runDelayedCallsAt(100'000);
    EXPECT_EQ(powerOnIsStable, 8);
    Power_Off();
    EXPECT_EQ(powerOnIsStable, 8);
    powerOnSetStable();
    powerOnUnStable();
    EXPECT_EQ(powerState, 0);
    EXPECT_EQ(powerOnTime_Count, 9);
}

} // namespace
