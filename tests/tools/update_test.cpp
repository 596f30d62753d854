// Sending a package: every block in its order, again when it was not accepted, and not for ever.
// The device is the test itself, on the far end of the line.

#include "tools/update.h"

#include <array>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>

#include <gtest/gtest.h>

#include "tests/support/console.h"
#include "tests/tools/far_end.h"
#include "tools/errors.h"
#include "tools/frames.h"
#include "tools/package.h"

namespace {

// How long an answer may take that will come, and one that will not.
constexpr Milliseconds kPatience{10000};
constexpr Milliseconds kSilence{50};

// The same for a device that answers some arrivals and others not.
constexpr Milliseconds kEither{2000};

// A reply with the sum of its bytes.
std::string reply(const std::array<uint8_t, 7> &bytes)
{
    std::string text = "<F";
    unsigned sum = 0;
    const auto append = [&](unsigned byte) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte % 256);
        text += digits;
        sum += byte;
    };
    for (const uint8_t byte : bytes) {
        append(byte);
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
        return reply({command.address, command.tag, command.command, command.dat1, command.dat2,
                      command.dat3, command.dat4});
    }
    std::string refused() const
    {
        return reply({command.address, command.tag, command.command, 255, 255, 255, 255});
    }
};

// A device that answers each arrival, the n-th from 0, as it is told: with no bytes not at all.
class Device {
public:
    using Answer = std::function<std::string(size_t, const Arrival &)>;

    explicit Device(Answer answer) : answer_(std::move(answer)) {}

    // Sends the package and returns the exit status; keeps what it printed.
    int update(const std::string &package, Milliseconds timeout = kPatience, bool query = false)
    {
        FarEnd far;
        std::thread thread([&] { run(far); });
        Console console;
        int status;
        {
            Line line(std::move(far.line)); // which closes it
            status = runUpdate(line, updateStream(package), {query, timeout, timeout});
        }
        console.end();
        thread.join();
        output = console.out;
        errors = console.err;
        return status;
    }

    std::vector<Arrival> arrivals;
    std::string output;
    std::string errors;

private:
    void run(const FarEnd &far)
    {
        for (;;) {
            pollfd entry{far.descriptor, POLLIN, 0};
            poll(&entry, 1, -1);
            const std::string bytes = far.sent();
            if (bytes.empty()) {
                return; // the line is closed
            }
            if (bytes.size() < 19 || !isFrame(bytes.substr(0, 19))) {
                ADD_FAILURE() << "no frame: " << bytes;
                continue;
            }
            arrivals.push_back({recordOf(bytes), bytes.substr(19)});
            const std::string text = answer_(arrivals.size() - 1, arrivals.back());
            if (!text.empty()) {
                far.arrive(text);
            }
        }
    }

    Answer answer_;
};

std::string accepts(size_t, const Arrival &arrival)
{
    return arrival.accepted();
}

std::string refuses(size_t, const Arrival &arrival)
{
    return arrival.refused();
}

std::string isSilent(size_t, const Arrival &)
{
    return "";
}

TEST(SendUpdate, SendsEveryBlockAfterItsFrame)
{
    const std::string package(300000, 'p');
    Device device(accepts);
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
    Device device(refuses);
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
    Device device(isSilent);
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
        return count == 0   ? reply({0, 0, 0x9A, 0xA1, 0x07, 0x04, 0x00})
               : count == 1 ? reply({0, 0, 0x9A, 0xB1, 0x07, 0x01, 0x0A})
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

TEST(SendUpdate, SendsNothingToADeviceThatDoesNotAnswerTheQuestionAsItShould)
{
    const auto takesOthers = [](size_t, const Arrival &) {
        return reply({0, 0, 0x9A, 0xA1, 0x07, 0x02, 0x00});
    };
    const struct {
        Device::Answer answer;
        Milliseconds timeout;
        int status;
        const char *errors;
    } rows[] = {
        {refuses, kPatience, kRefused, ""},
        {isSilent, kSilence, kNoAnswer, "veskctl: no answer within 50 ms\n"},
        {takesOthers, kPatience, kRefused, "veskctl: only blocks of 1024 bytes can be sent\n"},
    };
    for (const auto &row : rows) {
        Device device(row.answer);
        EXPECT_EQ(device.update("p", row.timeout, true), row.status) << row.errors;
        EXPECT_EQ(device.arrivals.size(), 1U) << row.errors;
        EXPECT_EQ(device.errors, row.errors);
    }
}

} // namespace
