#pragma once

// The work-time list and its file, "workTime.sav", which is the record in memory byte for byte.
// Nothing in this program counts into it. Main loop only.

#include <cstdint>

inline constexpr uint32_t kWorkTimeListId = 0x20150321;

struct WorkTimeList {
    uint32_t currentAddress; // the base address, once loaded
    uint32_t addresses[2];
    uint32_t counters[2];
    uint32_t identification; // kWorkTimeListId
};

// The record itself.
WorkTimeList *getWorkTimeList();

// The base address of the list: 0 in this model.
uint32_t getWorkTimeListAddress();

// Read or write the file. Results as those of sd_readFile() and sd_writeFile().
uint32_t ReadWorkTime();
int32_t WriteWorkTime();
int32_t saveWorkTimeList();

// Reads the record; where its identification is wrong, resets and saves it. A current address other
// than the base becomes the base, the addresses below it are raised to it, and the record is saved.
void loadWorkTimeList();

// Sets the defaults, without saving.
void resetWorkTimeList();

// Clears the power-on flag; nothing sets or reads it in this model.
void resetPowerOnTime();
