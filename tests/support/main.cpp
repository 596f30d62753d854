// main() of every test program. Each case runs in a process of its own and finds the board as the
// program found it: what a case leaves behind, files and processes, is gone before the next.
//
//   PROGRAM                          every case; tells those that fail, with their output
//   PROGRAM --gtest_filter=PATTERN   those that match; a single one runs in this very process, so
//                                    that a debugger finds it
//
// Started anywhere but on a board, the program starts itself on one. Built with
// BOARD_FOR_EACH_CASE, it starts each case on a board of its own.

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <fnmatch.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/soak.h"

namespace fs = std::filesystem;

namespace {

const auto kCaseLimit = std::chrono::seconds(CASE_LIMIT_SECONDS + soakSeconds());

bool isOnABoard()
{
    return fs::exists("/opt/host") && fs::exists("/etc/init.d/S41dhcpcd");
}

// The cases that the filter selects, in its own notation: "A.*:B.One-A.Slow".
std::vector<std::string> selectedCases()
{
    const std::string filter = GTEST_FLAG_GET(filter);
    const size_t dash = filter.find('-');
    const auto matches = [](const std::string &patterns, const std::string &name) {
        std::istringstream all(patterns);
        for (std::string pattern; std::getline(all, pattern, ':');) {
            if (fnmatch(pattern.c_str(), name.c_str(), 0) == 0) {
                return true;
            }
        }
        return false;
    };
    const std::string wanted = dash == 0 ? "*" : filter.substr(0, dash);
    const std::string unwanted = dash == std::string::npos ? "" : filter.substr(dash + 1);
    std::vector<std::string> names;
    const auto &all = *testing::UnitTest::GetInstance();
    for (int i = 0; i < all.total_test_suite_count(); ++i) {
        const testing::TestSuite &suite = *all.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j) {
            const std::string name = suite.name() + std::string(".") + suite.GetTestInfo(j)->name();
            if (matches(wanted, name) && !matches(unwanted, name)) {
                names.push_back(name);
            }
        }
    }
    return names;
}

// The board's own files, to be put back behind each case.
class BoardFiles {
public:
    BoardFiles()
    {
        walk([this](const fs::path &path, const struct stat &status) {
            File &file = files_[path];
            file.mode = status.st_mode;
            file.content = contentOf(path, status.st_mode);
        });
    }

    void restore() const
    {
        std::vector<fs::path> added;
        size_t kept = 0;
        walk([&](const fs::path &path, const struct stat &status) {
            const auto known = files_.find(path);
            if (known == files_.end() || known->second.mode != status.st_mode) {
                added.push_back(path);
            } else {
                ++kept;
                if (contentOf(path, status.st_mode) != known->second.content) {
                    write(path, known->second);
                }
            }
        });
        for (const fs::path &path : added) {
            std::error_code gone;
            fs::remove_all(path, gone);
        }
        if (kept == files_.size()) {
            return;
        }
        for (const auto &[path, file] : files_) { // a directory comes ahead of what is in it
            if (!fs::exists(fs::symlink_status(path))) {
                write(path, file);
            }
        }
    }

private:
    struct File {
        mode_t mode = 0;
        std::string content; // of a link, where it leads
    };

    // Everything on the file systems of the board's root and of its devices.
    template <typename Visit> static void walk(Visit visit)
    {
        // Not "/": an emulator shows the directory of its libraries there.
        const fs::path top = "/proc/self/root/";
        struct stat root {};
        struct stat devices {};
        stat(top.c_str(), &root);
        stat("/dev", &devices);
        for (auto at = fs::recursive_directory_iterator(top); at != fs::end(at); ++at) {
            const fs::path &path = at->path();
            struct stat status {};
            if (lstat(path.c_str(), &status) != 0 ||
                (status.st_dev != root.st_dev && status.st_dev != devices.st_dev)) {
                at.disable_recursion_pending();
                continue;
            }
            visit(path, status);
        }
    }

    static std::string contentOf(const fs::path &path, mode_t mode)
    {
        if (S_ISLNK(mode)) {
            return fs::read_symlink(path);
        }
        return S_ISREG(mode) ? ::contentOf(path) : "";
    }

    static void write(const fs::path &path, const File &file)
    {
        if (S_ISLNK(file.mode)) {
            fs::remove(path);
            fs::create_symlink(file.content, path);
            return;
        }
        if (S_ISDIR(file.mode)) {
            fs::create_directory(path);
        } else if (S_ISREG(file.mode)) {
            writeFile(path, file.content);
        }
        chmod(path.c_str(), file.mode & 07777);
    }

    std::map<fs::path, File> files_;
};

// Ends what is left of a case: this process is the parent of every orphan below it.
void endOrphans()
{
    const std::string children = "/proc/self/task/" + std::to_string(getpid()) + "/children";
    for (;;) {
        std::ifstream file(children);
        for (pid_t child = 0; file >> child;) {
            kill(child, SIGKILL);
        }
        if (waitpid(-1, nullptr, 0) < 0 && errno == ECHILD) {
            return;
        }
    }
}

struct Outcome {
    int status = 0; // as wait() gives it
    bool isLate = false;
};

// The signal that a child has ended, which this process waits for instead of being interrupted.
sigset_t childEnded()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGCHLD);
    return signals;
}

Outcome waitFor(pid_t child)
{
    const sigset_t signals = childEnded();
    const auto end = std::chrono::steady_clock::now() + kCaseLimit;
    Outcome outcome;
    while (waitpid(child, &outcome.status, WNOHANG) == 0) {
        const timespec pause = {0, 100'000'000};
        sigtimedwait(&signals, nullptr, &pause);
        if (!outcome.isLate && std::chrono::steady_clock::now() > end) {
            outcome.isLate = true;
            kill(child, SIGKILL);
        }
    }
    return outcome;
}

// In the child: runs the one case and ends the process.
[[noreturn]] void runCase(const std::string &name, [[maybe_unused]] char **argv, int output)
{
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup2(nothing, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
#ifdef BOARD_FOR_EACH_CASE
    const std::string filter = "--gtest_filter=" + name;
    execl(BOARD, BOARD, argv[0], filter.c_str(), nullptr);
    perror(BOARD);
    std::exit(125);
#else
    // What the case mounts goes with it.
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        perror("a mount namespace for the case");
        std::exit(125);
    }
    GTEST_FLAG_SET(filter, name);
    std::exit(RUN_ALL_TESTS());
#endif
}

// What a random run that has passed says of itself.
void printReport(const std::string &name, const std::string &text)
{
    std::istringstream lines(text.substr(std::min(text.size(), text.find(kSoakSeed))));
    for (std::string line; std::getline(lines, line) && !line.starts_with('[');) {
        std::cout << name << ": " << line << std::endl;
    }
}

int runEachInAProcess(const std::vector<std::string> &names, char **argv)
{
#ifndef BOARD_FOR_EACH_CASE
    const BoardFiles board;
#endif
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const sigset_t signals = childEnded();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    size_t passed = 0;
    size_t skipped = 0;
    std::vector<std::string> failed;
    for (const std::string &name : names) {
        std::cout.flush();
        const int output = open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        const pid_t child = fork();
        if (child == 0) {
            runCase(name, argv, output);
        }
        const Outcome outcome = waitFor(child);
        const std::string text = ::contentOf("/proc/self/fd/" + std::to_string(output));
        close(output);
        endOrphans();
#ifndef BOARD_FOR_EACH_CASE
        board.restore();
#endif
        if (!WIFEXITED(outcome.status) || WEXITSTATUS(outcome.status) != 0) {
            failed.push_back(name);
            std::cout << text << "FAILED  " << name;
            if (outcome.isLate) {
                std::cout << ": still running after " << kCaseLimit.count() << " s";
            } else if (WIFSIGNALED(outcome.status)) {
                std::cout << ": ended by signal " << WTERMSIG(outcome.status);
            }
            std::cout << '\n';
        } else if (text.find("[  SKIPPED ]") != std::string::npos) {
            ++skipped;
            std::cout << text << "SKIPPED " << name << '\n';
        } else {
            ++passed;
            if (soakSeconds() > 0) {
                printReport(name, text);
            }
        }
    }
    for (const std::string &name : failed) {
        std::cout << "FAILED  " << name << '\n';
    }
    std::cout << "cases: " << passed << " passed, " << failed.size() << " failed, " << skipped
              << " skipped" << std::endl;
    return failed.empty() ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
#ifndef BOARD_FOR_EACH_CASE
    if (!isOnABoard()) {
        std::vector<char *> command = {const_cast<char *>(BOARD)};
        command.insert(command.end(), argv, argv + argc + 1);
        execv(BOARD, command.data());
        perror(BOARD);
        return 125;
    }
#endif
    testing::InitGoogleTest(&argc, argv);
    const std::vector<std::string> names = selectedCases();
    if (GTEST_FLAG_GET(list_tests) || (names.size() == 1 && isOnABoard())) {
        return RUN_ALL_TESTS();
    }
    return runEachInAProcess(names, argv);
}
