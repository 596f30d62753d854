#pragma once

// Included ahead of every source of the simulated daemon. Each access to an atomic is a place where
// the simulation may let the other threads run, so the seed decides how the accesses of the threads
// mix.

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <charconv>
#include <iterator>
#include <new>

extern "C" {
extern int32_t simulationAccessesLeft; // until the next change of threads
void simulationChangeThreads();
}

namespace std {

template <typename T> struct SwitchingAtomic : atomic<T> {
    using atomic<T>::atomic;
    using atomic<T>::operator=;

    T load(memory_order order) const
    {
        beforeAccess();
        return atomic<T>::load(order);
    }
    void store(T value, memory_order order)
    {
        beforeAccess();
        atomic<T>::store(value, order);
    }

private:
    static void beforeAccess()
    {
        if (--simulationAccessesLeft < 0) {
            simulationChangeThreads();
        }
    }
};

} // namespace std

#define atomic SwitchingAtomic
