#include "tests/support/clock.h"
#include "tests/support/replace.h"

#include <sys/time.h>
#include <unistd.h>

FakeClock fakeClock;

REPLACE(int, gettimeofday, (timeval * now, void *zone))
{
    static_cast<void>(zone);
    if (fakeClock.fails) {
        return -1;
    }
    now->tv_sec = static_cast<time_t>(fakeClock.nowUs / 1000000);
    now->tv_usec = static_cast<suseconds_t>(fakeClock.nowUs % 1000000);
    if (fakeClock.afterReading) {
        fakeClock.afterReading();
    }
    return 0;
}

// Its name on 32-bit processors with 64-bit time.
extern "C" int __wrap___gettimeofday64(timeval *now, void *zone)
    __attribute__((alias("__wrap_gettimeofday")));

REPLACE(int, usleep, (useconds_t microseconds))
{
    fakeClock.sleepsUs.push_back(microseconds);
    fakeClock.nowUs += microseconds;
    if (fakeClock.onSleep) {
        fakeClock.onSleep();
    }
    return 0;
}
