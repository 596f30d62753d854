// The demo device's serial line: stands in for src/transport/serial.cpp, and for the reader thread
// of src/transport/uart.cpp, as a page has no threads.

#include "transport/serial.h"

#include <algorithm>
#include <cstdio>
#include <pthread.h>
#include <unistd.h>

#include "command/channel.h"
#include "imports.h"

namespace {

constexpr int32_t kLine = 100; // no file has this descriptor
constexpr uint32_t kChunk = 256;
constexpr useconds_t kChunkPauseUs = 80000;

uint8_t input[1024]; // bytes on their way to the device; the page writes them

} // namespace

int32_t serial_open(const char *path)
{
    std::printf("Open %s ......\n", path);
    return kLine;
}

int32_t serial_set(int32_t, int32_t, int32_t, char, int32_t)
{
    std::printf("%s success !\n", "serial_set");
    return 0;
}

int32_t serial_write(int32_t, const uint8_t *bytes, uint32_t length)
{
    if (length == 0) {
        std::printf("Write byte number error !\n");
        return 0;
    }
    for (uint32_t done = 0; done < length;) {
        const uint32_t chunk = std::min(length - done, kChunk);
        demo_send(bytes + done, chunk);
        if (chunk == kChunk) {
            usleep(kChunkPauseUs);
        }
        done += chunk;
    }
    return static_cast<int32_t>(length);
}

// For the page -----------------------------------------------------------------------------------

extern "C" {

// Where the page puts up to 1024 bytes before it calls demo_arrived().
uint8_t *demo_input()
{
    return input;
}

// What the reader thread does with bytes. Called in a pause only. Never pauses itself.
void demo_arrived(uint32_t length)
{
    IsrReceiveBuffer(kChannelSerial, 0, input, std::min<uint32_t>(length, sizeof input));
}

// The daemon is told that its thread runs.
int __wrap_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)
{
    return 0;
}

int __wrap_pthread_detach(pthread_t)
{
    return 0;
}
}
