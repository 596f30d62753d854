// docs/files.md: its tables against src/storage/*.def, which the compiler holds against the
// structs; its defaults and the bytes that it shows against what resets and a first start make.

#include <algorithm>
#include <iomanip>
#include <ostream>
#include <regex>
#include <sstream>

#include <gtest/gtest.h>

#include "storage/DeviceInfo.h"
#include "storage/TimeControl.h"
#include "storage/UserPref.h"
#include "storage/UserSetting.h"
#include "storage/UserSettingReset.h"
#include "storage/ViewRecord.h"
#include "storage/WorkTime.h"
#include "storage/load_all.h"
#include "tests/support/clock.h"
#include "tests/support/setting_bytes.h"

namespace fs = std::filesystem;

namespace {

struct Field {
    size_t offset;
    std::string type, name; // types are "u8", "u16[4]", "Layer[96]"
    std::string unit;       // or range
    bool operator==(const Field &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Field &field)
{
    return out << field.offset << ' ' << field.type << ' ' << field.name << ' ' << field.unit;
}

struct Record {
    std::vector<Field> fields;
    size_t size = 0;
    std::string chapter;
    bool operator==(const Record &) const = default;
};

using Records = std::map<std::string, Record>;

// The names that the document has for the types of the records.
std::string documentsName(const std::string &type, size_t count)
{
    const std::map<std::string, std::string> names = {{"uint8_t", "u8"},   {"uint16_t", "u16"},
                                                      {"uint32_t", "u32"}, {"int16_t", "i16"},
                                                      {"int32_t", "i32"},  {"double", "f64"}};
    const size_t bracket = std::min(type.find('['), type.size());
    const std::string name = type.substr(0, bracket);
    return (names.contains(name) ? names.at(name) : name) +
           (count == 1 ? "" : '[' + std::to_string(count) + ']') + type.substr(bracket);
}

std::ostream &operator<<(std::ostream &out, const Record &record)
{
    return out << record.chapter << ", " << record.size
               << " bytes: " << testing::PrintToString(record.fields);
}

Records readRecords()
{
    Records records;
    std::string chapter;
#define RECORD_FIELD_IN(record, offset, type, count, field, unit)                                  \
    records[#record].fields.push_back({(offset), documentsName(#type, (count)), #field, unit});
#define RECORD_FIELD(record, offset, type, count, field)                                           \
    RECORD_FIELD_IN(record, offset, type, count, field, "")
#define RECORD_SIZE(record, bytes)                                                                 \
    records[#record].size = (bytes);                                                               \
    records[#record].chapter = chapter;
#define RECORD_CHAPTER(title) chapter = title;
#include "storage/DeviceInfo.def"
#include "storage/TimeControl.def"
#include "storage/UserPref.def"
#include "storage/UserSetting.def"
#include "storage/View.def"
#include "storage/WorkTime.def"
    return records;
}

// Bytes of a field, from the name of its type; 0 if that is unknown.
size_t sizeOf(const std::string &type, const Records &records)
{
    const std::map<std::string, size_t> sizes = {{"u8", 1},  {"u16", 2}, {"u32", 4},
                                                 {"i16", 2}, {"i32", 4}, {"f64", 8}};
    std::istringstream parts(type); // "u8[2][4]"
    std::string part;
    std::getline(parts, part, '[');
    size_t size = records.contains(part) ? records.at(part).size : 0;
    size = sizes.contains(part) ? sizes.at(part) : size;
    while (std::getline(parts, part, '[')) {
        size *= std::stoul(part);
    }
    return size;
}

struct Document {
    Records records; // with the sizes of the sentences that name the structs
    std::map<std::string, std::vector<std::string>> defaults; // by struct: the last column
    std::map<std::string, std::vector<std::string>> dumps;    // by chapter: lines of hexdumps
    std::map<std::string, std::string> files;                 // by name: its content in words
};

std::vector<std::string> cellsOf(const std::string &line)
{
    const std::regex edge(" *\\| *");
    return {std::sregex_token_iterator(line.begin(), line.end(), edge, -1), {}};
}

bool isNumber(const std::string &text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// The number before the word "bytes"; 0 if there is none.
size_t bytesIn(const std::string &text)
{
    std::smatch match;
    return std::regex_search(text, match, std::regex("(\\d+) bytes")) ? std::stoul(match[1]) : 0;
}

Document readDocument()
{
    const std::regex structureName("`struct (\\w+)`");
    const std::regex dumpLine("    ([0-9a-f]{8}(  .*)?)"); // an address, alone or before bytes
    Document document;
    std::istringstream lines(contentOf(FILES_DOCUMENT));
    std::string chapter;
    std::string section;   // of the chapter; the chapter itself before its first one
    std::string structure; // the one that was named last
    std::smatch match;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("## ", 0) == 0) {
            chapter = section = line.substr(3);
        } else if (line.rfind("### ", 0) == 0) {
            section = line.substr(4);
        } else if (std::regex_search(line, match, structureName)) {
            structure = match[1];
            document.records[structure].size = bytesIn(line);
            document.records[structure].chapter = section;
        } else if (std::regex_match(line, match, dumpLine)) {
            document.dumps[chapter].push_back(match[1]);
        }
        const std::vector<std::string> cells = cellsOf(line);
        if (cells.size() == 7 && isNumber(cells[1])) {
            document.records[structure].fields.push_back(
                {std::stoul(cells[1]), cells[2], cells[3], cells[4]});
            document.defaults[structure].push_back(cells[6]);
        } else if (chapter == "Files" && cells.size() == 4) {
            document.files[cells[1]] = cells[2];
        }
    }
    return document;
}

// The compiler proves that the fields of a record fill it without a gap.
TEST(FilesDocument, HasATableForEveryRecordWithItsFieldsUnitsAndSize)
{
    const Records inSource = readRecords();
    EXPECT_EQ(inSource.size(), 22u);
    EXPECT_EQ(readDocument().records, inSource);
}

TEST(FilesDocument, ListsTheFilesWithTheirLengths)
{
    const Document document = readDocument();
    const std::vector<std::pair<std::string, size_t>> files = {
        {"`/userdata/UserPref.sav`", sizeof(UserPref)},
        {"`/userdata/DevInfo.sav`", sizeof(DeviceInfo)},
        {"`/userdata/save0.sav`", sizeof(UserSetting)},
        {"`/userdata/workTime.sav`", sizeof(WorkTimeList)},
        {"`/userdata/view0.sav` to `view15.sav`", sizeof(ViewSetting)},
        {"`/userdata/page0_0.sav` to `page15_0.sav`", 16 * sizeof(ViewSetting)},
        {"`/userdata/timeCon0.sav`", sizeof(TimeControl)},
    };
    for (const auto &[name, length] : files) {
        ASSERT_EQ(document.files.count(name), 1u) << name;
        EXPECT_EQ(bytesIn(document.files.at(name)), length) << name;
    }
}

constexpr char kOld = '\xA5'; // what every byte held before a reset

// Timings after a reset: of an input, with format 76, and of an output, with format 10.
const Bytes kTiming76 = hex("4c 00 30 11 ca 08 80 01 52 00 00 0f 70 08 58 00 0a 00 00 00 3c a5");
const Bytes kTiming10 = hex("0a 00 98 08 65 04 c0 00 29 00 80 07 38 04 2c 00 05 00 00"
                            "  a5 a5 a5 a5 a5 e8 03 00 00");

Bytes times(size_t count, const Bytes &bytes)
{
    Bytes all;
    for (; count > 0; --count) {
        all += bytes;
    }
    return all;
}

const Bytes kLayer0 =
    hex("00 00 00 00 00 00 00 00 00 0f 70 08 00 00 00 00 80 07 38 04 00 00 00 32 32 32");
const Bytes kResolution = hex("80 07 00 00 38 04 00 00 3c 00 00 00 00 a5 a5 a5");
const Bytes kPositions = [] {
    Bytes bytes;
    for (uint32_t layer = 0; layer < 96; ++layer) {
        bytes += oneByte(95 - layer);
    }
    return bytes;
}();

// The fields whose last column has words, and what they mean: the bytes of its beginning.
const struct {
    std::string field, text;
    Bytes bytes;
} kWorded[] = {
    // clang-format off
    {"UserPref.language", "stays if 0 or 1, else 0", hex("00")},
    {"UserPref.loadFadeInOutOff", "stays if 0 or 1, else 1", hex("01")},
    {"UserSetting.inputEnable", "1 for inputs 0 to 23; 24 and 25 stay",
     Bytes(24, '\1') + hex("a5 a5")},
    {"UserSetting.inputTiming", "format 76 for inputs 0 to 23; 24 and 25 stay",
     times(24, kTiming76) + Bytes(44, kOld)},
    {"UserSetting.outputTiming", "format 10", times(6, kTiming10)},
    {"UserSetting.outputResolution", "1920 × 1080 at 60 Hz", times(6, kResolution)},
    {"UserSetting.customResolution", "1920 × 1080 at 60 Hz", kResolution},
    {"UserSetting.preview", "a copy of `program`; see `ViewSetting`",
     '\0' + Bytes(15, kOld) + kLayer0},
    // Of input 3.
    {"PreInput.group", "input number modulo 4", hex("03")},
    {"PreInput.sourceWidth", "active width of the input; 3840 for inputs 24 and 25", hex("00 0f")},
    {"PreInput.sourceHeight", "active height of the input; 2160 for inputs 24 and 25",
     hex("70 08")},
    {"PreInput.targetWidth", "1920; 3840 for inputs 24 and 25", hex("80 07")},
    {"PreInput.targetHeight", "1080; 2160 for inputs 24 and 25", hex("38 04")},
    {"PreInput.groupBit", "by the group", hex("08")},
    {"ViewSetting.viewByte0", "stays; 0 in `preview`", hex("a5")},
    {"ViewSetting.layerAlphaPos", "95 for layer 0, one less for each further layer", kPositions},
    {"ViewSetting.viewNumber", "1; 0 in `preview`", hex("01")},
    {"ViewSetting.rs1", "stays; in `preview` see `Rs1Setting`", Bytes(864, kOld)},
    {"ViewSetting.identification", "stays; 0x29215679 in `preview`", hex("a5 a5 a5 a5")},
    // Of layer 95.
    {"Layer.inputPort", "layer number modulo 24", hex("17")},
    {"Layer.sourceWidth", "active width of the input", hex("00 0f")},
    {"Layer.sourceHeight", "active height of the input", hex("70 08")},
    {"Layer.windowWidth", "active width of output 0", hex("80 07")},
    {"Layer.windowHeight", "active height of output 0", hex("38 04")},
    {"OtherSetting.settingWord4", "active width of output 0, less 256", hex("80 06")},
    {"OtherSetting.settingWord6", "active height of output 0, less 128", hex("b8 03")},
    {"ContainerOther.settingWord4", "active width of output 0, less 256", hex("80 06")},
    {"ContainerOther.settingWord6", "active height of output 0, less 128", hex("b8 03")},
    {"Rs1Half.byte11", "stays; 0 in the second half", hex("a5")},
    // clang-format on
};

// What the last column announces where no words are expected: bytes, `kOld` for those that stay.
Bytes announced(const std::string &record, const Field &field, const std::string &text,
                const Records &records)
{
    const size_t size = sizeOf(field.type, records);
    const std::string element = field.type.substr(0, field.type.find('['));
    if (text == "see `" + element + '`' && records.count(element) != 0) {
        return ""; // the table of that record says it
    }
    if (text == "of the format") {
        return (record == "InputTiming" ? kTiming76 : kTiming10).substr(field.offset, size);
    }
    if (text == "stays") {
        return Bytes(size, kOld);
    }
    if (text == "all 0" || (text == "0.0" && field.type == "f64")) {
        return Bytes(size, '\0');
    }
    // "1, 0x32, 0", or addresses
    const size_t width = sizeOf(element, records);
    std::istringstream words(std::regex_replace(text, std::regex("[.,]"), " "));
    Bytes bytes;
    for (std::string word; words >> word;) {
        char *end = nullptr;
        const unsigned long long number = std::strtoull(word.c_str(), &end, 0);
        EXPECT_TRUE(isNumber(word.substr(0, 1)) && *end == '\0') << word << " is no number";
        EXPECT_TRUE(width <= 4 && number < 1ULL << 8 * width) << word;
        bytes += littleEndian(static_cast<uint32_t>(number), width);
    }
    EXPECT_EQ(bytes.size(), size) << field << ": " << text;
    return bytes;
}

TEST(FilesDocument, AnnouncesTheDefaults)
{
    const auto resetOverOld = [](auto *record, void (*reset)()) {
        fill(record, Bytes(sizeof *record, kOld));
        reset();
    };
    malloc_saveView();
    resetOverOld(GetUserSetting(), ResetUserSettingSave);
    resetOverOld(getUserPref(), resetUserPref);
    resetOverOld(getDeviceInfo(), resetDeviceInfo);
    resetOverOld(GetTimeControl(), resetTimeControl);
    resetOverOld(getWorkTimeList(), resetWorkTimeList);
    const UserSetting &setting = *GetUserSetting();
    const std::map<std::string, Bytes> after = {
        {"UserPref", bytesOf(getUserPref())},
        {"DeviceInfo", bytesOf(getDeviceInfo())},
        {"TimeControl", bytesOf(GetTimeControl())},
        {"WorkTimeList", bytesOf(getWorkTimeList())},
        {"UserSetting", bytesOf(&setting)},
        {"InputTiming", bytesOf(&setting.inputTiming[3])},
        {"PreInput", bytesOf(&setting.preInput[3])},
        {"ColorKey", bytesOf(&setting.inputColorKey[25])},
        {"OutputTiming", bytesOf(&setting.outputTiming[5])},
        {"Resolution", bytesOf(&setting.outputResolution[5])},
        {"Rs1Output", bytesOf(&setting.rs1Outputs[23])},
        {"Container", bytesOf(&setting.containers[23])},
        {"GroupArea", bytesOf(&setting.groupAreas[23])},
        {"ViewSetting", bytesOf(&setting.program)},
        {"Layer", bytesOf(&setting.program.layers[95])},
        {"OtherSetting", bytesOf(&setting.program.other)},
        {"ContainerOther", bytesOf(&setting.program.containers[23])},
        {"Rs1Setting", bytesOf(&setting.preview.rs1)},
        {"Rs1First", bytesOf(&setting.preview.rs1.first[23])},
        {"Rs1Second", bytesOf(&setting.preview.rs1.second[5])},
        {"Rs1Half", bytesOf(&setting.preview.rs1.second[5].halves[0])},
        {"Rs1Third", bytesOf(&setting.preview.rs1.third[23])},
    };
    const Records records = readRecords();
    const Document document = readDocument();
    ASSERT_EQ(document.records.size(), after.size());
    size_t worded = 0;
    for (const auto &[name, record] : document.records) {
        ASSERT_EQ(after.count(name), 1u) << name;
        for (size_t i = 0; i < record.fields.size(); ++i) {
            const Field &field = record.fields[i];
            const std::string &text = document.defaults.at(name)[i];
            SCOPED_TRACE(testing::Message() << name << ": " << field << ": " << text);
            const auto words = std::find_if(
                std::begin(kWorded), std::end(kWorded),
                [path = name + '.' + field.name](const auto &row) { return row.field == path; });
            Bytes bytes;
            if (words != std::end(kWorded)) {
                EXPECT_EQ(text, words->text);
                bytes = words->bytes;
                ++worded;
            } else {
                bytes = announced(name, field, text, records);
            }
            ASSERT_LE(bytes.size(), sizeOf(field.type, records));
            EXPECT_EQ(after.at(name).substr(field.offset, bytes.size()), bytes);
        }
    }
    EXPECT_EQ(worded, std::size(kWorded)) << "of the document's fields";
}

// A line as "hexdump -C" shows it, the last of them only the length.
std::string hexdumpLine(const Bytes &bytes, size_t at)
{
    std::ostringstream line;
    line << std::hex << std::setfill('0') << std::setw(8) << at;
    std::string characters;
    for (size_t i = at; i < at + 16 && at < bytes.size(); ++i) {
        line << (i % 8 == 0 ? "  " : " ");
        if (i < bytes.size()) {
            line << std::setw(2) << unsigned{static_cast<uint8_t>(bytes[i])};
            characters += bytes[i] >= 0x20 && bytes[i] < 0x7F ? bytes[i] : '.';
        } else {
            line << "  ";
        }
    }
    return line.str() + (characters.empty() ? "" : "  |" + characters + '|');
}

TEST(FilesDocument, ShowsTheBytesOfTheFiles)
{
    fs::create_directory(kDirectory);
    fakeClock.setMs(0); // the pause for a missing DevInfo.sav takes no time
    Console console;
    loadAllUserPref();
    saveUserPref();
    saveDeviceInfo();
    loadTimeControl(0);
    console.end();

    const std::map<std::string, bool> isShownWhole = {
        {"UserPref.sav", true}, {"DevInfo.sav", true},   {"workTime.sav", true},
        {"save0.sav", false},   {"timeCon0.sav", false}, {"view0.sav to view15.sav", false}};
    const Document document = readDocument();
    EXPECT_EQ(document.dumps.size(), isShownWhole.size());
    for (const auto &[chapter, isWhole] : isShownWhole) {
        SCOPED_TRACE(chapter);
        const bool isOfViews = chapter.front() == 'v'; // which the first file has, too
        const Bytes bytes = contentOf("/userdata/" + (isOfViews ? "save0.sav" : chapter));
        std::set<size_t> addresses;
        for (const std::string &line : document.dumps.at(chapter)) {
            const size_t address = std::stoul(line, nullptr, 16);
            ASSERT_TRUE(address == bytes.size() || (address < bytes.size() && address % 16 == 0));
            EXPECT_EQ(line, hexdumpLine(bytes, address));
            addresses.insert(address);
        }
        if (isWhole) {
            EXPECT_EQ(addresses.size(), (bytes.size() + 15) / 16 + 1);
        }
    }
}

} // namespace
