#include "command/device.h"

#include <cstdint>
#include <cstdio>

#include "command/reply.h"
#include "control/ip.h"
#include "core/memory.h"
#include "storage/DeviceInfo.h"

namespace {

constexpr uint8_t kDeviceType[] = {0x26, 0x33};
constexpr uint8_t kProtocolVersion[] = {1, 10};

void answerWord(uint32_t value)
{
    SendAnswer(static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value), 0);
}

} // namespace

void printMemoryUse()
{
    mymem_print_info();
    SendAckOrNack(kAck);
}

void readDeviceType()
{
    std::puts("read device type");
    SendAnswer(kDeviceType[0], kDeviceType[1], 0);
}

void readProtocolVersion()
{
    SendAnswer(kProtocolVersion[0], kProtocolVersion[1], 0);
}

void readSystemVersion()
{
    answerWord(getSystemVersion());
}

void writeSerialNumber()
{
    // The echo does not depend on the save: the protocol has no answer for a full disk, and the
    // file store logs the failures that it sees.
    saveDeviceSN(commandToLED.dat2 * 256u + commandToLED.dat3);
    SendWriteRs232Command();
}

void readSerialNumber()
{
    answerWord(getDeviceSN());
}
