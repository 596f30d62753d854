#include "control/power_on.h"

#include <cstdio>

#include "control/power.h"
#include "core/DelayCall.h"
#include "core/systick.h"

uint8_t powerOnIsStable;
uint8_t powerOnTime_Count;

int32_t Power_On()
{
    // The format is "%u" and the letter "l".
    const int32_t length = std::printf("Power ON %ul\r\n", GetSysTick());
    powerState = 1;
    return length;
}

void PowerOnSetup() {}

uint8_t GetPowerOnIsStable()
{
    return powerOnIsStable;
}

void powerOnSetStable()
{
    powerOnIsStable = 1;
}

int32_t powerOnUnStable()
{
    const int32_t removed = RemoveDelayCallFunc(powerOnSetStable);
    powerOnIsStable = 0;
    return removed;
}

void Power_On_Time_Reset()
{
    powerOnTime_Count = 0;
}

uint8_t *getPower_On_Time()
{
    return &powerOnTime_Count;
}
