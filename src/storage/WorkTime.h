#pragma once

// The work-time list and its file, "workTime.sav", which is the record in memory byte for byte.
// This program loads and resets the list but never counts. Main loop only.

#include <cstdint>

inline constexpr uint32_t kWorkTimeListId = 0x20150321;

struct WorkTimeList {
    uint32_t currentAddress; // the base address after loading
    uint32_t addresses[2];
    uint32_t counters[2];
    uint32_t identification; // kWorkTimeListId
};

// The base address of the list: 0 in this model.
uint32_t getWorkTimeListAddress();

// Read or write the file. Return the results of sd_readFile() and sd_writeFile().
uint32_t ReadWorkTime();
int32_t WriteWorkTime();
int32_t saveWorkTimeList();

// Reads the record. If its identification is wrong, resets and saves it. If its current address is
// not the base, sets it to the base, raises lower addresses to the base, and saves the record.
void loadWorkTimeList();

// Sets the defaults, without saving.
void resetWorkTimeList();

// Waiting for a later model -----------------------------------------------------------------------

// The record itself.
WorkTimeList *getWorkTimeList();

// Clears the power-on flag, which nothing sets or reads.
void resetPowerOnTime();
