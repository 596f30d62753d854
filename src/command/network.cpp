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
    isSetIp = 1; // keeps read_ip() from bringing the interface's old address back
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
    SendAnswer(getUserPref()->dhcpEnable, 0, 0);
}

void readMacFirstHalf()
{
    const uint8_t *const mac = getUserPref()->mac;
    SendAnswer(mac[0], mac[1], mac[2]);
}

void readMacSecondHalf()
{
    const uint8_t *const mac = getUserPref()->mac;
    SendAnswer(mac[3], mac[4], mac[5]);
}
