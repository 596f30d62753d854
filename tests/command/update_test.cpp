// Firmware update: the command's table, the update mode, transfers and what comes of them. The
// module's sources are part of this file, so that their state is in sight. A transfer that may end
// the process runs in a child: its console and what its _exit() sees come back in two files.

#include "command/update.cpp"
#include "command/update_paths.cpp"

#include <fcntl.h>
#include <numeric>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "command/dispatch.h"
#include "tests/support/arrival.h"
#include "tests/support/bytes.h"
#include "tests/support/files.h"
#include "tests/support/replace.h"

namespace fs = std::filesystem;

namespace {

std::vector<std::string> shellCommands; // every popen() so far
bool isShellMissing;                    // popen() fails
std::string runsInstead;                // the command that popen() runs, when not empty

size_t readsLess;     // bytes that each fread() leaves out
bool isWriteShort;    // the next fwrite() of `block` writes one byte less
bool isMemoryRefused; // mymem_malloc() yields nothing
bool notesSyncs;      // fsync() says so
int blocksInUse;      // of memory: taken and not given back
constexpr char kConsole[] = "/opt/scratch/console";
constexpr char kReport[] = "/opt/scratch/report";
bool isChild; // which is about to end

} // namespace

REPLACE(std::FILE *, popen, (const char *command, const char *mode))
{
    shellCommands.emplace_back(command);
    if (isChild) {
        std::printf("popen, power %d\n", powerState);
    }
    if (isShellMissing) {
        errno = ENOMEM;
        return nullptr;
    }
    return REAL(popen)(runsInstead.empty() ? command : runsInstead.c_str(), mode);
}

REPLACE(size_t, fwrite, (const void *bytes, size_t size, size_t count, std::FILE *file))
{
    if (isWriteShort && bytes >= block && bytes < std::end(block)) {
        isWriteShort = false;
        --count;
    }
    return REAL(fwrite)(bytes, size, count, file);
}

REPLACE(size_t, fread, (void *bytes, size_t size, size_t count, std::FILE *file))
{
    return REAL(fread)(bytes, size, count - readsLess, file);
}

REPLACE([[noreturn]] void, _exit, (int status))
{
    if (!isChild) { // the test itself, which must not end as if all were well
        std::abort();
    }
    std::string report = "power " + std::to_string(powerState) + ", open";
    for (int descriptor = 0; descriptor < 512; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) >= 0) {
            report += " " + std::to_string(descriptor);
        }
    }
    writeFile(kReport, report);
    REAL(_exit)(status);
}

REPLACE(int, fsync, (int file))
{
    struct stat status {};
    fstat(file, &status);
    if (isChild && notesSyncs) {
        std::printf("fsync %s\n", (status.st_mode & 0700) == 0700 ? "-rwx" : "other");
    }
    return REAL(fsync)(file);
}

// mymem_malloc() and mymem_free().
REPLACE(void *, _Z12mymem_mallocj, (uint32_t size))
{
    void *const memory = isMemoryRefused ? nullptr : REAL(_Z12mymem_mallocj)(size);
    blocksInUse += memory != nullptr ? 1 : 0;
    return memory;
}

REPLACE(int32_t, _Z10mymem_freePv, (void *memory))
{
    --blocksInUse;
    return REAL(_Z10mymem_freePv)(memory);
}

namespace {

constexpr char kStored[] = "/userdata/_update.pkg";
constexpr char kExecutable[] = "/usr/bin/vesk_h264";
constexpr char kBackup[] = "/usr/bin/vesk_h264_backup";
constexpr uint32_t kNow = 123456;

std::string withWrongChecksum(const std::string &bytes)
{
    return bytes + static_cast<char>(sumOf(bytes) + 1);
}

size_t openFiles()
{
    return entriesOf("/proc/self/fd").size();
}

unsigned sum16(std::string_view bytes)
{
    const auto add = [](unsigned sum, char byte) { return sum + static_cast<uint8_t>(byte); };
    return std::accumulate(bytes.begin(), bytes.end(), 0u, add) % 65536;
}

// Writes the low `count` bytes of `value` at `at`, the highest first.
void putBigEndian(std::string *bytes, size_t at, uint32_t value, unsigned count)
{
    while (count-- > 0) {
        (*bytes)[at++] = static_cast<char>(value >> (8 * count));
    }
}

// A package as it is sent: header, executable and what fills up the last block, which is no zeros.
class Package {
public:
    explicit Package(uint32_t length) : Package(length, length) {}
    Package(uint32_t length, uint32_t announced) // in the header
    {
        stream = std::string(128, '\xEE');
        for (uint32_t i = 0; i < length; ++i) {
            stream += static_cast<char>(i * 11 + i / 251 + 1);
        }
        stream += std::string((1024 - stream.size() % 1024) % 1024, '\xA5');
        putBigEndian(&stream, 48, announced, 4);
        setSum(sum());
    }
    // Of the file that must come of it.
    unsigned sum() const
    {
        return sum16(stored());
    }
    Package &setSum(unsigned sum)
    {
        putBigEndian(&stream, 80, sum, 2);
        return *this;
    }
    uint32_t count() const
    {
        return static_cast<uint32_t>(stream.size() / 1024);
    }
    std::vector<uint32_t> numbers() const // of its blocks
    {
        std::vector<uint32_t> all(count());
        std::iota(all.begin(), all.end(), 0);
        return all;
    }
    std::string block(uint32_t number) const
    {
        return stream.substr(size_t{number} * 1024, 1024);
    }
    std::string stored() const
    {
        return stream.substr(128);
    }
    // The file after these blocks, of which the first is block 0.
    std::string stored(const std::vector<uint32_t> &numbers) const
    {
        std::string bytes;
        for (const uint32_t number : numbers) {
            bytes += block(number);
        }
        return bytes.substr(128);
    }

private:
    std::string stream;
};

Parameters announce(uint32_t number)
{
    return numbered({0x5A, 0xC3, 0x9A, 0xA0, 7}, number);
}

// What the command prints and sends.
std::string execute(const Parameters &parameters)
{
    request(parameters);
    sent.clear();
    fakeClock.sleepsUs.clear();
    return transcriptOf(SoftwareUpdate);
}

// The same for a block, which comes with the command.
std::string transfer(uint32_t number, const std::string &bytes)
{
    arrive(withChecksum(bytes));
    return execute(announce(number));
}

// The same for blocks of a package, one after the other.
std::string transfer(const Package &package, const std::vector<uint32_t> &numbers)
{
    std::string transcript;
    for (const uint32_t number : numbers) {
        transcript += transfer(number, package.block(number));
    }
    return transcript;
}

// The file as far as it has been stored.
std::string storedSoFar()
{
    std::fflush(my_FIL);
    return contentOf(kStored);
}

std::string ack(uint32_t number)
{
    return "> " + replyFrame(announce(number)) + "\n";
}

std::string acks(uint32_t first, uint32_t end)
{
    std::string all;
    for (uint32_t number = first; number < end; ++number) {
        all += ack(number);
    }
    return all;
}

std::string nak(uint32_t number)
{
    return "> " + refusal(announce(number)) + "\n";
}

std::string wrongChecksum(uint32_t number)
{
    return "re checksum error\r\n<F:receive  0 data from pc fail>\n" + nak(number);
}

std::string begun(const std::string &size)
{
    return "file size = " + size + "\nopen file _update.pkg\n";
}

std::string sumError(unsigned computed, unsigned expected)
{
    char text[80];
    std::snprintf(text, sizeof text, "check sum error: 0x%x != 0x%x\ncheck _update.pkg error\n",
                  computed, expected);
    return text;
}

const std::string kCannotOpen = "open file /userdata/_update.pkg error\n<F:open file error>\r\n";
const std::string kCannotWrite = "<F:write file error>\r\n";

// Puts a file system of its own over the settings directory.
void mountStore(const char *options, unsigned long flags = 0)
{
    ASSERT_EQ(mount("tmpfs", "/userdata", "tmpfs", flags, options), 0) << std::strerror(errno);
}

void expectNothingInstalled()
{
    EXPECT_TRUE(shellCommands.empty());
    EXPECT_EQ(powerState, 1);
    EXPECT_EQ(contentOf(kExecutable), "the old one");
    EXPECT_FALSE(fs::exists(kBackup));
}

// The end of a process that did something.
struct End {
    int status;         // as it exited; -1 if it did not
    std::string prints; // on standard output, and what it sent
    std::string report; // of _exit(); empty if that was not reached
    bool operator==(const End &) const = default;
};

constexpr char kOff[] = "power 0, open"; // and no descriptor is

std::ostream &operator<<(std::ostream &out, const End &end)
{
    return out << end.status << ": " << end.prints << end.report;
}

End inChild(const std::function<void()> &action)
{
    fs::remove(kReport);
    std::fflush(stdout);
    const pid_t process = fork();
    if (process == 0) {
        std::freopen(kConsole, "w", stdout);
        isChild = true;
        printsSent = true;
        action();
        std::fflush(stdout);
        REAL(_exit)(99);
    }
    int status = 0;
    waitpid(process, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(kConsole), contentOf(kReport)};
}

// What comes of these blocks of a package on the line, in a child.
End update(const Package &package, const std::vector<uint32_t> &numbers)
{
    return inChild([&] {
        for (const uint32_t number : numbers) {
            arrive(commandFrame(announce(number)) + withChecksum(package.block(number)));
            TaskCommand();
        }
    });
}

End update(const Package &package)
{
    return update(package, package.numbers());
}

std::string updated(const std::string &size, uint32_t blocks)
{
    return begun(size) + acks(0, blocks) + "check _update.pkg sucess\npopen, power 1\nexit\n";
}

// The settings directory is there, and an executable.
class Update : public testing::Test {
protected:
    Update()
    {
        fakeClock.setMs(kNow);
        openLine();
        powerState = 1;
        mkdir("/userdata", 0755);
        writeFile(kExecutable, "the old one");
    }
};

TEST_F(Update, AnswersEverySubCommandThenPausesAndEntersUpdateMode)
{
    arrive("rest");
    onSend = [] { EXPECT_TRUE(fakeClock.sleepsUs.empty()); };
    for (unsigned dat1 = 0; dat1 < 256; ++dat1) {
        for (const unsigned dat2 : {0u, 6u, 7u, 8u, 255u}) {
            if (dat1 == 0xA0 && dat2 == 7) {
                continue; // a block
            }
            SCOPED_TRACE(testing::Message() << dat1 << " " << dat2);
            const auto second = static_cast<uint8_t>(dat2);
            const Parameters asked = {1, 2, 0x9A, static_cast<uint8_t>(dat1), second, 0x33, 0x44};
            const std::map<unsigned, std::string> replies = {
                {0x10, replyFrame({1, 2, 0x9A, 0x10, 0, 0, 0})},
                {0x16, replyFrame(asked)},
                {0x20, replyFrame(asked)},
                {0xA1, replyFrame({1, 2, 0x9A, 0xA1, second, 4, 0})},
                {0xB1, replyFrame(dat2 == 7 ? Parameters{1, 2, 0x9A, 0xB1, 7, 1, 10} : asked)},
            };
            const std::string expected = replies.contains(dat1) ? replies.at(dat1) : refusal(asked);
            const uint32_t asking = GetSysTick();
            startTime_Update = 0;
            EXPECT_EQ(execute(asked), "> " + expected + "\n");
            EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(dat1 == 0x16 ? 1 : 0, 10'000));
            EXPECT_EQ(startTime_Update, asking);
            EXPECT_EQ(isUpdateProgram(), 1);
        }
    }
    EXPECT_EQ(waiting(), "rest");
    EXPECT_FALSE(fs::exists(kStored));
}

int32_t updateModeAt(int64_t ms)
{
    fakeClock.setMs(ms);
    return isUpdateProgram();
}

TEST_F(Update, IsInUpdateModeForFiveSecondsAfterTheLastCommand)
{
    EXPECT_EQ(updateModeAt(1), 0);
    EXPECT_EQ(updateModeAt(kNow), 0);
    execute({0, 0, 0x9A, 0x20, 0, 0, 0});
    EXPECT_EQ(updateModeAt(kNow + 4999), 1);
    EXPECT_EQ(startTime_Update, kNow);
    execute({0, 0, 0x9A, 0xFF, 0, 0, 0}); // which prolongs it
    EXPECT_EQ(updateModeAt(kNow + 4999 + 4999), 1);
    EXPECT_EQ(updateModeAt(kNow + 4999 + 5000), 0);
    EXPECT_EQ(startTime_Update, 0u);
    EXPECT_EQ(updateModeAt(kNow + 5000), 0); // it stays over, whatever the clock does
    execute({0, 0, 0x9A, 0x20, 0, 0, 0});
    EXPECT_EQ(isUpdateProgram(), 1);
}

TEST_F(Update, CountsUpdateModeAcrossTheWrapOfTheTick)
{
    fakeClock.setMs(0x100000000 - 2000);
    execute({0, 0, 0x9A, 0x20, 0, 0, 0});
    EXPECT_EQ(updateModeAt(0x100000000 + 3000), 1); // one millisecond is lost at the wrap
    EXPECT_EQ(updateModeAt(0x100000000 + 3001), 0);
}

TEST_F(Update, ReadsSizeAndSumFromTheHeaderAndPrintsTheSizeAsASignedNumber)
{
    constexpr struct {
        uint32_t size, sum;
        const char *prints;
    } kRows[] = {
        {0x01020304, 0x8506, "file size = 16909060\n"},
        {0xFFFFFFFF, 0, "file size = -1\n"},
        {0x80000000, 0xFFFF, "file size = -2147483648\n"},
        {0, 0, "file size = 0\n"},
    };
    for (const auto &[size, sum, prints] : kRows) {
        std::string header(1024, '\x77');
        putBigEndian(&header, 48, size, 4);
        putBigEndian(&header, 80, sum, 2);
        EXPECT_EQ(printedBy([&] { getUpdateFileSize(bytesOf(header)); }), prints);
        EXPECT_TRUE(fpgaFileSize == size && fpgaFileChecksum == sum) << prints;
    }
}

TEST_F(Update, ReceivesABlockOrRefusesItAfterFifteenHundredAndTwoPolls)
{
    const auto missing = [](const std::string &count) {
        return "<F:receive  " + count + " data from pc fail>\n" + nak(0);
    };
    const std::string bytes = withChecksum(Package(1000).block(0));
    const std::string wrong = withWrongChecksum(Package(1000).block(0));
    const struct {
        const char *name;
        Arrivals arrivals;
        std::string prints;
        size_t sleeps;
        const char *left;
        bool isStored;
    } rows[] = {
        {"a wrong checksum", {{0, wrong + "next"}}, wrongChecksum(0), 0, "next", false},
        {"nothing", {}, missing("0"), 1502, "", false},
        {"one byte", {{0, bytes.substr(0, 1)}}, missing("1"), 1502, "", false},
        {"1023 bytes", {{0, bytes.substr(0, 1023)}}, missing("1023"), 1502, "", false},
        // A block that lacks only its checksum counts as whole.
        {"1024 bytes", {{0, bytes.substr(0, 1024)}}, begun("1000") + ack(0), 1502, "", true},
        {"late", perSleep(500, bytes, 998), begun("1000") + ack(0), 1000, "", true},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        arrive(row.arrivals);
        const uint32_t asking = GetSysTick();
        EXPECT_EQ(execute(announce(0)), row.prints);
        EXPECT_EQ(startTime_Update, asking); // not the end of the block
        EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(row.sleeps, 2000));
        EXPECT_EQ(waiting(), row.left);
        EXPECT_EQ(fs::exists(kStored), row.isStored);
        takeAll();
    }
}

TEST_F(Update, StoresBlocksInTheOrderInWhichTheyComeButNoneTwiceInARow)
{
    const struct {
        const char *name;
        uint32_t size;
        std::vector<uint32_t> arrive, stored;
    } rows[] = {
        {"block 3 is sent twice, and again", 6000, {0, 1, 2, 3, 3, 3, 4}, {0, 1, 2, 3, 4}},
        // Begun anew in the middle, and the first block is no repetition of the last one.
        {"another file", 9000, {0, 4, 5}, {0, 4, 5}},
        {"another order", 10'000, {0, 2, 1, 2, 5, 4}, {0, 2, 1, 2, 5, 4}},
        {"both bytes of the number", 1'000'000, {0, 255, 256, 258, 513}, {0, 255, 256, 258, 513}},
    };
    const size_t before = openFiles();
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const Package package(row.size);
        uint32_t last = UINT32_MAX;
        for (const uint32_t number : row.arrive) {
            const bool isDropped = number == last; // whatever it carries
            EXPECT_EQ(transfer(number, isDropped ? std::string(1024, 'z') : package.block(number)),
                      (number == 0 ? begun(std::to_string(row.size)) : "") + ack(number));
            EXPECT_EQ(prevAddress, number);
            last = number;
        }
        EXPECT_EQ(fpgaFileSize, row.size + 128);
        EXPECT_EQ(fpgaFileChecksum, package.sum());
        EXPECT_TRUE(storedSoFar() == package.stored(row.stored));
        EXPECT_EQ(openFiles(), before + 1); // however often a transfer begins
    }
}

TEST_F(Update, ReplacesTheFileItselfNotWhatALinkOfItsNameLeadsTo)
{
    const Package package(5000);
    writeFile(kStored, std::string(100'000, 'x'));
    transfer(package, {0});
    EXPECT_EQ(storedSoFar(), package.stored({0}));
    unlink(kStored);
    writeFile("/etc/elsewhere", "to be kept");
    ASSERT_EQ(symlink("/etc/elsewhere", kStored), 0);
    transfer(package, {0});
    EXPECT_EQ(storedSoFar(), package.stored({0}));
    EXPECT_EQ(contentOf("/etc/elsewhere"), "to be kept");
}

TEST_F(Update, GoesOnAfterARefusedBlock)
{
    const Package package(5000);
    transfer(package, {0});
    arrive(withWrongChecksum(package.block(1)));
    EXPECT_EQ(execute(announce(1)), wrongChecksum(1));
    EXPECT_EQ(prevAddress, 0u);
    EXPECT_EQ(transfer(package, {1}), ack(1));
    execute(announce(0)); // which does not come
    EXPECT_TRUE(fpgaFileSize == 5128 && prevAddress == 1);
    EXPECT_EQ(transfer(package, {2}), ack(2));
    EXPECT_EQ(storedSoFar(), package.stored({0, 1, 2}));
}

// What cannot be stored --------------------------------------------------------------------------

TEST_F(Update, RefusesABlockZeroThatCannotBeStoredAndDropsBlocksUntilTheNextOne)
{
    const size_t before = openFiles();
    const Package one(100); // of one block
    const Package package(5000);
    isWriteShort = true;
    EXPECT_EQ(transfer(0, one.block(0)), begun("100") + kCannotWrite + nak(0));
    EXPECT_EQ(openFiles(), before);
    for (const uint32_t number : {1u, 2u, 65535u}) {
        EXPECT_EQ(transfer(number, package.block(1)), ack(number));
    }
    EXPECT_EQ(transfer(package, {0, 1}), begun("5000") + acks(0, 2));
    EXPECT_EQ(storedSoFar(), package.stored({0, 1}));
    mountStore("size=64k", MS_RDONLY);
    EXPECT_EQ(transfer(0, one.block(0)), begun("100") + kCannotOpen + nak(0));
    EXPECT_EQ(openFiles(), before);
    expectNothingInstalled();
}

TEST_F(Update, DropsBlocksWithoutABlockZero)
{
    // A file is there that would be installed: its sum is the announced one, which is 0 at first.
    const std::string left(1024, '\0');
    writeFile(kStored, left);
    ASSERT_EQ(checkUpdateFileOk(), 1);
    for (const uint32_t number : {1u, 2u, 2u, 65535u}) {
        EXPECT_EQ(transfer(number, std::string(1024, 'x')), ack(number));
    }
    EXPECT_EQ(contentOf(kStored), left);
    expectNothingInstalled();
}

TEST_F(Update, FindsAtTheEndWhatADiskRunningFullDidNotTake)
{
    mountStore("size=64k");
    const Package package(200'000);
    const std::string prints = transfer(package, package.numbers());
    const std::string stored = contentOf(kStored);
    EXPECT_LE(stored.size(), 65536u);
    EXPECT_EQ(prints,
              begun("200000") + acks(0, package.count()) + sumError(sum16(stored), package.sum()));
    expectNothingInstalled();
}

TEST_F(Update, NeverInstallsAnEmptyFile)
{
    mountStore("size=4k");
    writeFile("/userdata/filler", std::string(4096, 'x'));
    Package package(100);
    EXPECT_EQ(transfer(0, package.block(0)), begun("100") + ack(0) + sumError(0, package.sum()));
    package.setSum(0);
    EXPECT_EQ(transfer(0, package.block(0)), begun("100") + ack(0) + sumError(0, 0));
    expectNothingInstalled();
}

// The end of a transfer --------------------------------------------------------------------------

TEST_F(Update, InstallsNothingWithAWrongSumAndDropsFurtherBlocks)
{
    Package package(1000);
    const unsigned sum = package.sum();
    package.setSum(sum ^ 1);
    EXPECT_EQ(transfer(0, package.block(0)), begun("1000") + ack(0));
    EXPECT_EQ(fpgaFileSize, 1128u);
    EXPECT_EQ(transfer(1, package.block(1)), ack(1) + sumError(sum, sum ^ 1));
    EXPECT_EQ(my_FIL, nullptr);
    EXPECT_EQ(transfer(1, package.block(1)), ack(1));
    EXPECT_EQ(transfer(2, package.block(1)), ack(2));
    EXPECT_EQ(contentOf(kStored), package.stored());
    expectNothingInstalled();
}

TEST_F(Update, EndsATransferEarlyAtABlockNumberBeyondTheSize)
{
    const Package package(5000);
    transfer(package, {0});
    EXPECT_EQ(transfer(9, package.block(4)),
              ack(9) + sumError(sum16(package.stored({0, 4})), package.sum()));
}

TEST_F(Update, AddsTheHeaderToTheSizeIn32Bits)
{
    const Package over = Package(896, 0xFFFFFFFF).setSum(0); // and 128 are 127
    EXPECT_EQ(transfer(0, over.block(0)), begun("-1") + ack(0) + sumError(over.sum(), 0));
    const Package largest(896, 0xFFFFFF7F); // and 128 are 0xFFFFFFFF
    EXPECT_EQ(transfer(0, largest.block(0)), begun("-129") + ack(0));
    EXPECT_EQ(transfer(65535, largest.block(0)), ack(65535));
    EXPECT_NE(my_FIL, nullptr);
}

// The header's 128 bytes and the package fill whole blocks at 896 and each 1024 more.
TEST_F(Update, InstallsSwitchesOffAndExitsAfterTheBlockThatReachesTheSize)
{
    // clang-format off
    constexpr uint32_t kRows[][2] = { // sizes and blocks
        {0, 1}, {1, 1}, {895, 1}, {896, 1}, {897, 2}, {1000, 2}, {1023, 2}, {1024, 2}, {1025, 2},
        {1919, 2}, {1920, 2}, {1921, 3}, {65'536, 65}, {66'431, 65}, {66'432, 65}, {66'433, 66},
        {1'048'576, 1025},
    };
    // clang-format on
    runsInstead = "cp -f /usr/bin/vesk_h264 /usr/bin/vesk_h264_backup && "
                  "cp -f /userdata/_update.pkg /usr/bin/vesk_h264"; // without the slow sync
    for (const auto &[size, blocks] : kRows) {
        SCOPED_TRACE(size);
        writeFile(kExecutable, "the old one");
        writeFile(kBackup, "a backup that is longer than the executable");
        const Package package(size);
        ASSERT_EQ(package.count(), blocks);
        EXPECT_EQ(update(package), (End{0, updated(std::to_string(size), blocks), kOff}));
        EXPECT_TRUE(contentOf(kStored) == package.stored());
        EXPECT_TRUE(contentOf(kExecutable) == package.stored());
        EXPECT_EQ(contentOf(kBackup), "the old one");
    }
}

// Anything whose sum is right is installed, whatever the order of its blocks.
TEST_F(Update, InstallsAfterEverythingThatCanGoWrongOnTheWay)
{
    const Package wrong = Package(3000).setSum(0);
    transfer(wrong, wrong.numbers()); // a transfer in vain
    transfer(wrong, {0});             // and one given up
    transfer(1, std::string(1024, 'x'));
    execute(announce(2));
    const Package package(3000);
    isWriteShort = true;
    transfer(package, {0}); // refused
    expectNothingInstalled();
    EXPECT_EQ(update(package).prints, updated("3000", package.count()));
    EXPECT_EQ(contentOf(kExecutable), package.stored());
    EXPECT_EQ(update(package, {0, 2, 1, 3}).status, 0);
    EXPECT_EQ(contentOf(kExecutable), package.stored({0, 2, 1, 3}));
}

TEST_F(Update, SwitchesOffAndExitsEvenWhenTheCopyFails)
{
    const std::string begin = begun("10") + ack(0) + "check _update.pkg sucess\npopen, power 1\n";
    isShellMissing = true;
    EXPECT_EQ(update(Package(10)), (End{0, begin + "popen error!\nexit\n", kOff}));
    EXPECT_EQ(contentOf(kExecutable), "the old one");
    isShellMissing = false;
    fs::remove(kExecutable); // there is nothing to keep
    EXPECT_EQ(update(Package(10)), (End{0, begin + "exit\n", kOff}));
    EXPECT_FALSE(fs::exists(kExecutable));
}

// What is shorter than announced ------------------------------------------------------------------

// Blocks of zeros do not change the sum, so that it is right without them, too.
TEST_F(Update, InstallsNothingThatIsShorterThanAnnouncedAlthoughItsSumIsRight)
{
    constexpr struct {
        uint32_t announced;
        uint32_t length; // of what is sent, block 0 included
        const char *error;
    } kRows[] = {
        {2944, 1920, "check size error: 1920 < 2944\n"}, // of three blocks, one is left out
        {1921, 1920, "check size error: 1920 < 1921\n"},
        {3'145'728, 896 + 1024, "check size error: 1920 < 3145728\n"},
        {67'108'000, 896 + 1024, "check size error: 1920 < 67108000\n"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.announced);
        const Package sent(row.length, row.announced);
        ASSERT_EQ(sent.count(), 2u);
        const uint32_t last = (row.announced + 128 + 1023) / 1024 - 1; // as its sender numbers it
        ASSERT_LT(last, 65536u);
        EXPECT_EQ(transfer(0, sent.block(0)), begun(std::to_string(row.announced)) + ack(0));
        EXPECT_EQ(transfer(last, sent.block(1)),
                  ack(last) + row.error + "check _update.pkg error\n");
        EXPECT_EQ(my_FIL, nullptr);
        expectNothingInstalled();
    }
}

TEST_F(Update, SaysThatTheSumIsWrongBeforeItSaysThatTheFileIsShort)
{
    const Package package(5000);
    transfer(0, package.block(0));
    const std::string expected = sumError(sum16(package.stored({0, 5})), package.sum());
    EXPECT_EQ(transfer(5, package.block(5)), ack(5) + expected);
    expectNothingInstalled();
}

// The device cannot know of the bytes that such a length leaves out.
TEST_F(Update, InstallsWhatIsCompleteByALengthThatWraps)
{
    runsInstead = "true";
    for (const uint32_t announced : {0xFFFFFF80u, 0xFFFFFFFFu}) {
        const End end = update(Package(896, announced));
        EXPECT_EQ(end.status, 0) << announced;
        EXPECT_NE(end.prints.find("check _update.pkg sucess\n"), std::string::npos) << end.prints;
    }
}

// An executable from the first moment
// ---------------------------------------------------------------

// Copying makes a new file with the package's permissions, as the old program is running.
TEST_F(Update, ThePackageIsExecutableAndOnTheDiskBeforeTheCommandRuns)
{
    notesSyncs = true;
    for (const mode_t mask : {022u, 077u}) {
        umask(mask);
        runsInstead = "ls -l /userdata/_update.pkg";
        const End end = update(Package(10));
        umask(0);
        const std::string listed = mask == 022 ? "-rwxr-xr-x" : "-rwx------";
        const size_t at = end.prints.find("\nfsync -rwx");
        EXPECT_NE(at, std::string::npos) << end.prints;
        EXPECT_LT(at, end.prints.find("\npopen, power 1\n" + listed)) << end.prints;
        EXPECT_NE(end.prints.find("\npopen, power 1\n" + listed), std::string::npos) << end.prints;
    }
}

// The sum of the file ----------------------------------------------------------------------------

TEST_F(Update, ComparesTheSumOfTheWholeFileAndGivesItsMemoryBack)
{
    const std::string bytes("\x01\xFF\x80\x00\x7F", 5); // 1ff
    const std::string noFile = "open file /userdata/_update.pkg error\n";
    const std::string cut = "read file _update.pkg size error: fileSize=3, readSize=2\r\n";
    const struct {
        const char *name;
        std::string content;
        unsigned announced;
        std::string prints;
        int32_t result;
        size_t readsLess = 0;
        bool isMemoryRefused = false;
    } rows[] = {
        {"not there", "", 0xABCD, "check sum error: 0x0 != 0xabcd\n", 0},
        {"right", bytes, 0x1FF, "", 1},
        {"wrong", bytes, 0x1FE, "check sum error: 0x1ff != 0x1fe\n", 0},
        // 76,500,000 = 48f4c20
        {"its low 16 bits count", std::string(300'000, '\xFF'), 0x4C20, "", 1},
        {"no memory, sum right", "12", 0x63, "check sum error: 0x0 != 0x63\n", 0, 0, true},
        {"no memory, sum 0", "12", 0, "check sum error: 0x0 != 0x0\n", 0, 0, true},
        {"a byte is not read", "123", 0x96, cut + "check sum error: 0x63 != 0x96\n", 0, 1},
        {"memory again", "12", 0x63, "", 1},
    };
    for (const auto &row : rows) {
        if (!row.content.empty()) {
            writeFile(kStored, row.content);
        }
        SCOPED_TRACE(row.name);
        fpgaFileChecksum = row.announced;
        isMemoryRefused = row.isMemoryRefused;
        blocksInUse = 0;
        const std::string prints = printedBy([&] {
            readsLess = row.readsLess;
            EXPECT_EQ(checkUpdateFileOk(), row.result);
            readsLess = 0;
        });
        EXPECT_EQ(prints, (row.content.empty() ? noFile : "") + row.prints);
        EXPECT_EQ(blocksInUse, 0);
    }
}

TEST_F(Update, CopiesTheExecutables)
{
    chmod(kExecutable, 0600);
    writeFile(kStored, "the new one");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(cpUpdateFile(), 0); }), "");
    EXPECT_EQ(shellCommands,
              std::vector<std::string>{"cp -f /usr/bin/vesk_h264 /usr/bin/vesk_h264_backup && "
                                       "cp -f /userdata/_update.pkg /usr/bin/vesk_h264 && "
                                       "chmod +x /usr/bin/vesk_h264 && sync && sync"});
    EXPECT_EQ(contentOf(kBackup), "the old one");
    EXPECT_EQ(contentOf(kExecutable), "the new one");
    EXPECT_EQ(fs::status(kExecutable).permissions(), fs::perms(0711));
    EXPECT_EQ(contentOf(kStored), "the new one");
}

TEST_F(Update, LeavesTheExecutableAloneWithoutABackupOfIt)
{
    writeFile(kStored, "the new one");
    mkdir(kBackup, 0755); // where no file can be put
    mkdir("/usr/bin/vesk_h264_backup/vesk_h264", 0755);
    int32_t status = 0;
    printedBy([&] { status = cpUpdateFile(); });
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 0) << status;
    EXPECT_EQ(contentOf(kExecutable), "the old one");
}

TEST_F(Update, PrintsWhatTheCopyingPrints)
{
    runsInstead = "echo one; echo; printf '%0250d\\n' 0; printf 'no end'; exit 3";
    int32_t status = 0;
    EXPECT_EQ(printedBy([&] { status = cpUpdateFile(); }),
              "one\n\n" + std::string(250, '0') + "\nno end");
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3) << status;
    isShellMissing = true;
    EXPECT_EQ(printedBy([] { EXPECT_NE(cpUpdateFile(), 0); }), "popen error!\n");
}

TEST_F(Update, ClosesTheFirst256DescriptorsAndExitsWithStatusZero)
{
    const End end = inChild([] {
        for (const int descriptor : {100, 254, 255, 256, 257}) {
            dup2(STDERR_FILENO, descriptor);
        }
        powerState = 7;
        std::printf("before, ");
        Reboot();
    });
    EXPECT_EQ(end, (End{0, "before, exit\n", "power 7, open 256 257"}));
}

// What no command reaches ------------------------------------------------------------------------

using Receiver = void (*)();

// What the receiver prints and sends for a block, which comes with it.
std::string receive(Receiver receiver, uint32_t number, const std::string &bytes)
{
    arrive(Arrivals{{0, bytes}});
    request(announce(number));
    return transcriptOf(receiver);
}

TEST_F(Update, ReceivesOrRefusesBlocksOnOtherPathsAndStoresNothing)
{
    const Package package(5000);
    for (const Receiver receiver : {UpdateMcu1K, UpdateMcu1K_test}) {
        fpgaFileSize = 0;
        EXPECT_EQ(receive(receiver, 1, withWrongChecksum(package.block(1))), wrongChecksum(1));
        EXPECT_EQ(receive(receiver, 0, std::string(500, 'x')),
                  "<F:receive  500 data from pc fail>\n" + nak(0));
        EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(1502, 2000));
        EXPECT_EQ(fpgaFileSize, 0u);
        EXPECT_EQ(receive(receiver, 0, withChecksum(package.block(0))),
                  "file size = 5000\n" + ack(0));
        for (const uint32_t number : {1u, 1u, 4u, 5u, 6u, 0x1234u}) {
            EXPECT_EQ(receive(receiver, number, withChecksum(package.block(1))), ack(number));
        }
        EXPECT_EQ(fpgaFileSize, 5000u); // without the header's length
        EXPECT_EQ(fpgaFileChecksum, package.sum());
    }
    EXPECT_FALSE(fs::exists(kStored));
    expectNothingInstalled();
}

TEST_F(Update, CountsTheBlocksOfEachPathByItself)
{
    const std::string bytes = withChecksum(Package(50'000).block(0));
    receive(UpdateMcu1KToSDCARD, 0, bytes);
    receive(UpdateMcu1KToSDCARD, 1, bytes);
    receive(UpdateMcu1K, 2, bytes);
    receive(UpdateMcu1K_test, 3, bytes);
    EXPECT_TRUE(prevAddress == 1 && prevAddressMcu1K == 2 && prevAddressMcu1K_test == 3);
    // Block 2 is none of this path's yet, and is stored.
    receive(UpdateMcu1KToSDCARD, 2, bytes);
    EXPECT_EQ(storedSoFar().size(), 896u + 2 * 1024);
}

TEST_F(Update, ReceivesOnTheChannelServedAndNotesItOnTwoPathsOfThree)
{
    getFreeChannel(kChannelSerial, 1);
    for (const Receiver receiver : {UpdateMcu1KToSDCARD, UpdateMcu1K, UpdateMcu1K_test}) {
        for (const uint8_t from : {uint8_t{1}, uint8_t{0}}) {
            updateSoftChannel = 77;
            commandFrom = from;
            arrive(withChecksum(Package(1000).block(0)), from);
            receive(receiver, 0, "");
            const Sent reply = {"uart " + std::to_string(from), replyFrame(announce(0))};
            EXPECT_EQ(takeSent(), std::vector<Sent>{reply});
            EXPECT_EQ(updateSoftChannel, receiver == UpdateMcu1K_test ? 77 : from);
        }
    }
}

TEST_F(Update, SumsAsManyBytesAsTheCountHasModulo256)
{
    std::string bytes(600, '\xFF');
    bytes[0] = 3;
    const std::map<uint32_t, int> sums = {{0, 0},   {1, 3},   {2, 2},   {255, 5}, // 3 - 254
                                          {256, 0}, {257, 3}, {511, 5}, {0xFFFFFF02, 2}};
    for (const auto &[count, sum] : sums) {
        EXPECT_EQ(GetCheckSum(bytesOf(bytes), count), sum) << count;
    }
}

TEST_F(Update, ClosesTheLocalSaveFileAndFreesItsHandle)
{
    const size_t before = openFiles();
    blocksInUse = 0;
    localSaveFile = static_cast<FileHandle *>(mymem_malloc(sizeof *localSaveFile));
    ASSERT_EQ(f_open(localSaveFile, "/userdata/save", kCreateAlways), kFileOk);
    localSaveIndex = 5;
    EXPECT_EQ(openFiles(), before + 1);
    EXPECT_EQ(transcriptOf(closeSaveLocalFile), "");
    EXPECT_EQ(openFiles(), before);
    EXPECT_EQ(blocksInUse, 0);
    EXPECT_TRUE(localSaveFile == nullptr && localSaveIndex == 0);
    localSaveIndex = 6;
    closeSaveLocalFile(); // there is none any more
    EXPECT_EQ(localSaveIndex, 6u);
}

} // namespace
