#include "benchmarks/bridge_station.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "benchmarks/stored_state.h"

namespace {

using Microseconds = std::chrono::duration<double, std::micro>;

constexpr uint32_t kMessage = 16;
constexpr auto kSilence = std::chrono::milliseconds(300); // after which missing bytes are lost
constexpr double kTurnUs = 100;                           // between writes of a stream
constexpr double kLongestTurnUs = 500;
constexpr char kLog[] = "/opt/scratch/bridge-log";
constexpr char kCommand[] = "<T0000680100000069>";
constexpr char kAnswer[] = "<F00006801263300c2>";

Clock::duration toDuration(double us)
{
    return std::chrono::duration_cast<Clock::duration>(Microseconds(us));
}

double byteUs(double pace)
{
    return 1e6 / (kLineBytesPerSecond * pace);
}

// A socket of the control PC.
int openPc()
{
    const int board = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
    const int pc = open("/run/netns/pc", O_RDONLY | O_CLOEXEC);
    if (board < 0 || pc < 0 || setns(pc, CLONE_NEWNET) != 0) {
        stop("entering the PC's network");
    }
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int size = 4 << 20;
    setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    if (descriptor < 0 || setns(board, CLONE_NEWNET) != 0) {
        stop("leaving the PC's network");
    }
    close(board);
    close(pc);
    return descriptor;
}

// Appends what is there to read, after waiting for it until `end`. False if there was nothing.
bool readUntil(int descriptor, Clock::time_point end, std::string *bytes)
{
    const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(end - Clock::now());
    const auto ns = std::max<int64_t>(left.count(), 0);
    const timespec timeout = {ns / 1000000000, ns % 1000000000};
    pollfd waiting = {descriptor, POLLIN, 0};
    if (ppoll(&waiting, 1, &timeout, nullptr) != 1) {
        return false;
    }
    char buffer[65536];
    const ssize_t count = read(descriptor, buffer, sizeof buffer);
    bytes->append(buffer, static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return count > 0;
}

} // namespace

Station::Station(const std::vector<std::string> &command)
    : pc_(openPc()), started_(Clock::now()), program_(command, kLog)
{
    prctl(PR_SET_TIMERSLACK, 1); // the programs keep theirs
    fcntl(line_.descriptor(), F_SETFL, O_NONBLOCK);
    std::string carried;
    // Datagrams that arrive before the program listens are lost.
    do {
        sendDatagram("s");
        if (secondsSince(started_) > 5) {
            std::fprintf(stderr, "%s carries nothing; it says:\n", command[0].c_str());
            std::fflush(stderr);
            static_cast<void>(!std::system("cat /opt/scratch/bridge-log >&2"));
            std::exit(4);
        }
    } while (!readUntil(line_.descriptor(), Clock::now() + toDuration(50), &carried));
    startMs_ = secondsSince(started_) * 1000;
    discard();
}

Station::~Station()
{
    close(pc_);
}

std::vector<double> Station::lineToPc(double pace, uint32_t messages)
{
    std::vector<double> latencies;
    for (uint32_t i = 0; i < messages; ++i) {
        pause(0);
        const std::string text = randomText(kMessage);
        const Clock::time_point sent = sendPaced(text, pace);
        receive(pc_, text, sent, &latencies);
    }
    return latencies;
}

std::vector<double> Station::pcToLine(double pace, uint32_t messages)
{
    std::vector<double> latencies;
    for (uint32_t i = 0; i < messages; ++i) {
        pause(kMessage * byteUs(pace));
        const std::string text = randomText(kMessage);
        const Clock::time_point sent = Clock::now();
        sendDatagram(text);
        receive(line_.descriptor(), text, sent, &latencies);
    }
    return latencies;
}

std::vector<double> Station::roundTrip(double pace, uint32_t commands)
{
    std::vector<double> latencies;
    for (uint32_t i = 0; i < commands; ++i) {
        pause(0);
        const Clock::time_point sent = sendPaced(kCommand, pace);
        receive(line_.descriptor(), kAnswer, sent, &latencies);
    }
    discard(); // the PC may have the beginnings of commands that arrived in parts
    return latencies;
}

StreamResult Station::stream(double pace, double seconds)
{
    const double bytesPerUs = 1 / byteUs(pace);
    const std::string text = randomText(static_cast<uint32_t>(seconds * 1e6 * bytesPerUs));
    std::string received;
    StreamResult result;
    const double cpuBefore = program_.cpuNs();
    const Clock::time_point start = Clock::now();
    Clock::time_point last = start;
    double due = 0;
    for (size_t done = 0; done < text.size();) {
        const Clock::time_point now = Clock::now();
        // Time in which this program did not run is left out: no line brings bytes faster later.
        due += bytesPerUs * std::min(Microseconds(now - last).count(), kLongestTurnUs);
        last = now;
        const size_t end = std::min(text.size(), static_cast<size_t>(due));
        if (end > done) {
            // What the line does not take is lost, and missed at the PC.
            static_cast<void>(!write(line_.descriptor(), &text[done], end - done));
        }
        done = end;
        while (readUntil(pc_, start, &received)) {
        }
        std::this_thread::sleep_until(now + toDuration(kTurnUs));
    }
    while (received.size() < text.size() && readUntil(pc_, Clock::now() + kSilence, &received)) {
    }
    result.cpuNs = program_.cpuNs() - cpuBefore;
    result.seconds = secondsSince(start);
    result.sent = static_cast<double>(text.size());
    result.received = static_cast<double>(received.size());
    result.isEqual = received == text;
    return result;
}

uint32_t Station::lineBurst(uint32_t bytes)
{
    const std::string text = randomText(bytes);
    std::string received;
    static_cast<void>(!write(line_.descriptor(), text.data(), text.size())); // as above
    while (received.size() < bytes && readUntil(pc_, Clock::now() + kSilence, &received)) {
    }
    return bytes - static_cast<uint32_t>(received.size());
}

uint32_t Station::pcBurst(uint32_t bytes)
{
    std::string received;
    sendDatagram(randomText(bytes));
    while (received.size() < bytes &&
           readUntil(line_.descriptor(), Clock::now() + kSilence, &received)) {
    }
    return bytes - static_cast<uint32_t>(received.size());
}

// Letters, so never the start of a command.
std::string Station::randomText(uint32_t bytes)
{
    std::string text(bytes, ' ');
    for (char &letter : text) {
        letter = static_cast<char>('a' + random_() % 26);
    }
    return text;
}

// Up to 2 ms longer than `atLeastUs`, so that messages meet a program's loops at every point.
void Station::pause(double atLeastUs)
{
    const double us = atLeastUs + 500 + static_cast<double>(random_() % 2000);
    std::this_thread::sleep_for(toDuration(us));
}

// Returns the time before the last byte.
Clock::time_point Station::sendPaced(const std::string &bytes, double pace) const
{
    const Clock::time_point start = Clock::now();
    Clock::time_point now = start;
    for (size_t done = 0; done < bytes.size();) {
        const double due = 1 + Microseconds(now - start).count() / byteUs(pace);
        const size_t end = std::min(bytes.size(), static_cast<size_t>(due));
        line_.send(bytes.substr(done, end - done));
        done = end;
        if (done < bytes.size()) {
            std::this_thread::sleep_until(start +
                                          toDuration(byteUs(pace) * static_cast<double>(done) + 1));
            now = Clock::now();
        }
    }
    return now;
}

void Station::sendDatagram(const std::string &bytes) const
{
    sockaddr_in board{};
    board.sin_family = AF_INET;
    board.sin_port = htons(1000);
    inet_pton(AF_INET, "192.168.0.100", &board.sin_addr);
    // The result is dropped: a datagram that is lost shows at its destination.
    static_cast<void>(sendto(pc_, bytes.data(), bytes.size(), 0,
                             reinterpret_cast<const sockaddr *>(&board), sizeof board));
}

void Station::receive(int from, const std::string &expected, Clock::time_point sent,
                      std::vector<double> *latencies)
{
    std::string received;
    while (received.size() < expected.size()) {
        if (!readUntil(from, sent + std::chrono::milliseconds(500), &received)) {
            ++lostMessages_;
            discard();
            return;
        }
    }
    latencies->push_back(secondsSince(sent) * 1000);
    if (received != expected) {
        std::fprintf(stderr, "wrong bytes: %s, not %s\n", received.c_str(), expected.c_str());
        std::exit(4);
    }
}

// Reads both ends until nothing comes any more.
void Station::discard() const
{
    std::string bytes;
    const auto silence = std::chrono::milliseconds(20);
    while (readUntil(line_.descriptor(), Clock::now() + silence, &bytes) ||
           readUntil(pc_, Clock::now() + silence, &bytes)) {
    }
}
