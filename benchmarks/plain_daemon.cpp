// plain_command as a program on /dev/ttyS0, with two threads that each wake every 1 ms.

#include <cstdio>
#include <fcntl.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

#include "benchmarks/plain_command.h"

namespace {

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

} // namespace

int main()
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const int line = openLine();
    if (line < 0) {
        std::perror("/dev/ttyS0");
        return 1;
    }
    std::thread reader([line] {
        static uint8_t bytes[4096];
        for (;;) {
            const ssize_t count = read(line, bytes, sizeof bytes);
            if (count > 0) {
                plainReceive(bytes, static_cast<uint32_t>(count));
            } else {
                usleep(1000);
            }
        }
    });
    std::puts("enter main");
    for (;;) {
        plainPass(line);
        usleep(1000);
    }
}
