// How the demo device waits. A page has one thread: while the daemon's code runs, nothing else
// does. So wherever the daemon sleeps, or looks for input again and again, the page is given time
// to work.

#include <algorithm>
#include <cstdint>
#include <emscripten.h>
#include <iterator>
#include <unistd.h>

#include "command/channel.h"
#include "imports.h"

extern "C" {
int32_t realIsUpdateProgram() __asm__("__real__Z15isUpdateProgramv");
int32_t wrapIsUpdateProgram() __asm__("__wrap__Z15isUpdateProgramv");
void wrapSysDelay1ms(uint32_t milliseconds) __asm__("__wrap__Z11SysDelay1msj");
int __wrap_usleep(useconds_t microseconds);
}

namespace {

// A sleep up to this long is one of a loop that waits for bytes.
constexpr useconds_t kPollUs = 2000;

// Timers of a page are late: by some milliseconds, and by a second in a tab that is not shown.
constexpr double kMostMadeUpMs = 2000;

// How long the main loop pauses when nothing arrives. Short at first, as delayed calls run 1000 ms
// and 1500 ms after a command; long afterwards, so that a device that nobody talks to takes no
// processor time.
constexpr double kShortPauseMs = 10;
constexpr double kLongPauseMs = 200;
constexpr double kShortPausesMs = 3000;

double polledUntil; // when the polls of the current wait should have ended, or 0 outside a wait
double lastInput;   // when a pause last ended because of bytes

// Pauses up to the time given, and for less if bytes arrive.
void pauseForInput(double milliseconds)
{
    if (demo_pause(milliseconds, 1) != 0) {
        lastInput = emscripten_get_now();
    }
}

// Whether bytes that have arrived are still to be looked at: a pass of the main loop takes a
// limited number.
bool inputIsLeft()
{
    return std::any_of(std::begin(channel), std::end(channel), [](const Channel *slot) {
        return slot != nullptr && pipe_count(&slot->pipe) > 0;
    });
}

void pauseBetweenPasses(double milliseconds)
{
    polledUntil = 0;
    if (inputIsLeft()) {
        demo_pause(0, 1);
    } else {
        pauseForInput(milliseconds);
    }
}

} // namespace

// A short sleep ends when bytes arrive. The daemon counts such sleeps to know how long it has
// waited, so one that was too long is made up for by those after it.
int __wrap_usleep(useconds_t microseconds)
{
    const double milliseconds = microseconds / 1000.0;
    const double now = emscripten_get_now();
    if (microseconds > kPollUs) {
        polledUntil = 0;
        demo_pause(milliseconds, 0);
        return 0;
    }
    polledUntil = std::max(polledUntil, polledUntil > 0 ? now - kMostMadeUpMs : now) + milliseconds;
    if (polledUntil > now && demo_pause(polledUntil - now, 1) != 0) {
        polledUntil = emscripten_get_now();
    }
    return 0;
}

// The main loop's pause.
void wrapSysDelay1ms(uint32_t)
{
    const bool isRecent = emscripten_get_now() - lastInput < kShortPausesMs;
    pauseBetweenPasses(isRecent ? kShortPauseMs : kLongPauseMs);
}

// In update mode the main loop makes no pause, but asks this in each pass.
int32_t wrapIsUpdateProgram()
{
    const int32_t isUpdate = realIsUpdateProgram();
    if (isUpdate != 0) {
        pauseBetweenPasses(kShortPauseMs);
    }
    return isUpdate;
}
