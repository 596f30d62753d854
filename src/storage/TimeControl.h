#pragma once

// The time-control table and its file, "timeCon0.sav", which is the record in memory byte for byte.
// Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

inline constexpr uint32_t kTimeControlId = 0x201104AD;

struct TimeControl {
    uint32_t identification; // kTimeControlId
    uint8_t settingByte4;
    uint8_t settingByte5;
    uint8_t entries[144];
    uint8_t padding[2]; // saved unchanged
};

// The record itself.
TimeControl *GetTimeControl();

// Read or write "timeCon%d.sav" of the slot. Return the results of sd_readFile() and
// sd_writeFile().
uint32_t ReadTimeControl(int32_t slot);
int32_t WriteTimeControl(int32_t slot);

// Load and save slot 0, and ignore `slot`: there is only one table. If the identification is wrong
// after loading, a message is printed and the record is reset and saved.
void loadTimeControl(int32_t slot);
int32_t saveTimeControl(int32_t slot);

// Sets the defaults, without saving.
void resetTimeControl();
