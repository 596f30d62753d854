// The manager of free extents, rule by rule and against a model that knows no table; and the heap
// operations that the daemon calls.

#include "core/memman.h"
#include "core/memory.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/console.h"
#include "tests/support/replace.h"

namespace {

// Calls of the heap, noted only while armed; the test framework allocates too.
struct {
    bool isArmed = false;
    bool fails = false;
    size_t asked = 0; // of the last call
    int calls = 0;
    const void *released = nullptr;
} heap;

} // namespace

REPLACE(void *, malloc, (size_t size))
{
    if (heap.isArmed) {
        heap.asked = size;
        ++heap.calls;
    }
    return heap.isArmed && heap.fails ? nullptr : REAL(malloc)(size);
}

REPLACE(void, free, (void *memory))
{
    if (heap.isArmed) {
        heap.released = memory;
        ++heap.calls;
    }
    REAL(free)(memory);
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

uint32_t totalOf(const Extents &extents)
{
    uint32_t total = 0;
    for (const auto &[address, size] : extents) {
        total += size;
    }
    return total;
}

// Free entries, most of them so far, pieces lost and their bytes.
std::array<uint32_t, 4> counts(const MemoryManager &manager)
{
    return {manager.freeCount, manager.peakFreeCount, manager.lostCount, manager.lostBytes};
}

MemoryManager poolOf(const Extents &extents)
{
    MemoryManager manager;
    memman_init(&manager);
    for (const auto &[address, size] : extents) {
        EXPECT_EQ(memman_free(&manager, address, size), 0) << address;
    }
    return manager;
}

// 500 entries of 4 bytes, 16 bytes apart: no room for another one.
Extents fullTable()
{
    Extents extents;
    for (uint32_t i = 0; i < kEntries; ++i) {
        extents.emplace_back(kBase + i * 16, 4);
    }
    return extents;
}

// What sizes are rounded up to, and the operations that do.
const struct Unit {
    uint32_t size;
    uint32_t (*take)(MemoryManager *manager, uint32_t size);
    int32_t (*give)(MemoryManager *manager, uint32_t address, uint32_t size);
} kUnits[] = {{4, memman_alloc, memman_free}, {4096, memman_alloc_4k, memman_free_4k}};

// The record -------------------------------------------------------------------------------------

static_assert(std::size(MemoryManager{}.free) == kEntries);
static_assert(sizeof(MemoryManager) == 4016);

TEST(Memory, RegionCostsNoMemoryUntilItIsTouched)
{
    // The whole pages inside; the edges are shared with other variables.
    const size_t pageSize = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t offset = reinterpret_cast<uintptr_t>(_memman_buffer) % pageSize;
    uint8_t *const start = _memman_buffer + (pageSize - offset);
    std::vector<unsigned char> pages(kRegion / pageSize - 1);
    const auto resident = [&] {
        EXPECT_EQ(mincore(start, pages.size() * pageSize, pages.data()), 0) << std::strerror(errno);
        return std::count_if(pages.begin(), pages.end(),
                             [](unsigned char page) { return (page & 1u) != 0; });
    };
    EXPECT_EQ(resident(), 0);
    *start = 1;
    EXPECT_GT(resident(), 0);
}

TEST(Memory, RegionIs2MiBOfZeroesAndTheManagerSlotIsEmpty)
{
    static_assert(sizeof _memman_buffer == kRegion);
    EXPECT_EQ(memman, nullptr);
    EXPECT_TRUE(std::all_of(std::begin(_memman_buffer), std::end(_memman_buffer),
                            [](uint8_t byte) { return byte == 0; }));
}

TEST(Memory, InitialisingEmptiesThePool)
{
    MemoryManager manager;
    std::memset(&manager, 0xFF, sizeof manager);
    memman_init(&manager);
    EXPECT_EQ(counts(manager), (std::array{0u, 0u, 0u, 0u}));
    EXPECT_EQ(memman_total(&manager), 0u);
    EXPECT_EQ(memman_alloc(&manager, 4), 0u);
    EXPECT_EQ(memman_alloc_4k(&manager, 1), 0u);
}

TEST(Memory, WholeRegionGivenToANewPoolIsOneEntry)
{
    const MemoryManager pool = poolOf({{kBase, kRegion}});
    EXPECT_EQ(table(pool), (Extents{{kBase, kRegion}}));
    EXPECT_EQ(counts(pool), (std::array{1u, 1u, 0u, 0u}));
    EXPECT_EQ(memman_total(&pool), 2097152u);
}

// What is taken is given back under the size asked for, and the region is whole again.
TEST(Memory, SizesAreRoundedUpToFourBytesOrToPages)
{
    const struct {
        uint32_t asked, taken[2];
    } rows[] = {{0, {0, 0}},          {1, {4, 4096}},       {3, {4, 4096}},
                {4, {4, 4096}},       {5, {8, 4096}},       {4095, {4096, 4096}},
                {4096, {4096, 4096}}, {4097, {4100, 8192}}, {8193, {8196, 12288}}};
    for (const auto &[asked, taken] : rows) {
        for (size_t i = 0; i < 2; ++i) {
            MemoryManager pool = poolOf({{kBase, kRegion}});
            EXPECT_EQ(kUnits[i].take(&pool, asked), kBase);
            EXPECT_EQ(table(pool), (Extents{{kBase + taken[i], kRegion - taken[i]}})) << asked;
            EXPECT_EQ(kUnits[i].give(&pool, kBase, asked), 0);
            EXPECT_EQ(memman_total(&pool), kRegion) << asked;
        }
    }
}

TEST(Memory, PiecesAreTakenAsTheRowsSay)
{
    const Extents two = {{0x1000, 8}, {0x2000, 8}};
    const Extents most = {{4, 0xFFFFFFF8}};
    // clang-format off
    const struct {
        const char *name;
        Extents before;
        uint32_t (*take)(MemoryManager *manager, uint32_t size);
        uint32_t size;
        uint32_t address;
        Extents after;
    } rows[] = {
        {"from the lowest that is large enough, not from the best fit",
         {{0x1000, 8}, {0x2000, 16}, {0x3000, 16}, {0x4000, 12}}, memman_alloc, 12,
         0x2000, {{0x1000, 8}, {0x200C, 4}, {0x3000, 16}, {0x4000, 12}}},
        {"all there is: no entry is left", {{kBase, kRegion}}, memman_alloc, kRegion, kBase, {}},
        {"the next one fails", {}, memman_alloc, 1, 0, {}},
        {"all of an entry: the later ones move down",
         {{0x1000, 4}, {0x2000, 8}, {0x3000, 16}, {0x4000, 4}}, memman_alloc, 8,
         0x2000, {{0x1000, 4}, {0x3000, 16}, {0x4000, 4}}},
        {"no single entry is large enough", two, memman_alloc, 12, 0, two},
        {"nothing yields the lowest entry and takes nothing", two, memman_alloc, 0, 0x1000, two},
        {"and takes an empty one", {{0x1000, 0}, {0x2000, 4}}, memman_alloc, 0, 0x1000, {{0x2000, 4}}},
        {"the largest size that can be rounded", most, memman_alloc, 0xFFFFFFF5, 4, {}},
        {"and in pages", most, memman_alloc_4k, 0xFFFFEFFF, 4, {{0xFFFFF004, 0xFF8}}},
        {"larger than all there is", most, memman_alloc, 0xFFFFFFF9, 0, most},
        {"one that cannot be rounded", most, memman_alloc, 0xFFFFFFFD, 0, most},
        {"one that pages cannot hold", most, memman_alloc_4k, 0xFFFFF001, 0, most},
        {"the largest in pages", most, memman_alloc_4k, 0xFFFFFFFF, 0, most},
    };
    // clang-format on
    for (const auto &row : rows) {
        MemoryManager pool = poolOf(row.before);
        EXPECT_EQ(row.take(&pool, row.size), row.address) << row.name;
        EXPECT_EQ(table(pool), row.after) << row.name;
        EXPECT_EQ(pool.peakFreeCount, row.before.size()) << row.name;
        EXPECT_EQ(pool.lostCount, 0u) << row.name;
    }
}

TEST(Memory, PiecesAreGivenBackAsTheRowsSay)
{
    // clang-format off
    const struct {
        const char *name;
        Extents before;
        uint32_t address, size;
        Extents after;
    } rows[] = {
        {"touching nothing, in between", {{0x2000, 4}, {0x4000, 4}}, 0x3000, 4,
         {{0x2000, 4}, {0x3000, 4}, {0x4000, 4}}},
        {"touching nothing, empty", {{0x2000, 4}}, 0x1000, 0, {{0x1000, 0}, {0x2000, 4}}},
        {"touching the entry below", {{0x1000, 0x100}, {0x2000, 4}}, 0x1100, 0x10,
         {{0x1000, 0x110}, {0x2000, 4}}},
        {"touching the entry above", {{0x1000, 4}, {0x2000, 0x100}}, 0x1FF0, 0x10,
         {{0x1000, 4}, {0x1FF0, 0x110}}},
        {"touching both sides: one entry of three",
         {{0x1000, 4}, {0x2000, 0x100}, {0x2200, 0x100}, {0x4000, 4}}, 0x2100, 0x100,
         {{0x1000, 4}, {0x2000, 0x300}, {0x4000, 4}}},
        {"rounded before it is joined", {{0x1000, 4}, {0x1008, 4}}, 0x1004, 1, {{0x1000, 12}}},
        // Nothing is checked.
        {"given back twice: after the entry of that address", {{0x1000, 8}, {0x2000, 4}}, 0x1000, 4,
         {{0x1000, 8}, {0x1000, 4}, {0x2000, 4}}},
        {"at an empty entry, which grows", {{0x1000, 0}, {0x2000, 4}}, 0x1000, 8,
         {{0x1000, 8}, {0x2000, 4}}},
    };
    // clang-format on
    for (const auto &row : rows) {
        MemoryManager pool = poolOf(row.before);
        EXPECT_EQ(memman_free(&pool, row.address, row.size), 0) << row.name;
        EXPECT_EQ(table(pool), row.after) << row.name;
        EXPECT_EQ(pool.peakFreeCount, std::max(row.before.size(), row.after.size())) << row.name;
        EXPECT_EQ(memman_total(&pool), totalOf(row.after)) << row.name;
    }
}

TEST(Memory, PieceThatTouchesNoneOf500EntriesOrCannotBeRoundedIsLost)
{
    MemoryManager pool = poolOf(fullTable());
    const struct {
        const char *name;
        int32_t (*give)(MemoryManager *manager, uint32_t address, uint32_t size);
        uint32_t address, size, lost;
    } rows[] = {
        {"above all, as rounded", memman_free, kBase + 0x10000, 5, 8},
        {"between two", memman_free, kBase + 8, 4, 4},
        {"in pages", memman_free_4k, kBase + 0x20000, 1, 4096},
        {"not to be rounded", memman_free, kBase + 4, 0xFFFFFFFD, 0xFFFFFFFD},
        {"the largest", memman_free, 0x2000, 0xFFFFFFFF, 0xFFFFFFFF},
        {"not to be rounded to pages", memman_free_4k, kBase + 4, 0xFFFFF001, 0xFFFFF001},
    };
    std::array expected = {500u, 500u, 0u, 0u};
    for (const auto &row : rows) {
        ++expected[2];
        expected[3] += row.lost;
        EXPECT_EQ(row.give(&pool, row.address, row.size), -1) << row.name;
        EXPECT_EQ(counts(pool), expected) << row.name;
        EXPECT_EQ(table(pool), fullTable()) << row.name;
    }
}

TEST(Memory, PieceThatTouchesAnEntryFindsRoomInAFullTable)
{
    MemoryManager pool = poolOf(fullTable());
    EXPECT_EQ(memman_free(&pool, kBase + 4, 4), 0);            // above the first
    EXPECT_EQ(memman_free(&pool, kBase + 499 * 16 + 4, 4), 0); // above the last
    EXPECT_EQ(memman_free(&pool, kBase - 4, 4), 0);            // below the first
    EXPECT_EQ(pool.freeCount, 500u);
    EXPECT_EQ(memman_free(&pool, kBase + 8, 8), 0); // between the first and the second
    Extents expected = fullTable();
    expected.erase(expected.begin());
    expected.front() = {kBase - 4, 24};
    expected.back().second = 8;
    EXPECT_EQ(table(pool), expected);
    EXPECT_EQ(memman_free(&pool, kBase + 0x10000, 4), 0); // the entry saved serves another
    EXPECT_EQ(counts(pool), (std::array{500u, 500u, 0u, 0u}));
}

// Against a model --------------------------------------------------------------------------------

constexpr uint32_t kOperationsPerMix = 40000;

// Free memory as a sorted map of runs; what a full table would do to it is the only thing that it
// knows of the table.
struct Model {
    int32_t give(uint32_t address, uint32_t size)
    {
        const auto above = free.upper_bound(address);
        const bool touchesAbove = above != free.end() && above->first == address + size;
        const auto below = above == free.begin() ? free.end() : std::prev(above);
        const bool touchesBelow = below != free.end() && below->first + below->second == address;
        if (!touchesAbove && !touchesBelow && free.size() == kEntries) {
            ++counts[2];
            counts[3] += size;
            return -1;
        }
        if (touchesAbove) {
            size += above->second;
            free.erase(above);
        }
        if (touchesBelow) {
            below->second += size;
        } else {
            free.emplace(address, size);
        }
        counts[0] = static_cast<uint32_t>(free.size());
        counts[1] = std::max(counts[0], counts[1]);
        return 0;
    }
    uint32_t take(uint32_t size)
    {
        const auto run = std::find_if(free.begin(), free.end(),
                                      [size](const auto &it) { return it.second >= size; });
        if (run == free.end()) {
            return 0;
        }
        const auto [address, length] = *run;
        free.erase(run);
        if (length > size) {
            free.emplace(address + size, length - size);
        }
        counts[0] = static_cast<uint32_t>(free.size());
        return address;
    }

    std::map<uint32_t, uint32_t> free;
    std::array<uint32_t, 4> counts{};
};

TEST(Memory, BehavesLikeTheModelForEveryMixOfPieces)
{
    const struct {
        const char *name;
        uint32_t region;
        uint32_t largest;      // piece asked for, bytes
        uint32_t pagesPercent; // of the operations that go through the 4 KiB forms
        bool isFull;           // the table is expected to run full
    } mixes[] = {{"few pieces", 4096, 256, 0, false},
                 {"buffers and records", kRegion, 12000, 20, false},
                 {"pages", kRegion, 20000, 100, false},
                 {"fragments", 131072, 60, 0, true}};
    struct Piece {
        const Unit *unit;
        uint32_t size, rounded, address;
    };
    for (const auto &mix : mixes) {
        std::mt19937 engine(mix.region + mix.largest);
        const auto below = [&engine](size_t limit) {
            return static_cast<uint32_t>(engine() % limit);
        };
        MemoryManager manager;
        Model model;
        std::vector<Piece> live;
        const auto renew = [&] {
            memman_init(&manager);
            memman_free(&manager, kBase, mix.region);
            model = Model();
            model.give(kBase, mix.region);
            live.clear();
        };
        renew();
        uint32_t failed = 0;
        bool isLost = false;
        SCOPED_TRACE(mix.name);
        for (uint32_t step = 0; step < kOperationsPerMix; ++step) {
            const uint32_t takePercent = step / 5000 % 2 == 0 ? 20 : 90; // tides
            if (live.empty() || below(100) < takePercent) {
                const uint32_t size = 1 + below(mix.largest);
                const Unit &unit = kUnits[below(100) < mix.pagesPercent ? 1 : 0];
                const uint32_t rounded = (size + unit.size - 1) / unit.size * unit.size;
                const uint32_t address = unit.take(&manager, size);
                ASSERT_EQ(address, model.take(rounded)) << step;
                if (address == 0) {
                    ++failed;
                } else {
                    live.push_back({&unit, size, rounded, address});
                }
            } else {
                std::swap(live[below(live.size())], live.back());
                const Piece piece = live.back();
                live.pop_back();
                const int32_t result = piece.unit->give(&manager, piece.address, piece.size);
                ASSERT_EQ(result, model.give(piece.address, piece.rounded)) << step;
                isLost = isLost || result < 0;
            }
            ASSERT_EQ(counts(manager), model.counts) << step;
            if (step % 512 == 0) {
                const Extents free(model.free.begin(), model.free.end());
                ASSERT_EQ(table(manager), free) << step;
                ASSERT_EQ(memman_total(&manager), totalOf(free)) << step;
            }
            if (model.counts[3] > mix.region / 4) {
                renew(); // most of it has leaked away
            }
        }
        EXPECT_GT(failed, 0u) << mix.name << " never ran out";
        EXPECT_EQ(isLost, mix.isFull) << mix.name;
    }
}

// The heap ---------------------------------------------------------------------------------------

TEST(Memory, MymemMallocAndFreeAreTheHeapsAndReturnItsNull)
{
    heap.isArmed = true;
    void *const memory = mymem_malloc(4136);
    const int32_t result = mymem_free(memory);
    heap.isArmed = false;
    EXPECT_NE(memory, nullptr);
    EXPECT_EQ(heap.asked, 4136u);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(heap.released, memory);
    EXPECT_EQ(heap.calls, 2);
    EXPECT_EQ(mymem_free(nullptr), 0);
    heap.isArmed = heap.fails = true;
    void *const none = mymem_malloc(11832);
    heap.isArmed = false;
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(heap.asked, 11832u);
    EXPECT_EQ(heap.calls, 3); // not again
}

TEST(Memory, MymemInitAndPrintInfoDoAndPrintNothing)
{
    const std::string printed = printedBy([] {
        heap.isArmed = true;
        mymem_init();
        mymem_print_info();
        heap.isArmed = false;
    });
    EXPECT_EQ(printed, "");
    EXPECT_EQ(heap.calls, 0);
    EXPECT_EQ(memman, nullptr);
}

} // namespace
