#include "tools/transcript.h"

#include <charconv>
#include <sstream>
#include <string_view>

#include <fmt/format.h>

#include "command/frame.h"
#include "tools/errors.h"
#include "tools/text.h"

namespace {

constexpr unsigned kLongestWait = 600000;
constexpr size_t kMostRepeated = 65536;

enum TextRule { kNoText, kSomeText, kMayBeEmpty, kHex };

struct Form {
    const char *sign;
    Step::Kind kind;
    Step::End end;
    TextRule text;
};

// clang-format off
constexpr Form kForms[] = {
    {"==",      Step::kTitle,   Step::kNoEnd, kSomeText},
    {"front>",  Step::kSend,    Step::kFront, kSomeText},
    {"front<",  Step::kExpect,  Step::kFront, kSomeText},
    {"front>>", Step::kSend,    Step::kFront, kHex},
    {"front<<", Step::kExpect,  Step::kFront, kHex},
    {"front=",  Step::kNothing, Step::kFront, kNoText},
    {"front*",  Step::kDrop,    Step::kFront, kNoText},
    {"pc>",     Step::kSend,    Step::kPC,    kMayBeEmpty},
    {"pc<",     Step::kExpect,  Step::kPC,    kSomeText},
    {"pc>>",    Step::kSend,    Step::kPC,    kHex},
    {"pc<<",    Step::kExpect,  Step::kPC,    kHex},
    {"pc=",     Step::kNothing, Step::kPC,    kNoText},
    {"pc*",     Step::kDrop,    Step::kPC,    kNoText},
    {"log<",    Step::kLog,     Step::kNoEnd, kSomeText},
    {"wait",    Step::kWait,    Step::kNoEnd, kSomeText},
};
// clang-format on

Milliseconds parseTime(const std::string &text)
{
    unsigned time = 0;
    const char *const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, time);
    if (result.ec != std::errc() || result.ptr != end || time > kLongestWait) {
        throw UsageError(fmt::format("\"{}\" is not a number of milliseconds", text));
    }
    return Milliseconds{time};
}

// Bytes in hexadecimal digits, each with or without a count.
std::string parseHex(const std::string &text)
{
    std::istringstream stream(text);
    std::string bytes;
    for (std::string word; stream >> word;) {
        const std::string_view digits = std::string_view(word).substr(0, 2);
        const std::string_view count = word.size() > 2 ? std::string_view(word).substr(3) : "1";
        const char *const end = count.data() + count.size();
        size_t times = 0;
        const auto result = std::from_chars(count.data(), end, times);
        if (digits.size() != 2 || !isHexDigit(digits[0]) || !isHexDigit(digits[1]) ||
            (word.size() > 2 && word[2] != '*') || result.ec != std::errc() || result.ptr != end ||
            times > kMostRepeated) {
            throw UsageError(fmt::format("\"{}\" is not a byte such as 0a or 00*16", escape(word)));
        }
        bytes.append(times, static_cast<char>(HexCharToByte(word.data())));
    }
    return bytes;
}

Step parseStep(std::string_view line)
{
    const size_t blank = line.find(' ');
    const std::string_view sign = line.substr(0, blank);
    const std::string_view text =
        blank == std::string_view::npos ? std::string_view() : line.substr(blank + 1);
    for (const Form &form : kForms) {
        if (sign != form.sign) {
            continue;
        }
        if (form.text == kNoText && !text.empty()) {
            throw UsageError(fmt::format("{} must be alone on its line", sign));
        }
        if ((form.text == kSomeText || form.text == kHex) && text.empty()) {
            throw UsageError(fmt::format("{} needs something after it", sign));
        }
        Step step{form.kind, form.end, {}, Milliseconds{0}, 0, std::string(line)};
        step.bytes = form.kind == Step::kTitle ? std::string(trim(text))
                     : form.text == kHex       ? parseHex(std::string(text))
                                               : unescape(text);
        if (form.kind == Step::kWait) {
            step.time = parseTime(step.bytes);
        }
        return step;
    }
    throw UsageError(fmt::format("\"{}\" does not begin a step", escape(sign)));
}

} // namespace

std::vector<Step> parseTranscript(std::istream &stream, const std::string &name)
{
    std::vector<Step> steps;
    unsigned number = 0;
    for (std::string line; std::getline(stream, line);) {
        ++number;
        line.resize(line.find_last_not_of(" \t\r") + 1); // none: npos + 1 is 0
        if (line.empty() || line[0] == '#') {
            continue;
        }
        try {
            steps.push_back(parseStep(line));
        } catch (const UsageError &error) {
            throw UsageError(fmt::format("{}:{}: {}", name, number, error.what()));
        }
        steps.back().line = number;
    }
    if (steps.empty()) {
        throw UsageError(fmt::format("{}: it has no steps", name));
    }
    return steps;
}
