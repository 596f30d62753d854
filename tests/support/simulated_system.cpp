#include "tests/support/simulated_system.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <random>
#include <sstream>
#include <system_error>

#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "tests/support/bytes.h"
#include "tests/support/files.h"
#include "tests/support/replace.h"

namespace fs = std::filesystem;

Journal journal;
SimulatedSystem world;

namespace {

bool startsNoProcess = false;
std::vector<std::FILE *> plainStreams; // that popen() gave out in the place of a process's

void note(const std::string &call)
{
    journal.push_back(call);
}

int failWith(int error)
{
    errno = error;
    return -1;
}

// What the note of a call says of a descriptor that started programs inherit.
std::string inherited(int descriptor)
{
    const int flags = fcntl(descriptor, F_GETFD);
    return flags >= 0 && (flags & FD_CLOEXEC) == 0 ? ", inherited" : "";
}

std::string outputFile(const std::string &tool)
{
    return "/opt/scratch/" + tool + ".output";
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

REPLACE(int, system, (const char *command))
{
    note("system " + std::string(command));
    if (world.onSystem) {
        world.onSystem(command);
    }
    return world.runsSystem ? REAL(system)(command) : 0;
}

REPLACE(int, socket, (int domain, int type, int protocol))
{
    const int result = world.socketFails ? failWith(EMFILE) : REAL(socket)(domain, type, protocol);
    const bool isStream = (type & ~(SOCK_CLOEXEC | SOCK_NONBLOCK)) == SOCK_STREAM;
    note((domain == AF_INET && isStream ? "socket" : "socket of another kind") + inherited(result));
    return result;
}

REPLACE(int, ioctl, (int fd, unsigned long request, ...))
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
        return result < 0 ? result : REAL(ioctl)(fd, request, argument);
    }
    return REAL(ioctl)(fd, request, argument);
}

// The name of ioctl() on 32-bit processors with 64-bit time.
extern "C" int __wrap___ioctl_time64(int fd, unsigned long request, ...)
    __attribute__((alias("__wrap_ioctl")));

REPLACE(int, open64, (const char *path, int flags, ...))
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    const int result = REAL(open64)(path, flags, mode);
    if (std::strcmp(path, kVendorDevice) == 0) {
        const bool isReadWrite = (flags & O_ACCMODE) == O_RDWR;
        note((isReadWrite ? "open vendor" : "open vendor, not read-write") + inherited(result));
        world.vendorDescriptor = result;
    }
    return result;
}

REPLACE(std::FILE *, fopen64, (const char *path, const char *mode))
{
    std::FILE *const file = REAL(fopen64)(path, mode);
    if (std::strncmp(path, "/etc/", 5) == 0) {
        std::string plain = mode;
        std::erase(plain, 'e'); // which shows in the descriptor
        note("fopen " + std::string(path) + " " + plain +
             (file != nullptr ? inherited(fileno(file)) : ""));
    }
    return file;
}

namespace {

// What the command would print, or null where only a process can tell.
std::FILE *outputOf(const std::string &command)
{
    std::istringstream words(command);
    std::string tool;
    std::string from;
    std::string to;
    words >> tool >> from >> to;
    std::string output = "/dev/null";
    if (tool == "cat") {
        output = fs::is_regular_file(from) ? from : output;
    } else if (tool == "cp") {
        std::error_code dropped;
        fs::copy_file(from, to, fs::copy_options::overwrite_existing, dropped);
    } else if (fs::exists(outputFile(tool)) && command.find('|') == std::string::npos) {
        output = outputFile(tool);
    } else {
        return nullptr;
    }
    plainStreams.push_back(REAL(fopen64)(output.c_str(), "re"));
    return plainStreams.back();
}

} // namespace

REPLACE(std::FILE *, popen, (const char *command, const char *type))
{
    note("popen " + std::string(command) + (type[0] == 'r' ? "" : " for writing"));
    if (world.popenFailsAt > 0 && --world.popenFailsAt == 0) {
        errno = EMFILE;
        return nullptr;
    }
    std::FILE *const output = startsNoProcess ? outputOf(command) : nullptr;
    return output != nullptr ? output : REAL(popen)(command, type);
}

REPLACE(int, pclose, (std::FILE * stream))
{
    return std::erase(plainStreams, stream) > 0 ? std::fclose(stream) : REAL(pclose)(stream);
}

REPLACE(int, close, (int fd))
{
    if (fd >= 0 && fd == world.vendorDescriptor) {
        note("close vendor");
        world.vendorDescriptor = -1;
    }
    const int result = REAL(close)(fd);
    if (result < 0) {
        note("close of what is not open");
    }
    return result;
}

// saveUserPref()
REPLACE(int32_t, _Z12saveUserPrefv, ())
{
    note("saveUserPref");
    return REAL(_Z12saveUserPrefv)();
}

// isUpdateProgram()
REPLACE(int32_t, _Z15isUpdateProgramv, ())
{
    return world.updating;
}

std::string cannotStart()
{
    return "execute command failed: " + std::string(std::strerror(EMFILE)) + "\n";
}

void replaceTool(const std::string &path, const std::string &script)
{
    fs::remove("/bin/sh");
    fs::create_symlink("/opt/host/bin/dash", "/bin/sh");
    fs::remove(path);
    writeFile(path, "#!/bin/sh\n" + script);
    fs::permissions(path, fs::perms{0755});
}

void toolPrints(const std::string &name, const std::string &output)
{
    if (!fs::exists(outputFile(name))) {
        replaceTool("/bin/" + name, "exec cat " + outputFile(name) + "\n");
    }
    writeFile(outputFile(name), output);
    startsNoProcess = true;
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
    const fs::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}
