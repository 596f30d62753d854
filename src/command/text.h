#pragma once

// Taking text apart: prefixes, suffixes, and lists of items of the form key=value. No state; any
// thread.

#include <cstdint>

// 0 when `text` begins (ends) with the affix, else the difference that strncmp() gives; -1 when
// either is null, the prefix is empty or the suffix is longer than the text.
int32_t start_with(const char *text, const char *prefix);
int32_t end_with(const char *text, const char *suffix);

// The first character of `text` that is no white space; null for null.
char *lstrip(char *text);

// Behind the first match of `pattern` in `text`; null when there is none, the pattern is empty or
// either is null. A character that breaks a partial match is not looked at again ("ab" is not found
// in "aab"): meant for single characters.
char *split_next(char *text, const char *pattern);

// One item of a list. The pointers lead into the text that is being split.
struct SplitState {
    char *key;     // null when there are no more items
    char *rest;    // behind the "=": where the search for the next separator begins
    int32_t value; // saturated where the number exceeds 32 bits
};

// Takes the item at the beginning of `text`: what is before the "=" is the key, without white space
// before it, and the decimal number behind it the value. The "=" is overwritten by a zero byte. Key
// is null when there is no "=" or no number behind it.
void split_str_start(SplitState *state, char *text);

// Takes the item behind the next `separator` in `rest`. Key is null when there is none.
void split_str_next(SplitState *state, char *rest, const char *separator);
