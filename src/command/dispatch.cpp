// The command table and its lookup, and the handlers of the commands that a frame carries whole.
// The others have theirs in files of their own. CONTRIBUTING.md says how a command is added.

#include "command/dispatch.h"

#include <cstddef>
#include <cstdio>
#include <iterator>

#include "command/reply.h"
#include "command/setting.h"
#include "command/unsupported.h"
#include "command/update.h"
#include "control/ip.h"
#include "core/memory.h"
#include "storage/DeviceInfo.h"
#include "storage/UserPref.h"

uint32_t uart0Touart;

namespace {

// 10, 68 and 6A: the device -----------------------------------------------------------------------

constexpr uint8_t kDeviceType[] = {0x26, 0x33};
constexpr uint8_t kProtocolVersion[] = {1, 10};

void answerWord(uint32_t value)
{
    SendAnswer(static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value), 0);
}

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

// 84 to 8E: the network settings. An address is dat1 to dat4 in dotted order ----------------------

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

void readNetMask()
{
    answerAddress(GetNetMask);
}

void writeNetMask()
{
    setAddress(SetNetMask);
    readNetMask();
}

void readIpAddress()
{
    read_ip();
    answerAddress(GetIpAddress);
}

void writeIpAddress()
{
    setAddress(SetIpAddress);
    isSetIp = 1; // keeps read_ip() from bringing the interface's old address back
    readIpAddress();
}

void readGateway()
{
    answerAddress(GetDefGW);
}

void writeGateway()
{
    setAddress(SetDefGW);
    readGateway();
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

// The table ---------------------------------------------------------------------------------------

// Executes the command in commandToLED and answers it.
using Handler = void (*)();

void refuse()
{
    SendAckOrNack(kNak);
}

// The protocol has no answer here, not even a refusal.
void staySilent() {}

constexpr uint16_t kAny = 0x100; // a dat1 that matches every byte

struct Row {
    uint8_t command;
    uint16_t dat1;
    Handler handler;
};

// The first matching row is used. A command without a row is unknown and is refused.
// clang-format off
constexpr Row kTable[] = {
//   code  dat1  handler                     what
    // 0x00 to 0x0F unassigned
    {0x10, 0x11, printMemoryUse},          // print memory use
    {0x10, kAny, refuse},
    // 0x11 to 0x67 unassigned
    {0x68, 0x01, readDeviceType},          // read device type
    {0x68, kAny, refuse},
    // 0x69 unassigned
    {0x6A, 0x03, readProtocolVersion},     // read protocol version
    {0x6A, 0x04, readSystemVersion},       // read system version
    {0x6A, 0x10, writeSerialNumber},       // write serial number
    {0x6A, 0x11, readSerialNumber},        // read serial number
    {0x6A, kAny, CommandErrorTask},        // the same frame as refuse; named as in the protocol
    // 0x6B to 0x72 unassigned
    {0x73, kAny, WrInputSource},           // input source (unsupported)
    {0x74, kAny, WrOutputFormat},          // output format (unsupported)
    {0x75, kAny, WrLayerSetting},          // layer setting (unsupported)
    {0x76, kAny, WrOutputSetting},         // output setting (unsupported)
    {0x77, kAny, WrInputSetting},          // input setting (unsupported)
    {0x78, kAny, WrSwitchSetting},         // switch setting (unsupported)
    // 0x79 to 0x7C unassigned
    {0x7D, kAny, WrTpMode},                // test pattern (unsupported)
    // 0x7E to 0x83 unassigned
    {0x84, kAny, writeNetMask},            // write net mask
    {0x85, kAny, readNetMask},             // read net mask
    {0x86, kAny, WRHdmiOutDeTask},         // HDMI output DE (unsupported)
    // 0x87 unassigned
    {0x88, kAny, writeIpAddress},          // write IP address
    {0x89, kAny, readIpAddress},           // read IP address
    // 0x8A unassigned
    {0x8B, kAny, cmd_timeControl_task},    // time control (unsupported)
    {0x8C, kAny, writeGateway},            // write gateway
    {0x8D, kAny, readGateway},             // read gateway
    {0x8E, 0x02, writeDhcp},               // write DHCP
    {0x8E, 0x03, readDhcp},                // read DHCP
    {0x8E, 0x05, readMacFirstHalf},        // read MAC address, first half
    {0x8E, 0x07, readMacSecondHalf},       // read MAC address, last half
    {0x8E, kAny, staySilent},              // no answer
    // 0x8F to 0x96 unassigned
    {0x97, kAny, cmd_workTime_task},       // work time (unsupported)
    // 0x98 and 0x99 unassigned
    {0x9A, kAny, SoftwareUpdate},          // firmware update
    // 0x9B to 0xEF unassigned
    {0xF0, kAny, writeDataSetting},        // write data
    {0xF1, kAny, readDataSetting},         // read data
    {0xF2, kAny, writeStringValueSetting}, // write text
    {0xF3, kAny, readStringValueSetting},  // read text
    // 0xF4 to 0xFF unassigned
};
// clang-format on

// Codes rise, and dat1 rises within a code. So the row for any dat1, which would hide the rows
// after it, is the last of its code.
constexpr bool rowsRise()
{
    for (size_t i = 1; i < std::size(kTable); ++i) {
        const Row &before = kTable[i - 1];
        const Row &row = kTable[i];
        if (row.command < before.command ||
            (row.command == before.command && row.dat1 <= before.dat1)) {
            return false;
        }
    }
    return true;
}
static_assert(rowsRise());

Handler findHandler(uint8_t command, uint8_t dat1)
{
    for (const Row &row : kTable) {
        if (row.command == command && (row.dat1 == kAny || row.dat1 == dat1)) {
            return row.handler;
        }
    }
    return refuse;
}

// The only command that is executed in pass-through mode.
bool isPassThroughCommand(const Rs232Command &request)
{
    return request.address == 0 && request.command == 0x68 && request.dat1 == 0x40;
}

} // namespace

void processCmdData()
{
    // A handler that changes nothing echoes the request.
    commandFromLED.command = commandToLED.command;
    commandFromLED.dat1 = commandToLED.dat1;
    commandFromLED.dat2 = commandToLED.dat2;
    commandFromLED.dat3 = commandToLED.dat3;
    commandFromLED.dat4 = commandToLED.dat4;
    if (uart0Touart != 0 && !isPassThroughCommand(commandToLED)) {
        return;
    }
    findHandler(commandToLED.command, commandToLED.dat1)();
}
