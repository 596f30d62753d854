#pragma once

// `memman` manages one fixed region of memory with a sorted table of its free extents. One manager
// serves one thread.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

// The free extents of a region, sorted by address; no two adjacent ones touch.
//
// An address is a plain number that the manager never dereferences. 0 is the failure result, so a
// region must not start there.
struct MemoryManager {
    static constexpr uint32_t kMaxFree = 500;
    struct Extent {
        uint32_t address;
        uint32_t size; // bytes, a multiple of 4
    };

    uint32_t freeCount;     // entries in use in `free`
    uint32_t peakFreeCount; // the largest value that freeCount has reached
    uint32_t lostBytes;     // bytes given back that could not be recorded
    uint32_t lostCount;     // number of such losses
    Extent free[kMaxFree];
};

inline constexpr uint32_t kMemmanBufferSize = 2 * 1024 * 1024;
extern uint8_t _memman_buffer[kMemmanBufferSize]; // intended as the region
extern MemoryManager *memman;                     // intended for its manager; null

// Makes `manager` empty. The region is then added with memman_free().
void memman_init(MemoryManager *manager);

// Returns the number of free bytes in all extents.
uint32_t memman_total(const MemoryManager *manager);

// Takes `size` bytes, rounded up to a multiple of 4, from the first extent in address order that is
// large enough. Returns the address, or 0 when there is none.
[[nodiscard]] uint32_t memman_alloc(MemoryManager *manager, uint32_t size);

// Gives back `size` bytes (rounded up as when they were taken) at `address` and joins them with the
// free extents that they touch. Returns 0; or -1 when a new entry is needed and the table is full,
// or when the rounded size does not fit in 32 bits. The piece is then lost for good and counted as
// lost. Nothing checks that the piece lies in the region or that it does not overlap a free extent.
int32_t memman_free(MemoryManager *manager, uint32_t address, uint32_t size);

// The same in whole pages of 4096 bytes.
[[nodiscard]] uint32_t memman_alloc_4k(MemoryManager *manager, uint32_t size);
int32_t memman_free_4k(MemoryManager *manager, uint32_t address, uint32_t size);
