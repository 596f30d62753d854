#pragma once

// What veskctl prints with --json. docs/schema/ has a schema for each subcommand.

#include "tools/commands.h"

#include <string_view>

#include <nlohmann/json.hpp>

using Json = nlohmann::ordered_json;

// The value of a field of a command or a reply: a number, a boolean, or a text.
Json valueOf(const Field &field, const Rs232Command &record);

// A frame: kind, address, tag, command, data, name, and the fields that the table names.
Json jsonOf(std::string_view frame);

// The same for the reply to `command`, which tells whether it is a refusal.
Json jsonOfReply(const Rs232Command &command, std::string_view frame);

// Bytes: as hexadecimal digits, and escaped as text.
Json jsonOfBytes(std::string_view bytes);

// Prints the value on a line of its own, and flushes it. Throws LocalError if it cannot be written.
void printJson(const Json &value);
