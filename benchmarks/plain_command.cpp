#include "benchmarks/plain_command.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <unistd.h>

namespace {

constexpr uint32_t kBuffer = 4096;
constexpr uint32_t kRecord = 8;
constexpr uint32_t kFrame = 19;

// Shared by both threads, under the mutex.
pthread_mutex_t bufferMutex = PTHREAD_MUTEX_INITIALIZER;
uint8_t buffer[kBuffer];
uint32_t buffered;

// Main thread only.
uint8_t taken[kBuffer];
char frame[kFrame];
uint32_t frameCount;

uint8_t digit(char c)
{
    if (c >= '0' && c <= '9') {
        return static_cast<uint8_t>(c - '0');
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<uint8_t>(c - 'a' + 10);
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<uint8_t>(c - 'A' + 10);
    }
    return 0;
}

uint8_t sumOf(const uint8_t *record)
{
    uint8_t sum = 0;
    for (uint32_t i = 0; i < kRecord - 1; ++i) {
        sum = static_cast<uint8_t>(sum + record[i]);
    }
    return sum;
}

void answer(int line, uint8_t *record, uint8_t dat2, uint8_t dat3, uint8_t dat4)
{
    static const char digits[] = "0123456789abcdef";
    char reply[kFrame] = {'<', 'F'};
    record[4] = dat2;
    record[5] = dat3;
    record[6] = dat4;
    record[7] = sumOf(record);
    for (uint32_t i = 0; i < kRecord; ++i) {
        reply[2 + 2 * i] = digits[record[i] >> 4];
        reply[3 + 2 * i] = digits[record[i] & 15];
    }
    reply[kFrame - 1] = '>';
    if (write(line, reply, kFrame) != static_cast<ssize_t>(kFrame)) {
        std::puts("write error");
    }
}

void execute(int line)
{
    uint8_t record[kRecord];
    if (frame[1] != 'T' || frame[kFrame - 1] != '>') {
        return;
    }
    for (uint32_t i = 0; i < kRecord; ++i) {
        record[i] = static_cast<uint8_t>(digit(frame[2 + 2 * i]) << 4 | digit(frame[3 + 2 * i]));
    }
    if (record[7] != sumOf(record)) {
        std::puts("error checksum");
        record[3] = 0xFF;
        answer(line, record, 0xFF, 0xFF, 0xFF);
    } else if (record[2] == 0x68 && record[3] == 0x01) {
        std::puts("read device type");
        answer(line, record, 0x26, 0x33, 0);
    } else if (record[2] == 0x6A && record[3] == 0x03) {
        answer(line, record, 1, 10, 0);
    } else if (record[2] == 0x6A && record[3] == 0x11) {
        answer(line, record, 0, 0, 0);
    } else {
        record[3] = 0xFF;
        answer(line, record, 0xFF, 0xFF, 0xFF);
    }
}

} // namespace

void plainReceive(const uint8_t *bytes, uint32_t count)
{
    pthread_mutex_lock(&bufferMutex);
    count = std::min(count, kBuffer - buffered);
    std::memcpy(buffer + buffered, bytes, count);
    buffered += count;
    pthread_mutex_unlock(&bufferMutex);
}

void plainPass(int line)
{
    pthread_mutex_lock(&bufferMutex);
    const uint32_t count = buffered;
    std::memcpy(taken, buffer, count);
    buffered = 0;
    pthread_mutex_unlock(&bufferMutex);
    for (uint32_t i = 0; i < count; ++i) {
        const char c = static_cast<char>(taken[i]);
        if (c == '<') {
            frameCount = 0;
        } else if (frameCount == 0) {
            continue; // not in a frame
        }
        frame[frameCount++] = c;
        if (frameCount == kFrame) {
            frameCount = 0;
            execute(line);
        }
    }
}
