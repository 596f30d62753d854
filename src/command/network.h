#pragma once

// Commands 0x84 to 0x8E: the network settings. An address is dat1 to dat4 in dotted order. Each
// operation is a handler in the dispatch table: it executes the command in `commandToLED` and
// answers it. Main loop only.

void writeNetMask();      // 0x84
void readNetMask();       // 0x85
void writeIpAddress();    // 0x88
void readIpAddress();     // 0x89
void writeGateway();      // 0x8C
void readGateway();       // 0x8D
void writeDhcp();         // 0x8E 0x02
void readDhcp();          // 0x8E 0x03
void readMacFirstHalf();  // 0x8E 0x05
void readMacSecondHalf(); // 0x8E 0x07
