// The defaults of a view, section by section: what each changes in a record of bytes 0xA5.

#include "storage/ViewReset.h"

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "tests/support/setting_bytes.h"
#include "tests/support/setting_change.h"

namespace {

[[maybe_unused]] const auto *const blocks = testing::AddGlobalTestEnvironment(new Blocks);

// Layers -----------------------------------------------------------------------------------------

void setLayer(Image &image, uint32_t layer, uint32_t input, uint32_t width, uint32_t height)
{
    const size_t at = kProgramAt + 16 + 26 * layer;
    image.u8(at, {input, 0, 0, 0}).u16(at + 4, {0, 0, width, height, 0, 0, 1111, 999});
    image.u8(at + 20, {0, 0, 0, 50, 50, 50});
}

TEST(ViewReset, LayersOfTheProgramViewShowTheWholeOfAnInputOnTheWholeOfTheOutput)
{
    for (uint32_t layer = 0; layer < 96; ++layer) {
        const uint32_t input = (layer + 5) % 26;
        Image expected = before();
        setLayer(expected, layer, input, 2000 + input, 1000 + input);
        expectChange(
            before(), [&] { ResetLayerSetting(layer, input); }, expected);
    }
}

TEST(ViewReset, LayerOfAnInputThatIsNoneHasASourceWithoutSize)
{
    for (const uint32_t input : {26u, 27u, 200u, 255u}) {
        Image expected = before();
        setLayer(expected, 95, input, 0, 0);
        expectChange(
            before(), [&] { ResetLayerSetting(95, input); }, expected);
    }
}

TEST(ViewReset, LayersFrom96UpwardAreLeftAlone)
{
    for (const uint32_t layer : {96u, 97u, 255u, 256u, 0x80000000u, 0xFFFFFFFFu}) {
        expectChange(
            before(), [&] { ResetLayerSetting(layer, 0); }, before());
    }
}

TEST(ViewReset, LayersAreStackedFrom95DownAndOffInTheProgramView)
{
    Image expected = before();
    for (uint32_t n = 0; n < 96; ++n) {
        expected.u8(kProgramAt + 2512 + n, {95 - n});
        expected.u8(kProgramAt + 2608 + n, {0});
    }
    expectChange(
        before(), [] { ResetOutputLayerAlpha(); }, expected);
}

// Other settings ---------------------------------------------------------------------------------

void setOther(Image &image, size_t view, uint32_t x, uint32_t y)
{
    image.u8(view + 2704, {0, 1}).u16(view + 2706, {0, x, y}).u8(view + 2712, {1});
    image.repeat(view + 2713, 5, 0).repeat(view + 2718, 24, 0);
    image.u8(view + 2742, {1});
}

TEST(ViewReset, OtherSettingsOfAViewAreResetAndTheByteBehindThemBecomesOne)
{
    Image expected = before();
    setOther(expected, kProgramAt, 1111 - 256, 999 - 128);
    expectChange(
        before(), [] { ResetOtherSetting(GetProgramViewSetting()); }, expected);

    expected = before();
    setOther(expected, kPreviewAt, 1111 - 256, 999 - 128);
    expectChange(
        before(), [] { ResetOtherSetting(GetPreviewViewSetting()); }, expected);
}

TEST(ViewReset, OtherSettingsOfAnOutputSmallerThanTheirDistanceWrapAround)
{
    Image from = before();
    from.u16(1734, {100, 0});
    Image expected = from;
    setOther(expected, kProgramAt, 65536 + 100 - 256, 65536 - 128);
    expectChange(
        from, [] { ResetOtherSetting(GetProgramViewSetting()); }, expected);
}

TEST(ViewReset, ContainersOfTheProgramViewAreResetEachInItsPlace)
{
    for (uint32_t container = 0; container < 24; ++container) {
        const size_t at = kProgramAt + 3608 + 16 * container;
        Image expected = before();
        expected.u8(at, {0, 1, 0}).u16(at + 4, {1111 - 256, 999 - 128}).u8(at + 8, {1, 0});
        expected.u16(at + 10, {0, 0}).u8(at + 14, {0, 1});
        expectChange(
            before(), [&] { ResetContainerOtherSetting(container); }, expected);
    }
}

TEST(ViewReset, ContainerOfAnOutputSmallerThanItsDistanceStandsOutsideIt)
{
    fill(GetUserSetting(), before().u16(1734, {100, 50}).bytes);
    ResetContainerOtherSetting(4);
    EXPECT_EQ(GetProgramViewSetting()->containers[4].settingWord4, -156);
    EXPECT_EQ(GetProgramViewSetting()->containers[4].settingWord6, -78);
}

TEST(ViewReset, ContainersFrom24UpwardAreLeftAlone)
{
    for (const uint32_t container : {24u, 25u, 255u, 256u, 0x80000000u, 0xFFFFFFFFu}) {
        expectChange(
            before(), [&] { ResetContainerOtherSetting(container); }, before());
    }
}

// The RS1 block and the preview ------------------------------------------------------------------

void setRs1(Image &image, size_t view)
{
    for (size_t n = 0; n < 24; ++n) {
        image.repeat(view + 2744 + 12 * n, 10, 0).u8(view + 2744 + 12 * n + 10, {255});
    }
    for (size_t n = 0; n < 6; ++n) {
        for (const size_t half : {0u, 12u}) {
            const size_t at = view + 2744 + 288 + 24 * n + half;
            image.u16(at, {0, 0}).u8(at + 4, {0}).u16(at + 6, {0, 0}).u8(at + 10, {0});
        }
        image.u8(view + 2744 + 288 + 24 * n + 23, {0});
    }
    for (size_t n = 0; n < 24; ++n) {
        image.repeat(view + 2744 + 432 + 18 * n, 17, 0);
    }
}

TEST(ViewReset, Rs1BlockIsZeroButForOneByteOf255InTheFirstEntriesAndBytesThatAreLeftAlone)
{
    Image expected = before();
    setRs1(expected, kPreviewAt);
    // The last byte of a first, of a half, and of a third entry, and the odd byte of a half.
    for (const size_t at : {11u, 287u, 288u + 5, 288u + 11, 288u + 17, 432u + 17, 863u}) {
        EXPECT_EQ(expected.bytes[kPreviewAt + 2744 + at], '\xA5') << at;
    }
    expectChange(
        before(), [] { ResetRS1_Setting(&GetPreviewViewSetting()->rs1); }, expected);

    expected = before();
    setRs1(expected, kProgramAt);
    expectChange(
        before(), [] { ResetRS1_Setting(&GetProgramViewSetting()->rs1); }, expected);
}

TEST(ViewReset, PreviewBecomesTheProgramViewAsViewZeroWithItsOwnRs1Block)
{
    const Image from(ownBytes(kUserSettingSize, 4));
    Image expected = from;
    expected.bytes.replace(kPreviewAt, kViewSize, from.bytes, kProgramAt, kViewSize);
    expected.u32(kPreviewAt + 3992, {0x29215679}).u8(kPreviewAt, {0}).u8(kPreviewAt + 2742, {0});
    setRs1(expected, kPreviewAt);
    expectChange(
        from, [] { resetPreviewView(); }, expected);
}

} // namespace
