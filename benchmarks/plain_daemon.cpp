// plain_command as a program on /dev/ttyS0, with two threads that each wake every 1 ms.
//
//   plain_daemon           commands only
//   plain_daemon bridge    also joins the line and UDP port 1000, as the daemon does: a third
//   thread
//                          waits for datagrams, the main thread writes their bytes to the line with
//                          a pause of 80 ms after each 256, and what comes from the line outside of
//                          frames goes to the last sender. Each direction has one buffer under a
//                          mutex; what does not fit is dropped.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <netinet/in.h>
#include <sys/socket.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

#include "benchmarks/plain_command.h"

namespace {

constexpr uint32_t kBuffer = 4096;
constexpr uint32_t kDatagram = 1152;
constexpr uint32_t kChunk = 256;
constexpr uint32_t kChunkPauseUs = 80000;
constexpr uint32_t kFrame = 19;

struct Buffer {
    std::mutex mutex;
    uint8_t bytes[kBuffer];
    uint32_t count = 0;

    void append(const uint8_t *more, uint32_t length)
    {
        const std::lock_guard lock(mutex);
        length = std::min(length, kBuffer - count);
        std::memcpy(bytes + count, more, length);
        count += length;
    }

    uint32_t take(uint8_t *to)
    {
        const std::lock_guard lock(mutex);
        const uint32_t taken = count;
        std::memcpy(to, bytes, taken);
        count = 0;
        return taken;
    }
};

Buffer toLine; // UDP thread to main thread
Buffer toPc;   // reader thread to main thread
int udpSocket = -1;

std::mutex pcMutex;
sockaddr_in pc; // the last sender, under pcMutex

// Opens the line raw; a read returns at once. Returns the descriptor, or -1.
int openLine()
{
    const int line = open("/dev/ttyS0", O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios options{};
    options.c_cflag = CLOCAL | CREAD | CS8;
    cfsetispeed(&options, B115200);
    cfsetospeed(&options, B115200);
    return line >= 0 && tcsetattr(line, TCSANOW, &options) == 0 ? line : -1;
}

// Returns the socket, or -1.
int openUdp()
{
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(1000);
    return bind(descriptor, reinterpret_cast<const sockaddr *>(&local), sizeof local) == 0
               ? descriptor
               : -1;
}

void receiveDatagrams()
{
    static uint8_t bytes[kBuffer];
    for (;;) {
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const ssize_t count = recvfrom(udpSocket, bytes, sizeof bytes, 0,
                                       reinterpret_cast<sockaddr *>(&from), &length);
        if (count > 0) {
            {
                const std::lock_guard lock(pcMutex);
                pc = from;
            }
            toLine.append(bytes, static_cast<uint32_t>(count));
        }
    }
}

// Splits what the line brings: frames are commands, the rest is for the PC. Reader thread.
void receiveFromLine(const uint8_t *bytes, uint32_t count)
{
    static uint32_t ofFrame; // bytes of the frame that has begun, 0 outside of frames
    for (uint32_t done = 0; done < count;) {
        uint32_t run = count - done;
        if (ofFrame > 0 || bytes[done] == '<') {
            run = std::min(run, kFrame - ofFrame);
            plainReceive(bytes + done, run);
            ofFrame = (ofFrame + run) % kFrame;
        } else {
            const void *const opening = std::memchr(bytes + done, '<', run);
            if (opening != nullptr) {
                run = static_cast<uint32_t>(static_cast<const uint8_t *>(opening) - bytes) - done;
            }
            toPc.append(bytes + done, run);
        }
        done += run;
    }
}

// Both directions. Main thread.
void bridgePass(int line)
{
    static uint8_t bytes[kBuffer];
    uint32_t count = toLine.take(bytes);
    for (uint32_t done = 0; done < count;) {
        const uint32_t chunk = std::min(count - done, kChunk);
        if (write(line, bytes + done, chunk) != static_cast<ssize_t>(chunk)) {
            std::puts("write error");
        }
        if (chunk == kChunk) {
            usleep(kChunkPauseUs);
        }
        done += chunk;
    }
    count = toPc.take(bytes);
    if (count == 0) {
        return;
    }
    sockaddr_in to;
    {
        const std::lock_guard lock(pcMutex);
        to = pc;
    }
    for (uint32_t done = 0; to.sin_port != 0 && done < count; done += kDatagram) {
        // The result is dropped: a datagram that cannot be sent is lost, as on the network.
        static_cast<void>(sendto(udpSocket, bytes + done, std::min(count - done, kDatagram), 0,
                                 reinterpret_cast<const sockaddr *>(&to), sizeof to));
    }
}

} // namespace

int main(int argc, char **argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const bool isBridge = argc > 1 && std::strcmp(argv[1], "bridge") == 0;
    const int line = openLine();
    if (line < 0) {
        std::perror("/dev/ttyS0");
        return 1;
    }
    std::thread datagrams;
    if (isBridge) {
        udpSocket = openUdp();
        if (udpSocket < 0) {
            std::perror("port 1000");
            return 1;
        }
        datagrams = std::thread(receiveDatagrams);
    }
    std::thread reader([line, isBridge] {
        static uint8_t bytes[4096];
        for (;;) {
            const ssize_t count = read(line, bytes, sizeof bytes);
            if (count > 0 && isBridge) {
                receiveFromLine(bytes, static_cast<uint32_t>(count));
            } else if (count > 0) {
                plainReceive(bytes, static_cast<uint32_t>(count));
            } else {
                usleep(1000);
            }
        }
    });
    std::puts("enter main");
    for (;;) {
        plainPass(line);
        if (isBridge) {
            bridgePass(line);
        }
        usleep(1000);
    }
}
