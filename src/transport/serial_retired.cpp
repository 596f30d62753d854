#include "transport/serial_retired.h"

#include <cstdio>
#include <cstring>
#include <iterator>

#include "transport/termios_options.h"

namespace {

// clang-format off
// The rates of set_speed and their termios codes, index by index.
constexpr uint32_t name_arr[]  = { 115200,  57600,  38400,  19200,  9600,  4800,  2400,  1200,  300};
constexpr uint32_t speed_arr[] = {B115200, B57600, B38400, B19200, B9600, B4800, B2400, B1200, B300};
// clang-format on
static_assert(std::size(name_arr) == std::size(speed_arr));

} // namespace

void set_baudrate(termios *options, uint32_t speed)
{
    cfsetispeed(options, speed);
    cfsetospeed(options, speed);
}

void set_data_bit(termios *options, int32_t bits)
{
    switch (bits) {
    case 5:
        setCharacterSize(options, CS5);
        break;
    case 6:
        setCharacterSize(options, CS6);
        break;
    case 7:
        setCharacterSize(options, CS7);
        break;
    default:
        setCharacterSize(options, CS8);
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
        options.c_iflag |= INPCK; // for 'N' too: this set-up always did so
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
