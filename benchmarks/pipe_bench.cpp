// A byte through the daemon's pipe, beside a byte through Boost's lock-free single-producer
// single-consumer queue.

#include <benchmark/benchmark.h>
#include <boost/lockfree/spsc_queue.hpp>

#include "core/pipe.h"

namespace {

constexpr uint16_t kSize = 4096;

void pipeOneByte(benchmark::State &state)
{
    static uint8_t storage[kSize];
    struct pipe pipe;
    pipe_init(&pipe, storage, sizeof storage);
    uint8_t byte = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(pipe_write(&pipe, byte));
        benchmark::DoNotOptimize(pipe_read(&pipe, &byte));
        ++byte;
    }
}
BENCHMARK(pipeOneByte);

void boostOneByte(benchmark::State &state)
{
    boost::lockfree::spsc_queue<uint8_t> queue(kSize - 1);
    uint8_t byte = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(queue.push(byte));
        benchmark::DoNotOptimize(queue.pop(byte));
        ++byte;
    }
}
BENCHMARK(boostOneByte);

// A batch as the receive threads and the main loop move it: fill the ring, then empty it.
void pipeBatch(benchmark::State &state)
{
    static uint8_t storage[kSize];
    struct pipe pipe;
    pipe_init(&pipe, storage, sizeof storage);
    uint8_t byte = 0;
    for (auto _ : state) {
        for (uint32_t i = 0; i < kSize - 1u; ++i) {
            benchmark::DoNotOptimize(pipe_write(&pipe, byte));
        }
        while (pipe_read(&pipe, &byte) != 0) {
            benchmark::DoNotOptimize(byte);
        }
    }
    state.SetBytesProcessed(state.iterations() * (kSize - 1));
}
BENCHMARK(pipeBatch);

void boostBatch(benchmark::State &state)
{
    boost::lockfree::spsc_queue<uint8_t> queue(kSize - 1);
    uint8_t byte = 0;
    for (auto _ : state) {
        for (uint32_t i = 0; i < kSize - 1u; ++i) {
            benchmark::DoNotOptimize(queue.push(byte));
        }
        while (queue.pop(byte)) {
            benchmark::DoNotOptimize(byte);
        }
    }
    state.SetBytesProcessed(state.iterations() * (kSize - 1));
}
BENCHMARK(boostBatch);

} // namespace
