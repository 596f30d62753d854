// docs/files.md against the records: its tables against the lines of src/storage/*.def, which the
// compiler holds against the structs; the defaults that it announces, and the bytes that it shows,
// against what the resets and the first start make.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

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
#include "tests/support/console.h"

namespace fs = std::filesystem;

namespace {

using Bytes = std::string;

struct Field {
    size_t offset;
    std::string type; // "u8", "u16[4]", "Layer[96]"
    std::string name;
    bool operator==(const Field &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Field &field)
{
    return out << field.offset << ' ' << field.type << ' ' << field.name;
}

std::string textOf(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.good()) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

// The records -------------------------------------------------------------------------------------

struct Record {
    std::vector<Field> fields;
    size_t size = 0;
};

using Records = std::map<std::string, Record>;

// The names that the document has for the types of the records.
std::string documentsName(const std::string &type, size_t count)
{
    static const std::map<std::string, std::string> names = {
        {"uint8_t", "u8"},  {"uint16_t", "u16"}, {"uint32_t", "u32"},
        {"int16_t", "i16"}, {"int32_t", "i32"},  {"double", "f64"},
    };
    const size_t bracket = std::min(type.find('['), type.size());
    const auto name = names.find(type.substr(0, bracket));
    return (name == names.end() ? type.substr(0, bracket) : name->second) +
           (count == 1 ? "" : '[' + std::to_string(count) + ']') + type.substr(bracket);
}

struct Line {
    const char *record;
    size_t number; // offset of a field, or the record's size
    const char *type;
    size_t count;
    const char *field; // null: the record's size
};

#define RECORD_FIELD(record, offset, type, count, field)                                           \
    {#record, (offset), #type, (count), #field},
#define RECORD_SIZE(record, bytes) {#record, (bytes), nullptr, 0, nullptr},
const Line kLines[] = {
#include "storage/DeviceInfo.def"
#include "storage/TimeControl.def"
#include "storage/UserPref.def"
#include "storage/UserSetting.def"
#include "storage/View.def"
#include "storage/WorkTime.def"
};
#undef RECORD_FIELD
#undef RECORD_SIZE

Records readRecords()
{
    Records records;
    for (const Line &line : kLines) {
        Record &record = records[line.record];
        if (line.field == nullptr) {
            record.size = line.number;
        } else {
            record.fields.push_back(
                {line.number, documentsName(line.type, line.count), line.field});
        }
    }
    return records;
}

// Bytes of a field, from the name of its type.
size_t sizeOf(const std::string &type, const Records &records)
{
    static const std::map<std::string, size_t> sizes = {
        {"u8", 1}, {"u16", 2}, {"u32", 4}, {"i16", 2}, {"i32", 4}, {"f64", 8},
    };
    std::istringstream parts(type); // "u8[2][4]"
    std::string part;
    std::getline(parts, part, '[');
    size_t size = records.count(part) != 0 ? records.at(part).size : sizes.at(part);
    while (std::getline(parts, part, '[')) {
        size *= std::stoul(part);
    }
    return size;
}

// The document ------------------------------------------------------------------------------------

struct Table {
    std::vector<Field> fields;
    std::vector<std::string> defaults; // the last column
    size_t size = 0;                   // in the sentence that names the struct
};

struct Document {
    std::map<std::string, Table> tables;                   // by struct
    std::map<std::string, std::vector<std::string>> dumps; // by chapter: lines of hexdumps
    std::map<std::string, std::string> files;              // by name: its content in words
};

std::string stripped(const std::string &text)
{
    const size_t from = text.find_first_not_of(' ');
    return from == std::string::npos ? ""
                                     : text.substr(from, text.find_last_not_of(' ') - from + 1);
}

std::vector<std::string> cellsOf(const std::string &line)
{
    std::vector<std::string> cells;
    std::istringstream row(line);
    for (std::string cell; std::getline(row, cell, '|');) {
        cells.push_back(stripped(cell));
    }
    return cells;
}

bool isNumber(const std::string &text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// Eight digits, alone or in front of bytes.
bool isDumpLine(const std::string &text)
{
    const size_t digits = std::min(text.find_first_not_of("0123456789abcdef"), text.size());
    return digits == 8 && (text.size() == digits || text.compare(digits, 2, "  ") == 0);
}

// The number in front of the word "bytes".
size_t bytesIn(const std::string &text)
{
    const size_t word = text.find(" bytes");
    if (word == std::string::npos) {
        return 0;
    }
    const size_t blank = text.rfind(' ', word - 1);
    return std::strtoul(text.c_str() + (blank == std::string::npos ? 0 : blank + 1), nullptr, 10);
}

Document readDocument()
{
    Document document;
    std::istringstream lines(textOf(FILES_DOCUMENT));
    std::string chapter;
    std::string structure; // the one that was named last
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("## ", 0) == 0) {
            chapter = line.substr(3);
        }
        const size_t named = line.find("`struct ");
        if (named != std::string::npos) {
            const size_t from = named + std::strlen("`struct ");
            structure = line.substr(from, line.find('`', from) - from);
            document.tables[structure].size = bytesIn(line);
        }
        if (line.rfind("    ", 0) == 0 && isDumpLine(line.substr(4))) {
            document.dumps[chapter].push_back(line.substr(4));
        }
        const std::vector<std::string> cells = cellsOf(line);
        if (cells.size() == 7 && isNumber(cells[1])) {
            Table &table = document.tables[structure];
            table.fields.push_back({std::stoul(cells[1]), cells[2], cells[3]});
            table.defaults.push_back(cells[6]);
        }
        if (chapter == "Files" && cells.size() == 4) {
            document.files[cells[1]] = cells[2];
        }
    }
    return document;
}

TEST(FilesDocument, HasATableForEveryRecordWithItsFields)
{
    const Document document = readDocument();
    const Records records = readRecords();
    ASSERT_EQ(records.size(), 22u);
    std::set<std::string> inDocument;
    for (const auto &[name, table] : document.tables) {
        inDocument.insert(name);
    }
    std::set<std::string> inSource;
    for (const auto &[name, record] : records) {
        inSource.insert(name);
        if (document.tables.count(name) != 0) {
            EXPECT_EQ(document.tables.at(name).fields, record.fields) << name;
        }
    }
    EXPECT_EQ(inDocument, inSource);
}

TEST(FilesDocument, TablesNameEveryByteOnce)
{
    const Records records = readRecords();
    for (const auto &[name, table] : readDocument().tables) {
        size_t offset = 0;
        for (const Field &field : table.fields) {
            EXPECT_EQ(field.offset, offset) << name << ": " << field;
            offset += sizeOf(field.type, records);
        }
        ASSERT_EQ(records.count(name), 1u) << name;
        EXPECT_EQ(offset, records.at(name).size) << name;
        EXPECT_EQ(table.size, offset) << name;
    }
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

// The defaults ------------------------------------------------------------------------------------

constexpr char kOld = '\xA5'; // what every byte held before a reset

// The bytes that pairs of hexadecimal digits stand for, `count` times.
Bytes hex(const std::string &text, size_t count = 1)
{
    Bytes bytes;
    for (; count > 0; --count) {
        std::istringstream pairs(text);
        for (std::string pair; pairs >> pair;) {
            bytes += static_cast<char>(std::stoi(pair, nullptr, 16));
        }
    }
    return bytes;
}

// What the last column says in words, and what that means for the entry that the test looks at: the
// bytes of the field or, of some records, of its beginning.
struct Words {
    std::string text;
    Bytes bytes;
};

using FieldName = std::pair<std::string, std::string>; // struct and field

const std::map<FieldName, Words> &wordedDefaults()
{
    static const std::string timing76 =
        "4c 00 30 11 ca 08 80 01 52 00 00 0f 70 08 58 00 0a 00 00 00 3c a5";
    static const std::string timing10 = "0a 00 98 08 65 04 c0 00 29 00 80 07 38 04 2c 00 05 00 00"
                                        " a5 a5 a5 a5 a5 e8 03 00 00";
    static const std::string resolution = "80 07 00 00 38 04 00 00 3c 00 00 00 00 a5 a5 a5";
    static const std::string preInput0 =
        "00 00 00 a5 00 00 00 00 00 0f 70 08 00 00 00 00 80 07 38 04"
        " 80 01 32 32 32 32 32 32 32 1a 1a 1a 32 00 00 a5";
    static const std::string container = "64 00 00 00 00 00 a5 a5 00 0f 00 00 70 08 00 00"
                                         " 00 02 02 00 00 a5 e8 03 00 00 00 01 00 14 a5 a5";
    static const std::string layer0 =
        "00 00 00 00 00 00 00 00 00 0f 70 08 00 00 00 00 80 07 38 04 00 00 00 32 32 32";
    static const std::string rs1Halves = "00 00 00 00 00 a5 00 00 00 00 00 a5"
                                         " 00 00 00 00 00 a5 00 00 00 00 00 00";
    static const std::map<FieldName, Words> all = {
        {{"UserPref", "language"}, {"stays if 0 or 1, else 0", hex("00")}},
        {{"UserPref", "loadFadeInOutOff"}, {"stays if 0 or 1, else 1", hex("01")}},

        {{"UserSetting", "inputEnable"},
         {"1 for inputs 0 to 23; 24 and 25 stay", hex("01", 24) + hex("a5 a5")}},
        {{"UserSetting", "inputTiming"},
         {"format 76 for inputs 0 to 23; 24 and 25 stay", hex(timing76, 24) + hex("a5", 44)}},
        {{"UserSetting", "preInput"}, {"see `PreInput`", hex(preInput0)}},
        {{"UserSetting", "inputColorKey"}, {"see `ColorKey`", hex("00 01 00 00 d0 d0 d0", 26)}},
        {{"UserSetting", "outputTiming"}, {"format 10", hex(timing10, 6)}},
        {{"UserSetting", "outputResolution"}, {"1920 × 1080 at 60 Hz", hex(resolution, 6)}},
        {{"UserSetting", "rs1Outputs"},
         {"see `Rs1Output`", hex("00 00 00 00 00 00 00 00 00 00 00 00 00 a5", 24)}},
        {{"UserSetting", "containers"}, {"see `Container`", hex(container, 24)}},
        {{"UserSetting", "groupAreas"},
         {"see `GroupArea`",
          hex("ff a5 a5 a5 a5 a5 a5 a5 a5 a5 a5 a5 a5 a5 a5 a5 a5 a5 a5 a5", 24)}},
        {{"UserSetting", "customResolution"}, {"1920 × 1080 at 60 Hz", hex(resolution)}},
        {{"UserSetting", "preview"},
         {"a copy of `program`; see `ViewSetting`", hex("00") + hex("a5", 15) + hex(layer0)}},
        {{"UserSetting", "program"}, {"see `ViewSetting`", hex("a5", 16) + hex(layer0)}},

        // Of input 3.
        {{"InputTiming", "syncPolarity"}, {"of the format", hex("00")}},
        {{"InputTiming", "hTotal"}, {"of the format", hex("30 11")}},
        {{"InputTiming", "vTotal"}, {"of the format", hex("ca 08")}},
        {{"InputTiming", "hStart"}, {"of the format", hex("80 01")}},
        {{"InputTiming", "vStart"}, {"of the format", hex("52 00")}},
        {{"InputTiming", "hActive"}, {"of the format", hex("00 0f")}},
        {{"InputTiming", "vActive"}, {"of the format", hex("70 08")}},
        {{"InputTiming", "hSyncWidth"}, {"of the format", hex("58 00")}},
        {{"InputTiming", "vSyncWidth"}, {"of the format", hex("0a 00")}},
        {{"InputTiming", "vFreq"}, {"of the format", hex("3c")}},
        {{"PreInput", "group"}, {"input number modulo 4", hex("03")}},
        {{"PreInput", "sourceWidth"},
         {"active width of the input; 3840 for inputs 24 and 25", hex("00 0f")}},
        {{"PreInput", "sourceHeight"},
         {"active height of the input; 2160 for inputs 24 and 25", hex("70 08")}},
        {{"PreInput", "targetWidth"}, {"1920; 3840 for inputs 24 and 25", hex("80 07")}},
        {{"PreInput", "targetHeight"}, {"1080; 2160 for inputs 24 and 25", hex("38 04")}},
        {{"PreInput", "groupBit"}, {"by the group", hex("08")}},

        {{"OutputTiming", "syncPolarity"}, {"of the format", hex("00")}},
        {{"OutputTiming", "hTotal"}, {"of the format", hex("98 08")}},
        {{"OutputTiming", "vTotal"}, {"of the format", hex("65 04")}},
        {{"OutputTiming", "hStart"}, {"of the format", hex("c0 00")}},
        {{"OutputTiming", "vStart"}, {"of the format", hex("29 00")}},
        {{"OutputTiming", "hActive"}, {"of the format", hex("80 07")}},
        {{"OutputTiming", "vActive"}, {"of the format", hex("38 04")}},
        {{"OutputTiming", "hSyncWidth"}, {"of the format", hex("2c 00")}},
        {{"OutputTiming", "vSyncWidth"}, {"of the format", hex("05 00")}},

        {{"ViewSetting", "viewByte0"}, {"stays; 0 in `preview`", hex("a5")}},
        {{"ViewSetting", "layers"}, {"see `Layer`", hex(layer0)}},
        {{"ViewSetting", "layerAlphaPos"},
         {"95 for layer 0, one less for each further layer",
          hex("5f 5e 5d 5c 5b 5a 59 58 57 56 55 54 53 52 51 50 4f 4e 4d 4c 4b 4a 49 48"
              " 47 46 45 44 43 42 41 40 3f 3e 3d 3c 3b 3a 39 38 37 36 35 34 33 32 31 30"
              " 2f 2e 2d 2c 2b 2a 29 28 27 26 25 24 23 22 21 20 1f 1e 1d 1c 1b 1a 19 18"
              " 17 16 15 14 13 12 11 10 0f 0e 0d 0c 0b 0a 09 08 07 06 05 04 03 02 01 00")}},
        {{"ViewSetting", "other"},
         {"see `OtherSetting`", hex("00 01 00 00 80 06 b8 03 01") + hex("00", 29)}},
        {{"ViewSetting", "viewNumber"}, {"1; 0 in `preview`", hex("01")}},
        {{"ViewSetting", "rs1"}, {"stays; in `preview` see `Rs1Setting`", hex("a5", 864)}},
        {{"ViewSetting", "containers"},
         {"see `ContainerOther`", hex("00 01 00 a5 80 06 b8 03 01 00 00 00 00 00 00 01", 24)}},
        {{"ViewSetting", "identification"}, {"stays; 0x29215679 in `preview`", hex("a5 a5 a5 a5")}},

        // Of layer 95.
        {{"Layer", "inputPort"}, {"layer number modulo 24", hex("17")}},
        {{"Layer", "sourceWidth"}, {"active width of the input", hex("00 0f")}},
        {{"Layer", "sourceHeight"}, {"active height of the input", hex("70 08")}},
        {{"Layer", "windowWidth"}, {"active width of output 0", hex("80 07")}},
        {{"Layer", "windowHeight"}, {"active height of output 0", hex("38 04")}},

        {{"OtherSetting", "settingWord4"}, {"active width of output 0, less 256", hex("80 06")}},
        {{"OtherSetting", "settingWord6"}, {"active height of output 0, less 128", hex("b8 03")}},
        {{"ContainerOther", "settingWord4"}, {"active width of output 0, less 256", hex("80 06")}},
        {{"ContainerOther", "settingWord6"}, {"active height of output 0, less 128", hex("b8 03")}},

        {{"Rs1Setting", "first"},
         {"see `Rs1First`", hex("00 00 00 00 00 00 00 00 00 00 ff a5", 24)}},
        {{"Rs1Setting", "second"}, {"see `Rs1Second`", hex(rs1Halves, 6)}},
        {{"Rs1Setting", "third"},
         {"see `Rs1Third`", hex("00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 a5", 24)}},
        {{"Rs1Second", "halves"}, {"see `Rs1Half`", hex(rs1Halves)}},
        {{"Rs1Half", "byte11"}, {"stays; 0 in the second half", hex("a5")}},
    };
    return all;
}

// A number of the document, which must fit into `width` bytes.
Bytes numberBytes(const std::string &text, size_t width)
{
    char *end = nullptr;
    const unsigned long long number = std::strtoull(text.c_str(), &end, 0);
    const bool isWhole = !text.empty() && isNumber(text.substr(0, 1)) && *end == '\0';
    EXPECT_TRUE(isWhole) << '"' << text << "\" is no number";
    EXPECT_LT(number, 1ULL << 8 * width) << '"' << text << '"';
    return {reinterpret_cast<const char *>(&number), width};
}

std::vector<std::string> split(const std::string &text, const std::string &separator)
{
    std::vector<std::string> parts;
    size_t from = 0;
    for (size_t to = 0; (to = text.find(separator, from)) != std::string::npos;) {
        parts.push_back(text.substr(from, to - from));
        from = to + separator.size();
    }
    parts.push_back(text.substr(from));
    return parts;
}

// What the last column announces where no words are expected: bytes, `kOld` for those that stay.
Bytes announced(const Field &field, const std::string &text, const Records &records)
{
    const size_t size = sizeOf(field.type, records);
    if (text == "stays") {
        return Bytes(size, kOld);
    }
    if (text == "all 0" || (text == "0.0" && field.type == "f64")) {
        return Bytes(size, '\0');
    }
    // "1, 0x32, 0", or addresses
    const size_t width = sizeOf(field.type.substr(0, field.type.find('[')), records);
    if (width > sizeof(uint32_t)) {
        ADD_FAILURE() << "these words are not expected here";
        return {};
    }
    Bytes bytes;
    for (const std::string &value : split(text, ", ")) {
        const std::vector<std::string> parts = split(value, ".");
        EXPECT_TRUE(parts.size() == 1 || (parts.size() == 4 && width == 1)) << value;
        for (const std::string &part : parts) {
            bytes += numberBytes(part, width);
        }
    }
    EXPECT_EQ(bytes.size(), size) << field << ": " << text;
    return bytes;
}

template <typename Record> Bytes bytesOf(const Record &record)
{
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

// Every record, reset over bytes that are all `kOld`.
UserSetting &resetRecords()
{
    malloc_saveView();
    UserSetting &setting = *GetUserSetting();
    std::memset(static_cast<void *>(&setting), kOld, sizeof setting);
    std::memset(static_cast<void *>(getUserPref()), kOld, sizeof(UserPref));
    std::memset(static_cast<void *>(getDeviceInfo()), kOld, sizeof(DeviceInfo));
    std::memset(static_cast<void *>(GetTimeControl()), kOld, sizeof(TimeControl));
    std::memset(static_cast<void *>(getWorkTimeList()), kOld, sizeof(WorkTimeList));
    ResetUserSettingSave();
    resetUserPref();
    resetDeviceInfo();
    resetTimeControl();
    resetWorkTimeList();
    return setting;
}

TEST(FilesDocument, AnnouncesTheDefaults)
{
    const UserSetting &setting = resetRecords();
    const std::map<std::string, Bytes> after = {
        {"UserPref", bytesOf(*getUserPref())},
        {"DeviceInfo", bytesOf(*getDeviceInfo())},
        {"TimeControl", bytesOf(*GetTimeControl())},
        {"WorkTimeList", bytesOf(*getWorkTimeList())},
        {"UserSetting", bytesOf(setting)},
        {"InputTiming", bytesOf(setting.inputTiming[3])},
        {"PreInput", bytesOf(setting.preInput[3])},
        {"ColorKey", bytesOf(setting.inputColorKey[25])},
        {"OutputTiming", bytesOf(setting.outputTiming[5])},
        {"Resolution", bytesOf(setting.outputResolution[5])},
        {"Rs1Output", bytesOf(setting.rs1Outputs[23])},
        {"Container", bytesOf(setting.containers[23])},
        {"GroupArea", bytesOf(setting.groupAreas[23])},
        {"ViewSetting", bytesOf(setting.program)},
        {"Layer", bytesOf(setting.program.layers[95])},
        {"OtherSetting", bytesOf(setting.program.other)},
        {"ContainerOther", bytesOf(setting.program.containers[23])},
        {"Rs1Setting", bytesOf(setting.preview.rs1)},
        {"Rs1First", bytesOf(setting.preview.rs1.first[23])},
        {"Rs1Second", bytesOf(setting.preview.rs1.second[5])},
        {"Rs1Half", bytesOf(setting.preview.rs1.second[5].halves[0])},
        {"Rs1Third", bytesOf(setting.preview.rs1.third[23])},
    };
    const Records records = readRecords();
    const Document document = readDocument();
    ASSERT_EQ(document.tables.size(), after.size());
    size_t worded = 0;
    for (const auto &[name, table] : document.tables) {
        ASSERT_EQ(after.count(name), 1u) << name;
        for (size_t i = 0; i < table.fields.size(); ++i) {
            const Field &field = table.fields[i];
            const std::string &text = table.defaults[i];
            SCOPED_TRACE(testing::Message() << name << ": " << field << ": " << text);
            const auto words = wordedDefaults().find({name, field.name});
            Bytes bytes;
            if (words == wordedDefaults().end()) {
                bytes = announced(field, text, records);
            } else {
                EXPECT_EQ(text, words->second.text);
                bytes = words->second.bytes;
                ++worded;
            }
            ASSERT_LE(bytes.size(), sizeOf(field.type, records));
            EXPECT_EQ(after.at(name).substr(field.offset, bytes.size()), bytes);
        }
    }
    EXPECT_EQ(worded, wordedDefaults().size()) << "of the document's fields";
}

// What the last column says after a ";", and of entries that have a value each.
TEST(FilesDocument, AnnouncesTheDefaultsOfSomeEntries)
{
    const UserSetting &setting = resetRecords();
    EXPECT_EQ(setting.inputEnable[23], 1);
    EXPECT_EQ(setting.inputTiming[23].format, 76);
    for (const uint32_t input : {24u, 25u}) {
        SCOPED_TRACE(input);
        EXPECT_EQ(setting.inputEnable[input], 0xA5);
        EXPECT_EQ(bytesOf(setting.inputTiming[input]), Bytes(sizeof(InputTiming), kOld));
        EXPECT_EQ(setting.preInput[input].sourceWidth, 3840);
        EXPECT_EQ(setting.preInput[input].sourceHeight, 2160);
        EXPECT_EQ(setting.preInput[input].targetWidth, 3840);
        EXPECT_EQ(setting.preInput[input].targetHeight, 2160);
    }
    for (uint32_t input = 0; input < 26; ++input) {
        const uint32_t group = input % 4;
        EXPECT_EQ(setting.preInput[input].group, group) << input;
        EXPECT_EQ(setting.preInput[input].groupBit, 1u << group) << input;
    }
    for (uint32_t layer = 0; layer < 96; ++layer) {
        EXPECT_EQ(setting.program.layers[layer].inputPort, layer % 24) << layer;
    }
    for (const Rs1Second &second : setting.preview.rs1.second) {
        EXPECT_EQ(second.halves[0].byte11, 0xA5);
        EXPECT_EQ(second.halves[1].byte11, 0);
    }
}

TEST(FilesDocument, AnnouncesThePreviewAsACopyOfTheProgramButForWhatIsSaid)
{
    const UserSetting &setting = resetRecords();
    EXPECT_EQ(setting.preview.viewByte0, 0);
    EXPECT_EQ(setting.preview.viewNumber, 0);
    EXPECT_EQ(setting.preview.identification, 0x29215679u);
    EXPECT_EQ(bytesOf(setting.preview.rs1).substr(0, 12),
              hex("00 00 00 00 00 00 00 00 00 00 ff a5"));
    ViewSetting copy = setting.program;
    copy.viewByte0 = setting.preview.viewByte0;
    copy.viewNumber = setting.preview.viewNumber;
    copy.rs1 = setting.preview.rs1;
    copy.identification = setting.preview.identification;
    EXPECT_EQ(bytesOf(setting.preview), bytesOf(copy));
}

TEST(FilesDocument, AnnouncesThatALanguageAndAFadeThatAreValidStay)
{
    for (const uint8_t valid : {uint8_t{0}, uint8_t{1}}) {
        getUserPref()->language = valid;
        getUserPref()->loadFadeInOutOff = valid;
        resetUserPref();
        EXPECT_EQ(getUserPref()->language, valid);
        EXPECT_EQ(getUserPref()->loadFadeInOutOff, valid);
    }
    getUserPref()->language = 2;
    getUserPref()->loadFadeInOutOff = 2;
    resetUserPref();
    EXPECT_EQ(getUserPref()->language, 0);
    EXPECT_EQ(getUserPref()->loadFadeInOutOff, 1);
}

// The bytes ---------------------------------------------------------------------------------------

// As "hexdump -C" shows a file, by address. (It would show a "*" in the place of lines that
// repeat.)
std::map<size_t, std::string> hexdump(const Bytes &bytes)
{
    std::map<size_t, std::string> lines;
    std::array<char, 20> text;
    for (size_t at = 0; at < bytes.size(); at += 16) {
        std::snprintf(text.data(), text.size(), "%08zx", at);
        std::string line = text.data();
        std::string characters;
        for (size_t i = at; i < at + 16; ++i) {
            line += i % 8 == 0 ? "  " : " ";
            if (i >= bytes.size()) {
                line += "  ";
                continue;
            }
            const auto byte = static_cast<unsigned char>(bytes[i]);
            std::snprintf(text.data(), text.size(), "%02x", byte);
            line += text.data();
            characters += byte >= 0x20 && byte < 0x7F ? bytes[i] : '.';
        }
        line += "  |";
        line += characters;
        line += '|';
        lines[at] = line;
    }
    std::snprintf(text.data(), text.size(), "%08zx", bytes.size());
    lines[bytes.size()] = text.data();
    return lines;
}

TEST(FilesDocument, ShowsTheBytesOfTheFiles)
{
    fs::create_directory("/userdata");
    fakeClock.setMs(0); // the pause for a missing DevInfo.sav takes no time
    Console console;
    loadAllUserPref();
    saveUserPref();
    saveDeviceInfo();
    loadTimeControl(0);
    console.end();

    const Document document = readDocument();
    struct Dump {
        std::string file;
        bool isWhole;
    };
    const std::map<std::string, Dump> shown = {
        {"UserPref.sav", {"UserPref.sav", true}},
        {"DevInfo.sav", {"DevInfo.sav", true}},
        {"save0.sav", {"save0.sav", false}},
        {"view0.sav to view15.sav", {"save0.sav", false}}, // the views in it
        {"timeCon0.sav", {"timeCon0.sav", false}},
        {"workTime.sav", {"workTime.sav", true}},
    };
    for (const auto &[chapter, lines] : document.dumps) {
        ASSERT_EQ(shown.count(chapter), 1u) << chapter;
    }
    for (const auto &[chapter, dump] : shown) {
        ASSERT_EQ(document.dumps.count(chapter), 1u) << chapter;
        const std::map<size_t, std::string> lines = hexdump(textOf("/userdata/" + dump.file));
        std::set<size_t> addresses;
        for (const std::string &line : document.dumps.at(chapter)) {
            const size_t address = std::stoul(line, nullptr, 16);
            ASSERT_EQ(lines.count(address), 1u) << chapter << ": " << line;
            EXPECT_EQ(line, lines.at(address)) << chapter;
            addresses.insert(address);
        }
        if (dump.isWhole) {
            EXPECT_EQ(addresses.size(), lines.size()) << chapter;
        }
    }
}

} // namespace
