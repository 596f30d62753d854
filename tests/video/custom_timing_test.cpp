// The custom timing: every mode of a grid against its exact derivation
// (tests/data/custom-timing/derive.py), and beside the public standard
// (tests/data/cvt_reduced_blanking.csv), with the cause of each difference.

#include "video/custom_timing.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <iostream>
#include <iterator>
#include <limits>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/console.h"
#include "tests/support/format_files.h"
#include "tests/support/setting_bytes.h"
#include "tests/support/setting_change.h"
#include "video/CustomFormat.h"
#include "video/VideoFormatTable.h"
#include "video/gs4911.h"

namespace {

constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int64_t kHighestRate = 2173; // Hz; above it nothing is left of a line

// The custom resolution in the user setting record, and the fields of both records that are made.
constexpr size_t kResolution = 3736;
constexpr size_t kMadeOfResolution = 12;

[[maybe_unused]] const auto *const blocks = testing::AddGlobalTestEnvironment(new Blocks);
[[maybe_unused]] const auto *const directory =
    testing::AddGlobalTestEnvironment(new SettingsDirectory);

struct Mode {
    int32_t width, height, rate;
    auto operator<=>(const Mode &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Mode &mode)
{
    return out << mode.width << 'x' << mode.height << '@' << mode.rate;
}

// What a derivation comes to.
struct Derived {
    Mode mode;
    bool isStored;
    std::string clock; // MHz; empty where a number below 1 is refused
    // If it is stored.
    uint32_t hTotal, vTotal, hStart, vStart, hSync, vSync, polarity, hActive, vActive;
};

// The cells of a line from `from` on, in the order of the struct.
Derived derivedOf(const Mode &mode, const std::vector<std::string> &cells, size_t from)
{
    Derived derived{};
    derived.mode = mode;
    derived.isStored = cells[from] == "1";
    derived.clock = cells[from + 1];
    uint32_t *const fields[] = {&derived.hTotal,   &derived.vTotal,  &derived.hStart,
                                &derived.vStart,   &derived.hSync,   &derived.vSync,
                                &derived.polarity, &derived.hActive, &derived.vActive};
    for (size_t i = 0; derived.isStored && i < std::size(fields); ++i) {
        *fields[i] = number(cells[from + 2 + i]);
    }
    return derived;
}

int32_t signedNumber(const std::string &text)
{
    return static_cast<int32_t>(std::strtol(text.c_str(), nullptr, 10));
}

std::vector<std::vector<std::string>> linesOf(const char *path, const std::string &heading)
{
    std::vector<std::vector<std::string>> lines;
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    EXPECT_EQ(line, heading) << path;
    const size_t width = split(heading, ",").size();
    while (std::getline(file, line)) {
        lines.push_back(split(line, ","));
        EXPECT_EQ(lines.back().size(), width) << line;
    }
    return lines;
}

struct GridRow : Derived {
    // Double, or single, precision throughout would come to something else.
    bool isLostInDouble, isLostInSingle;
};

std::vector<GridRow> readGrid()
{
    std::vector<GridRow> grid;
    for (const auto &cells :
         linesOf(GRID_FILE, "width,height,rate,result,clock,h_total,v_total,h_start,v_start,h_sync,"
                            "v_sync,polarity,h_active,v_active,precision")) {
        const Mode mode{signedNumber(cells[0]), signedNumber(cells[1]), signedNumber(cells[2])};
        const uint32_t precision = number(cells[14]);
        grid.push_back({derivedOf(mode, cells, 3), (precision & 1) != 0, (precision & 2) != 0});
    }
    return grid;
}

// The bytes of both records, and what a derivation makes of them.
struct Records {
    Bytes setting;
    Bytes timing;
};

Records recordsNow()
{
    return {bytesOf(GetUserSetting()), bytesOf(GetCustomFormat())};
}

// No field of what stands before has the value that it gets: one left out shows.
const Records &fillBoth()
{
    static const Records records{ownBytes(kUserSettingSize, 7),
                                 Bytes(sizeof(CustomFormat), '\xA5')};
    fill(GetUserSetting(), records.setting);
    fill(GetCustomFormat(), records.timing);
    return records;
}

Records after(const Records &before, const Derived &derived)
{
    if (!derived.isStored) {
        return before;
    }
    Image setting(before.setting);
    setting.u32(kResolution, {static_cast<uint32_t>(derived.mode.width),
                              static_cast<uint32_t>(derived.mode.height),
                              static_cast<uint32_t>(derived.mode.rate)});
    Image timing(before.timing);
    timing.u8(1, {derived.polarity})
        .u16(2, {derived.hTotal, derived.vTotal, derived.hStart, derived.vStart, derived.hActive,
                 derived.vActive, derived.hSync, derived.vSync});
    return {setting.bytes, timing.bytes};
}

testing::AssertionResult areRecords(const Records &expected)
{
    const Records now = recordsNow();
    if (testing::AssertionResult same = areBytes(now.setting, expected.setting); !same) {
        return same << "of the user setting record";
    }
    if (testing::AssertionResult same = areBytes(now.timing, expected.timing); !same) {
        return same << "of the timing";
    }
    return testing::AssertionSuccess();
}

std::string errorFor(const std::string &clock)
{
    return "Error: Pixel Clock (MHz) = " + clock + ".000000\n";
}

// The result of an operation and what it printed.
struct Answer {
    int32_t result;
    std::string printed;
    bool operator==(const Answer &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Answer &answer)
{
    return out << answer.result << " \"" << answer.printed << '"';
}

Answer make(const Mode &mode)
{
    Answer answer{};
    answer.printed =
        printedBy([&] { answer.result = getCustomTimming(mode.width, mode.height, mode.rate); });
    return answer;
}

Answer check(const Mode &mode)
{
    Answer answer{};
    answer.printed =
        printedBy([&] { answer.result = CheckCustomTimming(mode.width, mode.height, mode.rate); });
    return answer;
}

const Answer kStored{1, ""};
const Answer kSilent{0, ""};

void expectRefused(const Mode &mode, const std::string &clock)
{
    const Records &before = fillBoth();
    EXPECT_EQ(make(mode), (Answer{0, errorFor(clock)})) << mode;
    EXPECT_EQ(check(mode), kSilent) << mode;
    EXPECT_TRUE(areRecords(before)) << mode;
}

// The grid ----------------------------------------------------------------------------------------

TEST(CustomTiming, EveryModeOfTheGridIsMadeAsDerived)
{
    const std::vector<GridRow> grid = readGrid();
    testing::Test::RecordProperty("modes", static_cast<int>(grid.size()));
    std::cout << grid.size() << " modes\n";
    ASSERT_GE(grid.size(), 24000u);

    std::string expected;
    std::ostringstream wrong; // what fails while the console is captured would not be seen
    const std::string printed = printedBy([&] {
        for (const GridRow &row : grid) {
            const auto &[width, height, rate] = row.mode;
            const Records records = after(fillBoth(), row);
            const int32_t result = getCustomTimming(width, height, rate);
            if (!row.isStored && !row.clock.empty()) {
                expected += errorFor(row.clock);
            }
            const testing::AssertionResult same = areRecords(records);
            if (result != (row.isStored ? 1 : 0) || !same) {
                wrong << row.mode << " gave " << result << ' ' << same.message() << '\n';
            }
        }
    });
    EXPECT_EQ(wrong.str().substr(0, 1000), "");
    EXPECT_TRUE(areBytes(printed, expected));
}

TEST(CustomTiming, EveryModeOfTheGridIsCheckedAsDerivedAndNothingStoredOrPrinted)
{
    const std::vector<GridRow> grid = readGrid();
    const Records &before = fillBoth();
    std::ostringstream wrong;
    int32_t stored = 0;
    int32_t refused = 0;
    const std::string printed = printedBy([&] {
        for (const GridRow &row : grid) {
            const auto &[width, height, rate] = row.mode;
            const int32_t result = CheckCustomTimming(width, height, rate);
            if (result != (row.isStored ? 1 : 0)) {
                wrong << row.mode << " gave " << result << '\n';
            }
            ++(row.isStored ? stored : refused);
        }
    });
    EXPECT_EQ(wrong.str().substr(0, 1000), "");
    EXPECT_EQ(printed, "");
    EXPECT_TRUE(areRecords(before));
    EXPECT_GT(stored, 10000);
    EXPECT_GT(refused, 5000);
}

template <typename Float> int64_t saturated(Float value)
{
    return value >= Float{2147483648U}   ? kMax
           : value < -Float{2147483648U} ? kMin
                                         : static_cast<int64_t>(std::trunc(value));
}

// Blanking lines, V total and clock with another precision in place of single, or of double.
template <typename Double, typename Single>
std::tuple<int64_t, int64_t, int64_t> timingIn(const Mode &mode)
{
    const auto rate = static_cast<Double>(mode.rate);
    const auto height = static_cast<Double>(mode.height);
    const auto perFrame = static_cast<Double>(static_cast<Double>(1000000) / rate);
    const auto left = static_cast<Double>(perFrame - static_cast<Double>(460));
    const auto line = static_cast<Single>(left / height);
    const auto sum = static_cast<Single>(static_cast<Single>(460) + line);
    const auto dividend = static_cast<Single>(sum - static_cast<Single>(1));
    const int64_t blanking = saturated(static_cast<Single>(dividend / line));
    const auto vTotal = static_cast<Single>(blanking + mode.height);
    const int64_t cells = mode.width / 8;
    const auto hTotal = static_cast<Single>(cells * 8 + 160);
    const auto perColumn = static_cast<Single>(static_cast<Single>(mode.rate) * vTotal);
    const auto pixels = static_cast<Single>(perColumn * hTotal);
    return {blanking, saturated(vTotal), saturated(pixels) / 1000000};
}

// The grid is worth its modes only if a slip in the precision of a step would show in it.
TEST(CustomTiming, ThePrecisionOfTheStepsDecidesHundredsOfModesOfTheGrid)
{
    int32_t lostInDouble = 0;
    int32_t lostInSingle = 0;
    int32_t seenInDouble = 0;
    int32_t seenInSingle = 0;
    for (const GridRow &row : readGrid()) {
        if (row.clock.empty()) {
            continue;
        }
        const auto asStated = timingIn<double, float>(row.mode);
        ASSERT_EQ(std::to_string(std::get<2>(asStated)), row.clock) << row.mode;
        ASSERT_EQ((asStated != timingIn<double, double>(row.mode)), row.isLostInDouble) << row.mode;
        ASSERT_EQ((asStated != timingIn<float, float>(row.mode)), row.isLostInSingle) << row.mode;
        lostInDouble += row.isLostInDouble ? 1 : 0;
        lostInSingle += row.isLostInSingle ? 1 : 0;
        // Those of them that can show in what is stored.
        seenInDouble += row.isLostInDouble && row.isStored ? 1 : 0;
        seenInSingle += row.isLostInSingle && row.isStored ? 1 : 0;
    }
    std::cout << lostInDouble << " modes need single precision, " << lostInSingle << " double\n";
    EXPECT_GE(lostInDouble, 1000);
    EXPECT_GE(lostInSingle, 500);
    EXPECT_GE(seenInDouble, 500);
    EXPECT_GE(seenInSingle, 300);
}

// (459 + e) / e lines, cut, for a line period e: 459 / e, cut, and one. In whole numbers, where
// e = (1000000 - 460 rate) / (rate height).
TEST(CustomTiming, BlankingTakes459MicrosecondsCutToLinesAndALineMore)
{
    int32_t exact = 0;
    int32_t rounded = 0;
    for (const GridRow &row : readGrid()) {
        const auto &[width, height, rate] = row.mode;
        if (!row.isStored || rate > kHighestRate) {
            continue;
        }
        ASSERT_EQ(getCustomTimming(width, height, rate), 1) << row.mode;
        const int64_t blanking = static_cast<uint16_t>(getCustomvStart() + 3);

        const int64_t perFrame = 1000000 - 460 * int64_t{rate};
        const int64_t dividend = 459 * int64_t{rate} * height;
        const int64_t lines = dividend / perFrame + 1;
        // How far it is to a whole number, and how far the roundings can lead, in millionths of a
        // line: each of four is less than 1/2^23 of the whole.
        const int64_t remainder = dividend % perFrame;
        const int64_t distance = std::min(remainder, perFrame - remainder) * 1000000 / perFrame;
        if (distance > lines * 4 * 1000000 / (1 << 23) + 1) {
            ASSERT_EQ(blanking, lines & 0xFFFF) << row.mode;
            ++exact;
        } else {
            ASSERT_LE(std::abs(blanking - (lines & 0xFFFF)), 1 + lines / (1 << 20)) << row.mode;
            ++rounded;
        }
    }
    EXPECT_GT(exact, 10000);
    EXPECT_GT(rounded, 100);
}

// Examples ----------------------------------------------------------------------------------------

TEST(CustomTiming, 1920x1080At60HzHas138MHzAnd1111Lines)
{
    const Records &before = fillBoth();
    EXPECT_EQ(make({1920, 1080, 60}), kStored);
    const Derived derived{{1920, 1080, 60}, true, "138", 2080, 1111, 112, 28, 32, 4, 0, 1920, 1080};
    EXPECT_TRUE(areRecords(after(before, derived)));
}

TEST(CustomTiming, 1366PixelsHaveTheTotalOf1360AndStay1366)
{
    EXPECT_EQ(make({1366, 768, 60}), kStored);
    EXPECT_EQ(getCustomhTotal(), 1520u);
    EXPECT_EQ(getCustomhActive(), 1366u);
    EXPECT_EQ(getCustomH(), 1366u);
}

TEST(CustomTiming, EveryWidthOfACellHasItsTotalAndIsShownUncut)
{
    for (int32_t width = 1360; width < 1376; ++width) {
        EXPECT_EQ(make({width, 768, 60}), kStored);
        EXPECT_EQ(getCustomhTotal(), width < 1368 ? 1520u : 1528u) << width;
        EXPECT_EQ(getCustomhActive(), static_cast<uint32_t>(width));
        EXPECT_EQ(getCustomH(), static_cast<uint32_t>(width));
    }
}

TEST(CustomTiming, 3840x2160At60HzIsAcceptedWith533MHz)
{
    EXPECT_EQ(check({3840, 2160, 60}), kStored);
    EXPECT_EQ(make({3840, 2160, 60}), kStored);
    EXPECT_EQ(getCustomhTotal(), 4000u);
    EXPECT_EQ(getCustomvTotal(), 2222u);
    EXPECT_EQ(GetDlckByVideoFormat(124), 533280000u);
}

TEST(CustomTiming, 4096x2160At70HzIsRefusedWithItsClockInSixDecimals)
{
    const Records &before = fillBoth();
    EXPECT_EQ(make({4096, 2160, 70}), // 4256 x 2232 x 70 = 664957440
              (Answer{0, "Error: Pixel Clock (MHz) = 664.000000\n"}));
    EXPECT_TRUE(areRecords(before));
}

TEST(CustomTiming, WhatIsRefusedIsCheckedWithoutAWord)
{
    const Records &before = fillBoth();
    EXPECT_EQ(check({4096, 2160, 70}), kSilent);
    EXPECT_TRUE(areRecords(before));
}

TEST(CustomTiming, WhatIsAcceptedIsCheckedAndNotStored)
{
    const Records &before = fillBoth();
    EXPECT_EQ(check({1920, 1080, 60}), kStored);
    EXPECT_TRUE(areRecords(before));
}

TEST(CustomTiming, ARateIsConvertedToItself)
{
    EXPECT_EQ(convertCustomF(30), 30u);
    for (const uint32_t rate : {0u, 1u, 24u, 59u, 60u, 240u, 65536u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_EQ(convertCustomF(rate), rate);
    }
}

// The limit ---------------------------------------------------------------------------------------

// At 60 Hz a line more is 0.12 MHz more: 2000 pixels of 60 frames.
TEST(CustomTiming, TheClockIsCutToWholeMegahertzBeforeItIsHeldAgainst600)
{
    EXPECT_EQ(make({1840, 4862, 60}), kStored); // 2000 x 5000 x 60 = 600000000
    EXPECT_EQ(getCustomvTotal(), 5000u);
    EXPECT_EQ(make({1840, 4870, 60}), kStored); // 600960000
    EXPECT_EQ(getCustomvTotal(), 5008u);
    expectRefused({1840, 4871, 60}, "601"); // 601080000
}

TEST(CustomTiming, AProductBeyond32BitsIsTheGreatestThereIsAndRefused)
{
    expectRefused({3840, 2160, 300}, "2147"); // 4000 x 2506 x 300 = 3007200000
    expectRefused({8192, 4320, 240}, "2147"); // four thousand millions and more
    expectRefused({kMax, kMax, 60}, "2147");  // the totals do not fit either
    expectRefused({kMax, kMax, kHighestRate}, "2147");
    expectRefused({1, kMax, 1}, "2147");
    expectRefused({kMax, 1, 1}, "2147");
}

TEST(CustomTiming, WhatIsRefusedLeavesTheTimingMadeBefore)
{
    EXPECT_EQ(make({1920, 1080, 60}), kStored);
    const Records before = recordsNow();
    EXPECT_EQ(make({4096, 2160, 70}).result, 0);
    EXPECT_EQ(make({0, 1080, 60}).result, 0);
    EXPECT_TRUE(areRecords(before));
}

TEST(CustomTiming, ZeroAndNegativeNumbersAreRefusedWithoutAWord)
{
    const Records &before = fillBoth();
    for (const int32_t bad : {0, -1, -8, -60, -1920, -kMax, kMin}) {
        for (const Mode &mode : {Mode{bad, 1080, 60}, Mode{1920, bad, 60}, Mode{1920, 1080, bad},
                                 Mode{bad, bad, 60}, Mode{bad, bad, bad}, Mode{1920, bad, bad},
                                 Mode{bad, kMax, kMax}, Mode{kMax, kMax, bad}}) {
            EXPECT_EQ(make(mode), kSilent) << mode;
            EXPECT_EQ(check(mode), kSilent) << mode;
        }
    }
    EXPECT_TRUE(areRecords(before));
}

TEST(CustomTiming, TheSmallestModeOfAllIsMade)
{
    EXPECT_EQ(make({1, 1, 1}), kStored);
    EXPECT_EQ(getCustomhTotal(), 160u);
    // A line of 999540 us: 999999 / 999540 lines of blanking.
    EXPECT_EQ(getCustomvTotal(), 2u);
    EXPECT_EQ(getCustomvStart(), 0xFFFEu);
    EXPECT_EQ(getCustomhActive(), 1u);
    EXPECT_EQ(getCustomvActive(), 1u);
}

// 400 us a frame: -0.125 us a line, (460 - 0.125 - 1) / -0.125 = -3671 lines of blanking, -3191 in
// all; -6382000000 pixels a second become the least that 32 bits hold, -2147 MHz.
TEST(CustomTiming, AboveTheHighestRateTotalsAndClockAreNegativeAndAccepted)
{
    const Records &before = fillBoth();
    EXPECT_EQ(make({640, 480, 2500}), kStored);
    EXPECT_EQ(check({640, 480, 2500}), kStored);
    const Derived derived{{640, 480, 2500}, true, "-2147", 800, 65536 - 3191, 112,
                          65536 - 3674,     32,   4,       0,   640,          480};
    EXPECT_TRUE(areRecords(after(before, derived)));
    // 2500 x -5 x 168 fits: -60 us a line, (460 - 60 - 1) / -60 = -6 lines and one active.
    EXPECT_EQ(make({8, 1, 2500}), kStored);
    EXPECT_EQ(getCustomvTotal(), 65536u - 5);
}

TEST(CustomTiming, 2173HzIsTheHighestRateWithALinePeriodAboveZero)
{
    EXPECT_GT(1000000.0 / kHighestRate, 460);
    EXPECT_LT(1000000.0 / (kHighestRate + 1), 460);
    // 0.19328 us: 459.19328 / 0.19328 = 2375 lines and one active; 2376 x 168 x 2173 = 867401136.
    expectRefused({8, 1, 2173}, "867");
    EXPECT_EQ(make({8, 1, 2174}), kStored);
    // -0.01840 us: 458.98160 / -0.01840 = -24945.
    EXPECT_EQ(getCustomvTotal(), 65536u - 24944);
}

// The records -------------------------------------------------------------------------------------

TEST(CustomTiming, SizeClassColourSpaceAndReservedBytesStay)
{
    for (const uint8_t value : std::initializer_list<uint8_t>{0x00, 0x01, 0x02, 0xFF}) {
        fill(GetCustomFormat(), Bytes(sizeof(CustomFormat), static_cast<char>(value)));
        fill(GetUserSetting(), Bytes(kUserSettingSize, static_cast<char>(value)));
        EXPECT_EQ(make({3840, 2160, 60}), kStored);
        EXPECT_EQ(GetCustomFormat()->reserved0, value);
        EXPECT_EQ(GetCustomFormat()->colorSpace, value);
        EXPECT_EQ(GetCustomFormat()->reserved19, value);
        EXPECT_EQ(GetCustomResolution()->sizeClass, value);
        EXPECT_TRUE(areBytes(
            bytesOf(GetUserSetting()).substr(kResolution + kMadeOfResolution),
            Bytes(kUserSettingSize - kResolution - kMadeOfResolution, static_cast<char>(value))));
    }
}

TEST(CustomTiming, NumbersWiderThanTheirFieldAreCut)
{
    // The timing has 16 bits for them, the resolution 32. 65696 pixels are 65536 more than 160.
    EXPECT_EQ(make({65543, 1, 60}), kStored);
    EXPECT_EQ(getCustomhTotal(), 160u);
    EXPECT_EQ(getCustomhActive(), 7u);
    EXPECT_EQ(getCustomH(), 65543u);
    // 999540 / 65537 = 15.25 us: 30 lines and 1.
    EXPECT_EQ(make({8, 65537, 1}), kStored);
    EXPECT_EQ(getCustomvActive(), 1u);
    EXPECT_EQ(getCustomvTotal(), 32u);
    EXPECT_EQ(getCustomV(), 65537u);
}

TEST(CustomTiming, NothingIsSaved)
{
    EXPECT_EQ(make({1920, 1080, 60}), kStored);
    EXPECT_EQ(make({4096, 2160, 70}).result, 0);
    EXPECT_EQ(check({1920, 1080, 60}), kStored);
    EXPECT_TRUE(filesIn().empty());
}

TEST(CustomTiming, TheFormatTableAnswersForFormat124WithTheTimingMade)
{
    EXPECT_EQ(make({1366, 768, 60}), kStored);
    GetUserSetting()->extInputFormat = 124;
    for (const uint32_t id : {124u, 125u}) {
        EXPECT_EQ(GetResByVideoFormat(id), 1366u + 768 * 65536);
        EXPECT_EQ(GetHDEByVideoFormat(id), 1366u);
        EXPECT_EQ(GetVDEByVideoFormat(id), 768u);
        EXPECT_EQ(GetVDEByVideoFormat2(id), 768u);
        EXPECT_EQ(GetHTotalByVideoFormat(id), 1520u);
        EXPECT_EQ(GetVTotalByVideoFormat(id), 790u);
        EXPECT_EQ(GetHStartByVideoFormat(id), 112u);
        EXPECT_EQ(GetVStartByVideoFormat(id), 19u);
        EXPECT_EQ(GetHSyncWidthByVideoFormat(id), 32u);
        EXPECT_EQ(GetVSyncWidthByVideoFormat(id), 4u);
        EXPECT_EQ(GetHSyncPolarityByVideoFormat(id), 0u);
        EXPECT_EQ(GetVSyncPolarityByVideoFormat(id), 0u);
        EXPECT_EQ(GetVFreqByVideoFormat(id), 60u);
        EXPECT_EQ(GetDlckByVideoFormat(id), 72048000u); // uncut
        EXPECT_EQ(GetGS4911ByVideoFormat(id), 45u);
    }
    EXPECT_STREQ(GetStrByVideoFormat(124), "C:1366x768@60");
}

TEST(CustomTiming, TheFormatTableAnswersForFormat124AsBeforeWhenAModeIsRefused)
{
    EXPECT_EQ(make({1920, 1080, 60}), kStored);
    EXPECT_EQ(make({4096, 2160, 70}).result, 0);
    EXPECT_EQ(GetResByVideoFormat(124), 1920u + 1080 * 65536);
    EXPECT_EQ(GetHTotalByVideoFormat(124), 2080u);
    EXPECT_EQ(GetVTotalByVideoFormat(124), 1111u);
    EXPECT_EQ(GetDlckByVideoFormat(124), 138652800u);
    EXPECT_STREQ(GetStrByVideoFormat(124), "C:1920x1080@60");
}

// The public standard -----------------------------------------------------------------------------

// A mode with its public value, in front of this system's.
struct Compared : Derived {
    uint32_t cvtHActive, cvtHTotal, cvtHSync, cvtHBackPorch;
    uint32_t cvtVTotal, cvtVFrontPorch, cvtVSync, cvtVBackPorch, cvtPolarity;
    std::string cvtClock; // MHz, two decimals
};

std::vector<Compared> readCompared()
{
    std::vector<Compared> modes;
    for (const auto &cells :
         linesOf(CVT_FILE,
                 "width,height,rate,cvt_h_active,cvt_h_total,cvt_h_sync,cvt_h_back_porch,"
                 "cvt_v_total,cvt_v_front_porch,cvt_v_sync,cvt_v_back_porch,cvt_polarity,cvt_clock,"
                 "result,clock,h_total,v_total,h_start,v_start,h_sync,v_sync,polarity,h_active,"
                 "v_active")) {
        const Mode mode{signedNumber(cells[0]), signedNumber(cells[1]), signedNumber(cells[2])};
        Compared compared{derivedOf(mode, cells, 13), 0, 0, 0, 0, 0, 0, 0, 0, 0, cells[12]};
        uint32_t *const fields[] = {
            &compared.cvtHActive,    &compared.cvtHTotal,     &compared.cvtHSync,
            &compared.cvtHBackPorch, &compared.cvtVTotal,     &compared.cvtVFrontPorch,
            &compared.cvtVSync,      &compared.cvtVBackPorch, &compared.cvtPolarity};
        for (size_t i = 0; i < std::size(fields); ++i) {
            *fields[i] = number(cells[3 + i]);
        }
        modes.push_back(compared);
    }
    return modes;
}

// In hundredths of MHz.
uint32_t hundredths(const std::string &clock)
{
    const std::vector<std::string> parts = split(clock, ".");
    EXPECT_EQ(parts.size(), 2u) << clock;
    EXPECT_EQ(parts.back().size(), 2u) << clock;
    return 100 * number(parts.front()) + static_cast<uint32_t>(signedNumber(parts.back()));
}

// 4:3, 16:9, 16:10, 5:4 and 15:9; 10 for every other ratio.
uint32_t syncOfAspectRatio(const Mode &mode)
{
    const auto is = [&](int32_t width, int32_t height) {
        return mode.width * height == mode.height * width;
    };
    return is(4, 3) ? 4 : is(16, 9) ? 5 : is(16, 10) ? 6 : is(5, 4) || is(15, 9) ? 7 : 10;
}

TEST(CustomTiming, TheModesBesideTheStandardAreMadeAsTheirTableSays)
{
    const std::vector<Compared> modes = readCompared();
    EXPECT_GE(modes.size(), 40u);
    for (const Compared &mode : modes) {
        const Records &before = fillBoth();
        const Answer expected = mode.isStored ? kStored : Answer{0, errorFor(mode.clock)};
        EXPECT_EQ(make(mode.mode), expected) << mode.mode;
        EXPECT_TRUE(areRecords(after(before, mode))) << mode.mode;
    }
}

// So that no number of the table is one that was read off the program.
TEST(CustomTiming, TheModesBesideTheStandardAreDerivedLikeTheGrid)
{
    std::map<Mode, GridRow> grid;
    for (const GridRow &row : readGrid()) {
        grid[row.mode] = row;
    }
    for (const Compared &mode : readCompared()) {
        ASSERT_TRUE(grid.contains(mode.mode)) << mode.mode;
        const GridRow &row = grid[mode.mode];
        EXPECT_EQ(mode.isStored, row.isStored) << mode.mode;
        EXPECT_EQ(mode.clock, row.clock) << mode.mode;
        const Records none{Bytes(kUserSettingSize, '\0'), Bytes(sizeof(CustomFormat), '\0')};
        EXPECT_TRUE(areBytes(after(none, mode).timing, after(none, row).timing)) << mode.mode;
    }
}

TEST(CustomTiming, ALineIsAsTheStandardHasItButShowsTheWidthUncut)
{
    int32_t uncut = 0;
    for (const Compared &mode : readCompared()) {
        const auto width = static_cast<uint32_t>(mode.mode.width);
        EXPECT_EQ(mode.cvtHActive, width / 8 * 8) << mode.mode;
        EXPECT_EQ(mode.cvtHTotal, mode.cvtHActive + 160) << mode.mode;
        if (!mode.isStored) {
            continue;
        }
        EXPECT_EQ(mode.hTotal, mode.cvtHTotal) << mode.mode;
        EXPECT_EQ(mode.hSync, mode.cvtHSync) << mode.mode;
        EXPECT_EQ(mode.hStart, mode.cvtHSync + mode.cvtHBackPorch) << mode.mode;
        EXPECT_EQ(mode.hActive, width) << mode.mode;
        EXPECT_EQ(mode.hActive == mode.cvtHActive, width % 8 == 0) << mode.mode;
        uncut += width % 8 != 0 ? 1 : 0;
    }
    EXPECT_EQ(uncut, 4); // 853, 1279 and twice 1366
}

TEST(CustomTiming, TheVerticalSyncIsAlways4LinesAndPositiveWhereTheStandardHasItNegative)
{
    std::map<uint32_t, int32_t> syncs;
    for (const Compared &mode : readCompared()) {
        EXPECT_EQ(mode.cvtVSync, syncOfAspectRatio(mode.mode)) << mode.mode;
        EXPECT_EQ(mode.cvtPolarity, 2u) << mode.mode;
        EXPECT_EQ(mode.cvtVFrontPorch, 3u) << mode.mode;
        ++syncs[mode.cvtVSync];
        if (!mode.isStored) {
            continue;
        }
        EXPECT_EQ(mode.vSync, 4u) << mode.mode;
        EXPECT_EQ(mode.polarity, 0u) << mode.mode;
        const uint32_t blanking = mode.vTotal - static_cast<uint32_t>(mode.mode.height);
        EXPECT_EQ((blanking - mode.vStart) & 0xFFFF, mode.cvtVFrontPorch) << mode.mode;
    }
    EXPECT_EQ(syncs.size(), 5u); // each of 4, 5, 6, 7 and 10 is there
}

// Lines that the standard has more: for the whole numbers above 459 / e and not above 460 / e, and
// up to its least blanking. No other mode of the table has one.
struct MoreLines {
    Mode mode;
    int64_t between;
    int64_t toTheLeast;
};
const MoreLines kMoreLines[] = {
    {{80, 600, 1300}, 2, 0},   {{640, 100, 60}, 0, 17},   {{640, 240, 60}, 0, 13},
    {{640, 480, 480}, 1, 0},   {{640, 480, 2000}, 12, 0}, {{720, 480, 30}, 0, 13},
    {{720, 480, 60}, 0, 6},    {{720, 576, 50}, 0, 3},    {{800, 600, 60}, 1, 0},
    {{848, 480, 60}, 0, 6},    {{853, 479, 60}, 0, 6},    {{1280, 720, 120}, 1, 0},
    {{1280, 720, 1000}, 1, 0}, {{1600, 1200, 60}, 1, 0},  {{1920, 17, 60}, 0, 19},
    {{1840, 4862, 60}, 1, 0},  {{1840, 4870, 60}, 1, 0},  {{1840, 4871, 60}, 1, 0},
    {{1920, 1080, 24}, 0, 2},  {{1920, 1080, 120}, 1, 0}, {{1920, 1080, 240}, 1, 0},
    {{1920, 1200, 60}, 1, 0},  {{2176, 544, 60}, 0, 4},   {{2560, 1440, 144}, 1, 0},
    {{3840, 2160, 120}, 1, 0},
};

TEST(CustomTiming, TheStandardHasMoreLinesWhereAWholeNumberLiesBetweenOrItsLeastBlankingCounts)
{
    std::map<Mode, MoreLines> named;
    for (const MoreLines &more : kMoreLines) {
        named[more.mode] = more;
    }
    size_t found = 0;
    for (const Compared &mode : readCompared()) {
        const auto &[width, height, rate] = mode.mode;
        // 459 / e and 460 / e, cut.
        const int64_t perFrame = 1000000 - 460 * int64_t{rate};
        const int64_t of459 = 459 * int64_t{rate} * height / perFrame;
        const int64_t of460 = 460 * int64_t{rate} * height / perFrame;
        const int64_t least = 3 + int64_t{mode.cvtVSync} + 7;
        const int64_t publicBlanking = int64_t{mode.cvtVTotal} - height;
        ASSERT_EQ(publicBlanking, std::max(of460 + 1, least)) << mode.mode;
        ASSERT_EQ(publicBlanking, mode.cvtVFrontPorch + mode.cvtVSync + mode.cvtVBackPorch);

        const auto more = named.find(mode.mode);
        found += more != named.end() ? 1u : 0u;
        const int64_t between = more != named.end() ? more->second.between : 0;
        const int64_t toTheLeast = more != named.end() ? more->second.toTheLeast : 0;
        EXPECT_EQ(of460 - of459, between) << mode.mode;
        EXPECT_EQ(publicBlanking - (of460 + 1), toTheLeast) << mode.mode;
        // A line of 1 us or more: no two whole numbers fit in between.
        EXPECT_TRUE(between <= 1 || perFrame < int64_t{rate} * height) << mode.mode;
        if (mode.isStored) {
            EXPECT_EQ(mode.vTotal + between + toTheLeast, mode.cvtVTotal) << mode.mode;
            EXPECT_EQ((mode.vStart + between + toTheLeast) & 0xFFFF,
                      mode.cvtVSync + mode.cvtVBackPorch)
                << mode.mode;
        }
    }
    EXPECT_EQ(found, std::size(kMoreLines));
}

// 29 x 1939 x 2632 = 147999992, which single precision holds as 148000000.
const Mode kRoundedUp = {2472, 1913, 29};

TEST(CustomTiming, TheClockIsThatOfTheStandardCutToWholeMegahertzWhereTheLinesAreTheSame)
{
    int32_t whole = 0;
    int32_t roundedUp = 0;
    for (const Compared &mode : readCompared()) {
        const auto pixels = [&](int64_t lines) { return mode.mode.rate * lines * mode.cvtHTotal; };
        EXPECT_EQ(hundredths(mode.cvtClock), pixels(mode.cvtVTotal) / 250000 * 25) << mode.mode;
        const uint32_t clock = number(mode.clock);
        if (mode.mode == kRoundedUp) {
            ++roundedUp;
            EXPECT_EQ(clock, 148u);
            EXPECT_EQ(mode.cvtClock, "147.75");
            EXPECT_EQ(mode.vTotal, mode.cvtVTotal);
            continue;
        }
        EXPECT_LE(100 * clock, hundredths(mode.cvtClock)) << mode.mode;
        if (!mode.isStored) {
            continue;
        }
        EXPECT_EQ(clock, pixels(mode.vTotal) / 1000000) << mode.mode;
        if (mode.vTotal == mode.cvtVTotal) {
            EXPECT_EQ(clock, hundredths(mode.cvtClock) / 100) << mode.mode;
            whole += hundredths(mode.cvtClock) % 100 == 0 ? 1 : 0;
        }
    }
    EXPECT_EQ(roundedUp, 1);
    EXPECT_GT(whole, 5); // in these the public clock and this one are equal
}

TEST(CustomTiming, OnlyThisSystemHasALimit)
{
    int32_t refused = 0;
    for (const Compared &mode : readCompared()) {
        EXPECT_EQ(mode.isStored, number(mode.clock) <= 600) << mode.mode;
        if (!mode.isStored) {
            EXPECT_GT(hundredths(mode.cvtClock), 60000u) << mode.mode;
            ++refused;
        }
    }
    EXPECT_GE(refused, 5);
}

// The document ------------------------------------------------------------------------------------

constexpr char kChapter[] = "How the custom timing is made";

std::string sideBySide(uint32_t ofStandard, const Derived &derived, uint32_t Derived::*field)
{
    return std::to_string(ofStandard) + " / " +
           (derived.isStored ? std::to_string(derived.*field) : "none");
}

TEST(CustomTiming, TheWorkedModesOfTheDocumentAreThoseOfTheTable)
{
    std::map<std::string, Compared> modes;
    for (const Compared &mode : readCompared()) {
        modes[testing::PrintToString(mode.mode)] = mode;
    }
    const auto rows = tableOf(kChapter, "mode | H active | H total | V total | V start | V sync | "
                                        "polarity | pixel clock | blanking lines");
    ASSERT_GE(rows.size(), 8u) << FORMATS_DOCUMENT;
    for (const std::vector<std::string> &cells : rows) {
        ASSERT_TRUE(modes.contains(cells[0])) << cells[0];
        const Compared &mode = modes[cells[0]];
        const int64_t perFrame = 1000000 - 460 * int64_t{mode.mode.rate};
        const int64_t perLine = int64_t{mode.mode.rate} * mode.mode.height;
        const int64_t between = 460 * perLine / perFrame - 459 * perLine / perFrame;
        const uint32_t least = 3 + mode.cvtVSync + 7;
        const uint32_t publicBlanking = mode.cvtVTotal - static_cast<uint32_t>(mode.mode.height);
        const std::string why = publicBlanking > 460 * perLine / perFrame + 1
                                    ? "at least " + std::to_string(least) + " lines"
                                    : (between == 0 ? "the same"
                                                    : (between == 1 ? "a whole number between"
                                                                    : "two whole numbers between"));
        EXPECT_LE(between, 2);
        EXPECT_EQ(cells,
                  (std::vector<std::string>{
                      cells[0],
                      sideBySide(mode.cvtHActive, mode, &Derived::hActive),
                      sideBySide(mode.cvtHTotal, mode, &Derived::hTotal),
                      sideBySide(mode.cvtVTotal, mode, &Derived::vTotal),
                      sideBySide(mode.cvtVSync + mode.cvtVBackPorch, mode, &Derived::vStart),
                      sideBySide(mode.cvtVSync, mode, &Derived::vSync),
                      sideBySide(mode.cvtPolarity, mode, &Derived::polarity),
                      mode.cvtClock + " / " + mode.clock + (mode.isStored ? "" : ", refused"),
                      why + (mode.isStored ? "" : ", but refused"),
                  }))
            << FORMATS_DOCUMENT;
    }
}

TEST(CustomTiming, WhatIsStoredIsWhatTheDocumentLists)
{
    // Each number, and the field that it is found in; words stand for what is asked for and made.
    ASSERT_EQ(make({1366, 768, 61}), kStored);
    const std::map<std::string, uint32_t> words = {
        {"0: both positive", 0},
        {"H total", 1520},
        {"V total", 791}, // 15933.44 / 768 = 20.75 us: 479 / 20.75 = 23 lines
        {"112: the sync and half of the blanking", 112},
        {"blanking lines − 3", 20},
        {"width, not cut to a multiple of 8", 1366},
        {"32", 32},
        {"4", 4},
        {"width", 1366},
        {"height", 768},
        {"rate", 61},
    };
    const std::map<std::string, uint32_t (*)()> fields = {
        {"timing syncPolarity", getCustomhvSyncPolarity},
        {"timing hTotal", getCustomhTotal},
        {"timing vTotal", getCustomvTotal},
        {"timing hStart", getCustomhStart},
        {"timing vStart", getCustomvStart},
        {"timing hActive", getCustomhActive},
        {"timing vActive", getCustomvActive},
        {"timing hSyncWidth", getCustomhSyncWidth},
        {"timing vSyncWidth", getCustomvSyncWidth},
        {"resolution width", getCustomH},
        {"resolution height", getCustomV},
        {"resolution frameRate", getCustomF},
    };
    const auto rows = tableOf(kChapter, "field | value");
    ASSERT_EQ(rows.size(), fields.size()) << FORMATS_DOCUMENT;
    for (const std::vector<std::string> &cells : rows) {
        ASSERT_TRUE(fields.contains(cells[0])) << cells[0];
        ASSERT_TRUE(words.contains(cells[1])) << cells[1];
        EXPECT_EQ(fields.at(cells[0])(), words.at(cells[1])) << cells[0];
    }
}

TEST(CustomTiming, TheSentencesOfTheDocumentHold)
{
    EXPECT_TRUE(documentSays("`Error: Pixel Clock (MHz) = 664.000000` for 4096x2160@70. "));
    EXPECT_EQ(make({4096, 2160, 70}).printed, errorFor("664"));
    EXPECT_TRUE(documentSays(
        " 2147483647 pixels a second are 2147 MHz, so everything above is refused too. "));
    EXPECT_EQ(kMax / 1000000, 2147);
    EXPECT_TRUE(documentSays(
        " 640x480@2500 is stored, with a V total of −3191, which the field shows as 62345. "));
    EXPECT_EQ(make({640, 480, 2500}), kStored);
    EXPECT_EQ(getCustomvTotal(), 62345u);
    EXPECT_TRUE(documentSays("2472x1913@29 has 148 MHz, and the public clock is 147.75."));
    EXPECT_TRUE(documentSays("The limit is 600 MHz, so 600.9 passes."));
    // From the smallest height that has 3 blanking lines on.
    EXPECT_TRUE(documentSays(" V start is then below 0, and its field shows 65534 or 65535. "));
    for (const auto &[height, vStart] : std::map<int32_t, uint32_t>{
             {1, 65534}, {35, 65534}, {36, 65535}, {70, 65535}, {71, 0}, {105, 0}, {106, 1}}) {
        EXPECT_EQ(make({1920, height, 60}), kStored); // 27540 / 972400 lines each, cut, and one
        EXPECT_EQ(getCustomvStart(), vStart) << height;
    }
    EXPECT_TRUE(documentSays("A small height or a low rate gives fewer than 3 blanking lines. "));
    EXPECT_EQ(make({1920, 1080, 4}), kStored); // 459 / 231.1 cut, and one: 2 lines
    EXPECT_EQ(getCustomvStart(), 65535u);
}

} // namespace
