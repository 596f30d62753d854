#include "core/DelayCall.h"

#include "core/systick.h"

namespace {

constexpr uint32_t kSlots = 32;

// State, main loop only. A slot is free while its function is null.
void (*_pFunc[kSlots])();    // what to call
uint32_t _startTime[kSlots]; // tick at which the slot was armed
uint32_t _delayTime[kSlots]; // how long to wait, ms

// Returns the lowest slot that holds `function`, or kSlots if none does. Null finds the lowest free
// slot.
uint32_t findSlot(void (*function)())
{
    uint32_t slot = 0;
    while (slot < kSlots && _pFunc[slot] != function) {
        ++slot;
    }
    return slot;
}

} // namespace

int32_t AddDelayCallFunc(void (*function)(), uint32_t delay)
{
    if (function == nullptr) {
        return 0;
    }
    uint32_t slot = findSlot(function);
    if (slot == kSlots) {
        slot = findSlot(nullptr);
    }
    if (slot == kSlots) {
        return 0;
    }
    _pFunc[slot] = function;
    _startTime[slot] = GetSysTick();
    _delayTime[slot] = delay;
    return 1;
}

void delayCall_task()
{
    for (uint32_t slot = 0; slot < kSlots; ++slot) {
        void (*const function)() = _pFunc[slot];
        if (function == nullptr ||
            isSysTickTimeout(static_cast<int32_t>(_startTime[slot]), _delayTime[slot]) == 0) {
            continue;
        }
        // Freed before the call so that the function can arm itself again.
        _pFunc[slot] = nullptr;
        function();
    }
}

// Waiting for a later model -----------------------------------------------------------------------

int32_t RemoveDelayCallFunc(void (*function)())
{
    const uint32_t slot = function == nullptr ? kSlots : findSlot(function);
    if (slot == kSlots) {
        return 0;
    }
    _pFunc[slot] = nullptr;
    return 1;
}
