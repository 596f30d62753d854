#include "tools/info.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <string>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/errors.h"
#include "tools/exchange.h"
#include "tools/frames.h"
#include "tools/json.h"
#include "tools/manner.h"
#include "tools/output.h"
#include "tools/subcommands.h"

namespace {

// A value and the command that reads it. Halves of a MAC address are put together.
struct Question {
    const char *key;   // in JSON
    const char *label; // in the table
    const char *command;
    const char *field; // of the answer
};

// 89 makes the device take over what the system has, so it is asked for stored settings only, and
// first. The record behind F1 takes one command for what the interface has now.
// clang-format off
constexpr Question kDevice[] = {
    {"device_type",      "device type",      "read device type",      "device type"},
    {"protocol_version", "protocol version", "read protocol version", "version"},
    {"system_version",   "system version",   "read system version",   "version"},
    {"serial_number",    "serial number",    "read serial number",    "serial number"},
    {"program_version",  "program version",  "update version 07",     "version"},
    {"block_size",       "update block",     "update block size 07",  "block size"},
    {"dhcp",             "DHCP",             "read DHCP",             "dhcp"},
};
constexpr Question kStored[] = {
    {"address", "stored address", "read IP address",               "ip"},
    {"mask",    "stored mask",    "read net mask",                 "mask"},
    {"gateway", "stored gateway", "read gateway",                  "gw"},
    {"mac",     "stored MAC",     "read MAC address, first half",  "mac"},
    {"mac",     "stored MAC",     "read MAC address, last half",   "mac"},
};
constexpr Question kNetwork[] = {
    {"address", "address", nullptr, nullptr},
    {"mask",    "mask",    nullptr, nullptr},
    {"gateway", "gateway", nullptr, nullptr},
    {"mac",     "MAC",     nullptr, nullptr},
};
// clang-format on

class Info {
public:
    Info(Line &line, Milliseconds timeout) : line_(line), timeout_(timeout) {}

    int run(bool stored);

private:
    Json ask(const Question &question);
    Json network();
    void print(std::span<const Question> questions, const Json &values) const;
    void lacks(const char *what, const std::string &why, int status);

    Line &line_;
    Milliseconds timeout_;
    int status_ = kDone;
};

void Info::lacks(const char *what, const std::string &why, int status)
{
    fmt::print(stderr, "veskctl: {}: {}\n", what, why);
    status_ = std::max(status_, status);
}

// The value, or null.
Json Info::ask(const Question &question)
{
    const std::string frame = frameFromText(question.command);
    const Rs232Command command = recordOf(frame);
    const auto answer =
        askAgain(line_, frame, {}, std::max(timeout_, Milliseconds{rowOf(command)->timeoutMs}));
    if (!answer) {
        const bool isFirst = question.key == kDevice[0].key;
        lacks(question.label, fmt::format("no answer{}", isFirst ? adviceOnSilence(line_) : ""),
              kNoAnswer);
        return nullptr;
    }
    const Rs232Command reply = recordOf(answer->frame);
    if (isRefusalOf(command, reply)) {
        lacks(question.label, "refused", kRefused);
        return nullptr;
    }
    for (const Field &field : rowOf(command)->answer) {
        if (std::string_view(field.name) == question.field) {
            return valueOf(field, reply);
        }
    }
    return nullptr;
}

Json Info::network()
{
    std::string record;
    const int status = readNetworkRecord(line_, timeout_, record);
    status_ = std::max(status_, status);
    return status == kDone ? jsonOfNetwork(record) : Json();
}

// A value that came in no answer is a dash.
std::string textOf(const std::string &key, const Json &value)
{
    if (value.is_null()) {
        return "-";
    }
    if (key == "serial_number") {
        return serialNumberText(value.get<unsigned>());
    }
    if (key == "block_size") {
        return fmt::format("{} bytes", value.get<unsigned>());
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? "on" : "off";
    }
    return value.get<std::string>();
}

void Info::print(std::span<const Question> questions, const Json &values) const
{
    std::string before;
    for (const Question &question : questions) {
        if (question.key != before) {
            const Json value = values.is_null() ? Json() : values[question.key];
            fmt::print("{:<16}  {}\n", question.label, textOf(question.key, value));
        }
        before = question.key;
    }
}

int Info::run(bool stored)
{
    Json device;
    for (const Question &question : kDevice) {
        device[question.key] = ask(question);
        if (device.size() == 1 && status_ == kNoAnswer) {
            return kNoAnswer; // nor would it answer the others
        }
    }
    // What the system does not know is no version.
    Json &system = device["system_version"];
    if (system == "0.0" || system == "255.255") {
        system = nullptr;
    }
    device["network"] = network();
    if (stored) {
        Json values;
        for (const Question &question : kStored) {
            const Json value = ask(question);
            Json &place = values[question.key];
            const bool isSecondHalf = place.is_string() && value.is_string();
            place = isSecondHalf ? Json(place.get<std::string>() + ":" + value.get<std::string>())
                                 : value;
        }
        device["stored"] = values;
    }
    if (manner().json) {
        printJson(device);
        return status_;
    }
    print(kDevice, device);
    print(kNetwork, device["network"]);
    if (stored) {
        print(kStored, device["stored"]);
    }
    flushOutput();
    return status_;
}

} // namespace

int runInfo(Line &line, bool stored, Milliseconds timeout)
{
    return Info(line, timeout).run(stored);
}
