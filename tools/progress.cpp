#include "tools/progress.h"

#include <cmath>
#include <cstdint>
#include <cstdio>

#include <unistd.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/package.h"

namespace {

constexpr std::chrono::milliseconds kBetweenDrawings{100};
constexpr size_t kWidth = 24; // of the bar

} // namespace

Progress::Progress(ProgressKind kind, size_t blocks)
    : kind_(kind == ProgressKind::kBar && isatty(STDERR_FILENO) == 0 ? ProgressKind::kNone : kind),
      blocks_(blocks)
{
}

Progress::~Progress()
{
    if (isDrawn_) {
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

void Progress::show(size_t done, size_t again)
{
    const Clock::time_point now = Clock::now();
    if (kind_ == ProgressKind::kNone || (done != blocks_ && now - shown_ < kBetweenDrawings)) {
        return;
    }
    shown_ = now;
    const double seconds = std::chrono::duration<double>(now - start_).count();
    const size_t bytes = done * kBlockSize;
    const double rate = seconds > 0 ? static_cast<double>(bytes) / seconds : 0;
    const double left = rate > 0 ? static_cast<double>((blocks_ - done) * kBlockSize) / rate : 0;
    if (kind_ == ProgressKind::kJson) {
        const nlohmann::ordered_json object = {
            {"event", "progress"},  {"blocks", blocks_},   {"done", done},
            {"bytes", bytes},       {"bytes_per_s", rate}, {"seconds", seconds},
            {"seconds_left", left}, {"sent_again", again},
        };
        fmt::print("{}\n", object.dump());
        std::fflush(stdout);
        return;
    }
    const size_t full = done * kWidth / blocks_;
    const long whole = std::lround(left);
    fmt::print(stderr,
               "\r[{:#>{}}{:.>{}}] {:3}%  {} KiB  {:.1f} KiB/s  {}:{:02} left, {} again\x1b[K", "",
               full, "", kWidth - full, done * 100 / blocks_, bytes / 1024, rate / 1024, whole / 60,
               whole % 60, again);
    std::fflush(stderr);
    isDrawn_ = true;
    if (done == blocks_) {
        std::fputc('\n', stderr);
        isDrawn_ = false;
    }
}

void Progress::tell(const std::string &text)
{
    fmt::print(stderr, "{}veskctl: {}\n", isDrawn_ ? "\n" : "", text);
    isDrawn_ = false;
}
