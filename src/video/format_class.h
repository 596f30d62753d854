#pragma once

// The classes of video formats. Only the low 8 bits of an id count. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.
//
// Requires: malloc_saveView() has been called (storage/UserSetting.h).

#include <cstdint>

// 1 for the interlaced 480- and 576-line formats (36, 37, 71 and 72), else 0. Id 125 is not
// followed to the external input.
int32_t IsSDFormat(uint32_t id);

// 1 for a format of the class, else 0. Formats of the table go by the range of ids below, the
// custom format by its size class, and 125 by the format of the external input. The range 73 to 107
// includes 2560x1600, 2560x1440 and 3840x1080 (89 to 91), and the quarters that are 960 and 1024
// wide (92 to 107).
int32_t Is4K2K_Format(uint32_t id);      // 73 to 107
int32_t Is8K1K_Format(uint32_t id);      // 108 to 123
int32_t Is4K2K_8K1K_Format(uint32_t id); // 73 to 123; custom: any class but ordinary
