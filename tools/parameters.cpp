#include "tools/parameters.h"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/address.h"
#include "tools/errors.h"
#include "tools/manner.h"
#include "tools/text.h"

namespace {

// The number of `text`, all of it, in a base; -1 if it is none.
int64_t numberOf(std::string_view text, int base)
{
    uint32_t value = 0;
    const char *const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value, base);
    return result.ec == std::errc() && result.ptr == end ? int64_t{value} : -1;
}

uint32_t onOff(const std::string &text)
{
    if (text == "on" || text == "1" || text == "01") {
        return 1;
    }
    if (text == "off" || text == "0" || text == "00") {
        return 0;
    }
    throw UsageError(fmt::format("\"{}\" is none of on, off, 1 and 0", escape(text)));
}

uint32_t number(const Field &field, const std::string &text)
{
    const bool isHex = text.starts_with("0x");
    const int64_t value =
        isHex ? numberOf(std::string_view(text).substr(2), 16) : numberOf(text, 10);
    if (value < field.least || value > field.most) {
        throw UsageError(
            fmt::format("\"{}\" is not a {} from {} to {}, decimal or with 0x in front",
                        escape(text), field.name, field.least, field.most));
    }
    return static_cast<uint32_t>(value);
}

uint32_t byte(const Field &field, const std::string &text)
{
    const int64_t value = text.size() == 2 ? numberOf(text, 16) : -1;
    if (value < 0) {
        throw UsageError(fmt::format("\"{}\" is not a hexadecimal byte such as 0a", escape(text)));
    }
    if (value < field.least || value > field.most) {
        throw UsageError(field.least == field.most
                             ? fmt::format("the {} is always {:02x}", field.name, field.least)
                             : fmt::format("\"{}\" is not a {} from {:02x} to {:02x}", escape(text),
                                           field.name, field.least, field.most));
    }
    return static_cast<uint32_t>(value);
}

bool isAddress(const Field &field)
{
    return field.type == FieldType::kIpv4 || field.type == FieldType::kMask;
}

// The field's bytes for a number.
void store(const Field &field, uint32_t value, std::array<uint8_t, 4> &data)
{
    for (unsigned i = 0; i < field.length; ++i, value >>= 8) {
        data[field.at + (field.isLowFirst ? i : field.length - 1U - i)] = value & 0xFF;
    }
}

void store(const Field &field, const std::string &text, std::array<uint8_t, 4> &data)
{
    if (isAddress(field)) {
        const std::string bytes =
            field.type == FieldType::kMask ? bytesOfMask(text) : bytesOfAddress(text);
        std::copy(bytes.begin(), bytes.end(), data.begin() + field.at);
    } else if (field.type == FieldType::kOnOff) {
        store(field, onOff(text), data);
    } else if (field.length == 1) {
        store(field, byte(field, text), data);
    } else {
        store(field, number(field, text), data);
    }
}

// As above. A complaint begins with the field's name for somebody who fills in fields.
void storeGiven(const Field &field, const std::string &text, std::array<uint8_t, 4> &data)
{
    try {
        store(field, text, data);
    } catch (const UsageError &error) {
        throw UsageError(ifTyped("", std::string(field.name) + ": ") + error.what());
    }
}

std::string wordFor(const Field &field)
{
    if (isAddress(field)) {
        return "A.B.C.D";
    }
    if (field.type == FieldType::kOnOff) {
        return "on|off";
    }
    if (field.length > 1) {
        return "NUMBER";
    }
    return field.usual != 0 ? usualText(field) : fmt::format("DAT{}", field.at + 1);
}

// The row's parameters after a blank, as somebody knows them who types, or who fills in fields.
std::string askedOf(const CommandRow &row)
{
    std::vector<std::string> names;
    for (const Field &field : row.parameters) {
        names.emplace_back(field.name);
    }
    return ifTyped(usageOf(row), fmt::format(" {}", fmt::join(names, ", ")));
}

} // namespace

std::array<uint8_t, 4> dataOfParameters(const CommandRow &row,
                                        const std::vector<std::string> &given)
{
    const size_t most = row.parameters.size();
    if (given.size() > most) {
        throw UsageError(fmt::format("\"{}\" takes {}, and {} were given", row.name,
                                     most == 0 ? "no parameters"
                                     : most == 1
                                         ? "one parameter," + askedOf(row)
                                         : fmt::format("{} parameters,{}", most, askedOf(row)),
                                     given.size()));
    }
    if (row.writes && given.size() < most) {
        throw UsageError(
            fmt::format("\"{}\" changes the device, so it needs all its parameters:{}{}", row.name,
                        ifTyped(std::string(" ") + row.name), askedOf(row)));
    }
    std::array<uint8_t, 4> data{};
    if (row.dat1 != kAnyDat1) {
        data[0] = static_cast<uint8_t>(row.dat1);
    }
    for (size_t i = 0; i < most; ++i) {
        const Field &field = row.parameters[i];
        if (i < given.size()) {
            storeGiven(field, given[i], data);
        } else {
            store(field, field.usual, data);
        }
    }
    return data;
}

std::string hintOn(const Field &field)
{
    if (isAddress(field)) {
        return field.type == FieldType::kMask ? "such as 255.255.255.0" : "such as 192.168.0.100";
    }
    if (field.type == FieldType::kOnOff) {
        return "on or off";
    }
    if (field.length == 1) {
        return "two hexadecimal digits";
    }
    return fmt::format("{} to {}{}{}", field.least, field.most, *field.unit == '\0' ? "" : " ",
                       field.unit);
}

std::vector<std::string> choicesOf(const Field &field)
{
    return field.type == FieldType::kOnOff ? std::vector<std::string>{"on", "off"}
                                           : std::vector<std::string>{};
}

std::string usualText(const Field &field)
{
    if (isAddress(field)) {
        std::array<uint8_t, 4> data{};
        store(field, field.usual, data);
        return fmt::format("{}", fmt::join(data, "."));
    }
    if (field.type == FieldType::kOnOff) {
        return field.usual == 0 ? "off" : "on";
    }
    return field.length == 1 ? fmt::format("{:02x}", field.usual) : fmt::format("{}", field.usual);
}

std::string usageOf(const CommandRow &row)
{
    std::string text;
    for (const Field &field : row.parameters) {
        text +=
            row.writes ? fmt::format(" {}", wordFor(field)) : fmt::format(" [{}]", wordFor(field));
    }
    return text;
}
