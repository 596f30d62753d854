#pragma once

// One-shot timers. Each calls a function without arguments once, on the main loop, after a delay in
// milliseconds.
//
// Arming a function that is already waiting restarts its wait, which debounces: a burst of changes
// ends in one call after the last change. Main loop only.

#include <cstdint>

// Arms `function` to be called once `delay` milliseconds from now. A function that is already
// waiting gets a new start and a new delay. Returns 1; or 0, and changes nothing, when `function`
// is null or all 32 slots hold other functions.
int32_t AddDelayCallFunc(void (*function)(), uint32_t delay);

// Calls, in slot order, every function whose wait is over. A slot is freed before its function is
// called, so the function may arm itself or others. A function armed into a later slot is checked
// in the same pass.
void delayCall_task();

// Waiting for a later model -----------------------------------------------------------------------

// Returns 1 when `function` was waiting and is now removed, else 0.
int32_t RemoveDelayCallFunc(void (*function)());
