#pragma once

// The file store as its callers see it: open, read, write, close and unlink are the real ones, but
// they can be noted and made to fail. The two halves of a save are noted as the opening, and as the
// write and the closing. Link with `traced_files`. What the whole-file operations do
// inside the file store is not noted.

#include <cstdint>
#include <functional>
#include <string>

struct TracedFiles {
    // Notes go to standard output, so that they stand among the messages: "<open view3.sav 1>" with
    // the mode, "<read 3996>", "<write 3996>", "<close>", "<unlink view3.sav>".
    bool isNoted = false;
    std::function<void(const std::string &name)> beforeOpen;

    // Each counts down with every call; the one that makes it 0 fails.
    int readsToFailure = 0;
    int writesToFailure = 0;
    int writesToShortOne = 0; // which takes one byte less
};

extern TracedFiles tracedFiles;
