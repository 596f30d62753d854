#include "video/format_class.h"

#include "storage/UserSetting.h"
#include "video/format_id.h"

namespace {

// The 4K2K formats are one run of the table. The 8K1K formats follow, up to its end.
constexpr uint8_t kFirst4K2K = 73;  // 3840x2160x25
constexpr uint8_t kFirst8K1K = 108; // 7680x1080x29.98

// The size class of the id; for the custom format, the one in its record.
uint8_t sizeClassOf(uint32_t id)
{
    const uint8_t format = followExternInput(id);
    if (format == kVideoFormatCustom) {
        return GetCustomResolution()->sizeClass;
    }
    if (format < kFirst4K2K || format >= kVideoFormatCount) {
        return kSizeClassOrdinary;
    }
    return format < kFirst8K1K ? kSizeClass4K2K : kSizeClass8K1K;
}

} // namespace

int32_t IsSDFormat(uint32_t id)
{
    switch (static_cast<uint8_t>(id)) {
    case 36: // 720x480x60i
    case 37: // 720x576x50i
    case 71: // 720x480x60i_2
    case 72: // 720x576x50i_2
        return 1;
    default:
        return 0;
    }
}

int32_t Is4K2K_Format(uint32_t id)
{
    return sizeClassOf(id) == kSizeClass4K2K ? 1 : 0;
}

int32_t Is8K1K_Format(uint32_t id)
{
    return sizeClassOf(id) == kSizeClass8K1K ? 1 : 0;
}

int32_t Is4K2K_8K1K_Format(uint32_t id)
{
    return sizeClassOf(id) != kSizeClassOrdinary ? 1 : 0;
}
