#pragma once

// What happened last, in words. It lies in memory that the parent process shares, so it can still
// be read after a crash or a hang.

#include <cstdarg>
#include <cstdint>
#include <cstdio>

struct Journal {
    static constexpr uint32_t kLines = 50;
    static constexpr uint32_t kWidth = 200;

    uint64_t seed;  // of the life in progress
    bool prints;    // each line at once
    uint64_t step;  // calls of the daemon so far
    int64_t time;   // virtual nanoseconds
    uint64_t count; // lines so far; the last kLines are kept
    char lines[kLines][kWidth];
    char invariant[64]; // the one that failed, or empty
    char reason[1024];

    void print(FILE *out) const
    {
        for (uint64_t i = count > kLines ? count - kLines : 0; i < count; ++i) {
            std::fprintf(out, "  %s\n", lines[i % kLines]);
        }
    }
};
