#include "tools/address.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <numeric>

#include <arpa/inet.h>

#include <fmt/format.h>

#include "tools/errors.h"
#include "tools/text.h"

namespace {

uint32_t number(std::string_view address)
{
    return std::accumulate(
        address.begin(), address.end(), uint32_t{0},
        [](uint32_t sum, char byte) { return sum << 8 | static_cast<unsigned char>(byte); });
}

unsigned at(std::string_view bytes, size_t index)
{
    return static_cast<unsigned char>(bytes[index]);
}

} // namespace

std::string bytesOfAddress(std::string_view text)
{
    std::string bytes(4, '\0');
    if (inet_pton(AF_INET, std::string(text).c_str(), bytes.data()) != 1) {
        throw UsageError(
            fmt::format("\"{}\" is not an address such as 192.168.0.100", escape(text)));
    }
    return bytes;
}

std::string bytesOfMask(std::string_view text)
{
    std::string bytes = bytesOfAddress(text);
    if (!isContiguous(bytes)) {
        throw UsageError(
            fmt::format("\"{}\" is not a mask: its ones must come before its zeros, as "
                        "in 255.255.255.0",
                        escape(text)));
    }
    return bytes;
}

bool isContiguous(std::string_view mask)
{
    const uint32_t zeros = ~number(mask);
    return (zeros & (zeros + 1)) == 0;
}

std::string bytesOfMac(std::string_view text)
{
    std::string bytes;
    for (std::string_view rest = text; bytes.size() < 6;) {
        const size_t end = std::min(rest.find(':'), rest.size());
        uint8_t byte = 0;
        const auto result = std::from_chars(rest.data(), rest.data() + end, byte, 16);
        const bool isLast = end == rest.size();
        if (end > 2 || result.ec != std::errc() || result.ptr != rest.data() + end ||
            isLast != (bytes.size() == 5)) {
            throw UsageError(
                fmt::format("\"{}\" is not a MAC address such as 02:76:65:73:6b:01", escape(text)));
        }
        bytes += static_cast<char>(byte);
        rest.remove_prefix(isLast ? end : end + 1);
    }
    return bytes;
}

std::string addressText(std::string_view bytes)
{
    return fmt::format("{}.{}.{}.{}", at(bytes, 0), at(bytes, 1), at(bytes, 2), at(bytes, 3));
}

std::string macText(std::string_view bytes)
{
    return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", at(bytes, 0), at(bytes, 1),
                       at(bytes, 2), at(bytes, 3), at(bytes, 4), at(bytes, 5));
}
