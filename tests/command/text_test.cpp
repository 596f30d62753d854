// Prefixes, suffixes, white space, and lists of items taken apart.

#include "command/text.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

// clang-format off
TEST(Text, ComparesTheBeginningWithAPrefixAndTheEndWithASuffix)
{
    constexpr int kNone = -2; // nothing to compare: exactly -1
    const struct {
        int32_t (*compare)(const char *text, const char *other);
        const char *text, *other;
        int sign;
    } rows[] = {
        {start_with, "layer=1", "layer", 0}, {start_with, "layer", "layer", 0},
        {start_with, "layer", "l", 0}, {start_with, "abc", "abd", -1},
        {start_with, "abd", "abc", 1}, {start_with, "ABC", "abc", -1},
        {start_with, " abc", "\nabc", 1},
        {start_with, "\x80", "a", 1}, {start_with, "\x80", "\xFF", -1}, // not signed characters
        {start_with, "lay", "layer", -1}, {start_with, "", "layer", -1},
        {start_with, "layeR", "layer", -1}, {start_with, "xlayer", "layer", 1},
        {start_with, nullptr, "a", kNone}, {start_with, "a", nullptr, kNone},
        {start_with, nullptr, nullptr, kNone}, {start_with, "a", "", kNone},
        {start_with, "", "", kNone}, {start_with, nullptr, "", kNone},
        {end_with, "save1.sav", ".sav", 0}, {end_with, ".sav", ".sav", 0},
        {end_with, "save1.sav", "v", 0}, {end_with, "abab", "ab", 0}, {end_with, "xabc", "abd", -1},
        {end_with, "xabd", "abc", 1}, {end_with, "x\x80", "a", 1},
        {end_with, "save1.sav ", ".sav", 1}, // "sav " against ".sav"
        {end_with, "a", "", 0}, {end_with, "", "", 0}, // unlike the prefix
        {end_with, "sav", ".sav", kNone}, {end_with, "", "a", kNone},
        {end_with, nullptr, "a", kNone}, {end_with, "a", nullptr, kNone},
        {end_with, nullptr, nullptr, kNone}, {end_with, nullptr, "", kNone},
    };
    for (const auto &row : rows) {
        const int32_t result = row.compare(row.text, row.other);
        const int sign = result > 0 ? 1 : result < 0 ? -1 : 0;
        EXPECT_EQ(row.sign == kNone ? result : sign, row.sign == kNone ? -1 : row.sign)
            << "row " << &row - rows;
    }
}
// clang-format on

TEST(Text, StripsEveryKindOfLeadingWhiteSpaceAndNothingElse)
{
    for (int code = 1; code < 256; ++code) {
        char text[] = {' ', static_cast<char>(code), 'x', ' ', '\0'};
        const std::string before = text;
        const bool isSpace = code == ' ' || (code >= '\t' && code <= '\r'); // \t \n \v \f \r
        EXPECT_EQ(lstrip(text), text + (isSpace ? 2 : 1)) << code;
        EXPECT_EQ(text, before) << code;
    }
}

TEST(Text, StripsATextToItsEnd)
{
    char blank[] = " \t\n\v\f\r ";
    EXPECT_EQ(lstrip(blank), blank + std::strlen(blank));
    char empty[] = "";
    EXPECT_EQ(lstrip(empty), empty);
    EXPECT_EQ(lstrip(nullptr), nullptr);
}

// clang-format off
TEST(Text, FindsTheEndOfTheFirstMatch)
{
    const struct {
        std::string text;
        const char *pattern;
        int end; // -1 for no match
    } rows[] = {
        {"=", "=", 1}, {"a=b=c", "=", 2}, {"==", "=", 1}, {"abc,", ",", 4},
        {"a\xFF\x80z", "\x80", 3},
        {"ab", "ab", 2}, {"xab", "ab", 3}, {"xabyab", "ab", 3}, {"aaa", "aa", 2}, {"axab", "ab", 4},
        // A character that broke a partial match is not looked at again.
        {"aab", "ab", -1}, {"ababc", "abc", -1},
        {"aabab", "ab", 5}, // the next one is found
        {"aaab", "ab", 4},  // broken by the second "a", begun anew by the third
        {"abc", "=", -1}, {"", "=", -1}, {"a", "ab", -1}, {"abc", "ac", -1},
        {"abc", "", -1}, {"", "", -1}, {"abc", nullptr, -1},
    };
    for (const auto &row : rows) {
        std::string text = row.text;
        const char *const end = split_next(text.data(), row.pattern);
        EXPECT_EQ(end == nullptr ? -1 : end - text.data(), row.end) << &row - rows << ": " << text;
    }
    EXPECT_EQ(split_next(nullptr, "a"), nullptr);
    EXPECT_EQ(split_next(nullptr, nullptr), nullptr);
}
// clang-format on

// What a state holds before anything is split.
char stale[] = "stale";
SplitState staleState()
{
    return {stale, stale, -77};
}

// The item that `text` begins with, as "key|value|rest"; "none" if there is none.
std::string itemOf(std::string text)
{
    SplitState state = staleState();
    split_str_start(&state, text.data());
    return state.key == nullptr
               ? "none"
               : std::string(state.key) + "|" + std::to_string(state.value) + "|" + state.rest;
}

TEST(Text, CutsAnItemAtTheEqualsSign)
{
    char text[] = "brightness=50,hue=2";
    SplitState state = staleState();
    split_str_start(&state, text);
    EXPECT_EQ(state.key, text);
    EXPECT_EQ(state.rest, text + 11);
    EXPECT_STREQ(text, "brightness");
}

// clang-format off
TEST(Text, ReadsKeyValueAndRest)
{
    const std::string nines(4000, '9');
    const std::pair<std::string, std::string> rows[] = {
        // White space is stripped before the key only, and the key is all before the "=".
        {" \t\n a=1", "a|1|1"}, {"a =1", "a |1|1"}, {" a b =1", "a b |1|1"}, {"a,b=1", "a,b|1|1"},
        {"\x80\xFF=1", "\x80\xFF|1|1"}, {"=5", "|5|5"},
        // The value ends before the first character that is no digit.
        {"a=2 ", "a|2|2 "}, {"a=12x3", "a|12|12x3"}, {"a=1=2", "a|1|1=2"}, {"a=1.9", "a|1|1.9"},
        {"a=1e3", "a|1|1e3"},
        // It is decimal, with or without a sign, after white space of any kind.
        {"a=-12", "a|-12|-12"}, {"a=+7", "a|7|+7"}, {"a=-0", "a|0|-0"}, {"a=010", "a|10|010"},
        {"a=0x10", "a|0|0x10"}, {"a= 3", "a|3| 3"}, {"a=\t\n\v\f\r 3", "a|3|\t\n\v\f\r 3"},
        // Beyond 32 bits it is the nearest value.
        {"a=2147483647", "a|2147483647|2147483647"}, {"a=2147483648", "a|2147483647|2147483648"},
        {"a=4294967296", "a|2147483647|4294967296"},
        {"a=9223372036854775808", "a|2147483647|9223372036854775808"},
        {"a=" + nines, "a|2147483647|" + nines},
        {"a=-2147483648", "a|-2147483648|-2147483648"},
        {"a=-2147483649", "a|-2147483648|-2147483649"},
        {"a=-9223372036854775809", "a|-2147483648|-9223372036854775809"},
        {"a=-" + nines, "a|-2147483648|-" + nines},
    };
    for (const auto &[text, item] : rows) {
        EXPECT_EQ(itemOf(text), item);
    }
}

TEST(Text, FindsNoItemWithoutANumberOrAnEqualsSign)
{
    for (const char *text : {"a=x", "a=", "a= ", "a=,b=2", "a=-", "a=+", "a=- 1", "a=+-1", "a=.5",
                             "a==1", "a=\x80", "a=\xB1", "=", "", " ", "a", "a,b", "12", "a:1"}) {
        EXPECT_EQ(itemOf(text), "none") << text;
    }
    SplitState state = staleState();
    split_str_start(&state, nullptr);
    EXPECT_EQ(state.key, nullptr);
}

// The items of a list, as "key value; key value; ".
std::string itemsOf(std::string text)
{
    std::string items;
    SplitState state = staleState();
    for (split_str_start(&state, text.data()); state.key != nullptr;
         split_str_next(&state, state.rest, ",")) {
        items += state.key + std::string(" ") + std::to_string(state.value) + "; ";
    }
    return items;
}

TEST(Text, WalksThroughAListUpToTheFirstItemThatIsNone)
{
    const std::pair<const char *, const char *> rows[] = {
        {"a=1", "a 1; "}, {"a=1,b=-2,c=3", "a 1; b -2; c 3; "}, {"a=1,a=1", "a 1; a 1; "},
        {" a=1 , b=2 ,\tc=3 ", "a 1; b 2; c 3; "},
        // It goes on after the next separator, whatever is before that.
        {"a=1 and more,b=2", "a 1; b 2; "}, {"a=1;b=2,c=3", "a 1; c 3; "},
        {"a=1=9,b=2", "a 1; b 2; "},
        {"a=x,b=2", ""}, {"a=1,b=x,c=3", "a 1; "}, {"a=1,b", "a 1; "}, {"a=1,", "a 1; "},
        {"a=1,,b=2", "a 1; ,b 2; "}, // the second key is ",b"
    };
    for (const auto &[text, items] : rows) {
        EXPECT_EQ(itemsOf(text), items) << text;
    }
}
// clang-format on

TEST(Text, SearchesTheSeparatorItIsGiven)
{
    char rest[] = "1,b=2;c=3";
    SplitState state = staleState();
    split_str_next(&state, rest, ";");
    EXPECT_STREQ(state.key, "c");
    EXPECT_EQ(state.value, 3);
    EXPECT_STREQ(state.rest, "3");
}

TEST(Text, FindsNoNextItemWithoutASeparator)
{
    for (const char *rest : {"1", "", "1;b=2", "1 b=2"}) {
        std::string text = rest;
        SplitState state = staleState();
        split_str_next(&state, text.data(), ",");
        EXPECT_EQ(state.key, nullptr) << rest;
        EXPECT_EQ(text, rest);
    }
    SplitState state = staleState();
    split_str_next(&state, nullptr, ",");
    EXPECT_EQ(state.key, nullptr);
}

} // namespace
