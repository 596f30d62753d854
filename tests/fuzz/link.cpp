// The Mervo link: a far end that sends what the input says, when it says it, and an owner who calls
// every operation. An input is a row of steps:
//
//   0 to 7, then a byte    an operation (see perform()), with that parameter
//   'R' B* 0               these bytes arrive now
//   'A' N B* 0             these bytes arrive after N sleeps
//   'a' N                  the answer to the command N before the last one arrives now
//   'N'                    forget what the link knew: initialise it again

#include <algorithm>
#include <cstring>
#include <vector>

#include "core/pipe.h"
#include "link/mervoProtocol.h"
#include "tests/fuzz/reference.h"
#include "tests/fuzz/world.h"

namespace {

constexpr uint64_t kMs = 1000;
constexpr uint64_t kAnswerUs = 3000 * kMs;

struct Later {
    uint32_t sleeps;
    std::string bytes;
};

struct Owner {
    MervoLink link;
    struct pipe pipe;
    uint8_t storage[1024];
    std::string arrived;              // all that the pipe took
    size_t read = 0;                  // of it, by the link
    Assembler parser{'F', {}};        // of what the link has parsed
    std::vector<Record> expected;     // the answers in it
    std::vector<std::string> answers; // that the link has reported
    std::vector<Later> later;
    std::string sent;
    bool isLate = false; // the last operation gave up waiting for an answer
};
Owner *owner;

void arrive(std::string_view bytes)
{
    const uint32_t taken =
        pipe_write_block(&owner->pipe, reinterpret_cast<const uint8_t *>(bytes.data()),
                         static_cast<uint32_t>(bytes.size()));
    owner->arrived += bytes.substr(0, taken);
}

void slept()
{
    for (Later &later : owner->later) {
        if (later.sleeps > 0 && --later.sleeps == 0) {
            arrive(later.bytes);
        }
    }
}

void answered(MervoLink *link, const uint8_t *answer)
{
    MUST_HOLD(link == &owner->link && answer == link->lastAnswer);
    owner->answers.emplace_back(reinterpret_cast<const char *>(answer), 8);
}

int32_t send(const uint8_t *bytes, int32_t length)
{
    MUST_HOLD(length > 0);
    owner->sent.append(reinterpret_cast<const char *>(bytes), static_cast<size_t>(length));
    return length;
}

void mustHaveSentCommand(uint8_t sequence)
{
    const std::string frame = owner->sent.substr(0, 19);
    MUST_HOLD(frame.size() == 19 && frame.starts_with("<T") && frame.ends_with(">"));
    MUST_HOLD(Record(frame).isRight() && Record(frame).bytes[1] == sequence);
}

void perform(uint8_t operation, uint8_t parameter)
{
    MervoLink *const link = &owner->link;
    const uint64_t start = world->nowUs;
    const uint8_t next = static_cast<uint8_t>(link->sequence + 1);
    const bool wasKnown = link->answered != 0;
    const bool wasAhead = link->acknowledged == next;
    owner->sent.clear();
    owner->isLate = false;
    switch (operation) {
    case 0:
        Task_MervoProtocol(link);
        return;
    case 1:
        MUST_HOLD(SendCmdNoWait_MervoProtocol(link, 1, parameter, 1, 2, 3, 4) == 1);
        break;
    case 2:
        if (SendCmd_MervoProtocol(link, 1, parameter, 1, 2, 3, 4) == 0) {
            MUST_HOLD(wasKnown && link->answered == 0 && canSendCmd_mervo(link, 1) == 0);
        }
        MUST_HOLD(world->nowUs - start <= kAnswerUs + kMs);
        break;
    case 3: {
        const uint64_t wait = wasKnown ? kAnswerUs : 20 * kMs;
        const uint32_t answer = SendCmdAndWait_MervoProtocol(link, 1, parameter, 1, 2, 3, 4);
        MUST_HOLD(world->nowUs - start <= wait + 10 * kMs);
        // An answer that came ahead of its command, or 256 commands ago, counts without a wait.
        MUST_HOLD(answer == 0 || link->answered == 1 || wasAhead);
        owner->isLate = link->answered == 0 && !wasAhead;
        break;
    }
    case 4: {
        std::vector<uint8_t> block(parameter, 'x');
        const int32_t result =
            SendCmdAndDataBlock_MervoProtocol(link, 1, 2, 3, 4, 5, 6, block.data(), parameter);
        MUST_HOLD(result == link->answered && owner->sent.size() == 19U + parameter);
        break;
    }
    case 5: {
        const int32_t result = WaitAck_MervoProtocol(link, 1, parameter);
        MUST_HOLD(result == (link->acknowledged == link->sequence ? 1 : 0));
        MUST_HOLD(world->nowUs - start <= (parameter + 10U) * kMs);
        owner->isLate = result == 0;
        return;
    }
    case 6: {
        std::vector<uint8_t> room(std::max<size_t>(parameter, 1));
        const uint32_t count = ReceiveBuffer_MervoProtocol(link, room.data(), parameter, parameter);
        MUST_HOLD(count <= room.size());
        MUST_BE(std::string_view(reinterpret_cast<char *>(room.data()), count),
                std::string_view(owner->arrived).substr(owner->read, count));
        owner->read += count; // past the parser
        return;
    }
    default:
        SendBuffer_MervoProtocol(link, &parameter, 1);
        return;
    }
    mustHaveSentCommand(next);
    MUST_HOLD(link->sequence == next);
}

void compare()
{
    const size_t parsed = owner->arrived.size() - pipe_count(&owner->pipe);
    while (owner->read < parsed) {
        // Here a frame needs its end, too.
        if (owner->parser.take(owner->arrived[owner->read++]) && owner->parser.text.back() == '>') {
            owner->expected.emplace_back(owner->parser.text);
        }
    }
    if (owner->isLate) { // which clears the bytes of the answer in progress
        for (size_t i = 2; i + 1 < owner->parser.text.size() && i < 18; i += 2) {
            owner->parser.text.replace(i, 2, "00");
        }
    }
    MUST_HOLD(owner->answers.size() == owner->expected.size());
    for (size_t i = 0; i < owner->answers.size(); ++i) {
        MUST_HOLD(std::memcmp(owner->answers[i].data(), owner->expected[i].bytes, 8) == 0);
    }
    if (!owner->answers.empty()) {
        MUST_HOLD(owner->link.acknowledged == owner->expected.back().bytes[1]);
    }
    owner->answers.clear();
    owner->expected.clear();
    const auto unanswered = static_cast<uint8_t>(owner->link.sequence - owner->link.acknowledged);
    MUST_HOLD(canSendCmd_mervo(&owner->link, 1) == (unanswered < 30 ? 1 : 0));
}

std::string answerTo(uint8_t sequence)
{
    Record record;
    record.bytes[0] = 1;
    record.bytes[1] = sequence;
    record.bytes[3] = 5;
    record.bytes[7] = record.sum();
    return "<F" + record.digits() + ">";
}

std::string bytesUpToZero(Input &input)
{
    std::string bytes;
    while (const uint8_t byte = input.byte()) {
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t count)
{
    World run;
    run.onSleep = slept;
    Owner here{};
    owner = &here;
    pipe_init(&here.pipe, here.storage, sizeof here.storage);
    Init_MervoProtocol(&here.link, &here.pipe, answered, send);
    Input input(bytes, count);
    while (input.left() > 0) {
        const uint8_t step = input.byte();
        if (step < 8) {
            perform(step, input.byte());
        } else if (step == 'R') {
            arrive(bytesUpToZero(input));
        } else if (step == 'A') {
            const uint8_t sleeps = input.byte();
            here.later.push_back({sleeps, bytesUpToZero(input)});
        } else if (step == 'a') {
            arrive(answerTo(static_cast<uint8_t>(here.link.sequence - input.byte())));
        } else if (step == 'N') {
            Init_MervoProtocol(&here.link, &here.pipe, answered, send);
            here.parser.text.clear();
        }
        compare();
    }
    return 0;
}
