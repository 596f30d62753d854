// The defaults of a view, section by section: what each changes in a record of bytes 0xA5.

#include "storage/ViewReset.h"

#include <gtest/gtest.h>

#include "tests/support/setting_change.h"

namespace {

[[maybe_unused]] const auto *const blocks = testing::AddGlobalTestEnvironment(new Blocks);

// An input that is none has no size.
TEST(ViewReset, LayersShowTheWholeInputOnTheWholeOutput)
{
    const auto expectLayer = [](uint32_t layer, uint32_t input, uint32_t width, uint32_t height) {
        SCOPED_TRACE(testing::Message() << "layer " << layer << ", input " << input);
        const auto edit = [&](Image &image) {
            const size_t at = kProgramAt + 16 + 26 * layer;
            image.u8(at, {input, 0, 0, 0}).u16(at + 4, {0, 0, width, height, 0, 0, 1111, 999});
            image.u8(at + 20, {0, 0, 0, 50, 50, 50});
        };
        expectEdit([&] { ResetLayerSetting(layer, input); }, edit);
    };
    for (uint32_t layer = 0; layer < 96; ++layer) {
        const uint32_t input = (layer + 5) % 26;
        expectLayer(layer, input, 2000 + input, 1000 + input);
    }
    for (const uint32_t input : {26u, 27u, 200u, 255u}) {
        expectLayer(95, input, 0, 0);
    }
}

TEST(ViewReset, LayersAreStackedFrom95DownAndOffInTheProgramView)
{
    const auto edit = [](Image &image) {
        for (uint32_t n = 0; n < 96; ++n) {
            image.u8(kProgramAt + 2512 + n, {95 - n}).u8(kProgramAt + 2608 + n, {0});
        }
    };
    expectEdit(ResetOutputLayerAlpha, edit);
}

// An output smaller than the distances makes the position wrap around.
TEST(ViewReset, OtherSettingsAreResetAndTheByteAfterThemBecomesOne)
{
    const auto expectOther = [](const Image &from, size_t at, uint32_t x, uint32_t y) {
        const auto edit = [&](Image &image) {
            image.u8(at + 2704, {0, 1}).u16(at + 2706, {0, x, y}).u8(at + 2712, {1});
            image.repeat(at + 2713, 5, 0).repeat(at + 2718, 24, 0).u8(at + 2742, {1});
        };
        auto *const view = at == kProgramAt ? GetProgramViewSetting() : GetPreviewViewSetting();
        expectEdit([&] { ResetOtherSetting(view); }, edit, from);
    };
    expectOther(before(), kProgramAt, 1111 - 256, 999 - 128);
    expectOther(before(), kPreviewAt, 1111 - 256, 999 - 128);
    expectOther(before().u16(1734, {100, 0}), kProgramAt, 65536 + 100 - 256, 65536 - 128);
}

TEST(ViewReset, ContainersOfTheProgramViewAreResetEachInItsPlace)
{
    for (uint32_t container = 0; container < 24; ++container) {
        const size_t at = kProgramAt + 3608 + 16 * container;
        const auto edit = [&](Image &image) {
            image.u8(at, {0, 1, 0}).u16(at + 4, {1111 - 256, 999 - 128}).u8(at + 8, {1, 0});
            image.u16(at + 10, {0, 0}).u8(at + 14, {0, 1});
        };
        expectEdit([&] { ResetContainerOtherSetting(container); }, edit);
    }
}

TEST(ViewReset, ContainerOfAnOutputSmallerThanItsDistanceStandsOutsideIt)
{
    fill(GetUserSetting(), before().u16(1734, {100, 50}).bytes);
    ResetContainerOtherSetting(4);
    EXPECT_EQ(GetProgramViewSetting()->containers[4].settingWord4, -156);
    EXPECT_EQ(GetProgramViewSetting()->containers[4].settingWord6, -78);
}

TEST(ViewReset, LayersFrom96AndContainersFrom24UpwardAreLeftAlone)
{
    expectNoneFrom(96, [](uint32_t layer) { ResetLayerSetting(layer, 0); });
    expectNoneFrom(24, ResetContainerOtherSetting);
}

// The last byte of a first, of a second's first half and of a third entry stays, and byte 5 of a
// half.
void setRs1(Image &image, size_t view)
{
    const size_t rs1 = view + 2744;
    for (size_t n = 0; n < 24; ++n) {
        image.repeat(rs1 + 12 * n, 10, 0).u8(rs1 + 12 * n + 10, {255});
        image.repeat(rs1 + 432 + 18 * n, 17, 0);
    }
    for (size_t half = 0; half < 12; ++half) {
        const size_t at = rs1 + 288 + 12 * half;
        image.repeat(at, 5, 0).repeat(at + 6, 5, 0);
        if (half % 2 == 1) {
            image.u8(at + 11, {0});
        }
    }
}

TEST(ViewReset, Rs1BlockIsZeroButForBytesOf255AndThoseThatAreLeftAlone)
{
    const auto preview = [](Image &image) { setRs1(image, kPreviewAt); };
    const auto program = [](Image &image) { setRs1(image, kProgramAt); };
    expectEdit([] { ResetRS1_Setting(&GetPreviewViewSetting()->rs1); }, preview);
    expectEdit([] { ResetRS1_Setting(&GetProgramViewSetting()->rs1); }, program);
}

TEST(ViewReset, PreviewBecomesTheProgramViewAsViewZeroWithItsOwnRs1Block)
{
    const auto edit = [](Image &image) {
        image.bytes.replace(kPreviewAt, kViewSize, Bytes(image.bytes), kProgramAt, kViewSize);
        image.u32(kPreviewAt + 3992, {0x29215679}).u8(kPreviewAt, {0}).u8(kPreviewAt + 2742, {0});
        setRs1(image, kPreviewAt);
    };
    expectEdit(resetPreviewView, edit, Image(ownBytes(kUserSettingSize, 4)));
}

} // namespace
