#include "control/power.h"

uint8_t powerState = 255;

void Power_Off()
{
    powerState = 0;
}

int32_t Is_PowerOn()
{
    return powerState == 1 ? 1 : 0;
}
