#pragma once

// The far end of the command modules: frames to feed them, what they send and what they print. Link
// with `exchange`, whose UARTSendBuffer() and to_pcudp() take the place of the transports' ones.

#include <array>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

struct pipe;
struct Rs232Command;

// The seven parameters of a record: address, tag, command, dat1 to dat4.
using Parameters = std::array<uint8_t, 7>;

// The 19 characters of a command and of a reply, with the right checksum.
std::string commandFrame(const Parameters &parameters);
std::string replyFrame(const Parameters &parameters);

// The reply that refuses a command: its first three bytes and 0xFF four times.
std::string refusal(const Parameters &parameters);

std::array<uint8_t, 8> bytesOf(const Rs232Command &record);

// One call of UARTSendBuffer() or to_pcudp().
struct Sent {
    std::string to; // "uart 0", "udp 10.0.0.9:5000"
    std::string bytes;

    bool operator==(const Sent &) const = default;
};
std::ostream &operator<<(std::ostream &out, const Sent &call);

extern std::vector<Sent> sent;       // every call so far
extern std::function<void()> onSend; // called at each, before it is noted
extern bool printsSent;              // whether each is printed as well: a line "> " and its bytes

std::vector<Sent> takeSent(); // and forgets it

// What was sent, if it was these frames on serial port 0.
std::vector<Sent> uart0(const std::vector<std::string> &frames);

// What `action` prints on standard output. A check that fails in there still names itself.
std::string printedBy(const std::function<void()> &action);

// The same with what it sends, in order (see printsSent).
std::string transcriptOf(const std::function<void()> &action);

// The bytes in `pipe`, oldest first; they stay there.
std::string contentOf(const struct pipe &pipe);

std::string dotted(const uint8_t *address); // of four bytes: "10.0.0.9"

const uint8_t *bytesOf(std::string_view text);
uint32_t lengthOf(std::string_view text);
