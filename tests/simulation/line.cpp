#include "tests/simulation/line.h"

#include <algorithm>

void Line::sendFromBoard(const std::string &bytes)
{
    const Time start = std::max(boardDone_, threads_.now()) + kByteTime;
    coming_.push_back({start, bytes});
    boardDone_ = start + static_cast<Time>(bytes.size() - 1) * kByteTime;
}

void Line::receive()
{
    while (!coming_.empty() && coming_.front().start <= threads_.now()) {
        Burst &burst = coming_.front();
        const auto arrived = static_cast<size_t>((threads_.now() - burst.start) / kByteTime + 1);
        const size_t count = std::min(arrived, burst.bytes.size());
        waiting_.append(burst.bytes, 0,
                        std::min(count, kBuffer - std::min(kBuffer, waiting_.size())));
        if (count == burst.bytes.size()) {
            coming_.pop_front();
        } else {
            burst.bytes.erase(0, count);
            burst.start += static_cast<Time>(count) * kByteTime;
        }
    }
}

std::string Line::read(size_t size)
{
    if (coming_.empty() && waiting_.empty()) {
        return {};
    }
    receive();
    std::string bytes = waiting_.substr(0, size);
    waiting_.erase(0, bytes.size());
    return bytes;
}

bool Line::roomFor(size_t bytes) const
{
    const Time unsent = std::max<Time>(0, sentAt_ - threads_.now()) / kByteTime;
    return !stalled && static_cast<size_t>(unsent) + bytes <= kBuffer;
}

void Line::write(const std::string &bytes)
{
    sentAt_ = std::max(sentAt_, threads_.now()) + static_cast<Time>(bytes.size()) * kByteTime;
}

void Line::flushInput()
{
    receive();
    waiting_.clear();
}

void Line::restart()
{
    coming_.clear();
    waiting_.clear();
    boardDone_ = 0;
    sentAt_ = 0;
}

Time Line::nextArrival() const
{
    return !waiting_.empty() ? threads_.now() : coming_.empty() ? kNever : coming_.front().start;
}
