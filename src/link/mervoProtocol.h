#pragma once

// The Mervo link: commands to another device and its answers, over any byte stream.
// Waiting for a later model: nothing that the daemon runs calls this.
//
// A command is one frame: "<T", eight bytes as 16 hexadecimal digits and ">". An answer is such a
// frame that begins with "<F". Commands are numbered. An answer acknowledges the number that it
// carries and all before it. docs/protocol.md describes the wire.
//
// The owner of a link gives it a function that sends and a pipe that a receive thread fills. Only
// one thread, the pipe's reader, may use the link.
//
// Answers are parsed one at a time, by Task_MervoProtocol() and by a wait for an answer. A sender
// waits for room only if the device is known to answer. Before the first answer, and after each
// time-out, answers pile up in the pipe until the owner calls Task_MervoProtocol(). Before a
// command that waits for its answer, call it until the pipe is empty: three older answers use up
// the 20 ms of that wait, although the device answers. Every wait goes by the wall clock, and lasts
// longer if the clock is set back.
//
// Addresses, commands and data are bytes: only the low 8 bits of an argument count. The device's
// address is sent and printed, but never compared.

#include "core/pipe.h"

#include <cstdint>

// One link. The owner keeps it for as long as it is used; only the operations write its fields.
struct MervoLink {
    uint8_t answered = 0;     // 1: the device is known to answer; 0 at first and after a time-out
    uint8_t count = 0;        // characters taken in the parser's current state
    uint8_t state = 0;        // of the parser: 0 hunt, 1 header, 2 digits, 3 end
    uint8_t sequence = 0;     // number of the last command sent; 0 follows 255
    uint8_t acknowledged = 0; // number in the last answer
    char hexPair[2] = {};     // the digits of the byte being decoded
    uint8_t answerInProgress[8] = {};
    uint8_t lastAnswer[8] = {}; // address, number, command, data 1 to 4, checksum
    uint8_t reserved23 = 0;

    // May be null. Called with the 8 bytes of each answer. They are those of `lastAnswer`, so the
    // next answer overwrites them. The function may send; a wait in progress then waits for that
    // newer command, and SendCmdAndWait_MervoProtocol() returns the newer command's result.
    void (*onAnswer)(MervoLink *link, const uint8_t *answer) = nullptr;

    // Writes all bytes to the transport; nothing is ever resent. Some operations return its result,
    // as they say; none checks it.
    int32_t (*send)(const uint8_t *bytes, int32_t length) = nullptr;

    struct pipe *receivePipe = nullptr; // null: nothing is received
};

// Makes the link one that has sent and received nothing. Stored answers stay as they are.
// `receivePipe` and `onAnswer` may be null. The pipe needs a storage of 571 bytes for the 30
// answers that may be due when every sender waits for room, and more if one does not.
// Requires: `send` is not null.
void Init_MervoProtocol(MervoLink *link, struct pipe *receivePipe,
                        void (*onAnswer)(MervoLink *link, const uint8_t *answer),
                        int32_t (*send)(const uint8_t *bytes, int32_t length));

// Parses received characters until the first answer is complete or the pipe is empty.
void Task_MervoProtocol(MervoLink *link);

// Parses one character. Returns 1 when it completes an answer, else 0. A malformed answer is
// dropped silently. The checksum of an answer is not checked.
int32_t _interpret_cmd_char(MervoLink *link, uint8_t character);

// Sends a command under the next number and returns what `send` returns. The operations below that
// send a command drop that result.
int32_t _send_cmd_mervo(MervoLink *link, uint32_t address, uint32_t command, uint32_t data1,
                        uint32_t data2, uint32_t data3, uint32_t data4);

// Returns 1 while fewer than 30 commands are unanswered, counted modulo 256; else 0. `address` is
// not used.
int32_t canSendCmd_mervo(const MervoLink *link, uint32_t address);

// Sends a command; returns 1.
int32_t SendCmdNoWait_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command,
                                    uint32_t data1, uint32_t data2, uint32_t data3, uint32_t data4);

// Sends a command. If 30 or more are then unanswered, and the device is known to answer, waits
// until fewer are. Returns 1. If there is still no room after 3000 ms, logs that and returns 0; the
// device is then no longer known to answer.
int32_t SendCmd_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command, uint32_t data1,
                              uint32_t data2, uint32_t data3, uint32_t data4);

// SendCmd_MervoProtocol() with a block of `length` raw bytes after the command. The block's last
// byte is overwritten with the checksum, the sum of the others. A length of 0 or less sends no
// block. Returns 1 only if the device is known to answer at the end. For a device that was not
// known to answer, returns 0 at once, without a message.
int32_t SendCmdAndDataBlock_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command,
                                          uint32_t data1, uint32_t data2, uint32_t data3,
                                          uint32_t data4, uint8_t *block, int32_t length);

// Waits until the last command is acknowledged, checking every 10 ms, and returns 1. After
// `timeout` milliseconds, logs the time-out and returns 0; the stored answers are then zero, and
// the device is no longer known to answer.
int32_t WaitAck_MervoProtocol(MervoLink *link, uint32_t address, uint32_t timeout);

// Sends a command and waits for its answer for 3000 ms, or for 20 ms if the device is not known to
// answer. Returns data 1 to 4 of the answer, with data 1 in the low byte. Returns 0 after a
// time-out, which WaitAck_MervoProtocol() logs. An answer may be 0 too: `answered` is 0 after a
// time-out and 1 after an answer.
uint32_t SendCmdAndWait_MervoProtocol(MervoLink *link, uint32_t address, uint32_t command,
                                      uint32_t data1, uint32_t data2, uint32_t data3,
                                      uint32_t data4);

// Sends bytes as they are; returns what `send` returns.
int32_t SendBuffer_MervoProtocol(MervoLink *link, const uint8_t *bytes, int32_t length);

// Stores received bytes as they are, including any answers among them, until there are `maximum` of
// them or `timeout` milliseconds have passed. The time is checked after every byte. Returns the
// number of bytes stored. A byte that has arrived is stored even if `maximum` is 0.
// Requires: `buffer` has room for `maximum` bytes, and for at least one.
uint32_t ReceiveBuffer_MervoProtocol(MervoLink *link, uint8_t *buffer, uint32_t maximum,
                                     uint32_t timeout);
