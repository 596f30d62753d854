#pragma once

// What an operation changes in the user setting record, and that it changes no other block; link
// with `setting_bytes`.

#include <functional>

#include "storage/UserSetting.h"
#include "tests/support/console.h"
#include "tests/support/setting_bytes.h"

// Every case begins with the four blocks as they are before anything is loaded.
class Blocks : public testing::Environment {
public:
    void SetUp() override
    {
        malloc_saveView();
    }
};

// 0xA5, but what the resets ask for: input n is of 2000 + n by 1000 + n active pixels, output 0 of
// 1111 by 999, and the external input has format 38.
inline Image before()
{
    Image image(Bytes(kUserSettingSize, '\xA5'));
    for (uint32_t n = 0; n < 26; ++n) {
        image.u16(30 + 22 * n + 10, {2000 + n, 1000 + n});
    }
    return image.u16(1734, {1111, 999}).u8(2413, {38});
}

// Runs `reset` on a record `from`: the record must become `to`, no other block change, and nothing
// be printed.
template <typename Reset> void expectChange(const Image &from, Reset reset, const Image &to)
{
    fill(GetUserSetting(), from.bytes);
    const Bytes copy = Image(ownBytes(kUserSettingSize, 1)).u32(0, {0x2021365C}).bytes;
    const Bytes view = Image(ownBytes(kViewSize, 2)).u32(3992, {0x29215679}).bytes;
    const Bytes slotBuffer = ownBytes(kViewSize, 3);
    fill(GetUserSetting_old(), copy);
    fill(GetViewSetting(), view);
    fill(GetSaveViewSetting(), slotBuffer);
    EXPECT_EQ(printedBy(reset), "");
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting()), to.bytes));
    EXPECT_TRUE(areBytes(bytesOf(GetUserSetting_old()), copy));
    EXPECT_TRUE(areBytes(bytesOf(GetViewSetting()), view));
    EXPECT_TRUE(areBytes(bytesOf(GetSaveViewSetting()), slotBuffer));
}

// Runs `reset` on a record `from`, of which it must change what `edit` does.
template <typename Reset, typename Edit>
void expectEdit(Reset reset, Edit edit, const Image &from = before())
{
    Image to = from;
    edit(to);
    expectChange(from, reset, to);
}

// Nothing changes for the first number that there is not, and for others beyond it.
inline void expectNoneFrom(uint32_t count, const std::function<void(uint32_t)> &reset)
{
    for (const uint32_t n : {count, count + 1, 255u, 256u, 0x80000000u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(n);
        expectEdit([&] { reset(n); }, [](Image &) {});
    }
}
