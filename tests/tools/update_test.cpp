// Sending a package: every block in its order, again when it was not accepted, and not for ever.
// The device is the test itself, on the far end of the line.

#include "tools/update.h"

#include <algorithm>
#include <functional>
#include <thread>
#include <utility>

#include <poll.h>

#include "tests/support/bytes.h"
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

// What arrived at the device in one piece: a frame with a block, or without.
struct Arrival {
    std::string frame;
    std::string block;
    Rs232Command command;

    // The command itself, and its first three bytes with four of 255: they add up to -4.
    std::string accepted() const
    {
        return "<F" + frame.substr(2);
    }
    std::string refused() const
    {
        const int sum = command.address + command.tag + command.command - 4;
        return "<F" + frame.substr(2, 6) + "ffffffff" +
               hex(std::string(1, static_cast<char>(sum))) + ">";
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
            const std::string frame = bytes.substr(0, 19);
            if (!isFrame(frame)) {
                ADD_FAILURE() << "no frame: " << bytes;
                continue;
            }
            arrivals.push_back({frame, bytes.substr(19), recordOf(frame)});
            const std::string text = answer_(arrivals.size() - 1, arrivals.back());
            if (!text.empty()) {
                far.arrive(text);
            }
        }
    }

    Answer answer_;
};

// "a" for each arrival that is accepted, "r" for one that is refused, "-" for one without an
// answer; the last one counts for all further arrivals.
Device::Answer scripted(const std::string &script)
{
    return [script](size_t count, const Arrival &arrival) -> std::string {
        const char answer = script[std::min(count, script.size() - 1)];
        return answer == 'a' ? arrival.accepted() : answer == 'r' ? arrival.refused() : "";
    };
}

TEST(SendUpdate, SendsEveryBlockAfterItsFrame)
{
    const std::string package(300000, 'p');
    Device device(scripted("a"));
    EXPECT_EQ(device.update(package), kDone);
    const std::string stream = updateStream(package);
    ASSERT_EQ(device.arrivals.size(), 294U); // 300128 bytes in blocks of 1024
    for (size_t number = 0; number < device.arrivals.size(); ++number) {
        const auto &[text, block, command] = device.arrivals[number];
        const std::string dats = {static_cast<char>(number % 256), static_cast<char>(number / 256)};
        EXPECT_EQ(text.substr(6, 10), "9aa007" + hex(dats));
        EXPECT_EQ(command.checksum, rightChecksum(command)) << number;
        EXPECT_EQ(block, withChecksum(stream.substr(number * 1024, 1024))) << number;
    }
    EXPECT_EQ(device.output.substr(0, 14), "294 blocks in ");
    EXPECT_NE(device.output.find(" blocks/s, 0 sent again\n"), std::string::npos);
    EXPECT_EQ(device.errors, "");
}

TEST(SendUpdate, SendsABlockAgainAtMostFourTimes)
{
    const auto again = [](const std::string &block, const std::string &why) {
        return "veskctl: block " + block + ": " + why + ", sent again\n";
    };
    const auto fourTimes = [&](const std::string &block) {
        const std::string line = again(block, "refused");
        return line + line + line + line;
    };
    // clang-format off
    const struct {
        size_t size;
        const char *answers;
        int status;
        std::vector<uint8_t> numbers;
        std::string errors;
        Milliseconds timeout = kPatience;
    } rows[] = {
        {2000, "ara", kDone, {0, 1, 1, 2}, again("1 of 3", "refused")},
        {1000, "a-a", kDone, {0, 1, 1}, again("1 of 2", "no answer"), kEither},
        {1, "ra", kDone, {0, 0}, again("0 of 1", "refused")},
        {2000, "r", kRefused, {0, 0, 0, 0, 0},
         fourTimes("0 of 3") + "veskctl: block 0 of 3: refused, 5 times in all\n"},
        // The tries of each block count anew.
        {1000, "rrrrarrrra", kDone, {0, 0, 0, 0, 0, 1, 1, 1, 1, 1},
         fourTimes("0 of 2") + fourTimes("1 of 2")},
        // The device may have installed an only block that has no answer, and would do so again
        // over the backup of the old executable.
        {1, "-", kNoAnswer, {0},
         "veskctl: block 0 of 1: no answer; it may have been installed all the same\n", kSilence},
    };
    // clang-format on
    for (const auto &row : rows) {
        const std::string package = countingBytes(row.size, 251);
        Device device(scripted(row.answers));
        EXPECT_EQ(device.update(package, row.timeout), row.status) << row.answers;
        EXPECT_EQ(device.errors, row.errors);
        std::vector<uint8_t> numbers;
        for (const Arrival &arrival : device.arrivals) {
            EXPECT_EQ(arrival.command.tag, numbers.size()) << row.answers; // each try its own
            numbers.push_back(arrival.command.dat3);
            EXPECT_TRUE(arrival.block == blockWithChecksum(updateStream(package), numbers.back()))
                << row.answers;
        }
        EXPECT_EQ(numbers, row.numbers) << row.answers;
        const size_t repeated = numbers.size() - 1 - numbers.back();
        const std::string figures = ", " + std::to_string(repeated) + " sent again\n";
        EXPECT_EQ(device.output.ends_with(figures), row.status == kDone) << device.output;
        EXPECT_EQ(device.output.empty(), row.status != kDone) << device.output;
    }
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
        return count == 0   ? "<F00009aa107040046>"
               : count == 1 ? "<F00009ab107010a5d>"
                            : arrival.accepted();
    });
    EXPECT_EQ(device.update("p", kPatience, true), kDone);
    ASSERT_EQ(device.arrivals.size(), 3U);
    EXPECT_EQ(device.arrivals[0].frame.substr(8, 4) + device.arrivals[0].block, "a107");
    EXPECT_EQ(device.arrivals[1].frame.substr(8, 4), "b107");
    const std::string said = "<F00009aa107040046>  reply, address 00, tag 00: update block size: "
                             "0x0400\n"
                             "<F00009ab107010a5d>  reply, address 00, tag 00: update version: "
                             "1.10\n1 blocks in ";
    EXPECT_EQ(device.output.substr(0, said.size()), said);
}

TEST(SendUpdate, SendsNothingToADeviceThatDoesNotAnswerTheQuestionAsItShould)
{
    const auto takesOthers = [](size_t, const Arrival &) { return "<F00009aa107020044>"; };
    const struct {
        Device::Answer answer;
        Milliseconds timeout;
        int status;
        const char *errors;
    } rows[] = {
        {scripted("r"), kPatience, kRefused, ""},
        {scripted("-"), kSilence, kNoAnswer, "veskctl: no answer within 50 ms\n"},
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
