#include "benchmarks/board_program.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <pty.h>
#include <string_view>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "benchmarks/stored_state.h"

namespace {

constexpr unsigned long kUsualSlackNs = 50000;

// The sum of some lines of a process's memory summary, in kB.
double memoryKb(pid_t pid, std::initializer_list<std::string_view> titles)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/smaps_rollup");
    double total = 0;
    for (std::string word; file >> word;) {
        for (const std::string_view title : titles) {
            double kb = 0;
            if (word == title && file >> kb) {
                total += kb;
            }
        }
    }
    return total;
}

void printInto(const char *path)
{
    const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0 || dup2(file, STDOUT_FILENO) < 0 || dup2(file, STDERR_FILENO) < 0) {
        stop(path);
    }
}

} // namespace

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

SerialLine::SerialLine()
{
    char name[64];
    termios options{};
    cfmakeraw(&options);
    options.c_cflag |= CREAD;
    cfsetispeed(&options, B115200);
    cfsetospeed(&options, B115200);
    if (openpty(&master_, &slave_, name, &options, nullptr) != 0) {
        stop("openpty");
    }
    // Programs that start must not inherit the line.
    fcntl(master_, F_SETFD, FD_CLOEXEC);
    fcntl(slave_, F_SETFD, FD_CLOEXEC);
    std::filesystem::remove("/dev/ttyS0");
    std::filesystem::create_symlink(name, "/dev/ttyS0");
}

SerialLine::~SerialLine()
{
    close(master_);
    close(slave_);
}

void SerialLine::send(const std::string &bytes) const
{
    if (write(master_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
        stop("writing to the line");
    }
}

void SerialLine::expect(const std::string &expected) const
{
    std::string bytes(expected.size(), '\0');
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t count = read(master_, bytes.data() + done, bytes.size() - done);
        if (count <= 0) {
            stop("reading from the line");
        }
        done += static_cast<size_t>(count);
    }
    if (bytes != expected) {
        std::fprintf(stderr, "wrong reply: %s\n", bytes.c_str());
        std::exit(4);
    }
}

Program::Program(const std::vector<std::string> &command, const char *log)
{
    std::vector<char *> arguments;
    for (const std::string &argument : command) {
        arguments.push_back(const_cast<char *>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        stop("pipe");
    }
    pid_ = fork();
    if (pid_ == 0) {
        // A caller may sleep more exactly than others do, and the program would inherit it.
        prctl(PR_SET_TIMERSLACK, kUsualSlackNs);
        dup2(ends[1], STDOUT_FILENO);
        if (log != nullptr) {
            printInto(log);
        }
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    close(ends[1]);
    output_ = fdopen(ends[0], "r");
}

Program::~Program()
{
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    std::fclose(output_);
}

void Program::waitForLine(const char *line)
{
    char text[256];
    while (std::fgets(text, sizeof text, output_) != nullptr) {
        if (std::string(text) == std::string(line) + "\n") {
            return;
        }
    }
    std::fprintf(stderr, "the program ended before it printed \"%s\"\n", line);
    std::exit(4);
}

double Program::cpuNs() const
{
    double total = 0;
    const std::string tasks = "/proc/" + std::to_string(pid_) + "/task";
    for (const auto &task : std::filesystem::directory_iterator(tasks)) {
        std::ifstream file(task.path() / "schedstat");
        double ns = 0;
        file >> ns;
        total += ns;
    }
    return total;
}

double Program::privateKb() const
{
    return memoryKb(pid_, {"Private_Clean:", "Private_Dirty:"});
}

double Program::residentKb() const
{
    return memoryKb(pid_, {"Rss:"});
}
