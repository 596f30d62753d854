// The daemon over longer times: senseless input, and memory.

#include "tests/system/board.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>

#include "tests/support/bytes.h"
#include "tests/support/soak.h"

namespace {

using SystemEndurance = RunningDaemon;
using SystemEnduranceSoak = RunningDaemon;

// Input for the daemon: noise, frames, frames with a few characters changed, removed or added, and
// commands with a payload. Nothing in it takes the network away or completes a firmware update.
class Input {
public:
    explicit Input(uint32_t seed) : random(seed) {}

    size_t below(size_t limit)
    {
        return std::uniform_int_distribution<size_t>(0, limit - 1)(random);
    }

    std::string noise()
    {
        // Mostly short, at times longer than a datagram can be that the daemon takes whole.
        const size_t limits[] = {4, 40, 40, 40, 40, 300, 300, 1500};
        std::string bytes(below(below(50) == 0 ? 6000 : limits[below(std::size(limits))]), '\0');
        for (char &byte : bytes) {
            byte = static_cast<char>(below(256));
        }
        return bytes;
    }

    std::string frame()
    {
        // clang-format off
        const uint8_t codes[] = {0x10, 0x68, 0x6A, 0x73, 0x7D, 0x84, 0x85, 0x86, 0x88, 0x89, 0x8C,
                                 0x8D, 0x8E, 0x97, 0xF1, 0xF3, static_cast<uint8_t>(below(0x98))};
        // clang-format on
        const uint8_t dat1s[] = {0x01, 0x02, 0x03, 0x04, 0x09, 0x10, 0x11, 0x20, byte()};
        return command({address(), byte(), codes[below(std::size(codes))],
                        dat1s[below(std::size(dat1s))], byte(), byte(), byte()});
    }

    // F0, F2 or 9A A0 with what follows them, at times a byte too short, or with a wrong checksum.
    std::string commandWithPayload()
    {
        std::string frame;
        std::string payload;
        switch (below(3)) {
        case 0:
            payload = std::string(1 + below(16), static_cast<char>(byte()));
            frame = command({address(), byte(), 0xF0, below(2) == 0 ? uint8_t{0x20} : byte(), 0,
                             static_cast<uint8_t>(payload.size() + 1), 0});
            payload = withChecksum(payload);
            break;
        case 1:
            payload = "[a=1,b=2]";
            frame = command({address(), byte(), 0xF2, static_cast<uint8_t>(below(0x40)), byte(),
                             byte(), byte()});
            break;
        default:
            // Announces 2 GiB, more than blocks can be numbered: a transfer stays open, and blocks
            // 1 and 2 are stored. Bytes that are lost on the way leave it at that.
            payload = std::string(1024, '\x7F');
            payload[100] = static_cast<char>(byte());
            payload = withChecksum(payload);
            frame = command({address(), byte(), 0x9A, 0xA0, 7, static_cast<uint8_t>(below(3)), 0});
            break;
        }
        if (below(8) == 0) {
            payload[below(payload.size())] = static_cast<char>(byte());
        }
        return frame + payload.substr(below(20) == 0 ? 1 : 0);
    }

    std::string mutatedFrame()
    {
        std::string text = frame();
        for (size_t changes = 1 + below(3); changes > 0 && !text.empty(); --changes) {
            const size_t at = below(text.size());
            const size_t kind = below(4);
            if (kind == 0) {
                text.erase(at, 1);
            } else if (kind == 1) {
                text.insert(at, 1, "<T>F0\r\n\0"[below(8)]);
            } else if (kind == 2) {
                text[at] = static_cast<char>(byte());
            } else {
                text.resize(at + 1);
            }
        }
        return text;
    }

    std::string next()
    {
        const size_t kind = below(9);
        return kind == 0   ? noise()
               : kind == 8 ? commandWithPayload()
               : kind <= 3 ? mutatedFrame()
               : kind == 4 ? mutatedFrame() + frame() + mutatedFrame()
                           : frame();
    }

private:
    // Never 0x5A, so that an answer to that one is known.
    uint8_t address()
    {
        return static_cast<uint8_t>(below(0x5A));
    }

    uint8_t byte()
    {
        return static_cast<uint8_t>(below(256));
    }

    std::mt19937 random;
};

// Resident memory of a process in KiB without its files, whose pages come and go: those of a
// program that was just built count as written to, and as shared while another daemon runs.
long ownMemory(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/smaps_rollup");
    std::string word;
    long size = -1;
    while (file >> word) {
        if (word == "Anonymous:") {
            file >> size;
        }
    }
    return size;
}

} // namespace

TEST_F(SystemEnduranceSoak, SurvivesRandomBytesAndDatagrams)
{
    SoakRun run(1500);
    Input input(run.seed);
    ControlPc pcs[] = {ControlPc("192.168.0.10"), ControlPc("192.168.0.11")};
    pcs[0].send("hello");
    ASSERT_EQ(front.read(5), "hello");
    // The interface is known from here on, and the DHCP client's file kept.
    expectAnswer({0, 0, 0x89, 0, 0, 0, 0}, {0, 0, 0x89, 192, 168, 0, 100});

    size_t toLine = 0;
    size_t toPcs = 0;
    size_t pcSilence = 100; // so many rounds lie between two datagrams, on average
    while (run.goesOn()) {
        // While the PCs say much, the daemon is busy sending it and the line's bytes overflow; so
        // there are times when they say little.
        if (input.below(500) == 0) {
            const size_t silences[] = {5, 100, 1000};
            pcSilence = silences[input.below(std::size(silences))];
        }
        // What the line does not take is lost, as on a real one.
        front.write(input.next(), milliseconds::zero());
        if (input.below(pcSilence) == 0) {
            const std::string datagram = input.next();
            pcs[input.below(2)].send(datagram);
        }
        const std::string received = front.read(5000, milliseconds(input.below(3)));
        toLine += received.size();
        if (input.below(20) == 0) {
            front.write(received, milliseconds::zero()); // an echo
        }
        for (ControlPc &pc : pcs) {
            while (const auto datagram = pc.receive(milliseconds::zero())) {
                toPcs += datagram->size();
                EXPECT_LE(datagram->size(), 1152u);
            }
        }
        ASSERT_TRUE(daemon.isRunning());
        ASSERT_EQ(daemon.errors(), "");
        daemon.forgetLines();
    }
    EXPECT_GT(toLine, 0u);
    EXPECT_GT(toPcs, 0u);

    // There may be bytes on their way yet, and a full channel swallows what comes after them.
    std::string answers;
    EXPECT_TRUE(eventually([&] {
        front.write(command({0x5A, 0, 0x68, 0x01, 0, 0, 0}), milliseconds::zero());
        answers += front.read(5000, milliseconds(50));
        return answers.find(reply({0x5A, 0, 0x68, 0x01, 0x26, 0x33, 0})) != answers.npos;
    }));
    EXPECT_EQ(daemon.errors(), "");
}

TEST_F(SystemEndurance, UsesNoMoreMemoryAfterManyCommands)
{
    ControlPc pc;
    pc.send("hello");
    ASSERT_EQ(front.read(5), "hello");
    constexpr int kBurst = 100;
    std::string commands;
    std::string replies;
    for (uint8_t tag = 0; tag < kBurst; ++tag) {
        commands += command({0, tag, 0x6A, 0x03, 0, 0, 0});
        replies += reply({0, tag, 0x6A, 0x03, 1, 10, 0});
    }
    long early = 0;
    for (int count = 0; count < 20000; count += kBurst) {
        if (count == 2000) {
            early = ownMemory(daemon.pid());
        }
        front.write("mirrored" + commands);
        ASSERT_EQ(front.read(replies.size()), replies);
        while (pc.receive(milliseconds::zero())) {
        }
    }
    const long late = ownMemory(daemon.pid());
    std::cout << "KiB after 2,000 commands: " << early << ", after 20,000: " << late << std::endl;
    ASSERT_GT(early, 0);
#ifdef UNDER_THREAD_SANITIZER
    constexpr long kGrowth = 512; // its history of accesses grows; 30 bytes a command would show
#else
    constexpr long kGrowth = 16; // one byte lost for each command would show
#endif
    EXPECT_LE(late, early + kGrowth);
}
