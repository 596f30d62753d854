#include "tools/text.h"

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
