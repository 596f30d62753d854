#include "transport/uart.h"

#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <unistd.h>

#include "command/channel.h"
#include "transport/serial.h"

namespace {

constexpr uint32_t kPorts = 2;
constexpr useconds_t kPollUs = 1000;

constexpr const char *DEV_NAME[kPorts] = {"/dev/ttyS0", "/dev/ttyS1"};

// State: the descriptor of each port; 0 before UARTInit, -1 if the device cannot be opened. Written
// by UARTInit before the port's thread exists.
int32_t fd[kPorts];

// Port 2 would be a fast link whose bytes are only counted. DEV_NAME has no port 2, so neither its
// set-up nor its counting is reached. Both are kept for a board that has one.
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
    const int error = pthread_create(&thread, nullptr, uart_receive_fun, portArgument(port));
    if (error != 0) { // nothing will be received, but the daemon still bridges and sends
        return std::fprintf(stderr, "UARTInit: no reader thread for %s: %s\n", DEV_NAME[port],
                            std::strerror(error));
    }
    pthread_detach(thread);
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

int32_t UARTReceiveBuffer(uint32_t port, void *buffer, uint32_t size)
{
    const int32_t descriptor = port < kPorts ? fd[port] : -1; // -1: read() fails
    return static_cast<int32_t>(read(descriptor, buffer, size));
}

void *uart_receive_fun(void *argument)
{
    const uintptr_t port = reinterpret_cast<uintptr_t>(argument);
    uint8_t buffer[kUartReceiveBuffer];
    std::memset(buffer, 0, sizeof buffer);
    std::printf("uart_receive_fun %d\n", static_cast<int>(port));
    for (;;) {
        const int32_t length =
            UARTReceiveBuffer(static_cast<uint32_t>(port), buffer, sizeof buffer);
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
