// The custom timing: every mode of a grid against its exact derivation
// (tests/data/custom-timing/derive.py), and beside the public standard
// (tests/data/cvt_reduced_blanking.csv), with the cause of each difference.

#include "video/custom_timing.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/console.h"
#include "tests/support/format_files.h"
#include "tests/support/setting_bytes.h"
#include "video/CustomFormat.h"

namespace {

struct Mode {
    int32_t width, height, rate;
};

std::ostream &operator<<(std::ostream &out, const Mode &mode)
{
    return out << mode.width << 'x' << mode.height << '@' << mode.rate;
}

// What a derivation comes to.
struct Derived {
    Mode mode;
    bool isStored;
    std::string clock; // MHz; empty where a number below 1 is refused; not stored
    // If it is stored.
    uint32_t hTotal, vTotal, hStart, vStart, hSync, vSync, polarity, hActive, vActive;
};

int32_t numberOf(const std::string &text)
{
    return static_cast<int32_t>(std::strtol(text.c_str(), nullptr, 10));
}

// The mode of a line, and the cells from `from` on, in the order of the struct.
Derived derivedOf(const std::vector<std::string> &cells, size_t from)
{
    const auto n = [&](size_t i) { return static_cast<uint32_t>(numberOf(cells[from + i])); };
    const Mode mode = {numberOf(cells[0]), numberOf(cells[1]), numberOf(cells[2])};
    return {mode, n(0) == 1, cells[from + 1], n(2), n(3), n(4), n(5), n(6), n(7), n(8),
            n(9), n(10)};
}

std::vector<std::vector<std::string>> linesOf(const char *path, const std::string &heading)
{
    std::vector<std::vector<std::string>> lines;
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    EXPECT_EQ(line, heading) << path;
    while (std::getline(file, line)) {
        lines.push_back(split(line, ","));
        if (lines.back().size() != split(heading, ",").size()) {
            ADD_FAILURE() << line;
        }
    }
    return lines;
}

// The two records of the custom format.
struct Records {
    Resolution resolution;
    CustomFormat timing;
};

// No field has the value that it gets: one left out shows.
constexpr Records kBefore = {
    {0xF1A1A1A1, 0xF2A2A2A2, 0xF3A3A3A3, 0xA4, {0xA5, 0xA6, 0xA7}},
    {0xB0, 0xB1, 0xFFB2, 0xFFB4, 0xFFB6, 0xFFB8, 0xFFBA, 0xFFBC, 0xFFBE, 0xFFC0, 0xC2, 0xC3}};

void fillBoth()
{
    *GetCustomResolution() = kBefore.resolution;
    *GetCustomFormat() = kBefore.timing;
}

testing::AssertionResult areBoth(const Records &expected)
{
    return areBytes(bytesOf(GetCustomResolution()) + bytesOf(GetCustomFormat()),
                    bytesOf(&expected.resolution) + bytesOf(&expected.timing));
}

// What a derivation makes of the records.
Records after(const Derived &derived)
{
    Records records = kBefore;
    if (derived.isStored) {
        const auto cut = [](uint32_t number) { return static_cast<uint16_t>(number); };
        records.resolution.width = static_cast<uint32_t>(derived.mode.width);
        records.resolution.height = static_cast<uint32_t>(derived.mode.height);
        records.resolution.frameRate = static_cast<uint32_t>(derived.mode.rate);
        records.timing = {kBefore.timing.reserved0,  static_cast<uint8_t>(derived.polarity),
                          cut(derived.hTotal),       cut(derived.vTotal),
                          cut(derived.hStart),       cut(derived.vStart),
                          cut(derived.hActive),      cut(derived.vActive),
                          cut(derived.hSync),        cut(derived.vSync),
                          kBefore.timing.colorSpace, kBefore.timing.reserved19};
    }
    return records;
}

std::string errorFor(const std::string &clock)
{
    return clock.empty() ? "" : "Error: Pixel Clock (MHz) = " + clock + ".000000\n";
}

int32_t make(const Mode &mode)
{
    return getCustomTimming(mode.width, mode.height, mode.rate);
}

// Checks and makes the mode.
void expectMade(const Derived &derived)
{
    SCOPED_TRACE(derived.mode);
    const Mode &mode = derived.mode;
    const Outcome made = derived.isStored ? Outcome(1, "") : Outcome(0, errorFor(derived.clock));
    fillBoth();
    EXPECT_EQ(outcomeOf(CheckCustomTimming, mode.width, mode.height, mode.rate),
              Outcome(made.first, ""));
    EXPECT_TRUE(areBoth(kBefore));
    EXPECT_EQ(outcomeOf(make, mode), made);
    EXPECT_TRUE(areBoth(after(derived)));
}

// No case may change the rest of the user setting or save anything.
class CustomTiming : public testing::Test {
protected:
    CustomTiming()
    {
        SettingsDirectory().SetUp();
        malloc_saveView();
        fill(GetUserSetting(), setting_);
    }
    void TearDown() override
    {
        fillBoth();
        *GetCustomResolution() = {};
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), with(setting_, 3736, Bytes(16, '\0'))));
        EXPECT_TRUE(filesIn().empty());
    }

private:
    const Bytes setting_ = ownBytes(kUserSettingSize, 7);
};

// The grid ----------------------------------------------------------------------------------------

// The grid is worth its modes only if a slip in the precision of a step would show in it.
TEST_F(CustomTiming, EveryModeOfTheGridIsCheckedAndMadeAsDerived)
{
    const auto grid =
        linesOf(GRID_FILE, "width,height,rate,result,clock,h_total,v_total,h_start,v_start,h_sync,"
                           "v_sync,polarity,h_active,v_active,precision");
    ASSERT_GE(grid.size(), 24000u);
    std::map<std::string, size_t> modes;
    std::vector<Mode> wrong; // what fails while the console is captured would not be seen
    std::string expected;    // checking prints nothing
    const std::string printed = printedBy([&] {
        for (const std::vector<std::string> &cells : grid) {
            const Derived derived = derivedOf(cells, 3);
            const auto &[width, height, rate] = derived.mode;
            fillBoth();
            const int32_t checked = CheckCustomTimming(width, height, rate);
            const bool isUnchanged = areBoth(kBefore);
            if (checked != (derived.isStored ? 1 : 0) || make(derived.mode) != checked ||
                !isUnchanged || !areBoth(after(derived)) ||
                (!derived.clock.empty() &&
                 customPixelClock(width, height, rate) != std::stod(derived.clock))) {
                wrong.push_back(derived.mode);
            }
            expected += derived.isStored ? "" : errorFor(derived.clock);
            ++modes[derived.isStored ? "stored" : "refused"];
            // Double, or single, precision throughout would come to something else.
            const uint32_t precision = derived.isStored ? number(cells[14]) : 0;
            modes["lost in double"] += precision & 1;
            modes["lost in single"] += precision >> 1;
        }
    });
    EXPECT_TRUE(wrong.empty()) << testing::PrintToString(wrong);
    EXPECT_TRUE(areBytes(printed, expected));
    EXPECT_GT(modes["stored"], 10000u);
    EXPECT_GT(modes["refused"], 5000u);
    EXPECT_GE(modes["lost in double"], 500u);
    EXPECT_GE(modes["lost in single"], 300u);
}

// Examples ----------------------------------------------------------------------------------------

// clang-format off
const Derived kExamples[] = {
//    width height rate           totals            starts              syncs     active
    {{ 1920,  1080,   60}, true,  "", 2080,         1111, 112,           28, 32, 4, 0, 1920, 1080},
    {{ 1366,   768,   60}, true,  "", 1520,          790, 112,           19, 32, 4, 0, 1366,  768},
    {{ 3840,  2160,   60}, true,  "", 4000,         2222, 112,           59, 32, 4, 0, 3840, 2160},
    // The limit is 600 MHz, and the clock is cut to whole MHz: 600960000 and 601080000 a second.
    {{ 1840,  4870,   60}, true,  "", 2000,         5008, 112,          135, 32, 4, 0, 1840, 4870},
    {{ 1840,  4871,   60}, false, "601",  0, 0, 0, 0, 0, 0, 0, 0, 0},
    {{ 4096,  2160,   70}, false, "664",  0, 0, 0, 0, 0, 0, 0, 0, 0}, // 4256 x 2232 x 70
    {{ 3840,  2160,  300}, false, "2147", 0, 0, 0, 0, 0, 0, 0, 0, 0}, // which does not fit
    {{    0,  1080,   60}, false, "",     0, 0, 0, 0, 0, 0, 0, 0, 0},
    // Numbers wider than their field are cut: 65696 pixels, 65543 of them active.
    {{65543,     1,   60}, true,  "",  160,            2, 112,    65536 - 2, 32, 4, 0,    7,    1},
    // Above 2173 Hz the line period is negative: 400 us a frame are -0.125 us a line and
    // (460 - 0.125 - 1) / -0.125 = -3671 lines of blanking.
    {{  640,   480, 2500}, true,  "",  800, 65536 - 3191, 112, 65536 - 3674, 32, 4, 0,  640,  480},
};
// clang-format on

TEST_F(CustomTiming, TheseModesAreCheckedAndMade)
{
    for (const Derived &derived : kExamples) {
        expectMade(derived);
    }
}

TEST_F(CustomTiming, ARateIsConvertedToItself)
{
    for (const uint32_t rate : {30u, 0u, 60u, 65536u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_EQ(convertCustomF(rate), rate);
    }
}

// The public standard -----------------------------------------------------------------------------

// A mode with its public value, in front of this system's.
struct Compared : Derived {
    uint32_t cvtHActive, cvtHTotal, cvtHSync, cvtHBackPorch;
    uint32_t cvtVTotal, cvtVFrontPorch, cvtVSync, cvtVBackPorch, cvtPolarity;
    std::string cvtClock; // MHz, two decimals
    // Its lines of blanking; 459 / e and 460 / e, cut, where e is the line period in us.
    int64_t cvtBlanking, of459, of460;
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
        const auto n = [&](size_t i) { return number(cells[i]); };
        Compared mode{derivedOf(cells, 13),
                      n(3),
                      n(4),
                      n(5),
                      n(6),
                      n(7),
                      n(8),
                      n(9),
                      n(10),
                      n(11),
                      cells[12],
                      0,
                      0,
                      0};
        const auto &[width, height, rate] = mode.mode;
        const int64_t perFrame = 1000000 - 460 * int64_t{rate};
        mode.cvtBlanking = int64_t{mode.cvtVTotal} - height;
        mode.of459 = 459 * int64_t{rate} * height / perFrame;
        mode.of460 = 460 * int64_t{rate} * height / perFrame;
        // A line of 1 us or more: no two whole numbers fit in between.
        EXPECT_TRUE(mode.of460 - mode.of459 <= 1 || perFrame < int64_t{rate} * height);
        modes.push_back(mode);
    }
    EXPECT_GE(modes.size(), 40u);
    return modes;
}

// 4:3, 16:9, 16:10, 5:4 and 15:9; 10 for every other ratio.
uint32_t syncOfAspectRatio(const Mode &mode)
{
    const auto is = [&](int32_t width, int32_t height) {
        return mode.width * height == mode.height * width;
    };
    return is(4, 3) ? 4 : is(16, 9) ? 5 : is(16, 10) ? 6 : is(5, 4) || is(15, 9) ? 7 : 10;
}

TEST_F(CustomTiming, TheModesBesideTheStandardAreMadeAsTheirTableSays)
{
    for (const Compared &mode : readCompared()) {
        expectMade(mode);
        EXPECT_EQ(mode.isStored, number(mode.clock) <= 600) << mode.mode;
    }
}

// The standard has more lines: for the whole numbers above 459 / e and not above 460 / e, and up to
// its least blanking.
TEST_F(CustomTiming, TheStandardHasAnotherSyncAndPolarityAndMoreLinesForTwoCauses)
{
    std::map<std::string, std::set<int64_t>> seen;
    for (const Compared &mode : readCompared()) {
        SCOPED_TRACE(mode.mode);
        const auto width = static_cast<uint32_t>(mode.mode.width);
        EXPECT_EQ(mode.cvtHActive, width / 8 * 8);
        EXPECT_EQ(mode.cvtHTotal, mode.cvtHActive + 160);
        EXPECT_EQ(mode.cvtVSync, syncOfAspectRatio(mode.mode));
        EXPECT_EQ(mode.cvtPolarity, 2u);
        EXPECT_EQ(mode.cvtVFrontPorch, 3u);
        EXPECT_EQ(mode.cvtBlanking, std::max<int64_t>(mode.of460 + 1, 3 + mode.cvtVSync + 7));
        EXPECT_EQ(mode.cvtBlanking, mode.cvtVFrontPorch + mode.cvtVSync + mode.cvtVBackPorch);
        if (mode.isStored) {
            const int64_t more = mode.cvtBlanking - (mode.of459 + 1);
            EXPECT_EQ(mode.hTotal, mode.cvtHTotal);
            EXPECT_EQ(mode.hSync, mode.cvtHSync);
            EXPECT_EQ(mode.hStart, mode.cvtHSync + mode.cvtHBackPorch);
            EXPECT_EQ(mode.hActive, width); // uncut
            EXPECT_EQ(mode.vTotal + more, mode.cvtVTotal);
            EXPECT_EQ((mode.vStart + more) & 0xFFFF, mode.cvtVSync + mode.cvtVBackPorch);
            EXPECT_EQ(mode.vSync, 4u);
            EXPECT_EQ(mode.polarity, 0u);
        }
        seen["width cut"].insert(width % 8);
        seen["sync"].insert(mode.cvtVSync);
        seen["between"].insert(mode.of460 - mode.of459);
        seen["to the least"].insert(mode.cvtBlanking - (mode.of460 + 1));
    }
    EXPECT_EQ(seen["width cut"], (std::set<int64_t>{0, 5, 6, 7})); // 853, 1366, 1279
    EXPECT_EQ(seen["sync"], (std::set<int64_t>{4, 5, 6, 7, 10}));
    EXPECT_EQ(seen["between"], (std::set<int64_t>{0, 1, 2, 12}));
    EXPECT_EQ(seen["to the least"], (std::set<int64_t>{0, 2, 3, 4, 6, 13, 17, 19}));
}

// In hundredths of MHz. The public clock is cut to steps of 0.25 MHz.
TEST_F(CustomTiming, TheClockIsThatOfTheStandardCutToWholeMegahertzWhereTheLinesAreTheSame)
{
    std::vector<std::string> rounded; // up, by single precision, to a whole number
    for (const Compared &mode : readCompared()) {
        const auto pixels = [&](int64_t lines) { return mode.mode.rate * lines * mode.cvtHTotal; };
        const int64_t standard = std::lround(100 * std::stod(mode.cvtClock));
        const int64_t clock = 100 * int64_t{number(mode.clock)};
        EXPECT_EQ(standard, pixels(mode.cvtVTotal) / 250000 * 25) << mode.mode;
        EXPECT_TRUE(mode.isStored || standard > 60000) << mode.mode; // no public limit
        if (mode.isStored && clock != pixels(mode.vTotal) / 1000000 * 100) {
            rounded.push_back(testing::PrintToString(mode.mode) + ' ' + mode.cvtClock);
            EXPECT_EQ(clock, 14800); // 29 x 1939 x 2632 is 147999992
        } else {
            EXPECT_LE(clock, standard) << mode.mode;
            EXPECT_TRUE(mode.vTotal != mode.cvtVTotal || clock == standard / 100 * 100);
        }
    }
    EXPECT_EQ(rounded, std::vector<std::string>{"2472x1913@29 147.75"});
}

// The document ------------------------------------------------------------------------------------

constexpr char kChapter[] = "How the custom timing is made";

std::string sideBySide(uint32_t ofStandard, const Derived &derived, uint32_t Derived::*field)
{
    return std::to_string(ofStandard) + " / " +
           (derived.isStored ? std::to_string(derived.*field) : "none");
}

TEST_F(CustomTiming, TheWorkedModesOfTheDocumentAreThoseOfTheTable)
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
        const int64_t between = mode.of460 - mode.of459;
        const int64_t least = 3 + mode.cvtVSync + 7;
        const std::string why = mode.cvtBlanking > mode.of460 + 1
                                    ? "at least " + std::to_string(least) + " lines"
                                : between == 0 ? "the same"
                                : between == 1 ? "a whole number between"
                                               : "two whole numbers between";
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

// clang-format off
const struct {
    const char *field, *value; // in the words of the document
    uint32_t (*get)();
    uint32_t expected; // for 1366x768@61
} kStoredFields[] = {
    {"timing syncPolarity",  "0: both positive",                      getCustomhvSyncPolarity, 0},
    {"timing hTotal",        "H total",                               getCustomhTotal,      1520},
    // 15933.44 / 768 = 20.75 us: 479 / 20.75 = 23 lines.
    {"timing vTotal",        "V total",                               getCustomvTotal,       791},
    {"timing hStart",        "112: the sync and half of the blanking", getCustomhStart,      112},
    {"timing vStart",        "blanking lines − 3",                    getCustomvStart,        20},
    {"timing hActive",       "width, not cut to a multiple of 8",     getCustomhActive,     1366},
    {"timing vActive",       "height",                                getCustomvActive,      768},
    {"timing hSyncWidth",    "32",                                    getCustomhSyncWidth,    32},
    {"timing vSyncWidth",    "4",                                     getCustomvSyncWidth,     4},
    {"resolution width",     "width",                                 getCustomH,           1366},
    {"resolution height",    "height",                                getCustomV,            768},
    {"resolution frameRate", "rate",                                  getCustomF,             61},
};
// clang-format on

TEST_F(CustomTiming, WhatIsStoredIsWhatTheDocumentLists)
{
    fillBoth();
    ASSERT_EQ(make({1366, 768, 61}), 1);
    std::vector<std::vector<std::string>> expected;
    for (const auto &row : kStoredFields) {
        EXPECT_EQ(row.get(), row.expected) << row.field;
        expected.push_back({row.field, row.value});
    }
    EXPECT_EQ(tableOf(kChapter, "field | value"), expected) << FORMATS_DOCUMENT;
}

// clang-format off
const struct {
    const char *sentence;
    Mode mode;
    uint32_t vStart; // 0: refused
} kSentences[] = {
    {"`Error: Pixel Clock (MHz) = 664.000000` for 4096x2160@70. ",         {4096, 2160,  70}, 0},
    {" MHz, so everything above is refused too. ",                         {INT32_MAX, 1, 1}, 0},
    {" 640x480@2500 is stored, with a V total of −3191, which the field shows as 62345. ",
                                                             {640, 480, 2500}, 65536 - 3674},
    {"2472x1913@29 has 148 MHz, and the public clock is 147.75.",          {2472, 1913,  29}, 23},
    {"The limit is 600 MHz, so 600.9 passes.",                             {1840, 4870,  60}, 135},
    {"A small height or a low rate gives fewer than 3 blanking lines. ",  {1920, 1080,   4}, 65535},
    // The lines are 27540 / 972400 of the height, cut, and one.
    {" V start is then below 0, and its field shows 65534 or 65535. ",    {1920,   35,  60}, 65534},
    {" V start is then below 0, and its field shows 65534 or 65535. ",    {1920,   70,  60}, 65535},
    {"fewer than 3 blanking lines",                                        {1920,  106,  60}, 1},
};
// clang-format on

TEST_F(CustomTiming, TheSentencesOfTheDocumentHold)
{
    for (const auto &row : kSentences) {
        EXPECT_TRUE(documentSays(row.sentence)) << row.sentence;
        fillBoth();
        EXPECT_EQ(make(row.mode), row.vStart != 0 ? 1 : 0) << row.mode;
        if (row.vStart != 0) {
            EXPECT_EQ(getCustomvStart(), row.vStart) << row.mode;
        }
    }
}

} // namespace
