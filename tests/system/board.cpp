#include "tests/system/board.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <future>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <random>
#include <sched.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>

#include "tests/support/bytes.h"
#include "tests/support/files.h"

using std::chrono::steady_clock;

namespace {

constexpr char kLine[] = "/dev/ttyS0";
constexpr char kPcNetwork[] = "/run/netns/pc";
constexpr char kBoardAddress[] = "192.168.0.100";
constexpr uint16_t kBoardPort = 1000;
constexpr size_t kLargestRead = 65536;

// Passes a system call's result on, unless it is a failure.
int check(int result, const char *what)
{
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

// What is started: the tested daemon where it lies, or as it is installed.
std::string startedDaemon()
{
#ifdef INSTALLED_DAEMON
    return INSTALLED_DAEMON;
#else
    return testedDaemon();
#endif
}

// On a workstation the tests would replace its serial line.
void requireBoard()
{
    check(access(kPcNetwork, F_OK),
          "this is not the simulated board: start it with testbench/board");
}

class Deadline {
public:
    explicit Deadline(milliseconds patience) : end(steady_clock::now() + patience) {}
    milliseconds left() const
    {
        const auto rest = std::chrono::ceil<milliseconds>(end - steady_clock::now());
        return std::max(rest, milliseconds::zero());
    }

private:
    steady_clock::time_point end;
};

bool waitFor(int descriptor, short events, const Deadline &deadline)
{
    pollfd entry{descriptor, events, 0};
    return poll(&entry, 1, static_cast<int>(deadline.left().count())) > 0;
}

// What is there, up to `most` bytes; nothing at an end or error.
std::string readSome(int descriptor, size_t most)
{
    std::string bytes(most, '\0');
    const ssize_t count = ::read(descriptor, bytes.data(), bytes.size());
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return bytes;
}

bool isAsleep(const std::filesystem::path &task)
{
    const std::string line = contentOf(task / "stat");
    const size_t name = line.rfind(')');
    return name != line.npos && line.compare(name, 3, ") S") == 0;
}

sockaddr_in socketAddress(const char *address, uint16_t port)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    result.sin_addr.s_addr = inet_addr(address);
    return result;
}

const sockaddr *generic(const sockaddr_in &address)
{
    return reinterpret_cast<const sockaddr *>(&address);
}

} // namespace

Lines operator+(Lines first, const Lines &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

std::string testedDaemon()
{
    const char *const other = std::getenv("VESK_DAEMON");
    return other != nullptr && *other != '\0' ? other : BUILT_DAEMON;
}

std::string command(const Frame &bytes)
{
    return frame('T', {bytes.begin(), bytes.end()});
}

std::string reply(const Frame &bytes)
{
    return frame('F', {bytes.begin(), bytes.end()});
}

bool Board::eventually(const std::function<bool()> &condition)
{
    const Deadline deadline(kPatience);
    while (!condition()) {
        if (deadline.left() == milliseconds::zero()) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

std::string patternedBytes(size_t length)
{
    std::minstd_rand random;
    std::string bytes(length, '\0');
    for (char &byte : bytes) {
        const auto value = static_cast<char>(random() >> 8);
        byte = value == '<' ? '>' : value;
    }
    return bytes;
}

FrontBoard::FrontBoard()
{
    requireBoard();
    master = Descriptor(check(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC), "openpt"));
    check(unlockpt(master.get()), "unlockpt");
    const char *const name = ptsname(master.get());
    // While nobody has it open, a pseudo terminal is not a line that is idle but one that is gone.
    slave = Descriptor(check(open(name, O_RDWR | O_NOCTTY | O_CLOEXEC), name));
    std::filesystem::remove(kLine);
    std::filesystem::create_symlink(name, kLine);
}

FrontBoard::~FrontBoard()
{
    std::error_code ignored;
    std::filesystem::remove(kLine, ignored);
}

size_t FrontBoard::write(std::string_view bytes, milliseconds patience)
{
    const Deadline deadline(patience);
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = ::write(master.get(), bytes.data() + done, bytes.size() - done);
        if (count > 0) {
            done += static_cast<size_t>(count);
        } else if (!waitFor(master.get(), POLLOUT, deadline)) {
            break;
        }
    }
    return done;
}

std::string FrontBoard::read(size_t count, milliseconds patience)
{
    const Deadline deadline(patience);
    std::string bytes;
    while (bytes.size() < count && waitFor(master.get(), POLLIN, deadline)) {
        bytes += readSome(master.get(), count - bytes.size());
    }
    return bytes;
}

std::string FrontBoard::readUntilQuiet()
{
    std::string bytes;
    while (waitFor(master.get(), POLLIN, Deadline(kQuiet))) {
        bytes += readSome(master.get(), kLargestRead);
    }
    return bytes;
}

termios FrontBoard::settings() const
{
    termios settings{};
    check(tcgetattr(slave.get(), &settings), "tcgetattr");
    return settings;
}

bool FrontBoard::waitUntilRaw() const
{
    return Board::eventually([this] { return settings().c_lflag == 0; });
}

void FrontBoard::hold() const
{
    check(tcflow(slave.get(), TCOOFF), "TCOOFF");
}

void FrontBoard::release() const
{
    check(tcflow(slave.get(), TCOON), "TCOON");
}

void FrontBoard::hangUp()
{
    master.close();
}

ControlPc::ControlPc(const char *address)
{
    requireBoard();
    // A socket belongs for good to the network in which it was made, so a thread moves there.
    const auto makeSocket = [] {
        const Descriptor network(check(open(kPcNetwork, O_RDONLY | O_CLOEXEC), kPcNetwork));
        check(setns(network.get(), CLONE_NEWNET), "setns");
        return Descriptor(check(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket"));
    };
    socket = std::async(std::launch::async, makeSocket).get();
    const sockaddr_in own = socketAddress(address, 0);
    check(bind(socket.get(), generic(own), sizeof own), "bind");
    const sockaddr_in board = socketAddress(kBoardAddress, kBoardPort);
    check(connect(socket.get(), generic(board), sizeof board), "connect");
}

void ControlPc::send(std::string_view datagram)
{
    // What the network does not take is lost, as anywhere else on the way.
    ::send(socket.get(), datagram.data(), datagram.size(), 0);
}

std::optional<std::string> ControlPc::receive(milliseconds patience)
{
    if (!waitFor(socket.get(), POLLIN, Deadline(patience))) {
        return std::nullopt;
    }
    return readSome(socket.get(), kLargestRead);
}

std::string ControlPc::readUntil(const std::function<bool(const std::string &bytes)> &isAll)
{
    std::string bytes;
    while (!isAll(bytes)) {
        const auto datagram = receive();
        if (!datagram) {
            break;
        }
        bytes += *datagram;
    }
    return bytes;
}

std::string ControlPc::readUntilQuiet()
{
    std::string bytes;
    while (const auto datagram = receive(kQuiet)) {
        bytes += *datagram;
    }
    return bytes;
}

void plugNetwork(bool in)
{
    requireBoard();
    const Descriptor socket(check(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket"));
    ifreq request{};
    std::string_view("eth0").copy(request.ifr_name, IFNAMSIZ);
    check(ioctl(socket.get(), SIOCGIFFLAGS, &request), "SIOCGIFFLAGS");
    const int flags = in ? request.ifr_flags | IFF_UP : request.ifr_flags & ~IFF_UP;
    request.ifr_flags = static_cast<short>(flags);
    check(ioctl(socket.get(), SIOCSIFFLAGS, &request), "SIOCSIFFLAGS");
}

Daemon::Daemon(std::vector<std::string> arguments, std::initializer_list<int> closed,
               std::vector<std::string> environment)
{
    requireBoard();
    const auto makePipe = [](Descriptor *readEnd) {
        int ends[2];
        check(pipe2(ends, O_CLOEXEC), "pipe2");
        *readEnd = Descriptor(ends[0]);
        return Descriptor(ends[1]);
    };
    const Descriptor outputEnd = makePipe(&output);
    const Descriptor errorEnd = makePipe(&error);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outputEnd.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errorEnd.get(), STDERR_FILENO);
    for (const int stream : closed) {
        posix_spawn_file_actions_addclose(&actions, stream);
    }
    // What the test program was started with must not decide how the daemon takes signals.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID);

    const std::string program = startedDaemon();
    arguments.insert(arguments.begin(), program);
    for (char **variable = environ; *variable != nullptr; ++variable) {
        environment.emplace_back(*variable); // of two with the same name, the first counts
    }
    const auto pointers = [](Lines *texts) {
        std::vector<char *> all;
        for (std::string &text : *texts) {
            all.push_back(text.data());
        }
        all.push_back(nullptr);
        return all;
    };
    errno = posix_spawn(&process, program.c_str(), &actions, &attributes,
                        pointers(&arguments).data(), pointers(&environment).data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    check(errno == 0 ? 0 : -1, program.c_str());
    processFd = Descriptor(check(static_cast<int>(syscall(SYS_pidfd_open, process, 0)), "pidfd"));
}

Daemon::~Daemon()
{
    if (isRunning()) {
        signal(SIGTERM); // on which a program that counts its coverage writes what it has counted
        signal(SIGCONT);
        if (!waitForEnd()) {
            signal(SIGKILL);
            waitForEnd();
        }
    }
    const std::string &text = errors();
    if (text.find("Sanitizer") != std::string::npos ||
        text.find("runtime error") != std::string::npos) {
        ADD_FAILURE() << "the daemon's sanitizer has spoken";
    }
    if (testing::Test::HasFailure()) {
        for (const std::string &line : outputLines) {
            std::printf("vesk_h264: %s\n", line.c_str());
        }
        std::printf("vesk_h264, standard error: %s\n", text.c_str());
    }
}

bool Daemon::isRunning()
{
    return !waitForEnd(milliseconds::zero());
}

bool Daemon::sleeps() const
{
    const std::string number = std::to_string(process);
    return isAsleep("/proc/" + number + "/task/" + number);
}

std::optional<int> Daemon::waitForEnd(milliseconds patience)
{
    if (!status && waitFor(processFd.get(), POLLIN, Deadline(patience))) {
        int value;
        check(waitpid(process, &value, 0), "waitpid");
        status = value;
    }
    return status;
}

void Daemon::signal(int number) const
{
    check(kill(process, number), "kill");
}

bool Daemon::prints(std::string_view line, int times, milliseconds patience)
{
    const Deadline deadline(patience);
    while (std::count(outputLines.begin(), outputLines.end(), line) < times) {
        if (!collect(deadline.left())) {
            return false;
        }
    }
    return true;
}

bool Daemon::starts()
{
    return prints("enter main") && prints("uart_receive_fun 0");
}

bool Daemon::receives(size_t bytes, const std::function<void()> &action)
{
    const std::string directory = "/proc/" + std::to_string(process);
    const auto received = [&] { // from files and the line so far
        const std::string text = contentOf(directory + "/io");
        return text.starts_with("rchar: ") ? std::stoul(text.substr(7)) : 0;
    };
    const size_t expected = received() + bytes;
    action();
    // What has been read is also stored when the threads wait for more.
    return Board::eventually([&] {
        const std::filesystem::directory_iterator tasks(directory + "/task");
        return received() == expected &&
               std::all_of(begin(tasks), end(tasks), [&](const auto &task) {
                   return task.path().filename() == std::to_string(process) ||
                          isAsleep(task.path());
               });
    });
}

const Lines &Daemon::lines()
{
    while (collect(milliseconds::zero())) {
    }
    return outputLines;
}

const std::string &Daemon::errors()
{
    while (collect(milliseconds::zero())) {
    }
    return errorText;
}

void Daemon::forgetLines()
{
    outputLines.clear();
}

void Daemon::closeConsole()
{
    output.close();
    error.close();
}

bool Daemon::collect(milliseconds patience)
{
    if (output.get() < 0 && error.get() < 0) {
        return false;
    }
    pollfd entries[] = {{output.get(), POLLIN, 0}, {error.get(), POLLIN, 0}};
    if (poll(entries, std::size(entries), static_cast<int>(patience.count())) <= 0) {
        return false;
    }
    const auto take = [](const pollfd &entry, Descriptor *from) {
        std::string text = entry.revents == 0 ? "" : readSome(entry.fd, kLargestRead);
        if (entry.revents != 0 && text.empty()) {
            from->close();
        }
        return text;
    };
    for (const char character : take(entries[0], &output)) {
        if (character == '\n') {
            outputLines.push_back(std::exchange(partOfLine, {}));
        } else {
            partOfLine += character;
        }
    }
    errorText += take(entries[1], &error);
    return true;
}

void Board::expectAnswer(const Frame &asked, const Frame &answered)
{
    expectAnswer(command(asked), reply(answered));
}

void Board::expectAnswer(std::string_view asked, std::string_view answered)
{
    front.write(asked);
    EXPECT_EQ(front.read(answered.size()), answered) << asked;
}

void RunningDaemon::SetUp()
{
    ASSERT_TRUE(daemon.starts());
}
