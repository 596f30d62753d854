#pragma once

// Reading what follows a command frame on its channel: bytes, checksummed blocks and bracketed
// texts. The reads wait for bytes that have not arrived yet, polling every 2 ms, and hold the main
// loop up meanwhile. What they take is not mirrored to the PC. Main loop only.
//
// `tries` bounds the wait of a whole read, not of each byte: it is given up at the empty poll after
// tries + 2 sleeps of 2 ms.

#include <cstdint>

// Reads up to `count` bytes from the channel `commandFrom` and returns how many there were.
uint32_t readDataFromPC(uint8_t *bytes, uint32_t count, int32_t tries);

// Reads `length` bytes and the checksum byte behind them, their sum modulo 256; `bytes` must hold
// length + 1. Returns `length`; 0 (and a message) when the sum is wrong; or how many bytes have
// come, when that was not all. A block of which only the checksum is missing passes for whole.
uint32_t receiveBufferFromPC(uint8_t *bytes, uint32_t length, int32_t tries);

// Reads a text from "[" to "]", both included, and returns the number of its characters; 0 when the
// first character is no "[" (it is lost then); or how many have come, when there was no "]" in
// time. `text` gets the first `capacity` of them, without a closing zero. A text that neither ends
// nor pauses is read for as long as it goes on.
uint32_t receiveStringValueFromPC(char *text, uint32_t capacity, int32_t tries);
