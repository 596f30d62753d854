#pragma once

// Every command that the daemon knows, as protocol/vesk.yaml has it. Turns words or hexadecimal
// digits into a frame, and a frame into a sentence.

#include "command/frame.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

inline constexpr uint16_t kAnyDat1 = 0x100;

// The types of protocol/vesk.yaml that parameters and answers have.
enum class FieldType : uint8_t {
    kU8,
    kU16,
    kOnOff,          // 0 off, else on
    kVersion,        // major, minor
    kSerialNumber,   // a number, high byte first
    kIpv4,           // in dotted order
    kMask,           // the same, of a network
    kFirstHalfOfMac, // 3 bytes
    kLastHalfOfMac,  // 3 bytes
    kBytes,
};

// A parameter, or a part of an answer.
struct Field {
    const char *name;
    FieldType type;
    uint8_t at;       // its first byte: 0 to 3 are dat1 to dat4
    uint8_t length;   // in bytes
    bool isLowFirst;  // a number of several bytes
    bool isEcho;      // the same as in the command
    uint32_t least;   // of a number; equal to `most` if it is fixed
    uint32_t most;    // of a number
    uint32_t usual;   // what to send if the user says nothing
    const char *unit; // of a number, or ""
};

enum class AnswerKind : uint8_t {
    kAck, // the reply repeats the command's data
    kNak, // always refused by this model
    kData,
};

// One row of the command table.
struct CommandRow {
    uint8_t command;
    uint16_t dat1; // the sub-command, or kAnyDat1 where dat1 is a parameter like the others
    AnswerKind answerKind;
    bool ffIsData;                     // four data bytes ff are an answer like any other
    bool writes;                       // changes something that the device keeps or does
    bool hasPayload;                   // after the command or after its reply
    const char *name;                  // the words to type, in either case
    std::span<const Field> parameters; // in the order of their bytes
    std::span<const Field> answer;     // of kData
    uint32_t payloadWaitMs;            // how long the device waits for missing bytes of the payload
    uint32_t timeoutMs;                // how long to wait for the answer, from the last byte sent
    const char *note;                  // for the user, or ""
};

std::span<const CommandRow> commandTable();

// The row of a command or of its reply; null if there is none. A refusal does not tell a
// sub-command.
const CommandRow *rowOf(const Rs232Command &record);

// The rows as text, one a line: code, dat1, words, parameters, note.
std::string commandList();

// The frame to send for the text that a user typed, one of:
//
//   words            a name of the table, then its parameters (see dataOfParameters())
//   2 to 10 digits   command, dat1 to dat4; address, tag and omitted bytes are 00. A command that
//                    writes needs all ten.
//   14 digits        the record without its checksum, which is added
//   16 digits        the record with its checksum, right or wrong, in the case they were typed
//   <...>            a whole frame of 19 characters, sent as it is, right or wrong
//
// Blanks between bytes do not count. Throws UsageError for anything else.
std::string frameFromText(std::string_view text);

// What else than words frameFromText() takes, and what that means.
struct CommandForm {
    const char *digits; // "2 to 10 digits"
    const char *about;  // in lines for a manual
};

std::span<const CommandForm> commandForms();

// As people write a serial number: "4660 (0x1234)".
std::string serialNumberText(unsigned number);

// Whether this is a command that the device deliberately does not answer.
bool isNeverAnswered(const Rs232Command &command);

// Whether the reply refuses its command. Four data bytes ff are a refusal, unless they can be data;
// then this is false.
bool isRefusal(const Rs232Command &reply);

// The same if the command is known. Where the data can be ff, an intact command is never refused,
// and one that writes answers what was written.
bool isRefusalOf(const Rs232Command &command, const Rs232Command &reply);

// Whether the command reads, and its reply can be data or, as the frame was damaged on the line, a
// refusal. If the command gets the same again it is data.
bool isUnclear(const Rs232Command &command, const Rs232Command &reply);

// A frame as a sentence: command, reply or refusal; address and tag; the command's name; the data;
// and the right checksum if the frame has a wrong one.
std::string describe(std::string_view frame);

// The same for the reply to `command`, which tells whether it is a refusal.
std::string describeReply(const Rs232Command &command, std::string_view frame);

// The sentences for bytes that consist of frames only; nothing for any other bytes.
std::string describeAll(std::string_view bytes);

// The frame, followed by its sentence.
std::string frameWithDescription(std::string_view frame);
