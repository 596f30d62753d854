#pragma once

// Settings files of the device (docs/files.md): their kinds, and how they are read.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

enum class SavKind : uint8_t {
    kUserPref,
    kDevInfo,
    kSave,
    kView,
    kPage,
    kTimeCon,
    kWorkTime,
    kUnknown,
};

// "UserPref", "DevInfo", "save", "view", "page", "timeCon", "workTime": how the names of its files
// begin. Requires: not kUnknown.
std::string_view nameOf(SavKind kind);

// The kind of that name; kUnknown if there is none.
SavKind kindOfName(std::string_view name);

// The names of all kinds, in the order of the enumeration.
std::vector<std::string> savKindNames();

// The length of a whole file. Requires: not kUnknown.
size_t lengthOf(SavKind kind);

// The kind of a file. The name decides if it is one that the device uses: "UserPref.sav",
// "view3.sav", "page3_0.sav"; folders before it do not count. Under any other name the
// identification decides, which is looked for where the kind has it, and then the length: a file
// without an identification is kUnknown. A page has those of its views, and more than one of them.
SavKind kindOf(std::string_view name, std::string_view bytes);

struct SavFile {
    std::string path; // as the user wrote it
    SavKind kind;     // not kUnknown
    std::string bytes;
};

// No settings file is longer than that, whatever has been written after its end.
inline constexpr size_t kLongestSav = size_t{1} << 20;

// Reads a file that may be a settings file, or a JSON text of one; never waits for a FIFO or a
// device. `what` is what the file should be, for the message. Throws UsageError for what is not
// a regular file or longer than `limit`, and LocalError for what cannot be read.
std::string readRegular(const std::string &path, std::string_view what, size_t limit);

// Reads a settings file. `asked` is its kind, or kUnknown to find out. Throws as readRegular(), and
// UsageError if the kind cannot be found.
SavFile readSav(const std::string &path, SavKind asked = SavKind::kUnknown);
