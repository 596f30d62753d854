#include "video/format_id.h"

#include "storage/UserSetting.h"

uint8_t followExternInput(uint32_t id)
{
    const uint8_t format = static_cast<uint8_t>(id);
    if (format != kVideoFormatExtern) {
        return format;
    }
    const uint8_t external = GetExtInputFormat();
    return external != kVideoFormatExtern ? external : kVideoFormatUndefine;
}

int32_t IsInterlaceFormat(uint32_t id)
{
    switch (followExternInput(id)) {
    case 36: // 720x480x60i
    case 37: // 720x576x50i
    case 38: // 1920x1080x60i
    case 39: // 1920x1080x50i
    case 63: // 1920x1080x59.94i
    case 71: // 720x480x60i_2
    case 72: // 720x576x50i_2
        return 1;
    default:
        return 0;
    }
}
