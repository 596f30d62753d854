#pragma once

// The work-time list and its file, for the tests of its module; link with `setting_bytes`.

#include <cstdint>
#include <string>

#include "storage/WorkTime.h"
#include "tests/support/console.h"
#include "tests/support/setting_bytes.h"

inline constexpr char kPath[] = "/userdata/workTime.sav";
inline constexpr uint32_t kGood = 0x20150321; // the last word of a good list

inline Bytes words(uint32_t w0, uint32_t w1, uint32_t w2, uint32_t w3, uint32_t w4, uint32_t w5)
{
    Bytes bytes;
    for (const uint32_t word : {w0, w1, w2, w3, w4, w5}) {
        bytes += littleEndian(word, 4);
    }
    return bytes;
}

inline std::string printedByLoading()
{
    return printedBy([] { loadWorkTimeList(); });
}

// The list in memory.
inline Bytes record()
{
    return bytesOf(getWorkTimeList());
}
