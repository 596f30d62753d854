#pragma once

// The video format of all outputs at once. No command reaches it in this model. Main loop only,
// behind malloc_saveView().

#include <cstdint>

// Sets the format byte of all six outputs in the user setting record and enables them; nothing is
// saved. 125 is replaced by the external input's format. For 124, the custom format, the outputs'
// resolutions become the custom one; not for 125 that stands for it.
void SetAllBoardFormat(uint32_t format);
