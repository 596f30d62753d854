#pragma once

// What a video format id stands for, apart from its timing: the meaning of the special ids, and the
// classes of formats. Of every id that is passed here or to the format table only the low 8 bits
// count. Main loop only, behind malloc_saveView().

#include <cstdint>

inline constexpr uint8_t kVideoFormatCount = 124;  // ids 0 to 123 are the rows of the format table
inline constexpr uint8_t kVideoFormatCustom = 124; // the custom timing
inline constexpr uint8_t kVideoFormatExtern = 125; // whatever the external input has
inline constexpr uint8_t kVideoFormatUndefine = 126; // so is every id above 127
inline constexpr uint8_t kVideoFormatNoInput = 127;

// The size class of the custom format, the byte `sizeClass` of its resolution record. Any other
// value there is neither 4K2K nor 8K1K, yet not ordinary.
inline constexpr uint8_t kSizeClassOrdinary = 0;
inline constexpr uint8_t kSizeClass4K2K = 1;
inline constexpr uint8_t kSizeClass8K1K = 2;

// The id itself, but for kVideoFormatExtern the format of the external input. Where that is
// kVideoFormatExtern in turn, as a settings file from elsewhere may say, it is undefined.
uint8_t followExternInput(uint32_t id);

// 1 for the formats 36 to 39, 63, 71 and 72, and for 125 when the external input has one of them;
// else 0. Their rows in the format table count the lines of both fields.
//
// Not isInterlaceFormat(), of video/FormatDetection.h, which recognises a measured timing.
int32_t IsInterlaceFormat(uint32_t id);

// 1 for the interlaced 480- and 576-line formats, 36, 37, 71 and 72, else 0. 125 is not followed.
int32_t IsSDFormat(uint32_t id);

// 1 for a format of the class, else 0: of the table those of the range, the custom format by its
// size class, 125 as the format of the external input. Among 73 to 107 are 2560x1600, 2560x1440 and
// 3840x1080 (89 to 91) and the 960 and 1024 wide quarters (92 to 107), too.
int32_t Is4K2K_Format(uint32_t id);      // 73 to 107
int32_t Is8K1K_Format(uint32_t id);      // 108 to 123
int32_t Is4K2K_8K1K_Format(uint32_t id); // 73 to 123; the custom format when it is not ordinary
