// In place of tools/line.cpp: a line that the page has opened. The page reads and writes it; the
// tool is suspended meanwhile. Of its messages those about a lost line are the same as at a desk.

#include "tools/line.h"

#include <array>
#include <cstdint>
#include <utility>

#include <emscripten.h>

#include <fmt/format.h>

#include "tools/errors.h"
#include "web/core/end_of_run.h"
#include "web/core/line.h"

// `desk` is what web/src/core/desk.ts makes of the page's line.

// clang-format off: this is JavaScript.

// Sends bytes. Gives 0, or 1 if the line is lost; then `error` has a text.
EM_ASYNC_JS(int, sendToLine, (const char *bytes, int count, char *error, int size), {
    const text = await Module.desk.send(HEAPU8.slice(bytes, bytes + count));
    stringToUTF8(text, error, size);
    return text ? 1 : 0;
});

// Waits for an Arrival.
EM_ASYNC_JS(int, awaitArrival, (int forBytes, double timeout),
            { return Module.desk.arrival(Boolean(forBytes), timeout); });

// Takes up to `size` bytes that have arrived, and gives their count.
EM_JS(int, takeFromLine, (char *bytes, int size), {
    const taken = Module.desk.take(size);
    HEAPU8.set(taken, bytes);
    return taken.length;
});

EM_JS(int, hasLine, (), { return Module.desk.hasLine ? 1 : 0; });
// clang-format on

Arrival awaitLine(bool forBytes, Milliseconds timeout)
{
    return static_cast<Arrival>(
        awaitArrival(forBytes ? 1 : 0, static_cast<double>(timeout.count())));
}

Line Line::serial(const std::string &device, Milliseconds, unsigned baud)
{
    if (hasLine() == 0) {
        throw LocalError(fmt::format("cannot open {}: no port has been chosen", device));
    }
    if (baud != kUsualBaud) {
        throw UsageError(fmt::format("a page's line runs at {} bits/s only", kUsualBaud));
    }
    return Line(kLineDescriptor, device);
}

Line Line::udp(const std::string &)
{
    throw UsageError("a page cannot be the control PC: browsers send no UDP; use a serial port");
}

Line::Line(int descriptor, std::string name)
    : descriptor_(descriptor), carriesDatagrams_(false), name_(std::move(name))
{
}

Line::Line(Line &&other) noexcept = default;

Line::~Line() = default;

int Line::descriptor() const
{
    return descriptor_;
}

const std::string &Line::name() const
{
    return name_;
}

bool Line::carriesDatagrams() const
{
    return carriesDatagrams_;
}

void Line::stopAt(const Interruption *interruption)
{
    interruption_ = interruption;
}

void Line::send(std::string_view bytes)
{
    std::array<char, 256> error{};
    if (sendToLine(bytes.data(), static_cast<int>(bytes.size()), error.data(), error.size()) != 0) {
        throw LineLost(fmt::format("cannot send to {}: {}", name_, error.data()));
    }
    if (tap_) {
        tap_(Passing::kSent, bytes);
    }
}

std::string Line::receive(Milliseconds timeout)
{
    return receive(timeout, Passing::kReceived);
}

std::string Line::receive(Milliseconds timeout, Passing passing)
{
    switch (awaitLine(true, timeout)) {
    case Arrival::kNothing:
        return {};
    case Arrival::kInterruption:
        if (interruption_ == nullptr) {
            throw EndOfRun();
        }
        throw Interrupted();
    case Arrival::kEnd:
        throw LineLost(fmt::format("{} was closed: the cable or its adapter was unplugged, or the "
                                   "far end has ended; plug it in and begin again",
                                   name_));
    case Arrival::kBytes:
        break;
    }
    std::string bytes(65536, '\0');
    bytes.resize(static_cast<size_t>(takeFromLine(bytes.data(), static_cast<int>(bytes.size()))));
    if (tap_) {
        tap_(passing, bytes);
    }
    return bytes;
}

void Line::discardInput()
{
    while (!receive(Milliseconds{0}, Passing::kDropped).empty()) {
    }
}

void Line::setTap(Tap tap)
{
    tap_ = std::move(tap);
}
