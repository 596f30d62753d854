#pragma once

// Files on the board, whole.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <string_view>

inline std::string contentOf(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(const std::filesystem::path &path, std::string_view content)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

// The names in a directory.
inline std::set<std::string> entriesOf(const std::filesystem::path &directory)
{
    std::set<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(directory)) {
        names.insert(entry.path().filename());
    }
    return names;
}
