#pragma once

// `memman`: a manager of one fixed region through a sorted table of its free extents. One manager
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
    uint32_t lostBytes;     // given back when there was no room to record it
    uint32_t lostCount;     // how often that happened
    Extent free[kMaxFree];
};

inline constexpr uint32_t kMemmanBufferSize = 2 * 1024 * 1024;
extern uint8_t _memman_buffer[kMemmanBufferSize]; // meant as the region
extern MemoryManager *memman;                     // meant for its manager; null

// Makes `manager` empty. The region is then added with memman_free().
void memman_init(MemoryManager *manager);

// Bytes free in all extents together.
uint32_t memman_total(const MemoryManager *manager);

// Takes `size` bytes, rounded up to a multiple of 4, from the first extent in address order that
// holds them. Returns the address, or 0 when none does.
[[nodiscard]] uint32_t memman_alloc(MemoryManager *manager, uint32_t size);

// Gives back `size` bytes (rounded up as when they were taken) at `address` and joins them with the
// free extents that they touch. Returns 0; or -1 when a new entry is needed and the table is full,
// or the size cannot be rounded up in 32 bits: the piece is then lost for good and counted as lost.
// Whether the piece lies in the region or overlaps a free extent is not checked.
int32_t memman_free(MemoryManager *manager, uint32_t address, uint32_t size);

// The same in whole pages of 4096 bytes.
[[nodiscard]] uint32_t memman_alloc_4k(MemoryManager *manager, uint32_t size);
int32_t memman_free_4k(MemoryManager *manager, uint32_t address, uint32_t size);
