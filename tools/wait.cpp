#include "tools/wait.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tools/errors.h"

Deadline::Deadline(Milliseconds fromNow) : at_(std::chrono::steady_clock::now() + fromNow) {}

Milliseconds Deadline::left() const
{
    // Rounded up: otherwise callers would poll without a wait during the last part of a
    // millisecond.
    const auto rest = std::chrono::ceil<Milliseconds>(at_ - std::chrono::steady_clock::now());
    return std::max(rest, Milliseconds{0});
}

bool Deadline::passed() const
{
    return left() == Milliseconds{0};
}

std::vector<int> waitReadable(std::span<const int> descriptors, Milliseconds timeout)
{
    std::vector<pollfd> entries;
    for (const int descriptor : descriptors) {
        entries.push_back({descriptor, POLLIN, 0});
    }
    const Deadline deadline(timeout);
    while (poll(entries.data(), entries.size(), static_cast<int>(deadline.left().count())) < 0) {
        if (errno != EINTR) {
            throw LocalError(fmt::format("cannot wait for input: {}", std::strerror(errno)));
        }
    }
    std::vector<int> ready;
    for (const pollfd &entry : entries) {
        if (entry.revents != 0) {
            ready.push_back(entry.fd);
        }
    }
    return ready;
}

Interruption::Interruption()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    descriptor_ = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor_ < 0) {
        throw LocalError(fmt::format("cannot listen for signals: {}", std::strerror(errno)));
    }
}

// The signals stay blocked: a pending one would end the program during its last steps.
Interruption::~Interruption()
{
    close(descriptor_);
}

int Interruption::descriptor() const
{
    return descriptor_;
}
