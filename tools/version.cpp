#include "tools/version.h"

#include <algorithm>
#include <memory>

#include <fmt/format.h>

#include "tools/elf.h"
#include "tools/errors.h"
#include "tools/file.h"
#include "tools/json.h"
#include "tools/manner.h"
#include "tools/output.h"

namespace {

constexpr char kAbout[] = "Print the version of an executable of the daemon";
constexpr char kFooter[] =
    "FILE is a whole executable of vesk_h264 for any processor; it is read and not run. The version is\n"
    "that of the program, which is apart from the protocol's.\n"
    "\n"
    "Examples:\n"
    "  veskctl version build/arm/vesk_h264\n"
    "  veskctl version --json /usr/bin/vesk_h264 | jq -r .version";

constexpr std::string_view kMark = "@(#)vesk_h264 "; // as src/core/version.cpp has it
constexpr size_t kLongest = 32;

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

// The text up to its NUL; "" if that is no version.
std::string_view versionAt(std::string_view text)
{
    const std::string_view version = text.substr(0, text.substr(0, kLongest + 1).find('\0'));
    const bool isVersion =
        version.size() < text.size() && version.size() <= kLongest && !version.empty() &&
        isDigit(version.front()) && isDigit(version.back()) &&
        std::all_of(version.begin(), version.end(),
                    [](char character) { return isDigit(character) || character == '.'; });
    return isVersion ? version : std::string_view();
}

int runVersion(const std::string &file)
{
    const std::string program = contentOf(file);
    const std::string fault = faultOfProgram(program, Machine::kAny);
    if (!fault.empty()) {
        throw UsageError(fmt::format("{} is no program for a device: {}", file, fault));
    }
    const auto version = versionIn(program);
    if (!version) {
        throw UsageError(fmt::format(
            "{} carries no version: it is another program, or older than version 1.0.0", file));
    }
    if (manner().json) {
        printJson(Json{{"file", file}, {"version", *version}, {"machine", machineOf(program)}});
    } else {
        printText(fmt::format("vesk_h264 {} for {}\n", *version, machineOf(program)));
    }
    return kDone;
}

} // namespace

std::vector<Choice> addVersionCommands(CLI::App &app)
{
    const auto file = std::make_shared<std::string>();
    CLI::App *const version = app.add_subcommand("version", kAbout);
    version->footer(kFooter);
    version->add_option("FILE", *file, "The executable")->required();
    return {{version, [file] { return runVersion(*file); }}};
}

std::optional<std::string> versionIn(std::string_view program)
{
    for (size_t at = program.find(kMark); at != std::string_view::npos;
         at = program.find(kMark, at + 1)) {
        const std::string_view version = versionAt(program.substr(at + kMark.size()));
        if (!version.empty()) {
            return std::string(version);
        }
    }
    return std::nullopt;
}
