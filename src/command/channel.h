#pragma once

// Command channels: ten slots that each bind one source of bytes to a private pipe.
//
// The serial reader thread binds channels and fills their pipes (IsrReceiveBuffer). The main loop
// empties them (command/reception.h) and answers the source that the channel names
// (command/reply.h). Only one receive thread may feed the channels; binding relies on it.

#include "core/pipe.h"

#include <atomic>
#include <cstdint>

// Kinds of source.
inline constexpr uint32_t kChannelUdp = 0;    // a UDP peer; nothing produces these yet
inline constexpr uint32_t kChannelSerial = 2; // a serial port
inline constexpr uint32_t kChannelFree = 5;   // not bound

inline constexpr uint8_t kChannelCount = 10;
inline constexpr uint8_t kNoChannel = 255;

struct Channel {
    // One of the kinds above. Written by the receive thread, after `address`; read by the main
    // loop.
    std::atomic<uint32_t> type;
    uint32_t reserved;
    // For a serial port, its number, sign-extended. For a UDP peer, the IPv4 address (network byte
    // order) in the low word and the port (host byte order) in the high word. Written by the
    // receive thread.
    std::atomic<uint64_t> address;
    struct pipe pipe; // over `storage`: received bytes not yet assembled into frames
    uint8_t storage[4096];
    // Tick of the last valid command, 0 before the first. Written by the main loop, read by the
    // receive thread when it looks for a channel to evict.
    std::atomic<uint32_t> lastTime;
    uint32_t reservedEnd;
};
// A lock could make the main loop wait for the receive thread, and needs a library that boards
// lack.
static_assert(std::atomic<uint64_t>::is_always_lock_free);

// Made once by createChannels() and never freed. A slot that got no memory stays null and is
// skipped everywhere.
extern Channel *channel[kChannelCount];

// Main loop only.
extern uint8_t commandFrom;     // the channel being served: replies and payloads belong to it
extern uint8_t current_channel; // the channel whose command is being executed

// Allocates the ten channels, all free.
// Requires: called once, before any receive thread runs.
void createChannels();

// Returns the lowest channel bound to exactly this source, or kNoChannel. For the receive thread:
// any other thread may see a channel that is being rebound with its new address and its old type.
[[nodiscard]] uint8_t getUsedChannel(uint32_t type, uint64_t address);

// Binds a channel to the source and returns it: the lowest free one, else the one whose last valid
// command is oldest (the lowest index among equal ages). Bytes that the old source left in the
// pipe, or in a half-assembled frame, stay there and count as the new source's. Returns kNoChannel
// only when no slot has memory. Receive thread only.
[[nodiscard]] uint8_t getFreeChannel(uint32_t type, uint64_t address);

// Queues bytes from a source. If no channel is bound to the source, binds one first and logs that.
// Bytes that fit are published together. Each one that does not fit is dropped and logged. Receive
// thread only.
void IsrReceiveBuffer(uint32_t type, uint64_t address, const uint8_t *bytes, uint32_t length);

// Waiting for a later model -----------------------------------------------------------------------

// IsrReceiveBuffer() for one byte, without messages. Returns 1 if it was stored, 0 if the pipe was
// full or no slot has memory. Receive thread only.
int32_t IsrReceiveCommand(uint32_t type, uint64_t address, uint8_t byte);

// The source kind of the command being executed. Main loop only.
uint32_t get_channel_type();
