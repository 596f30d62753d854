// The classes of formats, and what the format of the external input comes to: id by id, and
// docs/video-formats.md.

#include "video/format_class.h"

#include <cstdint>
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

// Ids below 124 do not depend on the external input: a few formats of it are enough for them.
TEST(FormatClass, EveryClassAnswersForTheLow8BitsOfEveryIdAndChangesNothing)
{
    malloc_saveView();
    for (const uint32_t sizeClass : {0u, 1u, 2u, 3u, 255u}) {
        const auto sizeByte = static_cast<uint8_t>(sizeClass);
        *GetCustomResolution() = {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, sizeByte, {}};
        for (uint32_t external = 0; external < 256; ++external) {
            setExtern(external);
            const Bytes before = bytesOf(GetUserSetting());
            const uint32_t high = external % 5 * 0x01004900; // 0 with every size class
            for (const Class &one : kClasses) {
                for (uint32_t id = external % 16 == 0 ? 0 : 124; id < 256; ++id) {
                    EXPECT_EQ(one.ask(high | id), expected(one, id, external, sizeClass))
                        << one.name << ' ' << (high | id) << ", external " << external
                        << ", size class " << sizeClass;
                }
            }
            EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), before));
        }
    }
}

TEST(FormatClass, TheExternalInputStandsForItsFormatAndForUndefinedIfThatIsItself)
{
    malloc_saveView();
    for (uint32_t external = 0; external < 256; ++external) {
        setExtern(external);
        const uint32_t stands = external != 125 ? external : 126;
        for (const uint32_t high : {0u, 0x100u, 0xFFFFFF00u}) {
            for (uint32_t id = 0; id < 256; ++id) {
                EXPECT_EQ(followExternInput(high | id), id == 125 ? stands : id) << external;
            }
        }
    }
}

TEST(FormatClass, TheseIdsAreOrAreNotOfAClass)
{
    malloc_saveView();
    setExtern(36);
    EXPECT_EQ(IsSDFormat(0), 0); // progressive
    EXPECT_EQ(IsInterlaceFormat(63), 1);
    EXPECT_EQ(Is4K2K_Format(107), 1);
    EXPECT_EQ(Is4K2K_Format(108), 0);
    EXPECT_EQ(Is8K1K_Format(108), 1);
    EXPECT_EQ(Is8K1K_Format(126), 0);
    EXPECT_EQ(IsInterlaceFormat(125), 1);
    EXPECT_EQ(IsSDFormat(125), 0);
}

TEST(FormatClass, TheClassesAreThoseOfTheDocument)
{
    const auto rows = tableOf("Classes", "class | operation | formats | custom format of sizeClass "
                                         "| format of the external input");
    ASSERT_EQ(rows.size(), std::size(kClasses)) << FORMATS_DOCUMENT;
    for (size_t i = 0; i < rows.size(); ++i) {
        const Class &one = kClasses[i];
        ASSERT_EQ(rows[i].size(), 5u);
        const std::string &sizeClasses = rows[i][3];
        EXPECT_EQ(rows[i][1], quoted(one.name));
        EXPECT_EQ(setOf(rows[i][2]), one.formats) << one.name;
        EXPECT_EQ(sizeClasses != "none" ? setOf(sizeClasses) : std::set<uint32_t>(),
                  one.sizeClasses);
        EXPECT_EQ(rows[i][4], one.followsExternInput ? "counts" : "does not count") << one.name;
    }
}

} // namespace
