#include "tools/console.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <sstream>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/errors.h"
#include "tools/frames.h"
#include "tools/info.h"
#include "tools/json.h"
#include "tools/manner.h"
#include "tools/prompt.h"
#include "tools/subcommands.h"
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
    "  info                everything that the device tells\n"
    "  network read        and network write, text read, text write: as the subcommands of that name\n"
    "  help [WORD], ?      show this text, or what it says about a word\n"
    "  quit, exit          end; so do Ctrl-D and Ctrl-C\n"
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
          timeout_(timeout), prompt_(completions(), historyFile())
    {
    }

    int run(); // returns the exit status

private:
    static std::vector<std::string> completions();

    void execute(const std::string &line);
    void help(std::string_view about);
    void runSubcommand(std::string_view text);
    void summary();
    void sendCommand(std::string_view text);
    void sendText(Side &side, std::string_view text);
    bool receive(Side &side);
    void show(Side &side, const std::vector<Piece> &pieces);
    bool showLog(size_t most);
    void checkAnswer();
    bool mayRead() const;
    void printObject(const Json &object);

    Side front_;
    Side pc_;
    LogFile *log_;
    size_t sent_ = 0;
    size_t answered_ = 0;
    Milliseconds timeout_;
    Prompt prompt_;
    Interruption interruption_;
    bool quit_ = false;
    int worst_ = kDone; // the highest exit status of the lines
    bool isInterrupted_ = false;
    std::string askedFrame_;
    std::optional<Rs232Command> asked_;  // a command whose reply has not come yet ...
    Deadline answerBy_{Milliseconds{0}}; // ... and until when it should
    Deadline quietAt_{Milliseconds{0}};  // when the lines and the log count as quiet
};

std::vector<std::string> Console::completions()
{
    std::vector<std::string> words = {"exit",          "front", "help", "info",      "network read",
                                      "network write", "pc",    "quit", "text read", "text write"};
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
            isInterrupted_ = true;
            break;
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
    summary();
    return prompt_.isTerminal() || isInterrupted_ ? kDone
                                                  : worst_; // a person has seen what went wrong
}

// For a person; a script has what it has printed.
void Console::summary()
{
    if (manner().json) {
        printObject({{"summary", {{"sent", sent_}, {"answered", answered_}}}});
    } else if (prompt_.isTerminal() && !manner().quiet) {
        prompt_.around(
            [this] { fmt::print(stderr, "{} commands sent, {} answered\n", sent_, answered_); });
    }
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
        if (text == "quit" || text == "exit") {
            quit_ = true;
        } else if (word == "help" || word == "?") {
            help(trim(rest));
        } else if (word == "info" || word == "network" || word == "text") {
            runSubcommand(text);
        } else if (word == "front") {
            sendText(front_, rest);
        } else if (word == "pc") {
            sendText(pc_, rest);
        } else {
            sendCommand(text);
        }
    } catch (const UsageError &error) {
        worst_ = std::max<int>(worst_, kUsage);
        if (manner().json) {
            printObject({{"typed", escape(text)}, {"error", error.what()}});
        } else {
            prompt_.print(fmt::format("{}; `help` lists the commands", error.what()));
        }
    }
}

void Console::printObject(const Json &object)
{
    prompt_.around([&object] { printJson(object); });
}

// The lines of `text` that contain the word, in either case.
std::string linesAbout(const std::string &text, std::string_view word)
{
    const auto lower = [](std::string_view mixed) {
        std::string result(mixed);
        std::transform(result.begin(), result.end(), result.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        return result;
    };
    std::istringstream stream(text);
    std::string found;
    for (std::string line; std::getline(stream, line);) {
        if (lower(line).find(lower(word)) != std::string::npos) {
            found += line + "\n";
        }
    }
    return found;
}

void Console::help(std::string_view about)
{
    std::string text = fmt::format("{}\nCommands: code, dat1, words\n{}", kHelp, commandList());
    if (!about.empty()) {
        text = linesAbout(text, about);
    }
    if (text.empty()) {
        throw UsageError(fmt::format("no command has \"{}\" in it", escape(about)));
    }
    if (manner().json) { // it is no data
        prompt_.around([&text] { fmt::print(stderr, "{}", text); });
    } else {
        prompt_.print(text.substr(0, text.size() - 1));
    }
}

// A subcommand of veskctl on the line on which commands are sent.
void Console::runSubcommand(std::string_view text)
{
    std::istringstream stream{std::string(text)};
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    const std::string kind = words[0] + (words.size() > 1 ? " " + words[1] : "");
    Line &line = front_.line != nullptr ? *front_.line : *pc_.line;
    const auto run = [&]() -> int {
        if (kind == "info" && words.size() == 1) {
            return runInfo(line, false, timeout_);
        }
        if (kind == "network read" && words.size() == 2) {
            return runNetworkRead(line, timeout_);
        }
        if (kind == "network write" && words.size() == 6) {
            const NetworkSettings settings{words[2], words[3], words[4], words[5]};
            const std::string fault = faultOfNetwork(settings);
            if (!fault.empty()) {
                throw UsageError(fault + "; nothing was sent, and the subcommand's --force sends "
                                         "it all the same");
            }
            return runNetworkWrite(line, settings, timeout_);
        }
        if (kind == "text read" && (words.size() == 3 || words.size() == 4)) {
            return runTextRead(line, words[2] + " " + (words.size() == 4 ? words[3] : "00"),
                               timeout_);
        }
        if (kind == "text write" && words.size() == 5) {
            return runTextWrite(line, words[2] + " " + words[3], words[4], timeout_);
        }
        throw UsageError("possible are: info; network read; network write ADDRESS MASK GATEWAY "
                         "MAC; text read DAT1 [DAT2]; text write DAT1 DAT2 TEXT");
    };
    line.stopAt(&interruption_);
    try {
        prompt_.around([&] { worst_ = std::max<int>(worst_, run()); });
    } catch (const Interrupted &) {
        isInterrupted_ = true;
        quit_ = true;
    }
    line.stopAt(nullptr);
}

void Console::sendCommand(std::string_view text)
{
    Side &side = front_.line != nullptr ? front_ : pc_;
    const std::string frame = frameFromText(text);
    if (!manner().json) { // else with the answer
        prompt_.print(
            fmt::format("{}> {}", side.name, isFrame(frame) ? coloredFrame(frame) : escape(frame)));
    }
    side.line->send(frame);
    ++sent_;
    askedFrame_ = frame;
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
    if (manner().json) {
        Json object{{"line", side.name}, {"direction", "sent"}};
        object.update(jsonOfBytes(bytes));
        printObject(object);
    } else {
        prompt_.print(fmt::format("{}> {}", side.name, escape(bytes)));
    }
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
        const bool isAnswer = asked_.has_value() && piece.isFrame && isReplyTo(*asked_, piece.text);
        if (manner().json && isAnswer) {
            printObject(
                {{"command", jsonOf(askedFrame_)}, {"reply", jsonOfReply(*asked_, piece.text)}});
        } else if (manner().json) {
            Json object{{"line", side.name}, {"direction", "received"}};
            object.update(piece.isFrame ? Json{{"frame", jsonOf(piece.text)}}
                                        : jsonOfBytes(piece.text));
            printObject(object);
        } else {
            prompt_.print(
                fmt::format("{}< {}", side.name,
                            piece.isFrame ? coloredFrame(piece.text) : escape(piece.text)));
        }
        if (isAnswer) {
            if (isRefusalOf(*asked_, recordOf(piece.text))) {
                worst_ = std::max<int>(worst_, kRefused);
            }
            asked_.reset();
            ++answered_;
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
        if (manner().json) {
            printObject({{"log", escape(lines[i])}});
        } else {
            prompt_.print(fmt::format("vesk_h264 | {}", escape(lines[i])));
        }
    }
    return !lines.empty();
}

void Console::checkAnswer()
{
    if (asked_.has_value() && answerBy_.passed()) {
        if (manner().json) {
            printObject({{"command", jsonOf(askedFrame_)}, {"reply", nullptr}});
        } else {
            prompt_.print(
                fmt::format("no answer within {} ms{}", timeout_.count(),
                            isNeverAnswered(*asked_) ? "; this command never gets one" : ""));
        }
        worst_ = std::max<int>(worst_, kNoAnswer);
        asked_.reset();
    }
}

} // namespace

int runConsole(const Desk &desk, Milliseconds timeout)
{
    return Console(desk, timeout).run();
}
