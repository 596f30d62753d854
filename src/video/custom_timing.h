#pragma once

// Makes the raster timing of the custom video format, id 124, from a width, a height and a frame
// rate: reduced blanking after VESA's Coordinated Video Timings (CVT-RB), with this system's own
// truncations. docs/video-formats.md has the steps and their differences from the standard. The
// results are the same on every processor, bit for bit. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

inline constexpr double kMaxPixelClock = 600.0; // MHz

// Computes the timing of `width` pixels by `height` lines at `rate` Hz, stores it in both records
// of the custom format (video/CustomFormat.h) and returns 1. Nothing is saved. Colour space and
// size class stay as they are. Returns 0 and changes nothing when a number is below 1, or, with a
// message, when the pixel clock, cut to whole MHz, is above 600.
// Requires: malloc_saveView() has been called (storage/UserSetting.h).
//
// Nothing else is checked, and the timing's fields are cut to 16 bits. With fewer than 3 blanking
// lines (few lines, or a low rate) the vertical start wraps. Above 2173 Hz no time is left for a
// line: the results are useless, and most are accepted.
int32_t getCustomTimming(int32_t width, int32_t height, int32_t rate);

// Returns what getCustomTimming() would return. Stores and prints nothing.
int32_t CheckCustomTimming(int32_t width, int32_t height, int32_t rate);

// The pixel clock that is held against the limit, in whole MHz, for numbers of 1 or more. Above
// about 2147 it stays there.
double customPixelClock(int32_t width, int32_t height, int32_t rate);

// The frame rate that the timing for a requested `rate` is made for: the same. This is the place
// for a conversion.
uint32_t convertCustomF(uint32_t rate);
