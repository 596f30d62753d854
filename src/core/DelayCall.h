#pragma once

// One-shot timers: call a function of no arguments once, on the main loop, after some milliseconds.
//
// Arming a function that already waits restarts its wait, so the table serves as a debouncer: a
// burst of changes ends in one call after the last of them. Main loop only.

#include <cstdint>

// Arms `function` to be called once `delay` milliseconds from now. A function that is already
// waiting gets a new start and a new delay. Returns 1, or 0 when `function` is null or all 32 slots
// hold other functions (nothing is changed then).
int32_t AddDelayCallFunc(void (*function)(), uint32_t delay);

// Returns 1 when `function` was waiting and is now removed, else 0.
int32_t RemoveDelayCallFunc(void (*function)());

// Calls, in slot order, every function whose wait is over. Its slot is free before the call, so a
// function may arm itself or others; one armed into a later slot is looked at in the same pass.
void delayCall_task();
