#pragma once

// A run is interrupted where Ctrl-C at a desk would end the program without a word. The tool
// catches no such thing.
struct EndOfRun {};
