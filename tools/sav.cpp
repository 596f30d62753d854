#include "tools/sav.h"

#include <algorithm>
#include <memory>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/errors.h"
#include "tools/file.h"
#include "tools/manner.h"
#include "tools/output.h"
#include "tools/sav_check.h"
#include "tools/sav_draw.h"
#include "tools/sav_json.h"
#include "tools/sav_table.h"
#include "tools/text.h"

namespace {

// A text of a page is 30 times as long as its file.
constexpr size_t kLongestText = 64 * kLongestSav;

constexpr char kAbout[] = "Look at settings files and change them, on this computer";
constexpr char kFooter[] =
    "The files are those of /userdata/ on the device (docs/files.md): UserPref.sav, DevInfo.sav,\n"
    "save0.sav, view0.sav, page0_0.sav, timeCon0.sav and workTime.sav. Under another name a file is\n"
    "known by its identification; --kind names the kind if that is damaged. A file is written whole\n"
    "or not at all.\n"
    "\n"
    "Examples:\n"
    "  veskctl sav dump UserPref.sav\n"
    "  veskctl sav dump --json view3.sav | jq '.fields.layers[0]'\n"
    "  veskctl sav diff save0.sav save0.sav.old\n"
    "  veskctl sav set view3.sav 'layers[0].windowX=960' 'layerAlpha[0]=255'\n"
    "  veskctl sav edit save0.sav";

constexpr char kDumpAbout[] = "Print files by chapter and field";
constexpr char kDumpFooter[] =
    "Chapters, fields and units are those of docs/files.md. Bytes of unknown meaning are hexadecimal.\n"
    "With --json each file is one object on a line, of which `make` makes the file again, byte for\n"
    "byte, also if it is too short or too long; docs/schema/ has a schema for each kind.\n"
    "\n"
    "Examples:\n"
    "  veskctl sav dump UserPref.sav DevInfo.sav\n"
    "  veskctl sav dump --json save0.sav | jq .fields.customResolution";

constexpr char kMakeAbout[] = "Make a file of what `dump --json` has printed";
constexpr char kMakeFooter[] =
    "\"length\", \"rest\" and \"file\" may be missing: then the file is whole. FILE may be - for\n"
    "standard input, and SAVFILE - for standard output.\n"
    "\n"
    "Examples:\n"
    "  veskctl sav make view3.json -o view3.sav\n"
    "  veskctl sav dump --json view3.sav | jq '.fields.viewNumber = 4' |\n"
    "      veskctl sav make - -o view4.sav";

constexpr char kDiffAbout[] = "Print the fields that differ between two files of one kind";
constexpr char kDiffFooter[] = "Exit status: 0 the same, 1 different, 2 something went wrong.\n"
                               "\n"
                               "Examples:\n"
                               "  veskctl sav diff save0.sav /tmp/save0.sav\n"
                               "  veskctl sav diff --kind view view3.sav backup/view3";

constexpr char kSetAbout[] = "Set fields of a file";
constexpr char kSetFooter[] =
    "FIELD is a name as `dump` prints it. A number is decimal, or hexadecimal with 0x; bytes of unknown\n"
    "meaning are two digits each. An array takes all its values with commas between them, or one with\n"
    "its number in brackets. What has changed is printed.\n"
    "\n"
    "Examples:\n"
    "  veskctl sav set UserPref.sav dhcpEnable=0 ipAddress=192.168.0.55\n"
    "  veskctl sav set save0.sav 'outputTiming[3].hStart=128' 'program.layerAlpha[0]=255'";

constexpr char kEditAbout[] = "Change a file as JSON in an editor";
constexpr char kEditFooter[] =
    "The editor is $VISUAL or $EDITOR, or vi. If the text is not that of a settings file afterwards, the\n"
    "message says where, the text is kept, and the file stays as it was.\n"
    "\n"
    "Examples:\n"
    "  veskctl sav edit view3.sav\n"
    "  veskctl sav edit --kind save /tmp/save0";

constexpr char kCheckAbout[] =
    "Say what the device will do with files, and what is wrong with them";
constexpr char kCheckFooter[] =
    "The device's own loaders are run on each file, as if it had just been started: the file is taken,\n"
    "or the defaults replace it and some of its fields are kept. In a directory, it checks the files\n"
    "whose names the device uses.\n"
    "Exit status: 1 if anything is wrong, such as a length, an identification or a value out of range.\n"
    "\n"
    "Examples:\n"
    "  veskctl sav check /mnt/userdata\n"
    "  veskctl sav check --json save0.sav | jq .faults";

constexpr char kDrawAbout[] = "Draw what a device would show, as SVG";
constexpr char kDrawFooter[] =
    "A view, the 16 views of a page, or the program and the preview of a user setting: the visible\n"
    "layers where they lie on the outputs, with their inputs, sizes, crops, order and transparency.\n"
    "For views and pages, the sizes of outputs and inputs are those of a save0.sav in the same\n"
    "directory. PICTURE may be - for standard output.\n"
    "\n"
    "Examples:\n"
    "  veskctl sav draw view3.sav -o view3.svg\n"
    "  veskctl sav draw save0.sav -o - | rsvg-convert -o save0.png";

constexpr char kSchemaAbout[] = "Print the JSON Schema of what `dump --json` prints";
constexpr char kSchemaFooter[] = "Examples:\n"
                                 "  veskctl sav schema view >view.schema.json\n"
                                 "  veskctl sav schema save | jq -r '.definitions | keys[]'";

// A value before and after, as a line or as JSON.
std::string lineOfChange(std::string_view name, const std::string &before, const std::string &after)
{
    const auto orDash = [](const std::string &text) { return text.empty() ? "-" : text; };
    return manner().json ? fmt::format("{{\"field\":\"{}\",\"before\":{},\"after\":{}}}\n", name,
                                       before, after)
                         : fmt::format("{}: {} -> {}\n", name, orDash(before), orDash(after));
}

// Prints what differs between two files of one kind.
void printChanges(const SavFile &before, const SavFile &after)
{
    const auto append = manner().json ? appendJson : appendText;
    std::string lines;
    for (const SavValue &value : savValues(before.kind)) {
        std::string a;
        std::string b;
        append(*value.field, before.bytes, value.at, a);
        append(*value.field, after.bytes, value.at, b);
        if (a != b) {
            lines += lineOfChange(value.name, a, b);
        }
    }
    const auto lengthOf = [](const SavFile &file) { return std::to_string(file.bytes.size()); };
    if (lengthOf(before) != lengthOf(after)) {
        lines += lineOfChange("length", lengthOf(before), lengthOf(after));
    }
    const auto restOf = [](const SavFile &file) {
        const std::string digits = hexOf(std::string_view(file.bytes).substr(endOfSavValues(file)));
        return manner().json ? '"' + digits + '"' : digits;
    };
    if (restOf(before) != restOf(after)) {
        lines += lineOfChange("rest", restOf(before), restOf(after));
    }
    printText(lines);
}

// "outputTiming[3].hStart=128"
void assign(SavFile &file, const std::string &assignment)
{
    const size_t equals = assignment.find('=');
    if (equals == std::string::npos) {
        throw UsageError(fmt::format("\"{}\" is not FIELD=VALUE", escape(assignment)));
    }
    const std::string name = assignment.substr(0, equals);
    const std::string text = assignment.substr(equals + 1);
    const std::vector<SavValue> values = findValues(file.kind, name);
    std::vector<std::string> parts;
    if (values.size() == 1) {
        parts.push_back(text);
    } else {
        for (size_t at = 0; at <= text.size();) {
            const size_t end = std::min(text.find_first_of(", ", at), text.size());
            if (end > at) {
                parts.push_back(text.substr(at, end - at));
            }
            at = end + 1;
        }
    }
    if (parts.size() != values.size()) {
        throw UsageError(fmt::format("\"{}\" has {} value{}; {} needs {}", escape(text),
                                     parts.size(), parts.size() == 1 ? "" : "s", name,
                                     values.size()));
    }
    for (size_t i = 0; i < values.size(); ++i) {
        const SavValue &value = values[i];
        const size_t count = bytesThere(*value.field, file.bytes, value.at);
        if (count == 0 || (count < value.field->bytes && value.field->form != SavForm::kBytes)) {
            throw UsageError(fmt::format("{} ends before {}: it has {} bytes", escape(file.path),
                                         value.name, file.bytes.size()));
        }
        try {
            storeText(*value.field, parts[i], file.bytes, value.at);
        } catch (const UsageError &error) {
            throw UsageError(fmt::format("{}: {}", value.name, error.what()));
        }
    }
}

// What the user has chosen.
struct SavOptions {
    std::vector<std::string> files;
    std::string file;
    std::string other;
    std::vector<std::string> assignments;
    std::string kind;
};

} // namespace

int runSavDump(const std::vector<std::string> &files, SavKind kind)
{
    int status = kDone;
    const auto report = [&status](const std::exception &error, int which) {
        flushOutput();
        fmt::print(stderr, "veskctl: {}\n", error.what());
        status = std::max(status, which);
    };
    bool isFirst = true;
    for (const std::string &path : files) {
        SavFile file;
        try {
            file = readSav(path, kind);
        } catch (const UsageError &error) {
            report(error, kUsage);
            continue;
        } catch (const LocalError &error) {
            report(error, kLocalFailure);
            continue;
        }
        const std::string text = manner().json ? jsonOfSav(file, SavLayout::kOneLine) + '\n'
                                               : (isFirst ? "" : "\n") + tableOfSav(file);
        printText(text);
        isFirst = false;
    }
    return status;
}

int runSavMake(const std::string &source, const std::string &file)
{
    const std::string text =
        source == "-" ? contentOf("/dev/stdin") : readRegular(source, "a JSON text", kLongestText);
    const SavFile made = savOfJson(text, source == "-" ? "standard input" : escape(source));
    const SavKind kind = kindOf(file, "");
    if (kind != SavKind::kUnknown && kind != made.kind) {
        throw UsageError(fmt::format("{} is the name of a {} file, and {} has a {}", escape(file),
                                     nameOf(kind), escape(source), nameOf(made.kind)));
    }
    if (file == "-") {
        printText(made.bytes);
    } else {
        replaceFile(file, made.bytes);
    }
    return kDone;
}

int runSavDiff(const std::string &before, const std::string &after, SavKind kind)
{
    try {
        const SavFile a = readSav(before, kind);
        const SavFile b = readSav(after, kind);
        if (a.kind != b.kind) {
            throw UsageError(fmt::format("{} is a {} file and {} a {} file", escape(before),
                                         nameOf(a.kind), escape(after), nameOf(b.kind)));
        }
        if (a.bytes == b.bytes) {
            return kDone;
        }
        printChanges(a, b);
        flushOutput();
        return kRefused;
    } catch (const LocalError &error) {
        throw UsageError(error.what());
    }
}

int runSavSet(const std::string &path, const std::vector<std::string> &assignments, SavKind kind)
{
    const SavFile before = readSav(path, kind);
    SavFile after = before;
    for (const std::string &assignment : assignments) {
        assign(after, assignment);
    }
    if (after.bytes != before.bytes) {
        replaceFile(path, after.bytes);
        printChanges(before, after);
    } else if (!manner().quiet) {
        fmt::print(stderr, "veskctl: nothing was changed\n");
    }
    return kDone;
}

int runSavSchema(SavKind kind)
{
    printText(schemaOfSav(kind) + '\n');
    return kDone;
}

std::vector<Choice> addSavCommands(CLI::App &app)
{
    const auto options = std::make_shared<SavOptions>();
    CLI::App *const sav = app.add_subcommand("sav", kAbout);
    sav->footer(kFooter);
    sav->require_subcommand(1);
    const auto add = [sav](const char *name, const char *about, const char *footer) {
        CLI::App *const command = sav->add_subcommand(name, about);
        command->footer(footer);
        return command;
    };
    const auto addKind = [&options](CLI::App *command) {
        command
            ->add_option("--kind", options->kind,
                         fmt::format("What the file is, whatever its name: {}",
                                     fmt::join(savKindNames(), ", ")))
            ->type_name("KIND")
            ->check(CLI::IsMember(savKindNames()).description(""));
    };

    CLI::App *const dump = add("dump", kDumpAbout, kDumpFooter);
    dump->add_option("FILE", options->files, "The files")->required();
    addKind(dump);

    CLI::App *const make = add("make", kMakeAbout, kMakeFooter);
    make->add_option("FILE", options->file, "The JSON text")->required();
    make->add_option("-o,--output", options->other, "The settings file")
        ->required()
        ->type_name("SAVFILE");

    CLI::App *const diff = add("diff", kDiffAbout, kDiffFooter);
    diff->add_option("A", options->file, "One file")->required();
    diff->add_option("B", options->other, "The other one")->required();
    addKind(diff);

    CLI::App *const set = add("set", kSetAbout, kSetFooter);
    set->add_option("FILE", options->file, "The file")->required();
    set->add_option("FIELD=VALUE", options->assignments, "What to set")->required();
    addKind(set);

    CLI::App *const edit = add("edit", kEditAbout, kEditFooter);
    edit->add_option("FILE", options->file, "The file")->required();
    addKind(edit);

    CLI::App *const check = add("check", kCheckAbout, kCheckFooter);
    check->add_option("FILE", options->files, "The files, and directories with files")->required();
    addKind(check);

    CLI::App *const draw = add("draw", kDrawAbout, kDrawFooter);
    draw->add_option("FILE", options->file, "A view, a page or a user setting")->required();
    draw->add_option("-o,--output", options->other, "The picture")
        ->required()
        ->type_name("PICTURE");
    addKind(draw);

    CLI::App *const schema = add("schema", kSchemaAbout, kSchemaFooter);
    schema
        ->add_option("KIND", options->kind,
                     fmt::format("What the file is: {}", fmt::join(savKindNames(), ", ")))
        ->required()
        ->check(CLI::IsMember(savKindNames()).description(""));

    const auto kind = [options] { return kindOfName(options->kind); };
    return {
        {dump, [=] { return runSavDump(options->files, kind()); }},
        {make, [=] { return runSavMake(options->file, options->other); }},
        {diff, [=] { return runSavDiff(options->file, options->other, kind()); }},
        {set, [=] { return runSavSet(options->file, options->assignments, kind()); }},
        {edit, [=] { return runSavEdit(options->file, kind()); }},
        {check, [=] { return runSavCheck(options->files, kind()); }},
        {draw, [=] { return runSavDraw(options->file, options->other, kind()); }},
        {schema, [=] { return runSavSchema(kind()); }},
    };
}
