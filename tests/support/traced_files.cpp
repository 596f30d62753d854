#include "tests/support/traced_files.h"

#include <cstdarg>
#include <cstdio>

#include "storage/fatfs.h"

TracedFiles tracedFiles;

namespace {

[[gnu::format(printf, 1, 2)]] void note(const char *format, ...)
{
    if (!tracedFiles.isNoted) {
        return;
    }
    std::va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
}

bool isDue(int &count)
{
    return count > 0 && --count == 0;
}

} // namespace

// The names are those of sd_open(), sd_unlink(), f_read(), f_write() and f_close().
extern "C" {
uint32_t __real__Z7sd_openPP8_IO_FILEPKcj(FileHandle *handle, const char *name, uint32_t mode);
uint32_t __wrap__Z7sd_openPP8_IO_FILEPKcj(FileHandle *handle, const char *name, uint32_t mode);
uint32_t __real__Z9sd_unlinkPKc(const char *name);
uint32_t __wrap__Z9sd_unlinkPKc(const char *name);
uint32_t __real__Z6f_readPP8_IO_FILEPvjPj(FileHandle *handle, void *buffer, uint32_t count,
                                          uint32_t *done);
uint32_t __wrap__Z6f_readPP8_IO_FILEPvjPj(FileHandle *handle, void *buffer, uint32_t count,
                                          uint32_t *done);
uint32_t __real__Z7f_writePP8_IO_FILEPKvjPj(FileHandle *handle, const void *buffer, uint32_t count,
                                            uint32_t *done);
uint32_t __wrap__Z7f_writePP8_IO_FILEPKvjPj(FileHandle *handle, const void *buffer, uint32_t count,
                                            uint32_t *done);
uint32_t __real__Z7f_closePP8_IO_FILE(FileHandle *handle);
uint32_t __wrap__Z7f_closePP8_IO_FILE(FileHandle *handle);

uint32_t __wrap__Z7sd_openPP8_IO_FILEPKcj(FileHandle *handle, const char *name, uint32_t mode)
{
    note("<open %s %u>", name, mode);
    if (tracedFiles.beforeOpen) {
        tracedFiles.beforeOpen(name);
    }
    return __real__Z7sd_openPP8_IO_FILEPKcj(handle, name, mode);
}

uint32_t __wrap__Z9sd_unlinkPKc(const char *name)
{
    note("<unlink %s>", name);
    return __real__Z9sd_unlinkPKc(name);
}

uint32_t __wrap__Z6f_readPP8_IO_FILEPvjPj(FileHandle *handle, void *buffer, uint32_t count,
                                          uint32_t *done)
{
    note("<read %u>", count);
    if (isDue(tracedFiles.readsToFailure)) {
        return kFileFailed;
    }
    return __real__Z6f_readPP8_IO_FILEPvjPj(handle, buffer, count, done);
}

uint32_t __wrap__Z7f_writePP8_IO_FILEPKvjPj(FileHandle *handle, const void *buffer, uint32_t count,
                                            uint32_t *done)
{
    note("<write %u>", count);
    if (isDue(tracedFiles.writesToFailure)) {
        return kFileFailed;
    }
    return __real__Z7f_writePP8_IO_FILEPKvjPj(
        handle, buffer, isDue(tracedFiles.writesToShortOne) ? count - 1 : count, done);
}

uint32_t __wrap__Z7f_closePP8_IO_FILE(FileHandle *handle)
{
    note("<close>");
    return __real__Z7f_closePP8_IO_FILE(handle);
}
}
