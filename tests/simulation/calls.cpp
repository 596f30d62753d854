// The system, as the daemon sees it: every call that leaves the daemon's library ends here. The
// build checks that no other call leaves it (calls.txt).

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

#include "tests/simulation/calls.h"
#include "tests/simulation/daemon.h"
#include "tests/simulation/loop.h"
#include "tests/simulation/model.h"
#include "tests/simulation/world.h"

namespace {

constexpr int kStdout = 1;

// Descriptors -------------------------------------------------------------------------------------

struct Descriptor {
    enum Kind {
        kClosed,
        kConsole,
        kNull,
        kFile,
        kDirectory,
        kLine,
        kUdp,
        kAsker,
        kVendor
    } kind = kClosed;
    std::string name;
    std::shared_ptr<Inode> inode;
    size_t position = 0;
    int flags = 0;
};

std::array<Descriptor, 64> table;

Descriptor &descriptorOf(int number)
{
    static Descriptor closed;
    closed = {};
    return number >= 0 && static_cast<size_t>(number) < table.size()
               ? table[static_cast<size_t>(number)]
               : closed;
}

int error(int number)
{
    errno = number;
    return -1;
}

int newDescriptor(Descriptor descriptor)
{
    const auto free = std::find_if(table.begin(), table.end(), [](const Descriptor &d) {
        return d.kind == Descriptor::kClosed;
    });
    if (free == table.end()) {
        return error(EMFILE);
    }
    *free = std::move(descriptor);
    ++world->descriptors;
    return static_cast<int>(free - table.begin());
}

// What a start gets once, for good.
bool isForTheWholeRun(Call call, const std::string &object)
{
    return call == Call::thread || call == Call::memory ||
           (object == "/dev/ttyS0" && (call == Call::open || call == Call::control));
}

// The daemon makes a call for `object`. False, with errno set, when it must fail.
bool may(Call call, const std::string &object)
{
    world->step();
    world->lastActivity = world->threads.now();
    if (world->cutAfter != 0 && world->faults.calls >= world->cutAfter) {
        world->cutAfter = 0;
        world->powerHasFailed = true;
        world->threads.endDaemon(); // World::let() goes on
    }
    if (world->faults.hit(call, object)) {
        const int number = errno;
        world->note("%s of %s fails: %s", nameOf(call), object.c_str(), std::strerror(number));
        world->model->callFailed(call, object);
        world->startIsBad = world->startIsBad ||
                            (world->model->loop->passes() == 0 && isForTheWholeRun(call, object));
        errno = number;
        return false;
    }
    return true;
}

int openFile(const std::string &path, int flags, unsigned mode)
{
    if (!may(Call::open, path)) {
        return -1;
    }
    if (path == "/dev/null") {
        return newDescriptor({Descriptor::kNull, path, nullptr, 0, flags});
    }
    if (path.rfind("/proc/self/fd/", 0) == 0) { // a pipe can be opened anew
        return world->console == S_IFIFO
                   ? newDescriptor({Descriptor::kConsole, "console", nullptr, 0, flags})
                   : error(ENXIO);
    }
    if (path == "/dev/ttyS0") {
        return newDescriptor({Descriptor::kLine, path, nullptr, 0, flags});
    }
    if (path == "/dev/vendor_storage") {
        return newDescriptor({Descriptor::kVendor, path, nullptr, 0, flags});
    }
    if ((flags & O_TMPFILE) == O_TMPFILE) {
        auto unnamed = std::make_shared<Inode>();
        unnamed->setMode(mode & ~022u, world->threads.now());
        return world->disk.hasUnnamedFiles
                   ? newDescriptor({Descriptor::kFile, path + " unnamed", unnamed, 0, flags})
                   : error(EOPNOTSUPP);
    }
    if ((flags & O_DIRECTORY) != 0) {
        return newDescriptor({Descriptor::kDirectory, path, nullptr, 0, flags});
    }
    auto inode = world->disk.find(path);
    if (inode == nullptr && (flags & O_CREAT) == 0) {
        return error(ENOENT);
    }
    if (inode == nullptr) {
        inode = world->disk.create(path);
        inode->setMode(mode & ~022u, world->threads.now());
    } else if ((flags & O_EXCL) != 0) {
        return error(EEXIST);
    } else if ((flags & O_TRUNC) != 0) {
        inode->truncate(0, world->threads.now());
        world->considerCut();
    }
    return newDescriptor({Descriptor::kFile, path, inode, 0, flags});
}

int closeDescriptor(int number)
{
    Descriptor &descriptor = descriptorOf(number);
    if (descriptor.kind == Descriptor::kClosed) {
        return error(EBADF);
    }
    const bool fails = !may(Call::close, descriptor.name); // it is closed all the same
    --world->descriptors;
    descriptor = {};
    return fails ? -1 : 0;
}

void print(const std::string &text)
{
    world->step();
    if (world->consoleIsStopped && world->console != S_IFCHR &&
        (table[kStdout].flags & O_NONBLOCK) != 0) {
        return; // lost
    }
    while (world->consoleIsStopped && world->console != S_IFCHR) {
        world->threads.sleep(10 * kMillisecond);
    }
    world->note("console: %s", inWords(text).c_str());
    world->lastActivity = world->threads.now();
}

ssize_t writeFile(Descriptor &file, const std::string &bytes)
{
    Disk &disk = world->disk;
    const size_t end =
        (file.flags & O_APPEND) != 0 ? file.inode->now().content.size() : file.position;
    const size_t size = file.inode->now().content.size();
    const size_t grows = end + bytes.size() > size ? end + bytes.size() - size : 0;
    const size_t written = bytes.size() - (grows > disk.room ? grows - disk.room : 0);
    disk.room -= std::min(grows, disk.room);
    if (written < bytes.size()) {
        world->model->callFailed(Call::write, file.name);
    }
    if (written == 0 && !bytes.empty()) {
        return error(ENOSPC);
    }
    world->note("writes %zu bytes to %s", written, file.name.c_str());
    file.inode->write(end, bytes.substr(0, written), world->threads.now());
    file.position = end + written;
    world->considerCut();
    return static_cast<ssize_t>(written);
}

ssize_t writeLine(const std::string &bytes)
{
    world->line.write(bytes);
    return static_cast<ssize_t>(bytes.size());
}

ssize_t writeDescriptor(int number, const std::string &bytes)
{
    Descriptor &descriptor = descriptorOf(number);
    if (descriptor.kind == Descriptor::kLine) {
        while (!world->line.roomFor(bytes.size())) {
            world->threads.sleep(kMillisecond);
            world->stalled += kMillisecond;
        }
        world->model->lineWritten(bytes);
    }
    if (descriptor.kind != Descriptor::kClosed && !may(Call::write, descriptor.name)) {
        return -1;
    }
    switch (descriptor.kind) {
    case Descriptor::kConsole:
        print(bytes);
        return static_cast<ssize_t>(bytes.size());
    case Descriptor::kFile:
        return writeFile(descriptor, bytes);
    case Descriptor::kLine:
        return writeLine(bytes);
    case Descriptor::kNull:
        return static_cast<ssize_t>(bytes.size());
    default:
        return error(EBADF);
    }
}

ssize_t readDescriptor(int number, char *buffer, size_t size)
{
    Descriptor &descriptor = descriptorOf(number);
    std::string bytes;
    if (descriptor.kind == Descriptor::kLine) {
        bytes = world->line.read(size);
        if (bytes.empty()) { // the fast way for an idle line
            world->step();
            return world->faults.areAny() && world->faults.hit(Call::read, descriptor.name) ? -1
                                                                                            : 0;
        }
    }
    if (descriptor.kind == Descriptor::kClosed) {
        world->threads.sleep(0);
        return error(EBADF);
    }
    if (!may(Call::read, descriptor.name)) {
        world->line.unread(bytes);
        return -1;
    }
    if (descriptor.kind == Descriptor::kFile) {
        const std::string &content = descriptor.inode->now().content;
        bytes = content.substr(std::min(descriptor.position, content.size()), size);
        descriptor.position += bytes.size();
    }
    bytes.copy(buffer, bytes.size());
    if (descriptor.kind == Descriptor::kLine && !bytes.empty()) {
        world->model->lineRead(bytes);
    }
    return static_cast<ssize_t>(bytes.size());
}

// Streams -----------------------------------------------------------------------------------------

// A stream of the C library: a descriptor with a buffer of one block, or the output of a tool.
struct Stream {
    int descriptor = -1;
    std::string unwritten;
    std::string output; // of a tool, not read yet
    int status = 0;     // of a tool
};

constexpr size_t kBlock = 4096;

std::vector<std::unique_ptr<Stream>> streams;

FILE *newStream(Stream stream)
{
    streams.push_back(std::make_unique<Stream>(std::move(stream)));
    return reinterpret_cast<FILE *>(streams.back().get());
}

Stream &streamOf(FILE *file)
{
    for (const auto &stream : streams) {
        if (reinterpret_cast<FILE *>(stream.get()) == file) {
            return *stream;
        }
    }
    world->fail("streams", "the daemon uses a stream that is not open");
}

void removeStream(const Stream &stream)
{
    std::erase_if(streams, [&](const auto &other) { return other.get() == &stream; });
}

// Writes all of it, or as much as goes.
bool writeAll(int descriptor, std::string bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = writeDescriptor(descriptor, bytes);
        if (written < 0) {
            return false;
        }
        bytes.erase(0, static_cast<size_t>(written));
    }
    return true;
}

bool flush(Stream &stream)
{
    return writeAll(stream.descriptor, std::exchange(stream.unwritten, {}));
}

// As the C library does: fills the buffer, and writes whole blocks past it.
size_t writeStream(Stream &stream, std::string bytes)
{
    const size_t count = bytes.size();
    if (!stream.unwritten.empty()) {
        const size_t fits = std::min(count, kBlock - stream.unwritten.size());
        stream.unwritten += bytes.substr(0, fits);
        bytes.erase(0, fits);
        if (bytes.empty()) {
            return count;
        }
        if (!flush(stream)) {
            return fits;
        }
    }
    const size_t whole = bytes.size() / kBlock * kBlock;
    if (whole > 0 && !writeAll(stream.descriptor, bytes.substr(0, whole))) {
        return count - bytes.size();
    }
    stream.unwritten = bytes.substr(whole);
    return count;
}

int streamFlags(const char *mode)
{
    const int access = std::strchr(mode, '+') != nullptr ? O_RDWR
                       : mode[0] == 'r'                  ? O_RDONLY
                                                         : O_WRONLY;
    return access | (mode[0] == 'w' ? O_CREAT | O_TRUNC : mode[0] == 'a' ? O_CREAT | O_APPEND : 0);
}

[[gnu::format(printf, 1, 0)]] std::string formatted(const char *format, va_list arguments)
{
    char text[8192];
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    return {text, std::min(static_cast<size_t>(length), sizeof text - 1)};
}

// The daemon's heap -------------------------------------------------------------------------------

std::vector<void *> heap;

} // namespace

int32_t simulationAccessesLeft;

void simulationChangeThreads()
{
    simulationAccessesLeft = static_cast<int32_t>(world->random.between(1, 400));
    // Mostly for a moment, at times for as long as the other processes of a busy board take.
    const Time limit = world->random.onceIn(16) ? 3 * kMillisecond : 20 * kMicrosecond;
    world->threads.sleep(world->random.between(0, limit));
}

void bootCalls()
{
    table = {};
    for (size_t i = 0; i < 3; ++i) {
        table[i] = {Descriptor::kConsole, "console", nullptr, 0, O_RDWR};
    }
    world->descriptors = 3;
    world->memoryBlocks = 0;
    simulationAccessesLeft = 0;
}

void endCalls()
{
    table = {};
    streams.clear();
    for (void *const block : heap) {
        std::free(block);
    }
    heap.clear();
}

bool isOpen(const std::string &name)
{
    return std::any_of(table.begin(), table.end(), [&](const Descriptor &d) {
        return d.kind != Descriptor::kClosed && d.name == name;
    });
}

// What the daemon calls ---------------------------------------------------------------------------

// clang-format off
extern "C" {

int __wrap_open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    return openFile(path, flags, mode);
}
int __wrap_close(int number) { return closeDescriptor(number); }
ssize_t __wrap_read(int number, void *buffer, size_t size) { return readDescriptor(number, static_cast<char *>(buffer), size); }
ssize_t __wrap_write(int number, const void *bytes, size_t size) { return writeDescriptor(number, {static_cast<const char *>(bytes), size}); }
int __wrap_fcntl64(int number, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const int flags = va_arg(arguments, int);
    va_end(arguments);
    Descriptor &descriptor = descriptorOf(number);
    if (!may(Call::control, descriptor.name)) { return -1; }
    if (command == F_GETFL) { return descriptor.flags; }
    descriptor.flags = flags;
    return 0;
}
int __wrap_dup2(int from, int to)
{
    if (!may(Call::open, "console")) { return -1; }
    descriptorOf(to) = descriptorOf(from);
    return to;
}
int __wrap_access(const char *path, int)
{
    if (!may(Call::stat, path)) { return -1; }
    const bool isThere = std::strrchr(path, '.') == nullptr || world->disk.find(path) != nullptr; // or a directory
    return isThere ? 0 : error(ENOENT);
}
int __wrap_fstat64(int number, struct stat *status)
{
    const Descriptor &descriptor = descriptorOf(number);
    if (!may(Call::stat, descriptor.name)) { return -1; }
    *status = {};
    if (descriptor.kind == Descriptor::kConsole) {
        status->st_mode = world->console;
    } else if (descriptor.kind == Descriptor::kFile) {
        status->st_mode = S_IFREG | descriptor.inode->now().mode;
        status->st_size = static_cast<off_t>(descriptor.inode->now().content.size());
        status->st_nlink = descriptor.flags != 0 && (descriptor.flags & O_TMPFILE) == O_TMPFILE ? 0 : 1;
    }
    return 0;
}
int __wrap_lstat64(const char *path, struct stat *) { return __wrap_access(path, 0); }
int __wrap_ftruncate64(int number, off_t length)
{
    const Descriptor &descriptor = descriptorOf(number);
    if (!may(Call::truncate, descriptor.name)) { return -1; }
    descriptor.inode->truncate(static_cast<size_t>(length), world->threads.now());
    world->considerCut();
    return 0;
}
static int syncDescriptor(int number)
{
    const Descriptor &descriptor = descriptorOf(number);
    if (!may(Call::sync, descriptor.name)) { return -1; }
    world->threads.sleep(world->random.between(0, 5) * kMillisecond); // as long as the disk takes
    world->note("has %s on the disk", descriptor.name.c_str());
    if (descriptor.kind == Descriptor::kDirectory) {
        world->disk.syncNames();
    } else {
        world->disk.syncFile(descriptor.inode);
    }
    world->considerCut();
    return 0;
}
int __wrap_fdatasync(int number) { return syncDescriptor(number); }
int __wrap_fsync(int number) { return syncDescriptor(number); }
int __wrap_fchmod(int number, mode_t mode)
{
    const Descriptor &descriptor = descriptorOf(number);
    if (!may(Call::stat, descriptor.name)) { return -1; }
    descriptor.inode->setMode(mode, world->threads.now());
    world->considerCut();
    return 0;
}
int __wrap_linkat(int, const char *from, int, const char *to, int)
{
    if (!may(Call::link, to)) { return -1; }
    if (world->disk.find(to) != nullptr) { return error(EEXIST); }
    world->disk.link(to, descriptorOf(std::atoi(from + std::strlen("/proc/self/fd/"))).inode);
    world->considerCut();
    return 0;
}
FILE *__wrap_fdopen(int number, const char *) { return newStream({number, {}, {}, 0}); }
int __wrap_mkdir(const char *path, mode_t) { return may(Call::mkdir, path) ? 0 : -1; }
int __wrap_remove(const char *path)
{
    if (!may(Call::remove, path)) { return -1; }
    if (!world->disk.remove(path)) { return error(ENOENT); }
    world->considerCut();
    return 0;
}

// Streams
FILE *__wrap_fopen64(const char *path, const char *mode)
{
    const int descriptor = openFile(path, streamFlags(mode), 0666);
    return descriptor < 0 ? nullptr : newStream({descriptor, {}, {}, 0});
}
int __wrap_fclose(FILE *file)
{
    Stream &stream = streamOf(file);
    const bool isWritten = flush(stream);
    const int result = closeDescriptor(stream.descriptor);
    removeStream(stream);
    return isWritten ? result : EOF;
}
size_t __wrap_fread(void *buffer, size_t size, size_t count, FILE *file)
{
    const ssize_t length = readDescriptor(streamOf(file).descriptor, static_cast<char *>(buffer), size * count);
    return length < 0 ? 0 : static_cast<size_t>(length) / size;
}
size_t __wrap_fwrite(const void *bytes, size_t size, size_t count, FILE *file)
{
    if (file == stdout) { print({static_cast<const char *>(bytes), size * count}); return count; }
    return writeStream(streamOf(file), {static_cast<const char *>(bytes), size * count}) / size;
}
int __wrap_fseeko64(FILE *file, off_t offset, int whence)
{
    Descriptor &descriptor = descriptorOf(streamOf(file).descriptor);
    if (descriptor.kind != Descriptor::kFile) { return error(ESPIPE); }
    const size_t from = whence == SEEK_END ? descriptor.inode->now().content.size() : whence == SEEK_CUR ? descriptor.position : 0;
    descriptor.position = from + static_cast<size_t>(offset);
    return 0;
}
off_t __wrap_ftello64(FILE *file)
{
    const Descriptor &descriptor = descriptorOf(streamOf(file).descriptor);
    return descriptor.kind == Descriptor::kFile ? static_cast<off_t>(descriptor.position) : error(ESPIPE);
}
char *__wrap_fgets(char *line, int size, FILE *file)
{
    std::string &output = streamOf(file).output;
    if (output.empty()) { return nullptr; }
    const size_t length = std::min({output.find('\n') + 1 == 0 ? output.size() : output.find('\n') + 1, output.size(), static_cast<size_t>(size - 1)});
    line[output.copy(line, length)] = '\0';
    output.erase(0, length);
    return line;
}
[[gnu::format(printf, 2, 3)]] int __wrap_fprintf(FILE *file, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    if (file == stderr) { print(text); return static_cast<int>(text.size()); }
    return static_cast<int>(writeStream(streamOf(file), text));
}
int __wrap_fileno(FILE *file) { return file == stdout ? kStdout : streamOf(file).descriptor; }
FILE *__wrap_popen(const char *command, const char *)
{
    world->step();
    Tools::Run run = world->tools.run(command);
    return run.isStarted ? newStream({-1, {}, run.output, run.status}) : nullptr;
}
int __wrap_pclose(FILE *file)
{
    const Stream &stream = streamOf(file);
    const int status = stream.status;
    removeStream(stream);
    return status;
}
int __wrap_system(const char *command)
{
    world->step();
    return world->tools.run(command).status;
}

// The console
int __wrap_puts(const char *text) { print(std::string(text) + "\n"); return 1; }
int __wrap_fputs(const char *text, FILE *) { print(text); return 1; }
int __wrap_putchar(int character) { print(std::string(1, static_cast<char>(character))); return character; }
[[gnu::format(printf, 1, 2)]] int __wrap_printf(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    print(text);
    return static_cast<int>(text.size());
}
void __wrap_perror(const char *text) { print(std::string(text) + ": " + std::strerror(errno) + "\n"); }
int __wrap_fflush(FILE *file) { return file == stdout || flush(streamOf(file)) ? 0 : EOF; }
int __wrap_setvbuf(FILE *, char *, int, size_t) { return 0; }

// The line
int __wrap_tcgetattr(int number, termios *) { return may(Call::terminal, descriptorOf(number).name) ? 0 : -1; }
int __wrap_tcsetattr(int number, int, const termios *) { return may(Call::terminal, descriptorOf(number).name) ? 0 : -1; }
int __wrap_tcflush(int number, int)
{
    if (!may(Call::terminal, descriptorOf(number).name)) { return -1; }
    world->line.flushInput();
    return 0;
}

// The network
int __wrap_socket(int, int type, int)
{
    const bool isUdp = (type & 0xF) == SOCK_DGRAM;
    if (!may(Call::socket, isUdp ? "the UDP socket" : "a socket")) { return -1; }
    return newDescriptor({isUdp ? Descriptor::kUdp : Descriptor::kAsker, isUdp ? "the UDP socket" : "a socket", nullptr, 0, 0});
}
int __wrap_bind(int number, const sockaddr *, socklen_t) { return may(Call::bind, descriptorOf(number).name) ? 0 : -1; }
ssize_t __wrap_recvfrom(int number, void *buffer, size_t size, int, sockaddr *from, socklen_t *)
{
    if (!may(Call::receive, descriptorOf(number).name)) {
        world->threads.sleep(100 * kMicrosecond); // the daemon tries again at once
        errno = EIO;
        return -1;
    }
    const Datagram datagram = world->network.receive();
    const size_t length = std::min(size, datagram.bytes.size());
    datagram.bytes.copy(static_cast<char *>(buffer), length);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = datagram.from.ip;
    address.sin_port = htons(datagram.from.port);
    std::memcpy(from, &address, sizeof address);
    world->lastActivity = world->threads.now();
    world->model->datagramReceived(datagram.from, datagram.bytes.substr(0, length));
    return static_cast<ssize_t>(length);
}
ssize_t __wrap_sendto(int number, const void *bytes, size_t size, int, const sockaddr *to, socklen_t)
{
    sockaddr_in address;
    std::memcpy(&address, to, sizeof address);
    world->model->datagramSent({address.sin_addr.s_addr, ntohs(address.sin_port)}, {static_cast<const char *>(bytes), size});
    return may(Call::send, descriptorOf(number).name) ? static_cast<ssize_t>(size) : -1;
}
int __wrap_ioctl(int number, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    if (!may(Call::ioctl, descriptorOf(number).name)) { return -1; }
    SystemNetwork &network = world->tools.network;
    if (descriptorOf(number).kind == Descriptor::kVendor) {
        uint8_t request100[100];
        std::memcpy(request100, argument, sizeof request100);
        if (request == 0x40047602 && request100[4] == 3) { std::copy_n(request100 + 8, 6, network.mac); }
        return 0;
    }
    if (!network.isUp) { return error(EADDRNOTAVAIL); }
    auto *const answer = static_cast<ifreq *>(argument);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    switch (request) {
    case SIOCGIFADDR: std::memcpy(&address.sin_addr, network.ip, 4); std::memcpy(&answer->ifr_addr, &address, sizeof address); return 0;
    case SIOCGIFNETMASK: std::memcpy(&address.sin_addr, network.mask, 4); std::memcpy(&answer->ifr_netmask, &address, sizeof address); return 0;
    case SIOCGIFHWADDR: std::memcpy(answer->ifr_hwaddr.sa_data, network.mac, 6); return 0;
    default: return error(EINVAL);
    }
}

// Time and threads
int __wrap_gettimeofday(timeval *now, void *)
{
    const Time wall = world->wall();
    now->tv_sec = wall / kSecond;
    now->tv_usec = wall % kSecond / kMicrosecond;
    return 0;
}
int __wrap_usleep(useconds_t microseconds)
{
    world->step();
    if (microseconds == 1000 && world->isMainThread()) {
        world->skipIdleTime();
    }
    // Timers are late, by little.
    world->threads.sleep(microseconds * kMicrosecond + static_cast<Time>(world->random.next() & 0xFFFF));
    return 0;
}
int __wrapped_pthread_create(pthread_t *thread, const pthread_attr_t *, void *(*body)(void *), void *argument)
{
    if (!may(Call::thread, "a thread")) { return errno; }
    *thread = {};
    world->threads.start([body, argument] { body(argument); });
    return 0;
}
int __wrap_pthread_detach(pthread_t) { return 0; }
int __wrap_pthread_mutex_init(pthread_mutex_t *, const pthread_mutexattr_t *) { return may(Call::thread, "the mutex") ? 0 : errno; }
int __wrap_sigaction(int, const struct sigaction *, struct sigaction *) { return 0; }

// Memory and the end
void *__wrap_malloc(size_t size)
{
    if (!may(Call::memory, std::to_string(size) + " bytes")) { return nullptr; }
    void *const block = std::malloc(size);
    heap.push_back(block);
    ++world->memoryBlocks;
    return block;
}
void __wrap_free(void *block)
{
    if (block != nullptr && std::erase(heap, block) == 0) { world->fail("memory", "free() of something else"); }
    world->memoryBlocks -= block != nullptr ? 1 : 0;
    std::free(block);
}
void __wrap_exit(int status) { daemonHasEnded(status); }
void __wrap__exit(int status) { daemonHasEnded(status); }

// The daemon's own, called across its files: where a pass begins, and what is delayed.
void __wrap__Z11TaskCommandv()
{
    // A pass takes some time of the processor, so that a loop without a sleep comes to an end.
    world->threads.sleep(world->random.between(20, 60) * kMicrosecond);
    world->model->passBegins();
    TaskCommand();
}
int32_t __wrap__Z16AddDelayCallFuncPFvvEj(void (*function)(), uint32_t delay)
{
    world->armedUntil = std::max(world->armedUntil, world->wall() + delay * kMillisecond);
    return AddDelayCallFunc(function, delay);
}

} // extern "C"
