#pragma once

// The defaults of the user setting record. Nothing here saves. Main loop only.
//
// A number out of range does nothing. Fields that a reset does not set keep their values, which are
// later saved too.
//
// Requires: malloc_saveView() has been called.

#include <cstdint>

// Sets every default of the record. Makes the preview a copy of the program view, and the current
// view a copy of the preview. View 0 is then current.
void ResetUserSettingSave();

// The sections, one by one. Inputs, outputs, containers and formats are given by number.
void ResetInputSetting(uint32_t input, uint32_t format); // also enables it; 0 to 23 only
// Also clears the input's flag; for inputs 24 and 25, which have none, the bytes after the flags.
void ResetPreInputSetting(uint32_t input);
void ResetInputColorKey(uint32_t input);
void ResetOutputSetting(uint32_t output, uint32_t format);
void ResetContainerSetting(uint32_t container);
void ResetOutputGroupArea(); // also calls ResetRS1OutputSetting()
void ResetRS1OutputSetting();
void ResetFpgaSetting();
