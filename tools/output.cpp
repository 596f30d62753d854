#include "tools/output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include <fmt/format.h>

#include "tools/errors.h"

void flushOutput()
{
    errno = 0;
    std::cout.flush();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0 || !std::cout) {
        // What is left cannot be written later either.
        throw LocalError(fmt::format("cannot write the output{}{}", errno == 0 ? "" : ": ",
                                     errno == 0 ? "" : std::strerror(errno)));
    }
}
