#include "storage/wipe.h"

#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include "storage/fatfs.h"

char *Getfilepath(const char *dir, const char *name, char *out)
{
    const size_t dirLength = std::strlen(dir);
    const bool endsInSlash = dirLength > 0 && dir[dirLength - 1] == '/';
    const int length = std::snprintf(out, kPathSize, "%s%s%s", dir, endsInSlash ? "" : "/", name);
    if (length < 0 || static_cast<uint32_t>(length) >= kPathSize) {
        out[0] = '\0';
    }
    return out;
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the directories, of which a path can name 128
int32_t DeleteFile(const char *path)
{
    struct stat status {};
    if (lstat(path, &status) != 0) {
        return 0;
    }
    if (S_ISREG(status.st_mode)) {
        std::remove(path); // dropped: a file that cannot be removed stays, by the contract
    }
    if (!S_ISDIR(status.st_mode)) {
        return 0;
    }
    DIR *const directory = opendir(path);
    if (directory == nullptr) {
        return 1;
    }
    while (const dirent *const entry = readdir(directory)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) {
            continue;
        }
        char child[kPathSize];
        Getfilepath(path, entry->d_name, child);
        // Both results are dropped: a directory that cannot be opened stays, and the others are
        // still emptied. rmdir() fails for anything but an empty directory.
        DeleteFile(child);
        rmdir(child);
    }
    closedir(directory);
    return 0;
}

int32_t sd_mkfs()
{
    return DeleteFile(USERPath);
}
