// The file store on a real file system: every mode, result and message, and what a file system can
// refuse. A settings directory that is full or read-only is a small tmpfs of the test's own.

#include "storage/fatfs.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "storage/wipe.h"
#include "tests/support/console.h"

namespace fs = std::filesystem;

namespace {

// Link-time fakes: real calls that are counted and can be made to fail ---------------------------

struct MkdirCall {
    std::string path;
    mode_t mode;
    bool operator==(const MkdirCall &) const = default;
};
std::vector<MkdirCall> mkdirCalls;
bool mkdirFails = false;

std::string unopenable; // the directory that opendir() refuses
std::string unseeable;  // the path that lstat() refuses

std::vector<size_t> readCounts;  // bytes asked for by each fread() of the code under test
std::vector<size_t> writeCounts; // and of each fwrite()
bool countsTransfers = false;
size_t readAtMost = SIZE_MAX; // bytes that an fread() gets

int fakeLstat(const char *path, struct stat *status)
{
    if (path == unseeable) {
        errno = EIO;
        return -1;
    }
    return fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

} // namespace

extern "C" {
int __wrap_mkdir(const char *path, mode_t mode);
int __real_mkdir(const char *path, mode_t mode);
DIR *__wrap_opendir(const char *path);
DIR *__real_opendir(const char *path);
int __wrap_lstat64(const char *path, struct stat *status);
int __wrap___lstat64_time64(const char *path, struct stat *status);
size_t __wrap_fread(void *buffer, size_t size, size_t count, std::FILE *stream);
size_t __real_fread(void *buffer, size_t size, size_t count, std::FILE *stream);
size_t __wrap_fwrite(const void *buffer, size_t size, size_t count, std::FILE *stream);
size_t __real_fwrite(const void *buffer, size_t size, size_t count, std::FILE *stream);

int __wrap_mkdir(const char *path, mode_t mode)
{
    mkdirCalls.push_back({path, mode});
    if (mkdirFails) {
        errno = EIO;
        return -1;
    }
    return __real_mkdir(path, mode);
}

DIR *__wrap_opendir(const char *path)
{
    if (path == unopenable) {
        errno = EACCES;
        return nullptr;
    }
    return __real_opendir(path);
}

int __wrap_lstat64(const char *path, struct stat *status)
{
    return fakeLstat(path, status);
}

int __wrap___lstat64_time64(const char *path, struct stat *status)
{
    return fakeLstat(path, status);
}

size_t __wrap_fread(void *buffer, size_t size, size_t count, std::FILE *stream)
{
    if (!countsTransfers) {
        return __real_fread(buffer, size, count, stream);
    }
    readCounts.push_back(size * count);
    return __real_fread(buffer, 1, std::min(size * count, readAtMost), stream) / size;
}

size_t __wrap_fwrite(const void *buffer, size_t size, size_t count, std::FILE *stream)
{
    if (countsTransfers) {
        writeCounts.push_back(size * count);
    }
    return __real_fwrite(buffer, size, count, stream);
}
}

namespace {

const std::string kDirectory = "/userdata/";

void put(const std::string &path, const std::string &content)
{
    std::ofstream(path, std::ios::binary) << content;
}

std::string contentOf(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Without following a link at its end.
bool isThere(const std::string &path)
{
    return fs::symlink_status(path).type() != fs::file_type::not_found;
}

std::vector<std::string> entriesOf(const std::string &directory)
{
    std::vector<std::string> names;
    for (const fs::directory_entry &entry : fs::directory_iterator(directory)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

using Names = std::vector<std::string>;

// A file left open would stay so for the life of the daemon.
size_t openFiles()
{
    return entriesOf("/proc/self/fd").size();
}

// A handle value that is no file: an operation that leaves the handle alone leaves this.
FileHandle untouchedHandle()
{
    return stdin;
}

class Fatfs : public testing::Test {
protected:
    Fatfs()
    {
        umask(0);
        fs::create_directory(kDirectory);
        openAtStart = openFiles();
    }

    void TearDown() override
    {
        EXPECT_EQ(openFiles(), openAtStart) << "a file was left open";
    }

    // Puts a file system of this many bytes in the place of the settings directory.
    static void mountSmall(const std::string &options, unsigned long flags = 0)
    {
        ASSERT_EQ(mount("tmpfs", kDirectory.c_str(), "tmpfs", flags, options.c_str()), 0)
            << std::strerror(errno);
    }

    size_t openAtStart;
};

// Opening ----------------------------------------------------------------------------------------

// A file that holds "old" is opened and "NEW" is written: which bit decided shows in what is there
// afterwards. Modes are the bits 1, 2, 4, 8, 0x10 and 0x20.
TEST_F(Fatfs, CreateBitsComeBeforeTheReadBitAndThatBeforeTheAppendBits)
{
    const std::string path = kDirectory + "file";
    for (uint32_t mode = 0; mode < 0x40; ++mode) {
        put(path, "old");
        uint32_t expectedResult = 0;
        std::string expectedContent;
        if ((mode & 8) != 0 || (mode & 4) != 0) {
            expectedContent = "NEW";
        } else if ((mode & 1) != 0) {
            expectedContent = "old";
        } else if ((mode & 0x30) != 0) {
            expectedContent = "oldNEW";
        } else {
            expectedContent = "old";
            expectedResult = 19;
        }
        FileHandle file = nullptr;
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(f_open(&file, path.c_str(), mode), expectedResult); }),
                  "");
        uint32_t done = 0;
        f_write(&file, "NEW", 3, &done);
        EXPECT_EQ(f_close(&file), expectedResult == 0 ? 0u : 4u);
        EXPECT_EQ(contentOf(path), expectedContent) << "mode " << mode;
    }
}

TEST_F(Fatfs, AFileForAppendingOrCreatingIsMadeAndOneForReadingIsNot)
{
    const std::pair<uint32_t, bool> modes[] = {{1, false},   {4, true},    {8, true},
                                               {10, true},   {6, true},    {0x10, true},
                                               {0x20, true}, {0x30, true}, {9, true}};
    const std::string path = kDirectory + "new";
    for (const auto &[mode, isMade] : modes) {
        fs::remove(path);
        FileHandle file = nullptr;
        printedBy([&, mode = mode, isMade = isMade] {
            EXPECT_EQ(f_open(&file, path.c_str(), mode) == kFileOk, isMade) << "mode " << mode;
        });
        f_close(&file);
        EXPECT_EQ(isThere(path), isMade) << "mode " << mode;
    }
}

TEST_F(Fatfs, AModeThatOpensNothingLeavesTheHandleAloneAndIsSilent)
{
    for (const uint32_t mode : {2u, 0u}) {
        FileHandle file = untouchedHandle();
        EXPECT_EQ(printedBy([&] {
                      EXPECT_EQ(f_open(&file, "/userdata/file", mode), 19u);
                      EXPECT_EQ(f_open(&file, "/nowhere/file", mode), 19u);
                  }),
                  "");
        EXPECT_EQ(file, untouchedHandle());
        EXPECT_FALSE(isThere("/userdata/file"));
    }
}

TEST_F(Fatfs, AnOpenThatFailsSaysSoAndClearsTheHandle)
{
    for (const uint32_t mode : {1u, 4u, 6u, 8u, 10u, 0x10u, 0x20u}) {
        FileHandle file = untouchedHandle();
        EXPECT_EQ(
            printedBy([&] { EXPECT_EQ(f_open(&file, "/userdata/no/file", mode), 4u) << mode; }),
            "open file /userdata/no/file error\n");
        EXPECT_EQ(file, nullptr);
    }
}

TEST_F(Fatfs, ProgramsThatAreStartedDoNotInheritAnOpenFile)
{
    for (const uint32_t mode : {4u, 1u, 0x10u}) {
        FileHandle file = nullptr;
        ASSERT_EQ(f_open(&file, "/userdata/file", mode), 0u);
        EXPECT_EQ(fcntl(fileno(file), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << mode;
        f_close(&file);
    }
}

// Closing, removing ------------------------------------------------------------------------------

TEST_F(Fatfs, ClosingEmptiesTheHandleAndASecondTimeFails)
{
    FileHandle file = nullptr;
    EXPECT_EQ(f_close(&file), 4u);
    ASSERT_EQ(f_open(&file, "/userdata/file", 4), 0u);
    uint32_t done = 0;
    f_write(&file, "abc", 3, &done);
    EXPECT_EQ(f_close(&file), 0u);
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(contentOf("/userdata/file"), "abc");
    EXPECT_EQ(f_close(&file), 4u);
}

TEST_F(Fatfs, UnlinkingTellsWhetherTheFileIsGone)
{
    put("/userdata/file", "abc");
    EXPECT_EQ(printedBy([] {
                  EXPECT_EQ(f_unlink("/userdata/file"), 0u);
                  EXPECT_FALSE(isThere("/userdata/file"));
                  EXPECT_EQ(f_unlink("/userdata/file"), 4u);
                  EXPECT_EQ(f_unlink(""), 4u);
              }),
              "");
    fs::create_directory("/userdata/empty");
    EXPECT_EQ(f_unlink("/userdata/empty"), 0u);
    EXPECT_FALSE(isThere("/userdata/empty"));
    put("/userdata/file", "abc");
    EXPECT_EQ(f_unlink("/userdata"), 4u);
    EXPECT_EQ(contentOf("/userdata/file"), "abc");
}

// Size, reading and writing of an open file ------------------------------------------------------

TEST_F(Fatfs, TheSizeOfAClosedHandleIsZero)
{
    FileHandle file = nullptr;
    EXPECT_EQ(f_size(&file), 0u);
}

TEST_F(Fatfs, MeasuringRewindsTheFile)
{
    put("/userdata/file", "0123456789");
    FileHandle file = nullptr;
    ASSERT_EQ(f_open(&file, "/userdata/file", 1), 0u);
    char text[5] = "....";
    uint32_t done = 0;
    f_read(&file, text, 4, &done);
    EXPECT_EQ(f_size(&file), 10u);
    f_read(&file, text, 4, &done);
    EXPECT_STREQ(text, "0123");
    f_close(&file);
}

TEST_F(Fatfs, MeasuringCountsWhatHasJustBeenWritten)
{
    FileHandle file = nullptr;
    ASSERT_EQ(f_open(&file, "/userdata/file", 6), 0u);
    EXPECT_EQ(f_size(&file), 0u);
    uint32_t done = 0;
    f_write(&file, "abcdef", 6, &done);
    EXPECT_EQ(f_size(&file), 6u);
    f_write(&file, "XY", 2, &done);
    f_close(&file);
    EXPECT_EQ(contentOf("/userdata/file"), "XYcdef");
}

TEST_F(Fatfs, SizesGoBeyondTwoGigabytes)
{
    put("/userdata/file", "");
    fs::resize_file("/userdata/file", 3'000'000'000); // takes no room
    FileHandle file = nullptr;
    ASSERT_EQ(f_open(&file, "/userdata/file", 1), 0u);
    EXPECT_EQ(f_size(&file), 3'000'000'000u);
    f_close(&file);
    EXPECT_EQ(sd_getFileSize("file"), 3'000'000'000u);
    char text[] = "12345";
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(sd_readFile("file", text, 4), 3'000'000'000u); }),
              "read file file size error: fileSize=-1294967296, readSize=4\r\n"); // signed
    EXPECT_EQ(std::string(text, 5), std::string("\0\0\0\0005", 5));
    fs::resize_file("/userdata/file", (uint64_t{1} << 32) + 7);
    EXPECT_EQ(sd_getFileSize("file"), 7u);
}

TEST_F(Fatfs, TransfersWithAClosedHandleFailAndTouchNothing)
{
    FileHandle file = nullptr;
    char text[] = "abc";
    uint32_t done = 77;
    EXPECT_EQ(f_read(&file, text, 3, &done), 4u);
    EXPECT_EQ(f_write(&file, text, 3, &done), 4u);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(done, 77u);
}

TEST_F(Fatfs, AShortReadIsNoFailure)
{
    put("/userdata/file", "abc");
    FileHandle file = nullptr;
    ASSERT_EQ(f_open(&file, "/userdata/file", 1), 0u);
    char text[] = "12345678";
    uint32_t done = 77;
    EXPECT_EQ(f_read(&file, text, 8, &done), 0u);
    EXPECT_EQ(done, 3u);
    EXPECT_STREQ(text, "abc45678");
    EXPECT_EQ(f_read(&file, text, 8, &done), 0u);
    EXPECT_EQ(done, 0u);
    EXPECT_STREQ(text, "abc45678");
    f_close(&file);
}

TEST_F(Fatfs, AShortWriteIsNoFailure)
{
    mountSmall("size=4096");
    FileHandle file = nullptr;
    ASSERT_EQ(f_open(&file, "/userdata/file", 6), 0u);
    const std::string bytes(100'000, 'x');
    uint32_t done = 100'000;
    EXPECT_EQ(f_write(&file, bytes.data(), 100'000, &done), 0u);
    EXPECT_LT(done, 100'000u);
    f_close(&file);
    EXPECT_LE(contentOf("/userdata/file").size(), 4096u);
}

TEST_F(Fatfs, WhatCannotBeReadOrWrittenCountsAsNothing)
{
    put("/userdata/file", "abc");
    FileHandle file = nullptr;
    uint32_t done = 77;
    ASSERT_EQ(f_open(&file, "/userdata/file", 1), 0u);
    EXPECT_EQ(f_write(&file, "XYZ", 3, &done), 0u);
    EXPECT_EQ(done, 0u);
    f_close(&file);
    ASSERT_EQ(f_open(&file, "/userdata/file", 0x20), 0u);
    char text[] = "...";
    done = 77;
    EXPECT_EQ(f_read(&file, text, 3, &done), 0u);
    EXPECT_EQ(done, 0u);
    EXPECT_STREQ(text, "...");
    f_close(&file);
    EXPECT_EQ(contentOf("/userdata/file"), "abc");
}

TEST_F(Fatfs, ATransferIsOneBufferedCall)
{
    put("/userdata/file", std::string(5000, 'x'));
    std::string bytes(5000, '.');
    uint32_t done = 0;
    FileHandle file = nullptr;
    countsTransfers = true;
    ASSERT_EQ(f_open(&file, "/userdata/file", 1), 0u);
    f_read(&file, bytes.data(), 5000, &done);
    f_close(&file);
    ASSERT_EQ(f_open(&file, "/userdata/file", 6), 0u);
    f_write(&file, bytes.data(), 4000, &done);
    f_close(&file);
    countsTransfers = false;
    EXPECT_EQ(readCounts, (std::vector<size_t>{5000}));
    EXPECT_EQ(writeCounts, (std::vector<size_t>{4000}));
}

// Opening in the settings directory --------------------------------------------------------------

TEST_F(Fatfs, TheSettingsDirectoryIsUserdata)
{
    EXPECT_STREQ(USERPath, "/userdata/");
    put("/userdata/save0.sav", "abc");
    FileHandle file = nullptr;
    ASSERT_EQ(sd_open(&file, "save0.sav", 1), 0u);
    EXPECT_EQ(f_size(&file), 3u);
    f_close(&file);
}

TEST_F(Fatfs, OpensInTheSettingsDirectoryAsTheModeSays)
{
    const std::pair<uint32_t, std::string> modes[] = {{10, "NEW"},      {6, "NEW"},      {4, "NEW"},
                                                      {8, "NEW"},       {9, "NEW"},      {1, "old"},
                                                      {0x10, "oldNEW"}, {0x22, "oldNEW"}};
    for (const auto &[mode, content] : modes) {
        put("/userdata/file", "old");
        FileHandle file = nullptr;
        EXPECT_EQ(sd_open(&file, "file", mode), 0u);
        uint32_t done = 0;
        f_write(&file, "NEW", 3, &done);
        f_close(&file);
        EXPECT_EQ(contentOf("/userdata/file"), content) << "mode " << mode;
    }
}

TEST_F(Fatfs, OpeningWithoutTheCreateAlwaysBitFailsAsTheOpenDoes)
{
    fs::remove(kDirectory);
    for (const uint32_t mode : {1u, 4u, 6u, 0x10u, 0x20u}) {
        FileHandle file = untouchedHandle();
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(sd_open(&file, "file", mode), 4u) << mode; }),
                  "open file /userdata/file error\n");
        EXPECT_EQ(file, nullptr);
    }
    for (const uint32_t mode : {0u, 2u}) {
        FileHandle file = untouchedHandle();
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(sd_open(&file, "file", mode), 19u) << mode; }), "");
        EXPECT_EQ(file, untouchedHandle());
    }
}

TEST_F(Fatfs, ACreationThatFailsEndsInTheWrongModeAfterOneMessage)
{
    mountSmall("", MS_RDONLY);
    for (const uint32_t mode : {10u, 8u, 9u, 0x3Fu}) {
        FileHandle file = untouchedHandle();
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(sd_open(&file, "file", mode), 19u) << mode; }),
                  "open file /userdata/file error\n");
        EXPECT_EQ(file, nullptr);
    }
}

TEST_F(Fatfs, UnlinksInTheSettingsDirectory)
{
    put("/userdata/file", "abc");
    EXPECT_EQ(printedBy([] {
                  EXPECT_EQ(sd_unlink("file"), 0u);
                  EXPECT_EQ(sd_unlink("file"), 4u);
              }),
              "");
    EXPECT_EQ(entriesOf(kDirectory), Names{});
}

// Whole files ------------------------------------------------------------------------------------

TEST_F(Fatfs, TellsTheSizeOfAFileAndZeroForOneThatIsNotThere)
{
    put("/userdata/file", std::string(12345, 'x'));
    put("/userdata/empty", "");
    EXPECT_EQ(printedBy([] {
                  EXPECT_EQ(sd_getFileSize("file"), 12345u);
                  EXPECT_EQ(sd_getFileSize("empty"), 0u);
              }),
              "");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(sd_getFileSize("absent"), 0u); }),
              "open file /userdata/absent error\n");
    EXPECT_EQ(entriesOf(kDirectory), (Names{"empty", "file"}));
}

TEST_F(Fatfs, ReadingAnAbsentFileLeavesTheBufferAlone)
{
    char text[] = "12345678";
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(sd_readFile("absent", text, 8), 0u); }),
              "open file /userdata/absent error\n");
    EXPECT_STREQ(text, "12345678");
    EXPECT_FALSE(isThere("/userdata/absent"));
}

TEST_F(Fatfs, ReadingReturnsTheLengthOfTheFile)
{
    put("/userdata/file", std::string("a\0c", 3));
    char text[] = "123";
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(sd_readFile("file", text, 3), 3u); }), "");
    EXPECT_EQ(std::string(text, 3), std::string("a\0c", 3));
}

TEST_F(Fatfs, AFileShorterThanTheBufferFillsOnlyItsOwnLength)
{
    put("/userdata/file", "abc");
    char text[] = "12345678";
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(sd_readFile("file", text, 8), 3u); }), "");
    EXPECT_STREQ(text, "abc45678");
    put("/userdata/file", "");
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(sd_readFile("file", text, 8), 0u); }), "");
    EXPECT_STREQ(text, "abc45678");
}

// The returned length is the file's all the same.
TEST_F(Fatfs, AFileLongerThanTheBufferFillsItAndNothingBehindIt)
{
    put("/userdata/file", "abcdefgh");
    char text[] = "12345678";
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(sd_readFile("file", text, 5), 8u); }),
              "read file file size error: fileSize=8, readSize=5\r\n");
    EXPECT_STREQ(text, "abcde678");
}

TEST_F(Fatfs, AShortReadOfAWholeFileSaysSoAndStillReturnsTheSize)
{
    put("/userdata/UserPref.sav", "abcdefgh");
    char text[] = "12345678";
    std::string printed;
    countsTransfers = true;
    readAtMost = 3;
    {
        Console console;
        EXPECT_EQ(sd_readFile("UserPref.sav", text, 8), 8u);
        countsTransfers = false; // the console reads, too
        console.end();
        printed = console.out;
    }
    EXPECT_EQ(printed, "read file UserPref.sav size error: fileSize=8, readSize=3\r\n");
    EXPECT_STREQ(text, "abc45678");
}

TEST_F(Fatfs, ADirectoryInThePlaceOfAFileLeavesTheBufferAlone)
{
    fs::create_directory("/userdata/file");
    char text[] = "12345678";
    printedBy([&] { sd_readFile("file", text, 8); });
    EXPECT_STREQ(text, "12345678");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(sd_writeFile("file", "abc", 3), 0); }),
              "open file /userdata/file error\nopen file file fail\r\n");
    EXPECT_TRUE(fs::is_directory("/userdata/file"));
}

TEST_F(Fatfs, WritingReturnsOneAndReplacesTheFile)
{
    EXPECT_EQ(printedBy([] {
                  EXPECT_EQ(sd_writeFile("file", "abcdefgh", 8), 1);
                  EXPECT_EQ(contentOf("/userdata/file"), "abcdefgh");
                  EXPECT_EQ(sd_writeFile("file", "xyz", 3), 1);
                  EXPECT_EQ(contentOf("/userdata/file"), "xyz");
                  EXPECT_EQ(sd_writeFile("file", "xyz", 0), 1);
                  EXPECT_EQ(contentOf("/userdata/file"), "");
              }),
              "");
}

// There is no second file and no rename: who holds the file open or has a link to it sees the
// change.
TEST_F(Fatfs, WritingTruncatesAndRewritesTheVeryFile)
{
    put("/userdata/file", "abc");
    fs::create_hard_link("/userdata/file", "/link");
    ASSERT_EQ(sd_writeFile("file", "xyz", 3), 1);
    EXPECT_EQ(contentOf("/link"), "xyz");
    EXPECT_EQ(entriesOf(kDirectory), Names{"file"});
}

TEST_F(Fatfs, WritingIsOneBufferedCallAndReadingAnother)
{
    const std::string bytes(12345, 'x');
    std::string back(12345, '.');
    countsTransfers = true;
    EXPECT_EQ(sd_writeFile("file", bytes.data(), 12345), 1);
    EXPECT_EQ(sd_readFile("file", back.data(), 12345), 12345u);
    countsTransfers = false;
    EXPECT_EQ(writeCounts, (std::vector<size_t>{12345}));
    EXPECT_EQ(readCounts, (std::vector<size_t>{12345}));
    EXPECT_EQ(back, bytes);
}

TEST_F(Fatfs, WritingWhereNothingCanBeOpenedSaysSoTwiceAndReturnsZero)
{
    mountSmall("", MS_RDONLY);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(sd_writeFile("file", "abc", 3), 0); }),
              "open file /userdata/file error\nopen file file fail\r\n");
    umount(kDirectory.c_str());
    fs::remove(kDirectory);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(sd_writeFile("file", "abc", 3), 0); }),
              "open file /userdata/file error\nopen file file fail\r\n");
    EXPECT_FALSE(isThere(kDirectory));
}

// The buffered bytes are lost when the stream is closed (20), or at the call itself (100,000).
TEST_F(Fatfs, AShortWriteOfAWholeFileIsNotDetected)
{
    mountSmall("size=4096");
    put("/userdata/full", std::string(4096, 'x'));
    const std::string bytes(100'000, 'y');
    EXPECT_EQ(printedBy([&] {
                  EXPECT_EQ(sd_writeFile("file", bytes.data(), 20), 1);
                  EXPECT_EQ(sd_writeFile("file", bytes.data(), 100'000), 1);
              }),
              "");
    EXPECT_EQ(contentOf("/userdata/file"), "");
}

TEST_F(Fatfs, AWholeFileOperationThatFailsDoesNotDisturbTheNext)
{
    printedBy([] {
        char text[8];
        sd_readFile("absent", text, 8);
        sd_writeFile("no/such/directory", "abc", 3);
        sd_getFileSize("absent");
    });
    EXPECT_EQ(printedBy([] {
                  char text[] = "...";
                  EXPECT_EQ(sd_writeFile("file", "abc", 3), 1);
                  EXPECT_EQ(sd_getFileSize("file"), 3u);
                  EXPECT_EQ(sd_readFile("file", text, 3), 3u);
                  EXPECT_STREQ(text, "abc");
              }),
              "");
}

// Names that are too long ------------------------------------------------------------------------

// 10 characters of "/userdata/" and 245 more are 255, and a zero behind them.
TEST_F(Fatfs, APathOf255CharactersIsUsedInFull)
{
    const std::string name(245, 'n');
    char text[] = "...";
    EXPECT_EQ(printedBy([&] {
                  EXPECT_EQ(sd_writeFile(name.c_str(), "abc", 3), 1);
                  EXPECT_EQ(entriesOf(kDirectory), Names{name});
                  EXPECT_EQ(sd_getFileSize(name.c_str()), 3u);
                  EXPECT_EQ(sd_readFile(name.c_str(), text, 3), 3u);
                  EXPECT_STREQ(text, "abc");
                  EXPECT_EQ(sd_unlink(name.c_str()), 0u);
              }),
              "");
    EXPECT_EQ(entriesOf(kDirectory), Names{});
}

TEST_F(Fatfs, APathOf256CharactersNamesNoFile)
{
    // What a path cut off at its end would name.
    const std::string cut(245, 'n');
    put(kDirectory + cut, "cut");
    for (const size_t length : {246u, 1000u}) {
        const std::string name(length, 'n');
        put(kDirectory + name, "abc"); // there, as far as a file can have such a name
        FileHandle file = untouchedHandle();
        char text[] = "...";
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(sd_open(&file, name.c_str(), 1), 4u); }),
                  "open file  error\n");
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(sd_open(&file, name.c_str(), 10), 19u); }),
                  "open file  error\n");
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(sd_getFileSize(name.c_str()), 0u); }),
                  "open file  error\n");
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(sd_readFile(name.c_str(), text, 3), 0u); }),
                  "open file  error\n");
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(sd_writeFile(name.c_str(), "xyz", 3), 0); }),
                  "open file  error\nopen file " + name + " fail\r\n");
        EXPECT_EQ(sd_unlink(name.c_str()), 4u);
        EXPECT_STREQ(text, "...");
    }
    EXPECT_EQ(contentOf(kDirectory + cut), "cut");
    EXPECT_EQ(contentOf(kDirectory + std::string(246, 'n')), "abc");
}

// Making directories -----------------------------------------------------------------------------

using Mkdirs = std::vector<MkdirCall>;

TEST_F(Fatfs, AnExistingDirectoryIsNotMadeAgain)
{
    EXPECT_EQ(printedBy([] { EXPECT_EQ(CreateDir("/userdata/"), 0); }), "");
    EXPECT_EQ(mkdirCalls, Mkdirs{});
}

TEST_F(Fatfs, MakesEveryMissingDirectoryFromTheLeft)
{
    EXPECT_EQ(printedBy([] { EXPECT_EQ(CreateDir("/userdata/a/b/c/"), 0); }), "");
    EXPECT_EQ(mkdirCalls,
              (Mkdirs{{"/userdata/a", 0755}, {"/userdata/a/b", 0755}, {"/userdata/a/b/c", 0755}}));
    EXPECT_EQ(fs::status("/userdata/a/b/c").permissions(), fs::perms{0755});
}

TEST_F(Fatfs, APathWithoutASlashAtItsEndLeavesItsLastPartAlone)
{
    EXPECT_EQ(CreateDir("/userdata/a/b"), 0);
    EXPECT_EQ(mkdirCalls, (Mkdirs{{"/userdata/a", 0755}}));
    EXPECT_EQ(CreateDir("/other"), 0);
    EXPECT_EQ(CreateDir("other"), 0);
    EXPECT_EQ(CreateDir("/"), 0);
    EXPECT_EQ(CreateDir(""), 0);
    EXPECT_EQ(mkdirCalls.size(), 1u);
}

TEST_F(Fatfs, MakesDirectoriesOfARelativePath)
{
    fs::current_path(kDirectory);
    EXPECT_EQ(CreateDir("a/b/"), 0);
    EXPECT_EQ(mkdirCalls, (Mkdirs{{"a", 0755}, {"a/b", 0755}}));
    EXPECT_TRUE(fs::is_directory("/userdata/a/b"));
}

TEST_F(Fatfs, TheFirstDirectoryThatCannotBeMadeEndsIt)
{
    mkdirFails = true;
    EXPECT_EQ(printedBy([] { EXPECT_EQ(CreateDir("/userdata/a/b/c/"), -1); }), "mkdir   error\n");
    EXPECT_EQ(mkdirCalls, (Mkdirs{{"/userdata/a", 0755}}));
}

TEST_F(Fatfs, NoDirectoryIsMadeWhereTheFileSystemForbidsItOrBelowAFile)
{
    put("/userdata/file", "abc");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(CreateDir("/userdata/file/a/"), -1); }), "mkdir   error\n");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(CreateDir("/userdata/file/"), 0); }), "");
    EXPECT_EQ(contentOf("/userdata/file"), "abc");
    mountSmall("", MS_RDONLY);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(CreateDir("/userdata/a/"), -1); }), "mkdir   error\n");
}

TEST_F(Fatfs, APathOf256CharactersMakesNoDirectoryAndOneOf255Does)
{
    const std::string parent = "/userdata/" + std::string(100, 'a') + '/';
    const std::string longest = parent + std::string(254 - parent.size(), 'b') + '/';
    ASSERT_EQ(longest.size(), 255u);
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(CreateDir((longest + "/").c_str()), -1); }), "");
    EXPECT_EQ(mkdirCalls, Mkdirs{});
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(CreateDir(longest.c_str()), 0); }), "");
    EXPECT_TRUE(fs::is_directory(longest));
}

TEST_F(Fatfs, InitialisingMakesTheSettingsDirectory)
{
    fs::remove(kDirectory);
    EXPECT_EQ(printedBy([] { EXPECT_EQ(MX_FATFS_Init(), 0); }), "");
    EXPECT_EQ(mkdirCalls, (Mkdirs{{"/userdata", 0755}}));
    EXPECT_TRUE(fs::is_directory("/userdata"));
    EXPECT_EQ(MX_FATFS_Init(), 0);
    EXPECT_EQ(mkdirCalls.size(), 1u);
}

TEST_F(Fatfs, InitialisingTellsThatTheSettingsDirectoryCannotBeMade)
{
    fs::remove(kDirectory);
    mkdirFails = true;
    EXPECT_EQ(printedBy([] { EXPECT_EQ(MX_FATFS_Init(), -1); }), "mkdir   error\n");
}

// Joining paths ----------------------------------------------------------------------------------

TEST_F(Fatfs, JoinsADirectoryAndANameWithExactlyOneSlash)
{
    const struct {
        const char *directory;
        const char *name;
        const char *path;
    } cases[] = {
        {"/userdata", "file", "/userdata/file"},
        {"/userdata/", "file", "/userdata/file"},
        {"/", "file", "/file"},
        {"a", "b", "a/b"},
        {"", "file", "/file"},
        {"/userdata", "", "/userdata/"},
        {"/userdata//", "/file", "/userdata///file"},
    };
    for (const auto &it : cases) {
        char path[kPathSize];
        EXPECT_EQ(Getfilepath(it.directory, it.name, path), path);
        EXPECT_STREQ(path, it.path);
    }
}

TEST_F(Fatfs, AJoinedPathThatDoesNotFitIsEmpty)
{
    static_assert(kPathSize == 256);
    const std::string directory(100, 'd');
    char path[kPathSize];
    Getfilepath(directory.c_str(), std::string(154, 'n').c_str(), path);
    EXPECT_EQ(path, directory + '/' + std::string(154, 'n'));
    Getfilepath(directory.c_str(), std::string(155, 'n').c_str(), path);
    EXPECT_STREQ(path, "");
    Getfilepath((directory + '/').c_str(), std::string(154, 'n').c_str(), path);
    EXPECT_EQ(path, directory + '/' + std::string(154, 'n'));
    Getfilepath((directory + '/').c_str(), std::string(155, 'n').c_str(), path);
    EXPECT_STREQ(path, "");
}

// Deleting ---------------------------------------------------------------------------------------

TEST_F(Fatfs, DeletesARegularFile)
{
    put("/userdata/file", "abc");
    put("/userdata/other", "abc");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(DeleteFile("/userdata/file"), 0); }), "");
    EXPECT_EQ(entriesOf(kDirectory), Names{"other"});
}

TEST_F(Fatfs, DeletingWhatIsNotThereIsNoFailure)
{
    EXPECT_EQ(printedBy([] {
                  EXPECT_EQ(DeleteFile("/userdata/absent"), 0);
                  EXPECT_EQ(DeleteFile(""), 0);
              }),
              "");
}

TEST_F(Fatfs, EmptiesADirectoryAndKeepsIt)
{
    put("/userdata/a", "abc");
    put("/userdata/.hidden", "abc");
    put("/userdata/..two", "abc");
    put("/userdata/...", "abc");
    fs::create_directories("/userdata/d/e/f");
    put("/userdata/d/x", "abc");
    put("/userdata/d/e/y", "abc");
    fs::create_directory("/userdata/empty");
    put("/outside", "abc");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(DeleteFile("/userdata"), 0); }), "");
    EXPECT_TRUE(fs::is_directory("/userdata"));
    EXPECT_EQ(entriesOf(kDirectory), Names{});
    EXPECT_EQ(contentOf("/outside"), "abc");
}

TEST_F(Fatfs, EmptiesADirectoryOfVeryManyFiles)
{
    for (int i = 0; i < 2000; ++i) {
        put(kDirectory + "file" + std::to_string(i), "");
    }
    EXPECT_EQ(DeleteFile("/userdata/"), 0);
    EXPECT_EQ(entriesOf(kDirectory), Names{});
}

TEST_F(Fatfs, LeavesLinksAndWhatTheyPointTo)
{
    fs::create_directory("/outside");
    put("/outside/file", "abc");
    fs::create_symlink("/outside/file", "/userdata/toFile");
    fs::create_directory_symlink("/outside", "/userdata/toDirectory");
    fs::create_symlink("/nowhere", "/userdata/toNowhere");
    put("/userdata/file", "abc");
    EXPECT_EQ(DeleteFile("/userdata"), 0);
    EXPECT_EQ(entriesOf(kDirectory), (Names{"toDirectory", "toFile", "toNowhere"}));
    EXPECT_EQ(contentOf("/outside/file"), "abc");

    EXPECT_EQ(DeleteFile("/userdata/toDirectory"), 0);
    EXPECT_EQ(DeleteFile("/userdata/toFile"), 0);
    EXPECT_TRUE(isThere("/userdata/toDirectory"));
    EXPECT_TRUE(isThere("/userdata/toFile"));
    EXPECT_EQ(contentOf("/outside/file"), "abc");
}

TEST_F(Fatfs, LeavesDevicesAndTheDirectoriesAroundThem)
{
    fs::create_directory("/userdata/d");
    ASSERT_EQ(mkfifo("/userdata/d/fifo", 0644), 0);
    ASSERT_EQ(mknod("/userdata/device", S_IFCHR | 0644, 0), 0); // the one that anybody may make
    put("/userdata/d/file", "abc");
    EXPECT_EQ(DeleteFile("/userdata"), 0);
    EXPECT_EQ(entriesOf(kDirectory), (Names{"d", "device"}));
    EXPECT_EQ(entriesOf("/userdata/d"), Names{"fifo"});
}

TEST_F(Fatfs, ADirectoryThatCannotBeOpenedIsOne)
{
    put("/userdata/file", "abc");
    unopenable = "/userdata";
    EXPECT_EQ(printedBy([] { EXPECT_EQ(DeleteFile("/userdata"), 1); }), "");
    EXPECT_EQ(contentOf("/userdata/file"), "abc");
}

TEST_F(Fatfs, ASubDirectoryThatCannotBeOpenedStaysAndTheRestGoes)
{
    fs::create_directory("/userdata/a");
    fs::create_directory("/userdata/b");
    fs::create_directory("/userdata/c");
    for (const char *const path : {"/userdata/a/file", "/userdata/b/file", "/userdata/c/file"}) {
        put(path, "abc");
    }
    unopenable = "/userdata/b";
    EXPECT_EQ(DeleteFile("/userdata"), 0);
    EXPECT_EQ(entriesOf(kDirectory), Names{"b"});
    EXPECT_EQ(contentOf("/userdata/b/file"), "abc");
}

TEST_F(Fatfs, WhatCannotBeLookedAtIsTakenForNeitherFileNorDirectory)
{
    put("/userdata/file", "abc");
    put("/userdata/other", "abc");
    unseeable = "/userdata/file";
    EXPECT_EQ(DeleteFile("/userdata"), 0);
    EXPECT_EQ(entriesOf(kDirectory), Names{"file"});
    EXPECT_EQ(DeleteFile("/userdata/file"), 0);
    unseeable = "/userdata";
    EXPECT_EQ(DeleteFile("/userdata"), 0);
    EXPECT_EQ(entriesOf(kDirectory), Names{"file"});
}

// Every entry is also tried as an empty directory, whatever looking at it has said.
TEST_F(Fatfs, AnEmptyDirectoryThatCannotBeLookedAtIsRemoved)
{
    fs::create_directory("/userdata/d");
    unseeable = "/userdata/d";
    EXPECT_EQ(DeleteFile("/userdata"), 0);
    EXPECT_EQ(entriesOf(kDirectory), Names{});
}

TEST_F(Fatfs, DeletesWhatAPathOf255CharactersNamesAndNotWhatTakesOneMore)
{
    const std::string directory = "/userdata/" + std::string(100, 'd');
    fs::create_directory(directory);
    const std::string longest = directory + '/' + std::string(254 - directory.size(), 'f');
    ASSERT_EQ(longest.size(), 255u);
    put(longest, "abc");
    put(longest + 'g', "abc");
    put(directory + "/short", "abc");
    EXPECT_EQ(DeleteFile("/userdata"), 0);
    EXPECT_FALSE(isThere(longest));
    EXPECT_EQ(entriesOf(kDirectory), Names{std::string(100, 'd')});
    EXPECT_EQ(entriesOf(directory), Names{fs::path(longest + 'g').filename()});
    EXPECT_EQ(contentOf(longest + 'g'), "abc");
}

// Where a path ends, nothing else may be taken for what it does not reach.
TEST_F(Fatfs, DirectoriesTooDeepForAPathStayAndNothingElseIsHarmed)
{
    const std::string name(80, 'd');
    std::string deep = "/userdata";
    for (int depth = 0; depth < 10; ++depth) {
        deep += '/' + name;
    }
    fs::create_directories(deep);
    put(deep + "/file", "abc");
    put("/userdata/" + name + "/file", "abc");
    fs::create_directory("/elsewhere");
    put("/elsewhere/file", "abc");
    fs::current_path("/elsewhere");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(DeleteFile("/userdata"), 0); }), "");
    EXPECT_EQ(contentOf(deep + "/file"), "abc");
    EXPECT_EQ(entriesOf("/userdata/" + name), Names{name});
    EXPECT_EQ(contentOf("/elsewhere/file"), "abc");
}

TEST_F(Fatfs, EmptiesAsManyDirectoriesInEachOtherAsAPathCanName)
{
    std::string deep = "/userdata";
    while (deep.size() + 2 <= 255) {
        deep += "/d";
    }
    fs::create_directories(deep);
    EXPECT_EQ(DeleteFile("/userdata"), 0);
    EXPECT_EQ(entriesOf(kDirectory), Names{});
}

TEST_F(Fatfs, AFullWipeEmptiesTheSettingsDirectoryAndKeepsIt)
{
    put("/userdata/UserPref.sav", "abc");
    fs::create_directories("/userdata/d/e");
    put("/userdata/d/e/file", "abc");
    EXPECT_EQ(printedBy([] { EXPECT_EQ(sd_mkfs(), 0); }), "");
    EXPECT_TRUE(fs::is_directory("/userdata"));
    EXPECT_EQ(entriesOf(kDirectory), Names{});
    unopenable = "/userdata/";
    EXPECT_EQ(sd_mkfs(), 1);
}

} // namespace
