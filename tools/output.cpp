#include "tools/output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include <fmt/format.h>

#include "tools/errors.h"

namespace {

[[noreturn]] void fail()
{
    // What is left cannot be written later either.
    throw LocalError(fmt::format("cannot write the output{}{}", errno == 0 ? "" : ": ",
                                 errno == 0 ? "" : std::strerror(errno)));
}

} // namespace

void flushOutput()
{
    errno = 0;
    std::cout.flush();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0 || !std::cout) {
        fail();
    }
}

void printText(std::string_view text)
{
    errno = 0;
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
        fail();
    }
}
