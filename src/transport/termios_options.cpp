#include "transport/termios_options.h"

void clearFlags(tcflag_t *field, tcflag_t flags)
{
    *field &= ~flags;
}

void setCharacterSize(termios *options, tcflag_t size)
{
    clearFlags(&options->c_cflag, CSIZE);
    options->c_cflag |= size;
}

bool setSevenOrEightBits(termios *options, int32_t bits)
{
    if (bits != 7 && bits != 8) {
        return false;
    }
    setCharacterSize(options, bits == 7 ? CS7 : CS8);
    return true;
}

bool setOneOrTwoStopBits(termios *options, int32_t stop)
{
    if (stop != 1 && stop != 2) {
        return false;
    }
    clearFlags(&options->c_cflag, CSTOPB);
    options->c_cflag |= stop == 2 ? CSTOPB : 0;
    return true;
}
