#include "video/gs4911.h"

#include <iterator>

#include "video/format_id.h"

namespace {

// The codes of ids 0 to 35. The extra entry at the end is only for the lookup of an id by its code:
// it turns code 124 into id 36.
constexpr uint8_t tGS4911_VID_STD[] = {
    9,  10, 11, 12, 13, 14, 15, 16, 17, 18, 21, 22, 23, 29, 30, 31, 32, 33,  34, //
    35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51, 124,
};
constexpr uint8_t kVidStdIdCount = 36;
constexpr uint8_t kDefaultCodeFormat = 29; // "1024x768x60"; formats without a code get its code
static_assert(std::size(tGS4911_VID_STD) == kVidStdIdCount + 1);

// The interlaced formats and their codes, in the order in which codes are looked up.
struct InterlacedVidStd {
    uint8_t code;
    uint8_t id;
};
constexpr InterlacedVidStd kInterlacedVidStd[] = {
    {3, 71},  // 720x480x60i_2
    {4, 72},  // 720x576x50i_2
    {25, 38}, // 1920x1080x60i
    {26, 63}, // 1920x1080x59.94i
    {27, 39}, // 1920x1080x50i
    {1, 36},  // 720x480x60i
    {2, 37},  // 720x576x50i
};

} // namespace

uint32_t GetGS4911ByVideoFormat(uint32_t id)
{
    const uint8_t format = static_cast<uint8_t>(id);
    if (format < kVidStdIdCount) {
        return tGS4911_VID_STD[format];
    }
    for (const InterlacedVidStd &entry : kInterlacedVidStd) {
        if (entry.id == format) {
            return entry.code;
        }
    }
    return tGS4911_VID_STD[kDefaultCodeFormat];
}

uint8_t GetVideoFormatByGS4911(uint8_t code)
{
    if (code == 0) {
        return kVideoFormatNoInput;
    }
    for (uint32_t i = 0; i < std::size(tGS4911_VID_STD); ++i) {
        if (tGS4911_VID_STD[i] == code) {
            return static_cast<uint8_t>(i);
        }
    }
    for (const InterlacedVidStd &entry : kInterlacedVidStd) {
        if (entry.code == code) {
            return entry.id;
        }
    }
    return kVideoFormatUndefine;
}
