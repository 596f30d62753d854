#pragma once

// The user setting record and its files "save%d.sav", one for each slot; slot 0 is the working one.
//
// A file has two identifications, one at its beginning and one at its end. If one is wrong, the
// defaults replace the record. What is checked is the record in memory after reading. So once a
// record has been loaded, it also counts as good after a missing file, which leaves all of it, and
// after a short file, which leaves its tail. Main loop only.
//
// Requires: malloc_saveView() has been called.

#include <cstdint>

// Read or write the record. Return the results of sd_readFile() and sd_writeFile(). The write also
// prints the name of the file.
uint32_t ReadUserSetting(int32_t slot);
int32_t WriteUserSetting(int32_t slot);

// Loads the record, at start-up. A bad file is read once more. If it is bad again, a message is
// printed and the record is reset and saved. Then the user mode is checked, the layer states of the
// program view are cleared, and the copy is made equal to the record. Returns 1, or 0 when the
// defaults have replaced the record.
int32_t loadUserSetting(int32_t slot);

// 1 when loadUserSetting() found the user mode on, else 0. No reader.
extern uint8_t _userMode;

// Waiting for a later model -----------------------------------------------------------------------

// Loads the record again, like loadUserSetting(), but writes nothing and leaves the user mode
// alone.
int32_t loadUserSettingNoSave(int32_t slot);

// Saves the record and makes the copy equal to it. Returns the result of WriteUserSetting().
int32_t UserSettingSaveTo(int32_t slot);
