// Numbers to format ids: every number of every format and the numbers around it, against a search
// of the exchanged table (tests/data/video_formats.csv) by sets, and docs/video-formats.md.

#include "video/format_detection.h"

#include <array>
#include <bitset>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <map>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/format_files.h"
#include "video/CustomFormat.h"
#include "video/format_id.h"

namespace {

// What is measured, in the order in which it is passed.
enum Number { kWidth, kHeight, kHTotal, kVTotal, kVFreq, kNumbers };

struct Measured : std::array<int32_t, kNumbers> {};

std::ostream &operator<<(std::ostream &out, const Measured &measured)
{
    return out << measured[kWidth] << 'x' << measured[kHeight] << ", totals " << measured[kHTotal]
               << 'x' << measured[kVTotal] << ", " << measured[kVFreq] << " Hz";
}

uint32_t getVideoFormat(const Measured &m)
{
    return GetVideoFormat(m[kWidth], m[kHeight], m[kHTotal], m[kVTotal], m[kVFreq]);
}

uint32_t interlaceFormat(const Measured &m)
{
    return isInterlaceFormat(m[kWidth], m[kHeight], m[kHTotal], m[kVTotal], m[kVFreq]);
}

Measured rowOf(uint32_t id)
{
    const Row &row = exchanged.at(id);
    return {static_cast<int32_t>(row.width), static_cast<int32_t>(row.height),
            static_cast<int32_t>(row.hTotal), static_cast<int32_t>(row.vTotal),
            static_cast<int32_t>(row.vFreq)};
}

// Another number in one place.
Measured with(Measured measured, size_t place, int64_t value)
{
    measured.at(place) = static_cast<int32_t>(value);
    return measured;
}

Measured moved(const Measured &measured, size_t place, int32_t by)
{
    return with(measured, place, measured.at(place) + by);
}

// What is expected --------------------------------------------------------------------------------

constexpr int32_t kTolerances[kNumbers] = {1, 1, 4, 4, 4};

// All that is near to some numbers, one by one.
constexpr uint32_t kNearNumbers = 3 * 3 * 9 * 9 * 9;

Measured nearNumbers(Measured middle, uint32_t which)
{
    for (size_t place = 0; place < kNumbers; ++place) {
        const auto count = static_cast<uint32_t>(2 * kTolerances[place] + 1);
        middle.at(place) += static_cast<int32_t>(which % count) - kTolerances[place];
        which /= count;
    }
    return middle;
}

// The formats of a number are kept by number: those that every number has in common are near.
class Formats {
public:
    void add(uint32_t id)
    {
        const Measured row = rowOf(id);
        for (size_t place = 0; place < kNumbers; ++place) {
            for (int32_t by = -kTolerances[place]; by <= kTolerances[place]; ++by) {
                near_.at(place)[int64_t{row.at(place)} + by].set(id);
            }
        }
        sizes_.insert({{row[kWidth], row[kHeight]}, id}); // keeps the first
    }
    // The first of them, 126 if there is none.
    uint32_t near(const Measured &measured) const
    {
        std::bitset<124> common;
        common.set();
        for (size_t place = 0; place < kNumbers; ++place) {
            const auto found = near_.at(place).find(measured.at(place));
            if (found == near_.at(place).end()) {
                return 126;
            }
            common &= found->second;
        }
        for (uint32_t id = 0; id < common.size(); ++id) {
            if (common[id]) {
                return id;
            }
        }
        return 126;
    }
    uint32_t ofSize(int64_t width, int64_t height) const
    {
        const auto found = sizes_.find({width, height});
        return found != sizes_.end() ? found->second : 126;
    }

private:
    std::array<std::map<int64_t, std::bitset<124>>, kNumbers> near_;
    std::map<std::pair<int64_t, int64_t>, uint32_t> sizes_;
};

Formats formats; // of the exchanged table; filled for every case

// The lowest and the highest of each number of a field.
struct Field {
    uint32_t id;
    int64_t widths[2], heights[2], hTotals[2], vTotals[2], vFreqs[2];
    Measured middle;
};
const Field kFields[] = {
    {38, {1919, 1921}, {539, 541}, {2196, 2204}, {558, 566}, {56, 64}, {1920, 540, 2200, 562, 60}},
    {63, {1919, 1921}, {539, 541}, {2196, 2204}, {558, 566}, {56, 64}, {1920, 540, 2200, 562, 60}},
    {39, {1919, 1921}, {539, 541}, {2636, 2644}, {558, 566}, {46, 54}, {1920, 540, 2640, 562, 50}},
    {36, {719, 721}, {239, 241}, {854, 862}, {259, 267}, {55, 63}, {720, 240, 858, 263, 59}},
    {37, {719, 721}, {287, 289}, {860, 868}, {309, 317}, {45, 53}, {720, 288, 864, 313, 49}},
    {71, {1439, 1441}, {239, 241}, {1712, 1720}, {259, 267}, {55, 63}, {1440, 240, 1716, 263, 59}},
    {72, {1439, 1441}, {287, 289}, {1724, 1732}, {309, 317}, {45, 53}, {1440, 288, 1728, 313, 49}},
};

uint32_t expectedOfField(const Measured &measured)
{
    for (const Field &field : kFields) {
        const int64_t(*const ranges[])[2] = {&field.widths, &field.heights, &field.hTotals,
                                             &field.vTotals, &field.vFreqs};
        size_t inside = 0;
        for (size_t place = 0; place < kNumbers; ++place) {
            inside += measured.at(place) >= (*ranges[place])[0] &&
                      measured.at(place) <= (*ranges[place])[1];
        }
        if (inside == kNumbers) {
            return field.id;
        }
    }
    return 126;
}

uint32_t expectedFormat(const Measured &measured)
{
    const uint32_t id = formats.near(measured);
    return id != 126 ? id : expectedOfField(measured);
}

// The id that is reported for the numbers of each format's row, ten ids a line. Where it is not the
// format's own, it is the first row of the exchanged table that differs by no more than 1 in width
// and height and 4 in totals and V freq, looked up in that table alone.
const uint32_t kReported[124] = {
    0,   1,   2,   2,   4,   5,   5,   7,   8,   8,   //   0: 3, 6, 9
    10,  10,  12,  13,  13,  13,  13,  17,  17,  19,  //  10: 11, 14 to 16, 18
    19,  19,  19,  23,  24,  25,  26,  27,  28,  29,  //  20: 20 to 22
    30,  31,  32,  33,  34,  35,  0,   1,   10,  12,  //  30: 36 to 39, of a whole frame
    40,  41,  42,  43,  44,  45,  46,  47,  48,  49,  //  40: all are their own
    50,  51,  52,  53,  54,  55,  56,  57,  58,  59,  //  50: all are their own
    60,  61,  29,  10,  64,  65,  66,  67,  68,  69,  //  60: 62, 63
    70,  71,  72,  73,  74,  75,  76,  76,  74,  79,  //  70: 77, 78
    80,  81,  82,  82,  80,  85,  85,  87,  87,  89,  //  80: 83, 84, 86, 88
    90,  91,  92,  93,  93,  95,  96,  96,  98,  92,  //  90: 94, 97, 99
    100, 101, 101, 101, 104, 104, 106, 100, 19,  19,  // 100: 102, 103, 105, 107, 108, 109
    17,  13,  13,  12,  10,  10,  116, 116, 118, 119, // 110: 110 to 115, 117
    119, 121, 122, 122,                               // 120: 120, 123
};

// Of those whose row is reported as another, those that other numbers lead to all the same.
const std::set<uint32_t> kReportedOtherwise = {36, 37, 38, 39, 103};

std::map<uint32_t, uint32_t> neverReported() // each with the id in its place
{
    std::map<uint32_t, uint32_t> never;
    for (uint32_t id = 0; id < 124; ++id) {
        if (kReported[id] != id && kReportedOtherwise.count(id) == 0) {
            never[id] = kReported[id];
        }
    }
    return never;
}

// Every case has the exchanged table at hand. But for those about it, no case has the settings in
// memory, so that a look at them would be the end of the program.
class FormatDetection : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(readExchanged()) << FORMATS_FILE;
        for (const Row &row : exchanged) {
            formats.add(row.id);
        }
    }

    // Both operations by numbers; the first difference ends the case.
    void compare(const Measured &measured)
    {
        ASSERT_EQ(getVideoFormat(measured), expectedFormat(measured)) << measured;
        ASSERT_EQ(interlaceFormat(measured), expectedOfField(measured)) << measured;
        comparisons_ += 2;
    }
    void compareSize(int32_t width, int32_t height)
    {
        ASSERT_EQ(GetFormatByHdeVde(width, height), formats.ofSize(width, height))
            << width << 'x' << height;
        ++comparisons_;
    }
    // The row of each format with two numbers up to 5 off, the one given and one behind it.
    void compareWithTwoOff(size_t first)
    {
        for (uint32_t id = 0; id < 124; ++id) {
            for (size_t second = first + 1; second < kNumbers; ++second) {
                ASSERT_NO_FATAL_FAILURE(compareWithTwoOff(rowOf(id), first, second));
            }
        }
    }
    void compareWithTwoOff(const Measured &middle, size_t first, size_t second)
    {
        for (int32_t by = -5; by <= 5; ++by) {
            for (int32_t by2 = -5; by2 <= 5; ++by2) {
                ASSERT_NO_FATAL_FAILURE(compare(moved(moved(middle, first, by), second, by2)));
            }
        }
    }
    // A format can be reported for numbers near to its own only: all of them lead to another one.
    void compareHidden(uint32_t firstId, uint32_t lastId)
    {
        for (const auto &[id, instead] : neverReported()) {
            if (id < firstId || id > lastId) {
                continue;
            }
            for (uint32_t i = 0; i < kNearNumbers; ++i) {
                const Measured measured = nearNumbers(rowOf(id), i);
                ASSERT_EQ(getVideoFormat(measured), instead) << id << ": " << measured;
                ++comparisons_;
            }
        }
    }
    // What was compared, so that no loop runs empty unseen.
    void expectComparisons(size_t expected)
    {
        EXPECT_EQ(comparisons_, expected);
        RecordProperty("comparisons", std::to_string(comparisons_));
        std::printf("%zu comparisons\n", comparisons_);
    }

    size_t comparisons_ = 0;
};

// The formats' rows -------------------------------------------------------------------------------

TEST_F(FormatDetection, EveryFormatsOwnNumbersAreReportedAsTheFirstFormatThatHasThem)
{
    for (uint32_t id = 0; id < 124; ++id) {
        EXPECT_EQ(getVideoFormat(rowOf(id)), kReported[id]) << id;
        EXPECT_EQ(expectedFormat(rowOf(id)), kReported[id]) << id; // the search agrees
        EXPECT_EQ(interlaceFormat(rowOf(id)), 126u) << id;         // a frame is no field
    }
}

TEST_F(FormatDetection, FormatsBelow90BehindALowerOneAreNeverReported)
{
    compareHidden(0, 89);
    expectComparisons(19u * 3 * 3 * 9 * 9 * 9);
}

TEST_F(FormatDetection, FormatsFrom90OnBehindALowerOneAreNeverReported)
{
    compareHidden(90, 123);
    expectComparisons(17u * 3 * 3 * 9 * 9 * 9);
}

TEST_F(FormatDetection, EveryOtherFormatIsReportedForSomeNumbers)
{
    std::set<uint32_t> reported;
    for (uint32_t id = 0; id < 124; ++id) {
        reported.insert(getVideoFormat(rowOf(id)));
    }
    for (const Field &field : kFields) {
        reported.insert(getVideoFormat(field.middle));
    }
    reported.insert(getVideoFormat(with(rowOf(103), kVFreq, 29)));
    const std::map<uint32_t, uint32_t> never = neverReported();
    for (uint32_t id = 0; id < 124; ++id) {
        EXPECT_EQ(reported.count(id), never.count(id) == 0 ? 1u : 0u) << id;
    }
}

// 24 Hz, of 101 and 102, is near up to 28 Hz.
TEST_F(FormatDetection, Format103IsReportedFor29HzOnly)
{
    for (int32_t vFreq = 20; vFreq <= 28; ++vFreq) {
        EXPECT_EQ(GetVideoFormat(1024, 2160, 1320, 2250, vFreq), 101) << vFreq;
    }
    EXPECT_EQ(GetVideoFormat(1024, 2160, 1320, 2250, 29), 103);
    EXPECT_EQ(GetVideoFormat(1024, 2160, 1320, 2250, 30), 126);
}

TEST_F(FormatDetection, FormatsAreTriedInTheOrderOfTheTable)
{
    // Between the rates of 73 (25 Hz) and 74 (30 Hz) the pixels in a line decide.
    EXPECT_EQ(GetVideoFormat(3840, 2160, 5280, 2250, 29), 73);
    EXPECT_EQ(GetVideoFormat(3840, 2160, 4400, 2250, 26), 74);
    // So they do between 93 and 95 (24 and 25 Hz); 101 and 103 have the same, and 101 is first.
    EXPECT_EQ(GetVideoFormat(960, 2160, 1320, 2250, 24), 95);
    EXPECT_EQ(GetVideoFormat(1024, 2160, 1320, 2250, 25), 101);
}

// Numbers around those of the rows ----------------------------------------------------------------

TEST_F(FormatDetection, OneNumberUpTo5OffIsTakenAsTheTableSays)
{
    for (uint32_t id = 0; id < 124; ++id) {
        for (size_t place = 0; place < kNumbers; ++place) {
            for (int32_t by = -5; by <= 5; ++by) {
                ASSERT_NO_FATAL_FAILURE(compare(moved(rowOf(id), place, by)));
            }
        }
    }
    expectComparisons(2u * 124 * 5 * 11);
}

// The ten pairs of numbers in three cases.
TEST_F(FormatDetection, AWidthAndAnotherNumberUpTo5OffAreTakenAsTheTableSays)
{
    ASSERT_NO_FATAL_FAILURE(compareWithTwoOff(kWidth));
    expectComparisons(2u * 124 * 4 * 121);
}

TEST_F(FormatDetection, AHeightAndATotalOrAFrequencyUpTo5OffAreTakenAsTheTableSays)
{
    ASSERT_NO_FATAL_FAILURE(compareWithTwoOff(kHeight));
    expectComparisons(2u * 124 * 3 * 121);
}

TEST_F(FormatDetection, TwoOfTotalsAndFrequencyUpTo5OffAreTakenAsTheTableSays)
{
    ASSERT_NO_FATAL_FAILURE(compareWithTwoOff(kHTotal));
    ASSERT_NO_FATAL_FAILURE(compareWithTwoOff(kVTotal));
    expectComparisons(2u * 124 * 3 * 121);
}

// The corners of what is near: tolerances do not add up.
TEST_F(FormatDetection, AllNumbersOffAsFarAsAllowedAreNear)
{
    for (uint32_t id = 0; id < 124; ++id) {
        for (uint32_t corner = 0; corner < 1u << kNumbers; ++corner) {
            Measured measured = rowOf(id);
            for (size_t place = 0; place < kNumbers; ++place) {
                measured.at(place) +=
                    (corner >> place & 1) != 0 ? kTolerances[place] : -kTolerances[place];
            }
            ASSERT_NO_FATAL_FAILURE(compare(measured));
            ASSERT_LE(getVideoFormat(measured), id) << measured;
        }
    }
    expectComparisons(2u * 124 * 32);
}

TEST_F(FormatDetection, FieldsWithOneOrTwoNumbersUpTo5OffAreTakenAsTheirTableSays)
{
    for (const Field &field : kFields) {
        for (size_t second = 1; second < kNumbers; ++second) {
            for (size_t first = 0; first < second; ++first) {
                ASSERT_NO_FATAL_FAILURE(compareWithTwoOff(field.middle, first, second));
            }
        }
    }
    expectComparisons(2u * 7 * 10 * 121);
}

// All five at once: inside, on the edge, just outside.
TEST_F(FormatDetection, FieldsWithAllNumbersOffAreTakenAsTheirTableSays)
{
    const int32_t offSize[] = {-2, -1, 0, 1, 2};
    const int32_t offTiming[] = {-5, -4, 0, 4, 5};
    for (const Field &field : kFields) {
        for (uint32_t i = 0; i < 5 * 5 * 5 * 5 * 5; ++i) {
            Measured measured = field.middle;
            uint32_t rest = i;
            for (size_t place = 0; place < kNumbers; ++place) {
                measured.at(place) += (place <= kHeight ? offSize : offTiming)[rest % 5];
                rest /= 5;
            }
            ASSERT_NO_FATAL_FAILURE(compare(measured));
        }
    }
    expectComparisons(2u * 7 * 3125);
}

struct Range {
    Measured middle;
    uint32_t id;
};

// Nothing else is near to these, so that what is just outside is undefined.
const Range kAlone[] = {{{1280, 720, 1650, 750, 60}, 2},
                        {{640, 480, 840, 500, 75}, 24},
                        {{2176, 544, 2336, 563, 60}, 56},
                        {{3840, 1080, 4092, 1125, 60}, 91},
                        {{2048, 1080, 2640, 1125, 50}, 121}};

TEST_F(FormatDetection, WidthAndHeightMayDifferBy1AndTheOthersBy4)
{
    for (const auto &[middle, id] : kAlone) {
        ASSERT_EQ(middle, rowOf(id));
        for (const size_t place : {kWidth, kHeight}) {
            EXPECT_EQ(getVideoFormat(moved(middle, place, -2)), 126u) << id << ' ' << place;
            EXPECT_EQ(getVideoFormat(moved(middle, place, -1)), id) << id << ' ' << place;
            EXPECT_EQ(getVideoFormat(moved(middle, place, 1)), id) << id << ' ' << place;
            EXPECT_EQ(getVideoFormat(moved(middle, place, 2)), 126u) << id << ' ' << place;
        }
        for (const size_t place : {kHTotal, kVTotal, kVFreq}) {
            EXPECT_EQ(getVideoFormat(moved(middle, place, -5)), 126u) << id << ' ' << place;
            EXPECT_EQ(getVideoFormat(moved(middle, place, -4)), id) << id << ' ' << place;
            EXPECT_EQ(getVideoFormat(moved(middle, place, 4)), id) << id << ' ' << place;
            EXPECT_EQ(getVideoFormat(moved(middle, place, 5)), 126u) << id << ' ' << place;
        }
    }
}

TEST_F(FormatDetection, TheNumbersOfAFieldMayDifferByThatToo)
{
    for (const Field &field : kFields) {
        const uint32_t id = field.id != 63 ? field.id : 38;
        for (size_t place = 0; place < kNumbers; ++place) {
            const int32_t in = place <= kHeight ? 1 : 4;
            EXPECT_EQ(interlaceFormat(moved(field.middle, place, -in - 1)), 126u) << id;
            EXPECT_EQ(interlaceFormat(moved(field.middle, place, -in)), id) << id;
            EXPECT_EQ(interlaceFormat(moved(field.middle, place, in)), id) << id;
            EXPECT_EQ(interlaceFormat(moved(field.middle, place, in + 1)), 126u) << id;
        }
    }
}

// Fields ------------------------------------------------------------------------------------------

TEST_F(FormatDetection, AFieldIsReportedByBothOperations)
{
    const std::pair<Measured, uint32_t> fields[] = {
        {{1920, 540, 2200, 562, 60}, 38}, {{1920, 540, 2640, 562, 50}, 39},
        {{720, 240, 858, 263, 59}, 36},   {{720, 288, 864, 313, 49}, 37},
        {{1440, 240, 1716, 263, 59}, 71}, {{1440, 288, 1728, 313, 49}, 72}};
    for (const auto &[measured, id] : fields) {
        EXPECT_EQ(interlaceFormat(measured), id);
        EXPECT_EQ(getVideoFormat(measured), id);
        EXPECT_EQ(IsInterlaceFormat(id), 1);
    }
}

// Every number that is near to the field of 63 or to its row.
TEST_F(FormatDetection, Format63IsNeverDetected)
{
    const std::pair<Measured, uint32_t> places[] = {{{1920, 540, 2200, 562, 60}, 38},
                                                    {{1920, 1080, 2200, 1125, 60}, 10}};
    for (const auto &[middle, instead] : places) {
        for (uint32_t i = 0; i < kNearNumbers; ++i) {
            const Measured measured = nearNumbers(middle, i);
            ASSERT_EQ(getVideoFormat(measured), instead) << measured;
            ASSERT_EQ(interlaceFormat(measured), instead == 38 ? 38u : 126u) << measured;
        }
    }
}

TEST_F(FormatDetection, AFieldIsLookedForAmongFieldsOnlyAndAFrameAmongFramesFirst)
{
    EXPECT_EQ(isInterlaceFormat(1920, 1080, 2200, 1125, 60), 126); // the frame of 38
    EXPECT_EQ(GetVideoFormat(1920, 1080, 2200, 1125, 60), 10);
    EXPECT_EQ(isInterlaceFormat(1440, 480, 1716, 525, 60), 126); // the frame of 71
    EXPECT_EQ(GetVideoFormat(1440, 480, 1716, 525, 60), 71);
    EXPECT_EQ(isInterlaceFormat(1440, 576, 1728, 625, 50), 126);
    EXPECT_EQ(GetVideoFormat(1440, 576, 1728, 625, 50), 72);
    EXPECT_EQ(isInterlaceFormat(1280, 720, 1650, 750, 60), 126);
}

// Sizes -------------------------------------------------------------------------------------------

TEST_F(FormatDetection, EverySizeOfTheTableLeadsToTheFirstFormatThatHasIt)
{
    for (const Row &row : exchanged) {
        ASSERT_NO_FATAL_FAILURE(
            compareSize(static_cast<int32_t>(row.width), static_cast<int32_t>(row.height)));
    }
    expectComparisons(124);
}

TEST_F(FormatDetection, EveryWidthWithEveryHeightAndOneOffLeadsToItsFormatOrToNone)
{
    std::set<int32_t> widths;
    std::set<int32_t> heights;
    for (const Row &row : exchanged) {
        widths.insert(static_cast<int32_t>(row.width));
        heights.insert(static_cast<int32_t>(row.height));
    }
    EXPECT_EQ(widths.size(), 23u);
    EXPECT_EQ(heights.size(), 25u);
    for (const int32_t width : widths) {
        for (const int32_t height : heights) {
            for (const int32_t byWidth : {-1, 0, 1}) {
                for (const int32_t byHeight : {-1, 0, 1}) {
                    ASSERT_NO_FATAL_FAILURE(compareSize(width + byWidth, height + byHeight));
                    ASSERT_NO_FATAL_FAILURE(compareSize(height + byHeight, width + byWidth));
                }
            }
        }
    }
    expectComparisons(2 * 9 * widths.size() * heights.size());
}

// Every size that formats share, and the first of them.
TEST_F(FormatDetection, SizesThatSeveralFormatsHaveLeadToTheseIds)
{
    const std::tuple<int32_t, int32_t, uint8_t> sizes[] = {
        {720, 480, 0},    {720, 576, 1},     {1280, 720, 2},   {1920, 1080, 10}, {640, 480, 23},
        {800, 600, 26},   {1024, 768, 29},   {1280, 1024, 32}, {1600, 1200, 35}, {1280, 960, 42},
        {1400, 1050, 46}, {1440, 900, 47},   {1680, 1050, 49}, {3840, 2160, 73}, {4096, 2160, 79},
        {960, 2160, 92},  {1024, 2160, 100}, {2048, 1080, 116}};
    for (const auto &[width, height, id] : sizes) {
        EXPECT_EQ(GetFormatByHdeVde(width, height), id) << width << 'x' << height;
    }
}

TEST_F(FormatDetection, TheSizeThatNoFormatHasIsUndefined)
{
    EXPECT_EQ(GetFormatByHdeVde(1440, 864), 126);
    EXPECT_EQ(GetFormatByHdeVde(8192, 1080), 126);
    EXPECT_EQ(GetFormatByHdeVde(1080, 1080), 126);
    EXPECT_EQ(GetFormatByHdeVde(0, 0), 126);
    EXPECT_EQ(GetFormatByHdeVde(1920, 540), 126); // a field has no size of its own
}

// Any number --------------------------------------------------------------------------------------

// Zero, the ends of the range, and what a cut to 8 or 16 bits or a lost sign would hide.
std::vector<int32_t> insteadOf(int32_t value)
{
    return {INT32_MIN,
            INT32_MIN + 1,
            INT32_MIN + 4,
            INT32_MIN + 5,
            INT32_MIN + value,
            -65536,
            -1,
            0,
            1,
            INT32_MAX - 5,
            INT32_MAX - 4,
            INT32_MAX - 1,
            INT32_MAX,
            INT32_MAX - value,
            -value,
            value + 256,
            value + 65536,
            value - 65536,
            value + 0x01000000,
            value + 5,
            value - 5};
}

TEST_F(FormatDetection, ANumberFarFromAllIsNearToNone)
{
    for (uint32_t id = 0; id < 124; ++id) {
        const Measured row = rowOf(id);
        for (size_t place = 0; place < kNumbers; ++place) {
            for (const int32_t value : insteadOf(row.at(place))) {
                ASSERT_NO_FATAL_FAILURE(compare(with(row, place, value)));
            }
            for (const int32_t value : {INT32_MIN, -row.at(place), INT32_MAX}) {
                ASSERT_EQ(getVideoFormat(with(row, place, value)), 126u) << id << ' ' << value;
            }
        }
        for (const int32_t value : insteadOf(row[kWidth])) {
            ASSERT_NO_FATAL_FAILURE(compareSize(value, row[kHeight]));
        }
        for (const int32_t value : insteadOf(row[kHeight])) {
            ASSERT_NO_FATAL_FAILURE(compareSize(row[kWidth], value));
        }
    }
    expectComparisons(124u * 21 * (2 * 5 + 2));
}

TEST_F(FormatDetection, AFieldsNumberFarFromAllIsNearToNone)
{
    for (const Field &field : kFields) {
        for (size_t place = 0; place < kNumbers; ++place) {
            for (const int32_t value : insteadOf(field.middle.at(place))) {
                ASSERT_NO_FATAL_FAILURE(compare(with(field.middle, place, value)));
            }
            for (const int32_t value : {INT32_MIN, -field.middle.at(place), INT32_MAX}) {
                ASSERT_EQ(interlaceFormat(with(field.middle, place, value)), 126u) << value;
            }
        }
    }
    expectComparisons(2u * 7 * 5 * 21);
}

TEST_F(FormatDetection, TheEndsOfTheRangeTogetherAreUndefined)
{
    const int32_t ends[] = {INT32_MIN, -1, 0, INT32_MAX};
    for (uint32_t i = 0; i < 4 * 4 * 4 * 4 * 4; ++i) {
        Measured measured{};
        uint32_t rest = i;
        for (int32_t &value : measured) {
            value = ends[rest % 4];
            rest /= 4;
        }
        EXPECT_EQ(getVideoFormat(measured), 126u) << measured;
        EXPECT_EQ(interlaceFormat(measured), 126u) << measured;
    }
    for (const int32_t width : ends) {
        for (const int32_t height : ends) {
            EXPECT_EQ(GetFormatByHdeVde(width, height), 126);
        }
    }
}

// Near to a row or a field in all numbers, but for now and then one that is anything.
TEST_F(FormatDetection, RandomNumbersAreTakenAsTheTableSays)
{
    std::mt19937 random(20160512); // the same numbers in every run
    const auto below = [&random](size_t n) { return static_cast<uint32_t>(random() % n); };
    size_t found = 0;
    for (uint32_t i = 0; i < 20000; ++i) {
        const uint32_t from = below(124 + std::size(kFields));
        Measured measured = from < 124 ? rowOf(from) : kFields[from - 124].middle;
        for (int32_t &value : measured) {
            value += static_cast<int32_t>(below(5)) - 2;
        }
        measured[kWidth] -= static_cast<int32_t>(below(2)); // mostly near all the same
        if (below(4) == 0) {
            measured.at(below(kNumbers)) = static_cast<int32_t>(random());
        }
        ASSERT_NO_FATAL_FAILURE(compare(measured));
        ASSERT_NO_FATAL_FAILURE(compareSize(measured[kWidth], measured[kHeight]));
        const uint32_t id = getVideoFormat(measured);
        ASSERT_TRUE(id < 124 || id == 126) << measured;
        found += id != 126 ? 1 : 0;
    }
    EXPECT_GT(found, 2000u); // both answers occur
    EXPECT_LT(found, 18000u);
    for (uint32_t i = 0; i < 5000; ++i) {
        Measured measured{};
        for (int32_t &value : measured) {
            value = static_cast<int32_t>(random());
        }
        ASSERT_NO_FATAL_FAILURE(compare(measured));
        ASSERT_NO_FATAL_FAILURE(compareSize(measured[kWidth], measured[kHeight]));
    }
    expectComparisons(3u * 25000);
}

// What is taken into account ----------------------------------------------------------------------

// The answers to everything that has one.
std::vector<uint32_t> allAnswers()
{
    std::vector<uint32_t> answers;
    for (uint32_t id = 0; id < 124; ++id) {
        const Measured row = rowOf(id);
        answers.push_back(getVideoFormat(row));
        answers.push_back(interlaceFormat(row));
        answers.push_back(GetFormatByHdeVde(row[kWidth], row[kHeight]));
    }
    for (const Field &field : kFields) {
        answers.push_back(getVideoFormat(field.middle));
        answers.push_back(interlaceFormat(field.middle));
    }
    answers.push_back(GetVideoFormat(1234, 567, 2345, 678, 91));
    answers.push_back(GetFormatByHdeVde(1234, 567));
    return answers;
}

TEST_F(FormatDetection, NeitherSettingsNorCustomFormatNorExternalInputMatter)
{
    const std::vector<uint32_t> answers = allAnswers(); // without settings
    malloc_saveView();
    EXPECT_EQ(allAnswers(), answers);
    for (const int byte : {0x01, 0x0A, 0x7C, 0x7D, 0x7E, 0xFF}) {
        std::memset(reinterpret_cast<char *>(GetUserSetting()), byte, sizeof(UserSetting));
        std::memset(reinterpret_cast<char *>(GetCustomFormat()), byte, sizeof(CustomFormat));
        EXPECT_EQ(allAnswers(), answers) << byte;
    }
}

TEST_F(FormatDetection, TheCustomFormatIsNotDetected)
{
    malloc_saveView();
    setCustomH(1234);
    setCustomV(567);
    setCustomF(91);
    setCustomhActive(1234);
    setCustomvActive(567);
    setCustomhTotal(2345);
    setCustomvTotal(678);
    GetUserSetting()->extInputFormat = 124;
    EXPECT_EQ(GetVideoFormat(1234, 567, 2345, 678, 91), 126);
    EXPECT_EQ(GetFormatByHdeVde(1234, 567), 126);
}

TEST_F(FormatDetection, AskingChangesNothing)
{
    malloc_saveView();
    std::memset(reinterpret_cast<char *>(GetUserSetting()), 0xA5, sizeof(UserSetting));
    std::memset(reinterpret_cast<char *>(GetCustomFormat()), 0xA5, sizeof(CustomFormat));
    const UserSetting setting = *GetUserSetting();
    const CustomFormat timing = *GetCustomFormat();
    allAnswers();
    EXPECT_EQ(std::memcmp(&setting, GetUserSetting(), sizeof setting), 0);
    EXPECT_EQ(std::memcmp(&timing, GetCustomFormat(), sizeof timing), 0);
}

// Names -------------------------------------------------------------------------------------------

static_assert(std::is_same_v<decltype(isInterlaceFormat),
                             uint8_t(int32_t, int32_t, int32_t, int32_t, int32_t)>);
static_assert(std::is_same_v<decltype(IsInterlaceFormat), int32_t(uint32_t)>);

TEST_F(FormatDetection, TwoOperationsDifferInTheCaseOfOneLetterOfTheirNames)
{
    // The one with a small letter finds an id by the numbers of a field,
    EXPECT_EQ(isInterlaceFormat(1920, 540, 2640, 562, 50), 39);
    EXPECT_EQ(isInterlaceFormat(39, 0, 0, 0, 0), 126);
    // the other says of an id whether it is interlaced.
    EXPECT_EQ(IsInterlaceFormat(39), 1);
    EXPECT_EQ(IsInterlaceFormat(126), 0);
    // The one finds ids that the other calls interlaced, all but one: 63.
    std::set<uint32_t> found;
    for (const Field &field : kFields) {
        found.insert(interlaceFormat(field.middle));
    }
    for (uint32_t id = 0; id < 124; ++id) {
        EXPECT_EQ(IsInterlaceFormat(id), found.count(id) != 0 || id == 63 ? 1 : 0) << id;
    }
    EXPECT_EQ(found.count(63), 0u);
}

// Examples ----------------------------------------------------------------------------------------

TEST_F(FormatDetection, ARateOf59HzIsReportedAs60Hz)
{
    EXPECT_EQ(GetVideoFormat(1280, 720, 1650, 750, 60), 2);
    EXPECT_EQ(GetVideoFormat(1280, 720, 1650, 750, 59), 2); // never 3, 59.94 Hz
}

TEST_F(FormatDetection, FourFormatsOf30HzAreReportedAsTheFirst)
{
    EXPECT_EQ(GetVideoFormat(1920, 1080, 2200, 1125, 30), 13); // never 14, 15 or 16
}

TEST_F(FormatDetection, FieldsAreReportedAsTheirFormatAndOtherNumbersAsUndefined)
{
    EXPECT_EQ(GetVideoFormat(1920, 540, 2200, 562, 60), 38);
    EXPECT_EQ(GetVideoFormat(1920, 540, 2640, 563, 50), 39);
    EXPECT_EQ(GetVideoFormat(720, 240, 858, 262, 60), 36);
    EXPECT_EQ(GetVideoFormat(1000, 1000, 1100, 1100, 60), 126);
}

TEST_F(FormatDetection, AWidthMayBeOnePixelOffButNotTwo)
{
    EXPECT_EQ(GetVideoFormat(1281, 720, 1650, 750, 60), 2);
    EXPECT_EQ(GetVideoFormat(1279, 720, 1650, 750, 60), 2);
    EXPECT_EQ(GetVideoFormat(1282, 720, 1650, 750, 60), 126);
    EXPECT_EQ(GetVideoFormat(1278, 720, 1650, 750, 60), 126);
}

TEST_F(FormatDetection, ASizeIsLookedUpExactly)
{
    EXPECT_EQ(GetFormatByHdeVde(7680, 1080), 126); // carried in quarters of 1920
    EXPECT_EQ(GetFormatByHdeVde(1920, 1200), 50);
    EXPECT_EQ(GetFormatByHdeVde(1920, 1080), 10); // never 66 or 108 to 115
    EXPECT_EQ(GetFormatByHdeVde(1921, 1200), 126);
    EXPECT_EQ(GetFormatByHdeVde(1920, 1199), 126);
}

// The document ------------------------------------------------------------------------------------

const char kChapter[] = "Finding the format of an input";

TEST_F(FormatDetection, TheDocumentHasTheTolerances)
{
    const char *const names[] = {"active width", "active height", "H total", "V total", "V freq"};
    const std::vector<std::vector<std::string>> rows = tableOf(kChapter, "measured | difference");
    ASSERT_EQ(rows.size(), std::size(names)) << FORMATS_DOCUMENT;
    for (size_t place = 0; place < kNumbers; ++place) {
        ASSERT_EQ(rows[place].size(), 2u);
        EXPECT_EQ(rows[place][0], names[place]);
        const auto tolerance = static_cast<int32_t>(number(rows[place][1]));
        EXPECT_EQ(getVideoFormat(moved(rowOf(2), place, tolerance)), 2u) << names[place];
        EXPECT_EQ(getVideoFormat(moved(rowOf(2), place, tolerance + 1)), 126u) << names[place];
    }
}

TEST_F(FormatDetection, TheDocumentHasTheFieldsInTheirOrder)
{
    const std::vector<std::vector<std::string>> rows =
        tableOf(kChapter, "order | active | H total | V total | V freq | id");
    ASSERT_EQ(rows.size(), std::size(kFields)) << FORMATS_DOCUMENT;
    for (size_t i = 0; i < rows.size(); ++i) {
        ASSERT_EQ(rows[i].size(), 6u);
        EXPECT_EQ(number(rows[i][0]), i + 1);
        const std::vector<std::string> active = split(rows[i][1], "×");
        ASSERT_EQ(active.size(), 2u);
        const Measured field = {
            static_cast<int32_t>(number(active[0])), static_cast<int32_t>(number(active[1])),
            static_cast<int32_t>(number(rows[i][2])), static_cast<int32_t>(number(rows[i][3])),
            static_cast<int32_t>(number(rows[i][4]))};
        EXPECT_EQ(field, kFields[i].middle);
        EXPECT_EQ(number(rows[i][5]), kFields[i].id);
        EXPECT_EQ(interlaceFormat(field), i != 1 ? number(rows[i][5]) : 38);
    }
}

TEST_F(FormatDetection, TheDocumentHasTheFormatsThatAreNeverReported)
{
    std::map<uint32_t, uint32_t> documented;
    for (const std::vector<std::string> &cells : tableOf(kChapter, "never reported | instead")) {
        ASSERT_EQ(cells.size(), 2u);
        for (const uint32_t id : numbersIn(cells[0])) {
            EXPECT_TRUE(documented.insert({id, number(cells[1])}).second) << id;
        }
    }
    EXPECT_EQ(documented, neverReported()) << FORMATS_DOCUMENT;
}

TEST_F(FormatDetection, TheDocumentHasTheFormatsThatAreReportedForOtherNumbers)
{
    const std::vector<std::vector<std::string>> rows =
        tableOf(kChapter, "id | for its row | reported for");
    std::set<uint32_t> documented;
    const std::string field = "the field in order ";
    for (const std::vector<std::string> &cells : rows) {
        ASSERT_EQ(cells.size(), 3u);
        const uint32_t id = number(cells[0]);
        documented.insert(id);
        EXPECT_EQ(getVideoFormat(rowOf(id)), number(cells[1])) << id;
        if (cells[2].rfind(field, 0) == 0) {
            const uint32_t order = number(cells[2].substr(field.size()));
            ASSERT_LE(order, std::size(kFields));
            EXPECT_EQ(getVideoFormat(kFields[order - 1].middle), id);
        } else {
            EXPECT_EQ(cells[2], "29 Hz, which is not near to 24 Hz");
            EXPECT_EQ(getVideoFormat(with(rowOf(id), kVFreq, 29)), id);
        }
    }
    EXPECT_EQ(documented, kReportedOtherwise) << FORMATS_DOCUMENT;
}

TEST_F(FormatDetection, TheSizesThatTheDocumentNamesAreRight)
{
    EXPECT_TRUE(documentSays(" It answers 10 for 1920×1080, and 126 for 7680×1080, "));
    EXPECT_EQ(GetFormatByHdeVde(1920, 1080), 10);
    EXPECT_EQ(GetFormatByHdeVde(7680, 1080), 126);
}

} // namespace
