#pragma once

// The defaults of a view. Main loop only.
//
// A layer or container out of range does nothing. A field that a reset does not set keeps its
// value. ResetViewSetting() is in storage/UserSetting.h, beside GetViewSetting(), which needs it.
//
// Requires: malloc_saveView() has been called.

#include "storage/ViewRecord.h"

// In the program view, layer `layer` shows the whole of input `input` on all of output 0, with the
// active sizes that the record has. An input that does not exist counts as 0 x 0.
void ResetLayerSetting(uint32_t layer, uint32_t input);

// In the program view: layer n at stacking position 95 - n, all alphas 0.
void ResetOutputLayerAlpha();

// The other settings of `view`; and its view number, which becomes 1.
void ResetOtherSetting(ViewSetting *view);

// In the program view.
void ResetContainerOtherSetting(uint32_t container);

void ResetRS1_Setting(Rs1Setting *rs1);

// Makes the preview a copy of the program view, as view 0, with its own RS1 defaults.
void resetPreviewView();
