#pragma once

// The erasing of directories, and of all settings. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.

#include <cstdint>

// Writes `dir`, a "/" unless it ends in one, and `name` to `out`, which overlaps neither. A path
// that does not fit becomes the empty path.
// Requires: `out` has kPathSize bytes (storage/fatfs.h).
// Returns `out`.
char *Getfilepath(const char *dir, const char *name, char *out);

// Removes the regular file at `path`; or empties the directory there, sub-directories included, and
// keeps it. Links and devices stay, and so does anything whose path is too long. Returns 0, or 1
// when the directory cannot be opened.
int32_t DeleteFile(const char *path);

// Erases all settings: everything in the settings directory. Returns the result of DeleteFile().
int32_t sd_mkfs();
