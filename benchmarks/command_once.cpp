// Gives the command path bytes once, in measured(), for a tool that counts the instructions of a
// function. scripts/bench runs it that way, inside the board.
//
//   command_once commands COUNT daemon|plain          COUNT commands that arrive in one read
//   command_once pass CHANNELS empty|text|opens PASSES
//                                                     passes over as many bound channels
//   command_once mirror one|many DATAGRAMS            a datagram and a mirrored line a pass

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include "benchmarks/plain_command.h"
#include "command/channel.h"
#include "command/reception.h"
#include "transport/bridge.h"
#include "transport/bridge_pipes.h"
#include "transport/uart.h"
#include "transport/udpecho.h"

extern "C" void measured(void (*action)());

// Neither inlined nor cloned, because the tool finds it by name.
[[gnu::noipa]] void measured(void (*action)())
{
    action();
}

namespace {

constexpr uint32_t kPipeHolds = sizeof(Channel::storage) - 1;
constexpr char kLine[] = "/tmp/line"; // a file in place of the serial line; it keeps the replies

// What the actions work on. Set by main().
std::string input;
uint32_t turns;
uint32_t channels;
bool isPcChanging;
int plainLine;

[[noreturn]] void stop(const char *what)
{
    std::perror(what);
    std::exit(4);
}

const uint8_t *inputBytes()
{
    return reinterpret_cast<const uint8_t *>(input.data());
}

uint32_t inputSize()
{
    return static_cast<uint32_t>(input.size());
}

std::string repeated(const std::string &text, uint32_t count)
{
    std::string all;
    for (uint32_t i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

// The daemon without its threads: UARTInit() starts no reader on a file, and the socket is made
// here.
void startDaemon()
{
    unlink("/dev/ttyS0");
    if (symlink(kLine, "/dev/ttyS0") != 0) {
        stop("/dev/ttyS0");
    }
    InitRs232CommandVariable();
    udp_receive_pipe_init();
    UARTInit(0);
    sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in source{};
    source.sin_family = AF_INET;
    uint32_t word;
    std::memcpy(&word, &source, sizeof word);
    rem_addr[0].store(word);
}

void nothing() {}

void runCommands()
{
    IsrReceiveBuffer(kChannelSerial, 0, inputBytes(), inputSize());
    TaskCommand();
}

void runCommandsPlainly()
{
    plainReceive(inputBytes(), inputSize());
    plainPass(plainLine);
}

void checkReplies(uint32_t count)
{
    const std::string expected = repeated("<F00006801263300c2>", count);
    std::string replies(expected.size() + 1, '\0');
    const int line = open(kLine, O_RDONLY | O_CLOEXEC);
    if (read(line, replies.data(), replies.size()) != static_cast<ssize_t>(expected.size()) ||
        replies.compare(0, expected.size(), expected) != 0) {
        stop("the replies are wrong");
    }
    close(line);
}

void fillChannels()
{
    for (uint32_t i = 0; i < channels; ++i) {
        IsrReceiveBuffer(kChannelUdp, 1 + i, inputBytes(), inputSize());
    }
}

void runPasses()
{
    for (uint32_t i = 0; i < turns; ++i) {
        TaskCommand();
        udpSendTask();
    }
}

void emptyChannels()
{
    for (uint32_t i = 0; i < channels; ++i) {
        TaskCommand();
        udpSendTask();
    }
}

void runMirror()
{
    for (uint32_t i = 0; i < turns; ++i) {
        rem_ip.store(htonl(0xC0A80001 + (isPcChanging && i % 2 != 0 ? 9 : 0)));
        rem_port.store(static_cast<uint16_t>(5000 + (isPcChanging ? i : 0)));
        task_udp_buffer(inputBytes(), inputSize());
        IsrReceiveBuffer(kChannelSerial, 0, inputBytes(), inputSize());
        TaskCommand();
        udp2uart_task();
    }
}

// Measures the second time: the first call also pays for dynamic linking.
void measure(void (*before)(), void (*action)(), void (*after)())
{
    before();
    action();
    after();
    before();
    measured(action);
}

uint32_t number(const char *text)
{
    return static_cast<uint32_t>(std::strtoul(text, nullptr, 10));
}

} // namespace

int main(int argc, char **argv)
{
    const std::string operation = argc > 1 ? argv[1] : "";
    setvbuf(stdout, nullptr, _IOLBF, 0); // as the daemon does
    plainLine = open(kLine, O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0666);
    if (plainLine < 0) {
        stop(kLine);
    }
    startDaemon();
    if (operation == "commands" && argc == 4) {
        const uint32_t count = number(argv[2]);
        input = repeated("<T0000680100000069>", count);
        const bool isPlain = std::strcmp(argv[3], "plain") == 0;
        measure(nothing, isPlain ? runCommandsPlainly : runCommands, nothing);
        checkReplies(2 * count);
        return 0;
    }
    if (operation == "pass" && argc == 5) {
        channels = number(argv[2]);
        turns = number(argv[4]);
        if (std::strcmp(argv[3], "text") == 0) {
            input = std::string(kPipeHolds, 'x');
        } else if (std::strcmp(argv[3], "opens") == 0) {
            input = std::string(kPipeHolds, '<');
        }
        measure(fillChannels, runPasses, emptyChannels);
        return 0;
    }
    if (operation == "mirror" && argc == 4) {
        isPcChanging = std::strcmp(argv[2], "many") == 0;
        turns = number(argv[3]);
        input = std::string(100, 'x');
        measure(nothing, runMirror, nothing);
        return 0;
    }
    std::fputs("usage: see the head of command_once.cpp\n", stderr);
    return 2;
}
