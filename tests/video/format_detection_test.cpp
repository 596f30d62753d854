// Numbers to format ids: the numbers around those of every format, against a search of the
// exchanged table (tests/data/video_formats.csv), and docs/video-formats.md.

#include "video/format_detection.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/format_files.h"
#include "tests/support/setting_bytes.h"
#include "video/CustomFormat.h"
#include "video/format_id.h"

namespace {

// What is measured, in the order in which it is passed.
enum Number { kWidth, kHeight, kHTotal, kVTotal, kVFreq, kNumbers };
using Measured = std::array<int32_t, kNumbers>;
constexpr Measured kTolerances = {1, 1, 4, 4, 4};

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

// More in one place.
Measured moved(Measured measured, size_t place, int32_t by)
{
    measured.at(place) += by;
    return measured;
}

// What is expected --------------------------------------------------------------------------------

struct Format {
    uint32_t id;
    Measured middle; // of what is near
};
const std::vector<Format> kFields = {
    {38, {1920, 540, 2200, 562, 60}}, {63, {1920, 540, 2200, 562, 60}},
    {39, {1920, 540, 2640, 562, 50}}, {36, {720, 240, 858, 263, 59}},
    {37, {720, 288, 864, 313, 49}},   {71, {1440, 240, 1716, 263, 59}},
    {72, {1440, 288, 1728, 313, 49}},
};

// The first that is near in every number, 126 if there is none.
uint32_t firstNear(const std::vector<Format> &formats, const Measured &measured)
{
    for (const Format &format : formats) {
        size_t place = 0;
        while (place < kNumbers &&
               std::abs(int64_t{measured[place]} - format.middle[place]) <= kTolerances[place]) {
            ++place;
        }
        if (place == kNumbers) {
            return format.id;
        }
    }
    return 126;
}

// Rows that are reported for other numbers than their own: four as fields, 103 for 29 Hz.
const std::set<uint32_t> kReportedOtherwise = {36, 37, 38, 39, 103};

// The rows that have all their numbers in common with a lower one, but for those with fields: what
// is near to them is near to that one too. Each with the id in its place.
std::map<uint32_t, uint32_t> neverReported()
{
    std::map<uint32_t, uint32_t> never;
    std::set<Measured> lower;
    for (uint32_t id = 0; id < 124; ++id) {
        if (!lower.insert(rowOf(id)).second && !kReportedOtherwise.contains(id)) {
            never[id] = getVideoFormat(rowOf(id));
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
        for (const Row &row : exchanged) {
            formats_.push_back({row.id, rowOf(row.id)});
        }
        formats_.insert(formats_.end(), kFields.begin(), kFields.end());
    }
    void TearDown() override
    {
        EXPECT_TRUE(wrong_.empty()) << testing::PrintToString(wrong_);
    }

    // The operations by numbers.
    void compare(const Measured &measured)
    {
        if (getVideoFormat(measured) != firstNear(formats_, measured) ||
            interlaceFormat(measured) != firstNear(kFields, measured)) {
            wrong_.push_back(measured);
        }
    }
    void compareSize(int32_t width, int32_t height)
    {
        const auto row = std::find_if(exchanged.begin(), exchanged.end(), [=](const Row &one) {
            return one.width == static_cast<uint32_t>(width) &&
                   one.height == static_cast<uint32_t>(height);
        });
        if (GetFormatByHdeVde(width, height) != (row != exchanged.end() ? row->id : 126)) {
            wrong_.push_back({width, height});
        }
    }

    std::vector<Format> formats_; // all rows and all fields

private:
    std::vector<Measured> wrong_; // what has led to another id
};

// Numbers around those of the rows and fields -----------------------------------------------------

TEST_F(FormatDetection, OneOrTwoNumbersAtTheEdgeOfWhatIsNearAreTakenAsTheTableSays)
{
    for (const Format &format : formats_) {
        for (uint32_t i = 0; i < kNumbers * kNumbers * 5 * 5; ++i) {
            const size_t first = i / 25 % kNumbers;
            const size_t second = i / 125;
            const auto off = [](size_t place, uint32_t which) {
                return std::array{-kTolerances[place] - 1, -kTolerances[place], 0,
                                  kTolerances[place], kTolerances[place] + 1}[which];
            };
            if (first < second) {
                compare(moved(moved(format.middle, first, off(first, i % 5)), second,
                              off(second, i / 5 % 5)));
            }
        }
    }
}

TEST_F(FormatDetection, AllNumbersOffTogetherAreTakenAsTheTableSays)
{
    for (const Format &format : formats_) {
        for (uint32_t corner = 0; corner < 1 << kNumbers; ++corner) {
            Measured measured = format.middle;
            for (size_t place = 0; place < kNumbers; ++place) {
                const int32_t sign = (corner >> place & 1) != 0 ? 1 : -1;
                measured[place] += sign * kTolerances[place];
            }
            compare(measured);
        }
    }
}

TEST_F(FormatDetection, FormatsAreReportedButForThoseWithAllTheNumbersOfALowerOne)
{
    std::set<uint32_t> reported = {getVideoFormat(moved(rowOf(103), kVFreq, 4))};
    for (const Format &format : formats_) {
        reported.insert(getVideoFormat(format.middle));
    }
    EXPECT_EQ(neverReported().size(), 36u);
    for (uint32_t id = 0; id < 124; ++id) {
        EXPECT_EQ(reported.contains(id), !neverReported().contains(id)) << id;
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
            compareSize(width, height);
        }
    }
}

// The ends of the range, and what a cut to 8 or 16 bits or a lost sign would hide.
TEST_F(FormatDetection, ANumberFarFromAllIsNearToNone)
{
    for (const Format &format : formats_) {
        for (size_t place = 0; place < kNumbers; ++place) {
            const int32_t v = format.middle[place];
            const int32_t values[] = {
                INT32_MIN, INT32_MIN + 4, INT32_MIN + 5, INT32_MIN + v, -65536,    -1, 0,
                INT32_MAX, INT32_MAX - 4, INT32_MAX - 5, INT32_MAX - v, v - 65536, -v, 1,
                v + 256,   v + 65536,     v + 0x01000000};
            for (const int32_t value : values) {
                Measured measured = format.middle;
                measured[place] = value;
                compare(measured);
                compareSize(measured[kWidth], measured[kHeight]);
            }
        }
    }
}

TEST_F(FormatDetection, TheEndsOfTheRangeTogetherAreUndefined)
{
    const int32_t ends[] = {INT32_MIN, -1, 0, INT32_MAX};
    for (uint32_t i = 0; i < 4 * 4 * 4 * 4 * 4; ++i) {
        compare({ends[i % 4], ends[i / 4 % 4], ends[i / 16 % 4], ends[i / 64 % 4], ends[i / 256]});
        compareSize(ends[i % 4], ends[i / 4 % 4]);
    }
}

// What is taken into account ----------------------------------------------------------------------

TEST_F(FormatDetection, NeitherSettingsNorTheCustomFormatMatterOrChange)
{
    const Measured custom = {1234, 567, 2345, 678, 91}; // what only a custom format can have
    const auto compareAll = [&] {
        for (const Format &format : formats_) {
            compare(format.middle);
            compareSize(format.middle[kWidth], format.middle[kHeight]);
        }
        compare(custom);
        compareSize(custom[kWidth], custom[kHeight]);
    };
    compareAll(); // without settings
    malloc_saveView();
    for (const int byte : {0x00, 0x01, 0x0A, 0x7C, 0x7D, 0x7E, 0xFF}) {
        const Bytes setting(sizeof(UserSetting), static_cast<char>(byte));
        const Bytes timing(sizeof(CustomFormat), static_cast<char>(byte));
        fill(GetUserSetting(), setting);
        fill(GetCustomFormat(), timing);
        compareAll();
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), setting)) << byte;
        EXPECT_TRUE(areBytes(bytesOf(GetCustomFormat()), timing)) << byte;
    }
    GetUserSetting()->extInputFormat = 124;
    *GetCustomResolution() = {1234, 567, 91, 0, {}};
    *GetCustomFormat() = {0, 0, 2345, 678, 0, 0, 1234, 567, 0, 0, 0, 0};
    compareAll();
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
    {"two pixels more",                {1282,  720, 1650,  750, 60}, 126},
    {"13, never 14, 15 or 16",         {1920, 1080, 2200, 1125, 30},  13},
    {"the field of 38",                {1920,  540, 2200,  562, 60},  38},
    {"a field of 39",                  {1920,  540, 2640,  563, 50},  39},
    {"a field of 36",                  { 720,  240,  858,  262, 60},  36},
    {"no format",                      {1000, 1000, 1100, 1100, 60}, 126},
    {"101 comes before 103",           {1024, 2160, 1320, 2250, 25}, 101},
    {"29 Hz is near to 25 Hz only",    {1024, 2160, 1320, 2250, 29}, 103},
};

const struct {
    int32_t width, height;
    uint8_t format;
} kSizes[] = {
    {7680, 1080, 126}, {8192, 1080, 126}, // kept in quarters
    {1920, 1080, 10}, // never 66 or 108 to 115
    {1920, 1200, 50},
    {1440, 864, 126}, // a size that no format has
    {1920, 540, 126}, // a field has no size of its own
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

// The one with a small letter finds an id by the numbers of a field.
TEST_F(FormatDetection, TwoOperationsDifferInTheCaseOfOneLetterOfTheirNames)
{
    static_assert(std::is_same_v<decltype(isInterlaceFormat),
                                 uint8_t(int32_t, int32_t, int32_t, int32_t, int32_t)>);
    static_assert(std::is_same_v<decltype(IsInterlaceFormat), int32_t(uint32_t)>);
    EXPECT_EQ(IsInterlaceFormat(39), 1);
    EXPECT_EQ(isInterlaceFormat(39, 0, 0, 0, 0), 126);
    EXPECT_EQ(interlaceFormat(kFields[2].middle), 39u);
}

// The document ------------------------------------------------------------------------------------

const char kChapter[] = "Finding the format of an input";

TEST_F(FormatDetection, NumbersMayDifferByTheTolerancesOfTheDocument)
{
    const char *const names[] = {"active width", "active height", "H total", "V total", "V freq"};
    const auto rows = tableOf(kChapter, "measured | difference");
    ASSERT_EQ(rows.size(), std::size(names)) << FORMATS_DOCUMENT;
    for (size_t place = 0; place < kNumbers; ++place) {
        const std::string most = std::to_string(kTolerances[place]);
        EXPECT_EQ(rows[place], (std::vector<std::string>{names[place], most}));
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
        EXPECT_EQ(number(cells[1]), getVideoFormat(rowOf(id))) << id;
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
