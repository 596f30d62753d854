#include "command/payload.h"

#include <cstdio>

#include "command/channel.h"
#include "command/frame.h"
#include "core/pipe.h"
#include "core/systick.h"

namespace {

constexpr uint32_t kPollMs = 2;

// Waits until the channel has bytes. False when `*tries` ran out, or the slot has no memory.
bool waitForBytes(int32_t *tries)
{
    if (channel[commandFrom] == nullptr) {
        return false;
    }
    while (pipe_count(&channel[commandFrom]->pipe) == 0) {
        SysDelayMs(kPollMs);
        if (*tries < 0) {
            return false;
        }
        --*tries;
    }
    return true;
}

} // namespace

uint32_t readDataFromPC(uint8_t *bytes, uint32_t count, int32_t tries)
{
    uint32_t done = 0;
    while (done < count && waitForBytes(&tries)) {
        done += pipe_read_block(&channel[commandFrom]->pipe, bytes + done, count - done);
    }
    return done;
}

uint32_t receiveBufferFromPC(uint8_t *bytes, uint32_t length, int32_t tries)
{
    const uint32_t done = readDataFromPC(bytes, length + 1, tries);
    if (done != length + 1) {
        return done;
    }
    if (bytes[length] != SumOfBytes(bytes, length)) {
        std::puts("re checksum error\r");
        return 0;
    }
    return length;
}

uint32_t receiveStringValueFromPC(char *text, uint32_t capacity, int32_t tries)
{
    uint32_t count = 0;
    uint8_t byte;
    while (waitForBytes(&tries) && pipe_read(&channel[commandFrom]->pipe, &byte) != 0) {
        const char character = static_cast<char>(byte);
        if (count == 0 && character != '[') {
            return 0;
        }
        if (count < capacity) {
            text[count] = character;
        }
        ++count;
        if (character == ']') {
            break;
        }
    }
    return count;
}
