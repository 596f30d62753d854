#pragma once

// From bytes to executed commands. Takes the bytes that the receive threads queued in the channels,
// mirrors them to the control PC, assembles and checks frames, and has them executed. Main loop
// only, except where said.

#include <cstdint>

extern uint32_t g_ReceiveDetected; // 1 once ReceiveCommand() has collected a whole frame

// Prepares the reply frame and the ten channels. Later calls change nothing.
// Requires: no receive thread runs yet.
void InitRs232CommandVariable();

// Serves every channel: executes all whole frames that have arrived, in order, and answers them.
// Requires: udp_receive_pipe_init() has been called.
//
// A frame with a wrong end is refused, but is still executed if its checksum is right. A frame with
// a wrong checksum is refused, and the bytes after it wait for the next call. Those bytes of an
// executed frame that are still at the end of the mirror to the PC are taken back.
//
// One call takes at most 4095 bytes from the channels, as many as the mirror holds, and the
// payloads of the commands among them. The rest waits for the next call.
void TaskCommand();

// Feeds one byte to the frame assembler of channel `commandFrom`. Returns 0 when it completed a
// frame of 19 characters, else 1. A "<" restarts the frame wherever it comes. Characters between
// the header and the end are not checked here. A partial frame waits for the rest without a time
// limit.
[[nodiscard]] int32_t ReceiveCommand(uint8_t byte);

// Waiting for a later model -----------------------------------------------------------------------

extern uint32_t lockFrontBoard; // reserved for locking out the front board

// Logs and executes a command made inside the daemon, without channel, frame or checksum. The
// address is 0; tag and checksum stay as the last command left them. The reply goes to the channel
// that `commandFrom` names at that moment.
void processCmdFromLocal(uint8_t command, uint8_t dat1, uint8_t dat2, uint8_t dat3, uint8_t dat4);
