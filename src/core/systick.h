#pragma once

// The daemon's millisecond tick: read it, test for a time-out, sleep.
//
// A tick is the low 32 bits of the wall clock in milliseconds, so it wraps every 49.7 days and
// jumps when the clock is set. The module has no state and may be called on any thread.

#include <cstdint>

// The current tick in milliseconds.
[[nodiscard]] uint32_t GetSysTick();

// 1 when at least `timeout` milliseconds have passed since the tick `start`, else 0.
//
// The tick may have wrapped since `start`; the elapsed time is then counted one millisecond short.
// A current tick below `start` counts as wrapped only if `start` is 0x80000000 or more and the
// current tick at most 0x7FFFFFFE. Otherwise the clock is taken to have been set back, and the wait
// goes on until the tick has passed `start` again.
[[nodiscard]] int32_t isSysTickTimeout(int32_t start, uint32_t timeout);

// Sleeps for `ms` milliseconds. The time in microseconds is cut to 32 bits, so a request above
// 4,294,967 ms wraps to a shorter one.
void SysDelayMs(uint32_t ms);
void SysDelay1ms(uint32_t ms);

// Waiting for a later model -----------------------------------------------------------------------

// Does nothing. It is the place to initialise a hardware tick; GetSysTick() does not need it.
void InitSysTick();
