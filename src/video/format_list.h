#pragma once

// Constant lists of video format ids: the formats that an output offers, and the full-width format
// that a quarter-width one belongs to. Any thread.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

// The choices of an output format, in the order in which they are offered.
extern const uint8_t outFormatList[12];       // the usual ones
extern const uint8_t outFormatList_extern[1]; // that of the external input
extern const uint8_t outFormatList_others[48];

// Returns the full-width format of which `id`, 960 or 1024 pixels by 2160 lines, is a quarter. Any
// other id is returned unchanged. So are 101 to 103 (1024 wide at 23.98, 24 and 25 Hz), on purpose.
// Only the low 8 bits of the id count.
uint8_t change4Kformat(uint32_t id);
