#include "transport/uart.h"

#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <unistd.h>

#include "command/channel.h"
#include "transport/serial.h"

namespace {

constexpr uint32_t kPorts = 2;
constexpr uint32_t kReceiveBuffer = 20480; // a whole burst is passed on in one call
constexpr useconds_t kPollUs = 1000;

constexpr const char *DEV_NAME[kPorts] = {"/dev/ttyS0", "/dev/ttyS1"};

// State: the descriptor of each port, 0 before it is opened. Written by UARTInit before the port's
// thread exists.
int32_t fd[kPorts];

// A port 2 would be a fast link whose bytes are only counted. DEV_NAME has no such port, so neither
// its set-up nor its counting is reached; both stay for a board that has one.
constexpr uintptr_t kFastPort = 2;
uint32_t fastPortCount; // written by that port's thread only

void *portArgument(uint32_t port)
{
    return reinterpret_cast<void *>(static_cast<uintptr_t>(port));
}

} // namespace

int32_t UARTInit(uint32_t port)
{
    if (port >= kPorts) {
        return std::printf("UARTInit error port = %d\n", static_cast<int>(port));
    }
    fd[port] = serial_open(DEV_NAME[port]);
    const int32_t baud = port == kFastPort ? 1500000 : 115200;
    const int32_t result = serial_set(fd[port], baud, 8, 'N', 1);
    if (result < 0) {
        return result;
    }
    pthread_t thread;
    if (pthread_create(&thread, nullptr, uart_receive_fun, portArgument(port)) == 0) {
        pthread_detach(thread);
    }
    return std::printf("==kel UARTInit DEV_NAME[%d]:%s\n", static_cast<int>(port), DEV_NAME[port]);
}

int32_t UARTSendBuffer(int32_t port, const uint8_t *bytes, int32_t length)
{
    if (port < 0 || port >= static_cast<int32_t>(kPorts)) {
        return std::printf("UARTSendBuffer error port = %d\n", port);
    }
    const uint32_t size = length < 0 ? 0 : static_cast<uint32_t>(length);
    const int32_t written = serial_write(fd[port], bytes, size);
    if (written < length) {
        return std::printf("uart%d write data error len=%d, size=%d\n", port, written, length);
    }
    return written;
}

void *uart_receive_fun(void *argument)
{
    const uintptr_t port = reinterpret_cast<uintptr_t>(argument);
    const int32_t descriptor = port < kPorts ? fd[port] : -1; // reads nothing from a port not there
    uint8_t buffer[kReceiveBuffer];
    std::memset(buffer, 0, sizeof buffer);
    std::printf("uart_receive_fun %d\n", static_cast<int>(port));
    for (;;) {
        const ssize_t length = read(descriptor, buffer, sizeof buffer);
        if (length < 1) {
            usleep(kPollUs);
            continue;
        }
        if (port == 0) {
            IsrReceiveBuffer(kChannelSerial, 0, buffer, static_cast<uint32_t>(length));
        } else if (port == kFastPort) {
            fastPortCount += static_cast<uint32_t>(length);
        }
    }
}

void UART_test_tx()
{
    for (;;) {
        UARTSendBuffer(0, reinterpret_cast<const uint8_t *>("hello "), 6);
        sleep(1);
    }
}

void UART_test_rx()
{
    char buffer[kReceiveBuffer];
    for (;;) {
        const ssize_t length = read(fd[0], buffer, sizeof buffer - 1);
        if (length > 0) {
            buffer[length] = '\0';
            std::fputs(buffer, stdout); // as it is: what the line sends must never act as a format
        } else {
            std::puts("no thing");
        }
        sleep(1);
    }
}
