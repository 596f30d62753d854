#include "tools/record.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/errors.h"
#include "tools/text.h"

namespace {

constexpr size_t kHexShown = 64; // of a payload that is told
constexpr Milliseconds kLongestWait{600000};

bool isText(std::string_view bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](char byte) {
        return byte == '\r' || byte == '\n' || (byte >= ' ' && byte <= '~');
    });
}

std::string hexOf(std::string_view bytes)
{
    std::string text;
    for (size_t i = 0; i < bytes.size();) {
        size_t end = i + 1;
        while (end < bytes.size() && bytes[end] == bytes[i]) {
            ++end;
        }
        const auto byte = static_cast<unsigned char>(bytes[i]);
        text += fmt::format("{}{:02x}", text.empty() ? "" : " ", byte);
        if (end - i > 1) {
            text += fmt::format("*{}", end - i);
        }
        i = end;
    }
    return text;
}

} // namespace

std::string stepOf(std::string_view side, char direction, std::string_view bytes)
{
    const bool readable = isText(bytes);
    return fmt::format("{}{}{} {}", side, direction, readable ? "" : std::string(1, direction),
                       readable ? escape(bytes) : hexOf(bytes));
}

Recorder::Recorder(const std::string &path, const std::string &about, bool times)
    : path_(path), file_(std::fopen(path.c_str(), "we")), times_(times),
      last_(std::chrono::steady_clock::now())
{
    if (file_ == nullptr) {
        throw LocalError(fmt::format("cannot write {}: {}", path, std::strerror(errno)));
    }
    write(fmt::format("# {}\n", about));
}

void Recorder::write(const std::string &text)
{
    if (std::fputs(text.c_str(), file_.get()) < 0 || std::fflush(file_.get()) != 0) {
        throw LocalError(fmt::format("cannot write {}: {}", path_, std::strerror(errno)));
    }
}

void Recorder::tellTime()
{
    const auto now = std::chrono::system_clock::now();
    const auto second = std::chrono::floor<std::chrono::seconds>(now);
    write(fmt::format("# {:%F %T}.{:03}\n",
                      fmt::localtime(std::chrono::system_clock::to_time_t(now)),
                      std::chrono::floor<Milliseconds>(now - second).count()));
}

void Recorder::take(std::string_view side, Passing passing, std::string_view bytes)
{
    const auto now = std::chrono::steady_clock::now();
    const auto pause = std::chrono::floor<Milliseconds>(now - last_);
    last_ = now;
    if (times_) {
        tellTime();
    }
    switch (passing) {
    case Passing::kSent:
        if (isUnanswered_ && pause >= kQuiet) {
            write(fmt::format("wait {}\n", std::min(pause, kLongestWait).count()));
        }
        write(stepOf(side, '>', bytes) + "\n");
        break;
    case Passing::kReceived:
        // A payload that comes together with its frame is easier to read by itself.
        if (isFrame(bytes.substr(0, kFrameLength)) && !isText(bytes)) {
            write(stepOf(side, '<', bytes.substr(0, kFrameLength)) + "\n");
            bytes.remove_prefix(kFrameLength);
        }
        write(stepOf(side, '<', bytes) + "\n");
        break;
    case Passing::kDropped:
        write(fmt::format("{}*\n", side));
        break;
    }
    isUnanswered_ = passing == Passing::kSent;
}

Trace::~Trace()
{
    tell("<", arriving_.flush());
}

void Trace::tell(const char *sign, const std::vector<Piece> &pieces) const
{
    for (const Piece &piece : pieces) {
        if (piece.isFrame) {
            fmt::print(stderr, "{}{} {}\n", side_, sign, frameWithDescription(piece.text));
        } else if (isText(piece.text)) {
            fmt::print(stderr, "{}{} {}\n", side_, sign, escape(piece.text));
        } else {
            const std::string digits = hexOf(piece.text);
            fmt::print(stderr, "{}{}{} {}{} ({} bytes)\n", side_, sign, sign,
                       digits.substr(0, kHexShown), digits.size() > kHexShown ? " ..." : "",
                       piece.text.size());
        }
    }
}

void Trace::take(Passing passing, std::string_view bytes)
{
    if (passing == Passing::kReceived) {
        // Frames often arrive in parts.
        tell("<", arriving_.feed(bytes));
        return;
    }
    tell("<", arriving_.flush());
    FrameFinder finder;
    for (const bool rest : {false, true}) {
        const char *const sign = passing == Passing::kSent ? ">" : "*";
        tell(sign, rest ? finder.flush() : finder.feed(bytes));
    }
}
