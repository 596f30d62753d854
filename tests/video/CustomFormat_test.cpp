// The two records of the custom format: every setter and getter against the bytes of its record,
// and both records against docs/video-formats.md.

#include "video/CustomFormat.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/console.h"
#include "tests/support/setting_bytes.h"
#include "tests/support/setting_change.h"

namespace fs = std::filesystem;

namespace {

// No two fields of one record, nor the same bytes of both, are equal: one read for another shows.
void fillBoth()
{
    fill(GetUserSetting(), steppedBytes(sizeof(UserSetting), 1));
    fill(GetCustomFormat(), steppedBytes(sizeof(CustomFormat), 1));
}

uint32_t valueOf(const Bytes &bytes)
{
    uint32_t value = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        value |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[i])) << 8 * i;
    }
    return value;
}

struct Accessors {
    const char *field;
    void (*set)(uint32_t value);
    uint32_t (*get)();
    size_t offset;
    size_t size;
};

// In the user setting record, from where the custom resolution begins.
constexpr size_t kResolution = 3736;
const Accessors kOfResolution[] = {
    {"width", setCustomH, getCustomH, kResolution, 4},
    {"height", setCustomV, getCustomV, kResolution + 4, 4},
    {"frameRate", setCustomF, getCustomF, kResolution + 8, 4},
};
const Accessors kOfTiming[] = {
    {"syncPolarity", setCustomhvSyncPolarity, getCustomhvSyncPolarity, 1, 1},
    {"hTotal", setCustomhTotal, getCustomhTotal, 2, 2},
    {"vTotal", setCustomvTotal, getCustomvTotal, 4, 2},
    {"hStart", setCustomhStart, getCustomhStart, 6, 2},
    {"vStart", setCustomvStart, getCustomvStart, 8, 2},
    {"hActive", setCustomhActive, getCustomhActive, 10, 2},
    {"vActive", setCustomvActive, getCustomvActive, 12, 2},
    {"hSyncWidth", setCustomhSyncWidth, getCustomhSyncWidth, 14, 2},
    {"vSyncWidth", setCustomvSyncWidth, getCustomvSyncWidth, 16, 2},
    {"colorSpace", setCustomcolorSpace, getCustomcolorSpace, 18, 1},
};

// What can be lost or misread on the way into a narrower field and out of it.
constexpr uint32_t kValues[] = {
    0,      1,       0x7F,       0x80,       0xFF,       0x100,      0x7FFF,     0x8000,
    0xFFFF, 0x10000, 0x89ABCDEF, 0x76543210, 0x7FFFFFFF, 0x80000000, 0xFFFFFF00, 0xFFFFFFFF,
};

[[maybe_unused]] const auto *const blocks = testing::AddGlobalTestEnvironment(new Blocks);

TEST(CustomFormat, BothRecordsAreZeroAtFirst)
{
    EXPECT_TRUE(areBytes(bytesOf(GetCustomFormat()), Bytes(20, '\0')));
    for (const Accessors &field : kOfTiming) {
        EXPECT_EQ(field.get(), 0u) << field.field;
    }
    for (const Accessors &field : kOfResolution) {
        EXPECT_EQ(field.get(), 0u) << field.field;
    }
}

TEST(CustomFormat, TheTimingIsAlwaysTheSameRecord)
{
    CustomFormat *const timing = GetCustomFormat();
    fill(timing, steppedBytes(sizeof *timing, 1));
    EXPECT_EQ(GetCustomFormat(), timing);
    GetCustomFormat()->hTotal = 2200;
    EXPECT_EQ(timing->hTotal, 2200);
    EXPECT_EQ(getCustomhTotal(), 2200u);
}

TEST(CustomFormat, TheResolutionLiesInTheUserSettingRecord)
{
    fillBoth();
    EXPECT_EQ(reinterpret_cast<char *>(GetCustomResolution()) -
                  reinterpret_cast<char *>(GetUserSetting()),
              3736);
    EXPECT_EQ(getCustomH(), GetUserSetting()->customResolution.width);
    EXPECT_EQ(getCustomV(), GetUserSetting()->customResolution.height);
    EXPECT_EQ(getCustomF(), GetUserSetting()->customResolution.frameRate);
}

TEST(CustomFormat, EverySetterOfTheTimingCutsTheValueAndChangesItsFieldOnly)
{
    for (const Accessors &field : kOfTiming) {
        for (const uint32_t value : kValues) {
            fillBoth();
            const Bytes setting = bytesOf(GetUserSetting());
            const Bytes expected =
                with(bytesOf(GetCustomFormat()), field.offset, littleEndian(value, field.size));
            field.set(value);
            EXPECT_TRUE(areBytes(bytesOf(GetCustomFormat()), expected))
                << field.field << ' ' << value;
            EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), setting))
                << field.field << ' ' << value;
        }
    }
}

TEST(CustomFormat, EverySetterOfTheResolutionChangesItsFieldOnly)
{
    for (const Accessors &field : kOfResolution) {
        for (const uint32_t value : kValues) {
            fillBoth();
            const Bytes timing = bytesOf(GetCustomFormat());
            const Bytes expected =
                with(bytesOf(GetUserSetting()), field.offset, littleEndian(value, field.size));
            field.set(value);
            EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), expected))
                << field.field << ' ' << value;
            EXPECT_TRUE(areBytes(bytesOf(GetCustomFormat()), timing))
                << field.field << ' ' << value;
        }
    }
}

TEST(CustomFormat, EveryGetterWidensItsField)
{
    fillBoth();
    for (const Accessors &field : kOfTiming) {
        EXPECT_EQ(field.get(), valueOf(bytesOf(GetCustomFormat()).substr(field.offset, field.size)))
            << field.field;
    }
    for (const Accessors &field : kOfResolution) {
        EXPECT_EQ(field.get(), valueOf(bytesOf(GetUserSetting()).substr(field.offset, field.size)))
            << field.field;
    }
    for (const uint32_t value : kValues) {
        for (const Accessors &field : kOfTiming) {
            field.set(value);
            EXPECT_EQ(field.get(), value & (field.size == 1 ? 0xFF : 0xFFFF)) << field.field;
        }
        for (const Accessors &field : kOfResolution) {
            field.set(value);
            EXPECT_EQ(field.get(), value) << field.field;
        }
    }
}

TEST(CustomFormat, GettersChangeNothing)
{
    fillBoth();
    const Bytes setting = bytesOf(GetUserSetting());
    const Bytes timing = bytesOf(GetCustomFormat());
    for (const Accessors &field : kOfTiming) {
        field.get();
    }
    for (const Accessors &field : kOfResolution) {
        field.get();
    }
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), setting));
    EXPECT_TRUE(areBytes(bytesOf(GetCustomFormat()), timing));
}

TEST(CustomFormat, SettersSaveAndPrintNothing)
{
    fs::create_directory(kDirectory);
    EXPECT_EQ(printedBy([] {
                  for (const Accessors &field : kOfTiming) {
                      field.set(60);
                  }
                  for (const Accessors &field : kOfResolution) {
                      field.set(60);
                  }
              }),
              "");
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

// What the user setting record becomes when a file is read into it is the resolution from then on.
TEST(CustomFormat, TheResolutionFollowsItsRecordAndTheTimingDoesNot)
{
    setCustomH(1920);
    setCustomhActive(1920);
    *GetUserSetting() = {};
    EXPECT_EQ(getCustomH(), 0u);
    EXPECT_EQ(getCustomhActive(), 1920u);
}

// The document ------------------------------------------------------------------------------------

struct Field {
    std::string name;
    std::string type;
    size_t offset;
    bool operator==(const Field &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Field &field)
{
    return out << field.offset << ' ' << field.type << ' ' << field.name;
}

template <typename Type> std::string typeName()
{
    const std::string name = "u" + std::to_string(8 * sizeof(std::remove_all_extents_t<Type>));
    return std::rank_v<Type> == 0 ? name : name + '[' + std::to_string(std::extent_v<Type>) + ']';
}

#define FIELD(record, field)                                                                       \
    {                                                                                              \
#field, typeName < decltype(record::field)>(), offsetof(record, field)                     \
    }
// The resolution, and after it the timing.
const std::vector<Field> kFields = {
    FIELD(Resolution, width),          FIELD(Resolution, height),
    FIELD(Resolution, frameRate),      FIELD(Resolution, sizeClass),
    FIELD(Resolution, reserved13),     FIELD(CustomFormat, reserved0),
    FIELD(CustomFormat, syncPolarity), FIELD(CustomFormat, hTotal),
    FIELD(CustomFormat, vTotal),       FIELD(CustomFormat, hStart),
    FIELD(CustomFormat, vStart),       FIELD(CustomFormat, hActive),
    FIELD(CustomFormat, vActive),      FIELD(CustomFormat, hSyncWidth),
    FIELD(CustomFormat, vSyncWidth),   FIELD(CustomFormat, colorSpace),
    FIELD(CustomFormat, reserved19),
};
#undef FIELD

TEST(CustomFormat, BothRecordsHaveTheFieldsOfTheirDocument)
{
    std::ifstream document(FORMATS_DOCUMENT);
    std::vector<Field> fields;
    bool isInTable = false;
    for (std::string line; std::getline(document, line);) {
        if (line.rfind("| ", 0) != 0) {
            isInTable = isInTable && line.rfind("|-", 0) == 0;
        } else if (line == "| offset | type | field | unit or range |") {
            isInTable = true;
        } else if (isInTable) {
            std::vector<std::string> cells;
            for (size_t from = 2; cells.size() < 3;) {
                const size_t to = line.find(" |", from);
                ASSERT_NE(to, std::string::npos) << line;
                cells.push_back(line.substr(from, to - from));
                from = to + 3;
            }
            fields.push_back({cells[2], cells[1], std::stoul(cells[0])});
        }
    }
    EXPECT_EQ(fields, kFields) << FORMATS_DOCUMENT;
}

} // namespace
