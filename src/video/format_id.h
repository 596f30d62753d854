#pragma once

// The video format ids that are not rows of the format table, and the queries on an id that the
// table itself needs. Only the low 8 bits of an id count, here and in the format table. Main loop
// only.
//
// Requires: malloc_saveView() has been called (storage/UserSetting.h).

#include <cstdint>

inline constexpr uint8_t kVideoFormatCount = 124;  // ids 0 to 123 are the rows of the format table
inline constexpr uint8_t kVideoFormatCustom = 124; // the custom timing
inline constexpr uint8_t kVideoFormatExtern = 125; // whatever the external input has
inline constexpr uint8_t kVideoFormatUndefine = 126; // so is every id above 127
inline constexpr uint8_t kVideoFormatNoInput = 127;

// Returns the id itself; for kVideoFormatExtern, the format of the external input. If that is again
// kVideoFormatExtern, as a foreign settings file may have it, returns kVideoFormatUndefine.
uint8_t followExternInput(uint32_t id);

// 1 for formats 36 to 39, 63, 71 and 72, and for 125 when the external input has one of them; else
// 0. The rows of these formats in the format table count the lines of both fields.
//
// Not to be confused with isInterlaceFormat() of video/format_detection.h, which recognises a
// measured timing.
int32_t IsInterlaceFormat(uint32_t id);
