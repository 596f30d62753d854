#include "control/control.h"

#include <cstdint>

#include "command/update.h"
#include "control/power.h"
#include "core/systick.h"

namespace {

constexpr uint32_t kSecondMs = 1000;

// State of TaskControl, its only user.
uint32_t controlTimer = 100;               // tick of the last full second
[[maybe_unused]] uint8_t controlState = 0; // reserved: nothing uses it yet

// Returns true once a second, and notes the tick.
bool secondHasPassed()
{
    if (isSysTickTimeout(static_cast<int32_t>(controlTimer), kSecondMs) == 0) {
        return false;
    }
    controlTimer = GetSysTick();
    return true;
}

void taskWhileOn()
{
    if (secondHasPassed()) {
        // What a device that is on does every second.
    }
}

void taskWhileOff()
{
    if (secondHasPassed()) {
        // What a device that is off does every second.
    }
}

} // namespace

void TaskControl()
{
    if (isUpdateProgram() != 0) {
        return;
    }
    if (Is_PowerOn() != 0) {
        taskWhileOn();
    } else {
        taskWhileOff();
    }
}
