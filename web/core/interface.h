#pragma once

// A run that is interrupted where a program at a desk would be ended by Ctrl-C: nothing in the tool
// catches this.
struct EndOfRun {};
