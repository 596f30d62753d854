#pragma once

// The factory reset, and reloading the device information, preferences and user setting. Main loop
// only.
// Waiting for a later model: nothing that the daemon runs calls this.
//
// Requires: malloc_saveView() has been called.

#include <cstdint>

// Loads device information, preferences and user setting again. Nothing is written.
void LoadEEPROM();

// Resets and saves the preferences (resetUserPref() says which of them stay), the work-time list
// and the user setting. Resets the current view. Removes all stored views and the pages of user
// mode 0. Returns 1.
int32_t ResetFactory();

// ResetFactory(), but the network settings survive, in memory only: the caller saves them.
void ResetFactorySaveIP();

// The factory-reset flag of the user setting. Saving a page clears it; the reset of the record sets
// it and clears it again.
uint8_t isFactoryReset();
