#include "core/main.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "command/reception.h"
#include "command/update.h"
#include "control/control.h"
#include "core/DelayCall.h"
#include "core/systick.h"
#include "storage/UserSetting.h"
#include "storage/fatfs.h"
#include "storage/load_all.h"
#include "transport/bridge.h"
#include "transport/bridge_pipes.h"
#include "transport/uart.h"
#include "transport/udpecho.h"

char **exec_argv;

namespace {

// State of IdleTask, its only user.
enum : uint8_t { kIdleNotStarted, kIdleCounting };
uint8_t idleState;        // one of the above
uint32_t idleStartTiming; // tick at which the current window began
uint32_t idleCount;       // passes in the current window

constexpr uint32_t kIdleWindowMs = 1000;

void ignoreSignal(int) {}

// A console that is closed, was never open, or is a pipe to a log must neither end the daemon nor
// delay its messages.
void prepareConsole()
{
    // If a standard stream were missing, the line or the socket would get its number, and the
    // messages would go there.
    int descriptor;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0) {
        close(descriptor);
    }
    // A handler and not SIG_IGN, because the programs that the daemon starts would inherit that.
    struct sigaction action {};
    action.sa_handler = ignoreSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGPIPE, &action, nullptr);
    setvbuf(stdout, nullptr, _IOLBF, 0);
}

} // namespace

int32_t initAll()
{
    MX_FATFS_Init();            // before the loaders of the last step, which read the directory
    InitRs232CommandVariable(); // before UARTInit, whose reader thread fills the channels
    udp_receive_pipe_init();    // before udpecho_init, whose receive thread fills the pipes
    malloc_saveView();
    udpecho_init();           // before the settings are loaded, so that early datagrams are kept
    UARTInit(0);              // the same for early bytes from the line
    return loadAllUserPref(); // after the threads have started: they do not use the settings
}

void IdleTask()
{
    switch (idleState) {
    case kIdleNotStarted:
        idleStartTiming = GetSysTick();
        idleCount = 0;
        idleState = kIdleCounting;
        break;
    case kIdleCounting:
        ++idleCount;
        if (isSysTickTimeout(static_cast<int32_t>(idleStartTiming), kIdleWindowMs) != 0) {
            idleStartTiming = GetSysTick();
            idleCount = 0;
        }
        break;
    default:
        idleState = kIdleNotStarted;
        break;
    }
}

int main(int, char **argv)
{
    exec_argv = argv;
    prepareConsole();
    initAll(); // its result says only whether settings were found; the daemon runs either way
    std::puts("enter main");
    for (;;) {
        TaskCommand();
        delayCall_task();
        udp2uart_task();
        if (isUpdateProgram() != 0) {
            continue; // without a pause: blocks come as fast as the line carries them
        }
        TaskControl();
        IdleTask();
        SysDelay1ms(1);
    }
}
