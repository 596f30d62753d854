#pragma once

// The command record and its frame on the wire: encoding, decoding and checksums.
//
// A record travels as 19 ASCII characters without terminator or line ending: "<T" (a command) or
// "<F" (a reply), the eight bytes of the record as two hexadecimal characters each, ">". The codec
// has no state and knows no transport; docs/protocol.md describes the wire for integrators.

#include <cstdint>

struct Rs232Command {
    uint8_t address;  // device address; never compared. Commands built inside the daemon use 0
    uint8_t tag;      // chosen by the sender, copied into the reply
    uint8_t command;  // what to do
    uint8_t dat1;     // sub-command or first parameter
    uint8_t dat2;     // parameter
    uint8_t dat3;     // parameter
    uint8_t dat4;     // parameter
    uint8_t checksum; // sum of the seven bytes before it, modulo 256
};

inline constexpr char CommandToLEDHeader[] = "<T";   // opens every command
inline constexpr char CommandFromLEDHeader[] = "<F"; // opens every reply
inline constexpr char CommandEnd[] = ">";            // closes every frame

inline constexpr uint32_t kFrameHeaderLength = 2;
inline constexpr uint32_t kFrameEndOffset = 18;
inline constexpr uint32_t kFrameLength = 19;

// The byte that the two hexadecimal characters at `text` give, in either case. Any other character
// counts as the digit 0; the checksum of the frame catches it.
uint8_t HexCharToByte(const char *text);

// Writes `byte` as two lowercase hexadecimal characters, high nibble first, without a terminator.
// Returns `out`.
char *ByteToHexChar(uint8_t byte, char *out);

// Decodes the 16 characters at offset 2 of `frame`. The checksum byte is taken as it stands there.
void StrToRs232Command(const char *frame, Rs232Command *record);

// Sets the record's checksum and writes the record as 16 lowercase characters at offset 2 of
// `frame`. The header and the end character are the caller's.
void Rs232CommandToStr(Rs232Command *record, char *frame);

// Stores the sum of the first seven bytes, modulo 256, in `checksum`.
void SetCheckSum(Rs232Command *record);

// 1 when `checksum` is the sum of the first seven bytes; else prints the sum and returns 0.
[[nodiscard]] int32_t CheckSum(const Rs232Command *record);

// The sum of `count` bytes, modulo 256.
uint8_t SumOfBytes(const uint8_t *bytes, uint32_t count);

// Stores the sum of the bytes before the last of `length` bytes, modulo 256, in that last byte: the
// closing byte of a data block. Does nothing for a length of 0.
void SetBufferCheckSum(uint8_t *buffer, uint32_t length);

// Waiting for a later model -----------------------------------------------------------------------

// Writes dat1 to dat4 as 8 lowercase characters at offset 2 of `text`, then carriage return, line
// feed and a zero byte (offsets 10 to 12). The first two characters are the caller's.
void Rs232CommandToStr1(const Rs232Command *record, char *text);
