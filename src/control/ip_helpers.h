#pragma once

// Two operations of the network configuration that stand apart from ip.h and network_record.h. Main
// loop only.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

// Compares `length` bytes. At the first difference, returns the byte of `a` minus the byte of `b`;
// returns 0 when all bytes are equal.
[[nodiscard]] int32_t cmpBuf(const uint8_t *a, const uint8_t *b, uint32_t length);

// Returns 1 while a firmware update runs, else 0.
[[nodiscard]] int32_t isInUpdate();
