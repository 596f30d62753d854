#include "tests/system/linked_device_line.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <numeric>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include <gtest/gtest.h>

#include "transport/serial.h"

namespace {

constexpr char kSerialLine[] = "/dev/ttyS1";

int lineToSendOn = -1;

int check(int result, const char *what)
{
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

int32_t sendToSerialLine(const uint8_t *bytes, int32_t length)
{
    return serial_write(lineToSendOn, bytes, static_cast<uint32_t>(length));
}

int32_t sendToSocket(const uint8_t *bytes, int32_t length)
{
    int32_t done = 0;
    while (done < length) {
        const ssize_t sent =
            send(lineToSendOn, bytes + done, static_cast<size_t>(length - done), MSG_NOSIGNAL);
        if (sent <= 0) {
            break;
        }
        done += static_cast<int32_t>(sent);
    }
    return done;
}

int32_t receiveFromSocket(int32_t descriptor, void *buffer, uint32_t length)
{
    return static_cast<int32_t>(recv(descriptor, buffer, length, 0));
}

} // namespace

uint32_t commandsOf(const Plan &plan)
{
    return std::accumulate(plan.begin(), plan.end(), 0u,
                           [](uint32_t sum, const Turn &turn) { return sum + turn.count; });
}

std::vector<uint32_t> answeredIn(const Plan &plan)
{
    std::vector<uint32_t> indexes;
    uint32_t index = 0;
    for (const Turn &turn : plan) {
        for (uint32_t i = 0; i < turn.count; ++i, ++index) {
            if (turn.mode != "silent") {
                indexes.push_back(index);
            }
        }
    }
    return indexes;
}

Line serialLine()
{
    Descriptor master(check(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "openpt"));
    check(unlockpt(master.get()), "unlockpt");
    // Refuses where there is a real one.
    std::filesystem::create_symlink(ptsname(master.get()), kSerialLine);
    Descriptor slave(check(serial_open(kSerialLine), kSerialLine));
    std::filesystem::remove(kSerialLine);
    check(serial_set(slave.get(), 115200, 8, 'N', 1), kSerialLine);
    return {std::move(slave), std::move(master), sendToSerialLine, serial_read};
}

Line socketLine()
{
    int ends[2];
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), "socketpair");
    return {Descriptor(ends[0]), Descriptor(ends[1]), sendToSocket, receiveFromSocket};
}

void sendOn(const Line &line)
{
    lineToSendOn = line.ours.get();
}

LinkedDevice::LinkedDevice(Line *line, const Plan &plan)
{
    int ends[2];
    check(pipe2(ends, O_CLOEXEC), "pipe2");
    output = Descriptor(ends[0]);
    const Descriptor outputEnd(ends[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, line->devices.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, outputEnd.get(), STDOUT_FILENO);
    std::vector<std::string> arguments = {LINKED_DEVICE};
    for (const Turn &turn : plan) {
        arguments.push_back(turn.mode + " " + std::to_string(turn.count) + " " +
                            std::to_string(turn.ms));
    }
    std::vector<char *> vector;
    for (std::string &argument : arguments) {
        vector.push_back(argument.data());
    }
    vector.push_back(nullptr);
    errno = posix_spawn(&process, LINKED_DEVICE, &actions, nullptr, vector.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    check(errno == 0 ? 0 : -1, LINKED_DEVICE);
    line->devices.close();
}

LinkedDevice::~LinkedDevice()
{
    if (process > 0) {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
}

std::string LinkedDevice::report()
{
    std::string text;
    pollfd entry{output.get(), POLLIN, 0};
    while (poll(&entry, 1, static_cast<int>(kPatience.count())) > 0) {
        char bytes[1024];
        const ssize_t count = read(output.get(), bytes, sizeof bytes);
        if (count <= 0) {
            int status = -1;
            check(waitpid(process, &status, 0), "waitpid");
            process = -1;
            EXPECT_EQ(status, 0);
            return text;
        }
        text.append(bytes, static_cast<size_t>(count));
    }
    ADD_FAILURE() << "the device does not end";
    return text;
}

Receiver::Receiver(const Line &line, struct pipe *pipe)
    : descriptor(line.ours.get()), receive(line.receive), target(pipe)
{
    int ends[2];
    check(pipe2(ends, O_CLOEXEC), "pipe2");
    stopSeen = Descriptor(ends[0]);
    stop = Descriptor(ends[1]);
    thread = std::thread([this] { run(); });
}

Receiver::~Receiver()
{
    stop.close();
    thread.join();
}

void Receiver::run() const
{
    for (;;) {
        pollfd entries[] = {{stopSeen.get(), POLLIN, 0}, {descriptor, POLLIN, 0}};
        poll(entries, std::size(entries), -1);
        if (entries[0].revents != 0) {
            return;
        }
        uint8_t bytes[300];
        const int32_t count = receive(descriptor, bytes, sizeof bytes);
        for (int32_t i = 0; i < count; ++i) {
            while (pipe_write(target, bytes[i]) == 0) {
                std::this_thread::sleep_for(std::chrono::microseconds(100));
                if (poll(entries, 1, 0) > 0) {
                    return;
                }
            }
        }
        if (count <= 0 && (entries[1].revents & (POLLHUP | POLLERR)) != 0) {
            return;
        }
    }
}
