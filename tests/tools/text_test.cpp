// Bytes as readable text and back.

#include "tools/text.h"

#include <cmath>
#include <initializer_list>
#include <limits>
#include <optional>
#include <utility>

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

TEST(Text, ReadsNumbersWithAFraction)
{
    for (const auto &[text, value] : std::initializer_list<std::pair<const char *, double>>{
             {"59.94", 59.94},
             {"60", 60},
             {"-0.5", -0.5},
             {".5", 0.5},
             {"5.", 5},
             {"0.0", 0},
             {"9007199254740993", 9007199254740992.0}}) { // as near as a double can be
        EXPECT_EQ(realFrom(text, RealForm::kFixed), value) << text;
        EXPECT_EQ(realFrom(text, RealForm::kAny), value) << text;
    }
    for (const auto &[text, value] : std::initializer_list<std::pair<const char *, double>>{
             {"-1.5e-3", -0.0015},
             {"1E+5", 100000},
             {"1.7976931348623157e308", std::numeric_limits<double>::max()},
             {"5e-324", std::numeric_limits<double>::denorm_min()},
             {"0e-999", 0}}) {
        EXPECT_EQ(realFrom(text, RealForm::kAny), value) << text;
        EXPECT_EQ(realFrom(text, RealForm::kFixed), std::nullopt) << text;
    }
    EXPECT_TRUE(std::signbit(*realFrom("-0", RealForm::kAny)));
}

TEST(Text, RefusesWhatIsNoNumberThatADoubleCanHave)
{
    for (const char *const text :
         {"",   "-",    ".",    "-.",  "+1",        " 1",  "1 ",    "1,5",    "--1",    "1e", "1e+",
          "e5", "1e5.", "0x10", "inf", "-infinity", "nan", "1e400", "-1e400", "1e-400", "1_0"}) {
        EXPECT_EQ(realFrom(text, RealForm::kAny), std::nullopt) << text;
        EXPECT_EQ(realFrom(text, RealForm::kFixed), std::nullopt) << text;
    }
}

} // namespace
