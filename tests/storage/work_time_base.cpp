// The base address of the work-time list, as WorkTime_test.cpp sets it.

#include <cstdint>

#include "storage/WorkTime.h"

uint32_t workTimeBase; // 0 as in this model

uint32_t getWorkTimeListAddress()
{
    return workTimeBase;
}
