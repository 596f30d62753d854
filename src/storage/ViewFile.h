#pragma once

// The stored views, "view0.sav" to "view15.sav", which pass through the slot buffer of
// GetSaveViewSetting(). The identification of a view is at its end. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.
//
// Requires: malloc_saveView() has been called.

#include "storage/ViewRecord.h"

#include <cstdint>

// Makes the slot buffer an empty view with the layers of the preview. The other settings get their
// defaults, the view number becomes 1, and all alphas become 0. The RS1 block stays, and so do the
// containers except for their flags, which are cleared.
void ResetSaveViewSetting();

// Reads a stored view into the slot buffer, trying twice. Returns 1; or 0 when there is no such
// view or the slot is not 0 to 15.
//
// After a result of 0 the buffer holds a copy of the current view if `slot` is the user setting's
// current view, and otherwise an empty view as ResetSaveViewSetting() makes it. A stored view
// without a visible layer counts as not stored if it is the current view, and as stored otherwise.
// A short file fills only the beginning of the buffer, so the identification checked may be that of
// the old content.
int32_t LoadViewSetting(int32_t slot);

// Stores the slot buffer, after setting its identification and view number. Returns 1. Returns 0
// when the slot is not 0 to 15, or, with a message, when the file cannot be opened or takes less
// than the whole view, as on a full disk.
int32_t SaveViewSetting(int32_t slot);

// Removes all stored views, and clears the identification in the slot buffer.
void ClearViewSetting();

// True when no layer is shown: all alphas are 0.
bool isEmptyView(const ViewSetting *view);
