#include "tools/line.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <utility>

#include <linux/major.h>
#include <netdb.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tools/errors.h"
#include "tools/exclusive.h"

namespace {

constexpr char kDefaultPort[] = "1000";
constexpr Milliseconds kSendTimeout{1000};

[[noreturn]] void fail(const std::string &what)
{
    throw LocalError(fmt::format("{}: {}", what, std::strerror(errno)));
}

bool isPort(std::string_view text)
{
    uint16_t port = 0;
    const char *const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, port);
    return result.ec == std::errc() && result.ptr == end && port != 0;
}

bool isDatagramSocket(int descriptor)
{
    int type = 0;
    socklen_t length = sizeof type;
    return getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &length) == 0 && type == SOCK_DGRAM;
}

// A serial device forgets TIOCEXCL when it is closed. A pseudo-terminal keeps it as long as its
// other end is open: after a process that was killed nobody could open it any more.
bool isPseudoTerminal(int descriptor)
{
    struct stat status;
    return fstat(descriptor, &status) == 0 && major(status.st_rdev) >= UNIX98_PTY_SLAVE_MAJOR &&
           major(status.st_rdev) < UNIX98_PTY_SLAVE_MAJOR + UNIX98_PTY_MAJOR_COUNT;
}

// clang-format off
constexpr struct {
    unsigned baud;
    speed_t speed;
} kSpeeds[] = {
    {1200, B1200},     {2400, B2400},     {4800, B4800},       {9600, B9600},
    {19200, B19200},   {38400, B38400},   {57600, B57600},     {115200, B115200},
    {230400, B230400}, {460800, B460800}, {921600, B921600},   {1000000, B1000000},
    {1500000, B1500000}, {2000000, B2000000}, {3000000, B3000000}, {4000000, B4000000},
};
// clang-format on

speed_t speedOf(unsigned baud)
{
    std::string possible;
    for (const auto &entry : kSpeeds) {
        if (entry.baud == baud) {
            return entry.speed;
        }
        possible += fmt::format("{}{}", possible.empty() ? "" : ", ", entry.baud);
    }
    throw UsageError(fmt::format("no serial line runs at {}; possible are {}", baud, possible));
}

void makeRaw(const Line &line, const std::string &device, speed_t speed)
{
    termios settings;
    if (tcgetattr(line.descriptor(), &settings) < 0) {
        throw LocalError(fmt::format(
            "{} is not a serial device ({}); serial devices are named like /dev/ttyUSB0", device,
            std::strerror(errno)));
    }
    cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | CRTSCTS);
    cfsetispeed(&settings, speed);
    cfsetospeed(&settings, speed);
    if (tcsetattr(line.descriptor(), TCSANOW, &settings) < 0) {
        fail(fmt::format("cannot set up {}", device));
    }
}

} // namespace

Line Line::serial(const std::string &device, Milliseconds wait, unsigned baud)
{
    const speed_t speed = speedOf(baud);
    Line line(openAlone(device, wait), device);
    line.kept_ = std::make_unique<KeptSettings>(line.descriptor_);
    makeRaw(line, device, speed);
    if (!isPseudoTerminal(line.descriptor_)) {
        ioctl(line.descriptor_, TIOCEXCL); // for those that do not ask for a lock
        line.isExclusive_ = true;
    }
    return line;
}

Line Line::udp(const std::string &peer)
{
    const size_t colon = peer.find(':');
    const std::string host = peer.substr(0, colon);
    const std::string port = colon == std::string::npos ? kDefaultPort : peer.substr(colon + 1);
    if (host.empty() || !isPort(port)) {
        throw UsageError(fmt::format("\"{}\" is not HOST[:PORT]", peer));
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *found = nullptr;
    const int result = getaddrinfo(host.c_str(), port.c_str(), &hints, &found);
    if (result != 0) {
        throw LocalError(fmt::format("cannot find host {}: {}", host, gai_strerror(result)));
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> address(found, freeaddrinfo);
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        fail("cannot open a socket");
    }
    Line line(descriptor, peer);
    if (connect(descriptor, address->ai_addr, address->ai_addrlen) < 0) {
        fail(fmt::format("cannot reach {}", peer));
    }
    return line;
}

Line::Line(int descriptor, std::string name)
    : descriptor_(descriptor), carriesDatagrams_(isDatagramSocket(descriptor)),
      name_(std::move(name))
{
}

Line::Line(Line &&other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), carriesDatagrams_(other.carriesDatagrams_),
      kept_(std::move(other.kept_)), isExclusive_(other.isExclusive_),
      interruption_(other.interruption_), name_(std::move(other.name_)), tap_(std::move(other.tap_))
{
}

Line::~Line()
{
    if (descriptor_ >= 0) {
        kept_.reset();
        if (isExclusive_) {
            ioctl(descriptor_, TIOCNXCL); // a terminal that others have open keeps it otherwise
        }
        close(descriptor_);
    }
}

int Line::descriptor() const
{
    return descriptor_;
}

const std::string &Line::name() const
{
    return name_;
}

bool Line::carriesDatagrams() const
{
    return carriesDatagrams_;
}

void Line::stopAt(const Interruption *interruption)
{
    interruption_ = interruption;
}

void Line::send(std::string_view bytes)
{
    const std::string_view whole = bytes;
    const Deadline deadline(kSendTimeout);
    do {
        const ssize_t sent = write(descriptor_, bytes.data(), bytes.size());
        if (sent >= 0) {
            bytes.remove_prefix(static_cast<size_t>(sent));
        } else if (errno == EAGAIN && !deadline.passed()) {
            pollfd entry{descriptor_, POLLOUT, 0};
            poll(&entry, 1, static_cast<int>(deadline.left().count()));
        } else if (errno != EINTR && errno != ECONNREFUSED) {
            // ECONNREFUSED is about an earlier datagram. The socket is good for another try.
            throw LineLost(fmt::format("cannot send to {}: {}; is it still plugged in?", name_,
                                       std::strerror(errno)));
        }
    } while (!bytes.empty());
    if (tap_) {
        tap_(Passing::kSent, whole);
    }
}

std::string Line::receive(Milliseconds timeout)
{
    return receive(timeout, Passing::kReceived);
}

std::string Line::receive(Milliseconds timeout, Passing passing)
{
    const Deadline deadline(timeout);
    std::array<char, 65536> buffer;
    const int watched[] = {descriptor_,
                           interruption_ == nullptr ? -1 : interruption_->descriptor()};
    for (;;) {
        const std::vector<int> ready = waitReadable(watched, deadline.left());
        if (ready.empty()) {
            return {};
        }
        if (ready.back() != descriptor_) {
            throw Interrupted();
        }
        const ssize_t count = read(descriptor_, buffer.data(), buffer.size());
        if (count > 0) {
            const std::string_view bytes(buffer.data(), static_cast<size_t>(count));
            if (tap_) {
                tap_(passing, bytes);
            }
            return std::string(bytes);
        }
        // An empty datagram carries nothing, and a port without a listener is the same as an answer
        // that never comes. On any other line an empty read is its end.
        const bool isEnd = count == 0 ? !carriesDatagrams_
                                      : errno != EAGAIN && errno != EINTR && errno != ECONNREFUSED;
        if (isEnd) {
            throw LineLost(
                fmt::format("{} was closed: the cable or its adapter was unplugged, or the "
                            "far end has ended; plug it in and begin again",
                            name_));
        }
    }
}

void Line::discardInput()
{
    while (!receive(Milliseconds{0}, Passing::kDropped).empty()) {
    }
}

void Line::setTap(Tap tap)
{
    tap_ = std::move(tap);
}
