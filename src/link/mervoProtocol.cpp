#include "link/mervoProtocol.h"

#include <cstdio>
#include <cstring>

#include "command/frame.h"
#include "core/record.h"
#include "core/systick.h"

// Proves the layout in the header.
RECORD_FIELD(MervoLink, 0, uint8_t, 1, answered)
RECORD_FIELD(MervoLink, 1, uint8_t, 1, count)
RECORD_FIELD(MervoLink, 2, uint8_t, 1, state)
RECORD_FIELD(MervoLink, 3, uint8_t, 1, sequence)
RECORD_FIELD(MervoLink, 4, uint8_t, 1, acknowledged)
RECORD_FIELD(MervoLink, 5, char, 2, hexPair)
RECORD_FIELD(MervoLink, 7, uint8_t, 8, answerInProgress)
RECORD_FIELD(MervoLink, 15, uint8_t, 8, lastAnswer)
RECORD_FIELD(MervoLink, 23, uint8_t, 1, reserved23)
static_assert(offsetof(MervoLink, onAnswer) == 24);
static_assert(offsetof(MervoLink, send) == 24 + sizeof(void *));
static_assert(offsetof(MervoLink, receivePipe) == 24 + 2 * sizeof(void *));
static_assert(sizeof(MervoLink) == 24 + 3 * sizeof(void *));
static_assert(std::has_unique_object_representations_v<MervoLink>, "hidden padding");

namespace {

constexpr uint8_t cmd_header[2] = {'<', 'F'};
constexpr uint8_t cmd_end = '>';

constexpr uint8_t kMostUnanswered = 29; // with more, a sender waits
constexpr uint32_t kAnswerMs = 3000;
constexpr uint32_t kNoDeviceMs = 20; // for a device that is not known to answer

// States of the parser.
constexpr uint8_t kHunt = 0;
constexpr uint8_t kHeader = 1;
constexpr uint8_t kDigits = 2;
constexpr uint8_t kEnd = 3;

constexpr uint8_t kAnswerDigits = 16;

// Places in an answer's bytes.
constexpr uint32_t kAnswerSequence = 1;
constexpr uint32_t kAnswerData = 3;

int32_t readByte(const MervoLink *link, uint8_t *out)
{
    return link->receivePipe != nullptr ? pipe_read(link->receivePipe, out) : 0;
}

bool isAcknowledged(const MervoLink *link)
{
    return link->acknowledged == link->sequence;
}

bool isTimedOut(uint32_t start, uint32_t timeout)
{
    return isSysTickTimeout(static_cast<int32_t>(start), timeout) != 0;
}

// Returns false after a time-out, which the caller logs.
bool waitForRoom(MervoLink *link, uint32_t address)
{
    const uint32_t start = GetSysTick();
    while (canSendCmd_mervo(link, address) == 0 && link->answered != 0) {
        Task_MervoProtocol(link);
        if (isAcknowledged(link)) {
            return true;
        }
        if (isTimedOut(start, kAnswerMs)) {
            link->answered = 0;
            return false;
        }
        SysDelay1ms(1);
    }
    return true;
}

// Takes one of the 16 digits, without checking that it is one.
void takeDigit(MervoLink *link, uint8_t character)
{
    link->hexPair[link->count % 2] = static_cast<char>(character);
    if (link->count % 2 == 1) {
        link->answerInProgress[link->count / 2] = HexCharToByte(link->hexPair);
    }
    link->count = static_cast<uint8_t>(link->count + 1);
    if (link->count == kAnswerDigits) {
        link->state = kEnd;
        link->count = 0;
    }
}

void completeAnswer(MervoLink *link)
{
    link->state = kHunt;
    link->count = 0;
    link->acknowledged = link->answerInProgress[kAnswerSequence];
    std::memcpy(link->lastAnswer, link->answerInProgress, sizeof link->lastAnswer);
    link->answered = 1;
    if (link->onAnswer != nullptr) {
        link->onAnswer(link, link->lastAnswer);
    }
}

} // namespace

void Init_MervoProtocol(MervoLink *link, struct pipe *receivePipe,
                        void (*onAnswer)(MervoLink *link, const uint8_t *answer),
                        int32_t (*send)(const uint8_t *bytes, int32_t length))
{
    link->receivePipe = receivePipe;
    link->onAnswer = onAnswer;
    link->send = send;
    link->answered = 0;
    link->count = 0;
    link->state = kHunt;
    link->sequence = 0;
    link->acknowledged = 0;
}

void Task_MervoProtocol(MervoLink *link)
{
    uint8_t character = 0;
    while (readByte(link, &character) != 0) {
        if (_interpret_cmd_char(link, character) != 0) {
            return;
        }
    }
}

int32_t _interpret_cmd_char(MervoLink *link, uint8_t character)
{
    if (character == cmd_header[0]) {
        link->state = kHunt;
    }
    switch (link->state) {
    case kHunt:
        if (character == cmd_header[0]) {
            link->count = 1;
            link->state = kHeader;
        }
        return 0;
    case kHeader:
        if (character != cmd_header[1]) {
            link->state = kHunt;
            return 0;
        }
        link->state = kDigits;
        link->count = 0;
        return 0;
    case kDigits:
        takeDigit(link, character);
        return 0;
    case kEnd:
        if (character == cmd_end) {
            completeAnswer(link);
            return 1;
        }
        link->state = kHunt;
        return 0;
    default:
        link->state = kHunt;
        return 0;
    }
}

int32_t _send_cmd_mervo(MervoLink *link, uint32_t address, uint32_t command, uint32_t data1,
                        uint32_t data2, uint32_t data3, uint32_t data4)
{
    link->sequence = static_cast<uint8_t>(link->sequence + 1);
    // A frame as for the front board's commands, with the number in place of the tag.
    Rs232Command record = {static_cast<uint8_t>(address), link->sequence,
                           static_cast<uint8_t>(command), static_cast<uint8_t>(data1),
                           static_cast<uint8_t>(data2),   static_cast<uint8_t>(data3),
                           static_cast<uint8_t>(data4),   0};
    char frame[kFrameLength];
    std::memcpy(frame, CommandToLEDHeader, kFrameHeaderLength);
    Rs232CommandToStr(&record, frame);
    frame[kFrameEndOffset] = CommandEnd[0];
    return link->send(reinterpret_cast<const uint8_t *>(frame), sizeof frame);
}

int32_t canSendCmd_mervo(const MervoLink *link, [[maybe_unused]] uint32_t address)
{
    return static_cast<uint8_t>(link->sequence - link->acknowledged) <= kMostUnanswered ? 1 : 0;
}

int32_t SendCmdNoWait_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command,
                                    uint32_t data1, uint32_t data2, uint32_t data3, uint32_t data4)
{
    _send_cmd_mervo(link, address, command, data1, data2, data3, data4);
    return 1;
}

int32_t SendCmd_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command, uint32_t data1,
                              uint32_t data2, uint32_t data3, uint32_t data4)
{
    _send_cmd_mervo(link, address, command, data1, data2, data3, data4);
    if (!waitForRoom(link, address)) {
        std::printf("1. can't receive %d = %d\r\n", static_cast<uint8_t>(address), link->sequence);
        return 0;
    }
    return 1;
}

int32_t SendCmdAndDataBlock_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command,
                                          uint32_t data1, uint32_t data2, uint32_t data3,
                                          uint32_t data4, uint8_t *block, int32_t length)
{
    _send_cmd_mervo(link, address, command, data1, data2, data3, data4);
    if (length > 0) {
        SetBufferCheckSum(block, static_cast<uint32_t>(length));
        link->send(block, length); // the result is dropped: a lost block shows as a lost answer
    }
    if (!waitForRoom(link, address)) {
        std::printf("4. can't receive %d = %d\r\n", static_cast<uint8_t>(address), link->sequence);
    }
    // Not simply 1: without a wait, there may be no device to take the block.
    return link->answered;
}

int32_t WaitAck_MervoProtocol(MervoLink *link, uint32_t address, uint32_t timeout)
{
    const uint32_t start = GetSysTick();
    while (!isAcknowledged(link)) {
        Task_MervoProtocol(link);
        if (isAcknowledged(link)) {
            return 1;
        }
        if (isTimedOut(start, timeout)) {
            std::printf("3. can't receive %d = %d %d\r\n", static_cast<uint8_t>(address),
                        link->sequence, link->acknowledged);
            link->answered = 0;
            std::memset(link->answerInProgress, 0, sizeof link->answerInProgress);
            std::memset(link->lastAnswer, 0, sizeof link->lastAnswer);
            return 0;
        }
        SysDelay1ms(10);
    }
    return 1;
}

uint32_t SendCmdAndWait_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command,
                                      uint32_t data1, uint32_t data2, uint32_t data3,
                                      uint32_t data4)
{
    _send_cmd_mervo(link, address, command, data1, data2, data3, data4);
    const uint32_t timeout = link->answered != 0 ? kAnswerMs : kNoDeviceMs;
    if (WaitAck_MervoProtocol(link, address, timeout) == 0) {
        return 0;
    }
    const uint8_t *const data = &link->lastAnswer[kAnswerData];
    return static_cast<uint32_t>(data[0]) | static_cast<uint32_t>(data[1]) << 8 |
           static_cast<uint32_t>(data[2]) << 16 | static_cast<uint32_t>(data[3]) << 24;
}

int32_t SendBuffer_MervoProtocol(MervoLink *link, const uint8_t *bytes, int32_t length)
{
    return link->send(bytes, length);
}

uint32_t ReceiveBuffer_MervoProtocol(MervoLink *link, uint8_t *buffer, uint32_t maximum,
                                     uint32_t timeout)
{
    const uint32_t start = GetSysTick();
    uint32_t count = 0;
    do {
        uint8_t byte = 0;
        if (readByte(link, &byte) == 0) {
            SysDelay1ms(1);
        } else {
            buffer[count] = byte;
            ++count;
            if (count >= maximum) {
                return count;
            }
        }
    } while (!isTimedOut(start, timeout));
    return count;
}
