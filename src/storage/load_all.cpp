#include "storage/load_all.h"

#include "storage/DeviceInfo.h"
#include "storage/UserPref.h"
#include "storage/UserSetting.h"
#include "storage/UserSettingFile.h"
#include "storage/WorkTime.h"

int32_t loadAllUserPref()
{
    malloc_saveView();
    loadUserPrefNoSave();
    loadDeviceInfo();
    loadWorkTimeList();
    return loadUserSetting(0);
}
