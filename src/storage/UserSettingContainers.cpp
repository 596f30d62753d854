#include "storage/UserSettingContainers.h"

#include <cstdint>
#include <cstring>

#include "storage/UserSetting.h"
#include "storage/UserSettingQuery.h"

void ResetContainerMsg()
{
    constexpr uint8_t kFirstBytes16[] = {0, 5, 8, 0, 0};

    UserSetting &setting = *GetUserSetting();
    for (Container &container : setting.containers) {
        const bool first = &container == setting.containers;
        container.width = first ? GetOutMaxWidth() : 0;
        container.height = first ? GetOutMaxHeight() : 0;
        container.containerWord2 = 0;
        container.containerWord4 = 0;
        std::memset(container.containerBytes16, 0, sizeof container.containerBytes16);
        if (first) {
            std::memcpy(container.containerBytes16, kFirstBytes16, sizeof kFirstBytes16);
        }
        container.containerWord22 = 1000;
        container.containerBytes24[0] = first ? 1 : 0;
        container.containerBytes24[2] = 0;
    }
}
