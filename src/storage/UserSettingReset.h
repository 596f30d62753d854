#pragma once

// The defaults of the user setting record. Nothing here saves. Main loop only, behind
// malloc_saveView().
//
// A number out of range does nothing. What a reset does not name keeps what it held, and is saved
// so.

#include <cstdint>

// Sets every default of the record, and makes the preview a copy of the program view and the
// current view a copy of the preview. View 0 is then current.
void ResetUserSettingSave();

// The sections. Inputs, outputs, containers and formats by number.
void ResetInputSetting(uint32_t input, uint32_t format); // and enables it; not 24 and 25
void ResetPreInputSetting(uint32_t input); // and its flag; of 24 and 25, the bytes behind
void ResetInputColorKey(uint32_t input);
void ResetOutputSetting(uint32_t output, uint32_t format);
void ResetContainerSetting(uint32_t container);
void ResetOutputGroupArea(); // and what ResetRS1OutputSetting() does
void ResetRS1OutputSetting();
void ResetFpgaSetting();

// Another set of defaults for the containers: the first takes the size of the largest output group,
// the others have none. Nothing calls it in this model.
void ResetContainerMsg();
