#pragma once

// Commands that the protocol knows and this model does not support. Each operation is a handler in
// the dispatch table that refuses the command. A model with the function would do its work there.
// Main loop only.

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
