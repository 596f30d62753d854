// Decoding and encoding frames, beside the standard library's conversions of the same 16 digits.
// Those are measured as eight bytes of two digits, which is what a record needs, and as one 64-bit
// number, which is the least work that the standard library can do. Each pass takes a batch of
// different frames, so that no frame waits for the one before it.

#include <benchmark/benchmark.h>

#include <array>
#include <charconv>
#include <cstring>
#include <random>

#include "command/frame.h"

namespace {

constexpr uint32_t kFrames = 64;
using Frame = std::array<char, kFrameLength + 1>;

std::array<Frame, kFrames> randomFrames()
{
    std::mt19937 random(1);
    std::array<Frame, kFrames> frames;
    for (Frame &frame : frames) {
        Rs232Command record;
        // The address starts with a digit other than 0, so the 64-bit number needs no leading zero.
        record.address = static_cast<uint8_t>(random() | 0x80);
        record.tag = static_cast<uint8_t>(random());
        record.command = static_cast<uint8_t>(random());
        record.dat1 = static_cast<uint8_t>(random());
        record.dat2 = static_cast<uint8_t>(random());
        record.dat3 = static_cast<uint8_t>(random());
        record.dat4 = static_cast<uint8_t>(random());
        frame = {'<', 'T'};
        Rs232CommandToStr(&record, frame.data());
        frame[kFrameEndOffset] = '>';
    }
    return frames;
}

void report(benchmark::State &state)
{
    state.SetItemsProcessed(state.iterations() * kFrames);
}

void frameDecodeEncode(benchmark::State &state)
{
    alignas(64) auto frames = randomFrames();
    alignas(64) std::array<Rs232Command, kFrames> records;
    for (auto _ : state) {
        for (uint32_t i = 0; i < kFrames; ++i) {
            StrToRs232Command(frames[i].data(), &records[i]);
        }
        benchmark::ClobberMemory();
        for (uint32_t i = 0; i < kFrames; ++i) {
            Rs232CommandToStr(&records[i], frames[i].data());
        }
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(frames);
    benchmark::DoNotOptimize(records);
    report(state);
}
BENCHMARK(frameDecodeEncode);

void standardEightBytes(benchmark::State &state)
{
    alignas(64) auto frames = randomFrames();
    alignas(64) std::array<std::array<uint8_t, 8>, kFrames> records;
    for (auto _ : state) {
        for (uint32_t i = 0; i < kFrames; ++i) {
            for (uint32_t byte = 0; byte < 8; ++byte) {
                const char *const at = frames[i].data() + 2 + 2 * byte;
                std::from_chars(at, at + 2, records[i][byte], 16);
            }
        }
        benchmark::ClobberMemory();
        for (uint32_t i = 0; i < kFrames; ++i) {
            for (uint32_t byte = 0; byte < 8; ++byte) {
                char *const at = frames[i].data() + 2 + 2 * byte;
                if (std::to_chars(at, at + 2, records[i][byte], 16).ptr == at + 1) {
                    at[1] = at[0];
                    at[0] = '0';
                }
            }
        }
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(frames);
    benchmark::DoNotOptimize(records);
    report(state);
}
BENCHMARK(standardEightBytes);

void standardOneNumber(benchmark::State &state)
{
    alignas(64) auto frames = randomFrames();
    alignas(64) std::array<uint64_t, kFrames> records;
    for (auto _ : state) {
        for (uint32_t i = 0; i < kFrames; ++i) {
            std::from_chars(frames[i].data() + 2, frames[i].data() + 18, records[i], 16);
        }
        benchmark::ClobberMemory();
        for (uint32_t i = 0; i < kFrames; ++i) {
            std::to_chars(frames[i].data() + 2, frames[i].data() + 18, records[i], 16);
        }
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(frames);
    benchmark::DoNotOptimize(records);
    report(state);
}
BENCHMARK(standardOneNumber);

} // namespace
