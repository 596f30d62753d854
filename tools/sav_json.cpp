#include "tools/sav_json.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "command/frame.h"
#include "tools/errors.h"
#include "tools/json.h"
#include "tools/nearest.h"
#include "tools/text.h"

namespace {

std::string quoted(const std::string &text)
{
    return Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
}

bool isNumber(SavForm form)
{
    return form == SavForm::kUnsigned || form == SavForm::kSigned || form == SavForm::kReal;
}

// Writing
// ------------------------------------------------------------------------------------------

// Writes the text directly: a tree of all values of a page would be a hundred times the file.
class Writer {
public:
    Writer(std::string_view bytes, SavLayout layout)
        : bytes_(bytes), isIndented_(layout == SavLayout::kIndented)
    {
    }

    std::string take()
    {
        return std::move(text_);
    }

    void open(char bracket)
    {
        text_ += bracket;
        depth_ += 1;
        isFirst_ = true;
    }

    void close(char bracket)
    {
        depth_ -= 1;
        startLine();
        text_ += bracket;
        isFirst_ = false;
    }

    // Before each entry of an object or an array of records.
    void next()
    {
        if (!isFirst_) {
            text_ += ',';
        }
        isFirst_ = false;
        startLine();
    }

    void key(std::string_view name)
    {
        next();
        text_ += '"';
        text_ += name;
        text_ += isIndented_ ? "\": " : "\":";
    }

    void raw(std::string_view text)
    {
        text_ += text;
    }

    void record(const SavRecord &record, size_t at)
    {
        open('{');
        for (const SavField &field : record.fields) {
            key(field.name);
            if (field.record == nullptr) {
                values(field, at + field.offset);
            } else if (!field.isArray) {
                this->record(*field.record, at + field.offset);
            } else {
                open('[');
                for (size_t i = 0; i < field.count; ++i) {
                    next();
                    this->record(*field.record, at + field.offset + i * field.bytes);
                }
                close(']');
            }
        }
        close('}');
    }

private:
    void startLine()
    {
        if (isIndented_) {
            text_ += '\n';
            text_.append(2 * depth_, ' ');
        }
    }

    void values(const SavField &field, size_t at)
    {
        if (!field.isArray) {
            appendJson(field, bytes_, at, text_);
            return;
        }
        for (size_t i = 0; i < field.count; ++i) {
            text_ += i == 0 ? "[" : isIndented_ ? ", " : ",";
            appendJson(field, bytes_, at + i * field.bytes, text_);
        }
        text_ += ']';
    }

    std::string text_;
    std::string_view bytes_;
    bool isIndented_;
    bool isFirst_ = true;
    size_t depth_ = 0;
};

// Reading
// ------------------------------------------------------------------------------------------

// A name that is put together only if it is needed.
struct Place {
    const Place *outer;
    std::string_view name; // "" for an entry of an array
    size_t index;

    std::string text() const
    {
        const std::string before = outer == nullptr ? "" : outer->text();
        return name.empty()     ? fmt::format("{}[{}]", before, index)
               : before.empty() ? std::string(name)
                                : fmt::format("{}.{}", before, name);
    }
};

class Reader {
public:
    Reader(std::string_view source, std::string &bytes) : source_(source), bytes_(bytes) {}

    [[noreturn]] void fail(const std::string &what) const
    {
        throw UsageError(fmt::format("{}: {}", source_, what));
    }

    void record(const SavRecord &record, size_t at, const Json &json, const Place *place) const
    {
        if (!json.is_object()) {
            fail(fmt::format("{} is not an object", nameOf(place)));
        }
        auto next = json.begin(); // mostly the keys are in order, and none is searched for
        for (const SavField &field : record.fields) {
            auto found = next != json.end() && next.key() == field.name
                             ? next
                             : json.find(std::string(field.name));
            if (found == json.end()) {
                failForUnknown(record, json, place); // it may be the missing one, misspelt
                fail(fmt::format("{} is missing", Place{place, field.name, 0}.text()));
            }
            next = found;
            ++next;
            const Place here{place, field.name, 0};
            if (field.record != nullptr && !field.isArray) {
                this->record(*field.record, at + field.offset, *found, &here);
            } else {
                entries(field, at + field.offset, *found, here);
            }
        }
        if (json.size() != record.fields.size()) {
            failForUnknown(record, json, place);
        }
    }

private:
    static std::string nameOf(const Place *place)
    {
        return place == nullptr ? "\"fields\"" : place->text();
    }

    // Says which key is not the name of a field.
    void failForUnknown(const SavRecord &record, const Json &json, const Place *place) const
    {
        std::vector<std::string> names;
        names.reserve(record.fields.size());
        for (const SavField &field : record.fields) {
            names.emplace_back(field.name);
        }
        for (const auto &[key, value] : json.items()) {
            if (std::find(names.begin(), names.end(), key) == names.end()) {
                fail(fmt::format("\"{}\" is not a field of {}{}", escape(key), nameOf(place),
                                 didYouMean(key, names)));
            }
        }
    }

    void entries(const SavField &field, size_t at, const Json &json, const Place &place) const
    {
        if (!field.isArray) {
            value(field, at, json, place);
            return;
        }
        if (!json.is_array() || json.size() != field.count) {
            fail(fmt::format("{} is not an array of {} values", place.text(), field.count));
        }
        for (size_t i = 0; i < field.count; ++i) {
            const Place here{&place, "", i};
            if (field.record != nullptr) {
                record(*field.record, at + i * field.bytes, json[i], &here);
            } else {
                value(field, at + i * field.bytes, json[i], here);
            }
        }
    }

    void value(const SavField &field, size_t at, const Json &json, const Place &place) const
    {
        const size_t count = bytesThere(field, bytes_, at);
        const bool isThere = count == field.bytes || (count > 0 && field.form == SavForm::kBytes);
        if (!isThere) {
            if (!json.is_null()) {
                fail(fmt::format("{} must be null: a file of {} bytes ends before it", place.text(),
                                 bytes_.size()));
            }
            return;
        }
        if (json.is_structured()) {
            fail(fmt::format("{} is an {}, not a value", place.text(), json.type_name()));
        }
        try {
            store(field, at, json);
        } catch (const UsageError &error) {
            fail(fmt::format("{}: {}", place.text(), error.what()));
        }
    }

    void store(const SavField &field, size_t at, const Json &json) const
    {
        if (json.is_string()) {
            storeText(field, json.get_ref<const std::string &>(), bytes_, at);
        } else if (field.form == SavForm::kReal && json.is_number()) {
            const auto value = json.get<double>();
            std::memcpy(bytes_.data() + at, &value, sizeof(value));
        } else if (json.is_number_integer() &&
                   (field.form == SavForm::kHex || isNumber(field.form))) {
            // What is greater than any int64_t is greater than any field.
            const bool isHuge = json.is_number_unsigned() && json.get<uint64_t>() > INT64_MAX;
            storeNumber(field, isHuge ? INT64_MAX : json.get<int64_t>(), bytes_, at);
        } else {
            storeText(field, json.dump(), bytes_, at); // which says what is possible
        }
    }

    std::string_view source_;
    std::string &bytes_;
};

// The member of the outermost object, or null.
Json memberOf(const Json &json, const char *key)
{
    const auto found = json.find(key);
    return found == json.end() ? Json() : *found;
}

// "[json.exception.out_of_range.406] WHAT"
std::string_view withoutCode(std::string_view what)
{
    const size_t end = what.starts_with('[') ? what.find("] ") : std::string_view::npos;
    return end == std::string_view::npos ? what : what.substr(end + 2);
}

// Of arrays and objects within each other; a page has far fewer. The library would take long for a
// tree of any depth.
constexpr int kDeepest = 32;

Json parse(std::string_view text, std::string_view source)
{
    const auto refuseDepth = [source](int depth, Json::parse_event_t event, Json &) {
        const bool isStart =
            event == Json::parse_event_t::array_start || event == Json::parse_event_t::object_start;
        if (isStart && depth >= kDeepest) {
            throw UsageError(fmt::format("{}: arrays and objects are nested more than {} deep",
                                         source, kDeepest));
        }
        return true;
    };
    try {
        return Json::parse(text, refuseDepth);
    } catch (const Json::parse_error &error) {
        const size_t end = std::min(error.byte == 0 ? 0 : error.byte - 1, text.size());
        const std::string_view before = text.substr(0, end);
        const size_t lineStart = before.rfind('\n') + 1; // npos + 1 is 0
        // "[json.exception.parse_error.101] parse error at line 1, column 3: WHAT"
        const std::string_view what = error.what();
        const size_t column = what.find("column");
        const size_t colon = column == std::string_view::npos ? column : what.find(": ", column);
        throw UsageError(fmt::format(
            "{}: line {}, column {}: {}", source,
            1 + std::count(before.begin(), before.end(), '\n'), 1 + end - lineStart,
            colon == std::string_view::npos ? withoutCode(what) : what.substr(colon + 2)));
    } catch (const Json::exception &error) { // a number that nothing can hold
        throw UsageError(fmt::format("{}: {}", source, withoutCode(error.what())));
    }
}

// Schemas
// ------------------------------------------------------------------------------------------

// Of one value. Any may be null, in a file that is too short for it.
Json schemaOfValue(const SavField &field)
{
    Json json;
    const bool isOfText = !isNumber(field.form);
    json["type"] = {isOfText                       ? "string"
                    : field.form == SavForm::kReal ? "number"
                                                   : "integer",
                    "null"};
    const int64_t top = int64_t{1} << (8 * std::min<size_t>(field.bytes, sizeof(uint32_t)));
    switch (field.form) {
    case SavForm::kUnsigned:
    case SavForm::kSigned:
        json["minimum"] = field.form == SavForm::kSigned ? -top / 2 : 0;
        json["maximum"] = field.form == SavForm::kSigned ? top / 2 - 1 : top - 1;
        break;
    case SavForm::kReal:
        json["type"] = {"number", "string", "null"};
        json["pattern"] = "^0x[0-9a-f]{16}$";
        break;
    case SavForm::kHex:
        json["pattern"] = fmt::format("^0x[0-9a-f]{{{}}}$", 2 * field.bytes);
        break;
    case SavForm::kBytes:
        json["pattern"] = fmt::format("^([0-9a-f]{{2}}){{1,{}}}$", field.bytes);
        break;
    case SavForm::kAddress:
        json["pattern"] = "^(\\d{1,3}\\.){3}\\d{1,3}$";
        break;
    case SavForm::kMac:
        json["pattern"] = "^([0-9a-f]{2}:){5}[0-9a-f]{2}$";
        break;
    case SavForm::kRecord:
        break;
    }
    return json;
}

Json schemaOfObject(Json properties)
{
    Json required = Json::array();
    for (const auto &[key, value] : properties.items()) {
        required.push_back(key);
    }
    return {{"type", "object"},
            {"additionalProperties", false},
            {"required", required},
            {"properties", std::move(properties)}};
}

// Adds the record and those that it is made of. The title is the chapter of docs/files.md.
void addDefinitions(const SavRecord &record, Json &definitions)
{
    if (definitions.contains(std::string(record.name))) {
        return;
    }
    definitions[std::string(record.name)] = nullptr; // takes the place before its parts
    Json properties;
    for (const SavField &field : record.fields) {
        Json json;
        if (field.record != nullptr) {
            addDefinitions(*field.record, definitions);
            json["$ref"] = fmt::format("#/definitions/{}", field.record->name);
        } else {
            json = schemaOfValue(field);
        }
        if (field.isArray) {
            json = {{"type", "array"},
                    {"items", std::move(json)},
                    {"minItems", field.count},
                    {"maxItems", field.count}};
        }
        if (!field.unit.empty()) {
            json["description"] = field.unit;
        }
        properties[std::string(field.name)] = std::move(json);
    }
    Json &definition = definitions[std::string(record.name)];
    definition = {{"title", record.chapter}};
    definition.update(schemaOfObject(std::move(properties)));
}

} // namespace

std::string hexOf(std::string_view bytes)
{
    std::string digits;
    for (const char byte : bytes) {
        digits += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    }
    return digits;
}

void appendJson(const SavField &field, std::string_view bytes, size_t at, std::string &json)
{
    const size_t start = json.size();
    appendText(field, bytes, at, json);
    if (json.size() == start) {
        json += "null";
    } else if (!isNumber(field.form) || json.compare(start, 2, "0x") == 0) {
        // Also a number that JSON does not have.
        json.insert(start, 1, '"');
        json += '"';
    }
}

std::string jsonOfSav(const SavFile &file, SavLayout layout)
{
    const SavRecord &record = savRecordOf(file.kind);
    Writer writer(file.bytes, layout);
    writer.open('{');
    writer.key("file");
    writer.raw(quoted(file.path));
    writer.key("kind");
    writer.raw(quoted(std::string(nameOf(file.kind))));
    writer.key("length");
    writer.raw(std::to_string(file.bytes.size()));
    writer.key("fields");
    writer.record(record, 0);
    writer.key("rest");
    writer.raw(quoted(hexOf(std::string_view(file.bytes).substr(endOfSavValues(file)))));
    writer.close('}');
    return writer.take();
}

SavFile savOfJson(std::string_view text, std::string_view source)
{
    constexpr std::string_view kKeys[] = {"file", "kind", "length", "fields", "rest"};
    const auto fail = [source](const std::string &what) {
        throw UsageError(fmt::format("{}: {}", source, what));
    };
    const Json json = parse(text, source);
    if (!json.is_object()) {
        fail("this is not an object with \"kind\" and \"fields\"");
    }
    for (const auto &[key, value] : json.items()) {
        if (std::find(std::begin(kKeys), std::end(kKeys), key) == std::end(kKeys)) {
            fail(fmt::format("\"{}\" is not a key of a settings file; those are {}", escape(key),
                             fmt::join(kKeys, ", ")));
        }
    }
    const Json kind = memberOf(json, "kind");
    SavFile file{"", kindOfName(kind.is_string() ? kind.get<std::string>() : ""), ""};
    if (file.kind == SavKind::kUnknown) {
        fail(fmt::format("\"kind\" must be one of {}", fmt::join(savKindNames(), ", ")));
    }
    const Json length = memberOf(json, "length");
    if (!length.is_null() &&
        (!length.is_number_unsigned() || length.get<uint64_t>() > kLongestSav)) {
        fail(fmt::format("\"length\" must be a number of bytes, {} at most", kLongestSav));
    }
    file.bytes.resize(length.is_null() ? lengthOf(file.kind) : length.get<size_t>());
    const auto fields = json.find("fields");
    if (fields == json.end()) {
        fail("\"fields\" is missing");
    }
    Reader(source, file.bytes).record(savRecordOf(file.kind), 0, *fields, nullptr);
    const Json rest = memberOf(json, "rest");
    const size_t end = endOfSavValues(file);
    const size_t count = file.bytes.size() - end;
    const std::string digits = rest.is_string() ? rest.get<std::string>() : "";
    if ((!rest.is_null() && !rest.is_string()) || digits.size() != 2 * count ||
        !std::all_of(digits.begin(), digits.end(), isHexDigit)) {
        fail(fmt::format("\"rest\" must be {} hexadecimal digits, for the bytes from {} to the "
                         "end of a file of {} bytes",
                         2 * count, end, file.bytes.size()));
    }
    for (size_t i = 0; i < count; ++i) {
        file.bytes[end + i] = static_cast<char>(HexCharToByte(digits.data() + 2 * i));
    }
    return file;
}

std::string schemaOfSav(SavKind kind)
{
    const SavRecord &record = savRecordOf(kind);
    Json definitions;
    addDefinitions(record, definitions);
    Json json = {
        {"$schema", "http://json-schema.org/draft-07/schema#"},
        {"title", fmt::format("veskctl sav dump: one file of the kind {}. Null: a short file does "
                              "not have that value.",
                              nameOf(kind))},
    };
    json.update(schemaOfObject({
        {"file", {{"type", "string"}}},
        {"kind", {{"const", nameOf(kind)}}},
        {"length",
         {{"type", "integer"},
          {"minimum", 0},
          {"maximum", kLongestSav},
          {"description", fmt::format("bytes of the file; {} if it is whole", record.bytes)}}},
        {"fields", {{"$ref", fmt::format("#/definitions/{}", record.name)}}},
        {"rest",
         {{"type", "string"},
          {"pattern", "^([0-9a-f]{2})*$"},
          {"description", "bytes that are no value: those after the end, or the beginning of the "
                          "value that a short file ends in"}}},
    }));
    json["definitions"] = std::move(definitions);
    return json.dump(2);
}
