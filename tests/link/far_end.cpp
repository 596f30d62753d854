#include "tests/link/far_end.h"

#include <cstdio>
#include <cstring>

#include "tests/support/bytes.h"
#include "tests/support/clock.h"
#include "tests/support/replace.h"

FarEnd farEnd;

namespace {

std::string textOf(const uint8_t *bytes, size_t length)
{
    return {reinterpret_cast<const char *>(bytes), length};
}

} // namespace

// Noted and carried out.
REPLACE(int32_t, _Z9pipe_readP4pipePh, (struct pipe * pipe, uint8_t *out))
{
    const int32_t isRead = REAL(_Z9pipe_readP4pipePh)(pipe, out);
    if (isRead == 0) {
        farEnd.events.emplace_back("empty");
    } else if (farEnd.events.empty() || !farEnd.events.back().starts_with("read ")) {
        farEnd.events.push_back("read " + textOf(out, 1));
    } else {
        farEnd.events.back() += static_cast<char>(*out);
    }
    return isRead;
}

int32_t sendToFarEnd(const uint8_t *bytes, int32_t length)
{
    const std::string text = length > 0 ? textOf(bytes, static_cast<size_t>(length)) : "";
    farEnd.sent.push_back({bytes, length, text});
    farEnd.events.push_back("send " + text);
    return farEnd.onSend ? farEnd.onSend() : length;
}

void noteAnswer(MervoLink *link, const uint8_t *answer)
{
    farEnd.answers.push_back({link, answer, textOf(answer, 8)});
    farEnd.events.emplace_back("answer");
    if (farEnd.onAnswer) {
        farEnd.onAnswer(link);
    }
}

void setClockInSleep(size_t sleep, int64_t byMs)
{
    farEnd.onSleep = [sleep, byMs](size_t count) {
        fakeClock.advanceMs(count == sleep ? byMs : 0);
    };
}

OpenLink::OpenLink() : link(), pipe(), storage_()
{
    farEnd = {};
    fakeClock = {};
    fakeClock.setMs(1000000);
    fakeClock.afterReading = [] { farEnd.events.emplace_back("clock"); };
    fakeClock.onSleep = [] {
        const std::string slept = std::to_string(fakeClock.sleepsUs.back());
        farEnd.events.push_back("sleep " + slept);
        if (farEnd.onSleep) {
            farEnd.onSleep(fakeClock.sleepsUs.size());
        }
    };
    pipe_init(&pipe, storage_.data(), static_cast<uint16_t>(storage_.size()));
    Init_MervoProtocol(&link, &pipe, noteAnswer, sendToFarEnd);
}

void OpenLink::receive(std::string_view bytes)
{
    for (const char byte : bytes) {
        if (pipe_write(&pipe, static_cast<uint8_t>(byte)) == 0) {
            ADD_FAILURE() << "the pipe is full";
        }
    }
}

void OpenLink::receive(const std::vector<Arrival> &arrivals)
{
    const auto arrive = [this, arrivals](size_t sleeps) {
        for (const Arrival &arrival : arrivals) {
            receive(arrival.sleeps == sleeps ? arrival.bytes : "");
        }
    };
    arrive(0);
    farEnd.onSleep = arrive;
}

void OpenLink::stand(uint8_t sequence, uint8_t acknowledged)
{
    link.answered = 1;
    link.sequence = sequence;
    link.acknowledged = acknowledged;
}

size_t OpenLink::parse(std::string_view bytes)
{
    size_t answers = 0;
    for (const char byte : bytes) {
        const int32_t result = _interpret_cmd_char(&link, static_cast<uint8_t>(byte));
        EXPECT_TRUE(result == 0 || result == 1) << result;
        answers += result == 0 ? 0 : 1;
    }
    return answers;
}

std::string OpenLink::unread()
{
    std::string text;
    uint8_t byte = 0;
    while (REAL(_Z9pipe_readP4pipePh)(&pipe, &byte) != 0) {
        text += static_cast<char>(byte);
    }
    return text;
}

std::string commandFrame(uint8_t address, uint8_t number, uint8_t command, uint8_t data1,
                         uint8_t data2, uint8_t data3, uint8_t data4)
{
    const int sum = address + number + command + data1 + data2 + data3 + data4;
    char text[32];
    std::snprintf(text, sizeof text, "<T%.2x%.2x%.2x%.2x%.2x%.2x%.2x%.2x>", address, number,
                  command, data1, data2, data3, data4, sum % 256);
    return text;
}

std::string answerFrame(uint8_t number, uint32_t data)
{
    const auto byte = [data](int place) { return static_cast<uint8_t>(data >> 8 * place); };
    std::string frame = commandFrame(1, number, 2, byte(0), byte(1), byte(2), byte(3));
    frame[1] = 'F';
    return frame;
}

testing::AssertionResult isLink(const MervoLink &link, const MervoLink &expected)
{
    if (std::memcmp(&link, &expected, sizeof link) == 0) {
        return testing::AssertionSuccess();
    }
    const auto bytesOf = [](const MervoLink &it) {
        return hex(reinterpret_cast<const uint8_t *>(&it), sizeof it);
    };
    return testing::AssertionFailure()
           << "is " << bytesOf(link) << "\nshould be " << bytesOf(expected);
}
