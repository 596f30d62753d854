#pragma once

// The video standard codes of the GS4911 timing generator. docs/video-formats.md has the table. Any
// thread.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

// The code of a format id, of which only the low 8 bits count; 45, "1024x768x60", for formats that
// have none, ids from 124 on included.
uint32_t GetGS4911ByVideoFormat(uint32_t id);

// The way back: the id for a code. 0 is no input (127), an unknown code undefined (126), and 124
// gives 36.
uint8_t GetVideoFormatByGS4911(uint8_t code);
