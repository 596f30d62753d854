#include "tests/simulation/mirror.h"

#include <algorithm>

#include "tests/simulation/loop.h"
#include "tests/simulation/world.h"

namespace {

// No more can wait in the daemon for a PC: one buffer of the channel and one of the mirror.
constexpr size_t kMostWaiting = 8192;

// The receive thread may be held up between taking a datagram and noting its sender.
constexpr Time kNoting = 20 * kMillisecond;

} // namespace

void Mirror::boot()
{
    *this = Mirror();
}

void Mirror::add(char byte)
{
    stream_.push_back({byte});
    if (isFirstPc_) { // so far nobody may be noted who gets it
        positions_.insert(first_ + stream_.size());
    }
    if (pcs_.empty() && stream_.size() > kMostWaiting) {
        stream_.pop_front();
        positions_ = {++first_};
    }
}

void Mirror::executed(size_t count)
{
    const uint64_t end = first_ + stream_.size();
    for (uint64_t i = end - std::min(count, stream_.size()); i < end; ++i) {
        stream_[i - first_].skipTo = end;
    }
    stream_.back().isLastOfFrame = true;
}

// Where the PC may be after leaving bytes out.
void Mirror::addSkips()
{
    for (auto i = positions_.begin(); i != positions_.end(); ++i) {
        if (*i < first_ + stream_.size() && at(*i).skipTo != 0) {
            positions_.insert(at(*i).skipTo);
        }
    }
}

void Mirror::passBegins()
{
    if (world->model->loop->passes() > passOfChange_ + 1 &&
        world->threads.now() > changedAt_ + kNoting) {
        if (pcs_.size() > 1) {
            pcs_ = {pcs_.back()};
        }
        isFirstPc_ = false;
    }
}

void Mirror::datagramReceived(PcAddress from, const std::string &bytes)
{
    if (bytes.empty()) {
        return;
    }
    isFirstPc_ = isFirstPc_ || pcs_.empty();
    if (pcs_.empty()) {     // what came so far may have been dropped
        pcs_.push_back({}); // nobody
        for (uint64_t i = first_; i <= first_ + stream_.size(); ++i) {
            positions_.insert(i);
        }
    }
    changedAt_ = world->threads.now();
    passOfChange_ = world->model->loop->passes();
    pcs_.push_back(from);
}

void Mirror::datagramSent(PcAddress to, const std::string &bytes)
{
    // The daemon notes address and port of a PC one after the other. While another PC takes its
    // turn, what is sent may go to the address of one and the port of the other.
    const auto isOfAPc = [&](auto part) {
        return std::any_of(pcs_.begin(), pcs_.end(),
                           [&](const PcAddress &pc) { return pc.*part == to.*part; });
    };
    if (!isOfAPc(&PcAddress::ip) || !isOfAPc(&PcAddress::port)) {
        world->fail("mirror", "a datagram goes to somebody who is not the PC");
    }
    if (bytes.empty() || bytes.size() > 1152) {
        world->fail("mirror", "a datagram of " + std::to_string(bytes.size()) + " bytes");
    }
    world->note("to the PC: %s", inWords(bytes).c_str());
    for (const char byte : bytes) {
        addSkips();
        std::set<uint64_t> after;
        for (const uint64_t i : positions_) {
            if (i < first_ + stream_.size() && at(i).value == byte && !at(i).isLastOfFrame) {
                after.insert(i + 1);
            }
        }
        if (after.empty()) {
            world->fail("mirror", "the PC gets what did not come from the line, or not now: " +
                                      inWords(bytes));
        }
        positions_ = std::move(after);
    }
    while (first_ < *positions_.begin()) {
        stream_.pop_front();
        ++first_;
    }
}

void Mirror::quiet()
{
    if (!world->isRunning || pcs_.empty()) {
        return;
    }
    addSkips();
    if (positions_.count(first_ + stream_.size()) == 0) {
        std::string missing;
        for (const Byte &byte : stream_) {
            missing += byte.value;
        }
        world->fail("mirror", "the PC does not get: " + inWords(missing));
    }
}
