#include "transport/serial.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr uint32_t kChunk = 256;
constexpr useconds_t kChunkPauseUs = 80000;

struct Rate {
    int32_t baud;
    speed_t code;
};

// The rates of serial_set. Not those of name_arr: 1200 and 300 are missing, two fast ones are
// added.
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

// The rates of set_speed and their termios codes, index by index.
constexpr uint32_t name_arr[]  = { 115200,  57600,  38400,  19200,  9600,  4800,  2400,  1200,  300};
constexpr uint32_t speed_arr[] = {B115200, B57600, B38400, B19200, B9600, B4800, B2400, B1200, B300};
// clang-format on
static_assert(std::size(name_arr) == std::size(speed_arr));

bool setRate(termios *options, int32_t baud)
{
    const Rate *const rate = std::find_if(std::begin(kRates), std::end(kRates),
                                          [baud](const Rate &known) { return known.baud == baud; });
    if (rate == std::end(kRates)) {
        return false;
    }
    cfsetispeed(options, rate->code);
    cfsetospeed(options, rate->code);
    return true;
}

void replaceSize(termios *options, tcflag_t size)
{
    options->c_cflag = (options->c_cflag & ~static_cast<tcflag_t>(CSIZE)) | size;
}

void clearFlags(tcflag_t *field, tcflag_t flags)
{
    *field &= ~flags;
}

// False when `bits` is neither.
bool setSevenOrEightBits(termios *options, int32_t bits)
{
    if (bits != 7 && bits != 8) {
        return false;
    }
    replaceSize(options, bits == 7 ? CS7 : CS8);
    return true;
}

// False when `stop` is neither.
bool setOneOrTwoStopBits(termios *options, int32_t stop)
{
    if (stop != 1 && stop != 2) {
        return false;
    }
    clearFlags(&options->c_cflag, CSTOPB);
    options->c_cflag |= stop == 2 ? CSTOPB : 0;
    return true;
}

} // namespace

int32_t serial_open(const char *path)
{
    // Non-blocking only so that the open itself cannot hang on modem lines. Programs that the
    // daemon starts must not inherit the line.
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
    // Nothing of the old setting is kept: all flags off is a raw line.
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
    tcflush(fd, TCIFLUSH);
    if (tcsetattr(fd, TCSANOW, &options) != 0) {
        perror("Set new terminal description error !");
        return -1;
    }
    std::printf("%s success !\n", "serial_set");
    return 0;
}

int32_t serial_read(int32_t fd, void *buffer, uint32_t length)
{
    if (length == 0) {
        std::printf("Read byte number error !\n");
        return 0;
    }
    return static_cast<int32_t>(read(fd, buffer, length));
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

int32_t serial_close(int32_t fd)
{
    return close(fd);
}

int32_t serial_test()
{
    const int32_t fd = serial_open("/dev/ttyS4");
    if (fd < 0 || serial_set(fd, 115200, 8, 'N', 1) < 0) {
        return 1;
    }
    uint8_t digits[5000];
    for (uint32_t i = 0; i < sizeof digits; ++i) {
        digits[i] = static_cast<uint8_t>('0' + i % 10);
    }
    serial_write(fd, digits, sizeof digits);
    constexpr uint32_t kMost = 8192;
    char szBuffer[kMost + 1]; // room to close the text behind a full read
    for (;;) {
        std::memset(szBuffer, 0, sizeof szBuffer);
        const int32_t len = serial_read(fd, szBuffer, kMost);
        if (len > 0) {
            std::printf("len =  %d ,szBuffer = %s \n", len, szBuffer);
        }
        usleep(1000);
    }
}

void set_baudrate(termios *options, uint32_t speed)
{
    cfsetispeed(options, speed);
    cfsetospeed(options, speed);
}

void set_data_bit(termios *options, int32_t bits)
{
    switch (bits) {
    case 5:
        replaceSize(options, CS5);
        break;
    case 6:
        replaceSize(options, CS6);
        break;
    case 7:
        replaceSize(options, CS7);
        break;
    default:
        replaceSize(options, CS8);
        break;
    }
}

void set_parity(termios *options, char parity)
{
    switch (parity) {
    case 'O':
        options->c_cflag |= PARENB | PARODD;
        break;
    case 'E':
        options->c_cflag |= PARENB;
        clearFlags(&options->c_cflag, PARODD);
        break;
    default:
        clearFlags(&options->c_cflag, PARENB);
        break;
    }
}

void set_stopbit(termios *options, const char *stop)
{
    if (std::strcmp(stop, "2") == 0) {
        options->c_cflag |= CSTOPB;
    } else {
        clearFlags(&options->c_cflag, CSTOPB);
    }
}

void set_speed(int32_t fd, uint32_t baud)
{
    termios options{};
    tcgetattr(fd, &options);
    for (uint32_t i = 0; i < std::size(name_arr); ++i) {
        if (name_arr[i] != baud) {
            continue;
        }
        tcflush(fd, TCIOFLUSH);
        cfsetispeed(&options, speed_arr[i]);
        cfsetospeed(&options, speed_arr[i]);
        if (tcsetattr(fd, TCSANOW, &options) != 0) {
            perror("tcsetattr fd");
            return;
        }
        tcflush(fd, TCIOFLUSH);
    }
}

int32_t set_Parity(int32_t fd, int32_t bits, char parity, int32_t stop)
{
    termios options{};
    if (tcgetattr(fd, &options) != 0) {
        perror("SetupSerial 1");
        return -1;
    }
    if (!setSevenOrEightBits(&options, bits)) {
        std::fprintf(stderr, "Unsupported data size\n");
        return -1;
    }
    switch (parity) {
    case 'n':
    case 'N':
        clearFlags(&options.c_cflag, PARENB);
        clearFlags(&options.c_iflag, INPCK);
        break;
    case 'o':
    case 'O':
        options.c_cflag |= PARENB | PARODD;
        options.c_iflag |= INPCK;
        break;
    case 'e':
    case 'E':
        options.c_cflag |= PARENB;
        clearFlags(&options.c_cflag, PARODD);
        options.c_iflag |= INPCK;
        break;
    case 's':
    case 'S':
        clearFlags(&options.c_cflag, PARENB | CSTOPB);
        break;
    default:
        std::fprintf(stderr, "Unsupported parity\n");
        return -1;
    }
    if (!setOneOrTwoStopBits(&options, stop)) {
        std::fprintf(stderr, "Unsupported stop bits\n");
        return -1;
    }
    if (parity != 'n') {
        options.c_iflag |= INPCK; // for an upper-case 'N' too, as this set-up always did
    }
    options.c_cflag |= CLOCAL | CREAD;
    clearFlags(&options.c_cflag, CRTSCTS);
    clearFlags(&options.c_iflag, INLCR | IGNCR | ICRNL);
    options.c_oflag = 0;
    options.c_lflag = 0;
    options.c_cc[VTIME] = 30;
    options.c_cc[VMIN] = 0;
    if (tcsetattr(fd, TCSANOW, &options) != 0) {
        perror("SetupSerial 3");
        return -1;
    }
    return 0;
}

int32_t set_port_attr(int32_t fd, int32_t, int32_t bits, const char *, char parity)
{
    set_speed(fd, 115200);
    set_Parity(fd, bits, parity, 1);
    return 0;
}
