// Power state, the flag that it has settled, and the counter beside them.

#include "control/power.h"
#include "control/power_on.h"

#include <cstdint>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "core/DelayCall.h"
#include "tests/support/clock.h"
#include "tests/support/console.h"

namespace {

static_assert(std::is_same_v<decltype(powerState), uint8_t>);
static_assert(std::is_same_v<decltype(powerOnIsStable), uint8_t>);
static_assert(std::is_same_v<decltype(powerOnTime_Count), uint8_t>);

bool otherCallCame = false;

void otherCall()
{
    otherCallCame = true;
}

// What switching on at this tick prints; its result must be the length of that.
std::string printedBySwitchingOnAt(int64_t tick)
{
    fakeClock.setMs(tick);
    Console console;
    const int32_t length = Power_On();
    console.end();
    EXPECT_EQ(length, static_cast<int32_t>(console.out.size()));
    EXPECT_EQ(console.err, "");
    return console.out;
}

TEST(Power, IsNeitherOnNorOffAtStart)
{
    EXPECT_EQ(powerState, 255);
    EXPECT_EQ(Is_PowerOn(), 0);
    EXPECT_EQ(GetPowerOnIsStable(), 0);
    EXPECT_EQ(*getPower_On_Time(), 0);
}

TEST(Power, SwitchingOnPrintsTheTickFollowedByTheLetterL)
{
    EXPECT_EQ(printedBySwitchingOnAt(123456), "Power ON 123456l\r\n");
    EXPECT_EQ(powerState, 1);
    EXPECT_EQ(Is_PowerOn(), 1);
}

TEST(Power, TheTickIsPrintedWithoutASign)
{
    EXPECT_EQ(printedBySwitchingOnAt(0xFFFFFFFF), "Power ON 4294967295l\r\n");
    EXPECT_EQ(printedBySwitchingOnAt(0), "Power ON 0l\r\n");
    EXPECT_EQ(Is_PowerOn(), 1);
}

TEST(Power, SwitchingOnIsSaidWhateverTheStateWas)
{
    for (int state = 0; state < 256; ++state) {
        powerState = static_cast<uint8_t>(state);
        EXPECT_EQ(printedBySwitchingOnAt(state), "Power ON " + std::to_string(state) + "l\r\n");
        EXPECT_EQ(powerState, 1);
    }
}

TEST(Power, SwitchesOffFromAnyStateSilently)
{
    for (int state = 0; state < 256; ++state) {
        powerState = static_cast<uint8_t>(state);
        Console console;
        Power_Off();
        console.end();
        EXPECT_EQ(powerState, 0) << state;
        EXPECT_EQ(Is_PowerOn(), 0);
        EXPECT_EQ(console.out, "");
    }
    printedBySwitchingOnAt(1);
    EXPECT_EQ(Is_PowerOn(), 1);
}

TEST(Power, IsOnInStateOneOnly)
{
    for (int state = 0; state < 256; ++state) {
        powerState = static_cast<uint8_t>(state);
        EXPECT_EQ(Is_PowerOn(), state == 1 ? 1 : 0) << state;
    }
}

TEST(Power, TheSetUpHookDoesNothing)
{
    powerState = 7;
    powerOnIsStable = 8;
    powerOnTime_Count = 9;
    Console console;
    PowerOnSetup();
    console.end();
    EXPECT_EQ(console.out, "");
    EXPECT_EQ(powerState, 7);
    EXPECT_EQ(powerOnIsStable, 8);
    EXPECT_EQ(powerOnTime_Count, 9);
}

// Neither switch touches the flag: whoever switches arms and takes back the call.
TEST(Power, SwitchingLeavesTheStableFlagAndTheCounterAlone)
{
    powerOnIsStable = 1;
    powerOnTime_Count = 9;
    printedBySwitchingOnAt(1);
    EXPECT_EQ(GetPowerOnIsStable(), 1);
    Power_Off();
    EXPECT_EQ(GetPowerOnIsStable(), 1);
    EXPECT_EQ(powerOnTime_Count, 9);
}

TEST(Power, BecomesStableByADelayedCall)
{
    fakeClock.setMs(1000);
    ASSERT_EQ(AddDelayCallFunc(powerOnSetStable, 500), 1);
    fakeClock.setMs(1499);
    delayCall_task();
    EXPECT_EQ(GetPowerOnIsStable(), 0);
    fakeClock.setMs(1500);
    delayCall_task();
    EXPECT_EQ(GetPowerOnIsStable(), 1);
    EXPECT_EQ(powerOnIsStable, 1);
}

TEST(Power, TheStableFlagIsReadAsItStandsAndSetToOneSilently)
{
    for (int value = 0; value < 256; ++value) {
        powerOnIsStable = static_cast<uint8_t>(value);
        EXPECT_EQ(GetPowerOnIsStable(), value);
        Console console;
        powerOnSetStable();
        console.end();
        EXPECT_EQ(console.out, "");
        EXPECT_EQ(powerOnIsStable, 1);
        powerOnUnStable();
        EXPECT_EQ(powerOnIsStable, 0);
    }
    EXPECT_EQ(powerState, 255);
}

// The result is that of the removal, not what the flag was.
TEST(Power, BecomingUnstableBeforeTheCallHasComeIsOneAndBehindItZero)
{
    fakeClock.setMs(1000);
    AddDelayCallFunc(powerOnSetStable, 500);
    EXPECT_EQ(powerOnUnStable(), 1);
    EXPECT_EQ(powerOnUnStable(), 0);
    AddDelayCallFunc(powerOnSetStable, 500);
    fakeClock.setMs(1500);
    delayCall_task();
    EXPECT_EQ(GetPowerOnIsStable(), 1);
    EXPECT_EQ(powerOnUnStable(), 0);
    EXPECT_EQ(GetPowerOnIsStable(), 0);
}

TEST(Power, BecomingUnstableTakesThePendingCallBack)
{
    fakeClock.setMs(1000);
    AddDelayCallFunc(powerOnSetStable, 500);
    AddDelayCallFunc(otherCall, 500);
    powerOnIsStable = 1;
    EXPECT_EQ(powerOnUnStable(), 1);
    EXPECT_EQ(GetPowerOnIsStable(), 0);
    fakeClock.setMs(9000);
    delayCall_task();
    EXPECT_EQ(GetPowerOnIsStable(), 0);
    EXPECT_TRUE(otherCallCame);
}

TEST(Power, BecomingUnstableWithoutAPendingCallClearsTheFlagAndReturnsZero)
{
    powerOnSetStable();
    EXPECT_EQ(GetPowerOnIsStable(), 1);
    EXPECT_EQ(powerOnUnStable(), 0);
    EXPECT_EQ(GetPowerOnIsStable(), 0);
}

TEST(Power, TheTimeIsReadWhereTheCounterLives)
{
    EXPECT_EQ(getPower_On_Time(), &powerOnTime_Count);
    powerOnTime_Count = 200;
    EXPECT_EQ(*getPower_On_Time(), 200);
    Power_On_Time_Reset();
    EXPECT_EQ(*getPower_On_Time(), 0);
    EXPECT_EQ(getPower_On_Time(), &powerOnTime_Count);
}

// Nothing counts it up yet.
TEST(Power, NoOperationCountsTheTime)
{
    powerOnTime_Count = 9;
    printedBySwitchingOnAt(1000);
    PowerOnSetup();
    powerOnSetStable();
    fakeClock.setMs(100'000);
    delayCall_task();
    EXPECT_EQ(GetPowerOnIsStable(), 1);
    EXPECT_EQ(Is_PowerOn(), 1);
    powerOnUnStable();
    Power_Off();
    EXPECT_EQ(powerOnTime_Count, 9);
}

} // namespace
