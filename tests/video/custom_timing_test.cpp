// The custom timing: every mode of a grid against its exact derivation
// (tests/data/custom-timing/derive.py), and beside the public standard
// (tests/data/cvt_reduced_blanking.csv), with the cause of each difference.

#include "video/custom_timing.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <utility>
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

constexpr size_t kResolution = 3736; // in the user setting record

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
    std::string clock; // MHz; empty where a number below 1 is refused; not stored
    // If it is stored.
    uint32_t hTotal, vTotal, hStart, vStart, hSync, vSync, polarity, hActive, vActive;
};

int32_t signedNumber(const std::string &text)
{
    return static_cast<int32_t>(std::strtol(text.c_str(), nullptr, 10));
}

// The mode of a line, and the cells from `from` on, in the order of the struct.
Derived derivedOf(const std::vector<std::string> &cells, size_t from)
{
    Derived derived{};
    derived.mode = {signedNumber(cells[0]), signedNumber(cells[1]), signedNumber(cells[2])};
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
        const uint32_t precision = number(cells[14]);
        grid.push_back({derivedOf(cells, 3), (precision & 1) != 0, (precision & 2) != 0});
    }
    return grid;
}

// The user setting record, and the timing after it.
Bytes recordsNow()
{
    return bytesOf(GetUserSetting()) + bytesOf(GetCustomFormat());
}

// No field of what is there before has the value that it gets: one left out shows.
const Bytes &fillBoth()
{
    static const Bytes timing(sizeof(CustomFormat), '\xA5');
    static const Bytes records = ownBytes(kUserSettingSize, 7) + timing;
    fill(GetUserSetting(), records.substr(0, kUserSettingSize));
    fill(GetCustomFormat(), timing);
    return records;
}

// What a derivation makes of the records.
Bytes after(const Bytes &before, const Derived &derived)
{
    Image image(before);
    if (derived.isStored) {
        image
            .u32(kResolution, {static_cast<uint32_t>(derived.mode.width),
                               static_cast<uint32_t>(derived.mode.height),
                               static_cast<uint32_t>(derived.mode.rate)})
            .u8(kUserSettingSize + 1, {derived.polarity})
            .u16(kUserSettingSize + 2,
                 {derived.hTotal, derived.vTotal, derived.hStart, derived.vStart, derived.hActive,
                  derived.vActive, derived.hSync, derived.vSync});
    }
    return image.bytes;
}

testing::AssertionResult areRecords(const Bytes &expected)
{
    return areBytes(recordsNow(), expected);
}

std::string errorFor(const std::string &clock)
{
    return "Error: Pixel Clock (MHz) = " + clock + ".000000\n";
}

// The result of an operation and what it printed.
using Answer = std::pair<int32_t, std::string>;

Answer answerOf(int32_t (*operation)(int32_t, int32_t, int32_t), const Mode &mode)
{
    Answer answer;
    answer.second =
        printedBy([&] { answer.first = operation(mode.width, mode.height, mode.rate); });
    return answer;
}

Answer make(const Mode &mode)
{
    return answerOf(getCustomTimming, mode);
}

Answer check(const Mode &mode)
{
    return answerOf(CheckCustomTimming, mode);
}

const Answer kStored{1, ""};
const Answer kSilent{0, ""};

// The grid ----------------------------------------------------------------------------------------

TEST(CustomTiming, EveryModeOfTheGridIsCheckedAndMadeAsDerived)
{
    const std::vector<GridRow> grid = readGrid();
    ASSERT_GE(grid.size(), 24000u);
    std::string expected;     // checking prints nothing
    std::ostringstream wrong; // what fails while the console is captured would not be seen
    const std::string printed = printedBy([&] {
        for (const GridRow &row : grid) {
            const auto &[width, height, rate] = row.mode;
            const Bytes &before = fillBoth();
            const int32_t checked = CheckCustomTimming(width, height, rate);
            const testing::AssertionResult unchanged = areRecords(before);
            const int32_t made = getCustomTimming(width, height, rate);
            const testing::AssertionResult same = areRecords(after(before, row));
            expected += row.isStored || row.clock.empty() ? "" : errorFor(row.clock);
            const int32_t result = row.isStored ? 1 : 0;
            if (checked != result || made != result || !unchanged || !same) {
                wrong << row.mode << " gave " << checked << " and " << made << ' '
                      << unchanged.message() << same.message() << '\n';
            }
        }
    });
    EXPECT_EQ(wrong.str().substr(0, 1000), "");
    EXPECT_TRUE(areBytes(printed, expected));
}

// The grid is worth its modes only if a slip in the precision of a step would show in it.
TEST(CustomTiming, ThePrecisionOfTheStepsDecidesHundredsOfModesOfTheGrid)
{
    std::map<std::string, size_t> modes;
    for (const GridRow &row : readGrid()) {
        ++modes[row.isStored ? "stored" : "refused"];
        if (row.isStored) { // where it can show
            modes["lost in double"] += row.isLostInDouble ? 1 : 0;
            modes["lost in single"] += row.isLostInSingle ? 1 : 0;
        }
    }
    EXPECT_GT(modes["stored"], 10000u);
    EXPECT_GT(modes["refused"], 5000u);
    EXPECT_GE(modes["lost in double"], 500u);
    EXPECT_GE(modes["lost in single"], 300u);
}

// Examples ----------------------------------------------------------------------------------------

// clang-format off
const Derived kMade[] = {
//    width height rate          totals              starts              syncs     active
    {{ 1920,  1080,   60}, true, "", 2080,          1111, 112,            28, 32, 4, 0, 1920, 1080},
    {{ 1366,   768,   60}, true, "", 1520,           790, 112,            19, 32, 4, 0, 1366,  768},
    {{ 1367,   768,   60}, true, "", 1520,           790, 112,            19, 32, 4, 0, 1367,  768},
    {{ 1368,   768,   60}, true, "", 1528,           790, 112,            19, 32, 4, 0, 1368,  768},
    {{ 3840,  2160,   60}, true, "", 4000,          2222, 112,            59, 32, 4, 0, 3840, 2160},
    // The limit is 600 MHz, and the clock is cut to whole MHz: 600000000 and 600960000 a second.
    {{ 1840,  4862,   60}, true, "", 2000,          5000, 112,           135, 32, 4, 0, 1840, 4862},
    {{ 1840,  4870,   60}, true, "", 2000,          5008, 112,           135, 32, 4, 0, 1840, 4870},
    // The smallest mode: 999999 / 999540 lines of blanking.
    {{    1,     1,    1}, true, "",  160,             2, 112,     65536 - 2, 32, 4, 0,    1,    1},
    // Numbers wider than their field are cut: 65696 pixels, 65537 and 65568 lines.
    {{65543,     1,   60}, true, "",  160,             2, 112,     65536 - 2, 32, 4, 0,    7,    1},
    {{    8, 65537,    1}, true, "",  168,            32, 112,            28, 32, 4, 0,    8,    1},
    // Above 2173 Hz the line period is negative: 400 us a frame are -0.125 us a line and
    // (460 - 0.125 - 1) / -0.125 = -3671 lines of blanking.
    {{  640,   480, 2500}, true, "",  800,  65536 - 3191, 112,  65536 - 3674, 32, 4, 0,  640,  480},
    // -60 us a line, (460 - 60 - 1) / -60 = -6 lines and one active.
    {{    8,     1, 2500}, true, "",  168,     65536 - 5, 112,     65536 - 9, 32, 4, 0,    8,    1},
    // -0.01840 us: 458.98160 / -0.01840 = -24945.
    {{    8,     1, 2174}, true, "",  168, 65536 - 24944, 112, 65536 - 24948, 32, 4, 0,    8,    1},
};

const struct {
    Mode mode;
    const char *clock;
} kRefused[] = {
    {{4096, 2160,   70}, "664"},  // 4256 x 2232 x 70 = 664957440
    {{1840, 4871,   60}, "601"},  // 601080000
    {{3840, 2160,  300}, "2147"}, // 4000 x 2506 x 300 = 3007200000, which does not fit
    {{8192, 4320,  240}, "2147"},
    {{kMax, kMax,   60}, "2147"}, // the totals do not fit either
    {{kMax, kMax, 2173}, "2147"},
    {{   1, kMax,    1}, "2147"},
    {{kMax,    1,    1}, "2147"},
    // 0.19328 us: 459.19328 / 0.19328 = 2375 lines and one active; 2376 x 168 x 2173 = 867401136.
    {{   8,    1, 2173}, "867"},
};
// clang-format on

TEST(CustomTiming, TheseModesAreMadeAndNothingElseOfTheRecordsChanges)
{
    for (const Derived &derived : kMade) {
        const Bytes &before = fillBoth();
        EXPECT_EQ(check(derived.mode), kStored) << derived.mode;
        EXPECT_TRUE(areRecords(before)) << derived.mode;
        EXPECT_EQ(make(derived.mode), kStored) << derived.mode;
        EXPECT_TRUE(areRecords(after(before, derived))) << derived.mode;
    }
    EXPECT_TRUE(filesIn().empty()); // nothing is saved
}

TEST(CustomTiming, TheseModesAreRefusedWithTheirClockAndCheckedWithoutAWord)
{
    for (const auto &row : kRefused) {
        const Bytes &before = fillBoth();
        EXPECT_EQ(make(row.mode), (Answer{0, errorFor(row.clock)})) << row.mode;
        EXPECT_EQ(check(row.mode), kSilent) << row.mode;
        EXPECT_TRUE(areRecords(before)) << row.mode;
    }
    EXPECT_TRUE(filesIn().empty());
}

TEST(CustomTiming, ZeroAndNegativeNumbersAreRefusedWithoutAWord)
{
    const Bytes &before = fillBoth();
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

TEST(CustomTiming, ARateIsConvertedToItself)
{
    for (const uint32_t rate : {30u, 0u, 1u, 24u, 59u, 60u, 65536u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_EQ(convertCustomF(rate), rate);
    }
}

TEST(CustomTiming, TheFormatTableAnswersForFormat124WithTheTimingMadeLast)
{
    EXPECT_EQ(make({1366, 768, 60}), kStored);
    EXPECT_EQ(make({4096, 2160, 70}).first, 0);
    GetUserSetting()->extInputFormat = 124;
    for (const uint32_t id : {124u, 125u}) {
        EXPECT_EQ(GetResByVideoFormat(id), 1366u + 768 * 65536);
        EXPECT_EQ(GetHDEByVideoFormat(id), 1366u);
        EXPECT_EQ(GetVDEByVideoFormat(id), 768u);
        EXPECT_EQ(GetHTotalByVideoFormat(id), 1520u);
        EXPECT_EQ(GetVTotalByVideoFormat(id), 790u);
        EXPECT_EQ(GetVFreqByVideoFormat(id), 60u);
        EXPECT_EQ(GetDlckByVideoFormat(id), 72048000u); // uncut
    }
    EXPECT_STREQ(GetStrByVideoFormat(124), "C:1366x768@60");
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
        Compared compared{derivedOf(cells, 13), 0, 0, 0, 0, 0, 0, 0, 0, 0, cells[12]};
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

// As their table says, and derived like the grid: no number was read off the program.
TEST(CustomTiming, TheModesBesideTheStandardAreMadeAsTheirTableSays)
{
    std::map<Mode, GridRow> grid;
    for (const GridRow &row : readGrid()) {
        grid[row.mode] = row;
    }
    const std::vector<Compared> modes = readCompared();
    EXPECT_GE(modes.size(), 40u);
    for (const Compared &mode : modes) {
        const Bytes &before = fillBoth();
        const Answer expected = mode.isStored ? kStored : Answer{0, errorFor(mode.clock)};
        EXPECT_EQ(make(mode.mode), expected) << mode.mode;
        EXPECT_TRUE(areRecords(after(before, mode))) << mode.mode;
        ASSERT_TRUE(grid.contains(mode.mode)) << mode.mode;
        EXPECT_TRUE(areRecords(after(before, grid[mode.mode]))) << mode.mode;
        EXPECT_EQ(mode.clock, grid[mode.mode].clock) << mode.mode;
        EXPECT_EQ(mode.isStored, number(mode.clock) <= 600) << mode.mode; // no public limit
        EXPECT_TRUE(mode.isStored || hundredths(mode.cvtClock) > 60000) << mode.mode;
    }
}

TEST(CustomTiming, ALineIsAsTheStandardHasItButShowsTheWidthUncut)
{
    int32_t uncut = 0;
    for (const Compared &mode : readCompared()) {
        const auto width = static_cast<uint32_t>(mode.mode.width);
        EXPECT_EQ(mode.cvtHActive, width / 8 * 8) << mode.mode;
        EXPECT_EQ(mode.cvtHTotal, mode.cvtHActive + 160) << mode.mode;
        if (mode.isStored) {
            EXPECT_EQ(mode.hTotal, mode.cvtHTotal) << mode.mode;
            EXPECT_EQ(mode.hSync, mode.cvtHSync) << mode.mode;
            EXPECT_EQ(mode.hStart, mode.cvtHSync + mode.cvtHBackPorch) << mode.mode;
            EXPECT_EQ(mode.hActive, width) << mode.mode;
            uncut += width % 8 != 0 ? 1 : 0;
        }
    }
    EXPECT_EQ(uncut, 4); // 853, 1279 and twice 1366
}

// The standard has more lines: for the whole numbers above 459 / e and not above 460 / e, and up to
// its least blanking.
TEST(CustomTiming, TheStandardHasAnotherSyncAndMoreLinesForTwoCauses)
{
    std::map<std::string, std::set<int64_t>> seen;
    for (const Compared &mode : readCompared()) {
        const auto &[width, height, rate] = mode.mode;
        EXPECT_EQ(mode.cvtVSync, syncOfAspectRatio(mode.mode)) << mode.mode;
        EXPECT_EQ(mode.cvtPolarity, 2u) << mode.mode;
        EXPECT_EQ(mode.cvtVFrontPorch, 3u) << mode.mode;
        const int64_t perFrame = 1000000 - 460 * int64_t{rate};
        const int64_t of459 = 459 * int64_t{rate} * height / perFrame;
        const int64_t of460 = 460 * int64_t{rate} * height / perFrame;
        const int64_t publicBlanking = int64_t{mode.cvtVTotal} - height;
        EXPECT_EQ(publicBlanking, std::max<int64_t>(of460 + 1, 3 + mode.cvtVSync + 7)) << mode.mode;
        EXPECT_EQ(publicBlanking, mode.cvtVFrontPorch + mode.cvtVSync + mode.cvtVBackPorch);
        // A line of 1 us or more: no two whole numbers fit in between.
        EXPECT_TRUE(of460 - of459 <= 1 || perFrame < int64_t{rate} * height) << mode.mode;
        if (mode.isStored) {
            const int64_t more = publicBlanking - (of459 + 1);
            EXPECT_EQ(mode.vTotal + more, mode.cvtVTotal) << mode.mode;
            EXPECT_EQ((mode.vStart + more) & 0xFFFF, mode.cvtVSync + mode.cvtVBackPorch)
                << mode.mode;
            EXPECT_EQ(mode.vSync, 4u) << mode.mode;
            EXPECT_EQ(mode.polarity, 0u) << mode.mode;
        }
        seen["sync"].insert(mode.cvtVSync);
        seen["between"].insert(of460 - of459);
        seen["to the least"].insert(publicBlanking - (of460 + 1));
    }
    EXPECT_EQ(seen["sync"], (std::set<int64_t>{4, 5, 6, 7, 10}));
    EXPECT_EQ(seen["between"], (std::set<int64_t>{0, 1, 2, 12}));
    EXPECT_EQ(seen["to the least"], (std::set<int64_t>{0, 2, 3, 4, 6, 13, 17, 19}));
}

TEST(CustomTiming, TheClockIsThatOfTheStandardCutToWholeMegahertzWhereTheLinesAreTheSame)
{
    for (const Compared &mode : readCompared()) {
        const auto pixels = [&](int64_t lines) { return mode.mode.rate * lines * mode.cvtHTotal; };
        EXPECT_EQ(hundredths(mode.cvtClock), pixels(mode.cvtVTotal) / 250000 * 25) << mode.mode;
        const uint32_t clock = number(mode.clock);
        if (mode.mode == Mode{2472, 1913, 29}) {
            // 29 x 1939 x 2632 = 147999992, which single precision holds as 148000000.
            EXPECT_EQ(clock, 148u);
            EXPECT_EQ(mode.cvtClock, "147.75");
            EXPECT_EQ(mode.vTotal, mode.cvtVTotal);
            continue;
        }
        EXPECT_LE(100 * clock, hundredths(mode.cvtClock)) << mode.mode;
        if (mode.isStored) {
            EXPECT_EQ(clock, pixels(mode.vTotal) / 1000000) << mode.mode;
        }
        if (mode.isStored && mode.vTotal == mode.cvtVTotal) {
            EXPECT_EQ(clock, hundredths(mode.cvtClock) / 100) << mode.mode;
        }
    }
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

TEST(CustomTiming, WhatIsStoredIsWhatTheDocumentLists)
{
    fillBoth();
    ASSERT_EQ(make({1366, 768, 61}), kStored);
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
    {" MHz, so everything above is refused too. ",                         {kMax,    1,   1}, 0},
    {" 640x480@2500 is stored, with a V total of −3191, which the field shows as 62345. ",
                                                             {640, 480, 2500}, 65536 - 3674},
    {"2472x1913@29 has 148 MHz, and the public clock is 147.75.",          {2472, 1913,  29}, 23},
    {"The limit is 600 MHz, so 600.9 passes.",                             {1840, 4870,  60}, 135},
    {"A small height or a low rate gives fewer than 3 blanking lines. ",  {1920, 1080,   4}, 65535},
    // The lines are 27540 / 972400 of the height, cut, and one.
    {" V start is then below 0, and its field shows 65534 or 65535. ",    {1920,   35,  60}, 65534},
    {" V start is then below 0, and its field shows 65534 or 65535. ",    {1920,   36,  60}, 65535},
    {" V start is then below 0, and its field shows 65534 or 65535. ",    {1920,   70,  60}, 65535},
    {"fewer than 3 blanking lines",                                        {1920,  106,  60}, 1},
};
// clang-format on

TEST(CustomTiming, TheSentencesOfTheDocumentHold)
{
    for (const auto &row : kSentences) {
        EXPECT_TRUE(documentSays(row.sentence)) << row.sentence;
        fillBoth();
        EXPECT_EQ(make(row.mode).first, row.vStart != 0 ? 1 : 0) << row.mode;
        if (row.vStart != 0) {
            EXPECT_EQ(getCustomvStart(), row.vStart) << row.mode;
        }
    }
}

} // namespace
