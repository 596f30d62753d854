#pragma once

// The control task of the main loop, the reload of device information, preferences and user
// setting, and the factory reset. Main loop only, behind malloc_saveView().

#include <cstdint>

// One pass of the control task: keeps the mark of the last full second. The places for what a
// device that is on, or off, does every second are in the source. Does nothing in update mode.
void TaskControl();

// Loads device information, preferences and user setting again. Nothing is written.
void LoadEEPROM();

// Resets and saves preferences (resetUserPref() says what of them stays), work-time list and user
// setting, makes the current view anew, and removes all stored views and the pages of user mode 0.
// Returns 1.
int32_t ResetFactory();

// The same, but the network settings survive: in memory only, the caller saves.
void ResetFactorySaveIP();

// The factory-reset flag of the user setting. Cleared when a page is saved; the reset of the record
// sets it and clears it again.
uint8_t isFactoryReset();
