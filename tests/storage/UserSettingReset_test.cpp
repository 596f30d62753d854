// The defaults of the user setting record, byte by byte: the whole reset against the images in
// tests/data/first-start, every section against what it changes in a record of bytes 0xA5.

#include "storage/UserSettingReset.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "storage/UserSetting.h"
#include "storage/UserSettingContainers.h"
#include "tests/support/console.h"
#include "tests/support/setting_bytes.h"
#include "tests/support/setting_change.h"
#include "video/CustomFormat.h"

namespace fs = std::filesystem;

namespace {

[[maybe_unused]] const auto *const blocks = testing::AddGlobalTestEnvironment(new Blocks);

const TimingTable kTimings = timingsOf(VIDEO_FORMATS);
constexpr uint32_t kInterlaced[] = {36, 37, 38, 39, 63, 71, 72};

uint32_t number(uint32_t format, const char *column)
{
    return static_cast<uint32_t>(std::stoul(kTimings.at(format).at(column)));
}

// The whole reset --------------------------------------------------------------------------------

Bytes expectedOver(const char *file)
{
    return contentOf(std::string(FIRST_START "/") + file);
}

TEST(UserSettingReset, RecordOfZerosBecomesTheRecordOfAFirstStart)
{
    ASSERT_EQ(expectedOver("save0.sav").size(), kUserSettingSize);
    ResetUserSettingSave();
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), expectedOver("save0.sav")));
}

TEST(UserSettingReset, RecordOfOtherBytesKeepsThoseThatHaveNoDefault)
{
    ASSERT_EQ(expectedOver("save0-over-a5.sav").size(), kUserSettingSize);
    fill(GetUserSetting(), Bytes(kUserSettingSize, '\xA5'));
    ResetUserSettingSave();
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), expectedOver("save0-over-a5.sav")));
}

// Bytes in which the two images differ have no default. The preview gets those of the program view.
TEST(UserSettingReset, RecordOfAnyBytesKeepsThoseThatHaveNoDefault)
{
    const Bytes overZeros = expectedOver("save0.sav");
    const Bytes overOthers = expectedOver("save0-over-a5.sav");
    const Bytes record = ownBytes(kUserSettingSize, 4);
    Bytes expected = overZeros;
    for (size_t i = 0; i < kUserSettingSize; ++i) {
        const bool inPreview = i >= kPreviewAt && i < kPreviewAt + kViewSize;
        if (overZeros[i] != overOthers[i]) {
            expected[i] = record[inPreview ? i - kPreviewAt + kProgramAt : i];
        }
    }
    fill(GetUserSetting(), record);
    ResetUserSettingSave();
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), expected));
    ResetUserSettingSave();
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), expected)) << "by a second reset";
}

TEST(UserSettingReset, RecordGetsTheTimingsOfItsFormatsAndACentredWindow)
{
    ResetUserSettingSave();
    Image expected(bytesOf(GetUserSetting()));
    // Format 76, "3840x2160x60", and format 10, "1920x1080x60".
    expected.u8(30, {76, 0}).u16(32, {4400, 2250, 384, 82, 3840, 2160, 88, 10});
    expected.u8(30 + 18, {0, 0, 60});
    expected.u8(1724, {10, 0}).u16(1726, {2200, 1125, 192, 41, 1920, 1080, 44, 5});
    expected.u8(1724 + 18, {0}).u32(1724 + 24, {1000});
    expected.u16(3762, {(1920 - 360) / 2, (1080 - 80) / 2});
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), expected.bytes));
}

// The flag is set first; then the pre-input reset of input 25, which has no flag of its own, clears
// it, and that of input 24 clears the user mode mirror.
TEST(UserSettingReset, FactoryResetFlagAndUserModeMirrorAreZeroRightAfterAReset)
{
    fill(GetUserSetting(), Bytes(kUserSettingSize, '\xFF'));
    ResetUserSettingSave();
    EXPECT_EQ(GetUserSetting()->factoryReset, 0);
    EXPECT_EQ(GetUserSetting()->userModeMirror, 0);
    const Bytes record = bytesOf(GetUserSetting());
    EXPECT_EQ(record[3712], 0);
    EXPECT_EQ(record[3713], 0);
}

TEST(UserSettingReset, Inputs24And25GetNoTimingAndAreNotEnabled)
{
    const Bytes record = ownBytes(kUserSettingSize, 5);
    fill(GetUserSetting(), record);
    ResetUserSettingSave();
    const Bytes after = bytesOf(GetUserSetting());
    EXPECT_TRUE(areBytes(after.substr(4 + 24, 2), record.substr(4 + 24, 2)));
    EXPECT_TRUE(areBytes(after.substr(30 + 22 * 24, 44), record.substr(30 + 22 * 24, 44)));
}

// The program view's is the byte behind its other settings.
TEST(UserSettingReset, ViewNumberIsOneInTheProgramViewAndZeroInThePreview)
{
    ResetUserSettingSave();
    EXPECT_EQ(bytesOf(GetUserSetting())[kProgramAt + 2742], 1);
    EXPECT_EQ(bytesOf(GetUserSetting())[kPreviewAt + 2742], 0);
}

TEST(UserSettingReset, OnlyThePreviewGetsTheIdentificationOfAViewAndAnRs1Block)
{
    fill(GetUserSetting(), Bytes(kUserSettingSize, '\xA5'));
    ResetUserSettingSave();
    const Bytes record = bytesOf(GetUserSetting());
    EXPECT_TRUE(areBytes(record.substr(kPreviewAt + 3992, 4), "yV!)"));
    EXPECT_TRUE(areBytes(record.substr(kProgramAt + 3992, 4), Bytes(4, '\xA5')));
    EXPECT_EQ(record[kPreviewAt + 2744], 0);
    EXPECT_TRUE(areBytes(record.substr(kProgramAt + 2744, 864), Bytes(864, '\xA5')));
}

TEST(UserSettingReset, CurrentViewBecomesViewZeroWithTheContentOfThePreview)
{
    _currentView = 5;
    fill(GetUserSetting(), ownBytes(kUserSettingSize, 6));
    // With its identification: nothing but the reset rebuilds it.
    fill(GetViewSetting(), Image(ownBytes(kViewSize, 7)).u32(3992, {0x29215679}).bytes);
    ResetUserSettingSave();
    EXPECT_EQ(_currentView, 0);
    EXPECT_EQ(GetUserSetting()->currentView, 0);
    // The flags of containers, which the current view has clear, are clear in the preview too.
    EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()),
                         bytesOf(GetUserSetting()).substr(kPreviewAt, kViewSize)));
}

TEST(UserSettingReset, CopyAndSlotBufferAreLeftAlone)
{
    const Bytes copy = Image(ownBytes(kUserSettingSize, 8)).u32(0, {0x2021365C}).bytes;
    const Bytes slotBuffer = ownBytes(kViewSize, 9);
    fill(GetUserSetting_old(), copy);
    fill(GetSaveViewSetting(), slotBuffer);
    ResetUserSettingSave();
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting_old()), copy));
    EXPECT_TRUE(areBytes(bytesOf(GetSaveViewSetting()), slotBuffer));
}

TEST(UserSettingReset, NothingIsSavedAndNothingPrinted)
{
    fs::create_directory(kDirectory);
    EXPECT_EQ(printedBy([] { ResetUserSettingSave(); }), "");
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

// Inputs -----------------------------------------------------------------------------------------

// What the timings of inputs and outputs have in common.
void setTiming(Image &image, size_t at, uint32_t id, uint32_t format, uint32_t vActive)
{
    image.u8(at, {id, number(format, "polarity")});
    image.u16(at + 2,
              {number(format, "h_total"), number(format, "v_total"), number(format, "h_start"),
               number(format, "v_start"), number(format, "width"), vActive,
               number(format, "h_sync"), number(format, "v_sync")});
    image.u8(at + 18, {0});
}

// Input `n` with the timing of `format` under the number `id`.
void setInput(Image &image, uint32_t n, uint32_t id, uint32_t format)
{
    const bool fields =
        std::find(std::begin(kInterlaced), std::end(kInterlaced), format) != std::end(kInterlaced);
    image.u8(4 + n, {1});
    setTiming(image, 30 + 22 * n, id, format, number(format, "height") / (fields ? 2 : 1));
    image.u8(30 + 22 * n + 19, {0, number(format, "v_freq")});
}

TEST(UserSettingReset, InputGetsTheTimingOfEveryFormatAndIsEnabled)
{
    for (uint32_t format = 0; format < 124; ++format) {
        const uint32_t input = format % 24;
        Image expected = before();
        setInput(expected, input, format, format);
        expectChange(
            before(), [&] { ResetInputSetting(input, format); }, expected);
    }
}

TEST(UserSettingReset, InputsBelow24AreResetEachInItsPlace)
{
    for (uint32_t input = 0; input < 24; ++input) {
        Image expected = before();
        setInput(expected, input, 1, 1);
        expectChange(
            before(), [&] { ResetInputSetting(input, 1); }, expected);
    }
}

TEST(UserSettingReset, InputsFrom24UpwardGetNoTiming)
{
    for (const uint32_t input : {24u, 25u, 26u, 255u, 256u, 0x80000000u, 0xFFFFFFFFu}) {
        expectChange(
            before(), [&] { ResetInputSetting(input, 76); }, before());
    }
}

// Format 38 is "1920x1080x60i": an input brings a field at a time, an output has whole frames.
TEST(UserSettingReset, ActiveHeightOfAnInterlacedFormatIsAFieldForInputsAndAFrameForOutputs)
{
    ResetInputSetting(3, 38);
    ResetOutputSetting(3, 38);
    EXPECT_EQ(GetUserSetting()->inputTiming[3].vActive, 540);
    EXPECT_EQ(GetUserSetting()->outputTiming[3].vActive, 1080);
    EXPECT_EQ(GetUserSetting()->inputTiming[3].vTotal, 1125);
    EXPECT_EQ(GetUserSetting()->outputTiming[3].vTotal, 1125);
}

TEST(UserSettingReset, InputWithTheExternalFormatGetsThatTimingUnderTheNumber125)
{
    Image expected = before();
    setInput(expected, 23, 125, 38);
    expectChange(
        before(), [] { ResetInputSetting(23, 125); }, expected);
}

TEST(UserSettingReset, InputWithANumberThatIsNoFormatGetsTheTimingOf1024x768)
{
    for (uint32_t id = 126; id < 256; ++id) {
        Image expected = before();
        setInput(expected, 0, id, 29);
        expectChange(
            before(), [&] { ResetInputSetting(0, id); }, expected);
    }
    // The external format cannot stand for itself.
    Image from = before();
    from.u8(2413, {125});
    Image expected = from;
    setInput(expected, 0, 125, 29);
    expectChange(
        from, [] { ResetInputSetting(0, 125); }, expected);
}

TEST(UserSettingReset, OnlyTheLowByteOfAFormatNumberCounts)
{
    Image expected = before();
    setInput(expected, 2, 38, 38);
    expectChange(
        before(), [] { ResetInputSetting(2, 256 + 38); }, expected);
    expectChange(
        before(), [] { ResetInputSetting(2, 0xFFFFFF00 + 38); }, expected);
}

// The custom format has two sizes: what was asked for, 4001x3001 at 258 Hz here, and what its
// timing has.
Image beforeCustom()
{
    Image from = before();
    from.u32(3736, {4001, 0x10000 + 3001, 258});
    setCustomhvSyncPolarity(0xFE);
    setCustomhTotal(5001);
    setCustomvTotal(3301);
    setCustomhStart(301);
    setCustomvStart(101);
    setCustomhActive(3999);
    setCustomvActive(2999);
    setCustomhSyncWidth(401);
    setCustomvSyncWidth(31);
    fill(GetUserSetting(), from.bytes);
    return from;
}

TEST(UserSettingReset, InputWithTheCustomFormatTakesItsHeightFromWhatWasAskedFor)
{
    const Image from = beforeCustom();
    Image expected = from;
    expected.u8(4 + 1, {1});
    expected.u8(52, {124, 2}).u16(54, {5001, 3301, 301, 101, 3999, 3001, 401, 31});
    expected.u8(52 + 18, {0, 0, 258 - 256});
    expectChange(
        from, [] { ResetInputSetting(1, 124); }, expected);
}

TEST(UserSettingReset, OutputWithTheCustomFormatTakesItsHeightFromTheTiming)
{
    const Image from = beforeCustom();
    Image expected = from;
    expected.u8(1752, {124, 2}).u16(1754, {5001, 3301, 301, 101, 3999, 2999, 401, 31});
    expected.u8(1752 + 18, {0}).u32(1752 + 24, {1000});
    expectChange(
        from, [] { ResetOutputSetting(1, 124); }, expected);
}

void setPreInput(Image &image, uint32_t n, uint32_t sourceWidth, uint32_t sourceHeight,
                 uint32_t targetWidth, uint32_t targetHeight)
{
    const size_t at = 602 + 36 * n;
    image.u8(at, {n % 4, 0, 0});
    image.u16(at + 4, {0, 0, sourceWidth, sourceHeight, 0, 0, targetWidth, targetHeight});
    image.u8(at + 20, {128, 1u << n % 4, 50, 50, 50, 50, 50, 50, 50, 26, 26, 26, 50, 0, 0});
    image.u8(3688 + n, {0});
}

TEST(UserSettingReset, PreInputTakesTheWholeOfItsInputAndClearsItsFlag)
{
    for (uint32_t input = 0; input < 24; ++input) {
        Image expected = before();
        setPreInput(expected, input, 2000 + input, 1000 + input, 1920, 1080);
        expectChange(
            before(), [&] { ResetPreInputSetting(input); }, expected);
    }
}

// Where input 24's flag would be is the user mode mirror, behind it the factory-reset flag.
TEST(UserSettingReset, PreInputsOfInputs24And25Are3840x2160AndClearTheBytesBehindTheFlags)
{
    Image expected = before();
    setPreInput(expected, 24, 3840, 2160, 3840, 2160);
    EXPECT_EQ(expected.bytes[3712], 0);
    expectChange(
        before(), [] { ResetPreInputSetting(24); }, expected);

    expected = before();
    setPreInput(expected, 25, 3840, 2160, 3840, 2160);
    EXPECT_EQ(expected.bytes[3713], 0);
    expectChange(
        before(), [] { ResetPreInputSetting(25); }, expected);
}

TEST(UserSettingReset, PreInputsFrom26UpwardAreLeftAlone)
{
    for (const uint32_t input : {26u, 27u, 255u, 256u, 0x80000000u, 0xFFFFFFFFu}) {
        expectChange(
            before(), [&] { ResetPreInputSetting(input); }, before());
    }
}

TEST(UserSettingReset, ColorKeyOfEveryInputIsOffAndGrey)
{
    for (uint32_t input = 0; input < 26; ++input) {
        Image expected = before();
        expected.u8(1538 + 7 * input, {0, 1, 0, 0, 208, 208, 208});
        expectChange(
            before(), [&] { ResetInputColorKey(input); }, expected);
    }
}

TEST(UserSettingReset, ColorKeysFrom26UpwardAreLeftAlone)
{
    for (const uint32_t input : {26u, 27u, 255u, 256u, 0x80000000u, 0xFFFFFFFFu}) {
        expectChange(
            before(), [&] { ResetInputColorKey(input); }, before());
    }
}

// Outputs ----------------------------------------------------------------------------------------

void setOutput(Image &image, uint32_t n, uint32_t id, uint32_t format)
{
    setTiming(image, 1724 + 28 * n, id, format, number(format, "height"));
    image.u32(1724 + 28 * n + 24, {1000});
}

// The enable byte, the format byte and the resolution are not of this section.
TEST(UserSettingReset, OutputGetsTheTimingOfEveryFormat)
{
    for (uint32_t format = 0; format < 124; ++format) {
        const uint32_t output = format % 6;
        Image expected = before();
        setOutput(expected, output, format, format);
        expectChange(
            before(), [&] { ResetOutputSetting(output, format); }, expected);
    }
}

TEST(UserSettingReset, OutputWithASpecialFormatNumberGetsTheTimingItStandsFor)
{
    Image expected = before();
    setOutput(expected, 5, 125, 38);
    expectChange(
        before(), [] { ResetOutputSetting(5, 125); }, expected);
    for (uint32_t id = 126; id < 256; ++id) {
        expected = before();
        setOutput(expected, 5, id, 29);
        expectChange(
            before(), [&] { ResetOutputSetting(5, id); }, expected);
    }
    expected = before();
    setOutput(expected, 5, 10, 10);
    expectChange(
        before(), [] { ResetOutputSetting(5, 256 + 10); }, expected);
}

TEST(UserSettingReset, OutputsFrom6UpwardAreLeftAlone)
{
    for (const uint32_t output : {6u, 7u, 255u, 256u, 0x80000000u, 0xFFFFFFFFu}) {
        expectChange(
            before(), [&] { ResetOutputSetting(output, 10); }, before());
    }
}

void setRs1Outputs(Image &image)
{
    image.repeat(2028, 24, 0).repeat(2052, 24, 0);
    for (size_t n = 0; n < 24; ++n) {
        image.repeat(2076 + 14 * n, 13, 0);
    }
}

TEST(UserSettingReset, Rs1OutputsAreZeroButForTheLastByteOfEveryEntry)
{
    Image expected = before();
    setRs1Outputs(expected);
    EXPECT_EQ(expected.bytes[2089], '\xA5');
    EXPECT_EQ(expected.bytes[2411], '\xA5');
    expectChange(
        before(), [] { ResetRS1OutputSetting(); }, expected);
}

TEST(UserSettingReset, GroupAreasGetTheirFirstByteOnlyAndTheRs1OutputsAreClearedToo)
{
    Image expected = before();
    for (size_t n = 0; n < 24; ++n) {
        expected.u8(3184 + 20 * n, {255});
    }
    setRs1Outputs(expected);
    expectChange(
        before(), [] { ResetOutputGroupArea(); }, expected);
}

TEST(UserSettingReset, FpgaSettingsAreThreeBytes)
{
    Image expected = before();
    expected.u8(11804, {1, 0, 20});
    expectChange(
        before(), [] { ResetFpgaSetting(); }, expected);
}

// Containers -------------------------------------------------------------------------------------

TEST(UserSettingReset, ContainersAreResetEachInItsPlace)
{
    for (uint32_t container = 0; container < 24; ++container) {
        const size_t at = 2416 + 32 * container;
        Image expected = before();
        expected.u16(at, {100, 0, 0}).u32(at + 8, {3840, 2160}).u8(at + 16, {0, 2, 2, 0, 0});
        expected.u16(at + 22, {1000}).u8(at + 24, {0, 0, 0, 1, 0, 20});
        expectChange(
            before(), [&] { ResetContainerSetting(container); }, expected);
    }
}

TEST(UserSettingReset, ContainersFrom24UpwardAreLeftAlone)
{
    for (const uint32_t container : {24u, 25u, 255u, 256u, 0x80000000u, 0xFFFFFFFFu}) {
        expectChange(
            before(), [&] { ResetContainerSetting(container); }, before());
    }
}

// The other reset of the containers, of a record that has this largest group area.
void expectContainerMsg(const Image &from, uint32_t width, uint32_t height)
{
    Image expected = from;
    for (size_t n = 0; n < 24; ++n) {
        const size_t at = 2416 + 32 * n;
        expected.u16(at + 2, {0, 0}).u32(at + 8, {0, 0}).u8(at + 16, {0, 0, 0, 0, 0});
        expected.u16(at + 22, {1000}).u8(at + 24, {0}).u8(at + 26, {0});
    }
    expected.u32(2424, {width, height}).u8(2432, {0, 5, 8, 0, 0}).u8(2440, {1});
    expectChange(
        from, [] { ResetContainerMsg(); }, expected);
}

TEST(UserSettingReset, ContainerMsgGivesTheFirstContainerTheLargestAreaAndTheOthersNone)
{
    Image from = before();
    from.u32(3184 + 20 * 7 + 8, {7680}).u32(3184 + 20 * 11 + 16, {4320});
    expectContainerMsg(from, 7680, 4320);
    from.u32(3184 + 8, {INT32_MAX}).u32(3184 + 20 * 23 + 16, {INT32_MAX});
    expectContainerMsg(from, INT32_MAX, INT32_MAX);
}

// The areas' sizes of bytes 0xA5 are negative.
TEST(UserSettingReset, ContainerMsgGivesTheFirstContainerNoSizeWhenNoAreaHasOne)
{
    expectContainerMsg(before(), 0, 0);
}

} // namespace
