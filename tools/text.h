#pragma once

// Bytes as one line of readable text and back, the same way in transcripts, console and monitor.

#include <string>
#include <string_view>

// `bytes` with everything but printable ASCII written as \r, \n, \\ or \xNN. A blank at the very
// end becomes \x20, for it would be lost on the way through an editor.
std::string escape(std::string_view bytes);

// The bytes that `text` stands for. Throws UsageError for a backslash that begins no escape.
std::string unescape(std::string_view text);

// `text` without blanks around it.
std::string_view trim(std::string_view text);

bool isHexDigit(char character);
