#pragma once

// The Mervo link: commands to a further device and its answers, over any byte stream.
//
// A command is one frame, "<T", eight bytes as 16 hexadecimal digits and ">"; its answer one that
// begins "<F". Commands are numbered, and an answer acknowledges the number that it carries, and so
// all before it. docs/protocol.md describes the wire.
//
// Whoever opens a link gives it a function that sends and a pipe that a receive thread fills; no
// one does in this version. A link is worked by one thread, the pipe's reader: all operations on it
// are that thread's.
//
// Answers are parsed, one at a time, by Task_MervoProtocol() and whenever a wait looks for one. A
// sender waits only for a device that is known to answer; at first, and after each time-out,
// answers pile up in the pipe until the owner calls Task_MervoProtocol(). Before a command that
// waits for its answer, call it until the pipe is empty: behind three other answers the 20 ms below
// run out, though the device answers. Every wait goes by the wall clock, and lasts longer where
// that is set back.
//
// Addresses, commands and data are bytes: of what is passed only the low 8 bits count. The device's
// address is sent, printed, and compared with nothing.

#include "core/pipe.h"
#include "core/record.h"

#include <cstdint>

// One link, the owner's for as long as it is used. The fields are written by the operations only.
struct MervoLink {
    uint8_t answered = 0;     // 1: the device is known to answer; 0 at first and after a time-out
    uint8_t count = 0;        // characters taken in this state of the parser
    uint8_t state = 0;        // of the parser: 0 hunt, 1 header, 2 digits, 3 end
    uint8_t sequence = 0;     // number of the last command sent; 0 follows 255
    uint8_t acknowledged = 0; // number that the last answer carried
    char hexPair[2] = {};     // the digits of the byte being decoded
    uint8_t answerInProgress[8] = {};
    uint8_t lastAnswer[8] = {}; // address, number, command, data 1 to 4, checksum
    uint8_t reserved23 = 0;

    // May be null. Called with the 8 bytes of each answer, which are `lastAnswer`: a wait for
    // another one changes them. It may send; a wait that is under way is then for that newer
    // command, and SendCmdAndWait_MervoProtocol() returns the result of the newer one.
    void (*onAnswer)(MervoLink *link, const uint8_t *answer) = nullptr;

    // Writes bytes to the transport, all of them: nothing is sent again. Its result is handed back
    // by the operations that say so, and looked at by none.
    int32_t (*send)(const uint8_t *bytes, int32_t length) = nullptr;

    struct pipe *receivePipe = nullptr; // may be null: nothing is received then
};
RECORD_FIELD(MervoLink, 0, uint8_t, answered);
RECORD_FIELD(MervoLink, 1, uint8_t, count);
RECORD_FIELD(MervoLink, 2, uint8_t, state);
RECORD_FIELD(MervoLink, 3, uint8_t, sequence);
RECORD_FIELD(MervoLink, 4, uint8_t, acknowledged);
RECORD_FIELD(MervoLink, 5, char[2], hexPair);
RECORD_FIELD(MervoLink, 7, uint8_t[8], answerInProgress);
RECORD_FIELD(MervoLink, 15, uint8_t[8], lastAnswer);
RECORD_FIELD(MervoLink, 23, uint8_t, reserved23);
static_assert(offsetof(MervoLink, onAnswer) == 24);
static_assert(offsetof(MervoLink, send) == 24 + sizeof(void *));
static_assert(offsetof(MervoLink, receivePipe) == 24 + 2 * sizeof(void *));
static_assert(sizeof(MervoLink) == 24 + 3 * sizeof(void *));
static_assert(std::has_unique_object_representations_v<MervoLink>, "hidden padding");

// Makes the link one that has sent and received nothing; stored answers stay as they are.
// `receivePipe` and `onAnswer` may be null, `send` may not. The pipe needs 571 bytes for the 30
// answers that may be due while senders wait for room, and more for senders that do not.
void Init_MervoProtocol(MervoLink *link, struct pipe *receivePipe,
                        void (*onAnswer)(MervoLink *link, const uint8_t *answer),
                        int32_t (*send)(const uint8_t *bytes, int32_t length));

// Parses what has been received, up to the end of the first answer or of the pipe.
void Task_MervoProtocol(MervoLink *link);

// Parses one character. Returns 1 when it completes an answer, else 0. A malformed answer is
// dropped silently; the checksum of one is not looked at.
int32_t _interpret_cmd_char(MervoLink *link, uint8_t character);

// Sends a command under the next number; returns what `send` returns. The operations below that
// send a command ignore that.
int32_t _send_cmd_mervo(MervoLink *link, uint32_t address, uint32_t command, uint32_t data1,
                        uint32_t data2, uint32_t data3, uint32_t data4);

// 1 while fewer than 30 commands are unanswered, counted modulo 256; else 0. `address` is not used.
int32_t canSendCmd_mervo(const MervoLink *link, uint32_t address);

// Sends a command; returns 1.
int32_t SendCmdNoWait_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command,
                                    uint32_t data1, uint32_t data2, uint32_t data3, uint32_t data4);

// Sends a command. When that makes 30 or more unanswered, and the device is known to answer, waits
// until fewer are. Returns 1; 0 when there is no room after 3000 ms, with a message, and the device
// is then no longer known to answer.
int32_t SendCmd_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command, uint32_t data1,
                              uint32_t data2, uint32_t data3, uint32_t data4);

// The same with a block of `length` raw bytes behind the command. Its last byte is their checksum:
// the sum of those before it is written there. A length of 0 or below sends none. Unlike above, the
// result is 1 only if the device is known to answer at the end: 0 also, at once and without a
// message, for one that is not.
int32_t SendCmdAndDataBlock_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command,
                                          uint32_t data1, uint32_t data2, uint32_t data3,
                                          uint32_t data4, uint8_t *block, int32_t length);

// Waits until the last command is acknowledged, looking every 10 ms. Returns 1; 0 after `timeout`
// milliseconds, with a message: the stored answers are zeros then, and the device is no longer
// known to answer.
int32_t WaitAck_MervoProtocol(MervoLink *link, uint32_t address, uint32_t timeout);

// Sends a command and waits for its answer: 3000 ms, or 20 ms on a device that is not known to
// answer. Returns data 1 to 4 of the answer, data 1 lowest; 0 after a time-out, with the message of
// WaitAck_MervoProtocol(), and when that is the answer. `answered` tells them apart: 0 and 1.
uint32_t SendCmdAndWait_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command,
                                      uint32_t data1, uint32_t data2, uint32_t data3,
                                      uint32_t data4);

// Sends bytes as they are; returns what `send` returns.
int32_t SendBuffer_MervoProtocol(MervoLink *link, const uint8_t *bytes, int32_t length);

// Takes received bytes as they are, answers among them unparsed, until there are `maximum` of them
// or `timeout` milliseconds have passed, which is looked at behind every byte. Returns how many it
// stored. One is stored if one is there, even with a `maximum` of 0: the buffer needs room for it.
uint32_t ReceiveBuffer_MervoProtocol(MervoLink *link, uint8_t *buffer, uint32_t maximum,
                                     uint32_t timeout);
