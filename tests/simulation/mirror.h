#pragma once

// What the PC sees of the line: everything but executed frames and payloads, in order, each byte
// once, none late. Of an executed frame the first bytes may have gone already.

#include <cstdint>
#include <deque>
#include <set>

#include "tests/simulation/model.h"

class Mirror : public Watcher {
public:
    // From the protocol's reading of the line.
    void add(char byte);         // a byte that is not of a payload
    void executed(size_t count); // the last bytes were a frame that is executed

    void boot() override;
    void passBegins() override;
    void datagramReceived(PcAddress from, const std::string &bytes) override;
    void datagramSent(PcAddress to, const std::string &bytes) override;
    void quiet() override;

private:
    struct Byte {
        char value;
        bool isLastOfFrame = false; // of an executed one; never seen by the PC
        uint64_t skipTo = 0;        // what may follow when this byte is left out; 0: it must not be
    };
    const Byte &at(uint64_t index) const
    {
        return stream_[index - first_];
    }
    void addSkips();

    std::deque<Byte> stream_;
    uint64_t first_ = 1;              // index of stream_'s first
    std::set<uint64_t> positions_{1}; // where the PC may be in the stream
    std::vector<PcAddress> pcs_;      // the PC, after those that this pass may still send to
    uint64_t passOfChange_ = 0;
    Time changedAt_ = 0;
    bool isFirstPc_ = false; // and the daemon may not have noted it yet
};
