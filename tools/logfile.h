#pragma once

// Reads the daemon's output line by line, from a file that another program writes.

#include <fstream>
#include <string>
#include <vector>

class LogFile {
public:
    // The file need not exist yet.
    explicit LogFile(std::string path);

    // The whole lines written since the last call, without line ends.
    std::vector<std::string> newLines();

private:
    std::string path_;
    std::ifstream file_;
    std::string begun_; // a line whose end has not been written yet
};
