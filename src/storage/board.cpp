#include "storage/board.h"

namespace {

uint8_t boardType;   // nothing sets it
uint32_t eepromSize; // nothing sets it

} // namespace

uint8_t getHardwareVersion()
{
    return 1;
}

uint8_t getBoardType()
{
    return boardType;
}

uint32_t getSizeEEPROM()
{
    return eepromSize;
}

void checkBoardType() {}

void checkSizeEEPROM() {}
