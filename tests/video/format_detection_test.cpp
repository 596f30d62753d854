// Numbers to format ids: every number of every format and the numbers around it, against a search
// of the exchanged table (tests/data/video_formats.csv) by sets, and docs/video-formats.md.

#include "video/format_detection.h"

#include <array>
#include <bitset>
#include <cstdint>
#include <iterator>
#include <map>
#include <optional>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/format_files.h"
#include "tests/support/setting_bytes.h"
#include "video/CustomFormat.h"
#include "video/format_id.h"

namespace {

constexpr uint32_t kRandomRuns = 5000;

// What is measured, in the order in which it is passed.
enum Number { kWidth, kHeight, kHTotal, kVTotal, kVFreq, kNumbers };
constexpr int32_t kTolerances[kNumbers] = {1, 1, 4, 4, 4};

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

// Another number in one place; a number more in one place.
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

// The formats of a number are kept by number: those that every number has in common are near.
class Formats {
public:
    explicit Formats(const std::vector<Row> &rows)
    {
        for (const Row &row : rows) {
            const Measured numbers = rowOf(row.id);
            for (size_t place = 0; place < kNumbers; ++place) {
                for (int32_t by = -kTolerances[place]; by <= kTolerances[place]; ++by) {
                    near_.at(place)[int64_t{numbers.at(place)} + by].set(row.id);
                }
            }
            sizes_.insert({{row.width, row.height}, row.id}); // keeps the first
        }
    }
    // The first of them, 126 if there is none.
    uint32_t near(const Measured &measured) const
    {
        std::bitset<124> common;
        common.set();
        for (size_t place = 0; place < kNumbers; ++place) {
            const auto found = near_.at(place).find(measured.at(place));
            common &= found != near_.at(place).end() ? found->second : std::bitset<124>();
        }
        const size_t first = common._Find_first();
        return first < common.size() ? static_cast<uint32_t>(first) : 126;
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

struct Field {
    uint32_t id;
    Measured middle;
};
const Field kFields[] = {
    {38, {1920, 540, 2200, 562, 60}}, {63, {1920, 540, 2200, 562, 60}},
    {39, {1920, 540, 2640, 562, 50}}, {36, {720, 240, 858, 263, 59}},
    {37, {720, 288, 864, 313, 49}},   {71, {1440, 240, 1716, 263, 59}},
    {72, {1440, 288, 1728, 313, 49}},
};

uint32_t expectedOfField(const Measured &measured)
{
    for (const Field &field : kFields) {
        size_t inside = 0;
        for (size_t place = 0; place < kNumbers; ++place) {
            const int64_t off = int64_t{measured.at(place)} - field.middle.at(place);
            inside += off >= -kTolerances[place] && off <= kTolerances[place] ? 1 : 0;
        }
        if (inside == kNumbers) {
            return field.id;
        }
    }
    return 126;
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

// But for those about them, no case has the settings in memory, so that a look at them would be the
// end of the program.
class FormatDetection : public WithExchanged {
protected:
    void SetUp() override
    {
        WithExchanged::SetUp();
        formats_.emplace(exchanged);
    }

    // The operations by numbers; the first difference ends the case.
    void compare(const Measured &measured) const
    {
        const uint32_t near = formats_->near(measured);
        const uint32_t field = expectedOfField(measured);
        ASSERT_EQ(getVideoFormat(measured), near != 126 ? near : field) << measured;
        ASSERT_EQ(interlaceFormat(measured), field) << measured;
    }
    void compareSize(int32_t width, int32_t height) const
    {
        ASSERT_EQ(GetFormatByHdeVde(width, height), formats_->ofSize(width, height))
            << width << 'x' << height;
    }
    // The numbers of all rows and all fields.
    static std::vector<Measured> middles()
    {
        std::vector<Measured> all;
        for (const Row &row : exchanged) {
            all.push_back(rowOf(row.id));
        }
        for (const Field &field : kFields) {
            all.push_back(field.middle);
        }
        return all;
    }

private:
    std::optional<Formats> formats_;
};

// The formats' rows -------------------------------------------------------------------------------

TEST_F(FormatDetection, EveryFormatsOwnNumbersAreReportedAsTheFirstFormatThatHasThem)
{
    for (uint32_t id = 0; id < 124; ++id) {
        EXPECT_EQ(getVideoFormat(rowOf(id)), kReported[id]) << id;
        EXPECT_EQ(interlaceFormat(rowOf(id)), 126u) << id; // a frame is no field
    }
}

// All that is near to their own numbers leads to another format.
TEST_F(FormatDetection, FormatsThatShareTheirNumbersWithALowerOneAreNeverReported)
{
    EXPECT_EQ(neverReported().size(), 36u);
    for (const auto &[id, instead] : neverReported()) {
        for (uint32_t i = 0; i < 3 * 3 * 9 * 9 * 9; ++i) {
            Measured measured = rowOf(id);
            uint32_t which = i;
            for (size_t place = 0; place < kNumbers; ++place) {
                const auto count = static_cast<uint32_t>(2 * kTolerances[place] + 1);
                measured.at(place) += static_cast<int32_t>(which % count) - kTolerances[place];
                which /= count;
            }
            ASSERT_EQ(getVideoFormat(measured), instead) << id << ": " << measured;
        }
    }
}

TEST_F(FormatDetection, EveryOtherFormatIsReportedForSomeNumbers)
{
    std::set<uint32_t> reported = {getVideoFormat(with(rowOf(103), kVFreq, 29))};
    for (const Measured &middle : middles()) {
        reported.insert(getVideoFormat(middle));
    }
    for (uint32_t id = 0; id < 124; ++id) {
        EXPECT_EQ(reported.contains(id), !neverReported().contains(id)) << id;
    }
}

// Numbers around those of the rows and fields -----------------------------------------------------

TEST_F(FormatDetection, OneOrTwoNumbersUpTo5OffAreTakenAsTheTableSays)
{
    for (const Measured &middle : middles()) {
        for (uint32_t i = 0; i < kNumbers * kNumbers * 11 * 11; ++i) {
            const size_t first = i / 121 % kNumbers;
            const size_t second = i / 121 / kNumbers;
            if (first < second) {
                const Measured measured = moved(middle, first, static_cast<int32_t>(i % 11) - 5);
                ASSERT_NO_FATAL_FAILURE(
                    compare(moved(measured, second, static_cast<int32_t>(i / 11 % 11) - 5)));
            }
        }
    }
}

// Of the rows, the corners of what is near; of the fields, also inside and just outside.
TEST_F(FormatDetection, AllNumbersOffTogetherAreTakenAsTheTableSays)
{
    const int32_t offSize[] = {-1, 1, -2, 0, 2};
    const int32_t offTiming[] = {-4, 4, -5, 0, 5};
    size_t at = 0;
    for (const Measured &middle : middles()) {
        const uint32_t offs = at++ < 124 ? 2 : 5;
        for (uint32_t i = 0; i < offs * offs * offs * offs * offs; ++i) {
            Measured measured = middle;
            uint32_t rest = i;
            for (size_t place = 0; place < kNumbers; ++place) {
                measured.at(place) += (place <= kHeight ? offSize : offTiming)[rest % offs];
                rest /= offs;
            }
            ASSERT_NO_FATAL_FAILURE(compare(measured));
        }
    }
}

TEST_F(FormatDetection, EveryWidthWithEveryHeightAndOneOffLeadsToItsFormatOrToNone)
{
    std::set<int32_t> widths;
    std::set<int32_t> heights;
    for (const Row &row : exchanged) {
        for (const int32_t by : {-1, 0, 1}) {
            widths.insert(static_cast<int32_t>(row.width) + by);
            heights.insert(static_cast<int32_t>(row.height) + by);
        }
    }
    for (const int32_t width : widths) {
        for (const int32_t height : heights) {
            ASSERT_NO_FATAL_FAILURE(compareSize(width, height));
            ASSERT_NO_FATAL_FAILURE(compareSize(height, width));
        }
    }
}

// Any number --------------------------------------------------------------------------------------

// The ends of the range, and what a cut to 8 or 16 bits or a lost sign would hide.
TEST_F(FormatDetection, ANumberFarFromAllIsNearToNone)
{
    for (const Measured &middle : middles()) {
        for (size_t place = 0; place < kNumbers; ++place) {
            const int32_t v = middle.at(place);
            for (const int32_t value : {INT32_MIN,
                                        INT32_MIN + 1,
                                        INT32_MIN + 4,
                                        INT32_MIN + 5,
                                        INT32_MIN + v,
                                        -65536,
                                        -1,
                                        0,
                                        1,
                                        INT32_MAX - 5,
                                        INT32_MAX - 4,
                                        INT32_MAX - 1,
                                        INT32_MAX,
                                        INT32_MAX - v,
                                        -v,
                                        v + 256,
                                        v + 65536,
                                        v - 65536,
                                        v + 0x01000000,
                                        v + 5,
                                        v - 5}) {
                const Measured measured = with(middle, place, value);
                ASSERT_NO_FATAL_FAILURE(compare(measured));
                ASSERT_NO_FATAL_FAILURE(compareSize(measured[kWidth], measured[kHeight]));
            }
        }
    }
}

TEST_F(FormatDetection, TheEndsOfTheRangeTogetherAreUndefined)
{
    const int32_t ends[] = {INT32_MIN, -1, 0, INT32_MAX};
    for (uint32_t i = 0; i < 4 * 4 * 4 * 4 * 4; ++i) {
        const Measured measured = {ends[i % 4], ends[i / 4 % 4], ends[i / 16 % 4], ends[i / 64 % 4],
                                   ends[i / 256]};
        EXPECT_EQ(getVideoFormat(measured), 126u) << measured;
        EXPECT_EQ(interlaceFormat(measured), 126u) << measured;
        EXPECT_EQ(GetFormatByHdeVde(measured[kWidth], measured[kHeight]), 126) << measured;
    }
}

// Near to a row or a field in all numbers, but for now and then one that is anything.
TEST_F(FormatDetection, RandomNumbersAreTakenAsTheTableSays)
{
    std::mt19937 random(20160512); // the same numbers in every run
    const auto below = [&random](size_t n) { return static_cast<uint32_t>(random() % n); };
    const std::vector<Measured> all = middles();
    uint32_t found = 0;
    for (uint32_t i = 0; i < kRandomRuns; ++i) {
        Measured measured = all[below(all.size())];
        for (int32_t &value : measured) {
            value += static_cast<int32_t>(below(5)) - 2;
        }
        measured[kWidth] -= static_cast<int32_t>(below(2)); // mostly near all the same
        if (below(4) == 0) {
            measured.at(below(kNumbers)) = static_cast<int32_t>(random());
        }
        ASSERT_NO_FATAL_FAILURE(compare(measured));
        ASSERT_NO_FATAL_FAILURE(compareSize(measured[kWidth], measured[kHeight]));
        found += getVideoFormat(measured) != 126 ? 1u : 0u;
    }
    EXPECT_GT(found, kRandomRuns / 10); // both answers occur
    EXPECT_LT(found, kRandomRuns / 10 * 9);
}

// What is taken into account ----------------------------------------------------------------------

// The answers for all rows and fields, and for numbers that only a custom format can have.
std::vector<uint32_t> answersTo(std::vector<Measured> measured)
{
    measured.push_back({1234, 567, 2345, 678, 91});
    std::vector<uint32_t> answers;
    for (const Measured &one : measured) {
        answers.push_back(getVideoFormat(one));
        answers.push_back(interlaceFormat(one));
        answers.push_back(GetFormatByHdeVde(one[kWidth], one[kHeight]));
    }
    return answers;
}

TEST_F(FormatDetection, NeitherSettingsNorTheCustomFormatMatterOrChange)
{
    const std::vector<uint32_t> answers = answersTo(middles()); // without settings
    EXPECT_EQ(std::vector<uint32_t>(answers.end() - 3, answers.end()),
              (std::vector<uint32_t>{126, 126, 126}));
    malloc_saveView();
    for (const int byte : {0x00, 0x01, 0x0A, 0x7C, 0x7D, 0x7E, 0xFF}) {
        const Bytes setting(sizeof(UserSetting), static_cast<char>(byte));
        const Bytes timing(sizeof(CustomFormat), static_cast<char>(byte));
        fill(GetUserSetting(), setting);
        fill(GetCustomFormat(), timing);
        EXPECT_EQ(answersTo(middles()), answers) << byte;
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), setting)) << byte;
        EXPECT_TRUE(areBytes(bytesOf(GetCustomFormat()), timing)) << byte;
    }
    GetUserSetting()->extInputFormat = 124;
    *GetCustomResolution() = {1234, 567, 91, 0, {}};
    *GetCustomFormat() = {0, 0, 2345, 678, 0, 0, 1234, 567, 0, 0, 0, 0};
    EXPECT_EQ(answersTo(middles()), answers);
}

// Examples ----------------------------------------------------------------------------------------

// clang-format off
const struct {
    const char *what;
    Measured measured;
    uint32_t format;
} kExamples[] = {
    {"60 Hz",                          {1280,  720, 1650,  750, 60},   2},
    {"59 Hz is reported as 60, not 3", {1280,  720, 1650,  750, 59},   2},
    {"one pixel more",                 {1281,  720, 1650,  750, 60},   2},
    {"one pixel less",                 {1279,  720, 1650,  750, 60},   2},
    {"two pixels more",                {1282,  720, 1650,  750, 60}, 126},
    {"two pixels less",                {1278,  720, 1650,  750, 60}, 126},
    {"13, never 14, 15 or 16",         {1920, 1080, 2200, 1125, 30},  13},
    {"the frame of 38",                {1920, 1080, 2200, 1125, 60},  10},
    {"the frame of 71",                {1440,  480, 1716,  525, 60},  71},
    {"the field of 38",                {1920,  540, 2200,  562, 60},  38},
    {"a field of 39",                  {1920,  540, 2640,  563, 50},  39},
    {"a field of 36",                  { 720,  240,  858,  262, 60},  36},
    {"no format",                      {1000, 1000, 1100, 1100, 60}, 126},
    {"the totals of 25 Hz at 29 Hz",   {3840, 2160, 5280, 2250, 29},  73},
    {"the totals of 30 Hz at 26 Hz",   {3840, 2160, 4400, 2250, 26},  74},
    {"24 Hz with the totals of 25",    { 960, 2160, 1320, 2250, 24},  95},
    {"101 comes before 103",           {1024, 2160, 1320, 2250, 25}, 101},
    {"28 Hz is near to 24 Hz",         {1024, 2160, 1320, 2250, 28}, 101},
    {"29 Hz is near to 25 Hz only",    {1024, 2160, 1320, 2250, 29}, 103},
    {"30 Hz is near to neither",       {1024, 2160, 1320, 2250, 30}, 126},
};

const struct {
    int32_t width, height;
    uint8_t format;
} kSizes[] = {
    {7680, 1080, 126}, // kept in quarters of 1920
    {8192, 1080, 126}, {1920, 1200, 50}, {1921, 1200, 126}, {1920, 1199, 126},
    {1920, 1080, 10}, // never 66 or 108 to 115
    {1440,  864, 126}, // a size that no format has
    {1920,  540, 126}, // a field has no size of its own
    {0, 0, 126},
};
// clang-format on

TEST_F(FormatDetection, TheseNumbersAndSizesLeadToTheseFormats)
{
    for (const auto &row : kExamples) {
        EXPECT_EQ(getVideoFormat(row.measured), row.format) << row.what;
    }
    for (const auto &row : kSizes) {
        EXPECT_EQ(GetFormatByHdeVde(row.width, row.height), row.format)
            << row.width << 'x' << row.height;
    }
}

static_assert(std::is_same_v<decltype(isInterlaceFormat),
                             uint8_t(int32_t, int32_t, int32_t, int32_t, int32_t)>);
static_assert(std::is_same_v<decltype(IsInterlaceFormat), int32_t(uint32_t)>);

// The one with a small letter finds an id by the numbers of a field, the other says of an id
// whether it is interlaced. All but 63 of these are found.
TEST_F(FormatDetection, TwoOperationsDifferInTheCaseOfOneLetterOfTheirNames)
{
    std::set<uint32_t> found = {63};
    for (const Field &field : kFields) {
        EXPECT_NE(interlaceFormat(field.middle), 63u);
        found.insert(interlaceFormat(field.middle));
    }
    for (uint32_t id = 0; id < 124; ++id) {
        EXPECT_EQ(IsInterlaceFormat(id), found.contains(id)) << id;
    }
    EXPECT_EQ(isInterlaceFormat(39, 0, 0, 0, 0), 126);
}

// The document ------------------------------------------------------------------------------------

const char kChapter[] = "Finding the format of an input";

// Nothing else is near to these formats, so that what is just outside is undefined.
TEST_F(FormatDetection, NumbersMayDifferByTheTolerancesOfTheDocument)
{
    const char *const names[] = {"active width", "active height", "H total", "V total", "V freq"};
    const auto rows = tableOf(kChapter, "measured | difference");
    ASSERT_EQ(rows.size(), std::size(names)) << FORMATS_DOCUMENT;
    for (size_t place = 0; place < kNumbers; ++place) {
        ASSERT_EQ(rows[place].size(), 2u);
        EXPECT_EQ(rows[place][0], names[place]);
        const int32_t most = kTolerances[place];
        EXPECT_EQ(rows[place][1], std::to_string(most));
        for (const uint32_t id : {2u, 24u, 56u, 91u, 121u}) {
            for (const int32_t by : {-most - 1, -most, most, most + 1}) {
                const uint32_t expected = by < -most || by > most ? 126 : id;
                EXPECT_EQ(getVideoFormat(moved(rowOf(id), place, by)), expected)
                    << id << ' ' << names[place] << ' ' << by;
            }
        }
    }
}

TEST_F(FormatDetection, TheDocumentHasTheFieldsInTheirOrder)
{
    const auto rows = tableOf(kChapter, "order | active | H total | V total | V freq | id");
    ASSERT_EQ(rows.size(), std::size(kFields)) << FORMATS_DOCUMENT;
    for (size_t i = 0; i < rows.size(); ++i) {
        const Measured &middle = kFields[i].middle;
        const std::string active =
            std::to_string(middle[kWidth]) + "×" + std::to_string(middle[kHeight]);
        EXPECT_EQ(rows[i], (std::vector<std::string>{
                               std::to_string(i + 1), active, std::to_string(middle[kHTotal]),
                               std::to_string(middle[kVTotal]), std::to_string(middle[kVFreq]),
                               std::to_string(kFields[i].id)}));
    }
}

TEST_F(FormatDetection, TheDocumentHasTheFormatsThatAreNeverReported)
{
    std::map<uint32_t, uint32_t> documented;
    for (const auto &cells : tableOf(kChapter, "never reported | instead")) {
        ASSERT_EQ(cells.size(), 2u);
        for (const uint32_t id : numbersIn(cells[0])) {
            EXPECT_TRUE(documented.insert({id, number(cells[1])}).second) << id;
        }
    }
    EXPECT_EQ(documented, neverReported()) << FORMATS_DOCUMENT;
}

TEST_F(FormatDetection, TheDocumentHasTheFormatsThatAreReportedForOtherNumbers)
{
    std::set<uint32_t> documented;
    const std::string field = "the field in order ";
    for (const auto &cells : tableOf(kChapter, "id | for its row | reported for")) {
        ASSERT_EQ(cells.size(), 3u);
        const uint32_t id = number(cells[0]);
        documented.insert(id);
        EXPECT_EQ(number(cells[1]), kReported[id]) << id;
        if (cells[2].rfind(field, 0) == 0) {
            const uint32_t order = number(cells[2].substr(field.size()));
            ASSERT_LE(order, std::size(kFields));
            EXPECT_EQ(kFields[order - 1].id, id);
        } else {
            EXPECT_EQ(cells[2], "29 Hz, which is not near to 24 Hz");
            EXPECT_EQ(id, 103u);
        }
    }
    EXPECT_EQ(documented, kReportedOtherwise) << FORMATS_DOCUMENT;
    EXPECT_TRUE(documentSays(" It answers 10 for 1920×1080, and 126 for 7680×1080, "));
}

} // namespace
