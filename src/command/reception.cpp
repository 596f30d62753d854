#include "command/reception.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "command/channel.h"
#include "command/dispatch.h"
#include "command/frame.h"
#include "command/reply.h"
#include "core/systick.h"
#include "transport/bridge_pipes.h"

uint32_t g_ReceiveDetected;

namespace {

// A frame being assembled. Each channel has one.
struct FrameSlot {
    char text[kFrameLength + 1]; // the last character closes the text for a message
    uint8_t count;               // characters stored so far
};
static_assert(sizeof(FrameSlot) == 21);

// What one call takes from the channels at most: what the mirror holds, which is empty at the start
// of a pass. More would be lost there; and without a limit, a line that brings frames faster than
// their replies can leave would hold the main loop for as long as it does.
constexpr uint32_t kBytesPerTurn = kBridgeBufferSize - 1;

// States of the assembler.
enum : uint32_t { kHunt, kHeader, kBody, kEnd };

// State, main loop only.
bool isInitialised;
FrameSlot g_ReceiveCommand[kChannelCount];
uint32_t assemblerState[kChannelCount]; // one of the states above

// The bytes at the very end of udp_send_pipe that belong to one unfinished frame. Each pass of the
// main loop sends what the pipe holds, so when the frame is executed, some of its 19 bytes may have
// gone to the PC already.
struct {
    uint8_t channel; // the frame's channel
    uint32_t count;  // bytes stored since its "<", sent ones included
} mirrored;

const uint8_t *findOpening(const uint8_t *bytes, uint32_t count)
{
    return static_cast<const uint8_t *>(std::memchr(bytes, CommandToLEDHeader[0], count));
}

void mirrorToPC(const uint8_t *bytes, uint32_t count)
{
    uint32_t before = 0; // bytes before the last "<", 0 if there is none
    bool isOpened = false;
    const uint8_t *const end = bytes + count;
    const uint8_t *at = bytes;
    while ((at = findOpening(at, static_cast<uint32_t>(end - at))) != nullptr) {
        before = static_cast<uint32_t>(at++ - bytes);
        isOpened = true;
    }
    if (isOpened || mirrored.channel != commandFrom) {
        mirrored.channel = commandFrom;
        mirrored.count = 0;
    }
    const uint32_t stored = pipe_write_block(&udp_send_pipe, bytes, count);
    mirrored.count += stored > before ? stored - before : 0;
}

// Keeps an executed frame from the PC. Taking back more than the pipe holds would resend old bytes.
void takeBackFrame()
{
    pipe_pop_back(&udp_send_pipe, std::min(mirrored.count, pipe_count(&udp_send_pipe)));
}

// Takes bytes from the start of a run as long as they do not change the assembler's state, and
// returns how many. Bytes outside a frame are skipped, up to the next "<". Characters of a body are
// stored, all but the last. Every other byte must go through ReceiveCommand().
uint32_t takePlainBytes(const uint8_t *bytes, uint32_t count)
{
    FrameSlot &frame = g_ReceiveCommand[commandFrom];
    const uint32_t state = assemblerState[commandFrom];
    if (state == kBody) {
        count = std::min<uint32_t>(count, kFrameEndOffset - 1 - frame.count);
    } else if (state != kHunt) {
        return 0;
    }
    if (const uint8_t *const opening = findOpening(bytes, count); opening != nullptr) {
        count = static_cast<uint32_t>(opening - bytes);
    }
    if (state == kBody) {
        std::memcpy(frame.text + frame.count, bytes, count);
        frame.count = static_cast<uint8_t>(frame.count + count);
    }
    return count;
}

// Gives a run of bytes to the assembler. Returns how many it took: all of them, or those up to and
// including the end of a frame.
uint32_t assemble(const uint8_t *bytes, uint32_t count)
{
    uint32_t done = 0;
    while (done < count) {
        done += takePlainBytes(bytes + done, count - done);
        if (done < count) {
            const uint8_t byte = bytes[done++];
            if (ReceiveCommand(byte) == 0) {
                break;
            }
        }
    }
    return done;
}

// Reads the channel up to the end of a frame. False when the channel or this turn's `budget` of
// bytes ran out first.
bool receiveFrame(uint32_t *budget)
{
    struct pipe *const received = &channel[commandFrom]->pipe;
    g_ReceiveDetected = 0;
    while (g_ReceiveDetected == 0) {
        const uint8_t *bytes;
        const uint32_t count = std::min(pipe_peek(received, &bytes), *budget);
        if (count == 0) {
            return false;
        }
        const uint32_t taken = assemble(bytes, count);
        mirrorToPC(bytes, taken);
        pipe_skip(received, taken);
        *budget -= taken;
    }
    return true;
}

// Decodes the frame into commandToLED and sends a refusal for each fault. False when the frame must
// not be executed. A refusal sent before the decoding repeats the previous command.
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
        commandFrom = index; // stays at the last channel after the loop
        while (channel[index] != nullptr && receiveFrame(&budget)) {
            if (!acceptFrame(&g_ReceiveCommand[index])) {
                break;
            }
            // Pairs with the acquire in findLeastRecentlyUsed() on the receive thread.
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
