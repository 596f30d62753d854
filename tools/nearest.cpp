#include "tools/nearest.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <vector>

#include <fmt/format.h>

namespace {

char lower(char character)
{
    return static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
}

// How many characters must be inserted, removed, changed, or swapped with their neighbour.
size_t distance(std::string_view a, std::string_view b)
{
    std::vector<size_t> beforeLast;
    std::vector<size_t> last(b.size() + 1);
    std::iota(last.begin(), last.end(), 0);
    for (size_t i = 1; i <= a.size(); ++i) {
        std::vector<size_t> row(b.size() + 1, i);
        for (size_t j = 1; j <= b.size(); ++j) {
            const bool isSame = lower(a[i - 1]) == lower(b[j - 1]);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (isSame ? 0 : 1)});
            if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) &&
                lower(a[i - 2]) == lower(b[j - 1])) {
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            }
        }
        beforeLast = std::move(last);
        last = std::move(row);
    }
    return last.back();
}

} // namespace

std::string nearest(std::string_view typed, std::span<const std::string> candidates)
{
    // More changes than that, and it is another word.
    size_t least = std::max<size_t>(typed.size() / 3, 1) + 1;
    std::string found;
    for (const std::string &candidate : candidates) {
        const size_t changes = distance(typed, candidate);
        if (changes < least) {
            least = changes;
            found = candidate;
        }
    }
    return found;
}

std::string didYouMean(std::string_view typed, std::span<const std::string> candidates)
{
    const std::string name = nearest(typed, candidates);
    return name.empty() ? std::string() : fmt::format(" (did you mean \"{}\"?)", name);
}
