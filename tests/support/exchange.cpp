#include "tests/support/exchange.h"

#include <cstring>
#include <utility>

#include <gtest/gtest.h>

#include "command/frame.h"
#include "core/pipe.h"
#include "tests/support/bytes.h"
#include "transport/uart.h"
#include "transport/udpecho.h"

std::vector<Sent> sent;
std::function<void()> onSend;
bool printsSent;

namespace {

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
    uint8_t address[4];
    std::memcpy(address, &ip, sizeof address);
    note("udp " + dotted(address) + ':' + std::to_string(port), bytes, length);
}

std::string commandFrame(const Parameters &parameters)
{
    return frame('T', {parameters.begin(), parameters.end()});
}

std::string replyFrame(const Parameters &parameters)
{
    return frame('F', {parameters.begin(), parameters.end()});
}

std::string refusal(const Parameters &parameters)
{
    return replyFrame({parameters[0], parameters[1], parameters[2], 0xFF, 0xFF, 0xFF, 0xFF});
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

std::vector<Sent> uart0(const std::vector<std::string> &frames)
{
    std::vector<Sent> calls;
    for (const std::string &bytes : frames) {
        calls.push_back({"uart 0", bytes});
    }
    return calls;
}

std::string printedBy(const std::function<void()> &action)
{
    const bool hadFailed = testing::Test::HasFailure();
    testing::internal::CaptureStdout();
    action();
    std::string text = testing::internal::GetCapturedStdout();
    if (testing::Test::HasFailure() && !hadFailed) {
        std::fputs(text.c_str(), stdout); // the failure's message is in it
    }
    return text;
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
    for (const uint8_t *at = pipe.read; at != pipe.write;) {
        content += static_cast<char>(*at++);
        at = at == pipe.end ? pipe.start : at;
    }
    return content;
}

std::string dotted(const uint8_t *address)
{
    char text[16];
    std::snprintf(text, sizeof text, "%d.%d.%d.%d", address[0], address[1], address[2], address[3]);
    return text;
}

const uint8_t *bytesOf(std::string_view text)
{
    return reinterpret_cast<const uint8_t *>(text.data());
}

uint32_t lengthOf(std::string_view text)
{
    return static_cast<uint32_t>(text.size());
}
