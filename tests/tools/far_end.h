#pragma once

// A line of veskctl whose far end is the test. Pieces stay apart on it, as datagrams do, unless it
// is a stream.

#include "tools/line.h"

#include <array>

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

class FarEnd {
public:
    explicit FarEnd(int type = SOCK_SEQPACKET) : FarEnd(ends(type)) {}
    ~FarEnd()
    {
        close(descriptor);
    }
    FarEnd(const FarEnd &) = delete;
    FarEnd &operator=(const FarEnd &) = delete;

    // Something that has arrived at the line, in one piece.
    void arrive(std::string_view bytes) const
    {
        EXPECT_EQ(write(descriptor, bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    }

    // The next piece that the line has sent, "" if there is none.
    std::string sent() const
    {
        std::array<char, 4096> buffer;
        const ssize_t count = read(descriptor, buffer.data(), buffer.size());
        return {buffer.data(), count < 0 ? 0 : static_cast<size_t>(count)};
    }

    Line line;
    const int descriptor;

private:
    static std::array<int, 2> ends(int type)
    {
        std::array<int, 2> ends{-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_NONBLOCK, 0, ends.data()), 0);
        return ends;
    }
    explicit FarEnd(std::array<int, 2> ends) : line(ends[0], "test line"), descriptor(ends[1]) {}
};
