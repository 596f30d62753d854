#include "tests/support/simulated_system.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

std::vector<std::string> journal;
SimulatedSystem world;

std::string hex(const uint8_t *bytes, size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
        text += digits;
    }
    return text;
}

namespace {

void note(const std::string &call)
{
    journal.push_back(call);
}

int failWith(int error)
{
    errno = error;
    return -1;
}

// A vendor storage request is noted as its header and data, byte by byte.
int fakeVendorIoctl(unsigned long request, const void *argument)
{
    const auto *const bytes = static_cast<const uint8_t *>(argument);
    world.vendorRequest.assign(bytes, bytes + 100);
    const size_t length = bytes[6] + bytes[7] * 256u;
    char number[32];
    std::snprintf(number, sizeof number, "vendor 0x%lx ", request);
    note(number + hex(bytes, 8) + " " + hex(bytes + 8, std::min<size_t>(length, 92)));
    return world.vendorResult;
}

int fakeInterfaceIoctl(unsigned long request, const void *argument)
{
    const char *const name = static_cast<const ifreq *>(argument)->ifr_name;
    char number[32];
    std::snprintf(number, sizeof number, "ioctl 0x%lx ", request);
    note(number + std::string(name, strnlen(name, IFNAMSIZ)));
    return request == world.failingRequest ? failWith(EPERM) : 0;
}

} // namespace

// Link-time fakes of the system calls ------------------------------------------------------------

extern "C" {
std::FILE *__real_popen(const char *command, const char *type);
int __real_system(const char *command);
int __real_socket(int domain, int type, int protocol);
int __real_ioctl(int fd, unsigned long request, ...);
int __real_open64(const char *path, int flags, ...);
std::FILE *__real_fopen64(const char *path, const char *mode);
int __real_close(int fd);
int32_t __real__Z12saveUserPrefv();
std::FILE *__wrap_popen(const char *command, const char *type);
int __wrap_system(const char *command);
int __wrap_socket(int domain, int type, int protocol);
int __wrap_ioctl(int fd, unsigned long request, ...);
int __wrap___ioctl_time64(int fd, unsigned long request, ...);
int __wrap_open64(const char *path, int flags, ...);
std::FILE *__wrap_fopen64(const char *path, const char *mode);
int __wrap_close(int fd);
int32_t __wrap__Z12saveUserPrefv();
int32_t __wrap__Z15isUpdateProgramv();

std::FILE *__wrap_popen(const char *command, const char *type)
{
    note("popen " + std::string(command) + (type[0] == 'r' ? "" : " for writing"));
    if (world.popenFailsAt > 0 && --world.popenFailsAt == 0) {
        errno = EMFILE;
        return nullptr;
    }
    return __real_popen(command, type);
}

int __wrap_system(const char *command)
{
    note("system " + std::string(command));
    if (world.onSystem) {
        world.onSystem(command);
    }
    return world.runsSystem ? __real_system(command) : 0;
}

int __wrap_socket(int domain, int type, int protocol)
{
    const bool isStream = (type & ~(SOCK_CLOEXEC | SOCK_NONBLOCK)) == SOCK_STREAM;
    note(domain == AF_INET && isStream ? "socket" : "socket of another kind");
    return world.socketFails ? failWith(EMFILE) : __real_socket(domain, type, protocol);
}

int __wrap_ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    if (fd == world.vendorDescriptor) {
        return fakeVendorIoctl(request, argument);
    }
    if (request == SIOCGIFADDR || request == SIOCGIFNETMASK || request == SIOCGIFHWADDR) {
        const int result = fakeInterfaceIoctl(request, argument);
        return result < 0 ? result : __real_ioctl(fd, request, argument);
    }
    return __real_ioctl(fd, request, argument);
}

// The name behind it on 32-bit processors with 64-bit time.
int __wrap___ioctl_time64(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    return __wrap_ioctl(fd, request, argument);
}

int __wrap_open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    const int result = __real_open64(path, flags, mode);
    if (std::strcmp(path, kVendorDevice) == 0) {
        note((flags & O_ACCMODE) == O_RDWR ? "open vendor" : "open vendor, not read-write");
        world.vendorDescriptor = result;
    }
    return result;
}

std::FILE *__wrap_fopen64(const char *path, const char *mode)
{
    if (std::strncmp(path, "/etc/", 5) == 0) {
        std::string plain = mode;
        std::erase(plain, 'e'); // whether started programs inherit it
        note("fopen " + std::string(path) + " " + plain);
    }
    return __real_fopen64(path, mode);
}

int __wrap_close(int fd)
{
    if (fd >= 0 && fd == world.vendorDescriptor) {
        note("close vendor");
        world.vendorDescriptor = -1;
    }
    return __real_close(fd);
}

// saveUserPref(), as the linker knows it.
int32_t __wrap__Z12saveUserPrefv()
{
    note("saveUserPref");
    return __real__Z12saveUserPrefv();
}

// isUpdateProgram()
int32_t __wrap__Z15isUpdateProgramv()
{
    return world.updating;
}
}

std::string cannotStart()
{
    return "execute command failed: " + std::string(std::strerror(EMFILE)) + "\n";
}

// Files and tools of the board --------------------------------------------------------------------

void writeFile(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

std::string contentOf(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool exists(const std::string &path)
{
    return std::filesystem::exists(path);
}

void replaceTool(const std::string &path, const std::string &script)
{
    std::filesystem::remove("/bin/sh");
    std::filesystem::create_symlink("/opt/host/bin/dash", "/bin/sh");
    std::filesystem::remove(path);
    writeFile(path, "#!/bin/sh\n" + script);
    std::filesystem::permissions(path, std::filesystem::perms{0755});
}

void toolPrints(const std::string &name, const std::string &output)
{
    writeFile("/tmp/" + name + ".output", output);
    replaceTool("/bin/" + name, "exec cat /tmp/" + name + ".output\n");
}

std::string noise(unsigned seed, size_t length)
{
    std::minstd_rand random(seed + 1);
    std::string bytes;
    while (bytes.size() < length) {
        bytes += static_cast<char>(random() >> 8);
    }
    return bytes;
}

ptrdiff_t openDescriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}
