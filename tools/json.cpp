#include "tools/json.h"

#include <array>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/frames.h"
#include "tools/manner.h"
#include "tools/output.h"
#include "tools/text.h"

namespace {

Json jsonOf(std::string_view frame, bool isRefused)
{
    const Rs232Command record = recordOf(frame);
    const bool reply = isReply(frame);
    const CommandRow *const row = rowOf(record);
    Json json;
    json["frame"] = frame;
    json["kind"] = !reply ? "command" : isRefused ? "refusal" : "reply";
    json["address"] = record.address;
    json["tag"] = record.tag;
    json["command"] = record.command;
    json["data"] = {record.dat1, record.dat2, record.dat3, record.dat4};
    json["name"] = row == nullptr ? Json() : Json(row->name);
    json["checksum_is_right"] = record.checksum == rightChecksum(record);
    Json fields = Json::object();
    if (row != nullptr && !isRefused) {
        const bool hasAnswer = reply && row->answerKind == AnswerKind::kData;
        for (const Field &field : hasAnswer ? row->answer : row->parameters) {
            fields[field.name] = valueOf(field, record);
        }
    }
    json["fields"] = fields;
    return json;
}

} // namespace

Json valueOf(const Field &field, const Rs232Command &record)
{
    const std::array<uint8_t, 4> data{record.dat1, record.dat2, record.dat3, record.dat4};
    const std::span<const uint8_t> bytes = std::span(data).subspan(field.at, field.length);
    switch (field.type) {
    case FieldType::kU8:
        return bytes[0];
    case FieldType::kOnOff:
        return bytes[0] != 0;
    case FieldType::kU16:
    case FieldType::kSerialNumber:
        return bytes[field.isLowFirst ? 1 : 0] * 256 + bytes[field.isLowFirst ? 0 : 1];
    case FieldType::kVersion:
    case FieldType::kIpv4:
    case FieldType::kMask:
        return fmt::format("{}", fmt::join(bytes, "."));
    case FieldType::kFirstHalfOfMac:
    case FieldType::kLastHalfOfMac:
        return fmt::format("{:02x}", fmt::join(bytes, ":"));
    case FieldType::kBytes:
        break;
    }
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

Json jsonOf(std::string_view frame)
{
    return jsonOf(frame, isReply(frame) && isRefusal(recordOf(frame)));
}

Json jsonOfReply(const Rs232Command &command, std::string_view frame)
{
    return jsonOf(frame, isRefusalOf(command, recordOf(frame)));
}

Json jsonOfBytes(std::string_view bytes)
{
    std::string digits;
    for (const char byte : bytes) {
        digits += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    }
    return {{"bytes", digits}, {"text", escape(bytes)}};
}

void printJson(const Json &value)
{
    fmt::print("{}\n", value.dump(-1, ' ', false, Json::error_handler_t::replace));
    flushOutput();
}
