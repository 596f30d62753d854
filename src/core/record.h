#pragma once

// Proves a record's layout on every processor that we build for. Each documented field has a
// RECORD_FIELD line, in document order; the record's RECORD_SIZE line follows the last one, unless
// its size depends on the processor.
//
// The lines are at the top of the record's source file. A record that is stored as a file has them
// in a ".def" file beside its header instead. The lines there have no semicolon, so that a program
// can walk them: it undefines RECORD_FIELD and RECORD_SIZE, defines both in its own way, includes
// the .def file, and undefines both again. The .def files also say what people want to know of a
// field, in the words of docs/files.md: a RECORD_FIELD_IN line has the unit or the range of its
// values, and a RECORD_CHAPTER line begins the chapter that the records after it belong to. A
// program that wants to know either defines these two in its own way as well.

#include <bit>
#include <cstddef>
#include <string_view>
#include <type_traits>
#include <utility>

// Files and drivers take records byte for byte from memory, and are little-endian.
static_assert(std::endian::native == std::endian::little);

// A member of a type, or an array of them.
template <typename Type, size_t count>
using RecordMember = std::conditional_t<count == 1, Type, Type[count]>;

// `count` is 1 for a plain member. For an array of arrays, `type` is the inner array, for example
// uint8_t[4] with a count of 2.

// NOLINTBEGIN(bugprone-macro-parentheses): a member and a type take no parentheses.
#define RECORD_FIELD(record, offset, type, count, field)                                           \
    static_assert(offsetof(record, field) == (offset), #record "." #field " is not at " #offset);  \
    static_assert(                                                                                 \
        std::is_same_v<decltype(std::declval<record &>().field), RecordMember<type, (count)>>,     \
        #record "." #field " is not " #count " of " #type);

#define RECORD_SIZE(record, bytes)                                                                 \
    static_assert(sizeof(record) == (bytes), #record " is not of " #bytes " bytes");

#define RECORD_FIELD_IN(record, offset, type, count, field, unit)                                  \
    RECORD_FIELD(record, offset, type, count, field)

#define RECORD_CHAPTER(title)
// NOLINTEND(bugprone-macro-parentheses)

// A RECORD_FIELD or RECORD_SIZE line as data.
struct RecordLine {
    std::string_view record;
    size_t offset; // in a RECORD_SIZE line, the record's size
    size_t bytes;  // in a RECORD_SIZE line, 0
};

// True when the fields of every record follow each other without a hole from 0 to the record's
// size. Then no line is missing, and the compiler has put no padding between the fields.
template <size_t lineCount> constexpr bool recordsHaveNoHole(const RecordLine (&lines)[lineCount])
{
    std::string_view record;
    size_t end = 0;
    for (const RecordLine &line : lines) {
        if (end == 0) {
            record = line.record;
        }
        if (line.record != record || line.offset != end) {
            return false;
        }
        end = line.bytes == 0 ? 0 : end + line.bytes;
    }
    return end == 0; // the last line is a RECORD_SIZE
}
