// Firmware update: the installed program replaces itself by another one, over the line and over
// UDP, and stays what it is when something is wrong. The daemon is /usr/bin/vesk_h264 of the board,
// a copy of the tested one. Under scripts/soak the package over UDP is as long as a random
// run, and as many updates are cut short as fit into one.

#include "tests/support/bytes.h"
#include "tests/support/files.h"
#include "tests/support/soak.h"
#include "tests/system/board.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <map>
#include <numeric>
#include <random>
#include <sys/stat.h>
#include <thread>

namespace fs = std::filesystem;
using std::chrono::steady_clock;

namespace {

constexpr char kExecutable[] = "/usr/bin/vesk_h264";
constexpr char kBackup[] = "/usr/bin/vesk_h264_backup";
constexpr char kStored[] = "/userdata/_update.pkg";

// A program that is the old executable again, small enough for one block.
const std::string kScript = "#!/bin/sh\nexec /usr/bin/vesk_h264_backup\n";

constexpr size_t kBlock = 1024;
constexpr size_t kHeader = 128;
constexpr auto kUpdateMode = std::chrono::seconds(5); // after the last command of an update

// 0 while there is no such file.
ino_t inodeOf(const char *path)
{
    struct stat status {};
    return stat(path, &status) == 0 ? status.st_ino : 0;
}

uint32_t wideSumOf(std::string_view bytes)
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
        const uint32_t sum = wideSumOf(stored) + sumError;
        stream = patternedBytes(kHeader) + stored; // the header's other bytes mean nothing
        for (size_t i = 0; i < 4; ++i) {
            stream[48 + i] = static_cast<char>(package.size() >> (24 - 8 * i) & 0xFF);
        }
        stream[80] = static_cast<char>(sum >> 8 & 0xFF);
        stream[81] = static_cast<char>(sum & 0xFF);
        blocks = stream.size() / kBlock;
    }

    // The frame and the block after it.
    std::string block(size_t number) const
    {
        return ::command(command(number)) + withChecksum(stream.substr(number * kBlock, kBlock));
    }
    static std::string accepted(size_t number)
    {
        return reply(command(number));
    }

    std::string stored; // what the daemon keeps: the package up to the end of its last block
    size_t blocks;

private:
    static Frame command(size_t number)
    {
        const auto byte = [](size_t value) { return static_cast<uint8_t>(value); };
        return {0, byte(number * 3), 0x9A, 0xA0, 7, byte(number), byte(number >> 8)};
    }

    std::string stream;
};

class SystemUpdate : public Board {
protected:
    void SetUp() override
    {
        fs::remove(kExecutable);
        fs::copy_file(testedDaemon(), kExecutable);
        startAnew();
    }

    // As the board's init does it.
    void startAnew()
    {
        old = contentOf(kExecutable);
        ASSERT_FALSE(old.empty());
        daemon.emplace();
        ASSERT_TRUE(daemon->starts());
    }

    void sendAll(const Transfer &transfer)
    {
        sendBlocks(transfer, 0, transfer.blocks);
    }

    void sendBlocks(const Transfer &transfer, size_t first, size_t end)
    {
        for (size_t number = first; number < end; ++number) {
            front.write(transfer.block(number));
            ASSERT_EQ(front.read(19), Transfer::accepted(number)) << number;
        }
    }

    // Installed, and running after a start.
    void expectInstalled(const Transfer &transfer)
    {
        EXPECT_TRUE(daemon->prints("check _update.pkg sucess"));
        EXPECT_TRUE(daemon->prints("exit", 1, kSyncPatience));
        EXPECT_EQ(daemon->waitForEnd(), 0);
        EXPECT_TRUE(contentOf(kStored) == transfer.stored);
        EXPECT_TRUE(contentOf(kExecutable) == transfer.stored);
        EXPECT_TRUE(contentOf(kBackup) == old);
        constexpr auto kExecute = fs::perms{0111};
        EXPECT_EQ(fs::status(kExecutable).permissions() & kExecute, kExecute);
        startAnew();
        expectLife();
    }

    // Ends the daemon and what it has started, as a kill of the whole device would.
    void killAll()
    {
        const pid_t group = daemon->pid(); // it has a session of its own
        kill(-group, SIGKILL);
        ASSERT_TRUE(daemon->waitForEnd());
        ASSERT_TRUE(eventually([group] { return kill(-group, 0) != 0; }));
    }

    // Sends back what comes from the daemon until that ends so, and returns it.
    std::string echo(const std::string &end)
    {
        std::string carried;
        for (std::string byte = front.read(1); !byte.empty(); byte = front.read(1)) {
            front.write(byte);
            carried += byte;
            if (carried.ends_with(end)) {
                break;
            }
        }
        return carried;
    }

    std::string old; // the executable before the update
    std::optional<Daemon> daemon;
};

} // namespace

TEST_F(SystemUpdate, ReplacesItselfByAnotherBuildOverTheLine)
{
    // An executable runs as well with bytes after its end; these would be commands if they were
    // not part of a block.
    std::string rebuilt = old + "rebuilt";
    for (int i = 0; i < 100; ++i) {
        rebuilt += "<T0000680100000069>";
    }
    const Transfer transfer(rebuilt);
    sendAll(transfer);
    ASSERT_TRUE(daemon->waitForEnd(kSyncPatience));
    EXPECT_EQ(front.readUntilQuiet(), "");
    const auto &lines = daemon->lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "read device type"), 0);
    expectInstalled(transfer);
    // And that one can be replaced, too.
    const Transfer next(rebuilt + "again");
    sendAll(next);
    expectInstalled(next);
}

TEST_F(SystemUpdate, InstallsPackagesOfWholeBlocksAndSaysSoInThisOrder)
{
    const std::string unpadded = kScript + std::string(3 * kBlock - kHeader - kScript.size(), '#');
    for (const std::string &package : {kScript, unpadded}) {
        SCOPED_TRACE(package.size());
        SetUp();
        daemon->forgetLines();
        const Transfer transfer(package);
        ASSERT_EQ(transfer.blocks, package == kScript ? 1u : 3u);
        sendAll(transfer);
        ASSERT_TRUE(daemon->waitForEnd(kSyncPatience));
        EXPECT_EQ(daemon->lines(),
                  (Lines{"getFreeChannel from=0, type=2, port=0",
                         "file size = " + std::to_string(package.size()), "open file _update.pkg",
                         "check _update.pkg sucess", "exit"}));
        expectInstalled(transfer);
    }
}

TEST_F(SystemUpdate, IsLeftAloneByAPackageWithAWrongSum)
{
    const Transfer transfer(old + "rebuilt", 1);
    const uint32_t sum = wideSumOf(transfer.stored) & 0xFFFF;
    sendAll(transfer);
    char line[50];
    std::snprintf(line, sizeof line, "check sum error: 0x%x != 0x%x", sum, (sum + 1) & 0xFFFF);
    EXPECT_TRUE(daemon->prints(line));
    EXPECT_TRUE(daemon->prints("check _update.pkg error"));
    expectLife();
    EXPECT_TRUE(contentOf(kExecutable) == old);
    EXPECT_FALSE(fs::exists(kBackup));

    // The next attempt may succeed.
    const Transfer right(kScript);
    sendAll(right);
    expectInstalled(right);
}

// Without them the sum is the same.
TEST_F(SystemUpdate, IsLeftAloneByAPackageThatLacksItsBlocksOfZeros)
{
    const Transfer whole(kScript + std::string(2944 - kScript.size(), '\0'));
    ASSERT_EQ(whole.blocks, 3u);
    sendBlocks(whole, 0, 1);
    sendBlocks(whole, 2, 3);
    EXPECT_TRUE(daemon->prints("check size error: 1920 < 2944"));
    EXPECT_TRUE(daemon->prints("check _update.pkg error"));
    expectLife();
    EXPECT_TRUE(contentOf(kExecutable) == old);
    EXPECT_FALSE(fs::exists(kBackup));
    sendBlocks(whole, 0, 3);
    expectInstalled(whole);
}

TEST_F(SystemUpdate, PassesOnWhatThePcAndTheFrontBoardSayInUpdateMode)
{
    ControlPc pc;
    const auto begin = steady_clock::now();
    sendBlocks(Transfer(old), 0, 1);
    pc.send("from the PC");
    EXPECT_EQ(front.read(11), "from the PC");
    front.write("from the front board");
    EXPECT_EQ(pc.read(20), "from the front board");
    EXPECT_LT(steady_clock::now() - begin, kUpdateMode); // else it was passed on later
}

TEST_F(SystemUpdate, ReturnsToItsWorkWhenTheTransferIsAbandoned)
{
    sendBlocks(Transfer(old), 0, 2);
    const auto begin = steady_clock::now();
    while (steady_clock::now() < begin + kQuiet) {
        ASSERT_FALSE(daemon->sleeps()) << "in update mode it never does, else nearly always";
    }
    expectLife();
    EXPECT_TRUE(eventually([this] { return daemon->sleeps(); }));
    expectLife();

    // Of the abandoned one nothing is left when another begins.
    const Transfer transfer(kScript + patternedBytes(1000));
    sendAll(transfer);
    expectInstalled(transfer);
}

// The far side of the line sends back whatever comes, so that the daemon executes what the PC says
// and the PC hears the answers.
TEST_F(SystemUpdate, ReplacesItselfOverUdpWhenTheFrontBoardEchoes)
{
    const size_t blocks = std::max(3u, 3 * soakSeconds());
    const Transfer transfer(kScript + patternedBytes((blocks - 1) * kBlock));
    ASSERT_EQ(transfer.blocks, blocks);
    ControlPc pc;
    for (size_t number = 0; number < blocks; ++number) {
        // The frame and its block in one datagram: after the frame the daemon waits for the block
        // and would pass no other datagram on.
        const std::string datagram = transfer.block(number);
        ASSERT_EQ(datagram.size(), 1044u);
        pc.send(datagram);
        const std::string accepted = Transfer::accepted(number);
        ASSERT_EQ(echo(accepted), datagram + accepted); // at the first attempt
        if (number + 1 == blocks) {
            break; // nobody is left to pass the answer on
        }
        // Before it there may be the beginning of the frame, but nothing of the block.
        const auto isAll = [&](const auto &bytes) { return bytes.ends_with(accepted); };
        const std::string heard = pc.readUntil(isAll);
        ASSERT_PRED1(isAll, heard);
        EXPECT_LE(heard.size(), 18u + 19u);
    }
    expectInstalled(transfer);
}

// Only the copy over the executable leaves one that cannot be started; then the backup is whole.
TEST_F(SystemUpdate, LeavesTheOldOrTheNewProgramWhenItIsCutShort)
{
    const Transfer transfer(kScript + std::string(20 * kBlock, '#'));
    SoakRun run(3);
    std::mt19937 random(run.seed);
    std::uniform_real_distribution<double> fraction;
    std::map<std::string, int> outcomes;
    while (run.goesOn()) {
        SetUp();
        const ino_t inode = inodeOf(kExecutable);
        fs::remove(kBackup);
        sendAll(transfer);
        // In every other round soon after the copy has begun, as the rest takes little time.
        const bool isInCopy = run.rounds % 2 == 0;
        const auto end = steady_clock::now() + milliseconds(200);
        while (isInCopy && inodeOf(kExecutable) == inode && steady_clock::now() < end) {
        }
        const double longest = isInCopy ? 3 : 30;
        const std::chrono::duration<double, std::milli> pause(longest *
                                                              std::pow(fraction(random), 3));
        std::this_thread::sleep_for(pause);
        ASSERT_NO_FATAL_FAILURE(killAll());
        const std::string program = contentOf(kExecutable);
        if (program != old && program != transfer.stored) {
            ++outcomes["damaged"];
            ASSERT_TRUE(contentOf(kBackup) == old) << "round " << run.rounds;
            continue;
        }
        ++outcomes[program == old ? "old" : "new"];
        ASSERT_EQ(access(kExecutable, X_OK), 0) << "round " << run.rounds;
        startAnew();
        expectLife();
    }
    std::cout << run.rounds << " kills: the old program " << outcomes["old"]
              << " times, the new one " << outcomes["new"]
              << " times, a damaged one with its backup " << outcomes["damaged"] << " times"
              << std::endl;
}
