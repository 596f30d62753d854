#pragma once

// What a video format id stands for, apart from its timing. Of every id that is passed here or to
// the format table only the low 8 bits count. Main loop only, behind malloc_saveView().

#include <cstdint>

inline constexpr uint8_t kVideoFormatCount = 124;  // ids 0 to 123 are the rows of the format table
inline constexpr uint8_t kVideoFormatCustom = 124; // the custom timing
inline constexpr uint8_t kVideoFormatExtern = 125; // whatever the external input has
inline constexpr uint8_t kVideoFormatUndefine = 126; // so is every id above 127
inline constexpr uint8_t kVideoFormatNoInput = 127;

// The id itself, but for kVideoFormatExtern the format of the external input. Where that is
// kVideoFormatExtern in turn, as a settings file from elsewhere may say, it is undefined.
uint8_t followExternInput(uint32_t id);

// 1 for the formats 36 to 39, 63, 71 and 72, and for 125 when the external input has one of them;
// else 0. Their rows in the format table count the lines of both fields.
int32_t IsInterlaceFormat(uint32_t id);
