// Which formats are interlaced, and what the format of the external input comes to.

#include "video/FormatClass.h"

#include <cstdint>
#include <cstring>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "video/VideoFormatTable.h"

namespace {

const std::set<uint32_t> kInterlaced = {36, 37, 38, 39, 63, 71, 72};

class FormatClass : public testing::Test {
protected:
    void SetUp() override
    {
        malloc_saveView();
        setExtern(10);
    }
    static void setExtern(uint32_t id)
    {
        GetUserSetting()->extInputFormat = static_cast<uint8_t>(id);
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
            EXPECT_EQ(IsInterlaceFormat(high | id), kInterlaced.count(id) != 0 ? 1 : 0) << id;
            EXPECT_EQ(followExternInput(high | id), id == 125 ? 10 : id);
        }
    }
}

// Also with 125 stored, which no one should do: it ends there.
TEST_F(FormatClass, TheExternalInputIsInterlacedIfItsFormatIs)
{
    for (uint32_t external = 0; external < 256; ++external) {
        setExtern(external);
        EXPECT_EQ(IsInterlaceFormat(125), kInterlaced.count(external) != 0 ? 1 : 0) << external;
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
        IsInterlaceFormat(id);
        followExternInput(id);
    }
    EXPECT_EQ(std::memcmp(&before, GetUserSetting(), sizeof before), 0);
}

} // namespace
