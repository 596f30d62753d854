#pragma once

// Executes the command held in `commandToLED` and answers it. The table in the source reads beside
// the command table of docs/protocol.md, row for row. Main loop only.

#include <cstdint>

// Serial pass-through mode: while non-zero, every command but address 0, command 0x68, dat1 0x40 is
// ignored without a reply. Nothing sets it in this model.
extern uint32_t uart0Touart;

// Reads commandToLED, builds commandFromLED and sends at most one reply.
void processCmdData();

// Commands that this model knows and does not support: each refuses. They are the places where a
// model that has these functions would do the work.
void WrInputSource();        // 0x73
void WrOutputFormat();       // 0x74
void WrLayerSetting();       // 0x75
void WrOutputSetting();      // 0x76
void WrInputSetting();       // 0x77
void WrSwitchSetting();      // 0x78
void WrTpMode();             // 0x7D
void WRHdmiOutDeTask();      // 0x86
void cmd_timeControl_task(); // 0x8B
void cmd_workTime_task();    // 0x97

// Whether `output` has the same custom genlock format: always 0 in this model.
int32_t isSameCustomGenlockFormat_output(uint8_t output);
