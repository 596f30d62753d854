#pragma once

// The defaults of a view. Main loop only.
//
// A layer or container out of range does nothing. Fields that a reset does not set keep their
// values. ResetViewSetting() is in storage/UserSetting.h, because GetViewSetting() needs it.
//
// Requires: malloc_saveView() has been called.

#include "storage/ViewRecord.h"

// Makes layer `layer` of the program view show the whole of input `input` on all of output 0, with
// the active sizes in the record. An input that does not exist counts as 0 x 0.
void ResetLayerSetting(uint32_t layer, uint32_t input);

// In the program view, puts layer n at stacking position 95 - n and clears all alphas.
void ResetOutputLayerAlpha();

// Resets the other settings of `view`, and sets its view number to 1.
void ResetOtherSetting(ViewSetting *view);

// Resets the settings of one container in the program view.
void ResetContainerOtherSetting(uint32_t container);

void ResetRS1_Setting(Rs1Setting *rs1);

// Makes the preview a copy of the program view, as view 0, with its own RS1 defaults.
void resetPreviewView();
