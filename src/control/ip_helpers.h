#pragma once

// Two operations of the network configuration that stand apart from ip.h and network_record.h. Main
// loop only.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

// Returns the difference of the first two bytes that differ, that of `a` less that of `b`, or 0
// when all `length` bytes are equal.
[[nodiscard]] int32_t cmpBuf(const uint8_t *a, const uint8_t *b, uint32_t length);

// Returns 1 while a firmware update runs, else 0.
[[nodiscard]] int32_t isInUpdate();
