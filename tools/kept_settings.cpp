#include "tools/kept_settings.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>

#include <termios.h>

namespace {

// A signal handler reads this. `descriptor` is -1 while the place is free.
struct Place {
    std::atomic<int> descriptor{-1};
    termios settings{};
};
std::array<Place, 4> places;

constexpr int kEndings[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE};

void putBackAndEnd(int signal)
{
    for (Place &place : places) {
        const int descriptor = place.descriptor.load(std::memory_order_relaxed);
        if (descriptor >= 0) {
            tcsetattr(descriptor, TCSANOW, &place.settings);
        }
    }
    std::raise(signal); // the handler is reset, so this ends the program when it returns
}

void watchEndings()
{
    static bool isDone = false;
    if (isDone) {
        return;
    }
    isDone = true;
    for (const int signal : kEndings) {
        struct sigaction before;
        struct sigaction action {};
        action.sa_handler = putBackAndEnd;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        // SIGTTOU too: it would stop a process in the background that sets up its terminal.
        sigfillset(&action.sa_mask);
        if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_DFL) {
            sigaction(signal, &action, nullptr);
        }
    }
}

} // namespace

KeptSettings::KeptSettings(int descriptor) : place_(-1)
{
    for (size_t i = 0; i < places.size(); ++i) {
        Place &place = places[i];
        if (place.descriptor.load(std::memory_order_relaxed) < 0) {
            if (tcgetattr(descriptor, &place.settings) == 0) {
                place.descriptor.store(descriptor, std::memory_order_release);
                place_ = static_cast<int>(i);
                watchEndings();
            }
            return;
        }
    }
}

KeptSettings::~KeptSettings()
{
    if (place_ >= 0) {
        Place &place = places[static_cast<size_t>(place_)];
        // Only after everything has been sent: it would go out at the old rate otherwise.
        tcsetattr(place.descriptor.load(std::memory_order_relaxed), TCSADRAIN, &place.settings);
        place.descriptor.store(-1, std::memory_order_relaxed);
    }
}
