#pragma once

// Self-test of the file store, a maintenance operation. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

// Writes `count` bytes (4096 for any number that is not 0 to 4096) to "test.bin" in the file store,
// reads them back, compares them and prints the results. Uses `buffer` of command/setting.h.
void testSD_readWriteFile(int32_t count);
