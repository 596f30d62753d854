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
#include "tools/json.h"
#include "tools/manner.h"
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

void tellNoAnswer(const Line &line, Milliseconds timeout, const char *more = "")
{
    fmt::print(stderr, "veskctl: no answer within {} ms{}\n", timeout.count(),
               more[0] == '\0' ? adviceOnSilence(line) : more);
}

// `frame` is the command.
int noAnswer(const Line &line, const std::string &frame, Milliseconds timeout,
             const char *more = "")
{
    if (manner().json) {
        printJson({{"command", jsonOf(frame)}, {"reply", nullptr}});
    }
    tellNoAnswer(line, timeout, more);
    return kNoAnswer;
}

// Returns the exit status for the reply to the command in `frame`.
int statusOf(const std::string &frame, const Answer &answer)
{
    return isRefusalOf(recordOf(frame), recordOf(answer.frame)) ? kRefused : kDone;
}

// Prints the reply, and what came after it: as JSON, members of the same object.
int printReply(const std::string &frame, const Answer &answer, const Json &more = Json::object())
{
    const Rs232Command command = recordOf(frame);
    if (manner().json) {
        Json json{{"command", jsonOf(frame)}, {"reply", jsonOfReply(command, answer.frame)}};
        json.update(more);
        printJson(json);
    } else {
        const std::string meaning = describeReply(command, answer.frame);
        fmt::print("{}  {}\n", answer.frame, colored(colorOf(meaning), meaning));
    }
    return statusOf(frame, answer);
}

std::string withNextTag(const std::string &frame)
{
    std::string next = frame;
    Rs232Command command = recordOf(frame);
    ++command.tag;
    Rs232CommandToStr(&command, next.data());
    return next;
}

// The answer to the question for the network record.
struct NetworkAnswer {
    std::string frame; // of the question
    std::optional<Answer> answer;
    std::string record; // if the status is kDone
    int status;
};

// Asks. Says on standard error what is missing or wrong, and with `tellsReply` prints the reply.
NetworkAnswer readNetwork(Line &line, Milliseconds timeout, bool tellsReply)
{
    const std::string frame = frameFromText(kReadNetwork);
    NetworkAnswer read{frame, askAgain(line, frame, {}, timeout), {}, kNoAnswer};
    if (!read.answer) {
        tellNoAnswer(line, timeout);
        return read;
    }
    if (tellsReply) {
        printReply(frame, *read.answer);
    }
    if (statusOf(frame, *read.answer) != kDone) {
        read.status = kRefused;
        return read;
    }
    std::string &rest = read.answer->rest;
    if (!awaitBytes(line, *read.answer, kNetworkBlock, timeout)) {
        fmt::print(stderr, "veskctl: {} of {} bytes came after the reply within {} ms\n",
                   rest.size(), kNetworkBlock, timeout.count());
        return read;
    }
    if (withChecksum(rest.substr(0, kNetworkRecord)) != rest) {
        fmt::print(stderr, "veskctl: the network record has a wrong checksum: {}\n", escape(rest));
        return read;
    }
    read.record = rest.substr(0, kNetworkRecord);
    read.status = kDone;
    return read;
}

// The command in `frame`, its reply, and what the interface has.
void printNetworkJson(const std::string &frame, const std::optional<Answer> &answer,
                      const NetworkAnswer &read)
{
    Json json{{"command", jsonOf(frame)}, {"reply", nullptr}};
    if (answer) {
        json["reply"] = jsonOfReply(recordOf(frame), answer->frame);
    }
    if (read.status == kDone) {
        json["network"] = jsonOfNetwork(read.record);
    }
    printJson(json);
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
    auto answer = askAgain(line, frame, {}, timeout);
    if (answer && isUnclear(command, recordOf(answer->frame))) {
        // Data, or the frame was damaged on its way. That does not happen twice in a row.
        const auto second = askAgain(line, withNextTag(frame), {}, timeout);
        if (!second || !isUnclear(command, recordOf(second->frame))) {
            answer = second;
        }
    }
    if (!answer) {
        return noAnswer(line, frame, timeout,
                        isNeverAnswered(command) ? "; this command never gets one" : "");
    }
    return printReply(frame, *answer);
}

Json jsonOfNetwork(const std::string &record)
{
    return {{"address", addressText(record)},
            {"mask", addressText(record.substr(4))},
            {"gateway", addressText(record.substr(8))},
            {"mac", macText(record.substr(12))}};
}

int readNetworkRecord(Line &line, Milliseconds timeout, std::string &record)
{
    const NetworkAnswer read = readNetwork(line, timeout, false);
    record = read.record;
    return read.status;
}

int runNetworkRead(Line &line, Milliseconds timeout)
{
    const NetworkAnswer read = readNetwork(line, timeout, !manner().json);
    if (manner().json) {
        printNetworkJson(read.frame, read.answer, read);
    } else if (read.status == kDone) {
        fmt::print("address  {}\nmask     {}\ngateway  {}\nMAC      {}\n", addressText(read.record),
                   addressText(read.record.substr(4)), addressText(read.record.substr(8)),
                   macText(read.record.substr(12)));
    }
    return read.status;
}

int runNetworkWrite(Line &line, const NetworkSettings &settings, Milliseconds timeout)
{
    const std::string frame = frameFromText(kWriteNetwork);
    const Milliseconds limit = withPayload(frame, timeout);
    const std::string written = networkRecord(settings);
    const auto answer = askAgain(line, frame, withChecksum(written), limit);
    if (!answer) {
        return noAnswer(line, frame, limit);
    }
    int status = statusOf(frame, *answer);
    if (status != kDone || !manner().json) {
        printReply(frame, *answer);
    }
    if (status != kDone) {
        return status;
    }
    const NetworkAnswer read = readNetwork(line, timeout, false);
    status = read.status;
    if (manner().json) {
        printNetworkJson(frame, answer, read);
    }
    if (status != kDone) {
        fmt::print(stderr,
                   "veskctl: the device took the settings, and they could not be read back{}\n",
                   ifTyped("; try `network read`"));
        return status;
    }
    constexpr const char *kNames[] = {"address", "mask", "gateway"};
    for (size_t i = 0; i < std::size(kNames); ++i) {
        const std::string wanted = addressText(written.substr(4 * i));
        const std::string got = addressText(read.record.substr(4 * i));
        if (wanted != got) {
            fmt::print(stderr, "veskctl: the {} is {} and not {}\n", kNames[i], got, wanted);
            status = kRefused;
        }
    }
    if (status == kDone && !manner().json) {
        fmt::print("address, mask and gateway are set\n");
    } else if (status != kDone) {
        fmt::print(stderr, "veskctl: the interface did not take the settings; is it up, and is the "
                           "gateway in its net?\n");
    }
    if (manner().json) {
        return status;
    }
    fmt::print("the MAC {} is kept for the next start; now it is {}\n", macText(written.substr(12)),
               macText(read.record.substr(12)));
    return status;
}

int runTextRead(Line &line, const std::string &which, Milliseconds timeout)
{
    const std::string frame = frameFromText("read text " + which);
    auto answer = askAgain(line, frame, {}, timeout);
    if (!answer) {
        return noAnswer(line, frame, timeout);
    }
    const int status = statusOf(frame, *answer);
    if (status != kDone) {
        return printReply(frame, *answer);
    }
    if (!manner().json) {
        printReply(frame, *answer);
    }
    if (!awaitEnd(line, *answer, ']', timeout)) {
        fmt::print(stderr, "veskctl: no whole text within {} ms: {}\n", timeout.count(),
                   escape(answer->rest));
        return kNoAnswer;
    }
    if (manner().json) {
        return printReply(frame, *answer, {{"text", escape(answer->rest)}});
    }
    fmt::print("{}\n", escape(answer->rest));
    return kDone;
}

int runTextWrite(Line &line, const std::string &which, const std::string &text,
                 Milliseconds timeout)
{
    const std::string frame = frameFromText("write text " + which);
    const Milliseconds limit = withPayload(frame, timeout);
    const auto answer = askAgain(line, frame, unescape(text), limit);
    return answer ? printReply(frame, *answer) : noAnswer(line, frame, limit);
}
