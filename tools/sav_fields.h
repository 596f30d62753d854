#pragma once

// The fields of the settings files, from the very lines that prove the daemon's records
// (src/storage/*.def). Nothing here names a field: what has a line has a place in every dump.

#include "tools/sav_file.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// How a value is written as text.
enum class SavForm : uint8_t {
    kUnsigned,
    kSigned,
    kReal,    // a number; "0x" and 16 digits of its bits if it is infinite or no number
    kHex,     // "0x06247638", "0x80": an identification, or a byte of unknown meaning
    kBytes,   // "00a5ff": several bytes of unknown meaning
    kAddress, // "192.168.0.100"
    kMac,     // "02:76:65:73:6b:01"
    kRecord,  // no value; it has fields
};

struct SavRecord;

struct SavField {
    std::string_view name;
    std::string_view unit; // or range: as in docs/files.md, or ""
    size_t offset;         // in its record
    SavForm form;
    bool isArray;
    size_t count;            // of the values or records; 1 if it is not an array
    size_t bytes;            // of each of them
    const SavRecord *record; // of kRecord
};

struct SavRecord {
    std::string_view name;    // of the struct
    std::string_view chapter; // of docs/files.md
    size_t bytes = 0;
    std::vector<SavField> fields; // follow each other without a hole
    bool hasTables = false;       // a field is an array of records
};

// Every record that has lines.
std::span<const SavRecord> savRecords();

// The record that a file of the kind is. That of a page has one field, "views".
const SavRecord &savRecordOf(SavKind kind);

// A value in a file.
struct SavValue {
    std::string name; // "preview.layers[3].windowX"
    const SavField *field;
    size_t at; // in the file
};

// Every value of a file of that kind, in the order of the bytes.
std::vector<SavValue> savValues(SavKind kind);

// The value, or all values of the array, of that name. Throws UsageError with what is wrong with
// the name, and what may have been meant.
std::vector<SavValue> findValues(SavKind kind, std::string_view name);

// How many bytes of the value are in the file: `field.bytes` if it is whole.
size_t bytesThere(const SavField &field, std::string_view bytes, size_t at);

// The number of a whole value that is kUnsigned, kSigned or kHex.
int64_t numberAt(const SavField &field, std::string_view bytes, size_t at);

// Appends a value as text. One that is not whole has no text, but kBytes has that of the bytes that
// are there. Requires: not kRecord.
void appendText(const SavField &field, std::string_view bytes, size_t at, std::string &text);

// Write a value. A text may have a number in decimal digits, or with 0x in hexadecimal ones. Throw
// UsageError, and then the bytes are as they were. Requires: all bytes of the value are there, or
// one at least of kBytes, which takes the text of those; a number for kUnsigned, kSigned and kHex
// only; not kRecord.
void storeNumber(const SavField &field, int64_t number, std::string &bytes, size_t at);
void storeText(const SavField &field, std::string_view text, std::string &bytes, size_t at);

// Where the values of a file end: the length of its record; in a shorter file the beginning of the
// value that is not whole, or the length of the file.
size_t endOfSavValues(const SavFile &file);
