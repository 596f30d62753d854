#pragma once

// Command channels: ten slots that each bind one source of bytes to a private pipe.
//
// The serial reader thread binds channels and fills their pipes (IsrReceiveBuffer); the main loop
// empties them (command/reception.h) and answers to the source that the channel names
// (command/reply.h). Binding relies on there being one receive thread that feeds channels.

#include "core/pipe.h"
#include "core/record.h"

#include <atomic>
#include <cstdint>

// Kinds of source.
inline constexpr uint32_t kChannelUdp = 0;    // a UDP peer; nothing produces these yet
inline constexpr uint32_t kChannelSerial = 2; // a serial port
inline constexpr uint32_t kChannelFree = 5;   // not bound

inline constexpr uint8_t kChannelCount = 10;
inline constexpr uint8_t kNoChannel = 255;

struct Channel {
    // One of the kinds above. Written by the receive thread after `address`, read by the main loop.
    std::atomic<uint32_t> type;
    uint32_t reserved;
    // Serial port: its number, sign-extended. UDP peer: low word the IPv4 address (network byte
    // order), high word the port (host byte order). Written by the receive thread.
    std::atomic<uint64_t> address;
    struct pipe pipe; // over `storage`: bytes received and not yet assembled into frames
    uint8_t storage[4096];
    // Tick of the last valid command, 0 before the first. Written by the main loop, read by the
    // receive thread when it looks for a channel to evict.
    std::atomic<uint32_t> lastTime;
    uint32_t reservedEnd;
};
RECORD_FIELD(Channel, 0, std::atomic<uint32_t>, type);
RECORD_FIELD(Channel, 8, std::atomic<uint64_t>, address);
RECORD_FIELD(Channel, 16, struct pipe, pipe);
RECORD_FIELD(Channel, 16 + sizeof(struct pipe), uint8_t[4096], storage);
RECORD_FIELD(Channel, 16 + sizeof(struct pipe) + 4096, std::atomic<uint32_t>, lastTime);
static_assert(sizeof(void *) != 4 || sizeof(Channel) == 4136);

// Filled once by InitRs232CommandVariable() before any thread runs, never freed. A slot whose
// memory could not be had stays null and is passed over.
extern Channel *channel[kChannelCount];

// Main loop only.
extern uint8_t commandFrom;     // the channel being served: replies and payloads belong to it
extern uint8_t current_channel; // the channel whose command is being executed

// The lowest channel bound to exactly this source, or kNoChannel. Receive thread; another thread
// may see a channel that is just changing hands with the new address and still the old type.
uint8_t getUsedChannel(uint32_t type, uint64_t address);

// Binds a channel to the source and returns it: the lowest free one, else the one whose last valid
// command is longest ago (lowest index on equal ages). What the old source left in its pipe and in
// its half-assembled frame stays and will be read as the new source's. kNoChannel only when no slot
// has memory. Receive thread only.
uint8_t getFreeChannel(uint32_t type, uint64_t address);

// Queues bytes of a source, binding a channel to it first if there is none (and saying so). Bytes
// that do not fit are dropped with a message each. Receive thread only.
void IsrReceiveBuffer(uint32_t type, uint64_t address, const uint8_t *bytes, uint32_t length);

// The same for one byte, without messages. Returns 1 if it was stored, 0 if the pipe was full.
int32_t IsrReceiveCommand(uint32_t type, uint64_t address, uint8_t byte);

// The kind of source of the command being executed. Main loop only.
uint32_t get_channel_type();
