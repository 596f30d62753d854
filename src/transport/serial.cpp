#include "transport/serial.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <iterator>
#include <termios.h>
#include <unistd.h>

#include "transport/termios_options.h"

namespace {

constexpr uint32_t kChunk = 256;
constexpr useconds_t kChunkPauseUs = 80000;

struct Rate {
    int32_t baud;
    speed_t code;
};

// The rates of serial_set. set_speed() of transport/serial_retired.h has others: 1200 and 300, but
// not the two fast ones.
// clang-format off
constexpr Rate kRates[] = {
    {   2400, B2400},
    {   4800, B4800},
    {   9600, B9600},
    {  19200, B19200},
    {  38400, B38400},
    {  57600, B57600},
    { 115200, B115200},
    { 460800, B460800},
    {1500000, B1500000},
};
// clang-format on
bool setRate(termios *options, int32_t baud)
{
    const Rate *const rate = std::find_if(std::begin(kRates), std::end(kRates),
                                          [baud](const Rate &known) { return known.baud == baud; });
    if (rate == std::end(kRates)) {
        return false;
    }
    cfsetispeed(options, rate->code); // cannot fail: the codes are those of the system
    cfsetospeed(options, rate->code);
    return true;
}

} // namespace

int32_t serial_open(const char *path)
{
    // Non-blocking, but only so that open() cannot hang on modem lines. Programs that the daemon
    // starts must not inherit the line.
    const int fd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        std::printf("Can't Open Serial Port %s !\n", path);
        return -1;
    }
    std::printf("Open %s ......\n", path);
    if (fcntl(fd, F_SETFL, 0) < 0) {
        std::printf("fcntl failed !\n");
        close(fd);
        return -1;
    }
    std::printf("fcntl = %d !\n", fcntl(fd, F_SETFL, 0));
    std::printf("%s file ID= %d !\n", "serial_open", fd);
    return fd;
}

int32_t serial_set(int32_t fd, int32_t baud, int32_t bits, char parity, int32_t stop)
{
    termios old{};
    if (tcgetattr(fd, &old) != 0) {
        perror("Can't get old terminal description !");
        return -1;
    }
    // Nothing of the old setting is kept. A line with all flags off is raw.
    termios options{};
    options.c_cflag |= CLOCAL | CREAD;
    if (!setRate(&options, baud)) {
        std::printf("Don't exist baudRate %d !\n", baud);
        return -1;
    }
    if (!setSevenOrEightBits(&options, bits)) {
        std::printf("Don't exist dataSize %d !\n", bits);
        return -1;
    }
    switch (parity) {
    case 'N':
        clearFlags(&options.c_cflag, PARENB);
        break;
    case 'O':
        options.c_cflag |= PARENB | PARODD;
        options.c_iflag |= INPCK | ISTRIP;
        break;
    case 'E':
        options.c_cflag |= PARENB;
        clearFlags(&options.c_cflag, PARODD);
        options.c_iflag |= INPCK | ISTRIP;
        break;
    default:
        std::printf("Don't exist parity %c !\n", parity);
        return -1;
    }
    if (!setOneOrTwoStopBits(&options, stop)) {
        std::printf("Don't exist stopBit %d !\n", stop);
        return -1;
    }
    options.c_cc[VTIME] = 0;
    options.c_cc[VMIN] = 0;
    tcflush(fd, TCIFLUSH); // if it fails, the reader sees older input, as it would without it
    if (tcsetattr(fd, TCSANOW, &options) != 0) {
        perror("Set new terminal description error !");
        return -1;
    }
    std::printf("%s success !\n", "serial_set");
    return 0;
}

int32_t serial_write(int32_t fd, const uint8_t *bytes, uint32_t length)
{
    if (length == 0) {
        std::printf("Write byte number error !\n");
        return 0;
    }
    uint32_t done = 0;
    while (done < length) {
        const uint32_t chunk = std::min(length - done, kChunk);
        const ssize_t written = write(fd, bytes + done, chunk);
        if (written <= 0) {
            break; // a line that takes nothing would be tried for ever
        }
        if (chunk == kChunk) {
            usleep(kChunkPauseUs);
        }
        done += static_cast<uint32_t>(written);
    }
    return static_cast<int32_t>(done);
}

// Waiting for a later model -----------------------------------------------------------------------

int32_t serial_read(int32_t fd, void *buffer, uint32_t length)
{
    if (length == 0) {
        std::printf("Read byte number error !\n");
        return 0;
    }
    return static_cast<int32_t>(read(fd, buffer, length));
}

int32_t serial_close(int32_t fd)
{
    return close(fd);
}
