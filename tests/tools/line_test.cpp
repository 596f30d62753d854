// A serial device and a UDP peer as one kind of line.

#include "tools/line.h"

#include <array>
#include <cstdlib>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <termios.h>

#include "tests/support/bytes.h"
#include "tests/support/terminal.h"
#include "tools/errors.h"

namespace {

constexpr Milliseconds kLong{1000};
constexpr Milliseconds kShort{20};

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
    Line line = Line::serial(terminal.path);
    const std::string all = countingBytes(256);
    line.send(all);
    std::string sent(1000, '\0');
    sent.resize(static_cast<size_t>(read(terminal.master, sent.data(), sent.size())));
    EXPECT_EQ(sent, all);
    ASSERT_EQ(write(terminal.master, all.data(), 256), 256);
    std::string arrived;
    for (std::string more; arrived.size() < 256 && !(more = line.receive(kLong)).empty();) {
        arrived += more;
    }
    EXPECT_EQ(arrived, all);
}

TEST(Line, SerialRunsAt115200Raw)
{
    const Terminal terminal;
    const Line line = Line::serial(terminal.path);
    termios settings;
    ASSERT_EQ(tcgetattr(line.descriptor(), &settings), 0);
    EXPECT_EQ((std::array<tcflag_t, 6>{cfgetispeed(&settings), cfgetospeed(&settings),
                                       settings.c_lflag & (ICANON | ECHO | ISIG),
                                       settings.c_iflag & (IXON | ICRNL), settings.c_oflag & OPOST,
                                       settings.c_cflag & CSIZE}),
              (std::array<tcflag_t, 6>{B115200, B115200, 0, 0, 0, CS8}));
}

TEST(Line, SerialRunsAtAnotherRateIfTheUserSaysSo)
{
    const Terminal terminal;
    const Line line = Line::serial(terminal.path, Milliseconds{0}, 9600);
    termios settings;
    ASSERT_EQ(tcgetattr(line.descriptor(), &settings), 0);
    EXPECT_EQ(cfgetispeed(&settings), static_cast<speed_t>(B9600));
    EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B9600));
    EXPECT_THROW(Line::serial(terminal.path, Milliseconds{0}, 12345), UsageError);
}

TEST(Line, SaysThatNothingCameAndDiscardsOldBytes)
{
    const Terminal terminal;
    Line line = Line::serial(terminal.path);
    EXPECT_EQ(line.receive(kShort), "");
    ASSERT_EQ(write(terminal.master, "old", 3), 3);
    line.discardInput();
    EXPECT_EQ(line.receive(kShort), "");
}

TEST(Line, ACableThatIsPulledIsAnErrorAndNoSilence)
{
    Terminal terminal;
    Line line = Line::serial(terminal.path);
    close(terminal.master);
    terminal.master = -1;
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
