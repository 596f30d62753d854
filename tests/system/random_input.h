#pragma once

// Random input for the daemon on the simulated board, from a seed.

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>

#include "tests/support/bytes.h"
#include "tests/system/board.h"

// Input for the daemon: noise, frames, frames with a few characters changed, removed or added, and
// commands with a payload. Nothing in it takes the network away or completes a firmware update.
class RandomInput {
public:
    explicit RandomInput(uint32_t seed) : random(seed) {}

    size_t below(size_t limit)
    {
        return std::uniform_int_distribution<size_t>(0, limit - 1)(random);
    }

    std::string noise()
    {
        // Mostly short, at times longer than a datagram can be that the daemon takes whole.
        const size_t limits[] = {4, 40, 40, 40, 40, 300, 300, 1500};
        std::string bytes(below(below(50) == 0 ? 6000 : limits[below(std::size(limits))]), '\0');
        for (char &byte : bytes) {
            byte = static_cast<char>(below(256));
        }
        return bytes;
    }

    std::string frame()
    {
        // clang-format off
        const uint8_t codes[] = {0x10, 0x68, 0x6A, 0x73, 0x7D, 0x84, 0x85, 0x86, 0x88, 0x89, 0x8C,
                                 0x8D, 0x8E, 0x97, 0xF1, 0xF3, static_cast<uint8_t>(below(0x98))};
        // clang-format on
        const uint8_t dat1s[] = {0x01, 0x02, 0x03, 0x04, 0x09, 0x10, 0x11, 0x20, byte()};
        return command({address(), byte(), codes[below(std::size(codes))],
                        dat1s[below(std::size(dat1s))], byte(), byte(), byte()});
    }

    // F0, F2 or 9A A0 with what follows them, at times a byte too short, or with a wrong checksum.
    std::string commandWithPayload()
    {
        std::string frame;
        std::string payload;
        switch (below(3)) {
        case 0:
            payload = std::string(1 + below(16), static_cast<char>(byte()));
            frame = command({address(), byte(), 0xF0, below(2) == 0 ? uint8_t{0x20} : byte(), 0,
                             static_cast<uint8_t>(payload.size() + 1), 0});
            payload = withChecksum(payload);
            break;
        case 1:
            payload = "[a=1,b=2]";
            frame = command({address(), byte(), 0xF2, static_cast<uint8_t>(below(0x40)), byte(),
                             byte(), byte()});
            break;
        default:
            // Announces 2 GiB, more than blocks can be numbered: a transfer stays open, and blocks
            // 1 and 2 are stored. Bytes that are lost on the way leave it at that.
            payload = std::string(1024, '\x7F');
            payload[100] = static_cast<char>(byte());
            payload = withChecksum(payload);
            frame = command({address(), byte(), 0x9A, 0xA0, 7, static_cast<uint8_t>(below(3)), 0});
            break;
        }
        if (below(8) == 0) {
            payload[below(payload.size())] = static_cast<char>(byte());
        }
        return frame + payload.substr(below(20) == 0 ? 1 : 0);
    }

    std::string mutatedFrame()
    {
        std::string text = frame();
        for (size_t changes = 1 + below(3); changes > 0 && !text.empty(); --changes) {
            const size_t at = below(text.size());
            const size_t kind = below(4);
            if (kind == 0) {
                text.erase(at, 1);
            } else if (kind == 1) {
                text.insert(at, 1, "<T>F0\r\n\0"[below(8)]);
            } else if (kind == 2) {
                text[at] = static_cast<char>(byte());
            } else {
                text.resize(at + 1);
            }
        }
        return text;
    }

    std::string next()
    {
        const size_t kind = below(9);
        return kind == 0   ? noise()
               : kind == 8 ? commandWithPayload()
               : kind <= 3 ? mutatedFrame()
               : kind == 4 ? mutatedFrame() + frame() + mutatedFrame()
                           : frame();
    }

protected:
    // Below 0x5A, so that the answers to those from there on are known.
    uint8_t address()
    {
        return static_cast<uint8_t>(below(0x5A));
    }

    uint8_t byte()
    {
        return static_cast<uint8_t>(below(256));
    }

    std::mt19937 random;
};
