#pragma once

// Self-test of the file store, a maintenance operation. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

// Writes `count` bytes to "test.bin" in the file store, reads them back, compares them and prints
// the results. A count outside 0 to 4096 means 4096. Overwrites `buffer` of command/setting.h.
void testSD_readWriteFile(int32_t count);
