#pragma once

// Notes the order of a module's accesses to its atomics, and with what memory order each is made.
// A race that a run would meet once in a million passes is so found at the first one.
//
//     #include "tests/support/noted_atomic.h"
//     #define atomic NotedAtomic
//     #include "command/channel.cpp"
//     #undef atomic
//
// Headers with atomics of their own that are not meant must have been included before.

#include <atomic>
#include <functional>

// Called before each access, where set: "load" or "store", the atomic and the memory order.
inline std::function<void(const char *, const void *, std::memory_order)> onAtomicAccess;

namespace std {

template <typename T> struct NotedAtomic : atomic<T> {
    using atomic<T>::atomic;
    using atomic<T>::operator=;

    T load(memory_order order) const
    {
        if (onAtomicAccess) {
            onAtomicAccess("load", this, order);
        }
        return atomic<T>::load(order);
    }
    void store(T value, memory_order order)
    {
        if (onAtomicAccess) {
            onAtomicAccess("store", this, order);
        }
        atomic<T>::store(value, order);
    }
};

} // namespace std
