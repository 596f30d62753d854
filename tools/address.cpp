#include "tools/address.h"

#include <charconv>
#include <cstdint>
#include <optional>

#include <fmt/format.h>

#include "tools/errors.h"
#include "tools/text.h"

namespace {

// `count` numbers from 0 to 255 in the given base, of `digits` digits at most, with `separator`
// between them; nothing if `text` is anything else.
std::optional<std::string> parse(std::string_view text, size_t count, char separator, int base,
                                 size_t digits)
{
    std::string bytes;
    while (bytes.size() < count) {
        const bool isLast = bytes.size() + 1 == count;
        const size_t end = isLast ? text.size() : text.find(separator);
        if (end == std::string_view::npos || end > digits) {
            return std::nullopt;
        }
        uint8_t byte = 0;
        const auto result = std::from_chars(text.data(), text.data() + end, byte, base);
        if (result.ec != std::errc() || result.ptr != text.data() + end) {
            return std::nullopt;
        }
        bytes += static_cast<char>(byte);
        text.remove_prefix(isLast ? end : end + 1);
    }
    return bytes;
}

unsigned at(std::string_view bytes, size_t index)
{
    return static_cast<unsigned char>(bytes[index]);
}

} // namespace

std::string bytesOfAddress(std::string_view text)
{
    const auto bytes = parse(text, 4, '.', 10, 3);
    if (!bytes) {
        throw UsageError(
            fmt::format("\"{}\" is not an address such as 192.168.0.100", escape(text)));
    }
    return *bytes;
}

std::string bytesOfMac(std::string_view text)
{
    const auto bytes = parse(text, 6, ':', 16, 2);
    if (!bytes) {
        throw UsageError(
            fmt::format("\"{}\" is not a MAC address such as 02:76:65:73:6b:01", escape(text)));
    }
    return *bytes;
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
