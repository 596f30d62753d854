// veskctl: talks to the daemon as its front board and as its control PC.

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "tools/capture.h"
#include "tools/choice.h"
#include "tools/commands.h"
#include "tools/console.h"
#include "tools/elf.h"
#include "tools/errors.h"
#include "tools/file.h"
#include "tools/info.h"
#include "tools/line.h"
#include "tools/logfile.h"
#include "tools/manner.h"
#include "tools/monitor.h"
#include "tools/nearest.h"
#include "tools/output.h"
#include "tools/package.h"
#include "tools/ping.h"
#include "tools/player.h"
#include "tools/ports.h"
#include "tools/record.h"
#include "tools/sav.h"
#include "tools/subcommands.h"
#include "tools/text.h"
#include "tools/timing.h"
#include "tools/transcript.h"
#include "tools/update.h"
#include "tools/version.h"

namespace {

constexpr char kAbout[] =
    "Talks to the daemon vesk_h264 as its front board (--serial) and as its control PC (--udp).";

constexpr char kFooter[] =
    "Exit status:\n"
    "    0  done                        4  something failed on this computer, such as a\n"
    "    1  refused by the device, or      device that cannot be opened or a full disk\n"
    "       not as it should be         5  an update was not finished\n"
    "    2  wrong usage               130  interrupted\n"
    "    3  no answer in time\n"
    "\n"
    "Data goes to standard output, messages to standard error. `veskctl SUBCOMMAND --help` says\n"
    "more.\n"
    "\n"
    "Examples:\n"
    "  veskctl --serial /dev/ttyUSB0 send read device type\n"
    "  veskctl --serial /dev/ttyUSB0 --log /tmp/vesk_h264.log console\n"
    "  veskctl --serial /dev/ttyUSB0 update build/arm/vesk_h264\n"
    "  veskctl --udp 192.168.0.100 monitor\n"
    "  veskctl decode '<T0000680100000069>'";

constexpr char kSendAbout[] = "Send one command, print the reply";
constexpr char kSendFooter[] =
    "The command is written in one of these ways; blanks between bytes do not count:\n"
    "  words              a name of the table below, then its parameters: A.B.C.D is an address such\n"
    "                     as 192.168.0.100, NUMBER decimal or with 0x in front, DAT2 and the like two\n"
    "                     hexadecimal digits. Those in brackets may be left out.\n";
constexpr char kSendReply[] =
    "\n"
    "The reply is the next one with the command's address, tag and code. Over --udp the daemon does\n"
    "not execute the command: it passes it on to its serial line. An ordinary front board does not\n"
    "send it back, so use --serial.\n"
    "\n"
    "Commands: code, dat1, words\n";
constexpr char kSendExamples[] = "\nExamples:\n"
                                 "  veskctl --serial /dev/ttyUSB0 send read protocol version\n"
                                 "  veskctl --serial /dev/ttyUSB0 send write IP address "
                                 "192.168.0.55\n"
                                 "  veskctl --serial /dev/ttyUSB0 send 68 01\n"
                                 "  veskctl --serial /dev/ttyUSB0 send 00 2a 68 01 00 00 00";

constexpr char kNetworkAbout[] = "Read or write the settings of the device's network interface";
constexpr char kNetworkReadAbout[] =
    "Read prints what the interface has now. Write changes it, and waits until that is done.\n";
constexpr char kNetworkFooter[] =
    "\n"
    "Commands such as `send write IP address` change other settings: the device applies those when\n"
    "its DHCP client next starts.\n"
    "\n"
    "Examples:\n"
    "  veskctl --serial /dev/ttyUSB0 network read\n"
    "  veskctl --serial /dev/ttyUSB0 network write 192.168.0.55 255.255.255.0 192.168.0.1 \\\n"
    "      02:76:65:73:6b:01";

constexpr char kTextAbout[] = "Read or write settings as text";
constexpr char kTextFooter[] =
    "DAT1 says what the text is about: 00 a layer, 09 an input, 38 take (write only), 39 blackout.\n"
    "DAT2 says which one, 00 if not given. Both are hexadecimal bytes. The text is a list of items in\n"
    "brackets; it is sent as it is, right or wrong. Escapes: \\xNN \\r \\n \\\\.\n"
    "\n"
    "Examples:\n"
    "  veskctl --serial /dev/ttyUSB0 text write 09 00 '[a=1,b=2]'\n"
    "  veskctl --serial /dev/ttyUSB0 text read 09 00";

constexpr char kUpdateAbout[] = "Send a new executable to the device";
constexpr char kUpdateFooter[] =
    "The file must be a whole executable (ELF) for the device's processor, of 1 KiB to 16 MiB. The\n"
    "device is asked first: if nobody answers, nothing is sent. Then the file is sent in blocks of 1024\n"
    "bytes, each after the device has accepted the one before it. A block that is refused or not\n"
    "answered is sent again, 5 times in all. After the last block the device adds up the stored file.\n"
    "If the sum is right it keeps the old executable as /usr/bin/vesk_h264_backup, replaces it and\n"
    "restarts. If not, it goes on as before. It is asked until it answers, and the result is one of:\n"
    "restarted (with its version), still the old program, absent, unknown. All but the first have exit\n"
    "status 5. An update that is interrupted changes nothing, unless it was at its end.\n"
    "\n"
    "With --progress json standard output gets one JSON object a line: progress, that the last block\n"
    "goes out, and at the end the result with what to do next.\n"
    "\n"
    "Over --udp the update works only where the front board echoes every byte, at about 3 blocks a\n"
    "second: the device passes the blocks on to its serial line and executes only what comes back. The\n"
    "answer to the last block does not come, as the device restarts before it can pass it on.\n"
    "\n"
    "Examples:\n"
    "  veskctl --serial /dev/ttyUSB0 update build/arm/vesk_h264\n"
    "  veskctl --serial /dev/ttyUSB0 update --query --dry-run build/arm/vesk_h264";

constexpr char kInfoAbout[] = "Print everything that the device tells about itself";
constexpr char kInfoFooter[] =
    "It asks for type, versions, serial number, update block, DHCP and the network record: what the\n"
    "interface has now. With --stored it also reads the settings that commands such as `send write IP\n"
    "address` change. For that the device first takes over what its system has (see docs/protocol.md),\n"
    "so do it only while the interface is up and has its address. A dash is what was not told.\n"
    "\n"
    "Examples:\n"
    "  veskctl --serial /dev/ttyUSB0 info\n"
    "  veskctl --serial /dev/ttyUSB0 info --json | jq -r .network.address";

constexpr char kPingAbout[] = "Ask again and again whether the device answers, and how fast";
constexpr char kPingFooter[] =
    "It asks for the protocol version and prints how long each answer took, and a summary at the end.\n"
    "Ctrl-C ends it. Status 3: nothing came.\n"
    "\n"
    "Examples:\n"
    "  veskctl --serial /dev/ttyUSB0 ping\n"
    "  veskctl --serial /dev/ttyUSB0 ping -c 10 -i 0.2";

constexpr char kSerialAbout[] = "What this computer has for the line";
constexpr char kPortsAbout[] = "List the serial devices, with what the system knows of them";
constexpr char kPortsFooter[] =
    "Device, driver, USB vendor and product, name; below it a name that stays the same whatever is\n"
    "plugged in first.\n"
    "\n"
    "Examples:\n"
    "  veskctl serial ports\n"
    "  veskctl serial ports --json";

constexpr char kMonitorAbout[] =
    "Print what arrives until Ctrl-C: frames decoded, the rest in rows";
constexpr char kMonitorFooter[] =
    "A serial device that is not there yet is waited for, and opened again when it comes back. Ctrl-C\n"
    "ends it, with a summary on standard error. --filter takes a part of a command's name, or its code\n"
    "and dat1 in hexadecimal digits; it may be given several times. --record writes a transcript with\n"
    "the time of each packet, --pcap a capture for Wireshark: see tools/wireshark/README.md.\n"
    "\n"
    "With --relay veskctl stands between the device (--serial) and its front board: each is plugged\n"
    "into a serial device of this computer, and what one says goes on to the other. Then both are\n"
    "shown, the front board with front> and the device with front<.\n"
    "\n"
    "The daemon sends to the PC that sent the latest datagram. So over --udp monitor first sends a\n"
    "line feed, and again after 10 s of silence, as the device may have restarted. The daemon passes it\n"
    "on to its serial line, where it does no harm.\n"
    "\n"
    "Examples:\n"
    "  veskctl --udp 192.168.0.100 monitor --time delta\n"
    "  veskctl --serial /dev/ttyUSB0 monitor --filter 68 --filter 'net mask' --record heard.txt\n"
    "  veskctl --serial /dev/ttyUSB0 monitor --relay /dev/ttyUSB1 --pcap line.pcapng";

constexpr char kDecodeAbout[] = "Print what frames mean, without a device";
constexpr char kDecodeFooter[] =
    "A wrong checksum is reported. Text that is not a frame is reported on standard error, and the exit\n"
    "status is then 2.\n"
    "\n"
    "Standard input is decoded as it comes.\n"
    "\n"
    "Examples:\n"
    "  veskctl decode '<F00006801263300c2>'\n"
    "  tail -f capture.txt | veskctl decode --json";

constexpr char kConsoleAbout[] = "Type commands; see both lines and the daemon's output";
constexpr char kConsoleFooter[] =
    "Type commands as in `send`, or info, network, text, front TEXT, pc TEXT, help [WORD], quit. With\n"
    "--log the daemon's output is shown too. Input from a pipe is taken line by line, each after the\n"
    "one before it has been answered. With --json every command gives the object that its subcommand\n"
    "prints, and whatever else arrives one of its own.\n"
    "\n"
    "Examples:\n"
    "  veskctl --serial /dev/frontboard --udp 192.168.0.100 --log /tmp/vesk_h264.log console\n"
    "  echo 'read device type' | veskctl --serial /dev/ttyUSB0 console";

constexpr char kPlayAbout[] = "Play a transcript and print whether each step held";
constexpr char kPlayFooter[] =
    "A transcript has one step a line; # begins a comment:\n"
    "  == TITLE                  what the next steps show\n"
    "  front> TEXT   pc> TEXT    the front board, the PC sends these bytes\n"
    "  front< TEXT   pc< TEXT    exactly these bytes arrive there next\n"
    "  front=        pc=         nothing arrives there within 100 ms\n"
    "  front*        pc*         bytes that have arrived there are thrown away\n"
    "  front>> HEX   pc>> HEX    as > and <, but the bytes in hexadecimal digits; NN*COUNT is a byte\n"
    "  front<< HEX   pc<< HEX    that is repeated\n"
    "  log< TEXT                 the daemon prints this line\n"
    "  wait MS                   nothing happens for MS milliseconds\n"
    "Escapes in TEXT: \\xNN \\r \\n \\\\. An expectation waits as long as --timeout says. If bytes are\n"
    "unread at the end, the transcript fails.\n"
    "\n"
    "Examples:\n"
    "  veskctl --serial /dev/ttyUSB0 play session.txt\n"
    "  veskctl --serial /dev/frontboard --udp 192.168.0.100 --log /tmp/vesk_h264.log \\\n"
    "      play tests/replay/first-session.txt";

constexpr unsigned kDefaultTimeout = 1000;
constexpr unsigned kDefaultRestartTimeout = 30000;
constexpr unsigned kLongestTimeout = 600000;
constexpr unsigned kMostRetries = 100;
constexpr unsigned kMostQuestions = 1000000000;
constexpr double kLongestInterval = 3600;
constexpr char kVersion[] = "veskctl " VESK_VERSION;

struct Options {
    std::string serial;
    std::string udp;
    std::string log;
    unsigned timeout = kDefaultTimeout;
    unsigned baud = kUsualBaud;
    std::string record;
    std::string pcap;
    std::string relay; // of monitor
    std::string color = "auto";
    std::string about;                                // the command line
    bool stored = false;                              // of info
    unsigned count = 0;                               // of ping
    double interval = 1;                              // of ping, in seconds
    MonitorOptions monitor;                           // of monitor
    std::vector<std::string> words;                   // of send
    std::vector<std::string> frames;                  // of decode
    std::string transcript;                           // of play
    NetworkSettings network;                          // of network write
    std::string dat1;                                 // of text
    std::string dat2 = "00";                          // of text
    std::string text;                                 // of text write
    std::string file;                                 // of update
    bool query = false;                               // of update
    std::string machine = "arm";                      // of update
    std::string progress = "bar";                     // of update
    bool isDry = false;                               // of update
    unsigned restartTimeout = kDefaultRestartTimeout; // of update
    bool isForced = false;                            // of update and network write
    unsigned wait = 0; // for a serial device that another process has
};

constexpr Milliseconds kLongestFinish{1000};

// The file's whole path without links, as far as it exists; the name itself where that is not
// known.
std::string wholePath(const std::string &file)
{
    std::error_code error;
    const std::filesystem::path path = std::filesystem::absolute(file, error);
    const std::filesystem::path whole = std::filesystem::weakly_canonical(path, error);
    return error ? file : whole.string();
}

// Whether two names mean one file, which need not exist yet.
bool isSameFile(const std::string &left, const std::string &right)
{
    std::error_code error;
    return wholePath(left) == wholePath(right) || std::filesystem::equivalent(left, right, error);
}

// The files into which the user wants what the lines carry, if any. All lines share them.
struct Records {
    std::shared_ptr<Recorder> transcript;
    std::shared_ptr<Capture> capture;

    // With `times` the transcript has them.
    Records(const Options &options, bool times)
        : transcript(options.record.empty()
                         ? nullptr
                         : std::make_shared<Recorder>(options.record, options.about, times)),
          capture(options.pcap.empty() ? nullptr
                                       : std::make_shared<Capture>(options.pcap, options.about))
    {
    }

    bool isWanted() const
    {
        return transcript || capture;
    }
};

// Records and tells what the line carries, if the user wants that.
void listen(Line &line, const char *side, const Records &records)
{
    const auto trace = manner().verbose ? std::make_shared<Trace>(side) : nullptr;
    if (records.isWanted() || trace) {
        line.setTap([side, records, trace](Passing passing, std::string_view bytes) {
            if (records.capture) {
                records.capture->take(side, passing, bytes);
            }
            if (records.transcript) {
                records.transcript->take(side, passing, bytes);
            }
            if (trace) {
                trace->take(passing, bytes);
            }
        });
    }
}

// The lines and the log that the options name.
struct Opened {
    std::optional<Line> front;
    std::optional<Line> pc;
    std::optional<LogFile> log;
    Records records;

    explicit Opened(const Options &options) : records(options, false)
    {
        if (!options.udp.empty()) {
            pc.emplace(Line::udp(options.udp));
            listen(*pc, "pc", records);
        }
        if (!options.serial.empty()) {
            front.emplace(Line::serial(options.serial, Milliseconds{options.wait}, options.baud));
            listen(*front, "front", records);
        }
        if (!options.log.empty()) {
            log.emplace(options.log);
        }
    }

    // Records what is still on its way, as a transcript must read everything that comes.
    void finish()
    {
        const Deadline deadline(kLongestFinish);
        for (Line *const line : {front ? &*front : nullptr, pc ? &*pc : nullptr}) {
            while (line != nullptr && records.isWanted() && !line->receive(kQuiet).empty() &&
                   !deadline.passed()) {
            }
        }
    }

    Desk desk()
    {
        return {front ? &*front : nullptr, pc ? &*pc : nullptr, log ? &*log : nullptr};
    }
};

void requireTwoFiles(const Options &options)
{
    if (!options.record.empty() && !options.pcap.empty() &&
        isSameFile(options.record, options.pcap)) {
        throw UsageError("--record and --pcap name the same file; each needs its own");
    }
}

// A line to use, and files that it may be recorded in.
void requireLine(const Options &options)
{
    requireTwoFiles(options);
    if (options.serial.empty() && options.udp.empty()) {
        throw UsageError("--serial or --udp is needed, such as --serial /dev/ttyUSB0; `veskctl "
                         "serial ports` lists what there is");
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

// Calls `use` with the one line that the options name.
template <typename Use> int onOneLine(const Options &options, Use use)
{
    requireOneLine(options);
    Opened opened(options);
    const int status =
        use(opened.front ? *opened.front : *opened.pc, Milliseconds{options.timeout});
    opened.finish();
    return status;
}

// Wrong arguments are reported before any device is opened ---------------------------------------

int send(const Options &options)
{
    const std::string text = joined(options.words);
    frameFromText(text);
    return onOneLine(
        options, [&](Line &line, Milliseconds timeout) { return runSend(line, text, timeout); });
}

int networkRead(const Options &options)
{
    return onOneLine(options, runNetworkRead);
}

int networkWrite(const Options &options)
{
    const std::string fault = faultOfNetwork(options.network);
    if (!fault.empty() && !options.isForced) {
        throw UsageError(fault + "; nothing was sent" +
                         ifTyped(", and --force sends it all the same"));
    }
    return onOneLine(options, [&](Line &line, Milliseconds timeout) {
        return runNetworkWrite(line, options.network, timeout);
    });
}

int textRead(const Options &options)
{
    const std::string which = options.dat1 + " " + options.dat2;
    frameFromText("read text " + which);
    return onOneLine(options, [&](Line &line, Milliseconds timeout) {
        return runTextRead(line, which, timeout);
    });
}

int textWrite(const Options &options)
{
    const std::string which = options.dat1 + " " + options.dat2;
    frameFromText("write text " + which);
    unescape(options.text);
    return onOneLine(options, [&](Line &line, Milliseconds timeout) {
        return runTextWrite(line, which, options.text, timeout);
    });
}

// Requires: the option's check.
Machine machineOf(const std::string &name)
{
    return name == "arm" ? Machine::kArm : name == "x86_64" ? Machine::kX86 : Machine::kAny;
}

ProgressKind progressOf(const std::string &name)
{
    return name == "bar"    ? ProgressKind::kBar
           : name == "json" ? ProgressKind::kJson
                            : ProgressKind::kNone;
}

int update(const Options &options)
{
    requireOneLine(options);
    const std::string file = contentOf(options.file);
    const std::string fault = faultOfProgram(file, machineOf(options.machine));
    if (!fault.empty() && (!options.isForced || file.empty())) {
        throw UsageError(
            fmt::format("{} is no program for the device: {}; nothing was sent{}", options.file,
                        fault, file.empty() ? "" : ifTyped(", and --force sends it all the same")));
    }
    const std::string stream = updateStream(file);
    if (!fault.empty() && manner().isTyped) {
        fmt::print(stderr,
                   "veskctl: {} is no program for the device: {}; sent because of --force\n",
                   options.file, fault);
    }
    ProgressKind progress = manner().json ? ProgressKind::kJson : progressOf(options.progress);
    if (manner().quiet && progress == ProgressKind::kBar) {
        progress = ProgressKind::kNone;
    }
    return onOneLine(options, [&](Line &line, Milliseconds timeout) {
        return runUpdate(line, stream,
                         {.query = options.query,
                          .isDry = options.isDry,
                          .progress = progress,
                          .timeout = timeout,
                          .blockTimeout = timeout + kDeviceWaitsBlock,
                          .restartTimeout = Milliseconds{options.restartTimeout}});
    });
}

int info(const Options &options)
{
    return onOneLine(options, [&](Line &line, Milliseconds timeout) {
        return runInfo(line, options.stored, timeout);
    });
}

int ping(const Options &options)
{
    const std::chrono::duration<double> interval(options.interval);
    return onOneLine(options, [&](Line &line, Milliseconds timeout) {
        return runPing(line, {options.count, std::chrono::round<Milliseconds>(interval), timeout});
    });
}

int monitor(const Options &options)
{
    requireOneLine(options);
    const bool isSerial = !options.serial.empty();
    if (!options.relay.empty() && !isSerial) {
        throw UsageError("--relay needs --serial, the device's line");
    }
    const Records records(options, true);
    const auto open = [&options, &records, isSerial] {
        Line line = isSerial
                        ? Line::serial(options.serial, Milliseconds{options.wait}, options.baud)
                        : Line::udp(options.udp);
        listen(line, isSerial ? "front" : "pc", records);
        return line;
    };
    Watched watched{{isSerial ? options.serial : options.udp, open}, isSerial};
    if (!options.relay.empty()) {
        watched.frontBoard =
            Way{options.relay, [&options] {
                    return Line::serial(options.relay, Milliseconds{options.wait}, options.baud);
                }};
    }
    return runMonitor(watched, options.monitor);
}

int console(const Options &options)
{
    requireLine(options);
    Opened opened(options);
    const int status = runConsole(opened.desk(), Milliseconds{options.timeout});
    opened.finish();
    return status;
}

int decode(const Options &options)
{
    return runDecode(options.frames);
}

int ports(const Options &)
{
    return runPorts("");
}

int play(const Options &options)
{
    requireLine(options);
    std::istringstream file(contentOf(options.transcript));
    const std::vector<Step> steps = parseTranscript(file, options.transcript);
    Opened opened(options);
    return playTranscript(steps, options.transcript, opened.desk(), Milliseconds{options.timeout});
}

// Groups of options. Each subcommand takes those of the groups that hold for it after its name; all
// of them may also stand before it.
enum Groups : unsigned {
    kLines = 1,
    kTimeout = 2,
    kRetries = 4,
    kLog = 8,
    kMessages = 16,
    kColor = 32,
    kOutput = kMessages | kColor,
    kData = 64,
};

void addOptions(CLI::App &app, Options &options, unsigned groups)
{
    if ((groups & kLines) != 0) {
        app.add_option("--serial", options.serial, "Serial device: be the front board")
            ->type_name("DEVICE");
        app.add_option("--baud", options.baud, "Bits per second of the serial device")
            ->capture_default_str()
            ->type_name("RATE");
        app.add_option("--wait", options.wait, "How long to wait for a device that is in use")
            ->capture_default_str()
            ->type_name("MS")
            ->check(CLI::Range(0U, kLongestTimeout).description(""));
        app.add_option("--udp", options.udp, "The daemon's address (default port 1000): be the PC")
            ->type_name("HOST[:PORT]");
        app.add_option("--record", options.record, "Write what the lines carry, for `play`")
            ->type_name("FILE");
        app.add_option("--pcap", options.pcap, "Write what the lines carry, for Wireshark")
            ->type_name("FILE");
        app.add_flag("-v,--verbose", manner().verbose,
                     "Print what the lines carry on standard error");
    }
    if ((groups & kTimeout) != 0) {
        app.add_option("--timeout", options.timeout, "How long to wait for an answer")
            ->capture_default_str()
            ->type_name("MS")
            ->check(CLI::Range(1U, kLongestTimeout).description(""));
    }
    if ((groups & kRetries) != 0) {
        app.add_option("--retries", manner().retries,
                       "How often a command is sent again that is not answered")
            ->capture_default_str()
            ->type_name("N")
            ->check(CLI::Range(0U, kMostRetries).description(""));
    }
    if ((groups & kLog) != 0) {
        app.add_option("--log", options.log, "File with the daemon's output")->type_name("FILE");
    }
    if ((groups & kData) != 0) {
        app.add_flag("--json", manner().json, "Print data as JSON, an object a line");
    }
    if ((groups & kMessages) != 0) {
        app.add_flag("-q,--quiet", manner().quiet, "No messages but errors, no summaries");
    }
    if ((groups & kColor) != 0) {
        app.add_option("--color", options.color, "Colour: auto, always or never")
            ->capture_default_str()
            ->type_name("WHEN")
            ->check(CLI::IsMember({"auto", "always", "never"}).description(""));
    }
}

// What was wrong with the arguments, what is possible, and what may have been meant.
std::string complaint(const CLI::App &app, const CLI::ParseError &error)
{
    const CLI::App *command = &app; // the innermost subcommand that was named
    std::string path = "veskctl";
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().back();
        path += " " + command->get_name();
    }
    const bool isWordMissing =
        error.get_name() == "RequiredError" &&
        !command->get_subcommands([](const CLI::App *) { return true; }).empty();
    std::vector<std::string> strangers = command->remaining();
    if (strangers.empty()) {
        strangers = app.remaining();
    }
    const std::string help = ifTyped(fmt::format("; see `{} --help`", path));
    if (strangers.empty() && !isWordMissing) {
        return error.what() + help;
    }
    std::vector<std::string> options;
    for (const CLI::App *each : {&app, command}) {
        for (const CLI::Option *option : each->get_options()) {
            options.push_back(option->get_name());
        }
    }
    for (const std::string &stranger : strangers) {
        if (stranger.starts_with('-')) {
            return fmt::format("{} is not an option here{}{}", escape(stranger),
                               didYouMean(stranger, options), help);
        }
    }
    std::vector<std::string> names;
    for (const CLI::App *each : command->get_subcommands([](const CLI::App *) { return true; })) {
        names.push_back(each->get_name());
    }
    if (names.empty()) {
        return fmt::format("\"{}\" is too much{}", escape(strangers[0]), help);
    }
    return fmt::format(
        "{}{}; possible are: {}{}",
        strangers.empty() ? std::string("a subcommand is missing")
                          : fmt::format("\"{}\" is not a subcommand", escape(strangers[0])),
        strangers.empty() ? "" : didYouMean(strangers[0], names), fmt::join(names, ", "), help);
}

// What `send` takes beside words, in two columns.
std::string listOfForms()
{
    std::string list;
    for (const auto &[digits, about] : commandForms()) {
        std::string_view head = digits;
        std::istringstream lines(about);
        for (std::string line; std::getline(lines, line); head = "") {
            list += fmt::format("  {:<17}  {}\n", head, line);
        }
    }
    return list;
}

int run(int argc, char **argv)
{
    Options options;
    CLI::App app(kAbout, "veskctl");
    app.footer(kFooter);
    app.require_subcommand(1);
    app.fallthrough(); // the options may also follow the subcommand
    app.set_version_flag("--version", kVersion, "Print the version and exit");
    addOptions(app, options, kLines | kTimeout | kRetries | kLog | kOutput | kData);
    options.about = "veskctl";
    for (int i = 1; i < argc; ++i) {
        options.about += fmt::format(" {}", escape(argv[i]));
    }

    CLI::App *const sendCommand = app.add_subcommand("send", kSendAbout);
    sendCommand->footer(kSendFooter + listOfForms() + kSendReply + commandList() + kSendExamples);
    sendCommand->add_option("COMMAND", options.words, "Words or hexadecimal digits")->required();

    CLI::App *const networkCommand = app.add_subcommand("network", kNetworkAbout);
    networkCommand->footer(std::string(kNetworkReadAbout) + kNetworkWriteAbout + kNetworkFooter);
    networkCommand->require_subcommand(1);
    CLI::App *const networkReadCommand = networkCommand->add_subcommand("read", "Print them");
    CLI::App *const networkWriteCommand = networkCommand->add_subcommand("write", "Change them");
    networkWriteCommand->add_option("ADDRESS", options.network.address, "IPv4 address")->required();
    networkWriteCommand->add_option("MASK", options.network.mask, "Net mask")->required();
    networkWriteCommand->add_option("GATEWAY", options.network.gateway, "Default gateway")
        ->required();
    networkWriteCommand->add_option("MAC", options.network.mac, "MAC address")->required();
    networkWriteCommand->add_flag("--force", options.isForced,
                                  "Send settings that cannot work together");

    CLI::App *const textCommand = app.add_subcommand("text", kTextAbout);
    textCommand->footer(kTextFooter);
    textCommand->require_subcommand(1);
    CLI::App *const textReadCommand = textCommand->add_subcommand("read", "Print a text");
    textReadCommand->add_option("DAT1", options.dat1, "What it is about")->required();
    textReadCommand->add_option("DAT2", options.dat2, "Which one");
    CLI::App *const textWriteCommand = textCommand->add_subcommand("write", "Send a text");
    textWriteCommand->add_option("DAT1", options.dat1, "What it is about")->required();
    textWriteCommand->add_option("DAT2", options.dat2, "Which one")->required();
    textWriteCommand->add_option("TEXT", options.text, "The text, brackets included")->required();

    CLI::App *const updateCommand = app.add_subcommand("update", kUpdateAbout);
    updateCommand->footer(kUpdateFooter);
    updateCommand->add_option("FILE", options.file, "The new executable")->required();
    updateCommand->add_flag("--query", options.query, "Ask for block size and version first");
    updateCommand->add_option("--machine", options.machine, "What the device needs")
        ->capture_default_str()
        ->type_name("arm|x86_64|any")
        ->check(CLI::IsMember({"arm", "x86_64", "any"}).description(""));
    updateCommand->add_flag("--force", options.isForced, "Send a file that is no such program");
    updateCommand->add_flag("--dry-run", options.isDry, "Check the file and ask; send no block");
    updateCommand->add_option("--progress", options.progress, "How far it is: a bar on a terminal")
        ->capture_default_str()
        ->type_name("bar|json|none")
        ->check(CLI::IsMember({"bar", "json", "none"}).description(""));
    updateCommand
        ->add_option("--restart-timeout", options.restartTimeout,
                     "How long to wait for the new program")
        ->capture_default_str()
        ->type_name("MS")
        ->check(CLI::Range(1U, kLongestTimeout).description(""));

    CLI::App *const infoCommand = app.add_subcommand("info", kInfoAbout);
    infoCommand->footer(kInfoFooter);
    infoCommand->add_flag("--stored", options.stored, "Read the stored network settings as well");

    CLI::App *const pingCommand = app.add_subcommand("ping", kPingAbout);
    pingCommand->footer(kPingFooter);
    pingCommand->add_option("-c,--count", options.count, "Questions; without it, until Ctrl-C")
        ->type_name("N")
        ->check(CLI::Range(1U, kMostQuestions).description(""));
    pingCommand->add_option("-i,--interval", options.interval, "Time between two questions")
        ->capture_default_str()
        ->type_name("S")
        ->check(CLI::Range(0.0, kLongestInterval).description(""));

    CLI::App *const serialCommand = app.add_subcommand("serial", kSerialAbout);
    serialCommand->footer(kPortsFooter);
    serialCommand->require_subcommand(1);
    CLI::App *const portsCommand = serialCommand->add_subcommand("ports", kPortsAbout);
    portsCommand->footer(kPortsFooter);

    CLI::App *const monitorCommand = app.add_subcommand("monitor", kMonitorAbout);
    monitorCommand->footer(kMonitorFooter);
    monitorCommand
        ->add_option("--time", options.monitor.time, "Of each packet: absolute, delta or none")
        ->capture_default_str()
        ->type_name("KIND")
        ->check(CLI::IsMember({"absolute", "delta", "none"}).description(""));
    monitorCommand->add_option("--filter", options.monitor.filters, "Show such commands only")
        ->type_name("NAME|CODE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);

    monitorCommand
        ->add_option("--relay", options.relay, "The front board's serial device: stand between")
        ->type_name("DEVICE");

    CLI::App *const decodeCommand = app.add_subcommand("decode", kDecodeAbout);
    decodeCommand->footer(kDecodeFooter);
    decodeCommand->add_option("FRAME", options.frames, "Frames; if none, standard input is read");

    CLI::App *const consoleCommand = app.add_subcommand("console", kConsoleAbout);
    consoleCommand->footer(kConsoleFooter);

    CLI::App *const playCommand = app.add_subcommand("play", kPlayAbout);
    playCommand->footer(kPlayFooter);
    playCommand->add_option("FILE", options.transcript, "The transcript")->required();

    for (CLI::App *const each : {sendCommand, networkReadCommand, networkWriteCommand,
                                 textReadCommand, textWriteCommand}) {
        addOptions(*each, options, kLines | kTimeout | kRetries | kOutput | kData);
    }
    addOptions(*infoCommand, options, kLines | kTimeout | kRetries | kMessages | kData);
    for (CLI::App *const each : {updateCommand, pingCommand}) {
        addOptions(*each, options, kLines | kTimeout | kOutput | kData);
    }
    addOptions(*monitorCommand, options, kLines | kOutput | kData);
    // Those that are not answered are sent again by info, network and text.
    addOptions(*consoleCommand, options, kLines | kTimeout | kRetries | kLog | kOutput | kData);
    addOptions(*playCommand, options, kLines | kTimeout | kLog | kOutput | kData);
    addOptions(*decodeCommand, options, kOutput | kData);
    addOptions(*portsCommand, options, kMessages | kData);

    std::vector<Choice> choices = {
        {sendCommand, [&options] { return send(options); }},
        {networkReadCommand, [&options] { return networkRead(options); }},
        {networkWriteCommand, [&options] { return networkWrite(options); }},
        {textReadCommand, [&options] { return textRead(options); }},
        {textWriteCommand, [&options] { return textWrite(options); }},
        {updateCommand, [&options] { return update(options); }},
        {infoCommand, [&options] { return info(options); }},
        {pingCommand, [&options] { return ping(options); }},
        {portsCommand, [&options] { return ports(options); }},
        {decodeCommand, [&options] { return decode(options); }},
        {monitorCommand, [&options] { return monitor(options); }},
        {consoleCommand, [&options] { return console(options); }},
        {playCommand, [&options] { return play(options); }},
    };
    for (const std::vector<Choice> &added :
         {addSavCommands(app), addTimingCommands(app), addVersionCommands(app)}) {
        for (const Choice &choice : added) {
            addOptions(*choice.command, options, kOutput | kData);
            choices.push_back(choice);
        }
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error); // help
        }
        throw UsageError(complaint(app, error));
    }
    manner().isColored = wantsColor(options.color);
    const auto chosen = std::find_if(choices.begin(), choices.end(),
                                     [](const Choice &choice) { return bool(*choice.command); });
    return chosen->run();
}

} // namespace

int main(int argc, char **argv)
{
    try {
        const int status = run(argc, argv);
        flushOutput();
        return status;
    } catch (const UsageError &error) {
        fmt::print(stderr, "veskctl: {}\n", error.what());
        return kUsage;
    } catch (const std::exception &error) {
        fmt::print(stderr, "veskctl: {}\n", error.what());
        return kLocalFailure;
    }
}
