#pragma once

// Pages: snapshots of all 16 stored views. Each is one file "page%d_%d.sav" with the 16 records one
// after the other. The first number is the page, 0 to 15, which is not checked; the second is the
// user mode mirror of the user setting. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.
//
// Requires: malloc_saveView() has been called.

#include <cstdint>

inline constexpr uint32_t kPageCount = 16;

// Stores the page's views as the 16 views, and notes the page number. A view that cannot be stored
// is logged and skipped. What is shown does not change. Returns 1; or 0, and logs it, when the file
// cannot be opened or read, or ends early. The views before the missing one are then stored.
int32_t LoadFromPage(uint8_t page);

// Saves the user setting with its factory-reset flag cleared, writes the 16 views, and notes the
// page number. A view that is not stored is written as LoadViewSetting() leaves it. A failure to
// save the user setting is logged, and the page is still written. Returns 1, or 0 when the page's
// file cannot be opened or the disk does not take the whole page; a page that was there then stays,
// unless the disk took a part of it.
int32_t SaveToPage(uint8_t page);

// 1 when the page's file can be opened, else 0. Only the low 8 bits of `page` count.
int32_t HasSavePage(uint32_t page);

// Remove the file of one page or of all pages, but always those of user mode 0. Return 1.
int32_t ClearPage(uint8_t page);
int32_t ClearAllPage();
