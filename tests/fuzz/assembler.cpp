// The frame assembler against a reference of ten lines (reference.h): byte for byte, and as the
// main loop uses it, with pieces of any size. An input is what the line brings; the byte FF ends a
// piece.

#include <algorithm>

#include "command/channel.h"
#include "command/dispatch.h"
#include "command/reception.h"
#include "command/reply.h"
#include "tests/fuzz/reference.h"
#include "tests/fuzz/world.h"
#include "transport/bridge.h"
#include "transport/bridge_pipes.h"

uint32_t uart0Touart;

// In the place of the command table: an executed command is noted where its answer would go.
void processCmdData()
{
    Record record;
    const uint8_t bytes[] = {commandToLED.address, commandToLED.tag,     commandToLED.command,
                             commandToLED.dat1,    commandToLED.dat2,    commandToLED.dat3,
                             commandToLED.dat4,    commandToLED.checksum};
    std::copy(std::begin(bytes), std::end(bytes), record.bytes);
    world->line += "<E" + record.digits() + ">";
}

namespace {

constexpr uint8_t kOtherChannel = 7;

void pass()
{
    TaskCommand();
    udp2uart_task();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t count)
{
    World run;
    InitRs232CommandVariable();
    udp_receive_pipe_init();
    Input input(bytes, count);
    Assembler assembler;
    Record last;
    std::string expected;
    while (input.left() > 0) {
        std::string piece;
        while (input.left() > 0 && !input.startsWith(0xFF) && piece.size() < 4000) {
            piece += static_cast<char>(input.byte());
        }
        if (input.startsWith(0xFF)) {
            input.byte();
        }
        for (const char byte : piece) {
            const bool isWhole = assembler.take(byte);
            commandFrom = kOtherChannel;
            MUST_HOLD(ReceiveCommand(static_cast<uint8_t>(byte)) == (isWhole ? 0 : 1));
            if (!isWhole) {
                continue;
            }
            if (assembler.text.back() != '>') {
                expected += last.refusal();
            }
            last = Record(assembler.text);
            expected += last.isRight() ? "<E" + last.digits() + ">" : last.refusal();
        }
        IsrReceiveBuffer(kChannelSerial, 0, reinterpret_cast<const uint8_t *>(piece.data()),
                         static_cast<uint32_t>(piece.size()));
        // A frame with a wrong sum ends a pass.
        do {
            pass();
        } while (pipe_count(&channel[0]->pipe) > 0);
        MUST_BE(run.line, expected);
    }
    return 0;
}
