#pragma once

// Executes the command held in `commandToLED` and answers it. The table in the source reads beside
// the command table of docs/protocol.md, row for row. Main loop only.

#include <cstdint>

// Serial pass-through mode: while non-zero, every command but address 0, command 0x68, dat1 0x40 is
// ignored without a reply. Nothing sets it in this model.
extern uint32_t uart0Touart;

// Reads commandToLED, builds commandFromLED and sends at most one reply.
void processCmdData();
