#include "tools/commands.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <vector>

#include <fmt/format.h>

#include "tools/errors.h"
#include "tools/frames.h"
#include "tools/text.h"

namespace {

constexpr char kFour[] = "DAT1 DAT2 DAT3 DAT4";
constexpr char kNotHere[] = "refused: not in this model";

// The rows of the command table in docs/protocol.md, in its order. What is not here is refused.
// clang-format off
constexpr CommandRow kTable[] = {
//   code  dat1      name                     parameters  reply              note
    {0x10, 0x11,     "print memory use",      "",         "",                "prints nothing in this model"},
    {0x68, 0x01,     "read device type",      "",         "{1:02x}{2:02x}",  ""},
    {0x6A, 0x03,     "read protocol version", "",         "{1}.{2}",         ""},
    {0x73, kAnyDat1, "input source",          kFour,      "",                kNotHere},
    {0x74, kAnyDat1, "output format",         kFour,      "",                kNotHere},
    {0x75, kAnyDat1, "layer setting",         kFour,      "",                kNotHere},
    {0x76, kAnyDat1, "output setting",        kFour,      "",                kNotHere},
    {0x77, kAnyDat1, "input setting",         kFour,      "",                kNotHere},
    {0x78, kAnyDat1, "switch setting",        kFour,      "",                kNotHere},
    {0x7D, kAnyDat1, "test pattern",          kFour,      "",                kNotHere},
    {0x86, kAnyDat1, "HDMI output DE",        kFour,      "",                kNotHere},
    {0x8B, kAnyDat1, "time control",          kFour,      "",                kNotHere},
    {0x97, kAnyDat1, "work time",             kFour,      "",                kNotHere},
};
// clang-format on

constexpr size_t kCommandAt = 2; // of the record's bytes
constexpr size_t kDat1At = 3;
constexpr size_t kChecksumAt = 7;

std::vector<std::string> wordsOf(std::string_view text)
{
    std::istringstream stream{std::string(text)};
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        std::transform(word.begin(), word.end(), word.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        words.push_back(word);
    }
    return words;
}

std::string joined(std::string_view text)
{
    std::string result;
    for (const char character : text) {
        if (std::isspace(static_cast<unsigned char>(character)) == 0) {
            result += character;
        }
    }
    return result;
}

bool isAllHex(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), isHexDigit);
}

// The record's bytes up to dat4, as digits, as a frame.
std::string frameFromDigits(const std::string &digits)
{
    std::string frame = CommandToLEDHeader + digits + "00" + CommandEnd;
    Rs232Command record = recordOf(frame);
    Rs232CommandToStr(&record, frame.data());
    return frame;
}

std::string frameFromHex(const std::string &digits)
{
    const size_t count = digits.size();
    if (count == 2 * (kChecksumAt + 1)) {
        return CommandToLEDHeader + digits + CommandEnd;
    }
    if (count == 2 * kChecksumAt) {
        return frameFromDigits(digits);
    }
    if (count % 2 == 0 && count <= 2 * (kChecksumAt - kCommandAt)) {
        std::string record(2 * kChecksumAt, '0');
        record.replace(2 * kCommandAt, count, digits);
        return frameFromDigits(record);
    }
    throw UsageError(fmt::format("{} hexadecimal digits: 2 to 10 in pairs give the command and its "
                                 "data, 14 a record, 16 a record with its checksum",
                                 count));
}

const CommandRow *rowNamed(const std::vector<std::string> &words, size_t &length)
{
    const CommandRow *found = nullptr;
    length = 0;
    for (const CommandRow &row : kTable) {
        const std::vector<std::string> name = wordsOf(row.name);
        if (name.size() > length && name.size() <= words.size() &&
            std::equal(name.begin(), name.end(), words.begin())) {
            found = &row;
            length = name.size();
        }
    }
    return found;
}

std::string frameFromWords(std::string_view text)
{
    const std::vector<std::string> words = wordsOf(text);
    size_t nameLength;
    const CommandRow *const row = rowNamed(words, nameLength);
    if (row == nullptr) {
        throw UsageError(fmt::format("\"{}\" is no command that I know", escape(trim(text))));
    }
    const size_t allowed = wordsOf(row->parameters).size();
    if (words.size() - nameLength > allowed) {
        throw UsageError(fmt::format("\"{}\" takes {} parameters", row->name,
                                     allowed == 0 ? "no" : fmt::format("at most {}", allowed)));
    }
    const bool hasSubCommand = row->dat1 != kAnyDat1;
    std::string record(2 * kChecksumAt, '0');
    record.replace(2 * kCommandAt, 2, fmt::format("{:02x}", row->command));
    if (hasSubCommand) {
        record.replace(2 * kDat1At, 2, fmt::format("{:02x}", row->dat1));
    }
    size_t at = 2 * (kDat1At + (hasSubCommand ? 1U : 0U));
    for (size_t i = nameLength; i < words.size(); ++i, at += 2) {
        if (words[i].size() > 2 || !isAllHex(words[i])) {
            throw UsageError(fmt::format("\"{}\" is no hexadecimal byte", escape(words[i])));
        }
        record.replace(at, 2, fmt::format("{:0>2}", words[i]));
    }
    return frameFromDigits(record);
}

const CommandRow *rowOf(const Rs232Command &record)
{
    for (const CommandRow &row : kTable) {
        if (row.command == record.command && (row.dat1 == kAnyDat1 || row.dat1 == record.dat1)) {
            return &row;
        }
    }
    return nullptr;
}

// A refusal has lost its dat1, so the code alone must do: the name only if it is the only one.
std::string nameOfRefused(uint8_t command)
{
    std::string name;
    for (const CommandRow &row : kTable) {
        if (row.command == command) {
            if (!name.empty()) {
                return fmt::format("command {:02x}", command);
            }
            name = row.name;
        }
    }
    return name.empty() ? fmt::format("command {:02x}", command) : name;
}

std::string dataOf(const Rs232Command &record)
{
    return fmt::format("{:02x} {:02x} {:02x} {:02x}", record.dat1, record.dat2, record.dat3,
                       record.dat4);
}

std::string sentence(const Rs232Command &record, bool reply)
{
    if (reply && isRefusal(record)) {
        return nameOfRefused(record.command);
    }
    const CommandRow *const row = rowOf(record);
    if (row == nullptr) {
        return fmt::format("unknown command {:02x}, data {}", record.command, dataOf(record));
    }
    const bool isBare =
        row->dat1 != kAnyDat1 && record.dat2 == 0 && record.dat3 == 0 && record.dat4 == 0;
    if (reply && row->reply[0] != '\0') {
        return fmt::format("{}: {}", row->name,
                           fmt::format(fmt::runtime(row->reply), record.dat1, record.dat2,
                                       record.dat3, record.dat4));
    }
    return isBare ? row->name : fmt::format("{}, data {}", row->name, dataOf(record));
}

} // namespace

std::span<const CommandRow> commandTable()
{
    return kTable;
}

std::string commandList()
{
    std::string list;
    for (const CommandRow &row : kTable) {
        const std::string dat1 =
            row.dat1 == kAnyDat1 ? std::string("..") : fmt::format("{:02x}", row.dat1);
        std::string words = row.name;
        for (std::string parameter : wordsOf(row.parameters)) {
            std::transform(parameter.begin(), parameter.end(), parameter.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
            words += fmt::format(" [{}]", parameter);
        }
        const std::string line =
            fmt::format("  {:02x} {}  {:<46}  {}", row.command, dat1, words, row.note);
        list += std::string(line, 0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return list;
}

std::string frameFromText(std::string_view text)
{
    std::string compact = joined(text);
    if (compact.empty()) {
        throw UsageError("no command given");
    }
    if (compact[0] == CommandToLEDHeader[0]) {
        if (compact.size() != kFrameLength) {
            throw UsageError(fmt::format("a frame has {} characters, \"{}\" has {}", kFrameLength,
                                         escape(compact), compact.size()));
        }
        return compact;
    }
    return isAllHex(compact) ? frameFromHex(compact) : frameFromWords(text);
}

std::string describe(std::string_view frame)
{
    const Rs232Command record = recordOf(frame);
    const bool reply = isReply(frame);
    const char *const kind = !reply ? "command" : isRefusal(record) ? "refusal" : "reply";
    std::string text = fmt::format("{}, address {:02x}, tag {:02x}: {}", kind, record.address,
                                   record.tag, sentence(record, reply));
    if (record.checksum != rightChecksum(record)) {
        text += fmt::format("; WRONG CHECKSUM {:02x}, should be {:02x}", record.checksum,
                            rightChecksum(record));
    }
    return text;
}

std::string describeAll(std::string_view bytes)
{
    std::string text;
    FrameFinder finder;
    for (const Piece &piece : finder.feed(bytes)) {
        if (!piece.isFrame) {
            return {};
        }
        text += fmt::format("{}{}", text.empty() ? "" : " | ", describe(piece.text));
    }
    return finder.holdsBack() ? std::string() : text;
}

std::string frameWithDescription(std::string_view frame)
{
    return fmt::format("{}  {}", frame, describe(frame));
}
