#include "command/board_format.h"

#include "storage/UserSetting.h"
#include "video/CustomFormat.h"
#include "video/format_id.h"

void SetAllBoardFormat(uint32_t format)
{
    const uint8_t id = static_cast<uint8_t>(format);
    const uint8_t stored = id == kVideoFormatExtern ? GetExtInputFormat() : id;
    UserSetting &setting = *GetUserSetting();
    for (uint32_t i = 0; i < kOutputCount; ++i) {
        setting.outputFormat[i] = stored;
        setting.outputEnable[i] = 1;
        if (id == kVideoFormatCustom) {
            Resolution &resolution = setting.outputResolution[i];
            resolution.width = getCustomH();
            resolution.height = getCustomV();
            resolution.frameRate = getCustomF();
            resolution.sizeClass = GetCustomResolution()->sizeClass;
        }
    }
}

int32_t isSameCustomGenlockFormat_output(uint8_t)
{
    return 0;
}
