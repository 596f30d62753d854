// Where an answer goes and what it contains.

#include "command/reply.h"

#include <bit>

#include <gtest/gtest.h>

#include "tests/support/arrival.h"
#include "tests/support/bytes.h"

namespace {

using Calls = std::vector<Sent>;

static_assert(std::endian::native == std::endian::little); // network order below

// Channel 0 is serial port 0 and is served; the rest is unbound.
class Reply : public testing::Test {
protected:
    Reply()
    {
        fakeClock.setMs(1000);
        openLine();
        request({});
    }
};

TEST_F(Reply, HasTheDocumentedCodesAndSize)
{
    static_assert(kAck == 6 && kNak == 21 && sizeof strCommandFromLED == 20);
}

TEST_F(Reply, GoesToTheSourceOfTheChannelServed)
{
    commandFrom = 7;
    current_channel = 0; // the channel executed last has no say
    const std::string bytes = countingBytes(5000);
    const auto expectSent = [&](uint32_t type, uint64_t address, const Calls &calls) {
        channel[7]->type = type;
        channel[7]->address = address;
        EXPECT_EQ(printedBy([&] { SendBufferToPC(bytesOf(bytes), lengthOf(bytes)); }), "");
        EXPECT_EQ(takeSent(), calls) << type << " " << address;
    };
    expectSent(2, 0, {{"uart 0", bytes}});
    expectSent(2, 1, {{"uart 1", bytes}});
    expectSent(2, 300, {{"uart 300", bytes}});
    expectSent(2, 0xFFFFFFFF'FFFFFFFF, {{"uart -1", bytes}});
    expectSent(0, 0x00001388'0900000A, {{"udp 10.0.0.9:5000", bytes}});
    expectSent(0, 0x0000FFFE'FDFCFBFA, {{"udp 250.251.252.253:65534", bytes}});
    for (const uint32_t type : {1u, 3u, 4u, 5u, 6u, 0x100u, 0x80000002u, 0xFFFFFFFFu}) {
        expectSent(type, 0, {});
    }
}

TEST_F(Reply, CarriesTheAnswerOfEachHelperInOneFrame)
{
    // clang-format off
    constexpr struct {
        const char *name;
        Parameters request;
        const char *reply;
        void (*action)();
    } kRows[] = {
        {"the handler's data, the rest of the request", {0x0A, 0x0B, 0x6A, 1, 2, 3, 4}, // 389
         "<F0a0b6ac1c2c3c489>", [] { commandFromLED.dat1 = 0xC1;
                                     commandFromLED.dat2 = 0xC2;
                                     commandFromLED.dat3 = 0xC3;
                                     commandFromLED.dat4 = 0xC4;
                                     SendRs232Command(); }},
        {"four data bytes",            {0x0A, 0x0B, 0x6A, 1, 2, 3, 4},
         "<F0a0b6ac1c2c3c489>", [] { SendReply(0xC1, 0xC2, 0xC3, 0xC4); }},
        {"dat1 and three data bytes",  {0x0A, 0x0B, 0x6A, 0xC1, 2, 3, 4},
         "<F0a0b6ac1c2c3c489>", [] { SendAnswer(0xC2, 0xC3, 0xC4); }},
        {"an echo, with its checksum", {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE}, // 348
         "<F123456789abcde48>", SendWriteRs232Command},
        {"a refusal",                  {1, 2, 0x10, 0x33, 0x44, 0x55, 0x66},
         "<F010210ffffffff0f>", CommandErrorTask},
    };
    // clang-format on
    for (const auto &row : kRows) {
        request(row.request);
        const auto before = bytesOf(commandToLED);
        EXPECT_EQ(printedBy(row.action), "") << row.name;
        EXPECT_EQ(takeSent(), uart0({row.reply})) << row.name;
        EXPECT_EQ(bytesOf(commandToLED), before) << row.name;
    }
}

TEST_F(Reply, EchoesForAckAndRefusesForEveryOtherCode)
{
    for (unsigned code = 0; code < 256; ++code) {
        request({1, 2, 0x10, 0x33, 0x44, 0x55, 0x66});
        SendAckOrNack(static_cast<uint8_t>(code));
        // 01 + 02 + 10 + 33 + 44 + 55 + 66 = 145
        EXPECT_EQ(takeSent(), uart0({code == 6 ? "<F0102103344556645>" : "<F010210ffffffff0f>"}))
            << code;
    }
}

TEST_F(Reply, StaysInTheRecordAndTheTextEvenWhenNobodyGetsIt)
{
    commandFrom = 9;
    request({1, 2, 0x10, 0, 0, 0, 0});
    EXPECT_EQ(printedBy(CommandErrorTask), "");
    EXPECT_EQ(sent, Calls());
    EXPECT_EQ(bytesOf(commandFromLED),
              (std::array<uint8_t, 8>{1, 2, 0x10, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F}));
    EXPECT_EQ(std::string(strCommandFromLED, 20), std::string("<F010210ffffffff0f>") + '\0');
}

} // namespace
