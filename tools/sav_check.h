#pragma once

// What the daemon does with a settings file. Its own loaders are run on the bytes (see
// tools/sav_store.h), one file after the other, each as if the daemon had just been started.

#include "tools/sav_file.h"

#include <map>
#include <string>
#include <vector>

enum class SavVerdict : uint8_t {
    kTaken,
    kReset,   // the defaults replace the record
    kRefused, // a view or a page is not loaded
    kMissing, // there is no such file that could be opened; the rest says what that leads to, and
              // a fault what is there under the name instead
};

// "taken", "reset", "refused", "missing".
std::string_view nameOf(SavVerdict verdict);

// A field that has another value after loading.
struct SavChange {
    std::string field; // "program.layers[3].state"
    std::string from;  // in the file
    std::string to;
};

struct SavFault {
    std::string field; // "" for what is wrong with the file as a whole
    std::string text;  // a sentence, or what follows the field's name in one
};

struct SavFinding {
    std::string path; // as the user wrote it
    SavKind kind = SavKind::kUnknown;
    std::string name;       // the file that the loader reads: "view3.sav"
    bool isItsName = true;  // whether the file has this name; if not, nothing reads it as it is
    bool isAtStart = false; // whether a start reads a file of this name
    std::string operation;  // that does: "LoadViewSetting(3)"
    SavVerdict verdict = SavVerdict::kTaken;
    size_t length = 0;
    std::vector<SavFault> faults;
    std::vector<SavChange> kept; // by a reset, though the default is another value: from == to
    std::vector<SavChange> changed;
    std::vector<std::string> says;         // lines on the daemon's console
    std::map<std::string, size_t> written; // by loading: names and lengths
    std::vector<std::string> notes;        // sentences: what depends on more than the file
};

SavFinding checkSav(const SavFile &file);

// What is there under the name of a file that the daemon cannot open.
enum class SavAbsence : uint8_t {
    kNothing,
    kDanglingLink,
    kNotRegular, // a directory, a FIFO, a device
};

// The same for a file that counts as missing. `name` is one that the device uses.
SavFinding checkMissing(const std::string &path, const std::string &name,
                        SavAbsence absence = SavAbsence::kNothing);

// The names of the files that a start reads, in its order.
std::vector<std::string> savNamesAtStart();

// Checks the files, and in directories those whose names the device uses. `kind` is the kind of the
// files, or kUnknown to find out; it is not for directories. Prints what the daemon does with each.
// Of a directory, prints also which files of a start are missing. Returns
// kRefused if anything is wrong with a file. What cannot be read is reported on standard error, and
// the others are checked all the same.
int runSavCheck(const std::vector<std::string> &paths, SavKind kind = SavKind::kUnknown);
