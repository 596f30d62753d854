#include "storage/TimeControl.h"

#include <cstdio>
#include <cstring>

#include "core/record.h"
#include "storage/fatfs.h"

#include "storage/TimeControl.def"

#undef RECORD_FIELD
#undef RECORD_SIZE
#define RECORD_FIELD(record, offset, type, count, field)                                           \
    {#record, (offset), sizeof(type) * (count)},
#define RECORD_SIZE(record, bytes) {#record, (bytes), 0},

namespace {

constexpr RecordLine kLines[] = {
#include "storage/TimeControl.def"
};
static_assert(recordsHaveNoHole(kLines), "a field has no line, or stands after padding");

constexpr int32_t kSlot = 0;

// State, main loop only: the record, zero until loaded. Written here and by callers of
// GetTimeControl().
TimeControl _timeControl;

FileName fileName(int32_t slot)
{
    return numberedFile("timeCon", slot);
}

} // namespace

TimeControl *GetTimeControl()
{
    return &_timeControl;
}

uint32_t ReadTimeControl(int32_t slot)
{
    return sd_readFile(fileName(slot).text, &_timeControl, sizeof _timeControl);
}

int32_t WriteTimeControl(int32_t slot)
{
    return sd_writeFile(fileName(slot).text, &_timeControl, sizeof _timeControl);
}

void loadTimeControl(int32_t slot)
{
    ReadTimeControl(kSlot); // dropped: only the identification counts
    if (_timeControl.identification == kTimeControlId) {
        return;
    }
    std::puts("Reset Time Control\r");
    resetTimeControl();
    saveTimeControl(slot); // dropped: if it fails, the next load resets again
}

int32_t saveTimeControl(int32_t)
{
    return WriteTimeControl(kSlot);
}

void resetTimeControl()
{
    _timeControl.identification = kTimeControlId;
    _timeControl.settingByte4 = 0;
    _timeControl.settingByte5 = 0;
    std::memset(_timeControl.entries, 0, sizeof _timeControl.entries);
}
