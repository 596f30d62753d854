#include "tools/exclusive.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tools/errors.h"

namespace {

constexpr Milliseconds kBetweenTries{50};

// A descriptor, or -1 while another process has the device.
int tryOpen(const std::string &device)
{
    const int descriptor = open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    const int error = errno;
    if (descriptor >= 0) {
        if (flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) {
            return descriptor; // where no lock is possible, the device is not a serial one
        }
        close(descriptor);
        return -1;
    }
    if (error == EBUSY) {
        return -1;
    }
    const char *const advice =
        error == ENOENT ? "; is the adapter plugged in, and is that its name?"
        : error == EACCES || error == EPERM
            ? "; become a member of its group (`ls -l` shows it, often dialout) and log in again"
        : error == ENXIO || error == ENODEV || error == EIO
            ? "; there is nothing behind it: plug the adapter in again"
            : "";
    throw LocalError(fmt::format("cannot open {}: {}{}", device, std::strerror(error), advice));
}

bool hasOpen(const std::filesystem::path &process, const struct stat &device)
{
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(process / "fd", error)) {
        struct stat found;
        if (stat(entry.path().c_str(), &found) == 0 && S_ISCHR(found.st_mode) &&
            found.st_rdev == device.st_rdev) {
            return true;
        }
    }
    return false;
}

// The process that holds the lock of the device, else one that has it open; "" if none can be seen.
std::string holderOf(const std::string &device)
{
    struct stat wanted;
    if (stat(device.c_str(), &wanted) < 0) {
        return {};
    }
    const auto describe = [](const std::string &id) {
        std::string name;
        std::getline(std::ifstream("/proc/" + id + "/comm"), name);
        return fmt::format("process {} ({})", id, name);
    };
    std::ifstream locks("/proc/locks");
    std::string number;
    std::string type;
    std::string kind;
    std::string access;
    std::string id;
    std::string place;
    for (std::string rest; locks >> number >> type >> kind >> access >> id >> place;) {
        std::getline(locks, rest);
        const std::string inode = place.substr(place.rfind(':') + 1);
        if (type == "FLOCK" && inode == std::to_string(wanted.st_ino) &&
            hasOpen("/proc/" + id, wanted)) {
            return describe(id);
        }
    }
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename();
        if (std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; }) &&
            name != std::to_string(getpid()) && hasOpen(entry.path(), wanted)) {
            return describe(name);
        }
    }
    return {};
}

} // namespace

int openAlone(const std::string &device, Milliseconds wait)
{
    const Deadline deadline(wait);
    for (;;) {
        const bool isLast = deadline.passed();
        const int descriptor = tryOpen(device);
        if (descriptor >= 0) {
            return descriptor;
        }
        if (isLast) {
            const std::string holder = holderOf(device);
            throw LocalError(
                fmt::format("{} is in use by {}; end that, or wait for it with --wait MS", device,
                            holder.empty() ? "another process" : holder));
        }
        std::this_thread::sleep_for(std::min(kBetweenTries, deadline.left()));
    }
}
