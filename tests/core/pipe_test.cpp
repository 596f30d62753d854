// The byte ring against a queue that cannot wrap, its corners one by one, and one writer thread
// against one reader thread.

#include "core/pipe.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

namespace {

static_assert(std::is_standard_layout_v<struct pipe>);
static_assert(offsetof(struct pipe, start) == 0 * sizeof(void *));
static_assert(offsetof(struct pipe, write) == 1 * sizeof(void *));
static_assert(offsetof(struct pipe, read) == 2 * sizeof(void *));
static_assert(offsetof(struct pipe, end) == 3 * sizeof(void *));
static_assert(sizeof(struct pipe) == 4 * sizeof(void *));
static_assert(std::is_same_v<decltype(&pipe_init), void (*)(struct pipe *, uint8_t *, uint16_t)>,
              "the size is a 16-bit count");

constexpr uint8_t kGuard = 0xA5;

// A pipe over storage of its own, with guard bytes on both sides of it.
class Ring {
public:
    explicit Ring(uint16_t size) : size_(size), memory_(size + 2 * kGuards, kGuard)
    {
        pipe_init(&pipe, storage(), size);
    }
    uint8_t *storage()
    {
        return memory_.data() + kGuards;
    }
    ptrdiff_t readIndex()
    {
        return pipe.read.load() - storage();
    }
    ptrdiff_t writeIndex()
    {
        return pipe.write.load() - storage();
    }
    // Writes and reads `count` bytes, so that both pointers stand that much further.
    void turn(uint32_t count)
    {
        for (uint32_t i = 0; i < count; ++i) {
            uint8_t byte;
            ASSERT_EQ(pipe_write(&pipe, 0), 1);
            ASSERT_EQ(pipe_read(&pipe, &byte), 1);
        }
    }
    void fill(const std::string &text)
    {
        for (const char letter : text) {
            ASSERT_EQ(pipe_write(&pipe, static_cast<uint8_t>(letter)), 1);
        }
    }
    // Reads until the pipe says that it is empty, or twice its size.
    std::string drain()
    {
        std::string text;
        uint8_t byte;
        while (text.size() < 2u * size_ && pipe_read(&pipe, &byte) != 0) {
            text += static_cast<char>(byte);
        }
        return text;
    }
    bool guardsAreWhole() const
    {
        for (size_t i = 0; i < kGuards; ++i) {
            if (memory_[i] != kGuard || memory_[memory_.size() - 1 - i] != kGuard) {
                return false;
            }
        }
        return true;
    }

    struct pipe pipe;

private:
    static constexpr size_t kGuards = 8;
    uint32_t size_;
    std::vector<uint8_t> memory_;
};

TEST(Pipe, StartsEmptyWithAllPointersOnItsStorage)
{
    std::array<uint8_t, 10> storage{};
    struct pipe pipe;
    pipe_init(&pipe, storage.data(), 10);
    EXPECT_EQ(pipe.start, storage.data());
    EXPECT_EQ(pipe.write.load(), storage.data());
    EXPECT_EQ(pipe.read.load(), storage.data());
    EXPECT_EQ(pipe.end, storage.data() + 10);
    EXPECT_EQ(pipe_isEmpty(&pipe), 1);
    EXPECT_EQ(pipe_isFull(&pipe), 0);
}

TEST(Pipe, InitialisingAgainEmptiesIt)
{
    Ring ring(8);
    ring.turn(3);
    ring.fill("abc");
    pipe_init(&ring.pipe, ring.storage(), 8);
    EXPECT_EQ(pipe_isEmpty(&ring.pipe), 1);
    EXPECT_EQ(ring.readIndex(), 0);
    EXPECT_EQ(ring.writeIndex(), 0);
}

TEST(Pipe, GivesTheBytesBackInTheOrderWritten)
{
    Ring ring(16);
    ring.fill("order");
    EXPECT_EQ(ring.drain(), "order");
    EXPECT_EQ(pipe_isEmpty(&ring.pipe), 1);
}

TEST(Pipe, RefusesTheByteThatWouldFillTheLastSlot)
{
    Ring ring(4);
    EXPECT_EQ(pipe_write(&ring.pipe, 'a'), 1);
    EXPECT_EQ(pipe_write(&ring.pipe, 'b'), 1);
    EXPECT_EQ(pipe_isFull(&ring.pipe), 0);
    EXPECT_EQ(pipe_write(&ring.pipe, 'c'), 1);
    EXPECT_EQ(pipe_isFull(&ring.pipe), 1);
    EXPECT_EQ(pipe_write(&ring.pipe, 'd'), 0);
    EXPECT_EQ(pipe_isFull(&ring.pipe), 1);
    EXPECT_EQ(ring.drain(), "abc");
}

TEST(Pipe, RefusedByteChangesNothing)
{
    Ring ring(4);
    ring.turn(2);
    ring.fill("abc");
    const std::vector<uint8_t> before(ring.storage(), ring.storage() + 4);
    EXPECT_EQ(pipe_write(&ring.pipe, 'd'), 0);
    EXPECT_EQ(std::vector<uint8_t>(ring.storage(), ring.storage() + 4), before);
    EXPECT_EQ(ring.readIndex(), 2);
    EXPECT_EQ(ring.writeIndex(), 1);
    EXPECT_TRUE(ring.guardsAreWhole());
}

TEST(Pipe, IsFullWhereverTheReaderStands)
{
    for (uint32_t turned = 0; turned < 4; ++turned) {
        Ring ring(4);
        ring.turn(turned);
        ring.fill("abc");
        EXPECT_EQ(pipe_isFull(&ring.pipe), 1) << turned;
        EXPECT_EQ(pipe_isEmpty(&ring.pipe), 0) << turned;
        EXPECT_EQ(pipe_write(&ring.pipe, 'd'), 0) << turned;
        EXPECT_EQ(ring.drain(), "abc") << turned;
    }
}

TEST(Pipe, ReadingAnEmptyOneYieldsFFAndMovesNothing)
{
    Ring ring(4);
    ring.turn(3);
    uint8_t byte = 0x12;
    EXPECT_EQ(pipe_read(&ring.pipe, &byte), 0);
    EXPECT_EQ(byte, 0xFF);
    EXPECT_EQ(ring.readIndex(), 3);
    EXPECT_EQ(ring.writeIndex(), 3);
}

TEST(Pipe, ByteFFIsToldFromEmptyByTheResult)
{
    Ring ring(4);
    uint8_t byte = 0;
    pipe_write(&ring.pipe, 0xFF);
    EXPECT_EQ(pipe_read(&ring.pipe, &byte), 1);
    EXPECT_EQ(byte, 0xFF);
    byte = 0;
    EXPECT_EQ(pipe_read(&ring.pipe, &byte), 0);
    EXPECT_EQ(byte, 0xFF);
}

TEST(Pipe, CarriesEveryByteValue)
{
    Ring ring(300);
    for (uint32_t value = 0; value < 256; ++value) {
        ASSERT_EQ(pipe_write(&ring.pipe, static_cast<uint8_t>(value)), 1);
    }
    for (uint32_t value = 0; value < 256; ++value) {
        uint8_t byte;
        ASSERT_EQ(pipe_read(&ring.pipe, &byte), 1);
        EXPECT_EQ(byte, value);
    }
}

TEST(Pipe, WritingAcrossTheEndOfTheStorageWrapsToItsStart)
{
    Ring ring(8);
    ring.turn(6);
    ring.fill("wrap");
    EXPECT_EQ(ring.writeIndex(), 2);
    const uint8_t *const at = ring.storage();
    EXPECT_EQ((std::string{char(at[6]), char(at[7]), char(at[0]), char(at[1])}), "wrap");
    EXPECT_EQ(ring.drain(), "wrap");
    EXPECT_EQ(ring.readIndex(), 2);
    EXPECT_TRUE(ring.guardsAreWhole());
}

TEST(Pipe, PointersLeaveTheLastSlotForTheFirst)
{
    Ring ring(4);
    ring.turn(3);
    EXPECT_EQ(ring.writeIndex(), 3);
    ring.fill("a");
    EXPECT_EQ(ring.writeIndex(), 0);
    EXPECT_EQ(ring.readIndex(), 3);
    EXPECT_EQ(ring.drain(), "a");
    EXPECT_EQ(ring.readIndex(), 0);
}

TEST(Pipe, OfOneSlotIsEmptyAndFullAtOnce)
{
    Ring ring(1);
    uint8_t byte = 0;
    EXPECT_EQ(pipe_isEmpty(&ring.pipe), 1);
    EXPECT_EQ(pipe_isFull(&ring.pipe), 1);
    EXPECT_EQ(pipe_write(&ring.pipe, 'a'), 0);
    EXPECT_EQ(pipe_read(&ring.pipe, &byte), 0);
    EXPECT_EQ(byte, 0xFF);
    EXPECT_EQ(ring.storage()[0], kGuard);
    EXPECT_TRUE(ring.guardsAreWhole());
}

TEST(Pipe, LargestOneHolds65534Bytes)
{
    Ring ring(65535);
    EXPECT_EQ(ring.pipe.end - ring.pipe.start, 65535);
    for (uint32_t i = 0; i < 65534; ++i) {
        ASSERT_EQ(pipe_write(&ring.pipe, static_cast<uint8_t>(i * 7)), 1) << i;
    }
    EXPECT_EQ(pipe_isFull(&ring.pipe), 1);
    EXPECT_EQ(pipe_write(&ring.pipe, 0), 0);
    for (uint32_t i = 0; i < 65534; ++i) {
        uint8_t byte;
        ASSERT_EQ(pipe_read(&ring.pipe, &byte), 1) << i;
        ASSERT_EQ(byte, static_cast<uint8_t>(i * 7)) << i;
    }
    EXPECT_EQ(pipe_isEmpty(&ring.pipe), 1);
}

// Taking back ------------------------------------------------------------------------------------

TEST(Pipe, PoppingBackRemovesTheLastBytesWritten)
{
    Ring ring(16);
    ring.fill("abcdef");
    pipe_pop_back(&ring.pipe, 2);
    ring.fill("X");
    EXPECT_EQ(ring.drain(), "abcdX");
}

TEST(Pipe, PoppingBackNothingChangesNothing)
{
    Ring ring(4);
    ring.fill("ab");
    pipe_pop_back(&ring.pipe, 0);
    EXPECT_EQ(ring.writeIndex(), 2);
    EXPECT_EQ(ring.drain(), "ab");
}

TEST(Pipe, PoppingBackAllThatWasWrittenEmptiesIt)
{
    Ring ring(8);
    ring.turn(5);
    ring.fill("abcdefg");
    pipe_pop_back(&ring.pipe, 7);
    EXPECT_EQ(pipe_isEmpty(&ring.pipe), 1);
    EXPECT_EQ(ring.writeIndex(), 5);
    EXPECT_EQ(ring.readIndex(), 5);
}

TEST(Pipe, PoppingBackRightAfterTheWrapGoesToTheLastSlot)
{
    Ring ring(4);
    ring.turn(3);
    ring.fill("a");
    ASSERT_EQ(ring.writeIndex(), 0);
    pipe_pop_back(&ring.pipe, 1);
    EXPECT_EQ(ring.writeIndex(), 3);
    EXPECT_EQ(pipe_isEmpty(&ring.pipe), 1);
}

TEST(Pipe, PoppingBackCrossesTheWrap)
{
    Ring ring(8);
    ring.turn(5);
    ring.fill("abcdef"); // in slots 5, 6, 7, 0, 1, 2
    pipe_pop_back(&ring.pipe, 4);
    EXPECT_EQ(ring.writeIndex(), 7);
    ring.fill("XY");
    EXPECT_EQ(ring.drain(), "abXY");
    EXPECT_TRUE(ring.guardsAreWhole());
}

TEST(Pipe, PoppingBackMakesRoomInAFullOne)
{
    Ring ring(4);
    ring.fill("abc");
    pipe_pop_back(&ring.pipe, 1);
    EXPECT_EQ(pipe_isFull(&ring.pipe), 0);
    EXPECT_EQ(pipe_write(&ring.pipe, 'Z'), 1);
    EXPECT_EQ(ring.drain(), "abZ");
}

// Deliberately not guarded: the callers pop only what they know they wrote.
TEST(Pipe, PoppingBackMoreThanItHoldsMovesWriteBehindRead)
{
    Ring ring(8);
    ring.turn(3);
    ring.fill("a"); // read 3, write 4
    pipe_pop_back(&ring.pipe, 2);
    EXPECT_EQ(ring.readIndex(), 3);
    EXPECT_EQ(ring.writeIndex(), 2);
    EXPECT_EQ(pipe_isFull(&ring.pipe), 1);
    EXPECT_EQ(pipe_isEmpty(&ring.pipe), 0);
    EXPECT_EQ(ring.drain().size(), 7u);
}

TEST(Pipe, PoppingBackMoreThanTheStorageGoesRoundAndRound)
{
    Ring ring(4);
    pipe_pop_back(&ring.pipe, 9);
    EXPECT_EQ(ring.writeIndex(), 3); // -9 modulo 4
    pipe_pop_back(&ring.pipe, 400003);
    EXPECT_EQ(ring.writeIndex(), 0);
    EXPECT_EQ(ring.readIndex(), 0);
    EXPECT_TRUE(ring.guardsAreWhole());
}

// Against a model --------------------------------------------------------------------------------

// What happened on the way, so that a run that never met a corner does not pass for a proof.
struct Met {
    uint32_t full = 0;
    uint32_t empty = 0;
    uint32_t poppedAcrossWrap = 0;
};

Met runAgainstQueue(uint16_t size, uint32_t steps)
{
    Ring ring(size);
    std::deque<uint8_t> model;
    std::mt19937 engine(size);
    const auto below = [&engine](uint32_t limit) {
        return static_cast<uint32_t>(engine() % limit);
    };
    Met met;
    for (uint32_t step = 0; step < steps; ++step) {
        // Bursts of up to the whole pipe, so that large ones get full and empty too.
        const uint32_t burst = below(size + 2u);
        switch (below(4)) {
        case 0:
        case 1:
            for (uint32_t i = 0; i < burst; ++i) {
                const uint8_t byte = static_cast<uint8_t>(below(256));
                const bool fits = model.size() + 1 < size;
                EXPECT_EQ(pipe_write(&ring.pipe, byte), fits ? 1 : 0);
                if (fits) {
                    model.push_back(byte);
                } else {
                    ++met.full;
                }
            }
            break;
        case 2:
            for (uint32_t i = 0; i < burst; ++i) {
                uint8_t byte = 0x77;
                EXPECT_EQ(pipe_read(&ring.pipe, &byte), model.empty() ? 0 : 1);
                if (model.empty()) {
                    EXPECT_EQ(byte, 0xFF);
                    ++met.empty;
                } else {
                    EXPECT_EQ(byte, model.front());
                    model.pop_front();
                }
            }
            break;
        default: {
            const uint32_t count = below(static_cast<uint32_t>(model.size()) + 1);
            const ptrdiff_t before = ring.writeIndex();
            pipe_pop_back(&ring.pipe, count);
            met.poppedAcrossWrap += ring.writeIndex() > before ? 1u : 0u;
            model.erase(model.end() - static_cast<ptrdiff_t>(count), model.end());
            break;
        }
        }
        EXPECT_EQ(pipe_count(&ring.pipe), model.size());
        EXPECT_EQ(pipe_isEmpty(&ring.pipe), model.empty() ? 1 : 0);
        EXPECT_EQ(pipe_isFull(&ring.pipe), model.size() + 1 == size ? 1 : 0);
        EXPECT_EQ((ring.writeIndex() - ring.readIndex() + size) % size,
                  static_cast<ptrdiff_t>(model.size()));
        EXPECT_TRUE(ring.readIndex() >= 0 && ring.readIndex() < size);
        EXPECT_TRUE(ring.writeIndex() >= 0 && ring.writeIndex() < size);
        if (testing::Test::HasFailure()) {
            ADD_FAILURE() << "size " << size << ", step " << step;
            break;
        }
    }
    EXPECT_TRUE(ring.guardsAreWhole());
    return met;
}

TEST(Pipe, BehavesLikeAQueueForEverySmallSize)
{
    for (uint16_t size = 1; size <= 70 && !HasFailure(); ++size) {
        const Met met = runAgainstQueue(size, 1000);
        EXPECT_GT(met.full, 0u) << size;
        EXPECT_GT(met.empty, 0u) << size;
        if (size > 1) {
            EXPECT_GT(met.poppedAcrossWrap, 0u) << size;
        }
    }
}

TEST(Pipe, BehavesLikeAQueueForTheSizeOfAChannel)
{
    const Met met = runAgainstQueue(4096, 300);
    EXPECT_GT(met.full, 0u);
    EXPECT_GT(met.empty, 0u);
    EXPECT_GT(met.poppedAcrossWrap, 0u);
}

TEST(Pipe, BehavesLikeAQueueForTheLargestSize)
{
    const Met met = runAgainstQueue(65535, 60);
    EXPECT_GT(met.full, 0u);
    EXPECT_GT(met.empty, 0u);
    EXPECT_GT(met.poppedAcrossWrap, 0u);
}

// One writer thread, one reader thread -----------------------------------------------------------

// A byte sequence that does not repeat within any ring used here.
class Sequence {
public:
    uint8_t next()
    {
        state_ = state_ * 1664525u + 1013904223u;
        return static_cast<uint8_t>(state_ >> 24);
    }

private:
    uint32_t state_ = 1;
};

void expectSequenceAcrossThreads(uint16_t size, uint32_t bytes)
{
    Ring ring(size);
    std::thread writer([&ring, bytes] {
        Sequence sequence;
        for (uint32_t i = 0; i < bytes; ++i) {
            const uint8_t byte = sequence.next();
            while (pipe_isFull(&ring.pipe) != 0) {
                std::this_thread::yield();
            }
            // Not full is a promise to the writer: nobody else fills the pipe.
            if (pipe_write(&ring.pipe, byte) == 0) {
                ADD_FAILURE() << "byte " << i << " refused";
            }
        }
    });
    Sequence sequence;
    uint32_t wrong = 0;
    uint32_t broken = 0;
    for (uint32_t i = 0; i < bytes; ++i) {
        while (pipe_isEmpty(&ring.pipe) != 0) {
            std::this_thread::yield();
        }
        uint8_t byte = 0;
        broken += pipe_read(&ring.pipe, &byte) == 1 ? 0u : 1u; // not empty is the reader's promise
        wrong += byte == sequence.next() ? 0u : 1u;
    }
    writer.join();
    EXPECT_EQ(wrong, 0u) << "size " << size;
    EXPECT_EQ(broken, 0u) << "size " << size;
    EXPECT_EQ(pipe_isEmpty(&ring.pipe), 1) << "size " << size;
    EXPECT_TRUE(ring.guardsAreWhole());
}

TEST(Pipe, CarriesASequenceBetweenTwoThreadsThroughOneSlot)
{
    expectSequenceAcrossThreads(2, 20000);
}

TEST(Pipe, CarriesASequenceBetweenTwoThreadsThroughAFewSlots)
{
    expectSequenceAcrossThreads(7, 100000);
}

TEST(Pipe, CarriesASequenceBetweenTwoThreadsThroughAChannel)
{
    expectSequenceAcrossThreads(4096, 1000000);
}

// The writer drops what does not fit, as the receive threads do: what arrives is exactly what it
// was told had been stored.
TEST(Pipe, LosesOnlyTheBytesThatItRefused)
{
    constexpr uint32_t kBytes = 200000;
    Ring ring(64);
    std::vector<uint8_t> stored;
    std::vector<uint8_t> arrived;
    std::atomic<bool> done = false;
    std::thread writer([&ring, &stored, &done] {
        Sequence sequence;
        for (uint32_t i = 0; i < kBytes; ++i) {
            const uint8_t byte = sequence.next();
            if (pipe_write(&ring.pipe, byte) != 0) {
                stored.push_back(byte);
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
            arrived.push_back(byte);
        }
    }
    writer.join();
    EXPECT_GE(stored.size(), 63u);
    EXPECT_EQ(arrived, stored);
}

} // namespace
