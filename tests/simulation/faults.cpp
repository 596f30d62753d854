#include "tests/simulation/faults.h"

#include <cstddef>
#include <iterator>

const char *nameOf(Call call)
{
    constexpr const char *kNames[] = {"open",   "close",  "read",    "write", "truncate", "sync",
                                      "stat",   "link",   "remove",  "mkdir", "ioctl",    "control",
                                      "socket", "bind",   "receive", "send",  "terminal", "start",
                                      "thread", "memory", "sleep"};
    static_assert(std::size(kNames) == static_cast<size_t>(Call::count));
    return kNames[static_cast<size_t>(call)];
}

bool Faults::hit(Call call, const std::string &object)
{
    ++calls;
    if (calls == failAt) {
        add({call, object, failError, failLasts});
        failAt = 0;
    }
    for (size_t i = 0; i < faults_.size(); ++i) {
        const Fault &fault = faults_[i];
        if (fault.call == call && object.find(fault.object) != std::string::npos) {
            errno = fault.error;
            ++hits;
            if (!fault.lasts) {
                faults_.erase(faults_.begin() + static_cast<ptrdiff_t>(i));
            }
            return true;
        }
    }
    return false;
}
