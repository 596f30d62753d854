#include "tools/commands.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <iterator>
#include <sstream>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/address.h"
#include "tools/errors.h"
#include "tools/frames.h"
#include "tools/nearest.h"
#include "tools/parameters.h"
#include "tools/text.h"

namespace {

#include "commands.inc" // kTable and kSilentCommands, made from protocol/vesk.yaml

constexpr size_t kCommandAt = 2; // of the record's bytes
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
    return row.parameters.size() == 1 && (row.parameters[0].type == FieldType::kIpv4 ||
                                          row.parameters[0].type == FieldType::kMask);
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
        std::string frame = frameFromDigits(record);
        const CommandRow *const row = rowOf(recordOf(frame));
        if (row != nullptr && row->writes && count < 2 * (kChecksumAt - kCommandAt)) {
            throw UsageError(
                fmt::format("\"{}\" changes the device, so it needs all its ten digits: "
                            "command and dat1 to dat4",
                            row->name));
        }
        return frame;
    }
    throw UsageError(fmt::format("{} hexadecimal digit{}: 2 to 10 in pairs are the command and its "
                                 "data, 14 a record, 16 a record with its checksum",
                                 count, count == 1 ? "" : "s"));
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

// What a person may have meant with words that are no command.
std::string hintFor(const std::vector<std::string> &words)
{
    std::vector<std::string> names;
    std::string begunSo;
    for (const CommandRow &row : kTable) {
        const std::vector<std::string> name = wordsOf(row.name);
        names.push_back(fmt::format("{}", fmt::join(name, " ")));
        if (words.size() < name.size() && std::equal(words.begin(), words.end(), name.begin())) {
            begunSo += fmt::format("{}{}", begunSo.empty() ? "" : ", ", names.back());
        }
    }
    if (!begunSo.empty()) {
        return "; possible are: " + begunSo;
    }
    for (size_t count = words.size(); count > 0; --count) { // the last ones may be parameters
        const auto end = words.begin() + static_cast<ptrdiff_t>(count);
        const std::string typed = fmt::format("{}", fmt::join(words.begin(), end, " "));
        std::string hint = didYouMean(typed, names);
        if (!hint.empty()) {
            return hint;
        }
    }
    return {};
}

std::string frameFromWords(std::string_view text)
{
    const std::vector<std::string> words = wordsOf(text);
    size_t nameLength;
    const CommandRow *const row = rowNamed(words, nameLength);
    if (row == nullptr) {
        throw UsageError(
            fmt::format("\"{}\" is not a known command{}", escape(trim(text)), hintFor(words)));
    }
    const std::vector<std::string> given(words.begin() + static_cast<ptrdiff_t>(nameLength),
                                         words.end());
    return frameFromDigits(fmt::format("0000{:02x}{:02x}", row->command,
                                       fmt::join(dataOfParameters(*row, given), "")));
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

using Data = std::array<uint8_t, 4>; // dat1 to dat4

Data dataOf(const Rs232Command &record)
{
    return {record.dat1, record.dat2, record.dat3, record.dat4};
}

bool isAllFf(const Rs232Command &record)
{
    return dataOf(record) == Data{0xFF, 0xFF, 0xFF, 0xFF};
}

std::string textOf(const Field &field, const Data &data)
{
    const std::span<const uint8_t> bytes = std::span(data).subspan(field.at, field.length);
    switch (field.type) {
    case FieldType::kU8:
        return fmt::format("{}", bytes[0]);
    case FieldType::kOnOff:
        return bytes[0] == 0 ? "off" : "on";
    case FieldType::kU16:
        return fmt::format("0x{:02x}{:02x}", bytes[field.isLowFirst ? 1 : 0],
                           bytes[field.isLowFirst ? 0 : 1]);
    case FieldType::kVersion:
    case FieldType::kIpv4:
    case FieldType::kMask:
        return fmt::format("{}", fmt::join(bytes, "."));
    case FieldType::kFirstHalfOfMac:
    case FieldType::kLastHalfOfMac:
        return fmt::format("{:02x}", fmt::join(bytes, ":"));
    case FieldType::kSerialNumber: {
        return serialNumberText(bytes[0] * 256U + bytes[1]);
    }
    case FieldType::kBytes:
        break;
    }
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

// What a reply says, or nothing if it says no more than its command.
std::string answerOf(const CommandRow &row, const Data &data)
{
    std::vector<std::string> texts;
    if (!row.hasPayload) {
        for (const Field &field :
             row.answerKind == AnswerKind::kAck ? row.parameters : row.answer) {
            if (!field.isEcho) {
                texts.push_back(textOf(field, data));
            }
        }
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

std::string sentence(const Rs232Command &record, bool reply)
{
    const Data data = dataOf(record);
    const CommandRow *const row = rowOf(record);
    if (row == nullptr) {
        return fmt::format("unknown command {:02x}, data {:02x}{}", record.command,
                           fmt::join(data, " "),
                           isNeverAnswered(record) ? ", which is never answered" : "");
    }
    const std::string answer = reply ? answerOf(*row, data) : std::string();
    if (!answer.empty()) {
        return fmt::format("{}: {}", row->name, answer);
    }
    if (isAddress(*row)) {
        return fmt::format("{} {}", row->name, fmt::join(data, "."));
    }
    const bool isDat1Told = row->dat1 != kAnyDat1 || (record.dat1 == 0 && row->parameters.empty());
    const bool isBare = isDat1Told && record.dat2 == 0 && record.dat3 == 0 && record.dat4 == 0;
    return isBare ? row->name : fmt::format("{}, data {:02x}", row->name, fmt::join(data, " "));
}

std::string describe(std::string_view frame, bool isRefused)
{
    const Rs232Command record = recordOf(frame);
    const bool reply = isReply(frame);
    const char *const kind = !reply ? "command" : isRefused ? "refusal" : "reply";
    std::string text =
        fmt::format("{}, address {:02x}, tag {:02x}: {}", kind, record.address, record.tag,
                    isRefused ? nameOfRefused(record.command) : sentence(record, reply));
    if (record.checksum != rightChecksum(record)) {
        text += fmt::format("; WRONG CHECKSUM {:02x}, should be {:02x}", record.checksum,
                            rightChecksum(record));
    }
    return text;
}

} // namespace

std::span<const CommandRow> commandTable()
{
    return kTable;
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

std::string commandList()
{
    std::string list;
    for (const CommandRow &row : kTable) {
        const std::string dat1 =
            row.dat1 == kAnyDat1 ? std::string("..") : fmt::format("{:02x}", row.dat1);
        const std::string words = row.name + usageOf(row);
        const std::string line =
            fmt::format("  {:02x} {}  {:<46}  {}", row.command, dat1, words, row.note);
        list += std::string(line, 0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return list;
}

std::span<const CommandForm> commandForms()
{
    static constexpr CommandForm kForms[] = {
        {"2 to 10 digits",
         "command and dat1 to dat4; address, tag and omitted bytes are 00. A command\n"
         "that changes something needs all ten."},
        {"14 digits", "address, tag, command and dat1 to dat4; the checksum is added"},
        {"16 digits", "the same and the checksum, right or wrong"},
        {"<...>", "a whole frame of 19 characters, sent as it is, right or wrong"},
    };
    return kForms;
}

std::string serialNumberText(unsigned number)
{
    return fmt::format("{} (0x{:04x})", number, number);
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
    return rowOf(command) == nullptr &&
           std::find(std::begin(kSilentCommands), std::end(kSilentCommands), command.command) !=
               std::end(kSilentCommands);
}

bool isRefusal(const Rs232Command &reply)
{
    const CommandRow *const row = rowOf(reply);
    return isAllFf(reply) && (row == nullptr || !row->ffIsData);
}

bool isRefusalOf(const Rs232Command &command, const Rs232Command &reply)
{
    if (!isAllFf(reply) || isRefusal(reply)) {
        return isAllFf(reply);
    }
    const bool isIntact = command.checksum == rightChecksum(command);
    return !isIntact || (rowOf(command)->writes && !isAllFf(command));
}

bool isUnclear(const Rs232Command &command, const Rs232Command &reply)
{
    return isAllFf(reply) && !isRefusalOf(command, reply) && !rowOf(command)->writes;
}

std::string describe(std::string_view frame)
{
    const Rs232Command record = recordOf(frame);
    const bool reply = isReply(frame);
    const bool isRefused = reply && isRefusal(record);
    return describe(frame, isRefused) +
           (reply && isAllFf(record) && !isRefused ? ", or the refusal of a damaged frame" : "");
}

std::string describeReply(const Rs232Command &command, std::string_view frame)
{
    return describe(frame, isRefusalOf(command, recordOf(frame)));
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
