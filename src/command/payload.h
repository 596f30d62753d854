#pragma once

// Reading what follows a command frame on its channel: bytes, checksummed blocks and bracketed
// texts. A read polls every 2 ms for bytes that have not arrived yet, and blocks the main loop
// meanwhile. What is read here is not mirrored to the PC. Main loop only.
//
// `tries` limits the waiting of a whole read, not of each byte: the read gives up after tries + 2
// sleeps of 2 ms in all.

#include <cstdint>

// Reads up to `count` bytes from the channel `commandFrom` and returns how many came.
[[nodiscard]] uint32_t readDataFromPC(uint8_t *bytes, uint32_t count, int32_t tries);

// Reads `length` bytes and then the checksum byte, which is their sum modulo 256. Returns `length`;
// or 0, and logs it, when the sum is wrong; or the number of bytes that came, when some are
// missing. A block that lacks only its checksum counts as whole.
// Requires: `bytes` has room for length + 1.
[[nodiscard]] uint32_t receiveBufferFromPC(uint8_t *bytes, uint32_t length, int32_t tries);

// Reads a text from "[" to "]", both included, and returns the number of its characters. Returns 0
// when the first character is not "[", and that character is lost. When no "]" comes in time,
// returns the number of characters that came. `text` gets the first `capacity` characters, without
// a closing zero. A text that neither ends nor pauses is read for as long as it goes on.
[[nodiscard]] uint32_t receiveStringValueFromPC(char *text, uint32_t capacity, int32_t tries);
