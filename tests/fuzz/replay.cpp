// Runs a fuzz target once with each of the given files, and with all files of the given
// directories.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t count);

int main(int argc, char **argv)
{
    std::vector<fs::path> paths;
    for (int i = 1; i < argc; ++i) {
        if (fs::is_directory(argv[i])) {
            std::copy(fs::directory_iterator(argv[i]), fs::directory_iterator(),
                      std::back_inserter(paths));
        } else {
            paths.emplace_back(argv[i]);
        }
    }
    std::sort(paths.begin(), paths.end());
    for (const fs::path &path : paths) {
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        if (!file) {
            std::fprintf(stderr, "%s cannot be read\n", path.c_str());
            return 2;
        }
        std::fprintf(stderr, "%s\n", path.c_str());
        // A copy without spare room, so that the sanitizer sees a read past the end.
        const std::vector<uint8_t> input(bytes.begin(), bytes.end());
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    std::fprintf(stderr, "cases: %zu passed, 0 failed, 0 skipped\n", paths.size());
    return paths.empty() ? 2 : 0;
}
