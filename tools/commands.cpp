#include "tools/commands.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <vector>

#include <fmt/format.h>

#include "tools/address.h"
#include "tools/errors.h"
#include "tools/frames.h"
#include "tools/text.h"

namespace {

constexpr char kFour[] = "DAT1 DAT2 DAT3 DAT4";
constexpr const char *kAnAddress = kAddress.data();
constexpr char kNotHere[] = "refused: not in this model";

// Replies that several commands have in common.
constexpr char kVersion[] = "{1}.{2}";
constexpr char kWord[] = "{1:02x}{2:02x}";
constexpr char kDotted[] = "{0}.{1}.{2}.{3}";
constexpr char kHalfMac[] = "{1:02x}:{2:02x}:{3:02x}";

// The rows of the command table in docs/protocol.md, in its order, and those of the firmware
// update. Other commands are refused, or never answered: see isNeverAnswered().
// clang-format off
constexpr CommandRow kTable[] = {
//   code  dat1      name                            parameters           reply              note
    {0x10, 0x11,     "print memory use",             "",                  "",                "prints nothing in this model"},
    {0x68, 0x01,     "read device type",             "",                  kWord,             ""},
    {0x6A, 0x03,     "read protocol version",        "",                  kVersion,          ""},
    {0x6A, 0x04,     "read system version",          "",                  kVersion,          ""},
    {0x6A, 0x10,     "write serial number",          "HIGH LOW",          kWord,             ""},
    {0x6A, 0x11,     "read serial number",           "",                  kWord,             ""},
    {0x73, kAnyDat1, "input source",                 kFour,               "",                kNotHere},
    {0x74, kAnyDat1, "output format",                kFour,               "",                kNotHere},
    {0x75, kAnyDat1, "layer setting",                kFour,               "",                kNotHere},
    {0x76, kAnyDat1, "output setting",               kFour,               "",                kNotHere},
    {0x77, kAnyDat1, "input setting",                kFour,               "",                kNotHere},
    {0x78, kAnyDat1, "switch setting",               kFour,               "",                kNotHere},
    {0x7D, kAnyDat1, "test pattern",                 kFour,               "",                kNotHere},
    {0x84, kAnyDat1, "write net mask",               kAnAddress,          kDotted,           ""},
    {0x85, kAnyDat1, "read net mask",                "",                  kDotted,           ""},
    {0x86, kAnyDat1, "HDMI output DE",               kFour,               "",                kNotHere},
    {0x88, kAnyDat1, "write IP address",             kAnAddress,          kDotted,           ""},
    {0x89, kAnyDat1, "read IP address",              "",                  kDotted,           ""},
    {0x8B, kAnyDat1, "time control",                 kFour,               "",                kNotHere},
    {0x8C, kAnyDat1, "write gateway",                kAnAddress,          kDotted,           ""},
    {0x8D, kAnyDat1, "read gateway",                 "",                  kDotted,           ""},
    {0x8E, 0x02,     "write DHCP",                   "ON",                "{1}",             "01 on, 00 off"},
    {0x8E, 0x03,     "read DHCP",                    "",                  "{1}",             ""},
    {0x8E, 0x05,     "read MAC address, first half", "",                  kHalfMac,          ""},
    {0x8E, 0x07,     "read MAC address, last half",  "",                  kHalfMac,          ""},
    {0x97, kAnyDat1, "work time",                    kFour,               "",                kNotHere},
    {0x9A, 0x10,     "update query",                 "",                  "",                ""},
    {0x9A, 0x16,     "update wait",                  "",                  "",                "delays the next command by 10 ms"},
    {0x9A, 0x20,     "update acknowledge",           "",                  "",                ""},
    {0x9A, 0xA0,     "update block",                 "07 LOW HIGH",       "",                "a block follows: see `update`"},
    {0x9A, 0xA1,     "update block size",            "07",                "0x{2:02x}{3:02x}", ""},
    {0x9A, 0xB1,     "update version",               "07",                "{2}.{3}",         ""},
    {0xF0, kAnyDat1, "write data",                   "DAT1 DAT2 LOW HIGH", "",                "data follow: see `network`"},
    {0xF1, kAnyDat1, "read data",                    "DAT1 DAT2",         "",                "data follow the reply: see `network`"},
    {0xF2, kAnyDat1, "write text",                   "DAT1 DAT2",         "",                "a text follows: see `text`"},
    {0xF3, kAnyDat1, "read text",                    "DAT1 DAT2",         "",                "a text follows the reply: see `text`"},
};
// clang-format on

constexpr uint8_t kSilentCommand = 0x8E; // unless it has a row

constexpr size_t kCommandAt = 2; // of the record's bytes
constexpr size_t kDat1At = 3;
constexpr size_t kChecksumAt = 7;

// The words of `text` in lower case, without blanks and commas.
std::vector<std::string> wordsOf(std::string_view text)
{
    std::string blanked(text);
    std::replace(blanked.begin(), blanked.end(), ',', ' ');
    std::istringstream stream(blanked);
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

bool isAddress(const CommandRow &row)
{
    return row.parameters == kAddress;
}

// The frame for the digits of a record up to dat4.
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
    throw UsageError(fmt::format("{} hexadecimal digits: 2 to 10 in pairs are the command and its "
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

// The parameters that were typed after the words of a row, as digits.
std::string digitsOf(const CommandRow &row, const std::vector<std::string> &given)
{
    std::string digits;
    if (isAddress(row) && given.size() == 1 && given[0].find('.') != std::string::npos) {
        for (const char byte : bytesOfAddress(given[0])) {
            digits += fmt::format("{:02x}", static_cast<unsigned char>(byte));
        }
        return digits;
    }
    const size_t allowed = isAddress(row) ? 4 : wordsOf(row.parameters).size();
    if (given.size() > allowed) {
        throw UsageError(fmt::format("\"{}\" takes {} parameters", row.name,
                                     allowed == 0 ? "no" : fmt::format("at most {}", allowed)));
    }
    for (const std::string &byte : given) {
        if (byte.size() > 2 || !isAllHex(byte)) {
            throw UsageError(fmt::format("\"{}\" is not a hexadecimal byte", escape(byte)));
        }
        digits += fmt::format("{:0>2}", byte);
    }
    return digits;
}

std::string frameFromWords(std::string_view text)
{
    const std::vector<std::string> words = wordsOf(text);
    size_t nameLength;
    const CommandRow *const row = rowNamed(words, nameLength);
    if (row == nullptr) {
        throw UsageError(fmt::format("\"{}\" is not a known command", escape(trim(text))));
    }
    const std::vector<std::string> given(words.begin() + static_cast<ptrdiff_t>(nameLength),
                                         words.end());
    const bool hasSubCommand = row->dat1 != kAnyDat1;
    std::string record(2 * kChecksumAt, '0');
    record.replace(2 * kCommandAt, 2, fmt::format("{:02x}", row->command));
    if (hasSubCommand) {
        record.replace(2 * kDat1At, 2, fmt::format("{:02x}", row->dat1));
    }
    const std::string digits = digitsOf(*row, given);
    record.replace(2 * (kDat1At + (hasSubCommand ? 1U : 0U)), digits.size(), digits);
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

// A refusal does not carry dat1. The name can be told only if the code has a single row.
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
        return fmt::format("unknown command {:02x}, data {}{}", record.command, dataOf(record),
                           isNeverAnswered(record) ? ", which is never answered" : "");
    }
    const auto fill = [&](const char *form) {
        return fmt::format(fmt::runtime(form), record.dat1, record.dat2, record.dat3, record.dat4);
    };
    if (reply && row->reply[0] != '\0') {
        return fmt::format("{}: {}", row->name, fill(row->reply));
    }
    if (isAddress(*row)) {
        return fmt::format("{} {}", row->name, fill(kDotted));
    }
    const bool isDat1Told =
        row->dat1 != kAnyDat1 || (record.dat1 == 0 && row->parameters[0] == '\0');
    const bool isBare = isDat1Told && record.dat2 == 0 && record.dat3 == 0 && record.dat4 == 0;
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

bool isNeverAnswered(const Rs232Command &command)
{
    return command.command == kSilentCommand && rowOf(command) == nullptr;
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
