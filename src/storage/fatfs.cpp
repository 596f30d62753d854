#include "storage/fatfs.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// State: the one handle of the operations that read whole files.
FileHandle USERFile;

constexpr mode_t kAnyone = 0666; // less the umask, as fopen() makes files

// Requires: `out` has kPathSize bytes.
void settingsPath(char *out, const char *name)
{
    const int length = std::snprintf(out, kPathSize, "%s%s", USERPath, name);
    if (length < 0 || static_cast<uint32_t>(length) >= kPathSize) {
        out[0] = '\0';
    }
}

// How a mode opens a file. `stream` is null for a mode that opens nothing.
struct Opening {
    const char *stream;
    int flags;
};

Opening openingOf(uint32_t mode)
{
    if ((mode & (kCreateAlways | kCreateNew)) != 0) {
        return {"w", O_WRONLY | O_CREAT | O_TRUNC};
    }
    if ((mode & kRead) != 0) {
        return {"r", O_RDONLY};
    }
    if ((mode & (kOpenAlways | kAppend)) != 0) {
        return {"a", O_WRONLY | O_CREAT | O_APPEND};
    }
    return {nullptr, 0};
}

// Opens a regular file, or returns -1. Programs that the daemon starts do not inherit it.
int openRegular(const char *path, int flags)
{
    // Without O_NONBLOCK the opening of a FIFO would wait for its other end. It does nothing to a
    // regular file.
    const int file = open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kAnyone);
    struct stat status {};
    if (file >= 0 && (fstat(file, &status) != 0 || !S_ISREG(status.st_mode))) {
        close(file);
        return -1;
    }
    return file;
}

// Returns the number of bytes that the file system took.
uint32_t writeAll(int file, const void *buffer, uint32_t length)
{
    const auto *const bytes = static_cast<const uint8_t *>(buffer);
    uint32_t done = 0;
    while (done < length) {
        const ssize_t taken = write(file, bytes + done, length - done);
        if (taken > 0) {
            done += static_cast<uint32_t>(taken);
        } else if (taken == 0 || errno != EINTR) {
            break;
        }
    }
    return done;
}

// Replaces the content of a file and waits for the disk. Returns the number of bytes that the file
// system took; if it did not take all, what was there stays after them.
uint32_t replaceContent(int file, const void *buffer, uint32_t length)
{
    const uint32_t done = writeAll(file, buffer, length);
    struct stat status {};
    if (done == length && fstat(file, &status) == 0 &&
        status.st_size > static_cast<off_t>(length)) {
        // Dropped: a file that stays longer is loaded all the same, with a message.
        [[maybe_unused]] const int result = ftruncate(file, static_cast<off_t>(length));
    }
    fdatasync(file); // dropped: a disk that fails is not reported, as one that is full is not
    return done;
}

// The directory of the file at `path`. Requires: `path` has a slash; `out` has kPathSize bytes.
void directoryOf(char *out, const char *path)
{
    std::memcpy(out, path, std::strlen(path) + 1);
    std::strrchr(out, '/')[1] = '\0';
}

// Whether nothing has this name, not even a link to nowhere.
bool isFree(const char *path)
{
    struct stat status {};
    return lstat(path, &status) != 0;
}

// Opens a file that has no name. Such a file vanishes unless nameFile() gives it one.
int openUnnamed(const char *path)
{
    char directory[kPathSize];
    directoryOf(directory, path);
    return openRegular(directory, O_WRONLY | O_TMPFILE);
}

bool isUnnamed(int file)
{
    struct stat status {};
    return fstat(file, &status) == 0 && status.st_nlink == 0;
}

// Gives an unnamed file its name. False where /proc is not mounted.
bool nameFile(int file, const char *path)
{
    char self[32];
    std::snprintf(self, sizeof self, "/proc/self/fd/%d", file);
    if (linkat(AT_FDCWD, self, AT_FDCWD, path, AT_SYMLINK_FOLLOW) != 0) {
        return false;
    }
    char directory[kPathSize];
    directoryOf(directory, path);
    const int opened = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (opened >= 0) {
        fsync(opened); // dropped: at worst, a power cut soon after takes the file away again
        close(opened);
    }
    return true;
}

} // namespace

uint32_t f_open(FileHandle *handle, const char *path, uint32_t mode)
{
    const Opening opening = openingOf(mode);
    if (opening.stream == nullptr) {
        return kFileBadMode;
    }
    const int file = openRegular(path, opening.flags);
    *handle = file < 0 ? nullptr : fdopen(file, opening.stream);
    if (*handle == nullptr) {
        if (file >= 0) {
            close(file);
        }
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

uint32_t sd_beginSave(SaveFile *file, const char *name)
{
    char path[kPathSize];
    settingsPath(path, name);
    *file = openRegular(path, O_WRONLY);
    if (*file < 0 && path[0] != '\0' && isFree(path)) {
        *file = openUnnamed(path);
    }
    if (*file < 0) { // not every file system has unnamed files
        *file = openRegular(path, O_WRONLY | O_CREAT);
    }
    if (*file < 0) {
        std::printf("open file %s error\n", path);
        return kFileFailed;
    }
    return kFileOk;
}

uint32_t sd_endSave(SaveFile *file, const char *name, const void *buffer, uint32_t length,
                    uint32_t *done)
{
    if (*file < 0) {
        return kFileFailed;
    }
    char path[kPathSize];
    settingsPath(path, name);
    *done = replaceContent(*file, buffer, length);
    if (*done == length && isUnnamed(*file) && !nameFile(*file, path)) {
        const int named = openRegular(path, O_WRONLY | O_CREAT);
        *done = named < 0 ? 0 : replaceContent(named, buffer, length);
        close(*file);
        *file = named;
    }
    if (*file >= 0) {
        close(*file);
    }
    *file = -1;
    return kFileOk;
}

int32_t sd_writeFile(const char *name, const void *buffer, uint32_t length)
{
    SaveFile file = -1;
    if (sd_beginSave(&file, name) != kFileOk) {
        std::printf("open file %s fail\r\n", name);
        return 0;
    }
    uint32_t done = 0;
    if (sd_endSave(&file, name, buffer, length, &done) != kFileOk) { // only a closed file fails
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
