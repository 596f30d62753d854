#include "tests/simulation/scenarios.h"

#include <cstdio>

#include "tests/simulation/frames.h"
#include "tests/simulation/random.h"

namespace {

constexpr uint64_t kShortly = 20;   // milliseconds
constexpr uint64_t kSaved = 1200;   // a change of the network settings is saved
constexpr uint64_t kApplied = 1800; // and given to the system
constexpr uint64_t kInstalled = 800;

// clang-format off
struct Row { uint8_t command, dat1, dat2; uint64_t wait; };
// The command table of docs/protocol.md, and what it refuses.
constexpr Row kRows[] = {
    {0x10, 0x11, 0, kShortly}, {0x68, 0x01, 0, kShortly}, {0x68, 0x02, 0, kShortly},
    {0x6A, 0x03, 0, kShortly}, {0x6A, 0x04, 0, kShortly}, {0x6A, 0x10, 7, kShortly}, {0x6A, 0x11, 0, kShortly},
    {0x84, 0xFF, 0xFF, kApplied}, {0x85, 0, 0, kShortly}, {0x88, 0xC0, 0xA8, kApplied}, {0x89, 0, 0, kShortly},
    {0x8C, 0xC0, 0xA8, kApplied}, {0x8D, 0, 0, kShortly},
    {0x8E, 0x02, 0, kApplied}, {0x8E, 0x02, 1, kApplied}, {0x8E, 0x03, 0, kShortly}, {0x8E, 0x05, 0, kShortly},
    {0x8E, 0x07, 0, kShortly}, {0x8E, 0x55, 0, kShortly}, {0x97, 0, 0, kShortly},
    {0x9A, 0x10, 0, kShortly}, {0x9A, 0x16, 0, kShortly}, {0x9A, 0x20, 0, kShortly}, {0x9A, 0xA1, 7, kShortly},
    {0x9A, 0xB1, 7, kShortly}, {0x9A, 0xB1, 1, kShortly}, {0x9A, 0x33, 0, kShortly},
    {0xF1, 0x20, 0, kShortly}, {0xF1, 0x21, 0, kShortly}, {0xF3, 0x09, 0, kShortly}, {0xF3, 0x38, 0, kShortly},
    {0x73, 0, 0, kShortly},
};
// clang-format on

Action say(const std::string &bytes, uint64_t wait)
{
    return {Action::kSay, wait, bytes};
}

std::string commandOf(const Row &row)
{
    return frame({0, 0x21, row.command, row.dat1, row.dat2, 9, 4});
}

std::string withLength(uint8_t command, uint8_t dat1, const std::string &payload)
{
    return frame({0, 0x22, command, dat1, 0, static_cast<uint8_t>(payload.size()), 0}) + payload;
}

// A package as the PC sends it, in blocks of 1024 bytes, of which the first begins with a header.
std::vector<Action> package(size_t length, bool isRight)
{
    constexpr size_t kHeader = 128;
    constexpr size_t kBlock = 1024;
    Random random(length);
    std::string program = random.bytes(length);
    program.resize((length + kHeader + kBlock - 1) / kBlock * kBlock - kHeader, '\0');
    uint32_t sum = isRight ? 0 : 1;
    for (const char byte : program) {
        sum += static_cast<uint8_t>(byte);
    }
    std::string stream(kHeader, '\0');
    stream[50] = static_cast<char>(length >> 8);
    stream[51] = static_cast<char>(length);
    stream[80] = static_cast<char>(sum >> 8);
    stream[81] = static_cast<char>(sum);
    stream += program;
    std::vector<Action> plan;
    for (size_t at = 0; at < stream.size(); at += kBlock) {
        const bool isLast = at + kBlock == stream.size();
        plan.push_back(say(frame({0, 0x23, 0x9A, 0xA0, 7, static_cast<uint8_t>(at / kBlock), 0}) +
                               withSum(stream.substr(at, kBlock)),
                           isLast ? kInstalled : 0));
    }
    return plan;
}

std::vector<Scenario> makeScenarios()
{
    std::vector<Scenario> all = {
        {"start", "start-new", FirstDay::none, {}},
        {"start", "start-bad", FirstDay::bad, {}},
        {"start", "start-stored", FirstDay::stored, {}},
    };
    for (const Row &row : kRows) {
        char name[24];
        std::snprintf(name, sizeof name, "%02x-%02x-%02x", row.command, row.dat1, row.dat2);
        all.push_back({"a row of the command table",
                       name,
                       FirstDay::stored,
                       {say(commandOf(row), row.wait)}});
    }
    // The network record of docs/protocol.md: address, mask, gateway, and a MAC address.
    const std::string network = withSum(std::string(
        "\xC0\xA8\x01\x05\xFF\xFF\xFF\x00\xC0\xA8\x01\x01\x02\x03\x04\x05\x06\x07", 18));
    all.insert(
        all.end(),
        {
            {"data and texts",
             "f0-network",
             FirstDay::stored,
             {say(withLength(0xF0, 0x20, network), kApplied)}},
            {"data and texts",
             "f0-long",
             FirstDay::stored,
             {say(withLength(0xF0, 0x20, withSum(std::string(60, 'd'))), kShortly)}},
            {"data and texts",
             "f0-other",
             FirstDay::stored,
             {say(withLength(0xF0, 0x21, withSum(std::string(30, 'd'))), kShortly)}},
            {"data and texts",
             "f0-missing",
             FirstDay::stored,
             {say(frame({0, 0x22, 0xF0, 0x20, 0, 19, 0}), 12000)}},
            {"data and texts",
             "f2-text",
             FirstDay::stored,
             {say(frame({0, 0x24, 0xF2, 9, 0, 0, 0}) + "[a=1, key=22,x=-3]", kShortly)}},
            {"data and texts",
             "f2-missing",
             FirstDay::stored,
             {say(frame({0, 0x24, 0xF2, 9, 0, 0, 0}), 2000)}},
            {"an update", "update-small", FirstDay::stored, package(800, true)},
            {"an update", "update", FirstDay::stored, package(4321, true)},
            {"an update", "update-on-a-new-device", FirstDay::none, package(2000, true)},
            {"an update", "update-wrong", FirstDay::stored, package(1800, false)},
            {"a PC", "datagram", FirstDay::stored, {{Action::kDatagram, 1, {}}}},
            {"a PC",
             "bridge",
             FirstDay::stored,
             {{Action::kDatagram, 1, {}},
              say("the board says", 200),
              {Action::kManyDatagrams, 2, {}},
              say("something else", 200)}},
            // The names of a new device's files are made, too.
            {"a save",
             "save-preferences",
             FirstDay::none,
             {say(commandOf({0x88, 10, 1, 0}), kSaved)}},
            {"a save",
             "save-dhcp-at-once",
             FirstDay::none,
             {say(commandOf({0x8E, 2, 0, 0}), kApplied),
              say(commandOf({0x8E, 2, 1, 0}), kApplied)}},
            {"a save",
             "save-device-information",
             FirstDay::none,
             {say(commandOf({0x6A, 0x10, 1, 0}), kShortly)}},
            {"a save",
             "save-twice",
             FirstDay::stored,
             {say(commandOf({0x84, 255, 255, 0}), kSaved), say(commandOf({0x8C, 10, 0, 0}), kSaved),
              say(commandOf({0x6A, 0x10, 3, 0}), kShortly)}},
            {"a save",
             "save-over-bad-files",
             FirstDay::bad,
             {say(commandOf({0x6A, 0x10, 2, 0}), 0), say(commandOf({0x88, 10, 1, 0}), kSaved)}},
        });
    return all;
}

} // namespace

const std::vector<Scenario> &scenarios()
{
    static const std::vector<Scenario> all = makeScenarios();
    return all;
}
