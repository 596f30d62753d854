#pragma once

// Taking text apart: lists of items of the form key=value, prefixes and suffixes. No state; any
// thread.

#include <cstdint>

// The first character of `text` that is not white space; null for null.
char *lstrip(char *text);

// The character after the first match of `pattern` in `text`; null when there is none, the pattern
// is empty or either is null. Meant for single characters: a character that breaks a partial match
// is not looked at again, so "ab" is not found in "aab".
char *split_next(char *text, const char *pattern);

// One item of a list. The pointers lead into the text that is being split.
struct SplitState {
    char *key;     // null when there are no more items
    char *rest;    // after the "=": where the search for the next separator begins
    int32_t value; // saturated where the number exceeds 32 bits
};

// Takes the item at the beginning of `text`: the key is what stands before the "=", without leading
// white space, and the value is the decimal number after it. The "=" is overwritten by a zero byte.
// The key is null when there is no "=" or no number after it.
void split_str_start(SplitState *state, char *text);

// Takes the item after the next `separator` in `rest`. The key is null when there is none.
void split_str_next(SplitState *state, char *rest, const char *separator);

// Waiting for a later model -----------------------------------------------------------------------

// 0 when `text` begins (ends) with the affix, else the difference that strncmp() gives; -1 when
// either is null, the prefix is empty or the suffix is longer than the text.
int32_t start_with(const char *text, const char *prefix);
int32_t end_with(const char *text, const char *suffix);
