#pragma once

// The video standard codes of the GS4911 timing generator. docs/video-formats.md has the table. Any
// thread.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

// Returns the code of a format id, of which only the low 8 bits count. Formats without a code, and
// all ids from 124 on, get 45, the code of "1024x768x60".
uint32_t GetGS4911ByVideoFormat(uint32_t id);

// Returns the id for a code: 127 (no input) for code 0, 36 for code 124, and 126 (undefined) for an
// unknown code.
uint8_t GetVideoFormatByGS4911(uint8_t code);
