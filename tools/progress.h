#pragma once

// How far an update is, for a person or a program.

#include <chrono>
#include <cstddef>
#include <string>

enum class ProgressKind {
    kNone,
    kBar,  // on standard error; nothing if that is no terminal
    kJson, // one object a line on standard output
};

class Progress {
public:
    Progress(ProgressKind kind, size_t blocks);
    ~Progress(); // ends the bar's line
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    bool isJson() const;

    // Times count from here.
    void begin();

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
    Clock::time_point shown_{};
    bool isDrawn_ = false; // the cursor stands after the bar
};
