#pragma once

// The demo device's board: its files, and the network interface as the system sees it.

#include <cstdint>

// The state of "eth0" and of what belongs to it. Addresses are in dotted order.
struct DemoNetwork {
    uint8_t address[4];
    uint8_t mask[4];
    uint8_t gateway[4];
    uint8_t nameServer[4];
    uint8_t mac[6];
};

// Kept in a file, so it lasts like the daemon's own files: as long as the page, whichever program
// runs.
[[nodiscard]] DemoNetwork demoNetwork();
void setDemoNetwork(const DemoNetwork &network);

// The MAC address that the board takes at its next start: item 3 of its vendor storage.
void keepDemoMac(const uint8_t *mac);

// Copies a file as `cp -f` does. False when it cannot be read or the copy cannot be written.
bool copyFile(const char *from, const char *to);
