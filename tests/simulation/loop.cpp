#include "tests/simulation/loop.h"

#include "tests/simulation/calls.h"
#include "tests/simulation/records.h"
#include "tests/simulation/world.h"

namespace {

// What a pass takes at most, waits aside: the 300 ms that a network record waits, and a busy board.
constexpr Time kLongestPass = 500 * kMillisecond;
constexpr size_t kChunk = 256;
constexpr Time kChunkPause = 80 * kMillisecond;

// Standard streams, the line, the socket; the vendor storage and a package may be open as well.
constexpr size_t kDescriptors = 5;

} // namespace

void Loop::boot()
{
    passes_ = 0;
    passBegan_ = world->threads.now();
    excusedBefore_ = excused();
    allowance = 0;
}

Time Loop::excused() const
{
    return pauses_ + world->tools.busy() + world->skipped + world->stalled;
}

void Loop::check() const
{
    const Time taken = world->threads.now() - passBegan_ - (excused() - excusedBefore_) - allowance;
    if (taken > kLongestPass) {
        world->fail("loop", "a pass of the loop takes " + std::to_string(taken / kMillisecond) +
                                " ms more than the documents allow");
    }
}

void Loop::passBegins()
{
    check();
    passBegan_ = world->threads.now();
    excusedBefore_ = excused();
    if (passes_++ == 0) {
        memoryAtStart_ = world->memoryBlocks;
    }
}

void Loop::lineWritten(const std::string &bytes)
{
    pauses_ += bytes.size() == kChunk ? kChunkPause + kMillisecond : 0;
}

void Loop::timePasses()
{
    if (world->isRunning) {
        check();
    }
}

void Loop::quiet()
{
    if (!world->isRunning || passes_ == 0) {
        return;
    }
    if (world->memoryBlocks != memoryAtStart_) {
        world->fail("memory", std::to_string(world->memoryBlocks) + " blocks, " +
                                  std::to_string(memoryAtStart_) + " at start");
    }
    const size_t more =
        (isOpen("/dev/vendor_storage") ? 1u : 0u) + (isOpen(kPackageFile) ? 1u : 0u);
    if (world->descriptors != kDescriptors + more) {
        world->fail("descriptors", std::to_string(world->descriptors) + " are open");
    }
}
