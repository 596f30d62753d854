// The bar of an update.

#include "tools/progress.h"

#include <gtest/gtest.h>

namespace {

constexpr Figures kHalf{100, 50, 1, 10};

TEST(Progress, BarHasPercentageBytesRateTimeLeftAndBlocksSentAgain)
{
    EXPECT_EQ(barOf(kHalf, 80),
              "[############............]  50%  50 KiB  5.0 KiB/s  0:10 left, 1 again");
    EXPECT_EQ(barOf({2000, 2000, 0, 200}, 80),
              "[########################] 100%  2000 KiB  10.0 KiB/s  0:00 left, 0 again");
    EXPECT_EQ(barOf({2000, 0, 0, 0}, 80),
              "[........................]   0%  0 KiB  0.0 KiB/s  0:00 left, 0 again");
}

TEST(Progress, BarGivesWayOnANarrowTerminal)
{
    EXPECT_EQ(barOf(kHalf, 60), "[######.......]  50%  50 KiB  5.0 KiB/s  0:10 left, 1 again");
    EXPECT_EQ(barOf(kHalf, 40), "50% 50 KiB 5 KiB/s 0:10 1 again");
}

TEST(Progress, BarNeverReachesTheLastColumn)
{
    const Figures largest{16385, 16384, 65540, 36000};
    for (const Figures &figures : {kHalf, largest}) {
        for (size_t columns = 2; columns < 200; ++columns) {
            EXPECT_LT(barOf(figures, columns).size(), columns);
        }
    }
}

} // namespace
