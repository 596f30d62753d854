#pragma once

// Finds a video format id from the measured timing of an input, or from a wanted size.
// video/VideoFormatTable.h goes from an id to its numbers. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.
//
// Formats with the same timing cannot be distinguished, and the lowest id wins: 1920x1080 at 59.94
// Hz is reported as 60 Hz, and so is a quarter of 7680x1080. docs/video-formats.md lists the
// formats that are never reported. Any number may be passed in.

#include <cstdint>

// Returns the first id, 0 to 123, whose timing is near the measured one: active width (pixels) and
// height (lines) within 1; totals (pixels in a line, lines in a frame) and frequency (whole Hz)
// within 4. If none is near, returns the result of isInterlaceFormat().
uint8_t GetVideoFormat(int32_t hde, int32_t vde, int32_t htotal, int32_t vtotal, int32_t vfreq);

// Returns the interlaced format, 36 to 39, 71 or 72, whose field has the measured timing within the
// same tolerances; 126 if none has. Lines are those of one field, and the frequency counts fields.
//
// Not to be confused with IsInterlaceFormat() of video/format_id.h, which says whether an id is
// interlaced.
uint8_t isInterlaceFormat(int32_t hde, int32_t vde, int32_t htotal, int32_t vtotal, int32_t vfreq);

// Returns the first id, 0 to 123, with exactly that active size, in pixels and lines; 126 if none
// has it. Formats named 7680 or 8192 wide count with the width of one quarter.
uint8_t GetFormatByHdeVde(int32_t hde, int32_t vde);
