#pragma once

// The daemon's output, which somebody else collects in a file, read line by line as it grows.

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
