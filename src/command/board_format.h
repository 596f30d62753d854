#pragma once

// The video format of all outputs at once. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.
//
// Requires: malloc_saveView() has been called.

#include <cstdint>

// Sets the format byte of all six outputs in the user setting record and enables the outputs.
// Nothing is saved. Format 125 is replaced by the external input's format. Format 124, the custom
// format, also sets the outputs' resolutions to the custom one; a 125 that stands for 124 does not.
void SetAllBoardFormat(uint32_t format);

// 1 when `output` has the same custom genlock format; always 0 in this model.
int32_t isSameCustomGenlockFormat_output(uint8_t output);
