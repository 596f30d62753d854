#include "command/dispatch.h"

#include <cstdio>

#include "command/reply.h"
#include "command/setting.h"
#include "command/update.h"
#include "control/ip.h"
#include "core/memory.h"
#include "storage/UserPref.h"

uint32_t uart0Touart;

namespace {

constexpr uint8_t kDeviceType[] = {0x26, 0x33};
constexpr uint8_t kProtocolVersion[] = {1, 10};

// What a command does and answers. The reply starts as a copy of the request.
using Handler = void (*)();

void refuse()
{
    SendAckOrNack(kNak);
}

void printMemoryUse()
{
    mymem_print_info();
    SendAckOrNack(kAck);
}

// Answers with the sub-command and three bytes.
void answer(uint8_t dat2, uint8_t dat3, uint8_t dat4)
{
    SendReply(commandToLED.dat1, dat2, dat3, dat4);
}

// Answers with the sub-command and a 16-bit value.
void answerWord(uint32_t value)
{
    answer(static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value), 0);
}

void readDeviceType()
{
    std::puts("read device type");
    answer(kDeviceType[0], kDeviceType[1], 0);
}

void readProtocolVersion()
{
    answer(kProtocolVersion[0], kProtocolVersion[1], 0);
}

void readSystemVersion()
{
    answerWord(getSystemVersion());
}

void writeSerialNumber()
{
    saveDeviceSN(commandToLED.dat2 * 256u + commandToLED.dat3);
    SendWriteRs232Command();
}

void readSerialNumber()
{
    answerWord(getDeviceSN());
}

// The network. An address is dat1 to dat4, in dotted order. ------------------------------------

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
    isSetIp = 1;
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
    UserPref *const preferences = getUserPref();
    if (commandToLED.dat2 != preferences->dhcpEnable) {
        preferences->dhcpEnable = commandToLED.dat2;
        if (preferences->dhcpEnable != 0) {
            enable_dhcp();
        } else {
            disable_dhcp();
        }
        saveUserPref();
    }
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

// The protocol has no answer here, not even a refusal.
void staySilent() {}

constexpr uint16_t kAny = 0x100; // a dat1 that matches every byte

struct Row {
    uint8_t command;
    uint16_t dat1;
    Handler handler;
};

// The first row that matches is taken. A code without a row is unknown and refused.
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
    {0x6A, kAny, CommandErrorTask},
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

Handler findHandler(uint8_t command, uint8_t dat1)
{
    for (const Row &row : kTable) {
        if (row.command == command && (row.dat1 == kAny || row.dat1 == dat1)) {
            return row.handler;
        }
    }
    return refuse;
}

// The one command that is heard in pass-through mode.
bool isPassThroughCommand(const Rs232Command &request)
{
    return request.address == 0 && request.command == 0x68 && request.dat1 == 0x40;
}

} // namespace

void processCmdData()
{
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

void WrInputSource()
{
    SendAckOrNack(kNak);
}

void WrOutputFormat()
{
    SendAckOrNack(kNak);
}

void WrLayerSetting()
{
    SendAckOrNack(kNak);
}

void WrOutputSetting()
{
    SendAckOrNack(kNak);
}

void WrInputSetting()
{
    SendAckOrNack(kNak);
}

void WrSwitchSetting()
{
    SendAckOrNack(kNak);
}

void WrTpMode()
{
    SendAckOrNack(kNak);
}

void WRHdmiOutDeTask()
{
    SendAckOrNack(kNak);
}

void cmd_timeControl_task()
{
    SendAckOrNack(kNak);
}

void cmd_workTime_task()
{
    SendAckOrNack(kNak);
}

int32_t isSameCustomGenlockFormat_output(uint8_t)
{
    return 0;
}
