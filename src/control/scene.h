#pragma once

// Views (scenes) at work: selecting which of the 16 is shown, storing what is shown, and finding
// one that is not empty. What is shown is the live record of GetViewSetting(). Stored views pass
// through the slot buffer of GetSaveViewSetting(). Every operation but getOutputMatrix() may
// overwrite it. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.
//
// Requires: malloc_saveView() has been called.
//
// SetCurrentView() and SaveView() print how long they took and return the length of that message.

#include <cstdint>

// Shows view `view`; only its low 4 bits count. If it is the user setting's current view, and is
// not stored or is stored without a visible layer, then what is shown is stored as this view. Any
// other view that is not stored is shown as an empty one.
int32_t SetCurrentView(uint32_t view);

// Stores what is shown as view `view`, which becomes the user setting's current one. A number other
// than 0 to 15 stores nothing.
int32_t SaveView(int32_t view);

// SaveView() for the user setting's current view.
int32_t SaveCurrentView();

// 1 when the view has no visible layer, else 0. A view that is not stored counts as empty, unless
// it is the user setting's current view: then what is shown decides.
int32_t isEmptyScene(uint8_t view);

// Returns the next view after `view` that is not empty. After 15 the search goes on from 0 up to
// the one before `view`. Returns 0 when there is none.
uint8_t getNextNoEmptyScene(uint8_t view);

// Returns the number of an output as the front board counts, from 1.
uint32_t getOutputMatrix(uint32_t output);
