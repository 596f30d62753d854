// In place of tools/wait.cpp: waiting as a page can, which goes on with other things meanwhile.

#include "tools/wait.h"

#include <algorithm>

#include "web/core/line.h"

Deadline::Deadline(Milliseconds fromNow) : at_(std::chrono::steady_clock::now() + fromNow) {}

Milliseconds Deadline::left() const
{
    // Rounded up, as in tools/wait.cpp.
    const auto rest = std::chrono::ceil<Milliseconds>(at_ - std::chrono::steady_clock::now());
    return std::max(rest, Milliseconds{0});
}

bool Deadline::passed() const
{
    return left() == Milliseconds{0};
}

std::vector<int> waitReadable(std::span<const int> descriptors, Milliseconds timeout)
{
    const auto has = [descriptors](int descriptor) {
        return std::find(descriptors.begin(), descriptors.end(), descriptor) != descriptors.end();
    };
    std::vector<int> ready;
    switch (awaitLine(has(kLineDescriptor), timeout)) {
    case Arrival::kNothing:
        break;
    case Arrival::kInterruption:
        ready.push_back(kInterruptionDescriptor);
        break;
    case Arrival::kBytes:
    case Arrival::kEnd:
        ready.push_back(kLineDescriptor);
        break;
    }
    return ready;
}

Interruption::Interruption() : descriptor_(kInterruptionDescriptor) {}

Interruption::~Interruption() = default;

int Interruption::descriptor() const
{
    return descriptor_;
}
