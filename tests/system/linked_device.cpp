// A simulated linked device: the far end of a Mervo link, with a command line that linked_device.h
// describes. It shares no code with the link. It reads whenever there is something to read and
// never waits for the line to take its answers, so that it cannot be what blocks a sender.

#include "tests/system/linked_device.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <random>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr int kLine = STDIN_FILENO;
constexpr size_t kFrameSize = 19;
constexpr size_t kFrameBytes = 8;
constexpr uint32_t kLongestPart = 40; // of a burst that goes out in parts

using Frame = std::array<uint8_t, kFrameBytes>;

uint8_t sumOf(const uint8_t *bytes, size_t count)
{
    uint8_t sum = 0;
    for (size_t i = 0; i < count; ++i) {
        sum = static_cast<uint8_t>(sum + bytes[i]);
    }
    return sum;
}

// Both cases are good in an answer.
std::string answerText(const Frame &bytes, bool upperCase = false)
{
    std::string text = "<F";
    for (const uint8_t byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, upperCase ? "%02X" : "%02x", byte);
        text += digits;
    }
    return text + ">";
}

// Commands are written in lower case. -1 for all that is not a digit.
int valueOf(char digit)
{
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    return digit >= 'a' && digit <= 'f' ? digit - 'a' + 10 : -1;
}

// Whether `text` is a command frame, and its bytes.
bool decode(std::string_view text, Frame *bytes)
{
    if (!text.starts_with("<T") || !text.ends_with('>')) {
        return false;
    }
    for (size_t i = 0; i < kFrameBytes; ++i) {
        const int high = valueOf(text[2 + 2 * i]);
        const int low = valueOf(text[3 + 2 * i]);
        if (high < 0 || low < 0) {
            return false;
        }
        (*bytes)[i] = static_cast<uint8_t>(high << 4 | low);
    }
    return true;
}

// Whether somewhere in `text` there is "<F", 16 characters that open no other frame, and ">": an
// answer, whatever the characters are.
bool hasAnswer(std::string_view text)
{
    for (size_t at = text.find("<F"); at != std::string_view::npos; at = text.find("<F", at + 1)) {
        const std::string_view rest = text.substr(at, kFrameSize);
        if (rest.size() == kFrameSize && rest.back() == '>' &&
            rest.find('<', 1) == std::string_view::npos) {
            return true;
        }
    }
    return false;
}

enum class Mode : uint8_t { kAtOnce, kSilent, kLate, kHeld, kGarbage, kBursts };

struct Turn {
    Mode mode = Mode::kAtOnce;
    uint32_t count = 0;
    milliseconds delay{};
};

bool readTurn(const char *text, Turn *turn)
{
    const std::pair<const char *, Mode> kModes[] = {
        {"at-once", Mode::kAtOnce}, {"silent", Mode::kSilent},   {"late", Mode::kLate},
        {"held", Mode::kHeld},      {"garbage", Mode::kGarbage}, {"bursts", Mode::kBursts},
    };
    const std::string_view line = text;
    const std::string_view name = line.substr(0, line.find(' '));
    const auto *const known = std::find_if(std::begin(kModes), std::end(kModes),
                                           [name](const auto &mode) { return name == mode.first; });
    if (known == std::end(kModes) || name.size() == line.size()) {
        return false;
    }
    char *end = nullptr;
    turn->mode = known->second;
    turn->count = static_cast<uint32_t>(std::strtoul(text + name.size(), &end, 10));
    turn->delay = milliseconds(std::strtoul(end, &end, 10));
    return turn->count > 0 && *end == '\0';
}

// What goes out to the line, not before its time.
class Output {
public:
    // What is to go out at once goes out in one write with what was due before it.
    void add(const std::string &text, milliseconds delay)
    {
        if (delay == milliseconds::zero() && isDue()) {
            pieces.back().text += text;
        } else {
            addApart(text, delay);
        }
    }

    // This one gets a write of its own.
    void addApart(const std::string &text, milliseconds delay)
    {
        // Answers stay in order when the delay becomes shorter.
        latest = std::max(latest, steady_clock::now() + delay);
        pieces.push_back({latest, text});
    }

    bool isDue() const
    {
        return !pieces.empty() && pieces.front().due <= steady_clock::now();
    }

    // For poll(): until the next piece is due, or for ever.
    int millisecondsLeft() const
    {
        if (pieces.empty()) {
            return -1;
        }
        const auto left =
            std::chrono::ceil<milliseconds>(pieces.front().due - steady_clock::now()).count();
        return left > 0 ? static_cast<int>(left) : 0;
    }

    // Writes what is due and what the line takes.
    void write()
    {
        while (isDue()) {
            std::string &text = pieces.front().text;
            const ssize_t written = ::write(kLine, text.data(), text.size());
            if (written <= 0) {
                return;
            }
            text.erase(0, static_cast<size_t>(written));
            if (text.empty()) {
                pieces.pop_front();
            }
        }
    }

private:
    struct Piece {
        steady_clock::time_point due;
        std::string text;
    };
    std::deque<Piece> pieces;
    steady_clock::time_point latest;
};

class Device {
public:
    explicit Device(std::vector<Turn> plan) : turns(std::move(plan)), left(turns.front().count) {}

    // Until the line is gone.
    void run()
    {
        for (;;) {
            const short events = output.isDue() ? POLLIN | POLLOUT : POLLIN;
            pollfd entry{kLine, events, 0};
            poll(&entry, 1, events == POLLIN ? output.millisecondsLeft() : -1);
            char bytes[4096];
            const ssize_t count = read(kLine, bytes, sizeof bytes);
            if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
                report.bytesLeftOver = static_cast<uint32_t>(input.size());
                return;
            }
            if (count > 0) {
                input.append(bytes, static_cast<size_t>(count));
                while (takeCommand()) {
                }
            }
            output.write();
        }
    }

    const DeviceReport &reported() const
    {
        return report;
    }

private:
    // Takes a command, or what cannot be the beginning of one, from the input. False when there is
    // no whole one.
    bool takeCommand()
    {
        if (!input.empty() && input.front() != '<') {
            ++report.strayBytes;
            input.erase(0, 1);
            return true;
        }
        if (input.size() < kFrameSize) {
            return false;
        }
        Frame frame;
        if (!decode(std::string_view(input).substr(0, kFrameSize), &frame)) {
            ++report.malformedFrames;
            input.erase(0, 1);
            return true;
        }
        if (frame[7] != sumOf(frame.data(), 7)) {
            ++report.wrongChecksums;
            input.erase(0, kFrameSize);
            return true;
        }
        const size_t length = blockLength(frame[2]);
        if (input.size() < kFrameSize + length) {
            return false;
        }
        const std::string block = input.substr(kFrameSize, length);
        input.erase(0, kFrameSize + length);
        execute(frame, block);
        return true;
    }

    void execute(const Frame &frame, const std::string &block)
    {
        const uint32_t index = dataOf(frame.data());
        ++report.commands;
        report.wrongAddresses += frame[0] != kDeviceAddress ? 1u : 0u;
        // One that is lost is counted once.
        report.wrongNumbers += frame[1] != nextNumber ? 1u : 0u;
        nextNumber = static_cast<uint8_t>(frame[1] + 1);
        report.wrongIndexes += index != nextIndex ? 1u : 0u;
        nextIndex = index + 1;
        if (!block.empty()) {
            ++report.blocks;
            report.wrongBlocks += isBlock(block, index) ? 0u : 1u;
        }

        if (left == 0 && turn + 1 < turns.size()) {
            release();
            ++turn;
            left = turns[turn].count;
        }
        left -= left > 0 ? 1u : 0u;
        const uint32_t data = answerTo(index);
        Frame bytes = {frame[0],
                       frame[1],
                       frame[2],
                       static_cast<uint8_t>(data),
                       static_cast<uint8_t>(data >> 8),
                       static_cast<uint8_t>(data >> 16),
                       static_cast<uint8_t>(data >> 24),
                       0};
        bytes[7] = sumOf(bytes.data(), 7);
        answer(bytes);
    }

    static bool isBlock(const std::string &block, uint32_t index)
    {
        const auto *const bytes = reinterpret_cast<const uint8_t *>(block.data());
        for (size_t place = 0; place + 1 < block.size(); ++place) {
            if (bytes[place] != blockByte(index, place)) {
                return false;
            }
        }
        return bytes[block.size() - 1] == sumOf(bytes, block.size() - 1);
    }

    void answer(Frame bytes)
    {
        const Turn &now = turns[turn];
        switch (now.mode) {
        case Mode::kSilent:
            return;
        case Mode::kAtOnce:
        case Mode::kLate:
            output.add(answerText(bytes), now.delay);
            ++report.answers;
            return;
        case Mode::kGarbage:
            bytes[7] = static_cast<uint8_t>(bytes[7] + 1 + below(255));
            output.add(garbage() + answerText(bytes, below(2) == 0), now.delay);
            ++report.answers;
            return;
        case Mode::kHeld:
            kept.push_back(answerText(bytes));
            return;
        case Mode::kBursts:
            kept.push_back(answerText(bytes));
            if (kept.size() >= burst || left == 0 || bytes[2] == kAsk) {
                release();
                burst = 1 + below(kLargestBurst);
            }
            return;
        }
    }

    // Sends the answers that were kept: in one write, or every other time in parts that have
    // nothing to do with frames.
    void release()
    {
        std::string text;
        for (const std::string &one : kept) {
            text += one;
        }
        const auto count = static_cast<uint32_t>(kept.size());
        kept.clear();
        report.answers += count;
        report.largestBurst = std::max(report.largestBurst, count);
        inParts = !inParts;
        while (inParts && !text.empty()) {
            const size_t length = std::min<size_t>(text.size(), 1 + below(kLongestPart));
            output.addApart(text.substr(0, length), {});
            text.erase(0, length);
        }
        if (!text.empty()) {
            output.addApart(text, {});
        }
    }

    uint32_t below(uint32_t limit)
    {
        return std::uniform_int_distribution<uint32_t>(0, limit - 1)(random);
    }

    // Nothing in it is an answer, but much is nearly one.
    std::string garbage()
    {
        report.garbagePieces += kGarbagePieces;
        std::string text;
        do {
            text.clear();
            for (uint32_t i = 0; i < kGarbagePieces; ++i) {
                text += pieceOfGarbage();
            }
        } while (hasAnswer(text));
        return text;
    }

    std::string pieceOfGarbage()
    {
        Frame bytes;
        for (uint8_t &byte : bytes) {
            byte = static_cast<uint8_t>(below(256));
        }
        std::string text = answerText(bytes);
        switch (below(7)) {
        case 0: // cut short
            text.resize(1 + below(kFrameSize - 1));
            return text;
        case 1: // one "<" too many
            return text.replace(below(kFrameSize - 1), 1, "<<");
        case 2: // for another header
            text[1] = "TGf0>"[below(5)];
            return text;
        case 3: // a digit too few
            text.erase(2 + below(16), 1);
            return text + "\r\n";
        case 4: // a digit too many
            text.insert(2 + below(16), 1, '0');
            return text;
        case 5: // what frames are made of
            text.resize(below(60));
            for (char &character : text) {
                character = "<F>T0123456789abcdef<F><F"[below(25)];
            }
            return text;
        default: // anything
            text.resize(below(60));
            for (char &character : text) {
                character = static_cast<char>(below(256));
            }
            return text;
        }
    }

    std::string input;
    Output output;
    std::vector<std::string> kept; // answers that are held back
    uint32_t burst = kLargestBurst;
    bool inParts = true;
    std::vector<Turn> turns;
    size_t turn = 0;
    uint32_t left; // commands of this turn
    uint8_t nextNumber = 1;
    uint32_t nextIndex = 0;
    DeviceReport report;
    std::minstd_rand random; // the same each time
};

} // namespace

int main(int count, char *arguments[])
{
    std::vector<Turn> turns(static_cast<size_t>(std::max(count - 1, 0)));
    for (size_t i = 0; i < turns.size(); ++i) {
        if (!readTurn(arguments[i + 1], &turns[i])) {
            std::fprintf(stderr, "linked_device: no turn: %s\n", arguments[i + 1]);
            return 2;
        }
    }
    if (turns.empty() || fcntl(kLine, F_SETFL, O_NONBLOCK) != 0) {
        std::fprintf(stderr, "linked_device: no turns, or no line on standard input\n");
        return 2;
    }
    Device device(std::move(turns));
    device.run();
    std::fputs(textOf(device.reported()).c_str(), stdout);
    return 0;
}
