#pragma once

// The exchange in progress and its answers: the command being executed, the reply being built, and
// the helpers that send it back over the channel that the command came from.
//
// A positive answer repeats the command or carries data; a negative one repeats address, tag and
// command with 0xFF in the four data bytes. Main loop only.

#include "command/frame.h"

#include <cstdint>

extern Rs232Command commandToLED;   // the command being executed
extern Rs232Command commandFromLED; // the reply being built

// The reply's frame. InitRs232CommandVariable() writes its header and end once.
extern char strCommandFromLED[kFrameLength + 1];

inline constexpr uint8_t kAck = 6;
inline constexpr uint8_t kNak = 21;

// Sends raw bytes to the source of channel `commandFrom`; to nobody when that is not bound.
void SendBufferToPC(const uint8_t *bytes, uint32_t length);

// Sends commandFromLED with address, tag and command of the request: a reply can never carry
// another command code. dat1 to dat4 are whatever the caller put there.
void SendRs232Command();

// The same with these four data bytes.
void SendReply(uint8_t dat1, uint8_t dat2, uint8_t dat3, uint8_t dat4);

// Echoes the request.
void SendWriteRs232Command();

// Refuses the request.
void CommandErrorTask();

// Echoes the request for kAck, refuses it for any other code.
void SendAckOrNack(uint8_t code);
