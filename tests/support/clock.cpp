#include "tests/support/clock.h"

#include <sys/time.h>
#include <unistd.h>

FakeClock fakeClock;

extern "C" {

int __wrap_gettimeofday(timeval *now, void *zone);
int __wrap___gettimeofday64(timeval *now, void *zone);
int __wrap_usleep(useconds_t microseconds);

int __wrap_gettimeofday(timeval *now, void *)
{
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

// The name behind gettimeofday() on 32-bit processors with 64-bit time.
int __wrap___gettimeofday64(timeval *now, void *zone)
{
    return __wrap_gettimeofday(now, zone);
}

int __wrap_usleep(useconds_t microseconds)
{
    fakeClock.sleepsUs.push_back(microseconds);
    fakeClock.nowUs += microseconds;
    if (fakeClock.onSleep) {
        fakeClock.onSleep();
    }
    return 0;
}
}
