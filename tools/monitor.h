#pragma once

// What arrives on a line, or stands in a file, made readable as it comes.

#include "tools/line.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

struct MonitorOptions {
    std::string time = "absolute"; // absolute, delta (since the packet before) or none
    // Names or parts of names, or code and dat1 in hexadecimal digits. If there are any, only
    // frames that one of them fits are shown.
    std::vector<std::string> filters;
};

// A way to a line: `open` throws LocalError while it is not there.
struct Way {
    std::string name;
    std::function<Line()> open;
};

struct Watched {
    Way device;
    bool isSerial;
    std::optional<Way> frontBoard = {}; // what either of them says goes on to the other
};

// Prints what arrives, until SIGINT or SIGTERM, and then a summary on standard error (with --json,
// the last line of the data). A serial device that is missing is waited for, and opened again after
// it has gone away. Returns kDone. Throws LocalError for a device that is there and cannot be
// opened.
int runMonitor(const Watched &watched, const MonitorOptions &options);

// Whether a frame is what a filter names.
bool fits(const std::string &filter, std::string_view frame);

// Prints the meaning of the frames in `texts`, or of those on standard input, as they come, if
// `texts` is empty. Returns kUsage if there is anything else, which is reported on standard error.
int runDecode(const std::vector<std::string> &texts);
