#pragma once

// The main loop: no pass takes longer than the documents allow; memory and descriptors are flat.

#include "tests/simulation/model.h"
#include "tests/simulation/threads.h"

class Loop : public Watcher {
public:
    void boot() override;
    void passBegins() override;
    void lineWritten(const std::string &bytes) override;
    void timePasses() override;
    void quiet() override;

    // Time that the documents allow the loop to stand still, from the start of the life: the pauses
    // of the line, the tools, and what the outside does to it.
    Time excused() const;
    // The command being executed may wait this long for its payload, and for what else it does.
    Time allowance = 0;
    uint64_t passes() const
    {
        return passes_;
    }

private:
    void check() const;

    uint64_t passes_ = 0;
    Time passBegan_ = 0;
    Time excusedBefore_ = 0;
    Time pauses_ = 0;
    size_t memoryAtStart_ = 0;
};
