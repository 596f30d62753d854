// The byte ring: every operation in every state of small rings, random work against a queue, the
// moment at which each side moves its pointer, and one writer thread against one reader thread.

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
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
    // Reads until the pipe says that it is empty, or so many bytes.
    std::string drain(size_t most = 100000)
    {
        std::string text;
        for (uint8_t byte; text.size() < most && pipe_read(&pipe, &byte) != 0;) {
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
            if (size == 1 && read + held > 0) {
                continue;
            }
            SCOPED_TRACE(testing::Message()
                         << "size " << size << ", read " << read << ", held " << held);
            const uint32_t write = (read + held) % size;
            const uint32_t room = size - 1 - held;
            const uint32_t inARow = std::min(held, size - read);
            const std::string text = std::string(kLetters).substr(0, held);
            // The operation must move the pointers by so many slots and store `stored`, and no
            // more.
            const auto expectMoves = [&](uint32_t reads, uint32_t writes, const std::string &stored,
                                         const std::function<void(Ring & ring)> &operation) {
                Ring ring(size, read, held);
                State expected = {(read + reads) % size, (write + writes) % size,
                                  ring.state().memory};
                for (uint32_t i = 0; i < stored.size(); ++i) {
                    expected.memory[kGuards + (write + i) % size] = stored[i];
                }
                operation(ring);
                EXPECT_EQ(ring.state(), expected);
            };
            expectMoves(0, 0, "", [&](Ring &ring) {
                EXPECT_EQ(pipe_count(&ring.pipe), held);
                EXPECT_EQ(pipe_isEmpty(&ring.pipe), held == 0 ? 1 : 0);
                EXPECT_EQ(pipe_isFull(&ring.pipe), room == 0 ? 1 : 0);
                EXPECT_EQ(ring.peek(), text.substr(0, inARow));
            });
            expectMoves(0, room > 0, room > 0 ? "W" : "", [&](Ring &ring) {
                EXPECT_EQ(pipe_write(&ring.pipe, 'W'), room > 0 ? 1 : 0);
            });
            expectMoves(held > 0, 0, "", [&](Ring &ring) {
                uint8_t byte = 0x12;
                EXPECT_EQ(pipe_read(&ring.pipe, &byte), held > 0 ? 1 : 0);
                EXPECT_EQ(byte, held > 0 ? 'a' : 0xFF);
            });
            for (uint32_t count = 0; count <= 2 * size + 1; ++count) {
                SCOPED_TRACE(testing::Message() << count << " bytes");
                const std::string block("ABCDEFGHIJKLMNOPQRS", count);
                const uint32_t fits = std::min(count, room);
                expectMoves(0, fits, block.substr(0, fits),
                            [&](Ring &ring) { EXPECT_EQ(ring.writeBlock(block), fits); });
                expectMoves(std::min(count, held), 0, "", [&](Ring &ring) {
                    EXPECT_EQ(ring.readBlock(count), text.substr(0, count));
                });
                if (count <= inARow) {
                    expectMoves(count, 0, "", [&](Ring &ring) { pipe_skip(&ring.pipe, count); });
                }
                expectMoves(0, 3 * size - count, "",
                            [&](Ring &ring) { pipe_pop_back(&ring.pipe, count); });
            }
        }
    }
}

TEST(Pipe, RefusesTheByteThatWouldFillTheLastSlot)
{
    Ring ring(4);
    ring.fill("abc");
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

TEST(Pipe, BehavesLikeAQueueWhateverItsSize)
{
    for (const uint32_t size : {2u, 3u, 7u, 64u, 4096u, 65535u}) {
        Ring ring(size);
        std::string queue;
        const auto takeFromQueue = [&queue](uint32_t count) {
            const std::string bytes = queue.substr(0, count);
            queue.erase(0, count);
            return bytes;
        };
        std::mt19937 engine(size);
        const auto below = [&engine](size_t limit) {
            return static_cast<uint32_t>(engine() % limit);
        };
        for (uint32_t bytes = 0; bytes < kBytesPerQueueRun && !HasFailure();) {
            SCOPED_TRACE(testing::Message() << "size " << size << ", byte " << bytes);
            const uint32_t burst = below(size + 2);
            bytes += burst + 16; // many short bursts would take long
            const std::string block = countingBytes(burst, 1 + below(255));
            const size_t fits = std::min<size_t>(burst, size - 1 - queue.size());
            switch (below(7)) {
            case 0:
            case 1:
                for (uint32_t i = 0; i < burst; ++i) {
                    const auto byte = static_cast<uint8_t>(block[i]);
                    ASSERT_EQ(pipe_write(&ring.pipe, byte), i < fits ? 1 : 0);
                }
                queue += block.substr(0, fits);
                break;
            case 2: {
                const std::string expected = takeFromQueue(burst);
                for (uint32_t i = 0; i < burst; ++i) {
                    uint8_t byte = 0x77;
                    const bool isThere = i < expected.size();
                    ASSERT_EQ(pipe_read(&ring.pipe, &byte), isThere ? 1 : 0);
                    ASSERT_EQ(byte, isThere ? static_cast<uint8_t>(expected[i]) : 0xFF);
                }
                break;
            }
            case 3:
                ASSERT_EQ(ring.writeBlock(block), fits);
                queue += block.substr(0, fits);
                break;
            case 4:
                ASSERT_EQ(ring.readBlock(burst), takeFromQueue(burst));
                break;
            case 5: {
                const std::string seen = ring.peek();
                ASSERT_EQ(seen.empty(), queue.empty());
                const auto count = below(seen.size() + 1);
                ASSERT_EQ(seen.substr(0, count), takeFromQueue(count));
                pipe_skip(&ring.pipe, count);
                break;
            }
            default:
                const uint32_t count = below(queue.size() + 1);
                pipe_pop_back(&ring.pipe, count);
                queue.resize(queue.size() - count);
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

// A writer thread runs `write` and this one `read`, each again and again, until `all` has arrived.
// `write` gets the number of bytes written so far and returns how many it has added.
template <typename Write, typename Read>
void carry(Ring *ring, const std::string &all, Write write, Read read)
{
    const auto goesOn = [](bool hasMoved) { // after a failure, the rest might never come
        if (!hasMoved) {
            std::this_thread::yield();
        }
        return hasMoved || !testing::Test::HasFailure();
    };
    std::thread writer([&] {
        for (size_t done = 0; done < all.size();) {
            const uint32_t count = write(done);
            done += count;
            if (!goesOn(count > 0)) {
                break;
            }
        }
    });
    std::string arrived;
    for (bool isOn = true; isOn && arrived.size() < all.size();) {
        const std::string bytes = read();
        arrived += bytes;
        isOn = goesOn(!bytes.empty());
    }
    writer.join();
    EXPECT_TRUE(arrived == all);
    EXPECT_EQ(pipe_isEmpty(&ring->pipe), 1);
}

// "Not full" is a promise to the writer and "not empty" one to the reader: nobody else uses it up.
TEST(Pipe, CarriesASequenceBetweenTwoThreads)
{
    struct {
        uint32_t size;
        uint32_t bytes;
    } const rows[] = {{2, 1000}, {7, 10000}, {4096, 100000}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.size);
        Ring ring(row.size);
        const std::string all = countingBytes(row.bytes, 251);
        const auto write = [&](size_t done) {
            const bool isFull = pipe_isFull(&ring.pipe) != 0;
            if (!isFull) {
                EXPECT_EQ(pipe_write(&ring.pipe, static_cast<uint8_t>(all[done])), 1);
            }
            return isFull ? 0u : 1u;
        };
        carry(&ring, all, write, [&ring] {
            std::string byte;
            if (pipe_isEmpty(&ring.pipe) == 0) {
                byte = ring.drain(1);
                EXPECT_EQ(byte.size(), 1u);
            }
            return byte;
        });
    }
}

TEST(Pipe, CarriesBlocksOfAnySizeBetweenTwoThreads)
{
    Ring ring(4096);
    const std::string all = countingBytes(200'000, 251);
    std::minstd_rand writes(1);
    std::minstd_rand reads(2);
    const auto write = [&](size_t done) {
        return ring.writeBlock(all.substr(done, writes() % 5000));
    };
    carry(&ring, all, write, [&] {
        const auto size = static_cast<uint32_t>(reads() % 5000);
        if (size % 2 == 0) {
            return ring.readBlock(size);
        }
        const std::string bytes = ring.peek();
        pipe_skip(&ring.pipe, static_cast<uint32_t>(bytes.size()));
        return bytes;
    });
}

// The writer drops what does not fit, as the receive threads do.
TEST(Pipe, LosesOnlyTheBytesThatItRefused)
{
    Ring ring(64);
    std::string stored;
    std::string arrived;
    std::atomic<bool> done = false;
    std::thread writer([&ring, &stored, &done] {
        for (uint32_t i = 0; i < 50000; ++i) {
            const auto byte = static_cast<uint8_t>(i % 251);
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
        arrived += ring.drain();
    }
    writer.join();
    EXPECT_GE(stored.size(), 63u);
    EXPECT_TRUE(arrived == stored);
}

} // namespace
