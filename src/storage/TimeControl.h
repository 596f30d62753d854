#pragma once

// The time-control table and its file, "timeCon0.sav", which is the record in memory byte for byte.
// Nothing in this program loads it or looks at its entries. Main loop only.

#include <cstdint>

inline constexpr uint32_t kTimeControlId = 0x201104AD;

struct TimeControl {
    uint32_t identification; // kTimeControlId
    uint8_t settingByte4;
    uint8_t settingByte5;
    uint8_t entries[144];
    uint8_t padding[2]; // written as they stand
};

// The record itself.
TimeControl *GetTimeControl();

// Read or write "timeCon%d.sav" of the slot. Results as those of sd_readFile() and sd_writeFile().
uint32_t ReadTimeControl(int32_t slot);
int32_t WriteTimeControl(int32_t slot);

// Load and save slot 0, whatever slot is given: there is one table. Loading judges the
// identification; where it is wrong, says so, resets the record and saves it.
void loadTimeControl(int32_t slot);
int32_t saveTimeControl(int32_t slot);

// Sets the defaults, without saving.
void resetTimeControl();
