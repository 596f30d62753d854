#pragma once

// The serial line between the daemon and the front board, at its real pace: 10 bits a byte, 115200
// bits a second, each way. The system buffers 4095 bytes a way. What arrives beyond that is lost; a
// writer waits.

#include <deque>
#include <functional>
#include <string>

#include "tests/simulation/threads.h"

class Line {
public:
    static constexpr Time kByteTime = 10 * kSecond / 115200;
    static constexpr size_t kBuffer = 4095;

    explicit Line(const Threads &threads) : threads_(threads) {}

    // The board's side. The bytes follow those that are still on their way.
    void sendFromBoard(const std::string &bytes);
    Time boardIsDoneAt() const
    {
        return boardDone_;
    }
    bool stalled = false; // the far end takes nothing: writers wait

    // The daemon's side.
    std::string read(size_t size);
    void unread(const std::string &bytes)
    {
        waiting_.insert(0, bytes);
    }
    bool roomFor(size_t bytes) const;
    void write(const std::string &bytes); // the bytes are on their way
    void flushInput();
    void restart(); // the power was off

    // When the next byte arrives, or kNever. A byte that waits to be read arrives now.
    Time nextArrival() const;

private:
    struct Burst {
        Time start; // of its first byte's arrival
        std::string bytes;
    };
    void receive();

    const Threads &threads_;
    std::deque<Burst> coming_;
    Time boardDone_ = 0;
    std::string waiting_; // arrived, not read
    Time sentAt_ = 0;     // when the last byte written will have left
};
