// Firmware update: the installed program replaces itself by another one, over the line and over
// UDP, and stays what it is when something is wrong. The daemon is /usr/bin/vesk_h264 of the board,
// a copy of the one that was built. Under scripts/soak the package over UDP is as long as a random
// run.

#include "tests/support/files.h"
#include "tests/support/soak.h"
#include "tests/system/board.h"

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <thread>

#include <sys/wait.h>

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
    size_t blocks;

private:
    static std::array<uint8_t, 7> command(size_t number)
    {
        const auto low = static_cast<uint8_t>(number);
        return {0,   static_cast<uint8_t>(number * 3), 0x9A, 0xA0, 7,
                low, static_cast<uint8_t>(number >> 8)};
    }

    std::string stream;
};

class SystemUpdate : public testing::Test {
protected:
    void SetUp() override
    {
        fs::remove(kExecutable);
        fs::copy_file(VESK_BUILT_DAEMON, kExecutable);
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

    void sendBlocks(const Transfer &transfer, size_t first, size_t end)
    {
        for (size_t number = first; number < end; ++number) {
            front.write(transfer.block(number));
            ASSERT_EQ(front.read(19), Transfer::accepted(number)) << number;
        }
    }

    void expectRefused(std::string_view bytes, size_t number, const char *says)
    {
        front.write(bytes);
        EXPECT_EQ(front.read(19), Transfer::refused(number));
        EXPECT_TRUE(daemon->prints(says)) << says;
    }

    // Installed, and running after a start.
    void expectInstalled(const Transfer &transfer)
    {
        EXPECT_TRUE(daemon->prints("check _update.pkg sucess"));
        EXPECT_TRUE(daemon->prints("exit", 1, kSyncPatience));
        const auto status = daemon->waitForEnd();
        ASSERT_TRUE(status);
        EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << *status;
        EXPECT_TRUE(contentOf(kStored) == transfer.stored);
        EXPECT_TRUE(contentOf(kExecutable) == transfer.stored);
        EXPECT_TRUE(contentOf(kBackup) == old);
        constexpr auto kExecute = fs::perms{0111};
        EXPECT_EQ(fs::status(kExecutable).permissions() & kExecute, kExecute);
        startAnew();
        expectAnswer();
    }

    void expectAnswer()
    {
        front.write("<T0000680100000069>");
        EXPECT_EQ(front.read(19), "<F00006801263300c2>");
    }

    // Sends back what comes from the daemon until that ends so, and returns it.
    std::string echo(const std::string &end)
    {
        std::string carried;
        while (!carried.ends_with(end)) {
            const std::string byte = front.read(1, kPatience);
            if (byte.empty()) {
                break;
            }
            front.write(byte);
            carried += byte;
        }
        return carried;
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
    // An executable runs as well with bytes after its end; these would be commands if they were
    // not part of a block.
    std::string rebuilt = old + "rebuilt";
    for (int i = 0; i < 100; ++i) {
        rebuilt += "<T0000680100000069>";
    }
    const Transfer transfer(rebuilt);
    sendBlocks(transfer, 0, transfer.blocks);
    ASSERT_TRUE(daemon->waitForEnd(kSyncPatience));
    EXPECT_EQ(front.readUntilQuiet(), "");
    const auto &lines = daemon->lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "read device type"), 0);
    expectInstalled(transfer);
    // And that one can be replaced, too.
    const Transfer next(rebuilt + "again");
    sendBlocks(next, 0, next.blocks);
    expectInstalled(next);
}

TEST_F(SystemUpdate, InstallsPackagesOfWholeBlocksAndSaysSoInThisOrder)
{
    const struct {
        size_t blocks;
        std::string package;
    } rows[] = {
        {1, kScript},
        {3, kScript + std::string(3 * kBlock - kHeader - kScript.size(), '#')}, // no padding
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.blocks);
        SetUp();
        daemon->forgetLines();
        const Transfer transfer(row.package);
        ASSERT_EQ(transfer.blocks, row.blocks);
        sendBlocks(transfer, 0, row.blocks);
        ASSERT_TRUE(daemon->waitForEnd(kSyncPatience));
        EXPECT_EQ(daemon->lines(),
                  (std::vector<std::string>{"getFreeChannel from=0, type=2, port=0",
                                            "file size = " + std::to_string(row.package.size()),
                                            "open file _update.pkg", "check _update.pkg sucess",
                                            "exit"}));
        expectInstalled(transfer);
    }
}

TEST_F(SystemUpdate, TakesARepeatedBlockOnceAndRefusesASpoiltOneAndAShortOne)
{
    const Transfer transfer(kScript + patternedBytes(5000));
    ASSERT_EQ(transfer.blocks, 6u);
    sendBlocks(transfer, 0, 3);
    sendBlocks(transfer, 2, 3); // the answer got lost, it seems
    sendBlocks(transfer, 2, 4);

    std::string spoilt = transfer.block(4);
    spoilt[100] = static_cast<char>(spoilt[100] + 1);
    expectRefused(spoilt, 4, "<F:receive  0 data from pc fail>");
    EXPECT_TRUE(daemon->prints("re checksum error\r"));
    expectRefused(transfer.block(4).substr(0, 19 + 1000), 4, "<F:receive  1000 data from pc fail>");

    sendBlocks(transfer, 4, 6);
    expectInstalled(transfer);
}

TEST_F(SystemUpdate, IsLeftAloneByAPackageWithAWrongSum)
{
    const Transfer transfer(old + "rebuilt", 1);
    const uint32_t sum = sumOf(transfer.stored) & 0xFFFF;
    sendBlocks(transfer, 0, transfer.blocks);
    char line[50];
    std::snprintf(line, sizeof line, "check sum error: 0x%x != 0x%x", sum, (sum + 1) & 0xFFFF);
    EXPECT_TRUE(daemon->prints(line));
    EXPECT_TRUE(daemon->prints("check _update.pkg error"));
    expectAnswer();
    EXPECT_TRUE(contentOf(kExecutable) == old);
    EXPECT_FALSE(fs::exists(kBackup));

    // The next attempt may succeed.
    const Transfer right(kScript);
    sendBlocks(right, 0, right.blocks);
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
    expectAnswer();
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
        ASSERT_FALSE(isAsleep()) << "not in update mode";
    }
    expectAnswer();
    bool asleep = isAsleep();
    while (!asleep && steady_clock::now() < begin + kPatience) {
        std::this_thread::sleep_for(milliseconds(10));
        asleep = isAsleep();
    }
    EXPECT_TRUE(asleep);
    expectAnswer();

    // Of the abandoned one nothing is left when another begins.
    const Transfer transfer(kScript + patternedBytes(1000));
    sendBlocks(transfer, 0, transfer.blocks);
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
        std::string heard;
        while (!heard.ends_with(accepted)) {
            const auto more = pc.receive();
            ASSERT_TRUE(more) << heard;
            heard += *more;
        }
        EXPECT_LE(heard.size(), 18u + 19u);
    }
    expectInstalled(transfer);
}
