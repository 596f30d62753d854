#pragma once

// The description of the board. This model has none. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

uint8_t getHardwareVersion(); // always 1
uint8_t getBoardType();       // always 0
uint32_t getSizeEEPROM();     // always 0
void checkBoardType();        // does nothing
void checkSizeEEPROM();       // does nothing
