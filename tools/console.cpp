#include "tools/console.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/errors.h"
#include "tools/frames.h"
#include "tools/prompt.h"
#include "tools/text.h"

namespace {

constexpr Milliseconds kTick{30};     // between two looks at the daemon's output
constexpr size_t kOldLinesShown = 10; // of the daemon's earlier output, as tail -f does

constexpr char kHelp[] =
    "Type a command of the table in words, or in hexadecimal digits:\n"
    "  68 01               command, dat1 to dat4; the rest of the record is added\n"
    "  00 05 68 01 000000  a record; the checksum is added\n"
    "  <T0000680100000069> a whole frame, sent as it is, right or wrong\n"
    "or one of these:\n"
    "  front TEXT          TEXT on the serial line, as if the front board had sent it\n"
    "  pc TEXT             TEXT as a datagram of the control PC; escapes: \\xNN \\r \\n \\\\\n"
    "  help                show this text\n"
    "  quit                end; so do Ctrl-D and Ctrl-C\n"
    "\n"
    "The output:\n"
    "  front> front<       to and from the daemon's serial line\n"
    "  pc> pc<             to and from the daemon's UDP port\n"
    "  vesk_h264 |         the daemon's own output\n";

// One of the two lines as the user sees it.
struct Side {
    Line *line;
    const char *name;
    FrameFinder finder; // of what arrives
};

class Console {
public:
    Console(const Desk &desk, Milliseconds timeout)
        : front_{desk.front, "front", {}}, pc_{desk.pc, "pc", {}}, log_(desk.log),
          timeout_(timeout), prompt_(completions())
    {
    }

    int run(); // returns the exit status

private:
    static std::vector<std::string> completions();

    void execute(const std::string &line);
    void help();
    void sendCommand(std::string_view text);
    void sendText(Side &side, std::string_view text);
    bool receive(Side &side);
    void show(Side &side, const std::vector<Piece> &pieces);
    bool showLog(size_t most);
    void checkAnswer();
    bool mayRead() const;

    Side front_;
    Side pc_;
    LogFile *log_;
    Milliseconds timeout_;
    Prompt prompt_;
    Interruption interruption_;
    bool quit_ = false;
    int worst_ = kDone;                  // the highest exit status of the lines
    std::optional<Rs232Command> asked_;  // a command whose reply has not come yet ...
    Deadline answerBy_{Milliseconds{0}}; // ... and until when it should
    Deadline quietAt_{Milliseconds{0}};  // when the lines and the log count as quiet
};

std::vector<std::string> Console::completions()
{
    std::vector<std::string> words = {"front", "help", "pc", "quit"};
    for (const CommandRow &row : commandTable()) {
        std::string &name = words.emplace_back(row.name);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    }
    std::sort(words.begin(), words.end());
    return words;
}

int Console::run()
{
    if (prompt_.isTerminal()) {
        prompt_.print("`help` lists the commands, `quit` ends.");
    }
    showLog(kOldLinesShown);
    while (!quit_) {
        std::vector<int> descriptors = {interruption_.descriptor()};
        for (const Side *side : {&front_, &pc_}) {
            if (side->line != nullptr) {
                descriptors.push_back(side->line->descriptor());
            }
        }
        if (mayRead() && !prompt_.hasEnded()) {
            descriptors.push_back(prompt_.descriptor());
        }
        const std::vector<int> ready = waitReadable(descriptors, kTick);
        const auto isReady = [&](int descriptor) {
            return std::find(ready.begin(), ready.end(), descriptor) != ready.end();
        };
        if (isReady(interruption_.descriptor())) {
            return kDone;
        }
        bool active = showLog(std::string::npos);
        for (Side *side : {&front_, &pc_}) {
            if (side->line != nullptr && isReady(side->line->descriptor())) {
                active |= receive(*side);
            }
        }
        if (active) {
            quietAt_ = Deadline(kQuiet);
        } else if (quietAt_.passed()) {
            show(front_, front_.finder.flush());
            show(pc_, pc_.finder.flush());
        }
        checkAnswer();
        if (isReady(prompt_.descriptor())) {
            prompt_.read();
        }
        for (std::string line; !quit_ && mayRead() && prompt_.takeLine(line);) {
            execute(line);
        }
        quit_ |= prompt_.hasEnded() && mayRead();
    }
    return prompt_.isTerminal() ? kDone : worst_; // a person has seen what went wrong
}

// A line from a pipe waits until the line before it has had its effect, as a person would.
bool Console::mayRead() const
{
    return prompt_.isTerminal() || (!asked_.has_value() && quietAt_.passed());
}

void Console::execute(const std::string &line)
{
    const std::string_view text = trim(line);
    const size_t blank = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, blank);
    const std::string_view rest = text.substr(std::min(blank + 1, text.size()));
    try {
        if (text.empty() || text[0] == '#') {
            return;
        }
        if (text == "quit") {
            quit_ = true;
        } else if (text == "help") {
            help();
        } else if (word == "front") {
            sendText(front_, rest);
        } else if (word == "pc") {
            sendText(pc_, rest);
        } else {
            sendCommand(text);
        }
    } catch (const UsageError &error) {
        worst_ = std::max<int>(worst_, kUsage);
        prompt_.print(fmt::format("{}; `help` lists the commands", error.what()));
    }
}

void Console::help()
{
    const std::string text =
        fmt::format("{}\nCommands: code, dat1, words\n{}", kHelp, commandList());
    prompt_.print(text.substr(0, text.size() - 1));
}

void Console::sendCommand(std::string_view text)
{
    Side &side = front_.line != nullptr ? front_ : pc_;
    const std::string frame = frameFromText(text);
    prompt_.print(fmt::format("{}> {}", side.name,
                              isFrame(frame) ? frameWithDescription(frame) : escape(frame)));
    side.line->send(frame);
    asked_ = recordOf(frame);
    answerBy_ = Deadline(timeout_);
}

void Console::sendText(Side &side, std::string_view text)
{
    if (side.line == nullptr) {
        throw UsageError(fmt::format("there is no such line: it needs {}",
                                     &side == &front_ ? "--serial" : "--udp"));
    }
    const std::string bytes = unescape(text);
    prompt_.print(fmt::format("{}> {}", side.name, escape(bytes)));
    side.line->send(bytes);
    quietAt_ = Deadline(kQuiet);
}

bool Console::receive(Side &side)
{
    const std::string bytes = side.line->receive(Milliseconds{0});
    show(side, side.finder.feed(bytes));
    return !bytes.empty();
}

void Console::show(Side &side, const std::vector<Piece> &pieces)
{
    for (const Piece &piece : pieces) {
        prompt_.print(
            fmt::format("{}< {}", side.name,
                        piece.isFrame ? frameWithDescription(piece.text) : escape(piece.text)));
        if (asked_.has_value() && piece.isFrame && isReplyTo(*asked_, piece.text)) {
            if (isRefusalOf(*asked_, recordOf(piece.text))) {
                worst_ = std::max<int>(worst_, kRefused);
            }
            asked_.reset();
        }
    }
}

// Shows the daemon's output since the last call, at most the last `most` lines.
bool Console::showLog(size_t most)
{
    if (log_ == nullptr) {
        return false;
    }
    const std::vector<std::string> lines = log_->newLines();
    for (size_t i = lines.size() - std::min(lines.size(), most); i < lines.size(); ++i) {
        prompt_.print(fmt::format("vesk_h264 | {}", escape(lines[i])));
    }
    return !lines.empty();
}

void Console::checkAnswer()
{
    if (asked_.has_value() && answerBy_.passed()) {
        prompt_.print(fmt::format("no answer within {} ms{}", timeout_.count(),
                                  isNeverAnswered(*asked_) ? "; this command never gets one" : ""));
        worst_ = std::max<int>(worst_, kNoAnswer);
        asked_.reset();
    }
}

} // namespace

int runConsole(const Desk &desk, Milliseconds timeout)
{
    return Console(desk, timeout).run();
}
