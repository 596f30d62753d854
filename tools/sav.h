#pragma once

// `veskctl sav`: settings files on this computer. It needs no device.

#include "tools/choice.h"
#include "tools/sav_file.h"

#include <string>
#include <vector>

// Adds the subcommand. Returns those of its own, which are what a user chooses.
std::vector<Choice> addSavCommands(CLI::App &app);

// What they do. `kind` is the files' kind, or kUnknown to find out. Each returns the exit status
// and throws as readSav() and replaceFile() do; a file is changed whole or not at all.

// Prints the files as tables or with --json as one object each. One that cannot be read is reported
// on standard error, and the next one follows.
int runSavDump(const std::vector<std::string> &files, SavKind kind);

// Writes the file that a JSON text means ("-": standard input, and standard output).
int runSavMake(const std::string &source, const std::string &file);

// Prints the values that differ. Returns 0 if none does, else 1; whatever goes wrong is a
// UsageError, so that the status is 2 as that of diff(1).
int runSavDiff(const std::string &before, const std::string &after, SavKind kind);

// Sets values: "outputTiming[3].hStart=128", and of arrays with "," or blanks between them. Prints
// what changes.
int runSavSet(const std::string &file, const std::vector<std::string> &assignments, SavKind kind);

// Opens the file as JSON in the user's editor and writes what comes back. If that is not one,
// the text is kept, and the error says where.
int runSavEdit(const std::string &file, SavKind kind);

// Prints the JSON Schema of a kind's dump.
int runSavSchema(SavKind kind);
