#pragma once

// The stored views, "view0.sav" to "view15.sav", which pass through the slot buffer of
// GetSaveViewSetting(). A view's identification stands at its end. Main loop only, behind
// malloc_saveView().

#include "storage/ViewRecord.h"

#include <cstdint>

// Reads a stored view into the slot buffer, with a second attempt. Returns 1; or 0 when there is
// none, or the slot is not one of 0 to 15.
//
// What the buffer holds then: a copy of the current view, when the slot is the user setting's
// current view; else an empty view as ResetSaveViewSetting() makes it. A stored view without a
// visible layer counts as none where it would be the current view, and as stored otherwise. Of a
// short file the buffer takes what there is, and the identification may be that of its old content.
int32_t LoadViewSetting(int32_t slot);

// Stores the slot buffer, with identification and view number set. Returns 1; or 0 when the slot is
// not one of 0 to 15, or (and a message) when the file cannot be opened or takes less than the
// whole view. What still was in the stream's buffer, as on a full disk, is lost unnoticed.
int32_t SaveViewSetting(int32_t slot);

// Removes all stored views, and makes the slot buffer's content unknown as a view.
void ClearViewSetting();

// True when no layer is shown: all alphas are 0.
bool isEmptyView(const ViewSetting *view);
