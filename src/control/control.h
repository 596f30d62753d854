#pragma once

// The control task of the main loop. Main loop only.

// One pass of the control task: keeps the mark of the last full second. The places for what a
// device that is on, or off, does every second are in the source. Does nothing in update mode.
void TaskControl();
