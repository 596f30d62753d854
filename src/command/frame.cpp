#include "command/frame.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "core/record.h"

// Proves the layout in the header.
RECORD_FIELD(Rs232Command, 0, uint8_t, 1, address)
RECORD_FIELD(Rs232Command, 1, uint8_t, 1, tag)
RECORD_FIELD(Rs232Command, 2, uint8_t, 1, command)
RECORD_FIELD(Rs232Command, 3, uint8_t, 1, dat1)
RECORD_FIELD(Rs232Command, 4, uint8_t, 1, dat2)
RECORD_FIELD(Rs232Command, 5, uint8_t, 1, dat3)
RECORD_FIELD(Rs232Command, 6, uint8_t, 1, dat4)
RECORD_FIELD(Rs232Command, 7, uint8_t, 1, checksum)
RECORD_SIZE(Rs232Command, 8)

namespace {

// The two hexadecimal characters of every byte value, in order.
constexpr std::array<char, 512> kHexPairs = [] {
    constexpr char kDigits[] = "0123456789abcdef";
    std::array<char, 512> pairs{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        pairs[2 * byte] = kDigits[byte >> 4];
        pairs[2 * byte + 1] = kDigits[byte & 0x0F];
    }
    return pairs;
}();

// The value of every character as a hexadecimal digit; 0 for any other character.
constexpr std::array<uint8_t, 256> kDigitValues = [] {
    std::array<uint8_t, 256> values{};
    for (uint8_t digit = 0; digit < 10; ++digit) {
        values[static_cast<uint8_t>('0' + digit)] = digit;
    }
    for (uint8_t digit = 0; digit < 6; ++digit) {
        values[static_cast<uint8_t>('a' + digit)] = static_cast<uint8_t>(10 + digit);
        values[static_cast<uint8_t>('A' + digit)] = static_cast<uint8_t>(10 + digit);
    }
    return values;
}();

uint8_t sumOfParameters(const Rs232Command *record)
{
    return static_cast<uint8_t>(record->address + record->tag + record->command + record->dat1 +
                                record->dat2 + record->dat3 + record->dat4);
}

} // namespace

uint8_t HexCharToByte(const char *text)
{
    const uint8_t high = kDigitValues[static_cast<uint8_t>(text[0])];
    const uint8_t low = kDigitValues[static_cast<uint8_t>(text[1])];
    return static_cast<uint8_t>(high << 4 | low);
}

char *ByteToHexChar(uint8_t byte, char *out)
{
    std::memcpy(out, &kHexPairs[2u * byte], 2);
    return out;
}

void StrToRs232Command(const char *frame, Rs232Command *record)
{
    record->address = HexCharToByte(frame + 2);
    record->tag = HexCharToByte(frame + 4);
    record->command = HexCharToByte(frame + 6);
    record->dat1 = HexCharToByte(frame + 8);
    record->dat2 = HexCharToByte(frame + 10);
    record->dat3 = HexCharToByte(frame + 12);
    record->dat4 = HexCharToByte(frame + 14);
    record->checksum = HexCharToByte(frame + 16);
}

void Rs232CommandToStr(Rs232Command *record, char *frame)
{
    SetCheckSum(record);
    ByteToHexChar(record->address, frame + 2);
    ByteToHexChar(record->tag, frame + 4);
    ByteToHexChar(record->command, frame + 6);
    ByteToHexChar(record->dat1, frame + 8);
    ByteToHexChar(record->dat2, frame + 10);
    ByteToHexChar(record->dat3, frame + 12);
    ByteToHexChar(record->dat4, frame + 14);
    ByteToHexChar(record->checksum, frame + 16);
}

void SetCheckSum(Rs232Command *record)
{
    record->checksum = sumOfParameters(record);
}

int32_t CheckSum(const Rs232Command *record)
{
    const uint8_t sum = sumOfParameters(record);
    if (record->checksum == sum) {
        return 1;
    }
    std::printf("checksum=%d\r\n", sum);
    return 0;
}

uint8_t SumOfBytes(const uint8_t *bytes, uint32_t count)
{
    uint8_t sum = 0;
    for (uint32_t i = 0; i < count; ++i) {
        sum = static_cast<uint8_t>(sum + bytes[i]);
    }
    return sum;
}

void SetBufferCheckSum(uint8_t *buffer, uint32_t length)
{
    if (length == 0) {
        return;
    }
    buffer[length - 1] = SumOfBytes(buffer, length - 1);
}

// Waiting for a later model -----------------------------------------------------------------------

void Rs232CommandToStr1(const Rs232Command *record, char *text)
{
    ByteToHexChar(record->dat1, text + 2);
    ByteToHexChar(record->dat2, text + 4);
    ByteToHexChar(record->dat3, text + 6);
    ByteToHexChar(record->dat4, text + 8);
    text[10] = '\r';
    text[11] = '\n';
    text[12] = '\0';
}
