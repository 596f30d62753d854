#include "tools/monitor.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <map>
#include <optional>

#include <unistd.h>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/errors.h"
#include "tools/frames.h"
#include "tools/json.h"
#include "tools/manner.h"
#include "tools/output.h"
#include "tools/text.h"

namespace {

constexpr Milliseconds kLook{250};       // between two looks for a missing device
constexpr Milliseconds kForever{60000};  // waits are begun again
constexpr Milliseconds kAnnounce{10000}; // a device that has restarted does not know the PC
constexpr size_t kRow = 16;              // bytes in a row

using Clock = std::chrono::system_clock;

std::string lower(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

std::string timeText(Clock::time_point time, const char *form)
{
    const auto second = std::chrono::floor<std::chrono::seconds>(time);
    return fmt::format(fmt::runtime(fmt::format("{{:{}}}.{{:03}}", form)),
                       fmt::localtime(Clock::to_time_t(time)),
                       std::chrono::floor<Milliseconds>(time - second).count());
}

// Who says something: one of the two ends of a line that is watched from between them.
struct Speaker {
    FrameFinder finder;
    const char *name; // with --json
    const char *mark; // as a transcript has it
};

class Monitor {
public:
    Monitor(const Watched &watched, const MonitorOptions &options)
        : watched_(watched), options_(options)
    {
    }

    void run();

private:
    bool connect();
    bool lookAtLine();
    void announce();
    bool pause(Milliseconds time) const;
    std::string missing() const;
    bool holdsBack() const;
    void disconnect();
    void show(const Speaker &speaker, const std::vector<Piece> &pieces);
    void showRest();
    void showOther(const std::string &bytes, const std::string &time);
    std::string timeOf(Clock::time_point now);
    void summary() const;

    const Watched &watched_;
    const MonitorOptions &options_;
    Interruption interruption_;
    std::optional<Line> line_;
    std::optional<Line> relay_;
    Speaker device_{{}, "device", "front< "};
    Speaker frontBoard_{{}, "front board", "front> "};
    bool hasBeenThere_ = false;
    std::string missed_; // the line that is waited for
    Clock::time_point begin_ = Clock::now();
    Clock::time_point last_ = begin_; // of what was shown
    size_t bytes_ = 0;                // that are no frames
    size_t connections_ = 0;
    std::map<std::string, size_t> kinds_; // frames by kind
};

// False if the user ends it meanwhile.
bool Monitor::pause(Milliseconds time) const
{
    const int descriptor = interruption_.descriptor();
    return waitReadable(std::span(&descriptor, 1), time).empty();
}

// The first serial device that does not exist, or "".
std::string Monitor::missing() const
{
    const auto isMissing = [](const Way &way) { return access(way.name.c_str(), F_OK) != 0; };
    return !watched_.isSerial                                       ? ""
           : isMissing(watched_.device)                             ? watched_.device.name
           : watched_.frontBoard && isMissing(*watched_.frontBoard) ? watched_.frontBoard->name
                                                                    : "";
}

void Monitor::disconnect()
{
    line_.reset();
    relay_.reset();
}

// Tries once to open the lines.
bool Monitor::connect()
{
    std::string name = missing();
    try {
        if (name.empty()) {
            name = watched_.device.name;
            line_.emplace(watched_.device.open());
            if (watched_.frontBoard) {
                name = watched_.frontBoard->name;
                relay_.emplace(watched_.frontBoard->open());
            }
            announce();
            ++connections_;
            if (!missed_.empty() && !manner().quiet) {
                fmt::print(stderr, "veskctl: {} is there\n", missed_);
            }
            hasBeenThere_ = true;
            missed_.clear();
            return true;
        }
    } catch (const LocalError &) {
        disconnect();
        if (!hasBeenThere_) {
            throw;
        }
    }
    if (missed_ != name && !manner().quiet) {
        fmt::print(stderr, "veskctl: {} is not there; waiting for it\n", name);
    }
    missed_ = name;
    return false;
}

// The daemon sends to the PC that sent the latest datagram. It ignores an empty one.
void Monitor::announce()
{
    if (!watched_.isSerial) {
        line_->send("\n");
    }
}

// Waits for bytes and shows them. False if the user ends it.
bool Monitor::lookAtLine()
{
    std::vector<int> descriptors{interruption_.descriptor(), line_->descriptor()};
    if (relay_) {
        descriptors.push_back(relay_->descriptor());
    }
    const Milliseconds longest = watched_.isSerial ? kForever : kAnnounce;
    const std::vector<int> ready = waitReadable(descriptors, holdsBack() ? kQuiet : longest);
    const auto isReady = [&ready](int descriptor) {
        return std::find(ready.begin(), ready.end(), descriptor) != ready.end();
    };
    if (isReady(interruption_.descriptor())) {
        return false;
    }
    if (isReady(line_->descriptor())) {
        const std::string bytes = line_->receive(Milliseconds{0});
        if (relay_ && !bytes.empty()) {
            relay_->send(bytes);
        }
        show(device_, device_.finder.feed(bytes));
    }
    if (relay_ && isReady(relay_->descriptor())) {
        const std::string bytes = relay_->receive(Milliseconds{0});
        if (!bytes.empty()) {
            line_->send(bytes);
        }
        show(frontBoard_, frontBoard_.finder.feed(bytes));
    }
    if (ready.empty() && holdsBack()) {
        showRest();
    } else if (ready.empty()) {
        announce();
    }
    return true;
}

bool Monitor::holdsBack() const
{
    return device_.finder.holdsBack() || frontBoard_.finder.holdsBack();
}

void Monitor::showRest()
{
    for (Speaker *const each : {&device_, &frontBoard_}) {
        show(*each, each->finder.flush());
    }
}

void Monitor::run()
{
    for (bool goesOn = true; goesOn;) {
        if (!line_ && !connect()) {
            goesOn = pause(kLook);
            continue;
        }
        try {
            goesOn = lookAtLine();
        } catch (const LineLost &error) {
            showRest();
            disconnect();
            if (!manner().quiet) {
                fmt::print(stderr, "veskctl: {}\n",
                           watched_.isSerial && !watched_.frontBoard
                               ? watched_.device.name + " was closed"
                               : error.what());
            }
            goesOn = pause(kLook);
        }
    }
    showRest();
    summary();
}

std::string Monitor::timeOf(Clock::time_point now)
{
    if (options_.time == "none") {
        return {};
    }
    if (options_.time == "delta") {
        return fmt::format("{:>+9.3f}  ", std::chrono::duration<double>(now - last_).count());
    }
    return timeText(now, "%T") + "  ";
}

// Rows of bytes, with their text beside them.
void Monitor::showOther(const std::string &bytes, const std::string &time)
{
    for (size_t i = 0; i < bytes.size(); i += kRow) {
        std::string digits;
        std::string text;
        for (const char byte : bytes.substr(i, kRow)) {
            digits += fmt::format("{:02x} ", static_cast<unsigned char>(byte));
            text += byte < ' ' || byte > '~' ? '.' : byte;
        }
        fmt::print("{}{}\n", i == 0 ? time : std::string(time.size(), ' '),
                   colored(Color::kFaint, fmt::format("{:<48} |{}|", digits, text)));
    }
}

void Monitor::show(const Speaker &speaker, const std::vector<Piece> &pieces)
{
    const std::string mark = watched_.frontBoard ? speaker.mark : "";
    for (const Piece &piece : pieces) {
        const auto now = Clock::now();
        const std::string meaning = piece.isFrame ? describe(piece.text) : std::string();
        if (piece.isFrame) {
            ++kinds_[meaning.substr(0, meaning.find(','))];
        } else {
            bytes_ += piece.text.size();
        }
        const auto &filters = options_.filters;
        const bool isWanted =
            filters.empty() || (piece.isFrame && std::any_of(filters.begin(), filters.end(),
                                                             [&](const std::string &filter) {
                                                                 return fits(filter, piece.text);
                                                             }));
        if (!isWanted) {
            continue;
        }
        if (manner().json) {
            Json json{{"time", timeText(now, "%FT%T")},
                      {"since_last", std::chrono::duration<double>(now - last_).count()}};
            if (watched_.frontBoard) {
                json["from"] = speaker.name;
            }
            json.update(piece.isFrame ? jsonOf(piece.text) : jsonOfBytes(piece.text));
            printJson(json);
        } else if (piece.isFrame) {
            fmt::print("{}{}{}\n", timeOf(now), mark, coloredFrame(piece.text));
        } else {
            showOther(piece.text, timeOf(now) + mark);
        }
        last_ = now;
    }
    flushOutput();
}

void Monitor::summary() const
{
    const double seconds = std::chrono::duration<double>(Clock::now() - begin_).count();
    const auto count = [this](const char *kind) {
        const auto found = kinds_.find(kind);
        return found == kinds_.end() ? 0 : found->second;
    };
    if (manner().json) {
        printJson({{"summary",
                    {{"seconds", seconds},
                     {"commands", count("command")},
                     {"replies", count("reply")},
                     {"refusals", count("refusal")},
                     {"other_bytes", bytes_},
                     {"connections", connections_}}}});
    } else if (!manner().quiet) {
        // On a terminal the cursor stands behind a ^C.
        fmt::print(
            stderr,
            "{}{:.1f} s: {} commands, {} replies, {} refusals, {} other bytes; {} connections\n",
            isatty(STDERR_FILENO) == 1 ? "\n" : "", seconds, count("command"), count("reply"),
            count("refusal"), bytes_, connections_);
    }
}

// Prints the frames among the pieces. Reports anything else and returns false.
bool decode(const std::vector<Piece> &pieces)
{
    bool onlyFrames = true;
    for (const Piece &piece : pieces) {
        const std::string_view other =
            trim(std::string_view(piece.text)
                     .substr(0, piece.text.size() - (piece.text.ends_with('\n') ? 1 : 0)));
        if (piece.isFrame && manner().json) {
            printJson(jsonOf(piece.text));
        } else if (piece.isFrame) {
            fmt::print("{}\n", coloredFrame(piece.text));
        } else if (!other.empty()) {
            if (!manner().quiet) {
                fmt::print(stderr, "veskctl: not a frame: {}\n", escape(other));
            }
            onlyFrames = false;
        }
    }
    flushOutput();
    return onlyFrames;
}

bool decodeInput()
{
    FrameFinder finder;
    bool onlyFrames = true;
    std::array<char, 4096> buffer;
    for (;;) {
        const ssize_t count = read(STDIN_FILENO, buffer.data(), buffer.size());
        if (count < 0 && errno != EINTR) {
            throw LocalError(fmt::format("cannot read standard input: {}", std::strerror(errno)));
        }
        if (count == 0) {
            return decode(finder.flush()) && onlyFrames;
        }
        if (count > 0) {
            onlyFrames &= decode(finder.feed({buffer.data(), static_cast<size_t>(count)}));
        }
    }
}

} // namespace

bool fits(const std::string &filter, std::string_view frame)
{
    const Rs232Command record = recordOf(frame);
    std::string code = lower(filter);
    code.erase(std::remove(code.begin(), code.end(), ' '), code.end());
    if (code == fmt::format("{:02x}", record.command) ||
        code == fmt::format("{:02x}{:02x}", record.command, record.dat1)) {
        return true;
    }
    // A refusal does not tell its sub-command: it may be of any of the code's.
    for (const CommandRow &row : commandTable()) {
        const bool isIt =
            row.command == record.command && (row.dat1 == kAnyDat1 || row.dat1 == record.dat1 ||
                                              (isReply(frame) && isRefusal(record)));
        if (isIt && (lower(row.name).find(lower(filter)) != std::string::npos ||
                     code == fmt::format("{:02x}{:02x}", row.command, row.dat1))) {
            return true;
        }
    }
    return false;
}

int runMonitor(const Watched &watched, const MonitorOptions &options)
{
    Monitor(watched, options).run();
    return kDone;
}

int runDecode(const std::vector<std::string> &texts)
{
    if (texts.empty()) {
        return decodeInput() ? kDone : kUsage;
    }
    bool onlyFrames = true;
    for (const std::string &text : texts) {
        FrameFinder finder;
        std::vector<Piece> pieces = finder.feed(text);
        const std::vector<Piece> rest = finder.flush();
        pieces.insert(pieces.end(), rest.begin(), rest.end());
        onlyFrames &= decode(pieces);
    }
    return onlyFrames ? kDone : kUsage;
}
