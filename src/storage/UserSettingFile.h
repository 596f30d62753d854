#pragma once

// The user setting record and its files "save%d.sav", one for each slot; slot 0 is the working one.
//
// A file is known by two identifications, at its beginning and at its end. Where one is wrong the
// defaults stand in. Judged is the record as it stands after reading: once one has been loaded, a
// missing file leaves it, a short one its tail, and that counts as good. Main loop only, behind
// malloc_saveView().

#include <cstdint>

// Read or write the record. Results as those of sd_readFile() and sd_writeFile(); the write says
// which file it writes.
uint32_t ReadUserSetting(int32_t slot);
int32_t WriteUserSetting(int32_t slot);

// Loads the record, at start-up: reads a bad file once more, then says so, resets the record and
// saves it. The user mode is checked, the layer states of the program view are cleared, and the
// copy is made equal. Returns 1, or 0 when the defaults stand in.
int32_t loadUserSetting(int32_t slot);

// Loads the record again: the same, but nothing is written and the user mode is left alone.
int32_t loadUserSettingNoSave(int32_t slot);

// Saves the record and makes the copy equal. Returns what WriteUserSetting() does.
int32_t UserSettingSaveTo(int32_t slot);

// 1 when loadUserSetting() found the user mode on, else 0. No reader in this model.
extern uint8_t _userMode;
