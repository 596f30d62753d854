#pragma once

// Every command that the daemon knows, by the words of docs/protocol.md. Turns words or hexadecimal
// digits into a frame, and a frame into a sentence.

#include "command/frame.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

inline constexpr uint16_t kAnyDat1 = 0x100;
inline constexpr std::string_view kAddress = "A.B.C.D";

// One row of the command table.
struct CommandRow {
    uint8_t command;
    uint16_t dat1;    // the sub-command, or kAnyDat1 where dat1 is a parameter like the others
    const char *name; // the words to type, in either case
    const char *parameters; // names of the bytes that may follow the words, separated by blanks; or
                            // kAddress, one IPv4 address
    const char *reply;      // what the data of a positive reply means: {0} to {3} are dat1 to dat4
    const char *note;       // for the user, or ""
};

std::span<const CommandRow> commandTable();

// The rows as text, one a line: code, dat1, words, parameters, note.
std::string commandList();

// The frame to send for the text that a user typed, one of:
//
//   words            a name of the table, then its parameters as hexadecimal bytes (00 if left
//                    out); an address may also be written as 192.168.0.100
//   2 to 10 digits   command, dat1 to dat4; address, tag and omitted bytes are 00
//   14 digits        the record without its checksum, which is added
//   16 digits        the record with its checksum, right or wrong, in the case they were typed
//   <...>            a whole frame of 19 characters, sent as it is, right or wrong
//
// Blanks between bytes do not count. Throws UsageError for anything else.
std::string frameFromText(std::string_view text);

// Whether this is a command that the device deliberately does not answer.
bool isNeverAnswered(const Rs232Command &command);

// A frame as a sentence: command, reply or refusal; address and tag; the command's name; the data;
// and the right checksum if the frame has a wrong one.
std::string describe(std::string_view frame);

// The sentences for bytes that consist of frames only; nothing for any other bytes.
std::string describeAll(std::string_view bytes);

// The frame, followed by its sentence.
std::string frameWithDescription(std::string_view frame);
