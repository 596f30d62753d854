#pragma once

// The stored views, "view0.sav" to "view15.sav", which pass through the slot buffer of
// GetSaveViewSetting(). The identification of a view is at its end. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.
//
// Requires: malloc_saveView() has been called.

#include "storage/ViewRecord.h"

#include <cstdint>

// Makes the slot buffer an empty view with the layers of the preview: other settings at their
// defaults, view number 1, all alphas 0. The RS1 block stays, and so do the containers except for
// their flags.
void ResetSaveViewSetting();

// Reads a stored view into the slot buffer, with a second attempt. Returns 1; or 0 when there is
// none, or the slot is not one of 0 to 15.
//
// After a result of 0 the buffer holds a copy of the current view if the slot is the user setting's
// current view, and otherwise an empty view as ResetSaveViewSetting() makes it. A stored view
// without a visible layer counts as none if it is the current view, and otherwise as stored. A
// short file fills the beginning of the buffer, and the identification may be that of the buffer's
// old content.
int32_t LoadViewSetting(int32_t slot);

// Stores the slot buffer, with identification and view number set. Returns 1; or 0 when the slot is
// not one of 0 to 15, or (and a message) when the file cannot be opened or takes less than the
// whole view. Bytes still in the stream's buffer, as on a full disk, are lost without a failure.
int32_t SaveViewSetting(int32_t slot);

// Removes all stored views, and clears the identification in the slot buffer.
void ClearViewSetting();

// True when no layer is shown: all alphas are 0.
bool isEmptyView(const ViewSetting *view);
