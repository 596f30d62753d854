// Where an answer goes and what it says.

#include "command/reply.h"

#include <array>
#include <bit>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "command/channel.h"
#include "command/reception.h"
#include "tests/support/clock.h"
#include "tests/support/exchange.h"

namespace {

constexpr uint64_t kPc = 0x00001388'0900000A; // port 5000; the bytes of 10.0.0.9 in network order
static_assert(std::endian::native == std::endian::little);

// Channel 0 is serial port 0, channel 1 serial port 1, channel 2 a UDP peer; the rest is unbound.
class Reply : public testing::Test {
protected:
    Reply()
    {
        fakeClock.setMs(1000);
        InitRs232CommandVariable();
        getFreeChannel(2, 0);
        getFreeChannel(2, 1);
        getFreeChannel(0, kPc);
        // The exchange before this one leaves nothing that may show.
        std::memset(&commandToLED, 0xA1, sizeof commandToLED);
        std::memset(&commandFromLED, 0xB2, sizeof commandFromLED);
    }

    static void request(const Parameters &parameters, uint8_t checksum = 0x77)
    {
        commandToLED = {parameters[0], parameters[1], parameters[2], parameters[3],
                        parameters[4], parameters[5], parameters[6], checksum};
    }

    static void fillData(uint8_t dat1, uint8_t dat2, uint8_t dat3, uint8_t dat4)
    {
        commandFromLED.dat1 = dat1;
        commandFromLED.dat2 = dat2;
        commandFromLED.dat3 = dat3;
        commandFromLED.dat4 = dat4;
    }

    static void sendFrom(uint8_t index, const std::string &bytes)
    {
        commandFrom = index;
        SendBufferToPC(bytesOf(bytes), lengthOf(bytes));
    }
};

using Calls = std::vector<Sent>;

TEST_F(Reply, HasTheDocumentedCodes)
{
    EXPECT_EQ(kAck, 6);
    EXPECT_EQ(kNak, 21);
}

TEST_F(Reply, IsBuiltInATextOf20Characters)
{
    EXPECT_EQ(sizeof strCommandFromLED, 20u);
}

// Routing ----------------------------------------------------------------------------------------

TEST_F(Reply, GoesToThePortOfASerialChannel)
{
    sendFrom(0, "zero");
    sendFrom(1, "one");
    EXPECT_EQ(sent, (Calls{{"uart 0", "zero"}, {"uart 1", "one"}}));
}

TEST_F(Reply, TakesTheSerialPortAsASignedNumber)
{
    ASSERT_EQ(getFreeChannel(2, 0xFFFFFFFF'FFFFFFFF), 3);
    sendFrom(3, "?");
    EXPECT_EQ(sent, (Calls{{"uart -1", "?"}}));
}

TEST_F(Reply, GoesToThePeerOfAUdpChannel)
{
    sendFrom(2, "hello");
    EXPECT_EQ(sent, (Calls{{"udp 10.0.0.9:5000", "hello"}}));
}

TEST_F(Reply, TakesAllBitsOfThePeersAddressAndPort)
{
    ASSERT_EQ(getFreeChannel(0, 0x0000FFFE'FDFCFBFA), 3);
    sendFrom(3, "?");
    EXPECT_EQ(sent, (Calls{{"udp 250.251.252.253:65534", "?"}}));
}

TEST_F(Reply, OfAnyOtherKindOfChannelIsDroppedSilently)
{
    for (const uint32_t type : {1u, 3u, 4u, 5u, 6u, 0x100u, 0x80000002u, 0xFFFFFFFFu}) {
        channel[0]->type = type;
        EXPECT_EQ(printedBy([] { sendFrom(0, "hello"); }), "") << type;
        EXPECT_EQ(takeSent(), Calls()) << type;
    }
}

TEST_F(Reply, ToAnUnboundChannelIsDroppedSilently)
{
    commandFrom = 9;
    EXPECT_EQ(printedBy(CommandErrorTask), "");
    EXPECT_EQ(sent, Calls());
}

TEST_F(Reply, BelongsToTheChannelServedNotToTheOneExecutedLast)
{
    current_channel = 1;
    sendFrom(2, "x");
    EXPECT_EQ(sent, (Calls{{"udp 10.0.0.9:5000", "x"}}));
}

TEST_F(Reply, CarriesRawBytesOfAnyLength)
{
    std::string bytes;
    for (int i = 0; i < 5000; ++i) {
        bytes += static_cast<char>(i);
    }
    sendFrom(0, bytes);
    sendFrom(2, bytes);
    EXPECT_EQ(sent, (Calls{{"uart 0", bytes}, {"udp 10.0.0.9:5000", bytes}}));
}

// The frame --------------------------------------------------------------------------------------

TEST_F(Reply, CarriesTheDataOfTheHandlerAndTheRestOfTheRequest)
{
    commandFrom = 0;
    request({0x0A, 0x0B, 0x6A, 1, 2, 3, 4});
    fillData(0xC1, 0xC2, 0xC3, 0xC4);
    SendRs232Command();
    // 0a + 0b + 6a + c1 + c2 + c3 + c4 = 389
    EXPECT_EQ(sent, (Calls{{"uart 0", "<F0a0b6ac1c2c3c489>"}}));
}

TEST_F(Reply, IsExactly19CharactersWithoutLineEnding)
{
    commandFrom = 0;
    SendRs232Command();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].bytes.size(), 19u);
}

TEST_F(Reply, CanNeverCarryAnotherCode)
{
    commandFrom = 0;
    for (unsigned code = 0; code < 256; ++code) {
        request({0, 0, static_cast<uint8_t>(code), 0, 0, 0, 0});
        fillData(0, 0, 0, 0);
        commandFromLED.address = 0x11;
        commandFromLED.tag = 0x22;
        commandFromLED.command = static_cast<uint8_t>(~code);
        SendRs232Command();
        EXPECT_EQ(takeSent(),
                  (Calls{{"uart 0", replyFrame({0, 0, static_cast<uint8_t>(code), 0, 0, 0, 0})}}));
    }
}

TEST_F(Reply, LeavesTheRequestAlone)
{
    commandFrom = 0;
    request({1, 2, 3, 4, 5, 6, 7}, 0x99);
    const auto before = bytesOf(commandToLED);
    SendRs232Command();
    SendWriteRs232Command();
    CommandErrorTask();
    SendAckOrNack(6);
    SendAckOrNack(21);
    EXPECT_EQ(bytesOf(commandToLED), before);
    EXPECT_EQ(sent.size(), 5u);
}

TEST_F(Reply, StaysInTheRecordAndTheText)
{
    commandFrom = 0;
    request({1, 2, 0x10, 0, 0, 0, 0});
    CommandErrorTask();
    EXPECT_EQ(bytesOf(commandFromLED),
              (std::array<uint8_t, 8>{1, 2, 0x10, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F}));
    EXPECT_EQ(std::string(strCommandFromLED, 20), std::string("<F010210ffffffff0f>") + '\0');
}

TEST_F(Reply, IsBuiltEvenWhenNobodyGetsIt)
{
    commandFrom = 9;
    request({1, 2, 3, 4, 5, 6, 7});
    SendWriteRs232Command();
    EXPECT_EQ(std::string(strCommandFromLED), "<F010203040506071c>");
    EXPECT_EQ(sent, Calls());
}

TEST_F(Reply, EchoesTheRequestWithAChecksumOfItsOwn)
{
    commandFrom = 0;
    request({0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE}, 0x00);
    SendWriteRs232Command();
    // 12 + 34 + 56 + 78 + 9a + bc + de = 348
    EXPECT_EQ(sent, (Calls{{"uart 0", "<F123456789abcde48>"}}));
}

TEST_F(Reply, RefusesWithFourTimesFf)
{
    commandFrom = 0;
    request({1, 2, 0x10, 0x33, 0x44, 0x55, 0x66});
    CommandErrorTask();
    EXPECT_EQ(sent, (Calls{{"uart 0", "<F010210ffffffff0f>"}}));
}

TEST_F(Reply, EchoesForAckAndRefusesForEveryOtherCode)
{
    commandFrom = 0;
    for (unsigned code = 0; code < 256; ++code) {
        request({1, 2, 0x10, 0x33, 0x44, 0x55, 0x66});
        SendAckOrNack(static_cast<uint8_t>(code));
        // 01 + 02 + 10 + 33 + 44 + 55 + 66 = 145
        const char *const expected = code == 6 ? "<F0102103344556645>" : "<F010210ffffffff0f>";
        EXPECT_EQ(takeSent(), (Calls{{"uart 0", expected}})) << code;
    }
}

TEST_F(Reply, GoesOverUdpInTheSameFrame)
{
    commandFrom = 2;
    request({1, 2, 0x10, 0, 0, 0, 0});
    CommandErrorTask();
    EXPECT_EQ(sent, (Calls{{"udp 10.0.0.9:5000", "<F010210ffffffff0f>"}}));
}

} // namespace
