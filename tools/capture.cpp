#include "tools/capture.h"

#include <cerrno>
#include <chrono>
#include <cstring>

#include <fmt/format.h>

#include "tools/errors.h"

namespace {

// Types of blocks, and codes of their options.
constexpr uint32_t kSection = 0x0A0D0D0A;
constexpr uint32_t kInterface = 1;
constexpr uint32_t kPacket = 6;
constexpr uint16_t kEnd = 0;
constexpr uint16_t kComment = 1;
constexpr uint16_t kInterfaceName = 2;
constexpr uint16_t kInterfaceDescription = 3;
constexpr uint16_t kFlags = 2; // of a packet

constexpr uint32_t kByteOrder = 0x1A2B3C4D; // of the numbers in the file
constexpr uint16_t kUser0 = 147;            // the link type of the front board's line
constexpr uint16_t kUser1 = 148;            // and of the control PC's
constexpr uint32_t kLongestPacket = 262144; // what readers allow

constexpr uint32_t kInbound = 1;
constexpr uint32_t kOutbound = 2;

// Numbers stand in this computer's order; the section's head says which that is.
template <typename Number> std::string number(Number value)
{
    std::string bytes(sizeof(value), '\0');
    std::memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}

std::string padded(std::string_view bytes)
{
    std::string result(bytes);
    result.resize((bytes.size() + 3) / 4 * 4);
    return result;
}

std::string option(uint16_t code, std::string_view value)
{
    value = value.substr(0, UINT16_MAX);
    return number(code) + number(static_cast<uint16_t>(value.size())) + padded(value);
}

std::string block(uint32_t type, const std::string &body)
{
    const auto length = static_cast<uint32_t>(body.size() + 3 * sizeof(uint32_t));
    return number(type) + number(length) + body + number(length);
}

} // namespace

Capture::Capture(const std::string &path, const std::string &about)
    : path_(path), file_(std::fopen(path.c_str(), "we"))
{
    if (file_ == nullptr) {
        throw LocalError(fmt::format("cannot write {}: {}", path, std::strerror(errno)));
    }
    constexpr uint16_t kMajor = 1;
    constexpr uint16_t kMinor = 0;
    constexpr int64_t kUnknownLength = -1;
    write(block(kSection, number(kByteOrder) + number(kMajor) + number(kMinor) +
                              number(kUnknownLength) + option(kComment, about) + option(kEnd, "")));
}

void Capture::write(const std::string &block)
{
    if (std::fwrite(block.data(), 1, block.size(), file_.get()) != block.size() ||
        std::fflush(file_.get()) != 0) {
        throw LocalError(fmt::format("cannot write {}: {}", path_, std::strerror(errno)));
    }
}

void Capture::take(std::string_view side, Passing passing, std::string_view bytes)
{
    auto found = interfaces_.find(side);
    if (found == interfaces_.end()) {
        const auto next = static_cast<uint32_t>(interfaces_.size());
        found = interfaces_.emplace(side, next).first;
        constexpr uint16_t kReserved = 0;
        write(block(kInterface, number(side == "pc" ? kUser1 : kUser0) + number(kReserved) +
                                    number(kLongestPacket) + option(kInterfaceName, side) +
                                    option(kInterfaceDescription, "vesk_h264, outbound: to it") +
                                    option(kEnd, "")));
    }
    const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    const auto time = static_cast<uint64_t>(now.count());
    const auto length = static_cast<uint32_t>(bytes.size());
    const uint32_t flags = passing == Passing::kSent ? kOutbound : kInbound;
    constexpr unsigned kHalf = 32; // bits
    write(block(kPacket, number(found->second) + number(static_cast<uint32_t>(time >> kHalf)) +
                             number(static_cast<uint32_t>(time)) + number(length) + number(length) +
                             padded(bytes) + option(kFlags, number(flags)) + option(kEnd, "")));
}
