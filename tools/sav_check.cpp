#include "tools/sav_check.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <system_error>
#include <tuple>

#include <fmt/format.h>

#include "control/page.h"
#include "storage/DeviceInfo.h"
#include "storage/TimeControl.h"
#include "storage/UserPref.h"
#include "storage/UserSetting.h"
#include "storage/UserSettingFile.h"
#include "storage/ViewFile.h"
#include "storage/WorkTime.h"
#include "storage/fatfs.h"
#include "storage/load_all.h"
#include "tools/errors.h"
#include "tools/json.h"
#include "tools/manner.h"
#include "tools/output.h"
#include "tools/sav_fields.h"
#include "tools/sav_ranges.h"
#include "tools/sav_store.h"
#include "tools/text.h"

namespace fs = std::filesystem;

namespace {

// Running the loaders -----------------------------------------------------------------------------

template <typename Record> std::string contentOf(const Record *record)
{
    return {reinterpret_cast<const char *>(record), sizeof *record};
}

// The numbers in the name of a file.
struct Numbers {
    int32_t first = 0;  // of the view, the page or the slot
    uint8_t second = 0; // of a page: the user mode mirror
};

// A kind of file, and its loader.
struct Loader {
    SavKind kind;
    std::string (*nameOfFile)(const Numbers &numbers);
    std::string (*operation)(const Numbers &numbers);
    // Whether the file was taken; none where the loader does not say.
    std::optional<bool> (*load)(const Numbers &numbers);
    std::string (*content)(); // of the record in memory
};

std::string numbered(const char *kind, const Numbers &numbers)
{
    return numberedFile(kind, numbers.first).text;
}

constexpr std::optional<bool> kUnsaid;

// In the order of SavKind.
// clang-format off
const Loader kLoaders[] = {
    {SavKind::kUserPref,
     [](const Numbers &) { return std::string("UserPref.sav"); },
     [](const Numbers &) { return std::string("loadUserPrefNoSave()"); },
     [](const Numbers &) { loadUserPrefNoSave(); return kUnsaid; },
     [] { return contentOf(getUserPref()); }},
    {SavKind::kDevInfo,
     [](const Numbers &) { return std::string("DevInfo.sav"); },
     [](const Numbers &) { return std::string("loadDeviceInfo()"); },
     [](const Numbers &) { loadDeviceInfo(); return kUnsaid; },
     [] { return contentOf(getDeviceInfo()); }},
    {SavKind::kSave,
     [](const Numbers &numbers) { return numbered("save", numbers); },
     [](const Numbers &numbers) { return fmt::format("loadUserSetting({})", numbers.first); },
     [](const Numbers &numbers) { return std::optional(loadUserSetting(numbers.first) != 0); },
     [] { return contentOf(GetUserSetting()); }},
    {SavKind::kView,
     [](const Numbers &numbers) { return numbered("view", numbers); },
     [](const Numbers &numbers) { return fmt::format("LoadViewSetting({})", numbers.first); },
     [](const Numbers &numbers) { return std::optional(LoadViewSetting(numbers.first) != 0); },
     [] { return contentOf(GetSaveViewSetting()); }},
    {SavKind::kPage,
     [](const Numbers &numbers) { return fmt::format("page{}_{}.sav", numbers.first, numbers.second); },
     [](const Numbers &numbers) { return fmt::format("LoadFromPage({})", numbers.first); },
     [](const Numbers &numbers) { return std::optional(LoadFromPage(static_cast<uint8_t>(numbers.first)) != 0); },
     [] { return contentOf(GetSaveViewSetting()); }},
    {SavKind::kTimeCon,
     [](const Numbers &) { return std::string("timeCon0.sav"); }, // whatever the number is
     [](const Numbers &) { return std::string("loadTimeControl(0)"); },
     [](const Numbers &) { loadTimeControl(0); return kUnsaid; },
     [] { return contentOf(GetTimeControl()); }},
    {SavKind::kWorkTime,
     [](const Numbers &) { return std::string("workTime.sav"); },
     [](const Numbers &) { return std::string("loadWorkTimeList()"); },
     [](const Numbers &) { loadWorkTimeList(); return kUnsaid; },
     [] { return contentOf(getWorkTimeList()); }},
};
// clang-format on

static_assert(std::size(kLoaders) == static_cast<size_t>(SavKind::kUnknown));

// Requires: not kUnknown.
const Loader &loaderOf(SavKind kind)
{
    return kLoaders[static_cast<size_t>(kind)];
}

constexpr uint8_t kNoView = 255; // no slot has this number

// Makes all records what they are when the daemon starts.
void forgetRecords()
{
    malloc_saveView();
    *getUserPref() = {};
    *getDeviceInfo() = {};
    *getWorkTimeList() = {};
    *GetTimeControl() = {};
    *GetUserSetting() = {};
    copyUserSetting();
    *GetSaveViewSetting() = {};
    *GetViewSetting() = {};
    _currentView = 0;
    _userMode = 0;
}

// What the daemon would have in memory before it runs the loader of a view or a page.
struct Before {
    uint8_t currentView = kNoView;
    bool hasReadView = false; // a good one
};

struct Loaded {
    std::optional<bool> isTaken;
    std::string content;
    SavRun run;
};

Loaded load(const Loader &loader, const Numbers &numbers, const SavFiles &files,
            const Before &before = {}, const std::string &blocked = "")
{
    forgetRecords();
    if (loader.kind == SavKind::kView || loader.kind == SavKind::kPage) {
        GetUserSetting()->currentView = before.currentView;
        GetUserSetting()->userModeMirror = numbers.second;
        GetSaveViewSetting()->identification = before.hasReadView ? kViewId : 0;
    }
    Loaded loaded;
    loaded.run = runOnFiles(
        files, [&] { loaded.isTaken = loader.load(numbers); }, blocked);
    loaded.content = loader.content();
    return loaded;
}

// What to load --------------------------------------------------------------------------------

std::string_view withoutFolders(std::string_view path)
{
    return path.substr(path.rfind('/') + 1); // npos + 1 is 0
}

// A number of a name, taken off its front; none if it is above `most`.
template <typename Number> std::optional<Number> takeNumber(std::string_view &text, Number most)
{
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || number > most) {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return number;
}

// The numbers in a name of that kind. None if it has none, or others than the device uses.
std::optional<Numbers> numbersOf(SavKind kind, std::string_view name)
{
    name.remove_prefix(std::min(nameOf(kind).size(), name.size()));
    if (kind == SavKind::kPage) {
        const auto page = takeNumber<int32_t>(name, UINT8_MAX);
        name.remove_prefix(std::min(size_t{1}, name.size()));
        const auto mode = takeNumber<uint8_t>(name, UINT8_MAX);
        return page && mode ? std::optional(Numbers{*page, *mode}) : std::nullopt;
    }
    const int32_t most = kind == SavKind::kView ? int32_t{kViewCount} - 1 : INT32_MAX;
    const auto number = takeNumber<int32_t>(name, most);
    return number ? std::optional(Numbers{*number, 0}) : std::nullopt;
}

bool isAtStart(const std::string &name)
{
    const std::vector<std::string> names = savNamesAtStart();
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::vector<std::string> linesOf(const std::string &text)
{
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        std::string line = text.substr(at, end - at);
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        lines.push_back(line);
        at = end + 1;
    }
    return lines;
}

void noteRun(SavFinding &finding, const SavRun &run)
{
    finding.says = linesOf(run.says);
    for (const auto &[name, content] : run.written) {
        finding.written[name] = content.size();
    }
}

// Judging a file ----------------------------------------------------------------------------------

// A file, and what the daemon has in memory after loading it, or after a reset that overwrites
// nothing, where that is known.
struct Comparison {
    std::string_view file;
    std::string before; // the file with the length that it should have
    std::string after;
    std::string fresh;
};

const std::vector<SavValue> &valuesOf(SavKind kind)
{
    static std::map<SavKind, std::vector<SavValue>> all;
    std::vector<SavValue> &values = all[kind];
    if (values.empty()) {
        values = savValues(kind);
    }
    return values;
}

std::string_view bytesOf(const SavValue &value, std::string_view bytes)
{
    return bytes.substr(value.at, value.field->bytes);
}

std::string textOf(const SavValue &value, std::string_view bytes)
{
    std::string text;
    appendText(*value.field, bytes, value.at, text);
    return text;
}

bool isWhole(const SavValue &value, std::string_view file)
{
    return value.at + value.field->bytes <= file.size();
}

bool isChanged(const SavValue &value, const Comparison &comparison)
{
    return bytesOf(value, comparison.before) != bytesOf(value, comparison.after);
}

// Those of the views in a user setting are no business of its loader.
bool isIdentification(SavKind kind, const SavValue &value)
{
    return value.field->name.ends_with("dentification") &&
           (kind != SavKind::kSave || value.name == value.field->name);
}

std::string fitted(std::string_view bytes, size_t length)
{
    std::string whole(bytes.substr(0, length));
    whole.resize(length);
    return whole;
}

// A reset gives a record its identifications, and nothing else does.
bool isReset(SavKind kind, const Comparison &comparison)
{
    const std::vector<SavValue> &values = valuesOf(kind);
    return std::any_of(values.begin(), values.end(), [&](const SavValue &value) {
        return isIdentification(kind, value) && isChanged(value, comparison);
    });
}

void judgeLength(SavFinding &finding, std::string_view file)
{
    const size_t whole = lengthOf(finding.kind);
    std::string consequence;
    if (file.size() > whole) {
        consequence = "; the rest is ignored";
    } else if (finding.kind != SavKind::kPage && finding.verdict == SavVerdict::kTaken) {
        const std::vector<SavValue> &values = valuesOf(finding.kind);
        const auto first = std::find_if_not(
            values.begin(), values.end(), [&](const auto &value) { return isWhole(value, file); });
        consequence = fmt::format("; all from {} on is 0", first->name);
    }
    finding.faults.push_back(
        {"", fmt::format("{} bytes instead of {}{}", file.size(), whole, consequence)});
}

void judgeValue(SavFinding &finding, const SavValue &value, const Comparison &comparison)
{
    const bool isNew = isChanged(value, comparison);
    if (isIdentification(finding.kind, value)) {
        if (isNew) {
            const std::string wanted = textOf(value, comparison.after);
            finding.faults.push_back(
                {value.name,
                 isWhole(value, comparison.file)
                     ? fmt::format("is {}, not {}", textOf(value, comparison.before), wanted)
                     : fmt::format("is not there; it should be {}", wanted)});
        }
        return;
    }
    if (!isWhole(value, comparison.file)) {
        return;
    }
    // What a reset overwrites can do no harm.
    if (finding.verdict == SavVerdict::kTaken || !isNew) {
        const std::string wanted = wantedInstead(value, comparison.before);
        if (!wanted.empty()) {
            finding.faults.push_back(
                {value.name,
                 fmt::format("is {}, not {}", textOf(value, comparison.before), wanted)});
        }
    }
    if (isNew) {
        finding.changed.push_back(
            {value.name, textOf(value, comparison.before), textOf(value, comparison.after)});
    } else if (!comparison.fresh.empty() &&
               bytesOf(value, comparison.after) != bytesOf(value, comparison.fresh)) {
        const std::string text = textOf(value, comparison.before);
        finding.kept.push_back({value.name, text, text});
    }
}

void judge(SavFinding &finding, const Comparison &comparison)
{
    if (comparison.file.size() != lengthOf(finding.kind)) {
        judgeLength(finding, comparison.file);
    }
    for (const SavValue &value : valuesOf(finding.kind)) {
        judgeValue(finding, value, comparison);
    }
}

void checkRecord(SavFinding &finding, const Loader &loader, const Numbers &numbers,
                 const std::string &bytes)
{
    const Loaded loaded = load(loader, numbers, {{finding.name, bytes}});
    noteRun(finding, loaded.run);
    Comparison comparison{bytes, fitted(bytes, loaded.content.size()), loaded.content, {}};
    if (!loaded.isTaken.value_or(!isReset(finding.kind, comparison))) {
        const bool isView = finding.kind == SavKind::kView;
        finding.verdict = isView ? SavVerdict::kRefused : SavVerdict::kReset;
        comparison.fresh = load(loader, numbers, {}).content;
    }
    judge(finding, comparison);
}

// What the loader does with a view also depends on what is in memory.
void noteView(SavFinding &finding, const Loader &loader, const Numbers &numbers,
              const std::string &bytes)
{
    const SavFiles files = {{finding.name, bytes}};
    if (finding.verdict == SavVerdict::kTaken) {
        const auto current = static_cast<uint8_t>(numbers.first);
        if (load(loader, numbers, files, {.currentView = current}).isTaken == false) {
            finding.notes.emplace_back(
                "no layer is visible: as the current view, it counts as not stored");
        }
    } else if (load(loader, numbers, files, {.hasReadView = true}).isTaken == true) {
        finding.notes.push_back(fmt::format("taken if the view that was read before it is a good "
                                            "one, which then gives it its last {} bytes",
                                            sizeof(ViewSetting) - bytes.size()));
    }
}

void checkPage(SavFinding &finding, const Loader &loader, const Numbers &numbers,
               const std::string &bytes)
{
    const Loaded loaded = load(loader, numbers, {{finding.name, bytes}});
    noteRun(finding, loaded.run);
    const bool isTaken = loaded.isTaken == true;
    finding.verdict = isTaken ? SavVerdict::kTaken : SavVerdict::kRefused;
    // The views as they are stored.
    Comparison comparison{bytes, fitted(bytes, lengthOf(SavKind::kPage)), {}, {}};
    comparison.after = comparison.before;
    for (uint32_t i = 0; i < kViewCount; ++i) {
        const auto stored =
            loaded.run.written.find(numberedFile("view", static_cast<int32_t>(i)).text);
        if (stored != loaded.run.written.end()) {
            comparison.after.replace(i * sizeof(ViewSetting), sizeof(ViewSetting), stored->second);
        }
    }
    judge(finding, comparison);
    if (!isTaken && !finding.written.empty()) {
        finding.notes.push_back(fmt::format("by then, the {} whole views before its end are stored",
                                            finding.written.size()));
    }
}

// Which file to load in its place, and how.
struct Target {
    const Loader &loader;
    Numbers numbers;
};

Target targetOf(SavKind kind, std::string_view path)
{
    const Loader &loader = loaderOf(kind);
    const std::string_view name = withoutFolders(path);
    const std::optional<Numbers> numbers = numbersOf(kind, name);
    if (numbers && loader.nameOfFile(*numbers) == name) {
        return {loader, *numbers};
    }
    return {loader, {}};
}

SavFinding findingFor(const Target &target, SavKind kind, const std::string &path)
{
    SavFinding finding;
    finding.path = path;
    finding.kind = kind;
    finding.name = target.loader.nameOfFile(target.numbers);
    finding.isItsName = finding.name == withoutFolders(path);
    finding.isAtStart = isAtStart(finding.name);
    finding.operation = target.loader.operation(target.numbers);
    return finding;
}

// Printing ----------------------------------------------------------------------------------------

constexpr size_t kMostListed = 8;  // of fields in a line
constexpr size_t kMostFaults = 20; // of values out of range

std::string sentenceOf(const SavFinding &finding)
{
    const std::string as = finding.isItsName ? "" : fmt::format("as {}: ", finding.name);
    if (finding.verdict == SavVerdict::kMissing) {
        return fmt::format("{}; {}", finding.faults.empty() ? "missing" : "counts as missing",
                           finding.isAtStart ? "reset at the next start" : "no start reads it");
    }
    return finding.isAtStart ? fmt::format("{}{} at the next start", as, nameOf(finding.verdict))
                             : fmt::format("{}{} by {}, which no start calls", as,
                                           nameOf(finding.verdict), finding.operation);
}

// The first of them, with commas, and how many there are beyond.
template <typename Items, typename Text>
std::string listOf(const Items &items, size_t most, Text textOfItem)
{
    std::string list;
    size_t count = 0;
    for (const auto &item : items) {
        if (count == most) {
            break;
        }
        list += (count == 0 ? "" : ", ") + textOfItem(item);
        ++count;
    }
    return items.size() > count ? fmt::format("{} and {} more", list, items.size() - count) : list;
}

void printLine(Color color, std::string_view label, const std::string &text)
{
    fmt::print("    {} {}\n", colored(color, fmt::format("{}:", label)), text);
}

void printFinding(const SavFinding &finding)
{
    const bool isWrong = !finding.faults.empty();
    if (manner().quiet && !isWrong) {
        return;
    }
    fmt::print("{}: {}\n", escape(finding.path),
               colored(isWrong ? Color::kBad : Color::kGood, sentenceOf(finding)));
    for (size_t i = 0; i < std::min(finding.faults.size(), kMostFaults); ++i) {
        const SavFault &fault = finding.faults[i];
        printLine(Color::kBad, "wrong",
                  fault.field.empty() ? fault.text : fault.field + " " + fault.text);
    }
    if (finding.faults.size() > kMostFaults) {
        printLine(Color::kBad, "wrong",
                  fmt::format("and {} more values", finding.faults.size() - kMostFaults));
    }
    if (!finding.kept.empty()) {
        printLine(Color::kFaint, "kept",
                  listOf(finding.kept, kMostListed, [](const SavChange &each) {
                      return fmt::format("{} {}", each.field, each.from);
                  }));
    }
    if (!finding.changed.empty()) {
        printLine(Color::kFaint, "changed",
                  listOf(finding.changed, kMostListed, [](const SavChange &each) {
                      return fmt::format("{} from {} to {}", each.field, each.from, each.to);
                  }));
    }
    if (!finding.written.empty()) {
        printLine(
            Color::kFaint, "written",
            listOf(finding.written, kMostListed, [](const auto &each) { return each.first; }));
    }
    for (const std::string &line : finding.says) {
        printLine(Color::kFaint, "console", line);
    }
    for (const std::string &note : finding.notes) {
        printLine(Color::kFaint, "note", note);
    }
}

Json jsonOf(const SavFinding &finding)
{
    Json json;
    json["file"] = finding.path;
    json["kind"] = nameOf(finding.kind);
    json["length"] = finding.length;
    json["record_length"] = lengthOf(finding.kind);
    json["read_as"] = finding.name;
    json["is_at_start"] = finding.isAtStart;
    json["operation"] = finding.operation;
    json["verdict"] = nameOf(finding.verdict);
    json["faults"] = Json::array();
    for (const SavFault &fault : finding.faults) {
        json["faults"].push_back(
            {{"field", fault.field.empty() ? Json() : Json(fault.field)}, {"text", fault.text}});
    }
    json["kept"] = Json::array();
    for (const SavChange &change : finding.kept) {
        json["kept"].push_back({{"field", change.field}, {"value", change.from}});
    }
    json["changed"] = Json::array();
    for (const SavChange &change : finding.changed) {
        json["changed"].push_back(
            {{"field", change.field}, {"from", change.from}, {"to", change.to}});
    }
    json["written"] = Json::array();
    for (const auto &[name, length] : finding.written) {
        json["written"].push_back({{"file", name}, {"length", length}});
    }
    json["console"] = finding.says;
    json["notes"] = finding.notes;
    return json;
}

// Prints what was found, and returns the status for it.
int report(const SavFinding &finding)
{
    if (manner().json) {
        printJson(jsonOf(finding));
    } else {
        printFinding(finding);
    }
    return finding.faults.empty() ? kDone : kRefused;
}

// Directories -------------------------------------------------------------------------------------

void complain(const std::string &message)
{
    flushOutput(); // so that the messages come where they belong
    fmt::print(stderr, "veskctl: {}\n", message);
}

// Reports what `find` finds, or why it cannot. Returns the status for it.
int reportOf(const std::function<SavFinding()> &find)
{
    SavFinding finding;
    try {
        finding = find();
    } catch (const UsageError &error) {
        complain(error.what());
        return kUsage;
    } catch (const LocalError &error) {
        complain(error.what());
        return kLocalFailure;
    }
    return report(finding);
}

SavFinding checkEntry(const std::string &path, const std::string &name)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (status.type() == fs::file_type::not_found) {
        return checkMissing(path, name,
                            fs::is_symlink(path, error) ? SavAbsence::kDanglingLink
                                                        : SavAbsence::kNothing);
    }
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        return checkMissing(path, name, SavAbsence::kNotRegular);
    }
    return checkSav(readSav(path));
}

// Files of a kind come by their numbers.
bool comesBefore(const std::string &left, const std::string &right)
{
    const auto keyOf = [](const std::string &name) {
        const SavKind kind = kindOf(name, "");
        const Numbers numbers = numbersOf(kind, name).value_or(Numbers{INT32_MAX, 0});
        return std::tuple(kind, numbers.first, numbers.second, name);
    };
    return keyOf(left) < keyOf(right);
}

int checkDirectory(const std::string &directory)
{
    std::vector<std::string> names = savNamesAtStart();
    std::vector<std::string> others;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename();
        (kindOf(name, "") == SavKind::kUnknown ? others : names).push_back(name);
    }
    if (error) {
        complain(fmt::format("cannot read {}: {}", escape(directory), error.message()));
        return kLocalFailure;
    }
    std::sort(names.begin(), names.end(), comesBefore);
    names.erase(std::unique(names.begin(), names.end()), names.end());
    int status = kDone;
    for (const std::string &name : names) {
        const std::string path =
            fmt::format("{}{}{}", directory, directory.ends_with('/') ? "" : "/", name);
        status = std::max(status, reportOf([&] { return checkEntry(path, name); }));
    }
    if (!others.empty() && !manner().quiet && !manner().json) {
        std::sort(others.begin(), others.end());
        fmt::print(
            "{}: no settings files: {}\n", escape(directory),
            listOf(others, kMostListed, [](const std::string &name) { return escape(name); }));
    }
    return status;
}

} // namespace

std::string_view nameOf(SavVerdict verdict)
{
    constexpr std::string_view kNames[] = {"taken", "reset", "refused", "missing"};
    return kNames[static_cast<size_t>(verdict)];
}

std::vector<std::string> savNamesAtStart()
{
    static const std::vector<std::string> names = [] {
        forgetRecords();
        return runOnFiles({}, [] { loadAllUserPref(); }).read;
    }();
    return names;
}

SavFinding checkSav(const SavFile &file)
{
    const Target target = targetOf(file.kind, file.path);
    SavFinding finding = findingFor(target, file.kind, file.path);
    finding.length = file.bytes.size();
    if (file.kind == SavKind::kPage) {
        checkPage(finding, target.loader, target.numbers, file.bytes);
        return finding;
    }
    checkRecord(finding, target.loader, target.numbers, file.bytes);
    if (file.kind == SavKind::kView) {
        noteView(finding, target.loader, target.numbers, file.bytes);
    }
    return finding;
}

SavFinding checkMissing(const std::string &path, const std::string &name, SavAbsence absence)
{
    const SavKind kind = kindOf(name, "");
    const Target target = targetOf(kind, name);
    SavFinding finding = findingFor(target, kind, path);
    finding.verdict = SavVerdict::kMissing;
    if (absence == SavAbsence::kDanglingLink) {
        finding.faults.push_back({"", "a link to a file that does not exist"});
    } else if (absence == SavAbsence::kNotRegular) {
        finding.faults.push_back({"", "not a regular file, which the daemon does not open"});
    }
    const std::string blocked = absence == SavAbsence::kNotRegular ? finding.name : "";
    noteRun(finding, load(target.loader, target.numbers, {}, {}, blocked).run);
    return finding;
}

int runSavCheck(const std::vector<std::string> &paths, SavKind kind)
{
    const auto check = [kind](const std::string &path) {
        std::error_code error;
        const bool isDirectory = fs::is_directory(path, error);
        if (isDirectory && kind == SavKind::kUnknown) {
            return checkDirectory(path);
        }
        return reportOf([&] {
            if (isDirectory) {
                throw UsageError(
                    fmt::format("{} is a directory; --kind is for files", escape(path)));
            }
            return checkSav(readSav(path, kind));
        });
    };
    int status = kDone;
    for (const std::string &path : paths) {
        status = std::max(status, check(path));
    }
    flushOutput();
    return status;
}
