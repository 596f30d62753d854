#pragma once

// The near end of the commands that read a payload: bytes arrive on a serial channel, now or while
// the command waits. Link with `exchange` and `fake_clock`.

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <utility>

#include "command/channel.h"
#include "command/reception.h"
#include "command/reply.h"
#include "tests/support/clock.h"
#include "tests/support/exchange.h"
#include "transport/bridge_pipes.h"

// Channel 0, which is being served, is serial port 0.
inline void openLine()
{
    InitRs232CommandVariable();
    udp_receive_pipe_init();
    getFreeChannel(kChannelSerial, 0);
    commandFrom = 0;
}

inline void arrive(std::string_view bytes, uint64_t port = 0)
{
    IsrReceiveBuffer(kChannelSerial, port, bytesOf(bytes), lengthOf(bytes));
}

// Bytes by the sleep during which they arrive, counted from 1; those of 0 are there at once.
using Arrivals = std::map<size_t, std::string>;

inline Arrivals perSleep(size_t count, std::string_view bytes, size_t first = 1)
{
    Arrivals arrivals;
    for (; !bytes.empty(); bytes.remove_prefix(std::min(count, bytes.size()))) {
        arrivals[first++] = bytes.substr(0, count);
    }
    return arrivals;
}

// Counts the sleeps anew.
inline void arrive(Arrivals arrivals)
{
    fakeClock.sleepsUs.clear();
    arrive(std::string_view(arrivals[0]));
    fakeClock.onSleep = [arrivals = std::move(arrivals)]() mutable {
        arrive(std::string_view(arrivals[fakeClock.sleepsUs.size()]));
    };
}

// What has arrived on the channel and has not been read.
inline std::string waiting(uint8_t index = 0)
{
    return contentOf(channel[index]->pipe);
}

inline void takeAll()
{
    fakeClock.onSleep = nullptr;
    for (uint8_t byte; pipe_read(&channel[0]->pipe, &byte) != 0;) {
    }
}

// The parameters with a number in dat3 and dat4, its low byte first.
inline Parameters numbered(Parameters parameters, uint32_t number)
{
    parameters[5] = static_cast<uint8_t>(number % 256);
    parameters[6] = static_cast<uint8_t>(number / 256);
    return parameters;
}

// Makes a command the one that is being executed.
inline void request(const Parameters &parameters)
{
    commandToLED = {parameters[0], parameters[1], parameters[2], parameters[3],
                    parameters[4], parameters[5], parameters[6], 0x77};
    std::memset(&commandFromLED, 0xB2, sizeof commandFromLED);
}
