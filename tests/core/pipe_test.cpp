// The byte ring: every operation in every state of small rings, random work against a queue, the
// moment at which each side moves its pointer, and one writer thread against one reader thread.

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <type_traits>

#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tests/support/noted_atomic.h"

#define atomic NotedAtomic
#include "core/pipe.cpp"
#undef atomic

namespace {

static_assert(std::is_standard_layout_v<struct pipe>);
static_assert(offsetof(struct pipe, start) == 0 * sizeof(void *));
static_assert(offsetof(struct pipe, write) == 1 * sizeof(void *));
static_assert(offsetof(struct pipe, read) == 2 * sizeof(void *));
static_assert(offsetof(struct pipe, end) == 3 * sizeof(void *));
static_assert(sizeof(struct pipe) == 4 * sizeof(void *));
static_assert(std::is_same_v<decltype(&pipe_init), void (*)(struct pipe *, uint8_t *, uint16_t)>,
              "the size is a 16-bit count");

// The results and the effect of an operation: where the pointers stand, and all memory around.
struct State {
    int64_t read;
    int64_t write;
    std::string memory;
    bool operator==(const State &) const = default;
};

std::ostream &operator<<(std::ostream &out, const State &state)
{
    return out << "read " << state.read << " write " << state.write << ' ' << hex(state.memory);
}

constexpr size_t kGuards = 8; // bytes on either side of the storage
constexpr char kLetters[] = "abcdefghijklmnop";

// A pipe over storage of its own. `read` is the slot that it is read from, and it holds the first
// `held` letters of the alphabet.
class Ring {
public:
    explicit Ring(uint32_t size, uint32_t read = 0, uint32_t held = 0)
        : memory_(size + 2 * kGuards, '\xA5')
    {
        pipe_init(&pipe, storage(), static_cast<uint16_t>(size));
        for (uint32_t i = 0; i < read; ++i) {
            uint8_t byte;
            EXPECT_EQ(pipe_write(&pipe, 0), 1);
            EXPECT_EQ(pipe_read(&pipe, &byte), 1);
        }
        fill(std::string(kLetters).substr(0, held));
    }
    uint8_t *storage()
    {
        return reinterpret_cast<uint8_t *>(memory_.data()) + kGuards;
    }
    State state()
    {
        return {pipe.read.load(std::memory_order_relaxed) - storage(),
                pipe.write.load(std::memory_order_relaxed) - storage(), memory_};
    }
    void fill(const std::string &text)
    {
        for (const char letter : text) {
            ASSERT_EQ(pipe_write(&pipe, static_cast<uint8_t>(letter)), 1);
        }
    }
    uint32_t writeBlock(const std::string &text)
    {
        return pipe_write_block(&pipe, reinterpret_cast<const uint8_t *>(text.data()),
                                static_cast<uint32_t>(text.size()));
    }
    // Checks that nothing is stored after what is returned.
    std::string readBlock(uint32_t size)
    {
        std::string text(size + 1, '\xEE');
        const uint32_t count =
            pipe_read_block(&pipe, reinterpret_cast<uint8_t *>(text.data()), size);
        EXPECT_EQ(text.find_first_not_of('\xEE', count), text.npos);
        return text.substr(0, count);
    }
    std::string peek()
    {
        const uint8_t *bytes;
        const uint32_t count = pipe_peek(&pipe, &bytes);
        return {bytes, bytes + count};
    }
    // Reads until the pipe says that it is empty, or twice its size.
    std::string drain()
    {
        std::string text;
        uint8_t byte;
        while (text.size() < 2 * memory_.size() && pipe_read(&pipe, &byte) != 0) {
            text += static_cast<char>(byte);
        }
        return text;
    }

    struct pipe pipe;

private:
    std::string memory_;
};

TEST(Pipe, StartsEmptyWithAllPointersOnItsStorageHoweverOftenInitialised)
{
    Ring ring(10, 3, 2);
    pipe_init(&ring.pipe, ring.storage(), 8);
    EXPECT_EQ(ring.pipe.start, ring.storage());
    EXPECT_EQ(ring.pipe.end, ring.storage() + 8);
    EXPECT_EQ(ring.state().read, 0);
    EXPECT_EQ(ring.state().write, 0);
    EXPECT_EQ(pipe_isEmpty(&ring.pipe), 1);
    EXPECT_EQ(pipe_isFull(&ring.pipe), 0);
}

// Expected positions are indexes modulo the size. Popping more than the pipe holds is
// deliberately not checked against the reader: it goes round and round.
TEST(Pipe, EveryOperationInEveryStateOfASmallRingIsArithmeticModuloItsSize)
{
    for (uint32_t size = 1; size <= 9; ++size) {
        for (uint32_t at = 0; at < size * size; ++at) {
            const uint32_t read = at / size;
            const uint32_t held = at % size;
            const uint32_t write = (read + held) % size;
            const std::string text = std::string(kLetters).substr(0, held);
            if (size == 1 && read + held > 0) {
                continue;
            }
            SCOPED_TRACE(testing::Message()
                         << "size " << size << ", read " << read << ", held " << held);
            const State before = Ring(size, read, held).state();
            EXPECT_EQ(before.read, read);
            EXPECT_EQ(before.write, write);

            Ring asked(size, read, held);
            EXPECT_EQ(pipe_count(&asked.pipe), held);
            EXPECT_EQ(pipe_isEmpty(&asked.pipe), held == 0 ? 1 : 0);
            EXPECT_EQ(pipe_isFull(&asked.pipe), held == size - 1 ? 1 : 0);
            EXPECT_EQ(asked.state(), before);

            Ring written(size, read, held);
            State expected = before;
            if (held < size - 1) {
                expected.memory[kGuards + write] = 'W';
                expected.write = (write + 1) % size;
            }
            EXPECT_EQ(pipe_write(&written.pipe, 'W'), held < size - 1 ? 1 : 0);
            EXPECT_EQ(written.state(), expected);

            Ring taken(size, read, held);
            expected = before;
            expected.read = held > 0 ? (read + 1) % size : read;
            uint8_t byte = 0x12;
            EXPECT_EQ(pipe_read(&taken.pipe, &byte), held > 0 ? 1 : 0);
            EXPECT_EQ(byte, held > 0 ? 'a' : 0xFF);
            EXPECT_EQ(taken.state(), expected);

            for (uint32_t count = 0; count <= size + 1; ++count) {
                SCOPED_TRACE(testing::Message() << "a block of " << count);
                Ring given(size, read, held);
                expected = before;
                const uint32_t fits = std::min(count, size - 1 - held);
                for (uint32_t i = 0; i < fits; ++i) {
                    expected.memory[kGuards + (write + i) % size] = "ABCDEFGHIJ"[i];
                }
                expected.write = (write + fits) % size;
                EXPECT_EQ(given.writeBlock(std::string("ABCDEFGHIJ", count)), fits);
                EXPECT_EQ(given.state(), expected);

                Ring blockTaken(size, read, held);
                expected = before;
                expected.read = (read + std::min(count, held)) % size;
                EXPECT_EQ(blockTaken.readBlock(count), text.substr(0, std::min(count, held)));
                EXPECT_EQ(blockTaken.state(), expected);
            }

            Ring peeked(size, read, held);
            const uint32_t inARow = std::min(held, size - read);
            EXPECT_EQ(peeked.peek(), text.substr(0, inARow));
            EXPECT_EQ(peeked.state(), before);
            for (uint32_t skipped = 0; skipped <= inARow; ++skipped) {
                Ring ring(size, read, held);
                expected = before;
                expected.read = (read + skipped) % size;
                pipe_skip(&ring.pipe, skipped);
                EXPECT_EQ(ring.state(), expected) << "skipped " << skipped;
            }

            for (uint32_t popped = 0; popped <= 2 * size + 1; ++popped) {
                Ring ring(size, read, held);
                expected = before;
                expected.write = (write + 3 * size - popped) % size;
                pipe_pop_back(&ring.pipe, popped);
                EXPECT_EQ(ring.state(), expected) << "popped " << popped;
            }
        }
    }
}

TEST(Pipe, RefusesTheByteThatWouldFillTheLastSlot)
{
    Ring ring(4);
    ring.fill("ab");
    EXPECT_EQ(pipe_isFull(&ring.pipe), 0);
    ring.fill("c");
    EXPECT_EQ(pipe_isFull(&ring.pipe), 1);
    EXPECT_EQ(pipe_write(&ring.pipe, 'd'), 0);
    EXPECT_EQ(pipe_isFull(&ring.pipe), 1);
    EXPECT_EQ(ring.drain(), "abc");
}

TEST(Pipe, ReadingAnEmptyOneYieldsFFWhichOnlyTheResultTellsFromAByteFF)
{
    Ring ring(4, 3);
    for (const int32_t result : {0, 1, 0}) {
        if (result == 1) {
            pipe_write(&ring.pipe, 0xFF);
        }
        uint8_t byte = 0x12;
        EXPECT_EQ(pipe_read(&ring.pipe, &byte), result);
        EXPECT_EQ(byte, 0xFF);
    }
}

TEST(Pipe, WritingAcrossTheEndOfTheStorageWrapsToItsStart)
{
    Ring ring(8, 6);
    ring.fill("wrap");
    EXPECT_EQ(ring.state().write, 2);
    EXPECT_EQ(ring.state().memory.substr(kGuards, 2), "ap");
    EXPECT_EQ(ring.state().memory.substr(kGuards + 6, 2), "wr");
    EXPECT_EQ(ring.drain(), "wrap");
}

TEST(Pipe, PoppingBackRightAfterTheWrapGoesToTheLastSlot)
{
    Ring ring(4, 3, 1);
    ASSERT_EQ(ring.state().write, 0);
    pipe_pop_back(&ring.pipe, 1);
    EXPECT_EQ(ring.state().write, 3);
    EXPECT_EQ(pipe_isEmpty(&ring.pipe), 1);
}

TEST(Pipe, LargestOneHolds65534Bytes)
{
    Ring ring(65535);
    const std::string all = countingBytes(65534, 251);
    ring.fill(all);
    EXPECT_EQ(pipe_isFull(&ring.pipe), 1);
    EXPECT_EQ(pipe_write(&ring.pipe, 0), 0);
    EXPECT_EQ(ring.drain(), all);
}

// Against a queue --------------------------------------------------------------------------------

constexpr uint32_t kBytesPerQueueRun = 200000;

std::string takenFrom(std::deque<uint8_t> *queue, uint32_t count)
{
    const size_t taken = std::min<size_t>(count, queue->size());
    const auto end = queue->begin() + static_cast<ptrdiff_t>(taken);
    const std::string bytes(queue->begin(), end);
    queue->erase(queue->begin(), end);
    return bytes;
}

TEST(Pipe, BehavesLikeAQueueWhateverItsSize)
{
    for (const uint32_t size : {2u, 3u, 7u, 64u, 4096u, 65535u}) {
        Ring ring(size);
        std::deque<uint8_t> queue;
        std::mt19937 engine(size);
        const auto below = [&engine](size_t limit) {
            return static_cast<uint32_t>(engine() % limit);
        };
        for (uint32_t bytes = 0; bytes < kBytesPerQueueRun && !HasFailure();) {
            SCOPED_TRACE(testing::Message() << "size " << size << ", byte " << bytes);
            const uint32_t burst = below(size + 2);
            bytes += burst + 16; // many short bursts would take long
            switch (below(7)) {
            case 0:
            case 1:
                for (uint32_t i = 0; i < burst; ++i) {
                    const uint8_t byte = static_cast<uint8_t>(below(256));
                    const bool fits = queue.size() + 1 < size;
                    ASSERT_EQ(pipe_write(&ring.pipe, byte), fits ? 1 : 0);
                    if (fits) {
                        queue.push_back(byte);
                    }
                }
                break;
            case 2:
                for (uint32_t i = 0; i < burst; ++i) {
                    uint8_t byte = 0x77;
                    ASSERT_EQ(pipe_read(&ring.pipe, &byte), queue.empty() ? 0 : 1);
                    ASSERT_EQ(byte, queue.empty() ? 0xFF : queue.front());
                    if (!queue.empty()) {
                        queue.pop_front();
                    }
                }
                break;
            case 3: {
                const std::string block = countingBytes(burst, 1 + below(255));
                const auto room = static_cast<uint32_t>(size - 1 - queue.size());
                const uint32_t fits = std::min(burst, room);
                ASSERT_EQ(ring.writeBlock(block), fits);
                for (const char byte : block.substr(0, fits)) {
                    queue.push_back(static_cast<uint8_t>(byte));
                }
                break;
            }
            case 4:
                ASSERT_EQ(ring.readBlock(burst), takenFrom(&queue, burst));
                break;
            case 5: {
                const std::string seen = ring.peek();
                ASSERT_EQ(seen.empty(), queue.empty());
                const auto count = below(seen.size() + 1);
                ASSERT_EQ(seen.substr(0, count), takenFrom(&queue, count));
                pipe_skip(&ring.pipe, count);
                break;
            }
            default:
                const uint32_t count = below(queue.size() + 1);
                pipe_pop_back(&ring.pipe, count);
                queue.erase(queue.end() - static_cast<ptrdiff_t>(count), queue.end());
            }
            ASSERT_EQ(pipe_count(&ring.pipe), queue.size());
        }
        const std::string memory = ring.state().memory;
        const std::string guards(kGuards, '\xA5');
        EXPECT_TRUE(memory.starts_with(guards) && memory.ends_with(guards)) << size;
    }
}

// The moment at which a side moves its pointer ---------------------------------------------------

// Runs `action` and returns what the storage held when the pointer was moved, which must happen
// once, with release. The other side is as fast as it can be: it then overwrites the slots with
// "X".
std::string atTheMove(Ring *ring, const void *pointer, const std::function<void()> &action)
{
    std::string found;
    uint32_t moves = 0;
    onAtomicAccess = [&](const std::string &access, const void *what, std::memory_order order) {
        if (access == "store") {
            EXPECT_EQ(what, pointer);
            EXPECT_EQ(order, std::memory_order_release);
            EXPECT_EQ(++moves, 1u);
            found.assign(ring->storage(), ring->storage() + 6);
            std::memset(ring->storage(), 'X', 6);
        } else {
            EXPECT_EQ(order,
                      what == pointer ? std::memory_order_relaxed : std::memory_order_acquire);
        }
    };
    action();
    onAtomicAccess = nullptr;
    return found;
}

// A slot is the writer's as soon as `read` moves past it.
TEST(Pipe, ReaderHandsSlotsBackOnceAndAfterItHasReadThem)
{
    Ring one(6, 0, 2);
    uint8_t byte = 0;
    atTheMove(&one, &one.pipe.read, [&] { EXPECT_EQ(pipe_read(&one.pipe, &byte), 1); });
    EXPECT_EQ(byte, 'a');
    Ring many(6, 4, 4); // across the end
    std::string bytes;
    atTheMove(&many, &many.pipe.read, [&] { bytes = many.readBlock(4); });
    EXPECT_EQ(bytes, "abcd");
    Ring skipped(6, 0, 4);
    atTheMove(&skipped, &skipped.pipe.read, [&] {
        EXPECT_EQ(skipped.peek(), "abcd");
        pipe_skip(&skipped.pipe, 3);
    });
}

// A byte is the reader's as soon as `write` moves past it.
TEST(Pipe, WriterPublishesBytesOnceAndAfterItHasStoredThem)
{
    Ring one(6, 0, 2);
    EXPECT_EQ(atTheMove(&one, &one.pipe.write, [&] { pipe_write(&one.pipe, 'c'); }).substr(0, 3),
              "abc");
    Ring many(6, 4, 1); // across the end
    EXPECT_EQ(atTheMove(&many, &many.pipe.write, [&] { many.writeBlock("bcd"); }).substr(0, 2) +
                  "ab",
              "cdab");
}

// One writer thread, one reader thread -----------------------------------------------------------

// A byte sequence that does not repeat within any ring used here.
uint8_t nextByte(std::minstd_rand *sequence)
{
    return static_cast<uint8_t>((*sequence)() >> 16);
}

// "Not full" is a promise to the writer and "not empty" one to the reader: nobody else uses it up.
TEST(Pipe, CarriesASequenceBetweenTwoThreads)
{
    struct {
        uint32_t size;
        uint32_t bytes;
    } const rows[] = {{2, 20000}, {7, 100000}, {4096, 500000}};
    for (const auto &row : rows) {
        Ring ring(row.size);
        std::atomic<uint32_t> refused = 0;
        std::thread writer([&] {
            std::minstd_rand sequence;
            for (uint32_t i = 0; i < row.bytes && refused == 0; ++i) {
                while (pipe_isFull(&ring.pipe) != 0) {
                    std::this_thread::yield();
                }
                refused += pipe_write(&ring.pipe, nextByte(&sequence)) == 1 ? 0u : 1u;
            }
        });
        std::minstd_rand sequence;
        uint32_t wrong = 0;
        for (uint32_t i = 0; i < row.bytes && refused == 0; ++i) {
            while (pipe_isEmpty(&ring.pipe) != 0 && refused == 0) {
                std::this_thread::yield();
            }
            uint8_t byte = 0;
            const bool isRead = pipe_read(&ring.pipe, &byte) == 1;
            wrong += byte == nextByte(&sequence) && isRead ? 0u : 1u;
        }
        writer.join();
        EXPECT_EQ(refused, 0u) << "size " << row.size;
        EXPECT_EQ(wrong, 0u) << "size " << row.size;
        EXPECT_EQ(pipe_isEmpty(&ring.pipe), 1) << "size " << row.size;
    }
}

TEST(Pipe, CarriesBlocksOfAnySizeBetweenTwoThreads)
{
    Ring ring(4096);
    const std::string all = countingBytes(1'000'000, 251);
    const auto anySize = [](std::minstd_rand *sizes) {
        return static_cast<uint32_t>((*sizes)() % 5000);
    };
    std::thread writer([&] {
        std::minstd_rand sizes(1);
        for (size_t done = 0; done < all.size();) {
            const uint32_t count = ring.writeBlock(all.substr(done, anySize(&sizes)));
            done += count;
            if (count == 0) {
                std::this_thread::yield();
            }
        }
    });
    std::minstd_rand sizes(2);
    std::string arrived;
    while (arrived.size() < all.size()) {
        const size_t before = arrived.size();
        if (anySize(&sizes) % 2 == 0) {
            const std::string bytes = ring.peek();
            pipe_skip(&ring.pipe, static_cast<uint32_t>(bytes.size()));
            arrived += bytes;
        } else {
            arrived += ring.readBlock(anySize(&sizes));
        }
        if (arrived.size() == before) {
            std::this_thread::yield();
        }
    }
    writer.join();
    EXPECT_TRUE(arrived == all);
    EXPECT_EQ(pipe_isEmpty(&ring.pipe), 1);
}

// The writer drops what does not fit, as the receive threads do.
TEST(Pipe, LosesOnlyTheBytesThatItRefused)
{
    Ring ring(64);
    std::string stored;
    std::string arrived;
    std::atomic<bool> done = false;
    std::thread writer([&ring, &stored, &done] {
        std::minstd_rand sequence;
        for (uint32_t i = 0; i < 200000; ++i) {
            const uint8_t byte = nextByte(&sequence);
            if (pipe_write(&ring.pipe, byte) != 0) {
                stored += static_cast<char>(byte);
            } else if (i % 16 == 0) {
                std::this_thread::yield();
            }
        }
        done.store(true, std::memory_order_release);
    });
    for (bool last = false; !last;) {
        last = done.load(std::memory_order_acquire); // before the look, or bytes could be missed
        uint8_t byte;
        while (pipe_read(&ring.pipe, &byte) != 0) {
            arrived += static_cast<char>(byte);
        }
    }
    writer.join();
    EXPECT_GE(stored.size(), 63u);
    EXPECT_TRUE(arrived == stored);
}

} // namespace
