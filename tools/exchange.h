#pragma once

// One command with what belongs to it, and its answer.

#include "tools/line.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// A reply and the bytes that came with it.
struct Answer {
    std::string frame;
    std::string behind;
};

// What happens to bytes that are not the answer: a word on standard error, or nothing.
enum class Others { kTold, kPassedOver };

// Sends a command frame and its payload in one piece, which over UDP is one datagram, and waits for
// the reply. Returns nothing if none came in time.
std::optional<Answer> ask(Line &line, std::string_view frame, std::string_view payload,
                          Milliseconds timeout, Others others = Others::kTold);

// Wait until `count` bytes, until the character `end` has come behind the reply. What has come
// after that is cut off. False if it did not come in time.
bool awaitBytes(Line &line, Answer &answer, size_t count, Milliseconds timeout);
bool awaitEnd(Line &line, Answer &answer, char end, Milliseconds timeout);
