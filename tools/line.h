#pragma once

// A serial device or a UDP peer as one line that carries bytes both ways.

#include "tools/wait.h"

#include <string>
#include <string_view>

class Line {
public:
    // Opens a serial device: 115200 8N1, raw. Throws LocalError.
    static Line serial(const std::string &device);

    // HOST or HOST:PORT, port 1000 if not given. Sends nothing yet. Throws UsageError for an
    // impossible port, LocalError for a host that cannot be found.
    static Line udp(const std::string &peer);

    // Takes over an open non-blocking descriptor; `name` is for messages.
    Line(int descriptor, std::string name);
    Line(Line &&other) noexcept;
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;
    ~Line();

    int descriptor() const;

    // Sends all bytes, over UDP as one datagram. Throws LocalError.
    void send(std::string_view bytes);

    // Waits for bytes and returns what has arrived, nothing when the time is over. Throws
    // LocalError when the line has been closed.
    std::string receive(Milliseconds timeout);

    // Throws away what has arrived.
    void discardInput();

private:
    int descriptor_;
    bool carriesDatagrams_;
    std::string name_;
};
