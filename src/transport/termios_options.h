#pragma once

// The attribute changes that both families of serial set-ups share. They change only the given
// record. Any thread.

#include <cstdint>
#include <termios.h>

void clearFlags(tcflag_t *field, tcflag_t flags);

// Sets the character size to CS5, CS6, CS7 or CS8.
void setCharacterSize(termios *options, tcflag_t size);

// Returns false and changes nothing when `bits` is neither 7 nor 8.
[[nodiscard]] bool setSevenOrEightBits(termios *options, int32_t bits);

// Returns false and changes nothing when `stop` is neither 1 nor 2.
[[nodiscard]] bool setOneOrTwoStopBits(termios *options, int32_t stop);
