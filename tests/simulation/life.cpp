#include "tests/simulation/life.h"

#include <algorithm>
#include <sys/stat.h>

#include "tests/simulation/daemon.h"
#include "tests/simulation/frames.h"
#include "tests/simulation/model.h"
#include "tests/simulation/protocol.h"
#include "tests/simulation/records.h"
#include "tests/simulation/world.h"

namespace {

// clang-format off
struct KindRow { Action::Kind kind; const char *name; uint32_t weight; };
constexpr KindRow kKinds[] = {
    {Action::kCommand,          "a command",                    60},
    {Action::kBurst,            "commands in one piece",        10},
    {Action::kBrokenFrame,      "a broken frame",               10},
    {Action::kNoise,            "noise",                         8},
    {Action::kWriteData,        "data with its payload",         8},
    {Action::kWriteText,        "a text with its payload",       8},
    {Action::kUpdate,           "an update",                     6},
    {Action::kDatagram,         "a datagram",                   20},
    {Action::kManyDatagrams,    "datagrams of several PCs",      6},
    {Action::kClockStep,        "the clock is set",              5},
    {Action::kSystemChanges,    "the system's network changes",  4},
    {Action::kToolsFail,        "the tools have a bad day",      5},
    {Action::kCallFails,        "a call fails",                 10},
    {Action::kCallKeepsFailing, "calls fail until healed",       5},
    {Action::kDiskFull,         "the disk is full",              2},
    {Action::kLineStalls,       "the line takes nothing",        2},
    {Action::kConsoleStops,     "nobody reads the console",      2},
    {Action::kHeal,             "all is healed",                12},
    {Action::kWait,             "nothing",                      20},
    {Action::kLongWait,         "nothing for long",              4},
    {Action::kPowerCut,         "the power fails",              20},
    {Action::kKill,             "the daemon is killed",          4},
    {Action::kBadStart,         "a start on a bad day",          3},
    {Action::kSay,              "what a scenario says",          0},
};
static_assert(std::size(kKinds) == Action::kCount);

// What the board likes to ask. A dat1 of -1 is any.
struct CommandRow { uint8_t command; int dat1; uint32_t weight; };
constexpr CommandRow kCommands[] = {
    {0x10, 0x11, 1}, {0x68, 0x01, 3}, {0x6A, 0x03, 1}, {0x6A, 0x04, 2}, {0x6A, 0x10, 8}, {0x6A, 0x11, 4},
    {0x84, -1, 5}, {0x85, -1, 3}, {0x88, -1, 4}, {0x89, -1, 6}, {0x8C, -1, 5}, {0x8D, -1, 3},
    {0x8E, 0x02, 6}, {0x8E, 0x03, 3}, {0x8E, 0x05, 2}, {0x8E, 0x07, 2}, {0x8E, -1, 1}, {0x97, -1, 1},
    {0x9A, 0x10, 1}, {0x9A, 0x16, 1}, {0x9A, 0x20, 1}, {0x9A, 0xA1, 1}, {0x9A, 0xB1, 1}, {0x9A, 0x33, 1},
    {0xF1, 0x20, 3}, {0xF1, -1, 1}, {0xF3, 0x09, 2}, {0xF3, 0x38, 1}, {0x73, -1, 1}, {0x0F, -1, 1}, {0xF4, -1, 1},
};

// Calls that can fail while the daemon runs.
struct FaultRow { Call call; const char *object; int error; };
constexpr FaultRow kFaults[] = {
    {Call::open,     "/userdata/",    EMFILE},  {Call::open,     "/userdata/",    EACCES},
    {Call::write,    "/userdata/",    EIO},     {Call::write,    "/userdata/",    ENOSPC},
    {Call::sync,     "/userdata/",    EIO},     {Call::close,    "/userdata/",    EIO},
    {Call::truncate, "/userdata/",    EIO},     {Call::link,     "/userdata/",    ENOENT},
    {Call::stat,     "/userdata/",    EIO},     {Call::read,     "/userdata/",    EIO},
    {Call::remove,   "/userdata/",    EROFS},   {Call::write,    "/dev/ttyS0",    EIO},
    {Call::read,     "/dev/ttyS0",    EIO},     {Call::send,     "",              ENETUNREACH},
    {Call::receive,  "",              ECONNREFUSED}, {Call::socket, "a socket",   EMFILE},
    {Call::ioctl,    "",              EIO},     {Call::start,    "",              ENOMEM},
    {Call::open,     "/dev/vendor",   ENXIO},   {Call::open,     "/etc/",         EROFS},
    {Call::write,    "/etc/",         ENOSPC},
};
// Calls of a start.
constexpr FaultRow kStartFaults[] = {
    {Call::open,     "/dev/ttyS0",    ENODEV},  {Call::control,  "/dev/ttyS0",    EIO},
    {Call::terminal, "/dev/ttyS0",    EIO},     {Call::socket,   "",              EMFILE},
    {Call::bind,     "",              EADDRINUSE}, {Call::thread, "",             EAGAIN},
    {Call::memory,   "",              ENOMEM},  {Call::mkdir,    "",              EROFS},
    {Call::open,     "/dev/null",     EMFILE},  {Call::stat,     "/userdata",     EACCES},
};
// clang-format on

template <typename Row, size_t count> const Row &draw(const Row (&rows)[count], Random &random)
{
    uint64_t all = 0;
    for (const Row &row : rows) {
        all += row.weight;
    }
    uint64_t left = random.below(all);
    const Row *row = rows;
    while (left >= row->weight) {
        left -= row++->weight;
    }
    return *row;
}

std::string drawCommand(Random &random)
{
    const CommandRow &row = draw(kCommands, random);
    const uint8_t dat1 = row.dat1 < 0 ? random.byte() : static_cast<uint8_t>(row.dat1);
    const bool isSwitch = row.command == 0x8E && dat1 == 2;
    const uint8_t dat2 = isSwitch ? static_cast<uint8_t>(random.below(2)) : random.byte();
    return frame({static_cast<uint8_t>(random.onceIn(4) ? random.byte() : 0), random.byte(),
                  row.command, dat1, dat2, random.byte(), random.byte()},
                 random.onceIn(4));
}

// The life ----------------------------------------------------------------------------------------

class Life {
public:
    Life(World &w, LifeCounts &c, const LifeOptions &options)
        : world_(w), counts_(c), day_(options.firstDay), failsAtACall_(options.failAt != 0)
    {
    }

    void run(const std::vector<Action> &plan)
    {
        firstDay();
        orPowerCut([&] {
            start();
            endBadStart();
        });
        for (const Action &action : plan) {
            orPowerCut([&] {
                Random random(action.seed);
                world_.note("-- %s", nameOf(action.kind));
                if (action.kind == Action::kSay) {
                    say(action);
                } else {
                    act(action.kind, random);
                }
                restartIfEnded();
                endBadStart();
            });
        }
        orPowerCut([&] { service(); });
    }

private:
    template <typename What> void orPowerCut(What what)
    {
        try {
            what();
        } catch (const PowerFails &) {
            powerOffAndOn();
        }
    }
    void firstDay();
    void start();
    void act(Action::Kind kind, Random &random);
    void say(const Action &action);
    void settle(Random &random);
    void waitUntilDone();
    void sendInPieces(const std::string &bytes, Random &random);
    void payload(std::string head, const std::string &bytes, Random &random);
    void update(Random &random);
    void powerCut(Random &random);
    void powerOffAndOn();
    void restartIfEnded();
    void endBadStart();
    void heal();
    void service();
    std::string drawWords(Random &random) const;

    World &world_;
    LifeCounts &counts_;
    const FirstDay day_;
    const bool failsAtACall_;
};

void Life::firstDay()
{
    Random &random = world_.random;
    world_.console = random.onceIn(3) ? S_IFCHR : random.onceIn(3) ? S_IFSOCK : S_IFIFO;
    world_.disk.hasUnnamedFiles = !random.onceIn(4);
    world_.disk.namesNeedOwnSync = random.onceIn(2);
    world_.note("a disk with%s unnamed files, where fsync() of a file covers%s its name",
                world_.disk.hasUnnamedFiles ? "" : "out",
                world_.disk.namesNeedOwnSync ? " not" : "");
    const Time day = 1'790'000'000 * kSecond + random.between(0, 1000000) * kSecond;
    constexpr Time kTickWrap = (Time{1} << 32) * kMillisecond;
    // The tick wraps soon, changes its sign soon, or neither.
    const Time edge = random.onceIn(4) ? kTickWrap : random.onceIn(3) ? kTickWrap / 2 : 0;
    world_.wallOffset =
        edge == 0 ? day : day / kTickWrap * kTickWrap + edge - random.between(1, 100) * kSecond;
    world_.disk.put(kProgramFile, {random.bytes(random.below(20000) + 1), 0755});
    world_.disk.put("/etc/issue", {random.onceIn(8) ? "Welcome\n" : "v2.13 \\n \\l\n", 0644});
    world_.disk.put("/etc/dhcpcd.conf",
                    {random.onceIn(4) ? "interface eth0\n" : "# nothing\n", 0644});
    for (const char *path : {kUserPrefFile, kDevInfoFile, kSave0File, kWorkTimeFile}) {
        const uint64_t drawn = random.below(4);
        const uint64_t kind = day_ == FirstDay::drawn ? drawn : static_cast<uint64_t>(day_);
        std::string content = loaded(path, "");
        if (kind == 0) { // a new device
            continue;
        }
        if (kind == 1) { // a bad file
            content = random.onceIn(3) ? "" : random.bytes(random.below(content.size() + 2));
        } else if (path == std::string(kSave0File) && kind == 2) { // settings of its own
            content.replace(602, 900, random.bytes(900));
        } else if (path == std::string(kUserPrefFile) && kind == 2) {
            content.replace(10, 26, random.bytes(26));
        }
        world_.disk.put(path, {content, 0644});
    }
}

void Life::start()
{
    ++counts_.boots;
    world_.model->boot();
    world_.startIsBad = false;
    startDaemon();
    world_.let(world_.random.between(1, 40) * kMillisecond);
}

void Life::waitUntilDone()
{
    while (world_.isRunning && !world_.model->protocol->isDone()) {
        world_.let(2 * kMillisecond);
    }
}

void Life::settle(Random &random)
{
    if (random.onceIn(3)) {
        world_.let(random.between(0, 40) * kMillisecond);
        if (world_.line.boardIsDoneAt() > world_.threads.now() + 200 * kMillisecond) {
            waitUntilDone();
        }
        return;
    }
    world_.let(std::max<Time>(0, world_.line.boardIsDoneAt() - world_.threads.now()) +
               2 * kMillisecond);
    waitUntilDone();
}

void Life::sendInPieces(const std::string &bytes, Random &random)
{
    world_.note("the board sends: %s", inWords(bytes).c_str());
    for (size_t at = 0; at < bytes.size();) {
        const size_t piece =
            random.onceIn(3) ? static_cast<size_t>(random.between(1, 19)) : bytes.size();
        world_.line.sendFromBoard(bytes.substr(at, piece));
        at += piece;
        if (at < bytes.size()) {
            world_.let(random.between(0, 8) * kMillisecond);
        }
    }
}

void Life::say(const Action &action)
{
    world_.note("the board sends: %s", inWords(action.bytes).c_str());
    world_.line.sendFromBoard(action.bytes);
    world_.let(world_.line.boardIsDoneAt() - world_.threads.now() + 2 * kMillisecond);
    waitUntilDone();
    world_.let(static_cast<Time>(action.seed) * kMillisecond);
}

// A command and its payload in one piece, or cut, or wrong. The next bytes come after a quiet line.
void Life::payload(std::string head, const std::string &bytes, Random &random)
{
    waitUntilDone();
    std::string sent = bytes;
    if (random.onceIn(6)) {
        sent.resize(random.below(sent.size() + 1));
    } else if (random.onceIn(6) && !sent.empty()) {
        sent[random.below(sent.size())] ^= static_cast<char>(1 << random.below(8));
    }
    world_.note("the board sends: %s, and then: %s", head.c_str(), inWords(sent).c_str());
    world_.line.sendFromBoard(head + sent);
    world_.let(world_.line.boardIsDoneAt() - world_.threads.now() + 2 * kMillisecond);
    waitUntilDone();
    if (sent != bytes) {
        world_.let(13 * kSecond);
        waitUntilDone();
    }
}

void Life::update(Random &random)
{
    constexpr size_t kBlock = 1024;
    const size_t length = random.onceIn(4) ? random.below(40000) : random.below(4000) + 1;
    std::string stored = random.bytes(length);
    if (random.onceIn(
            3)) { // zeros in it, so that a block can be missing without a trace in the sum
        stored.replace(length / 3, length / 3, length / 3, '\0');
    }
    stored.resize((length + 128 + kBlock - 1) / kBlock * kBlock - 128, '\0');
    uint32_t sum = random.onceIn(6) ? 1 : 0;
    for (const char byte : stored) {
        sum += static_cast<uint8_t>(byte);
    }
    uint32_t announced = static_cast<uint32_t>(length);
    if (random.onceIn(20)) {
        announced = random.onceIn(2) ? 0 : 0xFFFFFFFF - static_cast<uint32_t>(random.below(128));
    }
    std::string header(128, '\0');
    for (size_t i = 0; i < 4; ++i) {
        header[48 + i] = static_cast<char>(announced >> (24 - 8 * i));
    }
    header[80] = static_cast<char>(sum >> 8);
    header[81] = static_cast<char>(sum);
    const std::string stream = header + stored;
    const uint64_t bad = random.below(4); // of the blocks
    for (size_t at = 0; at < stream.size() && world_.isRunning; at += kBlock) {
        const size_t number = at / kBlock;
        const std::string block = stream.substr(at, kBlock);
        const bool isZero = block.find_first_not_of('\0') == std::string::npos;
        if (bad == 0 && number > 0 && (random.onceIn(8) || (isZero && random.onceIn(2)))) {
            continue; // left out
        }
        for (uint64_t times = bad == 1 && random.onceIn(6) ? 2 : 1;
             times-- > 0 && world_.isRunning;) {
            const std::string head =
                frame({0, random.byte(), 0x9A, 0xA0, 7, static_cast<uint8_t>(number),
                       static_cast<uint8_t>(number >> 8)});
            if (bad == 2 && random.onceIn(10)) {
                payload(head, withSum(block), random);
            } else {
                world_.line.sendFromBoard(head + withSum(block));
                world_.let(world_.line.boardIsDoneAt() - world_.threads.now() + 2 * kMillisecond);
            }
            waitUntilDone();
        }
        if (bad == 3 && random.onceIn(30)) {
            return; // abandoned
        }
    }
    if (world_.isRunning && !random.onceIn(3)) {
        world_.let(random.between(1, 400) * kMillisecond);
    }
}

std::string Life::drawWords(Random &random) const
{
    std::string words = random.bytes(random.onceIn(6) ? random.below(4100) : random.below(300));
    for (char &byte :
         words) { // what the board understands is its own affair; no frames of the device
        byte = byte == '<' ? '(' : byte;
    }
    return words;
}

void Life::powerCut(Random &random)
{
    if (random.onceIn(2)) { // soon after something
        sendInPieces(drawCommand(random), random);
    }
    world_.let(random.onceIn(3) ? random.between(0, 2500) * kMillisecond
                                : random.between(0, 6000) * kMicrosecond);
    powerOffAndOn();
}

void Life::powerOffAndOn()
{
    world_.note("the power fails");
    ++counts_.cuts;
    killDaemon();
    world_.disk.cut(world_.random);
    world_.model->powerReturns();
    world_.tools.endRun();
    world_.line.restart();
    world_.network.restart();
    world_.faults.heal();
    const auto program = world_.disk.get(kProgramFile);
    if (!program || (program->mode & 0111) == 0) { // somebody cures what the copy left
        world_.disk.put(kProgramFile, {world_.random.bytes(1000), 0755});
    }
    world_.let(world_.random.between(1, 20) * kSecond);
    start();
}

void Life::restartIfEnded()
{
    if (world_.isRunning) {
        return;
    }
    killDaemon();
    world_.tools.endRun();
    counts_.installs += world_.exitStatus == 0 ? 1 : 0;
    if (world_.exitStatus != 0) {
        world_.faults.heal();
    }
    world_.network.restart();
    world_.let(world_.random.between(100, 2000) * kMillisecond); // the supervisor
    start();
}

// In a run that goes through all calls: what a start on a bad day does is not promised, but that it
// does no harm until the next one.
void Life::endBadStart()
{
    if (!failsAtACall_) {
        return;
    }
    restartIfEnded();
    if (world_.startIsBad) {
        world_.let(2 * kSecond);
        killDaemon();
        world_.tools.endRun();
        world_.line.restart();
        world_.network.restart();
        world_.faults.heal();
        world_.let(kSecond);
        start();
    }
}

void Life::heal()
{
    world_.faults.heal();
    world_.tools.moodRuns = 0;
    world_.disk.room = SIZE_MAX;
    world_.line.stalled = false;
    world_.consoleIsStopped = false;
    waitUntilDone();
}

// Faults have stopped: the device is in full service at once, and everything is delivered.
void Life::service()
{
    heal();
    world_.cutAfter = 0;
    restartIfEnded();
    world_.let(20 * kSecond); // what is under way ends
    restartIfEnded();
    waitUntilDone();
    for (const uint8_t command : std::initializer_list<uint8_t>{0x68, 0x6A, 0x84, 0x8D}) {
        const uint8_t dat1 = command == 0x68 ? 1 : 0x10;
        sendInPieces(frame({0, world_.random.byte(), command, dat1, 1, 2, 3}), world_.random);
        waitUntilDone();
    }
    world_.network.sendFromPc({{0x0100007F, 4000}, "are you there"});
    world_.let(100 * kMillisecond);
    sendInPieces("I am", world_.random);
    world_.let(3 * kSecond);
    world_.model->quiet();
    killDaemon();
}

void Life::act(Action::Kind kind, Random &random)
{
    switch (kind) {
    case Action::kCommand:
        sendInPieces(drawCommand(random), random);
        return settle(random);
    case Action::kBurst: {
        std::string bytes;
        for (uint64_t i = random.below(12) + 2; i-- > 0;) {
            bytes += drawCommand(random);
        }
        sendInPieces(bytes, random);
        return settle(random);
    }
    case Action::kBrokenFrame: {
        std::string bytes = drawCommand(random);
        const size_t at = random.below(bytes.size());
        switch (random.below(4)) {
        case 0:
            bytes[at] = static_cast<char>(random.byte());
            break;
        case 1:
            bytes.erase(at, 1);
            break;
        case 2:
            bytes.back() = '}';
            break;
        default:
            bytes.insert(at, 1, static_cast<char>(random.byte()));
            break;
        }
        waitUntilDone();
        sendInPieces(bytes, random);
        world_.let(30 * kMillisecond);
        waitUntilDone();
        return;
    }
    case Action::kNoise:
        sendInPieces(random.bytes(random.below(random.onceIn(5) ? 600 : 40) + 1), random);
        return settle(random);
    case Action::kWriteData: {
        const size_t length = random.onceIn(3) ? random.below(40) : 19;
        const uint8_t dat1 = random.onceIn(5) ? random.byte() : 0x20;
        const std::string bytes = length < 2 ? "" : withSum(random.bytes(length - 1));
        return payload(
            frame({0, random.byte(), 0xF0, dat1, random.byte(), static_cast<uint8_t>(length), 0}),
            bytes, random);
    }
    case Action::kWriteText: {
        static constexpr uint8_t kTexts[] = {0x00, 0x09, 0x38, 0x39, 0x40};
        std::string text = "[a=1, key=22,x=-3]";
        if (random.onceIn(3)) {
            text.insert(1, std::string(random.below(4200), 'k'));
        }
        return payload(
            frame({0, random.byte(), 0xF2, kTexts[random.below(5)], random.byte(), 0, 0}), text,
            random);
    }
    case Action::kUpdate:
        waitUntilDone();
        return update(random);
    case Action::kDatagram:
    case Action::kManyDatagrams:
        for (uint64_t i = kind == Action::kDatagram ? 1 : random.below(6) + 2; i-- > 0;) {
            const auto pc = static_cast<uint32_t>(random.below(3));
            const std::string words = random.onceIn(12) ? "" : drawWords(random);
            world_.note("PC %u sends: %s", pc, inWords(words).c_str());
            world_.network.sendFromPc(
                {{0x0A00000A + (pc << 24), static_cast<uint16_t>(5000 + pc)}, words});
            world_.let(random.between(0, 3) * kMillisecond);
        }
        return settle(random);
    case Action::kClockStep: {
        const Time step = random.onceIn(2) ? random.between(0, 30 * kSecond)
                                           : random.between(0, 3 * kMillisecond);
        const Time far =
            random.between(0, 20 * 86400) * kSecond; // the tick cannot tell more from a step back
        const Time by = random.onceIn(2) ? -step : random.onceIn(2) ? step : far;
        world_.note("the clock is set by %.3f s", static_cast<double>(by) / 1e9);
        world_.wallOffset += by;
        return;
    }
    case Action::kSystemChanges: {
        waitUntilDone(); // an answer has what was there before, or after
        SystemNetwork &network = world_.tools.network;
        network.isUp = !random.onceIn(4);
        for (uint8_t *address : {network.ip, network.mask, network.gateway, network.dns}) {
            address[random.below(4)] = random.byte();
        }
        return;
    }
    case Action::kToolsFail:
        world_.tools.mood = static_cast<Mood>(random.between(1, 5));
        world_.tools.moodRuns = static_cast<int>(random.between(1, 6));
        return;
    case Action::kCallFails:
    case Action::kCallKeepsFailing: {
        const FaultRow &row = kFaults[random.below(std::size(kFaults))];
        world_.note("fault: %s of %s", nameOf(row.call), row.object);
        return world_.faults.add(
            {row.call, row.object, row.error, kind == Action::kCallKeepsFailing});
    }
    case Action::kDiskFull:
        world_.disk.room = random.below(3000);
        return;
    case Action::kLineStalls:
        world_.line.stalled = true;
        world_.let(random.between(1, 3000) * kMillisecond);
        world_.line.stalled = false;
        return;
    case Action::kConsoleStops:
        world_.consoleIsStopped = true;
        return;
    case Action::kHeal:
        heal();
        restartIfEnded();
        world_.let(300 * kMillisecond);
        waitUntilDone();
        return;
    case Action::kWait:
        return world_.let(random.between(0, 2000) * kMillisecond);
    case Action::kLongWait:
        waitUntilDone();
        return world_.let(
            random.between(1, world_.skipsIdleTime && !world_.faults.areAny() ? 300 : 2) * 60 *
            kSecond);
    case Action::kPowerCut:
        return powerCut(random);
    case Action::kKill:
        while (world_.isRunning && world_.tools.isInCopyWindow) {
            world_.let(kMillisecond); // the shell goes on without the daemon
        }
        killDaemon();
        world_.tools.endRun();
        world_.note("the daemon is killed");
        world_.network.restart();
        return start();
    case Action::kBadStart: {
        while (world_.isRunning && world_.tools.isInCopyWindow) {
            world_.let(kMillisecond);
        }
        killDaemon();
        world_.tools.endRun();
        world_.line.restart(); // what comes during such a start may be lost
        world_.network.restart();
        for (uint64_t i = random.below(3) + 1; i-- > 0;) {
            const FaultRow &row = kStartFaults[random.below(std::size(kStartFaults))];
            world_.faults.add({row.call, row.object, row.error, random.onceIn(2)});
        }
        start();
        world_.let(2 * kSecond); // what it does is not promised, but that it does no harm
        killDaemon();
        world_.faults.heal();
        world_.let(kSecond);
        return start();
    }
    case Action::kSay:
    case Action::kCount:
        return;
    }
}

// For a test of the simulation itself.
class Canary : public Watcher {
public:
    void lineRead(const std::string &) override
    {
        if (++reads_ == 20) {
            world->fail("canary", "this invariant is wrong on purpose");
        }
    }

private:
    int reads_ = 0;
};

} // namespace

const char *nameOf(Action::Kind kind)
{
    return kKinds[kind].name;
}

std::vector<Action> planLife(uint64_t seed)
{
    Random random(seed ^ 0xACE1);
    std::vector<Action> plan(static_cast<size_t>(random.between(5, random.onceIn(10) ? 150 : 50)));
    for (Action &action : plan) {
        action = {draw(kKinds, random).kind, random.next(), {}};
    }
    return plan;
}

bool live(uint64_t seed, const std::vector<Action> &plan, const LifeOptions &options,
          Journal &journal, LifeCounts &counts)
{
    World w(seed, journal);
    Model model;
    w.model = &model;
    w.stopAtStep = options.stopAtStep;
    w.faults.failAt = options.failAt;
    w.faults.failLasts = options.failLasts;
    w.cutAfter = options.cutAfter;
    w.skipsIdleTime = options.isFast && seed % 8 != 0;
    if (options.canary && seed % 100 == 0) {
        model.add<Canary>();
    }
    bool isGood = true;
    try {
        Life(w, counts, options).run(plan);
    } catch (const InvariantFailed &) {
        isGood = false;
        killDaemon();
    }
    ++counts.lives;
    counts.looks += w.looksAtDisk;
    counts.faults += w.faults.hits;
    counts.calls += w.faults.calls;
    counts.commands += model.protocol->answered();
    counts.simulated += w.threads.now();
    counts.busy += w.threads.now() - w.skipped;
    return isGood;
}
