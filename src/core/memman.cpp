#include "core/memman.h"

#include <algorithm>

#include "core/record.h"

// Proves the layout in the header.
RECORD_FIELD(MemoryManager, 0, uint32_t, 1, freeCount)
RECORD_FIELD(MemoryManager, 4, uint32_t, 1, peakFreeCount)
RECORD_FIELD(MemoryManager, 8, uint32_t, 1, lostBytes)
RECORD_FIELD(MemoryManager, 12, uint32_t, 1, lostCount)
RECORD_FIELD(MemoryManager, 16, MemoryManager::Extent, MemoryManager::kMaxFree, free)
RECORD_FIELD(MemoryManager::Extent, 0, uint32_t, 1, address)
RECORD_FIELD(MemoryManager::Extent, 4, uint32_t, 1, size)
RECORD_SIZE(MemoryManager::Extent, 8)
RECORD_SIZE(MemoryManager, 16 + MemoryManager::kMaxFree * 8)

uint8_t _memman_buffer[kMemmanBufferSize];
MemoryManager *memman;

namespace {

constexpr uint32_t kWord = 4;
constexpr uint32_t kPage = 4096;

// Stores `size`, rounded up to a multiple of `unit` (a power of two), in `*rounded`. Returns false
// when the result does not fit in 32 bits.
bool roundUp(uint32_t size, uint32_t unit, uint32_t *rounded)
{
    *rounded = (size + (unit - 1)) & ~(unit - 1);
    return *rounded >= size;
}

void removeExtent(MemoryManager *manager, uint32_t index)
{
    MemoryManager::Extent *const at = manager->free + index;
    std::copy(at + 1, manager->free + manager->freeCount, at);
    --manager->freeCount;
}

void insertExtent(MemoryManager *manager, uint32_t index, MemoryManager::Extent extent)
{
    MemoryManager::Extent *const at = manager->free + index;
    MemoryManager::Extent *const last = manager->free + manager->freeCount;
    std::copy_backward(at, last, last + 1);
    *at = extent;
    ++manager->freeCount;
    manager->peakFreeCount = std::max(manager->peakFreeCount, manager->freeCount);
}

int32_t countLoss(MemoryManager *manager, uint32_t size)
{
    ++manager->lostCount;
    manager->lostBytes += size;
    return -1;
}

} // namespace

void memman_init(MemoryManager *manager)
{
    manager->freeCount = 0;
    manager->peakFreeCount = 0;
    manager->lostBytes = 0;
    manager->lostCount = 0;
}

uint32_t memman_total(const MemoryManager *manager)
{
    uint32_t total = 0;
    for (uint32_t i = 0; i < manager->freeCount; ++i) {
        total += manager->free[i].size;
    }
    return total;
}

uint32_t memman_alloc(MemoryManager *manager, uint32_t size)
{
    uint32_t wanted;
    if (!roundUp(size, kWord, &wanted)) {
        return 0;
    }
    for (uint32_t i = 0; i < manager->freeCount; ++i) {
        MemoryManager::Extent &extent = manager->free[i];
        if (extent.size < wanted) {
            continue;
        }
        const uint32_t address = extent.address;
        extent.address += wanted;
        extent.size -= wanted;
        if (extent.size == 0) {
            removeExtent(manager, i);
        }
        return address;
    }
    return 0;
}

int32_t memman_free(MemoryManager *manager, uint32_t address, uint32_t size)
{
    uint32_t given;
    if (!roundUp(size, kWord, &given)) {
        return countLoss(manager, size);
    }
    MemoryManager::Extent *const free = manager->free;
    uint32_t i = 0;
    while (i < manager->freeCount && free[i].address <= address) {
        ++i;
    }
    const bool touchesNext = i < manager->freeCount && address + given == free[i].address;
    if (i > 0 && free[i - 1].address + free[i - 1].size == address) {
        free[i - 1].size += given;
        if (touchesNext) {
            free[i - 1].size += free[i].size;
            removeExtent(manager, i);
        }
        return 0;
    }
    if (touchesNext) {
        free[i].address = address;
        free[i].size += given;
        return 0;
    }
    if (manager->freeCount < MemoryManager::kMaxFree) {
        insertExtent(manager, i, {address, given});
        return 0;
    }
    return countLoss(manager, given);
}

uint32_t memman_alloc_4k(MemoryManager *manager, uint32_t size)
{
    uint32_t pages;
    return roundUp(size, kPage, &pages) ? memman_alloc(manager, pages) : 0;
}

int32_t memman_free_4k(MemoryManager *manager, uint32_t address, uint32_t size)
{
    uint32_t pages;
    return roundUp(size, kPage, &pages) ? memman_free(manager, address, pages)
                                        : countLoss(manager, size);
}
