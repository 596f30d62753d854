#include "control/control.h"

#include <cstddef>
#include <cstring>

#include "command/update.h"
#include "control/page.h"
#include "control/power.h"
#include "core/systick.h"
#include "storage/UserPref.h"
#include "storage/UserSetting.h"
#include "storage/UserSettingFile.h"
#include "storage/UserSettingReset.h"
#include "storage/ViewFile.h"
#include "storage/WorkTime.h"

namespace {

constexpr uint32_t kSecondMs = 1000;

// State of TaskControl, its only user.
uint32_t controlTimer = 100; // tick of the last full second
uint8_t controlState;        // reserved: read, never changed

// The network settings of the preferences, network flag to MAC address, stand together.
constexpr size_t kNetworkOffset = offsetof(UserPref, networkFlag);
constexpr size_t kNetworkSize = offsetof(UserPref, delayCallTime) - kNetworkOffset;
static_assert(kNetworkOffset == 8 && kNetworkSize == 28);

// True once a second, which it marks.
bool secondHasPassed()
{
    if (isSysTickTimeout(static_cast<int32_t>(controlTimer), kSecondMs) == 0) {
        return false;
    }
    controlTimer = GetSysTick();
    return true;
}

void taskWhileOn()
{
    if (secondHasPassed()) {
        // What a device that is on does every second.
    }
}

void taskWhileOff()
{
    if (secondHasPassed()) {
        // What a device that is off does every second.
    }
}

} // namespace

void TaskControl()
{
    if (isUpdateProgram() != 0) {
        return;
    }
    switch (controlState) {
    default: // all values mean the same so far
        if (Is_PowerOn() != 0) {
            taskWhileOn();
        } else {
            taskWhileOff();
        }
        break;
    }
}

void LoadEEPROM()
{
    checkBoardType();
    loadDeviceInfo();
    loadUserPrefNoSave();
    loadUserSettingNoSave(0);
}

int32_t ResetFactory()
{
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
    ResetFactory();
    std::memcpy(inRecord, network, sizeof network);
}

uint8_t isFactoryReset()
{
    return GetUserSetting()->factoryReset;
}
