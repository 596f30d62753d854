// What the daemon would do with a settings file, by its own loaders over files in memory. Offsets
// and messages are those of docs/files.md. sav_board_test.cpp compares with the loaders over real
// files.

#include "tools/sav_check.h"

#include <cstring>
#include <map>
#include <random>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "storage/load_all.h"
#include "tests/support/console.h"
#include "tests/support/files.h"
#include "tests/support/soak.h"
#include "tools/manner.h"
#include "tools/sav_fields.h"
#include "tools/sav_ranges.h"
#include "tools/sav_store.h"
#include "tools/status.h"

using namespace std::string_literals;

namespace {

using Bytes = std::string;

Bytes word(uint32_t value)
{
    Bytes bytes;
    for (int i = 0; i < 4; ++i, value >>= 8) {
        bytes += static_cast<char>(value & 0xFF);
    }
    return bytes;
}

Bytes with(Bytes bytes, size_t at, const Bytes &others)
{
    return bytes.replace(at, others.size(), others);
}

constexpr uint32_t kUserPrefWord = 0x06247638;
constexpr uint32_t kViewWord = 0x29215679;

const Bytes kUserPref =
    with(with(Bytes(56, '\0'), 0, word(kUserPrefWord)), 42, Bytes("\0\1\2\3\4\5\6\7", 8));
const Bytes kDevInfo = with(with(Bytes(20, '\0'), 0, word(0x4BCD365C)), 12, word(0x3200));
const Bytes kWorkTime = with(Bytes(24, '\0'), 20, word(0x20150321));
const Bytes kTimeCon = with(Bytes(152, '\0'), 0, word(0x201104AD));
const Bytes kView = with(with(Bytes(3996, '\0'), 3992, word(kViewWord)), 2608, "\xFF");

Bytes savedSetting()
{
    return contentOf(SOURCES "/tests/data/first-start/save0.sav");
}

Bytes sixteenViews()
{
    Bytes page;
    for (int i = 0; i < 16; ++i) {
        page += kView;
    }
    return page;
}

SavFinding check(const std::string &name, const Bytes &bytes)
{
    return checkSav({name, kindOf(name, bytes), bytes});
}

// What was found, in one line.
std::string found(const SavFinding &finding)
{
    std::string text(nameOf(finding.verdict));
    for (const SavFault &fault : finding.faults) {
        text += "; " + fault.field + (fault.field.empty() ? "" : " ") + fault.text;
    }
    for (const SavChange &kept : finding.kept) {
        text += "; kept " + kept.field + " " + kept.from;
    }
    for (const SavChange &changed : finding.changed) {
        text += "; " + changed.field + " " + changed.from + " to " + changed.to;
    }
    for (const auto &[name, length] : finding.written) {
        text += "; writes " + name + " " + std::to_string(length);
    }
    for (const std::string &note : finding.notes) {
        text += "; " + note;
    }
    return text;
}

std::string printed(const SavFinding &finding)
{
    std::string text;
    for (const std::string &line : finding.says) {
        text += line + "\n";
    }
    return text;
}

// Loading -----------------------------------------------------------------------------------------

TEST(SavCheck, AStartReadsFourFilesAndNoOther)
{
    EXPECT_EQ(savNamesAtStart(), (std::vector<std::string>{"UserPref.sav", "DevInfo.sav",
                                                           "workTime.sav", "save0.sav"}));
}

TEST(SavCheck, TellsWhatBecomesOfAFile)
{
    const Bytes setting = savedSetting();
    ASSERT_EQ(setting.size(), 11832u);
    const Bytes mine = with(with(kUserPref, 4, "\7"), 30, "\2vesk1"); // language, MAC address
    const struct {
        const char *name;
        Bytes bytes;
        std::string expected;
    } rows[] = {
        // clang-format off
        {"UserPref.sav", kUserPref, "taken"},
        {"UserPref.sav", kUserPref + "x", "taken; 57 bytes instead of 56; the rest is ignored"},
        {"UserPref.sav", kUserPref.substr(0, 51),
         "taken; 51 bytes instead of 56; all from preferenceBytes on is 0"},
        {"UserPref.sav", mine, "taken; language is 7, not 0 or 1"},
        {"UserPref.sav", with(kUserPref, 18, Bytes("\xFF\xFF\1\0", 4)),
         "taken; netMask is 255.255.1.0, not ones followed by zeros"},
        {"UserPref.sav", with(kUserPref, 45, "\5"),
         "taken; indexTable[3] is 5, not the index of the entry"},
        {"DevInfo.sav", kDevInfo, "taken"},
        {"DevInfo.sav", with(kDevInfo, 4, word(70000)),
         "taken; serialNumber is 70000, not 0 to 65535"},
        {"DevInfo.sav", with(with(kDevInfo, 4, word(70000)), 12, word(1)),
         "reset; serialNumber is 70000, not 0 to 65535; secondIdentification is 0x00000001, not "
         "0x00003200; kept serialNumber 70000"},
        {"DevInfo.sav", kDevInfo.substr(0, 7),
         "reset; 7 bytes instead of 20; secondIdentification is not there; it should be 0x00003200"},
        {"workTime.sav", kWorkTime, "taken"},
        {"workTime.sav", with(kWorkTime, 0, word(9)),
         "taken; currentAddress 9 to 0; writes workTime.sav 24"},
        {"workTime.sav", "", "reset; 0 bytes instead of 24; identification is not there; it should "
                             "be 0x20150321; writes workTime.sav 24"},
        {"save0.sav", setting, "taken"},
        {"save0.sav", with(with(setting, 1720, word(2)), 7825, "\1"), // user mode, a layer's state
         "taken; userMode is 2, not 0 or 1; userMode 2 to 0; program.layers[0].state 1 to 0"},
        {"save0.sav", with(setting, 1720, word(1)), "taken; userModeMirror 0 to 1"},
        {"save0.sav", with(with(setting, 28, "\1"), 0, "\0"s),
         "reset; identification is 0x20213600, not 0x2021365c; kept inputEnable[24] 1; "
         "writes save0.sav 11832"},
        {"save0.sav", with(setting, 2413, "\x7D"),
         "taken; extInputFormat is 125, not a video format, 0 to 127 without 125"},
        {"save7.sav", with(setting, 3715, "\x10"), "taken; currentView is 16, not 0 to 15"},
        {"timeCon0.sav", kTimeCon, "taken"},
        {"timeCon0.sav", with(kTimeCon, 0, "\0"s),
         "reset; identification is 0x20110400, not 0x201104ad; writes timeCon0.sav 152"},
        {"view3.sav", kView, "taken"},
        {"view3.sav", kView + kView, "taken; 7992 bytes instead of 3996; the rest is ignored"},
        {"view3.sav", with(kView, 2512, "\x60"), "taken; layerAlphaPos[0] is 96, not 0 to 95"},
        {"view3.sav", with(kView, 2608, "\0"s),
         "taken; no layer is visible: as the current view, it counts as not stored"},
        {"view3.sav", with(kView, 3992, "\0"s),
         "refused; identification is 0x29215600, not 0x29215679; layerAlpha[0] 255 to 0"},
        {"page3_1.sav", sixteenViews(), "taken"},
        // clang-format on
    };
    for (const auto &row : rows) {
        const SavFinding finding = check(row.name, row.bytes);
        std::string text = found(finding);
        if (finding.kind == SavKind::kView && finding.verdict == SavVerdict::kRefused) {
            text = text.substr(0, row.expected.size()); // the rest is what an empty view is
        }
        if (finding.kind == SavKind::kPage) {
            text = text.substr(0, row.expected.size());
        }
        EXPECT_EQ(text, row.expected) << row.name;
        EXPECT_TRUE(finding.isItsName) << row.name;
    }
}

TEST(SavCheck, ShowsTheDaemonsOwnWords)
{
    const struct {
        const char *name;
        Bytes bytes;
        const char *printed;
    } rows[] = {
        // clang-format off
        {"UserPref.sav", kUserPref, ""},
        {"UserPref.sav", with(kUserPref, 0, "\x39") + "x",
         "read file UserPref.sav size error: fileSize=57, readSize=56\n"
         "UserPref ID = 0x6247639\nreset userPref\n"},
        {"DevInfo.sav", "", "Device ID = 0x0\nreset Device info\n"},
        {"workTime.sav", "", ""},
        {"save0.sav", "", "reset user save\nsave save0.sav\n"},
        {"timeCon0.sav", "", "Reset Time Control\n"},
        {"view3.sav", "", "try again _LoadViewSetting_help(3)\n"},
        {"page3_1.sav", kView, "read 2 page3_1.sav fail\n"},
        // clang-format on
    };
    for (const auto &row : rows) {
        EXPECT_EQ(printed(check(row.name, row.bytes)), row.printed) << row.name;
    }
    const SavFinding finding = checkMissing("here/save0.sav", "save0.sav");
    EXPECT_EQ(found(finding), "missing; writes save0.sav 11832");
    EXPECT_EQ(printed(finding), "open file /userdata/save0.sav error\n"
                                "open file /userdata/save0.sav error\n"
                                "reset user save\nsave save0.sav\n");
}

// The first save of a first start and its second one have the same bytes.
TEST(SavCheck, AResetWritesWhatAFirstStartWrites)
{
    const SavRun run = runOnFiles({}, [] { loadAllUserPref(); });
    ASSERT_EQ(run.written.size(), 2u);
    EXPECT_TRUE(run.written.at("save0.sav") == savedSetting());
    EXPECT_EQ(run.written.at("workTime.sav"), kWorkTime);
}

TEST(SavCheck, AShortViewIsTakenAfterAGoodOneOnly)
{
    const SavFinding finding = check("view3.sav", kView.substr(0, 3000));
    EXPECT_EQ(finding.verdict, SavVerdict::kRefused);
    EXPECT_EQ(finding.notes, (std::vector<std::string>{
                                 "taken if the view that was read before it is a good one, which "
                                 "then gives it its last 996 bytes"}));
}

TEST(SavCheck, APageStoresItsWholeViewsAndGivesThemTheirIdentification)
{
    Bytes page = sixteenViews();
    page = with(page, 5 * 3996 + 3992, word(1));
    page = with(page, 6 * 3996 + 16 + 26, "\x1A"); // input of layer 1
    const SavFinding whole = check("page3_0.sav", page);
    EXPECT_EQ(whole.verdict, SavVerdict::kTaken);
    EXPECT_EQ(whole.written.size(), 16u);
    ASSERT_EQ(whole.faults.size(), 2u);
    EXPECT_EQ(whole.faults[0].field, "views[5].identification");
    EXPECT_EQ(whole.faults[0].text, "is 0x00000001, not 0x29215679");
    EXPECT_EQ(whole.faults[1].field, "views[6].layers[1].inputPort");
    EXPECT_EQ(whole.faults[1].text, "is 26, not an input, 0 to 25");
    ASSERT_EQ(whole.changed.size(), 15u); // each view gets its number, and the first has it
    EXPECT_EQ(whole.changed[14].field, "views[15].viewNumber");
    EXPECT_EQ(whole.changed[14].to, "15");

    const SavFinding cut = check("page3_0.sav", sixteenViews().substr(0, 2 * 3996 + 100));
    EXPECT_EQ(cut.verdict, SavVerdict::kRefused);
    EXPECT_EQ(cut.written,
              (std::map<std::string, size_t>{{"view0.sav", 3996}, {"view1.sav", 3996}}));
    EXPECT_EQ(cut.notes,
              (std::vector<std::string>{"by then, the 2 whole views before its end are stored"}));
}

// The state of the modules is that of the process: no file may judge the next one.
TEST(SavCheck, EachFileIsCheckedAsIfItWereTheFirst)
{
    const Bytes bad = savedSetting().substr(0, 4000);
    const std::string alone = found(check("save0.sav", bad));
    EXPECT_EQ(alone.substr(0, 5), "reset");
    check("save0.sav", savedSetting());
    EXPECT_EQ(found(check("save0.sav", bad)), alone);
    check("view3.sav", kView);
    EXPECT_EQ(check("view3.sav", kView.substr(0, 3000)).verdict, SavVerdict::kRefused);
    check("UserPref.sav", kUserPref);
    EXPECT_EQ(check("UserPref.sav", "").verdict, SavVerdict::kReset);
}

// Names -------------------------------------------------------------------------------------------

TEST(SavCheck, LoadsAFileUnderTheNameThatTheLoaderReads)
{
    const struct {
        const char *path;
        SavKind kind;
        const char *name;
        bool isItsName;
        bool isAtStart;
        const char *operation;
    } rows[] = {
        // clang-format off
        {"a/b/UserPref.sav",  SavKind::kUserPref, "UserPref.sav",  true,  true,  "loadUserPrefNoSave()"},
        {"DevInfo.sav",       SavKind::kDevInfo,  "DevInfo.sav",   true,  true,  "loadDeviceInfo()"},
        {"workTime.sav",      SavKind::kWorkTime, "workTime.sav",  true,  true,  "loadWorkTimeList()"},
        {"save0.sav",         SavKind::kSave,     "save0.sav",     true,  true,  "loadUserSetting(0)"},
        {"save12.sav",        SavKind::kSave,     "save12.sav",    true,  false, "loadUserSetting(12)"},
        {"save00.sav",        SavKind::kSave,     "save0.sav",     false, true,  "loadUserSetting(0)"},
        {"save99999999999999999999.sav",
                              SavKind::kSave,     "save0.sav",     false, true,  "loadUserSetting(0)"},
        {"backup",            SavKind::kSave,     "save0.sav",     false, true,  "loadUserSetting(0)"},
        {"view15.sav",        SavKind::kView,     "view15.sav",    true,  false, "LoadViewSetting(15)"},
        {"view16.sav",        SavKind::kView,     "view0.sav",     false, false, "LoadViewSetting(0)"},
        {"page15_1.sav",      SavKind::kPage,     "page15_1.sav",  true,  false, "LoadFromPage(15)"},
        {"page255_255.sav",   SavKind::kPage,     "page255_255.sav", true, false, "LoadFromPage(255)"},
        {"page256_0.sav",     SavKind::kPage,     "page0_0.sav",   false, false, "LoadFromPage(0)"},
        {"timeCon0.sav",      SavKind::kTimeCon,  "timeCon0.sav",  true,  false, "loadTimeControl(0)"},
        {"timeCon1.sav",      SavKind::kTimeCon,  "timeCon0.sav",  false, false, "loadTimeControl(0)"},
        // clang-format on
    };
    for (const auto &row : rows) {
        const SavFinding finding = checkSav({row.path, row.kind, "x"});
        EXPECT_EQ(finding.name, row.name) << row.path;
        EXPECT_EQ(finding.isItsName, row.isItsName) << row.path;
        EXPECT_EQ(finding.isAtStart, row.isAtStart) << row.path;
        EXPECT_EQ(finding.operation, row.operation) << row.path;
    }
}

// Files and directories ---------------------------------------------------------------------------

struct Said {
    int status;
    std::string out, err;
};

Said run(const std::vector<std::string> &paths)
{
    Console console;
    const int status = runSavCheck(paths);
    console.end();
    return {status, console.out, console.err};
}

TEST(SavCheck, PrintsTheFilesOfADirectoryAndWhatAStartMisses)
{
    std::filesystem::create_directory("/tmp/sav");
    writeFile("/tmp/sav/UserPref.sav", kUserPref);
    writeFile("/tmp/sav/workTime.sav", kWorkTime);
    writeFile("/tmp/sav/save0.sav", savedSetting());
    writeFile("/tmp/sav/view3.sav", kView);
    writeFile("/tmp/sav/test.bin", "x");
    const Said good = run({"/tmp/sav"});
    EXPECT_EQ(good.status, kDone);
    EXPECT_EQ(good.err, "");
    EXPECT_EQ(good.out, "/tmp/sav/UserPref.sav: taken at the next start\n"
                        "/tmp/sav/DevInfo.sav: missing; reset at the next start\n"
                        "    console: open file /userdata/DevInfo.sav error\n"
                        "    console: Device ID = 0x0\n"
                        "    console: reset Device info\n"
                        "/tmp/sav/save0.sav: taken at the next start\n"
                        "/tmp/sav/view3.sav: taken by LoadViewSetting(3), which no start calls\n"
                        "/tmp/sav/workTime.sav: taken at the next start\n"
                        "/tmp/sav: no settings files: test.bin\n");
    manner().quiet = true;
    EXPECT_EQ(run({"/tmp/sav"}).out, "");
    writeFile("/tmp/sav/view3.sav", kView + "x");
    const Said bad = run({"/tmp/sav/"});
    EXPECT_EQ(bad.status, kRefused);
    EXPECT_EQ(bad.out, "/tmp/sav/view3.sav: taken by LoadViewSetting(3), which no start calls\n"
                       "    wrong: 3997 bytes instead of 3996; the rest is ignored\n");
}

TEST(SavCheck, SaysWhatCannotBeReadAndChecksTheOthers)
{
    std::filesystem::create_directory("/tmp/sav");
    writeFile("/tmp/sav/UserPref.sav", kUserPref);
    writeFile("/tmp/sav/text", "no settings");
    const Said said = run({"/tmp/sav/none.sav", "/tmp/sav/text", "/tmp/sav/UserPref.sav"});
    EXPECT_EQ(said.status, kLocalFailure);
    EXPECT_EQ(said.out, "/tmp/sav/UserPref.sav: taken at the next start\n");
    EXPECT_EQ(std::count(said.err.begin(), said.err.end(), '\n'), 2) << said.err;
    EXPECT_EQ(run({"/tmp/sav/text"}).status, kUsage);
}

// The daemon opens neither: see docs/files.md.
TEST(SavCheck, ADirectoryOrAFifoWithTheNameOfAFileIsWrong)
{
    std::filesystem::create_directories("/tmp/sav/UserPref.sav");
    ASSERT_EQ(mkfifo("/tmp/sav/view3.sav", 0600), 0);
    ASSERT_EQ(mkfifo("/tmp/sav/save0.sav", 0600), 0);
    writeFile("/tmp/sav/DevInfo.sav", kDevInfo);
    writeFile("/tmp/sav/workTime.sav", kWorkTime);
    const Said said = run({"/tmp/sav"});
    EXPECT_EQ(said.status, kRefused);
    EXPECT_EQ(said.err, "");
    // Nothing can be saved under these names either.
    EXPECT_EQ(said.out, "/tmp/sav/UserPref.sav: counts as missing; reset at the next start\n"
                        "    wrong: not a regular file, which the daemon does not open\n"
                        "    console: open file /userdata/UserPref.sav error\n"
                        "    console: UserPref ID = 0x0\n"
                        "    console: reset userPref\n"
                        "/tmp/sav/DevInfo.sav: taken at the next start\n"
                        "/tmp/sav/save0.sav: counts as missing; reset at the next start\n"
                        "    wrong: not a regular file, which the daemon does not open\n"
                        "    console: open file /userdata/save0.sav error\n"
                        "    console: open file /userdata/save0.sav error\n"
                        "    console: reset user save\n"
                        "    console: save save0.sav\n"
                        "    console: open file /userdata/save0.sav error\n"
                        "    console: open file save0.sav fail\n"
                        "/tmp/sav/view3.sav: counts as missing; no start reads it\n"
                        "    wrong: not a regular file, which the daemon does not open\n"
                        "    console: open file /userdata/view3.sav error\n"
                        "    console: open file view3.sav fail\n"
                        "    console: try again _LoadViewSetting_help(3)\n"
                        "    console: open file /userdata/view3.sav error\n"
                        "    console: open file view3.sav fail\n"
                        "/tmp/sav/workTime.sav: taken at the next start\n");
}

// The daemon finds nothing where the link leads.
TEST(SavCheck, ALinkToNothingCountsAsMissing)
{
    std::filesystem::create_directory("/tmp/sav");
    std::filesystem::create_symlink("nowhere", "/tmp/sav/DevInfo.sav");
    std::filesystem::create_symlink("nowhere", "/tmp/sav/page3_0.sav");
    manner().quiet = true;
    const Said said = run({"/tmp/sav"});
    EXPECT_EQ(said.status, kRefused);
    EXPECT_EQ(said.err, "");
    EXPECT_EQ(said.out.substr(0, said.out.find("/tmp/sav/page3_0.sav")),
              "/tmp/sav/DevInfo.sav: counts as missing; reset at the next start\n"
              "    wrong: a link to a file that does not exist\n"
              "    console: open file /userdata/DevInfo.sav error\n"
              "    console: Device ID = 0x0\n"
              "    console: reset Device info\n");
    EXPECT_NE(said.out.find("/tmp/sav/page3_0.sav: counts as missing; no start reads it\n"
                            "    wrong: a link to a file that does not exist\n"),
              std::string::npos)
        << said.out;
}

// Any bytes ---------------------------------------------------------------------------------------

// Nothing that can be in a file leads to anything but a finding.
TEST(SavCheck, TakesAnyBytes)
{
    const std::vector<std::pair<std::string, Bytes>> files = {
        {"UserPref.sav", kUserPref},    {"DevInfo.sav", kDevInfo},     {"workTime.sav", kWorkTime},
        {"timeCon0.sav", kTimeCon},     {"save0.sav", savedSetting()}, {"view3.sav", kView},
        {"page3_0.sav", sixteenViews()}};
    SoakRun soak(60);
    std::mt19937 random(soak.seed);
    const auto below = [&](size_t limit) { return random() % limit; };
    while (soak.goesOn()) {
        // A page takes as long as many others.
        const auto &[name, good] = files[below(below(20) == 0 ? files.size() : files.size() - 1)];
        Bytes bytes = below(8) == 0 ? Bytes() : good;
        if (below(3) == 0) {
            bytes.resize(below(good.size() + good.size() / 4 + 2), static_cast<char>(below(256)));
        }
        for (size_t changes = below(30); changes > 0 && !bytes.empty(); --changes) {
            bytes[below(bytes.size())] = static_cast<char>(below(256));
        }
        const SavFinding finding = check(name, bytes);
        ASSERT_EQ(finding.length, bytes.size());
        // What is taken without a fault has its length and its identification.
        if (finding.faults.empty()) {
            ASSERT_EQ(finding.verdict, SavVerdict::kTaken);
            ASSERT_EQ(bytes.size(), good.size());
        }
    }
    std::cout << soak.rounds << " files" << std::endl;
}

TEST(SavRanges, KnowWhatEveryUnitMeans)
{
    size_t ranges = 0;
    for (const SavRecord &record : savRecords()) {
        for (const SavField &field : record.fields) {
            const SavUnit meaning = meaningOf(field.unit);
            EXPECT_NE(meaning, SavUnit::kUnknown) << field.name << ": " << field.unit;
            ranges += meaning == SavUnit::kRange ? 1 : 0;
        }
    }
    EXPECT_EQ(meaningOf("furlongs"), SavUnit::kUnknown);
    EXPECT_EQ(meaningOf("0 to"), SavUnit::kUnknown);
    EXPECT_EQ(meaningOf("0 to 3 or 4"), SavUnit::kUnknown);
    EXPECT_EQ(ranges, 24u); // as docs/files.md has them
}

TEST(SavRanges, AreWhatTheirTextsSay)
{
    const struct {
        const char *unit;
        std::vector<uint8_t> good, bad;
    } rows[] = {
        {"0 or 1", {0, 1}, {2, 255}},
        {"0, 1 or 2", {0, 1, 2}, {3, 255}},
        {"1, 2, 4 or 8", {1, 2, 4, 8}, {0, 3, 5, 9, 16}},
        {"0 to 15", {0, 7, 15}, {16, 255}},
        {"format", {0, 123, 124, 125, 126, 127}, {128, 255}},
        {"format, not 125", {0, 124, 126, 127}, {125, 128}},
        {"number of the input", {0, 25}, {26, 255}},
        {"entry n holds n", {3}, {0, 2, 4}}, // of entry 3
        {"0, or not 0", {0, 255}, {}},
        {"pixels", {0, 255}, {}},
    };
    for (const auto &row : rows) {
        SavField field{};
        field.unit = row.unit;
        field.form = SavForm::kUnsigned;
        field.count = 1;
        field.bytes = 1;
        const SavValue value{"table[3]", &field, 0};
        for (const uint8_t byte : row.good) {
            EXPECT_EQ(wantedInstead(value, Bytes(1, static_cast<char>(byte))), "") << row.unit;
        }
        for (const uint8_t byte : row.bad) {
            EXPECT_NE(wantedInstead(value, Bytes(1, static_cast<char>(byte))), "")
                << row.unit << ": " << int{byte};
        }
    }
}

} // namespace
