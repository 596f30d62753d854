#include "tests/support/exchange.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include <gtest/gtest.h>

#include "command/frame.h"
#include "core/pipe.h"
#include "transport/uart.h"
#include "transport/udpecho.h"

std::vector<Sent> sent;
std::function<void()> onSend;
bool printsSent;

namespace {

std::string twoDigits(unsigned value)
{
    char text[16];
    std::snprintf(text, sizeof text, "%02x", value);
    return text;
}

std::string frame(char kind, const Parameters &parameters)
{
    std::string text = {'<', kind};
    unsigned sum = 0;
    for (const uint8_t parameter : parameters) {
        text += twoDigits(parameter);
        sum += parameter;
    }
    return text + twoDigits(sum % 256) + '>';
}

void note(std::string to, const uint8_t *bytes, size_t length)
{
    if (onSend) {
        onSend();
    }
    if (printsSent) {
        std::fputs("> ", stdout);
        std::fwrite(bytes, 1, length, stdout);
        std::fputs("\n", stdout);
    }
    sent.push_back({std::move(to), std::string(bytes, bytes + length)});
}

} // namespace

int32_t UARTSendBuffer(int32_t port, const uint8_t *bytes, int32_t length)
{
    note("uart " + std::to_string(port), bytes, static_cast<size_t>(length));
    return length;
}

void to_pcudp(uint32_t ip, uint16_t port, const uint8_t *bytes, uint32_t length)
{
    uint8_t dotted[4];
    std::memcpy(dotted, &ip, sizeof dotted);
    std::string to = "udp ";
    for (const uint8_t number : dotted) {
        to += std::to_string(number) + '.';
    }
    to.back() = ':';
    note(to + std::to_string(port), bytes, length);
}

std::string commandFrame(const Parameters &parameters)
{
    return frame('T', parameters);
}

std::string replyFrame(const Parameters &parameters)
{
    return frame('F', parameters);
}

std::string refusal(const Parameters &parameters)
{
    return frame('F', {parameters[0], parameters[1], parameters[2], 0xFF, 0xFF, 0xFF, 0xFF});
}

std::array<uint8_t, 8> bytesOf(const Rs232Command &record)
{
    std::array<uint8_t, 8> bytes;
    std::memcpy(bytes.data(), &record, bytes.size());
    return bytes;
}

std::ostream &operator<<(std::ostream &out, const Sent &call)
{
    return out << call.to << ": " << testing::PrintToString(call.bytes);
}

std::vector<Sent> takeSent()
{
    return std::exchange(sent, {});
}

std::string printedBy(const std::function<void()> &action)
{
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}

std::string transcriptOf(const std::function<void()> &action)
{
    printsSent = true;
    std::string transcript = printedBy(action);
    printsSent = false;
    return transcript;
}

std::string contentOf(const struct pipe &pipe)
{
    std::string content;
    const uint8_t *at = pipe.read;
    while (at != pipe.write) {
        content += static_cast<char>(*at++);
        if (at == pipe.end) {
            at = pipe.start;
        }
    }
    return content;
}

const uint8_t *bytesOf(std::string_view text)
{
    return reinterpret_cast<const uint8_t *>(text.data());
}

uint32_t lengthOf(std::string_view text)
{
    return static_cast<uint32_t>(text.size());
}
