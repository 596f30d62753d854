#include "core/systick.h"

#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr uint32_t kSignBit = 0x80000000;

// The highest current tick that counts as wrapped. Above it, the clock was set back.
constexpr uint32_t kLastTickAfterWrap = 0x7FFFFFFE;

} // namespace

uint32_t GetSysTick()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    // The signed seconds are sign-extended and multiplied as unsigned, so no clock setting can
    // overflow. The low 32 bits, the only ones kept, are the same either way.
    const uint64_t milliseconds =
        static_cast<uint64_t>(now.tv_sec) * 1000u + static_cast<uint64_t>(now.tv_usec / 1000);
    return static_cast<uint32_t>(milliseconds);
}

int32_t isSysTickTimeout(int32_t start, uint32_t timeout)
{
    const uint32_t now = GetSysTick();
    const uint32_t since = static_cast<uint32_t>(start);
    if (now >= since) {
        return now - since >= timeout ? 1 : 0;
    }
    if (since < kSignBit || now > kLastTickAfterWrap) {
        return 0;
    }
    return now - since - 1 >= timeout ? 1 : 0;
}

void SysDelayMs(uint32_t ms)
{
    usleep(ms * 1000u);
}

void SysDelay1ms(uint32_t ms)
{
    SysDelayMs(ms);
}

// Waiting for a later model -----------------------------------------------------------------------

void InitSysTick() {}
