#pragma once

// Splits lists of key=value items, and tests prefixes and suffixes. No state; any thread.

#include <cstdint>

// Returns the first character of `text` that is not white space; null for null.
char *lstrip(char *text);

// Returns the character after the first match of `pattern` in `text`; null when there is no match,
// the pattern is empty or either is null. Meant for one-character patterns: a character that breaks
// a partial match is not tried again, so "ab" is not found in "aab".
char *split_next(char *text, const char *pattern);

// One item of a list. The pointers point into the text that is being split.
struct SplitState {
    char *key;     // null when there are no more items
    char *rest;    // after the "="; the search for the next separator begins here
    int32_t value; // saturated if the number does not fit in 32 bits
};

// Takes the item at the beginning of `text`. The key is the text before the "=", without leading
// white space. The value is the decimal number after it. The "=" is overwritten with a zero byte.
// The key is null when there is no "=" or no number after it.
void split_str_start(SplitState *state, char *text);

// Takes the item after the next `separator` in `rest`. The key is null when there is no such item.
void split_str_next(SplitState *state, char *rest, const char *separator);

// Waiting for a later model -----------------------------------------------------------------------

// Return 0 when `text` begins with `prefix` (ends with `suffix`), else the result of strncmp().
// Return -1 when either is null, the prefix is empty or the suffix is longer than the text.
int32_t start_with(const char *text, const char *prefix);
int32_t end_with(const char *text, const char *suffix);
