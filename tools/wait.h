#pragma once

// Waiting: for bytes, for a moment, for Ctrl-C.

#include <chrono>
#include <span>
#include <vector>

using Milliseconds = std::chrono::milliseconds;

// This long without a byte, and whoever was talking has finished.
inline constexpr Milliseconds kQuiet{100};

// A moment some time from now, on a clock that nobody sets.
class Deadline {
public:
    explicit Deadline(Milliseconds fromNow);
    Milliseconds left() const; // 0 when it has passed
    bool passed() const;

private:
    std::chrono::steady_clock::time_point at_;
};

// Waits until one of the descriptors can be read (or is closed) or the time is over. Returns those
// that can.
std::vector<int> waitReadable(std::span<const int> descriptors, Milliseconds timeout);

// While one exists, SIGINT and SIGTERM end nothing but make its descriptor readable.
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
