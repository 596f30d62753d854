#pragma once

// The video formats: raster timing and name of every format id. docs/video-formats.md has the
// table.
//
// Only the low 8 bits of an id count, and no operation fails. Ids 0 to 123 are fixed formats, 124
// is the custom format, and 125 stands for the format of the external input. Every other id gets
// the timing of id 29, "1024x768x60". Main loop only.
//
// Requires: malloc_saveView() has been called (storage/UserSetting.h).

#include <cstdint>

// Active size: width in bits 0 to 15, height in bits 16 to 31. For the custom format this is the
// requested size; the next two give the size in its timing.
uint32_t GetResByVideoFormat(uint32_t id);
uint32_t GetHDEByVideoFormat(uint32_t id); // width, pixels
uint32_t GetVDEByVideoFormat(uint32_t id); // height, lines

// The height of one transfer, in lines: a field of an interlaced format, a frame of any other. For
// the custom format, the requested height.
uint32_t GetVDEByVideoFormat2(uint32_t id);

// Pixels in a line and lines in a frame (also for interlaced formats), blanking included.
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

// Waiting for a later model -----------------------------------------------------------------------

uint32_t GetDlckByVideoFormat(uint32_t id); // pixel clock in Hz

// The name, as constant text. The custom format's name is in a buffer that the next call for that
// format overwrites.
const char *GetStrByVideoFormat(uint32_t id);
