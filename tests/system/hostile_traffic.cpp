// Hostile traffic on both sides of the daemon, for VESK_SOAK_SECONDS; scripts/soak --hostile runs
// it.
//
// In rounds of some seconds, the line brings all kinds of input and several PCs send datagrams of
// all lengths, as fast as they can or paced, while the front board or the console is at times not
// read. After each round the traffic stops, and the next command must be answered. Memory and
// descriptors must be what they were after the first rounds.

#include "tests/system/board.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <thread>

#include "tests/support/soak.h"
#include "tests/system/random_input.h"

namespace {

using std::chrono::steady_clock;

constexpr size_t kLargestDatagram = 65507;

constexpr size_t kBlock = 1024;

// The stream of an update that is refused at the end: all bytes of the file are even, and the sum
// in the header is odd.
std::string updateNeverInstalled(size_t blocks)
{
    std::string stream(blocks * kBlock, '\x10');
    const size_t length = stream.size() - 128;
    stream.replace(48, 4, {0, 0, static_cast<char>(length / 256), static_cast<char>(length % 256)});
    stream.replace(80, 2, "\x12\x35");
    return stream;
}

class HostileInput : public RandomInput {
public:
    explicit HostileInput(uint32_t seed) : RandomInput(seed), pool(kLargestDatagram * 4, '\0')
    {
        for (char &byte : pool) {
            byte = static_cast<char>(below(256));
        }
    }

    std::string noise(size_t length)
    {
        return pool.substr(below(pool.size() - length), length);
    }

    std::string forLine()
    {
        switch (below(12)) {
        case 0:
            return noise(below(below(10) == 0 ? 8000 : 300));
        case 1: // half a frame
            return frame().substr(0, 1 + below(18));
        case 2: // a frame in a frame in a frame
            return frame().substr(0, 1 + below(18)) + frame().substr(0, 1 + below(18)) + frame();
        case 3: // a wrong sum, or a wrong end
            return withWrongByteAt(below(2) == 0 ? 17 : 18);
        case 4:
            return announcedPayload();
        case 5:
            return wrongUpdate();
        case 6:
            return below(20) == 0 ? networkRecord() : frame();
        default:
            return next();
        }
    }

    std::string datagram()
    {
        switch (below(6)) {
        case 0:
            return "";
        case 1:
            return noise(below(4200));
        case 2:
            return noise(below(3) == 0 ? kLargestDatagram : below(kLargestDatagram + 1));
        case 3:
            return noise(4046 +
                         below(4)); // the longest that the daemon takes whole, and its neighbours
        default:
            return forLine();
        }
    }

private:
    std::string withWrongByteAt(size_t place)
    {
        std::string text = frame();
        text[place] = text[place] == '7' ? '8' : '7';
        return text;
    }

    // A command of which no payload follows, a text without an end, or a large payload.
    std::string announcedPayload()
    {
        // Not 0x20, which would make a network record of noise.
        const auto unknownData = static_cast<uint8_t>(below(0x20));
        switch (below(5)) {
        case 0:
            return command({address(), byte(), 0xF0, unknownData, 7, byte(), 3});
        case 1:
            return command({address(), byte(), 0x9A, 0xA0, 7, byte(), 3});
        case 2:
            return command({address(), byte(), 0xF2, 0, byte(), 0, 0});
        case 3:
            return command({address(), byte(), 0xF2, 9, byte(), 0, 0}) +
                   "[a=1,b=" + noise(below(6000));
        default: {
            const size_t length = 1 + below(4096);
            const size_t announced = length + 1;
            return command({address(), byte(), 0xF0, unknownData, 0,
                            static_cast<uint8_t>(announced % 256),
                            static_cast<uint8_t>(announced / 256)}) +
                   withChecksum(noise(length));
        }
        }
    }

    // A transfer of one to four blocks that is complete or lacks one.
    std::string wrongUpdate()
    {
        const size_t blocks = 1 + below(4);
        const size_t missing = below(8);
        const std::string stream = updateNeverInstalled(blocks);
        std::string text;
        for (size_t number = 0; number < blocks; ++number) {
            if (number != missing) {
                text +=
                    command({address(), byte(), 0x9A, 0xA0, 7, static_cast<uint8_t>(number), 0}) +
                    withChecksum(stream.substr(number * kBlock, kBlock));
            }
        }
        return text;
    }

    // The one that the board has, so that the PCs keep their way to it.
    std::string networkRecord()
    {
        return command({address(), byte(), 0xF0, 0x20, 0, 0x13, 0}) +
               withChecksum(
                   {"\xC0\xA8\x00\x64\xFF\xFF\xFF\x00\xC0\xA8\x00\x01\x02\x76\x65\x73\x6B\x01",
                    18});
    }

    std::string pool; // random bytes, as making them takes long
};

// What the daemon holds at a moment.
struct Holdings {
    long resident = 0;  // KiB, with the pages of its files
    long priv = 0;      // KiB that nobody shares
    long anonymous = 0; // KiB that are no file's
    long descriptors = 0;
};

Holdings holdingsOf(pid_t process)
{
    const std::string directory = "/proc/" + std::to_string(process);
    std::map<std::string, long> sizes;
    for (const char *name : {"/status", "/smaps_rollup"}) {
        std::ifstream file(directory + name);
        for (std::string line; std::getline(file, line);) {
            const size_t colon = line.find(':');
            if (colon != line.npos) {
                sizes[line.substr(0, colon)] = std::atol(line.c_str() + colon + 1);
            }
        }
    }
    const auto entries = std::filesystem::directory_iterator(directory + "/fd");
    return {sizes["VmRSS"], sizes["Private_Clean"] + sizes["Private_Dirty"], sizes["Anonymous"],
            static_cast<long>(std::distance(begin(entries), end(entries)))};
}

void print(const char *when, const Holdings &holdings)
{
    std::printf("%-18s VmRSS %6ld KiB, private %6ld KiB, anonymous %6ld KiB, %ld descriptors\n",
                when, holdings.resident, holdings.priv, holdings.anonymous, holdings.descriptors);
    std::fflush(stdout);
}

struct Counts {
    std::atomic<uint64_t> toLine, fromLine, datagrams, datagramBytes, toPcs;
};

class SystemHostileTraffic : public Board {
protected:
    // What the parties do in a round.
    struct Round {
        steady_clock::time_point end;
        bool lineSpeaks, lineIsPaced, frontReads, frontEchoes, pcsSpeak, pcsArePaced, consoleIsRead;
    };

    Round nextRound(HostileInput *input)
    {
        const auto chance = [input](size_t percent) { return input->below(100) < percent; };
        return {steady_clock::now() + milliseconds(500 + input->below(4000)),
                chance(85),
                chance(50),
                chance(85),
                chance(15),
                chance(65),
                chance(40),
                chance(70)};
    }

    void speakOnLine(const Round &round, HostileInput *input)
    {
        while (steady_clock::now() < round.end) {
            // What the line does not take is lost, as on a real one.
            const size_t taken = front.write(input->forLine(), milliseconds::zero());
            counts.toLine += taken;
            if (taken == 0) {
                std::this_thread::sleep_for(milliseconds(1));
            } else if (round.lineIsPaced) {
                std::this_thread::sleep_for(std::chrono::microseconds(taken * 87)); // 115200 bits/s
            }
        }
    }

    void readLine(const Round &round)
    {
        while (steady_clock::now() < round.end) {
            const std::string bytes = front.read(4096, milliseconds(1));
            counts.fromLine += bytes.size();
            if (round.frontEchoes) {
                counts.toLine += front.write(bytes, milliseconds::zero());
            }
        }
    }

    void speakAsPc(const Round &round, ControlPc *pc, HostileInput *input)
    {
        while (steady_clock::now() < round.end) {
            const std::string datagram = input->datagram();
            pc->send(datagram);
            ++counts.datagrams;
            counts.datagramBytes += datagram.size();
            while (const auto received = pc->receive(milliseconds::zero())) {
                counts.toPcs += received->size();
                EXPECT_LE(received->size(), 1152u);
            }
            if (round.pcsArePaced) {
                std::this_thread::sleep_for(milliseconds(input->below(800)));
            }
        }
    }

    // The daemon's answer to the next command, without traffic: first sent again and again, as the
    // device may still be waiting for a payload and takes the command for it; then once.
    void expectNextCommandAnswered(uint8_t tag)
    {
        const auto begin = steady_clock::now();
        std::string received;
        ASSERT_TRUE(eventuallyAnswered({0x5A, tag, 0x68, 0x01, 0, 0, 0}, kSyncPatience, &received));
        const auto answered = steady_clock::now();
        counts.fromLine += received.size() + front.readUntilQuiet().size();
        const auto asked = steady_clock::now();
        front.write(command({0x5B, tag, 0x68, 0x01, 0, 0, 0}));
        const std::string answer = reply({0x5B, tag, 0x68, 0x01, 0x26, 0x33, 0});
        std::string late;
        while (late.find(answer) == late.npos && steady_clock::now() < asked + kPatience) {
            late += front.read(4096, milliseconds(5));
        }
        ASSERT_NE(late.find(answer), late.npos) << "the next command was not answered";
        longestService = std::max(longestService, answered - begin);
        longestAnswer = std::max(longestAnswer, steady_clock::now() - asked);
    }

    // A transfer that was begun and not finished holds the package open; a new one of a single
    // block ends it.
    void endTransfer(uint8_t tag)
    {
        const Frame block = {0x5C, tag, 0x9A, 0xA0, 7, 0, 0};
        front.write(command(block) + withChecksum(updateNeverInstalled(1)));
        std::string received;
        EXPECT_TRUE(eventually([&] {
            received += front.read(4096, milliseconds(5));
            return received.find(reply(block)) != received.npos;
        }));
    }

    bool eventuallyAnswered(const Frame &asked, milliseconds patience, std::string *received)
    {
        Frame answered = asked;
        answered[4] = 0x26;
        answered[5] = 0x33;
        const auto end = steady_clock::now() + patience;
        while (received->find(reply(answered)) == received->npos) {
            if (steady_clock::now() > end) {
                return false;
            }
            front.write(command(asked), milliseconds::zero());
            *received += front.read(65536, milliseconds(50));
        }
        return true;
    }

    Counts counts{};
    steady_clock::duration longestService{};
    steady_clock::duration longestAnswer{};
};

} // namespace

TEST_F(SystemHostileTraffic, LeavesTheDaemonInServiceAndAsLargeAsBefore)
{
    const uint32_t seed = soakNumber("VESK_SOAK_SEED", 20250321);
    const auto begin = steady_clock::now();
    const auto end = begin + std::chrono::seconds(std::max(soakSeconds(), 20u));
    // Freed memory is kept from reuse for less long than usual, so that it does not hide a leak.
    Daemon daemon({}, {}, {"ASAN_OPTIONS=quarantine_size_mb=1"});
    ASSERT_TRUE(daemon.starts());
    // The interface is known from here on, and the DHCP client's file kept.
    expectAnswer({0, 0, 0x89, 0, 0, 0, 0}, {0, 0, 0x89, 192, 168, 0, 100});
    const Holdings atStart = holdingsOf(daemon.pid());
    print("at the start:", atStart);

    HostileInput director(seed);
    HostileInput lineInput(seed + 1);
    ControlPc pcs[] = {ControlPc("192.168.0.1"), ControlPc("192.168.0.10"),
                       ControlPc("192.168.0.11")};
    HostileInput pcInputs[] = {HostileInput(seed + 2), HostileInput(seed + 3),
                               HostileInput(seed + 4)};
    uint32_t rounds = 0;
    Holdings early;
    while (steady_clock::now() < end && !HasFailure()) {
        const Round round = nextRound(&director);
        std::vector<std::thread> parties;
        if (round.lineSpeaks) {
            parties.emplace_back([&] { speakOnLine(round, &lineInput); });
        }
        if (round.frontReads) {
            parties.emplace_back([&] { readLine(round); });
        }
        for (size_t i = 0; round.pcsSpeak && i < std::size(pcs); ++i) {
            parties.emplace_back([&, i] { speakAsPc(round, &pcs[i], &pcInputs[i]); });
        }
        while (steady_clock::now() < round.end) {
            if (round.consoleIsRead) {
                daemon.lines();
                daemon.forgetLines();
            }
            std::this_thread::sleep_for(milliseconds(5));
        }
        for (std::thread &party : parties) {
            party.join();
        }
        ASSERT_TRUE(daemon.isRunning());
        ASSERT_NO_FATAL_FAILURE(expectNextCommandAnswered(static_cast<uint8_t>(rounds)));
        daemon.lines();
        daemon.forgetLines();
        ++rounds;
        endTransfer(static_cast<uint8_t>(rounds));
        // A system tool may be running: the network settings are applied 1500 ms after a change.
        ASSERT_TRUE(eventually([&] {
            return holdingsOf(daemon.pid()).descriptors == atStart.descriptors;
        })) << "descriptors: "
            << holdingsOf(daemon.pid()).descriptors;
        if (early.resident == 0 && steady_clock::now() - begin >= (end - begin) / 5) {
            early = holdingsOf(daemon.pid());
            print("after a fifth:", early);
        }
    }
    const Holdings late = holdingsOf(daemon.pid());
    print("at the end:", late);
    const auto ms = [](steady_clock::duration time) {
        return static_cast<long>(std::chrono::duration_cast<milliseconds>(time).count());
    };
    const auto mb = [](uint64_t bytes) { return static_cast<double>(bytes) / 1e6; };
    std::printf("%ld s, %u rounds; the next command was answered after each, at the latest after "
                "%ld ms, and the one after it within %ld ms\n",
                ms(steady_clock::now() - begin) / 1000, rounds, ms(longestService),
                ms(longestAnswer));
    std::printf("%.1f MB to the line and %.1f MB from it, %lu datagrams of %.1f MB to the device, "
                "%.1f MB to the PCs\n",
                mb(counts.toLine), mb(counts.fromLine), counts.datagrams.load(),
                mb(counts.datagramBytes), mb(counts.toPcs));
    std::fflush(stdout);
    EXPECT_LE(late.anonymous, early.anonymous + ALLOWED_GROWTH_KIB);
    // The script of a network record adds a route that is there already.
    std::istringstream errors(daemon.errors());
    for (std::string line; std::getline(errors, line);) {
        EXPECT_TRUE(line.starts_with("ip: ") || line.starts_with("ifconfig: ")) << line;
    }
}
