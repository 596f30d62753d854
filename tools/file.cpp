#include "tools/file.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tools/errors.h"

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
        throw LocalError(fmt::format("cannot read {}: {}", file, std::strerror(error)));
    }
    return content;
}
