// Firmware update: the command's table, the update mode, transfers of every kind and what comes of
// them: messages and replies in their order, the stored file, the executables, and the end of the
// process. The module's source is part of this file, so that its state is in sight.
//
// A transfer that may end the process runs in a child of the test, on the real system: its console
// and what its _exit() sees come back through two pipes.

#include "command/update.cpp"
#include "command/update_paths.cpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "command/dispatch.h"
#include "command/reception.h"
#include "tests/support/clock.h"
#include "tests/support/exchange.h"
#include "transport/bridge_pipes.h"

namespace {

// Link-time fakes --------------------------------------------------------------------------------

struct {
    std::vector<std::string> commands; // every popen() so far
    bool fails;                        // popen() does
    std::string instead;               // the command that is run, when not empty
} shell;

size_t readsLess;     // bytes that each fread() leaves out
bool isWriteShort;    // the next fwrite() of `block` writes one byte less
bool isMemoryRefused; // mymem_malloc() yields nothing

// In the child that is about to end; behind the descriptors that Reboot() closes.
constexpr int kReport = 300;
bool isChild;

} // namespace

extern "C" {
std::FILE *__real_popen(const char *command, const char *mode);
std::FILE *__wrap_popen(const char *command, const char *mode);
size_t __real_fwrite(const void *bytes, size_t size, size_t count, std::FILE *file);
size_t __wrap_fwrite(const void *bytes, size_t size, size_t count, std::FILE *file);
size_t __real_fread(void *bytes, size_t size, size_t count, std::FILE *file);
size_t __wrap_fread(void *bytes, size_t size, size_t count, std::FILE *file);
[[noreturn]] void __real__exit(int status);
[[noreturn]] void __wrap__exit(int status);
// mymem_malloc(), as the linker knows it.
void *__real__Z12mymem_mallocj(uint32_t size);
void *__wrap__Z12mymem_mallocj(uint32_t size);

std::FILE *__wrap_popen(const char *command, const char *mode)
{
    shell.commands.emplace_back(command);
    if (isChild) {
        std::printf("popen, power %d\n", powerState);
    }
    if (shell.fails) {
        errno = ENOMEM;
        return nullptr;
    }
    return __real_popen(shell.instead.empty() ? command : shell.instead.c_str(), mode);
}

size_t __wrap_fwrite(const void *bytes, size_t size, size_t count, std::FILE *file)
{
    if (isWriteShort && bytes >= block && bytes < std::end(block)) {
        isWriteShort = false;
        --count;
    }
    return __real_fwrite(bytes, size, count, file);
}

size_t __wrap_fread(void *bytes, size_t size, size_t count, std::FILE *file)
{
    return __real_fread(bytes, size, count - readsLess, file);
}

void __wrap__exit(int status)
{
    if (!isChild) { // the test itself, which must not end as if all were well
        std::abort();
    }
    std::string report = "power ";
    report.append(std::to_string(powerState)).append(", open");
    for (int descriptor = 0; descriptor < 512; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) >= 0) {
            report.append(" ").append(std::to_string(descriptor));
        }
    }
    [[maybe_unused]] const ssize_t done = write(kReport, report.data(), report.size());
    __real__exit(status);
}

void *__wrap__Z12mymem_mallocj(uint32_t size)
{
    return isMemoryRefused ? nullptr : __real__Z12mymem_mallocj(size);
}
}

namespace {

using Calls = std::vector<Sent>;

constexpr char kStored[] = "/userdata/_update.pkg";
constexpr char kExecutable[] = "/usr/bin/vesk_h264";
constexpr char kBackup[] = "/usr/bin/vesk_h264_backup";
constexpr char kInstallCommand[] =
    "cp -f /usr/bin/vesk_h264 /usr/bin/vesk_h264_backup && "
    "cp -f /userdata/_update.pkg /usr/bin/vesk_h264 && chmod +x /usr/bin/vesk_h264 && sync && sync";

constexpr uint32_t kNow = 123456;

std::string contentOf(const char *path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void makeFile(const char *path, std::string_view content)
{
    std::ofstream(path, std::ios::binary) << content;
}

bool exists(const char *path)
{
    return access(path, F_OK) == 0;
}

unsigned permissions(const char *path)
{
    struct stat status {};
    stat(path, &status);
    return status.st_mode & 07777;
}

unsigned sumOf(std::string_view bytes)
{
    return std::accumulate(bytes.begin(), bytes.end(), 0u, [](unsigned all, char c) {
        return all + static_cast<unsigned char>(c);
    });
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

    // With another length in the header.
    Package(uint32_t length, uint32_t announced)
    {
        stream = std::string(128, '\xEE');
        for (uint32_t i = 0; i < length; ++i) {
            stream += static_cast<char>(i * 11 + i / 251 + 1);
        }
        stream += std::string((1024 - stream.size() % 1024) % 1024, '\xA5');
        putBigEndian(&stream, 48, announced, 4);
        setSum(sumOf(stored()) % 65536);
    }
    void setSum(unsigned sum)
    {
        putBigEndian(&stream, 80, sum, 2);
    }
    uint32_t count() const
    {
        return static_cast<uint32_t>(stream.size() / 1024);
    }
    std::string block(uint32_t number) const
    {
        return stream.substr(size_t{number} * 1024, 1024);
    }
    // The file that must come of it.
    std::string stored() const
    {
        return stream.substr(128);
    }

private:
    std::string stream;
};

void arrive(std::string_view bytes, uint64_t port = 0)
{
    IsrReceiveBuffer(kChannelSerial, port, bytesOf(bytes), lengthOf(bytes));
}

std::string withChecksum(const std::string &bytes)
{
    return bytes + static_cast<char>(sumOf(bytes) % 256);
}

Parameters announce(uint32_t number)
{
    return {0x5A,
            0xC3,
            0x9A,
            0xA0,
            7,
            static_cast<uint8_t>(number % 256),
            static_cast<uint8_t>(number / 256)};
}

void request(const Parameters &parameters)
{
    commandToLED = {parameters[0], parameters[1], parameters[2], parameters[3],
                    parameters[4], parameters[5], parameters[6], 0x77};
    std::memset(&commandFromLED, 0xB2, sizeof commandFromLED);
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

std::string ack(uint32_t number)
{
    return "> " + replyFrame(announce(number)) + "\n";
}

std::string nak(uint32_t number)
{
    return "> " + refusal(announce(number)) + "\n";
}

std::string begun(const std::string &size)
{
    return "file size = " + size + "\nopen file _update.pkg\n";
}

std::string sumError(unsigned computed, unsigned expected)
{
    char text[80];
    std::snprintf(text, sizeof text, "check sum error: 0x%x != 0x%x\ncheck _update.pkg error\n",
                  computed % 65536, expected);
    return text;
}

// A file system of its own over the settings directory, as long as the case lasts.
void mountStore(const char *options, unsigned long flags = 0)
{
    ASSERT_EQ(mount("tmpfs", "/userdata", "tmpfs", flags, options), 0) << std::strerror(errno);
}

size_t openDescriptors()
{
    size_t count = 0;
    for (int descriptor = 0; descriptor < 512; ++descriptor) {
        count += fcntl(descriptor, F_GETFD) >= 0 ? 1u : 0u;
    }
    return count;
}

// The end of a process that did something.
struct End {
    int status;         // as it exited; -1 if it did not
    std::string prints; // on standard output, and what it sent
    std::string report; // of _exit(); empty if that was not reached
};

constexpr int kStillRunning = 99;

std::string readAll(int descriptor)
{
    std::string all;
    char part[4096];
    for (ssize_t count; (count = read(descriptor, part, sizeof part)) > 0;) {
        all.append(part, static_cast<size_t>(count));
    }
    close(descriptor);
    return all;
}

End inChild(const std::function<void()> &action)
{
    std::fflush(stdout);
    int console[2];
    int report[2];
    if (pipe(console) != 0 || pipe(report) != 0) {
        ADD_FAILURE() << "no pipes";
        return {};
    }
    const pid_t process = fork();
    if (process == 0) {
        dup2(console[1], STDOUT_FILENO);
        dup2(report[1], kReport);
        for (const int descriptor : {console[0], console[1], report[0], report[1]}) {
            close(descriptor);
        }
        isChild = true;
        printsSent = true;
        action();
        std::fflush(stdout);
        __real__exit(kStillRunning);
    }
    close(console[1]);
    close(report[1]);
    End end{-1, readAll(console[0]), readAll(report[0])};
    int status = 0;
    waitpid(process, &status, 0);
    if (WIFEXITED(status)) {
        end.status = WEXITSTATUS(status);
    }
    return end;
}

// Channel 0 is the front board's line. The settings directory is there, and an executable.
class Update : public testing::Test {
protected:
    Update()
    {
        fakeClock.setMs(kNow);
        InitRs232CommandVariable();
        udp_receive_pipe_init();
        getFreeChannel(kChannelSerial, 0);
        commandFrom = 0;
        powerState = 1;
        mkdir("/userdata", 0755);
        makeFile(kExecutable, "the old one");
    }
    ~Update() override
    {
        f_close(&my_FIL);
        while (umount("/userdata") == 0) {
        }
    }
};

// The command's table -----------------------------------------------------------------------------

TEST_F(Update, AnswersEverySubCommandAsTheTableSays)
{
    for (unsigned dat1 = 0; dat1 < 256; ++dat1) {
        for (const uint8_t dat2 : std::array<uint8_t, 5>{0, 6, 7, 8, 255}) {
            if (dat1 == 0xA0 && dat2 == 7) {
                continue; // a block
            }
            const Parameters asked = {1, 2, 0x9A, static_cast<uint8_t>(dat1), dat2, 0x33, 0x44};
            std::string expected = refusal(asked);
            if (dat1 == 0x10) {
                expected = replyFrame({1, 2, 0x9A, 0x10, 0, 0, 0});
            } else if (dat1 == 0x16 || dat1 == 0x20) {
                expected = replyFrame(asked);
            } else if (dat1 == 0xA1) {
                expected = replyFrame({1, 2, 0x9A, 0xA1, dat2, 4, 0});
            } else if (dat1 == 0xB1) {
                expected = dat2 == 7 ? replyFrame({1, 2, 0x9A, 0xB1, 7, 1, 10}) : replyFrame(asked);
            }
            EXPECT_EQ(execute(asked), "> " + expected + "\n") << dat1 << " " << unsigned{dat2};
            EXPECT_EQ(fakeClock.sleepsUs.size(), dat1 == 0x16 ? 1u : 0u) << dat1;
        }
    }
}

TEST_F(Update, TellsBlockSizeAndVersion)
{
    EXPECT_EQ(execute({0, 0, 0x9A, 0xA1, 7, 0, 0}), "> <F00009aa107040046>\n"); // 9a + a1 + 7 + 4
    EXPECT_EQ(execute({0, 0, 0x9A, 0xB1, 7, 0, 0}), "> <F00009ab107010a5d>\n"); // ... + 1 + a
    EXPECT_EQ(execute({0, 0, 0x9A, 0x10, 9, 9, 9}), "> <F00009a10000000aa>\n");
}

TEST_F(Update, AcknowledgesThenPausesTenMilliseconds)
{
    onSend = [] { EXPECT_EQ(fakeClock.sleepsUs.size(), 0u); };
    execute({0, 0, 0x9A, 0x16, 0, 0, 0});
    onSend = nullptr;
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>{10'000});
}

TEST_F(Update, ReadsNoBlockForAnotherTarget)
{
    const Package package(1000);
    arrive("rest");
    Parameters asked = announce(0);
    asked[4] = 6;
    EXPECT_EQ(execute(asked), "> " + refusal(asked) + "\n");
    EXPECT_EQ(contentOf(channel[0]->pipe), "rest");
    EXPECT_FALSE(exists(kStored));
}

// Update mode ------------------------------------------------------------------------------------

TEST_F(Update, IsNotInUpdateModeFromTheStart)
{
    EXPECT_EQ(isUpdateProgram(), 0);
    fakeClock.setMs(1); // too early for 5000 ms to have passed since tick 0
    EXPECT_EQ(isUpdateProgram(), 0);
}

TEST_F(Update, EntersUpdateModeAtEveryCommandEvenARefusedOne)
{
    for (unsigned dat1 = 0; dat1 < 256; ++dat1) {
        startTime_Update = 0;
        execute({0, 0, 0x9A, static_cast<uint8_t>(dat1), 0, 0, 0});
        EXPECT_EQ(startTime_Update + (dat1 == 0x16 ? 10 : 0), GetSysTick()) << dat1;
        EXPECT_EQ(isUpdateProgram(), 1) << dat1;
    }
}

TEST_F(Update, LeavesUpdateModeFiveSecondsAfterTheLastCommand)
{
    execute({0, 0, 0x9A, 0x20, 0, 0, 0});
    EXPECT_EQ(isUpdateProgram(), 1);
    fakeClock.setMs(kNow + 4999);
    EXPECT_EQ(isUpdateProgram(), 1);
    EXPECT_EQ(startTime_Update, kNow);
    fakeClock.setMs(kNow + 5000);
    EXPECT_EQ(isUpdateProgram(), 0);
    EXPECT_EQ(startTime_Update, 0u);
    fakeClock.setMs(kNow + 1); // it stays over, whatever the clock does
    EXPECT_EQ(isUpdateProgram(), 0);
}

TEST_F(Update, ProlongsUpdateModeWithEachCommand)
{
    execute({0, 0, 0x9A, 0x20, 0, 0, 0});
    fakeClock.setMs(kNow + 4999);
    execute({0, 0, 0x9A, 0xFF, 0, 0, 0});
    fakeClock.setMs(kNow + 4999 + 4999);
    EXPECT_EQ(isUpdateProgram(), 1);
    fakeClock.setMs(kNow + 4999 + 5000);
    EXPECT_EQ(isUpdateProgram(), 0);
    execute({0, 0, 0x9A, 0x20, 0, 0, 0});
    EXPECT_EQ(isUpdateProgram(), 1);
}

TEST_F(Update, CountsUpdateModeFromTheCommandNotFromTheEndOfItsBlock)
{
    execute(announce(1)); // and no block
    EXPECT_EQ(GetSysTick(), kNow + 1502 * 2);
    EXPECT_EQ(startTime_Update, kNow);
}

TEST_F(Update, CountsUpdateModeAcrossTheWrapOfTheTick)
{
    fakeClock.setMs(0x100000000 - 2000);
    execute({0, 0, 0x9A, 0x20, 0, 0, 0});
    fakeClock.setMs(0x100000000 + 3000); // one millisecond is lost at the wrap
    EXPECT_EQ(isUpdateProgram(), 1);
    fakeClock.setMs(0x100000000 + 3001);
    EXPECT_EQ(isUpdateProgram(), 0);
}

// The header -------------------------------------------------------------------------------------

std::string headerWith(uint32_t size, unsigned sum)
{
    std::string bytes(1024, '\x77');
    putBigEndian(&bytes, 48, size, 4);
    putBigEndian(&bytes, 80, sum, 2);
    return bytes;
}

TEST_F(Update, ReadsSizeAndSumFromTheHeader)
{
    const std::string header = headerWith(0x01020304, 0x8506);
    EXPECT_EQ(printedBy([&] { getUpdateFileSize(bytesOf(header)); }), "file size = 16909060\n");
    EXPECT_EQ(fpgaFileSize, 0x01020304u);
    EXPECT_EQ(fpgaFileChecksum, 0x8506u);
}

TEST_F(Update, PrintsTheSizeAsASignedNumber)
{
    EXPECT_EQ(printedBy([] { getUpdateFileSize(bytesOf(headerWith(0xFFFFFFFF, 0))); }),
              "file size = -1\n");
    EXPECT_EQ(fpgaFileSize, 0xFFFFFFFFu);
    EXPECT_EQ(printedBy([] { getUpdateFileSize(bytesOf(headerWith(0x80000000, 0xFFFF))); }),
              "file size = -2147483648\n");
    EXPECT_EQ(fpgaFileSize, 0x80000000u);
    EXPECT_EQ(fpgaFileChecksum, 0xFFFFu);
    EXPECT_EQ(printedBy([] { getUpdateFileSize(bytesOf(headerWith(0, 0))); }), "file size = 0\n");
    EXPECT_EQ(fpgaFileSize, 0u);
    EXPECT_EQ(fpgaFileChecksum, 0u);
}

// Receiving a block ------------------------------------------------------------------------------

TEST_F(Update, RefusesABlockWithAWrongChecksum)
{
    std::string bytes = withChecksum(Package(1000).block(0));
    bytes.back() = static_cast<char>(bytes.back() + 1);
    arrive(bytes + "next");
    EXPECT_EQ(execute(announce(0)),
              "re checksum error\r\n<F:receive  0 data from pc fail>\n" + nak(0));
    EXPECT_EQ(contentOf(channel[0]->pipe), "next");
    EXPECT_FALSE(exists(kStored));
}

TEST_F(Update, RefusesABlockThatEndsEarlyAfterFifteenHundredAndTwoPolls)
{
    const std::string bytes = Package(1000).block(0);
    for (const uint32_t come : {0u, 1u, 1023u}) {
        arrive(bytes.substr(0, come));
        EXPECT_EQ(execute(announce(0)),
                  "<F:receive  " + std::to_string(come) + " data from pc fail>\n" + nak(0));
        EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(1502, 2000));
    }
    EXPECT_FALSE(exists(kStored));
}

TEST_F(Update, TakesABlockWithoutItsChecksumWhenTheTimeIsOver)
{
    arrive(Package(1000).block(0));
    EXPECT_EQ(execute(announce(0)), begun("1000") + ack(0));
    EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(1502, 2000));
}

TEST_F(Update, WaitsForTheRestOfABlock)
{
    const std::string bytes = withChecksum(Package(1000).block(0));
    arrive(bytes.substr(0, 500));
    fakeClock.onSleep = [&] {
        if (fakeClock.sleepsUs.size() == 1000) {
            arrive(bytes.substr(500));
        }
    };
    EXPECT_EQ(execute(announce(0)), begun("1000") + ack(0));
    EXPECT_EQ(fakeClock.sleepsUs.size(), 1000u);
}

TEST_F(Update, NotesTheChannelThatSendsTheUpdate)
{
    getFreeChannel(kChannelSerial, 1);
    commandFrom = 1;
    arrive(withChecksum(Package(1000).block(0)), 1);
    EXPECT_EQ(execute(announce(0)), begun("1000") + ack(0));
    EXPECT_EQ(updateSoftChannel, 1);
    EXPECT_EQ(sent, (Calls{{"uart 1", replyFrame(announce(0))}}));
    commandFrom = 0;
    execute(announce(1)); // which does not come
    EXPECT_EQ(updateSoftChannel, 0);
}

// Storing ----------------------------------------------------------------------------------------

TEST_F(Update, BeginsATransferWithBlockZero)
{
    const Package package(5000);
    EXPECT_EQ(transfer(0, package.block(0)), begun("5000") + ack(0));
    EXPECT_EQ(fpgaFileSize, 5128u);
    EXPECT_EQ(fpgaFileChecksum, sumOf(package.stored()) % 65536);
    EXPECT_EQ(prevAddress, 0u);
    ASSERT_NE(my_FIL, nullptr);
    std::fflush(my_FIL);
    EXPECT_EQ(contentOf(kStored), package.stored().substr(0, 896));
}

TEST_F(Update, ReplacesTheFileOfAnEarlierUpdate)
{
    makeFile(kStored, std::string(100'000, 'x'));
    const Package package(5000);
    transfer(0, package.block(0));
    std::fflush(my_FIL);
    EXPECT_EQ(contentOf(kStored), package.stored().substr(0, 896));
}

TEST_F(Update, ReplacesTheFileItselfNotWhatALinkOfItsNameLeadsTo)
{
    makeFile("/etc/elsewhere", "to be kept");
    ASSERT_EQ(symlink("/etc/elsewhere", kStored), 0);
    const Package package(5000);
    transfer(0, package.block(0));
    std::fflush(my_FIL);
    EXPECT_EQ(contentOf(kStored), package.stored().substr(0, 896));
    EXPECT_EQ(contentOf("/etc/elsewhere"), "to be kept");
}

TEST_F(Update, AppendsEachFurtherBlockWhole)
{
    const Package package(5000);
    transfer(0, package.block(0));
    for (uint32_t number = 1; number < 4; ++number) {
        EXPECT_EQ(transfer(number, package.block(number)), ack(number));
        EXPECT_EQ(prevAddress, number);
        std::fflush(my_FIL);
        EXPECT_EQ(contentOf(kStored), package.stored().substr(0, 896 + 1024 * number));
    }
}

TEST_F(Update, WritesABlockThatIsSentTwiceOnceAndAcknowledgesItTwice)
{
    const Package package(6000);
    for (const uint32_t number : {0u, 1u, 2u, 3u}) {
        transfer(number, package.block(number));
    }
    EXPECT_EQ(transfer(3, package.block(3)), ack(3));
    EXPECT_EQ(transfer(3, std::string(1024, 'z')), ack(3)); // whatever it carries
    EXPECT_EQ(transfer(4, package.block(4)), ack(4));
    std::fflush(my_FIL);
    EXPECT_EQ(contentOf(kStored), package.stored().substr(0, 896 + 4 * 1024));
}

TEST_F(Update, StoresBlocksInTheOrderInWhichTheyCome)
{
    const Package package(10'000);
    std::string expected = package.block(0).substr(128);
    transfer(0, package.block(0));
    for (const uint32_t number : {2u, 1u, 2u, 5u, 4u}) {
        EXPECT_EQ(transfer(number, package.block(number)), ack(number));
        expected += package.block(number);
    }
    std::fflush(my_FIL);
    EXPECT_EQ(contentOf(kStored), expected);
}

TEST_F(Update, CountsBlocksWithBothBytesOfTheirNumber)
{
    const Package package(1'000'000);
    std::string expected = package.block(0).substr(128);
    transfer(0, package.block(0));
    for (const uint32_t number : {255u, 256u, 0x0102u, 0x0201u}) {
        EXPECT_EQ(transfer(number, package.block(number)), ack(number));
        EXPECT_EQ(prevAddress, number);
        expected += package.block(number);
    }
    std::fflush(my_FIL);
    EXPECT_EQ(contentOf(kStored), expected);
}

TEST_F(Update, BeginsAnewAtBlockZeroInTheMiddle)
{
    const Package first(9000);
    const Package second(5000);
    transfer(0, first.block(0));
    transfer(1, first.block(1));
    EXPECT_EQ(transfer(0, second.block(0)), begun("5000") + ack(0));
    EXPECT_EQ(transfer(1, second.block(1)), ack(1)); // no repetition of the other block 1
    std::fflush(my_FIL);
    EXPECT_EQ(contentOf(kStored), second.stored().substr(0, 896 + 1024));
    EXPECT_EQ(fpgaFileSize, 5128u);
}

TEST_F(Update, HoldsOneFileOpenHoweverOftenItBegins)
{
    const Package package(5000);
    const size_t before = openDescriptors();
    for (int round = 0; round < 300; ++round) {
        transfer(0, package.block(0));
        transfer(1, package.block(1));
    }
    EXPECT_EQ(openDescriptors(), before + 1);
}

TEST_F(Update, GoesOnBehindARefusedBlock)
{
    const Package package(5000);
    transfer(0, package.block(0));
    std::string wrong = withChecksum(package.block(1));
    wrong[0] = static_cast<char>(wrong[0] + 1);
    arrive(wrong);
    EXPECT_EQ(execute(announce(1)),
              "re checksum error\r\n<F:receive  0 data from pc fail>\n" + nak(1));
    EXPECT_EQ(prevAddress, 0u);
    EXPECT_EQ(transfer(1, package.block(1)), ack(1));
    std::fflush(my_FIL);
    EXPECT_EQ(contentOf(kStored), package.stored().substr(0, 896 + 1024));
}

TEST_F(Update, LeavesATransferAloneWhenABlockZeroDoesNotCome)
{
    const Package package(5000);
    transfer(0, package.block(0));
    transfer(1, package.block(1));
    execute(announce(0));
    EXPECT_EQ(fpgaFileSize, 5128u);
    EXPECT_EQ(prevAddress, 1u);
    EXPECT_EQ(transfer(2, package.block(2)), ack(2));
    std::fflush(my_FIL);
    EXPECT_EQ(contentOf(kStored), package.stored().substr(0, 896 + 2048));
}

// What cannot be stored --------------------------------------------------------------------------

TEST_F(Update, RefusesBlockZeroWhenTheFileCannotBeMade)
{
    mountStore("size=64k", MS_RDONLY);
    const size_t before = openDescriptors();
    const Package package(1000);
    EXPECT_EQ(transfer(0, package.block(0)), begun("1000") +
                                                 "open file /userdata/_update.pkg error\n"
                                                 "<F:open file error>\r\n" +
                                                 nak(0));
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Update, RefusesBlockZeroWhenItCannotBeWritten)
{
    const size_t before = openDescriptors();
    const Package package(1000);
    isWriteShort = true;
    EXPECT_EQ(transfer(0, package.block(0)), begun("1000") + "<F:write file error>\r\n" + nak(0));
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(isWriteShort);
}

TEST_F(Update, DoesNoMoreForARefusedBlockZero)
{
    const Package package(100); // of one block
    isWriteShort = true;
    EXPECT_EQ(transfer(0, package.block(0)), begun("100") + "<F:write file error>\r\n" + nak(0));
    mountStore("size=64k", MS_RDONLY);
    EXPECT_EQ(transfer(0, package.block(0)), begun("100") +
                                                 "open file /userdata/_update.pkg error\n"
                                                 "<F:open file error>\r\n" +
                                                 nak(0));
    EXPECT_TRUE(shell.commands.empty());
    EXPECT_EQ(powerState, 1);
}

TEST_F(Update, AcknowledgesBlocksBehindARefusedBlockZeroAndNothingComesOfThem)
{
    const Package package(1000);
    isWriteShort = true;
    transfer(0, package.block(0));
    EXPECT_EQ(transfer(1, package.block(1)), ack(1));
    EXPECT_EQ(transfer(2, package.block(1)), ack(2));
    EXPECT_TRUE(shell.commands.empty());
}

TEST_F(Update, AcknowledgesBlocksWithoutABlockZeroAndNothingComesOfThem)
{
    // A file is there that would be installed: its sum is the announced one, which is 0 at first.
    const std::string left(1024, '\0');
    makeFile(kStored, left);
    ASSERT_EQ(checkUpdateFileOk(), 1);
    for (const uint32_t number : {1u, 2u, 2u, 65535u}) {
        EXPECT_EQ(transfer(number, std::string(1024, 'x')), ack(number));
    }
    EXPECT_EQ(contentOf(kStored), left);
    EXPECT_TRUE(shell.commands.empty());
    EXPECT_EQ(powerState, 1);
}

TEST_F(Update, TransfersAgainBehindARefusedBlockZero)
{
    const Package package(5000);
    isWriteShort = true;
    transfer(0, package.block(0));
    EXPECT_EQ(transfer(0, package.block(0)), begun("5000") + ack(0));
    EXPECT_EQ(transfer(1, package.block(1)), ack(1));
    std::fflush(my_FIL);
    EXPECT_EQ(contentOf(kStored), package.stored().substr(0, 896 + 1024));
}

TEST_F(Update, FindsAtTheEndWhatADiskRunningFullDidNotTake)
{
    mountStore("size=64k");
    const Package package(200'000);
    std::string prints = transfer(0, package.block(0));
    std::string expected = begun("200000") + ack(0);
    for (uint32_t number = 1; number < package.count(); ++number) {
        prints += transfer(number, package.block(number));
        expected += ack(number);
    }
    const std::string stored = contentOf(kStored);
    EXPECT_LE(stored.size(), 65536u);
    EXPECT_EQ(prints, expected + sumError(sumOf(stored), sumOf(package.stored()) % 65536));
    EXPECT_TRUE(shell.commands.empty());
    EXPECT_EQ(contentOf(kExecutable), "the old one");
}

TEST_F(Update, FindsAtTheEndThatAFullDiskTookNothing)
{
    mountStore("size=4k");
    makeFile("/userdata/filler", std::string(4096, 'x'));
    const Package package(100);
    EXPECT_EQ(transfer(0, package.block(0)),
              begun("100") + ack(0) + sumError(0, sumOf(package.stored()) % 65536));
    EXPECT_TRUE(shell.commands.empty());
}

TEST_F(Update, NeverInstallsAnEmptyFile)
{
    mountStore("size=4k");
    makeFile("/userdata/filler", std::string(4096, 'x'));
    Package package(100);
    package.setSum(0);
    EXPECT_EQ(transfer(0, package.block(0)), begun("100") + ack(0) + sumError(0, 0));
    EXPECT_TRUE(shell.commands.empty());
    EXPECT_EQ(powerState, 1);
}

// The end of a transfer --------------------------------------------------------------------------

TEST_F(Update, InstallsNothingWithAWrongSum)
{
    Package package(1000);
    const unsigned sum = sumOf(package.stored()) % 65536;
    package.setSum(sum ^ 1);
    EXPECT_EQ(transfer(0, package.block(0)), begun("1000") + ack(0));
    EXPECT_EQ(fpgaFileSize, 1128u);
    EXPECT_EQ(transfer(1, package.block(1)), ack(1) + sumError(sum, sum ^ 1));
    EXPECT_EQ(contentOf(kStored), package.stored());
    EXPECT_EQ(contentOf(kStored).size(), 1920u);
    EXPECT_EQ(my_FIL, nullptr);
    EXPECT_TRUE(shell.commands.empty());
    EXPECT_EQ(powerState, 1);
    EXPECT_EQ(contentOf(kExecutable), "the old one");
    EXPECT_FALSE(exists(kBackup));
}

TEST_F(Update, CountsWhatFillsUpTheLastBlockInTheSum)
{
    Package package(1000);
    const unsigned sum = sumOf(package.stored().substr(0, 1000)) % 65536;
    package.setSum(sum);
    transfer(0, package.block(0));
    EXPECT_EQ(transfer(1, package.block(1)), ack(1) + sumError(sumOf(package.stored()), sum));
}

TEST_F(Update, AcknowledgesFurtherBlocksBehindAFailedTransferAndNothingComesOfThem)
{
    Package package(1000);
    package.setSum(0);
    transfer(0, package.block(0));
    transfer(1, package.block(1));
    EXPECT_EQ(transfer(1, package.block(1)), ack(1));
    EXPECT_EQ(transfer(2, package.block(1)), ack(2));
    EXPECT_EQ(contentOf(kStored), package.stored());
}

TEST_F(Update, EndsATransferEarlyAtABlockNumberBeyondTheSize)
{
    const Package package(5000);
    const std::string stored = package.block(0).substr(128) + package.block(5 - 1);
    transfer(0, package.block(0));
    EXPECT_EQ(transfer(9, package.block(4)),
              ack(9) + sumError(sumOf(stored), sumOf(package.stored()) % 65536));
}

TEST_F(Update, EndsATransferAtBlockZeroWhenTheSizeRunsOver)
{
    Package package(896, 0xFFFFFFFF); // and 128 are 127
    package.setSum(0);
    EXPECT_EQ(transfer(0, package.block(0)),
              begun("-1") + ack(0) + sumError(sumOf(package.stored()), 0));
}

TEST_F(Update, WaitsForTheLastBlockOfTheLargestSize)
{
    const Package package(896, 0xFFFFFF7F); // and 128 are 0xFFFFFFFF
    EXPECT_EQ(transfer(0, package.block(0)), begun("-129") + ack(0));
    EXPECT_EQ(transfer(65535, package.block(0)), ack(65535));
    EXPECT_NE(my_FIL, nullptr);
}

// Executes a whole transfer like the main loop, in a child.
End update(const Package &package)
{
    return inChild([&] {
        for (uint32_t number = 0; number < package.count(); ++number) {
            arrive(withChecksum(package.block(number)));
            request(announce(number));
            processCmdData();
        }
    });
}

std::string updated(const std::string &size, uint32_t blocks)
{
    std::string prints = begun(size);
    for (uint32_t number = 0; number < blocks; ++number) {
        prints += ack(number);
    }
    return prints + "check _update.pkg sucess\npopen, power 1\nexit\n";
}

TEST_F(Update, InstallsThePackageKeepsTheOldOneSwitchesOffAndExits)
{
    chmod(kExecutable, 0644);
    const Package package(1000);
    const End end = update(package);
    EXPECT_EQ(end.prints, updated("1000", 2));
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.report, "power 0, open 300");
    EXPECT_EQ(contentOf(kStored), package.stored());
    EXPECT_EQ(contentOf(kExecutable), package.stored());
    EXPECT_EQ(permissions(kExecutable) & 0111, 0111u);
    EXPECT_EQ(contentOf(kBackup), "the old one");
}

TEST_F(Update, ReplacesTheBackupOfAnEarlierUpdate)
{
    makeFile(kBackup, "a backup that is longer than the executable");
    EXPECT_EQ(update(Package(10)).status, 0);
    EXPECT_EQ(contentOf(kBackup), "the old one");
}

// The header's 128 bytes and the package fill whole blocks at 896 and each 1024 more.
TEST_F(Update, EndsATransferWithTheBlockThatReachesTheSize)
{
    struct Case {
        uint32_t size;
        uint32_t blocks;
    };
    // clang-format off
    constexpr Case kCases[] = {
        {0, 1},    {1, 1},    {895, 1},  {896, 1},
        {897, 2},  {1000, 2}, {1023, 2}, {1024, 2}, {1025, 2}, {1919, 2}, {1920, 2},
        {1921, 3}, {65'536, 65}, {66'431, 65}, {66'432, 65}, {66'433, 66},
    };
    // clang-format on
    shell.instead = "cp -f /usr/bin/vesk_h264 /usr/bin/vesk_h264_backup && "
                    "cp -f /userdata/_update.pkg /usr/bin/vesk_h264"; // without the slow sync
    for (const Case &test : kCases) {
        makeFile(kExecutable, "the old one");
        const Package package(test.size);
        ASSERT_EQ(package.count(), test.blocks);
        const End end = update(package);
        EXPECT_EQ(end.prints, updated(std::to_string(test.size), test.blocks));
        EXPECT_EQ(end.status, 0) << test.size;
        EXPECT_EQ(contentOf(kExecutable), package.stored()) << test.size;
        EXPECT_EQ(contentOf(kExecutable).size(), test.blocks * 1024 - 128) << test.size;
        EXPECT_EQ(contentOf(kBackup), "the old one") << test.size;
    }
}

TEST_F(Update, InstallsAPackageOfMegabytes)
{
    const Package package(3 * 1024 * 1024);
    ASSERT_EQ(package.count(), 3073u); // 3072 and the header's 128 bytes
    const End end = update(package);
    EXPECT_EQ(end.prints, updated("3145728", 3073));
    EXPECT_EQ(end.status, 0);
    EXPECT_TRUE(contentOf(kExecutable) == package.stored());
}

TEST_F(Update, InstallsAnythingWhoseSumIsRightWhateverTheOrderOfItsBlocks)
{
    const Package package(4000);
    const End end = inChild([&] {
        for (const uint32_t number : {0u, 2u, 1u, 3u, 4u}) {
            arrive(withChecksum(package.block(number)));
            request(announce(number));
            processCmdData();
        }
    });
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(contentOf(kExecutable), package.block(0).substr(128) + package.block(2) +
                                          package.block(1) + package.block(3) + package.block(4));
}

TEST_F(Update, InstallsBehindEverythingThatCanGoWrongOnTheWay)
{
    const Package package(3000);
    Package wrong(3000);
    wrong.setSum(0);
    for (uint32_t number = 0; number < wrong.count(); ++number) {
        transfer(number, wrong.block(number)); // a transfer in vain
    }
    transfer(0, wrong.block(0)); // and one given up
    transfer(1, std::string(1024, 'x'));
    execute(announce(2));
    isWriteShort = true;
    transfer(0, package.block(0)); // refused
    EXPECT_EQ(contentOf(kExecutable), "the old one");
    EXPECT_EQ(update(package).prints, updated("3000", package.count()));
    EXPECT_EQ(contentOf(kExecutable), package.stored());
}

TEST_F(Update, SwitchesOffAndExitsEvenWhenTheCopyFails)
{
    unlink(kExecutable);
    const End end = update(Package(10));
    EXPECT_EQ(end.prints, updated("10", 1));
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.report, "power 0, open 300");
    EXPECT_FALSE(exists(kExecutable)); // there was nothing to keep
}

TEST_F(Update, SwitchesOffAndExitsEvenWithoutAShell)
{
    shell.fails = true;
    const End end = update(Package(10));
    EXPECT_EQ(end.prints, begun("10") + ack(0) +
                              "check _update.pkg sucess\npopen, power 1\npopen error!\nexit\n");
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.report, "power 0, open 300");
    EXPECT_EQ(contentOf(kExecutable), "the old one");
}

// On the line ------------------------------------------------------------------------------------

TEST_F(Update, InstallsWhatComesOnTheLine)
{
    const Package package(2500);
    const End end = inChild([&] {
        for (uint32_t number = 0; number < package.count(); ++number) {
            arrive(commandFrame(announce(number)) + withChecksum(package.block(number)));
            TaskCommand();
        }
    });
    EXPECT_EQ(end.prints, updated("2500", 3));
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(contentOf(kExecutable), package.stored());
}

TEST_F(Update, MirrorsNothingOfTheBlocksToThePc)
{
    const Package package(9000);
    const std::string frame = commandFrame({0, 0, 0x6A, 3, 0, 0, 0}); // no command within a block
    const std::string content = frame + package.block(1).substr(frame.size());
    std::string prints = transcriptOf([&] {
        arrive("x" + commandFrame(announce(0)) + withChecksum(package.block(0)) + "y" +
               commandFrame(announce(1)) + withChecksum(content) + "z");
        TaskCommand();
    });
    EXPECT_EQ(prints, begun("9000") + ack(0) + ack(1));
    EXPECT_EQ(contentOf(udp_send_pipe), "xyz");
}

// The sum of the file ----------------------------------------------------------------------------

TEST_F(Update, ComparesTheSumOfTheWholeFile)
{
    makeFile(kStored, std::string_view("\x01\xFF\x80\x00\x7F", 5)); // 1ff
    fpgaFileChecksum = 0x1FF;
    int32_t result = 0;
    EXPECT_EQ(printedBy([&] { result = checkUpdateFileOk(); }), "");
    EXPECT_EQ(result, 1);
    fpgaFileChecksum = 0x1FE;
    EXPECT_EQ(printedBy([&] { result = checkUpdateFileOk(); }),
              "check sum error: 0x1ff != 0x1fe\n");
    EXPECT_EQ(result, 0);
}

TEST_F(Update, KeepsTheLowSixteenBitsOfTheSum)
{
    makeFile(kStored, std::string(300'000, '\xFF')); // 76,500,000 = 48f4c20
    fpgaFileChecksum = 0x4C20;
    int32_t result = 0;
    EXPECT_EQ(printedBy([&] { result = checkUpdateFileOk(); }), "");
    EXPECT_EQ(result, 1);
}

TEST_F(Update, FailsForAFileThatIsNotThere)
{
    fpgaFileChecksum = 0xABCD;
    int32_t result = 1;
    const std::string prints = printedBy([&] { result = checkUpdateFileOk(); });
    EXPECT_EQ(result, 0);
    EXPECT_NE(prints.find("open file /userdata/_update.pkg error\n"), std::string::npos);
    EXPECT_NE(prints.find("check sum error: 0x0 != 0xabcd\n"), std::string::npos);
}

TEST_F(Update, FailsForAFileThatTheMemoryDoesNotHold)
{
    makeFile(kStored, "12");
    int32_t result = 1;
    for (const unsigned sum : {0u, 0x63u}) { // 31 + 32
        fpgaFileChecksum = sum;
        isMemoryRefused = true;
        printedBy([&] { result = checkUpdateFileOk(); });
        isMemoryRefused = false;
        EXPECT_EQ(result, 0);
    }
    EXPECT_EQ(checkUpdateFileOk(), 1);
}

TEST_F(Update, FailsForAFileThatCannotBeReadToItsEnd)
{
    makeFile(kStored, "123");
    fpgaFileChecksum = 0x96; // 31 + 32 + 33
    int32_t result = 1;
    const std::string prints = printedBy([&] {
        readsLess = 1;
        result = checkUpdateFileOk();
        readsLess = 0;
    });
    EXPECT_EQ(prints, "read file _update.pkg size error: fileSize=3, readSize=2\r\n"
                      "check sum error: 0x63 != 0x96\n");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(checkUpdateFileOk(), 1);
}

// Copying ----------------------------------------------------------------------------------------

TEST_F(Update, CopiesTheExecutables)
{
    chmod(kExecutable, 0600);
    makeFile(kStored, "the new one");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(cpUpdateFile(), 0); }), "");
    EXPECT_EQ(shell.commands, std::vector<std::string>{kInstallCommand});
    EXPECT_EQ(contentOf(kBackup), "the old one");
    EXPECT_EQ(contentOf(kExecutable), "the new one");
    EXPECT_EQ(permissions(kExecutable), 0711u);
    EXPECT_EQ(contentOf(kStored), "the new one");
}

TEST_F(Update, LeavesTheExecutableAloneWithoutABackupOfIt)
{
    makeFile(kStored, "the new one");
    mkdir(kBackup, 0755); // where no file can be put
    mkdir("/usr/bin/vesk_h264_backup/vesk_h264", 0755);
    int32_t status = 0;
    printedBy([&] { status = cpUpdateFile(); });
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_NE(WEXITSTATUS(status), 0);
    EXPECT_EQ(contentOf(kExecutable), "the old one");
}

TEST_F(Update, PrintsWhatTheCopyingPrints)
{
    shell.instead = "echo one; echo; "
                    "i=0; while [ $i -lt 25 ]; do printf 0123456789; i=$((i + 1)); done; echo; "
                    "printf 'no end'; exit 3";
    std::string line;
    for (int i = 0; i < 25; ++i) {
        line += "0123456789";
    }
    int32_t status = 0;
    EXPECT_EQ(printedBy([&] { status = cpUpdateFile(); }), "one\n\n" + line + "\nno end");
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST_F(Update, SaysWhenThereIsNoShell)
{
    shell.fails = true;
    EXPECT_EQ(printedBy([] { EXPECT_NE(cpUpdateFile(), 0); }), "popen error!\n");
}

// The end ----------------------------------------------------------------------------------------

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
    EXPECT_EQ(end.prints, "before, exit\n");
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.report, "power 7, open 256 257 300");
}

// What no command reaches ------------------------------------------------------------------------

using Receiver = void (*)();

// What the receiver prints and sends for a block, which comes with it.
std::string receive(Receiver receiver, uint32_t number, const std::string &bytes)
{
    arrive(bytes);
    request(announce(number));
    sent.clear();
    return transcriptOf(receiver);
}

TEST_F(Update, ReceivesBlocksOnOtherPathsAndStoresNothing)
{
    const Package package(5000);
    for (const Receiver receiver : {UpdateMcu1K, UpdateMcu1K_test}) {
        EXPECT_EQ(receive(receiver, 0, withChecksum(package.block(0))),
                  "file size = 5000\n" + ack(0));
        EXPECT_EQ(fpgaFileSize, 5000u); // without the header's length
        EXPECT_EQ(fpgaFileChecksum, sumOf(package.stored()) % 65536);
        for (const uint32_t number : {1u, 1u, 4u, 5u, 6u, 0x1234u}) {
            EXPECT_EQ(receive(receiver, number, withChecksum(package.block(1))), ack(number));
        }
        EXPECT_EQ(fpgaFileSize, 5000u);
    }
    EXPECT_FALSE(exists(kStored));
    EXPECT_TRUE(shell.commands.empty());
}

TEST_F(Update, RefusesBlocksOnOtherPaths)
{
    for (const Receiver receiver : {UpdateMcu1K, UpdateMcu1K_test}) {
        std::string wrong = withChecksum(Package(5000).block(1));
        wrong.back() = static_cast<char>(wrong.back() + 1);
        EXPECT_EQ(receive(receiver, 1, wrong),
                  "re checksum error\r\n<F:receive  0 data from pc fail>\n" + nak(1));
        fakeClock.sleepsUs.clear();
        EXPECT_EQ(receive(receiver, 0, std::string(500, 'x')),
                  "<F:receive  500 data from pc fail>\n" + nak(0));
        EXPECT_EQ(fakeClock.sleepsUs, std::vector<uint32_t>(1502, 2000));
    }
    EXPECT_EQ(fpgaFileSize, 0u);
}

TEST_F(Update, CountsTheBlocksOfEachPathByItself)
{
    const std::string bytes = withChecksum(Package(50'000).block(0));
    receive(UpdateMcu1KToSDCARD, 0, bytes);
    receive(UpdateMcu1KToSDCARD, 1, bytes);
    receive(UpdateMcu1K, 2, bytes);
    receive(UpdateMcu1K_test, 3, bytes);
    EXPECT_EQ(prevAddress, 1u);
    EXPECT_EQ(prevAddressMcu1K, 2u);
    EXPECT_EQ(prevAddressMcu1K_test, 3u);
    // Block 2 is none of this path's yet, and is stored.
    receive(UpdateMcu1KToSDCARD, 2, bytes);
    std::fflush(my_FIL);
    EXPECT_EQ(contentOf(kStored).size(), 896u + 2 * 1024);
}

TEST_F(Update, NotesTheChannelOnOneOfTheOtherPathsOnly)
{
    getFreeChannel(kChannelSerial, 1);
    commandFrom = 1;
    receive(UpdateMcu1K, 1, "");
    EXPECT_EQ(updateSoftChannel, 1);
    commandFrom = 0;
    receive(UpdateMcu1K_test, 1, "");
    EXPECT_EQ(updateSoftChannel, 1);
    receive(UpdateMcu1K, 1, "");
    EXPECT_EQ(updateSoftChannel, 0);
}

TEST_F(Update, SumsAsManyBytesAsTheCountHasModulo256)
{
    std::array<uint8_t, 600> bytes;
    bytes.fill(0xFF);
    bytes[0] = 3;
    EXPECT_EQ(GetCheckSum(bytes.data(), 0), 0);
    EXPECT_EQ(GetCheckSum(bytes.data(), 1), 3);
    EXPECT_EQ(GetCheckSum(bytes.data(), 2), 2);   // 3 + 255
    EXPECT_EQ(GetCheckSum(bytes.data(), 255), 5); // 3 - 254
    EXPECT_EQ(GetCheckSum(bytes.data(), 256), 0); // none
    EXPECT_EQ(GetCheckSum(bytes.data(), 257), 3); // one
    EXPECT_EQ(GetCheckSum(bytes.data(), 511), 5); // 255
    EXPECT_EQ(GetCheckSum(bytes.data(), 0xFFFFFF02), 2);
}

TEST_F(Update, ClosesTheLocalSaveFile)
{
    const size_t before = openDescriptors();
    localSaveFile = static_cast<FileHandle *>(mymem_malloc(sizeof *localSaveFile));
    ASSERT_EQ(f_open(localSaveFile, "/userdata/save", kCreateAlways), kFileOk);
    localSaveIndex = 5;
    EXPECT_EQ(openDescriptors(), before + 1);
    EXPECT_EQ(transcriptOf(closeSaveLocalFile), "");
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(localSaveFile, nullptr);
    EXPECT_EQ(localSaveIndex, 0u);
    localSaveIndex = 6;
    closeSaveLocalFile(); // there is none any more
    EXPECT_EQ(localSaveIndex, 6u);
}

} // namespace
