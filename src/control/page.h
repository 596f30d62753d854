#pragma once

// Pages: snapshots of all 16 stored views, each in one file "page%d_%d.sav" that is the 16 records
// behind each other. The first number is the page's, 0 to 15, which is not checked; the second is
// the user mode mirror of the user setting. Main loop only, behind malloc_saveView().

#include <cstdint>

inline constexpr uint32_t kPageCount = 16;

// Stores the page's views as the 16 views, and notes the page. Returns 1; or 0 (and a message) when
// the file cannot be opened, cannot be read or ends early: the views ahead of the missing one are
// stored by then. A view that cannot be stored is told on the console and does not count. What is
// shown stays.
int32_t LoadFromPage(uint8_t page);

// Saves the user setting, its factory-reset flag cleared, then writes the 16 views, and notes the
// page. A view that is not stored goes into it as LoadViewSetting() leaves it; a user setting that
// cannot be saved is told and does not count. Returns 1, or 0 when the page's file cannot be opened
// or the disk is full; the last few bytes may go unnoticed.
int32_t SaveToPage(uint8_t page);

// 1 when the page's file can be opened, else 0. Of `page` only the low 8 bits count.
int32_t HasSavePage(uint32_t page);

// Remove the files of one or all pages: those of user mode 0, whatever the mode is. Return 1.
int32_t ClearPage(uint8_t page);
int32_t ClearAllPage();
