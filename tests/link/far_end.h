#pragma once

// A Mervo link and its far end: what the link sends is kept, what it receives is put in by the
// test, and what it does to the world is noted in order. Needs `fake_clock` and pipe_read()
// wrapped.

#include "link/mervoProtocol.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

struct FarEnd {
    struct Sent {
        const uint8_t *from;
        int32_t length;
        std::string bytes;
    };
    struct Answer {
        MervoLink *link;
        const uint8_t *from;
        std::string bytes;
    };

    std::vector<Sent> sent;                        // every call of send
    std::function<int32_t()> onSend;               // called then; what it returns send returns
    std::vector<Answer> answers;                   // every call of on answer
    std::function<void(MervoLink *link)> onAnswer; // called then
    std::function<void(size_t sleeps)> onSleep;    // called when one more sleep is over

    // "send <T…>", "clock" (a reading), "empty" (a look into the empty pipe), "read <F…>" (all
    // bytes taken in a row), "sleep 1000" (in microseconds), "answer" (a call of on answer).
    std::vector<std::string> events;
};

extern FarEnd farEnd;

// Bytes that come during the sleep of this number, or at once.
struct Arrival {
    size_t sleeps;
    std::string bytes;
};

// A link just set up. Making one forgets all that happened before and sets the clock to 1000 s.
struct OpenLink {
    OpenLink();
    OpenLink(const OpenLink &) = delete;
    OpenLink &operator=(const OpenLink &) = delete;

    void receive(std::string_view bytes);
    void receive(const std::vector<Arrival> &arrivals); // takes onSleep

    // The device has answered; the last command sent and the last one answered have these numbers.
    void stand(uint8_t sequence, uint8_t acknowledged);

    // Parses the bytes without the pipe; returns how many answers they completed.
    size_t parse(std::string_view bytes);

    // Takes what is left in the pipe, unnoted.
    std::string unread();

    MervoLink link;
    struct pipe pipe;

private:
    std::array<uint8_t, 4096> storage_;
};

// The clock goes on by this time, or back, in the sleep of this number; takes onSleep.
void setClockInSleep(size_t sleep, int64_t byMs);

int32_t sendToFarEnd(const uint8_t *bytes, int32_t length);
void noteAnswer(MervoLink *link, const uint8_t *answer);

// Frames, printed by the C library.
std::string commandFrame(uint8_t address, uint8_t number, uint8_t command, uint8_t data1,
                         uint8_t data2, uint8_t data3, uint8_t data4);
std::string answerFrame(uint8_t number, uint32_t data = 0); // address 1, command 2

// Everything that a link holds.
testing::AssertionResult isLink(const MervoLink &link, const MervoLink &expected);
