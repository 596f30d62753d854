#include "tools/raster.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "storage/UserSetting.h"
#include "video/VideoFormatTable.h"
#include "video/custom_timing.h"
#include "video/format_id.h"

namespace {

constexpr int32_t kMostInField = 65535; // of the custom timing record
constexpr int64_t kMicroseconds = 1000000;

// The standard, pixels and lines but for the times and clocks.
constexpr int64_t kBlankingTime = 460; // microseconds at least
constexpr int64_t kHSync = 32;
constexpr int64_t kCell1 = 8; // of version 1 from here
constexpr int64_t kHBlank1 = 160;
constexpr int64_t kHBackPorch1 = 80;
constexpr int64_t kVFrontPorch1 = 3;
constexpr int64_t kLeastVBackPorch1 = 7;
constexpr int64_t kClockStep1 = 250000; // Hz
constexpr int64_t kHBlank2 = 80;        // of version 2 from here
constexpr int64_t kHBackPorch2 = 40;
constexpr int64_t kLeastVFrontPorch2 = 1;
constexpr int64_t kVSync2 = 8;
constexpr int64_t kVBackPorch2 = 6;
constexpr int64_t kClockStep2 = 1000; // Hz

// The width of version 1's vertical sync tells the aspect ratio.
int64_t verticalSync1(const CustomMode &mode)
{
    struct Ratio {
        int64_t width, height, sync;
    };
    for (const Ratio &ratio :
         {Ratio{4, 3, 4}, Ratio{16, 9, 5}, Ratio{16, 10, 6}, Ratio{5, 4, 7}, Ratio{15, 9, 7}}) {
        if (mode.width * ratio.height == mode.height * ratio.width) {
            return ratio.sync;
        }
    }
    return 10;
}

Raster tableRaster(uint8_t id)
{
    Raster raster;
    raster.horizontal = {GetHDEByVideoFormat(id), GetHSyncWidthByVideoFormat(id),
                         GetHStartByVideoFormat(id), GetHTotalByVideoFormat(id),
                         GetHSyncPolarityByVideoFormat(id) != 0};
    raster.vertical = {GetVDEByVideoFormat(id), GetVSyncWidthByVideoFormat(id),
                       GetVStartByVideoFormat(id), GetVTotalByVideoFormat(id),
                       GetVSyncPolarityByVideoFormat(id) != 0};
    raster.pixelClock = GetDlckByVideoFormat(id);
    raster.frequency = GetVFreqByVideoFormat(id);
    raster.isInterlaced = IsInterlaceFormat(id) != 0;
    return raster;
}

} // namespace

double Raster::rate() const
{
    const int64_t pixels = horizontal.total * vertical.total;
    return pixels == 0 ? 0 : pixelClock / static_cast<double>(pixels);
}

double Raster::dotClock() const
{
    return isInterlaced ? pixelClock / 2 : pixelClock;
}

double Raster::lineRate() const
{
    return horizontal.total == 0 ? 0 : dotClock() / static_cast<double>(horizontal.total);
}

std::string nameOf(const CustomMode &mode)
{
    return fmt::format("{}x{}@{}", mode.width, mode.height, mode.rate);
}

Raster rasterOf(uint8_t id)
{
    malloc_saveView();
    return tableRaster(id);
}

std::optional<Raster> customRaster(const CustomMode &mode)
{
    malloc_saveView();
    // Asked first, as the other prints what it refuses.
    if (CheckCustomTimming(mode.width, mode.height, mode.rate) == 0 ||
        getCustomTimming(mode.width, mode.height, mode.rate) == 0) {
        return std::nullopt;
    }
    return tableRaster(kVideoFormatCustom);
}

std::vector<std::string> troublesOf(const CustomMode &mode, const Raster &stored)
{
    std::vector<std::string> troubles;
    if (int64_t{mode.rate} * kBlankingTime > kMicroseconds) {
        troubles.emplace_back(
            "above 2173 Hz no time is left for a line, and the numbers are useless");
    }
    if (stored.horizontal.active != mode.width || stored.vertical.active != mode.height ||
        stored.horizontal.total < stored.horizontal.active ||
        stored.vertical.total < stored.vertical.active) {
        troubles.emplace_back("numbers above 65535 are cut to the 16 bits of their fields");
    }
    if (stored.vertical.start > kMostInField - 3) {
        troubles.emplace_back("with fewer than 3 lines of blanking V start is below 0, and wraps");
    } else if (stored.vertical.backPorch() < 0) {
        troubles.emplace_back(fmt::format("the vertical sync reaches {} {} into the picture",
                                          -stored.vertical.backPorch(),
                                          stored.vertical.backPorch() == -1 ? "line" : "lines"));
    }
    return troubles;
}

std::optional<Raster> reducedBlanking(const CustomMode &mode, int version)
{
    const int64_t cell = version == 1 ? kCell1 : 1;
    const int64_t width = mode.width / cell * cell;
    const int64_t left = kMicroseconds - kBlankingTime * mode.rate; // of a frame, times the rate
    if (left <= 0 || width < 1 || mode.width > kMostInField || mode.height > kMostInField) {
        return std::nullopt;
    }
    // The lines that take up the blanking time; in whole numbers, as rounding could lose one.
    const int64_t lines = kBlankingTime * mode.rate * mode.height / left + 1;
    Raster raster;
    raster.frequency = static_cast<uint32_t>(mode.rate);
    int64_t clockStep = 0;
    if (version == 1) {
        const int64_t sync = verticalSync1(mode);
        const int64_t blanking = std::max(lines, kVFrontPorch1 + sync + kLeastVBackPorch1);
        raster.horizontal = {width, kHSync, kHSync + kHBackPorch1, width + kHBlank1, false};
        raster.vertical = {mode.height, sync, blanking - kVFrontPorch1, mode.height + blanking,
                           true};
        clockStep = kClockStep1;
    } else {
        const int64_t blanking = std::max(lines, kLeastVFrontPorch2 + kVSync2 + kVBackPorch2);
        raster.horizontal = {width, kHSync, kHSync + kHBackPorch2, width + kHBlank2, false};
        raster.vertical = {mode.height, kVSync2, kVSync2 + kVBackPorch2, mode.height + blanking,
                           true};
        clockStep = kClockStep2;
    }
    const int64_t pixels = mode.rate * raster.horizontal.total * raster.vertical.total;
    if (pixels < clockStep) {
        return std::nullopt;
    }
    const int64_t cut = pixels / clockStep * clockStep;
    raster.pixelClock = static_cast<double>(cut);
    return raster;
}

std::string faultOf(const Raster &raster)
{
    struct Side {
        const char *letter;
        const Axis &axis;
    };
    for (const auto &[letter, axis] : {Side{"H", raster.horizontal}, Side{"V", raster.vertical}}) {
        if (axis.active < 1) {
            return fmt::format("{} active is 0", letter);
        }
        if (axis.frontPorch() < 0) {
            return fmt::format("{} start and {} active are {}, but {} total is {}", letter, letter,
                               axis.start + axis.active, letter, axis.total);
        }
        if (axis.backPorch() < 0) {
            return fmt::format("{} sync is {}, but {} start is {}", letter, axis.sync, letter,
                               axis.start);
        }
    }
    return {};
}

std::string modelineOf(const std::string &name, const Raster &raster)
{
    std::string clock = fmt::format("{:.6f}", raster.dotClock() / 1e6);
    while (clock.ends_with('0') && clock[clock.size() - 3] != '.') {
        clock.pop_back();
    }
    // There a line begins with the active part.
    const auto edges = [](const Axis &axis) {
        const int64_t sync = axis.total - axis.start;
        return fmt::format("{} {} {} {}", axis.active, sync, sync + axis.sync, axis.total);
    };
    const auto polarity = [](const Axis &axis) { return axis.isNegative ? '-' : '+'; };
    return fmt::format("Modeline \"{}\"  {}  {}  {}{} {}hsync {}vsync", name, clock,
                       edges(raster.horizontal), edges(raster.vertical),
                       raster.isInterlaced ? " interlace" : "", polarity(raster.horizontal),
                       polarity(raster.vertical));
}
