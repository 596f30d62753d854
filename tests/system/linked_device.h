#pragma once

// What the linked device and the test that drives it agree on: how the device behaves, what the
// bytes of a command and of its answer are, and how the device reports what it saw.
//
//   linked_device TURN...
//
// is the device, a program of its own whose standard input is the line, both ways. A turn, "MODE
// COUNT MS" in one argument, is how it takes the next COUNT commands; the last one goes on for
// ever. When the line is gone it prints its report and ends.
//
//   at-once  each command is answered when it comes
//   silent   no command is answered
//   late     each is answered MS milliseconds after it has come
//   held     the answers are held back until the first command of the next turn has come
//   garbage  as at-once, but there is garbage before each answer, whose checksum is wrong
//   bursts   some answers, 30 the first time and then any number up to 30, go out together; kAsk
//            and the end of the turn do not wait for more

#include <cstddef>
#include <cstdint>
#include <string>

// The running number of a command, from 0 on, is its data 1 to 4, data 1 lowest. Its sequence
// number is one more.
inline constexpr uint8_t kDeviceAddress = 0x7B;

// Commands. Those from kWithBlock on have a data block behind them.
inline constexpr uint8_t kTell = 0x31;
inline constexpr uint8_t kAsk = 0x3F;
inline constexpr uint8_t kWithBlock = 0x80;

inline constexpr size_t kShortestBlock = 1; // which is a checksum and nothing else
inline constexpr size_t kLongestBlock = kShortestBlock + 0xFF - kWithBlock;

// The command that a block of `length` bytes goes with, and the other way round.
constexpr uint8_t commandWithBlock(size_t length)
{
    return static_cast<uint8_t>(kWithBlock + (length - kShortestBlock));
}
constexpr size_t blockLength(uint8_t command)
{
    return command < kWithBlock ? 0 : kShortestBlock + (command - kWithBlock);
}

// The byte at `place` of the block that goes with command `index`, unless it is the checksum.
constexpr uint8_t blockByte(uint32_t index, size_t place)
{
    return static_cast<uint8_t>(index + 7 * place);
}

// Data 1 to 4 of a command or an answer of 8 bytes.
constexpr uint32_t dataOf(const uint8_t *bytes)
{
    return static_cast<uint32_t>(bytes[3]) | static_cast<uint32_t>(bytes[4]) << 8 |
           static_cast<uint32_t>(bytes[5]) << 16 | static_cast<uint32_t>(bytes[6]) << 24;
}

// The answer's data 1 to 4 as a number, data 1 lowest. Never 0 here.
constexpr uint32_t answerTo(uint32_t index)
{
    return index ^ 0xE1D2C3B4;
}

// The answers that go out together at most: a sender waits behind its 30th unanswered command.
inline constexpr uint32_t kLargestBurst = 30;

// The pieces of garbage before each answer.
inline constexpr uint32_t kGarbagePieces = 3;

struct DeviceReport {
    uint32_t commands = 0;
    uint32_t blocks = 0;
    uint32_t answers = 0;
    uint32_t garbagePieces = 0;
    uint32_t largestBurst = 0;

    // What a good line and a good link never bring.
    uint32_t strayBytes = 0;      // between frames
    uint32_t malformedFrames = 0; // a "<" with no command behind it
    uint32_t wrongChecksums = 0;  // such a command is not answered, and counted here only
    uint32_t wrongAddresses = 0;
    uint32_t wrongNumbers = 0;  // not one above the number before
    uint32_t wrongIndexes = 0;  // the same for the running number
    uint32_t wrongBlocks = 0;   // other bytes than blockByte(), or another checksum
    uint32_t bytesLeftOver = 0; // of an unfinished command, when the line went
};

inline std::string textOf(const DeviceReport &report)
{
    const struct {
        const char *what;
        uint32_t count;
    } kLines[] = {
        {"commands", report.commands},
        {"blocks", report.blocks},
        {"answers", report.answers},
        {"pieces of garbage", report.garbagePieces},
        {"largest burst", report.largestBurst},
        {"stray bytes", report.strayBytes},
        {"malformed frames", report.malformedFrames},
        {"wrong checksums", report.wrongChecksums},
        {"wrong addresses", report.wrongAddresses},
        {"wrong numbers", report.wrongNumbers},
        {"wrong indexes", report.wrongIndexes},
        {"wrong blocks", report.wrongBlocks},
        {"bytes left over", report.bytesLeftOver},
    };
    std::string text;
    for (const auto &[what, count] : kLines) {
        text += what;
        text += ": ";
        text += std::to_string(count);
        text += "\n";
    }
    return text;
}
