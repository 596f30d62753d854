#include "tests/simulation/world.h"

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdio>

#include "tests/simulation/model.h"
#include "tests/simulation/protocol.h"

World *world;

World::World(uint64_t seed, Journal &shared)
    : journal(shared), random(seed), disk(threads.clock()), line(threads), network(threads),
      tools(*this)
{
    journal.step = journal.count = 0;
    journal.time = 0;
    journal.invariant[0] = journal.reason[0] = '\0';
    journal.seed = seed;
    world = this;
}

World::~World()
{
    world = nullptr;
}

void World::note(const char *format, ...)
{
    char *const text = journal.lines[journal.count++ % Journal::kLines];
    const Time now = threads.now();
    const int length = std::snprintf(text, Journal::kWidth, "%10.4f s  step %-8llu ",
                                     static_cast<double>(now) / 1e9,
                                     static_cast<unsigned long long>(journal.step));
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text + length, Journal::kWidth - static_cast<size_t>(length), format, arguments);
    va_end(arguments);
    if (journal.prints) {
        std::fprintf(stderr, "%s\n", text);
    }
}

void World::noteRead(const std::string &bytes)
{
    if (journal.count == lastReadsCount) {
        --journal.count;
    } else {
        lastReads.clear();
    }
    lastReads += bytes;
    note("the daemon reads: %s", inWords(lastReads).c_str());
    lastReadsCount = journal.count;
}

void World::fail(const char *invariant, const std::string &reason)
{
    if (journal.invariant[0] == '\0') {
        std::snprintf(journal.invariant, sizeof journal.invariant, "%s", invariant);
        std::snprintf(journal.reason, sizeof journal.reason, "%s", reason.c_str());
    }
    if (threads.current() != 0) {
        threads.endDaemon(); // let() goes on, and throws
    }
    throw InvariantFailed();
}

void World::let(Time duration)
{
    constexpr Time kLook = 100 * kMillisecond;
    const Time until = threads.now() + duration;
    do {
        // Less often when nothing is to be looked for, so that idle time can be left out.
        const Time most = model->protocol->isDone() ? kSecond * 60 : kLook;
        threads.sleep(std::min(until - threads.now(), most));
        journal.time = threads.now();
        if (journal.invariant[0] != '\0') {
            throw InvariantFailed();
        }
        if (powerHasFailed) {
            powerHasFailed = false;
            throw PowerFails();
        }
        model->timePasses();
    } while (threads.now() < until);
}

void World::step()
{
    if (++journal.step == stopAtStep) {
        std::raise(SIGTRAP); // the step that --gdb asked for
    }
}

void World::skipIdleTime()
{
    constexpr Time kQuiet = 100 * kMillisecond;
    constexpr Time kPass = kMillisecond;
    constexpr Time kPoll = 3 * kPass; // whoever wakes within this time only looks for input
    if (!skipsIdleTime || threads.now() - lastActivity < kQuiet || wall() < armedUntil + kQuiet) {
        return;
    }
    Time until = std::min(threads.wakeTime(0), line.nextArrival());
    for (size_t i = 2; i < threads.count(); ++i) {
        if (threads.wakeTime(i) > threads.now() + kPoll) {
            until = std::min(until, threads.wakeTime(i));
        }
    }
    const Time passes = (until - threads.now() - kPoll) / kPass;
    if (passes > 0) {
        threads.skip(passes * kPass, kPoll);
        skipped += passes * kPass;
    }
}

void World::considerCut()
{
    model->considerDisk();
}

std::string inWords(const std::string &bytes)
{
    constexpr size_t kMost = 48;
    std::string text;
    for (size_t i = 0; i < bytes.size() && i < kMost; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        char hex[8];
        std::snprintf(hex, sizeof hex, std::isprint(byte) != 0 ? "%c" : "\\%02x", byte);
        text += hex;
    }
    if (bytes.size() > kMost) {
        text += "... (" + std::to_string(bytes.size()) + " bytes)";
    }
    return text;
}
