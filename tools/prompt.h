#pragma once

// Where the user of the console types. A terminal has line editing, history and completion, and
// other output appears above the line being typed. A pipe is read line by line.

#include "tools/kept_settings.h"

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// The file of the console's history: under the folder for such state that the environment names
// (XDG_STATE_HOME, or .local/state in the home folder), which is made if it is missing. "" if there
// is none.
std::string historyFile();

class Prompt {
public:
    // A line may begin with any of `completions`. Requires: no other Prompt exists.
    // `history`, a file that need not exist, keeps the lines typed on a terminal; "" keeps none.
    explicit Prompt(std::vector<std::string> completions, std::string history = "");
    ~Prompt();
    Prompt(const Prompt &) = delete;
    Prompt &operator=(const Prompt &) = delete;

    bool isTerminal() const;
    int descriptor() const;

    // Reads the typed characters. Requires: the descriptor is readable.
    void read();

    // Takes the next whole line; false if there is none yet.
    bool takeLine(std::string &line);

    // Whether the user has ended the input.
    bool hasEnded() const;

    // Writes one line of output.
    void print(const std::string &line);

    // Calls `write`, which prints on standard output itself.
    void around(const std::function<void()> &write);

private:
    void readPlain();

    bool terminal_;
    std::optional<KeptSettings> kept_; // of the terminal
    std::string history_;
    bool ended_ = false;
    std::string begun_; // a line from a pipe whose end has not come yet
    std::deque<std::string> lines_;
};
