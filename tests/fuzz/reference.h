#pragma once

// The framing of the line, said a second time and as simply as possible, to compare the code with.

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <string>

// Collects frames of 19 characters that begin with "<" and `kind`.
struct Assembler {
    char kind = 'T';
    std::string text; // of the frame in progress

    // True when `byte` is the last one of a frame, which `text` holds until the next call.
    bool take(char byte)
    {
        if (byte == '<' || text.size() == 19) {
            text.clear();
        }
        if (text.empty() ? byte == '<' : text.size() > 1 || byte == kind) {
            text += byte;
        } else {
            text.clear();
        }
        return text.size() == 19;
    }
};

// The eight bytes of a frame. What is no digit counts as 0.
struct Record {
    uint8_t bytes[8] = {};

    Record() = default;
    explicit Record(const std::string &frame)
    {
        for (size_t i = 0; i < 16; ++i) {
            const char digit = frame[2 + i];
            const std::string text(1,
                                   std::isxdigit(static_cast<unsigned char>(digit)) ? digit : '0');
            bytes[i / 2] = static_cast<uint8_t>(bytes[i / 2] * 16 + std::stoi(text, nullptr, 16));
        }
    }
    uint8_t sum() const
    {
        unsigned sum = 0;
        for (size_t i = 0; i < 7; ++i) {
            sum += bytes[i];
        }
        return static_cast<uint8_t>(sum);
    }
    bool isRight() const
    {
        return sum() == bytes[7];
    }
    // The reply that refuses this command.
    std::string refusal() const
    {
        Record reply = *this;
        for (size_t i = 3; i < 7; ++i) {
            reply.bytes[i] = 0xFF;
        }
        reply.bytes[7] = reply.sum();
        return "<F" + reply.digits() + ">";
    }
    std::string digits() const
    {
        std::string text;
        for (const uint8_t byte : bytes) {
            text += "0123456789abcdef"[byte >> 4];
            text += "0123456789abcdef"[byte & 15];
        }
        return text;
    }
};
