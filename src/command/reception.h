#pragma once

// From bytes to executed commands: takes the bytes that the receive threads queued in the channels,
// mirrors them to the control PC, assembles frames, checks them and has them executed.
//
// Main loop only, except where said.

#include <cstdint>

extern uint32_t g_ReceiveDetected; // 1 once ReceiveCommand() has collected a whole frame
extern uint32_t lockFrontBoard;    // reserved for locking out the front board; nobody reads it

// Prepares the reply's frame and the ten channels, once; later calls change nothing. Call it before
// any receive thread runs.
void InitRs232CommandVariable();

// Serves every channel: executes all whole frames that have arrived, in order, and answers them.
// Call it after udp_receive_pipe_init().
//
// A frame with a wrong end is refused and then executed all the same when its checksum is right. A
// wrong checksum is refused, and the bytes behind it wait for the next call. Of an executed frame,
// what is still at the end of the bytes mirrored to the PC is taken back from there.
//
// One call takes at most 4096 bytes, a full pipe, from a channel, and the payloads of the commands
// among them; what arrives meanwhile is the next call's.
void TaskCommand();

// Feeds one byte to the frame assembler of channel `commandFrom`. Returns 0 when it completed a
// frame of 19 characters, else 1. A "<" restarts the frame wherever it comes; characters between
// the header and the end are not looked at; a part of a frame waits without limit for the rest.
int32_t ReceiveCommand(uint8_t byte);

// Executes a command made inside the daemon, and prints it: without channel, frame or checksum. The
// address is 0; tag and checksum stay as the last command left them. The reply goes to the channel
// that `commandFrom` names at the moment.
void processCmdFromLocal(uint8_t command, uint8_t dat1, uint8_t dat2, uint8_t dat3, uint8_t dat4);
