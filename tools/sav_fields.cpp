#include "tools/sav_fields.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>
#include <stdexcept>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "command/frame.h"
#include "core/record.h"
#include "storage/DeviceInfo.h"
#include "storage/TimeControl.h"
#include "storage/UserPref.h"
#include "storage/UserSettingRecord.h"
#include "storage/WorkTime.h"
#include "tools/address.h"
#include "tools/errors.h"
#include "tools/nearest.h"
#include "tools/text.h"

namespace {

// A RECORD_FIELD or RECORD_FIELD_IN line.
struct Line {
    std::string_view record;
    std::string_view chapter;
    size_t offset;
    std::string_view type;
    size_t typeBytes;
    size_t count;
    std::string_view name;
    std::string_view unit;
};

std::vector<Line> readLines()
{
    std::vector<Line> lines;
    std::string_view chapter;
#undef RECORD_FIELD
#undef RECORD_FIELD_IN
#undef RECORD_SIZE
#undef RECORD_CHAPTER
// NOLINTBEGIN(bugprone-macro-parentheses): a chapter takes no parentheses.
#define RECORD_FIELD_IN(record, offset, type, count, field, unit)                                  \
    lines.push_back({#record, chapter, (offset), #type, sizeof(type), (count), #field, unit});
#define RECORD_FIELD(record, offset, type, count, field)                                           \
    RECORD_FIELD_IN(record, offset, type, count, field, "")
#define RECORD_SIZE(record, bytes)
#define RECORD_CHAPTER(title) chapter = title;
// NOLINTEND(bugprone-macro-parentheses)
#include "storage/DeviceInfo.def"
#include "storage/TimeControl.def"
#include "storage/UserPref.def"
#include "storage/UserSetting.def"
#include "storage/View.def"
#include "storage/WorkTime.def"
#undef RECORD_FIELD
#undef RECORD_FIELD_IN
#undef RECORD_SIZE
#undef RECORD_CHAPTER
    return lines;
}

struct Scalar {
    std::string_view type;
    size_t bytes;
    SavForm form;
};

constexpr Scalar kScalars[] = {
    {"uint8_t", sizeof(uint8_t), SavForm::kUnsigned},
    {"uint16_t", sizeof(uint16_t), SavForm::kUnsigned},
    {"uint32_t", sizeof(uint32_t), SavForm::kUnsigned},
    {"int16_t", sizeof(int16_t), SavForm::kSigned},
    {"int32_t", sizeof(int32_t), SavForm::kSigned},
    {"double", sizeof(double), SavForm::kReal},
};

const Scalar *scalarOf(std::string_view type)
{
    const auto *const scalar =
        std::find_if(std::begin(kScalars), std::end(kScalars),
                     [type](const Scalar &each) { return each.type == type; });
    return scalar == std::end(kScalars) ? nullptr : scalar;
}

// Bytes of which the program knows the place and the default at most. The names say so.
bool isUnknown(const Line &line)
{
    return line.name.starts_with("reserved") || line.name.starts_with("padding") ||
           line.name.starts_with("byte") || line.name.find("Byte") != std::string_view::npos ||
           line.unit == "bytes";
}

bool isAddress(const Line &line)
{
    return line.unit == "address" || line.unit == "two addresses" || line.unit == "leading ones";
}

// A field of numbers, or of addresses and the like.
SavField fieldOfScalar(const Line &line, const Scalar &scalar, size_t innerCount)
{
    SavField field{line.name,      line.unit,  line.offset,  scalar.form,
                   line.count > 1, line.count, scalar.bytes, nullptr};
    const bool isOfBytes = scalar.type == "uint8_t";
    // uint8_t[4] is one address, and uint8_t[2][4] are two.
    const auto take = [&](SavForm form) {
        field.form = form;
        field.isArray = innerCount > 1 && line.count > 1;
        field.count = field.isArray ? line.count : 1;
        field.bytes = innerCount > 1 ? innerCount : line.count;
    };
    if (isOfBytes && isAddress(line)) {
        take(SavForm::kAddress);
    } else if (isOfBytes && line.unit == "MAC address") {
        take(SavForm::kMac);
    } else if (isOfBytes && (innerCount > 1 || (isUnknown(line) && line.count > 1))) {
        take(SavForm::kBytes);
    } else if (line.unit.starts_with("0x") || (isOfBytes && isUnknown(line))) {
        field.form = SavForm::kHex;
    }
    return field;
}

const SavRecord *find(std::span<const SavRecord> records, std::string_view name)
{
    const auto record = std::find_if(records.begin(), records.end(),
                                     [name](const SavRecord &each) { return each.name == name; });
    return record == records.end() ? nullptr : &*record;
}

size_t bytesOf(const SavRecord &record)
{
    size_t bytes = 0;
    for (const SavField &field : record.fields) {
        bytes += field.count * (field.record == nullptr ? field.bytes : bytesOf(*field.record));
    }
    return bytes;
}

std::vector<SavRecord> makeRecords()
{
    const std::vector<Line> lines = readLines();
    std::vector<SavRecord> records;
    for (const Line &line : lines) {
        if (find(records, line.record) == nullptr) {
            records.push_back({line.record, line.chapter, 0, {}, false});
        }
    }
    // A page has no struct: the daemon reads and writes its views one by one.
    records.push_back({"Page", "page0_0.sav to page15_0.sav", 0, {}, true});
    for (SavRecord &record : records) {
        for (const Line &line : lines) {
            if (line.record != record.name) {
                continue;
            }
            const size_t bracket = std::min(line.type.find('['), line.type.size());
            if (const Scalar *const scalar = scalarOf(line.type.substr(0, bracket))) {
                record.fields.push_back(
                    fieldOfScalar(line, *scalar, line.typeBytes / scalar->bytes));
                continue;
            }
            const SavRecord *const used = find(records, line.type);
            if (used == nullptr) {
                throw std::logic_error(fmt::format("{} has no lines", line.type));
            }
            record.hasTables |= line.count > 1;
            record.fields.push_back({line.name, line.unit, line.offset, SavForm::kRecord,
                                     line.count > 1, line.count, 0, used});
        }
    }
    records.back().fields.push_back(
        {"views", "", 0, SavForm::kRecord, true, kViewCount, 0, find(records, "ViewSetting")});
    for (SavRecord &record : records) {
        record.bytes = bytesOf(record);
    }
    for (SavRecord &record : records) {
        for (SavField &field : record.fields) {
            field.bytes = field.record == nullptr ? field.bytes : field.record->bytes;
        }
    }
    return records;
}

void collect(const SavRecord &record, size_t at, const std::string &prefix,
             std::vector<SavValue> &values);

// The values of one field, of all its entries.
void collect(const SavField &field, size_t at, const std::string &prefix,
             std::vector<SavValue> &values)
{
    for (size_t i = 0; i < field.count; ++i) {
        std::string name = fmt::format("{}{}", prefix, field.name);
        if (field.isArray) {
            name += fmt::format("[{}]", i);
        }
        const size_t entryAt = at + field.offset + i * field.bytes;
        if (field.record != nullptr) {
            collect(*field.record, entryAt, name + '.', values);
        } else {
            values.push_back({std::move(name), &field, entryAt});
        }
    }
}

void collect(const SavRecord &record, size_t at, const std::string &prefix,
             std::vector<SavValue> &values)
{
    for (const SavField &field : record.fields) {
        collect(field, at, prefix, values);
    }
}

// One step of a name: "layers[3]".
struct Step {
    std::string_view name;
    std::string_view index; // "" if there is none
    bool hasIndex;
};

Step stepOf(std::string_view text)
{
    const size_t bracket = text.find('[');
    if (bracket == std::string_view::npos) {
        return {text, "", false};
    }
    std::string_view index = text.substr(bracket + 1);
    if (!index.ends_with(']')) {
        throw UsageError(fmt::format("\"{}\" has no closing bracket", escape(text)));
    }
    index.remove_suffix(1);
    return {text.substr(0, bracket), index, true};
}

std::vector<std::string> namesOf(const SavRecord &record)
{
    std::vector<std::string> names;
    names.reserve(record.fields.size());
    for (const SavField &field : record.fields) {
        names.emplace_back(field.name);
    }
    return names;
}

// Where a name is looked up: "preview.layers[3]", or "a view".
std::string placeOf(SavKind kind, std::string_view before)
{
    return before.empty() ? fmt::format("a {} file", nameOf(kind)) : std::string(before);
}

size_t indexOf(const SavField &field, std::string_view name, std::string_view text)
{
    size_t index = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), index);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() ||
        index >= field.count) {
        throw UsageError(fmt::format("\"{}[{}]\": the numbers of {} go from 0 to {}", name,
                                     escape(text), name, field.count - 1));
    }
    return index;
}

[[noreturn]] void refuse(std::string_view text, const std::string &possible)
{
    throw UsageError(fmt::format("\"{}\" is not {}", escape(text), possible));
}

// What a number may be, for people.
std::string rangeOf(const SavField &field)
{
    const int bits = static_cast<int>(8 * field.bytes);
    const int64_t top = int64_t{1} << bits;
    return field.form == SavForm::kSigned
               ? fmt::format("a number from {} to {}", -top / 2, top / 2 - 1)
           : field.form == SavForm::kHex ? fmt::format("a number from 0x00 to 0x{:x}", top - 1)
                                         : fmt::format("a number from 0 to {}", top - 1);
}

// "0x1F", "31" or "-31".
bool takeNumber(std::string_view text, int64_t &number)
{
    const bool isHex = text.starts_with("0x") || text.starts_with("0X");
    if (isHex) {
        text.remove_prefix(2);
        if (text.starts_with('-')) {
            return false;
        }
    }
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), number, isHex ? 16 : 10);
    return !text.empty() && error == std::errc() && end == text.data() + text.size();
}

void storeBytes(std::string_view text, std::string &bytes, size_t at, size_t count)
{
    std::string digits;
    for (const char character : text) {
        if (character != ' ') {
            digits += character;
        }
    }
    if (digits.size() != 2 * count || !std::all_of(digits.begin(), digits.end(), isHexDigit)) {
        refuse(text, fmt::format("{} hexadecimal digits", 2 * count));
    }
    for (size_t i = 0; i < count; ++i) {
        bytes[at + i] = static_cast<char>(HexCharToByte(digits.data() + 2 * i));
    }
}

void storeReal(std::string_view text, std::string &bytes, size_t at)
{
    uint64_t bits = 0;
    bool isRight = false;
    if (text.starts_with("0x")) {
        const char *const end = text.data() + text.size();
        const auto [last, error] = std::from_chars(text.data() + 2, end, bits, 16);
        isRight = error == std::errc() && last == end && text.size() == 2 + 2 * sizeof(bits);
    } else if (const auto value = realFrom(text, RealForm::kAny)) {
        std::memcpy(&bits, &*value, sizeof(bits));
        isRight = true;
    }
    if (!isRight) {
        throw UsageError(fmt::format("\"{}\" is neither a number nor 0x with 16 hexadecimal digits",
                                     escape(text)));
    }
    std::memcpy(bytes.data() + at, &bits, sizeof(bits));
}

void appendReal(uint64_t bits, std::string &text)
{
    double value = 0;
    std::memcpy(&value, &bits, sizeof(value));
    if (!std::isfinite(value)) {
        text += fmt::format("0x{:016x}", bits);
        return;
    }
    const std::string digits = fmt::format("{}", value);
    text += digits;
    // So that it stays a number with a fraction, which has a -0.
    if (digits.find_first_of(".e") == std::string::npos) {
        text += ".0";
    }
}

// See endOfSavValues(); `at` is where the record begins.
size_t endOfValues(const SavRecord &record, size_t at, size_t length)
{
    for (const SavField &field : record.fields) {
        const size_t fieldAt = at + field.offset;
        if (fieldAt + field.count * field.bytes <= length) {
            continue;
        }
        if (fieldAt >= length) {
            return length;
        }
        const size_t entryAt = fieldAt + (length - fieldAt) / field.bytes * field.bytes;
        return field.record != nullptr         ? endOfValues(*field.record, entryAt, length)
               : field.form == SavForm::kBytes ? length
                                               : entryAt;
    }
    return at + record.bytes;
}

} // namespace

std::span<const SavRecord> savRecords()
{
    static const std::vector<SavRecord> records = makeRecords();
    return records;
}

const SavRecord &savRecordOf(SavKind kind)
{
    static constexpr std::string_view kNames[] = {"UserPref",    "DeviceInfo", "UserSetting",
                                                  "ViewSetting", "Page",       "TimeControl",
                                                  "WorkTimeList"};
    static_assert(std::size(kNames) == static_cast<size_t>(SavKind::kUnknown));
    return *find(savRecords(), kNames[static_cast<size_t>(kind)]);
}

std::vector<SavValue> savValues(SavKind kind)
{
    std::vector<SavValue> values;
    collect(savRecordOf(kind), 0, "", values);
    return values;
}

std::vector<SavValue> findValues(SavKind kind, std::string_view name)
{
    const SavRecord *record = &savRecordOf(kind);
    size_t at = 0;
    std::string before; // the name up to here
    for (std::string_view rest = name;;) {
        const size_t dot = rest.find('.');
        const Step step = stepOf(rest.substr(0, dot));
        const auto field =
            std::find_if(record->fields.begin(), record->fields.end(),
                         [&step](const SavField &each) { return each.name == step.name; });
        if (field == record->fields.end()) {
            throw UsageError(fmt::format("\"{}\" is not a field of {}{}", escape(step.name),
                                         placeOf(kind, before),
                                         didYouMean(step.name, namesOf(*record))));
        }
        const std::string prefix = before.empty() ? "" : before + '.';
        const std::string whole = fmt::format("{}{}", prefix, field->name);
        if (step.hasIndex && !field->isArray) {
            throw UsageError(fmt::format("{} is a single value; it has no number", whole));
        }
        const size_t index = step.hasIndex ? indexOf(*field, whole, step.index) : 0;
        const bool isLast = dot == std::string_view::npos;
        if (field->record != nullptr && field->isArray && !step.hasIndex) {
            throw UsageError(fmt::format("there are several {}: {}[0] to {}[{}]", whole, whole,
                                         whole, field->count - 1));
        }
        before = step.hasIndex ? fmt::format("{}[{}]", whole, index) : whole;
        if (field->record == nullptr) {
            if (!isLast) {
                throw UsageError(fmt::format("{} is a value; it has no field \"{}\"", before,
                                             escape(rest.substr(dot + 1))));
            }
            std::vector<SavValue> values;
            collect(*field, at, prefix, values);
            if (step.hasIndex) {
                values = {values[index]};
            }
            return values;
        }
        if (isLast) {
            throw UsageError(fmt::format("{} is a record; its fields are {}", before,
                                         fmt::join(namesOf(*field->record), ", ")));
        }
        at += field->offset + index * field->bytes;
        record = field->record;
        rest.remove_prefix(dot + 1);
    }
}

size_t bytesThere(const SavField &field, std::string_view bytes, size_t at)
{
    return at >= bytes.size() ? 0 : std::min(field.bytes, bytes.size() - at);
}

int64_t numberAt(const SavField &field, std::string_view bytes, size_t at)
{
    uint32_t number = 0;
    std::memcpy(&number, bytes.data() + at, field.bytes);
    if (field.form != SavForm::kSigned) {
        return number;
    }
    return field.bytes == sizeof(int16_t) ? static_cast<int16_t>(number)
                                          : static_cast<int32_t>(number);
}

void appendText(const SavField &field, std::string_view bytes, size_t at, std::string &text)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    const size_t count = bytesThere(field, bytes, at);
    const auto appendHex = [&text, kDigits](char byte) {
        const auto value = static_cast<unsigned char>(byte);
        text += kDigits[value >> 4U];
        text += kDigits[value & 15U];
    };
    if (field.form == SavForm::kBytes) {
        for (const char byte : bytes.substr(std::min(at, bytes.size()), count)) {
            appendHex(byte);
        }
        return;
    }
    if (count < field.bytes) {
        return;
    }
    switch (field.form) {
    case SavForm::kReal: {
        uint64_t bits = 0;
        std::memcpy(&bits, bytes.data() + at, sizeof(bits));
        appendReal(bits, text);
        break;
    }
    case SavForm::kHex:
        text += "0x";
        for (size_t i = count; i > 0; --i) {
            appendHex(bytes[at + i - 1]);
        }
        break;
    case SavForm::kAddress:
        text += addressText(bytes.substr(at, count));
        break;
    case SavForm::kMac:
        text += macText(bytes.substr(at, count));
        break;
    default:
        const fmt::format_int number(numberAt(field, bytes, at));
        text.append(number.data(), number.size());
    }
}

void storeNumber(const SavField &field, int64_t number, std::string &bytes, size_t at)
{
    const int64_t top = int64_t{1} << (8 * field.bytes);
    const bool isSigned = field.form == SavForm::kSigned;
    if (number < (isSigned ? -top / 2 : 0) || number >= (isSigned ? top / 2 : top)) {
        refuse(std::to_string(number), rangeOf(field));
    }
    const auto value = static_cast<uint32_t>(number);
    std::memcpy(bytes.data() + at, &value, field.bytes);
}

void storeText(const SavField &field, std::string_view text, std::string &bytes, size_t at)
{
    switch (field.form) {
    case SavForm::kBytes:
        storeBytes(text, bytes, at, bytesThere(field, bytes, at));
        break;
    case SavForm::kReal:
        storeReal(text, bytes, at);
        break;
    case SavForm::kAddress:
        bytes.replace(at, field.bytes, bytesOfAddress(text));
        break;
    case SavForm::kMac:
        bytes.replace(at, field.bytes, bytesOfMac(text));
        break;
    default:
        int64_t number = 0;
        if (!takeNumber(text, number)) {
            refuse(text, rangeOf(field));
        }
        storeNumber(field, number, bytes, at);
    }
}

size_t endOfSavValues(const SavFile &file)
{
    return endOfValues(savRecordOf(file.kind), 0, file.bytes.size());
}
