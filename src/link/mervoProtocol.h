#pragma once

// The Mervo link: commands to a further device and its answers, over any byte stream.
// Waiting for a later model: nothing that the daemon runs calls this.
//
// A command is one frame: "<T", eight bytes as 16 hexadecimal digits and ">". Its answer is one
// that begins "<F". Commands are numbered. An answer acknowledges the number that it carries and
// all before it. docs/protocol.md describes the wire.
//
// The owner of a link gives it a function that sends and a pipe that a receive thread fills. One
// thread works the link, the pipe's reader: all operations on it are that thread's.
//
// Answers are parsed, one at a time, by Task_MervoProtocol() and whenever a wait looks for one. A
// sender waits only for a device that is known to answer. Before its first answer, and after each
// time-out, answers pile up in the pipe until the owner calls Task_MervoProtocol(). Call it until
// the pipe is empty before a command that waits for its answer: after three other answers the 20 ms
// of that wait are over, although the device answers. Every wait goes by the wall clock, and lasts
// longer if the clock is set back.
//
// Addresses, commands and data are bytes: only the low 8 bits of what is passed count. The device's
// address is sent, printed, and compared with nothing.

#include "core/pipe.h"

#include <cstdint>

// One link. It is the owner's for as long as it is used; only the operations write its fields.
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

    // May be null. Called with the 8 bytes of each answer, which are `lastAnswer`, so that a wait
    // for another answer changes them. It may send. A wait that is under way is then for that newer
    // command, and SendCmdAndWait_MervoProtocol() returns the result of the newer one.
    void (*onAnswer)(MervoLink *link, const uint8_t *answer) = nullptr;

    // Writes all bytes to the transport; nothing is sent again. Some operations hand its result
    // back, as they say; none looks at it.
    int32_t (*send)(const uint8_t *bytes, int32_t length) = nullptr;

    struct pipe *receivePipe = nullptr; // may be null: nothing is received then
};

// Makes the link one that has sent and received nothing. Stored answers stay as they are.
// `receivePipe` and `onAnswer` may be null, `send` may not. The pipe needs 571 bytes for the 30
// answers that may be due while senders wait for room, and more for senders that do not.
void Init_MervoProtocol(MervoLink *link, struct pipe *receivePipe,
                        void (*onAnswer)(MervoLink *link, const uint8_t *answer),
                        int32_t (*send)(const uint8_t *bytes, int32_t length));

// Parses what has been received, up to the end of the first answer or until the pipe is empty.
void Task_MervoProtocol(MervoLink *link);

// Parses one character. Returns 1 when it completes an answer, else 0. A malformed answer is
// dropped silently. The checksum of an answer is not checked.
int32_t _interpret_cmd_char(MervoLink *link, uint8_t character);

// Sends a command under the next number and returns what `send` returns. The operations below that
// send a command ignore that result.
int32_t _send_cmd_mervo(MervoLink *link, uint32_t address, uint32_t command, uint32_t data1,
                        uint32_t data2, uint32_t data3, uint32_t data4);

// 1 while fewer than 30 commands are unanswered, counted modulo 256; else 0. `address` is not used.
int32_t canSendCmd_mervo(const MervoLink *link, uint32_t address);

// Sends a command; returns 1.
int32_t SendCmdNoWait_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command,
                                    uint32_t data1, uint32_t data2, uint32_t data3, uint32_t data4);

// Sends a command. If 30 or more are then unanswered, and the device is known to answer, waits
// until fewer are. Returns 1. If there is no room after 3000 ms, logs it and returns 0; the device
// is then no longer known to answer.
int32_t SendCmd_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command, uint32_t data1,
                              uint32_t data2, uint32_t data3, uint32_t data4);

// SendCmd_MervoProtocol() with a block of `length` raw bytes after the command. The checksum, the
// sum of the other bytes, is written into the block's last byte. A length of 0 or below sends no
// block. The result is 1 only if the device is known to answer at the end; for a device that is
// not, it is 0 at once and without a message.
int32_t SendCmdAndDataBlock_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command,
                                          uint32_t data1, uint32_t data2, uint32_t data3,
                                          uint32_t data4, uint8_t *block, int32_t length);

// Waits until the last command is acknowledged, looking every 10 ms, and returns 1. After `timeout`
// milliseconds logs the time-out and returns 0; the stored answers are then zeros, and the device
// is no longer known to answer.
int32_t WaitAck_MervoProtocol(MervoLink *link, uint32_t address, uint32_t timeout);

// Sends a command and waits for its answer: 3000 ms, or 20 ms for a device that is not known to
// answer. Returns data 1 to 4 of the answer, data 1 lowest. Returns 0 after a time-out, which
// WaitAck_MervoProtocol() logs, and also when that is the answer; `answered` is 0 or 1 accordingly.
uint32_t SendCmdAndWait_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command,
                                      uint32_t data1, uint32_t data2, uint32_t data3,
                                      uint32_t data4);

// Sends bytes as they are; returns what `send` returns.
int32_t SendBuffer_MervoProtocol(MervoLink *link, const uint8_t *bytes, int32_t length);

// Takes received bytes as they are, answers among them included, until there are `maximum` of them
// or `timeout` milliseconds have passed. The time is checked after every byte. Returns how many it
// stored. If a byte is there it is stored even with a `maximum` of 0, so the buffer needs room for
// it.
uint32_t ReceiveBuffer_MervoProtocol(MervoLink *link, uint8_t *buffer, uint32_t maximum,
                                     uint32_t timeout);
