#include "tests/simulation/records.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

#include "tests/simulation/world.h"

namespace {

constexpr const char *kPaths[Records::kRecords] = {kUserPrefFile, kDevInfoFile, kSave0File,
                                                   kWorkTimeFile};

// An identification of a record.
struct Id {
    const char *path;
    size_t offset;
    uint32_t value;
};
// clang-format off
constexpr Id kIds[] = {
    {kUserPrefFile, 0,     0x06247638},
    {kDevInfoFile,  0,     0x4BCD365C},
    {kDevInfoFile,  12,    0x3200},
    {kSave0File,    0,     0x2021365C},
    {kSave0File,    11828, 0x00123456},
};
// clang-format on

uint32_t wordAt(const std::string &bytes, size_t offset)
{
    uint32_t word = 0;
    for (size_t i = 4; i-- > 0;) {
        word =
            word << 8 | (offset + i < bytes.size() ? static_cast<uint8_t>(bytes[offset + i]) : 0);
    }
    return word;
}

void setWord(std::string &bytes, size_t offset, uint32_t word)
{
    for (size_t i = 0; i < 4; ++i) {
        bytes[offset + i] = static_cast<char>(word >> 8 * i);
    }
}

std::string readData(const char *name)
{
    std::ifstream file(std::string(SIMULATION_DATA) + name, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), {}};
    if (content.empty()) {
        world->fail("test data", std::string("no ") + name);
    }
    return content;
}

// What a start writes when the file is missing or bad: the derived records of tests/data.
const std::string &startRecord(const std::string &path)
{
    static const std::string save0 = readData("save0.sav");
    static const std::string workTime = readData("workTime.sav");
    return path == kSave0File ? save0 : workTime;
}

size_t sizeOf(const std::string &path)
{
    return path == kUserPrefFile ? 56 : path == kDevInfoFile ? 20 : startRecord(path).size();
}

} // namespace

bool isTaken(const std::string &path, const std::string &content)
{
    if (path == kWorkTimeFile) { // its identification is the last word
        const std::string &good = startRecord(path);
        return wordAt(content, good.size() - 4) == wordAt(good, good.size() - 4);
    }
    return std::all_of(std::begin(kIds), std::end(kIds), [&](const Id &id) {
        return path != id.path || wordAt(content, id.offset) == id.value;
    });
}

std::string loaded(const std::string &path, const std::string &content)
{
    std::string record = content;
    record.resize(sizeOf(path), '\0');
    if (isTaken(path, content)) {
        return record;
    }
    if (path == kWorkTimeFile) {
        return startRecord(path);
    }
    if (path == kSave0File) { // the bytes that a reset leaves alone are 0xA5 in the second file of
                              // tests/data
        static const std::string over = readData("save0-over-a5.sav");
        constexpr size_t kPreview = 3812,
                         kProgram = 7808; // the preview becomes a copy of the program view
        std::string reset = startRecord(path);
        for (size_t i = 0; i < reset.size(); ++i) {
            if (over[i] == '\xA5' && reset[i] == 0) {
                reset[i] = record[i >= kPreview && i < kProgram ? i + kProgram - kPreview : i];
            }
        }
        return reset;
    }
    if (path == kDevInfoFile) {
        setWord(record, 0, 0x4BCD365C);
        record[8] = 0;
        setWord(record, 12, 0x3200);
        return record;
    }
    // The table of docs/files.md: language and fade stay if they are valid, the MAC address and the
    // padding stay.
    setWord(record, 0, 0x06247638);
    record[4] = record[4] == 1 ? 1 : 0;
    record[5] = static_cast<uint8_t>(record[5]) <= 1 ? record[5] : 1;
    static constexpr uint8_t k6[] = {0xD0, 7,   1,   1, 192, 168, 0, 100, 192, 168, 0, 1,
                                     255,  255, 255, 0, 194, 25,  2, 129, 194, 25,  2, 130};
    std::copy(std::begin(k6), std::end(k6), record.begin() + 6);
    static constexpr uint8_t k36[] = {0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 1, 0x32, 0};
    std::copy(std::begin(k36), std::end(k36), record.begin() + 36);
    return record;
}

void Records::changed(Record record, const std::string &content)
{
    State &state = states_[record];
    if (state.versions.empty() || state.versions.back() != content) {
        state.versions.push_back(content);
    }
}

void Records::settled(Record record, const std::string &version)
{
    State &state = states_[record];
    state.isInDoubt = std::exchange(state.hasFailed, false);
    const auto found = std::find(state.versions.rbegin(), state.versions.rend(), version);
    if (!state.isInDoubt && found != state.versions.rend()) {
        state.isSettled = true;
        state.versions.erase(state.versions.begin(), found.base() - 1);
        diskChanges();
    }
}

void Records::boot()
{
    for (uint8_t i = 0; i < kRecords; ++i) {
        const auto file = world->disk.get(kPaths[i]);
        State &state = states_[i];
        const std::string content = file ? file->content : std::string();
        state.isWrittenAtStart = !file || !isTaken(kPaths[i], content);
        state.nameIsInDoubt = file && !world->disk.nameIsOnMedium(kPaths[i]);
        // After a kill, what was not synced is only in the cache, so the older versions still
        // count.
        if (!state.isKnown) {
            state.versions.clear();
            state.isInDoubt = state.hasFailed = state.nameIsInDoubt = false;
            state.isKnown = true;
            state.existed = file.has_value();
            state.isSettled = file && isTaken(kPaths[i], content);
        }
        if (file && isTaken(kPaths[i], content)) {
            changed(static_cast<Record>(i), content);
        }
        changed(static_cast<Record>(i), loaded(kPaths[i], content));
    }
    const auto program = world->disk.get(kProgramFile);
    program_ = program ? program->content : std::string();
    newProgram_.clear();
    packageIsInDoubt_ = false;
    passes_ = 0;
}

void Records::passBegins()
{
    if (passes_++ == 0) { // the start has written what was missing
        for (const Record record : {kSave0, kWorkTime}) {
            if (states_[record].isWrittenAtStart) {
                settled(record, states_[record].versions.back());
            }
        }
    }
}

void Records::callFailed(Call, const std::string &object)
{
    packageIsInDoubt_ = packageIsInDoubt_ || object == kPackageFile || object == "/userdata/";
    for (uint8_t i = 0; i < kRecords; ++i) {
        if (object == kPaths[i] || object.rfind("/userdata/ ", 0) == 0 || object == "/userdata/") {
            states_[i].isInDoubt = states_[i].hasFailed = true;
            states_[i].nameIsInDoubt = true;
        }
    }
}

void Records::check(Record record, const std::optional<File> &found) const
{
    const State &state = states_[record];
    const std::string path = kPaths[record];
    if (state.isInDoubt) {
        return;
    }
    const auto isWhole = [&](const std::string &version) {
        // A file that was longer is cut to its length last; until then its beginning is the record.
        return found->content == version ||
               (version.size() == sizeOf(path) &&
                found->content.compare(0, version.size(), version) == 0);
    };
    if (found && (isWhole(state.next) ||
                  std::any_of(state.versions.begin(), state.versions.end(), isWhole))) {
        return;
    }
    if (!found && state.nameIsInDoubt) {
        return; // the daemon was killed, or a call failed, before it could sync the directory; it
                // will not again
    }
    if (!state.isSettled && (!found || !isTaken(path, found->content))) {
        return; // as before, or the next start resets it
    }
    if (!state.isSettled && record == kSave0 && (state.existed || !world->disk.hasUnnamedFiles)) {
        return; // docs/files.md: a long record can be a mixture with the bad one that it replaces;
                // where no file is without a name, with the zeros of a new file
    }
    world->fail(
        "records",
        path + " after a power cut: " + (found ? inWords(found->content) : std::string("missing")) +
            ", and was " + (state.versions.empty() ? "nothing" : inWords(state.versions.front())));
}

void Records::checkPrograms(const std::optional<File> &program, const std::optional<File> &backup,
                            const std::optional<File> &package) const
{
    const bool isExecutable = program && (program->mode & 0111) == 0111;
    const bool isWhole = program && (program->content == program_ ||
                                     (!newProgram_.empty() && program->content == newProgram_));
    if (isExecutable && isWhole) {
        return;
    }
    // In the copy's window the program may be damaged. The backup is written just before and not
    // forced to the medium either, so the package, which is, counts too.
    const bool canBeCured =
        packageIsInDoubt_ || (backup && backup->content == program_) ||
        (package && package->content == newProgram_ && (package->mode & 0111) == 0111);
    if (!world->tools.isInCopyWindow || !canBeCured) {
        world->fail("program", std::string("the program after a power cut is ") +
                                   (!program   ? "missing"
                                    : !isWhole ? "damaged"
                                               : "not executable") +
                                   (world->tools.isInCopyWindow ? " and cannot be cured" : ""));
    }
}

void Records::diskChanges()
{
    ++world->looksAtDisk;
    for (uint8_t i = 0; i < kRecords; ++i) {
        check(static_cast<Record>(i), world->disk.afterCut(kPaths[i], world->random));
    }
    checkPrograms(world->disk.afterCut(kProgramFile, world->random),
                  world->disk.afterCut(kBackupFile, world->random),
                  world->disk.afterCut(kPackageFile, world->random));
}

void Records::powerReturns()
{
    for (uint8_t i = 0; i < kRecords; ++i) {
        check(static_cast<Record>(i), world->disk.get(kPaths[i]));
        states_[i].isKnown = false;
    }
    checkPrograms(world->disk.get(kProgramFile), world->disk.get(kBackupFile),
                  world->disk.get(kPackageFile));
}
