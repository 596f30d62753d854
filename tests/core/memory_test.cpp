// The manager of free extents, rule by rule and against a model that knows no table; and the heap
// operations that the daemon calls.

#include "core/memman.h"
#include "core/memory.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <random>
#include <utility>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

// Link-time fakes of the heap --------------------------------------------------------------------

namespace {

// Watched only while armed; the test framework allocates too.
struct {
    bool armed = false;
    bool fails = false;
    std::vector<size_t> *taken = nullptr;
    std::vector<const void *> *released = nullptr;
} heap;

} // namespace

extern "C" {
void *__real_malloc(size_t size);
void __real_free(void *memory);
void *__wrap_malloc(size_t size);
void __wrap_free(void *memory);

void *__wrap_malloc(size_t size)
{
    if (!heap.armed) {
        return __real_malloc(size);
    }
    heap.armed = false;
    heap.taken->push_back(size);
    void *const memory = heap.fails ? nullptr : __real_malloc(size);
    heap.armed = true;
    return memory;
}

void __wrap_free(void *memory)
{
    if (heap.armed) {
        heap.armed = false;
        heap.released->push_back(memory);
        heap.armed = true;
    }
    __real_free(memory);
}
}

namespace {

using Extents = std::vector<std::pair<uint32_t, uint32_t>>; // address and size

constexpr uint32_t kBase = 0x100000;
constexpr uint32_t kRegion = 2097152;
constexpr uint32_t kEntries = 500;

Extents table(const MemoryManager &manager)
{
    Extents extents;
    for (uint32_t i = 0; i < manager.freeCount; ++i) {
        extents.emplace_back(manager.free[i].address, manager.free[i].size);
    }
    return extents;
}

class Pool {
public:
    explicit Pool(const Extents &extents = {})
    {
        memman_init(&manager);
        for (const auto &[address, size] : extents) {
            EXPECT_EQ(memman_free(&manager, address, size), 0);
        }
    }
    MemoryManager manager;
};

// 500 entries of 4 bytes, 16 bytes apart: no room for another one.
void fillTable(MemoryManager *manager)
{
    memman_init(manager);
    for (uint32_t i = 0; i < kEntries; ++i) {
        ASSERT_EQ(memman_free(manager, kBase + i * 16, 4), 0) << i;
    }
    ASSERT_EQ(manager->freeCount, kEntries);
}

// The record -------------------------------------------------------------------------------------

static_assert(offsetof(MemoryManager, freeCount) == 0);
static_assert(offsetof(MemoryManager, peakFreeCount) == 4);
static_assert(offsetof(MemoryManager, lostBytes) == 8);
static_assert(offsetof(MemoryManager, lostCount) == 12);
static_assert(offsetof(MemoryManager, free) == 16);
static_assert(offsetof(MemoryManager, free[1].address) == 24);
static_assert(offsetof(MemoryManager, free[1].size) == 28);
static_assert(std::size(MemoryManager{}.free) == kEntries);
static_assert(sizeof(MemoryManager) == 4016);

size_t residentPages(uint8_t *start, size_t pages, size_t pageSize)
{
    std::vector<unsigned char> resident(pages);
    EXPECT_EQ(mincore(start, pages * pageSize, resident.data()), 0) << std::strerror(errno);
    size_t count = 0;
    for (const unsigned char page : resident) {
        count += page & 1u;
    }
    return count;
}

TEST(Memory, RegionCostsNoMemoryUntilItIsTouched)
{
    const size_t pageSize = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    // The whole pages inside; the edges are shared with other variables.
    const size_t offset = reinterpret_cast<uintptr_t>(_memman_buffer) % pageSize;
    uint8_t *const start = _memman_buffer + (offset == 0 ? 0 : pageSize - offset);
    const size_t pages =
        static_cast<size_t>(_memman_buffer + sizeof _memman_buffer - start) / pageSize;
    ASSERT_GE(pages, kRegion / pageSize - 1);
    EXPECT_EQ(residentPages(start, pages, pageSize), 0u);
    start[pages / 2 * pageSize] = 1;
    EXPECT_GT(residentPages(start, pages, pageSize), 0u);
}

TEST(Memory, RegionIs2MiBOfZeroesAndTheManagerSlotIsEmpty)
{
    static_assert(sizeof _memman_buffer == kRegion);
    EXPECT_EQ(memman, nullptr);
    uint32_t set = 0;
    for (const uint8_t byte : _memman_buffer) {
        set += byte;
    }
    EXPECT_EQ(set, 0u);
}

TEST(Memory, InitialisingEmptiesThePool)
{
    MemoryManager manager;
    std::memset(&manager, 0xFF, sizeof manager);
    memman_init(&manager);
    EXPECT_EQ(manager.freeCount, 0u);
    EXPECT_EQ(manager.peakFreeCount, 0u);
    EXPECT_EQ(manager.lostBytes, 0u);
    EXPECT_EQ(manager.lostCount, 0u);
    EXPECT_EQ(memman_total(&manager), 0u);
    EXPECT_EQ(memman_alloc(&manager, 4), 0u);
    EXPECT_EQ(memman_alloc_4k(&manager, 1), 0u);
}

TEST(Memory, WholeRegionGivenToANewPoolIsOneEntry)
{
    Pool pool;
    EXPECT_EQ(memman_free(&pool.manager, kBase, kRegion), 0);
    EXPECT_EQ(table(pool.manager), (Extents{{kBase, kRegion}}));
    EXPECT_EQ(pool.manager.peakFreeCount, 1u);
    EXPECT_EQ(memman_total(&pool.manager), 2097152u);
}

TEST(Memory, TotalIsTheSumOfAllEntries)
{
    Pool pool({{0x1000, 0x100}, {0x2000, 0x20}, {0x3000, 4}});
    EXPECT_EQ(memman_total(&pool.manager), 0x124u);
}

// Taking -----------------------------------------------------------------------------------------

TEST(Memory, SizesAreRoundedUpToFourBytes)
{
    for (const auto &[asked, taken] : std::map<uint32_t, uint32_t>{
             {1, 4}, {2, 4}, {3, 4}, {4, 4}, {5, 8}, {8, 8}, {4095, 4096}, {4097, 4100}}) {
        Pool pool({{kBase, kRegion}});
        EXPECT_EQ(memman_alloc(&pool.manager, asked), kBase);
        EXPECT_EQ(table(pool.manager), (Extents{{kBase + taken, kRegion - taken}})) << asked;
        EXPECT_EQ(memman_free(&pool.manager, kBase, asked), 0);
        EXPECT_EQ(table(pool.manager), (Extents{{kBase, kRegion}})) << asked;
    }
}

TEST(Memory, PagesAreRoundedUpTo4096Bytes)
{
    for (const auto &[asked, taken] : std::map<uint32_t, uint32_t>{
             {1, 4096}, {4095, 4096}, {4096, 4096}, {4097, 8192}, {8192, 8192}, {8193, 12288}}) {
        Pool pool({{kBase, kRegion}});
        EXPECT_EQ(memman_alloc_4k(&pool.manager, asked), kBase);
        EXPECT_EQ(table(pool.manager), (Extents{{kBase + taken, kRegion - taken}})) << asked;
        EXPECT_EQ(memman_free_4k(&pool.manager, kBase, asked), 0);
        EXPECT_EQ(table(pool.manager), (Extents{{kBase, kRegion}})) << asked;
    }
}

TEST(Memory, TakesFromTheLowestEntryThatIsLargeEnough)
{
    Pool pool({{0x1000, 8}, {0x2000, 16}, {0x3000, 16}, {0x4000, 12}});
    EXPECT_EQ(memman_alloc(&pool.manager, 12), 0x2000u); // not the best fit at 0x4000
    EXPECT_EQ(table(pool.manager), (Extents{{0x1000, 8}, {0x200C, 4}, {0x3000, 16}, {0x4000, 12}}));
}

TEST(Memory, TakesFromTheLowEndOfAnEntry)
{
    Pool pool({{kBase, 100}});
    EXPECT_EQ(memman_alloc(&pool.manager, 40), kBase);
    EXPECT_EQ(memman_alloc(&pool.manager, 40), kBase + 40);
    EXPECT_EQ(table(pool.manager), (Extents{{kBase + 80, 20}}));
}

TEST(Memory, TakingAllThatIsFreeRemovesTheEntry)
{
    Pool pool({{kBase, kRegion}});
    EXPECT_EQ(memman_alloc(&pool.manager, kRegion), kBase);
    EXPECT_EQ(pool.manager.freeCount, 0u);
    EXPECT_EQ(memman_total(&pool.manager), 0u);
    EXPECT_EQ(memman_alloc(&pool.manager, 1), 0u);
}

TEST(Memory, RemovedEntryLetsTheLaterOnesMoveDown)
{
    Pool pool({{0x1000, 4}, {0x2000, 8}, {0x3000, 16}, {0x4000, 4}});
    EXPECT_EQ(memman_alloc(&pool.manager, 8), 0x2000u);
    EXPECT_EQ(table(pool.manager), (Extents{{0x1000, 4}, {0x3000, 16}, {0x4000, 4}}));
}

TEST(Memory, FailsWhenNoSingleEntryIsLargeEnough)
{
    const Extents extents{{0x1000, 8}, {0x2000, 8}};
    Pool pool(extents);
    EXPECT_EQ(memman_alloc(&pool.manager, 12), 0u);
    EXPECT_EQ(memman_alloc(&pool.manager, 9), 0u); // 12 once rounded
    EXPECT_EQ(table(pool.manager), extents);
    EXPECT_EQ(pool.manager.lostCount, 0u);
}

TEST(Memory, TakingNothingYieldsTheLowestEntryAndTakesNothing)
{
    const Extents extents{{0x1000, 8}, {0x2000, 8}};
    Pool pool(extents);
    EXPECT_EQ(memman_alloc(&pool.manager, 0), 0x1000u);
    EXPECT_EQ(memman_alloc_4k(&pool.manager, 0), 0x1000u);
    EXPECT_EQ(table(pool.manager), extents);
}

TEST(Memory, SizeThatCannotBeRoundedUpIsNeverFound)
{
    const Extents extents{{4, 0xFFFFFFF8}};
    Pool pool(extents);
    for (const uint32_t size : {0xFFFFFFFDu, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
        EXPECT_EQ(memman_alloc(&pool.manager, size), 0u) << size;
        EXPECT_EQ(memman_alloc_4k(&pool.manager, size), 0u) << size;
    }
    EXPECT_EQ(memman_alloc_4k(&pool.manager, 0xFFFFF001), 0u);
    EXPECT_EQ(memman_alloc(&pool.manager, 0xFFFFFFF9), 0u); // rounded, and larger than all there is
    EXPECT_EQ(table(pool.manager), extents);
    EXPECT_EQ(memman_alloc_4k(&pool.manager, 0xFFFFEFFF), 4u);
    EXPECT_EQ(table(pool.manager), (Extents{{0xFFFFF004, 0xFF8}}));
}

TEST(Memory, LargestSizeThatCanBeRoundedIsFound)
{
    Pool pool({{4, 0xFFFFFFF8}});
    EXPECT_EQ(memman_alloc(&pool.manager, 0xFFFFFFF5), 4u);
    EXPECT_EQ(pool.manager.freeCount, 0u);
}

// Giving back ------------------------------------------------------------------------------------

TEST(Memory, PieceThatTouchesNothingGetsAnEntryAtItsPlace)
{
    Pool pool({{0x2000, 4}, {0x4000, 4}});
    EXPECT_EQ(memman_free(&pool.manager, 0x3000, 4), 0);
    EXPECT_EQ(table(pool.manager), (Extents{{0x2000, 4}, {0x3000, 4}, {0x4000, 4}}));
    EXPECT_EQ(memman_free(&pool.manager, 0x1000, 4), 0);
    EXPECT_EQ(table(pool.manager), (Extents{{0x1000, 4}, {0x2000, 4}, {0x3000, 4}, {0x4000, 4}}));
    EXPECT_EQ(memman_free(&pool.manager, 0x5000, 4), 0);
    EXPECT_EQ(table(pool.manager),
              (Extents{{0x1000, 4}, {0x2000, 4}, {0x3000, 4}, {0x4000, 4}, {0x5000, 4}}));
}

TEST(Memory, PieceThatTouchesTheEntryBelowIsAddedToIt)
{
    Pool pool({{0x1000, 0x100}, {0x2000, 4}});
    EXPECT_EQ(memman_free(&pool.manager, 0x1100, 0x10), 0);
    EXPECT_EQ(table(pool.manager), (Extents{{0x1000, 0x110}, {0x2000, 4}}));
}

TEST(Memory, PieceThatTouchesTheLastEntryFromAboveIsAddedToIt)
{
    Pool pool({{0x1000, 4}, {0x2000, 0x100}});
    EXPECT_EQ(memman_free(&pool.manager, 0x2100, 0x10), 0);
    EXPECT_EQ(table(pool.manager), (Extents{{0x1000, 4}, {0x2000, 0x110}}));
}

TEST(Memory, PieceThatTouchesTheEntryAboveIsAddedToIt)
{
    Pool pool({{0x1000, 4}, {0x2000, 0x100}});
    EXPECT_EQ(memman_free(&pool.manager, 0x1FF0, 0x10), 0);
    EXPECT_EQ(table(pool.manager), (Extents{{0x1000, 4}, {0x1FF0, 0x110}}));
}

TEST(Memory, PieceThatTouchesTheFirstEntryFromBelowIsAddedToIt)
{
    Pool pool({{0x1000, 4}, {0x2000, 4}});
    EXPECT_EQ(memman_free(&pool.manager, 0xFF0, 0x10), 0);
    EXPECT_EQ(table(pool.manager), (Extents{{0xFF0, 0x14}, {0x2000, 4}}));
}

TEST(Memory, PieceThatTouchesBothSidesMakesOneEntryOfThree)
{
    Pool pool({{0x1000, 4}, {0x2000, 0x100}, {0x2200, 0x100}, {0x4000, 4}});
    EXPECT_EQ(memman_free(&pool.manager, 0x2100, 0x100), 0);
    EXPECT_EQ(table(pool.manager), (Extents{{0x1000, 4}, {0x2000, 0x300}, {0x4000, 4}}));
    EXPECT_EQ(pool.manager.peakFreeCount, 4u);
}

TEST(Memory, GivenBackSizesAreRoundedBeforeTheyAreJoined)
{
    Pool pool({{0x1000, 4}, {0x1008, 4}});
    EXPECT_EQ(memman_free(&pool.manager, 0x1004, 1), 0);
    EXPECT_EQ(table(pool.manager), (Extents{{0x1000, 12}}));
}

TEST(Memory, PeakIsTheMostEntriesThatThereEverWere)
{
    Pool pool({{0x1000, 4}, {0x2000, 4}, {0x3000, 4}});
    EXPECT_EQ(pool.manager.peakFreeCount, 3u);
    memman_alloc(&pool.manager, 4);
    memman_alloc(&pool.manager, 4);
    EXPECT_EQ(pool.manager.freeCount, 1u);
    EXPECT_EQ(pool.manager.peakFreeCount, 3u);
    memman_free(&pool.manager, 0x1000, 4);
    EXPECT_EQ(pool.manager.freeCount, 2u);
    EXPECT_EQ(pool.manager.peakFreeCount, 3u);
}

TEST(Memory, EmptyPieceThatTouchesNothingGetsAnEntryToo)
{
    Pool pool({{0x2000, 4}});
    EXPECT_EQ(memman_free(&pool.manager, 0x1000, 0), 0);
    EXPECT_EQ(table(pool.manager), (Extents{{0x1000, 0}, {0x2000, 4}}));
    EXPECT_EQ(memman_alloc(&pool.manager, 0), 0x1000u); // and is gone with the first that fits
    EXPECT_EQ(table(pool.manager), (Extents{{0x2000, 4}}));
}

// Whoever gives back what is free already gets what he asked for: nothing is checked.
TEST(Memory, PieceAtTheAddressOfAnEntryComesBehindIt)
{
    Pool pool({{0x1000, 8}, {0x2000, 4}});
    EXPECT_EQ(memman_free(&pool.manager, 0x1000, 4), 0);
    EXPECT_EQ(table(pool.manager), (Extents{{0x1000, 8}, {0x1000, 4}, {0x2000, 4}}));
    EXPECT_EQ(memman_total(&pool.manager), 16u);
}

TEST(Memory, EmptyEntryGrowsWithThePieceGivenBackAtItsAddress)
{
    Pool pool({{0x1000, 0}, {0x2000, 4}});
    EXPECT_EQ(memman_free(&pool.manager, 0x1000, 8), 0);
    EXPECT_EQ(table(pool.manager), (Extents{{0x1000, 8}, {0x2000, 4}}));
}

// Losses -----------------------------------------------------------------------------------------

TEST(Memory, PieceThatTouchesNoneOf500EntriesIsLost)
{
    MemoryManager manager;
    fillTable(&manager);
    const Extents before = table(manager);
    EXPECT_EQ(manager.peakFreeCount, 500u);
    EXPECT_EQ(memman_free(&manager, kBase + 0x10000, 5), -1);
    EXPECT_EQ(manager.lostCount, 1u);
    EXPECT_EQ(manager.lostBytes, 8u); // as rounded
    EXPECT_EQ(memman_free(&manager, kBase + 8, 4), -1);
    EXPECT_EQ(manager.lostCount, 2u);
    EXPECT_EQ(manager.lostBytes, 12u);
    EXPECT_EQ(memman_free_4k(&manager, kBase + 0x20000, 1), -1);
    EXPECT_EQ(manager.lostCount, 3u);
    EXPECT_EQ(manager.lostBytes, 12u + 4096u);
    EXPECT_EQ(table(manager), before);
    EXPECT_EQ(memman_total(&manager), 2000u);
    EXPECT_EQ(manager.peakFreeCount, 500u);
}

TEST(Memory, PieceThatTouchesAnEntryFindsRoomInAFullTable)
{
    MemoryManager manager;
    fillTable(&manager);
    EXPECT_EQ(memman_free(&manager, kBase + 4, 4), 0);            // behind the first
    EXPECT_EQ(memman_free(&manager, kBase + 499 * 16 + 4, 4), 0); // behind the last
    EXPECT_EQ(memman_free(&manager, kBase - 4, 4), 0);            // ahead of the first
    EXPECT_EQ(manager.freeCount, 500u);
    EXPECT_EQ(memman_free(&manager, kBase + 8, 8), 0); // between the first and the second
    EXPECT_EQ(manager.freeCount, 499u);
    EXPECT_EQ(manager.free[0].address, kBase - 4);
    EXPECT_EQ(manager.free[0].size, 24u);
    EXPECT_EQ(manager.free[498].address, kBase + 499 * 16);
    EXPECT_EQ(manager.free[498].size, 8u);
    EXPECT_EQ(memman_free(&manager, kBase + 0x10000, 4), 0); // the entry saved serves another
    EXPECT_EQ(manager.freeCount, 500u);
    EXPECT_EQ(manager.lostCount, 0u);
    EXPECT_EQ(manager.lostBytes, 0u);
}

TEST(Memory, The500thEntryMayGoAnywhere)
{
    for (const uint32_t hole : {0u, 1u, 250u, 499u}) {
        MemoryManager manager;
        memman_init(&manager);
        for (uint32_t i = 0; i < kEntries; ++i) {
            if (i != hole) {
                memman_free(&manager, kBase + i * 16, 4);
            }
        }
        EXPECT_EQ(memman_free(&manager, kBase + hole * 16, 4), 0);
        for (uint32_t i = 0; i < kEntries; ++i) {
            ASSERT_EQ(manager.free[i].address, kBase + i * 16) << "hole " << hole;
        }
        EXPECT_EQ(manager.freeCount, 500u);
    }
}

TEST(Memory, SizeThatCannotBeRoundedUpIsLost)
{
    Pool pool({{0x1000, 4}});
    EXPECT_EQ(memman_free(&pool.manager, 0x1004, 0xFFFFFFFD), -1);
    EXPECT_EQ(pool.manager.lostCount, 1u);
    EXPECT_EQ(memman_free(&pool.manager, 0x2000, 0xFFFFFFFF), -1);
    EXPECT_EQ(pool.manager.lostCount, 2u);
    EXPECT_EQ(memman_free_4k(&pool.manager, 0x2000, 0xFFFFF001), -1);
    EXPECT_EQ(pool.manager.lostCount, 3u);
    EXPECT_EQ(table(pool.manager), (Extents{{0x1000, 4}}));
}

// Against a model --------------------------------------------------------------------------------

// Free memory as a sorted map of runs; what a full table would do to it is the only thing that it
// knows of the table.
class Model {
public:
    void give(uint32_t address, uint32_t size)
    {
        const auto above = free_.upper_bound(address);
        const bool touchesAbove = above != free_.end() && above->first == address + size;
        const auto below = above == free_.begin() ? free_.end() : std::prev(above);
        const bool touchesBelow = below != free_.end() && below->first + below->second == address;
        if (!touchesAbove && !touchesBelow && free_.size() == kEntries) {
            ++lostCount;
            lostBytes += size;
            return;
        }
        total += size;
        if (touchesAbove) {
            size += above->second;
            free_.erase(above);
        }
        if (touchesBelow) {
            below->second += size;
        } else {
            free_.emplace(address, size);
        }
        peak = std::max(peak, static_cast<uint32_t>(free_.size()));
    }
    uint32_t take(uint32_t size)
    {
        for (auto run = free_.begin(); run != free_.end(); ++run) {
            const auto [address, length] = *run;
            if (length < size) {
                continue;
            }
            free_.erase(run);
            if (length > size) {
                free_.emplace(address + size, length - size);
            }
            total -= size;
            return address;
        }
        return 0;
    }
    Extents runs() const
    {
        return {free_.begin(), free_.end()};
    }
    size_t count() const
    {
        return free_.size();
    }

    uint32_t total = 0;
    uint32_t peak = 0;
    uint32_t lostCount = 0;
    uint32_t lostBytes = 0;

private:
    std::map<uint32_t, uint32_t> free_;
};

struct Mix {
    const char *what;
    uint32_t region;
    uint32_t largest;      // piece asked for, bytes
    uint32_t pagesPercent; // of the operations that go through the 4 KiB forms
    uint32_t operations;
    bool full; // the table is expected to run full
};

void runAgainstModel(const Mix &mix)
{
    struct Piece {
        uint32_t address;
        uint32_t size;
        bool pages;
    };
    std::mt19937 engine(mix.region + mix.largest);
    const auto below = [&engine](uint32_t limit) {
        return static_cast<uint32_t>(engine() % limit);
    };
    MemoryManager manager;
    Model model;
    std::vector<Piece> live;
    uint32_t failed = 0;
    uint32_t lost = 0;
    uint32_t renewed = 0;
    const auto renew = [&] {
        memman_init(&manager);
        memman_free(&manager, kBase, mix.region);
        model = Model();
        model.give(kBase, mix.region);
        live.clear();
        ++renewed;
    };
    renew();
    uint32_t takePercent = 90;
    for (uint32_t step = 0; step < mix.operations; ++step) {
        if (step % 5000 == 0) {
            takePercent = takePercent == 90 ? 20 : 90; // tides: fill up, then break into fragments
        }
        if (live.empty() || below(100) < takePercent) {
            const bool pages = below(100) < mix.pagesPercent;
            const uint32_t size = 1 + below(mix.largest);
            const uint32_t unit = pages ? 4096 : 4;
            const uint32_t expected = model.take((size + unit - 1) / unit * unit);
            const uint32_t address =
                pages ? memman_alloc_4k(&manager, size) : memman_alloc(&manager, size);
            ASSERT_EQ(address, expected) << mix.what << ", step " << step;
            if (address == 0) {
                ++failed;
            } else {
                live.push_back({address, size, pages});
            }
        } else {
            const uint32_t index = below(static_cast<uint32_t>(live.size()));
            const Piece piece = live[index];
            live[index] = live.back();
            live.pop_back();
            const uint32_t unit = piece.pages ? 4096 : 4;
            const uint32_t lostBefore = model.lostCount;
            model.give(piece.address, (piece.size + unit - 1) / unit * unit);
            const int32_t result = piece.pages ? memman_free_4k(&manager, piece.address, piece.size)
                                               : memman_free(&manager, piece.address, piece.size);
            ASSERT_EQ(result, model.lostCount == lostBefore ? 0 : -1) << mix.what << " " << step;
            lost += result < 0 ? 1u : 0u;
        }
        ASSERT_EQ(manager.freeCount, model.count()) << mix.what << ", step " << step;
        if (step % 512 == 0) {
            ASSERT_EQ(table(manager), model.runs()) << mix.what << ", step " << step;
            ASSERT_EQ(memman_total(&manager), model.total) << mix.what << ", step " << step;
            ASSERT_EQ(manager.peakFreeCount, model.peak) << mix.what << ", step " << step;
            ASSERT_EQ(manager.lostCount, model.lostCount) << mix.what << ", step " << step;
            ASSERT_EQ(manager.lostBytes, model.lostBytes) << mix.what << ", step " << step;
        }
        if (model.lostBytes > mix.region / 4) {
            ASSERT_EQ(manager.lostBytes, model.lostBytes) << mix.what << ", step " << step;
            renew(); // most of it has leaked away
        }
    }
    EXPECT_GT(failed, 0u) << mix.what << " never ran out";
    EXPECT_EQ(lost > 0, mix.full) << mix.what;
    EXPECT_EQ(renewed > 1, mix.full) << mix.what;
}

TEST(Memory, BehavesLikeTheModelWithFewPieces)
{
    runAgainstModel({"few pieces", 4096, 256, 0, 1000000, false});
}

TEST(Memory, BehavesLikeTheModelWithPiecesOfThePoolsOwnScale)
{
    runAgainstModel({"buffers and records", kRegion, 12000, 20, 500000, false});
}

TEST(Memory, BehavesLikeTheModelWithPages)
{
    runAgainstModel({"pages", kRegion, 20000, 100, 300000, false});
}

TEST(Memory, BehavesLikeTheModelWithAFullTable)
{
    runAgainstModel({"fragments", 131072, 60, 0, 400000, true});
}

// The heap ---------------------------------------------------------------------------------------

TEST(Memory, MymemMallocTakesThatManyBytesFromTheHeap)
{
    std::vector<size_t> taken;
    std::vector<const void *> released;
    heap = {true, false, &taken, &released};
    void *const memory = mymem_malloc(4136);
    heap.armed = false;
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(taken, std::vector<size_t>{4136});
    std::memset(memory, 0x5A, 4136);

    heap.armed = true;
    const int32_t result = mymem_free(memory);
    heap.armed = false;
    EXPECT_EQ(result, 0);
    EXPECT_EQ(released, std::vector<const void *>{memory});
}

TEST(Memory, MymemMallocPassesTheHeapsNullOn)
{
    std::vector<size_t> taken;
    std::vector<const void *> released;
    heap = {true, true, &taken, &released};
    void *const memory = mymem_malloc(11832);
    heap.armed = false;
    EXPECT_EQ(memory, nullptr);
    EXPECT_EQ(taken, std::vector<size_t>{11832}); // asked once, not again
}

TEST(Memory, MymemFreeOfNullIsHarmless)
{
    EXPECT_EQ(mymem_free(nullptr), 0);
}

TEST(Memory, MymemInitAndPrintInfoDoAndPrintNothing)
{
    std::vector<size_t> taken;
    std::vector<const void *> released;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    heap = {true, false, &taken, &released};
    mymem_init();
    mymem_print_info();
    heap.armed = false;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(taken.empty());
    EXPECT_TRUE(released.empty());
    EXPECT_EQ(memman, nullptr);
}

} // namespace
