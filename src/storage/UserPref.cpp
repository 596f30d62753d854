#include "storage/UserPref.h"

#include <cstdio>
#include <cstring>

#include "storage/fatfs.h"

namespace {

constexpr char kFile[] = "UserPref.sav";

// State, main loop only: the record, zero until loaded. Written here and by callers of
// getUserPref().
UserPref _userPref;

// Returns true when the stored record was wrong and the defaults have replaced it.
bool readOrReset()
{
    readUserPref(); // dropped: only the identification counts
    if (_userPref.identification == kUserPrefId) {
        return false;
    }
    std::printf("UserPref ID = 0x%x\r\n", _userPref.identification);
    resetUserPref();
    std::puts("reset userPref\r");
    return true;
}

} // namespace

UserPref *getUserPref()
{
    return &_userPref;
}

uint32_t readUserPref()
{
    return sd_readFile(kFile, &_userPref, sizeof _userPref);
}

int32_t saveUserPref()
{
    return sd_writeFile(kFile, &_userPref, sizeof _userPref);
}

void loadUserPrefNoSave()
{
    readOrReset(); // dropped: a reset record is not saved here
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

// Waiting for a later model -----------------------------------------------------------------------

void loadUserPref()
{
    if (readOrReset()) {
        saveUserPref(); // dropped: if it fails, the next start resets again
    }
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
