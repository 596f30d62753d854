#pragma once

// A pseudo-terminal: `path` names the end that a program opens, `master` is the far one.

#include <fcntl.h>
#include <stdlib.h>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

struct Terminal {
    Terminal()
    {
        EXPECT_EQ(unlockpt(master), 0);
        path = ptsname(master);
    }
    ~Terminal()
    {
        close(slave);
        close(master);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    int openSlave()
    {
        slave = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        return slave;
    }

    int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    int slave = -1;
    std::string path;
};
