#include "tools/file.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tools/errors.h"
#include "tools/text.h"

std::string contentOf(const std::string &file)
{
    const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    std::string content;
    std::array<char, 65536> buffer;
    ssize_t count = -1;
    while (descriptor >= 0 && (count = read(descriptor, buffer.data(), buffer.size())) > 0) {
        content.append(buffer.data(), static_cast<size_t>(count));
    }
    const int error = errno;
    if (descriptor >= 0) {
        close(descriptor);
    }
    if (count < 0) {
        throw LocalError(fmt::format("cannot read {}: {}", escape(file), std::strerror(error)));
    }
    return content;
}

namespace {

[[noreturn]] void failToWrite(const std::string &file, const std::string &why)
{
    throw LocalError(fmt::format("cannot write {}: {}", escape(file), why));
}

// Writes everything and closes the descriptor. Returns the error, or 0.
int writeAll(int descriptor, std::string_view content)
{
    int error = 0;
    while (!content.empty() && error == 0) {
        const ssize_t count = write(descriptor, content.data(), content.size());
        if (count >= 0) {
            content.remove_prefix(static_cast<size_t>(count));
        } else if (errno != EINTR) {
            error = errno;
        }
    }
    if (error == 0 && fsync(descriptor) != 0) {
        error = errno;
    }
    if (close(descriptor) != 0 && error == 0) {
        error = errno;
    }
    return error;
}

// What the name stands for, if it is a link.
std::string withoutLinks(const std::string &file)
{
    char *const path = realpath(file.c_str(), nullptr);
    std::string result = path == nullptr ? file : path;
    std::free(path); // NOLINT(cppcoreguidelines-no-malloc): realpath() allocates it
    return result;
}

// The name may have been a new one, or a replaced one. A failure leaves one of both, so it counts
// for nothing.
void syncDirectoryOf(const std::string &file)
{
    const size_t slash = file.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : file.substr(0, slash + 1);
    const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        static_cast<void>(fsync(descriptor));
        close(descriptor);
    }
}

} // namespace

void replaceFile(const std::string &file, std::string_view content)
{
    const std::string target = withoutLinks(file);
    struct stat before {};
    const bool isThere = stat(target.c_str(), &before) == 0;
    if (isThere && S_ISDIR(before.st_mode)) {
        failToWrite(file, std::strerror(EISDIR));
    }
    if (isThere && !S_ISREG(before.st_mode)) {
        failToWrite(file, "it is not a regular file");
    }
    // A new name would take the place of a file that must not be written.
    if (isThere && access(target.c_str(), W_OK) != 0) {
        failToWrite(file, std::strerror(errno));
    }
    std::string temporary = target + ".XXXXXX";
    const int descriptor = mkostemp(temporary.data(), O_CLOEXEC);
    if (descriptor < 0) {
        failToWrite(file, std::strerror(errno));
    }
    if (isThere) {
        // Dropped: only root can give a file to somebody else. It comes first, as it may change the
        // mode.
        [[maybe_unused]] const int result = fchown(descriptor, before.st_uid, before.st_gid);
    }
    const mode_t mask = umask(0);
    umask(mask);
    int error =
        fchmod(descriptor, isThere ? before.st_mode & 07777U : 0666U & ~mask) == 0 ? 0 : errno;
    const int writeError = writeAll(descriptor, content);
    error = error == 0 ? writeError : error;
    if (error == 0 && rename(temporary.c_str(), target.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        unlink(temporary.c_str());
        failToWrite(file, std::strerror(error));
    }
    syncDirectoryOf(target);
}
