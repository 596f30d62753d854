// docs/files.md against the records: its tables against the RECORD_FIELD lines of the headers,
// which the compiler holds against the structs; the defaults that it announces, and the bytes that
// it shows, against what the resets and the first start make.

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
#include <vector>

#include <gtest/gtest.h>

#include "storage/TimeControl.h"
#include "storage/UserPref.h"
#include "storage/UserSetting.h"
#include "storage/UserSettingReset.h"
#include "storage/ViewRecord.h"
#include "storage/WorkTime.h"
#include "tests/fakes/clock.h"
#include "tests/fakes/console.h"

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

// The headers -------------------------------------------------------------------------------------

struct Record {
    std::vector<Field> fields;
    size_t size = 0;
};

using Records = std::map<std::string, Record>;

// The names that the document has for the types of the headers.
std::string documentsName(const std::string &type)
{
    static const std::map<std::string, std::string> names = {
        {"uint8_t", "u8"},  {"uint16_t", "u16"}, {"uint32_t", "u32"},
        {"int16_t", "i16"}, {"int32_t", "i32"},  {"double", "f64"},
    };
    const size_t bracket = std::min(type.find('['), type.size());
    const auto name = names.find(type.substr(0, bracket));
    return name == names.end() ? type : name->second + type.substr(bracket);
}

Records readHeaders()
{
    Records records;
    for (const char *const header :
         {"UserPref.h", "UserSettingRecord.h", "ViewRecord.h", "TimeControl.h", "WorkTime.h"}) {
        std::istringstream lines(textOf(std::string(STORAGE_SOURCES) + '/' + header));
        for (std::string line; std::getline(lines, line);) {
            std::array<char, 64> record{};
            std::array<char, 64> type{};
            std::array<char, 64> name{};
            size_t number = 0;
            if (std::sscanf(line.c_str(), "RECORD_FIELD(%63[^,], %zu, %63[^,], %63[^)]);",
                            record.data(), &number, type.data(), name.data()) == 4) {
                records[record.data()].fields.push_back(
                    {number, documentsName(type.data()), name.data()});
            } else if (std::sscanf(line.c_str(), "static_assert(sizeof(%63[^)]) == %zu);",
                                   record.data(), &number) == 2) {
                records[record.data()].size = number;
            }
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
        if (line.rfind("    0000", 0) == 0) {
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
    const Records records = readHeaders();
    ASSERT_EQ(records.size(), 22u);
    std::set<std::string> inDocument;
    for (const auto &[name, table] : document.tables) {
        inDocument.insert(name);
    }
    std::set<std::string> inHeaders;
    for (const auto &[name, record] : records) {
        inHeaders.insert(name);
        if (document.tables.count(name) != 0) {
            EXPECT_EQ(document.tables.at(name).fields, record.fields) << name;
        }
    }
    EXPECT_EQ(inDocument, inHeaders);
}

TEST(FilesDocument, TablesNameEveryByteOnce)
{
    const Records records = readHeaders();
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

// What the last column announces: bytes, `kOld` for those that stay. Nothing where it describes
// them in words, which other tests hold.
Bytes announced(const Field &field, const std::string &text, const Records &records)
{
    for (const char *const words : {"see `", "a copy of", "format ", "of the format",
                                    "by the group", "active ", "layer number", "input number",
                                    "1920 × 1080 at 60 Hz", "95 for layer 0", "1 for inputs"}) {
        if (text.rfind(words, 0) == 0) {
            return {};
        }
    }
    const size_t size = sizeOf(field.type, records);
    std::string value = text.substr(0, text.find(';')); // what is behind it says where else
    const std::string valid = "stays if 0 or 1, else ";
    if (value.rfind(valid, 0) == 0) {
        value.erase(0, valid.size());
    }
    if (value == "stays") {
        return Bytes(size, kOld);
    }
    if (value == "all 0" || value == "0.0") {
        return Bytes(size, '\0');
    }
    // "1, 0x32, 0", or an address
    const size_t width = sizeOf(field.type.substr(0, field.type.find('[')), records);
    Bytes bytes;
    std::replace(value.begin(), value.end(), '.', ' ');
    std::replace(value.begin(), value.end(), ',', ' ');
    std::istringstream numbers(value);
    for (std::string number; numbers >> number;) {
        const auto value32 = static_cast<uint32_t>(std::stoul(number, nullptr, 0));
        bytes.append(reinterpret_cast<const char *>(&value32), width);
    }
    EXPECT_EQ(bytes.size(), size) << field << ": " << text;
    return bytes;
}

template <typename Record> Bytes bytesOf(const Record &record)
{
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

TEST(FilesDocument, AnnouncesTheDefaults)
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
    const Records records = readHeaders();
    const Document document = readDocument();
    ASSERT_EQ(document.tables.size(), after.size());
    for (const auto &[name, table] : document.tables) {
        ASSERT_EQ(after.count(name), 1u) << name;
        for (size_t i = 0; i < table.fields.size(); ++i) {
            const Field &field = table.fields[i];
            const Bytes bytes = announced(field, table.defaults[i], records);
            if (!bytes.empty()) {
                EXPECT_EQ(after.at(name).substr(field.offset, bytes.size()), bytes)
                    << name << ": " << field << ": " << table.defaults[i];
            }
        }
    }
}

// The bytes ---------------------------------------------------------------------------------------

// As "hexdump -C" shows a file. (It would show a "*" in the place of lines that repeat.)
std::vector<std::string> hexdump(const Bytes &bytes)
{
    std::vector<std::string> lines;
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
        lines.push_back(line);
    }
    std::snprintf(text.data(), text.size(), "%08zx", bytes.size());
    lines.emplace_back(text.data());
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
    const std::map<std::string, size_t> shown = {
        // lines
        {"UserPref.sav", 5}, {"DevInfo.sav", 3},  {"save0.sav", 4},
        {"workTime.sav", 3}, {"timeCon0.sav", 1},
    };
    ASSERT_EQ(document.dumps.size(), shown.size());
    for (const auto &[name, count] : shown) {
        ASSERT_EQ(document.dumps.count(name), 1u) << name;
        std::vector<std::string> lines = hexdump(textOf("/userdata/" + name));
        lines.resize(count);
        EXPECT_EQ(document.dumps.at(name), lines) << name;
    }
}

} // namespace
