#pragma once

// The daemon's file store over files in memory, so that its own loaders can be run on any bytes: as
// an ordinary user, and without a board. It is src/storage/fatfs.cpp with other system calls, and
// takes its place in every program that links this.

#include <functional>
#include <map>
#include <string>
#include <vector>

// Files of the settings directory, by name.
using SavFiles = std::map<std::string, std::string>;

struct SavRun {
    std::string says;              // on the console, as it stands
    std::vector<std::string> read; // names of the files to read, there or not, each once
    SavFiles written;              // what was saved, whole
};

// Runs `loader` on these files: they alone are in /userdata/, and no file of this computer is read
// or changed. `blocked` is the name of something that is not a regular file, "" if there is none:
// the loader can neither open nor save it. Throws LocalError if there is no memory for them.
SavRun runOnFiles(const SavFiles &files, const std::function<void()> &loader,
                  const std::string &blocked = "");
