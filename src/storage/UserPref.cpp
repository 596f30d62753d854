#include "storage/UserPref.h"

#include <cstdio>
#include <cstring>

#include "core/systick.h"
#include "storage/UserSetting.h"
#include "storage/UserSettingFile.h"
#include "storage/WorkTime.h"
#include "storage/fatfs.h"

namespace {

constexpr char kUserPrefFile[] = "UserPref.sav";
constexpr char kDeviceInfoFile[] = "DevInfo.sav";

// State, main loop only: the records, zero until they are loaded. Written here, and by whom
// getUserPref() and getDeviceInfo() hand them to.
UserPref _userPref;
DeviceInfo _deviceInfo;

uint8_t boardType;   // nothing sets it
uint32_t eepromSize; // nothing sets it

// True when the stored record was no good and the defaults stand in its place.
bool readOrReset()
{
    readUserPref();
    if (_userPref.identification == kUserPrefId) {
        return false;
    }
    std::printf("UserPref ID = 0x%x\r\n", _userPref.identification);
    resetUserPref();
    std::puts("reset userPref\r");
    return true;
}

} // namespace

int32_t loadAllUserPref()
{
    malloc_saveView();
    loadUserPrefNoSave();
    loadDeviceInfo();
    loadWorkTimeList();
    return loadUserSetting(0);
}

UserPref *getUserPref()
{
    return &_userPref;
}

uint32_t readUserPref()
{
    return sd_readFile(kUserPrefFile, &_userPref, sizeof _userPref);
}

int32_t saveUserPref()
{
    return sd_writeFile(kUserPrefFile, &_userPref, sizeof _userPref);
}

void loadUserPref()
{
    if (readOrReset()) {
        saveUserPref();
    }
}

void loadUserPrefNoSave()
{
    readOrReset();
}

void resetUserPref()
{
    constexpr uint8_t kAddress[] = {192, 168, 0, 100};
    constexpr uint8_t kGateway[] = {192, 168, 0, 1};
    constexpr uint8_t kMask[] = {255, 255, 255, 0};
    constexpr uint8_t kDns[][4] = {{194, 25, 2, 129}, {194, 25, 2, 130}};
    constexpr uint8_t kIndexTable[] = {0, 1, 2, 3, 4, 5, 6, 7};
    constexpr uint8_t kPreferenceBytes[] = {1, 0x32, 0};

    _userPref.identification = kUserPrefId;
    if (_userPref.language > 1) {
        _userPref.language = 0;
    }
    if (_userPref.loadFadeInOutOff > 1) {
        _userPref.loadFadeInOutOff = 1;
    }
    _userPref.preferenceWord = 2000;
    _userPref.networkFlag = 1;
    _userPref.dhcpEnable = 1;
    std::memcpy(_userPref.ipAddress, kAddress, sizeof kAddress);
    std::memcpy(_userPref.gateway, kGateway, sizeof kGateway);
    std::memcpy(_userPref.netMask, kMask, sizeof kMask);
    std::memcpy(_userPref.dns, kDns, sizeof kDns);
    _userPref.delayCallTime = 0;
    _userPref.reserved37 = 0;
    _userPref.delayCallIndex = 0;
    _userPref.padLockEnable = 0;
    _userPref.padLockState = 0;
    _userPref.reserved41 = 0;
    std::memcpy(_userPref.indexTable, kIndexTable, sizeof kIndexTable);
    std::memcpy(_userPref.preferenceBytes, kPreferenceBytes, sizeof kPreferenceBytes);
}

uint8_t *getIPAddress()
{
    return _userPref.ipAddress;
}

int32_t saveIPAddress()
{
    return saveUserPref();
}

uint8_t getUserPadLockEnable()
{
    return _userPref.padLockEnable;
}

uint8_t getUserPadLockState()
{
    return _userPref.padLockState;
}

int32_t saveUserPadLock(uint8_t enable, uint8_t state)
{
    _userPref.padLockEnable = enable;
    _userPref.padLockState = enable != 0 ? state : 0;
    return saveUserPref();
}

uint8_t getUserLang()
{
    return _userPref.language;
}

int32_t saveUserLang(uint8_t language)
{
    _userPref.language = language;
    return saveUserPref();
}

uint8_t getDelayCallTime()
{
    return _userPref.delayCallTime;
}

int32_t saveDelayCallTime(uint8_t time)
{
    _userPref.delayCallTime = time;
    return saveUserPref();
}

uint8_t getDelayCallIndex()
{
    return _userPref.delayCallIndex;
}

int32_t saveDelayCallIndex(uint8_t index)
{
    _userPref.delayCallIndex = index;
    return saveUserPref();
}

uint8_t getLoadFadeInOutOff()
{
    return _userPref.loadFadeInOutOff;
}

int32_t saveLoadFadeInOutOff(uint8_t off)
{
    _userPref.loadFadeInOutOff = off;
    return saveUserPref();
}

DeviceInfo *getDeviceInfo()
{
    return &_deviceInfo;
}

uint32_t readDeviceInfo()
{
    return sd_readFile(kDeviceInfoFile, &_deviceInfo, sizeof _deviceInfo);
}

int32_t writeDeviceInfo()
{
    return sd_writeFile(kDeviceInfoFile, &_deviceInfo, sizeof _deviceInfo);
}

int32_t saveDeviceInfo()
{
    return writeDeviceInfo();
}

void loadDeviceInfo()
{
    readDeviceInfo();
    if (_deviceInfo.identification == kDeviceInfoId &&
        _deviceInfo.secondIdentification == kDeviceInfoSecondId) {
        return;
    }
    SysDelayMs(30);
    std::printf("Device ID = 0x%x\r\n", _deviceInfo.identification);
    resetDeviceInfo();
    std::puts("reset Device info\r");
}

void resetDeviceInfo()
{
    _deviceInfo.identification = kDeviceInfoId;
    _deviceInfo.secondIdentification = kDeviceInfoSecondId;
    _deviceInfo.deviceByte = 0;
}

uint32_t getDeviceSN()
{
    return _deviceInfo.serialNumber;
}

int32_t saveDeviceSN(uint32_t serialNumber)
{
    _deviceInfo.serialNumber = serialNumber;
    return saveDeviceInfo();
}

uint8_t getHardwareVersion()
{
    return 1;
}

uint8_t getBoardType()
{
    return boardType;
}

uint32_t getSizeEEPROM()
{
    return eepromSize;
}

void checkBoardType() {}

void checkSizeEEPROM() {}
