#include "tools/subcommands.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <iterator>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/errors.h"
#include "tools/frames.h"
#include "tools/text.h"

namespace {

void printPieces(const std::vector<Piece> &pieces)
{
    for (const Piece &piece : pieces) {
        fmt::print("{}\n", piece.isFrame ? frameWithDescription(piece.text) : escape(piece.text));
    }
    std::fflush(stdout);
}

// Prints the frames in `text`. False, with a word on standard error, when there is anything else.
bool decode(std::string_view text)
{
    FrameFinder finder;
    std::vector<Piece> pieces = finder.feed(text);
    const std::vector<Piece> rest = finder.flush();
    pieces.insert(pieces.end(), rest.begin(), rest.end());
    bool onlyFrames = true;
    for (const Piece &piece : pieces) {
        const std::string_view other =
            trim(std::string_view(piece.text)
                     .substr(0, piece.text.size() - (piece.text.ends_with('\n') ? 1 : 0)));
        if (piece.isFrame) {
            printPieces({piece});
        } else if (!other.empty()) {
            fmt::print(stderr, "veskctl: no frame: {}\n", escape(other));
            onlyFrames = false;
        }
    }
    return onlyFrames;
}

} // namespace

int runSend(Line &line, const std::string &text, Milliseconds timeout)
{
    const std::string frame = frameFromText(text);
    const Rs232Command asked = recordOf(frame);
    line.discardInput(); // a late answer to somebody else's question
    line.send(frame);
    FrameFinder finder;
    const Deadline deadline(timeout);
    for (;;) {
        const std::string bytes = line.receive(deadline.left());
        const std::vector<Piece> pieces = bytes.empty() ? finder.flush() : finder.feed(bytes);
        for (const Piece &piece : pieces) {
            if (piece.isFrame && isReplyTo(asked, piece.text)) {
                fmt::print("{}\n", frameWithDescription(piece.text));
                return isRefusal(recordOf(piece.text)) ? kRefused : kDone;
            }
            fmt::print(stderr, "veskctl: passed over: {}\n",
                       piece.isFrame ? frameWithDescription(piece.text) : escape(piece.text));
        }
        if (bytes.empty()) {
            fmt::print(stderr, "veskctl: no answer within {} ms\n", timeout.count());
            return kNoAnswer;
        }
    }
}

int runMonitor(Line &line)
{
    const Interruption interruption;
    const int descriptors[] = {interruption.descriptor(), line.descriptor()};
    FrameFinder finder;
    for (;;) {
        const std::vector<int> ready =
            waitReadable(descriptors, finder.holdsBack() ? kQuiet : Milliseconds{60000});
        const bool interrupted =
            std::find(ready.begin(), ready.end(), interruption.descriptor()) != ready.end();
        if (interrupted || ready.empty()) {
            printPieces(finder.flush());
        } else {
            printPieces(finder.feed(line.receive(Milliseconds{0})));
        }
        if (interrupted) {
            return kDone;
        }
    }
}

int runDecode(const std::vector<std::string> &texts)
{
    bool onlyFrames = true;
    for (const std::string &text : texts) {
        onlyFrames &= decode(text);
    }
    if (texts.empty()) {
        onlyFrames = decode(std::string(std::istreambuf_iterator<char>(std::cin), {}));
    }
    return onlyFrames ? kDone : kUsage;
}
