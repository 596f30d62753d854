#include "video/VideoFormatTable.h"

#include <array>
#include <cstdio>
#include <iterator>

#include "video/CustomFormat.h"
#include "video/format_id.h"

namespace {

// Active sizes -----------------------------------------------------------------------------------

struct ModeResolution {
    uint16_t width;  // pixels
    uint16_t height; // lines
};

// clang-format off
constexpr ModeResolution tModeResolution[] = {
    { 720,  480}, { 720,  576}, {1440,  480}, // 0
    {1440,  576}, {1280,  720}, {1920, 1080}, // 3
    { 640,  480}, { 800,  600}, {1024,  768}, // 6
    {1280, 1024}, {1600, 1200}, {1280,  768}, // 9
    {1440,  864}, {1440,  900}, {1400, 1050}, // 12
    {1280,  960}, {1152,  864}, {1920, 1200}, // 15
    {1360,  768}, {1366,  768}, {1680, 1050}, // 18
    {2048, 1152}, {2176,  544}, {1152, 1152}, // 21
    {1280, 1280}, {2560,  816}, {2560,  812}, // 24
    {1024, 1280}, {1024, 1920}, {1248,  936}, // 27
    {1976, 1144}, {1872, 1040}, {1080, 1920}, // 30
    {1280,  800}, {3840, 2160}, {4096, 2160}, // 33
    {2560, 1600}, {2560, 1440}, {3840, 1080}, // 36
    { 960, 2160}, {1024, 2160}, {2048, 1080}, // 39
};
// clang-format on
static_assert(std::size(tModeResolution) == 42);

// Timings ----------------------------------------------------------------------------------------

struct VideoDefine {
    uint32_t resolution; // index into tModeResolution
    uint16_t hTotal;     // pixels
    uint16_t vTotal;     // lines
    uint16_t hStart;     // pixels from the leading edge of the sync to the first active one
    uint16_t vStart;     // lines, the same
    uint8_t vFreq;       // Hz
    uint8_t hSyncWidth;  // pixels
    uint8_t vSyncWidth;  // lines
    uint8_t polarity;    // bit 0 horizontal, bit 1 vertical, set: negative
    uint32_t pixelClock; // Hz; 0: hTotal x vTotal x vFreq
};

// A row as in docs/video-formats.md. The tables of timings and of names are made from the rows.
struct FormatRow {
    uint8_t id;
    const char *name;
    uint32_t resolution;
    uint16_t width; // active size, which `resolution` must index
    uint16_t height;
    uint16_t hTotal;
    uint16_t vTotal;
    uint16_t hStart;
    uint16_t vStart;
    uint8_t vFreq;
    uint8_t hSyncWidth;
    uint8_t vSyncWidth;
    uint8_t polarity;
    uint32_t pixelClock;
};

// Misnomers and odd frequencies are part of the table; docs/video-formats.md lists them. A format
// 7680 or 8192 wide has the size and timing of one of its four quarters.
//
// clang-format off
constexpr FormatRow kFormats[] = {
//   id  name                 res  active size   total       start     freq sync    pol  pixel clock
    {  0, "720x480x60",         0,   720,  480,   858,  525,  122, 36,  60,  62,  6, 3,   27000000},
    {  1, "720x576x50",         1,   720,  576,   864,  625,  132, 44,  50,  64,  5, 3,   27000000},
    {  2, "1280x720x60",        4,  1280,  720,  1650,  750,  260, 25,  60,  40,  5, 0,   74250000},
    {  3, "1280x720x59.94",     4,  1280,  720,  1650,  750,  260, 25,  60,  40,  5, 0,   74175824},
    {  4, "1280x720x50",        4,  1280,  720,  1980,  750,  260, 25,  50,  40,  5, 0,   74250000},
    {  5, "1280x720x30",        4,  1280,  720,  3300,  750,  260, 25,  30,  40,  5, 0,          0},
    {  6, "1280x720x29.97",     4,  1280,  720,  3300,  750,  260, 25,  30,  40,  5, 0,   74175824},
    {  7, "1280x720x25",        4,  1280,  720,  3960,  750,  260, 25,  25,  40,  5, 0,          0},
    {  8, "1280x720x24",        4,  1280,  720,  4125,  750,  260, 25,  24,  40,  5, 0,          0},
    {  9, "1280x720x23.98",     4,  1280,  720,  4125,  750,  260, 25,  24,  40,  5, 0,   74175824},
    { 10, "1920x1080x60",       5,  1920, 1080,  2200, 1125,  192, 41,  60,  44,  5, 0,  148500000},
    { 11, "1920x1080x59.94",    5,  1920, 1080,  2200, 1125,  192, 41,  60,  44,  5, 0,  148351648},
    { 12, "1920x1080x50",       5,  1920, 1080,  2640, 1125,  192, 41,  50,  44,  5, 0,  148500000},
    { 13, "1920x1080x30",       5,  1920, 1080,  2200, 1125,  192, 41,  30,  44,  5, 0,          0},
    { 14, "1920x1080x30s",      5,  1920, 1080,  2200, 1125,  192, 41,  30,  44,  5, 0,          0},
    { 15, "1920x1080x29.97",    5,  1920, 1080,  2200, 1125,  192, 41,  30,  44,  5, 0,   74175824},
    { 16, "1920x1080x29.9s",    5,  1920, 1080,  2200, 1125,  192, 41,  30,  44,  5, 0,   74175824},
    { 17, "1920x1080x25",       5,  1920, 1080,  2640, 1125,  192, 41,  25,  44,  5, 0,          0},
    { 18, "1920x1080x25s",      5,  1920, 1080,  2640, 1125,  192, 41,  25,  44,  5, 0,          0},
    { 19, "1920x1080x24",       5,  1920, 1080,  2750, 1125,  192, 41,  24,  44,  5, 0,          0},
    { 20, "1920x1080x24s",      5,  1920, 1080,  2750, 1125,  192, 41,  24,  44,  5, 0,          0},
    { 21, "1920x1080x23.98",    5,  1920, 1080,  2750, 1125,  192, 41,  24,  44,  5, 0,   74175824},
    { 22, "1920x1080x23.9s",    5,  1920, 1080,  2750, 1125,  192, 41,  24,  44,  5, 0,   74175824},

    { 23, "640x480x60",         6,   640,  480,   800,  525,  136, 27,  60,  96,  2, 3,          0},
    { 24, "640x480x75",         6,   640,  480,   840,  500,  184, 19,  75,  64,  3, 3,          0},
    { 25, "640x480x85",         6,   640,  480,   832,  509,  136, 28,  85,  56,  3, 3,          0},
    { 26, "800x600x60",         7,   800,  600,  1056,  628,  216, 27,  60, 128,  4, 0,          0},
    { 27, "800x600x75",         7,   800,  600,  1056,  625,  240, 24,  75,  80,  3, 0,          0},
    { 28, "800x600x85",         7,   800,  600,  1048,  631,  216, 30,  85,  64,  3, 0,          0},
    { 29, "1024x768x60",        8,  1024,  768,  1344,  806,  296, 35,  60, 136,  6, 3,          0},
    { 30, "1024x768x75",        8,  1024,  768,  1312,  800,  272, 31,  75,  96,  3, 0,          0},
    { 31, "1024x768x85",        8,  1024,  768,  1376,  808,  304, 39,  85,  96,  3, 0,          0},
    { 32, "1280x1024x60",       9,  1280, 1024,  1688, 1066,  360, 41,  60, 112,  3, 0,          0},
    { 33, "1280x1024x75",       9,  1280, 1024,  1688, 1066,  392, 41,  75, 144,  3, 0,          0},
    { 34, "1280x1024x85",       9,  1280, 1024,  1728, 1072,  384, 47,  85, 160,  3, 0,          0},
    { 35, "1600x1200x60",      10,  1600, 1200,  2160, 1250,  496, 49,  60, 192,  3, 0,          0},

//   id  name                 res  active size   total       start     freq sync    pol  pixel clock
    { 36, "720x480x60i",        0,   720,  480,   858,  525,  119, 36,  60,  62,  3, 3,          0},
    { 37, "720x576x50i",        1,   720,  576,   864,  625,  132, 44,  50,  63,  3, 3,          0},
    { 38, "1920x1080x60i",      5,  1920, 1080,  2200, 1125,  188, 40,  60,  44,  5, 0,  148500000},
    { 39, "1920x1080x50i",      5,  1920, 1080,  2640, 1125,  188, 40,  50,  44,  5, 0,  148500000},

    { 40, "1152x864x75",       16,  1152,  864,  1600,  900,  384, 35,  75, 128,  3, 0,          0},
    { 41, "1280x768x60",       11,  1280,  768,  1664,  798,  320, 27,  60, 128,  7, 1,          0},
    { 42, "1280x960x60",       15,  1280,  960,  1800, 1000,  424, 39,  60, 112,  3, 0,          0},
    { 43, "1280x960x85",       15,  1280,  960,  1728, 1011,  384, 50,  85, 160,  3, 0,          0},
    { 44, "1360x768x60",       18,  1360,  768,  1792,  795,  368, 24,  60, 112,  6, 0,          0},
    { 45, "1366x768x60",       19,  1366,  768,  1792,  798,  356, 27,  60, 143,  3, 0,          0},
    { 46, "1400x1050x60",      14,  1400, 1050,  1864, 1089,  376, 36,  60, 144,  4, 1,          0},
    { 47, "1440x900x60",       13,  1440,  900,  1904,  934,  384, 31,  60, 152,  6, 1,          0},
    { 48, "2048x1152x60",      21,  2048, 1152,  2208, 1185,  112, 30,  60,  32,  4, 2,          0},
    { 49, "1680x1050x60",      20,  1680, 1050,  2240, 1089,  456, 36,  60, 176,  6, 1,          0},
    { 50, "1920x1200x60",      17,  1920, 1200,  2080, 1235,  112, 32,  60,  32,  6, 2,          0},
    { 51, "1600x1200x60_r",    10,  1600, 1200,  1728, 1235,   96, 34,  60,  32,  3, 2,          0},
    { 52, "1920x1080x60_r",     5,  1920, 1080,  2048, 1111,   96, 30,  60,  32,  3, 2,          0},
    { 53, "1440x900x60_r",     13,  1440,  900,  1600,  926,  112, 23,  60,  32,  6, 2,          0},
    { 54, "1680x1050x60_r",    20,  1680, 1050,  1840, 1080,  112, 27,  60,  32,  6, 2,          0},
    { 55, "1400x1050x60_r",    14,  1400, 1050,  1560, 1080,  112, 27,  60,  32,  4, 2,          0},
    { 56, "2176x544x60_r",     22,  2176,  544,  2336,  563,  112, 16,  60,  32, 10, 2,          0},
    { 57, "1152x1152x60",      23,  1152, 1152,  1552, 1195,  320, 40,  60, 120, 10, 1,          0},
    { 58, "1280x1280x60",      24,  1280, 1280,  1728, 1327,  360, 44,  60, 136, 10, 1,          0},
    { 59, "2560x812x60",       26,  2560,  812,  2720,  836,  112, 21,  60,  32, 10, 2,          0},
    { 60, "2560x816x60",       25,  2560,  816,  2720,  840,  112, 21,  60,  32, 10, 2,          0},

//   id  name                 res  active size   total       start     freq sync    pol  pixel clock
    { 61, "1280x800x60",       33,  1280,  800,  1680,  831,  328, 28,  60, 128,  6, 1,          0},
    { 62, "1024x768x59.94",     8,  1024,  768,  1344,  806,  296, 35,  60, 136,  6, 3,   64930844},
    { 63, "1920x1080x59.94i",   5,  1920, 1080,  2200, 1125,  188, 40,  60,  44,  5, 0,  148351648},
    { 64, "1024x1280x60",      27,  1024, 1280,  1376, 1327,  240, 44,  60, 104, 10, 1,          0},
    { 65, "1024x1920x60",      28,  1024, 1920,  1408, 1989,  304, 66,  60, 112, 10, 1,          0},
    { 66, "1920x1080x60",       5,  1920, 1080,  2080, 1111,  120, 28,  60,  32,  5, 2,          0},
    { 67, "1248x936x60",       29,  1248,  936,  1408,  963,  112, 24,  60,  32,  4, 2,          0},
    { 68, "1976x1144x60",      30,  1976, 1144,  2136, 1177,  112, 30,  60,  32, 10, 2,          0},
    { 69, "1872x1040x60",      31,  1872, 1040,  2032, 1070,  112, 27,  60,  32, 10, 2,          0},
    { 70, "1080x1920x60",      32,  1080, 1920,  1480, 1989,  312, 66,  60, 112, 10, 1,          0},
    { 71, "720x480x60i_2",      2,  1440,  480,  1716,  525,  234, 36,  60, 124,  3, 3,          0},
    { 72, "720x576x50i_2",      3,  1440,  576,  1728,  625,  260, 44,  50, 126,  3, 3,          0},

    { 73, "3840x2160x25",      34,  3840, 2160,  5280, 2250,  384, 82,  25,  88, 10, 0,          0},
    { 74, "3840x2160x30",      34,  3840, 2160,  4400, 2250,  384, 82,  30,  88, 10, 0,          0},
    { 75, "3840x2160x50",      34,  3840, 2160,  5280, 2250,  384, 82,  50,  88, 10, 0,          0},
    { 76, "3840x2160x60",      34,  3840, 2160,  4400, 2250,  384, 82,  60,  88, 10, 0,          0},
    { 77, "3840x2160x59.94",   34,  3840, 2160,  4400, 2250,  384, 82,  60,  88, 10, 0,  593406593},
    { 78, "3840x2160x29.97",   34,  3840, 2160,  4400, 2250,  384, 82,  30,  88, 10, 0,  296703297},
    { 79, "4096x2160x25",      35,  4096, 2160,  5280, 2250,  216, 82,  25,  88, 10, 0,          0},
    { 80, "4096x2160x30",      35,  4096, 2160,  4400, 2250,  216, 82,  30,  88, 10, 0,          0},
    { 81, "4096x2160x50",      35,  4096, 2160,  5280, 2250,  216, 82,  50,  88, 10, 0,          0},
    { 82, "4096x2160x60",      35,  4096, 2160,  4400, 2250,  216, 82,  60,  88, 10, 0,          0},
    { 83, "4096x2160x59.94",   35,  4096, 2160,  4400, 2250,  216, 82,  60,  88, 10, 0,  593406593},
    { 84, "3840x2160x29.97",   35,  4096, 2160,  4400, 2250,  216, 82,  30,  88, 10, 0,  296703297},
    { 85, "3840x2160x24",      34,  3840, 2160,  5500, 2250,  384, 82,  25,  88, 10, 0,          0},
    { 86, "3840x2160x23.98",   34,  3840, 2160,  5500, 2250,  384, 82,  25,  88, 10, 0,  296703297},
    { 87, "4096x2160x24",      35,  4096, 2160,  5500, 2250,  384, 82,  25,  88, 10, 0,          0},
    { 88, "4096x2160x23.98",   35,  4096, 2160,  5500, 2250,  384, 82,  25,  88, 10, 0,  296703297},

    { 89, "2560x1600x60",      36,  2560, 1600,  2720, 1646,  112,  9,  60,  32,  3, 1,          0},
    { 90, "2560x1440x60",      37,  2560, 1440,  2720, 1481,  112,  8,  60,  32,  3, 1,          0},
    { 91, "3840x1080x60",      38,  3840, 1080,  4092, 1125,  112, 28,  60,  32,  4, 0,          0},

//   id  name                 res  active size   total       start     freq sync    pol  pixel clock
    { 92, "960x2160x60",       39,   960, 2160,  1100, 2250,   96, 82,  60,  22, 10, 0,  148500000},
    { 93, "960x2160x29.98",    39,   960, 2160,  1340, 2250,   96, 81,  24,  22, 10, 0,          0},
    { 94, "960x2160x24",       39,   960, 2160,  1340, 2250,   96, 81,  24,  22, 10, 0,          0},
    { 95, "960x2160x25",       39,   960, 2160,  1320, 2250,   96, 81,  25,  22, 10, 0,          0},
    { 96, "960x2160x29.97",    39,   960, 2160,  1100, 2250,   96, 81,  30,  22, 10, 0,          0},
    { 97, "960x2160x30",       39,   960, 2160,  1100, 2250,   96, 81,  30,  22, 10, 0,          0},
    { 98, "960x2160x50",       39,   960, 2160,  1320, 2250,   96, 81,  50,  22, 10, 0,          0},
    { 99, "960x2160x59.94",    39,   960, 2160,  1100, 2250,   96, 81,  60,  22, 10, 0,          0},

    {100, "1024x2160x60",      40,  1024, 2160,  1100, 2250,   54, 81,  60,  22, 10, 0,  148500000},
    {101, "1024x2160x29.98",   40,  1024, 2160,  1320, 2250,   54, 81,  24,  22, 10, 0,          0},
    {102, "1024x2160x24",      40,  1024, 2160,  1320, 2250,   54, 81,  24,  22, 10, 0,          0},
    {103, "1024x2160x25",      40,  1024, 2160,  1320, 2250,   54, 81,  25,  22, 10, 0,          0},
    {104, "1024x2160x29.97",   40,  1024, 2160,  1100, 2250,   54, 81,  30,  22, 10, 0,          0},
    {105, "1024x2160x30",      40,  1024, 2160,  1100, 2250,   54, 81,  30,  22, 10, 0,          0},
    {106, "1024x2160x50",      40,  1024, 2160,  1320, 2250,   54, 81,  50,  22, 10, 0,          0},
    {107, "1024x2160x59.94",   40,  1024, 2160,  1100, 2250,   54, 81,  60,  22, 10, 0,  148500000},

    {108, "7680x1080x29.98",    5,  1920, 1080,  2750, 1125,  192, 41,  24,  44,  5, 0,   74175824},
    {109, "7680x1080x24",       5,  1920, 1080,  2750, 1125,  192, 41,  24,  44,  5, 0,          0},
    {110, "7680x1080x25",       5,  1920, 1080,  2640, 1125,  192, 41,  25,  44,  5, 0,          0},
    {111, "7680x1080x29.97",    5,  1920, 1080,  2200, 1125,  192, 41,  30,  44,  5, 0,   74175824},
    {112, "7680x1080x30",       5,  1920, 1080,  2200, 1125,  192, 41,  30,  44,  5, 0,          0},
    {113, "7680x1080x50",       5,  1920, 1080,  2640, 1125,  192, 41,  50,  44,  5, 0,  148500000},
    {114, "7680x1080x59.94",    5,  1920, 1080,  2200, 1125,  192, 41,  60,  44,  5, 0,  148351648},
    {115, "7680x1080x60",       5,  1920, 1080,  2200, 1125,  192, 41,  60,  44,  5, 0,          0},

    {116, "8192x1080x29.98",   41,  2048, 1080,  2750, 1125,  108, 41,  24,  44,  5, 0,   74175824},
    {117, "8192x1080x24",      41,  2048, 1080,  2750, 1125,  108, 41,  24,  44,  5, 0,          0},
    {118, "8192x1080x25",      41,  2048, 1080,  2640, 1125,  108, 41,  25,  44,  5, 0,          0},
    {119, "8192x1080x29.97",   41,  2048, 1080,  2200, 1125,  108, 41,  30,  44,  5, 0,   74175824},
    {120, "8192x1080x30",      41,  2048, 1080,  2200, 1125,  108, 41,  30,  44,  5, 0,          0},
    {121, "8192x1080x50",      41,  2048, 1080,  2640, 1125,  108, 41,  50,  44,  5, 0,  148500000},
    {122, "8192x1080x59.94",   41,  2048, 1080,  2200, 1125,  108, 41,  60,  44,  5, 0,  148351648},
    {123, "8192x1080x60",      41,  2048, 1080,  2200, 1125,  108, 41,  60,  44,  5, 0,          0},
};
// clang-format on
static_assert(std::size(kFormats) == kVideoFormatCount);

constexpr bool rowIsSound(uint32_t index)
{
    const FormatRow &row = kFormats[index];
    if (row.id != index || row.resolution >= std::size(tModeResolution)) {
        return false;
    }
    const ModeResolution &active = tModeResolution[row.resolution];
    const uint64_t clock = uint64_t{row.hTotal} * row.vTotal * row.vFreq;
    return row.width == active.width && row.height == active.height &&
           row.hTotal >= row.hStart + row.width && row.vTotal >= row.vStart + row.height &&
           row.hStart >= row.hSyncWidth && row.vStart >= row.vSyncWidth && row.polarity <= 3 &&
           row.vFreq > 0 && clock <= UINT32_MAX;
}

constexpr bool rowsAreSound()
{
    for (uint32_t i = 0; i < kVideoFormatCount; ++i) {
        if (!rowIsSound(i)) {
            return false;
        }
    }
    return true;
}
static_assert(rowsAreSound());

constexpr auto tVideoDefine = [] {
    std::array<VideoDefine, kVideoFormatCount> table{};
    for (const FormatRow &row : kFormats) {
        table[row.id] = {row.resolution, row.hTotal,    row.vTotal,     row.hStart,
                         row.vStart,     row.vFreq,     row.hSyncWidth, row.vSyncWidth,
                         row.polarity,   row.pixelClock};
    }
    return table;
}();
static_assert(sizeof tVideoDefine == kVideoFormatCount * 20);

// Lookup -----------------------------------------------------------------------------------------

constexpr uint8_t kDefaultFormat = 29; // "1024x768x60", for ids without a timing

// The row with the format's timing.
// Requires: `format` is not the custom one.
const VideoDefine &rowOf(uint8_t format)
{
    return tVideoDefine[format < kVideoFormatCount ? format : kDefaultFormat];
}

// A value from the format's timing; for the custom format, the result of `custom`.
template <typename Value>
uint32_t timingOf(uint32_t id, Value VideoDefine::*value, uint32_t (*custom)())
{
    const uint8_t format = followExternInput(id);
    return format == kVideoFormatCustom ? custom() : rowOf(format).*value;
}

uint32_t polarityOf(uint32_t id)
{
    return timingOf(id, &VideoDefine::polarity, getCustomhvSyncPolarity);
}

} // namespace

uint32_t GetResByVideoFormat(uint32_t id)
{
    const uint8_t format = followExternInput(id);
    if (format == kVideoFormatCustom) {
        return (getCustomH() & 0xFFFF) | getCustomV() << 16;
    }
    const ModeResolution &active = tModeResolution[rowOf(format).resolution];
    return active.width | uint32_t{active.height} << 16;
}

uint32_t GetHDEByVideoFormat(uint32_t id)
{
    const uint8_t format = followExternInput(id);
    return format == kVideoFormatCustom ? getCustomhActive() : GetResByVideoFormat(format) & 0xFFFF;
}

uint32_t GetVDEByVideoFormat(uint32_t id)
{
    const uint8_t format = followExternInput(id);
    return format == kVideoFormatCustom ? getCustomvActive() : GetResByVideoFormat(format) >> 16;
}

uint32_t GetVDEByVideoFormat2(uint32_t id)
{
    const uint32_t height = GetResByVideoFormat(id) >> 16;
    return IsInterlaceFormat(id) != 0 ? height / 2 : height;
}

uint32_t GetHTotalByVideoFormat(uint32_t id)
{
    return timingOf(id, &VideoDefine::hTotal, getCustomhTotal);
}

uint32_t GetVTotalByVideoFormat(uint32_t id)
{
    return timingOf(id, &VideoDefine::vTotal, getCustomvTotal);
}

uint32_t GetHStartByVideoFormat(uint32_t id)
{
    return timingOf(id, &VideoDefine::hStart, getCustomhStart);
}

uint32_t GetVStartByVideoFormat(uint32_t id)
{
    return timingOf(id, &VideoDefine::vStart, getCustomvStart);
}

uint32_t GetHSyncWidthByVideoFormat(uint32_t id)
{
    return timingOf(id, &VideoDefine::hSyncWidth, getCustomhSyncWidth);
}

uint32_t GetVSyncWidthByVideoFormat(uint32_t id)
{
    return timingOf(id, &VideoDefine::vSyncWidth, getCustomvSyncWidth);
}

uint32_t GetHSyncPolarityByVideoFormat(uint32_t id)
{
    return polarityOf(id) & 1;
}

uint32_t GetVSyncPolarityByVideoFormat(uint32_t id)
{
    return polarityOf(id) >> 1 & 1;
}

uint32_t GetVFreqByVideoFormat(uint32_t id)
{
    const uint8_t format = followExternInput(id);
    return format == kVideoFormatCustom ? getCustomF() & 0xFFFF : rowOf(format).vFreq;
}

// Waiting for a later model -----------------------------------------------------------------------

namespace {

// The names after the rows are one place off from their ids and are never read:
// GetStrByVideoFormat() has its own names for those ids.
constexpr auto tVideoFormatStr = [] {
    std::array<const char *, kVideoFormatCount + 5> table{};
    for (const FormatRow &row : kFormats) {
        table[row.id] = row.name;
    }
    table[124] = "1920x1200x60";
    table[125] = "MD_CUSTOM";
    table[126] = "INPUT FORMAT";
    table[127] = "UNDEFINE";
    table[128] = "NO INPUT";
    return table;
}();
static_assert(tVideoFormatStr.size() == 129);

// State, main loop only: the name of the custom format. Written by GetStrByVideoFormat().
char customStr[32];

const char *const unknowFormat = "UNKNOWN";

} // namespace

uint32_t GetDlckByVideoFormat(uint32_t id)
{
    const uint8_t format = followExternInput(id);
    if (format == kVideoFormatCustom) {
        return getCustomhTotal() * getCustomvTotal() * getCustomF();
    }
    const VideoDefine &row = rowOf(format);
    return row.pixelClock != 0 ? row.pixelClock : uint32_t{row.hTotal} * row.vTotal * row.vFreq;
}

const char *GetStrByVideoFormat(uint32_t id)
{
    const uint8_t format = static_cast<uint8_t>(id);
    if (format < kVideoFormatCount) {
        return tVideoFormatStr[format];
    }
    switch (format) {
    case kVideoFormatCustom:
        std::snprintf(customStr, sizeof customStr, "C:%dx%d@%d", static_cast<int32_t>(getCustomH()),
                      static_cast<int32_t>(getCustomV()), static_cast<int32_t>(getCustomF()));
        return customStr;
    case kVideoFormatExtern:
        return "INPUT FORMAT";
    case kVideoFormatUndefine:
        return "UNDEFINE";
    case kVideoFormatNoInput:
        return "NO INPUT";
    default:
        return unknowFormat;
    }
}
