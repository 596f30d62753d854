// Sending a package: every block in its order, again when it was not accepted, and not for ever.
// The device is the test itself, on the far end of the line.

#include "tools/update.h"

#include <array>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tools/errors.h"
#include "tools/frames.h"
#include "tools/package.h"

namespace {

// How long an answer may take that will come, and one that will not.
constexpr Milliseconds kPatience{10000};
constexpr Milliseconds kSilence{200};

// The same for a device that answers some arrivals and others not.
constexpr Milliseconds kEither{2000};

// A frame with the sum of its bytes.
std::string frame(char kind, std::array<uint8_t, 7> bytes)
{
    std::string text = "<";
    text += kind;
    uint8_t sum = 0;
    const auto append = [&](uint8_t byte) {
        const char digits[] = "0123456789abcdef";
        text += digits[byte >> 4];
        text += digits[byte & 15];
    };
    for (const uint8_t byte : bytes) {
        append(byte);
        sum = static_cast<uint8_t>(sum + byte);
    }
    append(sum);
    return text + ">";
}

// What arrived at the device in one piece: a frame with a block, or without.
struct Arrival {
    Rs232Command command;
    std::string block;

    std::string accepted() const
    {
        return frame('F', {command.address, command.tag, command.command, command.dat1,
                           command.dat2, command.dat3, command.dat4});
    }
    std::string refused() const
    {
        return frame('F', {command.address, command.tag, command.command, 255, 255, 255, 255});
    }
};

// A device that answers each arrival, the n-th from 0, as it is told: with no bytes not at all.
class Device {
public:
    using Answer = std::function<std::string(size_t, const Arrival &)>;

    explicit Device(Answer answer) : answer_(std::move(answer))
    {
        std::array<int, 2> ends{-1, -1};
        // Arrivals stay apart, as datagrams do.
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends.data()), 0);
        own_ = ends[0];
        theirs_ = ends[1];
        thread_ = std::thread([this] { run(); });
    }
    ~Device()
    {
        if (thread_.joinable()) {
            stop();
        }
    }
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;

    // Sends the package and returns the exit status; keeps what it printed.
    int update(const std::string &package, Milliseconds timeout = kPatience, bool query = false)
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        int status;
        {
            Line line(theirs_, "device");
            status = runUpdate(line, updateStream(package), {query, timeout, timeout});
        }
        output = testing::internal::GetCapturedStdout();
        errors = testing::internal::GetCapturedStderr();
        stop();
        return status;
    }

    std::vector<Arrival> arrivals;
    std::string output;
    std::string errors;

private:
    void run()
    {
        std::array<char, 4096> buffer;
        for (;;) {
            pollfd entry{own_, POLLIN, 0};
            poll(&entry, 1, -1);
            const ssize_t count = read(own_, buffer.data(), buffer.size());
            if (count <= 0) {
                return; // the line is closed
            }
            const std::string bytes(buffer.data(), static_cast<size_t>(count));
            if (bytes.size() < 19 || !isFrame(bytes.substr(0, 19))) {
                ADD_FAILURE() << "no frame: " << bytes;
                continue;
            }
            arrivals.push_back({recordOf(bytes), bytes.substr(19)});
            const std::string text = answer_(arrivals.size() - 1, arrivals.back());
            if (!text.empty()) {
                EXPECT_EQ(write(own_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
            }
        }
    }
    void stop()
    {
        thread_.join();
        close(own_);
    }

    Answer answer_;
    int own_ = -1;
    int theirs_ = -1;
    std::thread thread_;
};

std::string acceptAll(size_t, const Arrival &arrival)
{
    return arrival.accepted();
}

TEST(SendUpdate, SendsEveryBlockBehindItsFrame)
{
    const std::string package(300000, 'p');
    Device device(acceptAll);
    EXPECT_EQ(device.update(package), kDone);
    const std::string stream = updateStream(package);
    ASSERT_EQ(device.arrivals.size(), 294U); // 300128 bytes in blocks of 1024
    for (size_t number = 0; number < device.arrivals.size(); ++number) {
        const Arrival &arrival = device.arrivals[number];
        EXPECT_EQ(arrival.command.command, 0x9A);
        EXPECT_EQ(arrival.command.dat1, 0xA0);
        EXPECT_EQ(arrival.command.dat2, 0x07);
        EXPECT_EQ(arrival.command.dat3, number % 256);
        EXPECT_EQ(arrival.command.dat4, number / 256);
        EXPECT_EQ(arrival.command.checksum, rightChecksum(arrival.command));
        EXPECT_EQ(arrival.block.size(), 1025U);
        EXPECT_EQ(arrival.block.substr(0, 1024), stream.substr(number * 1024, 1024));
    }
    EXPECT_EQ(device.output.substr(0, 14), "294 blocks in ");
    EXPECT_NE(device.output.find(" blocks/s, 0 sent again\n"), std::string::npos);
    EXPECT_EQ(device.errors, "");
}

TEST(SendUpdate, SendsARefusedBlockAgain)
{
    Device device([](size_t count, const Arrival &arrival) {
        return count == 1 ? arrival.refused() : arrival.accepted();
    });
    EXPECT_EQ(device.update(std::string(2000, 'p')), kDone);
    ASSERT_EQ(device.arrivals.size(), 4U);
    EXPECT_EQ(device.arrivals[1].command.dat3, 1);
    EXPECT_EQ(device.arrivals[2].command.dat3, 1);
    EXPECT_EQ(device.arrivals[2].block, device.arrivals[1].block);
    EXPECT_EQ(device.arrivals[3].command.dat3, 2);
    EXPECT_EQ(device.errors, "veskctl: block 1 of 3: refused, sent again\n");
    EXPECT_NE(device.output.find(", 1 sent again\n"), std::string::npos);
}

TEST(SendUpdate, SendsABlockWithoutAnAnswerAgain)
{
    Device device(
        [](size_t count, const Arrival &arrival) { return count == 1 ? "" : arrival.accepted(); });
    EXPECT_EQ(device.update(std::string(1000, 'p'), kEither), kDone);
    ASSERT_EQ(device.arrivals.size(), 3U);
    EXPECT_EQ(device.arrivals[2].block, device.arrivals[1].block);
    EXPECT_EQ(device.errors, "veskctl: block 1 of 2: no answer, sent again\n");
}

TEST(SendUpdate, GivesUpAfterTheFifthRefusal)
{
    Device device([](size_t, const Arrival &arrival) { return arrival.refused(); });
    EXPECT_EQ(device.update(std::string(2000, 'p')), kRefused);
    EXPECT_EQ(device.arrivals.size(), 5U);
    EXPECT_EQ(device.errors, "veskctl: block 0 of 3: refused, sent again\n"
                             "veskctl: block 0 of 3: refused, sent again\n"
                             "veskctl: block 0 of 3: refused, sent again\n"
                             "veskctl: block 0 of 3: refused, sent again\n"
                             "veskctl: block 0 of 3: refused, 5 times in all\n");
    EXPECT_EQ(device.output, "");
}

TEST(SendUpdate, CountsTheTriesOfEachBlockAnew)
{
    // Four tries fail, the fifth holds, twice.
    Device device([](size_t count, const Arrival &arrival) {
        return count % 5 == 4 ? arrival.accepted() : arrival.refused();
    });
    EXPECT_EQ(device.update(std::string(1000, 'p')), kDone);
    EXPECT_EQ(device.arrivals.size(), 10U);
}

// The device may have installed it, and would do so again over the backup of the old executable.
TEST(SendUpdate, DoesNotRepeatAnOnlyBlockThatHasNoAnswer)
{
    Device device([](size_t, const Arrival &) { return ""; });
    EXPECT_EQ(device.update("p", kSilence), kNoAnswer);
    EXPECT_EQ(device.arrivals.size(), 1U);
    EXPECT_EQ(device.errors,
              "veskctl: block 0 of 1: no answer; it may have been installed all the same\n");
}

TEST(SendUpdate, RepeatsAnOnlyBlockThatIsRefused)
{
    Device device([](size_t count, const Arrival &arrival) {
        return count == 0 ? arrival.refused() : arrival.accepted();
    });
    EXPECT_EQ(device.update("p"), kDone);
    EXPECT_EQ(device.arrivals.size(), 2U);
}

TEST(SendUpdate, TakesNoLateAnswerForTheOneToTheNextTry)
{
    // The second try is answered with what should have answered the first.
    std::string late;
    Device device([&](size_t count, const Arrival &arrival) -> std::string {
        if (count == 0) {
            late = arrival.accepted();
            return arrival.refused();
        }
        return count == 1 ? late + arrival.refused() : arrival.accepted();
    });
    EXPECT_EQ(device.update(std::string(1000, 'p')), kDone);
    EXPECT_EQ(device.arrivals.size(), 4U);
    EXPECT_EQ(device.arrivals[2].command.dat3, 0);
}

TEST(SendUpdate, AsksFirstIfItIsTold)
{
    Device device([](size_t count, const Arrival &arrival) {
        return count == 0   ? frame('F', {0, 0, 0x9A, 0xA1, 0x07, 0x04, 0x00})
               : count == 1 ? frame('F', {0, 0, 0x9A, 0xB1, 0x07, 0x01, 0x0A})
                            : arrival.accepted();
    });
    EXPECT_EQ(device.update("p", kPatience, true), kDone);
    ASSERT_EQ(device.arrivals.size(), 3U);
    EXPECT_EQ(device.arrivals[0].command.dat1, 0xA1);
    EXPECT_EQ(device.arrivals[0].command.dat2, 0x07);
    EXPECT_EQ(device.arrivals[0].block, "");
    EXPECT_EQ(device.arrivals[1].command.dat1, 0xB1);
    EXPECT_EQ(device.arrivals[1].command.dat2, 0x07);
    const std::string said = "<F00009aa107040046>  reply, address 00, tag 00: update block size: "
                             "0x0400\n"
                             "<F00009ab107010a5d>  reply, address 00, tag 00: update version: "
                             "1.10\n1 blocks in ";
    EXPECT_EQ(device.output.substr(0, said.size()), said);
}

TEST(SendUpdate, SendsNothingToADeviceThatRefusesTheQuestion)
{
    Device device([](size_t, const Arrival &arrival) { return arrival.refused(); });
    EXPECT_EQ(device.update("p", kPatience, true), kRefused);
    EXPECT_EQ(device.arrivals.size(), 1U);
}

TEST(SendUpdate, SendsNothingToADeviceThatDoesNotAnswerTheQuestion)
{
    Device device([](size_t, const Arrival &) { return ""; });
    EXPECT_EQ(device.update("p", kSilence, true), kNoAnswer);
    EXPECT_EQ(device.arrivals.size(), 1U);
    EXPECT_EQ(device.errors, "veskctl: no answer within 200 ms\n");
}

TEST(SendUpdate, SendsNothingToADeviceThatTakesOtherBlocks)
{
    Device device([](size_t, const Arrival &) {
        return frame('F', {0, 0, 0x9A, 0xA1, 0x07, 0x02, 0x00});
    });
    EXPECT_EQ(device.update("p", kPatience, true), kRefused);
    EXPECT_EQ(device.arrivals.size(), 1U);
    EXPECT_EQ(device.errors, "veskctl: only blocks of 1024 bytes can be sent\n");
}

} // namespace
