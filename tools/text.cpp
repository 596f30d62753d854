#include "tools/text.h"

#include <cmath>
#include <cstdlib>

#include <fmt/format.h>

#include "command/frame.h"
#include "tools/errors.h"

std::string escape(std::string_view bytes)
{
    std::string text;
    for (size_t i = 0; i < bytes.size(); ++i) {
        const char byte = bytes[i];
        const bool isLast = i + 1 == bytes.size();
        if (byte == '\r') {
            text += "\\r";
        } else if (byte == '\n') {
            text += "\\n";
        } else if (byte == '\\') {
            text += "\\\\";
        } else if (byte < ' ' || byte > '~' || (byte == ' ' && isLast)) {
            text += fmt::format("\\x{:02x}", static_cast<unsigned char>(byte));
        } else {
            text += byte;
        }
    }
    return text;
}

std::string unescape(std::string_view text)
{
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            bytes += text[i];
            continue;
        }
        const char kind = i + 1 < text.size() ? text[i + 1] : '\0';
        if (kind == 'r' || kind == 'n' || kind == '\\') {
            bytes += kind == 'r' ? '\r' : kind == 'n' ? '\n' : '\\';
            i += 1;
        } else if (kind == 'x' && i + 3 < text.size() && isHexDigit(text[i + 2]) &&
                   isHexDigit(text[i + 3])) {
            bytes += static_cast<char>(HexCharToByte(text.data() + i + 2));
            i += 3;
        } else {
            throw UsageError(
                fmt::format("\"{}\" is not an escape; the escapes are \\xNN \\r \\n \\\\",
                            text.substr(i, kind == 'x' ? 4 : 2)));
        }
    }
    return bytes;
}

std::string escapeXml(std::string_view text)
{
    std::string result;
    for (const char character : text) {
        switch (character) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            result += character;
        }
    }
    return result;
}

std::string_view trim(std::string_view text)
{
    constexpr std::string_view kBlanks = " \t\r";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool isHexDigit(char character)
{
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f') ||
           (character >= 'A' && character <= 'F');
}

namespace {

// Takes the digits at the text's beginning, and returns how many there were.
size_t takeDigits(std::string_view &text)
{
    size_t count = 0;
    while (count < text.size() && text[count] >= '0' && text[count] <= '9') {
        ++count;
    }
    text.remove_prefix(count);
    return count;
}

bool takeSign(std::string_view &text, std::string_view signs)
{
    const bool isThere = !text.empty() && signs.find(text.front()) != std::string_view::npos;
    text.remove_prefix(isThere ? 1 : 0);
    return isThere;
}

// Not all that strtod() takes: no blanks, no hexadecimal digits, no words.
bool isReal(std::string_view text, RealForm form)
{
    takeSign(text, "-");
    size_t digits = takeDigits(text);
    if (takeSign(text, ".")) {
        digits += takeDigits(text);
    }
    if (digits > 0 && form == RealForm::kAny && takeSign(text, "eE")) {
        takeSign(text, "+-");
        digits = takeDigits(text);
    }
    return digits > 0 && text.empty();
}

} // namespace

// std::from_chars() does the same, but not every C++ library has it for numbers with a fraction.
std::optional<double> realFrom(std::string_view text, RealForm form)
{
    if (!isReal(text, form)) {
        return std::nullopt;
    }
    const double value = std::strtod(std::string(text).c_str(), nullptr);
    const std::string_view mantissa = text.substr(0, text.find_first_of("eE"));
    const bool isTooSmall = value == 0 && mantissa.find_first_of("123456789") != mantissa.npos;
    return std::isfinite(value) && !isTooSmall ? std::optional(value) : std::nullopt;
}
