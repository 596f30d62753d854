// Sending a package: every block in its order, again when it was not accepted, and not for ever.
// The device is the test itself, on the far end of the line.

#include "tools/update.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <sstream>
#include <thread>
#include <utility>

#include <poll.h>

#include <nlohmann/json.hpp>

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

constexpr char kRestartedText[] = "the device has restarted, with version 1.10\n";
constexpr char kUnknownText[] =
    "veskctl: whether the device has restarted is unknown: the last block was not answered\n"
    "Ask which version it has: veskctl --serial test line send update version\n"
    "If that is not the new one, begin again with the same command.\n";

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

// A device that answers each block and each question about the update, the n-th from 0, as it is
// told: with no bytes not at all. Of the questions for its type the script says which it answers
// ("a"; not with "-") and which came damaged ("d"); its last character counts for all further ones.
// The first comes before the update, three more right after the last block.
class Device {
public:
    using Answer = std::function<std::string(size_t, const Arrival &)>;

    explicit Device(Answer answer, std::string types = "a---a", int socketType = SOCK_SEQPACKET)
        : answer_(std::move(answer)), types_(std::move(types)), socketType_(socketType)
    {
    }

    // Sends the package and returns the exit status; keeps what it printed.
    int update(const std::string &package, Milliseconds timeout = kPatience, bool query = false,
               Milliseconds restartTimeout = kPatience)
    {
        FarEnd far(socketType_);
        std::thread thread([&] { run(far); });
        Console console;
        int status;
        {
            Line line(std::move(far.line)); // which closes it
            UpdateOptions options{.query = query,
                                  .isDry = isDry,
                                  .progress = progress,
                                  .timeout = timeout,
                                  .blockTimeout = timeout,
                                  .restartTimeout = restartTimeout};
            options.firstWait = firstWait.value_or(timeout);
            options.askInterval = kSilence;
            status = runUpdate(line, updateStream(package), options);
            line.send("end"); // datagrams have no end of their own
            thread.join();    // it may still answer
        }
        console.end();
        output = console.out;
        errors = console.err;
        return status;
    }

    bool isDry = false;
    std::optional<Milliseconds> firstWait;
    ProgressKind progress = ProgressKind::kNone;
    std::vector<Arrival> arrivals;
    std::vector<Arrival> questions; // for the type
    std::vector<std::string> order; // "block" or "type"
    std::string output;
    std::string errors;

private:
    void run(const FarEnd &far)
    {
        for (;;) {
            pollfd entry{far.descriptor, POLLIN, 0};
            poll(&entry, 1, -1);
            const std::string bytes = far.sent();
            if (bytes.empty() || bytes == "end") {
                return;
            }
            for (size_t at = 0; at < bytes.size();) { // questions may come together
                const std::string frame = bytes.substr(at, 19);
                if (!isFrame(frame)) {
                    ADD_FAILURE() << "no frame: " << bytes;
                    break;
                }
                const bool hasBlock = recordOf(frame).command != 0x68;
                const std::string block = hasBlock ? bytes.substr(at + 19) : "";
                at += frame.size() + block.size();
                const std::string text = answerTo({frame, block, recordOf(frame)});
                if (!text.empty()) {
                    far.arrive(text);
                }
            }
        }
    }

    std::string answerTo(const Arrival &arrival)
    {
        if (arrival.command.command == 0x68) {
            const char type = types_[std::min(questions.size(), types_.size() - 1)];
            questions.push_back(arrival);
            order.emplace_back("type");
            if (type == 'd') { // refused, with the tag that arrived
                Arrival damaged = arrival;
                damaged.command.tag ^= 0x40;
                damaged.frame.replace(4, 2,
                                      hex(std::string(1, static_cast<char>(damaged.command.tag))));
                return damaged.refused();
            }
            std::string reply = "<F" + arrival.frame.substr(2, 6) + "01263300";
            const int sum = arrival.command.tag + 0x68 + 0x01 + 0x26 + 0x33;
            reply += hex(std::string(1, static_cast<char>(sum))) + ">";
            return type == 'a' ? reply : "";
        }
        if (!arrivals.empty() && arrival.command.dat1 == 0xB1 && questions.size() > 1) {
            return "<F00009ab107010a5d>"; // the new program's version
        }
        arrivals.push_back(arrival);
        order.emplace_back("block");
        return answer_(arrivals.size() - 1, arrival);
    }

    Answer answer_;
    std::string types_;
    int socketType_;
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
    EXPECT_TRUE(device.output.ends_with(std::string(" blocks/s, 0 sent again\n") + kRestartedText))
        << device.output;
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
        {2000, "a-a", kDone, {0, 1, 1, 2}, again("1 of 3", "no answer"), kEither},
        {1, "ra", kDone, {0, 0}, again("0 of 1", "refused")},
        {2000, "r", kNotFinished, {0, 0, 0, 0, 0},
         fourTimes("0 of 3") + "veskctl: block 0 of 3: refused, 5 times in all; the device goes on with "
         "its old program\nLook at the cable and the device's disk, then begin again with the same "
         "command.\n"},
        // The tries of each block count anew.
        {1000, "rrrrarrrra", kDone, {0, 0, 0, 0, 0, 1, 1, 1, 1, 1},
         fourTimes("0 of 2") + fourTimes("1 of 2")},
        // The device may have installed the last block though its answer did not come, and would do
        // so again over the backup of the old executable.
        {1, "-", kNotFinished, {0}, kUnknownText, kEither},
        {1000, "a-", kNotFinished, {0, 1}, kUnknownText, kEither},
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
        const std::string figures =
            ", " + std::to_string(repeated) + " sent again\n" + kRestartedText;
        EXPECT_EQ(device.output.ends_with(figures), row.status == kDone) << device.output;
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
    ASSERT_EQ(device.arrivals.size(), 4U);
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

TEST(SendUpdate, SendsNothingWhereNobodyAnswers)
{
    for (const int type : {SOCK_SEQPACKET, SOCK_DGRAM}) {
        Device device(scripted("a"), "-", type);
        EXPECT_EQ(device.update("p", kSilence), kNoAnswer);
        EXPECT_EQ(device.questions.size(), 2U);
        EXPECT_EQ(device.arrivals.size(), 0U);
        EXPECT_EQ(device.output, "");
        EXPECT_TRUE(device.errors.starts_with(
            "veskctl: nobody answers at test line, asked twice within 100 ms; "))
            << device.errors;
        EXPECT_EQ(device.errors.find("only where the front board sends back what it gets") !=
                      std::string::npos,
                  type == SOCK_DGRAM);
    }
}

TEST(SendUpdate, WaitsForTheSecondAnswerTwoSecondsAtMost)
{
    Device device(scripted("a"), "-");
    device.firstWait = kSilence;
    EXPECT_EQ(device.update("p"), kNoAnswer);
    EXPECT_TRUE(device.errors.starts_with(
        "veskctl: nobody answers at test line, asked twice within 2050 ms; "))
        << device.errors;
}

TEST(SendUpdate, GoesOnIfOnlyTheSecondQuestionIsAnswered)
{
    Device device(scripted("a"), "-a---a");
    EXPECT_EQ(device.update("p", kEither), kDone);
    EXPECT_EQ(device.arrivals.size(), 1U);
}

TEST(SendUpdate, SaysWhatBecameOfTheDevice)
{
    const struct {
        const char *types; // "a" is the question before the update
        int status;
        const char *said;
    } rows[] = {
        {"a---a", kDone, kRestartedText},
        {"a------a", kDone, kRestartedText},
        // The program that answers one of the first three questions has not ended.
        {"aa", kNotFinished, "veskctl: the device goes on with its old program: "},
        {"a-a", kNotFinished, "veskctl: the device goes on with its old program: "},
        {"a--a", kNotFinished, "veskctl: the device goes on with its old program: "},
        {"ada", kNotFinished, "veskctl: the device goes on with its old program: "},
        // A question that nobody has asked tells nothing.
        {"addd-", kNotFinished,
         "veskctl: the device has not answered for 500 ms after the last block\n"},
        {"a-", kNotFinished,
         "veskctl: the device has not answered for 500 ms after the last block\n"},
    };
    for (const auto &row : rows) {
        Device device(scripted("a"), row.types);
        EXPECT_EQ(device.update(std::string(1000, 'p'), kPatience, false, Milliseconds{500}),
                  row.status);
        EXPECT_NE((device.output + device.errors).find(row.said), std::string::npos)
            << device.output << device.errors;
        EXPECT_EQ(device.arrivals.size(), 2U);
        const auto lines = std::count(device.errors.begin(), device.errors.end(), '\n');
        EXPECT_EQ(lines, row.status == kDone ? 0 : 3)
            << device.errors; // two of them what to do next
    }
}

// Over UDP the answer to the last block comes only if the program goes on.
TEST(SendUpdate, OverUdpAsksRightAfterTheLastBlock)
{
    const struct {
        const char *blocks;
        const char *types;
        int status;
        std::vector<std::string> order;
    } rows[] = {
        {"a-", "a---a", kDone, {"type", "block", "block", "type", "type", "type", "type"}},
        {"aa", "aa", kNotFinished, {"type", "block", "block", "type"}},
        {"aa", "a-a", kNotFinished, {"type", "block", "block", "type"}},
        // Refused, and lost on the way.
        {"ara",
         "a-",
         kNotFinished,
         {"type", "block", "block", "type", "type", "type", "block", "type"}},
        {"a--",
         "aa-----a",
         kDone,
         {"type", "block", "block", "type", "type", "type", "block", "type", "type", "type",
          "type"}},
    };
    for (const auto &row : rows) {
        Device device(scripted(row.blocks), row.types, SOCK_DGRAM);
        EXPECT_EQ(device.update(std::string(1000, 'p'), kEither, false, Milliseconds{1000}),
                  row.status)
            << device.errors;
        device.order.resize(std::min(device.order.size(), row.order.size()));
        EXPECT_EQ(device.order, row.order) << row.blocks << ' ' << row.types;
    }
}

TEST(SendUpdate, ADryRunSendsNoBlock)
{
    Device device(scripted("a"));
    device.isDry = true;
    EXPECT_EQ(device.update(std::string(1000, 'p')), kDone);
    EXPECT_EQ(device.questions.size(), 1U);
    EXPECT_EQ(device.arrivals.size(), 0U);
    EXPECT_EQ(device.output, "the device answers; 2 blocks of 1024 bytes would be sent\n");
}

// An object of the JSON, without its times.
nlohmann::json timeless(nlohmann::json object)
{
    for (const char *const name : {"seconds", "seconds_left", "bytes_per_s"}) {
        object.erase(name);
    }
    return object;
}

std::vector<nlohmann::json> objectsIn(const std::string &output)
{
    std::vector<nlohmann::json> objects;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        objects.push_back(timeless(nlohmann::json::parse(line)));
    }
    return objects;
}

TEST(SendUpdate, AsJsonTellsThatTheLastBlockGoesOutAndWhatBecameOfIt)
{
    Device device(scripted("aara"));
    device.progress = ProgressKind::kJson;
    EXPECT_EQ(device.update(std::string(2000, 'p')), kDone);
    const auto objects = objectsIn(device.output);
    const nlohmann::json following = {
        {"event", "following"}, {"blocks", 3}, {"done", 2}, {"sent_again", 0}};
    nlohmann::json once = following;
    once["sent_again"] = 1;
    ASSERT_GE(objects.size(), 4U);
    const auto end = objects.end();
    EXPECT_EQ(*(end - 4), following);
    EXPECT_EQ(*(end - 3), once); // the last block was refused once
    EXPECT_EQ(*(end - 2), (nlohmann::json{{"event", "progress"},
                                          {"blocks", 3},
                                          {"done", 3},
                                          {"bytes", 3072},
                                          {"sent_again", 1}}));
    EXPECT_EQ(*(end - 1),
              (nlohmann::json{{"event", "result"},
                              {"outcome", "restarted"},
                              {"status", 0},
                              {"blocks", 3},
                              {"done", 3},
                              {"sent_again", 1},
                              {"message", "the device has restarted, with version 1.10"},
                              {"next", nlohmann::json::array()},
                              {"version", "1.10"}}));
    for (auto each = objects.begin(); each != end - 4; ++each) {
        EXPECT_EQ((*each)["event"], "progress");
    }
}

TEST(SendUpdate, AsJsonSaysWhatToDoNextWithoutCommandLines)
{
    const struct {
        const char *blocks;
        const char *types;
        const char *outcome;
        bool isFollowed;
        std::vector<std::string> next;
        Milliseconds timeout = kPatience;
    } rows[] = {
        {"a",
         "aa",
         "old program",
         true,
         {"Make room in /userdata on the device; its output says more.", "Then begin again."}},
        {"a",
         "a-",
         "absent",
         true,
         {"Ask again in a minute.", "If it stays silent, put /usr/bin/vesk_h264_backup back on the "
                                    "device as /usr/bin/vesk_h264."}},
        {"a-",
         "a---a",
         "unknown",
         true,
         {"Ask which version it has.", "If that is not the new one, begin again."},
         kEither},
        {"a", "-", "no answer", false, {"Is the device on, and is this its line?"}, kSilence},
        {"r",
         "a",
         "given up",
         false,
         {"Look at the cable and the device's disk, then begin again."}},
    };
    for (const auto &row : rows) {
        Device device(scripted(row.blocks), row.types);
        device.progress = ProgressKind::kJson;
        device.update(std::string(1000, 'p'), row.timeout, false, Milliseconds{500});
        const auto objects = objectsIn(device.output);
        ASSERT_FALSE(objects.empty()) << row.outcome;
        EXPECT_EQ(objects.back()["outcome"], row.outcome);
        EXPECT_EQ(objects.back()["next"], nlohmann::json(row.next)) << row.outcome;
        EXPECT_EQ(device.output.find("veskctl"), std::string::npos) << device.output;
        const bool isFollowed = std::any_of(objects.begin(), objects.end(), [](const auto &each) {
            return each["event"] == "following";
        });
        EXPECT_EQ(isFollowed, row.isFollowed) << row.outcome;
    }
}

} // namespace
