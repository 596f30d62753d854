#pragma once

// The control task of the main loop. Main loop only.

// One pass of the control task: keeps the mark of the last full second. The source has the places
// for what a device does every second while it is on or off. Does nothing in update mode.
void TaskControl();
