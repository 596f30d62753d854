// Bytes as readable text and back.

#include "tools/text.h"

#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tools/errors.h"

namespace {

TEST(Text, EscapesWhatCannotBeSeen)
{
    EXPECT_EQ(escape("plain <text> \"~\""), "plain <text> \"~\"");
    EXPECT_EQ(escape("a\r\nb\\c"), "a\\r\\nb\\\\c");
    EXPECT_EQ(escape(std::string("\0\x7f\xff\t", 4)), "\\x00\\x7f\\xff\\x09");
    EXPECT_EQ(escape("in the middle, at the end "), "in the middle, at the end\\x20");
}

TEST(Text, EveryByteComesBackFromDigitsInEitherCase)
{
    const std::string all = countingBytes(256);
    EXPECT_EQ(unescape(escape(all)), all);
    EXPECT_EQ(unescape("\\xfF\\x3C"), "\xff<");
}

TEST(Text, RefusesWhatIsNoEscape)
{
    for (const char *text : {"\\", "a\\", "\\t", "\\x", "\\x1", "\\x1g", "\\xg1", "\\X11"}) {
        EXPECT_THROW(unescape(text), UsageError) << text;
    }
}

TEST(Text, Trims)
{
    EXPECT_EQ(trim("  a b\t\r"), "a b");
    EXPECT_EQ(trim(" \t"), "");
    EXPECT_EQ(trim(""), "");
}

} // namespace
