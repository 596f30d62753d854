#pragma once

// Reading what follows a command frame on its channel: bytes, checksummed blocks and bracketed
// texts. A read polls every 2 ms for bytes that have not arrived yet; the main loop stands
// meanwhile. What is read here is not mirrored to the PC. Main loop only.
//
// `tries` limits the waiting of a whole read, not of each byte: the read gives up at the empty poll
// after tries + 2 sleeps of 2 ms.

#include <cstdint>

// Reads up to `count` bytes from the channel `commandFrom` and returns how many there were.
[[nodiscard]] uint32_t readDataFromPC(uint8_t *bytes, uint32_t count, int32_t tries);

// Reads `length` bytes and the checksum byte after them, their sum modulo 256; `bytes` must hold
// length + 1. Returns `length`; 0, and logs it, when the sum is wrong; or the number of bytes that
// came when that was not all. A block of which only the checksum is missing counts as whole.
[[nodiscard]] uint32_t receiveBufferFromPC(uint8_t *bytes, uint32_t length, int32_t tries);

// Reads a text from "[" to "]", both included, and returns the number of its characters. Returns 0
// when the first character is not "[" (that character is lost), and the number that came when there
// was no "]" in time. `text` gets the first `capacity` of them, without a closing zero. A text that
// neither ends nor pauses is read for as long as it goes on.
[[nodiscard]] uint32_t receiveStringValueFromPC(char *text, uint32_t capacity, int32_t tries);
