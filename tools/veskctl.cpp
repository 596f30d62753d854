// veskctl: talks to the daemon as its front board and as its control PC.

#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/console.h"
#include "tools/errors.h"
#include "tools/line.h"
#include "tools/logfile.h"
#include "tools/player.h"
#include "tools/subcommands.h"
#include "tools/transcript.h"

namespace {

constexpr char kAbout[] =
    "Talks to the daemon vesk_h264 as its front board (--serial) and as its control PC (--udp).";

constexpr char kFooter[] =
    "Exit status:\n"
    "  0  done                        3  no answer in time\n"
    "  1  refused by the device, or   4  something failed on this computer, such as\n"
    "     a step that did not hold       a device that cannot be opened\n"
    "  2  wrong use\n"
    "\n"
    "Data goes to standard output, talk to standard error. `veskctl SUBCOMMAND --help` says more.\n"
    "\n"
    "Examples:\n"
    "  veskctl --serial /dev/ttyUSB0 send read device type\n"
    "  veskctl --serial /dev/ttyUSB0 --log /tmp/vesk_h264.log console\n"
    "  veskctl --udp 192.168.0.100 monitor\n"
    "  veskctl decode '<T0000680100000069>'";

constexpr char kSendAbout[] = "Send one command, print the reply";
constexpr char kSendFooter[] =
    "The command is written in one of these ways; blanks between bytes do not count:\n"
    "  words              a name of the table below, then its parameters as hexadecimal bytes\n"
    "  2 to 10 digits     command and dat1 to dat4; address, tag and what is left out are 00\n"
    "  14 digits          address, tag, command and dat1 to dat4; the checksum is added\n"
    "  16 digits          the same and the checksum, right or wrong\n"
    "  <...>              a whole frame of 19 characters, sent as it is, right or wrong\n"
    "\n"
    "The reply is the next one with the command's address, tag and code. Over --udp the daemon\n"
    "passes the command on to its serial line: only what answers there answers.\n"
    "\n"
    "Commands: code, dat1, words\n";
constexpr char kSendExamples[] = "\nExamples:\n"
                                 "  veskctl --serial /dev/ttyUSB0 send read protocol version\n"
                                 "  veskctl --serial /dev/ttyUSB0 send 68 01\n"
                                 "  veskctl --serial /dev/ttyUSB0 send 00 2a 68 01 00 00 00";

constexpr char kMonitorAbout[] =
    "Print what arrives until Ctrl-C: frames decoded, the rest escaped";
constexpr char kMonitorFooter[] =
    "The daemon sends to the PC that spoke last. Over --udp we therefore begin with a line feed,\n"
    "which it passes on to its serial line; no front board minds.\n"
    "\n"
    "Example:\n"
    "  veskctl --udp 192.168.0.100 monitor";

constexpr char kDecodeAbout[] = "Say what frames mean, without any device";
constexpr char kDecodeFooter[] =
    "A wrong checksum is said so. Text that is no frame is named on standard error and makes the\n"
    "exit status 2.\n"
    "\n"
    "Examples:\n"
    "  veskctl decode '<F00006801263300c2>'\n"
    "  grep -o '<T[^>]*>' capture.txt | veskctl decode";

constexpr char kConsoleAbout[] = "Type commands, see both lines and the daemon's output";
constexpr char kConsoleFooter[] =
    "Commands as in `send`, and front TEXT, pc TEXT, help, quit. With --log the daemon's output is\n"
    "shown beside them. Input from a pipe is taken line by line, each when the one before has had\n"
    "its answer.\n"
    "\n"
    "Examples:\n"
    "  veskctl --serial /dev/frontboard --udp 192.168.0.100 --log /tmp/vesk_h264.log console\n"
    "  echo 'read device type' | veskctl --serial /dev/ttyUSB0 console";

constexpr char kPlayAbout[] = "Play a transcript, say of every step whether it held";
constexpr char kPlayFooter[] =
    "A transcript has one step a line; # begins a comment:\n"
    "  == TITLE                  what the next steps show\n"
    "  front> TEXT   pc> TEXT    the front board, the PC sends these bytes\n"
    "  front< TEXT   pc< TEXT    exactly these bytes arrive there next\n"
    "  front=        pc=         nothing arrives there within 100 ms\n"
    "  front*        pc*         what has arrived there is thrown away\n"
    "  log< TEXT                 the daemon prints this line\n"
    "  wait MS                   nothing happens for so many milliseconds\n"
    "Escapes in TEXT: \\xNN \\r \\n \\\\. An expectation waits as long as --timeout says. Bytes left\n"
    "unread at the end make the transcript fail.\n"
    "\n"
    "Example:\n"
    "  veskctl --serial /dev/frontboard --udp 192.168.0.100 --log /tmp/vesk_h264.log \\\n"
    "      play tests/replay/first-session.txt";

constexpr unsigned kDefaultTimeout = 1000;
constexpr unsigned kLongestTimeout = 600000;

struct Options {
    std::string serial;
    std::string udp;
    std::string log;
    unsigned timeout = kDefaultTimeout;
    std::vector<std::string> words;  // of send
    std::vector<std::string> frames; // of decode
    std::string transcript;          // of play
};

// The lines and the log that the options name.
struct Opened {
    std::optional<Line> front;
    std::optional<Line> pc;
    std::optional<LogFile> log;

    explicit Opened(const Options &options)
    {
        if (!options.udp.empty()) {
            pc.emplace(Line::udp(options.udp));
        }
        if (!options.serial.empty()) {
            front.emplace(Line::serial(options.serial));
        }
        if (!options.log.empty()) {
            log.emplace(options.log);
        }
    }

    Desk desk()
    {
        return {front ? &*front : nullptr, pc ? &*pc : nullptr, log ? &*log : nullptr};
    }
};

void requireLine(const Options &options)
{
    if (options.serial.empty() && options.udp.empty()) {
        throw UsageError("--serial or --udp is needed");
    }
}

void requireOneLine(const Options &options)
{
    requireLine(options);
    if (!options.serial.empty() && !options.udp.empty()) {
        throw UsageError("--serial or --udp, not both");
    }
}

std::string joined(const std::vector<std::string> &words)
{
    return fmt::format("{}", fmt::join(words, " "));
}

int send(const Options &options)
{
    requireOneLine(options);
    const std::string text = joined(options.words);
    frameFromText(text); // a wrong word is told before any device is touched
    Opened opened(options);
    return runSend(opened.front ? *opened.front : *opened.pc, text, Milliseconds{options.timeout});
}

int monitor(const Options &options)
{
    requireOneLine(options);
    Opened opened(options);
    if (opened.pc) {
        opened.pc->send("\n"); // the daemon takes no notice of an empty datagram
    }
    return runMonitor(opened.front ? *opened.front : *opened.pc);
}

int console(const Options &options)
{
    requireLine(options);
    Opened opened(options);
    return runConsole(opened.desk(), Milliseconds{options.timeout});
}

int play(const Options &options)
{
    requireLine(options);
    std::ifstream file(options.transcript);
    if (!file) {
        throw LocalError(fmt::format("cannot read {}", options.transcript));
    }
    const std::vector<Step> steps = parseTranscript(file, options.transcript);
    Opened opened(options);
    return playTranscript(steps, options.transcript, opened.desk(), Milliseconds{options.timeout});
}

int run(int argc, char **argv)
{
    Options options;
    CLI::App app(kAbout, "veskctl");
    app.footer(kFooter);
    app.require_subcommand(1);
    app.fallthrough(); // the options may stand behind the subcommand too
    app.add_option("--serial", options.serial, "Serial device: be the front board")
        ->type_name("DEVICE");
    app.add_option("--udp", options.udp, "The daemon's address, port 1000 if not given: be the PC")
        ->type_name("HOST[:PORT]");
    app.add_option("--timeout", options.timeout, "How long to wait for an answer")
        ->capture_default_str()
        ->type_name("MS")
        ->check(CLI::Range(1U, kLongestTimeout).description(""));
    app.add_option("--log", options.log, "File in which the daemon's output is collected")
        ->type_name("FILE");

    CLI::App *const sendCommand = app.add_subcommand("send", kSendAbout);
    sendCommand->footer(kSendFooter + commandList() + kSendExamples);
    sendCommand->add_option("COMMAND", options.words, "Words or hexadecimal digits")->required();

    CLI::App *const monitorCommand = app.add_subcommand("monitor", kMonitorAbout);
    monitorCommand->footer(kMonitorFooter);

    CLI::App *const decodeCommand = app.add_subcommand("decode", kDecodeAbout);
    decodeCommand->footer(kDecodeFooter);
    decodeCommand->add_option("FRAME", options.frames, "Frames; none: from standard input");

    CLI::App *const consoleCommand = app.add_subcommand("console", kConsoleAbout);
    consoleCommand->footer(kConsoleFooter);

    CLI::App *const playCommand = app.add_subcommand("play", kPlayAbout);
    playCommand->footer(kPlayFooter);
    playCommand->add_option("FILE", options.transcript, "The transcript")->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? kDone : kUsage;
    }
    if (*sendCommand) {
        return send(options);
    }
    if (*monitorCommand) {
        return monitor(options);
    }
    if (*decodeCommand) {
        return runDecode(options.frames);
    }
    return *consoleCommand ? console(options) : play(options);
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return run(argc, argv);
    } catch (const UsageError &error) {
        fmt::print(stderr, "veskctl: {}\n", error.what());
        return kUsage;
    } catch (const std::exception &error) {
        fmt::print(stderr, "veskctl: {}\n", error.what());
        return kLocalFailure;
    }
}
