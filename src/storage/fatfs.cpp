#include "storage/fatfs.h"

#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// State: the one handle of the whole-file operations.
FileHandle USERFile;

// Requires: `out` has kPathSize bytes.
void settingsPath(char *out, const char *name)
{
    const int length = std::snprintf(out, kPathSize, "%s%s", USERPath, name);
    if (length < 0 || static_cast<uint32_t>(length) >= kPathSize) {
        out[0] = '\0';
    }
}

// The "e" keeps programs that the daemon starts from inheriting the file.
const char *streamMode(uint32_t mode)
{
    if ((mode & (kCreateAlways | kCreateNew)) != 0) {
        return "we";
    }
    if ((mode & kRead) != 0) {
        return "re";
    }
    if ((mode & (kOpenAlways | kAppend)) != 0) {
        return "ae";
    }
    return nullptr;
}

} // namespace

uint32_t f_open(FileHandle *handle, const char *path, uint32_t mode)
{
    const char *const stream = streamMode(mode);
    if (stream == nullptr) {
        return kFileBadMode;
    }
    *handle = std::fopen(path, stream);
    if (*handle == nullptr) {
        std::printf("open file %s error\n", path);
        return kFileFailed;
    }
    return kFileOk;
}

uint32_t f_close(FileHandle *handle)
{
    if (*handle == nullptr) {
        return kFileFailed;
    }
    std::fclose(*handle); // dropped: a full disk is not reported here
    *handle = nullptr;
    return kFileOk;
}

uint32_t f_unlink(const char *path)
{
    return std::remove(path) == 0 ? kFileOk : kFileFailed;
}

uint32_t f_size(FileHandle *handle)
{
    if (*handle == nullptr) {
        return 0;
    }
    // The results of seeking are dropped: on a stream that cannot seek, ftello() fails too.
    fseeko(*handle, 0, SEEK_END);
    const off_t size = ftello(*handle);
    fseeko(*handle, 0, SEEK_SET);
    return size < 0 ? 0 : static_cast<uint32_t>(size);
}

uint32_t f_read(FileHandle *handle, void *buffer, uint32_t count, uint32_t *done)
{
    if (*handle == nullptr) {
        return kFileFailed;
    }
    *done = static_cast<uint32_t>(std::fread(buffer, 1, count, *handle));
    return kFileOk;
}

uint32_t f_write(FileHandle *handle, const void *buffer, uint32_t count, uint32_t *done)
{
    if (*handle == nullptr) {
        return kFileFailed;
    }
    *done = static_cast<uint32_t>(std::fwrite(buffer, 1, count, *handle));
    return kFileOk;
}

FileName numberedFile(const char *kind, int32_t number)
{
    FileName name;
    // Dropped: the longest kind and number fit.
    std::snprintf(name.text, sizeof name.text, "%s%d.sav", kind, number);
    return name;
}

uint32_t sd_open(FileHandle *handle, const char *name, uint32_t mode)
{
    char path[kPathSize];
    settingsPath(path, name);
    if ((mode & kCreateAlways) == 0) {
        return f_open(handle, path, mode);
    }
    if (f_open(handle, path, kCreateNew | kWrite) == kFileOk) {
        return kFileOk;
    }
    // This opens nothing; it turns a failed creation into kFileBadMode.
    return f_open(handle, path, kWrite);
}

uint32_t sd_unlink(const char *name)
{
    char path[kPathSize];
    settingsPath(path, name);
    return f_unlink(path);
}

uint32_t sd_getFileSize(const char *name)
{
    if (sd_open(&USERFile, name, kRead) != kFileOk) {
        return 0;
    }
    const uint32_t size = f_size(&USERFile);
    f_close(&USERFile);
    return size;
}

uint32_t sd_readFile(const char *name, void *buffer, uint32_t capacity)
{
    if (sd_open(&USERFile, name, kRead) != kFileOk) {
        return 0;
    }
    const uint32_t size = f_size(&USERFile);
    uint32_t done = 0;
    // Dropped: only a closed handle fails. The count shows a short file.
    f_read(&USERFile, buffer, size < capacity ? size : capacity, &done);
    f_close(&USERFile);
    if (done != size) {
        std::printf("read file %s size error: fileSize=%d, readSize=%d\r\n", name,
                    static_cast<int32_t>(size), static_cast<int32_t>(done));
    }
    return size;
}

int32_t sd_writeFile(const char *name, const void *buffer, uint32_t length)
{
    if (sd_open(&USERFile, name, kCreateAlways | kWrite) != kFileOk) {
        std::printf("open file %s fail\r\n", name);
        return 0;
    }
    uint32_t done = 0;
    const uint32_t result = f_write(&USERFile, buffer, length, &done);
    f_close(&USERFile);
    if (result != kFileOk) { // only a closed handle fails
        std::printf("wirte file %s fail\r\n", name);
        return 0;
    }
    return 1;
}

int32_t CreateDir(const char *path)
{
    char part[kPathSize];
    const size_t length = std::strlen(path);
    if (length >= sizeof part) {
        return -1;
    }
    std::memcpy(part, path, length + 1);
    for (size_t i = 1; i < length; ++i) {
        if (part[i] != '/') {
            continue;
        }
        part[i] = '\0';
        if (access(part, F_OK) != 0 && mkdir(part, 0755) != 0) {
            std::puts("mkdir   error");
            return -1;
        }
        part[i] = '/';
    }
    return 0;
}

int32_t MX_FATFS_Init()
{
    return CreateDir(USERPath);
}
