// What web/src/core/wasm.ts calls. Bytes come with their count. A result is JSON as core.ts names
// its members, in UTF-8; it stays as it is until the next call.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <emscripten.h>
#include <sys/stat.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/address.h"
#include "tools/commands.h"
#include "tools/elf.h"
#include "tools/errors.h"
#include "tools/frames.h"
#include "tools/json.h"
#include "tools/manner.h"
#include "tools/package.h"
#include "tools/parameters.h"
#include "tools/sav_file.h"
#include "tools/status.h"
#include "tools/subcommands.h"
#include "tools/text.h"
#include "tools/timing.h"
#include "tools/version.h"
#include "web/core/end_of_run.h"

int veskctlMain(int argc, char **argv); // tools/veskctl.cpp

namespace {

// State: the directions of lines whose frames are sought, by number.
std::map<int, FrameFinder> finders;
int lastFinder = 0;

const char *kept(std::string text)
{
    static std::string last;
    last = std::move(text);
    return last.c_str();
}

std::string inOneLine(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

// Those that have a subcommand of their own for the text that follows; else "".
const char *subcommandOf(const CommandRow &row)
{
    const std::string_view name = row.name;
    return name == "read text" ? "text read" : name == "write text" ? "text write" : "";
}

// The type that the device tells, as `info` prints it.
std::string deviceType()
{
    for (const CommandRow &row : commandTable()) {
        if (std::string_view(row.name) == "read device type") {
            return fmt::format("{:0{}x}", row.answer[0].least, 2 * row.answer[0].length);
        }
    }
    return {};
}

Json jsonOf(const CommandRow &row)
{
    Json parameters = Json::array();
    for (const Field &field : row.parameters) {
        parameters.push_back({{"name", field.name},
                              {"hint", hintOn(field)},
                              {"choices", choicesOf(field)},
                              {"usual", usualText(field)}});
    }
    return {{"words", row.name},
            {"code", row.dat1 == kAnyDat1 ? fmt::format("{:02x}", row.command)
                                          : fmt::format("{:02x} {:02x}", row.command, row.dat1)},
            {"writes", row.writes},
            {"hasPayload", row.hasPayload},
            {"subcommand", subcommandOf(row)},
            {"note", row.note},
            {"parameters", parameters},
            {"usage", usageOf(row)}};
}

// Texts, each ended by a NUL.
std::vector<std::string> textsOf(const char *bytes, int size)
{
    std::vector<std::string> texts;
    for (const char *const end = bytes + size; bytes < end;) {
        texts.emplace_back(bytes);
        bytes += texts.back().size() + 1;
    }
    return texts;
}

// What a check throws, or "".
template <typename Check> std::string faultIn(Check check)
{
    try {
        check();
        return {};
    } catch (const UsageError &error) {
        return error.what();
    }
}

std::string kindOf(const std::string &frame, const std::string &meaning)
{
    const Rs232Command record = recordOf(frame);
    return record.checksum != rightChecksum(record) ? "damaged"
                                                    : meaning.substr(0, meaning.find(','));
}

std::string textOf(const std::vector<Piece> &pieces)
{
    Json json = Json::array();
    for (const Piece &piece : pieces) {
        const std::vector<uint8_t> bytes(piece.text.begin(), piece.text.end());
        const std::string meaning = piece.isFrame ? describe(piece.text) : std::string();
        json.push_back({{"isFrame", piece.isFrame},
                        {"text", piece.isFrame ? piece.text : escape(piece.text)},
                        {"hex", fmt::format("{:02x}", fmt::join(bytes, " "))},
                        {"meaning", meaning},
                        {"kind", piece.isFrame ? kindOf(piece.text, meaning) : "other"}});
    }
    return json.dump();
}

} // namespace

extern "C" {

// Runs veskctl with arguments, each ended by a NUL. Gives the exit status. If nobody has typed them
// its messages name no options and no subcommands.
EMSCRIPTEN_KEEPALIVE int runTool(const char *arguments, int size, int isTyped)
{
    manner().isTyped = isTyped != 0;
    std::vector<std::string> texts = textsOf(arguments, size);
    texts.emplace(texts.begin(), "veskctl");
    std::vector<char *> pointers;
    for (std::string &text : texts) {
        pointers.push_back(text.data());
    }
    const int count = static_cast<int>(pointers.size());
    pointers.push_back(nullptr);
    umask(S_IWGRP | S_IWOTH); // Emscripten's forbids everything
    int status = kInterrupted;
    try {
        status = veskctlMain(count, pointers.data());
    } catch (const EndOfRun &) {
        // Without a word, as at a desk.
    }
    std::fflush(nullptr); // as at the end of a program
    return status;
}

// The tool's version.
EMSCRIPTEN_KEEPALIVE const char *toolVersion()
{
    return VESK_VERSION;
}

// Facts.
EMSCRIPTEN_KEEPALIVE const char *listFacts()
{
    Json forms = Json::array();
    for (const auto &[digits, about] : commandForms()) {
        forms.push_back({{"digits", digits}, {"about", inOneLine(about)}});
    }
    return kept(Json{
        {"deviceType", deviceType()},
        {"programSizes", sizesOfPrograms()},
        {"savKinds", savKindNames()},
        {"formatClasses", formatClasses()},
        {"networkWrite", inOneLine(kNetworkWriteAbout)},
        {"commandForms",
         forms}}.dump());
}

// As people write a serial number.
EMSCRIPTEN_KEEPALIVE const char *textOfSerialNumber(int number)
{
    return kept(serialNumberText(static_cast<unsigned>(number)));
}

// An array of Command.
EMSCRIPTEN_KEEPALIVE const char *listCommands()
{
    Json json = Json::array();
    for (const CommandRow &row : commandTable()) {
        json.push_back(jsonOf(row));
    }
    return kept(json.dump());
}

// {frame, meaning, writes}, or {error}, which begins with the name of a parameter if it is about
// one.
EMSCRIPTEN_KEEPALIVE const char *frameOf(const char *text, int size)
{
    manner().isTyped = false;
    try {
        const std::string frame = frameFromText({text, static_cast<size_t>(size)});
        if (!isFrame(frame)) { // may be sent all the same
            return kept(Json{{"frame", frame}, {"meaning", ""}, {"writes", false}}.dump());
        }
        const CommandRow *const row = rowOf(recordOf(frame));
        return kept(Json{{"frame", frame},
                         {"meaning", describe(frame)},
                         {"writes", row != nullptr && row->writes}}
                        .dump());
    } catch (const UsageError &error) {
        return kept(Json{{"error", error.what()}}.dump());
    }
}

// What is wrong with address, mask, gateway and MAC address, each ended by a NUL: of each, and
// `together`.
EMSCRIPTEN_KEEPALIVE const char *faultsOf(const char *text, int size)
{
    const std::vector<std::string> given = textsOf(text, size);
    const NetworkSettings settings{given.at(0), given.at(1), given.at(2), given.at(3)};
    Json faults{{"address", faultIn([&] { bytesOfAddress(settings.address); })},
                {"mask", faultIn([&] { bytesOfMask(settings.mask); })},
                {"gateway", faultIn([&] { bytesOfAddress(settings.gateway); })},
                {"mac", faultIn([&] { bytesOfMac(settings.mac); })}};
    const bool isEachRight =
        std::all_of(faults.begin(), faults.end(), [](const Json &fault) { return fault == ""; });
    faults["together"] = isEachRight ? faultOfNetwork(settings) : std::string();
    return kept(faults.dump());
}

// A text, not JSON; "" if nothing is wrong.
EMSCRIPTEN_KEEPALIVE const char *faultOfFile(const char *file, int size)
{
    manner().isTyped = false;
    return kept(faultOfProgram({file, static_cast<size_t>(size)}, Machine::kArm));
}

// How many blocks an update with this file has. Requires: faultOfFile() finds nothing.
EMSCRIPTEN_KEEPALIVE int blocksOf(const char *file, int size)
{
    return static_cast<int>(updateStream({file, static_cast<size_t>(size)}).size() / kBlockSize);
}

// The version in a program, or "".
EMSCRIPTEN_KEEPALIVE const char *versionOf(const char *file, int size)
{
    return kept(versionIn({file, static_cast<size_t>(size)}).value_or(""));
}

// One direction of a line, in which frames are sought: its number.
EMSCRIPTEN_KEEPALIVE int newFinder()
{
    finders.try_emplace(++lastFinder);
    return lastFinder;
}

// An array of Piece.
EMSCRIPTEN_KEEPALIVE const char *feedFinder(int number, const char *bytes, int size)
{
    return kept(textOf(finders[number].feed({bytes, static_cast<size_t>(size)})));
}

EMSCRIPTEN_KEEPALIVE const char *flushFinder(int number)
{
    return kept(textOf(finders[number].flush()));
}

} // extern "C"
