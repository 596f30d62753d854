#include "video/FormatDetection.h"

#include "video/FormatClass.h"
#include "video/VideoFormatTable.h"

namespace {

struct MeasuredTiming {
    int32_t width;  // active pixels
    int32_t height; // active lines
    int32_t vFreq;  // Hz
    int32_t hTotal; // pixels
    int32_t vTotal; // lines
};

constexpr int64_t kSizeTolerance = 1;
constexpr int64_t kTimingTolerance = 4;

// The second row is shadowed by the first, on purpose: 59.94 Hz is reported as 60 Hz, here as in
// the table, and 63 is never the result.
//
// clang-format off
constexpr struct {
    MeasuredTiming field;
    uint8_t id;
} kInterlacedFields[] = {
//     width height freq  h total v total   id
    {{ 1920,  540,  60,   2200,   562 },    38}, // 1920x1080x60i
    {{ 1920,  540,  60,   2200,   562 },    63}, // 1920x1080x59.94i
    {{ 1920,  540,  50,   2640,   562 },    39}, // 1920x1080x50i
    {{  720,  240,  59,    858,   263 },    36}, // 720x480x60i
    {{  720,  288,  49,    864,   313 },    37}, // 720x576x50i
    {{ 1440,  240,  59,   1716,   263 },    71}, // 720x480x60i_2
    {{ 1440,  288,  49,   1728,   313 },    72}, // 720x576x50i_2
};
// clang-format on

// In 64 bits: what was measured may be any number.
bool isWithin(int64_t tolerance, int64_t a, int64_t b)
{
    return a - b <= tolerance && b - a <= tolerance;
}

bool isNear(const MeasuredTiming &a, const MeasuredTiming &b)
{
    return isWithin(kSizeTolerance, a.height, b.height) &&
           isWithin(kSizeTolerance, a.width, b.width) &&
           isWithin(kTimingTolerance, a.vFreq, b.vFreq) &&
           isWithin(kTimingTolerance, a.hTotal, b.hTotal) &&
           isWithin(kTimingTolerance, a.vTotal, b.vTotal);
}

// Ids 0 to 123 only.
int32_t widthOf(uint32_t id)
{
    return static_cast<int32_t>(GetResByVideoFormat(id) & 0xFFFF);
}

int32_t heightOf(uint32_t id)
{
    return static_cast<int32_t>(GetResByVideoFormat(id) >> 16);
}

MeasuredTiming timingOf(uint32_t id)
{
    return {widthOf(id), heightOf(id), static_cast<int32_t>(GetVFreqByVideoFormat(id)),
            static_cast<int32_t>(GetHTotalByVideoFormat(id)),
            static_cast<int32_t>(GetVTotalByVideoFormat(id))};
}

} // namespace

uint8_t GetVideoFormat(int32_t hde, int32_t vde, int32_t htotal, int32_t vtotal, int32_t vfreq)
{
    const MeasuredTiming measured = {hde, vde, vfreq, htotal, vtotal};
    for (uint8_t id = 0; id < kVideoFormatCount; ++id) {
        if (isNear(timingOf(id), measured)) {
            return id;
        }
    }
    return isInterlaceFormat(hde, vde, htotal, vtotal, vfreq);
}

uint8_t isInterlaceFormat(int32_t hde, int32_t vde, int32_t htotal, int32_t vtotal, int32_t vfreq)
{
    const MeasuredTiming measured = {hde, vde, vfreq, htotal, vtotal};
    for (const auto &[field, id] : kInterlacedFields) {
        if (isNear(field, measured)) {
            return id;
        }
    }
    return kVideoFormatUndefine;
}

uint8_t GetFormatByHdeVde(int32_t hde, int32_t vde)
{
    for (uint8_t id = 0; id < kVideoFormatCount; ++id) {
        if (widthOf(id) == hde && heightOf(id) == vde) {
            return id;
        }
    }
    return kVideoFormatUndefine;
}
