#include "tests/support/traced_files.h"

#include <cstdarg>

#include "storage/fatfs.h"
#include "tests/support/replace.h"

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

REPLACE(uint32_t, _Z7sd_openPP8_IO_FILEPKcj, (FileHandle * handle, const char *name, uint32_t mode))
{
    note("<open %s %u>", name, mode);
    if (tracedFiles.beforeOpen) {
        tracedFiles.beforeOpen(name);
    }
    return REAL(_Z7sd_openPP8_IO_FILEPKcj)(handle, name, mode);
}

REPLACE(uint32_t, _Z9sd_unlinkPKc, (const char *name))
{
    note("<unlink %s>", name);
    return REAL(_Z9sd_unlinkPKc)(name);
}

REPLACE(uint32_t, _Z6f_readPP8_IO_FILEPvjPj,
        (FileHandle * handle, void *buffer, uint32_t count, uint32_t *done))
{
    note("<read %u>", count);
    return isDue(tracedFiles.readsToFailure)
               ? kFileFailed
               : REAL(_Z6f_readPP8_IO_FILEPvjPj)(handle, buffer, count, done);
}

REPLACE(uint32_t, _Z7f_writePP8_IO_FILEPKvjPj,
        (FileHandle * handle, const void *buffer, uint32_t count, uint32_t *done))
{
    note("<write %u>", count);
    if (isDue(tracedFiles.writesToFailure)) {
        return kFileFailed;
    }
    const uint32_t taken = isDue(tracedFiles.writesToShortOne) ? count - 1 : count;
    return REAL(_Z7f_writePP8_IO_FILEPKvjPj)(handle, buffer, taken, done);
}

REPLACE(uint32_t, _Z12sd_beginSavePiPKc, (SaveFile * file, const char *name))
{
    note("<open %s 10>", name);
    if (tracedFiles.beforeOpen) {
        tracedFiles.beforeOpen(name);
    }
    return REAL(_Z12sd_beginSavePiPKc)(file, name);
}

REPLACE(uint32_t, _Z10sd_endSavePiPKcPKvjPj,
        (SaveFile * file, const char *name, const void *buffer, uint32_t length, uint32_t *done))
{
    note("<write %u><close>", length);
    if (isDue(tracedFiles.writesToFailure)) {
        REAL(_Z10sd_endSavePiPKcPKvjPj)(file, name, buffer, 0, done);
        return kFileFailed;
    }
    const uint32_t taken = isDue(tracedFiles.writesToShortOne) ? length - 1 : length;
    return REAL(_Z10sd_endSavePiPKcPKvjPj)(file, name, buffer, taken, done);
}

REPLACE(uint32_t, _Z7f_closePP8_IO_FILE, (FileHandle * handle))
{
    note("<close>");
    return REAL(_Z7f_closePP8_IO_FILE)(handle);
}
