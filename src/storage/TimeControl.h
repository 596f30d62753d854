#pragma once

// The time-control table and its file, "timeCon0.sav", which is the record in memory byte for byte.
// Nothing in this program loads it or looks at its entries. Main loop only.

#include "core/record.h"

#include <cstdint>

inline constexpr uint32_t kTimeControlId = 0x201104AD;

struct TimeControl {
    uint32_t identification; // kTimeControlId
    uint8_t settingByte4;
    uint8_t settingByte5;
    uint8_t entries[144];
    uint8_t padding[2]; // written as they stand
};
RECORD_FIELD(TimeControl, 0, uint32_t, identification);
RECORD_FIELD(TimeControl, 4, uint8_t, settingByte4);
RECORD_FIELD(TimeControl, 5, uint8_t, settingByte5);
RECORD_FIELD(TimeControl, 6, uint8_t[144], entries);
RECORD_FIELD(TimeControl, 150, uint8_t[2], padding);
static_assert(sizeof(TimeControl) == 152);
static_assert(std::has_unique_object_representations_v<TimeControl>, "hidden padding");

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
