// Firmware update: the installed program replaces itself by another one, over the line and over
// UDP, and stays what it is when something is wrong.
//
// Here the daemon is /usr/bin/vesk_h264 of the board: a copy of the one that was built.
//
// VESK_SOAK_SECONDS in the environment of this program makes the package that goes over UDP so much
// larger that sending it takes about that long.

#include "tests/system/board.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <thread>

#include <sys/wait.h>

namespace {

constexpr char kExecutable[] = "/usr/bin/vesk_h264";
constexpr char kBackup[] = "/usr/bin/vesk_h264_backup";
constexpr char kStored[] = "/userdata/_update.pkg";

// A program that is the old executable again, small enough for one block.
constexpr char kScript[] = "#!/bin/sh\nexec /usr/bin/vesk_h264_backup\n";

constexpr size_t kBlock = 1024;
constexpr size_t kHeader = 128;

std::string contentOf(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Compares without printing what is no text.
testing::AssertionResult isSame(const std::string &one, const std::string &other)
{
    if (one == other) {
        return testing::AssertionSuccess();
    }
    const auto at = std::mismatch(one.begin(), one.end(), other.begin(), other.end());
    return testing::AssertionFailure()
           << "of " << one.size() << " and " << other.size() << " bytes, those at "
           << at.first - one.begin() << " differ";
}

uint32_t sumOf(std::string_view bytes)
{
    return std::accumulate(bytes.begin(), bytes.end(), 0u, [](uint32_t sum, char byte) {
        return sum + static_cast<unsigned char>(byte);
    });
}

// A package on its way to the daemon.
class Transfer {
public:
    explicit Transfer(const std::string &package, uint32_t sumError = 0)
    {
        const size_t padding = (kBlock - (kHeader + package.size()) % kBlock) % kBlock;
        stored = package + std::string(padding, '\0');
        const uint32_t sum = sumOf(stored) + sumError;
        stream =
            patternedBytes(kHeader) + stored; // what the header's other bytes are means nothing
        for (size_t i = 0; i < 4; ++i) {
            stream[48 + i] = static_cast<char>(package.size() >> (24 - 8 * i) & 0xFF);
        }
        stream[80] = static_cast<char>(sum >> 8 & 0xFF);
        stream[81] = static_cast<char>(sum & 0xFF);
    }

    size_t blocks() const
    {
        return stream.size() / kBlock;
    }

    // The frame and the block behind it.
    static std::array<uint8_t, 7> command(size_t number)
    {
        return {0,
                static_cast<uint8_t>(number * 3),
                0x9A,
                0xA0,
                7,
                static_cast<uint8_t>(number),
                static_cast<uint8_t>(number >> 8)};
    }
    std::string block(size_t number) const
    {
        const std::string bytes = stream.substr(number * kBlock, kBlock);
        return ::command(command(number)) + bytes + static_cast<char>(sumOf(bytes) & 0xFF);
    }
    static std::string accepted(size_t number)
    {
        return reply(command(number));
    }
    static std::string refused(size_t number)
    {
        const auto bytes = command(number);
        return reply({bytes[0], bytes[1], bytes[2], 0xFF, 0xFF, 0xFF, 0xFF});
    }

    std::string stored; // what the daemon keeps: the package up to the end of its last block

private:
    std::string stream;
};

class SystemUpdate : public testing::Test {
protected:
    SystemUpdate()
    {
        std::filesystem::copy_file(VESK_BUILT_DAEMON, kExecutable);
        old = contentOf(kExecutable);
        daemon.emplace();
    }

    void SetUp() override
    {
        ASSERT_FALSE(old.empty());
        ASSERT_TRUE(daemon->starts());
    }

    void sendBlocks(const Transfer &transfer, size_t first, size_t end)
    {
        for (size_t number = first; number < end; ++number) {
            front.write(transfer.block(number));
            ASSERT_EQ(front.read(19), Transfer::accepted(number)) << number;
        }
    }

    void expectInstalled(const Transfer &transfer)
    {
        EXPECT_TRUE(daemon->prints("check _update.pkg sucess"));
        EXPECT_TRUE(daemon->prints("exit", 1, kSyncPatience));
        const auto status = daemon->waitForEnd();
        ASSERT_TRUE(status);
        EXPECT_TRUE(WIFEXITED(*status));
        EXPECT_EQ(WEXITSTATUS(*status), 0);
        EXPECT_TRUE(isSame(contentOf(kStored), transfer.stored));
        EXPECT_TRUE(isSame(contentOf(kExecutable), transfer.stored));
        EXPECT_TRUE(isSame(contentOf(kBackup), old));
        using std::filesystem::perms;
        constexpr perms kExecute = perms::owner_exec | perms::group_exec | perms::others_exec;
        EXPECT_EQ(std::filesystem::status(kExecutable).permissions() & kExecute, kExecute);
    }

    // As the board's init does it.
    void startAnew()
    {
        daemon.emplace();
        ASSERT_TRUE(daemon->starts());
    }

    void expectAnswer()
    {
        front.write("<T0000680100000069>");
        EXPECT_EQ(front.read(19), "<F00006801263300c2>");
    }

    // Sends back what comes from the daemon until that ends with one of the two, and returns it.
    std::string echoUntil(const std::string &one, const std::string &other)
    {
        std::string carried;
        while (!carried.ends_with(one) && !carried.ends_with(other)) {
            const std::string byte = front.read(1);
            if (byte.empty()) {
                break;
            }
            front.write(byte);
            carried += byte;
        }
        return carried;
    }

    void echoUntilQuiet()
    {
        for (std::string byte; !(byte = front.read(1, kQuiet)).empty();) {
            front.write(byte);
        }
    }

    // Whether the daemon's main loop sleeps at this moment: never in update mode, nearly always
    // otherwise.
    bool isAsleep() const
    {
        const std::string process = std::to_string(daemon->pid());
        const std::string line = contentOf("/proc/" + process + "/task/" + process + "/stat");
        const size_t name = line.rfind(')');
        return name != std::string::npos && line.compare(name, 3, ") S") == 0;
    }

    std::string old; // the executable before the update
    FrontBoard front;
    std::optional<Daemon> daemon;
};

} // namespace

TEST_F(SystemUpdate, ReplacesItselfByAnotherBuildOverTheLine)
{
    // An executable runs as well with bytes behind its end; these would be commands if they were
    // not part of a block.
    std::string rebuilt = old + "rebuilt";
    for (int i = 0; i < 100; ++i) {
        rebuilt += "<T0000680100000069>";
    }
    const Transfer transfer(rebuilt);
    sendBlocks(transfer, 0, transfer.blocks());
    expectInstalled(transfer);
    EXPECT_EQ(front.readUntilQuiet(), "");
    const auto &lines = daemon->lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "read device type"), 0);

    startAnew();
    expectAnswer();
    // And that one can be replaced, too.
    old = contentOf(kExecutable);
    const Transfer next(rebuilt + "again");
    sendBlocks(next, 0, next.blocks());
    expectInstalled(next);
}

TEST_F(SystemUpdate, SaysWhatItDoesInThisOrder)
{
    daemon->forgetLines();
    const Transfer transfer(kScript);
    sendBlocks(transfer, 0, 1);
    EXPECT_TRUE(daemon->waitForEnd(kSyncPatience));
    const std::vector<std::string> expected = {
        "getFreeChannel from=0, type=2, port=0",
        "file size = " + std::to_string(sizeof kScript - 1),
        "open file _update.pkg",
        "check _update.pkg sucess",
        "exit",
    };
    EXPECT_EQ(daemon->lines(), expected);
}

TEST_F(SystemUpdate, InstallsAProgramOfOneBlock)
{
    const Transfer transfer(kScript);
    ASSERT_EQ(transfer.blocks(), 1u);
    sendBlocks(transfer, 0, 1);
    expectInstalled(transfer);
    startAnew();
    expectAnswer();
}

TEST_F(SystemUpdate, InstallsWhatExactlyFillsItsBlocks)
{
    const std::string script =
        kScript + std::string(3 * kBlock - kHeader - sizeof kScript + 1, '#');
    const Transfer transfer(script);
    ASSERT_EQ(transfer.blocks(), 3u);
    ASSERT_EQ(transfer.stored, script);
    sendBlocks(transfer, 0, 3);
    expectInstalled(transfer);
    startAnew();
    expectAnswer();
}

TEST_F(SystemUpdate, TakesABlockThatIsSentAgainOnce)
{
    const Transfer transfer(kScript + patternedBytes(5000));
    ASSERT_EQ(transfer.blocks(), 6u);
    sendBlocks(transfer, 0, 3);
    sendBlocks(transfer, 2, 3); // the answer got lost, it seems
    sendBlocks(transfer, 2, 4);

    std::string spoilt = transfer.block(4);
    spoilt[100] = static_cast<char>(spoilt[100] + 1);
    front.write(spoilt);
    EXPECT_EQ(front.read(19), Transfer::refused(4));
    EXPECT_TRUE(daemon->prints("re checksum error\r"));
    EXPECT_TRUE(daemon->prints("<F:receive  0 data from pc fail>"));

    sendBlocks(transfer, 4, 6);
    expectInstalled(transfer);
    startAnew();
    expectAnswer();
}

TEST_F(SystemUpdate, RefusesABlockThatDoesNotComeWhole)
{
    const Transfer transfer(kScript + patternedBytes(1000));
    ASSERT_EQ(transfer.blocks(), 2u);
    sendBlocks(transfer, 0, 1);
    front.write(transfer.block(1).substr(0, 19 + 1000));
    EXPECT_EQ(front.read(19), Transfer::refused(1));
    EXPECT_TRUE(daemon->prints("<F:receive  1000 data from pc fail>"));
    sendBlocks(transfer, 1, 2);
    expectInstalled(transfer);
}

TEST_F(SystemUpdate, IsLeftAloneByAPackageWithAWrongSum)
{
    const Transfer transfer(old + "rebuilt", 1);
    const uint32_t sum = sumOf(transfer.stored) & 0xFFFF;
    sendBlocks(transfer, 0, transfer.blocks());
    char line[50];
    std::snprintf(line, sizeof line, "check sum error: 0x%x != 0x%x", sum, (sum + 1) & 0xFFFF);
    EXPECT_TRUE(daemon->prints(line));
    EXPECT_TRUE(daemon->prints("check _update.pkg error"));
    expectAnswer();
    EXPECT_TRUE(isSame(contentOf(kExecutable), old));
    EXPECT_FALSE(std::filesystem::exists(kBackup));

    // The next attempt may succeed.
    const Transfer right(kScript);
    sendBlocks(right, 0, right.blocks());
    expectInstalled(right);
}

TEST_F(SystemUpdate, ReturnsToItsWorkWhenTheTransferIsAbandoned)
{
    const Transfer abandoned(old);
    sendBlocks(abandoned, 0, 2);
    const auto begin = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() < begin + kQuiet) {
        ASSERT_FALSE(isAsleep()) << "not in update mode";
    }
    expectAnswer();
    bool asleep = isAsleep();
    while (!asleep && std::chrono::steady_clock::now() < begin + kPatience) {
        std::this_thread::sleep_for(milliseconds(10));
        asleep = isAsleep();
    }
    EXPECT_TRUE(asleep);
    expectAnswer();

    // Of the abandoned one nothing is left when another begins.
    const Transfer transfer(kScript + patternedBytes(1000));
    sendBlocks(transfer, 0, transfer.blocks());
    expectInstalled(transfer);
}

// The far side of the line sends back whatever comes, so that the daemon executes what the PC says
// and the PC hears the answers.
TEST_F(SystemUpdate, ReplacesItselfOverUdpWhenTheFrontBoardEchoes)
{
    const char *const soak = std::getenv("VESK_SOAK_SECONDS");
    const size_t seconds = soak == nullptr ? 0 : std::strtoul(soak, nullptr, 0);
    const size_t blocks = std::max<size_t>(3, 3 * seconds);
    const Transfer transfer(kScript + patternedBytes((blocks - 1) * kBlock));
    ASSERT_EQ(transfer.blocks(), blocks);
    ControlPc pc;
    size_t repeated = 0;
    for (size_t number = 0; number < blocks;) {
        // The frame and its block in one datagram: behind the frame the daemon waits for the block
        // and would pass no other datagram on.
        const std::string datagram = transfer.block(number);
        ASSERT_EQ(datagram.size(), 1044u);
        pc.send(datagram);
        const std::string accepted = Transfer::accepted(number);
        const std::string refused = Transfer::refused(number);
        const std::string carried = echoUntil(accepted, refused);
        if (carried.ends_with(refused)) {
            // The daemon has found the datagram in two parts and waited for the second one without
            // passing it on, which it does now.
            ASSERT_LT(++repeated, blocks + 4);
            echoUntilQuiet();
            pc.readUntilQuiet();
            continue;
        }
        ASSERT_TRUE(isSame(carried, datagram + accepted));
        if (++number == blocks) {
            break; // nobody is left to pass the answer on
        }
        // Before it there may be the beginning of the frame, but nothing of the block.
        std::string heard;
        while (!heard.ends_with(accepted)) {
            const auto more = pc.receive();
            ASSERT_TRUE(more) << heard;
            heard += *more;
        }
        EXPECT_LE(heard.size(), 18u + 19u);
    }
    expectInstalled(transfer);
    startAnew();
    expectAnswer();
}
