#include "tests/fuzz/world.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <deque>

#include <fcntl.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

#include "storage/fatfs.h"

World *world;

// The state of the daemon's code: its variables are in sections of their own, see CMakeLists.txt.
extern "C" {
extern uint64_t __start_fuzz_data[] __attribute__((weak));
extern uint64_t __stop_fuzz_data[] __attribute__((weak));
extern uint64_t __start_fuzz_bss[] __attribute__((weak));
extern uint64_t __stop_fuzz_bss[] __attribute__((weak));
}

namespace {

// A part of the program's memory. The sanitizer's guards between variables are copied as well,
// which it must not notice.
class Image {
public:
    Image(uint64_t *start, uint64_t *stop)
        : start_(start),
          size_(reinterpret_cast<uintptr_t>(stop) - reinterpret_cast<uintptr_t>(start)),
          kept_(size_ / sizeof(uint64_t) + 1)
    {
        copy(kept_.data(), start_);
    }
    void putBack()
    {
        copy(start_, kept_.data());
    }

private:
    static constexpr size_t kRun = 8; // words, compared in one go

    __attribute__((no_sanitize("address", "undefined"))) void copy(uint64_t *to,
                                                                   const uint64_t *from) const
    {
        const size_t words = size_ / sizeof(uint64_t);
        size_t i = 0;
        for (; i + kRun <= words; i += kRun) {
            uint64_t difference = 0;
            for (size_t j = i; j < i + kRun; ++j) {
                difference |= to[j] ^ from[j];
            }
            for (size_t j = i; difference != 0 && j < i + kRun; ++j) {
                to[j] = from[j];
            }
        }
        auto *const last = reinterpret_cast<volatile uint8_t *>(to);
        for (i *= sizeof(uint64_t); i < size_; ++i) {
            last[i] = reinterpret_cast<const uint8_t *>(from)[i];
        }
    }

    uint64_t *start_;
    size_t size_;
    std::vector<uint64_t> kept_;
};

struct Images {
    Image data{__start_fuzz_data, __stop_fuzz_data};
    Image bss{__start_fuzz_bss, __stop_fuzz_bss};
};

Images &images()
{
    static Images *const kept = [] {
        // What the code prints is made, and goes nowhere.
        if (std::freopen("/dev/null", "w", stdout) == nullptr) {
            std::abort();
        }
        static char room[65536];
        std::setvbuf(stdout, room, _IOFBF, sizeof room);
        return new Images;
    }();
    return *kept;
}

// What the code has taken from the heap. Blocks that it never gives back are kept for the next
// input.
struct Block {
    void *memory;
    size_t size;
    bool isTaken;
};
std::vector<Block> &heap = *new std::vector<Block>; // alive to the end: the blocks are no leak
std::deque<World::File> files;

// An open file of /userdata/. The code takes it for a stream and only hands it back.
struct OpenFile {
    World::File *file;
    size_t at;
    bool isOpen;
};
OpenFile openFiles[8];

FileHandle handleOf(OpenFile *file)
{
    return reinterpret_cast<FileHandle>(file);
}

OpenFile *openFile(FileHandle handle)
{
    auto *const file = reinterpret_cast<OpenFile *>(handle);
    MUST_HOLD(file >= std::begin(openFiles) && file < std::end(openFiles) && file->isOpen);
    return file;
}

bool fails(uint8_t fault)
{
    return (world->faults & fault) != 0;
}

uint32_t store(World::File *file, size_t at, const void *buffer, uint32_t count)
{
    if (fails(World::kDiskFull)) {
        count = std::min<uint32_t>(count, 100);
    }
    // All of it is read, so that the sanitizer sees a buffer that is too short.
    file->content.replace(std::min(at, file->content.size()), count,
                          static_cast<const char *>(buffer), count);
    return count;
}

World::File *make(std::string_view name)
{
    for (World::File &file : files) {
        if (file.name == name) {
            file.exists = true;
            return &file;
        }
    }
    files.push_back({std::string(name), {}, true});
    return &files.back();
}

// Streams of the tools and of files outside /userdata/.
struct Stream {
    std::string_view unread;
};
Stream streams[4];
std::FILE *openStreams[4];

ssize_t readStream(void *cookie, char *out, size_t size)
{
    auto *const stream = static_cast<Stream *>(cookie);
    const size_t count = std::min(size, stream->unread.size());
    std::memcpy(out, stream->unread.data(), count);
    stream->unread.remove_prefix(count);
    return static_cast<ssize_t>(count);
}

ssize_t writeStream(void *, const char *bytes, size_t size)
{
    if (world->written != nullptr) {
        world->written->append(bytes, size);
    }
    return static_cast<ssize_t>(size);
}

int closeStream(void *)
{
    return 0;
}

std::FILE *openStream(std::string_view content, const char *mode)
{
    for (size_t i = 0; i < std::size(streams); ++i) {
        if (openStreams[i] == nullptr) {
            streams[i].unread = content;
            openStreams[i] =
                fopencookie(&streams[i], mode, {readStream, writeStream, nullptr, closeStream});
            return openStreams[i];
        }
    }
    MUST_HOLD(false); // the code forgets to close them
    return nullptr;
}

} // namespace

World::World() : timeOfDayUs(1'600'000'000'000'000)
{
    images();
    world = this;
}

void World::forget()
{
    images().data.putBack();
    images().bss.putBack();
    for (Block &block : heap) {
        block.isTaken = false;
    }
    for (OpenFile &file : openFiles) {
        file.isOpen = false;
    }
    for (std::FILE *&stream : openStreams) {
        if (stream != nullptr) {
            std::fclose(stream);
            stream = nullptr;
        }
    }
    errno = 0;
}

World::~World()
{
    forget();
    for (File &file : files) {
        file.exists = false;
    }
    world = nullptr;
}

World::File *World::find(std::string_view name)
{
    for (File &file : files) {
        if (file.exists && file.name == name) {
            return &file;
        }
    }
    return nullptr;
}

void World::put(std::string_view name, std::string_view content)
{
    make(name)->content.assign(content);
}

// The operations of storage/fatfs.h ---------------------------------------------------------------

uint32_t f_open(FileHandle *handle, const char *path, uint32_t mode)
{
    const std::string_view full = path;
    MUST_HOLD(full.substr(0, std::strlen(USERPath)) == USERPath);
    return sd_open(handle, path + std::strlen(USERPath), mode);
}

uint32_t f_close(FileHandle *handle)
{
    if (*handle == nullptr) {
        return kFileFailed;
    }
    openFile(*handle)->isOpen = false;
    *handle = nullptr;
    return kFileOk;
}

uint32_t f_size(FileHandle *handle)
{
    if (*handle == nullptr) {
        return 0;
    }
    OpenFile *const file = openFile(*handle);
    file->at = 0;
    return static_cast<uint32_t>(file->file->content.size());
}

uint32_t f_read(FileHandle *handle, void *buffer, uint32_t count, uint32_t *done)
{
    if (*handle == nullptr) {
        return kFileFailed;
    }
    OpenFile *const file = openFile(*handle);
    const std::string &content = file->file->content;
    const size_t at = std::min(file->at, content.size());
    *done = static_cast<uint32_t>(std::min<size_t>(count, content.size() - at));
    std::memcpy(buffer, content.data() + at, *done);
    file->at = at + *done;
    return kFileOk;
}

uint32_t f_write(FileHandle *handle, const void *buffer, uint32_t count, uint32_t *done)
{
    if (*handle == nullptr) {
        return kFileFailed;
    }
    OpenFile *const file = openFile(*handle);
    *done = store(file->file, file->at, buffer, count);
    file->at += *done;
    return kFileOk;
}

uint32_t f_unlink(const char *path)
{
    return sd_unlink(path + std::strlen(USERPath));
}

FileName numberedFile(const char *kind, int32_t number)
{
    FileName name;
    std::snprintf(name.text, sizeof name.text, "%s%d.sav", kind, number);
    return name;
}

uint32_t sd_open(FileHandle *handle, const char *name, uint32_t mode)
{
    *handle = nullptr;
    const bool makes = (mode & (kCreateAlways | kCreateNew)) != 0;
    MUST_HOLD(makes || (mode & kRead) != 0);
    World::File *const file =
        fails(World::kNoFiles) ? nullptr : (makes ? make(name) : world->find(name));
    if (file == nullptr) {
        return (mode & kCreateAlways) != 0 ? kFileBadMode : kFileFailed;
    }
    if (makes) {
        file->content.clear();
    }
    for (OpenFile &open : openFiles) {
        if (!open.isOpen) {
            open = {file, 0, true};
            *handle = handleOf(&open);
            return kFileOk;
        }
    }
    MUST_HOLD(false); // the code forgets to close them
    return kFileFailed;
}

uint32_t sd_unlink(const char *name)
{
    World::File *const file = fails(World::kNoFiles) ? nullptr : world->find(name);
    if (file == nullptr) {
        return kFileFailed;
    }
    file->exists = false;
    return kFileOk;
}

uint32_t sd_getFileSize(const char *name)
{
    const World::File *const file = fails(World::kNoFiles) ? nullptr : world->find(name);
    return file == nullptr ? 0 : static_cast<uint32_t>(file->content.size());
}

uint32_t sd_readFile(const char *name, void *buffer, uint32_t capacity)
{
    const World::File *const file = fails(World::kNoFiles) ? nullptr : world->find(name);
    if (file == nullptr) {
        return 0;
    }
    std::memcpy(buffer, file->content.data(), std::min<size_t>(capacity, file->content.size()));
    return static_cast<uint32_t>(file->content.size());
}

int32_t sd_writeFile(const char *name, const void *buffer, uint32_t length)
{
    if (fails(World::kNoFiles)) {
        return 0;
    }
    World::File *const file = make(name);
    file->content.clear();
    store(file, 0, buffer, length);
    return 1;
}

// The two steps of a save.
uint32_t sd_beginSave(int32_t *file, const char *name);
uint32_t sd_endSave(int32_t *file, const char *name, const void *buffer, uint32_t length,
                    uint32_t *done);

uint32_t sd_beginSave(int32_t *file, const char *)
{
    *file = fails(World::kNoFiles) ? -1 : 100;
    return *file < 0 ? kFileFailed : kFileOk;
}

uint32_t sd_endSave(int32_t *file, const char *name, const void *buffer, uint32_t length,
                    uint32_t *done)
{
    if (*file < 0) {
        return kFileFailed;
    }
    *file = -1;
    World::File *const saved = make(name);
    *done = store(saved, 0, buffer, length);
    if (*done == length) {
        saved->content.resize(length);
    }
    return kFileOk;
}

void sd_syncNames() {}

int32_t CreateDir(const char *)
{
    return 0;
}

int32_t MX_FATFS_Init()
{
    return 0;
}

// The system calls of the code --------------------------------------------------------------------

extern "C" {

// As called by the code: CMakeLists.txt lists them.
#define SYSTEM_CALL(result, name, parameters)                                                      \
    result fuzz_##name parameters;                                                                 \
    result fuzz_##name parameters

SYSTEM_CALL(int, gettimeofday, (timeval * now, void *))
{
    if (world->onLook != nullptr) {
        world->onLook();
    }
    const int64_t us = world->timeOfDayUs + static_cast<int64_t>(world->nowUs);
    now->tv_sec = us / 1'000'000;
    now->tv_usec = us % 1'000'000;
    return 0;
}

SYSTEM_CALL(int, usleep, (useconds_t microseconds))
{
    world->nowUs += microseconds;
    world->sleptUs = microseconds;
    if (world->onSleep != nullptr) {
        world->onSleep();
    }
    return 0;
}

SYSTEM_CALL(void *, malloc, (size_t size))
{
    auto at = std::find_if(heap.begin(), heap.end(), [size](const Block &block) {
        return !block.isTaken && block.size == size;
    });
    if (at == heap.end()) {
        at = heap.insert(heap.end(), {std::malloc(size), size, false});
    }
    at->isTaken = true;
    std::memset(at->memory, 0xBE, size); // the same for every input
    return at->memory;
}

SYSTEM_CALL(void, free, (void *memory))
{
    const auto at = std::find_if(heap.begin(), heap.end(),
                                 [memory](const Block &block) { return block.memory == memory; });
    if (memory != nullptr) {
        MUST_HOLD(at != heap.end() && at->isTaken);
        heap.erase(at);
    }
    std::free(memory);
}

SYSTEM_CALL(ssize_t, write, (int, const void *bytes, size_t count))
{
    if (world->lineTakes == 0) {
        errno = EIO;
        return -1;
    }
    const size_t taken = std::min<size_t>(count, world->lineTakes);
    world->line.append(static_cast<const char *>(bytes), taken);
    if (world->lineTakes != ~0U) {
        world->lineTakes -= static_cast<uint32_t>(taken);
    }
    return static_cast<ssize_t>(taken);
}

SYSTEM_CALL(ssize_t, sendto,
            (int, const void *bytes, size_t count, int, const sockaddr *to, socklen_t size))
{
    sockaddr_in address;
    MUST_HOLD(size == sizeof address);
    std::memcpy(&address, to, sizeof address);
    world->pcAddress = address.sin_addr.s_addr | static_cast<uint64_t>(ntohs(address.sin_port))
                                                     << 32;
    world->pc.append(static_cast<const char *>(bytes), count);
    world->longest = std::max(world->longest, count);
    return fails(World::kNoNetwork) ? -1 : static_cast<ssize_t>(count);
}

SYSTEM_CALL(int, socket, (int, int, int))
{
    return fails(World::kNoNetwork) ? -1 : 100;
}

SYSTEM_CALL(int, bind, (int, const sockaddr *, socklen_t))
{
    return 0;
}

SYSTEM_CALL(int, open64, (const char *, int, ...))
{
    return fails(World::kNoDevices) ? -1 : 100;
}

SYSTEM_CALL(int, close, (int))
{
    return 0;
}

SYSTEM_CALL(int, fcntl64, (int, int, ...))
{
    return 0;
}

SYSTEM_CALL(int, ioctl, (int, unsigned long, ...))
{
    return fails(World::kNoNetwork) ? -1 : 0;
}

SYSTEM_CALL(int, tcgetattr, (int, termios *))
{
    return 0;
}

SYSTEM_CALL(int, tcsetattr, (int, int, const termios *))
{
    return 0;
}

SYSTEM_CALL(int, tcflush, (int, int))
{
    return 0;
}

SYSTEM_CALL(int, pthread_create, (pthread_t *, const pthread_attr_t *, void *(*)(void *), void *))
{
    return 0;
}

SYSTEM_CALL(int, pthread_detach, (pthread_t))
{
    return 0;
}

SYSTEM_CALL(std::FILE *, popen, (const char *command, const char *))
{
    if (fails(World::kNoTools)) {
        errno = ENOMEM;
        return nullptr;
    }
    return openStream(
        world->toolOutput != nullptr ? world->toolOutput(command) : std::string_view(), "r");
}

SYSTEM_CALL(int, fclose, (std::FILE * stream))
{
    std::replace(std::begin(openStreams), std::end(openStreams), stream,
                 static_cast<std::FILE *>(nullptr));
    return std::fclose(stream);
}

SYSTEM_CALL(int, pclose, (std::FILE * stream))
{
    return fuzz_fclose(stream);
}

SYSTEM_CALL(std::FILE *, fopen64, (const char *, const char *))
{
    return fails(World::kNoDevices) ? nullptr : openStream({}, "w");
}

SYSTEM_CALL(int, system, (const char *))
{
    return fails(World::kNoTools) ? -1 : 0;
}

// How an update makes its package executable.
SYSTEM_CALL(int, fileno, (std::FILE *))
{
    return -1;
}

SYSTEM_CALL(int, fstat64, (int, struct stat *))
{
    return -1;
}

SYSTEM_CALL(int, fsync, (int))
{
    return 0;
}

// The console stays as it is, and what goes to standard error goes nowhere.
SYSTEM_CALL(int, setvbuf, (std::FILE *, char *, int, size_t))
{
    return 0;
}

SYSTEM_CALL(void, perror, (const char *)) {}

SYSTEM_CALL(int, sigaction, (int, const void *, void *))
{
    return 0;
}

SYSTEM_CALL(void, _exit, (int))
{
    MUST_HOLD(world->onExit != nullptr);
    std::longjmp(*world->onExit, 1);
}

SYSTEM_CALL(void, exit, (int status))
{
    fuzz__exit(status);
}
}
