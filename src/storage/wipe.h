#pragma once

// Erases directories, and all settings. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

// Joins `dir` and `name` in `out`, with a "/" between them unless `dir` ends in one. A path that
// does not fit becomes the empty path.
// Requires: `out` has kPathSize bytes (storage/fatfs.h) and overlaps neither.
// Returns `out`.
char *Getfilepath(const char *dir, const char *name, char *out);

// Removes the regular file at `path`, or empties the directory there, including its
// sub-directories, but keeps the directory itself. Links and devices stay, and so does anything
// whose path is too long. Returns 0, or 1 when the directory cannot be opened.
int32_t DeleteFile(const char *path);

// Erases all settings: everything in the settings directory. Returns the result of DeleteFile().
int32_t sd_mkfs();
