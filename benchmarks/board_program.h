#pragma once

// A serial line and a program on it, for what measures whole programs on the simulated board.

#include <chrono>
#include <cstdio>
#include <string>
#include <sys/types.h>
#include <vector>

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start);

// A raw terminal pair. Its slave is /dev/ttyS0 for the programs that start until the next one is
// made. The slave stays open, or the line would hang up when the program ends.
class SerialLine {
public:
    SerialLine();
    SerialLine(const SerialLine &) = delete;
    SerialLine &operator=(const SerialLine &) = delete;
    ~SerialLine();

    // The far end of the line.
    [[nodiscard]] int descriptor() const
    {
        return master_;
    }

    void send(const std::string &bytes) const;

    // Reads as many bytes as `expected` has and ends the run if they are others.
    void expect(const std::string &expected) const;

private:
    int master_ = -1;
    int slave_ = -1;
};

// A running program. It is killed at the end.
class Program {
public:
    // Starts `command`, a path and its arguments. What it prints is for waitForLine(). If that is
    // not going to be called, `log` is a file for it and for errors instead, because a program
    // waits when nobody reads what it prints.
    explicit Program(const std::vector<std::string> &command, const char *log = nullptr);
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;
    ~Program();

    // Reads the program's standard output up to this line. Ends the run if the program ends first.
    void waitForLine(const char *line);

    // Nanoseconds on a processor so far, all threads.
    [[nodiscard]] double cpuNs() const;

    // The memory that belongs to this process alone, in kB.
    [[nodiscard]] double privateKb() const;

    // The memory of this process that is in RAM, shared memory included, in kB.
    [[nodiscard]] double residentKb() const;

private:
    pid_t pid_ = -1;
    FILE *output_ = nullptr;
};
