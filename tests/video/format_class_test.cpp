// The classes of formats, and what the format of the external input comes to: id by id, against
// the exchanged table (tests/data/video_formats.csv) and docs/video-formats.md.

#include "video/format_class.h"

#include <cstdint>
#include <cstring>
#include <iterator>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/format_files.h"
#include "tests/support/setting_bytes.h"
#include "video/format_id.h"

namespace {

struct Class {
    const char *name;
    int32_t (*ask)(uint32_t id);
    std::set<uint32_t> formats;     // of the format table
    std::set<uint32_t> sizeClasses; // of the custom format
    bool followsExternInput;
};

// clang-format off
const Class kClasses[] = {
    {"IsInterlaceFormat",  IsInterlaceFormat,  setOf("36 to 39, 63, 71, 72"), {},         true},
    {"IsSDFormat",         IsSDFormat,         {36, 37, 71, 72},              {},         false},
    {"Is4K2K_Format",      Is4K2K_Format,      setOf("73 to 107"),            {1},        true},
    {"Is8K1K_Format",      Is8K1K_Format,      setOf("108 to 123"),           {2},        true},
    {"Is4K2K_8K1K_Format", Is4K2K_8K1K_Format, setOf("73 to 123"), setOf("1 to 255"),     true},
};
// clang-format on

int32_t expected(const Class &one, uint32_t id, uint32_t external, uint32_t sizeClass)
{
    if (id == 124) {
        return one.sizeClasses.count(sizeClass) != 0 ? 1 : 0;
    }
    if (id == 125 && one.followsExternInput && external != 125) {
        return expected(one, external, external, sizeClass);
    }
    return one.formats.count(id) != 0 ? 1 : 0;
}

void setExtern(uint32_t id)
{
    GetUserSetting()->extInputFormat = static_cast<uint8_t>(id);
}

void setSizeClass(uint32_t sizeClass)
{
    GetCustomResolution()->sizeClass = static_cast<uint8_t>(sizeClass);
}

class FormatClass : public WithExchanged {
protected:
    void SetUp() override
    {
        WithExchanged::SetUp();
        malloc_saveView();
    }
};

// Every class -------------------------------------------------------------------------------------

// Ids below 124 do not depend on the external input: a few formats of it are enough for them.
TEST_F(FormatClass, EveryClassAnswersForTheLow8BitsOfEveryIdWithEveryExternalInput)
{
    for (const uint32_t sizeClass : {0u, 1u, 2u, 3u, 255u}) {
        setSizeClass(sizeClass);
        for (uint32_t external = 0; external < 256; ++external) {
            setExtern(external);
            const uint32_t high = external % 5 * 0x01004900; // 0 with every size class
            for (const Class &one : kClasses) {
                for (uint32_t id = external % 16 == 0 ? 0 : 124; id < 256; ++id) {
                    EXPECT_EQ(one.ask(high | id), expected(one, id, external, sizeClass))
                        << one.name << ' ' << (high | id) << ", external " << external
                        << ", size class " << sizeClass;
                }
            }
        }
    }
}

TEST_F(FormatClass, TheCustomFormatIsOfTheClassOfItsSizeClassWhateverItsSize)
{
    for (const Resolution &resolution :
         {Resolution{720, 480, 60, 0, {}}, Resolution{0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0, {}}}) {
        *GetCustomResolution() = resolution;
        for (uint32_t sizeClass = 0; sizeClass < 256; ++sizeClass) {
            setSizeClass(sizeClass);
            for (const Class &one : kClasses) {
                EXPECT_EQ(one.ask(124), expected(one, 124, 0, sizeClass))
                    << one.name << ", size class " << sizeClass;
            }
        }
    }
}

TEST_F(FormatClass, TheExternalInputStandsForItsFormatAndForUndefinedIfThatIsItself)
{
    for (uint32_t external = 0; external < 256; ++external) {
        setExtern(external);
        for (const uint32_t high : {0u, 0x100u, 0xFFFFFF00u}) {
            for (uint32_t id = 0; id < 256; ++id) {
                EXPECT_EQ(followExternInput(high | id), id != 125         ? id
                                                        : external != 125 ? external
                                                                          : 126)
                    << id << ", external " << external;
            }
        }
    }
}

TEST_F(FormatClass, AskingChangesNothing)
{
    const Bytes before = bytesOf(GetUserSetting());
    for (uint32_t id = 0; id < 256; ++id) {
        for (const Class &one : kClasses) {
            one.ask(id);
        }
    }
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), before));
}

// clang-format off
const struct {
    int32_t (*ask)(uint32_t id);
    uint32_t id;
    int32_t expected;
} kExamples[] = {
    {IsSDFormat,            0, 0}, {IsSDFormat,            1, 0}, // progressive
    {IsSDFormat,           36, 1}, {IsSDFormat,           38, 0},
    {IsInterlaceFormat,    63, 1}, {IsSDFormat,           63, 0},
    {Is4K2K_Format,        72, 0}, {Is4K2K_Format,        73, 1},
    {Is4K2K_Format,       107, 1}, {Is4K2K_Format,       108, 0},
    {Is8K1K_Format,       107, 0}, {Is8K1K_Format,       108, 1},
    {Is8K1K_Format,       123, 1}, {Is8K1K_Format,       126, 0},
    {Is4K2K_8K1K_Format,   72, 0}, {Is4K2K_8K1K_Format,   73, 1},
    {Is4K2K_8K1K_Format,  123, 1}, {Is4K2K_8K1K_Format,  126, 0},
    {IsInterlaceFormat,   125, 1}, {IsSDFormat,          125, 0}, // 36 at the external input
};
// clang-format on

TEST_F(FormatClass, TheseIdsAreOrAreNotOfAClass)
{
    setExtern(36);
    for (const auto &row : kExamples) {
        EXPECT_EQ(row.ask(row.id), row.expected) << row.id << ", row " << &row - kExamples;
    }
}

// The classes, the rows and the document ----------------------------------------------------------

TEST_F(FormatClass, TheClassesFollowFromNamesAndSizes)
{
    for (const Row &row : exchanged) {
        // After the last "x" of a name comes the rate, and the letter after it.
        const size_t letter = row.name.find_first_not_of("0123456789.", row.name.rfind('x') + 1);
        const bool isInterlaced = letter != std::string::npos && row.name[letter] == 'i';
        const bool is8K1K =
            row.name.rfind("7680x1080x", 0) == 0 || row.name.rfind("8192x1080x", 0) == 0;
        const bool is4K2K = row.height == 2160 || row.name == "2560x1600x60" ||
                            row.name == "2560x1440x60" || row.name == "3840x1080x60";
        EXPECT_EQ(IsInterlaceFormat(row.id), isInterlaced) << row;
        EXPECT_EQ(IsSDFormat(row.id), isInterlaced && row.height < 1080) << row;
        EXPECT_EQ(Is4K2K_Format(row.id), is4K2K) << row;
        EXPECT_EQ(Is8K1K_Format(row.id), is8K1K) << row;
        EXPECT_EQ(Is4K2K_8K1K_Format(row.id), is4K2K || is8K1K) << row;
    }
}

TEST_F(FormatClass, TheClassesAreThoseOfTheDocument)
{
    const auto rows = tableOf("Classes", "class | operation | formats | custom format of sizeClass "
                                         "| format of the external input");
    ASSERT_EQ(rows.size(), std::size(kClasses)) << FORMATS_DOCUMENT;
    for (size_t i = 0; i < rows.size(); ++i) {
        const Class &one = kClasses[i];
        ASSERT_EQ(rows[i].size(), 5u);
        EXPECT_EQ(rows[i][1], quoted(one.name));
        EXPECT_EQ(setOf(rows[i][2]), one.formats) << one.name;
        EXPECT_EQ(rows[i][3] == "none" ? std::set<uint32_t>() : setOf(rows[i][3]), one.sizeClasses)
            << one.name;
        EXPECT_EQ(rows[i][4], one.followsExternInput ? "counts" : "does not count") << one.name;
    }
}

} // namespace
