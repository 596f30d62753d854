#include "control/scene.h"

#include <cstdio>
#include <cstring>

#include "core/systick.h"
#include "storage/UserSetting.h"
#include "storage/ViewFile.h"

int32_t SetCurrentView(uint32_t view)
{
    const uint32_t start = GetSysTick();
    const uint8_t number = view % kViewCount;
    UserSetting &setting = *GetUserSetting();
    _currentView = number;
    if (LoadViewSetting(number) == 0 && number == setting.currentView) {
        SaveView(number); // so that the current view is always stored
    }
    std::memcpy(GetViewSetting(), GetSaveViewSetting(), sizeof(ViewSetting));
    setting.currentView = number;
    return std::printf("SetCurrentView %d Used Time = %d\r\n", number,
                       static_cast<int32_t>(GetSysTick() - start));
}

int32_t SaveView(int32_t view)
{
    const uint32_t start = GetSysTick();
    if (view >= 0 && view < static_cast<int32_t>(kViewCount)) {
        GetUserSetting()->currentView = static_cast<uint8_t>(view);
        std::memcpy(GetSaveViewSetting(), GetViewSetting(), sizeof(ViewSetting));
        SaveViewSetting(view); // dropped: a failure is logged there
    }
    return std::printf("save view%d used time = %d\r\n", view,
                       static_cast<int32_t>(GetSysTick() - start));
}

int32_t SaveCurrentView()
{
    return SaveView(GetUserSetting()->currentView);
}

int32_t isEmptyScene(uint8_t view)
{
    LoadViewSetting(view); // dropped: what it leaves is checked, stored or not
    return isEmptyView(GetSaveViewSetting()) ? 1 : 0;
}

uint8_t getNextNoEmptyScene(uint8_t view)
{
    for (uint32_t i = view + 1U; i < kViewCount; ++i) {
        if (isEmptyScene(static_cast<uint8_t>(i)) == 0) {
            return static_cast<uint8_t>(i);
        }
    }
    for (uint32_t i = 0; i < view && i < kViewCount; ++i) {
        if (isEmptyScene(static_cast<uint8_t>(i)) == 0) {
            return static_cast<uint8_t>(i);
        }
    }
    return 0;
}

uint32_t getOutputMatrix(uint32_t output)
{
    return output + 1;
}
