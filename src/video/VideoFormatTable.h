#pragma once

// The video formats: raster timing, name and GS4911 code of every format id. docs/video-formats.md
// has the table.
//
// Of an id only the low 8 bits count, and no operation fails. Ids 0 to 123 are fixed formats; 124
// is the custom format; 125 stands for the external input's; every other id gets the timing of id
// 29, "1024x768x60". Main loop only, behind malloc_saveView().

#include "video/FormatClass.h"

// Active size: width in bits 0 to 15, height in bits 16 to 31. Of the custom format the size that
// was asked for; the next two have that of its timing.
uint32_t GetResByVideoFormat(uint32_t id);
uint32_t GetHDEByVideoFormat(uint32_t id); // width, pixels
uint32_t GetVDEByVideoFormat(uint32_t id); // height, lines

// Height of what arrives at a time, in lines: a field of an interlaced format, a frame of others.
// Of the custom format the size that was asked for.
uint32_t GetVDEByVideoFormat2(uint32_t id);

// Pixels in a line and lines in a frame, blanking included; for interlaced formats too.
uint32_t GetHTotalByVideoFormat(uint32_t id);
uint32_t GetVTotalByVideoFormat(uint32_t id);

// From the leading edge of the sync to the first active pixel or line.
uint32_t GetHStartByVideoFormat(uint32_t id);
uint32_t GetVStartByVideoFormat(uint32_t id);

uint32_t GetHSyncWidthByVideoFormat(uint32_t id); // pixels
uint32_t GetVSyncWidthByVideoFormat(uint32_t id); // lines

// 1 negative (active low), 0 positive.
uint32_t GetHSyncPolarityByVideoFormat(uint32_t id);
uint32_t GetVSyncPolarityByVideoFormat(uint32_t id);

uint32_t GetVFreqByVideoFormat(uint32_t id); // frames (or fields) a second, rounded to whole Hz
uint32_t GetDlckByVideoFormat(uint32_t id);  // pixel clock in Hz

// The name. Constant text, but that of the custom format stands in a buffer that the next such call
// overwrites.
const char *GetStrByVideoFormat(uint32_t id);

// The format's video standard code in the GS4911 timing generator; 45, "1024x768x60", for formats
// that have none, ids from 124 on included.
uint32_t GetGS4911ByVideoFormat(uint32_t id);

// The way back: the id for a code. 0 is no input (127), an unknown code undefined (126), and 124
// gives 36.
uint8_t GetVideoFormatByGS4911(uint8_t code);
