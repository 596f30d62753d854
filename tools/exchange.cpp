#include "tools/exchange.h"

#include <vector>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/frames.h"
#include "tools/manner.h"
#include "tools/text.h"

namespace {

void tell(const Piece &piece)
{
    if (manner().quiet) {
        return;
    }
    fmt::print(stderr, "veskctl: skipped: {}\n",
               piece.isFrame ? frameWithDescription(piece.text) : escape(piece.text));
}

// Waits until `length(answer.rest)` is not npos, and cuts the rest off there.
template <typename Length>
bool await(Line &line, Answer &answer, Milliseconds timeout, Length length)
{
    const Deadline deadline(timeout);
    while (length(answer.rest) == std::string::npos) {
        const std::string bytes = line.receive(deadline.left());
        if (bytes.empty()) {
            return false;
        }
        answer.rest += bytes;
    }
    answer.rest.resize(length(answer.rest));
    return true;
}

} // namespace

std::optional<Answer> ask(Line &line, std::string_view frame, std::string_view payload,
                          Milliseconds timeout, Others others)
{
    const Rs232Command asked = recordOf(frame);
    line.discardInput(); // such as a late answer to an earlier command
    line.send(std::string(frame).append(payload));
    FrameFinder finder;
    const Deadline deadline(timeout);
    for (;;) {
        const std::string bytes = line.receive(deadline.left());
        // Byte by byte: the bytes after the reply are a payload, so no frames must be sought there.
        for (size_t i = 0; i < bytes.size(); ++i) {
            for (const Piece &piece : finder.feed(std::string_view(bytes).substr(i, 1))) {
                if (piece.isFrame && isReplyTo(asked, piece.text)) {
                    return Answer{piece.text, bytes.substr(i + 1)};
                }
                if (others == Others::kTold) {
                    tell(piece);
                }
            }
        }
        if (bytes.empty()) {
            for (const Piece &piece : finder.flush()) {
                if (others == Others::kTold) {
                    tell(piece);
                }
            }
            return std::nullopt;
        }
    }
}

const char *adviceOnSilence(const Line &line)
{
    return line.carriesDatagrams()
               ? "; over UDP commands reach the device only where the front board sends back what "
                 "it gets: use --serial"
               : "; is the device on, and is this its line?";
}

bool awaitBytes(Line &line, Answer &answer, size_t count, Milliseconds timeout)
{
    return await(line, answer, timeout, [count](const std::string &bytes) {
        return bytes.size() < count ? std::string::npos : count;
    });
}

bool awaitEnd(Line &line, Answer &answer, char end, Milliseconds timeout)
{
    return await(line, answer, timeout, [end](const std::string &bytes) {
        const size_t at = bytes.find(end);
        return at == std::string::npos ? at : at + 1;
    });
}

std::optional<Answer> askAgain(Line &line, std::string_view frame, std::string_view payload,
                               Milliseconds timeout)
{
    // The frame keeps its tag: a late answer to an earlier try answers the same question.
    auto answer = ask(line, frame, payload, timeout);
    for (unsigned tried = 0; !answer && tried < manner().retries; ++tried) {
        if (!manner().quiet) {
            fmt::print(stderr, "veskctl: no answer within {} ms, sent again\n", timeout.count());
        }
        answer = ask(line, frame, payload, timeout);
    }
    return answer;
}
