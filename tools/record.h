#pragma once

// What the lines carry, while it happens: written as a transcript, and told on standard error.

#include "tools/frames.h"
#include "tools/line.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// A transcript that `veskctl play` can replay (tools/transcript.h). Each chunk of bytes is a step.
// A pause after something that was sent and not answered becomes a `wait`.
class Recorder {
public:
    // `about` is written as a comment. With `times`, a comment before each step says when it was.
    // Throws LocalError if the file cannot be written.
    Recorder(const std::string &path, const std::string &about, bool times);

    // `side` is `front` or `pc`. Throws LocalError.
    void take(std::string_view side, Passing passing, std::string_view bytes);

private:
    void write(const std::string &text);
    void tellTime();

    struct Close {
        void operator()(std::FILE *file) const
        {
            std::fclose(file);
        }
    };

    std::string path_;
    std::unique_ptr<std::FILE, Close> file_;
    bool times_;
    bool isUnanswered_ = false; // the last thing was sent
    std::chrono::steady_clock::time_point last_;
};

// The bytes as TEXT or HEX of a step, with its sign: `front> abc`, `front>> 00*16 01`.
std::string stepOf(std::string_view side, char direction, std::string_view bytes);

// Tells what a line carries on standard error, with frames decoded.
class Trace {
public:
    explicit Trace(std::string side) : side_(std::move(side)) {}
    ~Trace();
    Trace(const Trace &) = delete;
    Trace &operator=(const Trace &) = delete;

    void take(Passing passing, std::string_view bytes);

private:
    void tell(const char *sign, const std::vector<Piece> &pieces) const;

    std::string side_;
    FrameFinder arriving_;
};
