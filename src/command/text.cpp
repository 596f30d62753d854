#include "command/text.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

char *lstrip(char *text)
{
    if (text != nullptr) {
        while (std::isspace(static_cast<unsigned char>(*text)) != 0) {
            ++text;
        }
    }
    return text;
}

char *split_next(char *text, const char *pattern)
{
    if (text == nullptr || pattern == nullptr || pattern[0] == '\0') {
        return nullptr;
    }
    const char *expected = pattern;
    for (; *text != '\0'; ++text) {
        expected = *text == *expected ? expected + 1 : pattern;
        if (*expected == '\0') {
            return text + 1;
        }
    }
    return nullptr;
}

void split_str_start(SplitState *state, char *text)
{
    state->key = nullptr;
    text = lstrip(text);
    char *const value = split_next(text, "=");
    if (value == nullptr) {
        return;
    }
    value[-1] = '\0';
    char *after;
    const long long number = std::strtoll(value, &after, 10);
    if (after == value) {
        return;
    }
    state->key = text;
    state->rest = value;
    state->value = number > INT32_MAX   ? INT32_MAX
                   : number < INT32_MIN ? INT32_MIN
                                        : static_cast<int32_t>(number);
}

void split_str_next(SplitState *state, char *rest, const char *separator)
{
    char *const item = split_next(rest, separator);
    if (item == nullptr) {
        state->key = nullptr;
        return;
    }
    split_str_start(state, item);
}

// Waiting for a later model -----------------------------------------------------------------------

int32_t start_with(const char *text, const char *prefix)
{
    if (text == nullptr || prefix == nullptr || prefix[0] == '\0') {
        return -1;
    }
    return std::strncmp(text, prefix, std::strlen(prefix));
}

int32_t end_with(const char *text, const char *suffix)
{
    if (text == nullptr || suffix == nullptr) {
        return -1;
    }
    const size_t textLength = std::strlen(text);
    const size_t suffixLength = std::strlen(suffix);
    if (suffixLength > textLength) {
        return -1;
    }
    return std::strncmp(text + (textLength - suffixLength), suffix, suffixLength);
}
