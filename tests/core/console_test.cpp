// The console of the daemon when nobody reads it: a pipe or a socket without room loses whole
// lines, and printing never waits. The daemon's main() is part of this file, for its preparations.

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/replace.h"

int daemonMain(int argc, char **argv);
#define main daemonMain
#include "core/main.cpp"
#undef main

namespace {

bool isProcMissing;
bool isNullMissing;

} // namespace

REPLACE(int, open64, (const char *path, int flags, ...))
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    if ((isProcMissing && std::string(path).starts_with("/proc/")) ||
        (isNullMissing && std::string(path) == "/dev/null")) {
        errno = ENOENT;
        return -1;
    }
    return REAL(open64)(path, flags, mode);
}

namespace {

// Puts a file in the place of standard output and standard error, with streams that nothing has
// been written to, and prepares the console.
class Prepared {
public:
    explicit Prepared(int file)
    {
        std::fflush(stdout);
        dup2(file, STDOUT_FILENO);
        dup2(file, STDERR_FILENO);
        stdout = fdopen(STDOUT_FILENO, "w");
        prepareConsole();
    }
    ~Prepared()
    {
        std::fclose(stdout);
        stdout = stream;
        dup2(savedOut, STDOUT_FILENO);
        dup2(savedErr, STDERR_FILENO);
    }
    Prepared(const Prepared &) = delete;
    Prepared &operator=(const Prepared &) = delete;

private:
    FILE *const stream = stdout;
    const int savedOut = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 100);
    const int savedErr = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 100);
};

// As long as messages are, the longest included.
std::string lineOf(int number)
{
    return std::to_string(number) + std::string(static_cast<size_t>(number * 37 % 400), 'x');
}

// Prints this many lines, each by two calls.
void printLines(int count)
{
    for (int number = 0; number < count; ++number) {
        std::printf("%d", number);
        std::puts(lineOf(number).c_str() + std::to_string(number).size());
    }
}

// All that is there.
std::string take(int file)
{
    std::string all;
    std::string bytes(70'000, '\0');
    fcntl(file, F_SETFL, O_NONBLOCK);
    ssize_t length = 0;
    while ((length = read(file, bytes.data(), bytes.size())) > 0) {
        all.append(bytes, 0, static_cast<size_t>(length));
    }
    return all;
}

// The numbers of the lines; every line must be whole.
std::vector<int> numbersOf(const std::string &text)
{
    std::vector<int> numbers;
    size_t begin = 0;
    size_t end = 0;
    while ((end = text.find('\n', begin)) != text.npos) {
        const std::string line = text.substr(begin, end - begin);
        const int number = std::atoi(line.c_str());
        EXPECT_EQ(line, lineOf(number)) << "after " << numbers.size() << " lines";
        numbers.push_back(number);
        begin = end + 1;
    }
    EXPECT_EQ(begin, text.size()) << "the end of a line is missing";
    return numbers;
}

// Prints until long after there is no room, and again when there is some.
void expectWholeLines(int reader, int writer)
{
    std::string full;
    std::string after;
    {
        const Prepared console(writer);
        alarm(20); // else a write that waits would do so for ever
        printLines(5000);
        errno = EAGAIN;
        for (int i = 0; i < 5000; ++i) {
            perror("on the other stream");
        }
        full = take(reader);
        printLines(3);
        after = take(reader);
        alarm(0);
    }
    const size_t other = full.find("on the other stream"); // where there was a last bit of room
    const std::vector<int> numbers = numbersOf(full.substr(0, other));
    EXPECT_GT(numbers.size(), 5u);
    EXPECT_LT(numbers.size(), 5000u);
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    EXPECT_EQ(numbersOf(after), (std::vector<int>{0, 1, 2}));
}

} // namespace

TEST(MainConsole, APipeWithoutRoomLosesWholeLinesAndStaysAsItIsForOthers)
{
    for (const int room : {4096, 65536}) {
        SCOPED_TRACE(room);
        int ends[2];
        ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
        fcntl(ends[1], F_SETPIPE_SZ, room);
        expectWholeLines(ends[0], ends[1]);
        EXPECT_EQ(fcntl(ends[1], F_GETFL), O_WRONLY);
        close(ends[0]);
        close(ends[1]);
    }
}

// As when the daemon starts before the program that reads its log.
TEST(MainConsole, AFifoThatNobodyReadsYetStaysAsItIsForOthers)
{
    const char *const path = "/opt/scratch/log";
    ASSERT_EQ(mkfifo(path, 0600), 0);
    const int first = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const int writer = open(path, O_WRONLY | O_CLOEXEC);
    close(first);
    int reader = -1;
    std::string full;
    {
        const Prepared console(writer);
        std::puts("to nobody");
        reader = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        alarm(20);
        printLines(5000);
        alarm(0);
        full = take(reader);
    }
    EXPECT_EQ(fcntl(writer, F_GETFL) & O_NONBLOCK, 0);
    const std::vector<int> numbers = numbersOf(full);
    EXPECT_GT(numbers.size(), 5u);
    EXPECT_LT(numbers.size(), 5000u);
    close(reader);
    close(writer);
}

TEST(MainConsole, ASocketWithoutRoomLosesWholeLines)
{
    for (const int type : {SOCK_STREAM, SOCK_DGRAM, SOCK_SEQPACKET}) {
        SCOPED_TRACE(type);
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends), 0);
        expectWholeLines(ends[0], ends[1]);
        close(ends[0]);
        close(ends[1]);
    }
}

// The pipe cannot be opened anew; then it is better to change it for all than to wait.
TEST(MainConsole, APipeWithoutRoomLosesWholeLinesWithoutProcToo)
{
    isProcMissing = true;
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    expectWholeLines(ends[0], ends[1]);
}

TEST(MainConsole, AFileAndATerminalStayAsTheyAre)
{
    const int file = open("/opt/scratch/log", O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    for (const int console : {file, terminal}) {
        ASSERT_GE(console, 0);
        const int flags = fcntl(console, F_GETFL);
        const Prepared prepared(console);
        EXPECT_EQ(fcntl(console, F_GETFL), flags);
        EXPECT_EQ(fcntl(STDOUT_FILENO, F_GETFL), flags);
        EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFL), flags);
    }
    {
        const Prepared prepared(file);
        std::puts("of a file");
        EXPECT_EQ(lseek(file, 0, SEEK_CUR), 10); // written where it stands for all who share it
    }
}

TEST(MainConsole, WithoutDevNullWhatIsOpenStaysAsItIs)
{
    isNullMissing = true;
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    {
        const Prepared console(ends[1]);
        std::puts("of the daemon");
    }
    EXPECT_EQ(take(ends[0]), "of the daemon\n");

    const int saved = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 100);
    close(STDOUT_FILENO);
    prepareConsole();
    EXPECT_EQ(fcntl(STDOUT_FILENO, F_GETFD), -1); // there is nothing to put in its place
    dup2(saved, STDOUT_FILENO);
}

// What the daemon starts complains on the same console, and must not wait either.
TEST(MainConsole, StartedProgramsDoNotWaitForARoomlessPipe)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    int status = -1;
    {
        const Prepared console(ends[1]);
        alarm(20);
        printLines(5000);
        status = std::system("i=0; while [ $i -lt 3000 ]; do echo x >&2; i=$((i + 1)); done");
        alarm(0);
    }
    EXPECT_TRUE(WIFEXITED(status)) << status;
}
