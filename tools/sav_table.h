#pragma once

// Settings files as text for people.

#include "tools/sav_fields.h"

#include <string>

// The file by the chapters of docs/files.md: a line for each field, and a table for each array of
// records. Entries that are the same follow each other in one line. "-" is a value that a short
// file does not have. The names are those that findValues() takes, after that of their table.
std::string tableOfSav(const SavFile &file);
