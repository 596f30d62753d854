#pragma once

// Another set of defaults for the containers of the user setting record. Main loop only.
// Waiting for a later model: nothing that the daemon runs calls this.
//
// Requires: malloc_saveView() has been called.

// Gives the first container the largest width and height of the output groups, and the others 0 x
// 0. Nothing is saved. Fields that this reset does not set keep their values.
void ResetContainerMsg();
