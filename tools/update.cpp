#include "tools/update.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/commands.h"
#include "tools/errors.h"
#include "tools/exchange.h"
#include "tools/frames.h"
#include "tools/manner.h"
#include "tools/package.h"

namespace {

constexpr uint8_t kAskBlockSize = 0xA1;
constexpr int kTries = 5;                 // for each block
constexpr Milliseconds kSecondWait{2000}; // at most, for an answer to the second question

// Right after the last block. The line may damage one of them.
constexpr size_t kQuestionsAtOnce = 3;

// After this time without a byte, nothing of a failed try is still on its way. Over UDP the device
// first passes the rest of the block on, with four pauses of 80 ms, before it mirrors anything.
constexpr Milliseconds kSettled{400};

// What has become of the device after the last block.
enum class Outcome {
    kRestarted,
    kOldProgram, // it goes on
    kAbsent,
    kUnknown,
    kBlockRefused, // over UDP: the last block is to be sent again
    kBlockLost,
};

using Clock = std::chrono::steady_clock;

// What to do next, and how that goes on for somebody who types command lines.
struct Step {
    std::string what;
    std::string typed = ".";
    bool isBelow = true; // on a line of its own, else after a semicolon
};

const Step kBeginAgain{"begin again", " with the same command", false};

std::string sentenceOf(const std::string &words)
{
    const char first =
        words[0] >= 'a' && words[0] <= 'z' ? static_cast<char>(words[0] - 'a' + 'A') : words[0];
    return first + words.substr(1) + (words.ends_with('?') ? "" : ".");
}

// As it follows a result on a terminal.
std::string lineOf(const Step &step)
{
    return (step.isBelow ? "\n" : "; ") + step.what + step.typed;
}

std::string questionWithTag(uint8_t tag)
{
    return frameFromText(fmt::format("00 {:02x} 68 01 00 00 00", tag));
}

class Update {
public:
    Update(Line &line, std::string_view stream, const UpdateOptions &options)
        : line_(line), stream_(stream), options_(options), count_(stream.size() / kBlockSize),
          progress_(options.progress, count_)
    {
        line_.stopAt(&interruption_);
    }
    ~Update()
    {
        line_.stopAt(nullptr);
    }
    Update(const Update &) = delete;
    Update &operator=(const Update &) = delete;

    int run();

private:
    enum Phase { kAsking, kSending, kFollowing };

    int steps();
    int find();
    int query() const;
    int sendBlock(size_t number);
    int finish();
    int tryBlock(size_t number);
    std::string frameOfBlock(size_t number);
    void sendAgain(size_t number, const char *why);
    int giveUp(size_t number, const char *why, int tried);
    Outcome follow(const Rs232Command &lastBlock, bool isAcknowledged);
    std::set<uint8_t> askAtOnce();
    std::string nextQuestion();
    void printFigures() const;
    int report(Outcome outcome, const std::string &why, int statusIfUnknown = kNotFinished);
    int result(int status, const char *outcome, const std::string &text,
               const std::vector<Step> &next = {});
    void tellFollowing();
    std::string command(const char *words) const;
    size_t sentAgain() const;

    Interruption interruption_; // while this exists
    Line &line_;
    std::string_view stream_;
    UpdateOptions options_;
    size_t count_;
    Progress progress_;
    Phase phase_ = kAsking;
    size_t done_ = 0;                         // blocks that have been accepted
    unsigned sent_ = 0;                       // frames with blocks, repeated ones included
    size_t started_ = 0;                      // blocks, without repetitions
    uint8_t tag_ = 0;                         // of the latest question
    Clock::time_point start_;                 // of the first block
    std::chrono::duration<double> seconds_{}; // until the last block was accepted, or sent over UDP
    std::string version_;
};

int Update::run()
{
    try {
        return steps();
    } catch (const Interrupted &) {
        if (phase_ == kFollowing) {
            return report(Outcome::kUnknown, "interrupted after the last block", kInterrupted);
        }
        const std::string how =
            phase_ == kAsking ? std::string("interrupted before the first block")
                              : fmt::format("interrupted after {} of {} blocks", done_, count_);
        return result(kInterrupted, "interrupted",
                      how + "; the device goes on with its old program", {kBeginAgain});
    } catch (const LocalError &error) {
        if (phase_ == kFollowing) {
            return report(Outcome::kUnknown, error.what());
        }
        return result(
            kLocalFailure, "failed",
            fmt::format("{}; {} of {} blocks were accepted, and the device goes on with its "
                        "old program",
                        error.what(), done_, count_),
            {kBeginAgain});
    }
}

int Update::steps()
{
    int status = find();
    if (status == kDone && options_.query) {
        status = query();
    }
    if (status != kDone) {
        return status;
    }
    if (options_.isDry) {
        return result(kDone, "dry run",
                      fmt::format("the device answers; {} blocks of {} bytes would be sent", count_,
                                  kBlockSize));
    }
    phase_ = kSending;
    start_ = Clock::now();
    progress_.begin();
    for (size_t number = 0; number + 1 < count_; ++number) {
        status = sendBlock(number);
        if (status != kDone) {
            return status;
        }
        done_ = number + 1;
        progress_.show(done_, sentAgain());
    }
    return finish();
}

int Update::find()
{
    const Milliseconds secondWait = std::min(options_.timeout, kSecondWait);
    for (const Milliseconds wait : {options_.firstWait, secondWait}) {
        if (ask(line_, nextQuestion(), {}, wait, Others::kSkipped)) {
            return kDone;
        }
    }
    const std::string advice = adviceOnSilence(line_); // begins with "; "
    return result(kNoAnswer, "no answer",
                  fmt::format("nobody answers at {}, asked twice within {} ms", line_.name(),
                              (options_.firstWait + secondWait).count()),
                  {{advice.substr(2), "", false}});
}

int Update::query() const
{
    for (const char *const question : {"update block size 07", "update version 07"}) {
        const auto answer = ask(line_, frameFromText(question), {}, options_.timeout);
        if (!answer) {
            fmt::print(stderr, "veskctl: no answer within {} ms\n", options_.timeout.count());
            return kNoAnswer;
        }
        if (!progress_.isJson()) {
            fmt::print("{}\n", coloredFrame(answer->frame));
        }
        const Rs232Command reply = recordOf(answer->frame);
        if (isRefusal(reply)) {
            return kRefused;
        }
        if (reply.dat1 == kAskBlockSize && reply.dat3 * 256U + reply.dat4 != kBlockSize) {
            fmt::print(stderr, "veskctl: only blocks of {} bytes can be sent\n", kBlockSize);
            return kRefused;
        }
    }
    return kDone;
}

int Update::sendBlock(size_t number)
{
    ++started_;
    for (int tried = 1;; ++tried) {
        const int status = tryBlock(number);
        if (status == kDone) {
            return kDone;
        }
        const char *const why = status == kRefused ? "refused" : "no answer";
        if (tried == kTries) {
            return giveUp(number, why, tried);
        }
        sendAgain(number, why);
    }
}

// The last block. On a serial line its acknowledgement comes before the device restarts. Over UDP
// it cannot come, so nobody waits for it.
int Update::finish()
{
    const size_t number = count_ - 1;
    ++started_;
    for (int tried = 1;; ++tried) {
        Outcome outcome = Outcome::kBlockRefused;
        const std::string frame = frameOfBlock(number);
        if (line_.carriesDatagrams()) {
            line_.discardInput();
            tellFollowing();
            line_.send(frame + blockWithChecksum(stream_, number));
            seconds_ = Clock::now() - start_;
            progress_.stop();
            outcome = follow(recordOf(frame), true);
        } else {
            tellFollowing();
            const auto answer = ask(line_, frame, blockWithChecksum(stream_, number),
                                    options_.blockTimeout, Others::kSkipped);
            seconds_ = Clock::now() - start_;
            progress_.stop();
            if (!answer || !isRefusal(recordOf(answer->frame))) {
                outcome = follow(recordOf(frame), answer.has_value());
            }
        }
        if (outcome != Outcome::kBlockRefused && outcome != Outcome::kBlockLost) {
            done_ = count_;
            progress_.show(done_, sentAgain());
            printFigures();
            return report(outcome, "the last block was not answered");
        }
        phase_ = kSending;
        const char *const why = outcome == Outcome::kBlockRefused ? "refused" : "lost";
        if (tried == kTries) {
            return giveUp(number, why, tried);
        }
        sendAgain(number, why);
    }
}

int Update::tryBlock(size_t number)
{
    const auto answer = ask(line_, frameOfBlock(number), blockWithChecksum(stream_, number),
                            options_.blockTimeout, Others::kSkipped);
    if (!answer) {
        return kNoAnswer;
    }
    return isRefusal(recordOf(answer->frame)) ? kRefused : kDone;
}

// Every try has its own tag, so that a late answer to an earlier try is not taken for this one's.
std::string Update::frameOfBlock(size_t number)
{
    const unsigned tag = sent_++ & 0xFF;
    return frameFromText(
        fmt::format("00 {:02x} 9a a0 07 {:02x} {:02x}", tag, number & 0xFF, number >> 8));
}

void Update::sendAgain(size_t number, const char *why)
{
    if (!manner().quiet) {
        progress_.tell(fmt::format("block {} of {}: {}, sent again", number, count_, why));
    }
    // Bytes that are still on their way must not get mixed up with the next try.
    const Deadline deadline(options_.blockTimeout);
    while (!line_.receive(std::min(kSettled, deadline.left())).empty()) {
    }
}

int Update::giveUp(size_t number, const char *why, int tried)
{
    return result(
        kNotFinished, "given up",
        fmt::format("block {} of {}: {}, {} times in all; the device goes on with its old "
                    "program",
                    number, count_, why, tried),
        {{"Look at the cable and the device's disk, then begin again", " with the same command."}});
}

// Asks for the device type until the answer tells what has become of the device. The first
// questions come right after the last block: a program that goes on answers them, and one that ends
// loses all of them with its line's buffer. Later ones are answered by the program that runs then.
Outcome Update::follow(const Rs232Command &lastBlock, bool isAcknowledged)
{
    const bool hearsLate =
        line_.carriesDatagrams(); // the answer to the block comes here, if at all
    bool isStored = !hearsLate;
    FrameFinder finder;
    const std::set<uint8_t> first = askAtOnce();
    std::set<uint8_t> later;
    Deadline askAgain(options_.askInterval);
    for (const Deadline deadline(options_.restartTimeout); !deadline.passed();) {
        const std::string bytes = line_.receive(std::min(askAgain.left(), deadline.left()));
        for (const Piece &piece : finder.feed(bytes)) {
            if (!piece.isFrame || !isReply(piece.text)) {
                continue;
            }
            const uint8_t tag = recordOf(piece.text).tag;
            const bool isAnswer = isReplyTo(recordOf(questionWithTag(tag)), piece.text);
            if (isAnswer && first.count(tag) != 0) {
                return !isAcknowledged ? Outcome::kUnknown
                       : isStored      ? Outcome::kOldProgram
                                       : Outcome::kBlockLost;
            }
            if (hearsLate && isReplyTo(lastBlock, piece.text)) {
                if (isRefusal(recordOf(piece.text))) {
                    return Outcome::kBlockRefused;
                }
                isStored = true;
            }
            if (isAnswer && later.count(tag) != 0) {
                const auto version = ask(line_, frameFromText("update version 07"), {},
                                         options_.timeout, Others::kSkipped);
                if (version && !isRefusal(recordOf(version->frame))) {
                    const Rs232Command reply = recordOf(version->frame);
                    version_ = fmt::format("{}.{}", reply.dat3, reply.dat4);
                }
                return isAcknowledged ? Outcome::kRestarted : Outcome::kUnknown;
            }
        }
        if (askAgain.passed()) {
            std::string question = nextQuestion();
            while (first.count(tag_) != 0) { // after 256 of them
                question = nextQuestion();
            }
            line_.send(question);
            later.insert(tag_);
            askAgain = Deadline(options_.askInterval);
        }
    }
    return Outcome::kAbsent;
}

// Sends the first questions without a pause, and returns their tags: on a serial line in one piece,
// so that the same program gets them all, and over UDP one by one, as a datagram may be lost.
std::set<uint8_t> Update::askAtOnce()
{
    std::set<uint8_t> tags;
    std::string questions;
    while (tags.size() < kQuestionsAtOnce) {
        questions += nextQuestion();
        tags.insert(tag_);
        if (line_.carriesDatagrams() || tags.size() == kQuestionsAtOnce) {
            line_.send(questions);
            questions.clear();
        }
    }
    return tags;
}

// Asks for the device type, each time with another tag.
std::string Update::nextQuestion()
{
    return questionWithTag(++tag_);
}

int Update::report(Outcome outcome, const std::string &why, int statusIfUnknown)
{
    switch (outcome) {
    case Outcome::kRestarted:
        return result(kDone, "restarted",
                      version_.empty() ? "the device has restarted; it does not tell its version"
                                       : "the device has restarted, with version " + version_);
    case Outcome::kOldProgram:
        return result(kNotFinished, "old program",
                      "the device goes on with its old program: what it stored has a wrong sum or "
                      "length, as after a full disk",
                      {{"Make room in /userdata on the device; its output says more"},
                       {"Then begin again", " with the same command."}});
    case Outcome::kAbsent:
        return result(kNotFinished, "absent",
                      fmt::format("the device has not answered for {} ms after the last block",
                                  options_.restartTimeout.count()),
                      {{"Ask again in a minute", ": " + command("send read device type")},
                       {"If it stays silent, put /usr/bin/vesk_h264_backup back on the device as "
                        "/usr/bin/vesk_h264"}});
    default:
        return result(statusIfUnknown, "unknown",
                      fmt::format("whether the device has restarted is unknown: {}", why),
                      {{"Ask which version it has", ": " + command("send update version")},
                       {"If that is not the new one, begin again", " with the same command."}});
    }
}

void Update::printFigures() const
{
    if (!progress_.isJson() && !manner().quiet) {
        fmt::print("{} blocks in {:.2f} s, {:.1f} blocks/s, {} sent again\n", count_,
                   seconds_.count(), static_cast<double>(count_) / seconds_.count(), sentAgain());
    }
}

// Prints the result, which is good if `status` is kDone, and what to do next. Returns `status`.
int Update::result(int status, const char *outcome, const std::string &text,
                   const std::vector<Step> &next)
{
    if (progress_.isJson()) {
        nlohmann::ordered_json object = {
            {"event", "result"},         {"outcome", outcome}, {"status", status},
            {"blocks", count_},          {"done", done_},      {"seconds", seconds_.count()},
            {"sent_again", sentAgain()}, {"message", text},    {"next", nlohmann::json::array()},
        };
        for (const Step &step : next) {
            object["next"].push_back(sentenceOf(step.what));
        }
        if (!version_.empty()) {
            object["version"] = version_;
        }
        fmt::print("{}\n", object.dump());
    } else if (status == kDone) {
        fmt::print("{}\n", text);
    } else {
        std::string said = text;
        for (const Step &step : next) {
            said += lineOf(step);
        }
        progress_.tell(said);
    }
    return status;
}

// The last block goes out next: whatever happens from here on, the device may have it.
void Update::tellFollowing()
{
    phase_ = kFollowing;
    if (progress_.isJson()) {
        const nlohmann::ordered_json object = {{"event", "following"},
                                               {"blocks", count_},
                                               {"done", done_},
                                               {"sent_again", sentAgain()}};
        fmt::print("{}\n", object.dump());
        std::fflush(stdout);
    }
}

// What to type for another subcommand on the same line.
std::string Update::command(const char *words) const
{
    return fmt::format("veskctl {} {} {}", line_.carriesDatagrams() ? "--udp" : "--serial",
                       line_.name(), words);
}

size_t Update::sentAgain() const
{
    return sent_ - started_;
}

} // namespace

int runUpdate(Line &line, std::string_view stream, const UpdateOptions &options)
{
    return Update(line, stream, options).run();
}
