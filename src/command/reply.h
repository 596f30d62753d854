#pragma once

// The exchange in progress: the command being executed, the reply being built, and the helpers that
// send the reply over the channel that the command came from.
//
// A positive answer repeats the command or carries data. A negative one repeats address, tag and
// command, and has 0xFF in the four data bytes. Main loop only.

#include "command/frame.h"

#include <cstdint>

extern Rs232Command commandToLED;   // the command being executed
extern Rs232Command commandFromLED; // the reply being built

// The reply's frame. createReplyFrame() writes the header and the end; each reply writes the rest.
extern char strCommandFromLED[kFrameLength + 1];

inline constexpr uint8_t kAck = 6;
inline constexpr uint8_t kNak = 21;

// Writes the parts of the reply's frame that never change.
void createReplyFrame();

// Sends raw bytes to the source of channel `commandFrom`. Sends nothing when the channel is not
// bound.
void SendBufferToPC(const uint8_t *bytes, uint32_t length);

// Sends commandFromLED with dat1 to dat4 as the caller left them. Address, tag and command are
// copied from the request, so a reply never carries another command code.
void SendRs232Command();

// Sends a reply with these four data bytes.
void SendReply(uint8_t dat1, uint8_t dat2, uint8_t dat3, uint8_t dat4);

// Sends a reply with dat1 of the request and these three data bytes: what a read command answers.
void SendAnswer(uint8_t dat2, uint8_t dat3, uint8_t dat4);

// Echoes the request.
void SendWriteRs232Command();

// Refuses the request.
void CommandErrorTask();

// Echoes the request for kAck, refuses it for any other code.
void SendAckOrNack(uint8_t code);
