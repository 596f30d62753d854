#pragma once

// Waiting: for bytes, for a moment, for Ctrl-C.

#include <chrono>
#include <span>
#include <vector>

using Milliseconds = std::chrono::milliseconds;

// A line counts as quiet after this time without a byte.
inline constexpr Milliseconds kQuiet{100};

// A moment some time from now, on a clock that is never set.
class Deadline {
public:
    explicit Deadline(Milliseconds fromNow);
    Milliseconds left() const; // 0 when it has passed
    bool passed() const;

private:
    std::chrono::steady_clock::time_point at_;
};

// Waits until a descriptor is readable (or closed) or the time is over. Returns the readable ones.
std::vector<int> waitReadable(std::span<const int> descriptors, Milliseconds timeout);

// While an Interruption exists, SIGINT and SIGTERM only make its descriptor readable.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption &) = delete;
    Interruption &operator=(const Interruption &) = delete;

    int descriptor() const;

private:
    int descriptor_;
};
