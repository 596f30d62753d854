#pragma once

// Bytes as one line of readable text and back, for transcripts, console and monitor.

#include <optional>
#include <string>
#include <string_view>

// `bytes` as text: all but printable ASCII is written as \r, \n, \\ or \xNN. A blank at the very
// end becomes \x20, as an editor may remove it.
std::string escape(std::string_view bytes);

// The bytes that `text` means. Throws UsageError for a backslash that does not begin an escape.
std::string unescape(std::string_view text);

// `text` as it may stand in XML, in an element or an attribute.
std::string escapeXml(std::string_view text);

// `text` without blanks around it.
std::string_view trim(std::string_view text);

bool isHexDigit(char character);

// How numbers with a fraction may be written.
enum class RealForm { kFixed, kAny }; // "59.94"; also "-1.5e-3"

// The number that the whole text means; nothing for any other text, and for a number that a double
// cannot have.
std::optional<double> realFrom(std::string_view text, RealForm form);
