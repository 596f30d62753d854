#include "command/network.h"

#include <cstdint>

#include "command/reply.h"
#include "control/ip.h"
#include "storage/UserPref.h"

namespace {

using Setter = void (*)(const uint8_t *address);
using Getter = void (*)(uint8_t *address);

void setAddress(Setter set)
{
    const uint8_t address[] = {commandToLED.dat1, commandToLED.dat2, commandToLED.dat3,
                               commandToLED.dat4};
    set(address);
}

void answerAddress(Getter get)
{
    uint8_t address[4];
    get(address);
    SendReply(address[0], address[1], address[2], address[3]);
}

// Answers with the sub-command and three bytes.
void answer(uint8_t dat2, uint8_t dat3, uint8_t dat4)
{
    SendReply(commandToLED.dat1, dat2, dat3, dat4);
}

} // namespace

void writeNetMask()
{
    setAddress(SetNetMask);
    readNetMask();
}

void readNetMask()
{
    answerAddress(GetNetMask);
}

void writeIpAddress()
{
    setAddress(SetIpAddress);
    isSetIp = 1; // so that the interface's old address does not come back
    readIpAddress();
}

void readIpAddress()
{
    read_ip();
    answerAddress(GetIpAddress);
}

void writeGateway()
{
    setAddress(SetDefGW);
    readGateway();
}

void readGateway()
{
    answerAddress(GetDefGW);
}

void writeDhcp()
{
    setDhcp(commandToLED.dat2);
    SendWriteRs232Command();
}

void readDhcp()
{
    answer(getUserPref()->dhcpEnable, 0, 0);
}

void readMacFirstHalf()
{
    const uint8_t *const mac = getUserPref()->mac;
    answer(mac[0], mac[1], mac[2]);
}

void readMacSecondHalf()
{
    const uint8_t *const mac = getUserPref()->mac;
    answer(mac[3], mac[4], mac[5]);
}
