#include "storage/DeviceInfo.h"

#include <cstdio>

#include "core/systick.h"
#include "storage/fatfs.h"

namespace {

constexpr char kFile[] = "DevInfo.sav";

// State, main loop only: the record, zero until loaded. Written here and by callers of
// getDeviceInfo().
DeviceInfo _deviceInfo;

} // namespace

uint32_t readDeviceInfo()
{
    return sd_readFile(kFile, &_deviceInfo, sizeof _deviceInfo);
}

int32_t writeDeviceInfo()
{
    return sd_writeFile(kFile, &_deviceInfo, sizeof _deviceInfo);
}

int32_t saveDeviceInfo()
{
    return writeDeviceInfo();
}

void loadDeviceInfo()
{
    readDeviceInfo(); // dropped: only the identifications count
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

// Waiting for a later model -----------------------------------------------------------------------

DeviceInfo *getDeviceInfo()
{
    return &_deviceInfo;
}
