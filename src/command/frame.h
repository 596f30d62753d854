#pragma once

// The command record and its frame on the wire: encoding, decoding and checksums.
//
// A record travels as 19 ASCII characters: "<T" (a command) or "<F" (a reply), the eight bytes of
// the record as two hexadecimal characters each, and ">". There is no terminator or line ending.
// The codec has no state and knows no transport. docs/protocol.md describes the wire for
// integrators.

#include <cstdint>

struct Rs232Command {
    uint8_t address;  // device address, never compared; 0 in commands built inside the daemon
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

// Returns the byte that the two hexadecimal characters at `text`, in either case, stand for. Any
// other character counts as the digit 0; the checksum of the frame is left to catch it.
uint8_t HexCharToByte(const char *text);

// Writes `byte` as two lowercase hexadecimal characters, high nibble first, without a terminator.
// Returns `out`.
char *ByteToHexChar(uint8_t byte, char *out);

// Decodes the 16 characters at offset 2 of `frame`. The checksum byte is copied unchecked.
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

// Closes a data block: stores the sum of the first `length` - 1 bytes, modulo 256, in the last
// byte. Does nothing for a length of 0.
void SetBufferCheckSum(uint8_t *buffer, uint32_t length);

// Waiting for a later model -----------------------------------------------------------------------

// Writes dat1 to dat4 as 8 lowercase characters at offset 2 of `text`, then carriage return, line
// feed and a zero byte (offsets 10 to 12). The first two characters are the caller's.
void Rs232CommandToStr1(const Rs232Command *record, char *text);
