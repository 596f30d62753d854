#pragma once

// The serial devices of this computer.

#include <string>
#include <vector>

struct SerialPort {
    std::string device; // such as /dev/ttyUSB0
    std::string driver;
    std::string product;      // what the system knows of it; the rest is empty if it is not on USB
    std::string manufacturer; //
    std::string serialNumber; //
    std::string usbId;        // vendor:product
    std::string link;         // a name under /dev/serial/by-id that stays the same
};

// Those that `root`/sys lists and that have a driver and a chip, sorted by name. `root` is "" but
// for tests.
std::vector<SerialPort> serialPorts(const std::string &root);

// Prints them. Returns kDone, also if there are none.
int runPorts(const std::string &root);
