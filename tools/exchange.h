#pragma once

// One command with its payload, and its answer.

#include "tools/line.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// A reply and the bytes that came after it.
struct Answer {
    std::string frame;
    std::string rest;
};

// Whether bytes that are not the answer are reported on standard error, or skipped silently.
enum class Others { kTold, kSkipped };

// Sends a command frame and its payload in one piece (over UDP one datagram) and waits for the
// reply. Returns nothing if none came in time.
std::optional<Answer> ask(Line &line, std::string_view frame, std::string_view payload,
                          Milliseconds timeout, Others others = Others::kTold);

// What to do if nobody answers on a line, for the end of a message.
const char *adviceOnSilence(const Line &line);

// Wait until `count` bytes, or the character `end`, have come after the reply. Later bytes are cut
// off. False if they did not come in time.
bool awaitBytes(Line &line, Answer &answer, size_t count, Milliseconds timeout);
bool awaitEnd(Line &line, Answer &answer, char end, Milliseconds timeout);

// The same as ask(), and again as often as manner() says if no answer comes.
std::optional<Answer> askAgain(Line &line, std::string_view frame, std::string_view payload,
                               Milliseconds timeout);
