#include "tools/subcommands.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <numeric>

#include <fmt/format.h>

#include "tools/address.h"
#include "tools/commands.h"
#include "tools/errors.h"
#include "tools/exchange.h"
#include "tools/frames.h"
#include "tools/output.h"
#include "tools/text.h"

namespace {

// The network record: `write data` with its length, and `read data`.
constexpr char kWriteNetwork[] = "f0 20 00 13 00";
constexpr char kReadNetwork[] = "read data 20";
constexpr size_t kNetworkRecord = 18;
constexpr size_t kNetworkBlock = kNetworkRecord + 1;

// How long to wait for the answer: the device may wait for bytes of the payload that it misses.
Milliseconds withPayload(const std::string &frame, Milliseconds timeout)
{
    return timeout + Milliseconds{rowOf(recordOf(frame))->payloadWaitMs};
}

std::string withChecksum(std::string record)
{
    const int sum = std::accumulate(record.begin(), record.end(), 0);
    return record += static_cast<char>(sum & 0xFF);
}

int noAnswer(const Line &line, Milliseconds timeout, const char *more = "")
{
    fmt::print(stderr, "veskctl: no answer within {} ms{}{}\n", timeout.count(), more,
               line.carriesDatagrams()
                   ? "; over UDP commands reach the device only where the front "
                     "board sends back what it gets: use --serial"
                   : "");
    return kNoAnswer;
}

// Returns the exit status for the reply to the command in `frame`.
int printReply(const std::string &frame, const Answer &answer)
{
    const Rs232Command command = recordOf(frame);
    fmt::print("{}  {}\n", answer.frame, describeReply(command, answer.frame));
    return isRefusalOf(command, recordOf(answer.frame)) ? kRefused : kDone;
}

std::string withNextTag(const std::string &frame)
{
    std::string next = frame;
    Rs232Command command = recordOf(frame);
    ++command.tag;
    Rs232CommandToStr(&command, next.data());
    return next;
}

void printPieces(const std::vector<Piece> &pieces)
{
    for (const Piece &piece : pieces) {
        fmt::print("{}\n", piece.isFrame ? frameWithDescription(piece.text) : escape(piece.text));
    }
    flushOutput();
}

// Prints the frames in `text`. Reports anything else on standard error and returns false.
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
            fmt::print(stderr, "veskctl: not a frame: {}\n", escape(other));
            onlyFrames = false;
        }
    }
    return onlyFrames;
}

// Prints the reply, and puts the record after it into `record`. Returns the exit status.
int readNetwork(Line &line, Milliseconds timeout, std::string &record)
{
    const std::string frame = frameFromText(kReadNetwork);
    auto answer = ask(line, frame, {}, timeout);
    if (!answer) {
        return noAnswer(line, timeout);
    }
    const int status = printReply(frame, *answer);
    if (status != kDone) {
        return status;
    }
    if (!awaitBytes(line, *answer, kNetworkBlock, timeout)) {
        fmt::print(stderr, "veskctl: {} of {} bytes came after the reply within {} ms\n",
                   answer->rest.size(), kNetworkBlock, timeout.count());
        return kNoAnswer;
    }
    record = answer->rest.substr(0, kNetworkRecord);
    if (withChecksum(record) != answer->rest) {
        fmt::print(stderr, "veskctl: the network record has a wrong checksum: {}\n",
                   escape(answer->rest));
        return kNoAnswer;
    }
    return kDone;
}

// Whether the address and the gateway differ in a bit of the mask.
bool isOutside(const std::string &record)
{
    for (size_t i = 0; i < 4; ++i) {
        if (((record[i] ^ record[8 + i]) & record[4 + i]) != 0) {
            return true;
        }
    }
    return false;
}

} // namespace

std::string networkRecord(const NetworkSettings &settings)
{
    return bytesOfAddress(settings.address) + bytesOfAddress(settings.mask) +
           bytesOfAddress(settings.gateway) + bytesOfMac(settings.mac);
}

std::string faultOfNetwork(const NetworkSettings &settings)
{
    const std::string record = networkRecord(settings);
    if (!isContiguous(std::string_view(record).substr(4, 4))) {
        return fmt::format("{} is not a mask: its ones must come before its zeros, as in "
                           "255.255.255.0",
                           settings.mask);
    }
    if (isOutside(record)) {
        return fmt::format("the gateway {} is not in the net of {} with mask {}, so nothing can be "
                           "sent to it",
                           settings.gateway, settings.address, settings.mask);
    }
    if ((record[12] & 1) != 0) {
        return fmt::format("{} is the MAC address of a group; the first byte of a device's is even",
                           settings.mac);
    }
    return {};
}

int runSend(Line &line, const std::string &text, Milliseconds timeout)
{
    const std::string frame = frameFromText(text);
    const Rs232Command command = recordOf(frame);
    auto answer = ask(line, frame, {}, timeout);
    if (answer && isUnclear(command, recordOf(answer->frame))) {
        // Data, or the frame was damaged on its way. That does not happen twice in a row.
        const auto second = ask(line, withNextTag(frame), {}, timeout);
        if (!second || !isUnclear(command, recordOf(second->frame))) {
            answer = second;
        }
    }
    if (!answer) {
        return noAnswer(line, timeout,
                        isNeverAnswered(command) ? "; this command never gets one" : "");
    }
    return printReply(frame, *answer);
}

int runNetworkRead(Line &line, Milliseconds timeout)
{
    std::string record;
    const int status = readNetwork(line, timeout, record);
    if (status == kDone) {
        fmt::print("address  {}\nmask     {}\ngateway  {}\nMAC      {}\n", addressText(record),
                   addressText(record.substr(4)), addressText(record.substr(8)),
                   macText(record.substr(12)));
    }
    return status;
}

int runNetworkWrite(Line &line, const NetworkSettings &settings, Milliseconds timeout)
{
    const std::string frame = frameFromText(kWriteNetwork);
    const Milliseconds limit = withPayload(frame, timeout);
    const std::string written = networkRecord(settings);
    const auto answer = ask(line, frame, withChecksum(written), limit);
    if (!answer) {
        return noAnswer(line, limit);
    }
    int status = printReply(frame, *answer);
    if (status != kDone) {
        return status;
    }
    std::string record;
    status = readNetwork(line, timeout, record);
    if (status != kDone) {
        fmt::print(stderr,
                   "veskctl: the device took the settings, and they could not be read back; try "
                   "`network read`\n");
        return status;
    }
    constexpr const char *kNames[] = {"address", "mask", "gateway"};
    for (size_t i = 0; i < std::size(kNames); ++i) {
        const std::string wanted = addressText(written.substr(4 * i));
        const std::string got = addressText(record.substr(4 * i));
        if (wanted != got) {
            fmt::print(stderr, "veskctl: the {} is {} and not {}\n", kNames[i], got, wanted);
            status = kRefused;
        }
    }
    if (status == kDone) {
        fmt::print("address, mask and gateway are set\n");
    } else {
        fmt::print(stderr, "veskctl: the interface did not take the settings; is it up, and is the "
                           "gateway in its net?\n");
    }
    fmt::print("the MAC {} is kept for the next start; now it is {}\n", macText(written.substr(12)),
               macText(record.substr(12)));
    return status;
}

int runTextRead(Line &line, const std::string &which, Milliseconds timeout)
{
    const std::string frame = frameFromText("read text " + which);
    auto answer = ask(line, frame, {}, timeout);
    if (!answer) {
        return noAnswer(line, timeout);
    }
    const int status = printReply(frame, *answer);
    if (status != kDone) {
        return status;
    }
    if (!awaitEnd(line, *answer, ']', timeout)) {
        fmt::print(stderr, "veskctl: no whole text within {} ms: {}\n", timeout.count(),
                   escape(answer->rest));
        return kNoAnswer;
    }
    fmt::print("{}\n", escape(answer->rest));
    return kDone;
}

int runTextWrite(Line &line, const std::string &which, const std::string &text,
                 Milliseconds timeout)
{
    const std::string frame = frameFromText("write text " + which);
    const Milliseconds limit = withPayload(frame, timeout);
    const auto answer = ask(line, frame, unescape(text), limit);
    return answer ? printReply(frame, *answer) : noAnswer(line, limit);
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
