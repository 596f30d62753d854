#pragma once

// The settings of a device that has been used before. Without its files a start takes 30 ms longer,
// on purpose.

#include "storage/UserPref.h"
#include "storage/UserSetting.h"
#include "storage/UserSettingReset.h"
#include "storage/WorkTime.h"
#include "storage/fatfs.h"

inline void storeSettings()
{
    MX_FATFS_Init();
    resetUserPref();
    saveUserPref();
    resetDeviceInfo();
    saveDeviceInfo();
    resetWorkTimeList();
    saveWorkTimeList();
    malloc_saveView();
    ResetUserSettingSave();
    sd_writeFile("save0.sav", GetUserSetting(), sizeof(UserSetting)); // without a message
}
