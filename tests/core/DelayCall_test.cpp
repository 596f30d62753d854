// The table of delayed calls, played through by scripts. The module's source is part of this file,
// so that its slots are in sight.

#include "core/DelayCall.cpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/clock.h"

namespace {

static_assert(std::size(_pFunc) == 32);
static_assert(std::is_same_v<decltype(_pFunc), void (*[32])()>);
static_assert(std::is_same_v<decltype(_startTime), uint32_t[32]>);
static_assert(std::is_same_v<decltype(_delayTime), uint32_t[32]>);

using Function = void (*)();

// A script is steps with blanks between them. Function n is f[n]; "null" is none.
//
//   @600         sets the tick; @+10 moves it
//   +7:1000      arms function 7 for 1000 ms, which succeeds
//   +7:1000!     the same, which is refused and changes nothing
//   -7  -7!      removes it, with success and without
//   run=5,1      runs the task, which calls 5 and 1 in this order and no other
//   slots=0,.,3  the first slots hold 0, nothing and 3; the others are free
//   slot20=32    slot 20 holds 32
//
// Armed slots hold tick and delay. Removing leaves both. Only running calls a function.
struct Row {
    const char *name;
    std::string script;
    int reacting = -1;         // the function that
    std::string reaction = {}; // plays this script when it is called
};

Row current;
std::vector<std::string> called; // numbers, in order
void play(const std::string &script);

template <int N> void numbered()
{
    called.push_back(std::to_string(N));
    if (N == current.reacting) {
        play(current.reaction);
    }
}

template <int... N>
std::array<Function, sizeof...(N)> makeFunctions(std::integer_sequence<int, N...>)
{
    return {numbered<N>...};
}

const std::array<Function, 40> f = makeFunctions(std::make_integer_sequence<int, 40>());

uint32_t number(const std::string &text)
{
    return static_cast<uint32_t>(std::stoul(text, nullptr, 0));
}

Function functionOf(const std::string &text)
{
    return text.starts_with("null") || text == "." ? nullptr : f.at(number(text));
}

std::vector<std::string> list(const std::string &text)
{
    std::vector<std::string> items;
    std::istringstream all(text);
    for (std::string item; std::getline(all, item, ',');) {
        items.push_back(item);
    }
    return items;
}

struct Table {
    std::vector<Function> functions{std::begin(_pFunc), std::end(_pFunc)};
    std::vector<uint32_t> starts{std::begin(_startTime), std::end(_startTime)};
    std::vector<uint32_t> delays{std::begin(_delayTime), std::end(_delayTime)};
    bool operator==(const Table &) const = default;
};

void changeTable(const std::string &step)
{
    const bool succeeds = !step.ends_with('!');
    const Function function = functionOf(step.substr(1));
    const size_t calls = called.size();
    Table expected;
    if (step[0] == '+') {
        const uint32_t delay = number(step.substr(step.find(':') + 1));
        EXPECT_EQ(AddDelayCallFunc(function, delay), succeeds ? 1 : 0);
        const auto at = std::find(std::begin(_pFunc), std::end(_pFunc), function);
        if (succeeds && at != std::end(_pFunc)) {
            const size_t slot = static_cast<size_t>(at - std::begin(_pFunc));
            expected.functions[slot] = function;
            expected.starts[slot] = static_cast<uint32_t>(fakeClock.nowUs / 1000);
            expected.delays[slot] = delay;
        }
    } else {
        EXPECT_EQ(RemoveDelayCallFunc(function), succeeds ? 1 : 0);
        if (succeeds) {
            std::replace(expected.functions.begin(), expected.functions.end(), function,
                         Function(nullptr));
        }
    }
    EXPECT_TRUE(Table() == expected);
    EXPECT_EQ(called.size(), calls);
}

void play(const std::string &script)
{
    std::istringstream steps(script);
    for (std::string step; steps >> step;) {
        SCOPED_TRACE(step);
        const std::string value = step.substr(step.find('=') + 1);
        if (step.starts_with("@+")) {
            fakeClock.advanceMs(number(step.substr(2)));
        } else if (step.starts_with('@')) {
            fakeClock.setMs(number(step.substr(1)));
        } else if (step.starts_with("run=")) {
            called.clear();
            delayCall_task();
            EXPECT_EQ(called, list(value));
        } else if (step.starts_with("slots=")) {
            std::vector<Function> expected;
            for (const std::string &item : list(value)) {
                expected.push_back(functionOf(item));
            }
            expected.resize(32);
            EXPECT_EQ(Table().functions, expected);
        } else if (step.starts_with("slot")) {
            EXPECT_EQ(_pFunc[number(step.substr(4))], functionOf(value));
        } else {
            changeTable(step);
        }
    }
}

void playAll(const std::vector<Row> &rows)
{
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        std::fill(std::begin(_pFunc), std::end(_pFunc), nullptr);
        current = row;
        play(row.script);
    }
}

// "+0:100 +1:100" and so on for 32 functions.
std::string armAll(const std::string &delay)
{
    std::string script;
    for (int i = 0; i < 32; ++i) {
        script += '+' + std::to_string(i) + ':' + delay + ' ';
    }
    return script;
}

TEST(DelayCall, ArmsAsTheRowsSay)
{
    EXPECT_TRUE(Table().functions == std::vector<Function>(32)) << "all slots are free at first";
    // clang-format off
    playAll({
        {"nothing is called from an empty table", "@0 run= @0xFFFFFFFF run= slots="},
        {"null is refused", "@500 +null:10! slots="},
        {"a new function takes the lowest free slot",
         "+0:100 +1:100 +2:100 +3:100 -2 -1 +10:100 +11:100 +12:100 slots=0,10,11,3,12"},
        {"arming again keeps the slot even if a lower one is free",
         "@1000 +0:100 +1:100 -0 @1600 +1:10 slots=.,1"},
        {"arming again restarts the wait",
         "@0 +7:1000 @600 +7:1000 @1000 run= @1599 run= @1600 run=7 @1000000 run="},
        {"arming again may shorten the wait",
         "@0 +7:1000 +7:10 @9 run= @10 run=7 @1000 run="},
        {"a 33rd function is refused, and the 32 can be armed again",
         "@0 " + armAll("100") + "@50 +32:1! +null:1! @60 +0:5 +15:5 +31:5 @65 run=0,15,31"},
        {"a slot freed in a full table serves the next function",
         armAll("100") + "-20 +32:100 slot20=32 +33:100!"},
    });
    // clang-format on
}

TEST(DelayCall, RemovesAsTheRowsSay)
{
    // clang-format off
    playAll({
        {"a function that does not wait", "-1! +2:10 -1! slots=2"},
        {"the same function twice", "@0 +1:10 -1 -1! @100 run="},
        {"null", "+1:10 -null!"},
        {"one of two", "@777 +1:10 +2:20 @800 -1 slots=.,2 @797 run=2"},
        {"a function that has been called", "@0 +1:10 @10 run=1 -1!"},
    });
    // clang-format on
}

TEST(DelayCall, CallsAsTheRowsSay)
{
    std::string reversed = "@0 ";
    std::string calls = "run=";
    for (int i = 31; i >= 0; --i) {
        reversed += '+' + std::to_string(i) + ":1 ";
        calls += std::to_string(i) + (i > 0 ? "," : "");
    }
    // clang-format off
    playAll({
        {"once, when the delay has passed, and not before",
         "@100 +3:50 run= @149 run= @150 run=3 run= @200 run= slots="},
        {"once even if the task is late", "@0 +3:50 @100000 run=3 @200000 run="},
        {"in the next pass after a delay of 0", "@9 +3:0 run=3"},
        {"in slot order, not in the order of due times", "@0 +5:30 +1:10 +9:20 @100 run=5,1,9"},
        {"from all 32 slots in one pass", reversed + "@1 " + calls + " slots="},
        {"only those that are due", "@0 +0:10 +1:20 +2:10 @10 run=0,2 slots=.,1 @20 run=1"},
        {"across the wrap of the tick a millisecond later",
         "@0xFFFFFFF0 +1:31 @0xFFFFFFFF run= @0x0F run= @0x10 run=1"},
        {"after the clock was set back, when it has passed the start again",
         "@0x1000 +1:0 @0x800 run= @0xFFF run= @0x1000 run=1"},
        {"after the longest delay", "@0 +1:0xFFFFFFFF @0xFFFFFFFE run= @0xFFFFFFFF run=1"},
    });
    // clang-format on
}

TEST(DelayCall, AFunctionMayUseTheTableAsTheRowsSay)
{
    // clang-format off
    playAll({
        {"its slot is free before the call", "@0 +1:0 run=1", 1, "slots= -1!"},
        {"it arms itself and is called again after its new delay",
         "@0 +1:100 @100 run=1 @129 run= @130 run=1 @160 run=1 slots=1", 1, "+1:30"},
        {"it arms itself without a delay and is called once a pass",
         "@5 +1:0 run=1 run=1", 1, "+1:0"},
        {"it arms others into later slots, which are checked in the same pass",
         "@0 +1:0 run=1,3 slots=2,.,4 @1 run=4", 1, "+2:100 +3:0 +4:1"},
        {"it arms others into its own and an earlier slot, which wait for the next pass",
         "@0 +0:1000 +1:1000 +2:0 -0 run=2 slots=10,1,11 run=10,11", 2, "+10:0 +11:0"},
        {"it cancels one that is due later in the pass", "@0 +1:0 +2:0 +3:0 run=1,3", 1, "-2"},
        {"it puts off one that is due later in the pass",
         "@0 +1:0 +2:0 run=1 @10 run=2", 1, "+2:10"},
        {"it finds room in a full table",
         "@0 " + armAll("1000") + "+31:0 run=31 slot31=32", 31, "+32:0"},
        {"it takes so long that the next one is due", "@0 +1:0 +2:10 run=1,2", 1, "@+10"},
    });
    // clang-format on
}

} // namespace
