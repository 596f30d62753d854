// The name that is meant.

#include "tools/nearest.h"

#include <array>

#include <gtest/gtest.h>

namespace {

TEST(Nearest, IsTheNameThatDiffersLeast)
{
    const std::array<std::string, 4> names = {"send", "monitor", "update", "decode"};
    constexpr struct {
        const char *typed;
        const char *meant;
    } kRows[] = {
        {"sned", "send"},    {"monitr", "monitor"}, {"UPDATES", "update"},
        {"decod", "decode"}, {"frobnicate", ""},    {"", ""},
        {"x", ""},
    };
    for (const auto &row : kRows) {
        EXPECT_EQ(nearest(row.typed, names), row.meant) << row.typed;
    }
    EXPECT_EQ(didYouMean("sned", names), " (did you mean \"send\"?)");
    EXPECT_EQ(didYouMean("dance", names), "");
}

} // namespace
