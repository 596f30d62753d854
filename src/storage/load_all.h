#pragma once

// Loads everything that is stored, at start-up. Main loop only.

#include <cstdint>

// Calls malloc_saveView() (storage/UserSetting.h), then loads the preferences, the device
// information, the work-time list and slot 0 of the user setting.
// Requires: MX_FATFS_Init() has been called.
// Returns the result of loadUserSetting().
int32_t loadAllUserPref();
