#pragma once

// The daemon's UDP socket and the PCs that send to it.

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "tests/simulation/threads.h"

struct PcAddress {
    uint32_t ip = 0; // network byte order
    uint16_t port = 0;
    bool operator==(const PcAddress &) const = default;
};

struct Datagram {
    PcAddress from;
    std::string bytes;
};

class Network {
public:
    static constexpr size_t kQueue = 64; // datagrams that the system keeps

    explicit Network(Threads &threads) : threads_(threads) {}

    void sendFromPc(Datagram datagram)
    {
        if (queue_.size() < kQueue) {
            queue_.push_back(std::move(datagram));
        }
        if (waiting_ != 0) {
            threads_.wake(waiting_, threads_.now() + 50 * kMicrosecond);
        }
    }
    // Waits for a datagram.
    Datagram receive()
    {
        while (queue_.empty()) {
            waiting_ = threads_.current();
            threads_.sleepUntil(kNever);
        }
        waiting_ = 0;
        Datagram datagram = std::move(queue_.front());
        queue_.pop_front();
        return datagram;
    }
    void restart()
    {
        queue_.clear();
        waiting_ = 0;
    }
    bool isEmpty() const
    {
        return queue_.empty();
    }

private:
    Threads &threads_;
    std::deque<Datagram> queue_;
    size_t waiting_ = 0; // the thread that waits, 0 if none
};
