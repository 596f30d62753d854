#pragma once

// The file store: every persistent setting is one flat file in one directory, read and written
// whole. The f_ operations work on an open file, the sd_ operations on bare names in the directory.
//
// A save replaces a file in place and never empties it first: one write of the whole record, then
// the length, then the disk. So whatever stops a save leaves the old record, the new one or, when
// it stops the write itself, the beginning of the new one before the rest of the old one
// (docs/files.md). There is no second file and no rename.
//
// Only regular files are opened, so nothing here waits for a writer or a reader.
//
// Main loop only, and not re-entrant: the operations that read whole files share one handle.

#include <cstdint>
#include <cstdio>

inline constexpr char USERPath[] = "/userdata/"; // the settings directory, with its slash

// The size of every path buffer, closing zero included. A path that does not fit becomes the empty
// path, which no file has.
inline constexpr uint32_t kPathSize = 256;

// An open file; null while closed. The caller owns the handle. Programs that the daemon starts do
// not inherit the file.
using FileHandle = std::FILE *;

// Results of the f_ operations, sd_open and sd_unlink.
inline constexpr uint32_t kFileOk = 0;
inline constexpr uint32_t kFileFailed = 4;   // cannot be opened or removed, or the handle is closed
inline constexpr uint32_t kFileBadMode = 19; // the mode opens nothing

// Bits of a mode. If several are set, the first one in this list decides.
inline constexpr uint32_t kCreateAlways = 0x08; // empty or make the file, for writing
inline constexpr uint32_t kCreateNew = 0x04;    // the same
inline constexpr uint32_t kRead = 0x01;         // an existing file, for reading
inline constexpr uint32_t kOpenAlways = 0x10;   // open or make the file, write at its end
inline constexpr uint32_t kAppend = 0x20;       // the same
inline constexpr uint32_t kWrite = 0x02;        // opens nothing by itself

// Opens the file at the full `path` and stores it in `*handle`. On failure stores null and prints a
// message. What is no regular file cannot be opened. A file that `*handle` held before is not
// closed. A mode that opens nothing leaves `*handle` alone.
[[nodiscard]] uint32_t f_open(FileHandle *handle, const char *path, uint32_t mode);

// Closes the file and makes the handle null. Fails only when the handle is already closed. Bytes
// still in the file's buffer may be lost without a failure.
uint32_t f_close(FileHandle *handle);

// Removes a file, or an empty directory.
uint32_t f_unlink(const char *path);

// The file's length in bytes, modulo 2^32; 0 when the handle is closed. Rewinds the file.
uint32_t f_size(FileHandle *handle);

// Transfer up to `count` bytes and store the number transferred in `*done`, or leave it alone when
// the handle is closed. A short transfer is not a failure. Written bytes may still be in the file's
// buffer.
uint32_t f_read(FileHandle *handle, void *buffer, uint32_t count, uint32_t *done);
uint32_t f_write(FileHandle *handle, const void *buffer, uint32_t count, uint32_t *done);

// The name of a numbered settings file: "save0.sav" for kind "save" and number 0.
// Requires: `kind` has at most sixteen characters.
struct FileName {
    char text[32];
};
FileName numberedFile(const char *kind, int32_t number);

// f_open() in the settings directory. If the mode has kCreateAlways, a failure is kFileBadMode.
[[nodiscard]] uint32_t sd_open(FileHandle *handle, const char *name, uint32_t mode);

uint32_t sd_unlink(const char *name);

// The file's length as f_size() gives it; 0 when it cannot be opened.
uint32_t sd_getFileSize(const char *name);

// Reads the file into `buffer`, `capacity` bytes at most. Returns the length of the file, not the
// number of bytes read, and prints a message when the two differ. Returns 0 when the file cannot be
// opened. The rest of the buffer stays as it was.
uint32_t sd_readFile(const char *name, void *buffer, uint32_t capacity);

// A file that is about to be replaced: a descriptor, or -1 for none. Programs that the daemon
// starts do not inherit it.
using SaveFile = int32_t;

// Opens the file for sd_endSave(), and leaves its content alone until then. Returns kFileOk; if the
// file can be neither opened nor made, stores -1, prints a message and returns kFileFailed. A file
// that is new has no name yet, where the file system can do that.
[[nodiscard]] uint32_t sd_beginSave(SaveFile *file, const char *name);

// Replaces the content, waits until the disk has it, gives a new file its `name`, and closes the
// file. Stores the number of bytes that the file system took in `*done`. If that is less than
// `length`, what follows them stays as it was, and a new file is dropped where it had no name.
// Fails only when the file is closed, and then leaves `*done` alone.
uint32_t sd_endSave(SaveFile *file, const char *name, const void *buffer, uint32_t length,
                    uint32_t *done);

// Makes or replaces the file. Returns 1, or 0 with a message when it cannot be opened. Bytes that
// the file system does not take, as on a full disk, are lost without a failure.
int32_t sd_writeFile(const char *name, const void *buffer, uint32_t length);

// Makes every missing directory in `path` that is followed by a "/". Returns 0. At the first one
// that cannot be made, prints a message and returns -1. Returns -1 without a message when `path`
// does not fit in kPathSize.
int32_t CreateDir(const char *path);

// Makes the settings directory. Returns the result of CreateDir().
int32_t MX_FATFS_Init();
