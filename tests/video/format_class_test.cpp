// The classes of formats, and what the format of the external input comes to: id by id, against
// the exchanged table (tests/data/video_formats.csv) and docs/video-formats.md.

#include "video/format_class.h"

#include <cstdint>
#include <cstring>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/format_files.h"
#include "video/VideoFormatTable.h"
#include "video/format_id.h"

namespace {

const std::set<uint32_t> kInterlaced = {36, 37, 38, 39, 63, 71, 72};

struct Class {
    const char *name;
    int32_t (*ask)(uint32_t id);
    std::set<uint32_t> formats;     // of the format table
    std::set<uint32_t> sizeClasses; // of the custom format
    bool followsExternInput;
};

std::set<uint32_t> from(uint32_t first, uint32_t last)
{
    std::set<uint32_t> numbers;
    for (uint32_t n = first; n <= last; ++n) {
        numbers.insert(n);
    }
    return numbers;
}

const Class kClasses[] = {
    {"IsInterlaceFormat", IsInterlaceFormat, kInterlaced, {}, true},
    {"IsSDFormat", IsSDFormat, {36, 37, 71, 72}, {}, false},
    {"Is4K2K_Format", Is4K2K_Format, from(73, 107), {1}, true},
    {"Is8K1K_Format", Is8K1K_Format, from(108, 123), {2}, true},
    {"Is4K2K_8K1K_Format", Is4K2K_8K1K_Format, from(73, 123), from(1, 255), true},
};

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

class FormatClass : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(readExchanged()) << FORMATS_FILE;
        malloc_saveView();
        setExtern(10);
    }
    static void setExtern(uint32_t id)
    {
        GetUserSetting()->extInputFormat = static_cast<uint8_t>(id);
    }
    static void setSizeClass(uint32_t sizeClass)
    {
        GetCustomResolution()->sizeClass = static_cast<uint8_t>(sizeClass);
    }
    // The table's formats that are of the class by a property of their row.
    template <typename Property> static std::set<uint32_t> formatsOf(Property property)
    {
        std::set<uint32_t> formats;
        for (const Row &row : exchanged) {
            if (property(row)) {
                formats.insert(row.id);
            }
        }
        return formats;
    }
    static std::set<uint32_t> formatsOf(int32_t (*ask)(uint32_t id))
    {
        return formatsOf([ask](const Row &row) { return ask(row.id) == 1; });
    }
};

TEST_F(FormatClass, SevenOfAllFormatsAreInterlaced)
{
    for (uint32_t id = 0; id < 256; ++id) {
        EXPECT_EQ(IsInterlaceFormat(id), kInterlaced.count(id) != 0 ? 1 : 0) << id;
    }
}

TEST_F(FormatClass, Format63IsInterlaced)
{
    EXPECT_EQ(IsInterlaceFormat(63), 1);
}

// Behind the last "x" of such a name stands the rate, and the letter behind it.
TEST_F(FormatClass, InterlacedAreTheFormatsWhoseNameSaysSo)
{
    for (uint32_t id = 0; id < 124; ++id) {
        const std::string name = GetStrByVideoFormat(id);
        const size_t letter = name.find_first_not_of("0123456789.", name.rfind('x') + 1);
        EXPECT_EQ(IsInterlaceFormat(id), letter != std::string::npos && name[letter] == 'i')
            << name;
    }
}

TEST_F(FormatClass, OnlyTheLow8BitsOfAnIdCount)
{
    for (const uint32_t high : {0x100u, 0x2400u, 0x10000u, 0x80000000u, 0xFFFFFF00u}) {
        for (uint32_t id = 0; id < 256; ++id) {
            EXPECT_EQ(followExternInput(high | id), id == 125 ? 10 : id);
        }
    }
}

TEST_F(FormatClass, TheFormatOfTheExternalInputMattersToNoOtherId)
{
    setExtern(38);
    for (uint32_t id = 0; id < 256; ++id) {
        if (id != 125) {
            EXPECT_EQ(IsInterlaceFormat(id), kInterlaced.count(id) != 0 ? 1 : 0) << id;
            EXPECT_EQ(followExternInput(id), id);
        }
    }
}

TEST_F(FormatClass, TheExternalInputStandsForItsFormatAndForUndefinedIfThatIsItself)
{
    for (uint32_t external = 0; external < 256; ++external) {
        setExtern(external);
        EXPECT_EQ(followExternInput(125), external == 125 ? 126 : external);
    }
}

TEST_F(FormatClass, AskingChangesNothing)
{
    const UserSetting before = *GetUserSetting();
    for (uint32_t id = 0; id < 256; ++id) {
        for (const Class &one : kClasses) {
            one.ask(id);
        }
        followExternInput(id);
    }
    EXPECT_EQ(std::memcmp(&before, GetUserSetting(), sizeof before), 0);
}

// All classes -------------------------------------------------------------------------------------

// At the external input: the ends of each class and their neighbours, and ids without a row.
TEST_F(FormatClass, EveryClassAnswersForEveryIdWithEverySizeClassAndExternalInput)
{
    for (const uint32_t sizeClass : {0u, 1u, 2u, 3u, 127u, 128u, 254u, 255u}) {
        setSizeClass(sizeClass);
        for (const uint32_t external :
             {0u, 10u, 36u, 72u, 73u, 107u, 108u, 123u, 124u, 125u, 126u, 127u, 128u, 255u}) {
            setExtern(external);
            for (const Class &one : kClasses) {
                for (uint32_t id = 0; id < 256; ++id) {
                    EXPECT_EQ(one.ask(id), expected(one, id, external, sizeClass))
                        << one.name << ' ' << id << ", external " << external << ", size class "
                        << sizeClass;
                }
            }
        }
    }
}

// With each format that the external input can have; 124 there is the custom format, 125 nothing.
TEST_F(FormatClass, TheExternalInputIsOfTheClassesOfItsFormat)
{
    for (const uint32_t sizeClass : {0u, 1u, 2u, 3u, 255u}) {
        setSizeClass(sizeClass);
        for (uint32_t external = 0; external < 256; ++external) {
            setExtern(external);
            for (const Class &one : kClasses) {
                const int32_t answer = one.ask(125);
                EXPECT_EQ(answer, expected(one, 125, external, sizeClass))
                    << one.name << ' ' << external << ", size class " << sizeClass;
                if (external != 125 && one.followsExternInput) {
                    EXPECT_EQ(answer, one.ask(external)) << one.name << ' ' << external;
                }
            }
        }
    }
}

TEST_F(FormatClass, TheExternalInputWith125StoredIsOfNoClass)
{
    setExtern(125);
    setSizeClass(1);
    for (const Class &one : kClasses) {
        EXPECT_EQ(one.ask(125), 0) << one.name;
    }
}

TEST_F(FormatClass, TheCustomFormatIsOfTheClassOfItsSizeClass)
{
    for (uint32_t sizeClass = 0; sizeClass < 256; ++sizeClass) {
        setSizeClass(sizeClass);
        EXPECT_EQ(Is4K2K_Format(124), sizeClass == 1 ? 1 : 0) << sizeClass;
        EXPECT_EQ(Is8K1K_Format(124), sizeClass == 2 ? 1 : 0) << sizeClass;
        EXPECT_EQ(Is4K2K_8K1K_Format(124), sizeClass == 0 ? 0 : 1) << sizeClass;
        EXPECT_EQ(IsInterlaceFormat(124), 0) << sizeClass;
        EXPECT_EQ(IsSDFormat(124), 0) << sizeClass;
    }
}

// Neither the size that was asked for nor anything else of the record.
TEST_F(FormatClass, TheSizeOfTheCustomFormatDoesNotMatter)
{
    std::memset(reinterpret_cast<char *>(GetCustomResolution()), 0xFF, sizeof(Resolution));
    setSizeClass(0);
    EXPECT_EQ(Is4K2K_Format(124), 0);
    EXPECT_EQ(Is8K1K_Format(124), 0);
    EXPECT_EQ(Is4K2K_8K1K_Format(124), 0);
    *GetCustomResolution() = {720, 480, 60, 1, {}};
    EXPECT_EQ(Is4K2K_Format(124), 1);
    *GetCustomResolution() = {3840, 2160, 60, 2, {}};
    EXPECT_EQ(Is4K2K_Format(124), 0);
    EXPECT_EQ(Is8K1K_Format(124), 1);
}

TEST_F(FormatClass, OnlyTheLow8BitsOfAnIdCountForAnyClass)
{
    setSizeClass(1);
    setExtern(123);
    for (const uint32_t high : {0x100u, 0x4900u, 0x10000u, 0x80000000u, 0xFFFFFF00u}) {
        for (const Class &one : kClasses) {
            for (uint32_t id = 0; id < 256; ++id) {
                EXPECT_EQ(one.ask(high | id), expected(one, id, 123, 1))
                    << one.name << ' ' << std::hex << (high | id);
            }
        }
    }
}

TEST_F(FormatClass, TheStandardDefinitionOfTheExternalInputDoesNotCount)
{
    for (uint32_t external = 0; external < 256; ++external) {
        setExtern(external);
        EXPECT_EQ(IsSDFormat(125), 0) << external;
    }
    setExtern(36);
    EXPECT_EQ(IsSDFormat(36), 1);
    EXPECT_EQ(IsInterlaceFormat(125), 1); // which is followed
}

// The classes and the rows ------------------------------------------------------------------------

TEST_F(FormatClass, StandardDefinitionAreTheInterlacedFormatsOfFewerThan1080Lines)
{
    EXPECT_EQ(formatsOf(IsSDFormat), formatsOf([](const Row &row) {
                  return kInterlaced.count(row.id) != 0 && row.height < 1080;
              }));
    EXPECT_EQ(formatsOf(IsSDFormat), formatsOf([](const Row &row) {
                  return (row.height == 480 || row.height == 576) &&
                         row.name.find('i') != std::string::npos;
              }));
}

// Among all others no row has 2160 lines.
TEST_F(FormatClass, TheFormatsOf2160LinesAndThreeMoreAre4K2K)
{
    std::set<uint32_t> formats = formatsOf([](const Row &row) { return row.height == 2160; });
    EXPECT_EQ(formats.size(), 32u);
    for (const uint32_t id : {89u, 90u, 91u}) {
        EXPECT_TRUE(formats.insert(id).second);
    }
    EXPECT_EQ(formatsOf(Is4K2K_Format), formats);
    EXPECT_EQ(exchanged[89].name, "2560x1600x60");
    EXPECT_EQ(exchanged[90].name, "2560x1440x60");
    EXPECT_EQ(exchanged[91].name, "3840x1080x60");
}

TEST_F(FormatClass, TheFormatsNamed7680And8192WideAre8K1K)
{
    EXPECT_EQ(formatsOf(Is8K1K_Format), formatsOf([](const Row &row) {
                  return row.name.rfind("7680x1080x", 0) == 0 ||
                         row.name.rfind("8192x1080x", 0) == 0;
              }));
}

TEST_F(FormatClass, NoFormatIs4K2KAnd8K1KButEachOfThemIsOneOfBoth)
{
    for (uint32_t id = 0; id < 124; ++id) {
        EXPECT_EQ(Is4K2K_Format(id) + Is8K1K_Format(id), Is4K2K_8K1K_Format(id)) << id;
        EXPECT_FALSE(Is4K2K_8K1K_Format(id) == 1 && IsInterlaceFormat(id) == 1) << id;
    }
}

// Examples ----------------------------------------------------------------------------------------

TEST_F(FormatClass, TheProgressiveFormats0And1AreNotStandardDefinition)
{
    EXPECT_EQ(IsSDFormat(0), 0);
    EXPECT_EQ(IsSDFormat(1), 0);
    EXPECT_EQ(IsSDFormat(36), 1);
    EXPECT_EQ(IsSDFormat(38), 0);
    EXPECT_EQ(IsSDFormat(63), 0);
}

TEST_F(FormatClass, Format107Is4K2KAnd108Is8K1K)
{
    EXPECT_EQ(Is4K2K_Format(72), 0);
    EXPECT_EQ(Is4K2K_Format(73), 1);
    EXPECT_EQ(Is4K2K_Format(107), 1);
    EXPECT_EQ(Is4K2K_Format(108), 0);
    EXPECT_EQ(Is8K1K_Format(107), 0);
    EXPECT_EQ(Is8K1K_Format(108), 1);
    EXPECT_EQ(Is8K1K_Format(123), 1);
    EXPECT_EQ(Is4K2K_8K1K_Format(72), 0);
    EXPECT_EQ(Is4K2K_8K1K_Format(73), 1);
    EXPECT_EQ(Is4K2K_8K1K_Format(123), 1);
    EXPECT_EQ(Is4K2K_8K1K_Format(126), 0);
}

// The document ------------------------------------------------------------------------------------

TEST_F(FormatClass, TheClassesAreThoseOfTheDocument)
{
    const std::vector<std::vector<std::string>> rows =
        tableOf("Classes", "class | operation | formats | custom format of sizeClass | "
                           "format of the external input");
    ASSERT_EQ(rows.size(), std::size(kClasses)) << FORMATS_DOCUMENT;
    for (size_t i = 0; i < rows.size(); ++i) {
        const Class &one = kClasses[i];
        ASSERT_EQ(rows[i].size(), 5u);
        EXPECT_EQ(rows[i][1], quoted(one.name));
        const std::vector<uint32_t> ids = numbersIn(rows[i][2]);
        EXPECT_EQ(std::set<uint32_t>(ids.begin(), ids.end()), formatsOf(one.ask)) << one.name;
        std::set<uint32_t> sizeClasses;
        for (uint32_t sizeClass = 0; sizeClass < 256; ++sizeClass) {
            setSizeClass(sizeClass);
            if (one.ask(124) == 1) {
                sizeClasses.insert(sizeClass);
            }
        }
        if (rows[i][3] == "none") {
            EXPECT_TRUE(sizeClasses.empty()) << one.name;
        } else {
            const std::vector<uint32_t> documented = numbersIn(rows[i][3]);
            EXPECT_EQ(std::set<uint32_t>(documented.begin(), documented.end()), sizeClasses)
                << one.name;
        }
        setExtern(ids.front());
        EXPECT_EQ(rows[i][4], one.ask(125) == 1 ? "counts" : "does not count") << one.name;
    }
}

} // namespace
