#include "tests/storage/another_base.h"

#include "storage/WorkTime.h"

uint32_t anotherBase;

uint32_t getWorkTimeListAddress()
{
    return anotherBase;
}
