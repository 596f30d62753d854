#pragma once

// Makes the raster timing of the custom video format, id 124, from a width, a height and a frame
// rate: reduced blanking after VESA's Coordinated Video Timings (CVT-RB), with truncations of this
// system's own. docs/video-formats.md has the steps, and where they part from the standard.
//
// The same on every processor, bit for bit. Main loop only; getCustomTimming() only behind
// malloc_saveView() (storage/UserSetting.h), whose record it changes and does not save.

#include <cstdint>

// Computes the timing of `width` pixels by `height` lines at `rate` Hz, stores it in both records
// of the custom format (CustomFormat.h) and returns 1. Colour space and size class stay as they
// are. Returns 0 and changes nothing when the pixel clock, cut to whole MHz, is above 600, with a
// message, or when a number is below 1, without one.
//
// Nothing else is checked, and the timing's fields are cut to 16 bits: with fewer than 3 blanking
// lines (few lines, or a low rate) the vertical start wraps. Above 2173 Hz no time is left for a
// line: what comes out there is of no use, and mostly accepted.
int32_t getCustomTimming(int32_t width, int32_t height, int32_t rate);

// What getCustomTimming() would return; stores and prints nothing.
int32_t CheckCustomTimming(int32_t width, int32_t height, int32_t rate);

// The frame rate that a timing is made for when `rate` is asked for: the same. The one place where
// it would be converted.
uint32_t convertCustomF(uint32_t rate);
