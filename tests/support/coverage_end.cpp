// Linked into every program of a coverage build, and into no other: counts are also written when
// the program ends by _exit(), which skips the clean-up that writes them, and when SIGTERM ends it.

#include <csignal>

extern "C" void __gcov_dump(void);
extern "C" [[noreturn]] void __real__exit(int status);
extern "C" [[noreturn]] void __wrap__exit(int status);

void __wrap__exit(int status)
{
    __gcov_dump();
    __real__exit(status);
}

namespace {

void dumpAndEnd(int number)
{
    std::signal(number, SIG_DFL);
    __gcov_dump();
    std::raise(number); // pending until this returns; the status is that of any other build
}

// Runs before main(). Not sigaction(), which a test may have replaced.
[[maybe_unused, gnu::constructor]] void handleEnd()
{
    std::signal(SIGTERM, dumpAndEnd);
}

} // namespace
