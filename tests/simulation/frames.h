#pragma once

// What the board sends, made of bytes.

#include <cstdint>
#include <cstdio>
#include <string>

// A frame of the board with these seven bytes and their sum.
inline std::string frame(const uint8_t (&seven)[7], bool isUpperCase = false)
{
    uint8_t sum = 0;
    std::string text = "<T";
    char hex[3];
    for (const uint8_t byte : seven) {
        sum = static_cast<uint8_t>(sum + byte);
        std::snprintf(hex, sizeof hex, isUpperCase ? "%02X" : "%02x", byte);
        text += hex;
    }
    std::snprintf(hex, sizeof hex, isUpperCase ? "%02X" : "%02x", sum);
    return text + hex + ">";
}

// A payload: the bytes and their sum.
inline std::string withSum(const std::string &bytes)
{
    uint8_t sum = 0;
    for (const char byte : bytes) {
        sum = static_cast<uint8_t>(sum + static_cast<uint8_t>(byte));
    }
    return bytes + static_cast<char>(sum);
}
