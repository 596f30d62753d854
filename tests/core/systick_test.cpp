// The tick is wall-clock time: these cases hold down the full arithmetic behind it, its wrap, and
// the rule that tells a wrap from a clock that was set back.

#include "core/systick.h"

#include <cstdint>
#include <limits>
#include <vector>

#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

// Link-time fakes of the clock and the sleep -----------------------------------------------------

// Not the shared fake clock: here the record that the system hands out matters, field by field.
struct {
    timeval time{};
    bool fails = false;
    int readings = 0;
    bool zoneAsked = false;
    std::vector<uint32_t> sleepsUs;
} fake;

int readFakeClock(timeval *now, const void *zone)
{
    ++fake.readings;
    fake.zoneAsked = fake.zoneAsked || zone != nullptr;
    if (fake.fails) {
        return -1;
    }
    *now = fake.time;
    return 0;
}

} // namespace

extern "C" {
int __wrap_gettimeofday(timeval *now, void *zone);
int __wrap___gettimeofday64(timeval *now, void *zone);
int __wrap_usleep(useconds_t microseconds);

int __wrap_gettimeofday(timeval *now, void *zone)
{
    return readFakeClock(now, zone);
}

// The name behind it on 32-bit processors with 64-bit time.
int __wrap___gettimeofday64(timeval *now, void *zone)
{
    return readFakeClock(now, zone);
}

int __wrap_usleep(useconds_t microseconds)
{
    fake.sleepsUs.push_back(microseconds);
    return 0;
}
}

namespace {

void setTime(int64_t seconds, int32_t microseconds)
{
    fake.time.tv_sec = static_cast<decltype(fake.time.tv_sec)>(seconds);
    fake.time.tv_usec = microseconds;
}

void setTick(uint32_t tick)
{
    setTime(tick / 1000, static_cast<int32_t>(tick % 1000 * 1000));
}

int32_t timedOut(uint32_t start, uint32_t now, uint32_t timeout)
{
    setTick(now);
    return isSysTickTimeout(static_cast<int32_t>(start), timeout);
}

// Reading the tick -------------------------------------------------------------------------------

struct Reading {
    int64_t seconds;
    int32_t microseconds;
    uint32_t tick;
    const char *what;
};

// The low 32 bits of seconds * 1000 + microseconds / 1000, worked out by hand. 2^32 ms are
// 4294967 s and 296 ms; 2^31 s are 500 * 2^32 ms, so that their tick is 0 again.
// clang-format off
const Reading kReadings[] = {
    {                   0,      0,          0, "the epoch"},
    {                   0,    999,          0, "microseconds are cut, not rounded"},
    {                   0,   1000,          1, "the first millisecond"},
    {                   1,      0,       1000, "a second"},
    {                  12, 345678,      12345, "seconds and microseconds together"},
    {                   1, 999999,       1999, "the last microsecond of a second"},
    {             2147483, 648000, 0x80000000, "the tick's sign bit is a bit like the others"},
    {             4294967, 294999, 0xFFFFFFFE, "the last tick but one"},
    {             4294967, 295000, 0xFFFFFFFF, "the last tick"},
    {             4294967, 295999, 0xFFFFFFFF, "the last tick, to its end"},
    {             4294967, 296000,          0, "the wrap"},
    {             4294968,      0,        704, "behind the wrap"},

    {          2147483647, 999999, 0xFFFFFFFF, "the last second of 32-bit time, to its end"},
    {          2147483648,      0,          0, "the first second behind 32-bit time (2038)"},
    {          2147483648,   7999,          7, "2038 and 7 ms"},
    {          2147483649,      0,       1000, "2038 and a second"},
    {          4294967296,      0,          0, "the second 2^32 (2106)"},
    {          4294967301, 250000,       5250, "5.25 s behind it"},

    {                  -1,      0, 0xFFFFFC18, "a second before the epoch is -1000"},
    {                  -1, 999999, 0xFFFFFFFF, "a microsecond before the epoch: -1000 + 999"},
    {                  -1,   1000, 0xFFFFFC19, "-1000 + 1"},
    {                  -2, 500000, 0xFFFFFA24, "-2000 + 500"},
    {                   0,   -999,          0, "negative microseconds are cut towards zero"},
    {                   0,  -1000, 0xFFFFFFFF, "-1"},
    {                   1,  -1999,        999, "1000 - 1"},
    {         -2147483649,      0, 0xFFFFFC18, "before 32-bit time (1901)"},

    {std::numeric_limits<int64_t>::max(), 0, 0xFFFFFC18, "2^63 - 1 s: no overflow, -1000 is left"},
    {std::numeric_limits<int64_t>::min(), 0,          0, "-2^63 s: no overflow, nothing is left"},
};
// clang-format on

TEST(Systick, TickIsTheLow32BitsOfTheWallClockInMilliseconds)
{
    for (const Reading &row : kReadings) {
        setTime(row.seconds, row.microseconds);
        EXPECT_EQ(GetSysTick(), row.tick) << row.what;
    }
}

TEST(Systick, EveryReadingAsksTheClockOnceAndForNoTimeZone)
{
    GetSysTick();
    EXPECT_EQ(fake.readings, 1);
    GetSysTick();
    EXPECT_EQ(fake.readings, 2);
    isSysTickTimeout(0, 0);
    EXPECT_EQ(fake.readings, 3);
    EXPECT_FALSE(fake.zoneAsked);
}

TEST(Systick, EveryReadingIsComputedAfresh)
{
    setTick(5000);
    EXPECT_EQ(GetSysTick(), 5000u);
    setTick(3000); // set back: nothing is remembered
    EXPECT_EQ(GetSysTick(), 3000u);
}

TEST(Systick, FailingClockReadsAsTickZero)
{
    setTick(123456);
    EXPECT_EQ(GetSysTick(), 123456u);
    fake.fails = true;
    EXPECT_EQ(GetSysTick(), 0u);
    EXPECT_EQ(isSysTickTimeout(0, 0), 1);
    EXPECT_EQ(isSysTickTimeout(0, 1), 0);
}

TEST(Systick, InitialisingIsNeverNeededAndDoesNothing)
{
    setTick(77);
    EXPECT_EQ(GetSysTick(), 77u);
    InitSysTick();
    EXPECT_EQ(fake.readings, 1);
    EXPECT_TRUE(fake.sleepsUs.empty());
    EXPECT_EQ(GetSysTick(), 77u);
}

// The time-out test ------------------------------------------------------------------------------

struct Timeout {
    uint32_t start;
    uint32_t now;
    uint32_t timeout;
    int32_t over;
};

void expectTimeouts(const std::vector<Timeout> &rows)
{
    for (const Timeout &row : rows) {
        EXPECT_EQ(timedOut(row.start, row.now, row.timeout), row.over)
            << std::hex << "start 0x" << row.start << " now 0x" << row.now << " timeout 0x"
            << row.timeout;
    }
}

TEST(Systick, TimeoutIsOverWhenAtLeastThatManyMillisecondsHavePassed)
{
    expectTimeouts({
        {0, 0, 1, 0},
        {5, 5, 1, 0},
        {5, 6, 1, 1},
        {5, 7, 1, 1},
        {5, 1004, 1000, 0},
        {5, 1005, 1000, 1},
        {5, 1006, 1000, 1},
        {0, 0xFFFFFFFE, 0xFFFFFFFF, 0},
        {0, 0xFFFFFFFF, 0xFFFFFFFF, 1},
    });
}

TEST(Systick, TimeoutOfZeroIsOverAtOnceForAnyTickFromTheStartOn)
{
    expectTimeouts({
        {0, 0, 0, 1},
        {0, 1, 0, 1},
        {0, 0xFFFFFFFF, 0, 1},
        {1234, 1234, 0, 1},
        {1234, 1235, 0, 1},
        {0x7FFFFFFF, 0x7FFFFFFF, 0, 1},
        {0x7FFFFFFF, 0x80000000, 0, 1},
        {0x80000000, 0x80000000, 0, 1},
        {0xFFFFFFFF, 0xFFFFFFFF, 0, 1},
    });
}

TEST(Systick, TicksAreComparedUnsignedAcrossTheSignBit)
{
    expectTimeouts({
        {0x7FFFFFFF, 0x80000000, 1, 1},
        {0x7FFFFFFF, 0x80000000, 2, 0},
        {0, 0x80000000, 0x80000000, 1},
        {0, 0x80000000, 0x80000001, 0},
        {0x80000000, 0xFFFFFFFF, 0x7FFFFFFF, 1},
        {0x80000000, 0xFFFFFFFF, 0x80000000, 0},
        {0xFFFFFFFE, 0xFFFFFFFF, 1, 1},
        {0xFFFFFFFE, 0xFFFFFFFF, 2, 0},
    });
}

TEST(Systick, AcrossTheWrapTheElapsedTimeIsCountedOneMillisecondShort)
{
    expectTimeouts({
        {0xFFFFFFF0, 0x00000010, 31, 1}, // 32 ms have passed
        {0xFFFFFFF0, 0x00000010, 32, 0},
        {0xFFFFFFF0, 0x00000011, 32, 1},
        {0xFFFFFFFF, 0, 0, 1},
        {0xFFFFFFFF, 0, 1, 0},
        {0xFFFFFFFF, 1, 1, 1},
        {0xFFFFFFFF, 1, 2, 0},
        {0x80000000, 0, 0x7FFFFFFF, 1},
        {0x80000000, 0, 0x80000000, 0},
    });
}

TEST(Systick, WrapIsBelievedUpToTick7FFFFFFE)
{
    expectTimeouts({
        {0x80000000, 0x7FFFFFFE, 0xFFFFFFFD, 1},
        {0x80000000, 0x7FFFFFFE, 0xFFFFFFFE, 0},
        {0x90000000, 0x7FFFFFFE, 0xEFFFFFFD, 1},
        {0x90000000, 0x7FFFFFFE, 0xEFFFFFFE, 0},
        {0xFFFFFFFF, 0x7FFFFFFE, 0x7FFFFFFE, 1},
        {0xFFFFFFFF, 0x7FFFFFFE, 0x7FFFFFFF, 0},
    });
}

TEST(Systick, HigherTicksBelowTheStartAreNoWrapWhateverTheTimeout)
{
    for (const uint32_t timeout : {0u, 1u, 1000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        expectTimeouts({
            {0x90000000, 0x7FFFFFFF, timeout, 0},
            {0x80000000, 0x7FFFFFFF, timeout, 0},
            {0xFFFFFFFF, 0x7FFFFFFF, timeout, 0},
            {0x90000000, 0x80000000, timeout, 0},
            {0x90000000, 0x8FFFFFFF, timeout, 0},
            {0xFFFFFFFF, 0xFFFFFFFE, timeout, 0},
        });
    }
}

TEST(Systick, ClockSetBackKeepsTheWaitUntilTheTickHasPassedTheStartAgain)
{
    for (const uint32_t timeout : {0u, 1u, 1000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        expectTimeouts({
            {0x00001000, 0x00000800, timeout, 0},
            {0x00001000, 0x00000FFF, timeout, 0},
            {0x00001000, 0, timeout, 0},
            {1, 0, timeout, 0},
            {0x7FFFFFFF, 0, timeout, 0},
            {0x7FFFFFFF, 0x7FFFFFFE, timeout, 0},
        });
    }
    expectTimeouts({
        {0x00001000, 0x00001000, 0, 1},
        {0x00001000, 0x00001000, 1, 0},
        {0x00001000, 0x00001001, 1, 1},
    });
}

// The rule once more as one expression on signed 64-bit numbers, held against the module at every
// combination of the values around which it can go wrong.
TEST(Systick, AgreesWithTheRuleAroundEveryBoundary)
{
    std::vector<int64_t> values;
    for (const int64_t edge :
         {0x0LL, 0x1000LL, 0x7FFFFFFFLL, 0x80000000LL, 0x90000000LL, 0xEFFFFFFELL, 0xFFFFFFFFLL}) {
        for (int64_t value = edge - 2; value <= edge + 2; ++value) {
            if (value >= 0 && value <= 0xFFFFFFFFLL) {
                values.push_back(value);
            }
        }
    }
    for (const int64_t start : values) {
        for (const int64_t now : values) {
            const bool wrapped = now < start && start > 0x7FFFFFFFLL && now < 0x7FFFFFFFLL;
            const int64_t elapsed = wrapped ? now + 0x100000000LL - start - 1 : now - start;
            for (const int64_t timeout : values) {
                // A negative elapsed time is below every time-out.
                ASSERT_EQ(timedOut(static_cast<uint32_t>(start), static_cast<uint32_t>(now),
                                   static_cast<uint32_t>(timeout)),
                          elapsed >= timeout ? 1 : 0)
                    << std::hex << "start 0x" << start << " now 0x" << now << " timeout 0x"
                    << timeout;
            }
        }
    }
}

// Sleeping ---------------------------------------------------------------------------------------

TEST(Systick, SleepsOnceForThatManyMilliseconds)
{
    SysDelayMs(1);
    SysDelayMs(80);
    SysDelay1ms(1);
    SysDelay1ms(7); // the name is not a limit
    EXPECT_EQ(fake.sleepsUs, (std::vector<uint32_t>{1000, 80000, 1000, 7000}));
}

TEST(Systick, SleepOfZeroIsStillASleep)
{
    SysDelayMs(0);
    SysDelay1ms(0);
    EXPECT_EQ(fake.sleepsUs, (std::vector<uint32_t>{0, 0}));
}

TEST(Systick, MicrosecondsOfALongSleepWrapAt32Bits)
{
    SysDelayMs(4294967);    // the longest that fits
    SysDelayMs(4294968);    // 4294968000 - 2^32
    SysDelayMs(0xFFFFFFFF); // -1000
    SysDelay1ms(4294968);
    EXPECT_EQ(fake.sleepsUs, (std::vector<uint32_t>{4294967000, 704, 4294966296, 704}));
}

} // namespace
