// The file store on a real file system: every mode, result and message, and every refusal.

#include "storage/fatfs.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "storage/wipe.h"
#include "tests/support/files.h"
#include "tests/support/outcome.h"
#include "tests/support/replace.h"

namespace fs = std::filesystem;

namespace {

// Real calls that are counted and can be made to fail.
using Mkdirs = std::vector<std::pair<std::string, mode_t>>;
Mkdirs mkdirCalls;
bool mkdirFails = false;

std::string unopenable; // the directory that opendir() refuses
std::string unseeable;  // the path that lstat() refuses

std::vector<std::pair<char, size_t>> transfers; // 'r' or 'w' and the bytes asked for
bool countsTransfers = false;                   // the console makes some, too
size_t readAtMost = SIZE_MAX;                   // bytes that an fread() gets

int failWith(int error)
{
    errno = error;
    return -1;
}

} // namespace

REPLACE(int, mkdir, (const char *path, mode_t mode))
{
    mkdirCalls.emplace_back(path, mode);
    return mkdirFails ? failWith(EIO) : REAL(mkdir)(path, mode);
}

REPLACE(DIR *, opendir, (const char *path))
{
    if (path == unopenable) {
        errno = EACCES;
        return nullptr;
    }
    return REAL(opendir)(path);
}

REPLACE(int, lstat64, (const char *path, struct stat *status))
{
    return path == unseeable ? failWith(EIO) : fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}
extern "C" int __wrap___lstat64_time64(const char *path, struct stat *status)
    __attribute__((alias("__wrap_lstat64")));

REPLACE(size_t, fread, (void *buffer, size_t size, size_t count, std::FILE *stream))
{
    if (!countsTransfers) {
        return REAL(fread)(buffer, size, count, stream);
    }
    transfers.emplace_back('r', size * count);
    return REAL(fread)(buffer, 1, std::min(size * count, readAtMost), stream) / size;
}

REPLACE(size_t, fwrite, (const void *buffer, size_t size, size_t count, std::FILE *stream))
{
    if (countsTransfers) {
        transfers.emplace_back('w', size * count);
    }
    return REAL(fwrite)(buffer, size, count, stream);
}

namespace {

const std::string kDirectory = "/userdata/";
const std::string kFile = "/userdata/file";
const std::string kOpenError = "open file /userdata/file error\n";

using Names = std::set<std::string>;

// Without following a link at its end.
bool isThere(const std::string &path)
{
    return fs::symlink_status(path).type() != fs::file_type::not_found;
}

size_t openFiles()
{
    return entriesOf("/proc/self/fd").size();
}

// No file of ours: an operation that leaves the handle alone leaves this.
const FileHandle kUntouched = stdin;

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

    // Opens the file, which must succeed silently.
    static FileHandle opened(uint32_t mode)
    {
        FileHandle file = nullptr;
        EXPECT_EQ(outcomeOf(f_open, &file, kFile.c_str(), mode), Outcome(0, ""));
        return file;
    }

    size_t openAtStart;
};

// A file that holds "old" is opened and "NEW" is written: which bit decided shows in what is there
// afterwards. Modes are the bits 1, 2, 4, 8, 0x10 and 0x20.
TEST_F(Fatfs, CreateBitsComeBeforeTheReadBitAndThatBeforeTheAppendBits)
{
    for (uint32_t mode = 0; mode < 0x40; ++mode) {
        const bool isRead = (mode & 0x0C) == 0 && (mode & 1) != 0;
        const bool isNothing = (mode & 0x3D) == 0;
        const std::string content = (mode & 0x0C) != 0    ? "NEW"
                                    : isRead || isNothing ? "old"
                                                          : "oldNEW";
        for (const bool isFullPath : {true, false}) {
            SCOPED_TRACE((isFullPath ? "f_open " : "sd_open ") + std::to_string(mode));
            const auto open = [&](FileHandle *file) {
                return isFullPath ? outcomeOf(f_open, file, kFile.c_str(), mode)
                                  : outcomeOf(sd_open, file, "file", mode);
            };
            writeFile(kFile, "old");
            FileHandle file = nullptr;
            EXPECT_EQ(open(&file), Outcome(isNothing ? 19 : 0, ""));
            uint32_t done = 0;
            f_write(&file, "NEW", 3, &done);
            if (!isNothing) { // programs that are started do not inherit the file
                EXPECT_EQ(fcntl(fileno(file), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
            }
            EXPECT_EQ(f_close(&file), isNothing ? 4u : 0u);
            EXPECT_EQ(f_close(&file), 4u); // the handle is empty now
            EXPECT_EQ(contentOf(kFile), content);
            fs::remove(kFile);
            // A file that is not there is made, but not for reading.
            file = kUntouched;
            EXPECT_EQ(open(&file), isNothing ? Outcome(19, "")
                                   : isRead  ? Outcome(4, kOpenError)
                                             : Outcome(0, ""));
            EXPECT_EQ(isThere(kFile), !isRead && !isNothing);
            EXPECT_EQ(file == kUntouched, isNothing);
            if (!isNothing) {
                EXPECT_EQ(f_close(&file), isRead ? 4u : 0u);
            }
        }
    }
}

// In the settings directory, a creation that fails ends in the wrong mode after one message.
TEST_F(Fatfs, OpenThatFailsPrintsAMessageAndClearsTheHandle)
{
    EXPECT_STREQ(USERPath, "/userdata/");
    mountSmall("", MS_RDONLY);
    for (const bool isReadOnly : {true, false}) {
        for (const uint32_t mode : {10u, 8u, 9u, 0x3Fu, 1u, 4u, 6u, 0x10u, 0x20u}) {
            SCOPED_TRACE(mode);
            const uint32_t result = (mode & 8) != 0 ? 19 : 4;
            FileHandle file = kUntouched;
            EXPECT_EQ(outcomeOf(sd_open, &file, "file", mode), Outcome(result, kOpenError));
            EXPECT_EQ(file, nullptr);
            file = kUntouched;
            EXPECT_EQ(outcomeOf(f_open, &file, kFile.c_str(), mode), Outcome(4, kOpenError));
            EXPECT_EQ(file, nullptr);
        }
        EXPECT_EQ(outcomeOf(sd_writeFile, "file", "abc", 3u),
                  Outcome(0, kOpenError + "open file file fail\r\n"));
        if (isReadOnly) {
            umount(kDirectory.c_str());
            fs::remove(kDirectory);
        }
    }
    EXPECT_FALSE(isThere(kDirectory));
}

TEST_F(Fatfs, UnlinkingReturnsWhetherTheFileIsGone)
{
    writeFile(kFile, "abc");
    fs::create_directory("/userdata/empty");
    const auto expectUnlinked = [](auto unlink, const char *path, uint32_t result, Names left) {
        EXPECT_EQ(outcomeOf(unlink, path), Outcome(result, ""));
        EXPECT_EQ(entriesOf(kDirectory), left) << path;
    };
    expectUnlinked(f_unlink, "/userdata", 4, {"file", "empty"}); // which is not empty
    expectUnlinked(f_unlink, "/userdata/file", 0, {"empty"});
    expectUnlinked(f_unlink, "/userdata/file", 4, {"empty"});
    expectUnlinked(f_unlink, "", 4, {"empty"});
    expectUnlinked(f_unlink, "/userdata/empty", 0, {});
    writeFile(kFile, "abc");
    expectUnlinked(sd_unlink, "file", 0, {});
    expectUnlinked(sd_unlink, "file", 4, {});
}

// Size, reading and writing of an open file ------------------------------------------------------

TEST_F(Fatfs, MeasuringRewindsTheFileAndCountsWhatHasJustBeenWritten)
{
    FileHandle file = opened(6);
    EXPECT_EQ(f_size(&file), 0u);
    uint32_t done = 0;
    f_write(&file, "abcdef", 6, &done);
    EXPECT_EQ(f_size(&file), 6u);
    f_write(&file, "XY", 2, &done);
    f_close(&file);
    file = opened(1);
    char text[5] = "....";
    f_read(&file, text, 3, &done);
    EXPECT_EQ(f_size(&file), 6u);
    f_read(&file, text, 4, &done);
    EXPECT_STREQ(text, "XYcd");
    f_close(&file);
    EXPECT_EQ(f_size(&file), 0u); // closed
}

TEST_F(Fatfs, SizesGoBeyondTwoGigabytesAndAreZeroForAFileThatHasNone)
{
    writeFile(kFile, "");
    fs::resize_file(kFile, 3'000'000'000); // takes no room
    FileHandle file = opened(1);
    EXPECT_EQ(f_size(&file), 3'000'000'000u);
    f_close(&file);
    EXPECT_EQ(sd_getFileSize("file"), 3'000'000'000u);
    char text[] = "12345";
    EXPECT_EQ(outcomeOf(sd_readFile, "file", text, 4u),
              Outcome(3'000'000'000u,
                      "read file file size error: fileSize=-1294967296, readSize=4\r\n")); // signed
    EXPECT_EQ(std::string(text, 5), std::string("\0\0\0\0005", 5));
    fs::resize_file(kFile, (uint64_t{1} << 32) + 7);
    EXPECT_EQ(sd_getFileSize("file"), 7u);
    fs::remove(kFile);
    ASSERT_EQ(mkfifo(kFile.c_str(), 0644), 0);
    const int bothEnds = open(kFile.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(sd_getFileSize("file"), 0u); // no file
    close(bothEnds);
}

TEST_F(Fatfs, ShortTransfersAreNoFailureAndAClosedHandleIsOne)
{
    FileHandle file = nullptr;
    char text[] = "12345678";
    const auto expectTransfer = [&](auto transfer, uint32_t result, uint32_t count,
                                    const char *after) {
        uint32_t done = 77;
        EXPECT_EQ(transfer(&file, text, 8, &done), result);
        EXPECT_EQ(done, count);
        EXPECT_STREQ(text, after);
    };
    expectTransfer(f_read, 4, 77, "12345678");
    expectTransfer(f_write, 4, 77, "12345678");
    writeFile(kFile, "abc");
    file = opened(1);
    expectTransfer(f_read, 0, 3, "abc45678");
    expectTransfer(f_read, 0, 0, "abc45678");
    expectTransfer(f_write, 0, 0, "abc45678"); // open for reading
    f_close(&file);
    file = opened(0x20);
    expectTransfer(f_read, 0, 0, "abc45678"); // open for writing
    f_close(&file);
    EXPECT_EQ(contentOf(kFile), "abc");
}

// The buffered bytes are lost when the stream is closed (20), or at the call itself (100,000).
TEST_F(Fatfs, AShortWriteOfAWholeFileIsNotDetected)
{
    mountSmall("size=4096");
    const std::string bytes(100'000, 'y');
    FileHandle file = opened(6);
    uint32_t done = 100'000;
    EXPECT_EQ(f_write(&file, bytes.data(), 100'000, &done), 0u);
    EXPECT_LT(done, 100'000u);
    f_close(&file);
    fs::remove(kFile);
    writeFile("/userdata/full", std::string(4096, 'x'));
    for (const uint32_t length : {20u, 100'000u}) { // no page is left for a new file
        EXPECT_EQ(outcomeOf(sd_writeFile, "file", bytes.data(), length), Outcome(1, ""));
        EXPECT_EQ(contentOf(kFile), "") << length;
    }
}

TEST_F(Fatfs, ATransferIsOneBufferedCall)
{
    std::string bytes(12345, 'x');
    uint32_t done = 0;
    countsTransfers = true;
    FileHandle file = nullptr;
    f_open(&file, kFile.c_str(), 6);
    f_write(&file, bytes.data(), 5000, &done);
    f_close(&file);
    f_open(&file, kFile.c_str(), 1);
    f_read(&file, bytes.data(), 4000, &done);
    f_close(&file);
    EXPECT_EQ(sd_writeFile("file", bytes.data(), 12345), 1);
    EXPECT_EQ(sd_readFile("file", bytes.data(), 12345), 12345u);
    countsTransfers = false;
    EXPECT_EQ(transfers,
              (std::vector<std::pair<char, size_t>>{{'w', 5000}, {'r', 4000}, {'r', 12345}}));
    EXPECT_EQ(bytes, std::string(12345, 'x'));
}

TEST_F(Fatfs, NumberedFilesAreNamedByKindAndNumber)
{
    EXPECT_STREQ(numberedFile("save", 0).text, "save0.sav");
    EXPECT_STREQ(numberedFile("save", 12).text, "save12.sav");
    EXPECT_STREQ(numberedFile("sixteen letters!", INT32_MIN).text,
                 "sixteen letters!-2147483648.sav");
}

// The returned length is the file's, whatever fits; a message appears when the two differ.
TEST_F(Fatfs, ReadingFillsTheBufferAtMostAndReturnsTheLengthOfTheFile)
{
    const std::string full("a\0cdefgh", 8);
    const std::string error = "read file file size error: fileSize=8, readSize=";
    const struct {
        const char *name;
        std::string content;
        uint32_t capacity;
        size_t readAtMost;
        std::string buffer, printed; // the buffer held "12345678"
    } rows[] = {
        {"as long as the buffer", full, 8, 100, full, ""},
        {"shorter", "abc", 8, 100, "abc45678", ""},
        {"empty", "", 8, 100, "12345678", ""},
        {"nothing after the buffer changes", "abcdefgh", 5, 100, "abcde678", error + "5\r\n"},
        {"a short read", "abcdefgh", 8, 3, "abc45678", error + "3\r\n"},
    };
    for (const auto &row : rows) {
        writeFile(kFile, row.content);
        std::string buffer = "12345678";
        readAtMost = row.readAtMost;
        const auto read = [&] {
            countsTransfers = true;
            const uint32_t size = sd_readFile("file", buffer.data(), row.capacity);
            countsTransfers = false;
            return size;
        };
        const size_t size = row.content.size();
        EXPECT_EQ(outcomeOf(read), Outcome(size, row.printed)) << row.name;
        EXPECT_EQ(buffer, row.buffer) << row.name;
        EXPECT_EQ(outcomeOf(sd_getFileSize, "file"), Outcome(size, "")) << row.name;
    }
}

TEST_F(Fatfs, AbsentFilesAndDirectoriesLeaveTheBufferAlone)
{
    char text[] = "12345678";
    EXPECT_EQ(outcomeOf(sd_readFile, "file", text, 8u), Outcome(0, kOpenError));
    EXPECT_EQ(outcomeOf(sd_getFileSize, "file"), Outcome(0, kOpenError));
    EXPECT_EQ(entriesOf(kDirectory), Names{});
    fs::create_directory(kFile);
    outcomeOf(sd_readFile, "file", text, 8u);
    EXPECT_STREQ(text, "12345678");
    EXPECT_EQ(outcomeOf(sd_writeFile, "file", "abc", 3u),
              Outcome(0, kOpenError + "open file file fail\r\n"));
    EXPECT_TRUE(fs::is_directory(kFile));
}

// There is no second file and no rename: who holds a link to the file sees the change. A failure
// does not disturb the next operation.
TEST_F(Fatfs, WritingReturnsOneAndRewritesTheVeryFile)
{
    writeFile(kFile, "abc");
    fs::create_hard_link(kFile, "/link");
    for (const std::string content : {"abcdefgh", "xyz", ""}) {
        outcomeOf(sd_writeFile, "no/such/directory", "abc", 3u);
        outcomeOf(sd_getFileSize, "absent");
        const auto length = static_cast<uint32_t>(content.size());
        EXPECT_EQ(outcomeOf(sd_writeFile, "file", content.data(), length), Outcome(1, ""));
        EXPECT_EQ(contentOf("/link"), content);
        EXPECT_EQ(entriesOf(kDirectory), Names{"file"});
    }
}

// "/userdata/" has 10 characters, and a zero is after the path.
TEST_F(Fatfs, APathOf255CharactersIsUsedInFullAndALongerOneNamesNoFile)
{
    const std::string text(245, 'n');
    const char *const name = text.c_str();
    char buffer[] = "...";
    EXPECT_EQ(outcomeOf(sd_writeFile, name, "abc", 3u), Outcome(1, ""));
    EXPECT_EQ(entriesOf(kDirectory), Names{text});
    EXPECT_EQ(outcomeOf(sd_getFileSize, name), Outcome(3, ""));
    EXPECT_EQ(outcomeOf(sd_readFile, name, buffer, 3u), Outcome(3, ""));
    const std::string error = "open file  error\n";
    for (const size_t length : {246u, 1000u}) {
        SCOPED_TRACE(length);
        const std::string longText(length, 'n'); // the name above is what it would be if it was cut
        const char *const longName = longText.c_str();
        writeFile(kDirectory + longText, "xyz"); // there, as far as a file can have such a name
        FileHandle file = kUntouched;
        EXPECT_EQ(outcomeOf(sd_open, &file, longName, 1u), Outcome(4, error));
        EXPECT_EQ(outcomeOf(sd_open, &file, longName, 10u), Outcome(19, error));
        EXPECT_EQ(outcomeOf(sd_getFileSize, longName), Outcome(0, error));
        EXPECT_EQ(outcomeOf(sd_readFile, longName, buffer, 3u), Outcome(0, error));
        EXPECT_EQ(outcomeOf(sd_writeFile, longName, "123", 3u),
                  Outcome(0, error + "open file " + longText + " fail\r\n"));
        EXPECT_EQ(sd_unlink(longName), 4u);
        EXPECT_STREQ(buffer, "abc");
    }
    EXPECT_EQ(contentOf(kDirectory + std::string(246, 'n')), "xyz");
    EXPECT_EQ(contentOf(kDirectory + text), "abc");
    EXPECT_EQ(outcomeOf(sd_unlink, name), Outcome(0, ""));
    EXPECT_FALSE(isThere(kDirectory + text));
}

TEST_F(Fatfs, MakesEveryMissingDirectoryThatASlashFollowsFromTheLeft)
{
    writeFile(kFile, "abc");
    fs::current_path(kDirectory);
    const std::string parent = "/userdata/" + std::string(100, 'a');
    const std::string longest = parent + '/' + std::string(143, 'b'); // 255 with a slash
    const struct {
        std::string path;
        int32_t result;
        Mkdirs made;
    } rows[] = {
        // clang-format off
        {"/userdata/", 0, {}}, {"/other", 0, {}}, {"other", 0, {}}, {"/", 0, {}}, {"", 0, {}},
        {"/userdata/a/b/c/", 0,
            {{"/userdata/a", 0755}, {"/userdata/a/b", 0755}, {"/userdata/a/b/c", 0755}}},
        {"/userdata/d/e", 0, {{"/userdata/d", 0755}}},
        {"x/y/", 0, {{"x", 0755}, {"x/y", 0755}}}, // in the current directory
        {"/userdata/file/", 0, {}},
        {"/userdata/file/a/b/", -1, {{"/userdata/file/a", 0755}}}, // the first failure ends it
        {longest + "/", 0, {{parent, 0755}, {longest, 0755}}},
        {longest + "//", -1, {}}, // too long, without a message
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.path);
        mkdirCalls.clear();
        const bool isReported = row.result < 0 && !row.made.empty();
        EXPECT_EQ(outcomeOf(CreateDir, row.path.c_str()),
                  Outcome(row.result, isReported ? "mkdir   error\n" : ""));
        EXPECT_EQ(mkdirCalls, row.made);
        for (const auto &[path, mode] : row.made) {
            EXPECT_EQ(fs::is_directory(path), row.result == 0);
        }
    }
    EXPECT_EQ(fs::status("/userdata/a/b/c").permissions(), fs::perms{0755});
    EXPECT_EQ(contentOf(kFile), "abc");
    mountSmall("", MS_RDONLY);
    EXPECT_EQ(outcomeOf(CreateDir, "/userdata/a/"), Outcome(-1, "mkdir   error\n"));
}

TEST_F(Fatfs, InitialisingMakesTheSettingsDirectory)
{
    fs::remove(kDirectory);
    mkdirFails = true;
    EXPECT_EQ(outcomeOf(MX_FATFS_Init), Outcome(-1, "mkdir   error\n"));
    mkdirFails = false;
    for (int start = 0; start < 2; ++start) {
        EXPECT_EQ(outcomeOf(MX_FATFS_Init), Outcome(0, ""));
        EXPECT_TRUE(fs::is_directory("/userdata"));
    }
    EXPECT_EQ(mkdirCalls, (Mkdirs{{"/userdata", 0755}, {"/userdata", 0755}}));
}

TEST_F(Fatfs, JoinsADirectoryAndANameWithASlashUnlessTheDirectoryEndsInOne)
{
    static_assert(kPathSize == 256);
    const std::string d(100, 'd');
    const std::string n(154, 'n'); // with a slash, 255 characters
    const struct {
        std::string directory, name, path;
    } rows[] = {
        // clang-format off
        {"/userdata", "file", "/userdata/file"},     {"/userdata/", "file", "/userdata/file"},
        {"/userdata//", "/file", "/userdata///file"}, {"/userdata", "", "/userdata/"},
        {"/", "file", "/file"}, {"", "file", "/file"}, {"a", "b", "a/b"},
        {d, n, d + '/' + n},    {d + '/', n, d + '/' + n},
        {d, n + 'n', ""},       {d + '/', n + 'n', ""}, // do not fit
        // clang-format on
    };
    for (const auto &row : rows) {
        char path[kPathSize];
        EXPECT_EQ(Getfilepath(row.directory.c_str(), row.name.c_str(), path), path);
        EXPECT_EQ(path, row.path) << row.directory << ' ' << row.name;
    }
}

// Deleting ---------------------------------------------------------------------------------------

// What is left in the settings directory after a deletion without a failure.
Names leftAfterDeleting(const std::string &path)
{
    EXPECT_EQ(outcomeOf(DeleteFile, path.c_str()), Outcome(0, "")) << path;
    return entriesOf(kDirectory);
}

TEST_F(Fatfs, DeletesARegularFileAndAnAbsentOneIsNoFailure)
{
    writeFile(kFile, "abc");
    writeFile("/userdata/other", "abc");
    for (const char *const path : {"/userdata/file", "/userdata/absent", ""}) {
        EXPECT_EQ(leftAfterDeleting(path), Names{"other"}) << path;
    }
}

TEST_F(Fatfs, AFullWipeEmptiesTheSettingsDirectoryAndKeepsIt)
{
    writeFile("/outside", "abc");
    fs::create_directories("/userdata/d/e/f");
    fs::create_directory("/userdata/empty");
    for (const char *const name : {"a", ".hidden", "..two", "...", "d/x", "d/e/y"}) {
        writeFile(kDirectory + name, "abc");
    }
    for (int i = 0; i < 2000; ++i) {
        writeFile(kFile + std::to_string(i), "");
    }
    unopenable = "/userdata/";
    EXPECT_EQ(outcomeOf(sd_mkfs), Outcome(1, ""));
    EXPECT_EQ(entriesOf(kDirectory).size(), 2006u);
    unopenable = "";
    EXPECT_EQ(outcomeOf(sd_mkfs), Outcome(0, ""));
    EXPECT_TRUE(fs::is_directory("/userdata"));
    EXPECT_EQ(entriesOf(kDirectory), Names{});
    EXPECT_EQ(contentOf("/outside"), "abc");
}

TEST_F(Fatfs, LeavesLinksWhatTheyPointToAndDevicesWithTheirDirectories)
{
    fs::create_directory("/outside");
    writeFile("/outside/file", "abc");
    fs::create_symlink("/outside/file", "/userdata/toFile");
    fs::create_directory_symlink("/outside", "/userdata/toDirectory");
    fs::create_symlink("/nowhere", "/userdata/toNowhere");
    fs::create_directory("/userdata/d");
    ASSERT_EQ(mkfifo("/userdata/d/fifo", 0644), 0);
    ASSERT_EQ(mknod("/userdata/device", S_IFCHR | 0644, 0), 0); // the one that anybody may make
    writeFile("/userdata/d/file", "abc");
    const Names left = {"d", "device", "toDirectory", "toFile", "toNowhere"};
    for (const char *const path : {"/userdata", "/userdata/toDirectory", "/userdata/toFile"}) {
        EXPECT_EQ(leftAfterDeleting(path), left) << path;
        EXPECT_EQ(contentOf("/outside/file"), "abc") << path;
    }
    EXPECT_EQ(entriesOf("/userdata/d"), Names{"fifo"});
}

TEST_F(Fatfs, WhatCannotBeOpenedOrLookedAtStaysAndTheRestGoes)
{
    for (const std::string name : {"a", "b", "c"}) {
        fs::create_directory(kDirectory + name);
        writeFile(kDirectory + name + "/file", "abc");
    }
    writeFile(kFile, "abc");
    unopenable = "/userdata/b";
    unseeable = kFile;
    for (const char *const path : {"/userdata", "/userdata/file"}) {
        EXPECT_EQ(leftAfterDeleting(path), (Names{"b", "file"})) << path;
    }
    EXPECT_EQ(contentOf("/userdata/b/file"), "abc");
    unseeable = "/userdata";
    EXPECT_EQ(leftAfterDeleting("/userdata"), (Names{"b", "file"}));
    // Every entry is also tried as an empty directory, whatever looking at it has said.
    fs::create_directory("/userdata/d");
    unseeable = "/userdata/d";
    EXPECT_EQ(leftAfterDeleting("/userdata"), Names{"b"});
}

TEST_F(Fatfs, DeletesWhatAPathOf255CharactersNamesAndNotWhatTakesOneMore)
{
    const std::string directory = "/userdata/" + std::string(100, 'd');
    fs::create_directory(directory);
    const std::string longest = directory + '/' + std::string(144, 'f'); // 255
    for (const std::string &path : {longest, longest + 'g', directory + "/short"}) {
        writeFile(path, "abc");
    }
    EXPECT_EQ(leftAfterDeleting("/userdata"), Names{std::string(100, 'd')});
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
    fs::create_directory("/elsewhere");
    fs::current_path("/elsewhere");
    for (const std::string &path : {deep, "/userdata/" + name, std::string("/elsewhere")}) {
        writeFile(path + "/file", "abc");
    }
    EXPECT_EQ(leftAfterDeleting("/userdata"), Names{name});
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
    EXPECT_EQ(leftAfterDeleting("/userdata"), Names{});
}

} // namespace
