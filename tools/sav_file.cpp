#include "tools/sav_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "storage/DeviceInfo.h"
#include "storage/TimeControl.h"
#include "storage/UserPref.h"
#include "storage/UserSettingRecord.h"
#include "storage/WorkTime.h"
#include "tools/errors.h"
#include "tools/manner.h"
#include "tools/text.h"

namespace {

// A kind of file. Its names are `name`, `numbers` numbers with "_" between them, and ".sav".
struct KindRow {
    std::string_view name;
    size_t length;
    size_t identificationAt;
    uint32_t identification;
    uint8_t numbers;
    SavKind kind;
};

constexpr size_t kPageLength = kViewCount * sizeof(ViewSetting);

// clang-format off
constexpr KindRow kKinds[] = {
    {"UserPref", sizeof(UserPref),     offsetof(UserPref, identification),     kUserPrefId,     0, SavKind::kUserPref},
    {"DevInfo",  sizeof(DeviceInfo),   offsetof(DeviceInfo, identification),   kDeviceInfoId,   0, SavKind::kDevInfo},
    {"save",     sizeof(UserSetting),  offsetof(UserSetting, identification),  kUserSettingId,  1, SavKind::kSave},
    {"view",     sizeof(ViewSetting),  offsetof(ViewSetting, identification),  kViewId,         1, SavKind::kView},
    {"page",     kPageLength,          offsetof(ViewSetting, identification),  kViewId,         2, SavKind::kPage},
    {"timeCon",  sizeof(TimeControl),  offsetof(TimeControl, identification),  kTimeControlId,  1, SavKind::kTimeCon},
    {"workTime", sizeof(WorkTimeList), offsetof(WorkTimeList, identification), kWorkTimeListId, 0, SavKind::kWorkTime},
};
// clang-format on
static_assert(std::size(kKinds) == static_cast<size_t>(SavKind::kUnknown));

const KindRow &rowOf(SavKind kind)
{
    return kKinds[static_cast<size_t>(kind)];
}

// Takes one or more digits off the front.
bool takeNumber(std::string_view &text)
{
    const size_t end = std::min(text.find_first_not_of("0123456789"), text.size());
    text.remove_prefix(end);
    return end > 0;
}

bool hasNameOf(std::string_view name, const KindRow &row)
{
    if (!name.starts_with(row.name)) {
        return false;
    }
    name.remove_prefix(row.name.size());
    for (size_t i = 0; i < row.numbers; ++i) {
        if (i > 0) {
            if (!name.starts_with('_')) {
                return false;
            }
            name.remove_prefix(1);
        }
        if (!takeNumber(name)) {
            return false;
        }
    }
    return name == ".sav";
}

bool hasIdentification(std::string_view bytes, size_t at, uint32_t identification)
{
    uint32_t found = 0;
    if (bytes.size() < at + sizeof(found)) {
        return false;
    }
    std::memcpy(&found, bytes.data() + at, sizeof(found));
    return found == identification;
}

// How many of the views that would be in a page have their identification.
size_t viewsIn(std::string_view bytes)
{
    size_t count = 0;
    for (size_t at = 0; at < lengthOf(SavKind::kPage); at += sizeof(ViewSetting)) {
        count += hasIdentification(bytes, at + offsetof(ViewSetting, identification), kViewId);
    }
    return count;
}

bool hasContentOf(std::string_view bytes, const KindRow &row)
{
    const bool isPage = viewsIn(bytes) > 0 && bytes.size() >= 2 * sizeof(ViewSetting);
    if (row.kind == SavKind::kPage) {
        return isPage;
    }
    return hasIdentification(bytes, row.identificationAt, row.identification) &&
           !(row.kind == SavKind::kView && isPage);
}

const char *typeOf(mode_t mode)
{
    if (S_ISDIR(mode)) {
        return "a directory";
    }
    if (S_ISFIFO(mode)) {
        return "a FIFO";
    }
    return "a device";
}

} // namespace

std::string_view nameOf(SavKind kind)
{
    return rowOf(kind).name;
}

SavKind kindOfName(std::string_view name)
{
    const auto *const row = std::find_if(std::begin(kKinds), std::end(kKinds),
                                         [name](const KindRow &each) { return each.name == name; });
    return row == std::end(kKinds) ? SavKind::kUnknown : row->kind;
}

std::vector<std::string> savKindNames()
{
    std::vector<std::string> names;
    for (const KindRow &row : kKinds) {
        names.emplace_back(row.name);
    }
    return names;
}

size_t lengthOf(SavKind kind)
{
    return rowOf(kind).length;
}

SavKind kindOf(std::string_view name, std::string_view bytes)
{
    name.remove_prefix(name.rfind('/') + 1); // npos + 1 is 0
    for (const KindRow &row : kKinds) {
        if (hasNameOf(name, row)) {
            return row.kind;
        }
    }
    // The length decides between kinds whose identifications happen to be right at once.
    SavKind found = SavKind::kUnknown;
    for (const KindRow &row : kKinds) {
        if (hasContentOf(bytes, row)) {
            if (bytes.size() == row.length) {
                return row.kind;
            }
            found = found == SavKind::kUnknown ? row.kind : found;
        }
    }
    return found;
}

std::string readRegular(const std::string &path, std::string_view what, size_t limit)
{
    // A FIFO must not be waited for, and a terminal must not become ours.
    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat state {};
    if (descriptor < 0 || fstat(descriptor, &state) != 0) {
        const int error = errno;
        if (descriptor >= 0) {
            close(descriptor);
        }
        throw LocalError(fmt::format("cannot read {}: {}", escape(path), std::strerror(error)));
    }
    if (!S_ISREG(state.st_mode)) {
        close(descriptor);
        throw UsageError(
            fmt::format("{} is {}, not {}", escape(path), typeOf(state.st_mode), what));
    }
    std::string content;
    std::array<char, 65536> buffer;
    ssize_t count = 0;
    while (content.size() <= limit &&
           (count = read(descriptor, buffer.data(), buffer.size())) > 0) {
        content.append(buffer.data(), static_cast<size_t>(count));
    }
    const int error = errno;
    close(descriptor);
    if (count < 0) {
        throw LocalError(fmt::format("cannot read {}: {}", escape(path), std::strerror(error)));
    }
    if (content.size() > limit) {
        throw UsageError(
            fmt::format("{} is longer than {} bytes, so it is not {}", escape(path), limit, what));
    }
    return content;
}

SavFile readSav(const std::string &path, SavKind asked)
{
    SavFile file{path, asked, readRegular(path, "a settings file", kLongestSav)};
    if (file.kind == SavKind::kUnknown) {
        file.kind = kindOf(path, file.bytes);
    }
    if (file.kind == SavKind::kUnknown) {
        throw UsageError(fmt::format("{} is not known as a settings file: neither its name nor its "
                                     "identification is that of one{}",
                                     escape(path), ifTyped("; --kind says what it is")));
    }
    return file;
}
