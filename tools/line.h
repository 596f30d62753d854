#pragma once

// A line that carries bytes both ways: a serial device or a UDP peer.

#include "tools/kept_settings.h"
#include "tools/wait.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

inline constexpr unsigned kUsualBaud = 115200;

// What has happened to bytes on a line. Dropped ones had arrived before anybody asked for them.
enum class Passing { kSent, kReceived, kDropped };
using Tap = std::function<void(Passing passing, std::string_view bytes)>;

class Line {
public:
    // Opens a serial device: 8N1, raw, at so many bits per second, until the Line's end. Nobody
    // else can open it then. While another process has it, waits for it as long as `wait` says.
    // Throws LocalError, and UsageError for a rate that serial lines do not have.
    static Line serial(const std::string &device, Milliseconds wait = Milliseconds{0},
                       unsigned baud = kUsualBaud);

    // `peer` is HOST or HOST:PORT; the port is 1000 if not given. Sends nothing yet. Throws
    // UsageError for an impossible port, LocalError for a host that cannot be found.
    static Line udp(const std::string &peer);

    // Takes over an open non-blocking descriptor; `name` is for messages.
    Line(int descriptor, std::string name);
    Line(Line &&other) noexcept;
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;
    ~Line();

    int descriptor() const;

    // The device or the peer, as it was given.
    const std::string &name() const;

    // Whether the far end is a UDP peer, which hears the device only through its front board.
    bool carriesDatagrams() const;

    // From now on receive() throws Interrupted when `interruption` has come. Null: no longer.
    void stopAt(const Interruption *interruption);

    // Sends all bytes, over UDP as one datagram. Throws LocalError.
    void send(std::string_view bytes);

    // Waits for bytes and returns them, or nothing if none came in time. Throws LocalError if the
    // line has been closed.
    std::string receive(Milliseconds timeout);

    // Throws away the bytes that have arrived.
    void discardInput();

    // Calls `tap` with everything that the line carries from now on, after the fact.
    void setTap(Tap tap);

private:
    std::string receive(Milliseconds timeout, Passing passing);

    int descriptor_;
    bool carriesDatagrams_;
    std::unique_ptr<KeptSettings> kept_; // of a serial device
    bool isExclusive_ = false;           // no other process can open it
    const Interruption *interruption_ = nullptr;
    std::string name_;
    Tap tap_;
};
