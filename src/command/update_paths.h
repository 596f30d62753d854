#pragma once

// Firmware update by other ways than the front board's: two receivers that store nothing, and the
// local save file. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

// Receive the block that follows the command, and answer. The header of block 0 is read, but no
// block is stored. UpdateMcu1K() also notes the channel in updateSoftChannel.
void UpdateMcu1K();
void UpdateMcu1K_test();

// The sum of the first `count` modulo 256 bytes, modulo 256.
uint8_t GetCheckSum(const uint8_t *bytes, uint32_t count);

// Closes the local save file, if there is one, and frees its handle.
void closeSaveLocalFile();
