#include "command/reception.h"

#include <algorithm>
#include <cstdio>

#include "command/channel.h"
#include "command/dispatch.h"
#include "command/frame.h"
#include "command/reply.h"
#include "core/systick.h"
#include "transport/bridge_pipes.h"

uint32_t g_ReceiveDetected;

namespace {

// A frame in the making, one for each channel.
struct FrameSlot {
    char text[kFrameLength + 1]; // the characters; the last one closes the text for a message
    uint8_t count;               // characters stored so far
};
static_assert(sizeof(FrameSlot) == 21);

// What one call takes from the channels at most: what the mirror holds, which is empty at the start of
// a pass. More would be lost there; and without a limit, a line that brings frames faster than their
// replies can leave would hold the main loop for as long as it does.
constexpr uint32_t kBytesPerTurn = kBridgeBufferSize - 1;

// States of the assembler.
enum : uint32_t { kHunt, kHeader, kBody, kEnd };

// State, main loop only.
bool isInitialised;
FrameSlot g_ReceiveCommand[kChannelCount];
uint32_t assemblerState[kChannelCount]; // one of the states above

// The run of bytes at the very end of udp_send_pipe that belongs to one frame in the making. The
// PC's datagrams are cut wherever a pass of the main loop ends, so the 19 bytes of a frame need not
// all be there any more when it is executed.
struct {
    uint8_t channel; // whose frame
    uint32_t count;  // bytes stored since its "<"; older ones may have gone to the PC already
} mirrored;

void mirrorToPC(uint8_t byte)
{
    if (mirrored.channel != commandFrom || byte == CommandToLEDHeader[0]) {
        mirrored.channel = commandFrom;
        mirrored.count = 0;
    }
    mirrored.count += static_cast<uint32_t>(pipe_write(&udp_send_pipe, byte));
}

// Keeps an executed frame from the PC. Taking back more than is left would hand the PC old bytes.
void takeBackFrame()
{
    pipe_pop_back(&udp_send_pipe, std::min(mirrored.count, pipe_count(&udp_send_pipe)));
}

// Reads the channel up to the end of a frame. False when the channel, or this turn's `budget` of
// bytes, ran out first.
bool receiveFrame(uint32_t *budget)
{
    g_ReceiveDetected = 0;
    uint8_t byte;
    while (*budget > 0 && pipe_read(&channel[commandFrom]->pipe, &byte) != 0) {
        --*budget;
        mirrorToPC(byte);
        if (ReceiveCommand(byte) == 0) {
            break;
        }
    }
    return g_ReceiveDetected != 0;
}

// Decodes the frame into commandToLED and refuses what is wrong with it. False when it must not be
// executed. Until the frame is decoded, a refusal carries what commandToLED held before.
bool acceptFrame(FrameSlot *frame)
{
    for (uint32_t i = 0; i < kFrameHeaderLength; ++i) {
        if (frame->text[i] != CommandToLEDHeader[i]) {
            CommandErrorTask();
            std::puts("error header\r");
        }
    }
    if (frame->text[kFrameEndOffset] != CommandEnd[0]) {
        CommandErrorTask();
        frame->text[kFrameLength] = '\0';
        std::printf("error end:%s\r\n", frame->text);
    }
    StrToRs232Command(frame->text, &commandToLED);
    if (CheckSum(&commandToLED) == 0) {
        CommandErrorTask();
        frame->text[kFrameLength] = '\0';
        std::printf("error checksum:%s:%d\r\n", frame->text, frame->count);
        return false;
    }
    return true;
}

} // namespace

void InitRs232CommandVariable()
{
    if (isInitialised) {
        return;
    }
    isInitialised = true;
    createReplyFrame();
    g_ReceiveDetected = 0;
    createChannels();
}

void TaskCommand()
{
    uint32_t budget = kBytesPerTurn;
    for (uint8_t index = 0; index < kChannelCount; ++index) {
        commandFrom = index; // and stays at the last one
        while (channel[index] != nullptr && receiveFrame(&budget)) {
            if (!acceptFrame(&g_ReceiveCommand[index])) {
                break;
            }
            // Pairs with the acquire where the receive thread looks for the channel longest idle.
            channel[index]->lastTime.store(GetSysTick(), std::memory_order_release);
            current_channel = index;
            takeBackFrame();
            processCmdData();
        }
    }
}

int32_t ReceiveCommand(uint8_t byte)
{
    FrameSlot &frame = g_ReceiveCommand[commandFrom];
    uint32_t &state = assemblerState[commandFrom];
    const char character = static_cast<char>(byte);
    if (character == CommandToLEDHeader[0]) {
        state = kHunt;
    }
    switch (state) {
    case kHunt:
        frame.count = 0;
        state = kHeader;
        [[fallthrough]];
    case kHeader:
        frame.text[frame.count] = character;
        if (character != CommandToLEDHeader[frame.count]) {
            state = kHunt;
        } else if (++frame.count == kFrameHeaderLength) {
            state = kBody;
        }
        return 1;
    case kBody:
        frame.text[frame.count++] = character;
        if (frame.count == kFrameEndOffset) {
            state = kEnd;
        }
        return 1;
    case kEnd:
        frame.text[frame.count++] = character;
        g_ReceiveDetected = 1;
        state = kHunt;
        return 0;
    default:
        state = kHunt;
        return 1;
    }
}

// Waiting for a later model -----------------------------------------------------------------------

uint32_t lockFrontBoard;

void processCmdFromLocal(uint8_t command, uint8_t dat1, uint8_t dat2, uint8_t dat3, uint8_t dat4)
{
    std::printf("process local cmd: %.2x %.2x %.2x %.2x %.2x\r\n", command, dat1, dat2, dat3, dat4);
    commandToLED.address = 0;
    commandToLED.command = command;
    commandToLED.dat1 = dat1;
    commandToLED.dat2 = dat2;
    commandToLED.dat3 = dat3;
    commandToLED.dat4 = dat4;
    processCmdData();
}
