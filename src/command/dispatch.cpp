#include "command/dispatch.h"

#include <cstdio>

#include "command/reply.h"
#include "core/memory.h"

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

void readDeviceType()
{
    std::puts("read device type");
    commandFromLED.dat2 = kDeviceType[0];
    commandFromLED.dat3 = kDeviceType[1];
    commandFromLED.dat4 = 0;
    SendRs232Command();
}

void readProtocolVersion()
{
    commandFromLED.dat2 = kProtocolVersion[0];
    commandFromLED.dat3 = kProtocolVersion[1];
    commandFromLED.dat4 = 0;
    SendRs232Command();
}

constexpr uint16_t kAny = 0x100; // a dat1 that matches every byte

struct Row {
    uint8_t command;
    uint16_t dat1;
    const char *what;
    Handler handler;
};

// The first row that matches is taken. A code without a row is unknown and refused.
// clang-format off
constexpr Row kTable[] = {
//   code  dat1  what                            handler
    // 0x00 to 0x0F unassigned
    {0x10, 0x11, "print memory use",             printMemoryUse},
    {0x10, kAny, "",                             refuse},
    // 0x11 to 0x67 unassigned
    {0x68, 0x01, "read device type",             readDeviceType},
    {0x68, kAny, "",                             refuse},
    // 0x69 unassigned
    {0x6A, 0x03, "read protocol version",        readProtocolVersion},
    {0x6A, kAny, "",                             CommandErrorTask},
    // 0x6B to 0x72 unassigned
    {0x73, kAny, "input source (unsupported)",   WrInputSource},
    {0x74, kAny, "output format (unsupported)",  WrOutputFormat},
    {0x75, kAny, "layer setting (unsupported)",  WrLayerSetting},
    {0x76, kAny, "output setting (unsupported)", WrOutputSetting},
    {0x77, kAny, "input setting (unsupported)",  WrInputSetting},
    {0x78, kAny, "switch setting (unsupported)", WrSwitchSetting},
    // 0x79 to 0x7C unassigned
    {0x7D, kAny, "test pattern (unsupported)",   WrTpMode},
    // 0x7E to 0x85 unassigned
    {0x86, kAny, "HDMI output DE (unsupported)", WRHdmiOutDeTask},
    // 0x87 to 0x8A unassigned
    {0x8B, kAny, "time control (unsupported)",   cmd_timeControl_task},
    // 0x8C to 0x96 unassigned
    {0x97, kAny, "work time (unsupported)",      cmd_workTime_task},
    // 0x98 to 0xFF unassigned
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
