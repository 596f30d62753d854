// Stands in for src/transport/udpecho.cpp: the network of a PC that never comes.

#include "transport/udpecho.h"

#include <cstdio>

int32_t udpecho_init()
{
    std::puts("demo: no control PC: a page has no UDP");
    return 0;
}

void to_pcudp(uint32_t, uint16_t, const uint8_t *, uint32_t) {}
