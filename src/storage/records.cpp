// Proves that the records that the daemon loads and saves have the layout of docs/files.md.

#include "core/record.h"
#include "storage/DeviceInfo.h"
#include "storage/UserPref.h"
#include "storage/UserSettingRecord.h"
#include "storage/ViewRecord.h"
#include "storage/WorkTime.h"

#include "storage/DeviceInfo.def"
#include "storage/UserPref.def"
#include "storage/UserSetting.def"
#include "storage/View.def"
#include "storage/WorkTime.def"

#undef RECORD_FIELD
#undef RECORD_SIZE
#define RECORD_FIELD(record, offset, type, count, field)                                           \
    {#record, (offset), sizeof(type) * (count)},
#define RECORD_SIZE(record, bytes) {#record, (bytes), 0},

namespace {

constexpr RecordLine kLines[] = {
#include "storage/DeviceInfo.def"
#include "storage/UserPref.def"
#include "storage/UserSetting.def"
#include "storage/View.def"
#include "storage/WorkTime.def"
};
static_assert(recordsHaveNoHole(kLines), "a field has no line, or stands after padding");

} // namespace

#undef RECORD_FIELD
#undef RECORD_SIZE
