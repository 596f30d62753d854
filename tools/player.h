#pragma once

// Plays a transcript against the daemon, as its front board, its control PC and the reader of its
// output.

#include "tools/line.h"
#include "tools/logfile.h"
#include "tools/transcript.h"

#include <string>
#include <vector>

// The lines and the log to play with; null for those that are missing.
struct Desk {
    Line *front;
    Line *pc;
    LogFile *log;
};

class Player {
public:
    Player(const Desk &desk, Milliseconds timeout);

    // Does one step. Returns nothing if it held, otherwise what came instead.
    std::string perform(const Step &step);

    // A text about the bytes that no step has read; empty if all were read.
    std::string leftovers();

private:
    std::string expect(Step::End end, const std::string &bytes);
    std::string expectNothing(Step::End end);
    std::string expectLine(const std::string &line);
    void drop(Step::End end);

    Line &lineOf(Step::End end);
    std::string &arrivedAt(Step::End end);

    Desk desk_;
    Milliseconds timeout_;
    std::string front_;              // arrived at the front board and not read by a step yet
    std::string pc_;                 // arrived at the PC and not read by a step yet
    std::vector<std::string> lines_; // printed by the daemon after the last line found
};

// Plays a transcript up to the first step that does not hold. Prints every step and whether it held
// on standard output, and a step that does not hold also on standard error. Returns kDone or
// kRefused. Throws UsageError if the transcript needs something that the desk does not have.
int playTranscript(const std::vector<Step> &steps, const std::string &name, const Desk &desk,
                   Milliseconds timeout);
