// The bridge between the control PC and the line against two queues. An input is a row of events:
//
//   'L' N B*   these N bytes come from the line          'M' N B*   from a second line
//   'D' N B*   a datagram of N bytes                     'B' N      a datagram of 16 * N bytes
//   'S' B      the next datagrams come from PC number B  'P'        a pass of the main loop
//   'F' N      the line takes N more bytes; 255: any number
//
// The command F0 reads as many bytes after its frame as its last data byte says.

#include <algorithm>
#include <deque>

#include "command/channel.h"
#include "command/dispatch.h"
#include "command/payload.h"
#include "command/reception.h"
#include "command/reply.h"
#include "tests/fuzz/reference.h"
#include "tests/fuzz/world.h"
#include "transport/bridge.h"
#include "transport/bridge_pipes.h"
#include "transport/udpecho.h"

uint32_t uart0Touart;

constexpr uint8_t kReads = 0xF0;

void processCmdData()
{
    uint8_t payload[256];
    if (commandToLED.command == kReads) {
        static_cast<void>(readDataFromPC(payload, commandToLED.dat4, -1));
    }
}

namespace {

constexpr size_t kRoom = 4095; // of each queue, and what a pass takes from the lines
constexpr size_t kDatagram = 1152;

// What the bridge and the reception have to do.
class Model {
public:
    std::string line; // what must have been sent
    std::string pc;
    uint32_t lineTakes = ~0U;

    void fromLine(size_t number, std::string_view bytes)
    {
        auto at = std::find_if(sources_.begin(), sources_.end(),
                               [number](const Source &s) { return s.number == number; });
        if (at == sources_.end()) { // the first to bring something is the first to be served
            at = sources_.insert(at, Source{number, {}, {}, 0});
        }
        at->waiting += bytes.substr(0, kRoom - at->waiting.size());
    }

    void fromPC(std::string_view bytes)
    {
        isPCKnown_ = true;
        toLine_ += bytes.substr(0, kRoom - toLine_.size());
    }

    void pass()
    {
        size_t budget = kRoom;
        for (Source &source : sources_) {
            while (serve(source, budget)) {
            }
        }
        send(toLine_);
        toLine_.clear();
        for (const Mirrored &byte : mirror_) {
            pc.append(isPCKnown_ ? 1 : 0, byte.byte);
        }
        mirror_.clear();
    }

private:
    struct Source {
        size_t number;
        std::string waiting;
        Assembler assembler;
        uint64_t frame; // the one in progress
    };
    struct Mirrored {
        char byte;
        uint64_t frame;
    };

    // Takes bytes up to the end of a frame and executes that. False when there is none, or it is
    // wrong.
    bool serve(Source &source, size_t &budget)
    {
        size_t taken = 0;
        bool isWhole = false;
        while (!isWhole && budget > 0 && taken < source.waiting.size()) {
            const char byte = source.waiting[taken++];
            --budget;
            if (byte == '<') {
                source.frame = ++frames_;
            }
            isWhole = source.assembler.take(byte);
            mirror_.push_back({byte, source.assembler.text.empty() ? 0 : source.frame});
        }
        source.waiting.erase(0, taken);
        if (!isWhole) {
            return false;
        }
        if (source.assembler.text.back() != '>') {
            send(last_.refusal());
        }
        last_ = Record(source.assembler.text);
        if (!last_.isRight()) {
            send(last_.refusal());
            return false;
        }
        while (!mirror_.empty() && mirror_.back().frame == source.frame) {
            mirror_.pop_back();
        }
        if (last_.bytes[2] == kReads) {
            source.waiting.erase(0, last_.bytes[6]);
        }
        return true;
    }

    void send(const std::string &bytes)
    {
        const size_t taken = std::min<size_t>(bytes.size(), lineTakes);
        line += bytes.substr(0, taken);
        lineTakes -= lineTakes == ~0U ? 0 : static_cast<uint32_t>(taken);
    }

    std::deque<Source> sources_;
    std::deque<Mirrored> mirror_;
    std::string toLine_;
    uint64_t frames_ = 0;
    Record last_;
    bool isPCKnown_ = false;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t count)
{
    World run;
    InitRs232CommandVariable();
    udp_receive_pipe_init();
    Model model;
    Input input(bytes, count);
    uint32_t pc = 1;
    const auto line = [&](size_t number) {
        const std::string_view piece = input.bytes(input.byte());
        IsrReceiveBuffer(kChannelSerial, number, reinterpret_cast<const uint8_t *>(piece.data()),
                         static_cast<uint32_t>(piece.size()));
        model.fromLine(number, piece);
    };
    const auto datagram = [&](std::string_view piece) {
        rem_ip = pc;
        rem_port = static_cast<uint16_t>(pc + 1000);
        task_udp_buffer(reinterpret_cast<const uint8_t *>(piece.data()),
                        static_cast<uint32_t>(piece.size()));
        model.fromPC(piece);
    };
    while (input.left() > 0) {
        switch (input.byte()) {
        case 'L':
            line(0);
            break;
        case 'M':
            line(1);
            break;
        case 'D':
            datagram(input.bytes(input.byte()));
            break;
        case 'B': {
            const uint8_t number = input.byte();
            datagram(std::string(16U * number, static_cast<char>(number)));
            break;
        }
        case 'S':
            pc = 1U + input.byte();
            break;
        case 'F': {
            const uint8_t left = input.byte();
            run.lineTakes = left == 255 ? ~0U : left;
            model.lineTakes = run.lineTakes;
            break;
        }
        case 'P': {
            const size_t sent = run.pc.size();
            TaskCommand();
            udp2uart_task();
            model.pass();
            MUST_BE(run.line, model.line);
            MUST_BE(run.pc, model.pc);
            MUST_HOLD(run.longest <= kDatagram);
            if (run.pc.size() > sent) {
                const uint64_t address = udp_chanel_value[0] | uint64_t{udp_chanel_value[1]} << 32;
                MUST_HOLD(run.pcAddress == address);
            }
            break;
        }
        default:
            break;
        }
    }
    return 0;
}
