// A stand-in for the driver of /dev/vendor_storage, which the kernel of the host does not have. It
// is a library to be preloaded into the daemon; testbench/README.md says how.
//
// It answers the driver's two requests on a descriptor of that path, where the test has made a
// plain file. Every other request goes on to the system. The items are kept in the file, which
// outlives the daemon as the storage outlives a power cut. Each request becomes a line of a log.

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char kDevice[] = "/dev/vendor_storage";
constexpr char kLog[] = "/opt/scratch/vendor_storage.log";

constexpr unsigned long kRead = 0x40047601;
constexpr unsigned long kWrite = 0x40047602;
constexpr uint32_t kTag = 0x56524551;

struct Request {
    uint32_t tag;
    uint16_t id;
    uint16_t length; // of the data to write, or of the room for the data read
    uint8_t data[92];
};

// The file holds the items one after the other, by number.
struct Item {
    uint16_t length; // 0: never written
    uint8_t data[sizeof Request::data];
};

void log(const char *verb, const Request &request, const uint8_t *data, uint32_t length)
{
    char line[300];
    auto end = static_cast<size_t>(std::snprintf(
        line, sizeof line, "%s id=%u length=%u data=", verb, request.id, request.length));
    for (uint32_t i = 0; i < length; ++i) {
        end += static_cast<size_t>(std::snprintf(line + end, sizeof line - end, "%02x", data[i]));
    }
    line[end++] = '\n';
    const int file = open(kLog, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (file >= 0) {
        [[maybe_unused]] const ssize_t written = write(file, line, end);
        close(file);
    }
}

int refuse(const char *verb, const Request &request, int error)
{
    log(verb, request, nullptr, 0);
    errno = error;
    return -1;
}

int answer(int device, unsigned long command, Request *request)
{
    if (request->tag != kTag || request->length > sizeof request->data) {
        return refuse("refused", *request, EINVAL);
    }
    Item item{};
    const auto place = static_cast<off_t>(request->id * sizeof item);
    if (command == kWrite) {
        item.length = request->length;
        std::memcpy(item.data, request->data, item.length);
        if (pwrite(device, &item, sizeof item, place) != sizeof item) {
            return refuse("failed", *request, EIO);
        }
        log("write", *request, item.data, item.length);
        return 0;
    }
    if (pread(device, &item, sizeof item, place) != sizeof item || item.length == 0 ||
        item.length > sizeof item.data) {
        return refuse("absent", *request, ENOENT);
    }
    const uint16_t length = item.length < request->length ? item.length : request->length;
    log("read", *request, item.data, length);
    std::memcpy(request->data, item.data, length);
    request->length = length;
    return 0;
}

bool isVendorStorage(int descriptor)
{
    struct stat own;
    struct stat device;
    return fstat(descriptor, &own) == 0 && stat(kDevice, &device) == 0 &&
           own.st_dev == device.st_dev && own.st_ino == device.st_ino;
}

} // namespace

extern "C" int ioctl(int descriptor, unsigned long command, ...) noexcept
{
    va_list arguments;
    va_start(arguments, command);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    if ((command == kRead || command == kWrite) && isVendorStorage(descriptor)) {
        return answer(descriptor, command, static_cast<Request *>(argument));
    }
    using Ioctl = int (*)(int, unsigned long, ...);
    static const auto next = reinterpret_cast<Ioctl>(dlsym(RTLD_NEXT, "ioctl"));
    return next(descriptor, command, argument);
}
