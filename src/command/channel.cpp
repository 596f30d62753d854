#include "command/channel.h"

#include <cstdio>
#include <new>

#include "core/memory.h"
#include "core/record.h"
#include "core/systick.h"

// Proves the layout in the header.
RECORD_FIELD(Channel, 0, std::atomic<uint32_t>, 1, type)
RECORD_FIELD(Channel, 8, std::atomic<uint64_t>, 1, address)
RECORD_FIELD(Channel, 16, struct pipe, 1, pipe)
RECORD_FIELD(Channel, 16 + sizeof(struct pipe), uint8_t, 4096, storage)
RECORD_FIELD(Channel, 16 + sizeof(struct pipe) + 4096, std::atomic<uint32_t>, 1, lastTime)
static_assert(sizeof(void *) != 4 || sizeof(Channel) == 4136);

Channel *channel[kChannelCount];
uint8_t commandFrom;
uint8_t current_channel;

namespace {

bool isBoundTo(uint8_t index, uint32_t type, uint64_t address)
{
    const Channel *const slot = channel[index];
    // The acquire pairs with the release in bind(): a new type is never seen with an old address.
    return slot != nullptr && slot->type.load(std::memory_order_acquire) == type &&
           slot->address.load(std::memory_order_relaxed) == address;
}

void bind(uint8_t index, uint32_t type, uint64_t address)
{
    channel[index]->address.store(address, std::memory_order_relaxed);
    channel[index]->type.store(type, std::memory_order_release);
}

uint8_t findFree()
{
    for (uint8_t i = 0; i < kChannelCount; ++i) {
        if (channel[i] != nullptr &&
            channel[i]->type.load(std::memory_order_relaxed) == kChannelFree) {
            return i;
        }
    }
    return kNoChannel;
}

uint8_t findLeastRecentlyUsed()
{
    const uint32_t now = GetSysTick();
    uint8_t oldest = kNoChannel;
    uint32_t oldestAge = 0;
    for (uint8_t i = 0; i < kChannelCount; ++i) {
        if (channel[i] == nullptr) {
            continue;
        }
        // Pairs with the release in TaskCommand.
        const uint32_t last = channel[i]->lastTime.load(std::memory_order_acquire);
        const uint32_t age = now >= last ? now - last : now - last - 1;
        if (oldest == kNoChannel || age > oldestAge) {
            oldest = i;
            oldestAge = age;
        }
    }
    return oldest;
}

uint32_t lowWord(uint64_t address)
{
    return static_cast<uint32_t>(address);
}

} // namespace

void createChannels()
{
    for (Channel *&slot : channel) {
        void *const memory = mymem_malloc(sizeof(Channel));
        if (memory == nullptr) {
            continue;
        }
        slot = new (memory) Channel;
        slot->type.store(kChannelFree, std::memory_order_relaxed);
        slot->address.store(0, std::memory_order_relaxed);
        slot->lastTime.store(0, std::memory_order_relaxed);
        pipe_init(&slot->pipe, slot->storage, sizeof slot->storage);
    }
}

uint8_t getUsedChannel(uint32_t type, uint64_t address)
{
    for (uint8_t i = 0; i < kChannelCount; ++i) {
        if (isBoundTo(i, type, address)) {
            return i;
        }
    }
    return kNoChannel;
}

uint8_t getFreeChannel(uint32_t type, uint64_t address)
{
    uint8_t index = findFree();
    if (index == kNoChannel) {
        index = findLeastRecentlyUsed();
    }
    if (index != kNoChannel) {
        bind(index, type, address);
    }
    return index;
}

void IsrReceiveBuffer(uint32_t type, uint64_t address, const uint8_t *bytes, uint32_t length)
{
    uint8_t index = getUsedChannel(type, address);
    if (index == kNoChannel) {
        index = getFreeChannel(type, address);
        std::printf("getFreeChannel from=%d, type=%d, port=%d\n", index, static_cast<int>(type),
                    static_cast<int>(lowWord(address)));
    }
    for (uint32_t done = 0; done < length;) {
        if (index != kNoChannel) {
            done += pipe_write_block(&channel[index]->pipe, bytes + done, length - done);
        }
        if (done < length) { // a line for each byte lost; the main loop may make room meanwhile
            std::printf("IsrReceiveBuffer error: type=0x%x, port=0x%x\n", type, lowWord(address));
            ++done;
        }
    }
}

// Waiting for a later model -----------------------------------------------------------------------

int32_t IsrReceiveCommand(uint32_t type, uint64_t address, uint8_t byte)
{
    uint8_t index = getUsedChannel(type, address);
    if (index == kNoChannel) {
        index = getFreeChannel(type, address);
    }
    return index == kNoChannel ? 0 : pipe_write(&channel[index]->pipe, byte);
}

uint32_t get_channel_type()
{
    const Channel *const slot = channel[current_channel];
    // The acquire pairs with the release in bind().
    return slot == nullptr ? kChannelFree : slot->type.load(std::memory_order_acquire);
}
