// Questions about the record and changes of alphas, on records of which every byte is of its own.

#include "storage/UserSettingQuery.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/setting_bytes.h"
#include "tests/support/setting_change.h"

namespace {

[[maybe_unused]] const auto *const blocks = testing::AddGlobalTestEnvironment(new Blocks);

const Bytes kRecord = ownBytes(kUserSettingSize, 77);

uint8_t byteAt(const Bytes &bytes, size_t at)
{
    return static_cast<uint8_t>(bytes.at(at));
}

constexpr uint32_t kOutOfRange[] = {96, 97, 127, 255, 256, 0x80000000, 0xFFFFFFFF};

// Sizes ------------------------------------------------------------------------------------------

TEST(UserSettingQuery, OutputActiveSizeIsThatOfOutput0)
{
    fill(GetUserSetting(), Image(kRecord).u16(1734, {0xFEDC, 0xBA98}).bytes);
    EXPECT_EQ(GetOutHActive(), 0xFEDCu);
    EXPECT_EQ(GetOutVActive(), 0xBA98u);
}

// A record in which the output group areas have these sizes, and 0xFF in all other bytes.
void setAreas(const std::vector<std::pair<int32_t, int32_t>> &sizes)
{
    Image record(Bytes(kUserSettingSize, '\xFF'));
    for (size_t n = 0; n < 24; ++n) {
        const auto [width, height] = n < sizes.size() ? sizes[n] : std::pair(0, 0);
        record.u32(3184 + 20 * n + 8, {static_cast<uint32_t>(width)});
        record.u32(3184 + 20 * n + 16, {static_cast<uint32_t>(height)});
    }
    fill(GetUserSetting(), record.bytes);
}

TEST(UserSettingQuery, LargestAreaIsZeroWhenAllAreZero)
{
    setAreas({});
    EXPECT_EQ(GetOutMaxWidth(), 0u);
    EXPECT_EQ(GetOutMaxHeight(), 0u);
}

TEST(UserSettingQuery, LargestAreaIsZeroWhenAllAreNegative)
{
    setAreas({24, {-1, INT32_MIN}});
    EXPECT_EQ(GetOutMaxWidth(), 0u);
    EXPECT_EQ(GetOutMaxHeight(), 0u);
    setAreas({24, {INT32_MIN, -1}});
    EXPECT_EQ(GetOutMaxWidth(), 0u);
    EXPECT_EQ(GetOutMaxHeight(), 0u);
}

// Unsigned, a negative size would be the largest of all.
TEST(UserSettingQuery, LargestAreaIsComparedWithItsSign)
{
    setAreas({{-1, INT32_MIN}, {3, 1}, {INT32_MIN, -5}, {2, 4}});
    EXPECT_EQ(GetOutMaxWidth(), 3u);
    EXPECT_EQ(GetOutMaxHeight(), 4u);
    setAreas({{INT32_MIN, 1}, {INT32_MAX, INT32_MAX}, {-1, INT32_MAX - 1}});
    EXPECT_EQ(GetOutMaxWidth(), 0x7FFFFFFFu);
    EXPECT_EQ(GetOutMaxHeight(), 0x7FFFFFFFu);
}

TEST(UserSettingQuery, LargestAreaIsFoundAtEveryPlaceWidthAndHeightApart)
{
    for (size_t n = 0; n < 24; ++n) {
        std::vector<std::pair<int32_t, int32_t>> sizes(24, {640, 480});
        sizes[n].first = 641;
        sizes[23 - n].second = 70000;
        setAreas(sizes);
        EXPECT_EQ(GetOutMaxWidth(), 641u) << n;
        EXPECT_EQ(GetOutMaxHeight(), 70000u) << n;
    }
}

TEST(UserSettingQuery, PortSizeIsThatOfTheFormatWithAQuarterOfItsNumber)
{
    const TimingTable timings = timingsOf(VIDEO_FORMATS);
    ASSERT_EQ(timings.size(), 124u);
    for (uint32_t port = 0; port < 4 * 124; ++port) {
        const auto &row = timings.at(port / 4);
        EXPECT_EQ(std::to_string(getOutputPortWidth(port)), row.at("width")) << port;
        EXPECT_EQ(std::to_string(getOutputPortHeight(port)), row.at("height")) << port;
    }
}

// Port 152 is of format 38, 1920x1080x60i.
TEST(UserSettingQuery, PortHeightOfAnInterlacedFormatIsThatOfAFrame)
{
    EXPECT_EQ(getOutputPortHeight(152), 1080u);
}

TEST(UserSettingQuery, PortSizeOfTheExternalInputIsThatOfItsFormat)
{
    GetUserSetting()->extInputFormat = 1;
    for (uint32_t port = 500; port < 504; ++port) {
        EXPECT_EQ(getOutputPortWidth(port), 720u);
        EXPECT_EQ(getOutputPortHeight(port), 576u);
    }
}

TEST(UserSettingQuery, PortSizeBeyondTheFormatsIs1024x768)
{
    for (uint32_t port = 504; port < 1024; ++port) {
        EXPECT_EQ(getOutputPortWidth(port), 1024u) << port;
        EXPECT_EQ(getOutputPortHeight(port), 768u) << port;
    }
}

// Layers -----------------------------------------------------------------------------------------

TEST(UserSettingQuery, LayersAreThoseOfTheirView)
{
    fill(GetUserSetting(), kRecord);
    for (uint32_t n = 0; n < 96; ++n) {
        EXPECT_EQ(GetLayerInputPort(n), byteAt(kRecord, kProgramAt + 16 + 26 * n)) << n;
        EXPECT_EQ(GetLayerAlphaPos(n), byteAt(kRecord, kProgramAt + 2512 + n)) << n;
        EXPECT_EQ(GetLayerAlpha(n), byteAt(kRecord, kProgramAt + 2608 + n)) << n;
        EXPECT_EQ(GetPreviewLayerAlphaPos(n), byteAt(kRecord, kPreviewAt + 2512 + n)) << n;
        EXPECT_EQ(GetPreviewLayerAlpha(n), byteAt(kRecord, kPreviewAt + 2608 + n)) << n;
    }
}

TEST(UserSettingQuery, PreviewLayersAndPositionsAreHandedOutInPlace)
{
    auto *const record = reinterpret_cast<uint8_t *>(GetUserSetting());
    for (uint32_t n = 0; n < 96; ++n) {
        EXPECT_EQ(reinterpret_cast<uint8_t *>(GetPreviewLayer(n)), record + 3812 + 16 + 26 * n);
    }
    EXPECT_EQ(GetPreviewOutLayerAlpha(), record + 3812 + 2512);
}

TEST(UserSettingQuery, AlphaIsChangedInItsViewAndNowhereElse)
{
    for (uint32_t n = 0; n < 96; ++n) {
        for (const uint32_t value : {0u, 1u, 128u, 255u}) {
            const uint8_t alpha = static_cast<uint8_t>(value);
            fill(GetUserSetting(), kRecord);
            SetLayerAlpha(n, alpha);
            EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()),
                                 Image(kRecord).u8(kProgramAt + 2608 + n, {alpha}).bytes));
            EXPECT_EQ(GetLayerAlpha(n), alpha);

            fill(GetUserSetting(), kRecord);
            SetPreviewLayerAlpha(n, alpha);
            EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()),
                                 Image(kRecord).u8(kPreviewAt + 2608 + n, {alpha}).bytes));
            EXPECT_EQ(GetPreviewLayerAlpha(n), alpha);
        }
    }
}

TEST(UserSettingQuery, LayersOutOfRangeAreZeroAndNotToBeChanged)
{
    const Bytes record(kUserSettingSize, '\xEE');
    fill(GetUserSetting(), record);
    for (const uint32_t n : kOutOfRange) {
        EXPECT_EQ(GetLayerInputPort(n), 0) << n;
        EXPECT_EQ(GetLayerAlpha(n), 0) << n;
        EXPECT_EQ(GetLayerAlphaPos(n), 0) << n;
        EXPECT_EQ(GetPreviewLayer(n), nullptr) << n;
        EXPECT_EQ(GetPreviewLayerAlpha(n), 0) << n;
        EXPECT_EQ(GetPreviewLayerAlphaPos(n), 0) << n;
        SetLayerAlpha(n, 1);
        SetPreviewLayerAlpha(n, 1);
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), record)) << n;
    }
}

} // namespace
