// The daemon as a bridge between the serial line and the network, beside what else could do that:
// a program of the same design, ser2net and socat. It runs inside the board:
//
//   testbench/board build/bench/benchmarks/bridge [OPTION...] [DIRECTORY]
//
//   --turns N          turns of each program, 9 by default, which take 2.5 minutes at most
//                      on a machine with nothing else to do
//   --programs A,B     only these; the names are those in the table's head
//   --also NAME=PROGRAM
//                      another build of the daemon beside it, under this name
//   --latency          only the latencies and the idle load
//   DIRECTORY          where the data files for pictures go, below the checkout
//
// The programs take turns, each from its start, so that other load on the machine affects all
// alike. The table has a column for each program, and a column with the daemon's figure divided by
// that of each other program: the median of the turns' ratios, or the ratio of all samples for a
// 99th percentile. "x 8" is 8 times the rate of a line with 115200 bits/s and 10 bits a byte.
//
//   start                    ms from starting the program, its settings stored, to its first byte
//                            from the PC on the line
//   line to PC               ms from the last byte of a 16-byte message on the line, which arrives
//                            byte by byte at that rate, to the whole message at the PC
//   PC to line               ms from a 16-byte datagram of the PC to its bytes on the line. The
//                            line is then busy with them at that rate
//   round trip               ms from the last byte of a command on the line to the last of its
//                            answer
//   idle                     ms of processor time a second, with a PC known and no traffic
//   cost                     ms of processor time a megabyte from the line to the PC
//   cost above idle          the same less the idle load for as long
//   resident, private        kB of memory in RAM, and the part that no other process shares; after
//                            the traffic
//   loss of 4000             bytes lost of 4000 that the line brings at once, or that the PC sends
//                            in one datagram: the largest of all turns
//   loss                     bytes lost of a stream from the line at that rate, of all turns
//   messages lost            of those whose latencies are above
//
// Processor time is that of all threads as the scheduler counts it, of which the system's utime and
// stime are shares. The pseudo terminal takes bytes as fast as a program writes them.
//
// The data files, for gnuplot: NAME.dat for a latency has a block for each program, which begins
// "# PROGRAM", with samples in ms in rising order and the share of samples up to each. cost.dat has
// a row for each rate with the cost of each program, idle.dat and the others of one figure a row
// for each program. table.txt is the table.

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "benchmarks/bridge_station.h"
#include "benchmarks/stored_state.h"

namespace {

constexpr uint32_t kBurst = 4000;
constexpr uint32_t kBurstTurns = 2; // the daemon takes 1.2 s for a burst of the PC
constexpr double kIdleSeconds = 0.3;
constexpr double kStreamSeconds = 0.22;
constexpr uint32_t kMessages = 45;      // of each kind, in each turn
constexpr uint32_t kMessagesBeside = 2; // times as many for the programs of the daemon's design
constexpr int kLatencyPaces[] = {1, 8};
constexpr int kStreamPaces[] = {1, 8, 32, 64};

struct Candidate {
    std::string name;
    std::vector<std::string> command;
    bool isOfThisDesign; // answers commands
};

enum class Kind {
    kMedian,  // of the turns
    kLatency, // two rows, from all samples
    kLargest, // of the turns, without ratios
    kSum,     // of the turns, without ratios
};

struct Figure {
    Kind kind;
    std::string name;
    // By program, then turn, then sample.
    std::map<std::string, std::vector<std::vector<double>>> samples;
};

struct Options {
    uint32_t turns = 9;
    std::string programs;
    std::vector<Candidate> also;
    bool isLatencyOnly = false;
    std::string directory;
};

// State: in the order in which they were first measured.
std::vector<Figure> figures;

void note(Kind kind, const std::string &name, const Candidate &program,
          const std::vector<double> &samples)
{
    auto figure = std::find_if(figures.begin(), figures.end(),
                               [&name](const Figure &known) { return known.name == name; });
    if (figure == figures.end()) {
        figure = figures.insert(figures.end(), {kind, name, {}});
    }
    figure->samples[program.name].push_back(samples);
}

// The smallest value that is not below this share of them.
double quantile(std::vector<double> values, double share)
{
    if (values.empty()) {
        return -1;
    }
    std::sort(values.begin(), values.end());
    const auto index = static_cast<size_t>(share * static_cast<double>(values.size()));
    return values[std::min(index, values.size() - 1)];
}

double median(const std::vector<double> &values)
{
    return quantile(values, 0.5);
}

std::vector<double> joined(const std::vector<std::vector<double>> &turns)
{
    std::vector<double> all;
    for (const std::vector<double> &turn : turns) {
        all.insert(all.end(), turn.begin(), turn.end());
    }
    return all;
}

// Measuring ---------------------------------------------------------------------------------------

std::string atPace(const std::string &name, int pace)
{
    return name + ", x " + std::to_string(pace);
}

void measureLatencies(Station *station, const Candidate &program)
{
    const uint32_t messages = program.isOfThisDesign ? kMessages * kMessagesBeside : kMessages;
    for (const int pace : kLatencyPaces) {
        note(Kind::kLatency, atPace("line to PC", pace), program,
             station->lineToPc(pace, messages));
        note(Kind::kLatency, atPace("PC to line", pace), program,
             station->pcToLine(pace, messages));
        if (program.isOfThisDesign) {
            note(Kind::kLatency, atPace("round trip", pace), program,
                 station->roundTrip(pace, messages));
        }
    }
    note(Kind::kSum, "messages lost", program, {static_cast<double>(station->lostMessages())});
}

// Returns ms of processor time a second.
double measureIdleLoad(const Station &station, const Candidate &program)
{
    const double before = station.program().cpuNs();
    const auto start = Clock::now();
    usleep(static_cast<useconds_t>(kIdleSeconds * 1e6));
    const double load = (station.program().cpuNs() - before) / 1e6 / secondsSince(start);
    note(Kind::kMedian, "idle", program, {load});
    return load;
}

void measureStreams(Station *station, const Candidate &program, double idle)
{
    for (const int pace : kStreamPaces) {
        const StreamResult result = station->stream(pace, kStreamSeconds);
        if (result.received == result.sent && !result.isEqual) {
            std::fprintf(stderr, "%s changed the bytes of a stream\n", program.name.c_str());
            std::exit(4);
        }
        const double ms = result.cpuNs / 1e6;
        const double megabytes = result.received / 1e6;
        note(Kind::kMedian, atPace("cost", pace), program, {ms / megabytes});
        note(Kind::kMedian, atPace("cost above idle", pace), program,
             {(ms - idle * result.seconds) / megabytes});
        note(Kind::kSum, atPace("loss", pace), program, {result.sent - result.received});
    }
}

void measureTurn(const Candidate &program, uint32_t turn, const Options &options)
{
    Station station(program.command);
    note(Kind::kMedian, "start", program, {station.startMs()});
    measureLatencies(&station, program);
    const double idle = measureIdleLoad(station, program);
    if (options.isLatencyOnly) {
        return;
    }
    measureStreams(&station, program, idle);
    note(Kind::kMedian, "resident", program, {station.program().residentKb()});
    note(Kind::kMedian, "private", program, {station.program().privateKb()});
    if (turn < kBurstTurns) {
        const double ofLine = station.lineBurst(kBurst);
        const double ofPc = station.pcBurst(kBurst);
        note(Kind::kLargest, "loss of 4000 from the line", program, {ofLine});
        note(Kind::kLargest, "loss of 4000 from the PC", program, {ofPc});
    }
}

// Telling -----------------------------------------------------------------------------------------

// The figure of one program, or -1 if it has none.
double valueOf(const Figure &figure, const std::string &program, double share)
{
    const auto found = figure.samples.find(program);
    if (found == figure.samples.end()) {
        return -1;
    }
    const std::vector<double> all = joined(found->second);
    double sum = 0;
    switch (figure.kind) {
    case Kind::kMedian:
    case Kind::kLatency:
        return quantile(all, share);
    case Kind::kLargest:
        return quantile(all, 1);
    case Kind::kSum:
        for (const double value : all) {
            sum += value;
        }
        return sum;
    }
    return -1;
}

// The first program's figure divided by that of another, or -1 if one has none.
double ratioOf(const Figure &figure, const std::string &first, const std::string &other,
               double share)
{
    const auto above = figure.samples.find(first);
    const auto below = figure.samples.find(other);
    if (above == figure.samples.end() || below == figure.samples.end() ||
        figure.kind == Kind::kLargest || figure.kind == Kind::kSum) {
        return -1;
    }
    if (share != 0.5) {
        const double divisor = quantile(joined(below->second), share);
        return divisor > 0 ? quantile(joined(above->second), share) / divisor : -1;
    }
    std::vector<double> ratios;
    for (size_t turn = 0; turn < std::min(above->second.size(), below->second.size()); ++turn) {
        const double divisor = median(below->second[turn]);
        if (divisor > 0) {
            ratios.push_back(median(above->second[turn]) / divisor);
        }
    }
    return median(ratios);
}

std::string numberText(double value)
{
    if (value == -1) {
        return "-";
    }
    char text[32];
    std::snprintf(text, sizeof text, value < 10 && value != 0 ? "%.2f" : "%.0f", value);
    return text;
}

std::string rowOf(const Figure &figure, const std::string &title,
                  const std::vector<Candidate> &programs, double share)
{
    char text[64];
    std::snprintf(text, sizeof text, "%-28s", title.c_str());
    std::string row = text;
    for (const Candidate &program : programs) {
        std::snprintf(text, sizeof text, "%11s",
                      numberText(valueOf(figure, program.name, share)).c_str());
        row += text;
    }
    row += "  |";
    for (size_t i = 1; i < programs.size(); ++i) {
        const double ratio = ratioOf(figure, programs[0].name, programs[i].name, share);
        std::snprintf(text, sizeof text, "%11s", numberText(ratio).c_str());
        row += text;
    }
    return row + "\n";
}

std::string tableOf(const std::vector<Candidate> &programs)
{
    char text[64];
    std::snprintf(text, sizeof text, "%-28s", "");
    std::string table = text;
    for (const Candidate &program : programs) {
        std::snprintf(text, sizeof text, "%11s", program.name.c_str());
        table += text;
    }
    table += "  |";
    for (size_t i = 1; i < programs.size(); ++i) {
        std::snprintf(text, sizeof text, "%11s", ("/" + programs[i].name).c_str());
        table += text;
    }
    table += "\n";
    for (const Figure &figure : figures) {
        if (figure.kind == Kind::kLatency) {
            table += rowOf(figure, figure.name + ", median", programs, 0.5);
            table += rowOf(figure, figure.name + ", 99 %", programs, 0.99);
        } else {
            table += rowOf(figure, figure.name, programs, 0.5);
        }
    }
    return table;
}

// "line to PC, x 8" becomes "line-to-PC-x8".
std::string fileName(const std::string &figure)
{
    std::string name;
    for (const char character : figure) {
        if (character == ' ' && (name.empty() || name.back() != 'x')) {
            name += '-';
        } else if (character != ',' && character != ' ') {
            name += character;
        }
    }
    return name + ".dat";
}

void writeLatencies(std::ofstream *file, const Figure &figure,
                    const std::vector<Candidate> &programs)
{
    for (const Candidate &program : programs) {
        const auto found = figure.samples.find(program.name);
        if (found == figure.samples.end()) {
            continue;
        }
        std::vector<double> samples = joined(found->second);
        std::sort(samples.begin(), samples.end());
        *file << "# " << program.name << "\n";
        for (size_t i = 0; i < samples.size(); ++i) {
            *file << samples[i] << " "
                  << static_cast<double>(i + 1) / static_cast<double>(samples.size()) << "\n";
        }
        *file << "\n\n";
    }
}

void writeByRate(const std::string &path, const std::string &name,
                 const std::vector<Candidate> &programs)
{
    std::ofstream file(path);
    file << "rate";
    for (const Candidate &program : programs) {
        file << " " << program.name;
    }
    file << "\n";
    for (const int pace : kStreamPaces) {
        for (const Figure &figure : figures) {
            if (figure.name == atPace(name, pace)) {
                file << pace;
                for (const Candidate &program : programs) {
                    file << " " << valueOf(figure, program.name, 0.5);
                }
                file << "\n";
            }
        }
    }
}

void writeFiles(const std::string &directory, const std::vector<Candidate> &programs)
{
    std::filesystem::create_directories(directory);
    std::ofstream(directory + "/table.txt") << tableOf(programs);
    writeByRate(directory + "/cost.dat", "cost", programs);
    writeByRate(directory + "/cost-above-idle.dat", "cost above idle", programs);
    writeByRate(directory + "/loss.dat", "loss", programs);
    for (const Figure &figure : figures) {
        const bool isByRate = figure.name.starts_with("cost") || figure.name.starts_with("loss, ");
        if (isByRate) {
            continue;
        }
        std::ofstream file(directory + "/" + fileName(figure.name));
        if (figure.kind == Kind::kLatency) {
            writeLatencies(&file, figure, programs);
            continue;
        }
        for (const Candidate &program : programs) {
            file << program.name << " " << valueOf(figure, program.name, 0.5) << "\n";
        }
    }
}

// Set-up ------------------------------------------------------------------------------------------

void writeConfiguration(const char *path, const char *options)
{
    std::ofstream(path) << "connection: &con\n"
                           "  accepter: udp,1000\n"
                           "  connector: serialdev,/dev/ttyS0,115200n81,local\n"
                        << options;
}

std::vector<Candidate> candidates(const Options &options)
{
    const char *const delayed = "/opt/scratch/ser2net.yaml";
    const char *const undelayed = "/opt/scratch/ser2net-undelayed.yaml";
    writeConfiguration(delayed, "");
    writeConfiguration(undelayed, "  options:\n    chardelay: false\n");
    std::filesystem::create_directories("/var/lock"); // ser2net locks the line there
    std::vector<Candidate> all = {
        {"daemon", {VESK_DAEMON}, true},
        {"reference", {VESK_PLAIN_DAEMON, "bridge"}, true},
        {"ser2net", {"ser2net", "-n", "-c", delayed}, false},
        {"undelayed", {"ser2net", "-n", "-c", undelayed}, false},
        {"socat", {"socat", "UDP-LISTEN:1000", "/dev/ttyS0,b115200,rawer"}, false},
    };
    if (!options.programs.empty()) {
        const std::string wanted = "," + options.programs + ",";
        std::erase_if(all, [&wanted](const Candidate &program) {
            return wanted.find("," + program.name + ",") == std::string::npos;
        });
    }
    all.insert(all.end(), options.also.begin(), options.also.end());
    return all;
}

Options optionsOf(int argc, char **argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const bool hasValue = i + 1 < argc;
        if (argument == "--turns" && hasValue) {
            options.turns = static_cast<uint32_t>(std::strtoul(argv[++i], nullptr, 10));
        } else if (argument == "--programs" && hasValue) {
            options.programs = argv[++i];
        } else if (argument == "--also" && hasValue) {
            const std::string also = argv[++i];
            const size_t end = also.find('=');
            options.also.push_back({also.substr(0, end), {also.substr(end + 1)}, true});
        } else if (argument == "--latency") {
            options.isLatencyOnly = true;
        } else if (!argument.starts_with("-") && options.directory.empty()) {
            options.directory = argument;
        } else {
            std::fputs("usage: see the head of bridge.cpp\n", stderr);
            std::exit(2);
        }
    }
    return options;
}

} // namespace

int main(int argc, char **argv)
{
    const Options options = optionsOf(argc, argv);
    const std::vector<Candidate> programs = candidates(options);
    const auto start = Clock::now();
    storeSettings();
    for (uint32_t turn = 0; turn < options.turns; ++turn) {
        for (size_t i = 0; i < programs.size(); ++i) {
            measureTurn(programs[(turn + i) % programs.size()], turn, options);
        }
    }
    std::fputs(tableOf(programs).c_str(), stdout);
    std::printf("%u turns in %.0f s\n", options.turns, secondsSince(start));
    if (!options.directory.empty()) {
        writeFiles(options.directory, programs);
    }
}
