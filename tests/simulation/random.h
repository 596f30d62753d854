#pragma once

// The dice of a life: everything that is left to chance comes from one seed.

#include <cstdint>
#include <string>

class Random {
public:
    explicit Random(uint64_t seed) : state_(seed) {}

    uint64_t next() // splitmix64
    {
        uint64_t z = state_ += 0x9E3779B97F4A7C15u;
        z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9u;
        z = (z ^ z >> 27) * 0x94D049BB133111EBu;
        return z ^ z >> 31;
    }
    // 0 to limit - 1.
    uint64_t below(uint64_t limit)
    {
        return next() % limit;
    }
    // Both ends included.
    int64_t between(int64_t low, int64_t high)
    {
        return low + static_cast<int64_t>(below(static_cast<uint64_t>(high - low) + 1));
    }
    // True once in `times`.
    bool onceIn(uint64_t times)
    {
        return below(times) == 0;
    }
    uint8_t byte()
    {
        return static_cast<uint8_t>(next());
    }
    std::string bytes(size_t count)
    {
        std::string text(count, '\0');
        for (char &character : text) {
            character = static_cast<char>(byte());
        }
        return text;
    }

private:
    uint64_t state_;
};
