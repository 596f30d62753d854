// The four blocks: how they are taken from the heap, where their parts stand, and how the copy and
// the current view are made again.

#include "storage/UserSetting.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/console.h"
#include "tests/support/setting_bytes.h"

namespace {

struct Allocation {
    uint32_t size;
    void *memory;
};
std::vector<Allocation> allocations; // what the code under test asked for, in order
std::vector<size_t> refused;         // which of them get nothing, counted from 0

} // namespace

extern "C" {
void *__wrap__Z12mymem_mallocj(uint32_t size);

// The memory is dirty, as the heap's may be.
void *__wrap__Z12mymem_mallocj(uint32_t size)
{
    const bool refuses =
        std::find(refused.begin(), refused.end(), allocations.size()) != refused.end();
    void *const memory = refuses ? nullptr : std::malloc(size);
    if (memory != nullptr) {
        std::memset(memory, 0x5A, size);
    }
    allocations.push_back({size, memory});
    return memory;
}
}

namespace {

uint8_t *at(UserSetting *record, size_t offset)
{
    return reinterpret_cast<uint8_t *>(record) + offset;
}

Bytes bytesAt(const void *memory, size_t size)
{
    return {static_cast<const char *>(memory), size};
}

// Taking the blocks ------------------------------------------------------------------------------

TEST(UserSetting, BlocksAreTakenInTheOrderSlotBufferCopyCurrentViewRecord)
{
    EXPECT_EQ(printedBy([] { malloc_saveView(); }), "");
    ASSERT_EQ(allocations.size(), 4u);
    EXPECT_EQ(allocations[0].size, 3996u);
    EXPECT_EQ(allocations[1].size, 11832u);
    EXPECT_EQ(allocations[2].size, 3996u);
    EXPECT_EQ(allocations[3].size, 11832u);
    EXPECT_EQ(GetSaveViewSetting(), allocations[0].memory);
    EXPECT_EQ(GetUserSetting_old(), allocations[1].memory);
    EXPECT_EQ(GetViewSetting(), allocations[2].memory);
    EXPECT_EQ(GetUserSetting(), allocations[3].memory);
}

TEST(UserSetting, BlocksAreZeroWhenTheyAreTaken)
{
    malloc_saveView();
    ASSERT_EQ(allocations.size(), 4u);
    for (const Allocation &block : allocations) {
        EXPECT_TRUE(areBytes(bytesAt(block.memory, block.size), Bytes(block.size, '\0')));
    }
}

TEST(UserSetting, BlocksAreTakenOnceAndKeepWhatTheyHold)
{
    malloc_saveView();
    const Bytes content = ownBytes(kUserSettingSize, 1);
    fill(GetUserSetting(), content);
    fill(GetSaveViewSetting(), content.substr(0, kViewSize));
    malloc_saveView();
    malloc_saveView();
    EXPECT_EQ(allocations.size(), 4u);
    EXPECT_EQ(GetUserSetting(), allocations[3].memory);
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), content));
    EXPECT_TRUE(areBytes(bytesOf(GetSaveViewSetting()), content.substr(0, kViewSize)));
}

// The device starts with whatever memory it gets.
TEST(UserSetting, BlocksAreTheProgramsOwnZeroAndApartWhenTheHeapGivesNothing)
{
    refused = {0, 1, 2, 3};
    malloc_saveView();
    EXPECT_EQ(allocations.size(), 4u);
    ASSERT_NE(GetUserSetting(), nullptr);
    ASSERT_NE(GetSaveViewSetting(), nullptr);
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), Bytes(kUserSettingSize, '\0')));
    EXPECT_TRUE(areBytes(bytesOf(GetSaveViewSetting()), Bytes(kViewSize, '\0')));

    using Block = std::pair<uint8_t *, size_t>;
    std::vector<Block> blocks = {
        {reinterpret_cast<uint8_t *>(GetSaveViewSetting()), kViewSize},
        {reinterpret_cast<uint8_t *>(GetUserSetting_old()), kUserSettingSize},
        {reinterpret_cast<uint8_t *>(GetViewSetting()), kViewSize},
        {reinterpret_cast<uint8_t *>(GetUserSetting()), kUserSettingSize},
    };
    std::sort(blocks.begin(), blocks.end());
    for (size_t i = 1; i < blocks.size(); ++i) {
        EXPECT_GE(blocks[i].first, blocks[i - 1].first + blocks[i - 1].second) << i;
    }

    fill(GetUserSetting(), ownBytes(kUserSettingSize, 2));
    malloc_saveView();
    EXPECT_EQ(allocations.size(), 4u);
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), ownBytes(kUserSettingSize, 2)));
}

TEST(UserSetting, BlocksThatTheHeapGivesAreUsedBesideOneThatItDoesNotGive)
{
    refused = {3};
    malloc_saveView();
    ASSERT_EQ(allocations.size(), 4u);
    ASSERT_NE(GetUserSetting(), nullptr);
    EXPECT_EQ(GetSaveViewSetting(), allocations[0].memory);
    EXPECT_EQ(GetUserSetting_old(), allocations[1].memory);
    EXPECT_EQ(GetViewSetting(), allocations[2].memory);
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), Bytes(kUserSettingSize, '\0')));
    malloc_saveView();
    EXPECT_EQ(allocations.size(), 4u);
}

TEST(UserSetting, BlocksBehindARefusedOneAreStillTaken)
{
    refused = {0};
    malloc_saveView();
    ASSERT_EQ(allocations.size(), 4u);
    ASSERT_NE(GetSaveViewSetting(), nullptr);
    EXPECT_TRUE(areBytes(bytesOf(GetSaveViewSetting()), Bytes(kViewSize, '\0')));
    EXPECT_EQ(GetUserSetting_old(), allocations[1].memory);
    EXPECT_EQ(GetViewSetting(), allocations[2].memory);
    EXPECT_EQ(GetUserSetting(), allocations[3].memory);
}

// Parts of the record ----------------------------------------------------------------------------

TEST(UserSetting, ViewsStandInTheRecord)
{
    malloc_saveView();
    EXPECT_EQ(reinterpret_cast<uint8_t *>(GetPreviewViewSetting()), at(GetUserSetting(), 3812));
    EXPECT_EQ(reinterpret_cast<uint8_t *>(GetProgramViewSetting()), at(GetUserSetting(), 7808));
}

TEST(UserSetting, CustomResolutionStandsInTheRecord)
{
    malloc_saveView();
    EXPECT_EQ(reinterpret_cast<uint8_t *>(GetCustomResolution()), at(GetUserSetting(), 3736));
}

TEST(UserSetting, ExternalInputFormatIsByte2413)
{
    malloc_saveView();
    *at(GetUserSetting(), 2413) = 125;
    EXPECT_EQ(GetExtInputFormat(), 125);
    *at(GetUserSetting(), 2413) = 200;
    EXPECT_EQ(GetExtInputFormat(), 200);
}

// What is shown is not a byte of the record.
TEST(UserSetting, CurrentViewIsKeptBesideTheRecord)
{
    malloc_saveView();
    EXPECT_EQ(GetCurrentView(), 0);
    *at(GetUserSetting(), 3715) = 9;
    EXPECT_EQ(GetCurrentView(), 0);
    _currentView = 7;
    EXPECT_EQ(GetCurrentView(), 7);
    EXPECT_EQ(*at(GetUserSetting(), 3715), 9);
}

// The copy ---------------------------------------------------------------------------------------

TEST(UserSetting, CopyWithTheIdentificationIsLeftAsItIs)
{
    malloc_saveView();
    const Bytes first = Image(ownBytes(kUserSettingSize, 3)).u32(0, {0x2021365C}).bytes;
    fill(GetUserSetting(), first);
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting_old()), first));
    fill(GetUserSetting(), ownBytes(kUserSettingSize, 4));
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting_old()), first));
}

TEST(UserSetting, CopyWithoutTheIdentificationIsRefilledFromTheRecord)
{
    malloc_saveView();
    for (uint32_t bit = 0; bit < 32; ++bit) {
        const Bytes record = Image(ownBytes(kUserSettingSize, bit)).u32(0, {0x2021365C}).bytes;
        fill(GetUserSetting(), record);
        UserSetting *const copy = GetUserSetting_old();
        copy->identification = 0x2021365Cu ^ 1u << bit;
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting_old()), record)) << bit;
    }
}

// The identification at its end does not count.
TEST(UserSetting, CopyIsJudgedByItsFirstWordAlone)
{
    malloc_saveView();
    fill(GetUserSetting(), Image(Bytes(kUserSettingSize, '\x11')).u32(0, {0x2021365C}).bytes);
    UserSetting *const copy = GetUserSetting_old();
    copy->trailingIdentification = 0x22222222;
    EXPECT_EQ(GetUserSetting_old()->trailingIdentification, 0x22222222u);
}

TEST(UserSetting, CopyOfARecordWithoutIdentificationIsRefilledEveryTime)
{
    malloc_saveView();
    for (uint32_t seed = 5; seed < 8; ++seed) {
        const Bytes record = Image(ownBytes(kUserSettingSize, seed)).u32(0, {0x2021365B}).bytes;
        fill(GetUserSetting(), record);
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting_old()), record));
    }
}

TEST(UserSetting, CopyIsMadeEqualWhateverItHeld)
{
    malloc_saveView();
    GetUserSetting()->identification = kUserSettingId;
    GetUserSetting_old();
    const Bytes record = ownBytes(kUserSettingSize, 8);
    fill(GetUserSetting(), record);
    copyUserSetting();
    EXPECT_TRUE(areBytes(bytesAt(allocations.at(1).memory, kUserSettingSize), record));
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), record));
}

// The current view -------------------------------------------------------------------------------

// What the current view becomes of `preview`.
Bytes withClearedFlags(const Bytes &preview)
{
    Image expected(preview);
    for (size_t n = 0; n < 24; ++n) {
        expected.u8(2718 + n, {0});
        expected.u8(3608 + 16 * n + 14, {0});
    }
    return expected.u32(3992, {0x29215679}).bytes;
}

TEST(UserSetting, ResetCurrentViewIsThePreviewWithTheFlagsOfContainersCleared)
{
    malloc_saveView();
    const Bytes record = ownBytes(kUserSettingSize, 9);
    const Bytes slotBuffer = ownBytes(kViewSize, 10);
    fill(GetUserSetting(), record);
    fill(GetSaveViewSetting(), slotBuffer);
    EXPECT_EQ(printedBy([] { ResetViewSetting(); }), "");
    const Bytes preview = record.substr(kPreviewAt, kViewSize);
    EXPECT_TRUE(areBytes(bytesAt(allocations.at(2).memory, kViewSize), withClearedFlags(preview)));
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), record));
    EXPECT_TRUE(areBytes(bytesOf(GetSaveViewSetting()), slotBuffer));
}

TEST(UserSetting, CurrentViewWithItsIdentificationIsLeftAsItIs)
{
    malloc_saveView();
    fill(GetUserSetting(), ownBytes(kUserSettingSize, 11));
    const Bytes view = Image(ownBytes(kViewSize, 12)).u32(3992, {0x29215679}).bytes;
    std::memcpy(allocations.at(2).memory, view.data(), kViewSize);
    EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), view));
}

TEST(UserSetting, CurrentViewWithoutItsIdentificationIsRebuiltFromThePreview)
{
    malloc_saveView();
    const Bytes record = ownBytes(kUserSettingSize, 13);
    fill(GetUserSetting(), record);
    const Bytes expected = withClearedFlags(record.substr(kPreviewAt, kViewSize));
    for (uint32_t bit = 0; bit < 32; ++bit) {
        const Bytes view =
            Image(ownBytes(kViewSize, bit)).u32(3992, {0x29215679u ^ 1u << bit}).bytes;
        std::memcpy(allocations.at(2).memory, view.data(), kViewSize);
        EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), expected)) << bit;
    }
}

} // namespace
