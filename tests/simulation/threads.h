#pragma once

// The threads of the simulated world, as fibers that share one processor and one virtual clock.
//
// Thread 0 is the world outside: it plays the front board, the PCs and the power switch. The others
// are the daemon's. A thread runs until it sleeps; then the one that wakes first goes on, and the
// clock stands at that moment. So time passes only in sleeps, and the same seed gives the same run.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

using Time = int64_t; // virtual nanoseconds since the life began

inline constexpr Time kMicrosecond = 1000;
inline constexpr Time kMillisecond = 1000 * kMicrosecond;
inline constexpr Time kSecond = 1000 * kMillisecond;
inline constexpr Time kNever = std::numeric_limits<Time>::max();

class Threads {
public:
    Threads();
    ~Threads();
    Threads(const Threads &) = delete;
    Threads &operator=(const Threads &) = delete;

    Time now() const
    {
        return now_;
    }
    const Time &clock() const
    {
        return now_;
    }
    // Moves the clock on. The daemon's threads that would wake within `poll` of now wake that much
    // later.
    void skip(Time duration, Time poll)
    {
        for (size_t i = 1; i < threads_.size(); ++i) {
            threads_[i].wakeAt += threads_[i].wakeAt <= now_ + poll ? duration : 0;
        }
        now_ += duration;
    }
    size_t current() const
    {
        return current_;
    }
    // Starts a thread of the daemon, which is ready at once.
    void start(std::function<void()> body);
    // The running thread sleeps. `kNever` waits for wake().
    void sleepUntil(Time when);
    void sleep(Time duration)
    {
        sleepUntil(now_ + duration);
    }
    void wake(size_t thread, Time when);
    Time wakeTime(size_t thread) const
    {
        return threads_[thread].wakeAt;
    }
    size_t count() const
    {
        return threads_.size();
    }
    // Ends the daemon's threads where they stand. If one of them runs, the outside goes on, and
    // this does not return.
    void endDaemon();

private:
    struct Thread {
        void *stackPointer = nullptr;
        std::byte *stack = nullptr;
        std::function<void()> body;
        Time wakeAt = kNever;
    };
    static void enter();
    void changeTo(size_t thread);
    void removeEnded();

    std::vector<Thread> threads_;
    std::vector<std::byte *> spareStacks_;
    size_t current_ = 0;
    bool hasEnded_ = false;
    Time now_ = 0;
};
