#include "video/format_detection.h"

#include "video/VideoFormatTable.h"
#include "video/format_id.h"

namespace {

struct MeasuredTiming {
    int32_t width;  // active pixels
    int32_t height; // active lines
    int32_t hTotal; // pixels
    int32_t vTotal; // lines
    int32_t vFreq;  // Hz
};

constexpr int64_t kSizeTolerance = 1;
constexpr int64_t kTimingTolerance = 4;

// On purpose the first row shadows the second, so 63 is never the result.
//
// clang-format off
constexpr struct {
    MeasuredTiming field;
    uint8_t id;
} kInterlacedFields[] = {
//     width height h total v total freq   id
    {{ 1920,  540,  2200,   562,    60 },  38}, // 1920x1080x60i
    {{ 1920,  540,  2200,   562,    60 },  63}, // 1920x1080x59.94i
    {{ 1920,  540,  2640,   562,    50 },  39}, // 1920x1080x50i
    {{  720,  240,   858,   263,    59 },  36}, // 720x480x60i
    {{  720,  288,   864,   313,    49 },  37}, // 720x576x50i
    {{ 1440,  240,  1716,   263,    59 },  71}, // 720x480x60i_2
    {{ 1440,  288,  1728,   313,    49 },  72}, // 720x576x50i_2
};
// clang-format on

// 64 bits, because a measured number may be anything and the difference must not overflow.
bool isWithin(int64_t tolerance, int64_t a, int64_t b)
{
    return a - b <= tolerance && b - a <= tolerance;
}

bool isNear(const MeasuredTiming &a, const MeasuredTiming &b)
{
    return isWithin(kSizeTolerance, a.width, b.width) &&
           isWithin(kSizeTolerance, a.height, b.height) &&
           isWithin(kTimingTolerance, a.hTotal, b.hTotal) &&
           isWithin(kTimingTolerance, a.vTotal, b.vTotal) &&
           isWithin(kTimingTolerance, a.vFreq, b.vFreq);
}

// Requires: `id` is 0 to 123 (for heightOf() and timingOf() too).
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
    return {widthOf(id), heightOf(id), static_cast<int32_t>(GetHTotalByVideoFormat(id)),
            static_cast<int32_t>(GetVTotalByVideoFormat(id)),
            static_cast<int32_t>(GetVFreqByVideoFormat(id))};
}

} // namespace

uint8_t GetVideoFormat(int32_t hde, int32_t vde, int32_t htotal, int32_t vtotal, int32_t vfreq)
{
    const MeasuredTiming measured = {hde, vde, htotal, vtotal, vfreq};
    for (uint8_t id = 0; id < kVideoFormatCount; ++id) {
        if (isNear(timingOf(id), measured)) {
            return id;
        }
    }
    return isInterlaceFormat(hde, vde, htotal, vtotal, vfreq);
}

uint8_t isInterlaceFormat(int32_t hde, int32_t vde, int32_t htotal, int32_t vtotal, int32_t vfreq)
{
    const MeasuredTiming measured = {hde, vde, htotal, vtotal, vfreq};
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
