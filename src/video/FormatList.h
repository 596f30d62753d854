#pragma once

// Constant lists of video format ids: the formats that an output offers, and which full-width
// format a quarter-width one belongs to. Any thread.

#include <cstdint>

// The choices of an output format, in the order in which they are offered.
extern const uint8_t outFormatList[12];       // the usual ones
extern const uint8_t outFormatList_extern[1]; // that of the external input
extern const uint8_t outFormatList_others[48];

// The full-width format of which `id`, 960 or 1024 pixels by 2160 lines, is a quarter. Every other
// id comes back as it is; so do 101 to 103 (1024 wide at 23.98, 24 and 25 Hz), on purpose. Only the
// low 8 bits of the id count.
uint8_t change4Kformat(uint32_t id);
