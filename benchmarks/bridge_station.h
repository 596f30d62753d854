#pragma once

// A program that joins a serial line and the network, between the far end of the line and a control
// PC, and what can be measured there. Runs on the simulated board, one station at a time.

#include "benchmarks/board_program.h"

#include <cstdint>
#include <random>
#include <string>
#include <vector>

// 115200 bits/s, 10 bits a byte.
inline constexpr double kLineBytesPerSecond = 11520;

// The program's processor time while the line carries a stream to the PC.
struct StreamResult {
    double sent = 0;      // bytes that the line brought
    double received = 0;  // bytes that the PC got
    double cpuNs = 0;     // from the first byte to the last, or to a silence of 300 ms
    double seconds = 0;   // as long as that took
    bool isEqual = false; // the PC got what the line brought
};

class Station {
public:
    // Starts the program and waits until it has carried a byte from the PC to the line. Ends the
    // run if that takes longer than 5 s.
    explicit Station(const std::vector<std::string> &command);
    Station(const Station &) = delete;
    Station &operator=(const Station &) = delete;
    ~Station();

    [[nodiscard]] double startMs() const
    {
        return startMs_;
    }
    [[nodiscard]] const Program &program() const
    {
        return program_;
    }

    // Latencies in ms, from before the message's last byte is written to after it is read. A pause
    // of random length is before each message. `pace` is a multiple of the line's rate.

    // A message of 16 bytes, written to the line byte by byte as they are due.
    std::vector<double> lineToPc(double pace, uint32_t messages);

    // A datagram of 16 bytes. The pause lasts at least as long as the line carries them.
    std::vector<double> pcToLine(double pace, uint32_t messages);

    // A command, written to the line byte by byte as they are due, and its answer on the line.
    std::vector<double> roundTrip(double pace, uint32_t commands);

    // A stream from the line to the PC. Every 100 us the bytes due are written. The line does not
    // wait: a byte that it cannot take is lost. `seconds` without those in which this program was
    // kept from running.
    StreamResult stream(double pace, double seconds);

    // Bytes lost of as many that the line brings at once, or the PC sends in one datagram.
    uint32_t lineBurst(uint32_t bytes);
    uint32_t pcBurst(uint32_t bytes);

    // Messages that did not arrive within half a second.
    [[nodiscard]] uint32_t lostMessages() const
    {
        return lostMessages_;
    }

private:
    std::string randomText(uint32_t bytes);
    void pause(double atLeastUs);
    Clock::time_point sendPaced(const std::string &bytes, double pace) const;
    void sendDatagram(const std::string &bytes) const;
    void receive(int from, const std::string &expected, Clock::time_point sent,
                 std::vector<double> *latencies);
    void discard() const;

    std::mt19937 random_{1}; // a fixed seed
    SerialLine line_;
    int pc_;
    Clock::time_point started_;
    Program program_;
    double startMs_ = 0;
    uint32_t lostMessages_ = 0;
};
