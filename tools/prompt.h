#pragma once

// Where the user of the console types. On a terminal with line editing, history and completion, and
// other output appears above the line in the making; from a pipe just line by line.

#include <deque>
#include <string>
#include <vector>

class Prompt {
public:
    // `completions` are what a line may begin with. One prompt at a time.
    explicit Prompt(std::vector<std::string> completions);
    ~Prompt();
    Prompt(const Prompt &) = delete;
    Prompt &operator=(const Prompt &) = delete;

    bool isTerminal() const;
    int descriptor() const;

    // Reads what has been typed. To be called when the descriptor can be read.
    void read();

    // Takes the next whole line; false when there is none yet.
    bool takeLine(std::string &line);

    // The user has said that nothing more comes.
    bool hasEnded() const;

    // Writes one line of output.
    void print(const std::string &line);

private:
    void readPlain();

    bool terminal_;
    bool ended_ = false;
    std::string begun_; // a line from a pipe whose end has not come yet
    std::deque<std::string> lines_;
};
