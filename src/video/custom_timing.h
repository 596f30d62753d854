#pragma once

// Makes the raster timing of the custom video format, id 124, from a width, a height and a frame
// rate: reduced blanking after VESA's Coordinated Video Timings (CVT-RB), with truncations of this
// system's own. docs/video-formats.md has the steps, and their differences from the standard. The
// results are the same on every processor, bit for bit. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

// Computes the timing of `width` pixels by `height` lines at `rate` Hz, stores it in both records
// of the custom format (video/CustomFormat.h) and returns 1. Nothing is saved. Colour space and
// size class stay as they are. Returns 0 and changes nothing when the pixel clock, cut to whole
// MHz, is above 600, with a message, or when a number is below 1, without one.
// Requires: malloc_saveView() has been called (storage/UserSetting.h).
//
// Nothing else is checked, and the timing's fields are cut to 16 bits: with fewer than 3 blanking
// lines (few lines, or a low rate) the vertical start wraps. Above 2173 Hz no time is left for a
// line: the results there are of no use, and most are accepted.
int32_t getCustomTimming(int32_t width, int32_t height, int32_t rate);

// The result that getCustomTimming() would have. Stores and prints nothing.
int32_t CheckCustomTimming(int32_t width, int32_t height, int32_t rate);

// The frame rate that a timing is made for when `rate` is asked for: the same. A conversion of the
// rate would have its place here.
uint32_t convertCustomF(uint32_t rate);
