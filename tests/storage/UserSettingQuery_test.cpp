// Questions about the record and changes of alphas, on records of which every byte is of its own.

#include "storage/UserSettingQuery.h"

#include <gtest/gtest.h>

#include "tests/support/format_files.h"
#include "tests/support/setting_change.h"

namespace {

[[maybe_unused]] const auto *const blocks = testing::AddGlobalTestEnvironment(new Blocks);

TEST(UserSettingQuery, OutputActiveSizeIsThatOfOutput0)
{
    const Bytes record = ownBytes(kUserSettingSize, 77);
    fill(GetUserSetting(), Image(record).u16(1734, {0xFEDC, 0xBA98}).bytes);
    EXPECT_EQ(GetOutHActive(), 0xFEDCu);
    EXPECT_EQ(GetOutVActive(), 0xBA98u);
}

// A record in which the output group areas have these sizes, 0 if none, and 0xFF in other bytes.
void expectLargest(const std::vector<std::pair<int32_t, int32_t>> &sizes, uint32_t maxWidth,
                   uint32_t maxHeight)
{
    Image record(Bytes(kUserSettingSize, '\xFF'));
    for (size_t n = 0; n < 24; ++n) {
        const auto [width, height] = n < sizes.size() ? sizes[n] : std::pair(0, 0);
        record.u32(3184 + 20 * n + 8, {static_cast<uint32_t>(width)});
        record.u32(3184 + 20 * n + 16, {static_cast<uint32_t>(height)});
    }
    fill(GetUserSetting(), record.bytes);
    EXPECT_EQ(GetOutMaxWidth(), maxWidth);
    EXPECT_EQ(GetOutMaxHeight(), maxHeight);
}

// Unsigned, a negative size would be the largest of all.
TEST(UserSettingQuery, LargestAreaIsComparedWithItsSignAndNeverBelowZero)
{
    expectLargest({}, 0, 0);
    expectLargest({24, {-1, INT32_MIN}}, 0, 0);
    expectLargest({24, {INT32_MIN, -1}}, 0, 0);
    expectLargest({{-1, INT32_MIN}, {3, 1}, {INT32_MIN, -5}, {2, 4}}, 3, 4);
    expectLargest({{INT32_MIN, 1}, {INT32_MAX, INT32_MAX}, {-1, INT32_MAX - 1}}, 0x7FFFFFFF,
                  0x7FFFFFFF);
}

TEST(UserSettingQuery, LargestAreaIsFoundAtEveryPlaceWidthAndHeightApart)
{
    for (size_t n = 0; n < 24; ++n) {
        SCOPED_TRACE(n);
        std::vector<std::pair<int32_t, int32_t>> sizes(24, {640, 480});
        sizes[n].first = 641;
        sizes[23 - n].second = 70000;
        expectLargest(sizes, 641, 70000);
    }
}

std::pair<uint32_t, uint32_t> portSize(uint32_t port)
{
    return {getOutputPortWidth(port), getOutputPortHeight(port)};
}

// Port 152 is of format 38, 1920x1080x60i. Beyond the table is the external input.
TEST(UserSettingQuery, PortSizeIsThatOfTheFormatWithAQuarterOfItsNumber)
{
    readExchanged();
    GetUserSetting()->extInputFormat = 1;
    for (uint32_t port = 0; port < 4 * 124; ++port) {
        const Row &format = exchanged.at(port / 4);
        EXPECT_EQ(portSize(port), std::pair(format.width, format.height)) << port;
    }
    EXPECT_EQ(portSize(152), std::pair(1920u, 1080u)); // of a frame
    for (uint32_t port = 500; port < 1024; ++port) {
        EXPECT_EQ(portSize(port), port < 504 ? std::pair(720u, 576u) : std::pair(1024u, 768u))
            << port;
    }
}

// The bytes of a layer, in its view; an alpha is changed there and nowhere else.
TEST(UserSettingQuery, LayersAreThoseOfTheirView)
{
    const Bytes record = ownBytes(kUserSettingSize, 77);
    const auto at = [&](size_t place) { return static_cast<uint8_t>(record.at(place)); };
    auto *const memory = reinterpret_cast<uint8_t *>(GetUserSetting());
    for (uint32_t n = 0; n < 96; ++n) {
        SCOPED_TRACE(n);
        fill(GetUserSetting(), record);
        EXPECT_EQ(GetLayerInputPort(n), at(kProgramAt + 16 + 26 * n));
        EXPECT_EQ(GetLayerAlphaPos(n), at(kProgramAt + 2512 + n));
        EXPECT_EQ(GetLayerAlpha(n), at(kProgramAt + 2608 + n));
        EXPECT_EQ(GetPreviewLayerAlphaPos(n), at(kPreviewAt + 2512 + n));
        EXPECT_EQ(GetPreviewLayerAlpha(n), at(kPreviewAt + 2608 + n));
        EXPECT_EQ(reinterpret_cast<uint8_t *>(GetPreviewLayer(n)), memory + 3812 + 16 + 26 * n);
        for (const uint8_t alpha : {uint8_t{0}, uint8_t{255}}) {
            const auto expectAlphaAt = [&](size_t place, auto set) {
                const auto edit = [&](Image &image) { image.u8(place + 2608 + n, {alpha}); };
                expectEdit([&] { set(n, alpha); }, edit, Image(record));
            };
            expectAlphaAt(kProgramAt, SetLayerAlpha);
            expectAlphaAt(kPreviewAt, SetPreviewLayerAlpha);
        }
    }
    EXPECT_EQ(GetPreviewOutLayerAlpha(), memory + 3812 + 2512);
}

TEST(UserSettingQuery, LayersOutOfRangeAreZeroAndNotToBeChanged)
{
    const Bytes record(kUserSettingSize, '\xEE');
    fill(GetUserSetting(), record);
    for (const uint32_t n : {96u, 97u, 127u, 255u, 256u, 0x80000000u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(n);
        EXPECT_EQ(GetLayerInputPort(n), 0);
        EXPECT_EQ(GetLayerAlpha(n), 0);
        EXPECT_EQ(GetLayerAlphaPos(n), 0);
        EXPECT_EQ(GetPreviewLayer(n), nullptr);
        EXPECT_EQ(GetPreviewLayerAlpha(n), 0);
        EXPECT_EQ(GetPreviewLayerAlphaPos(n), 0);
        SetLayerAlpha(n, 1);
        SetPreviewLayerAlpha(n, 1);
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), record));
    }
}

} // namespace
