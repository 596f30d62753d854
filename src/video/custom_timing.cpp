#include "video/custom_timing.h"

#include <cfloat>
#include <cstdio>
#include <limits>

#include "video/CustomFormat.h"

// Each step rounds to exactly the width of its type.
static_assert(FLT_EVAL_METHOD == 0);
static_assert(std::numeric_limits<float>::is_iec559 && std::numeric_limits<double>::is_iec559);

namespace {

constexpr int32_t kCellWidth = 8;    // pixels
constexpr int32_t kHBlank = 160;     // pixels
constexpr int32_t kHSync = 32;       // pixels
constexpr int32_t kMinVBlank = 460;  // microseconds
constexpr int32_t kVFrontPorch = 3;  // lines
constexpr int32_t kVSync = 4;        // lines
constexpr double kClockStep = 0.125; // MHz

struct Timing {
    int64_t hTotal;    // pixels
    int32_t vBlank;    // lines
    float vTotal;      // lines
    double pixelClock; // MHz
};

// Cuts toward zero. A value that does not fit becomes the nearest one that does, as on the board's
// processor.
int32_t toInteger(float value)
{
    if (value >= 0x1p31F) {
        return std::numeric_limits<int32_t>::max();
    }
    if (value < -0x1p31F) {
        return std::numeric_limits<int32_t>::min();
    }
    return static_cast<int32_t>(value);
}

// The totals of the largest numbers do not fit in 32 bits.
// Requires: every number is 1 or more.
Timing timingOf(int32_t width, int32_t height, int32_t rate)
{
    const uint32_t frameRate = convertCustomF(static_cast<uint32_t>(rate));
    Timing timing{};
    timing.hTotal = int64_t{width / kCellWidth * kCellWidth} + kHBlank;

    // The microseconds that are left for a line. Above 2173 Hz this is negative, and so may be
    // every number computed from it.
    const auto line = static_cast<float>((1000000.0 / frameRate - kMinVBlank) / height);
    // On purpose, this nearly rounds up, where the standard cuts and adds 1.
    timing.vBlank = toInteger((kMinVBlank + line - 1.0F) / line);
    timing.vTotal = static_cast<float>(int64_t{timing.vBlank} + height);

    const int32_t pixels = toInteger(static_cast<float>(frameRate) * timing.vTotal *
                                     static_cast<float>(timing.hTotal));
    // Whole MHz on purpose, so the standard's clock steps change nothing.
    const int32_t megahertz = pixels / 1000000;
    timing.pixelClock = megahertz / kClockStep * kClockStep;
    return timing;
}

bool isPositive(int32_t width, int32_t height, int32_t rate)
{
    return width > 0 && height > 0 && rate > 0;
}

bool isWithinLimit(const Timing &timing)
{
    return timing.pixelClock <= kMaxPixelClock;
}

} // namespace

int32_t getCustomTimming(int32_t width, int32_t height, int32_t rate)
{
    if (!isPositive(width, height, rate)) {
        return 0;
    }
    const Timing timing = timingOf(width, height, rate);
    if (!isWithinLimit(timing)) {
        std::printf("Error: Pixel Clock (MHz) = %f\n", timing.pixelClock);
        return 0;
    }
    setCustomhTotal(static_cast<uint32_t>(timing.hTotal));
    setCustomvTotal(static_cast<uint32_t>(toInteger(timing.vTotal)));
    setCustomhStart(kHSync + kHBlank / 2);
    setCustomvStart(static_cast<uint32_t>(int64_t{timing.vBlank} - kVFrontPorch));
    setCustomhSyncWidth(kHSync);
    setCustomvSyncWidth(kVSync);
    setCustomhvSyncPolarity(0);
    setCustomhActive(static_cast<uint32_t>(width)); // as requested, not cut to cells
    setCustomvActive(static_cast<uint32_t>(height));
    setCustomH(static_cast<uint32_t>(width));
    setCustomV(static_cast<uint32_t>(height));
    setCustomF(static_cast<uint32_t>(rate));
    return 1;
}

int32_t CheckCustomTimming(int32_t width, int32_t height, int32_t rate)
{
    return isPositive(width, height, rate) && isWithinLimit(timingOf(width, height, rate)) ? 1 : 0;
}

double customPixelClock(int32_t width, int32_t height, int32_t rate)
{
    return timingOf(width, height, rate).pixelClock;
}

uint32_t convertCustomF(uint32_t rate)
{
    return rate;
}
