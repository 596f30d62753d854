// The whole daemon, from its main(): an input is what happens on the line, at the PC and in the
// system. Once the daemon has read all of it, and after the longest wait that it may be in, the
// next command is answered.
//
// Bytes are those of the line; up to the next event they arrive in one piece. 0xFF begins an event:
//
//   FF FF        the byte FF
//   FF 'p'       a millisecond passes        FF 't' N   20 * N ms pass       FF 'T'   6 s pass
//   FF 'c' 7*    a command frame of these seven bytes, with its checksum
//   FF 'r' B N   4 * N times the byte B
//   FF 's'       the sum of all bytes since the last frame or sum
//   FF 'd' N B*  a datagram of these N bytes; 'D' N: of 16 * N bytes
//   FF 'w' N     the time of day jumps by 2^N ms, for N from 128 on back by 2^(N - 128)
//   FF 'f' B     these calls fail from now on (World::faults)
//   FF 'l' N     the line takes 8 * N more bytes; 255: it is good again

#include <algorithm>
#include <cstring>

#include "command/channel.h"
#include "storage/DeviceInfo.h"
#include "storage/UserPref.h"
#include "storage/load_all.h"
#include "tests/fuzz/world.h"
#include "transport/udpecho.h"

int vesk_main(int argc, char **argv);

namespace {

constexpr uint64_t kMs = 1000;
constexpr uint64_t kLongestWaitUs = 15'000 * kMs;
constexpr uint64_t kAnswerUs = 2'000 * kMs;
constexpr uint64_t kStepUs = 1000 * kMs; // of a time in which nothing arrives
constexpr char kQuestion[] = "<T0000680100000069>";
constexpr char kAnswer[] = "<F00006801263300c2>";

struct Script {
    Input input{nullptr, 0};
    uint64_t nextUs = 0; // when the next event comes
    uint8_t sum = 0;
    enum { kPlays, kSettles, kAsks, kIsOver } phase = kPlays;
    uint32_t looks = 0; // at the clock, since the last sleep or arrival
    std::jmp_buf *end = nullptr;
};
Script script;

void arrive(const void *bytes, size_t count)
{
    const auto *const first = static_cast<const uint8_t *>(bytes);
    for (size_t i = 0; i < count; ++i) {
        script.sum = static_cast<uint8_t>(script.sum + first[i]);
    }
    IsrReceiveBuffer(kChannelSerial, 0, first, static_cast<uint32_t>(count));
}

void command(std::string_view bytes)
{
    constexpr char kDigits[] = "0123456789abcdef";
    char frame[] = "<T0000000000000000>";
    uint8_t sum = 0;
    for (size_t i = 0; i < 8; ++i) {
        const auto byte = i == 7             ? sum
                          : i < bytes.size() ? static_cast<uint8_t>(bytes[i])
                                             : uint8_t{0};
        sum = static_cast<uint8_t>(sum + byte);
        frame[2 + 2 * i] = kDigits[byte >> 4];
        frame[3 + 2 * i] = kDigits[byte & 15];
    }
    arrive(frame, sizeof frame - 1);
    script.sum = 0;
}

void datagram(const void *bytes, size_t count)
{
    rem_ip = 0x0100007F;
    rem_port = 4000;
    rem_addr[0] = 0xA00F0002;
    task_udp_buffer(static_cast<const uint8_t *>(bytes), static_cast<uint32_t>(count));
}

void event()
{
    Input &input = script.input;
    uint8_t room[4096];
    switch (input.byte()) {
    case 0xFF:
        arrive("\xFF", 1);
        break;
    case 'p':
        script.nextUs += kMs;
        break;
    case 't':
        script.nextUs += 20 * kMs * input.byte();
        break;
    case 'T':
        script.nextUs += 6000 * kMs;
        break;
    case 'c':
        command(input.bytes(7));
        break;
    case 'r': {
        const uint8_t byte = input.byte();
        const size_t count = 4U * input.byte();
        std::memset(room, byte, count);
        arrive(room, count);
        break;
    }
    case 's': {
        const uint8_t sum = script.sum;
        arrive(&sum, 1);
        script.sum = 0;
        break;
    }
    case 'd': {
        const std::string_view bytes = input.bytes(input.byte());
        if (!bytes.empty()) {
            datagram(bytes.data(), bytes.size());
        }
        break;
    }
    case 'D': {
        const size_t count = 16U * input.byte();
        std::memset(room, 'D', count);
        if (count > 0) {
            datagram(room, count);
        }
        break;
    }
    case 'w': {
        const uint8_t power = input.byte();
        const int64_t step = int64_t{1000} << std::min(power % 128, 32);
        world->timeOfDayUs += power < 128 ? step : -step;
        break;
    }
    case 'f':
        world->faults = input.byte();
        break;
    case 'l': {
        const uint8_t count = input.byte();
        world->lineTakes = count == 255 ? ~0U : 8U * count;
        break;
    }
    default:
        break;
    }
}

bool isBusy()
{
    return channel[0] != nullptr && pipe_count(&channel[0]->pipe) > 0;
}

// Everything that has happened by now.
void play()
{
    while (script.phase == Script::kPlays && script.nextUs <= world->nowUs) {
        script.looks = 0;
        if (script.input.left() == 0) {
            script.phase = Script::kSettles;
            world->faults = 0;
            world->lineTakes = ~0U;
            script.nextUs = world->nowUs + kLongestWaitUs;
            return;
        }
        const uint8_t first = script.input.byte();
        if (first == 0xFF) {
            event();
            continue;
        }
        uint8_t bytes[4095];
        size_t count = 0;
        bytes[count++] = first;
        while (count < sizeof bytes && script.input.left() > 0 && !script.input.startsWith(0xFF)) {
            bytes[count++] = script.input.byte();
        }
        arrive(bytes, count);
    }
    // Of a row of slow commands, such as network settings, each may take nearly the longest wait.
    if (script.phase == Script::kSettles && isBusy()) {
        script.nextUs = world->nowUs + kLongestWaitUs;
    }
    if (script.nextUs > world->nowUs) {
        return;
    }
    if (script.phase == Script::kSettles) {
        world->line.clear();
        world->pc.clear();
        arrive(kQuestion, std::strlen(kQuestion));
        script.phase = Script::kAsks;
        script.nextUs = world->nowUs + kAnswerUs;
    } else if (script.phase == Script::kAsks) {
        script.phase = Script::kIsOver;
        std::longjmp(*script.end, 1);
    }
}

void skip()
{
    if (script.nextUs > world->nowUs && !isBusy()) {
        world->nowUs = std::min(script.nextUs, world->nowUs + kStepUs);
    }
}

void slept()
{
    if (world->sleptUs == kMs) { // the pause of the main loop
        skip();
    }
    script.looks = 0;
    play();
}

// In update mode the main loop does not pause, and looks at the clock in each pass.
void looked()
{
    if (++script.looks > 4) {
        skip();
        play();
    }
}

// The files of a device that has been in use.
struct Files {
    static constexpr const char *kNames[] = {"save0.sav", "UserPref.sav", "DevInfo.sav",
                                             "workTime.sav"};
    std::string contents[std::size(kNames)];

    Files()
    {
        World first;
        loadAllUserPref();
        saveUserPref();
        saveDeviceInfo();
        for (size_t i = 0; i < std::size(kNames); ++i) {
            contents[i] = first.find(kNames[i])->content;
        }
    }
};

// The daemon from its start to its end, or to that of the script.
void live()
{
    std::jmp_buf end;
    script.end = &end;
    world->onExit = &end;
    if (setjmp(end) == 0) {
        vesk_main(0, nullptr);
    }
}

std::string_view toolOutput(const char *name)
{
    const std::string_view command = name;
    if (command == "ifconfig") {
        return "eth0      Link encap:Ethernet  HWaddr 02:76:65:73:6B:01  \n"
               "          inet addr:192.168.7.9  Bcast:192.168.7.255  Mask:255.255.255.0\n";
    }
    if (command == "ip route show") {
        return "default via 192.168.7.1 dev eth0 \n";
    }
    if (command == "cat /etc/resolv.conf") {
        return "nameserver 192.168.7.2\n";
    }
    if (command == "cat /etc/issue") {
        return "v2.13\n";
    }
    return command.substr(0, 8) == "ip route" ? "192.168.7.1\n" : "";
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t count)
{
    static const Files files;
    script = {};
    script.input = Input(bytes, count);
    World run;
    MUST_HOLD(channel[0] == nullptr); // the state has been put back
    for (size_t i = 0; i < std::size(Files::kNames); ++i) {
        run.put(Files::kNames[i], files.contents[i]);
    }
    run.toolOutput = toolOutput;
    run.onSleep = slept;
    run.onLook = looked;
    // The system starts the daemon again when it has ended, as after an update, and is well then.
    for (live(); script.phase != Script::kIsOver; live()) {
        World::forget();
        run.faults = 0;
    }
    MUST_BE(run.line, kAnswer);
    MUST_BE(run.pc, "");
    return 0;
}
