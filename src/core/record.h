#pragma once

// Proof of a record's layout, on every processor that we build for: a RECORD_FIELD line for each
// documented field in its order, and after the last one the record's RECORD_SIZE.
//
// The lines are at the top of the record's source file. Those of a record that is a file have a
// file of their own, beside the header, whose name ends in ".def". Its lines have no semicolon, so
// that a program can walk them: it undefines the macros below if it includes this header, defines
// both its own way, includes the .def file, and undefines both again.

#include <bit>
#include <cstddef>
#include <string_view>
#include <type_traits>
#include <utility>

// Files and drivers take records as they stand in memory, and are little-endian.
static_assert(std::endian::native == std::endian::little);

// A member of a type, or an array of them.
template <typename Type, size_t count>
using RecordMember = std::conditional_t<count == 1, Type, Type[count]>;

// `count` is 1 for a plain member. Of an array of arrays, `type` is the inner one: uint8_t[4], 2.
// NOLINTBEGIN(bugprone-macro-parentheses): a member and a type take none.
#define RECORD_FIELD(record, offset, type, count, field)                                           \
    static_assert(offsetof(record, field) == (offset), #record "." #field " is not at " #offset);  \
    static_assert(                                                                                 \
        std::is_same_v<decltype(std::declval<record &>().field), RecordMember<type, (count)>>,     \
        #record "." #field " is not " #count " of " #type);

#define RECORD_SIZE(record, bytes)                                                                 \
    static_assert(sizeof(record) == (bytes), #record " is not of " #bytes " bytes");
// NOLINTEND(bugprone-macro-parentheses)

// The lines as data: a field with its size, or the record's size.
struct RecordLine {
    std::string_view record;
    size_t offset; // of a RECORD_SIZE line, the record's size
    size_t bytes;  // of a RECORD_SIZE line, 0
};

// True when the fields of every record follow each other from 0 to the record's size without a
// hole, so that no line is missing and the compiler has put no padding between the fields.
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
