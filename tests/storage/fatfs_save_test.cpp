// Saves as the file system sees them: which calls replace a record, in which order, and what is in
// the file at each of them. A process that is killed, or a board whose power fails, stops between
// two of these calls.

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "control/page.h"
#include "storage/DeviceInfo.h"
#include "storage/TimeControl.h"
#include "storage/UserPref.h"
#include "storage/UserSetting.h"
#include "storage/UserSettingFile.h"
#include "storage/ViewFile.h"
#include "storage/WorkTime.h"
#include "storage/fatfs.h"
#include "tests/support/files.h"
#include "tests/support/outcome.h"
#include "tests/support/replace.h"

namespace fs = std::filesystem;

namespace {

using Calls = std::vector<std::string>;

bool isTraced;       // calls are noted; the console makes some, too
Calls calls;         // what has been called so far
std::string refused; // the call that fails, as it is noted, up to a blank
int refusedWith;     // its error
std::function<void(const std::string &call)> beforeCall;
std::vector<ssize_t> taken; // by the next calls of write(); a negative one is an error

// Notes a call, and returns whether it is to fail.
bool fails(const std::string &call)
{
    if (!isTraced) {
        return false;
    }
    calls.push_back(call);
    if (beforeCall) {
        beforeCall(call);
    }
    if (refused.empty() || call.substr(0, call.find(' ')) != refused) {
        return false;
    }
    errno = refusedWith;
    return true;
}

// "open" with the flags that matter: without "make" the file must exist.
std::string opening(const char *path, int flags)
{
    std::string call = (flags & O_TMPFILE) == O_TMPFILE ? "unnamed"
                       : (flags & O_CREAT) != 0         ? "make"
                                                        : "open";
    call += std::string(" ") + path;
    call += (flags & O_TRUNC) != 0 ? " emptied" : "";
    call += (flags & O_CLOEXEC) == 0 ? " inherited" : "";
    return call;
}

} // namespace

REPLACE(int, open64, (const char *path, int flags, ...))
{
    va_list arguments;
    va_start(arguments, flags);
    const bool isMade = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    const unsigned mode = isMade ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    return fails(opening(path, flags)) ? -1 : REAL(open64)(path, flags, mode);
}

REPLACE(std::FILE *, fopen64, (const char *path, const char *mode))
{
    return fails(std::string(*mode == 'w' ? "make " : "open ") + path +
                 (*mode == 'w' ? " emptied" : ""))
               ? nullptr
               : REAL(fopen64)(path, mode);
}

REPLACE(ssize_t, write, (int file, const void *bytes, size_t count))
{
    if (fails("write " + std::to_string(count))) {
        return -1;
    }
    if (isTraced && !taken.empty()) {
        const ssize_t most = taken.front();
        taken.erase(taken.begin());
        if (most < 0) {
            errno = static_cast<int>(-most);
            return -1;
        }
        count = std::min(count, static_cast<size_t>(most));
    }
    return REAL(write)(file, bytes, count);
}

REPLACE(int, ftruncate64, (int file, off_t length))
{
    return fails("length " + std::to_string(length)) ? -1 : REAL(ftruncate64)(file, length);
}

REPLACE(int, fdatasync, (int file))
{
    return fails("sync") ? -1 : REAL(fdatasync)(file);
}

REPLACE(int, fsync, (int file))
{
    struct stat status {};
    fstat(file, &status);
    return fails(S_ISDIR(status.st_mode) ? "directory" : "fsync") ? -1 : REAL(fsync)(file);
}

REPLACE(int, linkat, (int from, const char *old, int to, const char *path, int flags))
{
    return fails(std::string("name ") + path) ? -1 : REAL(linkat)(from, old, to, path, flags);
}

namespace {

const std::string kDirectory = "/userdata/";
const std::string kFile = "/userdata/file";

size_t openFiles()
{
    return entriesOf("/proc/self/fd").size();
}

class FatfsSave : public testing::Test {
protected:
    FatfsSave()
    {
        fs::create_directory(kDirectory);
        openAtStart = openFiles();
    }
    void TearDown() override
    {
        EXPECT_EQ(openFiles(), openAtStart) << "a file was left open";
    }

    // The calls that an operation makes. What it prints is not looked at.
    template <typename Operation> static Calls callsOf(Operation operation)
    {
        calls.clear();
        printedBy([&] {
            isTraced = true;
            operation();
            isTraced = false;
        });
        return calls;
    }

    static Outcome save(const std::string &content)
    {
        calls.clear();
        isTraced = true;
        const int32_t result =
            sd_writeFile("file", content.data(), static_cast<uint32_t>(content.size()));
        isTraced = false;
        return {result, ""};
    }

    size_t openAtStart;
};

// A record that is there --------------------------------------------------------------------------

// At every call before the write the old record is whole, and at every later one the new one is.
TEST_F(FatfsSave, ARecordIsReplacedByOneWriteAndNeverEmptied)
{
    const std::string old(11832, 'o');
    const std::string record(11832, 'n');
    const struct {
        const char *name;
        std::string before;
        Calls calls;
    } rows[] = {
        {"as long", old, {"open /userdata/file", "write 11832", "sync"}},
        {"shorter", old.substr(0, 100), {"open /userdata/file", "write 11832", "sync"}},
        {"empty", "", {"open /userdata/file", "write 11832", "sync"}},
        {"longer", old + "more", {"open /userdata/file", "write 11832", "length 11832", "sync"}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        writeFile(kFile, row.before);
        beforeCall = [&](const std::string &call) {
            const std::string &there = call == "length 11832" ? record + "more"
                                       : call == "sync"       ? record
                                                              : row.before;
            EXPECT_TRUE(contentOf(kFile) == there) << call;
        };
        EXPECT_EQ(save(record), Outcome(1, ""));
        EXPECT_EQ(calls, row.calls);
        EXPECT_TRUE(contentOf(kFile) == record);
    }
}

TEST_F(FatfsSave, AWriteThatIsShortOrInterruptedGoesOnWithTheRest)
{
    writeFile(kFile, "0123456789");
    taken = {3, -EINTR, 2};
    EXPECT_EQ(save("abcdefgh"), Outcome(1, ""));
    EXPECT_EQ(calls, (Calls{"open /userdata/file", "write 8", "write 5", "write 5", "write 3",
                            "length 8", "sync"}));
    EXPECT_EQ(contentOf(kFile), "abcdefgh");
}

// What a disk does not take is not detected, but what was there stays, and its length too.
TEST_F(FatfsSave, ARecordThatTheDiskDoesNotTakeLeavesTheOldOne)
{
    for (const int error : {ENOSPC, EIO, EDQUOT}) {
        writeFile(kFile, "0123456789");
        taken = {-error};
        EXPECT_EQ(save("abcdefgh"), Outcome(1, ""));
        EXPECT_EQ(contentOf(kFile), "0123456789") << error;
        EXPECT_EQ(calls, (Calls{"open /userdata/file", "write 8", "sync"}));
    }
    taken = {4, 0}; // no byte is no progress
    EXPECT_EQ(save("abcdefgh"), Outcome(1, ""));
    EXPECT_EQ(contentOf(kFile), "abcd456789");
}

TEST_F(FatfsSave, ARecordSurvivesSavesOnAFullDisk)
{
    ASSERT_EQ(mount("tmpfs", kDirectory.c_str(), "tmpfs", 0, "size=8192"), 0);
    writeFile(kFile, "the record");
    writeFile("/userdata/full", std::string(4096, 'x'));
    EXPECT_EQ(outcomeOf(sd_writeFile, "file", "its change", 10u), Outcome(1, ""));
    EXPECT_EQ(contentOf(kFile), "its change");
    const std::string more(8000, 'y'); // of which the disk takes half
    EXPECT_EQ(outcomeOf(sd_writeFile, "file", more.data(), 8000u), Outcome(1, ""));
    EXPECT_TRUE(contentOf(kFile) == more.substr(0, 4096));
    umount(kDirectory.c_str());
}

// A file that is new ------------------------------------------------------------------------------

// Nobody sees it before it is on the disk as a whole.
TEST_F(FatfsSave, ANewFileGetsItsNameWhenItIsComplete)
{
    umask(027);
    beforeCall = [](const std::string &call) {
        EXPECT_EQ(fs::exists(kFile), call == "open /userdata/" || call == "directory") << call;
    };
    EXPECT_EQ(save("abc"), Outcome(1, ""));
    EXPECT_EQ(calls, (Calls{"open /userdata/file", "unnamed /userdata/", "write 3", "sync",
                            "name /userdata/file", "open /userdata/", "directory"}));
    EXPECT_EQ(contentOf(kFile), "abc");
    EXPECT_EQ(fs::status(kFile).permissions(), fs::perms(0640));
    EXPECT_EQ(entriesOf(kDirectory).size(), 1u);
}

TEST_F(FatfsSave, ANewFileThatTheDiskDoesNotTakeIsNotThere)
{
    taken = {2, -ENOSPC};
    EXPECT_EQ(save("abc"), Outcome(1, ""));
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

// Some file systems have no files without a name, and without /proc none can get one.
TEST_F(FatfsSave, WithoutFilesWithoutANameANewOneIsMadeInItsPlace)
{
    umask(0);
    const struct {
        const char *refused;
        int with;
    } rows[] = {{"unnamed", EOPNOTSUPP}, {"unnamed", EISDIR}, {"name", ENOENT}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.refused);
        fs::remove(kFile);
        refused = row.refused;
        refusedWith = row.with;
        EXPECT_EQ(save("abc"), Outcome(1, ""));
        EXPECT_EQ(contentOf(kFile), "abc");
        EXPECT_EQ(fs::status(kFile).permissions(), fs::perms(0666));
    }
    refused.clear();
    fs::remove(kFile);
    fs::create_symlink("/elsewhere", kFile); // to where there is no file yet
    EXPECT_EQ(save("abc"), Outcome(1, ""));
    EXPECT_EQ(calls[1], "make /userdata/file");
    EXPECT_EQ(contentOf("/elsewhere"), "abc");
    EXPECT_TRUE(fs::is_symlink(kFile));
}

TEST_F(FatfsSave, AFileThatCannotBeMadeIsSaid)
{
    const std::string error = "open file /userdata/no/such/directory error\n"
                              "open file no/such/directory fail\r\n";
    EXPECT_EQ(outcomeOf(sd_writeFile, "no/such/directory", "abc", 3u), Outcome(0, error));
    EXPECT_TRUE(fs::is_empty(kDirectory));
}

// The records -------------------------------------------------------------------------------------

// Beside its own write, a page's save reads sixteen views and saves the user setting.
TEST_F(FatfsSave, EveryRecordLeavesInOneWrite)
{
    malloc_saveView();
    const struct {
        const char *name;
        std::function<void()> save;
        Calls calls;
    } rows[] = {
        {"UserPref", [] { saveUserPref(); }, {"write 56"}},
        {"DevInfo", [] { saveDeviceInfo(); }, {"write 20"}},
        {"save0", [] { WriteUserSetting(0); }, {"write 11832"}},
        {"workTime", [] { saveWorkTimeList(); }, {"write 24"}},
        {"timeCon0", [] { saveTimeControl(0); }, {"write 152"}},
        {"view3", [] { EXPECT_EQ(SaveViewSetting(3), 1); }, {"write 3996"}},
        {"page4", [] { EXPECT_EQ(SaveToPage(4), 1); }, {"write 11832", "write 63936"}},
    };
    for (int round = 0; round < 2; ++round) { // new ones, and then those that are there
        for (const auto &row : rows) {
            Calls made = callsOf(row.save);
            std::erase_if(made, [](const std::string &call) { return !call.starts_with("write"); });
            EXPECT_EQ(made, row.calls) << row.name;
            for (const std::string &call : calls) {
                EXPECT_EQ(call.find("emptied"), std::string::npos) << row.name << ": " << call;
                EXPECT_EQ(call.find("inherited"), std::string::npos) << row.name << ": " << call;
            }
            const auto synced = std::count(calls.begin(), calls.end(), "sync");
            EXPECT_EQ(synced, static_cast<int>(row.calls.size())) << row.name;
        }
    }
}

// A view that the disk does not take keeps its predecessor, and a page all of its views.
TEST_F(FatfsSave, ViewsAndPagesThatTheDiskDoesNotTakeStayAndAreFailures)
{
    malloc_saveView();
    callsOf([] {
        SaveViewSetting(3);
        SaveToPage(4);
    });
    const std::string view = contentOf("/userdata/view3.sav");
    const std::string page = contentOf("/userdata/page4_0.sav");
    ASSERT_EQ(view.size(), 3996u);
    ASSERT_EQ(page.size(), 63936u);
    GetSaveViewSetting()->layerAlpha[0] ^= 1;
    callsOf([] {
        taken = {-ENOSPC};
        EXPECT_EQ(SaveViewSetting(3), 0);
        taken = {11832, -ENOSPC};
        EXPECT_EQ(SaveToPage(4), 0);
    });
    EXPECT_TRUE(contentOf("/userdata/view3.sav") == view);
    EXPECT_TRUE(contentOf("/userdata/page4_0.sav") == page);
}

} // namespace
