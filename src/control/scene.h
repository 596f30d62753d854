#pragma once

// Views (scenes) at work: which of the 16 is shown, storing what is shown, and looking for one that
// shows anything. What is shown is the live record of GetViewSetting(); stored views pass through
// the slot buffer of GetSaveViewSetting(), whose content is lost with every operation here. Main
// loop only, behind malloc_saveView().
//
// SetCurrentView() and SaveView() say how long they took and return the length of that message.

#include <cstdint>

// Shows view `view`, of which only the low 4 bits count. Where the user setting's current view is
// asked for and is not stored, or stored without a visible layer, what is shown is stored as this
// view; another view that is not stored is shown as an empty one.
int32_t SetCurrentView(uint32_t view);

// Stores what is shown as view `view`, which becomes the user setting's current one. A number other
// than 0 to 15 stores nothing.
int32_t SaveView(int32_t view);

// The same for the user setting's current view.
int32_t SaveCurrentView();

// 1 when the view has no visible layer, else 0. One that is not stored has none, but the user
// setting's current view then counts as what is shown.
int32_t isEmptyScene(uint8_t view);

// The next view behind `view` that is not empty, going on from 15 with 0 up to `view`; 0 when there
// is none.
uint8_t getNextNoEmptyScene(uint8_t view);

// The number of an output as the front board counts, from 1.
uint32_t getOutputMatrix(uint32_t output);
