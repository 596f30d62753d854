#pragma once

// A raster timing as a picture.

#include <string>

#include "tools/raster.h"

// An SVG of a line (left to right) and a frame (top to bottom), each from the leading edge of its
// sync: active area, porches and syncs to scale, with their lengths, their times and the sync
// signals. `title` is any text.
// Requires: faultOf() finds nothing.
std::string drawingOf(const std::string &title, const Raster &raster);
