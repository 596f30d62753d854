#pragma once

// Settings files as JSON and back. The text has every byte of the file, whatever its length:
//
//   {"file": "view3.sav", "kind": "view", "length": 3996, "fields": {...}, "rest": ""}
//
// `fields` has all fields of the kind in the order of docs/files.md, records as objects and arrays
// as arrays. A value that a short file does not have, or not whole, is null. `rest` are the bytes
// that are no value, as hexadecimal digits: those after the end of the record, or the beginning of
// the value that a short file ends in.

#include "tools/sav_fields.h"

#include <string>
#include <string_view>

enum class SavLayout { kOneLine, kIndented };

// Bytes as hexadecimal digits, as in `rest`.
std::string hexOf(std::string_view bytes);

// The file as JSON, without a line end.
std::string jsonOfSav(const SavFile &file, SavLayout layout);

// The file that the text means; its path is "". Keys may be in any order; "file" may be missing.
// Throws UsageError with the place and what is wrong there: a line and a column of `text` that is
// no JSON, else the name of the value. The message begins with `source`.
SavFile savOfJson(std::string_view text, std::string_view source);

// Appends one value as JSON, null if it is not whole. Requires: it is not a record.
void appendJson(const SavField &field, std::string_view bytes, size_t at, std::string &json);

// The JSON Schema of jsonOfSav() for a kind of file.
std::string schemaOfSav(SavKind kind);
