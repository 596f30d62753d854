#pragma once

// Bytes as the tests write and print them: a std::string of them, in hexadecimal where a person
// looks.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

inline std::string hex(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<uint8_t>(byte));
        text += digits;
    }
    return text;
}

inline std::string hex(const uint8_t *bytes, size_t count)
{
    return hex({reinterpret_cast<const char *>(bytes), count});
}

// The sum of the bytes, modulo 256.
inline uint8_t sumOf(std::string_view bytes)
{
    unsigned sum = 0;
    for (const char byte : bytes) {
        sum += static_cast<uint8_t>(byte);
    }
    return static_cast<uint8_t>(sum);
}

inline std::string withChecksum(std::string_view bytes)
{
    return std::string(bytes) + static_cast<char>(sumOf(bytes));
}

// The frame of these bytes, with the right checksum: "<T...>" a command, "<F...>" a reply.
inline std::string frame(char kind, const std::string &bytes)
{
    return std::string("<") + kind + hex(withChecksum(bytes)) + '>';
}

// 0, 1, 2 and so on, modulo `period`. A prime one is no divisor of a buffer's size.
inline std::string countingBytes(size_t count, size_t period = 256)
{
    std::string bytes;
    for (size_t i = 0; i < count; ++i) {
        bytes += static_cast<char>(i % period);
    }
    return bytes;
}
