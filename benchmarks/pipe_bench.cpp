// A byte through the daemon's pipe, one by one and in blocks, beside a byte through Boost's
// lock-free single-producer single-consumer queue: taken as soon as it is there; the ring filled,
// then emptied; and one thread writing while another reads. What to compare are the bytes a second.

#include <array>
#include <cstdint>
#include <numeric>

#include <benchmark/benchmark.h>
#include <boost/lockfree/spsc_queue.hpp>

#include "core/pipe.h"

namespace {

constexpr uint16_t kSize = 4096; // as every pipe of the daemon
constexpr uint32_t kBytesPerRound = 1 << 20;

// The two rings under one set of names. Each returns how many bytes it moved.
struct DaemonPipe {
    DaemonPipe()
    {
        pipe_init(&pipe, storage, sizeof storage);
    }
    uint32_t put(const uint8_t *bytes, uint32_t count)
    {
        return count == 1 ? static_cast<uint32_t>(pipe_write(&pipe, *bytes))
                          : pipe_write_block(&pipe, bytes, count);
    }
    uint32_t take(uint8_t *bytes, uint32_t count)
    {
        return count == 1 ? static_cast<uint32_t>(pipe_read(&pipe, bytes))
                          : pipe_read_block(&pipe, bytes, count);
    }
    uint8_t storage[kSize];
    struct pipe pipe;
};

struct BoostQueue {
    uint32_t put(const uint8_t *bytes, uint32_t count)
    {
        return static_cast<uint32_t>(count == 1 ? queue.push(*bytes) : queue.push(bytes, count));
    }
    uint32_t take(uint8_t *bytes, uint32_t count)
    {
        return static_cast<uint32_t>(count == 1 ? queue.pop(*bytes) : queue.pop(bytes, count));
    }
    boost::lockfree::spsc_queue<uint8_t, boost::lockfree::capacity<kSize - 1>> queue;
};

template <uint32_t block> std::array<uint8_t, block> someBytes()
{
    std::array<uint8_t, block> bytes;
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    return bytes;
}

template <typename Ring, uint32_t block> void putAll(Ring &ring, uint32_t count)
{
    auto bytes = someBytes<block>();
    while (count > 0) {
        benchmark::DoNotOptimize(bytes);
        count -= ring.put(bytes.data(), block < count ? block : count);
    }
}

template <typename Ring, uint32_t block> void takeAll(Ring &ring, uint32_t count)
{
    std::array<uint8_t, block> bytes;
    while (count > 0) {
        count -= ring.take(bytes.data(), block < count ? block : count);
        benchmark::DoNotOptimize(bytes);
    }
}

template <typename Ring, uint32_t block> void oneThread(benchmark::State &state)
{
    static Ring ring;
    for (auto _ : state) {
        putAll<Ring, block>(ring, kSize - 1);
        takeAll<Ring, block>(ring, kSize - 1);
    }
    state.SetBytesProcessed(state.iterations() * (kSize - 1));
}

template <typename Ring, uint32_t block> void twoThreads(benchmark::State &state)
{
    static Ring ring;
    for (auto _ : state) {
        if (state.thread_index() == 0) {
            putAll<Ring, block>(ring, kBytesPerRound);
        } else {
            takeAll<Ring, block>(ring, kBytesPerRound);
        }
    }
    if (state.thread_index() == 0) {
        state.SetBytesProcessed(state.iterations() * kBytesPerRound);
    }
}

// Each block is taken as soon as it is there.
template <typename Ring, uint32_t block> void inAndOut(benchmark::State &state)
{
    static Ring ring;
    auto bytes = someBytes<block>();
    for (auto _ : state) {
        benchmark::DoNotOptimize(ring.put(bytes.data(), block));
        benchmark::DoNotOptimize(ring.take(bytes.data(), block));
    }
    state.SetBytesProcessed(state.iterations() * block);
}

BENCHMARK(inAndOut<DaemonPipe, 1>);
BENCHMARK(inAndOut<BoostQueue, 1>);
BENCHMARK(inAndOut<DaemonPipe, 256>);
BENCHMARK(oneThread<DaemonPipe, 1>);
BENCHMARK(oneThread<BoostQueue, 1>);
BENCHMARK(oneThread<DaemonPipe, 256>);
BENCHMARK(oneThread<BoostQueue, 256>);
BENCHMARK(twoThreads<DaemonPipe, 1>)->Threads(2)->UseRealTime();
BENCHMARK(twoThreads<BoostQueue, 1>)->Threads(2)->UseRealTime();
BENCHMARK(twoThreads<DaemonPipe, 256>)->Threads(2)->UseRealTime();
BENCHMARK(twoThreads<BoostQueue, 256>)->Threads(2)->UseRealTime();

} // namespace
