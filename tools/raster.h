#pragma once

// Raster timings: those of the daemon's formats, of its custom format, and of the public standard
// for reduced blanking.
//
// Requires: one thread, and nobody else who uses the custom format's records.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// One direction of a raster, in pixels or lines. A line or frame begins with the leading edge of
// its sync; the back porch, the active part and the front porch follow.
struct Axis {
    int64_t active = 0;
    int64_t sync = 0;
    int64_t start = 0; // of the active part
    int64_t total = 0;
    bool isNegative = false; // the sync is active low

    // Below 0 where the parts overlap.
    int64_t backPorch() const
    {
        return start - sync;
    }
    int64_t frontPorch() const
    {
        return total - start - active;
    }

    bool operator==(const Axis &) const = default;
};

struct Raster {
    Axis horizontal;
    Axis vertical;          // of an interlaced format: the lines of both fields
    double pixelClock = 0;  // Hz; fields count as frames
    uint32_t frequency = 0; // frames, or fields, a second, as the format has it, in whole Hz
    bool isInterlaced = false;

    // Frames, or fields, a second that the pixel clock makes. This and lineRate() are 0 where a
    // total is 0.
    double rate() const;
    // The clock of a line's pixels: half of pixelClock where two fields make a frame.
    double dotClock() const;
    double lineRate() const; // Hz
};

// What a custom format is asked to have: pixels, lines, and whole Hz.
struct CustomMode {
    int32_t width;
    int32_t height;
    int32_t rate;
};

// "1920x1080@60"
std::string nameOf(const CustomMode &mode);

// What the daemon answers for the id of a format of its table.
Raster rasterOf(uint8_t id);

// What the daemon stores for a mode; nothing if its clock is above the limit.
// Requires: all numbers are 1 or more.
std::optional<Raster> customRaster(const CustomMode &mode);

// Why the numbers that the daemon stores for a mode are not what was meant: a sentence each.
std::vector<std::string> troublesOf(const CustomMode &mode, const Raster &stored);

// VESA's Coordinated Video Timings 1.2 with reduced blanking version 1 or 2. Nothing where they
// have no such mode: a rate that leaves no time for a line (above 2173 Hz), a width below version
// 1's cell of 8 pixels, a clock below the least step (0.25 MHz, 1 kHz). Nothing above 65535 pixels
// or lines.
std::optional<Raster> reducedBlanking(const CustomMode &mode, int version);

// Why the raster cannot be drawn or be a modeline; "" if it can.
std::string faultOf(const Raster &raster);

// As X.org and xrandr read it.
// Requires: faultOf() finds nothing.
std::string modelineOf(const std::string &name, const Raster &raster);
