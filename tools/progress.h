#pragma once

// How far an update is, for a person or a program.

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

enum class ProgressKind {
    kNone,
    kBar,  // on standard error; nothing if that is no terminal
    kJson, // one object a line on standard output
};

struct Figures {
    size_t blocks; // in all, at least 1
    size_t done;
    size_t again; // blocks that were sent again
    double seconds;
};

// The bar and the figures, shorter than a terminal of so many columns. Where they do not fit, the
// bar gives way first.
std::string barOf(const Figures &figures, size_t columns);

class Progress {
public:
    Progress(ProgressKind kind, size_t blocks);
    ~Progress(); // ends the bar's line
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    bool isJson() const;

    // Times count from here.
    void begin();

    // Times count until here, or until a later call.
    void stop();

    // `done` blocks have been accepted, and blocks were sent `again` times. Shown at most ten times
    // a second, and when all are done.
    void show(size_t done, size_t again);

    // Prints a line for a person on standard error, below the bar.
    void tell(const std::string &text);

private:
    using Clock = std::chrono::steady_clock;

    ProgressKind kind_;
    size_t blocks_;
    Clock::time_point start_ = Clock::now();
    std::optional<Clock::time_point> stop_;
    Clock::time_point shown_{};
    size_t drawn_ = 0; // the length of the bar that ends the screen, or 0
};
