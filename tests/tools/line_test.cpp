// A serial device and a UDP peer as one kind of line.

#include "tools/line.h"

#include <array>
#include <cstdlib>
#include <string>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tools/errors.h"

namespace {

constexpr Milliseconds kLong{1000};
constexpr Milliseconds kShort{20};

// A serial device with its far end in our hands.
struct Terminal {
    int far = posix_openpt(O_RDWR | O_NOCTTY);

    Terminal()
    {
        EXPECT_EQ(grantpt(far), 0);
        EXPECT_EQ(unlockpt(far), 0);
    }
    ~Terminal()
    {
        close(far);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    std::string device() const
    {
        return ptsname(far);
    }
};

// A UDP socket on a port of its own.
struct Peer {
    int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};

    Peer()
    {
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        EXPECT_EQ(bind(descriptor, reinterpret_cast<sockaddr *>(&address), length), 0);
        EXPECT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &length), 0);
    }
    ~Peer()
    {
        close(descriptor);
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    std::string name() const
    {
        return "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    }

    // The next datagram; its sender is whom answer() answers.
    std::string receive()
    {
        std::array<char, 1000> buffer;
        socklen_t length = sizeof address;
        const ssize_t count = recvfrom(descriptor, buffer.data(), buffer.size(), 0,
                                       reinterpret_cast<sockaddr *>(&address), &length);
        return {buffer.data(), count < 0 ? 0 : static_cast<size_t>(count)};
    }

    void answer(const std::string &bytes) const
    {
        EXPECT_EQ(sendto(descriptor, bytes.data(), bytes.size(), 0,
                         reinterpret_cast<const sockaddr *>(&address), sizeof address),
                  static_cast<ssize_t>(bytes.size()));
    }
};

TEST(Line, SerialCarriesEveryByteUnchanged)
{
    const Terminal terminal;
    Line line = Line::serial(terminal.device());
    const std::string all = countingBytes(256);
    line.send(all);
    std::array<char, 1000> buffer;
    EXPECT_EQ(std::string(buffer.data(),
                          static_cast<size_t>(read(terminal.far, buffer.data(), buffer.size()))),
              all);
    ASSERT_EQ(write(terminal.far, all.data(), 256), 256);
    std::string arrived;
    for (std::string more; arrived.size() < 256 && !(more = line.receive(kLong)).empty();) {
        arrived += more;
    }
    EXPECT_EQ(arrived, all);
}

TEST(Line, SerialRunsAt115200Raw)
{
    const Terminal terminal;
    const Line line = Line::serial(terminal.device());
    termios settings;
    ASSERT_EQ(tcgetattr(line.descriptor(), &settings), 0);
    EXPECT_EQ(cfgetispeed(&settings), static_cast<speed_t>(B115200));
    EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B115200));
    EXPECT_EQ(settings.c_lflag & (ICANON | ECHO | ISIG), 0U);
    EXPECT_EQ(settings.c_iflag & (IXON | ICRNL), 0U);
    EXPECT_EQ(settings.c_oflag & OPOST, 0U);
    EXPECT_EQ(settings.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
}

TEST(Line, SaysThatNothingCameAndDiscardsOldBytes)
{
    const Terminal terminal;
    Line line = Line::serial(terminal.device());
    EXPECT_EQ(line.receive(kShort), "");
    ASSERT_EQ(write(terminal.far, "old", 3), 3);
    line.discardInput();
    EXPECT_EQ(line.receive(kShort), "");
}

TEST(Line, ACableThatIsPulledIsAnErrorAndNoSilence)
{
    Terminal terminal;
    Line line = Line::serial(terminal.device());
    close(terminal.far);
    terminal.far = -1;
    EXPECT_THROW(line.receive(kLong), LocalError);
}

TEST(Line, WhatIsNoSerialDeviceIsAnError)
{
    EXPECT_THROW(Line::serial("/nowhere/at/all"), LocalError);
    EXPECT_THROW(Line::serial("/dev/null"), LocalError);
}

TEST(Line, UdpSendsDatagramsAndReceivesTheirAnswers)
{
    Peer peer;
    Line line = Line::udp(peer.name());
    line.send("question");
    line.send("");
    EXPECT_EQ(peer.receive(), "question");
    EXPECT_EQ(peer.receive(), "");
    peer.answer("");
    peer.answer("answer");
    EXPECT_EQ(line.receive(kLong), "answer"); // the empty one is skipped
}

TEST(Line, NobodyAtTheUdpPortIsSilence)
{
    std::string name;
    {
        const Peer peer;
        name = peer.name();
    }
    Line line = Line::udp(name);
    line.send("a");
    EXPECT_EQ(line.receive(kShort), "");
    line.send("b");
    line.send("c");
    EXPECT_EQ(line.receive(kShort), "");
}

TEST(Line, RefusesWhatIsNoHostAndPort)
{
    for (const char *text :
         {"", ":1000", "host:", "host:0", "host:65536", "host:port", "host:1x"}) {
        EXPECT_THROW(Line::udp(text), UsageError) << text;
    }
}

} // namespace
