#pragma once

// Commands 0x10, 0x68 and 0x6A: identity and diagnostics of the device. Each operation is a handler
// in the dispatch table: it executes the command in `commandToLED` and answers it. Main loop only.

void printMemoryUse();      // 0x10 0x11
void readDeviceType();      // 0x68 0x01
void readProtocolVersion(); // 0x6A 0x03
void readSystemVersion();   // 0x6A 0x04
void writeSerialNumber();   // 0x6A 0x10
void readSerialNumber();    // 0x6A 0x11
