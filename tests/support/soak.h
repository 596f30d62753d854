#pragma once

// A random run: a few rounds that are always the same, or under scripts/soak as many as fit into
// VESK_SOAK_SECONDS, with the seed VESK_SOAK_SEED.

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

// The first word of what such a run prints. Under scripts/soak it is shown where the case passes,
// too.
inline constexpr char kSoakSeed[] = "VESK_SOAK_SEED=";

inline uint32_t soakNumber(const char *name, uint32_t otherwise)
{
    const char *const text = std::getenv(name);
    return text == nullptr ? otherwise : static_cast<uint32_t>(std::strtoul(text, nullptr, 0));
}

// 0 but under scripts/soak.
inline uint32_t soakSeconds()
{
    return soakNumber("VESK_SOAK_SECONDS", 0);
}

class SoakRun {
public:
    explicit SoakRun(uint32_t fewRounds) : atLeast(fewRounds)
    {
        std::cout << kSoakSeed << seed << std::endl; // shown where the case fails
    }

    // Whether there is another round, which is then counted.
    bool goesOn()
    {
        if (rounds >= atLeast && std::chrono::steady_clock::now() >= end) {
            return false;
        }
        ++rounds;
        return true;
    }

    const uint32_t seed = soakNumber("VESK_SOAK_SEED", 20250321);
    uint32_t rounds = 0;

private:
    uint32_t atLeast;
    std::chrono::steady_clock::time_point end =
        std::chrono::steady_clock::now() + std::chrono::seconds(soakSeconds());
};
