#pragma once

// What stands in for the base address of the work-time list; 0, the program's own, at the start.

#include <cstdint>

extern uint32_t workTimeBase;
