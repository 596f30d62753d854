#include "video/format_list.h"

#include "video/format_id.h"

namespace {

// clang-format off
constexpr struct {
    uint8_t from;
    uint8_t to;
} format_4k_table[] = {
//    from   to
    {  93,   86 }, //  960x2160x29.98 (24 Hz)   3840x2160x23.98
    {  94,   85 }, //  960x2160x24              3840x2160x24
    {  95,   73 }, //  960x2160x25              3840x2160x25
    {  96,   78 }, //  960x2160x29.97           3840x2160x29.97
    {  97,   74 }, //  960x2160x30              3840x2160x30
    {  98,   75 }, //  960x2160x50              3840x2160x50
    {  92,   76 }, //  960x2160x60              3840x2160x60
    {  99,   77 }, //  960x2160x59.94           3840x2160x59.94

    { 104,   84 }, // 1024x2160x29.97           4096 wide, named 3840x2160x29.97
    { 105,   80 }, // 1024x2160x30              4096x2160x30
    { 106,   81 }, // 1024x2160x50              4096x2160x50
    { 100,   82 }, // 1024x2160x60              4096x2160x60
    { 107,   83 }, // 1024x2160x59.94           4096x2160x59.94
};
// clang-format on

} // namespace

// clang-format off
const uint8_t outFormatList[12] = {
    29, // 1024x768x60
     2, // 1280x720x60
    41, // 1280x768x60
    32, // 1280x1024x60
    58, // 1280x1280x60
    47, // 1440x900x60
    35, // 1600x1200x60
    49, // 1680x1050x60
    10, // 1920x1080x60
    50, // 1920x1200x60
    48, // 2048x1152x60
    60, // 2560x816x60
};

const uint8_t outFormatList_extern[1] = {kVideoFormatExtern};

const uint8_t outFormatList_others[48] = {
    30, 31, 64, 65, 70, 40, 67,  9,  8,  7,  6,  5,
     4,  3, 61, 42, 43, 33, 34, 44, 45, 55, 46, 53,
    51, 54, 69, 21, 22, 19, 20, 17, 18, 15, 16, 13,
    14, 11, 12, 52, 68, 36, 37, 71, 72, 39, 38, 63,
};
// clang-format on

uint8_t change4Kformat(uint32_t id)
{
    const auto format = static_cast<uint8_t>(id);
    for (const auto &[from, to] : format_4k_table) {
        if (from == format) {
            return to;
        }
    }
    return format;
}
