#pragma once

// Pictures of views: what a person would see on the outputs.

#include "storage/UserSettingRecord.h"
#include "tools/sav_file.h"

#include <string>

// Where the sizes of outputs and inputs come from, as a view has none.
enum class SizesFrom : uint8_t {
    kFile,   // the user setting that is drawn
    kBeside, // the save0.sav in the directory of the file
    kReset,  // a reset
};

// An SVG of a view, of a page, or of the preview and the program view of a user setting: of each
// the canvas of output 0, to scale, and on it the visible layers, with a table of them below. The
// layers are drawn in pixels of the output, clipped to at most four times its size.
// Requires: the file has the length of its kind, which is kView, kPage or kSave.
std::string drawingOf(const SavFile &file, const UserSetting &sizes, SizesFrom from);

// Draws the file. `output` is a file, which is replaced whole or not at all, or "-" for standard
// output. `kind` is the file's kind, or kUnknown to find out. Throws UsageError for what has no
// picture.
int runSavDraw(const std::string &file, const std::string &output,
               SavKind kind = SavKind::kUnknown);
