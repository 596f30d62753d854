#include "tools/ping.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/errors.h"
#include "tools/exchange.h"
#include "tools/frames.h"
#include "tools/json.h"
#include "tools/manner.h"
#include "tools/output.h"

namespace {

using Clock = std::chrono::steady_clock;

// The device answers it at once, and prints nothing about it on its console.
constexpr char kQuestion[] = "read protocol version";

double millisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

class Ping {
public:
    Ping(Line &line, const PingOptions &options) : line_(line), options_(options) {}

    int run();

private:
    std::optional<double> ask(unsigned number);
    std::string receive(Milliseconds timeout);
    void tell(unsigned number, std::optional<double> time) const;
    void summary() const;

    Line &line_;
    PingOptions options_;
    Interruption interruption_;
    bool isInterrupted_ = false;
    unsigned sent_ = 0;
    std::vector<double> times_;
    Clock::time_point start_ = Clock::now();
};

// What arrives in time; nothing if the user ends it.
std::string Ping::receive(Milliseconds timeout)
{
    const int descriptors[] = {interruption_.descriptor(), line_.descriptor()};
    const std::vector<int> ready = waitReadable(descriptors, timeout);
    isInterrupted_ =
        std::find(ready.begin(), ready.end(), interruption_.descriptor()) != ready.end();
    return isInterrupted_ || ready.empty() ? std::string() : line_.receive(Milliseconds{0});
}

// How long the answer took, if one came.
std::optional<double> Ping::ask(unsigned number)
{
    // A tag of its own, so that a late answer is not taken for that to the next question.
    std::string frame = frameFromText(kQuestion);
    Rs232Command command = recordOf(frame);
    command.tag = static_cast<uint8_t>(number);
    Rs232CommandToStr(&command, frame.data());
    line_.discardInput();
    const auto start = Clock::now();
    line_.send(frame);
    FrameFinder finder;
    const Deadline deadline(options_.timeout);
    while (!deadline.passed() && !isInterrupted_) {
        for (const Piece &piece : finder.feed(receive(deadline.left()))) {
            if (piece.isFrame && isReplyTo(command, piece.text)) {
                return millisecondsSince(start);
            }
        }
    }
    return std::nullopt;
}

void Ping::tell(unsigned number, std::optional<double> time) const
{
    if (manner().json) {
        printJson({{"seq", number}, {"time_ms", time ? Json(*time) : Json()}});
    } else if (!manner().quiet) {
        fmt::print("{}\n", time ? fmt::format("answer from {}: seq={} time={:.2f} ms", line_.name(),
                                              number, *time)
                                : colored(Color::kBad, fmt::format("no answer from {}: seq={}",
                                                                   line_.name(), number)));
        flushOutput();
    }
}

void Ping::summary() const
{
    const size_t received = times_.size();
    const double loss =
        sent_ == 0 ? 0 : 100.0 * static_cast<double>(sent_ - received) / static_cast<double>(sent_);
    double sum = 0;
    double squares = 0;
    for (const double time : times_) {
        sum += time;
        squares += time * time;
    }
    const double count = received == 0 ? 1 : static_cast<double>(received);
    const double mean = sum / count;
    const double deviation = std::sqrt(std::max(0.0, squares / count - mean * mean));
    const auto [least, most] = std::minmax_element(times_.begin(), times_.end());
    if (manner().json) {
        Json json{{"sent", sent_},
                  {"received", received},
                  {"loss_percent", loss},
                  {"time_ms", nullptr},
                  {"seconds", millisecondsSince(start_) / 1000}};
        if (received > 0) {
            json["time_ms"] = {
                {"min", *least}, {"mean", mean}, {"max", *most}, {"deviation", deviation}};
        }
        printJson({{"summary", json}});
        return;
    }
    fmt::print("{}{} sent, {} answered, {:.0f}% lost, {:.0f} ms\n", manner().quiet ? "" : "\n",
               sent_, received, loss, millisecondsSince(start_));
    if (received > 0) {
        fmt::print("time min/mean/max/deviation = {:.2f}/{:.2f}/{:.2f}/{:.2f} ms\n", *least, mean,
                   *most, deviation);
    }
    flushOutput();
}

int Ping::run()
{
    bool isMissed = false;
    for (unsigned number = 1; !isInterrupted_; ++number) {
        const Deadline next(options_.interval);
        const std::optional<double> time = ask(number);
        if (isInterrupted_) {
            break; // the question counts for nothing
        }
        ++sent_;
        isMissed |= !time;
        if (time) {
            times_.push_back(*time);
        }
        tell(number, time);
        if (number == options_.count) {
            break;
        }
        while (!next.passed() && !isInterrupted_) {
            receive(next.left());
        }
    }
    summary();
    if (!times_.empty() || !isMissed) {
        return kDone;
    }
    fmt::print(stderr, "veskctl: nobody answered at {}{}\n", line_.name(), adviceOnSilence(line_));
    return kNoAnswer;
}

} // namespace

int runPing(Line &line, const PingOptions &options)
{
    return Ping(line, options).run();
}
