#pragma once

// Plays a transcript against the daemon: we are its front board, its control PC and the reader of
// its output.

#include "tools/line.h"
#include "tools/logfile.h"
#include "tools/transcript.h"

#include <string>
#include <vector>

// What there is to play with; null for what there is not.
struct Desk {
    Line *front;
    Line *pc;
    LogFile *log;
};

class Player {
public:
    Player(const Desk &desk, Milliseconds timeout);

    // Does one step. Returns nothing when it held, else what came instead.
    std::string perform(const Step &step);

    // What has arrived and no step has read, in words; nothing if all was read.
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
    std::vector<std::string> lines_; // printed by the daemon behind the last line found
};

// Plays a transcript and prints every step on standard output with its verdict, up to the first
// that does not hold; that one also on standard error. Returns kDone or kRefused. Throws UsageError
// when the desk lacks what the transcript needs.
int playTranscript(const std::vector<Step> &steps, const std::string &name, const Desk &desk,
                   Milliseconds timeout);
