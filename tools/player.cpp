#include "tools/player.h"

#include <algorithm>
#include <iterator>
#include <thread>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/errors.h"
#include "tools/json.h"
#include "tools/manner.h"
#include "tools/text.h"

namespace {

constexpr Milliseconds kLogInterval{10}; // between two looks at the daemon's output
constexpr size_t kLinesShown = 3;        // of the daemon's output when a line is missing

std::string inQuotes(const std::string &bytes)
{
    return fmt::format("\"{}\"", escape(bytes));
}

std::string came(const std::string &bytes)
{
    return fmt::format("{} came", inQuotes(bytes));
}

void tellStep(const Step &step, const std::string &instead)
{
    if (manner().json) {
        Json json{{"line", step.line}, {"step", step.text}, {"held", instead.empty()}};
        if (!instead.empty()) {
            json["instead"] = instead;
        }
        printJson(json);
        return;
    }
    if (manner().quiet && instead.empty()) {
        return;
    }
    const std::string meaning = describeAll(step.bytes);
    fmt::print("  {}  {}{}{}\n",
               instead.empty() ? colored(Color::kGood, "ok  ") : colored(Color::kBad, "FAIL"),
               step.text, meaning.empty() ? "" : "   ", meaning);
    if (!instead.empty()) {
        fmt::print("        {}\n", instead);
    }
}

void requireDesk(const std::vector<Step> &steps, const Desk &desk)
{
    for (const Step &step : steps) {
        const char *const missing = step.end == Step::kFront && desk.front == nullptr ? "--serial"
                                    : step.end == Step::kPC && desk.pc == nullptr     ? "--udp"
                                    : step.kind == Step::kLog && desk.log == nullptr  ? "--log"
                                                                                      : nullptr;
        if (missing != nullptr) {
            throw UsageError(fmt::format("line {} needs {}: {}", step.line, missing, step.text));
        }
    }
}

} // namespace

Player::Player(const Desk &desk, Milliseconds timeout) : desk_(desk), timeout_(timeout) {}

std::string Player::perform(const Step &step)
{
    switch (step.kind) {
    case Step::kTitle:
        break;
    case Step::kSend:
        lineOf(step.end).send(step.bytes);
        break;
    case Step::kExpect:
        return expect(step.end, step.bytes);
    case Step::kNothing:
        return expectNothing(step.end);
    case Step::kDrop:
        drop(step.end);
        break;
    case Step::kLog:
        return expectLine(step.bytes);
    case Step::kWait:
        std::this_thread::sleep_for(step.time);
        break;
    }
    return {};
}

std::string Player::leftovers()
{
    std::string result;
    const auto look = [&](Step::End end, const char *who) {
        const std::string left = expectNothing(end);
        if (!left.empty()) {
            result += fmt::format("{}unread at {}: {}", result.empty() ? "" : "; ", who, left);
        }
    };
    if (desk_.front != nullptr) {
        look(Step::kFront, "the front board");
    }
    if (desk_.pc != nullptr) {
        look(Step::kPC, "the PC");
    }
    return result;
}

std::string Player::expect(Step::End end, const std::string &bytes)
{
    const Deadline deadline(timeout_);
    std::string &arrived = arrivedAt(end);
    for (;;) {
        const size_t compared = std::min(bytes.size(), arrived.size());
        const bool fits = std::equal(
            bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(compared), arrived.begin());
        if (fits && compared == bytes.size()) {
            arrived.erase(0, compared);
            return {};
        }
        if (!fits) {
            // The bytes that come right after them help to understand the failure.
            arrived += lineOf(end).receive(kQuiet);
            return came(arrived);
        }
        const std::string more = lineOf(end).receive(deadline.left());
        if (more.empty()) {
            return fmt::format("{} within {} ms",
                               arrived.empty() ? "nothing came" : "only " + came(arrived),
                               timeout_.count());
        }
        arrived += more;
    }
}

std::string Player::expectNothing(Step::End end)
{
    std::string &arrived = arrivedAt(end);
    if (arrived.empty()) {
        arrived += lineOf(end).receive(kQuiet);
    }
    return arrived.empty() ? std::string() : came(arrived);
}

std::string Player::expectLine(const std::string &line)
{
    const Deadline deadline(timeout_);
    size_t searched = 0;
    for (;;) {
        const bool isLastLook = deadline.passed();
        std::vector<std::string> lines = desk_.log->newLines();
        std::move(lines.begin(), lines.end(), std::back_inserter(lines_));
        for (; searched < lines_.size(); ++searched) {
            if (lines_[searched] == line) {
                lines_.erase(lines_.begin(), lines_.begin() + static_cast<ptrdiff_t>(searched) + 1);
                return {};
            }
        }
        if (isLastLook) {
            break;
        }
        std::this_thread::sleep_for(std::min(kLogInterval, deadline.left()));
    }
    if (lines_.empty()) {
        return fmt::format("nothing was printed within {} ms", timeout_.count());
    }
    std::string last;
    const size_t shown = std::min(lines_.size(), kLinesShown);
    for (size_t i = lines_.size() - shown; i < lines_.size(); ++i) {
        last += fmt::format("{}{}", last.empty() ? "" : ", ", inQuotes(lines_[i]));
    }
    return fmt::format("{} was printed", last);
}

void Player::drop(Step::End end)
{
    // The time-out ends it too: a line may never fall silent.
    const Deadline deadline(std::max(timeout_, kQuiet));
    while (!lineOf(end).receive(std::min(kQuiet, deadline.left())).empty()) {
    }
    arrivedAt(end).clear();
}

Line &Player::lineOf(Step::End end)
{
    return end == Step::kFront ? *desk_.front : *desk_.pc;
}

std::string &Player::arrivedAt(Step::End end)
{
    return end == Step::kFront ? front_ : pc_;
}

int playTranscript(const std::vector<Step> &steps, const std::string &name, const Desk &desk,
                   Milliseconds timeout)
{
    requireDesk(steps, desk);
    Player player(desk, timeout);
    for (const Step &step : steps) {
        const std::string instead = player.perform(step);
        if (step.kind == Step::kTitle) {
            if (!manner().json && !manner().quiet) {
                fmt::print("\n{}\n", step.text);
            }
            continue;
        }
        tellStep(step, instead);
        if (!instead.empty()) {
            fmt::print(stderr, "veskctl: {}:{}: {}: {}\n", name, step.line, step.text, instead);
            return kRefused;
        }
    }
    const auto held = std::count_if(steps.begin(), steps.end(),
                                    [](const Step &step) { return step.kind != Step::kTitle; });
    const std::string left = player.leftovers();
    if (!left.empty()) {
        if (manner().json) {
            printJson({{"held", false}, {"steps", held}, {"unread", left}});
        } else {
            fmt::print("  {}  the end\n        {}\n", colored(Color::kBad, "FAIL"), left);
        }
        fmt::print(stderr, "veskctl: {}: at its end: {}\n", name, left);
        return kRefused;
    }
    if (manner().json) {
        printJson({{"held", true}, {"steps", held}});
    } else if (!manner().quiet) {
        fmt::print("\n{}: all {} steps held\n", name, held);
    }
    return kDone;
}
