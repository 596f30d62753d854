// The defaults of the user setting record, byte by byte: the whole reset against the images in
// tests/data/first-start, every section against what it changes in a record of bytes 0xA5.

#include "storage/UserSettingReset.h"

#include <gtest/gtest.h>

#include "storage/UserSettingContainers.h"
#include "tests/support/format_files.h"
#include "tests/support/setting_change.h"
#include "video/CustomFormat.h"

namespace fs = std::filesystem;

namespace {

[[maybe_unused]] const auto *const blocks = testing::AddGlobalTestEnvironment(new Blocks);

const std::set<uint32_t> kInterlaced = {36, 37, 38, 39, 63, 71, 72};

TEST(UserSettingReset, RecordOfAnyBytesKeepsThoseThatHaveNoDefault)
{
    const Bytes own = ownBytes(kUserSettingSize, 4);
    const std::pair<Bytes, Bytes> rows[] = {
        {Bytes(kUserSettingSize, '\0'), contentOf(FIRST_START "/save0.sav")},
        {Bytes(kUserSettingSize, '\xA5'), contentOf(FIRST_START "/save0-over-a5.sav")},
        {own, resetOver(own, FIRST_START)},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        const auto &[from, after] = row;
        fill(GetUserSetting(), from);
        for (const char *const time : {"once", "again"}) {
            ResetUserSettingSave();
            EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), after)) << time;
        }
    }
}

TEST(UserSettingReset, CurrentViewBecomesViewZeroAndOtherBlocksAndFilesStay)
{
    _currentView = 5;
    fill(GetUserSetting(), ownBytes(kUserSettingSize, 6));
    // With its identification: nothing but the reset rebuilds it.
    fill(GetViewSetting(), Image(ownBytes(kViewSize, 7)).u32(3992, {0x29215679}).bytes);
    const Bytes copy = Image(ownBytes(kUserSettingSize, 8)).u32(0, {0x2021365C}).bytes;
    const Bytes slotBuffer = ownBytes(kViewSize, 9);
    fill(GetUserSetting_old(), copy);
    fill(GetSaveViewSetting(), slotBuffer);
    fs::create_directory(kDirectory);
    EXPECT_EQ(printedBy(ResetUserSettingSave), "");
    EXPECT_EQ(_currentView, 0);
    EXPECT_EQ(GetUserSetting()->currentView, 0);
    // The flags of containers, which the current view has clear, are clear in the preview too.
    EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()),
                         bytesOf(GetUserSetting()).substr(kPreviewAt, kViewSize)));
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting_old()), copy));
    EXPECT_TRUE(areBytes(bytesOf(GetSaveViewSetting()), slotBuffer));
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

// What the timings of inputs and outputs have in common.
void setTiming(Image &image, size_t at, uint32_t id, const Row &format, uint32_t vActive)
{
    image.u8(at, {id & 0xFF, format.polarity});
    image.u16(at + 2, {format.hTotal, format.vTotal, format.hStart, format.vStart, format.width,
                       vActive, format.hSync, format.vSync});
    image.u8(at + 18, {0});
}

// Input `n` with the timing of `format` under the number `id`.
void expectInput(uint32_t n, uint32_t id, uint32_t format, const Image &from = before())
{
    SCOPED_TRACE(testing::Message() << "input " << n << ", format " << id);
    const auto edit = [&](Image &image) {
        const Row &row = exchanged.at(format);
        image.u8(4 + n, {1});
        setTiming(image, 30 + 22 * n, id, row, row.height / (kInterlaced.contains(format) ? 2 : 1));
        image.u8(30 + 22 * n + 19, {0, row.vFreq});
    };
    expectEdit([&] { ResetInputSetting(n, id); }, edit, from);
}

// Output `n`. The enable byte, the format byte and the resolution are not of this section.
void expectOutput(uint32_t n, uint32_t id, uint32_t format)
{
    SCOPED_TRACE(testing::Message() << "output " << n << ", format " << id);
    const auto edit = [&](Image &image) {
        const Row &row = exchanged.at(format);
        setTiming(image, 1724 + 28 * n, id, row, row.height);
        image.u32(1724 + 28 * n + 24, {1000});
    };
    expectEdit([&] { ResetOutputSetting(n, id); }, edit);
}

// Of an interlaced format an input brings a field at a time, and an output has whole frames.
TEST(UserSettingReset, InputsAndOutputsGetTheTimingOfEveryFormat)
{
    readExchanged();
    for (uint32_t format = 0; format < 124; ++format) {
        expectInput(format % 24, format, format);
        expectOutput(format % 6, format, format);
    }
}

// Number 125 stands for the external format, 38 here, and the others for 1024x768.
TEST(UserSettingReset, SpecialNumberIsTheFormatItStandsFor)
{
    readExchanged();
    expectInput(23, 125, 38);
    expectOutput(5, 125, 38);
    for (const uint32_t id : {126u, 127u, 128u, 255u}) {
        expectInput(0, id, 29);
        expectOutput(5, id, 29);
    }
    // The external format cannot stand for itself.
    expectInput(0, 125, 29, before().u8(2413, {125}));
    expectInput(2, 256 + 38, 38);
    expectInput(2, 0xFFFFFF00 + 38, 38);
    expectOutput(5, 256 + 10, 10);
}

// The custom format has two sizes: what was asked for, 4001x3001 at 258 Hz here, and what its
// timing has. An input takes its height from the first, an output from the second.
TEST(UserSettingReset, CustomFormatGivesInputsTheHeightAskedFor)
{
    const Image from = before().u32(3736, {4001, 0x10000 + 3001, 258});
    fill(GetUserSetting(), from.bytes);
    *GetCustomFormat() = {0, 0xFE, 5001, 3301, 301, 101, 3999, 2999, 401, 31, 0, 0};
    const auto input = [](Image &to) {
        to.u8(4 + 1, {1});
        to.u8(52, {124, 2}).u16(54, {5001, 3301, 301, 101, 3999, 3001, 401, 31});
        to.u8(52 + 18, {0, 0, 258 - 256});
    };
    const auto output = [](Image &to) {
        to.u8(1752, {124, 2}).u16(1754, {5001, 3301, 301, 101, 3999, 2999, 401, 31});
        to.u8(1752 + 18, {0}).u32(1752 + 24, {1000});
    };
    expectEdit([] { ResetInputSetting(1, 124); }, input, from);
    expectEdit([] { ResetOutputSetting(1, 124); }, output, from);
}

// Where the flags of inputs 24 and 25 would be are the user mode mirror and the factory-reset flag.
TEST(UserSettingReset, PreInputTakesTheWholeOfItsInputAndClearsItsFlag)
{
    for (uint32_t input = 0; input < 26; ++input) {
        SCOPED_TRACE(input);
        const bool timed = input < 24; // the other two are 3840x2160
        const auto edit = [&](Image &image) {
            const size_t at = 602 + 36 * input;
            image.u8(at, {input % 4, 0, 0}).u16(at + 4, {0, 0});
            image.u16(at + 8, {timed ? 2000 + input : 3840, timed ? 1000 + input : 2160, 0, 0});
            image.u16(at + 16, {timed ? 1920u : 3840u, timed ? 1080u : 2160u});
            image.u8(at + 20, {128, 1u << input % 4, 50, 50, 50, 50, 50, 50, 50, 26, 26, 26, 50});
            image.u8(at + 33, {0, 0}).u8(3688 + input, {0});
        };
        expectEdit([&] { ResetPreInputSetting(input); }, edit);
    }
}

TEST(UserSettingReset, ColorKeyOfEveryInputIsOffAndGrey)
{
    for (uint32_t input = 0; input < 26; ++input) {
        const auto edit = [&](Image &to) { to.u8(1538 + 7 * input, {0, 1, 0, 0, 208, 208, 208}); };
        expectEdit([&] { ResetInputColorKey(input); }, edit);
    }
}

TEST(UserSettingReset, NumbersFromTheCountOfASectionUpwardAreLeftAlone)
{
    expectNoneFrom(24, [](uint32_t input) { ResetInputSetting(input, 76); });
    expectNoneFrom(26, ResetPreInputSetting);
    expectNoneFrom(26, ResetInputColorKey);
    expectNoneFrom(6, [](uint32_t output) { ResetOutputSetting(output, 10); });
    expectNoneFrom(24, ResetContainerSetting);
}

// The last byte of every entry stays.
void setRs1Outputs(Image &image)
{
    image.repeat(2028, 24, 0).repeat(2052, 24, 0);
    for (size_t n = 0; n < 24; ++n) {
        image.repeat(2076 + 14 * n, 13, 0);
    }
}

TEST(UserSettingReset, GroupAreasGetOneByteAndTheRs1OutputsAreCleared)
{
    expectEdit(ResetRS1OutputSetting, setRs1Outputs);
    const auto edit = [](Image &image) {
        for (size_t n = 0; n < 24; ++n) {
            image.u8(3184 + 20 * n, {255});
        }
        setRs1Outputs(image);
    };
    expectEdit(ResetOutputGroupArea, edit);
}

TEST(UserSettingReset, FpgaSettingsAreThreeBytes)
{
    expectEdit(ResetFpgaSetting, [](Image &image) { image.u8(11804, {1, 0, 20}); });
}

TEST(UserSettingReset, ContainersAreResetEachInItsPlace)
{
    for (uint32_t container = 0; container < 24; ++container) {
        const auto edit = [&](Image &image) {
            const size_t at = 2416 + 32 * container;
            image.u16(at, {100, 0, 0}).u32(at + 8, {3840, 2160}).u8(at + 16, {0, 2, 2, 0, 0});
            image.u16(at + 22, {1000}).u8(at + 24, {0, 0, 0, 1, 0, 20});
        };
        expectEdit([&] { ResetContainerSetting(container); }, edit);
    }
}

// The other reset of the containers. The areas' sizes of bytes 0xA5 are negative.
TEST(UserSettingReset, ContainerMsgGivesTheFirstContainerTheLargestArea)
{
    // The sizes of the largest areas, and the record with them.
    const auto expectContainers = [](uint32_t width, uint32_t height, const Image &from) {
        SCOPED_TRACE(width);
        const auto edit = [&](Image &image) {
            for (size_t at = 2416; at < 2416 + 24 * 32; at += 32) {
                image.u16(at + 2, {0, 0}).u32(at + 8, {0, 0}).u8(at + 16, {0, 0, 0, 0, 0});
                image.u16(at + 22, {1000}).u8(at + 24, {0}).u8(at + 26, {0});
            }
            image.u32(2424, {width, height}).u8(2432, {0, 5, 8, 0, 0}).u8(2440, {1});
        };
        expectEdit(ResetContainerMsg, edit, from);
    };
    const uint32_t most = INT32_MAX;
    expectContainers(0, 0, before());
    expectContainers(7680, 4320, before().u32(3332, {7680}).u32(3420, {4320}));
    expectContainers(most, most, before().u32(3192, {most}).u32(3660, {most}));
}

} // namespace
