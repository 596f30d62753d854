// Prefixes, suffixes, white space, and lists of items taken apart.

#include "command/text.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Prefix, suffix ---------------------------------------------------------------------------------

TEST(Text, FindsAPrefix)
{
    EXPECT_EQ(start_with("layer=1", "layer"), 0);
    EXPECT_EQ(start_with("layer", "layer"), 0);
    EXPECT_EQ(start_with("layer", "l"), 0);
}

TEST(Text, TellsHowABeginningDiffersFromThePrefix)
{
    EXPECT_LT(start_with("abc", "abd"), 0);
    EXPECT_GT(start_with("abd", "abc"), 0);
    EXPECT_GT(start_with(" abc", "\nabc"), 0);
    EXPECT_LT(start_with("ABC", "abc"), 0);
    EXPECT_GT(start_with("\x80", "a"), 0); // bytes, not signed characters
    EXPECT_LT(start_with("\x80", "\xFF"), 0);
}

TEST(Text, ComparesTheWholePrefix)
{
    EXPECT_LT(start_with("lay", "layer"), 0);
    EXPECT_LT(start_with("", "layer"), 0);
    EXPECT_LT(start_with("layeR", "layer"), 0);
}

TEST(Text, LooksForAPrefixAtTheBeginningOnly)
{
    EXPECT_GT(start_with("xlayer", "layer"), 0);
}

TEST(Text, HasNoPrefixWhenThereIsNothingToCompare)
{
    EXPECT_EQ(start_with(nullptr, "a"), -1);
    EXPECT_EQ(start_with("a", nullptr), -1);
    EXPECT_EQ(start_with(nullptr, nullptr), -1);
    EXPECT_EQ(start_with("a", ""), -1);
    EXPECT_EQ(start_with("", ""), -1);
    EXPECT_EQ(start_with(nullptr, ""), -1);
}

TEST(Text, FindsASuffix)
{
    EXPECT_EQ(end_with("save1.sav", ".sav"), 0);
    EXPECT_EQ(end_with(".sav", ".sav"), 0);
    EXPECT_EQ(end_with("save1.sav", "v"), 0);
    EXPECT_EQ(end_with("abab", "ab"), 0);
}

TEST(Text, TellsHowAnEndDiffersFromTheSuffix)
{
    EXPECT_LT(end_with("xabc", "abd"), 0);
    EXPECT_GT(end_with("xabd", "abc"), 0);
    EXPECT_GT(end_with("x\x80", "a"), 0);
    EXPECT_GT(end_with("save1.sav ", ".sav"), 0); // "sav " against ".sav"
}

TEST(Text, FindsTheEmptySuffixInEveryTextUnlikeThePrefix)
{
    EXPECT_EQ(end_with("a", ""), 0);
    EXPECT_EQ(end_with("", ""), 0);
}

TEST(Text, HasNoSuffixThatIsLongerOrMissing)
{
    EXPECT_EQ(end_with("sav", ".sav"), -1);
    EXPECT_EQ(end_with("", "a"), -1);
    EXPECT_EQ(end_with(nullptr, "a"), -1);
    EXPECT_EQ(end_with("a", nullptr), -1);
    EXPECT_EQ(end_with(nullptr, nullptr), -1);
    EXPECT_EQ(end_with(nullptr, ""), -1);
}

// White space ------------------------------------------------------------------------------------

TEST(Text, StripsEveryKindOfLeadingWhiteSpaceAndNothingElse)
{
    for (int code = 1; code < 256; ++code) {
        char text[] = {' ', static_cast<char>(code), 'x', ' ', '\0'};
        const bool isSpace = code == ' ' || (code >= '\t' && code <= '\r'); // \t \n \v \f \r
        EXPECT_EQ(lstrip(text), text + (isSpace ? 2 : 1)) << code;
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

TEST(Text, ChangesNothingOfATextWhenStrippingIt)
{
    char text[] = "  a b ";
    EXPECT_STREQ(lstrip(text), "a b ");
    EXPECT_STREQ(text, "  a b ");
}

// Searching --------------------------------------------------------------------------------------

// Where the match of `pattern` in `text` ends; -1 for none.
long endOfMatch(std::string text, const char *pattern)
{
    const char *const end = split_next(text.data(), pattern);
    return end == nullptr ? -1 : end - text.data();
}

TEST(Text, FindsTheFirstOfACharacter)
{
    EXPECT_EQ(endOfMatch("=", "="), 1);
    EXPECT_EQ(endOfMatch("a=b=c", "="), 2);
    EXPECT_EQ(endOfMatch("==", "="), 1);
    EXPECT_EQ(endOfMatch("abc,", ","), 4);
    EXPECT_EQ(endOfMatch("a\xFF\x80z", "\x80"), 3);
}

TEST(Text, FindsTheFirstOfAWord)
{
    EXPECT_EQ(endOfMatch("ab", "ab"), 2);
    EXPECT_EQ(endOfMatch("xab", "ab"), 3);
    EXPECT_EQ(endOfMatch("xabyab", "ab"), 3);
    EXPECT_EQ(endOfMatch("aaa", "aa"), 2);
    EXPECT_EQ(endOfMatch("axab", "ab"), 4);
}

TEST(Text, DoesNotLookAgainAtACharacterThatBrokeAPartialMatch)
{
    EXPECT_EQ(endOfMatch("aab", "ab"), -1);
    EXPECT_EQ(endOfMatch("ababc", "abc"), -1);
    EXPECT_EQ(endOfMatch("aabab", "ab"), 5); // the next one is found
    EXPECT_EQ(endOfMatch("aaab", "ab"), 4);  // broken by the second "a", begun anew by the third
}

TEST(Text, FindsNothingThatIsNotThere)
{
    EXPECT_EQ(endOfMatch("abc", "="), -1);
    EXPECT_EQ(endOfMatch("", "="), -1);
    EXPECT_EQ(endOfMatch("a", "ab"), -1);
    EXPECT_EQ(endOfMatch("abc", "ac"), -1);
}

TEST(Text, FindsNothingWhenThereIsNothingToLookFor)
{
    char text[] = "abc";
    EXPECT_EQ(split_next(text, ""), nullptr);
    EXPECT_EQ(split_next(text, nullptr), nullptr);
    EXPECT_EQ(split_next(nullptr, "a"), nullptr);
    EXPECT_EQ(split_next(nullptr, nullptr), nullptr);
    char empty[] = "";
    EXPECT_EQ(split_next(empty, ""), nullptr);
}

// One item ---------------------------------------------------------------------------------------

// What a state holds before anything is split.
char stale[] = "stale";
SplitState staleState()
{
    return {stale, stale, -77};
}

// The item that `text` begins with.
struct Item {
    bool isThere;
    std::string key;
    int32_t value;
    std::string rest;
};

Item itemOf(std::string text)
{
    SplitState state = staleState();
    split_str_start(&state, text.data());
    return state.key == nullptr ? Item{false, "", 0, ""}
                                : Item{true, state.key, state.value, state.rest};
}

TEST(Text, CutsAnItemAtTheEqualsSign)
{
    char text[] = "brightness=50,hue=2";
    SplitState state = staleState();
    split_str_start(&state, text);
    EXPECT_EQ(state.key, text);
    EXPECT_STREQ(state.key, "brightness");
    EXPECT_EQ(state.rest, text + 11);
    EXPECT_STREQ(state.rest, "50,hue=2");
    EXPECT_EQ(state.value, 50);
}

TEST(Text, StripsWhiteSpaceBeforeAKeyOnly)
{
    EXPECT_EQ(itemOf(" \t\n a=1").key, "a");
    EXPECT_EQ(itemOf("a =1").key, "a ");
    EXPECT_EQ(itemOf(" a b =1").key, "a b ");
}

TEST(Text, TakesEverythingBeforeTheEqualsSignForTheKey)
{
    EXPECT_EQ(itemOf("a,b=1").key, "a,b");
    EXPECT_EQ(itemOf("\x80\xFF=1").key, "\x80\xFF");
    const Item empty = itemOf("=5");
    EXPECT_TRUE(empty.isThere);
    EXPECT_EQ(empty.key, "");
    EXPECT_EQ(empty.value, 5);
}

TEST(Text, ReadsAValueUpToTheFirstCharacterThatIsNoDigit)
{
    EXPECT_EQ(itemOf("a=2 ").value, 2);
    EXPECT_EQ(itemOf("a=12x3").value, 12);
    EXPECT_EQ(itemOf("a=1=2").value, 1);
    EXPECT_EQ(itemOf("a=1=2").rest, "1=2");
    EXPECT_EQ(itemOf("a=1.9").value, 1);
    EXPECT_EQ(itemOf("a=1e3").value, 1);
}

TEST(Text, ReadsDecimalValuesWithASign)
{
    EXPECT_EQ(itemOf("a=-12").value, -12);
    EXPECT_EQ(itemOf("a=+7").value, 7);
    EXPECT_EQ(itemOf("a=-0").value, 0);
    EXPECT_EQ(itemOf("a=010").value, 10); // no octal
    EXPECT_TRUE(itemOf("a=0x10").isThere);
    EXPECT_EQ(itemOf("a=0x10").value, 0); // no hexadecimal
}

TEST(Text, SkipsWhiteSpaceBeforeAValue)
{
    EXPECT_EQ(itemOf("a= 3").value, 3);
    EXPECT_EQ(itemOf("a=\t\n\v\f\r 3").value, 3);
    EXPECT_EQ(itemOf("a= 3").rest, " 3");
}

TEST(Text, TakesTheNearestValueForANumberBeyond32Bits)
{
    EXPECT_EQ(itemOf("a=2147483647").value, INT32_MAX);
    EXPECT_EQ(itemOf("a=2147483648").value, INT32_MAX);
    EXPECT_EQ(itemOf("a=4294967296").value, INT32_MAX);
    EXPECT_EQ(itemOf("a=9223372036854775808").value, INT32_MAX);
    EXPECT_EQ(itemOf("a=" + std::string(4000, '9')).value, INT32_MAX);
    EXPECT_EQ(itemOf("a=-2147483648").value, INT32_MIN);
    EXPECT_EQ(itemOf("a=-2147483649").value, INT32_MIN);
    EXPECT_EQ(itemOf("a=-9223372036854775809").value, INT32_MIN);
    EXPECT_EQ(itemOf("a=-" + std::string(4000, '9')).value, INT32_MIN);
}

TEST(Text, FindsNoItemWithoutANumber)
{
    for (const char *text : {"a=x", "a=", "a= ", "a=,b=2", "a=-", "a=+", "a=- 1", "a=+-1", "a=.5",
                             "a==1", "a=\x80", "a=\xB1", "="}) {
        EXPECT_FALSE(itemOf(text).isThere) << text;
    }
}

TEST(Text, FindsNoItemWithoutAnEqualsSign)
{
    for (const char *text : {"", " ", "a", "a,b", "12", "a:1"}) {
        EXPECT_FALSE(itemOf(text).isThere) << text;
    }
    SplitState state = staleState();
    split_str_start(&state, nullptr);
    EXPECT_EQ(state.key, nullptr);
}

// The next item ----------------------------------------------------------------------------------

std::vector<std::string> itemsOf(std::string text)
{
    std::vector<std::string> items;
    SplitState state = staleState();
    for (split_str_start(&state, text.data()); state.key != nullptr;
         split_str_next(&state, state.rest, ",")) {
        items.push_back(state.key + std::string(" ") + std::to_string(state.value));
    }
    return items;
}

using Items = std::vector<std::string>;

TEST(Text, WalksThroughAList)
{
    EXPECT_EQ(itemsOf("a=1"), Items{"a 1"});
    EXPECT_EQ(itemsOf("a=1,b=-2,c=3"), (Items{"a 1", "b -2", "c 3"}));
    EXPECT_EQ(itemsOf(" a=1 , b=2 ,\tc=3 "), (Items{"a 1", "b 2", "c 3"}));
    EXPECT_EQ(itemsOf("a=1,a=1"), (Items{"a 1", "a 1"}));
}

TEST(Text, GoesOnBehindTheNextSeparatorWhateverIsBeforeIt)
{
    EXPECT_EQ(itemsOf("a=1 and more,b=2"), (Items{"a 1", "b 2"}));
    EXPECT_EQ(itemsOf("a=1;b=2,c=3"), (Items{"a 1", "c 3"}));
    EXPECT_EQ(itemsOf("a=1=9,b=2"), (Items{"a 1", "b 2"}));
}

TEST(Text, EndsAtTheFirstItemThatIsNone)
{
    EXPECT_EQ(itemsOf("a=x,b=2"), Items());
    EXPECT_EQ(itemsOf("a=1,b=x,c=3"), Items{"a 1"});
    EXPECT_EQ(itemsOf("a=1,b"), Items{"a 1"});
    EXPECT_EQ(itemsOf("a=1,"), Items{"a 1"});
    EXPECT_EQ(itemsOf("a=1,,b=2"), (Items{"a 1", ",b 2"})); // the second key is ",b"
}

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
