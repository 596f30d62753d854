#include "command/reply.h"

#include <cstring>

#include "command/channel.h"
#include "transport/uart.h"
#include "transport/udpecho.h"

Rs232Command commandToLED;
Rs232Command commandFromLED;
char strCommandFromLED[kFrameLength + 1];

void createReplyFrame()
{
    std::memcpy(strCommandFromLED, CommandFromLEDHeader, kFrameHeaderLength);
    strCommandFromLED[kFrameEndOffset] = CommandEnd[0];
    strCommandFromLED[kFrameLength] = '\0';
}

void SendBufferToPC(const uint8_t *bytes, uint32_t length)
{
    const Channel *const slot = channel[commandFrom];
    if (slot == nullptr) {
        return;
    }
    // The acquire pairs with the release at binding, so a new type is never seen with an old
    // address. An old type may be seen with a new address, so a reply to a source that is being
    // evicted may get lost.
    const uint32_t type = slot->type.load(std::memory_order_acquire);
    const uint64_t address = slot->address.load(std::memory_order_relaxed);
    // The results are dropped: UARTSendBuffer() logs its failures, and nothing is sent twice.
    if (type == kChannelSerial) {
        UARTSendBuffer(static_cast<int32_t>(address), bytes, static_cast<int32_t>(length));
    } else if (type == kChannelUdp) {
        to_pcudp(static_cast<uint32_t>(address), static_cast<uint16_t>(address >> 32), bytes,
                 length);
    }
}

void SendRs232Command()
{
    commandFromLED.address = commandToLED.address;
    commandFromLED.tag = commandToLED.tag;
    commandFromLED.command = commandToLED.command;
    Rs232CommandToStr(&commandFromLED, strCommandFromLED);
    SendBufferToPC(reinterpret_cast<const uint8_t *>(strCommandFromLED), kFrameLength);
}

void SendReply(uint8_t dat1, uint8_t dat2, uint8_t dat3, uint8_t dat4)
{
    commandFromLED.dat1 = dat1;
    commandFromLED.dat2 = dat2;
    commandFromLED.dat3 = dat3;
    commandFromLED.dat4 = dat4;
    SendRs232Command();
}

void SendAnswer(uint8_t dat2, uint8_t dat3, uint8_t dat4)
{
    SendReply(commandToLED.dat1, dat2, dat3, dat4);
}

void SendWriteRs232Command()
{
    SendReply(commandToLED.dat1, commandToLED.dat2, commandToLED.dat3, commandToLED.dat4);
}

void CommandErrorTask()
{
    SendReply(0xFF, 0xFF, 0xFF, 0xFF);
}

void SendAckOrNack(uint8_t code)
{
    if (code == kAck) {
        SendWriteRs232Command();
    } else {
        CommandErrorTask();
    }
}
