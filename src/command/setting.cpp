#include "command/setting.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "command/payload.h"
#include "command/reply.h"
#include "control/network_record.h"

uint8_t buffer[kBufferSize + 1];

namespace {

constexpr int32_t kDataTries = 5000;
constexpr int32_t kTextTries = 500;

constexpr uint8_t kNetworkRecord = 0x20; // dat1 of the only block

char *const bufferText = reinterpret_cast<char *>(buffer);

// The hooks for one kind of text. Take can be written but not read.
struct Keys {
    uint8_t dat1;
    StringToValue write;
    ValueToString read;
};
// clang-format off
constexpr Keys kKeys[] = {
    {0x00, processLayerProperty,       processLayerPropertyValueToString},
    {0x09, processInputProperty,       processInputPropertyValueToString},
    {0x38, processTakeProperty,        nullptr},
    {0x39, processBlackscreenProperty, processBlackscreenValueToString},
};
// clang-format on

// The entry that dat1 selects; without hooks when it selects none.
const Keys &findKeys(uint8_t dat1)
{
    static constexpr Keys kNone{};
    for (const Keys &keys : kKeys) {
        if (keys.dat1 == dat1) {
            return keys;
        }
    }
    return kNone;
}

// Reads the block that the command announces into `buffer`.
bool receiveBlock(uint32_t length)
{
    if (length > kBufferSize) {
        std::printf("len > sizeof(buffer): %u > %u\n", length, kBufferSize);
        return false;
    }
    if (length > 0 && receiveBufferFromPC(buffer, length, kDataTries) != length) {
        std::puts("writeDataSetting receiveBufferFromPC error");
        return false;
    }
    return true;
}

} // namespace

void writeDataSetting()
{
    std::puts("writeDataSetting");
    const uint32_t announced = commandToLED.dat4 * 256u + commandToLED.dat3;
    const uint32_t length = announced > 0 ? announced - 1 : 0; // without the checksum byte
    if (!receiveBlock(length) || commandToLED.dat1 != kNetworkRecord) {
        SendAckOrNack(kNak);
        return;
    }
    NetworkRecord record;
    if (length < sizeof record) {
        return; // the protocol has no answer here
    }
    std::memcpy(&record, buffer, sizeof record);
    Command_Config_Network(&record);
    SendAckOrNack(kAck);
}

void readDataSetting()
{
    if (commandToLED.dat1 != kNetworkRecord) {
        SendAckOrNack(kNak);
        return;
    }
    NetworkRecord record{};
    Command_Read_Network(&record);
    uint8_t block[sizeof record + 1];
    std::memcpy(block, &record, sizeof record);
    SetBufferCheckSum(block, sizeof block);
    SendAnswer(commandToLED.dat2, sizeof block, 0);
    SendBufferToPC(block, sizeof block);
}

void writeStringValueSetting()
{
    const uint32_t count = receiveStringValueFromPC(bufferText, sizeof buffer, kTextTries);
    if (count == 0) {
        SendAckOrNack(kNak);
        return;
    }
    // This overwrites the "]", or the last character of a text without one.
    const uint32_t last = std::min<uint32_t>(count, sizeof buffer) - 1;
    bufferText[last] = '\0';
    // A lone "[" is now an empty text, and the bytes after it in the buffer are from an earlier
    // command.
    char *const items = last > 0 ? bufferText + 1 : bufferText;
    const bool isKnown = processStrValue(commandToLED.dat1, commandToLED.dat2, items) != nullptr;
    SendAckOrNack(isKnown ? kAck : kNak);
}

void readStringValueSetting()
{
    if (processValueToString(commandToLED.dat1, commandToLED.dat2, bufferText) == nullptr) {
        SendAckOrNack(kNak);
        return;
    }
    const auto length = static_cast<uint32_t>(std::strlen(bufferText));
    if (length >= kBufferSize) {
        std::printf("error: readStringValueSetting buffer len = %u\r\n", length);
    }
    SendAnswer(commandToLED.dat2, 0, 0);
    SendBufferToPC(buffer, length);
}

void processLayerProperty(uint8_t, SplitState *, uint8_t) {}
void processInputProperty(uint8_t, SplitState *, uint8_t) {}
void processTakeProperty(uint8_t, SplitState *, uint8_t) {}
void processBlackscreenProperty(uint8_t, SplitState *, uint8_t) {}
void processLayerPropertyValueToString(uint8_t, char *, int32_t) {}
void processInputPropertyValueToString(uint8_t, char *, int32_t) {}
void processBlackscreenValueToString(uint8_t, char *, int32_t) {}

StringToValue getStringToValueCallbackByDat1(uint8_t dat1)
{
    return findKeys(dat1).write;
}

ValueToString getValueToStringCallbackByDat1(uint8_t dat1)
{
    return findKeys(dat1).read;
}

void processInputStr(uint8_t dat2, char *text, StringToValue handler)
{
    if (handler == nullptr) {
        return;
    }
    SplitState item{};
    split_str_start(&item, text);
    while (item.key != nullptr) {
        handler(dat2, &item, dat2);
        split_str_next(&item, item.rest, ",");
    }
}

StringToValue processStrValue(uint8_t dat1, uint8_t dat2, char *text)
{
    const StringToValue handler = getStringToValueCallbackByDat1(dat1);
    processInputStr(dat2, text, handler);
    return handler;
}

ValueToString processValueToString(uint8_t dat1, uint8_t dat2, char *text)
{
    const ValueToString handler = getValueToStringCallbackByDat1(dat1);
    text[0] = '[';
    text[1] = '\0';
    if (handler != nullptr) {
        handler(dat2, text, 0);
    }
    // A full text has no room for the "]".
    size_t length = strnlen(text, kBufferSize);
    if (length < kBufferSize) {
        text[length++] = ']';
    }
    text[length] = '\0';
    return handler;
}

// Waiting for a later model -----------------------------------------------------------------------

void processTakeFunc() {}
