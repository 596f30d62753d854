#pragma once

// Another set of defaults for the containers of the user setting record. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.
//
// Requires: malloc_saveView() has been called.

// The first container takes the size of the largest output group, the others get 0 x 0. Nothing is
// saved. A field that this reset does not set keeps its value.
void ResetContainerMsg();
