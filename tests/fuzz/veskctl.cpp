// veskctl: what it reads from the line, from its user and from files. The first byte of an input
// chooses: 0 the frame finder, 1 words of a command, 2 texts with escapes, 3 a transcript, which is
// played against a device that sends everything back, 4 packages, 5 addresses, 6 an update, against
// a device that answers with the pieces of the input between FF.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>
#include <sstream>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/fuzz/reference.h"
#include "tests/fuzz/world.h"
#include "tools/address.h"
#include "tools/commands.h"
#include "tools/errors.h"
#include "tools/exchange.h"
#include "tools/frames.h"
#include "tools/package.h"
#include "tools/player.h"
#include "tools/text.h"
#include "tools/transcript.h"
#include "tools/update.h"

namespace {

constexpr int kFront = 500;
constexpr int kPC = 501;

// The time and the lines of the tool.
struct {
    int64_t nowNs;
    std::deque<std::string> waiting[2];
    std::deque<std::string> answers;
    bool isEcho;
} far;

std::deque<std::string> &waitingAt(int descriptor)
{
    MUST_HOLD(descriptor == kFront || descriptor == kPC);
    return far.waiting[descriptor - kFront];
}

} // namespace

// The calls of the tool (calls-tools.txt).
extern "C" {

extern std::FILE *tool_stderr;
std::FILE *tool_stderr;

// A time point is nothing but its number.
static_assert(sizeof(std::chrono::steady_clock::time_point) == sizeof(int64_t));
int64_t tool_now();
int64_t tool_now()
{
    far.nowNs += 1000;
    return far.nowNs;
}

int tool_nanosleep(const timespec *time, timespec *);
int tool_nanosleep(const timespec *time, timespec *)
{
    far.nowNs += time->tv_sec * 1'000'000'000 + time->tv_nsec;
    return 0;
}

int tool_poll(pollfd *entries, nfds_t count, int timeout);
int tool_poll(pollfd *entries, nfds_t count, int timeout)
{
    int ready = 0;
    for (nfds_t i = 0; i < count; ++i) {
        // The other one is where signals arrive, and there are none.
        const bool isLine = entries[i].fd == kFront || entries[i].fd == kPC;
        const bool has = isLine && !waitingAt(entries[i].fd).empty();
        entries[i].revents = has ? POLLIN : int16_t{0};
        ready += has ? 1 : 0;
    }
    if (ready == 0) {
        MUST_HOLD(timeout >= 0);
        far.nowNs += int64_t{timeout} * 1'000'000;
    }
    return ready;
}

ssize_t tool_read(int descriptor, void *out, size_t size);
ssize_t tool_read(int descriptor, void *out, size_t size)
{
    std::deque<std::string> &waiting = waitingAt(descriptor);
    if (waiting.empty()) {
        errno = EAGAIN;
        return -1;
    }
    const size_t count = waiting.front().copy(static_cast<char *>(out), size);
    waiting.front().erase(0, count);
    if (waiting.front().empty()) {
        waiting.pop_front();
    }
    return static_cast<ssize_t>(count);
}

ssize_t tool_write(int descriptor, const void *bytes, size_t count);
ssize_t tool_write(int descriptor, const void *bytes, size_t count)
{
    std::deque<std::string> &waiting = waitingAt(descriptor);
    if (far.isEcho && count > 0) {
        waiting.emplace_back(static_cast<const char *>(bytes), count);
    } else if (!far.answers.empty()) {
        if (!far.answers.front().empty()) {
            waiting.push_back(far.answers.front());
        }
        far.answers.pop_front();
    }
    return static_cast<ssize_t>(count);
}

int tool_close(int);
int tool_close(int)
{
    return 0;
}

int tool_getsockopt(int, int, int, void *, socklen_t *);
int tool_getsockopt(int, int, int, void *, socklen_t *)
{
    return -1;
}

int tool_isatty(int);
int tool_isatty(int)
{
    return 0;
}
}

namespace {

void findFrames(std::string_view bytes)
{
    std::string whole;
    std::vector<std::string> frames[2];
    for (size_t step : {size_t{1}, bytes.size() + 1}) {
        FrameFinder finder;
        std::string all;
        std::vector<std::string> &found = frames[step == 1 ? 0 : 1];
        const auto take = [&](const std::vector<Piece> &pieces) {
            for (const Piece &piece : pieces) {
                all += piece.text;
                MUST_HOLD(!piece.text.empty());
                if (piece.isFrame) {
                    MUST_HOLD(isFrame(piece.text));
                    MUST_HOLD(!describe(piece.text).empty());
                    MUST_HOLD(rightChecksum(recordOf(piece.text)) == Record(piece.text).sum());
                    found.push_back(piece.text);
                }
            }
        };
        for (size_t at = 0; at < bytes.size(); at += step) {
            take(finder.feed(bytes.substr(at, step)));
        }
        take(finder.flush());
        MUST_HOLD(!finder.holdsBack());
        MUST_BE(all, bytes);
    }
    MUST_HOLD(frames[0] == frames[1]);
    // Every frame that stands in the bytes is found: a frame has one "<", so two never overlap.
    size_t count = 0;
    for (size_t i = 0; i + 19 <= bytes.size(); ++i) {
        count += isFrame(bytes.substr(i, 19)) ? 1 : 0;
    }
    MUST_HOLD(count == frames[0].size());
    static_cast<void>(describeAll(bytes));
}

void makeCommand(std::string_view text)
{
    const std::string frame = frameFromText(text);
    MUST_HOLD(frame.size() == 19);
    MUST_HOLD(text.find('<') != std::string_view::npos || isFrame(frame)); // as typed, or made
    static_cast<void>(describe(frame));
}

void escapeText(std::string_view text)
{
    MUST_BE(unescape(escape(text)), text);
    static_cast<void>(unescape(text));
}

void playText(const std::string &text)
{
    // Bytes that are said to repeat take memory and time, and are the same each time.
    if (std::count(text.begin(), text.end(), '*') > 6) {
        return;
    }
    far.isEcho = true;
    std::istringstream stream(text);
    const std::vector<Step> steps = parseTranscript(stream, "transcript");
    MUST_HOLD(!steps.empty());
    Line front(kFront, "front");
    Line pc(kPC, "pc");
    const bool needsLog = std::any_of(steps.begin(), steps.end(),
                                      [](const Step &step) { return step.kind == Step::kLog; });
    LogFile log("/dev/null");
    const int status = playTranscript(steps, "transcript", {&front, &pc, needsLog ? &log : nullptr},
                                      Milliseconds(50));
    MUST_HOLD(status == kDone || status == kRefused);
}

void makePackage(Input &input)
{
    const size_t count = 16U * input.word();
    std::string package(input.rest());
    const size_t more = std::min<size_t>(count, 3000);
    package.append(package.empty() ? 0 : more, 'p');
    const std::string stream = updateStream(package);
    MUST_HOLD(stream.size() % kBlockSize == 0 && stream.size() >= 128 + package.size());
    MUST_HOLD(stream.size() < 128 + package.size() + kBlockSize);
    const auto at = [&](size_t i) { return static_cast<uint8_t>(stream[i]); };
    uint16_t sum = 0;
    for (size_t i = 128; i < stream.size(); ++i) {
        sum = static_cast<uint16_t>(sum + at(i));
    }
    MUST_HOLD(at(80) * 256 + at(81) == sum);
    const size_t size =
        (size_t{at(48)} << 24) + (size_t{at(49)} << 16) + (size_t{at(50)} << 8) + at(51);
    MUST_HOLD(size == package.size());
    MUST_BE(std::string_view(stream).substr(128, size), package);
    std::string blocks;
    for (size_t i = 0; i < stream.size() / kBlockSize; ++i) {
        const std::string block = blockWithChecksum(stream, i);
        uint8_t total = 0;
        for (size_t j = 0; j < kBlockSize; ++j) {
            total = static_cast<uint8_t>(total + static_cast<uint8_t>(block[j]));
        }
        MUST_HOLD(block.size() == kBlockSize + 1);
        MUST_HOLD(static_cast<uint8_t>(block[kBlockSize]) == total);
        blocks += block.substr(0, kBlockSize);
    }
    MUST_BE(blocks, stream);
}

void readAddresses(std::string_view text)
{
    try {
        const std::string bytes = bytesOfMac(text);
        MUST_HOLD(bytes.size() == 6);
        MUST_BE(bytesOfMac(macText(bytes)), bytes);
    } catch (const UsageError &) {
        const std::string bytes = bytesOfAddress(text);
        MUST_HOLD(bytes.size() == 4);
        MUST_BE(bytesOfAddress(addressText(bytes)), bytes);
    }
}

void update(Input &input)
{
    const std::string package(1U + input.byte() * 16U, 'p');
    far.answers.emplace_back();
    while (input.left() > 0) {
        const uint8_t byte = input.byte();
        if (byte == 0xFF) {
            far.answers.emplace_back();
        } else {
            far.answers.back() += static_cast<char>(byte);
        }
    }
    Line line(kFront, "front");
    UpdateOptions options{};
    options.query = input.left() % 2 == 0;
    options.progress = ProgressKind::kNone;
    options.timeout = Milliseconds(1000);
    options.blockTimeout = Milliseconds(5000);
    options.restartTimeout = Milliseconds(30000);
    const int status = runUpdate(line, updateStream(package), options);
    MUST_HOLD(status == kDone || status == kRefused || status == kNoAnswer ||
              status == kNotFinished || status == kLocalFailure);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t count)
{
    World run;
    tool_stderr = stdout;
    far = {};
    Input input(bytes, count);
    try {
        switch (input.byte() % 7) {
        case 0:
            findFrames(input.rest());
            break;
        case 1:
            makeCommand(input.rest());
            break;
        case 2:
            escapeText(input.rest());
            break;
        case 3:
            playText(std::string(input.rest()));
            break;
        case 4:
            makePackage(input);
            break;
        case 5:
            readAddresses(input.rest());
            break;
        default:
            update(input);
            break;
        }
    } catch (const UsageError &) { // what it says to its user
    }
    return 0;
}
