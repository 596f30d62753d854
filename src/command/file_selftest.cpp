#include "command/file_selftest.h"

#include <cstdio>

#include "command/setting.h"
#include "storage/fatfs.h"

namespace {

// Opens "test.bin", transfers `count` bytes, closes it and prints the result. False on failure.
bool transferTestFile(uint32_t mode, uint32_t count,
                      uint32_t (*transfer)(FileHandle *file, uint32_t count, uint32_t *done),
                      const char *what)
{
    FileHandle file = nullptr;
    const uint32_t opened = sd_open(&file, "test.bin", mode);
    if (opened != kFileOk) {
        std::printf("open test.bin error = %u\r\n", opened);
        return false;
    }
    uint32_t done = 0;
    const uint32_t result = transfer(&file, count, &done);
    f_close(&file);
    if (result != kFileOk || done != count) {
        std::printf("%s error = %u, btw = %u\r\n", what, result, done);
        return false;
    }
    std::printf("test file %s success = %u\r\n", what, done);
    return true;
}

} // namespace

void testSD_readWriteFile(int32_t count)
{
    const bool isInRange = count >= 0 && count <= static_cast<int32_t>(kBufferSize);
    const uint32_t length = isInRange ? static_cast<uint32_t>(count) : kBufferSize;
    for (uint32_t i = 0; i < kBufferSize; ++i) {
        buffer[i] = static_cast<uint8_t>(i);
    }
    const auto write = [](FileHandle *file, uint32_t size, uint32_t *done) {
        return f_write(file, buffer, size, done);
    };
    const auto read = [](FileHandle *file, uint32_t size, uint32_t *done) {
        return f_read(file, buffer, size, done);
    };
    if (!transferTestFile(kCreateAlways, length, write, "write") ||
        !transferTestFile(kRead, length, read, "read")) {
        return;
    }
    for (uint32_t i = 0; i < length; ++i) {
        if (buffer[i] != static_cast<uint8_t>(i)) {
            std::printf("buffer[%u] = %d\r\n", i, buffer[i]);
            return;
        }
    }
    std::puts("check test data success\r");
}
