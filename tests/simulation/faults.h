#pragma once

// Calls that fail. A fault names a kind of call, what it is called for, and how long it lasts.

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

// clang-format off
enum class Call : uint8_t {
    open, close, read, write, truncate, sync, stat, link, remove, mkdir, ioctl, control, socket, bind,
    receive, send, terminal, start, thread, memory, sleep,
    count
};
// clang-format on
const char *nameOf(Call call);

struct Fault {
    Call call = Call::open;
    std::string object; // part of the path or the descriptor's name; empty: any
    int error = EIO;
    bool lasts = false; // until the faults are healed, instead of once
};

class Faults {
public:
    void add(Fault fault)
    {
        faults_.push_back(std::move(fault));
    }
    void heal()
    {
        faults_.clear();
        failAt = 0;
    }
    bool areAny() const
    {
        return !faults_.empty();
    }
    // True when this call must fail; sets errno.
    bool hit(Call call, const std::string &object);

    // For runs that go through all calls: the n-th one fails, and with `failLasts` every later one
    // of the same kind and object too. 0 is none.
    uint64_t failAt = 0;
    bool failLasts = false;
    int failError = EIO;

    uint64_t calls = 0; // that could have failed
    uint64_t hits = 0;

private:
    std::vector<Fault> faults_;
};
