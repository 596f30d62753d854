#pragma once

// What the fuzz targets have in common: a world around the daemon's code that has nothing to do
// with the machine. Time passes only when the code sleeps or looks at the clock, files and tools
// are in memory, and what the code sends is noted. CMakeLists.txt points the code's system calls to
// this world. It replaces the operations of storage/fatfs.h as a whole.
//
// A target begins with a World on the stack. When that goes, all state of the daemon's code is as
// at program start again, and all that the code took from the heap has been given back: no input
// can tell which ones came before it.

#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

// Ends the program with a message unless `condition` holds.
#define MUST_HOLD(condition)                                                                       \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition);    \
            std::abort();                                                                          \
        }                                                                                          \
    } while (false)

// The same for two texts, which it prints.
#define MUST_BE(text, expected)                                                                    \
    do {                                                                                           \
        const auto &kept = text; /* what is made here lives on */                                  \
        const auto &keptToo = expected;                                                            \
        const std::string_view has = kept;                                                         \
        const std::string_view wanted = keptToo;                                                   \
        if (has != wanted) {                                                                       \
            std::fprintf(stderr, "%s:%d: %s is\n%.*s\nand not\n%.*s\n", __FILE__, __LINE__, #text, \
                         static_cast<int>(has.size()), has.data(),                                 \
                         static_cast<int>(wanted.size()), wanted.data());                          \
            std::abort();                                                                          \
        }                                                                                          \
    } while (false)

// The bytes of an input, taken from its beginning. At the end everything taken is 0.
class Input {
public:
    Input(const uint8_t *bytes, size_t count) : at_(bytes), end_(bytes + count) {}

    size_t left() const
    {
        return static_cast<size_t>(end_ - at_);
    }
    uint8_t byte()
    {
        return at_ == end_ ? 0 : *at_++;
    }
    uint16_t word() // low byte first
    {
        const uint8_t low = byte();
        return static_cast<uint16_t>(low | byte() << 8);
    }
    bool startsWith(uint8_t byte) const
    {
        return at_ != end_ && *at_ == byte;
    }
    // At most `count` bytes.
    std::string_view bytes(size_t count)
    {
        const size_t taken = count < left() ? count : left();
        const auto *const start = reinterpret_cast<const char *>(at_);
        at_ += taken;
        return {start, taken};
    }
    std::string_view rest()
    {
        return bytes(left());
    }

private:
    const uint8_t *at_;
    const uint8_t *end_;
};

struct World {
    World();
    ~World();
    World(const World &) = delete;
    World &operator=(const World &) = delete;

    // Puts the state of the code back, as when its process has ended. The files stay.
    static void forget();

    // Time. A clock that is set moves the time of day only.
    uint64_t nowUs = 0;          // since the input began
    int64_t timeOfDayUs;         // at that moment; may be changed
    void (*onSleep)() = nullptr; // called after each sleep
    void (*onLook)() = nullptr;  // called before each look at the clock
    uint32_t sleptUs = 0;        // how long the sleep was that onSleep follows

    // The files in /userdata/.
    struct File {
        std::string name;
        std::string content;
        bool exists;
    };
    File *find(std::string_view name); // null if there is none
    void put(std::string_view name, std::string_view content);

    // What the system's tools print, chosen by the command; nothing if null.
    std::string_view (*toolOutput)(const char *command) = nullptr;
    std::string *written = nullptr; // gets what is written to files outside /userdata/, unless null

    // What has been sent.
    std::string line;         // to the front board
    std::string pc;           // to the control PC
    uint64_t pcAddress = 0;   // of the last datagram: IPv4 address and port, as in Channel
    size_t longest = 0;       // of these datagrams
    uint32_t lineTakes = ~0U; // bytes that the line takes before it fails

    // Calls that fail at present, a bit each.
    enum : uint8_t { kNoTools = 1, kNoFiles = 2, kDiskFull = 4, kNoDevices = 8, kNoNetwork = 16 };
    uint8_t faults = 0;

    // The process has ended by exit() or _exit(): that leads here.
    std::jmp_buf *onExit = nullptr;
};

extern World *world; // the one that lives
