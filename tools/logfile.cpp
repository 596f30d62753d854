#include "tools/logfile.h"

#include <utility>

LogFile::LogFile(std::string path) : path_(std::move(path)) {}

std::vector<std::string> LogFile::newLines()
{
    if (!file_.is_open()) {
        file_.open(path_, std::ios::binary);
    }
    file_.clear(); // the last call has met the end of the file
    std::vector<std::string> lines;
    for (char character; file_.get(character);) {
        if (character != '\n') {
            begun_ += character;
            continue;
        }
        // Many of the daemon's messages are for a terminal and end in "\r\n".
        while (!begun_.empty() && begun_.back() == '\r') {
            begun_.pop_back();
        }
        lines.push_back(begun_);
        begun_.clear();
    }
    return lines;
}
