// The rasters of `veskctl timing`: the exchanged format table, the public modes of
// tests/data/cvt_reduced_blanking.csv, and modelines as other programs print them.

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/format_files.h"
#include "tools/raster.h"
#include "tools/timing_drawing.h"

namespace {

class Rasters : public WithExchanged {};

TEST_F(Rasters, EveryFormatHasTheNumbersOfItsRow)
{
    for (const Row &row : exchanged) {
        SCOPED_TRACE(row);
        const Raster raster = rasterOf(static_cast<uint8_t>(row.id));
        EXPECT_EQ(raster.horizontal,
                  (Axis{row.width, row.hSync, row.hStart, row.hTotal, (row.polarity & 1) != 0}));
        EXPECT_EQ(raster.vertical,
                  (Axis{row.height, row.vSync, row.vStart, row.vTotal, (row.polarity & 2) != 0}));
        EXPECT_EQ(raster.frequency, row.vFreq);
        EXPECT_EQ(raster.pixelClock,
                  row.pixelClock != 0 ? row.pixelClock : row.hTotal * row.vTotal * row.vFreq);
        EXPECT_EQ(raster.isInterlaced, row.name.find('i') != std::string::npos);
        EXPECT_EQ(faultOf(raster), "");
    }
}

// The porches are what is left of the total.
TEST_F(Rasters, ThePartsOfALineAndAFrameAddUp)
{
    const Raster raster = rasterOf(10); // 1920x1080x60: 44 + 148 + 1920 + 88 = 2200
    EXPECT_EQ(raster.horizontal.backPorch(), 148);
    EXPECT_EQ(raster.horizontal.frontPorch(), 88);
    EXPECT_EQ(raster.vertical.backPorch(), 36);
    EXPECT_EQ(raster.vertical.frontPorch(), 4);
    EXPECT_EQ(raster.rate(), 60);
    EXPECT_EQ(raster.lineRate(), 67500);
    const Raster fields = rasterOf(38); // 1920x1080x60i: 30 frames of 1125 lines
    EXPECT_EQ(fields.rate(), 60);
    EXPECT_EQ(fields.dotClock(), 74250000);
    EXPECT_EQ(fields.lineRate(), 33750);
}

// The standard ------------------------------------------------------------------------------------

std::vector<std::vector<std::string>> publicModes()
{
    std::ifstream file(CVT_FILE);
    std::vector<std::vector<std::string>> modes;
    std::string line;
    std::getline(file, line); // the heading
    while (std::getline(file, line)) {
        modes.push_back(split(line, ","));
    }
    return modes;
}

TEST(ReducedBlanking, Version1IsThatOfTheExchangedModes)
{
    const auto modes = publicModes();
    EXPECT_GE(modes.size(), 60u);
    for (const auto &cells : modes) {
        const auto n = [&](size_t i) { return int64_t{number(cells[i])}; };
        const CustomMode mode{static_cast<int32_t>(n(0)), static_cast<int32_t>(n(1)),
                              static_cast<int32_t>(n(2))};
        SCOPED_TRACE(nameOf(mode));
        const auto raster = reducedBlanking(mode, 1);
        ASSERT_TRUE(raster);
        EXPECT_EQ(raster->horizontal.active, n(3));
        EXPECT_EQ(raster->horizontal.total, n(4));
        EXPECT_EQ(raster->horizontal.sync, n(5));
        EXPECT_EQ(raster->horizontal.backPorch(), n(6));
        EXPECT_FALSE(raster->horizontal.isNegative);
        EXPECT_EQ(raster->vertical.active, n(1));
        EXPECT_EQ(raster->vertical.total, n(7));
        EXPECT_EQ(raster->vertical.frontPorch(), n(8));
        EXPECT_EQ(raster->vertical.sync, n(9));
        EXPECT_EQ(raster->vertical.backPorch(), n(10));
        EXPECT_TRUE(raster->vertical.isNegative);
        EXPECT_EQ(raster->pixelClock, std::stod(cells[12]) * 1e6);
    }
}

// 460 us of 1080 lines in 16666.67 us are 30.65 lines, so 31; 31 + 1080 lines of 1920 + 80 pixels
// at 60 Hz are 133320000 pixels a second.
TEST(ReducedBlanking, Version2HasShorterBlankingAndFinerClocks)
{
    const auto raster = reducedBlanking({1920, 1080, 60}, 2);
    ASSERT_TRUE(raster);
    EXPECT_EQ(raster->horizontal, (Axis{1920, 32, 72, 2000, false}));
    EXPECT_EQ(raster->vertical, (Axis{1080, 8, 14, 1111, true}));
    EXPECT_EQ(raster->pixelClock, 133320000);
    EXPECT_EQ(reducedBlanking({1366, 768, 60}, 2)->horizontal.active, 1366); // no cell of 8
    EXPECT_EQ(reducedBlanking({640, 100, 60}, 2)->vertical.total, 115);      // 15 lines at least
}

TEST(ReducedBlanking, ModesThatTheStandardDoesNotHave)
{
    EXPECT_TRUE(reducedBlanking({640, 480, 2173}, 1));
    for (const int version : {1, 2}) {
        EXPECT_FALSE(reducedBlanking({640, 480, 2174}, version)); // 459.98 us a frame
        EXPECT_FALSE(reducedBlanking({65536, 480, 60}, version));
        EXPECT_FALSE(reducedBlanking({640, 65536, 60}, version));
    }
    EXPECT_FALSE(reducedBlanking({7, 480, 60}, 1)); // no cell of 8
    EXPECT_TRUE(reducedBlanking({7, 480, 60}, 2));
    EXPECT_FALSE(reducedBlanking({640, 100, 1}, 1)); // 96000 pixels a second
    EXPECT_TRUE(reducedBlanking({640, 100, 1}, 2));
}

// The custom format -------------------------------------------------------------------------------

TEST(CustomRaster, IsWhatTheDaemonStores)
{
    const CustomMode mode{1366, 768, 60};
    const auto raster = customRaster(mode);
    ASSERT_TRUE(raster);
    EXPECT_EQ(raster->horizontal, (Axis{1366, 32, 112, 1520, false}));
    EXPECT_EQ(raster->vertical, (Axis{768, 4, 19, 790, false}));
    EXPECT_EQ(raster->pixelClock, 1520 * 790 * 60);
    EXPECT_TRUE(troublesOf(mode, *raster).empty());
    EXPECT_FALSE(customRaster({4096, 2160, 70}));
}

TEST(CustomRaster, TellsWhyItsNumbersAreNotWhatWasMeant)
{
    const struct {
        CustomMode mode;
        std::vector<const char *> words;
    } cases[] = {
        {{640, 100, 60}, {"4 lines into the picture"}}, // V start 0
        {{640, 240, 60}, {}},                           // V start 4: no back porch
        {{640, 200, 60}, {"1 line into the picture"}},  // V start 3
        {{640, 100, 1}, {"below 0"}},
        {{65543, 480, 1}, {"16 bits", "below 0"}},
        {{640, 480, 2500}, {"above 2173 Hz"}},
    };
    for (const auto &[mode, words] : cases) {
        SCOPED_TRACE(nameOf(mode));
        const auto raster = customRaster(mode);
        ASSERT_TRUE(raster);
        const std::vector<std::string> troubles = troublesOf(mode, *raster);
        ASSERT_EQ(troubles.size(), words.size()) << testing::PrintToString(troubles);
        for (size_t i = 0; i < words.size(); ++i) {
            EXPECT_NE(troubles[i].find(words[i]), std::string::npos) << troubles[i];
        }
    }
}

// Modelines ---------------------------------------------------------------------------------------

// As Debian's `cvt -r 1920 1080` prints it, and that of the 1920x1080 interlaced television format.
TEST(Modeline, IsThatOfOtherPrograms)
{
    EXPECT_EQ(modelineOf("1920x1080R", *reducedBlanking({1920, 1080, 60}, 1)),
              "Modeline \"1920x1080R\"  138.50  1920 1968 2000 2080  1080 1083 1088 1111 +hsync "
              "-vsync");
    EXPECT_EQ(modelineOf("x", rasterOf(38)),
              "Modeline \"x\"  74.25  1920 2012 2056 2200  1080 1085 "
              "1090 1125 interlace +hsync +vsync");
    EXPECT_EQ(modelineOf("x", rasterOf(3)), "Modeline \"x\"  74.175824  1280 1390 1430 1650  720 "
                                            "725 730 750 +hsync +vsync");
    EXPECT_EQ(modelineOf("x", rasterOf(0)), "Modeline \"x\"  27.00  720 736 798 858  480 489 495 "
                                            "525 -hsync -vsync");
}

TEST(Modeline, PartsThatOverlapHaveNone)
{
    Raster raster = rasterOf(10);
    raster.vertical.start = 4;
    EXPECT_EQ(faultOf(raster), "V sync is 5, but V start is 4");
    raster.vertical.start = 46;
    EXPECT_EQ(faultOf(raster), "V start and V active are 1126, but V total is 1125");
    raster.horizontal.active = 0;
    EXPECT_EQ(faultOf(raster), "H active is 0");
}

// Pictures: tests/tools/timing_test.py measures them
// -----------------------------------------------

TEST(Drawing, ATitleIsText)
{
    const std::string picture = drawingOf("<a & b>", rasterOf(10));
    EXPECT_NE(picture.find("<title>&lt;a &amp; b&gt;</title>"), std::string::npos);
}

} // namespace
