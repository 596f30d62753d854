#pragma once

// The power state of the device. Main loop only. (control/power_on.h switches the power on.)

#include <cstdint>

// 1 on, 0 off, 255 not switched since start-up.
extern uint8_t powerState;

void Power_Off();

// 1 when the power is on; 0 when it is off or has not been switched since start-up.
[[nodiscard]] int32_t Is_PowerOn();
