#include "core/main.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
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

// If a standard stream is a pipe or a socket, writes on it fail when there is no room, instead of
// waiting. Streams print a line in one write and drop what fails, and a pipe or a local socket
// takes up to PIPE_BUF bytes whole or not at all: so whole lines are lost. A terminal or a file
// stays as it is.
void neverWaitFor(int descriptor)
{
    struct stat status {};
    if (fstat(descriptor, &status) != 0 ||
        (!S_ISFIFO(status.st_mode) && !S_ISSOCK(status.st_mode))) {
        return;
    }
    // A pipe that is opened anew gets flags of its own. Those of the old description belong to all
    // that share it, as the program that started the daemon may.
    char path[32];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor);
    int own = open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (own < 0 && S_ISFIFO(status.st_mode)) { // nobody reads it yet, so be its reader meanwhile
        const int reader = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (reader >= 0) {
            own = open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            close(reader);
        }
    }
    if (own >= 0) {
        dup2(own, descriptor);
        close(own);
        return;
    }
    // A socket cannot be opened, nor anything without /proc.
    fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
}

// A console that is closed, was never open, is a pipe to a log or has no reader must neither end
// the daemon nor delay it or its messages.
void prepareConsole()
{
    // If a standard stream were closed, the serial line or the socket would get its descriptor, and
    // the messages would go there.
    int descriptor;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0) {
        close(descriptor);
    }
    neverWaitFor(STDOUT_FILENO);
    neverWaitFor(STDERR_FILENO);
    // A handler rather than SIG_IGN, which the programs that the daemon starts would inherit.
    // The results are dropped: with valid arguments neither call fails, and the daemon would run
    // on.
    struct sigaction action {};
    action.sa_handler = ignoreSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGPIPE, &action, nullptr);
    setvbuf(stdout, nullptr, _IOLBF, 0);
}

} // namespace

int32_t initAll()
{
    MX_FATFS_Init();            // makes the directory that the last step reads
    InitRs232CommandVariable(); // before UARTInit, whose reader thread fills the channels
    udp_receive_pipe_init();    // before udpecho_init, whose receive thread fills the pipes
    malloc_saveView();          // not a constraint: loadAllUserPref would take the blocks too
    // The threads start before the settings are loaded, so that nothing received early is lost.
    // They do not use the settings.
    udpecho_init();
    UARTInit(0);
    return loadAllUserPref();
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
    initAll(); // dropped: the daemon also runs without stored settings
    std::puts("enter main");
    for (;;) {
        TaskCommand();
        delayCall_task();
        udp2uart_task();
        if (isUpdateProgram() != 0) {
            continue; // no pause: blocks arrive at the full speed of the line
        }
        TaskControl();
        IdleTask();
        SysDelay1ms(1);
    }
}
