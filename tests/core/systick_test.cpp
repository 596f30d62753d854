// The tick is wall-clock time: the full arithmetic of it, its wrap, and the rule that tells a wrap
// from a clock that was set back.

#include "core/systick.h"

#include <cstdint>
#include <vector>

#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/replace.h"

namespace {

// Not the shared fake clock: here the record that the system hands out matters, field by field.
struct {
    timeval time{};
    bool fails = false;
    int readings = 0;
    bool isZoneAsked = false;
    std::vector<uint32_t> sleepsUs;
} fake;

int readFakeClock(timeval *now, const void *zone)
{
    ++fake.readings;
    fake.isZoneAsked = fake.isZoneAsked || zone != nullptr;
    if (fake.fails) {
        return -1;
    }
    *now = fake.time;
    return 0;
}

} // namespace

REPLACE(int, gettimeofday, (timeval * now, void *zone))
{
    return readFakeClock(now, zone);
}

// The name behind it on 32-bit processors with 64-bit time.
REPLACE(int, __gettimeofday64, (timeval * now, void *zone))
{
    return readFakeClock(now, zone);
}

REPLACE(int, usleep, (useconds_t microseconds))
{
    fake.sleepsUs.push_back(microseconds);
    return 0;
}

namespace {

void setTick(uint32_t tick)
{
    fake.time = {tick / 1000, tick % 1000 * 1000};
}

int32_t timedOut(uint32_t start, uint32_t now, uint32_t timeout)
{
    setTick(now);
    return isSysTickTimeout(static_cast<int32_t>(start), timeout);
}

// The low 32 bits of seconds * 1000 + microseconds / 1000, worked out by hand. 2^32 ms are
// 4294967 s and 296 ms; 2^31 s are 500 * 2^32 ms, so that their tick is 0 again.
TEST(Systick, TickIsTheLow32BitsOfTheWallClockInMilliseconds)
{
    // clang-format off
    const struct {
        int64_t seconds;
        int32_t microseconds;
        uint32_t tick;
        const char *what;
    } rows[] = {
        {          0,      0,          0, "the epoch"},
        {          0,    999,          0, "microseconds are cut, not rounded"},
        {          0,   1000,          1, "the first millisecond"},
        {          1,      0,       1000, "a second"},
        {         12, 345678,      12345, "seconds and microseconds together"},
        {    2147483, 648000, 0x80000000, "the tick's sign bit is a bit like the others"},
        {    4294967, 294999, 0xFFFFFFFE, "the last tick but one"},
        {    4294967, 295999, 0xFFFFFFFF, "the last tick, to its end"},
        {    4294967, 296000,          0, "the wrap"},
        { 2147483647, 999999, 0xFFFFFFFF, "the last second of 32-bit time, to its end"},
        { 2147483648,      0,          0, "the first second after 32-bit time (2038)"},
        { 4294967296,      0,          0, "the second 2^32 (2106)"},
        {         -1,      0, 0xFFFFFC18, "a second before the epoch is -1000"},
        {         -1, 999999, 0xFFFFFFFF, "a microsecond before the epoch: -1000 + 999"},
        {         -1,   1000, 0xFFFFFC19, "-1000 + 1"},
        {          0,   -999,          0, "negative microseconds are cut towards zero"},
        {          0,  -1000, 0xFFFFFFFF, "-1"},
        {-2147483649,      0, 0xFFFFFC18, "before 32-bit time (1901)"},
        {  INT64_MAX,      0, 0xFFFFFC18, "2^63 - 1 s: no overflow, -1000 is left"},
        {  INT64_MIN,      0,          0, "-2^63 s: no overflow, nothing is left"},
    };
    // clang-format on
    for (const auto &row : rows) {
        fake.time = {row.seconds, row.microseconds};
        EXPECT_EQ(GetSysTick(), row.tick) << row.what;
    }
}

TEST(Systick, EveryReadingIsComputedAfreshFromOneLookAtTheClock)
{
    setTick(5000);
    EXPECT_EQ(GetSysTick(), 5000u); // without any initialisation
    setTick(3000);                  // set back: nothing is remembered
    EXPECT_EQ(GetSysTick(), 3000u);
    isSysTickTimeout(0, 0);
    InitSysTick(); // does nothing
    EXPECT_EQ(fake.readings, 3);
    EXPECT_FALSE(fake.isZoneAsked);
    EXPECT_TRUE(fake.sleepsUs.empty());
    EXPECT_EQ(GetSysTick(), 3000u);
}

TEST(Systick, FailingClockReadsAsTickZero)
{
    setTick(123456);
    fake.fails = true;
    EXPECT_EQ(GetSysTick(), 0u);
    EXPECT_EQ(isSysTickTimeout(0, 0), 1);
    EXPECT_EQ(isSysTickTimeout(0, 1), 0);
}

// The time-out test ------------------------------------------------------------------------------

TEST(Systick, TimeoutsAreOverAsTheirRowsSay)
{
    // clang-format off
    const struct {
        uint32_t start, now, timeout;
        int32_t isOver;
        const char *what;
    } rows[] = {
        {         5,       1004,       1000, 0, "a millisecond before"},
        {         5,       1005,       1000, 1, "just over"},
        {      1234,       1234,          0, 1, "a time-out of 0 is over at once"},
        {      1234,       1235,          0, 1, "and for any later tick"},
        {0xFFFFFFF0, 0x00000010,         31, 1, "across the wrap: 32 ms count as 31"},
        {0xFFFFFFF0, 0x00000010,         32, 0, "and not as 32"},
        {0x90000000, 0x7FFFFFFF,          0, 0, "not treated as a wrap"},
        {0x00001000, 0x00000800,          0, 0, "set back: a time-out of 0 is not over"},
        {0x00001000, 0x00000800, 0xFFFFFFFF, 0, "nor is the longest"},
        {0x00001000, 0x00000FFF,          0, 0, "until the start is reached again"},
    };
    // clang-format on
    for (const auto &row : rows) {
        EXPECT_EQ(timedOut(row.start, row.now, row.timeout), row.isOver) << row.what;
    }
}

// The rule once more as one expression on signed 64-bit numbers, held against the module at every
// combination of the values around which it can go wrong.
TEST(Systick, TimeoutsAgreeWithTheRuleAroundEveryBoundary)
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
            const bool isWrapped = now < start && start > 0x7FFFFFFFLL && now < 0x7FFFFFFFLL;
            const int64_t elapsed = isWrapped ? now + 0x100000000LL - start - 1 : now - start;
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

TEST(Systick, SleepsOnceForTheMillisecondsWhoseMicrosecondsWrapAt32Bits)
{
    const struct {
        uint32_t ms;
        uint32_t us;
    } rows[] = {
        {0, 0},                    // still a sleep
        {1, 1000},                 //
        {80, 80000},               // for SysDelay1ms() too: its name is not a limit
        {4294967, 4294967000},     // the longest that fits
        {4294968, 704},            // 4294968000 - 2^32
        {0xFFFFFFFF, 0xFFFFFC18u}, // -1000
    };
    for (const auto &row : rows) {
        SysDelayMs(row.ms);
        SysDelay1ms(row.ms);
        EXPECT_EQ(fake.sleepsUs, (std::vector<uint32_t>(2, row.us))) << row.ms;
        fake.sleepsUs.clear();
    }
}

} // namespace
