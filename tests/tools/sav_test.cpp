// Settings files: every field has a place in every form, and every byte comes back.

#include "tools/sav_file.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <random>
#include <regex>
#include <set>
#include <span>

#include <gtest/gtest.h>

#include "tests/support/soak.h"
#include "tests/tools/complaint.h"
#include "tools/file.h"
#include "tools/sav_fields.h"
#include "tools/sav_json.h"
#include "tools/sav_table.h"

namespace fs = std::filesystem;

namespace {

std::string headingOf(std::string_view chapter)
{
    return "# " + std::string(chapter) + '\n';
}

constexpr SavKind kKinds[] = {SavKind::kUserPref, SavKind::kDevInfo, SavKind::kSave,
                              SavKind::kView,     SavKind::kPage,    SavKind::kTimeCon,
                              SavKind::kWorkTime};

// "RECORD NAME" of every line of a field, read from the files as text.
std::set<std::string> linesOfFields()
{
    const std::regex line("RECORD_FIELD(_IN)?\\((\\w+), \\d+, [\\w\\[\\]]+, \\d+, (\\w+).*\\)");
    std::set<std::string> found;
    for (const fs::directory_entry &entry : fs::directory_iterator(SOURCES "/src/storage")) {
        std::ifstream file(entry.path());
        std::smatch match;
        for (std::string text; entry.path().extension() == ".def" && std::getline(file, text);) {
            if (std::regex_match(text, match, line)) {
                found.insert(match[2].str() + ' ' + match[3].str());
            }
        }
    }
    return found;
}

// The same of the record and its parts.
void collect(const SavRecord &record, std::set<std::string> &found)
{
    for (const SavField &field : record.fields) {
        found.insert(std::string(record.name) + ' ' + std::string(field.name));
        if (field.record != nullptr) {
            collect(*field.record, found);
        }
    }
}

TEST(SavFields, EveryLineOfARecordIsAFieldOfAFile)
{
    std::set<std::string> found;
    for (const SavKind kind : kKinds) {
        collect(savRecordOf(kind), found);
    }
    EXPECT_EQ(found.erase("Page views"), 1u); // has no line
    EXPECT_EQ(found, linesOfFields());
    EXPECT_GT(found.size(), 170u);
}

TEST(SavFields, TheValuesOfAFileHaveEachByteOnce)
{
    for (const SavKind kind : kKinds) {
        size_t end = 0;
        for (const SavValue &value : savValues(kind)) {
            EXPECT_EQ(value.at, end) << value.name;
            end = value.at + value.field->bytes;
        }
        EXPECT_EQ(end, lengthOf(kind)) << nameOf(kind);
        EXPECT_EQ(savRecordOf(kind).bytes, lengthOf(kind)) << nameOf(kind);
    }
}

TEST(SavFields, AValueIsFoundByItsName)
{
    for (const SavKind kind : kKinds) {
        size_t count = 0;
        for (const SavValue &value : savValues(kind)) {
            if (count++ % (kind == SavKind::kPage ? 97 : 1) != 0) {
                continue;
            }
            const std::vector<SavValue> found = findValues(kind, value.name);
            ASSERT_EQ(found.size(), 1u) << value.name;
            EXPECT_EQ(found[0].name, value.name);
            EXPECT_EQ(found[0].at, value.at) << value.name;
            EXPECT_EQ(found[0].field, value.field) << value.name;
        }
    }
}

// Offsets from the tables of docs/files.md.
TEST(SavFields, NamesAreThoseOfTheDocument)
{
    struct Row {
        SavKind kind;
        const char *name;
        size_t at;
        size_t bytes;
        size_t count;
    };
    // clang-format off
    constexpr Row kRows[] = {
        {SavKind::kUserPref, "identification",                     0,     4, 1},
        {SavKind::kUserPref, "dns[1]",                             26,    4, 1},
        {SavKind::kUserPref, "dns",                                22,    4, 2},
        {SavKind::kUserPref, "mac",                                30,    6, 1},
        {SavKind::kUserPref, "padding",                            53,    3, 1},
        {SavKind::kDevInfo,  "secondIdentification",               12,    4, 1},
        {SavKind::kSave,     "inputTiming[5].hActive",             150,   2, 1},
        {SavKind::kSave,     "program.layers[7].windowWidth",      8022,  2, 1},
        {SavKind::kSave,     "outputTiming[3].hStart",             1814,  2, 1},
        {SavKind::kSave,     "settingValue3776",                   3776,  8, 1},
        {SavKind::kSave,     "groupAreas[23].height",              3660,  4, 1},
        {SavKind::kSave,     "preview.rs1.second[5].halves[1].byte11", 6987, 1, 1},
        {SavKind::kSave,     "trailingIdentification",             11828, 4, 1},
        {SavKind::kView,     "containers[23].settingByte15",       3991,  1, 1},
        {SavKind::kView,     "layerAlpha",                         2608,  1, 96},
        {SavKind::kView,     "other.settingBytes9",                2713,  5, 1},
        {SavKind::kPage,     "views[15].viewNumber",               62682, 1, 1},
        {SavKind::kTimeCon,  "entries",                            6,     144, 1},
        {SavKind::kWorkTime, "counters[1]",                        16,    4, 1},
    };
    // clang-format on
    for (const Row &row : kRows) {
        const std::vector<SavValue> found = findValues(row.kind, row.name);
        ASSERT_EQ(found.size(), row.count) << row.name;
        EXPECT_EQ(found[0].at, row.at) << row.name;
        EXPECT_EQ(found[0].field->bytes, row.bytes) << row.name;
    }
}

TEST(SavFields, AWrongNameIsRefusedWithWhatIsPossible)
{
    struct Row {
        const char *name;
        const char *complaint;
    };
    // clang-format off
    constexpr Row kRows[] = {
        {"",                  "\"\" is not a field of a view file"},
        {"layer[3].windowX",  "\"layer\" is not a field of a view file (did you mean \"layers\"?)"},
        {"layers[3].windwX",  "\"windwX\" is not a field of layers[3] (did you mean \"windowX\"?)"},
        {"layers.windowX",    "there are several layers: layers[0] to layers[95]"},
        {"layers",            "there are several layers: layers[0] to layers[95]"},
        {"layers[96].state",  "\"layers[96]\": the numbers of layers go from 0 to 95"},
        {"layers[-1].state",  "\"layers[-1]\": the numbers of layers go from 0 to 95"},
        {"layers[].state",    "\"layers[]\": the numbers of layers go from 0 to 95"},
        {"layers[1 ].state",  "\"layers[1\\x20]\": the numbers of layers go from 0 to 95"},
        {"layers[1.state",    "\"layers[1\" has no closing bracket"},
        {"layers[1]",         "layers[1] is a record; its fields are inputPort, state, layerBytes2, sourceX, sourceY, "
                              "sourceWidth, sourceHeight, windowX, windowY, windowWidth, windowHeight, layerBytes20, "
                              "layerBytes23"},
        {"viewNumber[0]",     "viewNumber is a single value; it has no number"},
        {"viewNumber.x",      "viewNumber is a value; it has no field \"x\""},
        {"rs1[0].first[0].word0", "rs1 is a single value; it has no number"},
        {".viewNumber",       "\"\" is not a field of a view file"},
    };
    // clang-format on
    for (const Row &row : kRows) {
        EXPECT_EQ(complaintOf([&row] { findValues(SavKind::kView, row.name); }), row.complaint);
    }
}

// Kinds -------------------------------------------------------------------------------------------

std::string contentWith(size_t length, size_t at, uint32_t identification)
{
    std::string bytes(length, '\0');
    if (length >= at + sizeof(identification)) {
        std::memcpy(bytes.data() + at, &identification, sizeof(identification));
    }
    return bytes;
}

TEST(SavKinds, TheNameDecides)
{
    struct Row {
        const char *name;
        SavKind kind;
    };
    // clang-format off
    constexpr Row kRows[] = {
        {"UserPref.sav",            SavKind::kUserPref},
        {"/userdata/DevInfo.sav",   SavKind::kDevInfo},
        {"./save0.sav",             SavKind::kSave},
        {"save15.sav",              SavKind::kSave},
        {"view3.sav",               SavKind::kView},
        {"page3_0.sav",             SavKind::kPage},
        {"page15_1.sav",            SavKind::kPage},
        {"timeCon0.sav",            SavKind::kTimeCon},
        {"workTime.sav",            SavKind::kWorkTime},
        {"userpref.sav",            SavKind::kUnknown},
        {"UserPref.sav.old",        SavKind::kUnknown},
        {"UserPref0.sav",           SavKind::kUnknown},
        {"save.sav",                SavKind::kUnknown},
        {"save-1.sav",              SavKind::kUnknown},
        {"page3.sav",               SavKind::kUnknown},
        {"page3_.sav",              SavKind::kUnknown},
        {"page_0.sav",              SavKind::kUnknown},
        {"view3.sav/",              SavKind::kUnknown},
        {"view3.sav/x",             SavKind::kUnknown},
        {"",                        SavKind::kUnknown},
    };
    // clang-format on
    for (const Row &row : kRows) {
        EXPECT_EQ(kindOf(row.name, ""), row.kind) << row.name;
        EXPECT_EQ(kindOf(row.name, contentWith(20, 0, 0x4BCD365C)),
                  row.kind == SavKind::kUnknown ? SavKind::kDevInfo : row.kind)
            << row.name;
    }
}

TEST(SavKinds, UnderAnotherNameTheIdentificationAndTheLengthDecide)
{
    struct Row {
        size_t length;
        size_t at;
        uint32_t identification;
        SavKind kind;
    };
    // clang-format off
    constexpr Row kRows[] = {
        {56,    0,    0x06247638, SavKind::kUserPref},
        {4,     0,    0x06247638, SavKind::kUserPref},
        {99,    0,    0x06247638, SavKind::kUserPref},
        {3,     0,    0x06247638, SavKind::kUnknown},
        {20,    0,    0x4BCD365C, SavKind::kDevInfo},
        {11832, 0,    0x2021365C, SavKind::kSave},
        {11831, 0,    0x2021365C, SavKind::kSave},
        {152,   0,    0x201104AD, SavKind::kTimeCon},
        {24,    20,   0x20150321, SavKind::kWorkTime},
        {23,    20,   0x20150321, SavKind::kUnknown},
        {3996,  3992, 0x29215679, SavKind::kView},
        {4000,  3992, 0x29215679, SavKind::kView},
        {3995,  3992, 0x29215679, SavKind::kUnknown},
        {63936, 3992, 0x29215679, SavKind::kPage},
        {63936, 63932, 0x29215679, SavKind::kPage},
        {63900, 3992, 0x29215679, SavKind::kPage},
        {56,    1,    0x06247638, SavKind::kUnknown},
        {0,     0,    0x06247638, SavKind::kUnknown},
    };
    // clang-format on
    for (const Row &row : kRows) {
        EXPECT_EQ(kindOf("copy", contentWith(row.length, row.at, row.identification)), row.kind)
            << row.length << " bytes, " << row.at;
    }
}

// There and back ----------------------------------------------------------------------------------

std::string roundTrip(SavKind kind, const std::string &bytes, SavLayout layout)
{
    const SavFile back = savOfJson(jsonOfSav({"file", kind, bytes}, layout), "text");
    return back.kind == kind ? back.bytes : "another kind";
}

TEST(SavJson, FilesOfEveryLengthComeBack)
{
    std::mt19937 random(1);
    for (const SavKind kind : kKinds) {
        const size_t length = lengthOf(kind);
        std::string bytes(length + 20, '\0');
        std::generate(bytes.begin(), bytes.end(),
                      [&random] { return static_cast<char>(random()); });
        // Of long files some lengths, and those around the end.
        for (size_t count = 0; count <= bytes.size(); ++count) {
            if (length < 200 || count < 8 || (count + 2 > length && count < length + 3) ||
                count % (length / 8) == 1) {
                const std::string file = bytes.substr(0, count);
                ASSERT_EQ(roundTrip(kind, file, SavLayout::kOneLine), file)
                    << nameOf(kind) << ' ' << count;
            }
        }
    }
}

// Every settings file among the data of the tests, and every value that the fuzz targets found to
// matter, whatever it means.
std::vector<std::string> testFiles()
{
    std::vector<std::string> contents;
    for (const char *const folder : {SOURCES "/tests/data", SOURCES "/tests/fuzz/corpus/sav"}) {
        for (const fs::directory_entry &entry : fs::recursive_directory_iterator(folder)) {
            if (entry.is_regular_file()) {
                contents.push_back(contentOf(entry.path()));
            }
        }
    }
    return contents;
}

TEST(SavJson, EveryFileOfTheTestsComesBackAsEveryKind)
{
    const std::vector<std::string> contents = testFiles();
    EXPECT_GT(contents.size(), 30u);
    size_t count = 0;
    for (const std::string &content : contents) {
        for (const SavKind kind : kKinds) {
            if (kind == SavKind::kPage && count++ % 8 != 0) {
                continue; // they take long
            }
            const std::string file = content.substr(0, kLongestSav);
            ASSERT_EQ(roundTrip(kind, file, SavLayout::kOneLine), file);
        }
    }
}

// A file of some length: whole mostly, else cut or too long.
std::string randomFile(SavKind kind, const std::vector<std::string> &seeds, std::mt19937 &random)
{
    const size_t length = lengthOf(kind);
    const unsigned how = random() % 8;
    std::string bytes(how < 4    ? length
                      : how == 4 ? length + random() % 64
                                 : random() % (length + 1),
                      '\0');
    switch (random() % 4) {
    case 0: // senseless
        std::generate(bytes.begin(), bytes.end(),
                      [&random] { return static_cast<char>(random()); });
        break;
    case 1: // extreme
        std::generate(bytes.begin(), bytes.end(), [&random] {
            constexpr char kBytes[] = {'\0', '\x01', '\x7F', '\x80', '\xFF', '\xF0'};
            return kBytes[random() % std::size(kBytes)];
        });
        break;
    default: { // a real one, changed here and there
        const std::string &seed = seeds[random() % seeds.size()];
        bytes.replace(0, std::min(seed.size(), bytes.size()), seed, 0,
                      std::min(seed.size(), bytes.size()));
        for (unsigned changes = bytes.empty() ? 0 : random() % 16; changes > 0; --changes) {
            bytes[random() % bytes.size()] = static_cast<char>(random());
        }
    }
    }
    return bytes;
}

// `count` files of these kinds, which are equally frequent.
void expectToComeBack(std::span<const SavKind> kinds, uint32_t count)
{
    std::mt19937 random(soakNumber("VESK_SOAK_SEED", 20250321));
    const std::vector<std::string> seeds = testFiles();
    std::map<SavKind, uint32_t> done;
    for (uint32_t i = 0; i < count; ++i) {
        const SavKind kind = kinds[random() % kinds.size()];
        const std::string file = randomFile(kind, seeds, random);
        const SavLayout layout = random() % 2 == 0 ? SavLayout::kOneLine : SavLayout::kIndented;
        ASSERT_EQ(roundTrip(kind, file, layout), file) << i;
        done[kind] += 1;
    }
    for (const auto &[kind, number] : done) {
        std::cout << number << " files of the kind " << nameOf(kind) << '\n';
    }
}

// VESK_SAV_FILES=1000000 and the like are for more of them. A long one takes as long as many short
// ones.
TEST(SavJson, RandomShortFilesComeBack)
{
    constexpr SavKind kShort[] = {SavKind::kUserPref, SavKind::kDevInfo, SavKind::kTimeCon,
                                  SavKind::kWorkTime};
    expectToComeBack(kShort, soakNumber("VESK_SAV_FILES", 20000));
}

TEST(SavJson, RandomLongFilesComeBack)
{
    constexpr SavKind kLong[] = {SavKind::kSave, SavKind::kView, SavKind::kView, SavKind::kView,
                                 SavKind::kView};
    expectToComeBack(kLong, soakNumber("VESK_SAV_LONG_FILES", 150));
    constexpr SavKind kPages[] = {SavKind::kPage};
    expectToComeBack(kPages, soakNumber("VESK_SAV_PAGES", 5));
}

// Values ------------------------------------------------------------------------------------------

// The text of a value whose bytes are `bytes`, and "-" if it has none.
std::string textOf(SavKind kind, const char *name, const std::string &bytes)
{
    const SavValue value = findValues(kind, name).at(0);
    std::string text;
    appendText(*value.field, std::string(value.at, '\0') + bytes, value.at, text);
    return text.empty() ? "-" : text;
}

// clang-format off
TEST(SavValues, HaveTheTextOfTheirKind)
{
    struct Row {
        SavKind kind;
        const char *name;
        std::string bytes;
        const char *text;
    };
    using namespace std::string_literals;
    const Row kRows[] = {
        {SavKind::kUserPref, "identification",    "\x38\x76\x24\x06"s,                 "0x06247638"},
        {SavKind::kUserPref, "language",          "\xFF"s,                             "255"},
        {SavKind::kUserPref, "preferenceWord",    "\xD0\x07"s,                         "2000"},
        {SavKind::kUserPref, "preferenceWord",    "\xD0"s,                             "-"},
        {SavKind::kUserPref, "ipAddress",         "\xC0\xA8\x00\x64"s,                 "192.168.0.100"},
        {SavKind::kUserPref, "ipAddress",         "\xC0\xA8\x00"s,                     "-"},
        {SavKind::kUserPref, "netMask",           "\xFF\x00\xFF\x01"s,                 "255.0.255.1"},
        {SavKind::kUserPref, "dns[1]",            "\xC2\x19\x02\x82"s,                 "194.25.2.130"},
        {SavKind::kUserPref, "mac",               "\x02\x76\x65\x73\x6B\x01"s,         "02:76:65:73:6b:01"},
        {SavKind::kUserPref, "reserved37",        "\xA5"s,                             "0xa5"},
        {SavKind::kUserPref, "preferenceBytes",   "\x01\x32\x00"s,                     "013200"},
        {SavKind::kUserPref, "preferenceBytes",   "\x01\x32"s,                         "0132"},
        {SavKind::kUserPref, "padding",           ""s,                                 "-"},
        {SavKind::kDevInfo,  "serialNumber",      "\xFF\xFF\xFF\xFF"s,                 "4294967295"},
        {SavKind::kSave,     "groupAreas[0].width", "\xFE\xFF\xFF\xFF"s,               "-2"},
        {SavKind::kView,     "containers[0].settingWord4", "\x00\x80"s,                "-32768"},
        {SavKind::kSave,     "settingValue3776",  "\0\0\0\0\0\0\0\0"s,                 "0.0"},
        {SavKind::kSave,     "settingValue3776",  "\0\0\0\0\0\0\0\x80"s,               "-0.0"},
        {SavKind::kSave,     "settingValue3776",  "\0\0\0\0\0\0\xF8\x3F"s,             "1.5"},
        {SavKind::kSave,     "settingValue3776",  "\x9A\x99\x99\x99\x99\x99\xB9\x3F"s, "0.1"},
        {SavKind::kSave,     "settingValue3776",  "\0\0\0\0\0\0\xF0\x7F"s,             "0x7ff0000000000000"},
        {SavKind::kSave,     "settingValue3776",  "\1\0\0\0\0\0\xF0\xFF"s,             "0xfff0000000000001"},
        {SavKind::kSave,     "settingValue3776",  "\1\0\0\0\0\0\0\0"s,                 "5e-324"},
    };
    for (const Row &row : kRows) {
        EXPECT_EQ(textOf(row.kind, row.name, row.bytes), row.text) << row.name;
    }
}

// The bytes that `text` stores in a value, as hexadecimal digits; or the complaint.
std::string stored(SavKind kind, const char *name, const std::string &text)
{
    const SavValue value = findValues(kind, name).at(0);
    std::string bytes(lengthOf(kind), '\xA5');
    std::string complaint = complaintOf([&] { storeText(*value.field, text, bytes, value.at); });
    std::string others = bytes;
    others.replace(value.at, value.field->bytes, value.field->bytes, '\xA5');
    EXPECT_EQ(others, std::string(lengthOf(kind), '\xA5')) << name;
    if (complaint != "accepted") {
        EXPECT_EQ(bytes, others) << name;
        return complaint;
    }
    return hexOf(bytes.substr(value.at, value.field->bytes));
}

TEST(SavValues, AreTakenFromTextOrRefusedWithWhatIsPossible)
{
    struct Row {
        SavKind kind;
        const char *name;
        const char *text;
        const char *result;
    };
    constexpr Row kRows[] = {
        {SavKind::kView,     "layers[0].windowX", "960",        "c003"},
        {SavKind::kView,     "layers[0].windowX", "0x3C0",      "c003"},
        {SavKind::kView,     "layers[0].windowX", "65535",      "ffff"},
        {SavKind::kView,     "layers[0].windowX", "65536",      "\"65536\" is not a number from 0 to 65535"},
        {SavKind::kView,     "layers[0].windowX", "-1",         "\"-1\" is not a number from 0 to 65535"},
        {SavKind::kView,     "layers[0].windowX", "",           "\"\" is not a number from 0 to 65535"},
        {SavKind::kView,     "layers[0].windowX", "12px",       "\"12px\" is not a number from 0 to 65535"},
        {SavKind::kView,     "layers[0].windowX", "0x",         "\"0x\" is not a number from 0 to 65535"},
        {SavKind::kView,     "layers[0].windowX", "0x-1",       "\"0x-1\" is not a number from 0 to 65535"},
        {SavKind::kView,     "layers[0].windowX", "1.0",        "\"1.0\" is not a number from 0 to 65535"},
        {SavKind::kView,     "layers[0].windowX", "99999999999999999999", "\"99999999999999999999\" is not a number from 0 to 65535"},
        {SavKind::kView,     "containers[0].settingWord4", "-32768", "0080"},
        {SavKind::kView,     "containers[0].settingWord4", "32768", "\"32768\" is not a number from -32768 to 32767"},
        {SavKind::kView,     "viewByte0",         "0xff",       "ff"},
        {SavKind::kView,     "viewByte0",         "50",         "32"},
        {SavKind::kView,     "viewByte0",         "256",        "\"256\" is not a number from 0x00 to 0xff"},
        {SavKind::kView,     "identification",    "0x29215679", "79562129"},
        {SavKind::kView,     "reserved1",         "000102030405060708090a0b0c0d0e", "000102030405060708090a0b0c0d0e"},
        {SavKind::kView,     "layers[9].layerBytes2", "0A 0b",  "0a0b"},
        {SavKind::kView,     "layers[9].layerBytes2", "0a0",    "\"0a0\" is not 4 hexadecimal digits"},
        {SavKind::kView,     "layers[9].layerBytes2", "0a0g",   "\"0a0g\" is not 4 hexadecimal digits"},
        {SavKind::kUserPref, "ipAddress",         "10.0.0.7",   "0a000007"},
        {SavKind::kUserPref, "ipAddress",         "10.0.0",     "\"10.0.0\" is not an address such as 192.168.0.100"},
        {SavKind::kUserPref, "netMask",           "255.0.255.0", "ff00ff00"},
        {SavKind::kUserPref, "mac",               "2:0:0:0:0:1", "020000000001"},
        {SavKind::kSave,     "settingValue3776",  "-0.0",       "0000000000000080"},
        {SavKind::kSave,     "settingValue3776",  "-0",         "0000000000000080"},
        {SavKind::kSave,     "settingValue3776",  "1.5",        "000000000000f83f"},
        {SavKind::kSave,     "settingValue3776",  "0x7ff8000000000001", "010000000000f87f"},
        {SavKind::kSave,     "settingValue3776",  "inf",        "\"inf\" is neither a number nor 0x with 16 hexadecimal digits"},
        {SavKind::kSave,     "settingValue3776",  "0x7ff8",     "\"0x7ff8\" is neither a number nor 0x with 16 hexadecimal digits"},
        {SavKind::kSave,     "settingValue3776",  "1e999",      "\"1e999\" is neither a number nor 0x with 16 hexadecimal digits"},
    };
    for (const Row &row : kRows) {
        EXPECT_EQ(stored(row.kind, row.name, row.text), row.result) << row.name << '=' << row.text;
    }
}

// JSON that is wrong ------------------------------------------------------------------------------

constexpr char kWorkTime[] = R"({"kind": "workTime", "fields": {"currentAddress": 0, "addresses": [0, 0],
  "counters": [1, 2], "identification": "0x20150321"}})";

TEST(SavJson, WhatPeopleWriteIsTaken)
{
    const std::string expected = hexOf(savOfJson(kWorkTime, "text").bytes);
    EXPECT_EQ(expected, "000000000000000000000000010000000200000021031520");
    const char *const same[] = {
        R"({"fields": {"identification": 538247969, "counters": ["0x1", "2"], "addresses": [0, 0],
            "currentAddress": "0"}, "rest": "", "length": 24, "kind": "workTime", "file": 7})",
        " \n{\"kind\":\"workTime\",\"fields\":{\"currentAddress\":0,\"addresses\":[0,0],\"counters\":[1,2],"
        "\"identification\":\"0x20150321\"},\"rest\":null,\"length\":null}\n\n",
    };
    for (const char *const text : same) {
        EXPECT_EQ(hexOf(savOfJson(text, "text").bytes), expected);
    }
}

TEST(SavJson, WhatIsWrongIsToldWithItsPlace)
{
    struct Row {
        const char *what; // is replaced in the text above
        const char *with;
        const char *complaint;
    };
    constexpr Row kRows[] = {
        {"[1, 2]",            "[1, 2",         "F: line 2, column 38: syntax error while parsing array - unexpected ':'; expected ']'"},
        {"\"workTime\"",      "workTime",      "F: line 1, column 10: syntax error while parsing value - invalid literal; last read: '\"kind\": w'"},
        {"\"workTime\"",      "\"worktime\"",  "F: \"kind\" must be one of UserPref, DevInfo, save, view, page, timeCon, workTime"},
        {"\"kind\"",          "\"sort\"",      "F: \"sort\" is not a key of a settings file; those are file, kind, length, fields, rest"},
        {"\"kind\": \"workTime\", ", "",       "F: \"kind\" must be one of UserPref, DevInfo, save, view, page, timeCon, workTime"},
        {"\"currentAddress\": 0, ", "",        "F: currentAddress is missing"},
        {"currentAddress",    "curentAddress", "F: \"curentAddress\" is not a field of \"fields\" (did you mean \"currentAddress\"?)"},
        {"\"counters\"",      "\"x\": 0, \"counters\"", "F: \"x\" is not a field of \"fields\""},
        {"[1, 2]",            "[1, 2, 3]",     "F: counters is not an array of 2 values"},
        {"[1, 2]",            "{\"a\": 1}",    "F: counters is not an array of 2 values"},
        {"[1, 2]",            "[1, 4294967296]", "F: counters[1]: \"4294967296\" is not a number from 0 to 4294967295"},
        {"[1, 2]",            "[1, 18446744073709551615]", "F: counters[1]: \"9223372036854775807\" is not a number from 0 to 4294967295"},
        {"[1, 2]",            "[1, 1.5]",      "F: counters[1]: \"1.5\" is not a number from 0 to 4294967295"},
        {"[1, 2]",            "[1, -1]",       "F: counters[1]: \"-1\" is not a number from 0 to 4294967295"},
        {"[1, 2]",            "[1, null]",     "F: counters[1]: \"null\" is not a number from 0 to 4294967295"},
        {"[1, 2]",            "[1, true]",     "F: counters[1]: \"true\" is not a number from 0 to 4294967295"},
        {"[1, 2]",            "[1, [2]]",      "F: counters[1] is an array, not a value"},
        {"[1, 2]",            "[1, {}]",       "F: counters[1] is an object, not a value"},
        {"[1, 2]",            "[1, 1e999]",    "F: number overflow parsing '1e999'"},
        {"\"0x20150321\"",    "\"0x120150321\"", "F: identification: \"4833215265\" is not a number from 0x00 to 0xffffffff"},
        {"\"fields\"",        "\"length\": 16, \"fields\"", "F: counters[1] must be null: a file of 16 bytes ends before it"},
        {"\"fields\"",        "\"length\": 25, \"fields\"", "F: \"rest\" must be 2 hexadecimal digits, for the bytes from 24 to the end of a file of 25 bytes"},
        {"\"fields\"",        "\"rest\": \"00\", \"fields\"", "F: \"rest\" must be 0 hexadecimal digits, for the bytes from 24 to the end of a file of 24 bytes"},
        {"\"fields\"",        "\"length\": -1, \"fields\"", "F: \"length\" must be a number of bytes, 1048576 at most"},
        {"\"fields\"",        "\"length\": 1048577, \"fields\"", "F: \"length\" must be a number of bytes, 1048576 at most"},
        {"\"fields\"",        "\"rest\"",      "F: \"fields\" is missing"},
    };
    for (const Row &row : kRows) {
        std::string text = kWorkTime;
        const size_t at = text.find(row.what);
        ASSERT_NE(at, std::string::npos) << row.what;
        text.replace(at, std::string_view(row.what).size(), row.with);
        EXPECT_EQ(complaintOf([&text] { savOfJson(text, "F"); }), row.complaint) << text;
    }
    EXPECT_EQ(complaintOf([] { savOfJson("[]", "F"); }), "F: this is not an object with \"kind\" and \"fields\"");
    EXPECT_EQ(complaintOf([] { savOfJson(R"({"kind": "workTime", "fields": 7})", "F"); }), "F: \"fields\" is not an object");
    // The text is not read to its end.
    EXPECT_EQ(complaintOf([] { savOfJson(std::string(5000000, '['), "F"); }), "F: arrays and objects are nested more than 32 deep");
    EXPECT_EQ(complaintOf([] { savOfJson(std::string(33, '['), "F"); }), "F: arrays and objects are nested more than 32 deep");
    EXPECT_EQ(complaintOf([] { savOfJson(std::string(32, '[') + "x", "F"); }).find("F: line 1, column 33: "), 0u);
    EXPECT_EQ(complaintOf([] { savOfJson("", "F"); }).find("F: line 1, column 1: "), 0u);
    EXPECT_EQ(complaintOf([] { savOfJson("{\n\n  \"a\" 1", "F"); }).find("F: line 3, column 7: "), 0u);
}
// clang-format on

// Whatever the text, it is a file or the user is told.
TEST(SavJson, SenselessTextsAreRefused)
{
    std::mt19937 random(3);
    const std::string texts[] = {
        kWorkTime,
        jsonOfSav({"x", SavKind::kUserPref, std::string(50, '\1')}, SavLayout::kOneLine),
        jsonOfSav({"x", SavKind::kDevInfo, std::string(30, '\1')}, SavLayout::kIndented),
    };
    const std::string parts[] = {"null",
                                 "[",
                                 "]",
                                 "{",
                                 "}",
                                 ",",
                                 "\"",
                                 ":",
                                 "-",
                                 "1e999",
                                 "1e-99",
                                 "true",
                                 "\"kind\"",
                                 "9999999999999999999999",
                                 "\\u0000",
                                 "\xFF",
                                 "\"length\":5,",
                                 "\"\""};
    size_t accepted = 0;
    for (int i = 0; i < 3000; ++i) {
        std::string text = texts[random() % std::size(texts)];
        for (size_t changes = 1 + random() % 3; changes > 0; --changes) {
            text.replace(random() % text.size(), random() % 4, parts[random() % std::size(parts)]);
        }
        accepted += complaintOf([&text] { savOfJson(text, "F"); }) == "accepted" ? 1U : 0U;
    }
    EXPECT_LT(accepted, 1000u);
}

// A view is made of records within records: the place is a name that findValues() takes.
TEST(SavJson, APlaceIsANameOfTheDump)
{
    std::string text =
        jsonOfSav({"x", SavKind::kView, std::string(3996, '\0')}, SavLayout::kOneLine);
    const size_t layer = text.find("{\"inputPort\"", text.find("{\"inputPort\"") + 1);
    text.replace(text.find("\"windowX\":0", layer), 11, "\"windowX\":-7");
    EXPECT_EQ(complaintOf([&text] { savOfJson(text, "F"); }),
              "F: layers[1].windowX: \"-7\" is not a number from 0 to 65535");
}

// Schemas -----------------------------------------------------------------------------------------

TEST(SavJson, SchemasInTheDocumentsAreCurrent)
{
    for (const SavKind kind : kKinds) {
        const std::string name(nameOf(kind));
        EXPECT_EQ(contentOf(SOURCES "/docs/schema/sav-" + name + ".schema.json"),
                  schemaOfSav(kind) + '\n')
            << "make it anew: veskctl sav schema " << name;
    }
}

// Tables ------------------------------------------------------------------------------------------

// The record that docs/files.md shows.
TEST(SavTable, HasALineForEachFieldWithItsUnit)
{
    const std::string bytes = savOfJson(R"({"kind": "DevInfo", "fields": {
        "identification": "0x4bcd365c", "serialNumber": 4660, "deviceByte": 0, "reserved9": "000000",
        "secondIdentification": "0x3200", "reserved16": "00000000"}})",
                                        "text")
                                  .bytes;
    EXPECT_EQ(hexOf(bytes), "5c36cd4b34120000000000000032000000000000");
    EXPECT_EQ(tableOfSav({"a/DevInfo.sav", SavKind::kDevInfo, bytes}),
              R"(a/DevInfo.sav: DevInfo, 20 bytes

DevInfo.sav
  offset  field                 value       unit or range
       0  identification        0x4bcd365c  0x4BCD365C
       4  serialNumber          4660        0 to 65535
       8  deviceByte            0x00
       9  reserved9             000000
      12  secondIdentification  0x00003200  0x3200
      16  reserved16            00000000
)");
    EXPECT_EQ(tableOfSav({"DevInfo.sav", SavKind::kDevInfo, bytes.substr(0, 10)}),
              R"(DevInfo.sav: DevInfo, 10 of 20 bytes: the last 10 are missing

DevInfo.sav
  offset  field                 value       unit or range
       0  identification        0x4bcd365c  0x4BCD365C
       4  serialNumber          4660        0 to 65535
       8  deviceByte            0x00
       9  reserved9             00
      12  secondIdentification  -           0x3200
      16  reserved16            -
)");
    EXPECT_EQ(tableOfSav({"DevInfo.sav", SavKind::kDevInfo, bytes + "\xAB"}).substr(0, 42),
              "DevInfo.sav: DevInfo, 20 bytes and 1 more\n");
}

TEST(SavTable, HasEveryFieldUnderAChapterOfTheDocument)
{
    for (const SavKind kind : kKinds) {
        const std::string table = tableOfSav({"x", kind, std::string(lengthOf(kind), '\0')});
        for (const SavValue &value : savValues(kind)) {
            // A field is a line, or a column of a table with its name.
            const size_t bracket = value.name.find('[');
            EXPECT_NE(table.find(value.name.substr(0, bracket)), std::string::npos) << value.name;
            EXPECT_NE(table.find(value.field->name), std::string::npos) << value.name;
        }
    }
    const std::string document = contentOf(SOURCES "/docs/files.md");
    for (const SavRecord &record : savRecords()) {
        EXPECT_NE(document.find(headingOf(record.chapter)), std::string::npos) << record.chapter;
    }
}

} // namespace
