// The four blocks: how they are taken from the heap, and how copy and current view are made again.

#include "storage/UserSetting.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/replace.h"
#include "tests/support/setting_bytes.h"

namespace {

using Block = std::pair<uint8_t *, size_t>;
std::vector<Block> allocations; // what the code under test asked for, in order
std::set<size_t> refused;       // which of them get nothing, counted from 0

} // namespace

// The memory is dirty, as the heap's may be.
REPLACE(void *, _Z12mymem_mallocj, (uint32_t size))
{
    void *const memory = refused.count(allocations.size()) != 0 ? nullptr : std::malloc(size);
    if (memory != nullptr) {
        std::memset(memory, 0x5A, size);
    }
    allocations.emplace_back(static_cast<uint8_t *>(memory), size);
    return memory;
}

namespace {

uint8_t *at(UserSetting *record, size_t offset)
{
    return reinterpret_cast<uint8_t *>(record) + offset;
}

template <typename Record> Block blockOf(Record *record)
{
    return {reinterpret_cast<uint8_t *>(record), sizeof *record};
}

Bytes bytesAt(const Block &block)
{
    return {reinterpret_cast<const char *>(block.first), block.second};
}

// A block that the heap refuses is the program's own.
void expectBlocks(const std::set<size_t> &refusedOnes)
{
    constexpr uint32_t kSizes[] = {3996, 11832, 3996, 11832};
    refused = refusedOnes;
    EXPECT_EQ(printedBy(malloc_saveView), "");
    ASSERT_EQ(allocations.size(), 4u);
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(allocations[i].second, kSizes[i]) << i;
        if (allocations[i].first != nullptr) {
            EXPECT_TRUE(areBytes(bytesAt(allocations[i]), Bytes(kSizes[i], '\0'))) << i;
        }
    }
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), Bytes(kUserSettingSize, '\0')));
    EXPECT_TRUE(areBytes(bytesOf(GetSaveViewSetting()), Bytes(kViewSize, '\0')));

    const Bytes content = ownBytes(kUserSettingSize, 1);
    fill(GetUserSetting(), content);
    fill(GetSaveViewSetting(), content.substr(0, kViewSize));
    malloc_saveView();
    malloc_saveView();
    EXPECT_EQ(allocations.size(), 4u);
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), content));
    EXPECT_TRUE(areBytes(bytesOf(GetSaveViewSetting()), content.substr(0, kViewSize)));

    std::vector<Block> blocks = {blockOf(GetSaveViewSetting()), blockOf(GetUserSetting_old()),
                                 blockOf(GetViewSetting()), blockOf(GetUserSetting())};
    for (size_t i = 0; i < 4; ++i) {
        ASSERT_NE(blocks[i].first, nullptr) << i;
        if (refused.count(i) == 0) {
            EXPECT_EQ(blocks[i].first, allocations[i].first) << i;
        }
    }
    std::sort(blocks.begin(), blocks.end());
    for (size_t i = 1; i < 4; ++i) {
        EXPECT_GE(blocks[i].first, blocks[i - 1].first + blocks[i - 1].second) << i;
    }
}

TEST(UserSetting, BlocksAreTakenOnceAndInOrder)
{
    expectBlocks({});
}

TEST(UserSetting, BlocksAreTheProgramsOwnWhenTheHeapGivesNothing)
{
    expectBlocks({0, 1, 2, 3});
}

TEST(UserSetting, BlocksAfterARefusedOneAreStillTaken)
{
    expectBlocks({0});
}

TEST(UserSetting, BlocksBeforeARefusedOneAreUsed)
{
    expectBlocks({3});
}

TEST(UserSetting, ViewsAndSettingsStandInTheRecord)
{
    malloc_saveView();
    UserSetting *const record = GetUserSetting();
    EXPECT_EQ(blockOf(GetPreviewViewSetting()).first, at(record, 3812));
    EXPECT_EQ(blockOf(GetProgramViewSetting()).first, at(record, 7808));
    EXPECT_EQ(blockOf(GetCustomResolution()).first, at(record, 3736));
    for (const uint8_t format : {uint8_t{125}, uint8_t{200}}) {
        *at(record, 2413) = format;
        EXPECT_EQ(GetExtInputFormat(), format);
    }
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

// Only its first word is judged, not the identification at its end.
TEST(UserSetting, CopyIsRefilledFromTheRecordWhereItLacksItsIdentification)
{
    malloc_saveView();
    const Bytes copy = Image(ownBytes(kUserSettingSize, 3)).u32(0, {0x2021365C}).bytes;
    for (uint32_t bit = 0; bit < 32; ++bit) {
        const Bytes record = Image(ownBytes(kUserSettingSize, bit)).u32(0, {0x2021365B}).bytes;
        fill(GetUserSetting(), record);
        std::memcpy(allocations.at(1).first, bitFlipped(copy, 0, bit).data(), kUserSettingSize);
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting_old()), record)) << bit;
        GetUserSetting()->settingByte2000 ^= 1; // the copy has got no identification
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting_old()), bytesOf(GetUserSetting()))) << bit;
        std::memcpy(allocations.at(1).first, copy.data(), kUserSettingSize);
        EXPECT_TRUE(areBytes(bytesOf(GetUserSetting_old()), copy)) << bit;
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
    EXPECT_TRUE(areBytes(bytesAt(allocations.at(1)), record));
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), record));
}

// What the current view becomes of the preview of `record`.
Bytes withClearedFlags(const Bytes &record)
{
    Image expected(record.substr(kPreviewAt, kViewSize));
    for (size_t n = 0; n < 24; ++n) {
        expected.u8(2718 + n, {0}).u8(3608 + 16 * n + 14, {0});
    }
    return expected.u32(3992, {0x29215679}).bytes;
}

TEST(UserSetting, CurrentViewIsRebuiltFromThePreviewWithoutContainerFlags)
{
    malloc_saveView();
    const Bytes record = ownBytes(kUserSettingSize, 13);
    const Bytes slotBuffer = ownBytes(kViewSize, 10);
    const Bytes good = Image(ownBytes(kViewSize, 12)).u32(3992, {0x29215679}).bytes;
    fill(GetUserSetting(), record);
    fill(GetSaveViewSetting(), slotBuffer);
    for (uint32_t bit = 0; bit < 32; ++bit) { // where it lacks its identification
        std::memcpy(allocations.at(2).first, bitFlipped(good, 3992, bit).data(), kViewSize);
        EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), withClearedFlags(record))) << bit;
    }
    std::memcpy(allocations.at(2).first, good.data(), kViewSize);
    EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), good));
    EXPECT_EQ(printedBy(ResetViewSetting), ""); // whatever it holds
    EXPECT_TRUE(areBytes(bytesAt(allocations.at(2)), withClearedFlags(record)));
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), record));
    EXPECT_TRUE(areBytes(bytesOf(GetSaveViewSetting()), slotBuffer));
}

} // namespace
