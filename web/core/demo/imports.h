#pragma once

// What the demo device asks of the page it runs in (imports.js).

#include <cstdint>

extern "C" {

// Bytes for the far end of the line. They are copied.
void demo_send(const uint8_t *bytes, uint32_t length);

// Lets the page work for the time given. Ends earlier when bytes arrive, if `endsWithBytes` is not
// 0; the result is then not 0. All functions on the stack are left and entered again.
int32_t demo_pause(double milliseconds, int32_t endsWithBytes);
}
