// The Mervo link with a device that answers at once. It measures a command and its answer in memory
// and over a stream, each beside the same without the link, and what the window of unanswered
// commands costs a sender.

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

#include "link/mervoProtocol.h"

namespace {

constexpr int32_t kFrame = 19;
constexpr uint32_t kUnheld = 29; // commands that may be unanswered before a sender waits

[[noreturn]] void stop(const char *what)
{
    std::perror(what);
    std::exit(4);
}

// The link under measure, and the pipe that it receives from.
MervoLink mervo;
uint8_t storage[4096];
struct pipe received;
uint32_t answers;

void countAnswer(MervoLink * /*link*/, const uint8_t *answer)
{
    benchmark::DoNotOptimize(answer[3]);
    ++answers;
}

void openLink(int32_t (*send)(const uint8_t *bytes, int32_t length))
{
    pipe_init(&received, storage, sizeof storage);
    Init_MervoProtocol(&mervo, &received, countAnswer, send);
    answers = 0;
}

// In memory --------------------------------------------------------------------------------------

// The answer to a command: the command itself, from the device.
int32_t answerAtOnce(const uint8_t *bytes, int32_t length)
{
    for (int32_t i = 0; i < length; ++i) {
        pipe_write(&received, i == 1 ? uint8_t{'F'} : bytes[i]);
    }
    return length;
}

void linkCommand(benchmark::State &state)
{
    openLink(answerAtOnce);
    uint32_t data = 0;
    for (auto _ : state) {
        SendCmdNoWait_MervoProtocol(&mervo, 1, 2, data, data >> 8, data >> 16, data >> 24);
        Task_MervoProtocol(&mervo);
        ++data;
    }
    if (answers != data) {
        state.SkipWithError("an answer is missing");
    }
}
BENCHMARK(linkCommand);

char *writeHex(char *at, uint32_t byte)
{
    if (std::to_chars(at, at + 2, byte, 16).ptr == at + 1) {
        at[1] = at[0];
        at[0] = '0';
    }
    return at + 2;
}

// The same frame, encoded and decoded by the standard library and carried byte by byte through the
// same pipe.
void standardCommand(benchmark::State &state)
{
    openLink(answerAtOnce);
    uint32_t data = 0;
    for (auto _ : state) {
        const uint8_t bytes[] = {1,
                                 static_cast<uint8_t>(data),
                                 2,
                                 static_cast<uint8_t>(data),
                                 static_cast<uint8_t>(data >> 8),
                                 static_cast<uint8_t>(data >> 16),
                                 static_cast<uint8_t>(data >> 24)};
        char frame[kFrame] = {'<', 'T'};
        char *at = frame + 2;
        uint32_t sum = 0;
        for (const uint8_t byte : bytes) {
            at = writeHex(at, byte);
            sum += byte;
        }
        at = writeHex(at, sum & 0xFF);
        *at = '>';
        answerAtOnce(reinterpret_cast<const uint8_t *>(frame), kFrame);
        uint8_t answer[kFrame];
        for (uint8_t &character : answer) {
            static_cast<void>(pipe_read(&received, &character)); // the answer is there
        }
        const char *const digits = reinterpret_cast<const char *>(answer) + 2;
        for (uint32_t i = 0; i < 8; ++i) {
            uint8_t value = 0;
            std::from_chars(digits + 2 * i, digits + 2 * i + 2, value, 16);
            benchmark::DoNotOptimize(value);
        }
        ++data;
    }
}
BENCHMARK(standardCommand);

// Over a stream ----------------------------------------------------------------------------------

// A stream with a device at its far end. The device answers all whole frames of a read in one
// write.
int nearEnd = -1;

void answerForEver(int end)
{
    uint8_t bytes[kFrame * 256];
    size_t count = 0;
    for (;;) {
        const ssize_t more = read(end, bytes + count, sizeof bytes - count);
        if (more <= 0) {
            close(end);
            return;
        }
        count += static_cast<size_t>(more);
        const size_t whole = count - count % kFrame;
        for (size_t frame = 0; frame < whole; frame += kFrame) {
            bytes[frame + 1] = 'F';
        }
        if (whole > 0 && write(end, bytes, whole) != static_cast<ssize_t>(whole)) {
            stop("the device");
        }
        count -= whole;
        std::memmove(bytes, bytes + whole, count);
    }
}

class AnsweringDevice {
public:
    AnsweringDevice()
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            stop("socketpair");
        }
        nearEnd = ends[0];
        const timeval patience = {5, 0}; // a lost answer ends the run
        setsockopt(nearEnd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        thread_ = std::thread(answerForEver, ends[1]);
    }
    ~AnsweringDevice()
    {
        close(nearEnd);
        thread_.join();
    }
    AnsweringDevice(const AnsweringDevice &) = delete;
    AnsweringDevice &operator=(const AnsweringDevice &) = delete;

private:
    std::thread thread_;
};

int32_t sendToDevice(const uint8_t *bytes, int32_t length)
{
    return static_cast<int32_t>(write(nearEnd, bytes, static_cast<size_t>(length)));
}

// Waits for bytes and hands them to the link. There is no receive thread, because only the link is
// measured.
void receiveFromDevice()
{
    uint8_t bytes[kFrame * 64];
    const ssize_t count = read(nearEnd, bytes, sizeof bytes);
    if (count <= 0) {
        stop("the stream");
    }
    for (ssize_t i = 0; i < count; ++i) {
        pipe_write(&received, bytes[i]);
    }
    while (pipe_isEmpty(&received) == 0) {
        Task_MervoProtocol(&mervo);
    }
}

void linkOverStream(benchmark::State &state)
{
    const AnsweringDevice device;
    openLink(sendToDevice);
    uint32_t data = 0;
    for (auto _ : state) {
        while (canSendCmd_mervo(&mervo, 1) == 0) {
            receiveFromDevice();
        }
        SendCmdNoWait_MervoProtocol(&mervo, 1, 2, data, data >> 8, data >> 16, data >> 24);
        ++data;
    }
    while (answers < data) {
        receiveFromDevice();
    }
    state.counters["commands/s"] = benchmark::Counter(data, benchmark::Counter::kIsRate);
}
BENCHMARK(linkOverStream)->UseRealTime();

// Sends one frame over and over, with as many unanswered as above, and only counts the answers.
void plainOverStream(benchmark::State &state)
{
    const AnsweringDevice device;
    const char *const frame = "<T0101020304050616>";
    uint64_t sent = 0;
    uint64_t receivedBytes = 0;
    const auto receive = [&receivedBytes] {
        uint8_t bytes[kFrame * 64];
        const ssize_t count = read(nearEnd, bytes, sizeof bytes);
        if (count <= 0) {
            stop("the stream");
        }
        receivedBytes += static_cast<uint64_t>(count);
    };
    for (auto _ : state) {
        while (sent - receivedBytes / kFrame > kUnheld) {
            receive();
        }
        sendToDevice(reinterpret_cast<const uint8_t *>(frame), kFrame);
        ++sent;
    }
    while (receivedBytes < sent * kFrame) {
        receive();
    }
    state.counters["commands/s"] =
        benchmark::Counter(static_cast<double>(sent), benchmark::Counter::kIsRate);
}
BENCHMARK(plainOverStream)->UseRealTime();

// At the edge of the window, in memory -----------------------------------------------------------

// A sender that leaves the answers to SendCmd_MervoProtocol, so none is parsed before the window is
// full. The first command shows that the device answers; state.range(0) more follow.
void linkCommandsInARow(benchmark::State &state)
{
    for (auto _ : state) {
        openLink(answerAtOnce);
        SendCmdAndWait_MervoProtocol(&mervo, 1, 2, 0, 0, 0, 0);
        for (int64_t i = 0; i < state.range(0); ++i) {
            if (SendCmd_MervoProtocol(&mervo, 1, 2, static_cast<uint32_t>(i), 0, 0, 0) != 1) {
                state.SkipWithError("no room");
            }
        }
    }
}
BENCHMARK(linkCommandsInARow)->Arg(kUnheld)->Arg(kUnheld + 1)->Arg(kUnheld + 10)->UseRealTime();

void sleepOfOneMillisecond(benchmark::State &state)
{
    for (auto _ : state) {
        usleep(1000);
    }
}
BENCHMARK(sleepOfOneMillisecond)->UseRealTime();

} // namespace
