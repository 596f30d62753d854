#include "tools/sav_ranges.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <functional>
#include <iterator>
#include <map>
#include <vector>

#include <fmt/format.h>

#include "storage/UserSettingRecord.h"
#include "video/format_id.h"

namespace {

struct Range {
    // A value is one of these, or none of them counts and it lies between `low` and `high`.
    std::vector<int64_t> choices = {};
    int64_t low = 0;
    int64_t high = 0;
    int64_t butNot = -1; // though it is between them
    enum class Kind : uint8_t { kUnknown, kNone, kNumber, kIndex, kMask } kind = Kind::kUnknown;
    std::string words = {};
};

// Units, and texts that leave every value possible. An identification is its loader's business.
bool isUnit(std::string_view text)
{
    constexpr std::string_view kUnits[] = {
        "",
        "MAC address",
        "bytes",
        "pixels",
        "lines",
        "Hz",
        "address",
        "two addresses",
        "address in the list",
        "0, or not 0",
    };
    return text.starts_with("0x") ||
           std::find(std::begin(kUnits), std::end(kUnits), text) != std::end(kUnits);
}

// Takes a number off the front.
bool takeNumber(std::string_view &text, int64_t &number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return error == std::errc();
}

bool take(std::string_view &text, std::string_view word)
{
    const bool isThere = text.starts_with(word);
    text.remove_prefix(isThere ? word.size() : 0);
    return isThere;
}

// "0 to 15", "0 or 1", "1, 2, 4 or 8"
bool readNumbers(std::string_view text, Range &range)
{
    range.kind = Range::Kind::kNumber;
    range.words = text;
    int64_t number = 0;
    if (!takeNumber(text, number)) {
        return false;
    }
    if (take(text, " to ")) {
        range.low = number;
        return takeNumber(text, range.high) && text.empty();
    }
    range.choices.push_back(number);
    while (take(text, ", ") || take(text, " or ")) {
        if (!takeNumber(text, number)) {
            return false;
        }
        range.choices.push_back(number);
    }
    return text.empty() && range.choices.size() > 1;
}

Range rangeFrom(std::string_view text)
{
    constexpr int64_t kLastFormat = kVideoFormatNoInput;
    if (isUnit(text)) {
        return {.kind = Range::Kind::kNone};
    }
    if (text == "format" || text == "format, not 125") {
        const bool isAny = text == "format";
        return {.high = kLastFormat,
                .butNot = isAny ? -1 : int64_t{kVideoFormatExtern},
                .kind = Range::Kind::kNumber,
                .words = fmt::format("a video format, 0 to {}{}", kLastFormat,
                                     isAny ? "" : " without 125")};
    }
    if (text == "number of the input") {
        return {.high = kInputCount - 1,
                .kind = Range::Kind::kNumber,
                .words = fmt::format("an input, 0 to {}", kInputCount - 1)};
    }
    if (text == "entry n holds n") {
        return {.kind = Range::Kind::kIndex, .words = "the index of the entry"};
    }
    if (text == "leading ones") {
        return {.kind = Range::Kind::kMask, .words = "ones followed by zeros"};
    }
    Range range;
    return readNumbers(text, range) ? range : Range{};
}

const Range &rangeOf(std::string_view text)
{
    static std::map<std::string, Range, std::less<>> known;
    const auto found = known.find(text);
    return found != known.end() ? found->second
                                : known.emplace(text, rangeFrom(text)).first->second;
}

bool isMask(std::string_view bytes)
{
    uint32_t mask = 0;
    for (const char byte : bytes) {
        mask = mask << 8 | static_cast<unsigned char>(byte);
    }
    return std::countl_one(mask) == std::popcount(mask);
}

// The last index in the name.
int64_t indexIn(std::string_view name)
{
    int64_t index = -1;
    std::string_view text = name.substr(name.rfind('[') + 1); // npos + 1 is 0
    takeNumber(text, index);
    return index;
}

bool isGood(const SavValue &value, std::string_view bytes, const Range &range)
{
    if (range.kind == Range::Kind::kMask) {
        return isMask(bytes.substr(value.at, value.field->bytes));
    }
    const int64_t number = numberAt(*value.field, bytes, value.at);
    if (range.kind == Range::Kind::kIndex) {
        return number == indexIn(value.name);
    }
    if (!range.choices.empty()) {
        return std::find(range.choices.begin(), range.choices.end(), number) != range.choices.end();
    }
    return number >= range.low && number <= range.high && number != range.butNot;
}

} // namespace

SavUnit meaningOf(std::string_view unit)
{
    const Range::Kind kind = rangeOf(unit).kind;
    return kind == Range::Kind::kUnknown ? SavUnit::kUnknown
           : kind == Range::Kind::kNone  ? SavUnit::kUnit
                                         : SavUnit::kRange;
}

std::string wantedInstead(const SavValue &value, std::string_view bytes)
{
    if (value.field->unit.empty()) {
        return ""; // as most are
    }
    const Range &range = rangeOf(value.field->unit);
    const bool hasRange = range.kind > Range::Kind::kNone;
    return hasRange && !isGood(value, bytes, range) ? range.words : "";
}
