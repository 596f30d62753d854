#include "tests/storage/work_time_base.h"

#include "storage/WorkTime.h"

uint32_t workTimeBase;

uint32_t getWorkTimeListAddress()
{
    return workTimeBase;
}
