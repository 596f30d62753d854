#include "tools/progress.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include <sys/ioctl.h>
#include <unistd.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/package.h"

namespace {

constexpr std::chrono::milliseconds kBetweenDrawings{100};
constexpr size_t kWidth = 24; // of the bar

constexpr size_t kLeastWidth = 4;
constexpr size_t kUsualColumns = 80;

struct Rates {
    size_t bytes;
    double perSecond;
    double secondsLeft;
};

Rates ratesOf(const Figures &figures)
{
    const size_t bytes = figures.done * kBlockSize;
    const double rate = figures.seconds > 0 ? static_cast<double>(bytes) / figures.seconds : 0;
    const size_t left = (figures.blocks - figures.done) * kBlockSize;
    return {bytes, rate, rate > 0 ? static_cast<double>(left) / rate : 0};
}

size_t columnsOf(int descriptor)
{
    winsize size{};
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col
                                                                        : kUsualColumns;
}

} // namespace

std::string barOf(const Figures &figures, size_t columns)
{
    const Rates rates = ratesOf(figures);
    const long left = std::lround(rates.secondsLeft);
    const size_t percent = figures.done * 100 / figures.blocks;
    const std::string text = fmt::format("{:3}%  {} KiB  {:.1f} KiB/s  {}:{:02} left, {} again",
                                         percent, rates.bytes / 1024, rates.perSecond / 1024,
                                         left / 60, left % 60, figures.again);
    const size_t most = columns - 1; // in the last column the cursor goes to the next row
    if (text.size() + 3 + kLeastWidth > most) {
        return fmt::format("{}% {} KiB {:.0f} KiB/s {}:{:02} {} again", percent, rates.bytes / 1024,
                           rates.perSecond / 1024, left / 60, left % 60, figures.again)
            .substr(0, most);
    }
    const size_t width = std::min(kWidth, most - text.size() - 3);
    const size_t full = figures.done * width / figures.blocks;
    return fmt::format("[{:#>{}}{:.>{}}] {}", "", full, "", width - full, text);
}

Progress::Progress(ProgressKind kind, size_t blocks)
    : kind_(kind == ProgressKind::kBar && isatty(STDERR_FILENO) == 0 ? ProgressKind::kNone : kind),
      blocks_(blocks)
{
}

Progress::~Progress()
{
    if (drawn_ > 0) {
        std::fputc('\n', stderr);
    }
}

bool Progress::isJson() const
{
    return kind_ == ProgressKind::kJson;
}

void Progress::begin()
{
    start_ = Clock::now();
}

void Progress::stop()
{
    stop_ = Clock::now();
}

void Progress::show(size_t done, size_t again)
{
    const Clock::time_point now = Clock::now();
    if (kind_ == ProgressKind::kNone || (done != blocks_ && now - shown_ < kBetweenDrawings)) {
        return;
    }
    shown_ = now;
    const Figures figures{blocks_, done, again,
                          std::chrono::duration<double>(stop_.value_or(now) - start_).count()};
    if (kind_ == ProgressKind::kJson) {
        const Rates rates = ratesOf(figures);
        const nlohmann::ordered_json object = {
            {"event", "progress"},
            {"blocks", blocks_},
            {"done", done},
            {"bytes", rates.bytes},
            {"bytes_per_s", rates.perSecond},
            {"seconds", figures.seconds},
            {"seconds_left", rates.secondsLeft},
            {"sent_again", again},
        };
        fmt::print("{}\n", object.dump());
        std::fflush(stdout);
        return;
    }
    const size_t columns = columnsOf(STDERR_FILENO);
    const std::string bar = barOf(figures, columns);
    // Blanks over what is left of a longer one.
    fmt::print(stderr, "\r{:<{}}", bar, std::min(drawn_, columns - 1));
    std::fflush(stderr);
    drawn_ = bar.size();
    if (done == blocks_) {
        std::fputc('\n', stderr);
        drawn_ = 0;
    }
}

void Progress::tell(const std::string &text)
{
    fmt::print(stderr, "{}veskctl: {}\n", drawn_ > 0 ? "\n" : "", text);
    drawn_ = 0;
}
