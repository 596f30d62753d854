#include "tools/prompt.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

#include <sys/ioctl.h>
#include <unistd.h>

#include <editline/readline.h>
#include <fmt/format.h>

#include "tools/output.h"

namespace {

constexpr char kPrompt[] = "> ";
constexpr int kControlC = 3;
constexpr int kMostHistory = 1000;
constexpr size_t kUsualColumns = 80;

// The editing library calls plain functions, so their state is here.
std::vector<std::string> allCompletions;
std::deque<std::string> typedLines;
bool endTyped;

void lineTyped(char *line)
{
    if (line == nullptr) {
        endTyped = true;
        return;
    }
    if (line[0] != '\0') {
        add_history(line);
    }
    typedLines.emplace_back(line);
    std::free(line); // the library allocated it with malloc()
}

// What makes the line that is being typed invisible, on all of its rows, and leaves the cursor
// there.
std::string erasure()
{
    winsize size{};
    const size_t columns = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0
                               ? size.ws_col
                               : kUsualColumns;
    const size_t above = (std::size(kPrompt) - 1 + static_cast<size_t>(rl_point)) / columns;
    return fmt::format("\r{}\033[J", above == 0 ? "" : fmt::format("\033[{}A", above));
}

int endPressed(int, int)
{
    endTyped = true;
    return 0;
}

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// The completion number `state` of the word, given the words before it.
char *completion(const char *word, int state)
{
    static std::vector<std::string> matches;
    if (state == 0) {
        matches.clear();
        const std::string before =
            lower({rl_line_buffer, static_cast<size_t>(rl_point) - std::strlen(word)});
        const std::string begun = lower(word);
        for (const std::string &whole : allCompletions) {
            if (whole.starts_with(before + begun)) {
                const size_t end = whole.find(' ', before.size());
                const std::string match = whole.substr(
                    before.size(), end == std::string::npos ? end : end - before.size());
                if (matches.empty() || matches.back() != match) {
                    matches.push_back(match);
                }
            }
        }
    }
    const auto index = static_cast<size_t>(state);
    return index < matches.size() ? strdup(matches[index].c_str()) : nullptr;
}

char **complete(const char *word, int, int)
{
    rl_attempted_completion_over = 1; // never the names of files
    return rl_completion_matches(word, completion);
}

} // namespace

std::string historyFile()
{
    const char *const state = std::getenv("XDG_STATE_HOME");
    const char *const home = std::getenv("HOME");
    std::filesystem::path folder;
    if (state != nullptr && state[0] == '/') {
        folder = state;
    } else if (home != nullptr && home[0] == '/') {
        folder = std::filesystem::path(home) / ".local" / "state";
    } else {
        return {};
    }
    folder /= "veskctl";
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    return error ? std::string() : (folder / "history").string();
}

Prompt::Prompt(std::vector<std::string> completions, std::string history)
    : terminal_(isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1),
      history_(std::move(history))
{
    if (!terminal_) {
        return;
    }
    kept_.emplace(STDIN_FILENO);
    allCompletions = std::move(completions);
    using_history();
    stifle_history(kMostHistory);
    if (!history_.empty()) {
        read_history(history_.c_str()); // if there is one
    }
    rl_catch_signals = 0; // the console handles Ctrl-C
    rl_attempted_completion_function = complete;
    rl_callback_handler_install(kPrompt, lineTyped);
    // Ctrl-C is an ordinary key: as a signal it would also reach the script that runs the console.
    char keepControlC[] = "setty -d -isig";
    rl_parse_and_bind(keepControlC);
    rl_add_defun("end", endPressed, kControlC);
}

Prompt::~Prompt()
{
    if (terminal_) {
        fmt::print("{}", erasure());
        rl_callback_handler_remove();
        rl_deprep_terminal();
        if (!history_.empty()) {
            write_history(history_.c_str());
        }
    }
}

bool Prompt::isTerminal() const
{
    return terminal_;
}

int Prompt::descriptor() const
{
    return STDIN_FILENO;
}

void Prompt::read()
{
    if (!terminal_) {
        readPlain();
        return;
    }
    rl_point = -1; // the library does not set it when the line has become empty
    rl_callback_read_char();
    rl_point = typedLines.empty() ? std::max(rl_point, 0) : 0;
    if (!typedLines.empty()) {
        // The library leaves the terminal in line mode; this begins the next line.
        rl_callback_handler_install(kPrompt, lineTyped);
    }
    for (std::string &line : typedLines) {
        lines_.push_back(std::move(line));
    }
    typedLines.clear();
    ended_ = endTyped;
}

bool Prompt::takeLine(std::string &line)
{
    if (lines_.empty()) {
        return false;
    }
    line = std::move(lines_.front());
    lines_.pop_front();
    return true;
}

bool Prompt::hasEnded() const
{
    return ended_;
}

void Prompt::print(const std::string &line)
{
    if (!terminal_) {
        fmt::print("{}\n", line);
        flushOutput();
        return;
    }
    fmt::print("{}{}\n", erasure(), line);
    flushOutput();
    rl_forced_update_display();
}

void Prompt::around(const std::function<void()> &write)
{
    if (terminal_) {
        fmt::print("{}", erasure());
    }
    std::fflush(stdout);
    const auto redraw = [this] {
        std::fflush(stdout);
        if (terminal_) {
            rl_forced_update_display();
        }
    };
    try {
        write();
    } catch (...) {
        redraw();
        throw;
    }
    redraw();
}

void Prompt::readPlain()
{
    std::array<char, 4096> buffer;
    const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) {
        return;
    }
    if (count <= 0) {
        ended_ = true;
        if (!begun_.empty()) {
            lines_.push_back(std::exchange(begun_, {}));
        }
        return;
    }
    begun_.append(buffer.data(), static_cast<size_t>(count));
    for (size_t end; (end = begun_.find('\n')) != std::string::npos;) {
        lines_.push_back(begun_.substr(0, end));
        begun_.erase(0, end + 1);
    }
}
