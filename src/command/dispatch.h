#pragma once

// Executes the command held in `commandToLED` and answers it. The table in the source matches
// protocol/vesk.yaml row for row; docs/protocol.md shows it. Main loop only.

#include <cstdint>

// Serial pass-through mode: while this is not 0, every command is ignored without a reply, except
// for address 0, command 0x68, dat1 0x40. Nothing sets it in this model.
extern uint32_t uart0Touart;

// Executes commandToLED, with commandFromLED as the reply. Sends at most one reply frame.
void processCmdData();
