#include "tools/update.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include <unistd.h>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/errors.h"
#include "tools/exchange.h"
#include "tools/frames.h"
#include "tools/package.h"

namespace {

constexpr uint8_t kAskBlockSize = 0xA1;
constexpr int kTries = 5; // for each block

// After this time without a byte, nothing of a failed try is still on its way. Over UDP the device
// first passes the rest of the block on, with four pauses of 80 ms, before it mirrors anything.
constexpr Milliseconds kSettled{400};

class Update {
public:
    Update(Line &line, std::string_view stream, const UpdateOptions &options)
        : line_(line), stream_(stream), options_(options), count_(stream.size() / kBlockSize)
    {
    }

    int run();

private:
    int query() const;
    int sendBlock(size_t number);
    int tryBlock(size_t number);
    void tellProgress(size_t done) const;
    void tell(const std::string &what) const;

    Line &line_;
    std::string_view stream_;
    UpdateOptions options_;
    size_t count_;
    unsigned sent_ = 0; // frames, repeated ones included
    bool isTerminal_ = isatty(STDERR_FILENO) != 0;
};

int Update::run()
{
    if (options_.query) {
        const int status = query();
        if (status != kDone) {
            return status;
        }
    }
    const auto start = std::chrono::steady_clock::now();
    for (size_t number = 0; number < count_; ++number) {
        const int status = sendBlock(number);
        if (status != kDone) {
            return status;
        }
        tellProgress(number + 1);
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    fmt::print("{} blocks in {:.2f} s, {:.1f} blocks/s, {} sent again\n", count_, time.count(),
               static_cast<double>(count_) / time.count(), sent_ - count_);
    return kDone;
}

int Update::query() const
{
    for (const char *const question : {"update block size 07", "update version 07"}) {
        const auto answer = ask(line_, frameFromText(question), {}, options_.timeout);
        if (!answer) {
            fmt::print(stderr, "veskctl: no answer within {} ms\n", options_.timeout.count());
            return kNoAnswer;
        }
        fmt::print("{}\n", frameWithDescription(answer->frame));
        const Rs232Command reply = recordOf(answer->frame);
        if (isRefusal(reply)) {
            return kRefused;
        }
        if (reply.dat1 == kAskBlockSize && reply.dat3 * 256U + reply.dat4 != kBlockSize) {
            fmt::print(stderr, "veskctl: only blocks of {} bytes can be sent\n", kBlockSize);
            return kRefused;
        }
    }
    return kDone;
}

int Update::sendBlock(size_t number)
{
    for (int tried = 1;; ++tried) {
        const int status = tryBlock(number);
        if (status == kDone) {
            return kDone;
        }
        const std::string what = fmt::format("block {} of {}: {}", number, count_,
                                             status == kRefused ? "refused" : "no answer");
        if (count_ == 1 && status == kNoAnswer) {
            // Sent again, it would be installed a second time, over the backup. The last of several
            // blocks can be sent again: a device that has restarted accepts and drops it.
            tell(what + "; it may have been installed all the same");
            return status;
        }
        if (tried == kTries) {
            tell(fmt::format("{}, {} times in all", what, tried));
            return status;
        }
        tell(what + ", sent again");
        // Bytes that are still on their way must not get mixed up with the next try.
        const Deadline deadline(options_.blockTimeout);
        while (!line_.receive(std::min(kSettled, deadline.left())).empty()) {
        }
    }
}

int Update::tryBlock(size_t number)
{
    // Every try has its own tag, so that a late answer to an earlier try is not taken for this
    // one's.
    const std::string frame = frameFromText(
        fmt::format("00 {:02x} 9a a0 07 {:02x} {:02x}", sent_ & 0xFF, number & 0xFF, number >> 8));
    ++sent_;
    const auto answer = ask(line_, frame, blockWithChecksum(stream_, number), options_.blockTimeout,
                            Others::kSkipped);
    if (!answer) {
        return kNoAnswer;
    }
    return isRefusal(recordOf(answer->frame)) ? kRefused : kDone;
}

void Update::tellProgress(size_t done) const
{
    if (isTerminal_) {
        fmt::print(stderr, "\r{} of {} blocks{}", done, count_, done == count_ ? "\n" : "");
        std::fflush(stderr);
    }
}

void Update::tell(const std::string &what) const
{
    fmt::print(stderr, "{}veskctl: {}\n", isTerminal_ ? "\n" : "", what);
}

} // namespace

int runUpdate(Line &line, std::string_view stream, const UpdateOptions &options)
{
    return Update(line, stream, options).run();
}
