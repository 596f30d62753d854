#include "tools/manner.h"

#include <cstdlib>

#include <unistd.h>

#include <fmt/format.h>

#include "tools/commands.h"

Manner &manner()
{
    static Manner theManner;
    return theManner;
}

std::string ifTyped(std::string_view advice, std::string_view otherwise)
{
    return std::string(manner().isTyped ? advice : otherwise);
}

bool wantsColor(std::string_view when)
{
    if (when != "auto") {
        return when == "always";
    }
    const char *const noColor = std::getenv("NO_COLOR");
    const char *const terminal = std::getenv("TERM");
    const bool isForbidden = noColor != nullptr && noColor[0] != '\0';
    const bool isDumb = terminal == nullptr || std::string_view(terminal) == "dumb";
    return !isForbidden && !isDumb && isatty(STDOUT_FILENO) == 1;
}

std::string colored(Color color, std::string_view text)
{
    if (!manner().isColored) {
        return std::string(text);
    }
    const int code = color == Color::kGood    ? 32
                     : color == Color::kBad   ? 31
                     : color == Color::kAsked ? 36
                                              : 2;
    return fmt::format("\033[{}m{}\033[0m", code, text);
}

Color colorOf(std::string_view meaning)
{
    if (meaning.starts_with("refusal") || meaning.find("WRONG") != std::string_view::npos) {
        return Color::kBad;
    }
    return meaning.starts_with("command") ? Color::kAsked : Color::kGood;
}

std::string coloredFrame(std::string_view frame)
{
    const std::string meaning = describe(frame);
    return fmt::format("{}  {}", frame, colored(colorOf(meaning), meaning));
}
