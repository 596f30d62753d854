#pragma once

// Firmware update on other ways than the front board's: two receivers that store nothing, and the
// local save file. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

// Receive one block, which follows the command, and answer. Of block 0 the header is read; no block
// is stored. The first form notes the channel in updateSoftChannel.
void UpdateMcu1K();
void UpdateMcu1K_test();

// The sum of the first `count` modulo 256 bytes, modulo 256.
uint8_t GetCheckSum(const uint8_t *bytes, uint32_t count);

// Closes the local save file and frees its handle, if there is one.
void closeSaveLocalFile();
