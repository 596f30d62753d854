#include "control/factory.h"

#include <cstddef>
#include <cstring>

#include "control/page.h"
#include "storage/DeviceInfo.h"
#include "storage/UserPref.h"
#include "storage/UserSetting.h"
#include "storage/UserSettingFile.h"
#include "storage/UserSettingReset.h"
#include "storage/ViewFile.h"
#include "storage/WorkTime.h"
#include "storage/board.h"

namespace {

// The network settings are one run of bytes in the preferences, from the network flag to the MAC
// address.
constexpr size_t kNetworkOffset = offsetof(UserPref, networkFlag);
constexpr size_t kNetworkSize = offsetof(UserPref, delayCallTime) - kNetworkOffset;
static_assert(kNetworkOffset == 8 && kNetworkSize == 28);

} // namespace

void LoadEEPROM()
{
    checkBoardType();
    loadDeviceInfo();
    loadUserPrefNoSave();
    loadUserSettingNoSave(0); // dropped: it says only whether the defaults were used
}

int32_t ResetFactory()
{
    // The results of the saves are dropped: the reset goes on, and a failed save is logged.
    resetUserPref();
    saveUserPref();
    resetWorkTimeList();
    saveWorkTimeList();
    ResetUserSettingSave();
    ResetViewSetting();
    UserSettingSaveTo(0);
    ClearViewSetting();
    return ClearAllPage();
}

void ResetFactorySaveIP()
{
    uint8_t network[kNetworkSize];
    uint8_t *const inRecord = reinterpret_cast<uint8_t *>(getUserPref()) + kNetworkOffset;
    std::memcpy(network, inRecord, sizeof network);
    ResetFactory(); // always 1
    std::memcpy(inRecord, network, sizeof network);
}

uint8_t isFactoryReset()
{
    return GetUserSetting()->factoryReset;
}
