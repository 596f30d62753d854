// The daemon over longer times: senseless input, and memory.

#include "tests/system/board.h"

#include <fstream>
#include <iterator>

#include "tests/support/soak.h"
#include "tests/system/random_input.h"

namespace {

using SystemEndurance = RunningDaemon;
using SystemEnduranceSoak = RunningDaemon;

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
    RandomInput input(run.seed);
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
