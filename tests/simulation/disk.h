#pragma once

// The file system, in memory. It knows what is only in the system's cache and what is on the
// medium, so a power cut can lose what was not synced.
//
// A power cut takes each change that was not forced to the medium whole, torn at the borders of 512
// or of 4096 bytes, or not at all, in any order: an older change may be lost and a younger one
// survive. Changes older than half a minute have been written back. fsync() of a file covers its
// own name too on some file systems (ext4, F2FS); the standard wants fsync() of the directory.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/simulation/random.h"
#include "tests/simulation/threads.h"

struct File {
    std::string content;
    uint32_t mode = 0644;
    bool operator==(const File &) const = default;
};

class Inode {
public:
    const File &now() const
    {
        return now_;
    }
    void write(size_t offset, const std::string &bytes, Time when);
    void truncate(size_t length, Time when);
    void setMode(uint32_t mode, Time when);
    void sync();

    // What the medium holds if the power fails now.
    File afterCut(Random &random, Time when) const;

private:
    struct Change {
        enum { kWrite, kTruncate, kMode } kind;
        size_t at; // offset, length or mode
        std::string bytes;
        Time when;
    };
    File now_;
    File onMedium_;
    std::vector<Change> changes_; // what the medium lacks
};

class Disk {
public:
    explicit Disk(const Time &now) : now_(now) {}

    // Null when there is no such file.
    std::shared_ptr<Inode> find(const std::string &path) const;
    std::shared_ptr<Inode> create(const std::string &path);
    void link(const std::string &path, std::shared_ptr<Inode> inode);
    bool remove(const std::string &path);
    // Puts a whole file there, on the medium.
    void put(const std::string &path, File file);
    std::optional<File> get(const std::string &path) const;

    void syncFile(const std::shared_ptr<Inode> &inode);
    void syncNames(); // fsync() of a directory
    void syncAll();

    // What would be left of one file if the power failed now, or nothing.
    std::optional<File> afterCut(const std::string &path, Random &random) const;
    // The power fails: what is left is all there is.
    void cut(Random &random);

    bool nameIsOnMedium(const std::string &path) const
    {
        const auto found = onMedium_.find(path);
        return found != onMedium_.end() && found->second == find(path);
    }

    size_t room = SIZE_MAX;        // bytes that writes can still add
    bool namesNeedOwnSync = false; // fsync() of a file does not cover its name
    bool hasUnnamedFiles = true;   // O_TMPFILE

private:
    using Names = std::map<std::string, std::shared_ptr<Inode>>;
    struct NameChange {
        std::string path;
        std::shared_ptr<Inode> inode; // null: removed
        Time when;
    };
    void change(const std::string &path, std::shared_ptr<Inode> inode);

    const Time &now_;
    Names names_;
    Names onMedium_;
    std::vector<NameChange> changes_; // what the medium lacks
};
