#pragma once

// Proof of a record's layout, one line per documented field, on every processor that we build for.

#include <bit>
#include <cstddef>
#include <type_traits>
#include <utility>

// Files and drivers take records as they stand in memory, and are little-endian.
static_assert(std::endian::native == std::endian::little);

// NOLINTBEGIN(bugprone-macro-parentheses): a member and a type take none.
#define RECORD_FIELD(record, offset, type, field)                                                  \
    static_assert(offsetof(record, field) == (offset), #record "." #field " is not at " #offset);  \
    static_assert(std::is_same_v<decltype(std::declval<record &>().field), type>,                  \
                  #record "." #field " is not of type " #type)
// NOLINTEND(bugprone-macro-parentheses)
