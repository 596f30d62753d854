#pragma once

// The defaults of the user setting record. Nothing here saves. Main loop only.
//
// A number out of range does nothing. A field that a reset does not set keeps its value, and is
// saved with it.
//
// Requires: malloc_saveView() has been called.

#include <cstdint>

// Sets every default of the record, and makes the preview a copy of the program view and the
// current view a copy of the preview. View 0 is then current.
void ResetUserSettingSave();

// The sections. Inputs, outputs, containers and formats by number.
void ResetInputSetting(uint32_t input, uint32_t format); // enables it too; not inputs 24 and 25
void ResetPreInputSetting(uint32_t input); // and its flag; of 24 and 25, the bytes after the flags
void ResetInputColorKey(uint32_t input);
void ResetOutputSetting(uint32_t output, uint32_t format);
void ResetContainerSetting(uint32_t container);
void ResetOutputGroupArea(); // calls ResetRS1OutputSetting() too
void ResetRS1OutputSetting();
void ResetFpgaSetting();
